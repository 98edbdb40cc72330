#include "app/application.h"
#include "app/hotkeys.h"
#include "app/loghandler.h"
#include "app/sessionend.h"
#include "app/signals.h"
#include "app/singleinstance.h"
#include "base/buildstamp.h"
#include "base/buildvalues.h"
#include "base/deployment.h"
#include "base/log.h"
#include "base/programstart.h"
#include "notifications/notificationmanager.h"
#include "service/orvana.h"
#include "service/ovsession.h"
#include "tracking/controlserver.h"
#include "tracking/x11_useractivitywatcher.h"
#include "ui/loginform.h"
#include "ui/mainform.h"
#include "update/orvanaupdate.h"
#include "x11/rootwindow.h"

#include <QFile>
#include <QLibraryInfo>
#include <QLocale>
#include <QMessageBox>
#include <QTranslator>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstring>

#include <malloc.h>

namespace {

constexpr int kLargeBlock = 64 * 1024; // bytes
constexpr int kYes = 0;
constexpr int kNoEscape = -1;
constexpr int kAlreadyRunning = 1;
constexpr int kNoStorage = 1;
constexpr int kNoXServer = 1;
const QString kAlreadyRunningText =
    QStringLiteral("Только одна копия программы может быть одновременно запущена.");

// Qt's few threads need no heaps of their own, and the memory of a screenshot goes back
// to the system at once.
void saveMemory()
{
    mallopt(M_ARENA_MAX, 1);
    mallopt(M_MMAP_THRESHOLD, kLargeBlock);
    mallopt(M_TRIM_THRESHOLD, kLargeBlock);
}

// Runs before the application object exists.
void prepareProcess()
{
    setOwnSurroundings();
    // The reader of the standard output may end before this program does.
    std::signal(SIGPIPE, SIG_IGN);
    saveMemory();
    prepareApplication();
}

// Where it is missing, Qt would abort. An option may name another server or platform.
bool lacksXServer(int argc, char *argv[])
{
    const auto isPlace = [](const char *argument) {
        return std::strstr(argument, "-platform") || std::strstr(argument, "-display");
    };
    return qgetenv("QT_QPA_PLATFORM") == "xcb" && std::none_of(argv, argv + argc, isPlace)
        && !isXServerReachable();
}

void setIdentity()
{
    const QString host = Deployment::serviceHost();
    QCoreApplication::setOrganizationName(host);
    QCoreApplication::setOrganizationDomain(host);
    QCoreApplication::setApplicationName(QStringLiteral(ORVANA_APPLICATION_NAME));
    QCoreApplication::setApplicationVersion(QStringLiteral(ORVANA_VERSION));
}

// Texts and figures of Qt's own dialogs, menus and input fields.
void loadQtTranslation(QApplication &application)
{
    auto *translator = new QTranslator(&application);
    QLocale::setDefault(QLocale(QLocale::Russian, QLocale::Russia));
    if (translator->load(QStringLiteral("qtbase_ru"), QLibraryInfo::location(QLibraryInfo::TranslationsPath)))
        QCoreApplication::installTranslator(translator);
}

bool startPendingUpdate()
{
    if (!OrvanaUpdate::instance()->isUpdateAtStartup())
        return false;
    return startProgram(QStringLiteral("ORTM-update"), {QStringLiteral("--install-only")});
}

void applyStyleSheet(QApplication &application)
{
    QFile file(QStringLiteral(":/qss/main.qss"));
    if (file.open(QIODevice::ReadOnly))
        application.setStyleSheet(QString::fromUtf8(file.readAll().constData()));
}

void showError(const QString &text)
{
    QMessageBox box(QMessageBox::Critical, QCoreApplication::applicationName(), text, QMessageBox::Ok);
    box.setTextFormat(Qt::PlainText);
    box.exec();
}

bool continuesWithoutWatcher()
{
    const int answer = QMessageBox::question(
        nullptr, QStringLiteral("Ошибка"),
        QStringLiteral("Не удалось начать обработку вашей активности.\n"
                       "Для устранения проблемы переустановите приложение или обратитесь к вашему системному "
                       "администратору.\n"
                       "Желаете продолжить работу с программой(информация об активности не будет собранна)?"),
        QStringLiteral("Да"), QStringLiteral("Нет"), QString(), kYes, kNoEscape);
    qCDebug(lcApp) << answer;
    return answer == kYes;
}

} // namespace

