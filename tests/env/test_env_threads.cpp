// Lookups from several threads while others set: every lookup and store
// takes the ENVV lock, and first reads of the real environment race safely.
#include <gtest/gtest.h>

#include <stdlib.h>

#include <atomic>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "dpk_hvsup.h"

namespace {

constexpr int kReaders = 4;
constexpr int kRealNames = 32;
constexpr int kSetNames = 8;

std::string RealName(int k) { return "THREADENV_REAL_" + std::to_string(k); }
std::string SetName(int k) { return "THREADENV_SET_" + std::to_string(k); }

bool Equals(const char *value, const std::string &expected) { return value != nullptr && expected == value; }

} // namespace

TEST(ThreadEnv, LookupsWhileAnotherThreadSetsAndSettersOfDistinctNames) {
    for (int k = 0; k < kRealNames; ++k)
        ASSERT_EQ(setenv(RealName(k).c_str(), ("real " + std::to_string(k)).c_str(), 1), 0);
    HalvernDisableRegistryLoad(1);
    ASSERT_EQ(HalvernInit(), 1);
    ASSERT_EQ(HalvSetenv("THREADENV_FIXED", "fixed"), 1);

    std::atomic<bool> stop{false};
    std::atomic<int> failures{0};
    std::atomic<long> lookups{0};

    // The setter runs until the readers have looked a good while (bounded).
    int lastRound = -1;
    std::thread setter([&] {
        for (int round = 0; round < 200000 && (round < 1000 || lookups < 20000); ++round) {
            for (int k = 0; k < kSetNames; ++k)
                HalvSetenv(SetName(k).c_str(), round % 2 == 1 ? ("round " + std::to_string(round)).c_str() : nullptr);
            lastRound = round;
        }
        stop = true;
    });

    std::vector<std::thread> readers;
    for (int r = 0; r < kReaders; ++r) {
        readers.emplace_back([&, r] {
            for (int i = 0; i < 1000000 && (!stop || i < 2 * kRealNames); ++i) {
                // Each reader walks the first-read names in its own order.
                int k = (i * (2 * r + 1)) % kRealNames;
                bool ok = Equals(HalvGetenv(RealName(k).c_str()), "real " + std::to_string(k)) &&
                          Equals(HalvGetenv("THREADENV_FIXED"), "fixed") &&
                          Equals(HalvGetenv("HV_VERS"), "3.8.0") && HalvGetenv("TEMP") != nullptr &&
                          HalvGetenv("THREADENV_NOWHERE") == nullptr && HalvGetExecutablePath() != nullptr;
                // A name the setter changes: its text may go at any moment, so only look.
                (void)HalvGetenv(SetName(k % kSetNames).c_str());
                char *expanded = HalvExpandString("${THREADENV_FIXED}/x");
                ok = ok && expanded != nullptr && std::strcmp(expanded, "fixed/x") == 0;
                halv_internal_free(expanded);
                if (!ok)
                    failures++;
                lookups++;
            }
        });
    }
    setter.join();
    for (auto &reader : readers)
        reader.join();

    EXPECT_EQ(failures.load(), 0);
    EXPECT_GE(lookups.load(), (long)kReaders * 2 * kRealNames);
    for (int k = 0; k < kSetNames; ++k) {
        const char *value = HalvGetenv(SetName(k).c_str());
        if (lastRound % 2 == 1)
            EXPECT_TRUE(Equals(value, "round " + std::to_string(lastRound))) << SetName(k);
        else
            EXPECT_EQ(value, nullptr) << SetName(k);
    }
    for (int k = 0; k < kRealNames; ++k)
        unsetenv(RealName(k).c_str());

    // Setters of distinct names at once lose none of their stores.
    constexpr int kSetters = 4, kNames = 300;
    std::vector<std::thread> setters;
    for (int t = 0; t < kSetters; ++t) {
        setters.emplace_back([t] {
            for (int i = 0; i < kNames; ++i) {
                std::string name = "THREADENV_T" + std::to_string(t) + "_" + std::to_string(i);
                HalvSetenv(name.c_str(), "first");
                HalvSetenv(name.c_str(), name.c_str());
                if (i % 5 == 0)
                    HalvSetenv(name.c_str(), nullptr);
            }
        });
    }
    for (auto &setter : setters)
        setter.join();
    for (int t = 0; t < kSetters; ++t) {
        for (int i = 0; i < kNames; ++i) {
            std::string name = "THREADENV_T" + std::to_string(t) + "_" + std::to_string(i);
            const char *value = HalvGetenv(name.c_str());
            if (i % 5 == 0)
                EXPECT_EQ(value, nullptr) << name;
            else
                EXPECT_TRUE(Equals(value, name)) << name;
        }
    }
    EXPECT_EQ(HalvernEnd(), 1);
}
