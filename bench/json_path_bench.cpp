// Looking up a path of one to eight names, and one that is not there.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <string>

#include "json/json_object.h"

namespace {

constexpr char kDocument[] =
    R"({"a":{"a":{"a":{"a":{"a":{"a":{"a":{"a":1}}}}}}}, "b":2, "c":[1, 2, 3], "d":"text"})";

std::string Path(std::int64_t names)
{
    std::string path = "a";
    for (std::int64_t i = 1; i < names; ++i) {
        path += "/a";
    }
    return path;
}

void GetObject(benchmark::State& state)
{
    JsonObject document(kDocument);
    const std::string path = Path(state.range(0));
    for (auto _ : state) {
        benchmark::DoNotOptimize(document.GetObject(path.c_str()));
    }
}

void HasObject(benchmark::State& state)
{
    JsonObject document(kDocument);
    for (auto _ : state) {
        benchmark::DoNotOptimize(document.HasObject("a/a/none"));
    }
}

void Parse(benchmark::State& state)
{
    for (auto _ : state) {
        benchmark::DoNotOptimize(JsonObject(kDocument, sizeof kDocument - 1));
    }
}

}  // namespace

BENCHMARK(GetObject)->RangeMultiplier(2)->Range(1, 8);
BENCHMARK(HasObject);
BENCHMARK(Parse);