int main(int argc, char *argv[])
{
    openOutputs();
    prepareProcess();
    if (lacksXServer(argc, argv)) {
        std::fputs(
            "Нет доступа к X-серверу, поэтому окно программы открыть нельзя. Запустите её в графическом "
            "сеансе; в сеансе Wayland для этого нужен пакет xwayland.\n",
            stderr);
        return kNoXServer;
    }
    Application application(argc, argv);
    setIdentity();
    loadQtTranslation(application);
    const TerminationSignals terminationSignals;

    Orvana orvana(NotificationManager::instance());
    const bool isCleanUp = QCoreApplication::arguments().value(1) == QLatin1String("--clean");
    if (orvana.storage().isTaken() && !isCleanUp) {
        orvana.setCleanMode(true);
        showError(kAlreadyRunningText);
        return kAlreadyRunning;
    }
    if (!orvana.storage().isUsable() && !orvana.storage().isTaken()) {
        showError(orvana.storage().unusableText());
        return kNoStorage;
    }
    OrvanaUpdate::instance()->init(&orvana);
    if (startPendingUpdate())
        return 0;
    OrvanaUpdate::instance()->updateOrvanaUpdateModule();

    Orvana::removeDir(orvana.storageDirectory().filePath(QStringLiteral("cached")));
    openLogFile(orvana.storageDirectory().filePath(QStringLiteral("log.log")));
    installLogHandler();
    qCDebug(lcApp) << QCoreApplication::applicationName() + QLatin1Char(' ')
            + QCoreApplication::applicationVersion() + QStringLiteral(" started. Build date: ")
            + buildStamp();
    const QStringList problems = Deployment::problems();
    for (const QString &problem : problems)
        qCWarning(lcApp).noquote() << problem;
    applyStyleSheet(application);

    if (isCleanUp) {
        closeLogFile();
        Orvana::removeDir(orvana.storageDirectory().absolutePath());
        orvana.setCleanMode(true);
        return 0;
    }
    if (!checkUniqueuness()) {
        // What the other copy has counted since must not be overwritten.
        orvana.setCleanMode(true);
        if (!TerminationSignals::areReceived())
            showError(kAlreadyRunningText);
        return kAlreadyRunning;
    }
    const SessionEnd sessionEnd(&orvana);
    if (!UserActivityWatcher::instance()->startWatch() && !TerminationSignals::areReceived()
        && !continuesWithoutWatcher())
        return 0;
    // A question that is ended from outside returns "Да" as well.
    if (TerminationSignals::areReceived() || application.isAskedToQuit())
        return 0;
    QApplication::setQuitOnLastWindowClosed(false);

    const ControlServer control(&orvana);
    if (!orvana.session()->isLogged()) {
        LoginForm login(&orvana);
        if (login.exec() != QDialog::Accepted || TerminationSignals::areReceived())
            return 0;
    }

    int exitCode = 0;
    {
        MainForm mainForm(&orvana);
        application.setMainWindow(&mainForm);
        QObject::connect(&control, &ControlServer::startRequested, &mainForm,
                         &MainForm::onStartTimerShortcut_activated);
        QObject::connect(&control, &ControlServer::stopRequested, &mainForm,
                         &MainForm::onStopTimerShortcut_activated);
        bindHotKeys(&mainForm);
        mainForm.show();
        if (orvana.session()->isActive())
            orvana.notify(QStringLiteral("Запись активности включена"));
        if (!TerminationSignals::areReceived())
            exitCode = QApplication::exec();
        application.setMainWindow(nullptr);
    }
    NotificationManager::instance()->destroy();
    return exitCode;
}
