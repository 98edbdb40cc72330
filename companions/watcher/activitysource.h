#pragma once

#include <QObject>

// Where it is learnt that somebody uses this desktop. Costs next to nothing while nobody does.
class ActivitySource : public QObject
{
    Q_OBJECT

public:
    ~ActivitySource() override = default;
    Q_DISABLE_COPY_MOVE(ActivitySource)

    // For the log.
    virtual QString name() const = 0;

signals:
    // At most once a second.
    void active();
    // The connection is lost; emitted at most once, and last.
    void lost();

protected:
    ActivitySource() = default;
};
