#pragma once

#include <QObject>

// The switch for starting with the desktop. It registers nothing: users make an autostart
// entry of their own.
class AutoRun final : public QObject
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(AutoRun)

public:
    explicit AutoRun(QObject *parent = nullptr);

public slots:
    // Returns what was requested.
    bool enable(bool on);
    bool isEnabled();
};
