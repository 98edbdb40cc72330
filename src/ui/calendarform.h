#pragma once

#include "widgets/abstractorvanaform.h"

#include <QDate>
#include <QTime>

#include <memory>

namespace Ui {
class CalendarForm;
}

// Asks for a new deadline and the reason for it; accepted only with a reason.
class CalendarForm final : public AbstractOrvanaForm
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(CalendarForm)

public:
    explicit CalendarForm(QWidget *parent);
    ~CalendarForm() override;

    QDate selectedDate();
    QTime selectedTime();
    // As typed, surrounding blanks included.
    QString getReason();

public slots:
    void accept() override;

private:
    void initCalendar();

    std::unique_ptr<Ui::CalendarForm> m_ui;
};
