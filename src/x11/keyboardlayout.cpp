#include "keyboardlayout.h"

#include <QX11Info>

#include <algorithm>
#include <iterator>
#include <limits>
#include <memory>
#include <optional>

#include <X11/XKBlib.h>
#include <xkbcommon/xkbcommon.h>

namespace {

struct FreeKeyboard
{
    void operator()(XkbDescPtr keyboard) const { XkbFreeKeyboard(keyboard, 0, True); }
};

struct NamedKey
{
    int key;
    quint32 keysym;
};

constexpr NamedKey kNamedKeys[] = {
    {Qt::Key_Escape, XKB_KEY_Escape},
    {Qt::Key_Tab, XKB_KEY_Tab},
    {Qt::Key_Backtab, XKB_KEY_Tab},
    {Qt::Key_Backspace, XKB_KEY_BackSpace},
    {Qt::Key_Return, XKB_KEY_Return},
    {Qt::Key_Enter, XKB_KEY_KP_Enter},
    {Qt::Key_Insert, XKB_KEY_Insert},
    {Qt::Key_Delete, XKB_KEY_Delete},
    {Qt::Key_Pause, XKB_KEY_Pause},
    {Qt::Key_Print, XKB_KEY_Print},
    {Qt::Key_SysReq, XKB_KEY_Sys_Req},
    {Qt::Key_Home, XKB_KEY_Home},
    {Qt::Key_End, XKB_KEY_End},
    {Qt::Key_Left, XKB_KEY_Left},
    {Qt::Key_Up, XKB_KEY_Up},
    {Qt::Key_Right, XKB_KEY_Right},
    {Qt::Key_Down, XKB_KEY_Down},
    {Qt::Key_PageUp, XKB_KEY_Page_Up},
    {Qt::Key_PageDown, XKB_KEY_Page_Down},
    {Qt::Key_ScrollLock, XKB_KEY_Scroll_Lock},
    {Qt::Key_Menu, XKB_KEY_Menu},
    {Qt::Key_Help, XKB_KEY_Help},
    {Qt::Key_VolumeDown, XKB_KEY_XF86AudioLowerVolume},
    {Qt::Key_VolumeMute, XKB_KEY_XF86AudioMute},
    {Qt::Key_VolumeUp, XKB_KEY_XF86AudioRaiseVolume},
    {Qt::Key_MicMute, XKB_KEY_XF86AudioMicMute},
    {Qt::Key_MediaPlay, XKB_KEY_XF86AudioPlay},
    {Qt::Key_MediaPause, XKB_KEY_XF86AudioPause},
    {Qt::Key_MediaStop, XKB_KEY_XF86AudioStop},
    {Qt::Key_MediaPrevious, XKB_KEY_XF86AudioPrev},
    {Qt::Key_MediaNext, XKB_KEY_XF86AudioNext},
    {Qt::Key_MediaRecord, XKB_KEY_XF86AudioRecord},
};

constexpr NamedKey kKeypadKeys[] = {
    {Qt::Key_Enter, XKB_KEY_KP_Enter},     {Qt::Key_Plus, XKB_KEY_KP_Add},
    {Qt::Key_Minus, XKB_KEY_KP_Subtract},  {Qt::Key_Asterisk, XKB_KEY_KP_Multiply},
    {Qt::Key_Slash, XKB_KEY_KP_Divide},    {Qt::Key_Period, XKB_KEY_KP_Decimal},
    {Qt::Key_Comma, XKB_KEY_KP_Separator}, {Qt::Key_Equal, XKB_KEY_KP_Equal},
    {Qt::Key_Insert, XKB_KEY_KP_Insert},   {Qt::Key_Delete, XKB_KEY_KP_Delete},
    {Qt::Key_Home, XKB_KEY_KP_Home},       {Qt::Key_End, XKB_KEY_KP_End},
    {Qt::Key_Left, XKB_KEY_KP_Left},       {Qt::Key_Up, XKB_KEY_KP_Up},
    {Qt::Key_Right, XKB_KEY_KP_Right},     {Qt::Key_Down, XKB_KEY_KP_Down},
    {Qt::Key_PageUp, XKB_KEY_KP_Page_Up},  {Qt::Key_PageDown, XKB_KEY_KP_Page_Down},
    {Qt::Key_Clear, XKB_KEY_KP_Begin},
};

template <typename Table>
quint32 findNamed(const Table &table, int key)
{
    const auto found = std::find_if(std::begin(table), std::end(table),
                                    [key](const NamedKey &entry) { return entry.key == key; });
    return found == std::end(table) ? quint32(XKB_KEY_NoSymbol) : found->keysym;
}

quint32 keysymOf(int key, bool keypad)
{
    if (keypad) {
        if (key >= Qt::Key_0 && key <= Qt::Key_9)
            return XKB_KEY_KP_0 + quint32(key - Qt::Key_0);
        return findNamed(kKeypadKeys, key);
    }
    if (key >= Qt::Key_F1 && key <= Qt::Key_F35)
        return XKB_KEY_F1 + quint32(key - Qt::Key_F1);
    // Qt's codes of keys that write a character are the character's code point, in upper case.
    if (key < Qt::Key_Escape)
        return xkb_utf32_to_keysym(QChar::toLower(uint(key)));
    return findNamed(kNamedKeys, key);
}

} // namespace

