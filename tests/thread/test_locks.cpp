/*
 * Critical sections, mutexes and semaphores: null tolerance, recursion,
 * exclusion under contention from real threads, time-outs that expire and
 * ones that are met, and the entries the kinds of cell share.
 */
#include <gtest/gtest.h>

#include <chrono>
#include <iterator>
#include <thread>
#include <vector>

#include "thread/support.h"

using halvtest::Attempt;
using halvtest::kPatienceMs;
using halvtest::MillisSince;

namespace {

TEST(ThreadNullHandles, OperationsOnNullSucceedKindsStayApartAndInitsNeedAnOutPointer) {
    const int32_t onNull[] = {
        HalvEnterCriticalSection(nullptr), HalvLeaveCriticalSection(nullptr), HalvFreeCriticalSection(nullptr),
        HalvLockMutex(nullptr), HalvTryLockMutex(nullptr), HalvUnlockMutex(nullptr), HalvFreeMutex(nullptr),
        HalvWaitSemaphore(nullptr), HalvTryWaitSemaphore(nullptr), HalvTimedWaitSemaphore(nullptr, 10),
        HalvPostSemaphore(nullptr), HalvFreeSemaphore(nullptr), HalvSetEvent(nullptr), HalvResetEvent(nullptr),
        HalvPulseEvent(nullptr), HalvWaitSingleEvent(nullptr, HALV_WAIT_FOREVER), HalvFreeEvent(nullptr),
        HalvSignalConditional(nullptr), HalvBroadcastConditional(nullptr), HalvFreeConditional(nullptr),
    };
    for (size_t i = 0; i < std::size(onNull); ++i)
        EXPECT_EQ(onNull[i], 1) << "call " << i << " of the list";

    HalvMutex mutex = nullptr;
    HalvConditional conditional = nullptr;
    ASSERT_EQ(HalvInitMutex(&mutex), 1);
    ASSERT_EQ(HalvInitConditional(&conditional), 1);
    EXPECT_EQ(HalvWaitConditional(nullptr, mutex), 1);
    EXPECT_EQ(HalvWaitConditional(conditional, nullptr), 1);
    EXPECT_EQ(HalvTimedWaitConditional(nullptr, mutex, HALV_WAIT_FOREVER), 1);
    EXPECT_EQ(HalvTimedWaitConditional(conditional, nullptr, HALV_WAIT_FOREVER), 1);
    /* Nothing was done with the mutex: another thread can take it. */
    EXPECT_TRUE(halvtest::OnOtherThread([&] {
        EXPECT_EQ(HalvTryLockMutex(mutex), 1);
        EXPECT_EQ(HalvUnlockMutex(mutex), 1);
    }));
    EXPECT_EQ(HalvFreeConditional(conditional), 1);

    /* Kinds refuse operations of other kinds, but the shared wait entry
     * takes an event as well. */
    HalvEvent event = nullptr;
    ASSERT_EQ(HalvInitEvent(&event, 0, 1), 1);
    const int32_t otherKind[] = {HalvPostSemaphore(mutex), HalvSetEvent(mutex),      HalvResetEvent(mutex),
                                 HalvPulseEvent(mutex),    HalvPostSemaphore(event), HalvUnlockMutex(event)};
    for (size_t i = 0; i < std::size(otherKind); ++i)
        EXPECT_EQ(otherKind[i], 0) << "call " << i << " of the list";
    EXPECT_EQ(HalvTryLockMutex(event), 1);
    EXPECT_EQ(HalvTryLockMutex(event), 2);
    EXPECT_EQ(HalvFreeEvent(event), 1);
    EXPECT_EQ(HalvFreeMutex(mutex), 1);

    const int32_t withoutOut[] = {HalvInitCriticalSection(nullptr), HalvInitMutex(nullptr),
                                  HalvInitSemaphore(nullptr, 0),    HalvInitEvent(nullptr, 1, 0),
                                  HalvInitConditional(nullptr),     HalvTLSAlloc(nullptr)};
    for (size_t i = 0; i < std::size(withoutOut); ++i)
        EXPECT_EQ(withoutOut[i], 0) << "init " << i << " of the list";
}

/* Many threads add to a plain counter under one lock; a lost update (or,
 * under the thread sanitizer, a race) shows a broken lock. */
template <class Enter, class Leave> long CountUnderLock(Enter enter, Leave leave, int threads, int rounds) {
    long counter = 0;
    std::vector<std::thread> workers;
    for (int t = 0; t < threads; ++t)
        workers.emplace_back([&] {
            for (int i = 0; i < rounds; ++i) {
                enter();
                long seen = counter;
                std::this_thread::yield();
                counter = seen + 1;
                leave();
            }
        });
    for (auto &worker : workers)
        worker.join();
    return counter;
}

TEST(ThreadCriticalSection, RecursiveForItsOwnerExclusiveForOthers) {
    HalvCriticalSection section = nullptr;
    ASSERT_EQ(HalvInitCriticalSection(&section), 1);
    ASSERT_NE(section, nullptr);
    EXPECT_EQ(HalvEnterCriticalSection(section), 1);
    EXPECT_EQ(HalvEnterCriticalSection(section), 1);
    {
        Attempt other([&] {
            HalvEnterCriticalSection(section);
            HalvLeaveCriticalSection(section);
        });
        EXPECT_FALSE(other.DoneWithin(100));
        EXPECT_EQ(HalvLeaveCriticalSection(section), 1);
        EXPECT_FALSE(other.DoneWithin(50)) << "one leave released a section entered twice";
        EXPECT_EQ(HalvLeaveCriticalSection(section), 1);
        EXPECT_TRUE(other.DoneWithin(kPatienceMs));
    }
    auto enterTwice = [&] { HalvEnterCriticalSection(section), HalvEnterCriticalSection(section); };
    auto leaveTwice = [&] { HalvLeaveCriticalSection(section), HalvLeaveCriticalSection(section); };
    EXPECT_EQ(CountUnderLock(enterTwice, leaveTwice, 4, 2000), 8000);
    EXPECT_EQ(HalvFreeCriticalSection(section), 1);
}

TEST(ThreadMutex, RecursiveTryLockAndExclusion) {
    HalvMutex mutex = nullptr;
    ASSERT_EQ(HalvInitMutex(&mutex), 1);
    EXPECT_EQ(HalvLockMutex(mutex), 1);
    EXPECT_EQ(HalvTryLockMutex(mutex), 1) << "the owner gets a recursive mutex again";
    EXPECT_TRUE(halvtest::OnOtherThread([&] { EXPECT_EQ(HalvTryLockMutex(mutex), 2); }));
    EXPECT_EQ(HalvUnlockMutex(mutex), 1);
    EXPECT_TRUE(halvtest::OnOtherThread([&] { EXPECT_EQ(HalvTryLockMutex(mutex), 2); }));
    EXPECT_EQ(HalvUnlockMutex(mutex), 1);
    EXPECT_TRUE(halvtest::OnOtherThread([&] {
        EXPECT_EQ(HalvTryLockMutex(mutex), 1);
        EXPECT_EQ(HalvUnlockMutex(mutex), 1);
    }));

    long total = CountUnderLock([&] { EXPECT_EQ(HalvLockMutex(mutex), 1); },
                                [&] { EXPECT_EQ(HalvUnlockMutex(mutex), 1); }, 4, 2000);
    EXPECT_EQ(total, 8000);
    /* Try-lock spinning against blocking lockers. */
    total = CountUnderLock(
        [&] {
            int got;
            while ((got = HalvTryLockMutex(mutex)) == 2)
                std::this_thread::yield();
            EXPECT_EQ(got, 1);
        },
        [&] { HalvUnlockMutex(mutex); }, 3, 1000);
    EXPECT_EQ(total, 3000);

    /* A mutex whose owner ended holding it: 0, but the caller owns it. */
    HalvThread thread = nullptr;
    auto lockAndEnd = [](void *m) -> uint32_t { return (uint32_t)HalvLockMutex(static_cast<HalvMutex>(m)); };
    ASSERT_EQ(HalvCreateThread(&thread, lockAndEnd, mutex), 1);
    uint32_t code = 0;
    ASSERT_EQ(HalvJoinThread(thread, &code), 1);
    ASSERT_EQ(code, 1u);
    EXPECT_EQ(HalvLockMutex(mutex), 0) << "the owner ended holding it";
    EXPECT_TRUE(halvtest::OnOtherThread([&] { EXPECT_EQ(HalvTryLockMutex(mutex), 2); }));
    EXPECT_EQ(HalvUnlockMutex(mutex), 1);
    EXPECT_EQ(HalvLockMutex(mutex), 1) << "consistent again";
    EXPECT_EQ(HalvUnlockMutex(mutex), 1);
    EXPECT_EQ(HalvFreeMutex(mutex), 1);
}

TEST(ThreadMutex, UnlockByNonOwnerIsRefused) {
#if defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "the thread sanitizer reports the refused unlock itself";
#endif
    HalvMutex mutex = nullptr;
    ASSERT_EQ(HalvInitMutex(&mutex), 1);
    EXPECT_EQ(HalvUnlockMutex(mutex), 0) << "nobody owns it";
    ASSERT_EQ(HalvLockMutex(mutex), 1);
    EXPECT_TRUE(halvtest::OnOtherThread([&] { EXPECT_EQ(HalvUnlockMutex(mutex), 0); }));
    EXPECT_EQ(HalvUnlockMutex(mutex), 1);
    EXPECT_EQ(HalvFreeMutex(mutex), 1);
}

TEST(ThreadSemaphore, CountsWithinItsLimitAndTimedWaitsExpireOrAreMet) {
    HalvSemaphore semaphore = reinterpret_cast<HalvSemaphore>(0x1);
    EXPECT_EQ(HalvInitSemaphore(&semaphore, -1), 0);
    EXPECT_EQ(HalvInitSemaphore(&semaphore, HALV_SEMAPHORE_MAX + 1), 0);
    EXPECT_EQ(semaphore, reinterpret_cast<HalvSemaphore>(0x1)) << "a failed init wrote its out pointer";

    ASSERT_EQ(HalvInitSemaphore(&semaphore, 2), 1);
    EXPECT_EQ(HalvTryWaitSemaphore(semaphore), 1);
    EXPECT_EQ(HalvWaitSemaphore(semaphore), 1);
    EXPECT_EQ(HalvTryWaitSemaphore(semaphore), 2);
    auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(HalvTimedWaitSemaphore(semaphore, 60), 2);
    EXPECT_GE(MillisSince(start), 59) << "returned before its time-out";
    EXPECT_EQ(HalvTimedWaitSemaphore(semaphore, 0), 2);
    {
        /* A post from another thread meets a long wait. */
        Attempt poster([&] {
            std::this_thread::sleep_for(std::chrono::milliseconds(30));
            EXPECT_EQ(HalvPostSemaphore(semaphore), 1);
        });
        EXPECT_EQ(HalvTimedWaitSemaphore(semaphore, kPatienceMs), 1);
        EXPECT_TRUE(poster.DoneWithin(kPatienceMs));
    }
    EXPECT_EQ(HalvPostSemaphore(semaphore), 1);
    EXPECT_EQ(HalvLockMutex(semaphore), 1) << "the lock entry waits on a semaphore too";
    EXPECT_EQ(HalvTryLockMutex(semaphore), 2);
    EXPECT_EQ(HalvUnlockMutex(semaphore), 0) << "a semaphore is not unlocked";
    EXPECT_EQ(HalvFreeSemaphore(semaphore), 1);

    ASSERT_EQ(HalvInitSemaphore(&semaphore, HALV_SEMAPHORE_MAX - 1), 1);
    EXPECT_EQ(HalvPostSemaphore(semaphore), 1);
    EXPECT_EQ(HalvPostSemaphore(semaphore), 0) << "post at the limit";
    EXPECT_EQ(HalvTimedWaitSemaphore(semaphore, 0), 1);
    EXPECT_EQ(HalvPostSemaphore(semaphore), 1);
    EXPECT_EQ(HalvFreeSemaphore(semaphore), 1);
}

TEST(ThreadSemaphore, ProducersAndConsumersConserveTheCount) {
    HalvSemaphore semaphore = nullptr;
    ASSERT_EQ(HalvInitSemaphore(&semaphore, 0), 1);
    constexpr int kPairs = 3, kItems = 3000;
    std::vector<std::thread> threads;
    std::atomic<int> taken{0};
    for (int p = 0; p < kPairs; ++p) {
        threads.emplace_back([&] {
            for (int i = 0; i < kItems; ++i)
                EXPECT_EQ(HalvPostSemaphore(semaphore), 1);
        });
        threads.emplace_back([&, p] {
            for (int i = 0; i < kItems; ++i) {
                /* Mix the three ways of taking a count. */
                int got = (i + p) % 3 == 0   ? HalvWaitSemaphore(semaphore)
                          : (i + p) % 3 == 1 ? HalvTimedWaitSemaphore(semaphore, kPatienceMs)
                                             : HalvLockMutex(semaphore);
                EXPECT_EQ(got, 1);
                taken.fetch_add(1);
            }
        });
    }
    for (auto &thread : threads)
        thread.join();
    EXPECT_EQ(taken.load(), kPairs * kItems);
    EXPECT_EQ(HalvTryWaitSemaphore(semaphore), 2);
    EXPECT_EQ(HalvFreeSemaphore(semaphore), 1);
}

} // namespace
