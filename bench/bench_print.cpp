/*
 * bench/bench_print.cpp - HalvSNPrintf against the C library's snprintf and
 * against {fmt}'s format_to_n on the same values and the same output text,
 * side by side in one run.
 *
 * Each pair formats a rotating set of values into a stack buffer, so that
 * neither side sees the same value twice in a row.  The ratio of the two
 * times per case is the number to read.
 */
#include <benchmark/benchmark.h>

#include <clocale>
#include <cstdio>
#include <string>
#include <type_traits>
#include <vector>

#include <fmt/format.h>

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

/* {fmt} has its own format language: each case names the {fmt} text that
 * prints what the printf format prints, and this side takes that one. */
struct Fmt {
    template <typename... Args>
    static int Print(char *buffer, size_t size, fmt::format_string<Args...> format, Args... args) {
        auto result = fmt::format_to_n(buffer, size - 1, format, static_cast<Args &&>(args)...);
        *result.out = '\0';
        return static_cast<int>(result.size);
    }
};

/* Picks the printf text or the {fmt} text for the engine at hand. */
template <typename Engine>
constexpr bool kIsFmt = std::is_same_v<Engine, Fmt>;

template <typename Engine>
void Integer(benchmark::State &state) {
    const std::vector<int> values = Integers();
    char buffer[64];
    size_t i = 0;
    for (auto _ : state) {
        if constexpr (kIsFmt<Engine>)
            benchmark::DoNotOptimize(Engine::Print(buffer, sizeof buffer, "{}", values[i++ % kValues]));
        else
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
        const long long n = static_cast<long long>(v) * 1000003;
        if constexpr (kIsFmt<Engine>)
            benchmark::DoNotOptimize(Engine::Print(buffer, sizeof buffer, "x={:8} y={:<6x} z={:08} n={}", v,
                                                   static_cast<unsigned>(v), static_cast<unsigned>(v), n));
        else
            benchmark::DoNotOptimize(Engine::Print(buffer, sizeof buffer, "x=%8d y=%-6x z=%08u n=%lld", v, v, v, n));
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
        if constexpr (kIsFmt<Engine>)
            benchmark::DoNotOptimize(Engine::Print(buffer, sizeof buffer, "name: {}, pad: [{:>20}] cut: {:.5}",
                                                   v.c_str(), v.c_str(), v.c_str()));
        else
            benchmark::DoNotOptimize(Engine::Print(buffer, sizeof buffer, "name: %s, pad: [%20s] cut: %.5s",
                                                   v.c_str(), v.c_str(), v.c_str()));
        benchmark::ClobberMemory();
    }
}

template <typename Engine>
void DoubleFixed(benchmark::State &state) {
    const std::vector<double> values = Doubles();
    char buffer[64];
    size_t i = 0;
    for (auto _ : state) {
        if constexpr (kIsFmt<Engine>)
            benchmark::DoNotOptimize(Engine::Print(buffer, sizeof buffer, "{:f}", values[i++ % kValues]));
        else
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
        if constexpr (kIsFmt<Engine>)
            benchmark::DoNotOptimize(Engine::Print(buffer, sizeof buffer, "{:.17g}", values[i++ % kValues]));
        else
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
        if constexpr (kIsFmt<Engine>)
            benchmark::DoNotOptimize(Engine::Print(buffer, sizeof buffer, "{:.3f} {:e} {:g}", v, v, v));
        else
            benchmark::DoNotOptimize(Engine::Print(buffer, sizeof buffer, "%.3f %e %g", v, v, v));
        benchmark::ClobberMemory();
    }
}

