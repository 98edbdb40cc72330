#pragma once

#include "keyboardlayout.h"

#include <QAbstractNativeEventFilter>
#include <QHash>
#include <QObject>
#include <QSet>
#include <QTimer>

#include <bitset>

// The keys that this process holds on the whole desktop, each held once however many
// owners share it. One for an application; it lives as long as the application object.
class GlobalKeys final : public QObject, public QAbstractNativeEventFilter
{
    Q_OBJECT

public:
    // Null when there is no running X11 application.
    static GlobalKeys *instance();
    ~GlobalKeys() override;
    Q_DISABLE_COPY_MOVE(GlobalKeys)

    QVector<KeyChord> chords(const QKeySequence &sequence) const { return m_layout.chords(sequence); }

    // Makes exactly these the owner's chords; none of them when another program holds one, and
    // then returns false. The address of the owner only tells owners apart.
    bool hold(const void *owner, const QVector<KeyChord> &chords);

    bool nativeEventFilter(const QByteArray &eventType, void *message, long *result) override;

signals:
    // Once for each press, not for its automatic repetitions.
    void pressed(KeyChord chord);
    // Chords found before may be other ones now.
    void layoutChanged();

private:
    explicit GlobalKeys(QObject *parent);
    bool grab(KeyChord chord);
    void ungrab(KeyChord chord);
    bool handlePress(quint8 keycode, quint16 state, quint32 time);
    bool handleRelease(quint8 keycode, quint32 time);
    void reloadLayout();

    KeyboardLayout m_layout;
    QHash<KeyChord, QSet<const void *>> m_owners;
    std::bitset<256> m_down;
    quint8 m_releasedKey = 0;
    quint32 m_releasedAt = 0;
    QTimer m_reload;
    int m_xkbEvent = -1;
};
