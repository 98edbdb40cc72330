#include "ui/calendarform.h"

#include "base/log.h"
#include "notifications/notificationmanager.h"
#include "ui_calendarform.h"

#include <QTableView>
#include <QTextCharFormat>
#include <QToolButton>

namespace {

const QSize kSize(216, 360);
const QColor kWeekend(249, 156, 0);
constexpr int kMonthWidth = 60; // "сентябрь"
constexpr int kPointSize = 10;
const QString kCalendarStyle = QStringLiteral(
    "QMenu { font-size:12px; width: 150px; left: 20px;color:rgb(0, 0, 0);background-color:rgb(232, 232, "
    "232);selection-background-color:rgb(195, 195, 195);selection-color:rgb(0, 0, 0);}QToolButton "
    "{icon-size: "
    "48px, 48px;background-color:transparent;color:rgb(100, 100, 100);height: 15px; width: "
    "40px;}QAbstractItemView {selection-background-color: rgb(130, 130, 130);}QTableView {color:rgb(100, "
    "100, "
    "100);}");
// Days of the neighbouring months are drawn in the disabled colour, which the
// calendar's own style makes the same as that of the others.
const QString kViewStyle = QStringLiteral("QTableView:disabled {color: #b9b4ad;}");

template <typename Widget>
Widget *part(const QCalendarWidget *calendar, const char *name)
{
    return calendar->findChild<Widget *>(QString::fromLatin1(name));
}

QIcon arrow(const QString &path)
{
    QIcon icon;
    for (const QIcon::Mode mode : {QIcon::Normal, QIcon::Active, QIcon::Selected})
        icon.addFile(path, QSize(), mode);
    return icon;
}

} // namespace

CalendarForm::CalendarForm(QWidget *parent)
    : AbstractOrvanaForm(parent)
    , m_ui(std::make_unique<Ui::CalendarForm>())
{
    m_ui->setupUi(this);
    setFixedSize(kSize);
    m_ui->pbOk->setObjectName(QStringLiteral("pbOrvana"));
    m_ui->pbCancel->setObjectName(QStringLiteral("pbOrvana"));
    initCalendar();
    connect(m_ui->pbOk, &QPushButton::clicked, this, &CalendarForm::accept);
    connect(m_ui->pbCancel, &QPushButton::clicked, this, &CalendarForm::reject);
    setBackground(QStringLiteral(":/images/res/images/kalendar_fon.png"));
    setWindowTitle(m_ui->lbTitle->text());
    m_ui->calendarWidget->setFocus();
}

CalendarForm::~CalendarForm() = default;

void CalendarForm::initCalendar()
{
    QCalendarWidget *calendar = m_ui->calendarWidget;
    calendar->setLocale(QLocale(QLocale::Russian, QLocale::AnyCountry));
    for (const Qt::DayOfWeek day : {Qt::Saturday, Qt::Sunday}) {
        QTextCharFormat format = calendar->weekdayTextFormat(day);
        format.setForeground(kWeekend);
        calendar->setWeekdayTextFormat(day, format);
    }

    auto *view = part<QTableView>(calendar, "qt_calendar_calendarview");
    QPalette palette = view->palette();
    for (const QPalette::ColorGroup group : {QPalette::Active, QPalette::Inactive, QPalette::Disabled}) {
        palette.setColor(group, QPalette::Base, Qt::transparent);
        palette.setColor(group, QPalette::AlternateBase, Qt::transparent);
    }
    view->setPalette(palette);

    // The menu is not deleted: the calendar still updates its names.
    auto *month = part<QToolButton>(calendar, "qt_calendar_monthbutton");
    month->setEnabled(false);
    month->setMenu(nullptr);
    month->setFixedWidth(kMonthWidth);
    part<QToolButton>(calendar, "qt_calendar_yearbutton")->setEnabled(false);
    auto *previous = part<QToolButton>(calendar, "qt_calendar_prevmonth");
    previous->setIcon(arrow(QStringLiteral(":/icons/res/icons/pbarrow_left.png")));
    previous->setToolTip(QStringLiteral("Предыдущий месяц"));
    previous->setAccessibleName(previous->toolTip());
    auto *next = part<QToolButton>(calendar, "qt_calendar_nextmonth");
    next->setIcon(arrow(QStringLiteral(":/icons/res/icons/pbarrow_right.png")));
    next->setToolTip(QStringLiteral("Следующий месяц"));
    next->setAccessibleName(next->toolTip());

    calendar->setStyleSheet(kCalendarStyle);
    view->setStyleSheet(kViewStyle);
    calendar->setFont(QFont(font().family(), kPointSize));
}

QDate CalendarForm::selectedDate()
{
    qCDebug(lcUi) << "CalendarForm.cpp selectedDate";
    return m_ui->calendarWidget->selectedDate();
}

QTime CalendarForm::selectedTime()
{
    qCDebug(lcUi) << "CalendarForm.cpp selectedTime";
    return m_ui->timeEdit->time();
}

QString CalendarForm::getReason()
{
    qCDebug(lcUi) << "CalendarForm.cpp getReason";
    return m_ui->reasonTextEdit->toPlainText();
}

void CalendarForm::accept()
{
    qCDebug(lcUi) << "CalendarForm.cpp accept";
    if (m_ui->reasonTextEdit->toPlainText().trimmed().isEmpty()) {
        NotificationManager::instance()->addNotification(QStringLiteral("Введите причину переноса!"), Plain,
                                                         QString());
        m_ui->reasonTextEdit->setFocus();
        return;
    }
    AbstractOrvanaForm::accept();
}
