#include "base/crashpoint.h"

#include "service/orvana.h"
#include "service/ovsession.h"
#include "texts.h"
#include "ui/mainform.h"

#include <QtTest>
#include <QtWidgets>

#include <chrono>
#include <csignal>
#include <cstring>

#include <fcntl.h>
#include <unistd.h>

using namespace std::chrono_literals;

namespace {

constexpr auto kGlance = 1s; // of the client's time, as all others are

// What happened, in order; it survives the kill that comes next.
void note(const QStringList &entry)
{
    static const int journal =
        open(qgetenv("ORVANA_CRASH_JOURNAL").constData(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0600);
    const QByteArray line = entry.join(QLatin1Char('\t')).toUtf8() + '\n';
    if (write(journal, line.constData(), static_cast<size_t>(line.size())) != line.size())
        std::abort();
}

// Somebody who makes the choices of ORVANA_CRASH_CHOICES, a line each: milliseconds to wait, then "press" for
// the play button, "start", or "task", each with the rows to pick in the chooser, or "user" with login and
// password. The widgets get the events of mouse and keyboard from within the process, so that it can die as
// soon as it has handled one.
class User final
{
public:
    void sitDown()
    {
        for (QWidget *window : QApplication::topLevelWidgets())
            m_form = m_form ? m_form : qobject_cast<MainForm *>(window);
        if (!m_form)
            return later(kGlance / 10, &User::sitDown);
        noteState(s("begins"));
        next();
    }

private:
    void later(std::chrono::milliseconds wait, void (User::*what)())
    {
        QTimer::singleShot(wait, qApp, [this, what] { (this->*what)(); });
    }

    template <typename T>
    static T *child(const QWidget *window, const char *name)
    {
        return window->findChild<T *>(s(name));
    }

    // What the next minute would be, and what has been counted of the day.
    void noteState(const QString &when) const
    {
        const Orvana::Session *session = m_form->orvana()->session();
        const bool records = child<QTimer>(m_form, "sendActivityTimer")->isActive();
        note({when, session->login(), session->currentTeamID(), session->currentTaskID(),
              s(records ? "recording" : "idle"), session->worktimeDate().toString(Qt::ISODate),
              QString::number(minutes(session->day().work)),
              QString::number(minutes(session->day().active))});
    }

    static int minutes(const WorkDay::Counter &counter) { return QTime(0, 0).secsTo(counter.counted) / 60; }

    void next()
    {
        if (m_left.isEmpty())
            return;
        m_choice = m_left.takeFirst().split(QLatin1Char('\t'));
        const QString kind = m_choice.value(1);
        later(std::chrono::milliseconds(m_choice.value(0).toInt()),
              kind == s("user")       ? &User::changeUser
                  : kind == s("task") ? &User::openChooser
                                      : &User::startOrStop);
    }

    void made()
    {
        noteState(s("made"));
        crashPoint("choice-made");
        next();
    }

    void startOrStop()
    {
        auto *play = child<QPushButton>(m_form, "pbPlay");
        const bool mustStart = m_choice.value(1) == s("start");
        if (!play->isCheckable()) {
            if (mustStart)
                m_left.prepend(m_choice.join(QLatin1Char('\t')));
            return openChooser(); // nothing can be started without a task
        }
        if (play->isChecked() && mustStart)
            return next();
        note({s("asks"), s(play->isChecked() ? "stop" : "start")});
        QTest::mouseClick(play, Qt::LeftButton);
        made();
    }

    void openChooser()
    {
        QTest::mouseClick(child<QPushButton>(m_form, "pbTask"), Qt::LeftButton);
        chooseTask();
    }

    // A chooser that is still loading offers nothing.
    void chooseTask()
    {
        auto *chooser = child<QDialog>(m_form, "TaskForm");
        auto *team = child<QComboBox>(chooser, "cbTeam");
        auto *task = child<QComboBox>(chooser, "cbTask");
        if (!team->isEnabled() || team->count() == 0)
            return later(kGlance, &User::chooseTask);
        team->setCurrentIndex(m_choice.value(2).toInt() % team->count());
        task->setCurrentIndex(m_choice.value(3).toInt() % task->count());
        note({s("asks"), s("task"), team->currentData().toString(), task->currentData().toString()});
        QTest::keyClick(chooser, Qt::Key_Return);
        made();
    }

    void changeUser()
    {
        note({s("asks"), s("user"), m_choice.value(2)});
        later(kGlance, &User::logIn);
        child<QAction>(m_form, "actionChangeAccount")->trigger(); // until the dialog is closed
        made();
    }

    // Retried while the service does not answer.
    void logIn()
    {
        auto *dialog = child<QDialog>(m_form, "LoginForm");
        if (!dialog)
            return;
        child<QLineEdit>(dialog, "lbEmail")->setText(m_choice.value(2));
        child<QLineEdit>(dialog, "lbPassword")->setText(m_choice.value(3));
        QTest::keyClick(dialog, Qt::Key_Return);
        later(5 * kGlance, &User::logIn);
    }

    MainForm *m_form = nullptr;
    QStringList m_left =
        qEnvironmentVariable("ORVANA_CRASH_CHOICES").split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    QStringList m_choice;
};

void seatUser()
{
    static User user;
    QTimer::singleShot(0, qApp, [] { user.sitDown(); });
}

} // namespace

Q_COREAPP_STARTUP_FUNCTION(seatUser)

// ORVANA_CRASH_AT names the place and ORVANA_CRASH_PASS says how often it is passed unharmed. Every minute
// also gets a number of its own, as the version in its record and request: nothing else distinguishes two
// equally busy minutes of one task.
void crashPoint(const char *name)
{
    static const QByteArray place = qgetenv("ORVANA_CRASH_AT");
    static const int passes = qEnvironmentVariableIntValue("ORVANA_CRASH_PASS");
    static const QString run = qEnvironmentVariable("ORVANA_CRASH_RUN");
    static int minutes = 0;
    static int passed = 0;
    if (std::strcmp(name, "minute-over") == 0) {
        QCoreApplication::setApplicationVersion(run + QLatin1Char('.') + QString::number(++minutes));
        note({s("minute"), QCoreApplication::applicationVersion()});
    }
    if (place == name && passed++ == passes)
        std::raise(SIGKILL);
}
