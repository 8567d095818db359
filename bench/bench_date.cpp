// bench/bench_date.cpp - dates: HalvFormatDate against strftime and against
// the date library's format, HalvMakeTime with the UTC flag against timegm
// (on normal dates, and on dates whose fields have run past their ranges)
// and against the date library's calendar arithmetic, and, for the record,
// HalvMakeTime in the process's zone against mktime.
//
// Each run cycles through 1024 random dates of 1970 to 2100.  Every side
// produces what the library's call produces: a new string of the text, or
// the time together with the date's normalised fields (timegm and mktime
// normalise their record in place; the date library's side breaks its
// result down again).
#include <benchmark/benchmark.h>

#include <date/date.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <random>
#include <string>
#include <vector>

#include "dpk_hvsup.h"
#include "ratio_report.h"

namespace {

constexpr size_t kDates = 1024;

const std::vector<time_t> &Times() {
    static const std::vector<time_t> times = [] {
        std::mt19937_64 random(2026);
        std::uniform_int_distribution<int64_t> seconds(0, 4102444799);
        std::vector<time_t> list;
        for (size_t i = 0; i < kDates; ++i)
            list.push_back(static_cast<time_t>(seconds(random)));
        return list;
    }();
    return times;
}

std::vector<HalvDate> Dates(int utc) {
    std::vector<HalvDate> dates(kDates);
    for (size_t i = 0; i < kDates; ++i)
        HalvMakeDate(&dates[i], utc, static_cast<int64_t>(Times()[i]) * 1000);
    return dates;
}

std::vector<struct tm> Records(bool utc) {
    std::vector<struct tm> records(kDates);
    for (size_t i = 0; i < kDates; ++i)
        utc ? gmtime_r(&Times()[i], &records[i]) : localtime_r(&Times()[i], &records[i]);
    return records;
}

void BM_Format_Halv(benchmark::State &state) {
    std::vector<HalvDate> dates = Dates(1);
    size_t i = 0;
    for (auto _ : state) {
        char *text = HalvFormatDate(&dates[i++ % kDates], "yyyy-MM-dd HH:mm:ss");
        benchmark::DoNotOptimize(text);
        halv_internal_free(text);
    }
}

void BM_Format_Strftime(benchmark::State &state) {
    const std::vector<struct tm> records = Records(true);
    size_t i = 0;
    for (auto _ : state) {
        char buffer[64];
        const size_t length = strftime(buffer, sizeof buffer, "%Y-%m-%d %H:%M:%S", &records[i++ % kDates]);
        auto *text = static_cast<char *>(std::malloc(length + 1));
        std::memcpy(text, buffer, length + 1);
        benchmark::DoNotOptimize(text);
        std::free(text);
    }
}

void BM_Format_DateLibrary(benchmark::State &state) {
    std::vector<date::sys_seconds> points;
    for (time_t t : Times())
        points.emplace_back(std::chrono::seconds(t));
    size_t i = 0;
    for (auto _ : state) {
        std::string text = date::format("%Y-%m-%d %H:%M:%S", points[i++ % kDates]);
        benchmark::DoNotOptimize(text.data());
    }
}

void BM_MakeTimeUtc_Halv(benchmark::State &state) {
    std::vector<HalvDate> dates = Dates(1);
    size_t i = 0;
    for (auto _ : state) {
        int64_t milliseconds;
        benchmark::DoNotOptimize(HalvMakeTime(&milliseconds, 1, &dates[i++ % kDates]));
        benchmark::DoNotOptimize(milliseconds);
    }
}

/* Dates whose day and minute have run past their ranges (a month and a
 * half on, a hundred minutes on), which the call must carry over. */
std::vector<HalvDate> OverflowingDates() {
    std::vector<HalvDate> dates = Dates(1);
    for (HalvDate &date : dates) {
        date.day += 45;
        date.minute += 100;
    }
    return dates;
}

std::vector<struct tm> OverflowingRecords() {
    std::vector<struct tm> records = Records(true);
    for (struct tm &record : records) {
        record.tm_mday += 45;
        record.tm_min += 100;
    }
    return records;
}

void BM_MakeTimeUtcCarry_Halv(benchmark::State &state) {
    const std::vector<HalvDate> source = OverflowingDates();
    std::vector<HalvDate> dates = source;
    size_t i = 0;
    for (auto _ : state) {
        const size_t at = i++ % kDates;
        if (at == 0) {
            state.PauseTiming();
            dates = source;
            state.ResumeTiming();
        }
        int64_t milliseconds;
        benchmark::DoNotOptimize(HalvMakeTime(&milliseconds, 1, &dates[at]));
        benchmark::DoNotOptimize(milliseconds);
    }
}

void BM_MakeTimeUtcCarry_Timegm(benchmark::State &state) {
    const std::vector<struct tm> source = OverflowingRecords();
    std::vector<struct tm> records = source;
    size_t i = 0;
    for (auto _ : state) {
        const size_t at = i++ % kDates;
        if (at == 0) {
            state.PauseTiming();
            records = source;
            state.ResumeTiming();
        }
        benchmark::DoNotOptimize(timegm(&records[at]));
    }
}

void BM_MakeTimeUtc_Timegm(benchmark::State &state) {
    std::vector<struct tm> records = Records(true);
    size_t i = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(timegm(&records[i++ % kDates]));
    }
}

