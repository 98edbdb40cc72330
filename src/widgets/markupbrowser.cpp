#include "widgets/markupbrowser.h"

#include "widgets/simplemarkup.h"
#include "widgets/tooltips.h"

namespace {

const QString kLinkStyle = QStringLiteral("a { color: #8a5600; text-decoration: underline; }");

} // namespace

MarkupBrowser::MarkupBrowser(QWidget *parent)
    : QTextBrowser(parent)
{
    setOpenLinks(false);
    setOpenExternalLinks(false);
    document()->setDefaultStyleSheet(kLinkStyle);
    connect(this, qOverload<const QUrl &>(&QTextBrowser::highlighted), this,
            [this](const QUrl &link) { setToolTip(literalToolTip(link.toString())); });
}

void MarkupBrowser::showText(const QString &text)
{
    if (text == m_text)
        return;
    m_text = text;
    const QString html = simpleMarkup(text);
    if (html.isNull())
        setPlainText(breakableText(text));
    else
        setHtml(html);
}

QVariant MarkupBrowser::loadResource(int type, const QUrl &name)
{
    Q_UNUSED(type)
    Q_UNUSED(name)
    // Empty, not null: for nothing at all the document opens local files itself.
    return QByteArray("");
}
