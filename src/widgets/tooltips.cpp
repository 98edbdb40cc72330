#include "widgets/tooltips.h"

#include <QTextDocument>

namespace {

constexpr int kLongestLine = 70; // longer plain tips run over the screen's edge
constexpr int kLongestText = 1000;

} // namespace

QString literalToolTip(const QString &text)
{
    const QString shown =
        text.size() > kLongestText ? QString(text.left(kLongestText) + QChar(0x2026)) : text;
    // Escapes would be shown in a text that is not taken for markup.
    if (shown.size() <= kLongestLine && !Qt::mightBeRichText(shown))
        return shown;
    return QStringLiteral("<span>") + shown.toHtmlEscaped() + QStringLiteral("</span>");
}
