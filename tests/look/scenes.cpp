#include "scenes.h"

#include "ui/aboutform.h"
#include "ui/calendarform.h"
#include "ui/loginform.h"
#include "ui/taskdescriptionform.h"
#include "ui/tasklistform.h"
#include "ui/tasklistview.h"
#include "update/orvanaupdate.h"
#include "widgets/placement.h"

namespace {

constexpr const char *kPlainTask = "1707";
constexpr const char *kLongTask = "1705";
constexpr const char *kImportantTask = "1701";
constexpr const char *kOverdueTask = "1703";

QWidgetList mainWindow(WindowBench &bench)
{
    return {bench.form.get()};
}

QWidgetList running(WindowBench &bench)
{
    bench.child("pbPlay")->setChecked(true);
    return bench.session()->isActive() ? mainWindow(bench) : QWidgetList();
}

QWidgetList offline(WindowBench &bench)
{
    bench.server().setOutage(localservice::Outage::Unavailable);
    bench.orvana()->requestTeamsAndTasks();
    const bool reached = bench.settle() && !bench.session()->isOnline();
    WindowBench::dropPopups();
    return reached ? running(bench) : QWidgetList();
}

// Shows a window in the middle of the main window's screen.
template <typename Window, typename... Arguments>
Window *own(WindowBench &bench, Arguments... arguments)
{
    auto *window = new Window(arguments...);
    bench.others.emplace_back(window);
    if (bench.form)
        Placement::centre(window, bench.form.get());
    window->show();
    return window;
}

QWidgetList login(WindowBench &bench)
{
    return {own<LoginForm>(bench, bench.orvana())};
}

QWidgetList refusedLogin(WindowBench &bench)
{
    QWidget *form = login(bench).constFirst();
    part<QLineEdit>(form, "lbEmail")->setText(TestClient::anna());
    part<QLineEdit>(form, "lbPassword")->setText(s("не тот"));
    QSignalSpy failed(bench.orvana(), &Orvana::error);
    button(form, s("Вход"))->click();
    return failed.wait() ? QWidgetList{form} : QWidgetList();
}

QWidgetList chooser(WindowBench &bench, const char *openedList = nullptr)
{
    bench.child("pbTask")->click();
    auto *chooser = bench.form->findChild<TaskForm *>();
    if (!bench.settle())
        return {};
    if (!openedList)
        return {chooser};
    auto *box = part<QComboBox>(chooser, openedList);
    box->showPopup();
    return {chooser, box->view()->window()};
}

QWidgetList popups(WindowBench &bench)
{
    const std::pair<NotificationType, const char *> raised[] = {
        {TaskAdded, "Вычитать новости за неделю"},
        {CommentAdded, "Подобрать фотографии к обзору кофеен и согласовать подписи с авторами, редактором"},
        {UpdateAvailable, " 9.9.9"},
        {Plain, "Переход в оффлайн-режим."}};
    for (const auto &[type, text] : raised)
        NotificationManager::instance()->addNotification(s(text), type, s(kPlainTask));
    QWidgetList windows = mainWindow(bench);
    const auto shown = shownPopups();
    std::copy(shown.begin(), shown.end(), std::back_inserter(windows));
    return windows;
}

QWidgetList menu(WindowBench &bench)
{
    const auto *opener = bench.child("pbMenu");
    opener->menu()->popup(opener->mapToGlobal(QPoint(0, opener->height())));
    return {bench.form.get(), opener->menu()};
}

QWidgetList calendar(WindowBench &bench)
{
    auto *window = own<CalendarForm>(bench, nullptr);
    auto *field = part<QPlainTextEdit>(window, "reasonTextEdit");
    field->setPlainText(s("Жду от заказчика фотографии и согласованный текст."));
    return focus(field) ? QWidgetList{window} : QWidgetList();
}

QWidgetList about(WindowBench &bench)
{
    bench.server().edit([](localservice::World &world) { world.setVersions({s("9.9.9")}); });
    OrvanaUpdate::instance()->init(bench.orvana());
    auto *window = own<AboutForm>(bench, bench.orvana(), nullptr);
    window->update();
    return bench.settle() ? QWidgetList{window} : QWidgetList();
}

QWidgetList taskList(WindowBench &bench)
{
    bench.child("pbTaskList")->click();
    return {bench.form->findChild<TaskListForm *>()};
}

QWidgetList description(WindowBench &bench, const char *page)
{
    const QWidget *list = taskList(bench).constFirst();
    emit list->findChild<TaskListView *>()->descriptionRequested(bench.session()->currentTaskID());
    auto *window = list->findChild<TaskDescriptionForm *>();
    // Only a widget that really has the focus passes it on when its page is hidden.
    if (!bench.settle() || !focus(part(window, "textTask")))
        return {};
    part<QPushButton>(window, page)->click();
    return {window};
}

bool loseTeams(WindowBench &bench)
{
    return bench.change([](localservice::World &world) { world.teams.clear(); });
}

std::vector<Scene> makeScenes()
{
    using Bench = WindowBench;
    return {
        {"login", nullptr, login},
        {"login-error", nullptr, refusedLogin},
        {"main-no-task", "", mainWindow},
        {"main-stopped", kPlainTask, mainWindow},
        {"main-running", kPlainTask, running},
        {"main-offline", kPlainTask, offline},
        {"main-overdue", kOverdueTask, running},
        {"main-long-title", kLongTask, mainWindow},
        {"main-focus-on-task", kImportantTask,
         [](Bench &b) { return focus(b.child<QWidget>("lbTask")) ? mainWindow(b) : QWidgetList(); }},
        {"main-menu", kPlainTask, menu},
        {"chooser", kImportantTask, [](Bench &b) { return chooser(b); }},
        {"chooser-tasks", kImportantTask, [](Bench &b) { return chooser(b, "cbTask"); }},
        {"chooser-empty", "", [](Bench &b) { return loseTeams(b) ? chooser(b) : QWidgetList(); }},
        {"task-list", kImportantTask, taskList},
        {"task-list-empty", "", [](Bench &b) { return loseTeams(b) ? taskList(b) : QWidgetList(); }},
        {"description", kImportantTask, [](Bench &b) { return description(b, "pbMainInfo"); }},
        {"description-texts", kImportantTask, [](Bench &b) { return description(b, "pbCopyrightTasks"); }},
        {"calendar", kPlainTask, calendar},
        {"about", kPlainTask, about},
        {"popups", kPlainTask, popups},
    };
}

} // namespace

const std::vector<Scene> &scenes()
{
    static const std::vector<Scene> all = makeScenes();
    return all;
}
