#include "ui/calendarform.h"

CalendarForm::CalendarForm(QWidget *parent) : AbstractOrvanaForm(parent) {}

CalendarForm::~CalendarForm() = default;

QDate CalendarForm::selectedDate()
{
    return {};
}

QTime CalendarForm::selectedTime()
{
    return {};
}

QString CalendarForm::getReason()
{
    return {};
}
