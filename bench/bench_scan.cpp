/*
 * The scan engine against the C library in one run: HalvSScanf beside
 * sscanf for integers and doubles, and beside strtod and fast_float's
 * from_chars for doubles.  The closing lines give the ratios (HalvSScanf
 * speed over the other side's).
 */
#include <benchmark/benchmark.h>

#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include <fast_float/fast_float.h>

#include "bench/ratio_report.h"
#include "dpk_hvsup.h"

namespace {

constexpr size_t kTexts = 1024;

const std::vector<std::string> &IntegerTexts() {
    static const std::vector<std::string> texts = [] {
        std::mt19937 random(1);
        std::vector<std::string> out;
        for (size_t i = 0; i < kTexts; ++i)
            out.push_back(std::to_string((int32_t)random() >> (random() % 28)));
        return out;
    }();
    return texts;
}

const std::vector<std::string> &DoubleTexts() {
    static const std::vector<std::string> texts = [] {
        std::mt19937 random(2);
        std::vector<std::string> out;
        char text[64];
        for (size_t i = 0; i < kTexts; ++i) {
            switch (i % 3) {
            case 0: /* short decimal */
                snprintf(text, sizeof text, "%.3f", (double)(random() % 2000000) / 1000 - 1000);
                break;
            case 1: /* longer decimal */
                snprintf(text, sizeof text, "%.9f", (double)random() / 7.0);
                break;
            default: /* with an exponent */
                snprintf(text, sizeof text, "%.6e", (double)random() * 1e-6);
                break;
            }
            out.push_back(text);
        }
        return out;
    }();
    return texts;
}

void IntHalvSScanf(benchmark::State &state) {
    const auto &texts = IntegerTexts();
    size_t i = 0;
    for (auto _ : state) {
        int value;
        HalvSScanf(texts[i++ % kTexts].c_str(), "%d", &value);
        benchmark::DoNotOptimize(value);
    }
}

void IntSscanf(benchmark::State &state) {
    const auto &texts = IntegerTexts();
    size_t i = 0;
    for (auto _ : state) {
        int value;
        std::sscanf(texts[i++ % kTexts].c_str(), "%d", &value);
        benchmark::DoNotOptimize(value);
    }
}

void DoubleHalvSScanf(benchmark::State &state) {
    const auto &texts = DoubleTexts();
    size_t i = 0;
    for (auto _ : state) {
        double value;
        HalvSScanf(texts[i++ % kTexts].c_str(), "%lf", &value);
        benchmark::DoNotOptimize(value);
    }
}

void DoubleSscanf(benchmark::State &state) {
    const auto &texts = DoubleTexts();
    size_t i = 0;
    for (auto _ : state) {
        double value;
        std::sscanf(texts[i++ % kTexts].c_str(), "%lf", &value);
        benchmark::DoNotOptimize(value);
    }
}

void DoubleStrtod(benchmark::State &state) {
    const auto &texts = DoubleTexts();
    size_t i = 0;
    for (auto _ : state) {
        double value = std::strtod(texts[i++ % kTexts].c_str(), nullptr);
        benchmark::DoNotOptimize(value);
    }
}

void DoubleFastFloat(benchmark::State &state) {
    const auto &texts = DoubleTexts();
    size_t i = 0;
    for (auto _ : state) {
        const std::string &text = texts[i++ % kTexts];
        double value;
        fast_float::from_chars(text.data(), text.data() + text.size(), value);
        benchmark::DoNotOptimize(value);
    }
}

void MixedHalvSScanf(benchmark::State &state) {
    size_t i = 0;
    const auto &ints = IntegerTexts();
    const auto &doubles = DoubleTexts();
    for (auto _ : state) {
        std::string line = ints[i % kTexts] + " " + doubles[i % kTexts] + " name";
        int a;
        double d;
        char word[16];
        benchmark::DoNotOptimize(HalvSScanf(line.c_str(), "%d %lf %15s", &a, &d, word));
        ++i;
    }
}

void MixedSscanf(benchmark::State &state) {
    size_t i = 0;
    const auto &ints = IntegerTexts();
    const auto &doubles = DoubleTexts();
    for (auto _ : state) {
        std::string line = ints[i % kTexts] + " " + doubles[i % kTexts] + " name";
        int a;
        double d;
        char word[16];
        benchmark::DoNotOptimize(std::sscanf(line.c_str(), "%d %lf %15s", &a, &d, word));
        ++i;
    }
}

BENCHMARK(IntHalvSScanf);
BENCHMARK(IntSscanf);
BENCHMARK(DoubleHalvSScanf);
BENCHMARK(DoubleSscanf);
BENCHMARK(DoubleStrtod);
BENCHMARK(DoubleFastFloat);
BENCHMARK(MixedHalvSScanf);
BENCHMARK(MixedSscanf);

} // namespace

int main(int argc, char **argv) {
    return bench::RunWithRatios(argc, argv,
                                {
                                    {"integer: HalvSScanf / sscanf", "IntHalvSScanf", "IntSscanf"},
                                    {"double: HalvSScanf / sscanf", "DoubleHalvSScanf", "DoubleSscanf"},
                                    {"double: HalvSScanf / strtod", "DoubleHalvSScanf", "DoubleStrtod"},
                                    {"double: HalvSScanf / fast_float", "DoubleHalvSScanf", "DoubleFastFloat"},
                                    {"mixed: HalvSScanf / sscanf", "MixedHalvSScanf", "MixedSscanf"},
                                });
}