KeyboardLayout::KeyboardLayout()
{
    Display *display = QX11Info::display();
    if (!display)
        return;
    constexpr unsigned kParts = XkbKeyTypesMask | XkbKeySymsMask | XkbModifierMapMask;
    const std::unique_ptr<XkbDescRec, FreeKeyboard> keyboard(XkbGetMap(display, kParts, XkbUseCoreKbd));
    if (!keyboard || !keyboard->map || !keyboard->map->modmap)
        return;

    constexpr int kLevels = 2; // plain and with Shift
    m_lock = LockMask;
    for (int keycode = keyboard->min_key_code; keycode <= keyboard->max_key_code; ++keycode) {
        const quint8 modifiers = keyboard->map->modmap[keycode];
        const int groups = XkbKeyNumGroups(keyboard.get(), keycode);
        for (int group = 0; group < groups; ++group) {
            const int levels = std::min<int>(kLevels, XkbKeyGroupWidth(keyboard.get(), keycode, group));
            for (int level = 0; level < levels; ++level) {
                const auto keysym = quint32(XkbKeySymEntry(keyboard.get(), keycode, level, group));
                switch (keysym) {
                case XKB_KEY_NoSymbol:
                    continue;
                case XKB_KEY_Alt_L:
                case XKB_KEY_Alt_R:
                    m_alt |= modifiers;
                    break;
                case XKB_KEY_Super_L:
                case XKB_KEY_Super_R:
                    m_super |= modifiers;
                    break;
                case XKB_KEY_Num_Lock:
                case XKB_KEY_Scroll_Lock:
                    m_lock |= modifiers;
                    break;
                default:
                    break;
                }
                m_symbols.append({keysym, quint8(keycode), quint8(group), quint8(level)});
            }
        }
    }
}

QVector<KeyChord> KeyboardLayout::chords(const QKeySequence &sequence) const
{
    if (sequence.count() != 1)
        return {};
    const auto combination = uint(sequence[0]);
    const auto key = int(combination & ~uint(Qt::KeyboardModifierMask));
    const bool keypad = combination & uint(Qt::KeypadModifier);
    const quint32 keysym = keysymOf(key, keypad);
    if (keysym == XKB_KEY_NoSymbol)
        return {};

    quint8 modifiers = 0;
    const struct
    {
        uint wanted;
        quint8 mask;
    } translations[] = {
        {combination & uint(Qt::ShiftModifier), ShiftMask},
        {combination & uint(Qt::ControlModifier), ControlMask},
        {combination & uint(Qt::AltModifier), m_alt},
        {combination & uint(Qt::MetaModifier), m_super},
    };
    for (const auto &translation : translations) {
        if (translation.wanted && !translation.mask)
            return {};
        if (translation.wanted)
            modifiers |= translation.mask;
    }
    if (key == Qt::Key_Backtab)
        modifiers |= ShiftMask;

    // The first layout that has the symbol decides. In a later one the same symbol can be on
    // another key, which must keep its meaning in the first: the full stop of the Russian layout
    // is the slash of the English one.
    const auto rank = [keypad](const Symbol &symbol) {
        return symbol.group * 2 + (keypad ? 0 : symbol.level);
    };
    int best = std::numeric_limits<int>::max();
    for (const Symbol &symbol : m_symbols) {
        if (symbol.keysym == keysym)
            best = std::min(best, rank(symbol));
    }
    QVector<KeyChord> result;
    for (const Symbol &symbol : m_symbols) {
        if (symbol.keysym != keysym || rank(symbol) != best)
            continue;
        // The keypad's second level is Num Lock's, which must not matter.
        const bool needsShift = symbol.level == 1 && !keypad;
        const KeyChord chord{symbol.keycode, quint8(needsShift ? modifiers | ShiftMask : modifiers)};
        if (!result.contains(chord))
            result.append(chord);
    }
    return result;
}

QVector<quint8> KeyboardLayout::lockCombinations() const
{
    QVector<quint8> result;
    for (int subset = m_lock;; subset = (subset - 1) & m_lock) {
        result.append(quint8(subset));
        if (subset == 0)
            return result;
    }
}
