#include "data.h"

#include "model/json.h"
#include "service/replyparser.h"

#include <QJsonDocument>

#include <benchmark/benchmark.h>

namespace {

constexpr int kBodySize = 5 * 1024 * 1024;

const QByteArray &body()
{
    static const QByteArray bytes = listBodyOfSize(kBodySize);
    return bytes;
}

const QVariant &tree()
{
    static const QVariant value = QtJson::parse(textOfBody(body()));
    return value;
}

void parseOurs(benchmark::State &state)
{
    for (auto _ : state) {
        const QVariant value = QtJson::parse(textOfBody(body()));
        benchmark::DoNotOptimize(value);
    }
}

void parseQt(benchmark::State &state)
{
    for (auto _ : state) {
        const QVariant value = QJsonDocument::fromJson(body()).toVariant();
        benchmark::DoNotOptimize(value);
    }
}

void writeOurs(benchmark::State &state)
{
    for (auto _ : state) {
        const QByteArray bytes = QtJson::serialize(tree());
        benchmark::DoNotOptimize(bytes);
    }
}

void writeQt(benchmark::State &state)
{
    for (auto _ : state) {
        const QByteArray bytes = QJsonDocument::fromVariant(tree()).toJson(QJsonDocument::Compact);
        benchmark::DoNotOptimize(bytes);
    }
}

BENCHMARK(parseOurs)->Unit(benchmark::kMillisecond);
BENCHMARK(parseQt)->Unit(benchmark::kMillisecond);
BENCHMARK(writeOurs)->Unit(benchmark::kMillisecond);
BENCHMARK(writeQt)->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();
