// Base64 of 16 bytes to 1 MiB.
#include <benchmark/benchmark.h>

#include <cstddef>
#include <vector>

#include "util/util.h"

namespace {

void Base64(benchmark::State& state)
{
    const std::vector<unsigned char> data(static_cast<std::size_t>(state.range(0)), 0x5A);
    for (auto _ : state) {
        benchmark::DoNotOptimize(base64(data.data(), data.size()));
    }
    state.SetBytesProcessed(state.iterations() * state.range(0));
}

}  // namespace

BENCHMARK(Base64)->RangeMultiplier(16)->Range(16, 1 << 20);
