#pragma once

#include "ui/abstractorvanaform.h"

#include <QDate>
#include <QTime>

class CalendarForm final : public AbstractOrvanaForm
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(CalendarForm)

public:
    explicit CalendarForm(QWidget *parent);
    ~CalendarForm() override;

    QDate selectedDate();
    QTime selectedTime();
    QString getReason();
};
