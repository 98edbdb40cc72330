#pragma once

#include <QTextBrowser>

// Shows a text of the service with its simple markup. Loads nothing, neither
// from the disk nor from the network, and follows no link: anchorClicked() reports a click.
class MarkupBrowser final : public QTextBrowser
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(MarkupBrowser)

public:
    explicit MarkupBrowser(QWidget *parent = nullptr);

    // A text that is shown already stays where it was scrolled to.
    void showText(const QString &text);

protected:
    QVariant loadResource(int type, const QUrl &name) override;

private:
    QString m_text;
};