/* A log line of the everyday kind: a word, integers and a short fixed. */
template <typename Engine>
void MixedLine(benchmark::State &state) {
    const std::vector<int> integers = Integers();
    const std::vector<double> doubles = Doubles();
    const std::vector<std::string> words = Strings();
    char buffer[160];
    size_t i = 0;
    for (auto _ : state) {
        const size_t k = i++ % kValues;
        const int n = integers[k];
        const double d = doubles[k];
        const char *w = words[k].c_str();
        if constexpr (kIsFmt<Engine>)
            benchmark::DoNotOptimize(
                Engine::Print(buffer, sizeof buffer, "[{}] id={} count={} ratio={:.2f}\n", w, n, k, d));
        else
            benchmark::DoNotOptimize(
                Engine::Print(buffer, sizeof buffer, "[%s] id=%d count=%zu ratio=%.2f\n", w, n, k, d));
        benchmark::ClobberMemory();
    }
}

BENCHMARK_TEMPLATE(Integer, Halv);
BENCHMARK_TEMPLATE(Integer, Libc);
BENCHMARK_TEMPLATE(Integer, Fmt);
BENCHMARK_TEMPLATE(IntegerFields, Halv);
BENCHMARK_TEMPLATE(IntegerFields, Libc);
BENCHMARK_TEMPLATE(IntegerFields, Fmt);
BENCHMARK_TEMPLATE(String, Halv);
BENCHMARK_TEMPLATE(String, Libc);
BENCHMARK_TEMPLATE(String, Fmt);
BENCHMARK_TEMPLATE(DoubleFixed, Halv);
BENCHMARK_TEMPLATE(DoubleFixed, Libc);
BENCHMARK_TEMPLATE(DoubleFixed, Fmt);
BENCHMARK_TEMPLATE(DoubleRoundTrip, Halv);
BENCHMARK_TEMPLATE(DoubleRoundTrip, Libc);
BENCHMARK_TEMPLATE(DoubleRoundTrip, Fmt);
BENCHMARK_TEMPLATE(DoubleMixed, Halv);
BENCHMARK_TEMPLATE(DoubleMixed, Libc);
BENCHMARK_TEMPLATE(DoubleMixed, Fmt);
BENCHMARK_TEMPLATE(MixedLine, Halv);
BENCHMARK_TEMPLATE(MixedLine, Libc);
BENCHMARK_TEMPLATE(MixedLine, Fmt);

} // namespace

int main(int argc, char **argv) {
    return bench::RunWithRatios(argc, argv, {
        {"Integer: HalvSNPrintf / snprintf", "Integer<Halv>", "Integer<Libc>"},
        {"Integer: HalvSNPrintf / {fmt}", "Integer<Halv>", "Integer<Fmt>"},
        {"IntegerFields: HalvSNPrintf / snprintf", "IntegerFields<Halv>", "IntegerFields<Libc>"},
        {"IntegerFields: HalvSNPrintf / {fmt}", "IntegerFields<Halv>", "IntegerFields<Fmt>"},
        {"String: HalvSNPrintf / snprintf", "String<Halv>", "String<Libc>"},
        {"String: HalvSNPrintf / {fmt}", "String<Halv>", "String<Fmt>"},
        {"DoubleFixed: HalvSNPrintf / snprintf", "DoubleFixed<Halv>", "DoubleFixed<Libc>"},
        {"DoubleFixed: HalvSNPrintf / {fmt}", "DoubleFixed<Halv>", "DoubleFixed<Fmt>"},
        {"DoubleRoundTrip: HalvSNPrintf / snprintf", "DoubleRoundTrip<Halv>", "DoubleRoundTrip<Libc>"},
        {"DoubleRoundTrip: HalvSNPrintf / {fmt}", "DoubleRoundTrip<Halv>", "DoubleRoundTrip<Fmt>"},
        {"DoubleMixed: HalvSNPrintf / snprintf", "DoubleMixed<Halv>", "DoubleMixed<Libc>"},
        {"DoubleMixed: HalvSNPrintf / {fmt}", "DoubleMixed<Halv>", "DoubleMixed<Fmt>"},
        {"MixedLine: HalvSNPrintf / snprintf", "MixedLine<Halv>", "MixedLine<Libc>"},
        {"MixedLine: HalvSNPrintf / {fmt}", "MixedLine<Halv>", "MixedLine<Fmt>"},
    });
}
