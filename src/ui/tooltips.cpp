#include "ui/tooltips.h"

#include <QTextDocument>

QString literalToolTip(const QString &text)
{
    // Escapes would be shown in a text that is not taken for markup.
    if (!Qt::mightBeRichText(text))
        return text;
    return QStringLiteral("<span>") + text.toHtmlEscaped() + QStringLiteral("</span>");
}
