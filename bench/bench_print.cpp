/*
 * bench/bench_print.cpp - HalvSNPrintf against the C library's snprintf on
 * the same formats and values, side by side in one run.
 *
 * Each pair formats a rotating set of values into a stack buffer, so that
 * neither side sees the same value twice in a row.  The ratio of the two
 * times per case is the number to read.
 */
#include <benchmark/benchmark.h>

#include <clocale>
#include <cstdio>
#include <string>
#include <vector>

#include "bench/ratio_report.h"

#include "dpk_hvsup.h"

namespace {

constexpr size_t kValues = 256;

std::vector<int> Integers() {
    std::vector<int> values;
    uint32_t state = 12345;
    for (size_t i = 0; i < kValues; ++i) {
        state = state * 1103515245u + 12345u;
        values.push_back(static_cast<int>(state) >> (i % 24));
    }
    return values;
}

std::vector<double> Doubles() {
    std::vector<double> values;
    uint32_t state = 777;
    for (size_t i = 0; i < kValues; ++i) {
        state = state * 1103515245u + 12345u;
        values.push_back(static_cast<double>(state % 10000000) / 1000.0 - 5000.0);
    }
    return values;
}

std::vector<std::string> Strings() {
    std::vector<std::string> values;
    for (size_t i = 0; i < kValues; ++i)
        values.push_back(std::string(4 + i % 28, static_cast<char>('a' + i % 26)));
    return values;
}

/* One formatting call of either engine with the same shape. */
struct Halv {
    template <typename... Args>
    static int Print(char *buffer, size_t size, const char *format, Args... args) {
        return HalvSNPrintf(buffer, static_cast<uint32_t>(size), format, args...);
    }
};
struct Libc {
    template <typename... Args>
    static int Print(char *buffer, size_t size, const char *format, Args... args) {
        return std::snprintf(buffer, size, format, args...);
    }
};

template <typename Engine>
void Integer(benchmark::State &state) {
    const std::vector<int> values = Integers();
    char buffer[64];
    size_t i = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(Engine::Print(buffer, sizeof buffer, "%d", values[i++ % kValues]));
        benchmark::ClobberMemory();
    }
}

template <typename Engine>
void IntegerFields(benchmark::State &state) {
    const std::vector<int> values = Integers();
    char buffer[128];
    size_t i = 0;
    for (auto _ : state) {
        const int v = values[i++ % kValues];
        benchmark::DoNotOptimize(Engine::Print(buffer, sizeof buffer, "x=%8d y=%-6x z=%08u n=%lld", v, v, v,
                                               static_cast<long long>(v) * 1000003));
        benchmark::ClobberMemory();
    }
}

template <typename Engine>
void String(benchmark::State &state) {
    const std::vector<std::string> values = Strings();
    char buffer[128];
    size_t i = 0;
    for (auto _ : state) {
        const std::string &v = values[i++ % kValues];
        benchmark::DoNotOptimize(Engine::Print(buffer, sizeof buffer, "name: %s, pad: [%20s] cut: %.5s", v.c_str(),
                                               v.c_str(), v.c_str()));
        benchmark::ClobberMemory();
    }
}

template <typename Engine>
void DoubleFixed(benchmark::State &state) {
    const std::vector<double> values = Doubles();
    char buffer[64];
    size_t i = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(Engine::Print(buffer, sizeof buffer, "%f", values[i++ % kValues]));
        benchmark::ClobberMemory();
    }
}

template <typename Engine>
void DoubleRoundTrip(benchmark::State &state) {
    const std::vector<double> values = Doubles();
    char buffer[64];
    size_t i = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(Engine::Print(buffer, sizeof buffer, "%.17g", values[i++ % kValues]));
        benchmark::ClobberMemory();
    }
}

template <typename Engine>
void DoubleMixed(benchmark::State &state) {
    const std::vector<double> values = Doubles();
    char buffer[128];
    size_t i = 0;
    for (auto _ : state) {
        const double v = values[i++ % kValues];
        benchmark::DoNotOptimize(Engine::Print(buffer, sizeof buffer, "%.3f %e %g", v, v, v));
        benchmark::ClobberMemory();
    }
}

BENCHMARK_TEMPLATE(Integer, Halv);
BENCHMARK_TEMPLATE(Integer, Libc);
BENCHMARK_TEMPLATE(IntegerFields, Halv);
BENCHMARK_TEMPLATE(IntegerFields, Libc);
BENCHMARK_TEMPLATE(String, Halv);
BENCHMARK_TEMPLATE(String, Libc);
BENCHMARK_TEMPLATE(DoubleFixed, Halv);
BENCHMARK_TEMPLATE(DoubleFixed, Libc);
BENCHMARK_TEMPLATE(DoubleRoundTrip, Halv);
BENCHMARK_TEMPLATE(DoubleRoundTrip, Libc);
BENCHMARK_TEMPLATE(DoubleMixed, Halv);
BENCHMARK_TEMPLATE(DoubleMixed, Libc);

} // namespace

int main(int argc, char **argv) {
    return bench::RunWithRatios(argc, argv, {
        {"Integer: HalvSNPrintf / snprintf", "Integer<Halv>", "Integer<Libc>"},
        {"IntegerFields: HalvSNPrintf / snprintf", "IntegerFields<Halv>", "IntegerFields<Libc>"},
        {"String: HalvSNPrintf / snprintf", "String<Halv>", "String<Libc>"},
        {"DoubleFixed: HalvSNPrintf / snprintf", "DoubleFixed<Halv>", "DoubleFixed<Libc>"},
        {"DoubleRoundTrip: HalvSNPrintf / snprintf", "DoubleRoundTrip<Halv>", "DoubleRoundTrip<Libc>"},
        {"DoubleMixed: HalvSNPrintf / snprintf", "DoubleMixed<Halv>", "DoubleMixed<Libc>"},
    });
}
