#include "data.h"

#include "service/orvana.h"
#include "service/ovsession.h"
#include "service/replyparser.h"
#include "service/tasklists.h"
#include "ui/mainform.h"
#include "ui/taskform.h"

#include <QApplication>
#include <QComboBox>
#include <QTemporaryDir>
#include <QWindow>

#include <benchmark/benchmark.h>

namespace {

const ListShape kTwoTeams{2, 5000};

// Until the window system has asked for everything to be drawn, and that was done.
void showPainted(QWidget *window)
{
    window->show();
    while (!window->windowHandle()->isExposed())
        QCoreApplication::processEvents();
}

// The items' texts, as the chooser shows them.
QStringList textsOf(const QList<Task> &tasks)
{
    QStringList texts;
    for (const Task &task : tasks)
        texts.append(task.deadline.isValid()
                         ? task.title + QStringLiteral(" | Истекает: ") + serviceDateTimeText(task.deadline)
                         : task.title);
    return texts;
}

void openChooser(benchmark::State &state)
{
    QTemporaryDir root;
    qputenv("ORVANA_STORAGE_ROOT", QFile::encodeName(root.path()));
    // Nobody listens: the lists are those that the session holds.
    qputenv("ORVANA_SERVICE_URL", "https://127.0.0.1:9");
    Silence silence;
    Orvana orvana(&silence);
    Orvana::Session *session = orvana.session();
    session->init(QStringLiteral("user@orvana.example"), QStringLiteral("secret"));
    ReadyReply reply(Orvana::TeamsAndTasks, listBody(kTwoTeams));
    orvana.replyFinished(&reply);
    session->setOnline(false);
    MainForm mainForm(&orvana);
    TaskForm form(&mainForm);
    const QList<Team> teams = session->teams();
    int opened = 0;
    for (auto _ : state) {
        // Another team at each opening, or nothing would be left to do.
        session->setCurrentTeamID(teams.at(++opened % 2).id);
        form.update();
        showPainted(&form);
        state.PauseTiming();
        form.hide();
        QCoreApplication::processEvents();
        state.ResumeTiming();
    }
}

void fillPlainBox(benchmark::State &state)
{
    const QStringList texts = textsOf(parseTeamsAndTasks(listBody(kTwoTeams), TaskLists()).first().tasks);
    for (auto _ : state) {
        QComboBox box;
        box.addItems(texts);
        benchmark::DoNotOptimize(box.count());
    }
}

BENCHMARK(openChooser)->Unit(benchmark::kMillisecond);
BENCHMARK(fillPlainBox)->Unit(benchmark::kMillisecond);

} // namespace
