#include "ui/accessiblecontrols.h"

#include "notifications/notificationform.h"

#include <QAccessibleWidget>
#include <QCoreApplication>
#include <QKeyEvent>
#include <QLabel>
#include <QTextDocument>
#include <QTextDocumentFragment>

namespace {

// A press does what Enter does, through the event loop: it may open a dialog.
void postKey(QWidget *widget, Qt::Key key)
{
    for (const QEvent::Type type : {QEvent::KeyPress, QEvent::KeyRelease})
        QCoreApplication::postEvent(widget, new QKeyEvent(type, key, Qt::NoModifier));
}

// A widget that does something on Enter while it can have the focus, and else is a text.
class AccessiblePressable : public QAccessibleWidget
{
public:
    explicit AccessiblePressable(QWidget *widget, QAccessible::Role pressedRole = QAccessible::Button)
        : QAccessibleWidget(widget)
        , m_pressedRole(pressedRole)
    { }

    QAccessible::Role role() const override
    {
        return canBePressed() ? m_pressedRole : QAccessible::StaticText;
    }

    QStringList actionNames() const override
    {
        QStringList names = QAccessibleWidget::actionNames();
        if (canBePressed() && widget()->isEnabled())
            names.prepend(pressAction());
        return names;
    }

    void doAction(const QString &name) override
    {
        if (name != pressAction())
            QAccessibleWidget::doAction(name);
        else if (canBePressed() && widget()->isEnabled())
            press();
    }

protected:
    virtual bool canBePressed() const { return widget()->focusPolicy() != Qt::NoFocus; }
    virtual void press() { postKey(widget(), Qt::Key_Return); }

private:
    QAccessible::Role m_pressedRole;
};

class AccessibleLabel : public AccessiblePressable
{
public:
    using AccessiblePressable::AccessiblePressable;

    QString text(QAccessible::Text kind) const override
    {
        const QString text = AccessiblePressable::text(kind);
        return kind == QAccessible::Name && text.isEmpty() && label() ? label()->text() : text;
    }

    QVector<QPair<QAccessibleInterface *, QAccessible::Relation>>
    relations(QAccessible::Relation match) const override
    {
        auto all = AccessiblePressable::relations(match);
        if (match.testFlag(QAccessible::Labelled) && label() && label()->buddy()) {
            all.append(qMakePair(QAccessible::queryAccessibleInterface(label()->buddy()),
                                 QAccessible::Relation(QAccessible::Labelled)));
        }
        return all;
    }

protected:
    // Null while the label is being destroyed.
    QLabel *label() const { return qobject_cast<QLabel *>(object()); }
};

// A label that is a link, or holds one while it can have the focus.
class AccessibleLink final : public AccessibleLabel
{
public:
    explicit AccessibleLink(QLabel *label)
        : AccessibleLabel(label, QAccessible::Link)
    { }

    QString text(QAccessible::Text kind) const override
    {
        QString text = AccessibleLabel::text(kind);
        if (kind == QAccessible::Name && Qt::mightBeRichText(text))
            text = QTextDocumentFragment::fromHtml(text).toPlainText();
        return text;
    }

protected:
    void press() override
    {
        // Enter opens the link that Tab has chosen.
        if (label()->textInteractionFlags().testFlag(Qt::LinksAccessibleByKeyboard)) {
            widget()->setFocus(Qt::TabFocusReason);
            if (!label()->hasSelectedText())
                postKey(widget(), Qt::Key_Tab);
        }
        AccessibleLabel::press();
    }
};

class AccessiblePopup final : public AccessiblePressable
{
public:
    explicit AccessiblePopup(NotificationForm *popup)
        : AccessiblePressable(popup)
    { }

    QAccessible::Role role() const override { return QAccessible::AlertMessage; }

protected:
    // One with buttons leaves the choice to them.
    bool canBePressed() const override
    {
        const auto *popup = qobject_cast<NotificationForm *>(object());
        return popup && popup->notificationType() != UpdateAvailable;
    }

    // Not by a key, which a popup takes only when it was clicked or tabbed into.
    void press() override
    {
        QMetaObject::invokeMethod(qobject_cast<NotificationForm *>(object()), &NotificationForm::press,
                                  Qt::QueuedConnection);
    }
};

QAccessibleInterface *makeInterface(const QString &className, QObject *object)
{
    auto *widget = qobject_cast<QWidget *>(object);
    if (className == QLatin1String("ClickableLabel"))
        return new AccessibleLabel(widget);
    if (className == QLatin1String("ScrollText"))
        return new AccessiblePressable(widget);
    if (className == QLatin1String("AutoScrollLineEdit"))
        return new QAccessibleWidget(widget, QAccessible::StaticText);
    if (className == QLatin1String("NotificationForm"))
        return new AccessiblePopup(static_cast<NotificationForm *>(widget));
    // One that can be reached by keyboard, now or once it holds a link.
    auto *label = qobject_cast<QLabel *>(object);
    if (className == QLatin1String("QLabel")
        && (label->focusPolicy() != Qt::NoFocus
            || label->textInteractionFlags().testFlag(Qt::LinksAccessibleByKeyboard)))
        return new AccessibleLink(label);
    return nullptr;
}

} // namespace

void installAccessibleControls()
{
    QAccessible::installFactory(makeInterface);
}
