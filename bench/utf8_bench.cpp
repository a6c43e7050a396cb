// UTF-8 to wide text and back, for characters of one to four bytes.
#include <benchmark/benchmark.h>

#include <cstddef>
#include <cstdint>
#include <string>

#include "util/util.h"

namespace {

constexpr std::size_t kCharacters = 4096;

// Of as many bytes per character as the benchmark's argument says.
std::wstring Text(const benchmark::State& state)
{
    const wchar_t characters[] = {L'a', L'\u00E9', L'\u20AC', L'\U0001F600'};
    return std::wstring(kCharacters, characters[state.range(0) - 1]);
}

void CountBytes(benchmark::State& state, const std::string& text)
{
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(text.size()));
}

void Decode(benchmark::State& state)
{
    const std::string text = ws2s(Text(state));
    for (auto _ : state) {
        benchmark::DoNotOptimize(s2ws(text));
    }
    CountBytes(state, text);
}

void Encode(benchmark::State& state)
{
    const std::wstring text = Text(state);
    for (auto _ : state) {
        benchmark::DoNotOptimize(ws2s(text));
    }
    CountBytes(state, ws2s(text));
}

}  // namespace

BENCHMARK(Decode)->DenseRange(1, 4);
BENCHMARK(Encode)->DenseRange(1, 4);
