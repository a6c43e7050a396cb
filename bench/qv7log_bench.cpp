// qv7log against spdlog's multi-threaded file sink with a flush after each record: the same
// promise, that a record is with the system when the call returns. Both write the launcher's
// commonest line to files in the folder that TMPDIR names.
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

// A folder that is gone when the program ends.
class Folder
{
public:
    Folder() : m_path((std::filesystem::temp_directory_path() / "log-bench-XXXXXX").string())
    {
        if (mkdtemp(m_path.data()) == nullptr) {
            throw std::runtime_error("no folder " + m_path);
        }
    }
    ~Folder() { std::filesystem::remove_all(m_path); }
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;
    std::string operator/(const char* name) const { return m_path + "/" + name; }

private:
    std::string m_path;
};

const Folder g_folder;

ILog* OurLog()
{
    static ILog* const log = [] {
        ILog* made = nullptr;
        if (InitLogger((g_folder / "qv7log").c_str()) == 0) {
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

// Its file grows without end, so each run of the benchmark begins it anew.
std::shared_ptr<spdlog::logger> g_spdlog;

void BeginSpdlog(const benchmark::State&)
{
    g_spdlog = std::make_shared<spdlog::logger>(
        "launcher", std::make_shared<spdlog::sinks::basic_file_sink_mt>(g_folder / "spdlog", true));
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
BENCHMARK(WriteSpdlog)->Setup(BeginSpdlog)->Apply(EveryThreadCount);
BENCHMARK(FilterQv7log);
BENCHMARK(FilterSpdlog)->Setup(BeginSpdlog);

}  // namespace

BENCHMARK_MAIN();
