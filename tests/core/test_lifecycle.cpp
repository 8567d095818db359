/*
 * Engine start and stop: use counting, the cleanup list, the end-pass
 * results, the hash locks behind the lock keys, and starts and stops from
 * many threads at once.
 */
#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "thread/support.h"

using halvtest::Attempt;
using halvtest::LogCapture;

namespace {

const char kStarting[] = "Halvern System initialization\n";
const char kStarted[] = "Halvern System initialized.\n";
const char kStopping[] = "Halvern System shutdown.\n";
const char kStopped[] = "Halvern System shutdown complete.\n";

/* A cleanup function scripted by its argument: it records its calls and
 * returns the next of its planned results (the last one for ever after). */
struct ScriptedCleanup {
    std::vector<int32_t> results;
    int calls = 0;
    std::vector<int> *order = nullptr;
    int id = 0;
};

int32_t RunScripted(intptr_t arg) {
    auto *script = reinterpret_cast<ScriptedCleanup *>(arg);
    int32_t result = script->results[std::min<size_t>(script->calls, script->results.size() - 1)];
    ++script->calls;
    if (script->order != nullptr)
        script->order->push_back(script->id);
    return result;
}

int Register(ScriptedCleanup &script) {
    return HalvernRegisterCleanupFunc(RunScripted, reinterpret_cast<intptr_t>(&script));
}

class Lifecycle : public ::testing::Test {
  protected:
    /* The traces compared here are those of the engine alone: the build
     * tree's registry file would add the bundle registrations. */
    void SetUp() override {
        ASSERT_EQ(HalvernEnd(), 0) << "engine left started by an earlier test";
        HalvernDisableRegistryLoad(1);
    }
    /* Leaves the engine stopped whatever the test did. */
    void TearDown() override {
        for (int i = 0; i < 100 && HalvernAbsoluteEnd() != 0; ++i) {
        }
        HalvernDisableRegistryLoad(0);
    }
};

/* Whether a thread that takes `key` gets it while this thread holds `held`. */
bool KeyBlockedBy(uint32_t held, uint32_t key) {
    EXPECT_EQ(HalvernLock(held), 1);
    Attempt other([key] {
        EXPECT_EQ(HalvernLock(key), 1);
        EXPECT_EQ(HalvernUnlock(key), 1);
    });
    bool blocked = !other.DoneWithin(150);
    EXPECT_EQ(HalvernUnlock(held), 1);
    EXPECT_TRUE(other.DoneWithin(halvtest::kPatienceMs));
    return blocked;
}

TEST_F(Lifecycle, StoppedEngineRefusesEndAndCleanupsAndTracesItsStarts) {
    LogCapture log;
    EXPECT_EQ(HalvernDisableRegistryLoad(7), 1);
    EXPECT_FALSE(KeyBlockedBy(HALV_LOCK_ENVV, HALV_LOCK_ENVV)) << "a key locked while stopped";
    EXPECT_EQ(HalvernEnd(), 0);
    EXPECT_EQ(HalvernAbsoluteEnd(), 0);
    ScriptedCleanup refused{{1}};
    EXPECT_EQ(Register(refused), 0);
    ASSERT_EQ(HalvernInit(), 1);
    ASSERT_EQ(HalvernInit(), 1);
    ASSERT_EQ(HalvernEnd(), 1);
    ASSERT_EQ(HalvernEnd(), 1);
    EXPECT_EQ(refused.calls, 0) << "a refused registration was stored";
    const std::vector<std::string> traces{kStopping, kStopping, kStarting, kStarted,
                                          kStarting, kStopping, kStopping,  kStopped};
    EXPECT_EQ(log.Texts(HALV_LOG_DEBUG), traces);
    EXPECT_FALSE(KeyBlockedBy(HALV_LOCK_ENVV, HALV_LOCK_ENVV)) << "the locks outlived a completed stop";
    /* A start after a stop begins from the first step again, loading still off. */
    log.Clear();
    ASSERT_EQ(HalvernInit(), 1);
    EXPECT_EQ(log.Texts(HALV_LOG_DEBUG), (std::vector<std::string>{kStarting, kStarted}));
    ASSERT_EQ(HalvernEnd(), 1);
    // With loading back on, the start reads whatever registry this build
    // tree holds, and may fail on a bundle it names; it still owes one end.
    EXPECT_EQ(HalvernDisableRegistryLoad(0), 1);
    HalvernInit();
    EXPECT_EQ(HalvernEnd(), 1);
}

TEST_F(Lifecycle, OnlyTheLastEndRunsCleanupsNewestFirst) {
    for (int i = 0; i < 3; ++i)
        ASSERT_EQ(HalvernInit(), 1);
    std::vector<int> order;
    ScriptedCleanup first{{1}, 0, &order, 1}, second{{1}, 0, &order, 2}, third{{1}, 0, &order, 3};
    ASSERT_EQ(Register(first), 1);
    ASSERT_EQ(Register(second), 1);
    ASSERT_EQ(Register(third), 1);
    EXPECT_EQ(HalvernRegisterCleanupFunc(nullptr, 5), 0);
    EXPECT_EQ(HalvernEnd(), 1);
    EXPECT_EQ(HalvernEnd(), 1);
    EXPECT_TRUE(order.empty());
    EXPECT_EQ(HalvernEnd(), 1);
    EXPECT_EQ(order, (std::vector<int>{3, 2, 1}));
    EXPECT_EQ(HalvernEnd(), 0);
    EXPECT_EQ(HalvernRegisterCleanupFunc(RunScripted, 0), 0);
}

TEST_F(Lifecycle, CleanupFailingWithOtherValueKeepsItsEntry) {
    LogCapture log;
    ASSERT_EQ(HalvernInit(), 1);
    std::vector<int> order;
    ScriptedCleanup older{{1}, 0, &order, 1}, failing{{2, 1}, 0, &order, 2}, newer{{1}, 0, &order, 3};
    ASSERT_EQ(Register(older), 1);
    ASSERT_EQ(Register(failing), 1);
    ASSERT_EQ(Register(newer), 1);
    log.Clear();
    EXPECT_EQ(HalvernEnd(), 2);
    EXPECT_EQ(order, (std::vector<int>{3, 2}));
    EXPECT_EQ(log.Texts(HALV_LOG_DEBUG), (std::vector<std::string>{kStopping}));
    /* Started with a count of 1: one more pass takes up the work. */
    EXPECT_EQ(HalvernEnd(), 1);
    EXPECT_EQ(order, (std::vector<int>{3, 2, 2, 1}));
    EXPECT_EQ(HalvernEnd(), 0);

    ScriptedCleanup negative{{-1, 1}}, odd{{7, 1}};
    ASSERT_EQ(HalvernInit(), 1);
    ASSERT_EQ(Register(negative), 1);
    EXPECT_EQ(HalvernEnd(), -1);
    ASSERT_EQ(Register(odd), 1); /* the engine is still started */
    EXPECT_EQ(HalvernEnd(), 7);
    EXPECT_EQ(HalvernEnd(), 1);
    EXPECT_EQ(negative.calls * 10 + odd.calls, 22);
}

TEST_F(Lifecycle, CleanupReturningZeroIsDroppedAndStopsThePassEvenForAnAbsoluteEnd) {
    for (bool absolute : {false, true}) {
        SCOPED_TRACE(absolute ? "absolute end" : "end");
        auto end = absolute ? HalvernAbsoluteEnd : HalvernEnd;
        ASSERT_EQ(HalvernInit(), 1);
        ScriptedCleanup older{{1}}, failing{{0}};
        ASSERT_EQ(Register(older), 1);
        ASSERT_EQ(Register(failing), 1);
        EXPECT_EQ(end(), 0);
        EXPECT_EQ(failing.calls * 10 + older.calls, 10);
        EXPECT_EQ(end(), 1);
        EXPECT_EQ(failing.calls * 10 + older.calls, 11) << "a dropped entry ran again, or the older one did not";
        EXPECT_EQ(HalvernEnd(), 0);
    }
}

TEST_F(Lifecycle, AbsoluteEndRepeatsOnlyOtherValues) {
    ASSERT_EQ(HalvernInit(), 1);
    ScriptedCleanup stubborn{{2, 5, 1}};
    ASSERT_EQ(Register(stubborn), 1);
    EXPECT_EQ(HalvernAbsoluteEnd(), 1);
    EXPECT_EQ(stubborn.calls, 3);
    EXPECT_EQ(HalvernEnd(), 0);

    /* Not a forced stop: a nested start costs one pass, result 1. */
    ASSERT_EQ(HalvernInit(), 1);
    ASSERT_EQ(HalvernInit(), 1);
    ScriptedCleanup last{{1}};
    ASSERT_EQ(Register(last), 1);
    EXPECT_EQ(HalvernAbsoluteEnd(), 1);
    EXPECT_EQ(last.calls, 0);
    EXPECT_EQ(HalvernAbsoluteEnd(), 1);
    EXPECT_EQ(last.calls, 1);
}

int32_t CleanupThatUsesTheEngine(intptr_t arg) {
    auto *seen = reinterpret_cast<int *>(arg);
    /* The hash locks still exist and may be taken; a new cleanup is refused
     * (the engine is stopping) and a nested end finds nothing to end. */
    seen[0] = HalvernLock(HALV_LOCK_ENVV);
    seen[1] = HalvernLock(HALV_LOCK_SHRD);
    HalvernUnlock(HALV_LOCK_SHRD);
    HalvernUnlock(HALV_LOCK_ENVV);
    seen[2] = HalvernRegisterCleanupFunc(CleanupThatUsesTheEngine, arg);
    seen[3] = HalvernEnd();
    return 1;
}

TEST_F(Lifecycle, CleanupMayCallBackIntoTheEngine) {
    ASSERT_EQ(HalvernInit(), 1);
    int seen[4] = {-9, -9, -9, -9};
    ASSERT_EQ(HalvernRegisterCleanupFunc(CleanupThatUsesTheEngine, reinterpret_cast<intptr_t>(seen)), 1);
    ASSERT_EQ(HalvernEnd(), 1);
    EXPECT_EQ(std::vector<int>(seen, seen + 4), (std::vector<int>{1, 1, 0, 0}));
}

TEST_F(Lifecycle, KeysHashOntoEightRecursiveLocks) {
    ASSERT_EQ(HalvernInit(), 1);
    /* ENVV and SHRD share lock 4, which is also the cleanup list's lock. */
    EXPECT_TRUE(KeyBlockedBy(HALV_LOCK_ENVV, HALV_LOCK_SHRD));
    EXPECT_TRUE(KeyBlockedBy(HALV_LOCK_SHRD, HALV_LOCK_ENVV));
    EXPECT_TRUE(KeyBlockedBy(HALV_LOCK_LIBR, HALV_LOCK_LOCL));
    EXPECT_FALSE(KeyBlockedBy(HALV_LOCK_ENVV, HALV_LOCK_LIBR));
    EXPECT_FALSE(KeyBlockedBy(HALV_LOCK_HDRM, HALV_LOCK_WKPL));
    /* ((key >> 16) + key) & 7: both of these are lock 1, though their low
     * bits differ; keys 0 and 1 are different locks. */
    EXPECT_TRUE(KeyBlockedBy(0x00010000u, 0x00000001u));
    EXPECT_FALSE(KeyBlockedBy(0x00000000u, 0x00000001u));
    EXPECT_TRUE(KeyBlockedBy(0xFFFF0001u, 0x00000000u)); /* wraps to 0 */

    /* A holder of one key takes the other, and registers cleanups. */
    ASSERT_EQ(HalvernLock(HALV_LOCK_SHRD), 1);
    ASSERT_EQ(HalvernLock(HALV_LOCK_ENVV), 1);
    ScriptedCleanup script{{1}};
    EXPECT_EQ(Register(script), 1);
    {
        Attempt registering([&] {
            EXPECT_EQ(HalvernRegisterCleanupFunc(RunScripted, reinterpret_cast<intptr_t>(&script)), 1);
        });
        EXPECT_FALSE(registering.DoneWithin(150)) << "registration passed lock 4 while it was held";
        HalvernUnlock(HALV_LOCK_ENVV);
        EXPECT_FALSE(registering.DoneWithin(50)) << "SHRD is still held once";
        HalvernUnlock(HALV_LOCK_SHRD);
        EXPECT_TRUE(registering.DoneWithin(halvtest::kPatienceMs));
    }
    ASSERT_EQ(HalvernEnd(), 1);
    EXPECT_EQ(script.calls, 2);
}

std::atomic<int> concurrentCleanups{0};
int32_t CountCleanup(intptr_t) {
    concurrentCleanups.fetch_add(1);
    return 1;
}

TEST_F(Lifecycle, StartsAndStopsFromManyThreads) {
    HalvDebug("%s", ""); /* settle the logging configuration on this thread */
    constexpr int kThreads = 4, kRounds = 300;
    long shared = 0; /* guarded by ENVV */
    std::atomic<int> registered{0};
    concurrentCleanups = 0;
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t)
        threads.emplace_back([&] {
            for (int i = 0; i < kRounds; ++i) {
                ASSERT_EQ(HalvernInit(), 1);
                HalvernLock(HALV_LOCK_ENVV);
                HalvernLock(HALV_LOCK_SHRD);
                ++shared;
                HalvernUnlock(HALV_LOCK_SHRD);
                HalvernUnlock(HALV_LOCK_ENVV);
                if (HalvernRegisterCleanupFunc(CountCleanup, i) == 1)
                    registered.fetch_add(1);
                ASSERT_EQ(HalvernEnd(), 1);
            }
        });
    for (auto &thread : threads)
        thread.join();
    EXPECT_EQ(shared, (long)kThreads * kRounds);
    EXPECT_EQ(registered.load(), kThreads * kRounds);
    EXPECT_EQ(concurrentCleanups.load(), registered.load()) << "every cleanup ran once at some last stop";
    EXPECT_EQ(HalvernEnd(), 0);
}

} // namespace
