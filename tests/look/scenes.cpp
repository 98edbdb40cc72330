#include "scenes.h"

#include "ui/aboutform.h"
#include "ui/calendarform.h"
#include "ui/loginform.h"
#include "ui/taskdescriptionform.h"
#include "ui/tasklistform.h"
#include "ui/tasklistview.h"
#include "update/orvanaupdate.h"
#include "windowparts.h"

namespace {

const QString kPlainTask = QStringLiteral("1707");
const QString kLongTask = QStringLiteral("1705");
const QString kImportantTask = QStringLiteral("1701");
const QString kOverdueTask = QStringLiteral("1703");

using Change = std::function<bool(Stage &)>;

// The main window with this task after some changes, each of which must succeed.
Scene mainWindow(const char *name, const QString &task, const std::vector<Change> &changes = {})
{
    return {name, [task, changes](Stage &stage) {
                MainForm *form = stage.openMain(task);
                const bool reached = form
                    && std::all_of(changes.begin(), changes.end(), [&](const Change &c) { return c(stage); });
                return reached ? QWidgetList{form} : QWidgetList();
            }};
}

bool start(Stage &stage)
{
    stage.bench.child<QPushButton>("pbPlay")->setChecked(true);
    return stage.bench.session()->isActive();
}

bool goOffline(Stage &stage)
{
    stage.bench.server().setOutage(localservice::Outage::Unavailable);
    stage.bench.orvana()->requestTeamsAndTasks();
    const bool answered = stage.bench.settle();
    WindowBench::dropPopups();
    return answered && !stage.bench.session()->isOnline();
}

bool press(Stage &stage)
{
    stage.bench.child<QPushButton>("pbPlay")->setDown(true);
    return true;
}

bool showActiveTime(Stage &stage)
{
    return QMetaObject::invokeMethod(stage.bench.form.get(), "on_lbActivity_clicked");
}

// The pointer comes to rest on the button, so that it is drawn as hovered.
bool hover(Stage &stage)
{
    auto *play = stage.bench.child<QWidget>("pbPlay");
    QCursor::setPos(play->mapToGlobal(play->rect().center()));
    return QTest::qWaitFor([play] { return play->underMouse(); });
}

Change focusOn(const char *name)
{
    return [name](Stage &stage) { return Stage::focus(stage.bench.child<QWidget>(name)); };
}

// With the message that appears when the entries are checked.
QWidgetList login(Stage &stage, const char *email, const char *password, const char *service)
{
    auto *form = stage.own(std::make_unique<LoginForm>(stage.bench.orvana()));
    part<QLineEdit>(form, "lbEmail")->setText(s(email));
    part<QLineEdit>(form, "lbPassword")->setText(s(password));
    if (qstrcmp(service, "hangs") == 0)
        stage.bench.server().setFault(s("*"), localservice::Fault::hang());
    QSignalSpy failed(stage.bench.orvana(), &Orvana::error);
    if (*service)
        button(form, s("Вход"))->click();
    const bool reached = qstrcmp(service, "refuses") != 0 || failed.count() > 0 || failed.wait();
    return reached ? QWidgetList{form} : QWidgetList();
}

QWidgetList chooser(Stage &stage, const char *openedList, bool hasTeams = true)
{
    if (!hasTeams)
        stage.bench.server().edit([](localservice::World &world) { world.teams.clear(); });
    MainForm *form = stage.openMain(hasTeams ? kImportantTask : QString());
    part<QPushButton>(form, "pbTask")->click();
    auto *chooser = form->findChild<TaskForm *>();
    if (!stage.bench.settle())
        return {};
    if (!openedList)
        return {chooser};
    auto *box = part<QComboBox>(chooser, openedList);
    box->showPopup();
    return {chooser, box->view()->window()};
}

// The windows of this class that are shown, after the main window.
QWidgetList withMainWindow(Stage &stage, const char *className)
{
    QWidgetList windows{stage.bench.form.get()};
    const QWidgetList all = QApplication::topLevelWidgets();
    std::copy_if(all.begin(), all.end(), std::back_inserter(windows),
                 [className](const QWidget *each) { return each->inherits(className) && each->isVisible(); });
    return windows;
}

QWidgetList popups(Stage &stage)
{
    stage.openMain(kPlainTask);
    const std::pair<NotificationType, const char *> raised[] = {
        {TaskAdded, "Вычитать новости за неделю"},
        {CommentAdded,
         "Подобрать фотографии к обзору кофеен и согласовать подписи с авторами, редактором и "
         "заказчиком"},
        {UpdateAvailable, " 9.9.9"},
        {Plain, "Переход в оффлайн-режим."}};
    for (const auto &[type, text] : raised)
        NotificationManager::instance()->addNotification(s(text), type, kPlainTask);
    return withMainWindow(stage, "NotificationForm");
}

QWidgetList toolTip(Stage &stage)
{
    // An activation ends every tool tip.
    if (!Stage::focus(part(stage.openMain(kImportantTask), "pbTask")))
        return {};
    auto *task = stage.bench.child<QWidget>("lbTask");
    QToolTip::showText(task->mapToGlobal(QPoint(20, 20)), task->toolTip(), task);
    return withMainWindow(stage, "QTipLabel");
}

QWidgetList menu(Stage &stage)
{
    MainForm *form = stage.openMain(kPlainTask);
    auto *opener = part<QPushButton>(form, "pbMenu");
    opener->menu()->popup(opener->mapToGlobal(QPoint(0, opener->height())));
    return {form, opener->menu()};
}

QWidgetList message(Stage &stage, QMessageBox::Icon icon, const char *text, const QStringList &buttons)
{
    auto box = std::make_unique<QMessageBox>(icon, s("Orvana Team Monitor"), s(text));
    for (const QString &words : buttons)
        box->addButton(words, QMessageBox::AcceptRole);
    return {stage.own(std::move(box))};
}

QWidgetList calendar(Stage &stage, const char *reason)
{
    MainForm *form = stage.openMain(kPlainTask);
    auto *window = stage.own(std::make_unique<CalendarForm>(nullptr), form);
    auto *field = part<QPlainTextEdit>(window, "reasonTextEdit");
    field->setPlainText(s(reason));
    return *reason && !Stage::focus(field) ? QWidgetList() : QWidgetList{window};
}

QWidgetList about(Stage &stage, const char *version)
{
    MainForm *form = stage.openMain(kPlainTask);
    stage.bench.server().edit([&](localservice::World &world) { world.setVersions({s(version)}); });
    OrvanaUpdate::instance()->init(stage.bench.orvana());
    auto *window = stage.own(std::make_unique<AboutForm>(stage.bench.orvana(), nullptr), form);
    window->update();
    return stage.bench.settle() ? QWidgetList{window} : QWidgetList();
}

QWidgetList taskList(Stage &stage, bool hasTasks)
{
    stage.bench.server().edit([hasTasks](localservice::World &world) {
        for (localservice::Team &team : world.teams)
            team.tasks = hasTasks ? team.tasks : QVector<localservice::Task>();
    });
    return stage.openMain(hasTasks ? kImportantTask : QString()) ? QWidgetList{stage.openTaskList()}
                                                                 : QWidgetList();
}

QWidgetList description(Stage &stage, const QString &task, const char *page)
{
    if (!stage.openMain(task))
        return {};
    QWidget *list = stage.openTaskList();
    emit list->findChild<TaskListView *>()->descriptionRequested(task);
    auto *window = list->findChild<TaskDescriptionForm *>();
    // Only a widget that really has the focus passes it on when its page is hidden.
    if (!stage.bench.settle() || !Stage::focus(part(window, "textTask")))
        return {};
    part<QPushButton>(window, page)->click();
    return {window};
}

std::vector<Scene> makeScenes()
{
    return {
        {"login", [](Stage &s) { return login(s, "", "", ""); }},
        {"login-error", [](Stage &s) { return login(s, "anna@orvana.example", "не тот", "refuses"); }},
        {"login-checking", [](Stage &s) { return login(s, "anna@orvana.example", "orvana", "hangs"); }},
        mainWindow("main-no-task", QString()),
        mainWindow("main-stopped", kPlainTask),
        mainWindow("main-stopped-hovered", kPlainTask, {hover}),
        mainWindow("main-running", kPlainTask, {start}),
        mainWindow("main-running-focused", kPlainTask, {start, focusOn("pbPlay")}),
        mainWindow("main-running-pressed", kPlainTask, {press, start}),
        mainWindow("main-offline-stopped", kPlainTask, {goOffline}),
        mainWindow("main-offline-running", kPlainTask, {start, goOffline}),
        mainWindow("main-overdue-active-time", kOverdueTask, {start, showActiveTime}),
        mainWindow("main-long-title", kLongTask),
        mainWindow("main-focus-on-task", kImportantTask, {focusOn("lbTask")}),
        {"main-menu", menu},
        {"main-tool-tip", toolTip},
        {"chooser", [](Stage &s) { return chooser(s, nullptr); }},
        {"chooser-teams", [](Stage &s) { return chooser(s, "cbTeam"); }},
        {"chooser-tasks", [](Stage &s) { return chooser(s, "cbTask"); }},
        {"chooser-empty", [](Stage &s) { return chooser(s, nullptr, false); }},
        {"task-list", [](Stage &s) { return taskList(s, true); }},
        {"task-list-empty", [](Stage &s) { return taskList(s, false); }},
        {"description", [](Stage &s) { return description(s, kImportantTask, "pbMainInfo"); }},
        {"description-texts", [](Stage &s) { return description(s, kImportantTask, "pbCopyrightTasks"); }},
        {"description-bare", [](Stage &s) { return description(s, kOverdueTask, "pbMainInfo"); }},
        {"calendar", [](Stage &s) { return calendar(s, ""); }},
        {"calendar-filled",
         [](Stage &s) { return calendar(s, "Жду от заказчика фотографии и согласованный текст."); }},
        {"about", [](Stage &s) { return about(s, "1.0.0"); }},
        {"about-new-version", [](Stage &s) { return about(s, "9.9.9"); }},
        {"popups", popups},
        {"message-critical",
         [](Stage &stage) {
             return message(stage, QMessageBox::Critical,
                            "Только одна копия программы может быть одновременно запущена.", {s("ОК")});
         }},
        {"message-question",
         [](Stage &stage) {
             return message(stage, QMessageBox::Question,
                            "Не удалось начать обработку вашей активности.\n"
                            "Желаете продолжить работу с программой?",
                            {s("Да"), s("Нет")});
         }},
    };
}

} // namespace

Stage::~Stage()
{
    m_owned.clear();
    WindowBench::dropPopups();
}

MainForm *Stage::openMain(const QString &taskId)
{
    return bench.openFor(taskId) ? bench.form.get() : nullptr;
}

QWidget *Stage::openTaskList()
{
    bench.child<QPushButton>("pbTaskList")->click();
    return bench.form->findChild<TaskListForm *>();
}

bool Stage::focus(QWidget *widget)
{
    widget->window()->activateWindow();
    widget->setFocus(Qt::TabFocusReason);
    return QTest::qWaitFor([widget] { return widget->hasFocus(); });
}

const std::vector<Scene> &scenes()
{
    static const std::vector<Scene> all = makeScenes();
    return all;
}
