#include "scenes.h"

#include "ui/aboutform.h"
#include "ui/calendarform.h"
#include "ui/loginform.h"
#include "ui/taskdescriptionform.h"
#include "ui/taskform.h"
#include "ui/tasklistform.h"
#include "ui/tasklistview.h"
#include "update/orvanaupdate.h"
#include "widgets/placement.h"

#include <QAbstractItemView>
#include <QComboBox>
#include <QCursor>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QMessageBox>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QScreen>
#include <QToolTip>

#include <algorithm>

namespace {

const QString kPlainTask = QStringLiteral("1707");
const QString kLongTask = QStringLiteral("1705");
const QString kImportantTask = QStringLiteral("1701");
const QString kOverdueTask = QStringLiteral("1703");

template <typename Widget>
Widget *part(const QWidget *window, const char *name)
{
    return window->findChild<Widget *>(QString::fromLatin1(name));
}

QPushButton *button(const QWidget *window, const QString &text)
{
    const auto all = window->findChildren<QPushButton *>();
    const auto found =
        std::find_if(all.begin(), all.end(), [&](const QPushButton *b) { return b->text() == text; });
    return found == all.end() ? nullptr : *found;
}

LoginForm *openLogin(Stage &stage, const QString &email, const QString &password)
{
    auto *login = stage.own(std::make_unique<LoginForm>(stage.bench.orvana()));
    login->findChild<QLineEdit *>(QStringLiteral("lbEmail"))->setText(email);
    login->findChild<QLineEdit *>(QStringLiteral("lbPassword"))->setText(password);
    return login;
}

QWidgetList mainWindow(Stage &stage, const QString &task, const std::function<bool(MainForm *)> &change = {})
{
    MainForm *form = stage.openMain(task);
    return form && (!change || change(form)) ? QWidgetList{form} : QWidgetList();
}

QWidgetList openChooser(Stage &stage, const char *openedList)
{
    MainForm *form = stage.openMain(kImportantTask);
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

QWidgetList emptyChooser(Stage &stage)
{
    stage.bench.server().edit([](localservice::World &world) { world.teams.clear(); });
    MainForm *form = stage.openMain(QString());
    part<QPushButton>(form, "pbTask")->click();
    return stage.bench.settle() ? QWidgetList{form->findChild<TaskForm *>()} : QWidgetList();
}

QWidgetList popups(Stage &stage, const std::vector<std::pair<NotificationType, QString>> &raised)
{
    MainForm *form = stage.openMain(kPlainTask);
    QWidgetList windows{form};
    for (const auto &[type, text] : raised)
        NotificationManager::instance()->addNotification(text, type, kPlainTask);
    const QWidgetList all = QApplication::topLevelWidgets();
    for (QWidget *window : all) {
        if (qobject_cast<NotificationForm *>(window) && window->isVisible())
            windows.append(window);
    }
    return windows;
}

QWidgetList message(Stage &stage, QMessageBox::Icon icon, const QString &text, const QStringList &buttons)
{
    auto box = std::make_unique<QMessageBox>(icon, QStringLiteral("Orvana Team Monitor"), text);
    for (const QString &words : buttons)
        box->addButton(words, QMessageBox::AcceptRole);
    return {stage.own(std::move(box))};
}

QWidgetList loginFails(Stage &stage)
{
    LoginForm *login = openLogin(stage, QStringLiteral("anna@orvana.example"), QStringLiteral("не тот"));
    QSignalSpy failed(stage.bench.orvana(), &Orvana::error);
    button(login, QStringLiteral("Вход"))->click();
    if (failed.isEmpty() && !failed.wait(TestClient::waitLimit))
        return {};
    return {login};
}

QWidgetList loginIsChecked(Stage &stage)
{
    stage.bench.server().setFault(QStringLiteral("*"), localservice::Fault::hang());
    LoginForm *login = openLogin(stage, QStringLiteral("anna@orvana.example"), QStringLiteral("orvana"));
    button(login, QStringLiteral("Вход"))->click();
    return {login};
}

QWidgetList calendar(Stage &stage, bool filled)
{
    MainForm *form = stage.openMain(kPlainTask);
    auto *window = stage.own(std::make_unique<CalendarForm>(nullptr));
    Placement::centre(window, form);
    if (filled) {
        part<QPlainTextEdit>(window, "reasonTextEdit")
            ->setPlainText(QStringLiteral("Жду от заказчика фотографии и согласованный текст."));
        if (!Stage::focus(part<QPlainTextEdit>(window, "reasonTextEdit")))
            return {};
    }
    return {window};
}

QWidgetList about(Stage &stage, const QString &version)
{
    MainForm *form = stage.openMain(kPlainTask);
    stage.bench.server().edit([&](localservice::World &world) { world.setVersions({version}); });
    OrvanaUpdate::instance()->init(stage.bench.orvana());
    auto *window = stage.own(std::make_unique<AboutForm>(stage.bench.orvana(), nullptr));
    Placement::centre(window, form);
    window->update();
    return stage.bench.settle() ? QWidgetList{window} : QWidgetList();
}

QWidgetList openMenu(Stage &stage)
{
    MainForm *form = stage.openMain(kPlainTask);
    auto *opener = part<QPushButton>(form, "pbMenu");
    opener->menu()->popup(opener->mapToGlobal(QPoint(0, opener->height())));
    return {form, opener->menu()};
}

QWidgetList toolTip(Stage &stage)
{
    MainForm *form = stage.openMain(kImportantTask);
    auto *task = part<QWidget>(form, "lbTask");
    // An activation ends every tool tip.
    if (!Stage::focus(part<QWidget>(form, "pbTask")))
        return {};
    QToolTip::showText(task->mapToGlobal(QPoint(20, 20)), task->toolTip(), task);
    QWidgetList windows{form};
    const QWidgetList all = QApplication::topLevelWidgets();
    for (QWidget *window : all) {
        if (window->inherits("QTipLabel"))
            windows.append(window);
    }
    return windows;
}

QWidgetList secondPage(Stage &stage)
{
    QWidget *window = stage.openDescription(kImportantTask);
    if (window)
        part<QPushButton>(window, "pbCopyrightTasks")->click();
    return window ? QWidgetList{window} : QWidgetList();
}

QWidgetList emptyTeam(Stage &stage)
{
    stage.bench.server().edit([](localservice::World &world) {
        for (localservice::Team &team : world.teams)
            team.tasks.clear();
    });
    QWidget *list = stage.openMain(QString()) ? stage.openTaskList() : nullptr;
    return list ? QWidgetList{list} : QWidgetList();
}

std::vector<Scene> makeScenes()
{
    return {
        {"login", [](Stage &s) { return QWidgetList{openLogin(s, {}, {})}; }},
        {"login-error", loginFails},
        {"login-checking", loginIsChecked},
        {"main-no-task", [](Stage &s) { return mainWindow(s, QString()); }},
        {"main-stopped", [](Stage &s) { return mainWindow(s, kPlainTask); }},
        {"main-stopped-hovered",
         [](Stage &s) {
             return mainWindow(s, kPlainTask,
                               [](MainForm *f) { return Stage::hover(part<QWidget>(f, "pbPlay")); });
         }},
        {"main-running",
         [](Stage &s) { return mainWindow(s, kPlainTask, [&](MainForm *) { return s.startTimer(); }); }},
        {"main-running-focused",
         [](Stage &s) {
             return mainWindow(s, kPlainTask, [&](MainForm *f) {
                 return s.startTimer() && Stage::focus(part<QWidget>(f, "pbPlay"));
             });
         }},
        {"main-running-pressed",
         [](Stage &s) {
             return mainWindow(s, kPlainTask, [&](MainForm *f) {
                 part<QPushButton>(f, "pbPlay")->setDown(true);
                 return s.startTimer();
             });
         }},
        {"main-offline-stopped",
         [](Stage &s) { return mainWindow(s, kPlainTask, [&](MainForm *) { return s.goOffline(); }); }},
        {"main-offline-running",
         [](Stage &s) {
             return mainWindow(s, kPlainTask, [&](MainForm *) { return s.startTimer() && s.goOffline(); });
         }},
        {"main-overdue-active-time",
         [](Stage &s) {
             return mainWindow(s, kOverdueTask, [&](MainForm *f) {
                 return s.startTimer() && QMetaObject::invokeMethod(f, "on_lbActivity_clicked");
             });
         }},
        {"main-long-title", [](Stage &s) { return mainWindow(s, kLongTask); }},
        {"main-focus-on-task",
         [](Stage &s) {
             return mainWindow(s, kImportantTask,
                               [](MainForm *f) { return Stage::focus(part<QWidget>(f, "lbTask")); });
         }},
        {"main-menu", openMenu},
        {"main-tool-tip", toolTip},
        {"chooser", [](Stage &s) { return openChooser(s, nullptr); }},
        {"chooser-teams", [](Stage &s) { return openChooser(s, "cbTeam"); }},
        {"chooser-tasks", [](Stage &s) { return openChooser(s, "cbTask"); }},
        {"chooser-empty", emptyChooser},
        {"task-list",
         [](Stage &s) {
             s.openMain(kImportantTask);
             return QWidgetList{s.openTaskList()};
         }},
        {"task-list-empty", emptyTeam},
        {"description", [](Stage &s) { return QWidgetList{s.openDescription(kImportantTask)}; }},
        {"description-texts", secondPage},
        {"description-bare", [](Stage &s) { return QWidgetList{s.openDescription(kOverdueTask)}; }},
        {"calendar", [](Stage &s) { return calendar(s, false); }},
        {"calendar-filled", [](Stage &s) { return calendar(s, true); }},
        {"about", [](Stage &s) { return about(s, QStringLiteral("1.0.0")); }},
        {"about-new-version", [](Stage &s) { return about(s, QStringLiteral("9.9.9")); }},
        {"popups",
         [](Stage &s) {
             return popups(s,
                           {{TaskAdded, QStringLiteral("Вычитать новости за неделю")},
                            {CommentAdded,
                             QStringLiteral("Подобрать фотографии к обзору кофеен и согласовать подписи с "
                                            "авторами, редактором и заказчиком")},
                            {UpdateAvailable, QStringLiteral(" 9.9.9")},
                            {Plain, QStringLiteral("Переход в оффлайн-режим.")}});
         }},
        {"message-critical",
         [](Stage &s) {
             return message(s, QMessageBox::Critical,
                            QStringLiteral("Только одна копия программы может быть одновременно запущена."),
                            {QStringLiteral("ОК")});
         }},
        {"message-question",
         [](Stage &s) {
             return message(s, QMessageBox::Question,
                            QStringLiteral("Не удалось начать обработку вашей активности.\n"
                                           "Желаете продолжить работу с программой?"),
                            {QStringLiteral("Да"), QStringLiteral("Нет")});
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

bool Stage::startTimer()
{
    bench.child<QPushButton>("pbPlay")->setChecked(true);
    return bench.session()->isActive();
}

bool Stage::goOffline()
{
    bench.server().setOutage(localservice::Outage::Unavailable);
    bench.orvana()->requestTeamsAndTasks();
    const bool answered = bench.settle();
    WindowBench::dropPopups();
    return answered && !bench.session()->isOnline();
}

QWidget *Stage::openTaskList()
{
    bench.child<QPushButton>("pbTaskList")->click();
    return bench.form->findChild<TaskListForm *>();
}

QWidget *Stage::openDescription(const QString &taskId)
{
    if (!openMain(taskId))
        return nullptr;
    QWidget *list = openTaskList();
    emit list->findChild<TaskListView *>()->descriptionRequested(taskId);
    return bench.settle() ? list->findChild<TaskDescriptionForm *>() : nullptr;
}

bool Stage::hover(QWidget *widget)
{
    QCursor::setPos(widget->mapToGlobal(widget->rect().center()));
    return QTest::qWaitFor([widget] { return widget->underMouse(); });
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
