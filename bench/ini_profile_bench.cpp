// Reading the last key of a section behind 0 to 1000 other lines. Every lookup opens the file anew.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <string>

#include "config/ini_profile.h"

namespace {

// A profile with `lines` keys in front of the wanted one, as long as this lives.
class ProfileFile
{
public:
    explicit ProfileFile(std::int64_t lines)
    {
        close(mkstemp(m_path.data()));
        std::ofstream file(m_path);
        file << "[LOG]\n";
        for (std::int64_t i = 0; i < lines; ++i) {
            file << "KEY" << i << "=value\n";
        }
        file << "LEVEL=17\n";
    }
    ~ProfileFile() { unlink(m_path.c_str()); }
    ProfileFile(const ProfileFile&) = delete;
    ProfileFile& operator=(const ProfileFile&) = delete;

    const std::string& Path() const { return m_path; }

private:
    std::string m_path = "/tmp/ini_profile_bench.XXXXXX";
};

void ReadString(benchmark::State& state)
{
    const ProfileFile file(state.range(0));
    char buffer[1024];
    for (auto _ : state) {
        benchmark::DoNotOptimize(
            GetPrivateProfileString("LOG", "LEVEL", "ERROR", buffer, sizeof buffer, file.Path()));
    }
}

void ReadInt(benchmark::State& state)
{
    const ProfileFile file(state.range(0));
    for (auto _ : state) {
        benchmark::DoNotOptimize(GetPrivateProfileInt("LOG", "LEVEL", 0, file.Path()));
    }
}

}  // namespace

BENCHMARK(ReadString)->Arg(0)->Arg(10)->Arg(1000);
BENCHMARK(ReadInt)->Arg(0)->Arg(10)->Arg(1000);