/* The time from the fields, and the fields, weekday and year day back from
 * the time, as the other two sides give them. */
void BM_MakeTimeUtc_DateLibrary(benchmark::State &state) {
    std::vector<struct tm> records = Records(true);
    size_t i = 0;
    for (auto _ : state) {
        struct tm &r = records[i++ % kDates];
        using namespace std::chrono;
        const date::sys_days day =
            date::sys_days{date::year{r.tm_year + 1900} / date::month{static_cast<unsigned>(r.tm_mon + 1)} / 1} +
            date::days{r.tm_mday - 1};
        const sys_seconds t = day + hours{r.tm_hour} + minutes{r.tm_min} + seconds{r.tm_sec};
        const date::sys_days back = date::floor<date::days>(t);
        const date::year_month_day ymd{back};
        const date::hh_mm_ss<seconds> time{t - back};
        r.tm_year = static_cast<int>(ymd.year()) - 1900;
        r.tm_mon = static_cast<int>(static_cast<unsigned>(ymd.month())) - 1;
        r.tm_mday = static_cast<int>(static_cast<unsigned>(ymd.day()));
        r.tm_hour = static_cast<int>(time.hours().count());
        r.tm_min = static_cast<int>(time.minutes().count());
        r.tm_sec = static_cast<int>(time.seconds().count());
        r.tm_wday = static_cast<int>(date::weekday{back}.c_encoding());
        r.tm_yday = (back - date::sys_days{ymd.year() / date::January / 1}).count();
        benchmark::DoNotOptimize(t);
        benchmark::DoNotOptimize(r);
    }
}

void BM_MakeTimeLocal_Halv(benchmark::State &state) {
    std::vector<HalvDate> dates = Dates(0);
    size_t i = 0;
    for (auto _ : state) {
        int64_t milliseconds;
        benchmark::DoNotOptimize(HalvMakeTime(&milliseconds, 0, &dates[i++ % kDates]));
        benchmark::DoNotOptimize(milliseconds);
    }
}

void BM_MakeTimeLocal_Mktime(benchmark::State &state) {
    std::vector<struct tm> records = Records(false);
    size_t i = 0;
    for (auto _ : state) {
        struct tm &r = records[i++ % kDates];
        r.tm_isdst = -1;
        benchmark::DoNotOptimize(mktime(&r));
    }
}

BENCHMARK(BM_Format_Halv)->MinTime(0.5);
BENCHMARK(BM_Format_Strftime)->MinTime(0.5);
BENCHMARK(BM_Format_DateLibrary)->MinTime(0.5);
BENCHMARK(BM_MakeTimeUtc_Halv)->MinTime(0.5);
BENCHMARK(BM_MakeTimeUtc_Timegm)->MinTime(0.5);
BENCHMARK(BM_MakeTimeUtc_DateLibrary)->MinTime(0.5);
BENCHMARK(BM_MakeTimeUtcCarry_Halv)->MinTime(0.5);
BENCHMARK(BM_MakeTimeUtcCarry_Timegm)->MinTime(0.5);
BENCHMARK(BM_MakeTimeLocal_Halv)->MinTime(0.5);
BENCHMARK(BM_MakeTimeLocal_Mktime)->MinTime(0.5);

} // namespace

int main(int argc, char **argv) {
    /* A zone with summer time for the local pair, unless the caller chose one. */
    setenv("TZ", "Europe/Berlin", 0);
    tzset();
    return bench::RunWithRatios(
        argc, argv,
        {{"HalvFormatDate yyyy-MM-dd HH:mm:ss / strftime + copy", "BM_Format_Halv", "BM_Format_Strftime"},
         {"HalvFormatDate yyyy-MM-dd HH:mm:ss / date::format", "BM_Format_Halv", "BM_Format_DateLibrary"},
         {"HalvMakeTime UTC / timegm", "BM_MakeTimeUtc_Halv", "BM_MakeTimeUtc_Timegm"},
         {"HalvMakeTime UTC / date library arithmetic", "BM_MakeTimeUtc_Halv", "BM_MakeTimeUtc_DateLibrary"},
         {"HalvMakeTime UTC, fields past their ranges / timegm", "BM_MakeTimeUtcCarry_Halv",
          "BM_MakeTimeUtcCarry_Timegm"},
         {"HalvMakeTime local / mktime", "BM_MakeTimeLocal_Halv", "BM_MakeTimeLocal_Mktime"}});
}
