#pragma once

#include <QObject>

// Where starting with the desktop would be switched. Nothing is registered: the
// package's own desktop entry is left to the user.
class AutoRun final : public QObject
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(AutoRun)

public:
    explicit AutoRun(QObject *parent = nullptr);

public slots:
    // Reports the wish as done.
    bool enable(bool on);
    bool isEnabled();
};
