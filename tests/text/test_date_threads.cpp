/*
 * tests/text/test_date_threads.cpp - formatting and converting dates from
 * four threads at once: the zone identifier filled by whichever thread
 * comes first, names, local and UTC dates, texts longer than the stage.
 * Every thread's results must be those of the same calls made alone.
 */
#include <gtest/gtest.h>

#include <ctime>
#include <latch>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "text/date_support.h"

namespace {

constexpr int kThreads = 4;
constexpr int kRounds = 2000;

const char *const kPatterns[] = {
    "yyyy-MM-dd HH:mm:ss",
    "EEEE, d MMMM yyyy 'at' h:mm a",
    "EEE MMM dd HH:mm:ss ZZZ yyyy",
    "D w e k K Z ZZ",
    "'''quoted''' yy-M-d",
};

struct Call {
    int64_t milliseconds;
    int utc;
    int pattern;
};

std::string Perform(const Call &call) {
    HalvDate date;
    HalvMakeDate(&date, call.utc, call.milliseconds);
    int64_t back = -1;
    HalvDate copy = date;
    const int32_t made = HalvMakeTime(&back, call.utc, &copy);
    return date_test::Format(date, kPatterns[call.pattern]) + "|" + std::to_string(made) + ":" +
           std::to_string(back) + "|" + date.zoneName;
}

TEST(DateThreads, FourThreadsFormatAsOneDoes) {
    for (const char *name : {"LC_ALL", "LC_TIME", "LANG"})
        unsetenv(name);
    const date_test::ZoneScope scope("Europe/Berlin");
    /* The first thing every thread does is the zone identifier, all at once. */
    std::latch start(kThreads);
    std::vector<std::string> identifiers(kThreads);
    std::vector<std::vector<std::string>> results(kThreads);
    std::vector<std::vector<Call>> calls(kThreads);
    std::mt19937_64 random(4);
    std::uniform_int_distribution<int64_t> milliseconds(0, int64_t{4102444799} * 1000);
    /* Times near a change of summer time are left out: which of two
     * instants mktime picks for a doubled wall time may differ between
     * runs, and is the C library's affair. */
    auto nearChange = [](int64_t ms) {
        const time_t before = ms / 1000 - 7200, after = ms / 1000 + 7200;
        struct tm a, b;
        localtime_r(&before, &a);
        localtime_r(&after, &b);
        return a.tm_gmtoff != b.tm_gmtoff;
    };
    for (auto &list : calls)
        while (list.size() < static_cast<size_t>(kRounds)) {
            const int64_t ms = milliseconds(random);
            if (!nearChange(ms))
                list.push_back({ms, static_cast<int>(random() % 2),
                                static_cast<int>(random() % (sizeof kPatterns / sizeof kPatterns[0]))});
        }
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t)
        threads.emplace_back([&, t] {
            start.arrive_and_wait();
            HalvDate local;
            HalvMakeDate(&local, 0, 1767268800000);
            identifiers[t] = date_test::Format(local, "ZZZ");
            for (const Call &call : calls[t])
                results[t].push_back(Perform(call));
            /* One long text, past the stage, in the middle of it all. */
            const std::string pattern(3000, 'a');
            results[t].push_back(date_test::Format(local, ("'" + pattern + "' yyyy").c_str()));
        });
    for (std::thread &thread : threads)
        thread.join();
    for (int t = 0; t < kThreads; ++t) {
        EXPECT_EQ(identifiers[t], "Europe/Berlin");
        ASSERT_EQ(results[t].size(), static_cast<size_t>(kRounds) + 1);
        for (int i = 0; i < kRounds; ++i)
            ASSERT_EQ(results[t][i], Perform(calls[t][i])) << "thread " << t << " call " << i;
        EXPECT_EQ(results[t][kRounds], std::string(3000, 'a') + " 2026");
    }
}

} // namespace
