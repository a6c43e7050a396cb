// Compares qv7log with spdlog's multi-threaded file sink. spdlog flushes after each record, so that
// both give the same guarantee: the system has the record when the call returns. Both write the
// launcher's most frequent message to files in $TMPDIR.
#include <benchmark/benchmark.h>
#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/spdlog.h>
#include <stdlib.h>
#include <unistd.h>

#include <cstdarg>
#include <filesystem>
#include <stdexcept>
#include <string>

#include "qv7log/include/qv7log.h"

namespace {

// A temporary directory, removed when the program ends.
class TemporaryDirectory
{
public:
    TemporaryDirectory()
        : m_path((std::filesystem::temp_directory_path() / "log-bench-XXXXXX").string())
    {
        if (mkdtemp(m_path.data()) == nullptr) {
            throw std::runtime_error("cannot create " + m_path);
        }
    }
    ~TemporaryDirectory() { std::filesystem::remove_all(m_path); }
    TemporaryDirectory(const TemporaryDirectory&) = delete;
    TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;
    std::string operator/(const char* name) const { return m_path + "/" + name; }

private:
    std::string m_path;
};

const TemporaryDirectory g_directory;

ILog* OurLog()
{
    static ILog* const log = [] {
        ILog* made = nullptr;
        if (InitLogger((g_directory / "qv7log").c_str()) == 0) {
            GetLogger(LOGKIND_FILE, "launcher", LOGLEVEL_ERROR, &made);
        }
        return made;
    }();
    return log;
}

__attribute__((format(printf, 3, 4))) void Log(ILog* log, LOGLEVEL level, const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    log->LogV(level, format, arguments);
    va_end(arguments);
}

// Its file is never rotated, so each run of the benchmark truncates it.
std::shared_ptr<spdlog::logger> g_spdlog;

void OpenSpdlog(const benchmark::State&)
{
    g_spdlog = std::make_shared<spdlog::logger>(
        "launcher",
        std::make_shared<spdlog::sinks::basic_file_sink_mt>(g_directory / "spdlog", true));
    g_spdlog->set_level(spdlog::level::err);
    g_spdlog->flush_on(spdlog::level::trace);
}

void WriteQv7log(benchmark::State& state)
{
    ILog* const log = OurLog();
    int i = 0;
    for (auto _ : state) {
        Log(log, LOGLEVEL_ERROR, "[LAUNCHER  ] %s %d is killed. ret = %d, status = %d",
            "sync-agent", i, i, 9);
        ++i;
    }
    state.SetItemsProcessed(state.iterations());
}

void WriteSpdlog(benchmark::State& state)
{
    int i = 0;
    for (auto _ : state) {
        g_spdlog->error("[LAUNCHER  ] {} {} is killed. ret = {}, status = {}", "sync-agent", i, i,
                        9);
        ++i;
    }
    state.SetItemsProcessed(state.iterations());
}

void FilterQv7log(benchmark::State& state)
{
    ILog* log = OurLog();
    for (auto _ : state) {
        benchmark::DoNotOptimize(log);
        Log(log, LOGLEVEL_DEBUG, "[LAUNCHER  ] Start to fork %s", "sync-agent");
    }
}

void FilterSpdlog(benchmark::State& state)
{
    for (auto _ : state) {
        benchmark::DoNotOptimize(g_spdlog);
        g_spdlog->debug("[LAUNCHER  ] Start to fork {}", "sync-agent");
    }
}

void EveryThreadCount(benchmark::internal::Benchmark* benchmark)
{
    benchmark->Threads(1)->Threads(2)->Threads(8)->UseRealTime();
}

BENCHMARK(WriteQv7log)->Apply(EveryThreadCount);
BENCHMARK(WriteSpdlog)->Setup(OpenSpdlog)->Apply(EveryThreadCount);
BENCHMARK(FilterQv7log);
BENCHMARK(FilterSpdlog)->Setup(OpenSpdlog);

}  // namespace

BENCHMARK_MAIN();
