#ifdef QT_WIDGETS_LIB
#include <QApplication>
#else
#include <QGuiApplication>
#endif

#include <benchmark/benchmark.h>

namespace {

// What a log costs is not what is measured.
void swallow(QtMsgType, const QMessageLogContext &, const QString &) { }

} // namespace

int main(int argc, char **argv)
{
#ifdef QT_WIDGETS_LIB
    const QApplication application(argc, argv);
#else
    const QGuiApplication application(argc, argv);
#endif
    qInstallMessageHandler(swallow);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
