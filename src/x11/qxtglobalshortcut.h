#pragma once

#include <QAbstractNativeEventFilter>
#include <QKeySequence>
#include <QObject>
#include <QVector>

// One key, with or without modifiers, held on the whole desktop: it is reported whatever window
// has the focus, and no other program sees it. Released on destruction. At most one object of a
// process may have a key.
class QxtGlobalShortcut final : public QObject, private QAbstractNativeEventFilter
{
    Q_OBJECT

public:
    explicit QxtGlobalShortcut(QObject *parent = nullptr);
    explicit QxtGlobalShortcut(const QKeySequence &shortcut, QObject *parent = nullptr);
    ~QxtGlobalShortcut() override;
    Q_DISABLE_COPY_MOVE(QxtGlobalShortcut)

    QKeySequence shortcut() const { return m_shortcut; }
    // Releases the key held before. Returns isHeld(); the sequence is kept all the same.
    bool setShortcut(const QKeySequence &shortcut);

    // False without a sequence, when another program has the key, for what is not one key of this
    // keyboard, and without X11.
    bool isHeld() const { return !m_keycodes.isEmpty(); }

signals:
    // Once for each press; holding the key down does not repeat it.
    void activated();

private:
    bool nativeEventFilter(const QByteArray &eventType, void *message, long *result) override;
    void hold();
    void release();

    QKeySequence m_shortcut;
    QVector<quint8> m_keycodes; // held now
    quint8 m_modifiers = 0; // of X, to be pressed with them
    bool m_isDown = false;
    quint32 m_releasedAt = 0;
};
