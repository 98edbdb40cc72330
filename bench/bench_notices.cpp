#include "app/application.h"
#include "base/programstart.h"
#include "notifications/notificationform.h"
#include "notifications/notificationmanager.h"

#include <QApplication>
#include <QDialog>
#include <QFile>
#include <QTextEdit>
#include <QVBoxLayout>

#include <benchmark/benchmark.h>

#include <memory>
#include <vector>

namespace {

constexpr int kNotices = 1000;
constexpr double kMinTime = 0.1; // seconds of this process; the window system's are many more
const QSize kSize(179, 107);

QString textOf(int number)
{
    return QStringLiteral("Подготовить подробное руководство ") + QString::number(number);
}

int fitting()
{
    int count = 0;
    while (NotificationForm::fitsOnScreen(count, nullptr))
        ++count;
    return count;
}

void processAll()
{
    QCoreApplication::sendPostedEvents();
    QCoreApplication::processEvents();
}

void showNotices(benchmark::State &state)
{
    QFile sheet(QStringLiteral(":/qss/main.qss"));
    if (sheet.open(QIODevice::ReadOnly))
        qApp->setStyleSheet(QString::fromUtf8(sheet.readAll()));
    NotificationManager *manager = NotificationManager::instance();
    for (auto _ : state) {
        for (int i = 0; i < kNotices; ++i)
            manager->addNotification(textOf(i), TaskAdded, QString());
        processAll();
        state.PauseTiming();
        manager->destroy();
        processAll();
        state.ResumeTiming();
    }
    qApp->setStyleSheet(QString());
}

void showPlainWindows(benchmark::State &state)
{
    const int count = fitting();
    for (auto _ : state) {
        std::vector<std::unique_ptr<QDialog>> windows;
        for (int i = 0; i < count; ++i) {
            auto window = std::make_unique<QDialog>();
            window->setAttribute(Qt::WA_ShowWithoutActivating);
            window->setAttribute(Qt::WA_TranslucentBackground);
            window->setWindowFlags(Qt::Tool | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint);
            // A long text has to scroll.
            auto *text = new QTextEdit(textOf(i), window.get());
            text->setReadOnly(true);
            (new QVBoxLayout(window.get()))->addWidget(text);
            window->setFixedSize(kSize);
            window->move(0, i * kSize.height());
            window->show();
            windows.push_back(std::move(window));
        }
        processAll();
        state.PauseTiming();
        windows.clear();
        processAll();
        state.ResumeTiming();
    }
}

BENCHMARK(showNotices)->Unit(benchmark::kMillisecond)->MinTime(kMinTime);
BENCHMARK(showPlainWindows)->Unit(benchmark::kMillisecond)->MinTime(kMinTime);

} // namespace

int main(int argc, char **argv)
{
    setOwnSurroundings();
    prepareApplication();
    const QApplication application(argc, argv);
    registerResources();
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
