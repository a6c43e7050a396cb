// Matching a usual file name, and the worst case: stars that all fail at the name's last character.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <string>

#include "util/util.h"

namespace {

constexpr char kName[] = "Quarterly report (final).2024-03.xlsx";
constexpr wchar_t kWideName[] = L"Quarterly report (final).2024-03.xlsx";

void Literal(benchmark::State& state)
{
    for (auto _ : state) {
        benchmark::DoNotOptimize(IsNameInExpressionA(kName, kName, true));
    }
}

void Star(benchmark::State& state)
{
    for (auto _ : state) {
        benchmark::DoNotOptimize(IsNameInExpressionA("*.xlsx", kName, true));
    }
}

void WideStar(benchmark::State& state)
{
    for (auto _ : state) {
        benchmark::DoNotOptimize(IsNameInExpression(L"*.xlsx", kWideName, true));
    }
}

void Less(benchmark::State& state)
{
    for (auto _ : state) {
        benchmark::DoNotOptimize(IsNameInExpressionA("<.xlsx", kName, true));
    }
}

void FailingStars(benchmark::State& state)
{
    std::string expression;
    for (std::int64_t i = 0; i < state.range(0); ++i) {
        expression += "*a";
    }
    expression += "*b";
    const std::string name(20, 'a');
    for (auto _ : state) {
        benchmark::DoNotOptimize(IsNameInExpressionA(expression.c_str(), name.c_str(), false));
    }
}

}  // namespace

BENCHMARK(Literal);
BENCHMARK(Star);
BENCHMARK(WideStar);
BENCHMARK(Less);
BENCHMARK(FailingStars)->DenseRange(1, 5);
