// The three ways of cutting a text, over lists of 4 to 4096 words.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <regex>
#include <string>

#include "util/string_util.h"

namespace {

std::string Words(std::int64_t count)
{
    std::string words = "word";
    for (std::int64_t i = 1; i < count; ++i) {
        words += "/word";
    }
    return words;
}

std::string Same(std::string& token)
{
    return token;
}

template <typename Cut>
void Run(benchmark::State& state, Cut cut)
{
    const std::string text = Words(state.range(0));
    for (auto _ : state) {
        benchmark::DoNotOptimize(cut(text));
    }
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(text.size()));
}

void Split(benchmark::State& state)
{
    const std::regex slash("/");
    Run(state, [&](const std::string& text) { return split(text, slash); });
}

void SplitDelim(benchmark::State& state)
{
    Run(state, [](const std::string& text) { return split_delim(text, "/;", Same); });
}

void TokenizeLines(benchmark::State& state)
{
    Run(state, [](const std::string& text) { return tokenize(text, '/', Same); });
}

void TokenizeAt(benchmark::State& state)
{
    Run(state, [](const std::string& text) { return tokenize(text, "/", Same); });
}

}  // namespace

BENCHMARK(Split)->RangeMultiplier(32)->Range(4, 4096);
BENCHMARK(SplitDelim)->RangeMultiplier(32)->Range(4, 4096);
BENCHMARK(TokenizeLines)->RangeMultiplier(32)->Range(4, 4096);
BENCHMARK(TokenizeAt)->RangeMultiplier(32)->Range(4, 4096);
