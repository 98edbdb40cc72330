#pragma once

#include <QKeySequence>
#include <QObject>
#include <QVector>

struct KeyChord;

// One key, with or without modifiers, held on the whole desktop: it is reported whatever window
// has the focus, and no other program sees it. Released when disabled and on destruction.
// Any number of objects of one process may have the same key; each of them reports it.
class QxtGlobalShortcut final : public QObject
{
    Q_OBJECT
    Q_PROPERTY(QKeySequence shortcut READ shortcut WRITE setShortcut)
    Q_PROPERTY(bool enabled READ isEnabled WRITE setEnabled)
    Q_PROPERTY(State state READ state NOTIFY stateChanged)

public:
    enum class State {
        Inactive, // disabled, or without a key
        Active,
        HeldByAnother, // another program has the key; setEnabled(true) tries again
        Unavailable, // not one key of this keyboard, or no X11
    };
    Q_ENUM(State)

    explicit QxtGlobalShortcut(QObject *parent = nullptr);
    explicit QxtGlobalShortcut(const QKeySequence &shortcut, QObject *parent = nullptr);
    ~QxtGlobalShortcut() override;
    Q_DISABLE_COPY_MOVE(QxtGlobalShortcut)

    QKeySequence shortcut() const { return m_shortcut; }
    // False when the key cannot be had; state() tells why. The sequence is kept all the same, and
    // the key held before is released. An empty sequence, and any while disabled, is accepted.
    bool setShortcut(const QKeySequence &shortcut);

    bool isEnabled() const { return m_enabled; }
    State state() const { return m_state; }

signals:
    // Once for each press; holding the key down does not repeat it.
    void activated();
    void stateChanged(QxtGlobalShortcut::State state);

public slots:
    void setEnabled(bool enabled = true);
    void setDisabled(bool disabled = true) { setEnabled(!disabled); }

private:
    void update();
    void onPressed(KeyChord chord);

    QKeySequence m_shortcut;
    QVector<KeyChord> m_chords;
    bool m_enabled = true;
    State m_state = State::Inactive;
};
