#include "qxtglobalshortcut.h"

#include "globalkeys.h"

QxtGlobalShortcut::QxtGlobalShortcut(QObject *parent)
    : QObject(parent)
{ }

QxtGlobalShortcut::QxtGlobalShortcut(const QKeySequence &shortcut, QObject *parent)
    : QObject(parent)
{
    setShortcut(shortcut);
}

QxtGlobalShortcut::~QxtGlobalShortcut()
{
    if (m_chords.isEmpty())
        return;
    if (GlobalKeys *keys = GlobalKeys::instance())
        keys->hold(this, {});
}

bool QxtGlobalShortcut::setShortcut(const QKeySequence &shortcut)
{
    m_shortcut = shortcut;
    update();
    return m_state == State::Active || m_state == State::Inactive;
}

void QxtGlobalShortcut::setEnabled(bool enabled)
{
    m_enabled = enabled;
    update();
}

void QxtGlobalShortcut::update()
{
    GlobalKeys *keys = GlobalKeys::instance();
    QVector<KeyChord> wanted;
    State state = State::Inactive;
    if (m_enabled && !m_shortcut.isEmpty()) {
        if (keys)
            wanted = keys->chords(m_shortcut);
        state = wanted.isEmpty() ? State::Unavailable : State::Active;
    }
    if (keys) {
        connect(keys, &GlobalKeys::pressed, this, &QxtGlobalShortcut::onPressed, Qt::UniqueConnection);
        connect(keys, &GlobalKeys::layoutChanged, this, &QxtGlobalShortcut::update, Qt::UniqueConnection);
        if (!keys->hold(this, wanted)) {
            wanted.clear();
            state = State::HeldByAnother;
        }
    }
    m_chords = wanted;
    if (m_state != state) {
        m_state = state;
        emit stateChanged(state);
    }
}

void QxtGlobalShortcut::onPressed(KeyChord chord)
{
    if (m_chords.contains(chord))
        emit activated();
}
