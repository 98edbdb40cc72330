#include <QApplication>

#include <benchmark/benchmark.h>

namespace {

// What a log costs is not what is measured.
void swallow(QtMsgType, const QMessageLogContext &, const QString &) { }

} // namespace

int main(int argc, char **argv)
{
    const QApplication application(argc, argv);
    qInstallMessageHandler(swallow);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
