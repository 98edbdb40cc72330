#pragma once

#include <QKeySequence>
#include <QVector>

// A physical key and the X modifiers to hold with it, lock modifiers apart.
struct KeyChord
{
    quint8 keycode = 0;
    quint8 modifiers = 0;

    friend bool operator==(KeyChord a, KeyChord b)
    {
        return a.keycode == b.keycode && a.modifiers == b.modifiers;
    }
    friend uint qHash(KeyChord chord, uint seed = 0)
    {
        return ::qHash(chord.keycode << 8 | chord.modifiers, seed);
    }
};

// What the keys and modifiers of the X keyboard mean at the moment of construction.
class KeyboardLayout final
{
public:
    // Needs a running X11 application; otherwise the layout has no keys.
    KeyboardLayout();

    // The physical ways to press a sequence of one chord. Empty for anything else and for
    // keys that the keyboard does not have.
    QVector<KeyChord> chords(const QKeySequence &sequence) const;

    // Every combination of the lock modifiers (Caps, Num and Scroll Lock), none of them included.
    QVector<quint8> lockCombinations() const;
    quint8 lockModifiers() const { return m_lock; }

private:
    struct Symbol
    {
        quint32 keysym;
        quint8 keycode;
        quint8 group;
        quint8 level;
    };

    QVector<Symbol> m_symbols;
    quint8 m_alt = 0;
    quint8 m_super = 0;
    quint8 m_lock = 0;
};
