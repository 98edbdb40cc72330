#pragma once

#include "tracking/trackingloop.h"
#include "update/updater.h"
#include "widgets/abstractorvanaform.h"

// A window that offers the operations of its tracking loop as its own.
class TrackingForm : public AbstractOrvanaForm
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(TrackingForm)

public:
    TrackingForm(Orvana *orvana, QWidget *parent)
        : AbstractOrvanaForm(parent)
        , m_orvana(orvana)
        , m_loop(new TrackingLoop(orvana, this))
    { }
    ~TrackingForm() override = default;

    Orvana *orvana() const { return m_orvana; }

public slots:
    void initTimers() { m_loop->initTimers(); }
    void startTracking() { m_loop->startTracking(); }
    void stopTracking() { m_loop->stopTracking(); }
    void sendActivity(bool force = false) { m_loop->sendActivity(force); }
    void setHasActivity() { m_loop->setHasActivity(); }
    void clock() { m_loop->clock(); }
    void screenshotTimeout() { m_loop->screenshotTimeout(); }
    void sendScreenshot(bool force) { m_loop->sendScreenshot(force); }
    void syncTime() { m_loop->syncTime(); }
    void updateComments() { m_loop->updateComments(); }
    void showActivityMessage() { m_loop->showActivityMessage(); }
    void closeTask(const QString &taskId) { m_loop->closeTask(taskId); }
    void onStartTimerShortcut_activated() { m_loop->onStartTimerShortcut_activated(); }
    void onStopTimerShortcut_activated() { m_loop->onStopTimerShortcut_activated(); }
    void checkUpdate() { m_loop->checkUpdate(); }
    void checkNeedCloseToUpdate() { m_loop->checkNeedCloseToUpdate(); }
    bool isUpdateProcessRunning() { return Updater::isRunning(); }

protected:
    const TrackingLoop *loop() const { return m_loop; }

    Orvana *const m_orvana;

private:
    TrackingLoop *m_loop;
};
