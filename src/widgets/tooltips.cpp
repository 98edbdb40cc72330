#include "widgets/tooltips.h"

#include "base/shortened.h"
#include "widgets/simplemarkup.h"

#include <QTextDocument>

namespace {

constexpr int kLongestLine = 70; // longer plain tips run over the screen's edge
constexpr int kLongestText = 1000;

} // namespace

QString literalToolTip(const QString &text)
{
    QString shown = shortened(text, kLongestText);
    // Escapes would be shown in a text that is not taken for markup.
    if (shown.size() <= kLongestLine && !Qt::mightBeRichText(shown))
        return shown;
    return QStringLiteral("<span>") + shown.toHtmlEscaped() + QStringLiteral("</span>");
}

QVariant titleData(const QString &title, int role)
{
    switch (role) {
    case Qt::DisplayRole:
        return titleLine(title);
    case Qt::ToolTipRole:
        return literalToolTip(title);
    default:
        return {};
    }
}
