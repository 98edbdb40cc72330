#include "app/hotkeys.h"

#include "base/deployment.h"
#include "base/log.h"
#include "ui/trackingform.h"
#include "x11/qxtglobalshortcut.h"

namespace {

void bind(const char *name, const QKeySequence &sequence, TrackingForm *window, void (TrackingForm::*slot)())
{
    if (sequence.isEmpty())
        return;
    auto *hotKey = new QxtGlobalShortcut(sequence, window);
    QObject::connect(hotKey, &QxtGlobalShortcut::activated, window, slot);
    // It may be had later, with another layout of the keyboard.
    if (!hotKey->isHeld())
        qCWarning(lcApp).noquote() << name << sequence.toString()
                                   << "can't be had: another program has it, or it is no key of this desktop";
}

} // namespace

void bindHotKeys(TrackingForm *window)
{
    const QKeySequence start = Deployment::startShortcut();
    const QKeySequence stop = Deployment::stopShortcut();
    bind("start-shortcut", start, window, &TrackingForm::onStartTimerShortcut_activated);
    if (stop.isEmpty() || stop != start)
        bind("stop-shortcut", stop, window, &TrackingForm::onStopTimerShortcut_activated);
    else
        qCWarning(lcApp).noquote() << "stop-shortcut" << stop.toString() << "is the start-shortcut";
}
