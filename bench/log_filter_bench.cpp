// What a log call costs when its line is filtered out, next to a plain comparison and a written line.
// A filtered call must cost about a comparison: its argument here would take a long time to format (a
// 100 000-unit text with a wide field), so a filtered call that formatted would show at once.
#include <benchmark/benchmark.h>
#include <stdlib.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <string>

#include "diag/DbgLog.h"
#include "plat/strings.h"

namespace {

const DbgLogSite kTraceSite{u"/src/bench/Bench.cpp", 1, u" (bench)", u"", DBG_LEVEL_TRC};
const std::u16string& expensiveText() {
    static const std::u16string text(100000, u'x');
    return text;
}

void ignoreDebugString(const char16_t*) {}

// Points the log at an ini in a private folder; Level=0 with Destination=1, so trace lines are filtered
// and error lines go to a sink that drops them.
class BenchConfiguration {
public:
    BenchConfiguration() {
        char folder[] = "/tmp/velq-bench-XXXXXX";
        if (::mkdtemp(folder) != nullptr) {
            m_folder = folder;
            std::ofstream(m_folder + "/DbgLog.ini") << "[LOG]\nLevel=0\nDestination=1\n";
        }
        DbgLogEnvironment environment;
        environment.configPath = plat::fromUtf8(m_folder + "/DbgLog.ini");
        environment.outputDebugString = ignoreDebugString;
        dbgLogReset(environment);
    }
    ~BenchConfiguration() {
        dbgLogReset(DbgLogEnvironment{});
        std::remove((m_folder + "/DbgLog.ini").c_str());
        ::rmdir(m_folder.c_str());
    }
    BenchConfiguration(const BenchConfiguration&) = delete;
    BenchConfiguration& operator=(const BenchConfiguration&) = delete;

private:
    std::string m_folder;
};

void BM_PlainComparison(benchmark::State& state) {
    int configured = 0;
    benchmark::DoNotOptimize(configured);
    for (auto _ : state) {
        int level = DBG_LEVEL_TRC;
        benchmark::DoNotOptimize(level);
        bool written = level <= configured;
        benchmark::DoNotOptimize(written);
    }
}
BENCHMARK(BM_PlainComparison);

void BM_FilteredCall(benchmark::State& state) {
    const BenchConfiguration configuration;
    const char16_t* text = expensiveText().c_str();
    for (auto _ : state) {
        benchmark::DoNotOptimize(dbgLogPrint(kTraceSite, u"%s = %*s", u"text", 200000, text));
    }
}
BENCHMARK(BM_FilteredCall);

void BM_WrittenCall(benchmark::State& state) {
    const BenchConfiguration configuration;
    const DbgLogSite errorSite{u"/src/bench/Bench.cpp", 1, u" (bench)", u"", DBG_LEVEL_ERR};
    const char16_t* text = expensiveText().c_str();
    for (auto _ : state) {
        benchmark::DoNotOptimize(dbgLogPrint(errorSite, u"%s = %*s", u"text", 200000, text));
    }
}
BENCHMARK(BM_WrittenCall);

void BM_WrittenShortLine(benchmark::State& state) {
    const BenchConfiguration configuration;
    const DbgLogSite errorSite{u"/src/bench/Bench.cpp", 1, u" (bench)", u"", DBG_LEVEL_ERR};
    for (auto _ : state) {
        benchmark::DoNotOptimize(dbgLogPrint(errorSite, u"Error Code: 0x%x", 0x80004005u));
    }
}
BENCHMARK(BM_WrittenShortLine);

}  // namespace

BENCHMARK_MAIN();
