/*
 * The conditional: signals and broadcasts to many waiters, time-outs that
 * expire and ones that are met, the mutex held again on every return, and
 * the broadcast's one-second bound with a waiter that can't run.
 */
#include <gtest/gtest.h>

#include <pthread.h>
#include <semaphore.h>
#include <signal.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <thread>
#include <vector>

#include "thread/support.h"

using halvtest::Attempt;
using halvtest::Eventually;
using halvtest::kPatienceMs;
using halvtest::LogCapture;
using halvtest::MillisSince;

namespace {

const char kBroadcastTimedOut[] = "HalvBroadcastConditional: timed out waiting for cv waiters to wake up.\n";

class Conditional : public ::testing::Test {
  protected:
    void SetUp() override {
        ASSERT_EQ(HalvInitMutex(&mutex), 1);
        ASSERT_EQ(HalvInitConditional(&conditional), 1);
    }
    void TearDown() override {
        EXPECT_EQ(HalvFreeConditional(conditional), 1);
        EXPECT_EQ(HalvFreeMutex(mutex), 1);
    }
    /* Whether another thread finds the mutex taken. */
    bool MutexHeldElsewhere() {
        int got = -1;
        Attempt other([&] {
            got = HalvTryLockMutex(mutex);
            if (got == 1)
                HalvUnlockMutex(mutex);
        });
        EXPECT_TRUE(other.DoneWithin(kPatienceMs));
        return got == 2;
    }
    /* A waiter calls wait under the mutex until woken; the waker can only
     * take the mutex once the waiter has released it inside its wait, so the
     * wake finds a waiter.  The waiter's last result. */
    int MeetWaiter(std::function<int()> wait, std::function<int()> wake) {
        std::atomic<bool> waiting{false};
        bool woken = false; /* under mutex */
        int last = -1;
        Attempt waiter([&] {
            HalvLockMutex(mutex);
            waiting.store(true);
            while (!woken)
                last = wait();
            HalvUnlockMutex(mutex);
        });
        EXPECT_TRUE(Eventually([&] { return waiting.load(); }));
        EXPECT_EQ(HalvLockMutex(mutex), 1);
        woken = true;
        EXPECT_EQ(wake(), 1);
        EXPECT_EQ(HalvUnlockMutex(mutex), 1);
        EXPECT_TRUE(waiter.DoneWithin(kPatienceMs));
        return last;
    }
    HalvMutex mutex = nullptr;
    HalvConditional conditional = nullptr;
};

TEST_F(Conditional, SignalIsLostWithoutWaiterAndMeetsWaitersInsideTheirWait) {
    EXPECT_EQ(HalvSignalConditional(conditional), 1);
    ASSERT_EQ(HalvLockMutex(mutex), 1);
    auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(HalvTimedWaitConditional(conditional, mutex, 50), 2) << "an earlier signal was remembered";
    EXPECT_GE(MillisSince(start), 49);
    EXPECT_TRUE(MutexHeldElsewhere()) << "mutex not held after a time-out";
    EXPECT_EQ(HalvTimedWaitConditional(conditional, mutex, 0), 2);
    EXPECT_TRUE(MutexHeldElsewhere()) << "mutex not held after a zero time-out";
    EXPECT_EQ(HalvUnlockMutex(mutex), 1);
    EXPECT_FALSE(MutexHeldElsewhere());

    auto signal = [&] { return HalvSignalConditional(conditional); };
    for (uint32_t timeout : {kPatienceMs + 0u, HALV_WAIT_FOREVER, 0u /* plain wait */}) {
        auto wait = [&] {
            return timeout == 0 ? HalvWaitConditional(conditional, mutex)
                                : HalvTimedWaitConditional(conditional, mutex, timeout);
        };
        EXPECT_EQ(MeetWaiter(wait, signal), 1) << "time-out " << timeout;
    }
}

TEST_F(Conditional, SignalsFeedManyConsumers) {
    constexpr int kConsumers = 5, kItems = 2000;
    int queued = 0, consumed = 0; /* under mutex */
    bool closing = false;
    std::vector<std::thread> consumers;
    for (int c = 0; c < kConsumers; ++c)
        consumers.emplace_back([&, c] {
            HalvLockMutex(mutex);
            for (;;) {
                while (queued == 0 && !closing) {
                    if (c % 2)
                        HalvWaitConditional(conditional, mutex);
                    else
                        EXPECT_NE(HalvTimedWaitConditional(conditional, mutex, 5), 0);
                }
                if (queued == 0)
                    break;
                --queued;
                ++consumed;
            }
            HalvUnlockMutex(mutex);
        });
    for (int i = 0; i < kItems; ++i) {
        HalvLockMutex(mutex);
        ++queued;
        EXPECT_EQ(HalvSignalConditional(conditional), 1);
        HalvUnlockMutex(mutex);
    }
    ASSERT_TRUE(Eventually([&] {
        HalvLockMutex(mutex);
        bool drained = queued == 0;
        HalvUnlockMutex(mutex);
        return drained;
    })) << "signalled items were left in the queue";
    HalvLockMutex(mutex);
    closing = true;
    EXPECT_EQ(HalvBroadcastConditional(conditional), 1);
    HalvUnlockMutex(mutex);
    for (auto &consumer : consumers)
        consumer.join();
    EXPECT_EQ(consumed, kItems);
}

TEST_F(Conditional, BroadcastWakesEveryWaiterRoundAfterRound) {
    LogCapture log(false);
    EXPECT_EQ(HalvBroadcastConditional(conditional), 1) << "broadcast without waiters";

    constexpr int kWaiters = 6, kRounds = 60;
    int generation = 0; /* under mutex */
    std::atomic<int> seenTotal{0};
    std::vector<std::thread> waiters;
    for (int w = 0; w < kWaiters; ++w)
        waiters.emplace_back([&] {
            int seen = 0;
            HalvLockMutex(mutex);
            while (seen < kRounds) {
                while (generation == seen)
                    HalvWaitConditional(conditional, mutex);
                seen = generation;
                seenTotal.fetch_add(1);
            }
            HalvUnlockMutex(mutex);
        });
    int wokenSum = 0;
    for (int round = 1; round <= kRounds; ++round) {
        ASSERT_EQ(HalvLockMutex(mutex), 1);
        generation = round;
        EXPECT_EQ(HalvBroadcastConditional(conditional), 1);
        ASSERT_EQ(HalvUnlockMutex(mutex), 1);
        /* Next round once every waiter has taken this one. */
        wokenSum += kWaiters;
        ASSERT_TRUE(Eventually([&] { return seenTotal.load() >= wokenSum; }));
    }
    for (auto &waiter : waiters)
        waiter.join();
    EXPECT_EQ(seenTotal.load(), kWaiters * kRounds);
    EXPECT_TRUE(log.Texts(HALV_LOG_ERROR).empty());
}

/* Holds a signalled thread inside its handler until released, so that a
 * waiter can be kept from running while it sits in its wait. */
sem_t handlerEntered, handlerRelease;
void HoldingHandler(int) {
    sem_post(&handlerEntered);
    while (sem_wait(&handlerRelease) != 0) {
    }
}

TEST_F(Conditional, BroadcastGivesUpAfterOneSecondAndStaysUsable) {
    ASSERT_EQ(sem_init(&handlerEntered, 0, 0), 0);
    ASSERT_EQ(sem_init(&handlerRelease, 0, 0), 0);
    struct sigaction holding = {}, previous = {};
    holding.sa_handler = HoldingHandler;
    sigemptyset(&holding.sa_mask);
    ASSERT_EQ(sigaction(SIGUSR1, &holding, &previous), 0);

    std::atomic<bool> waiting{false};
    bool wake = false; /* under mutex */
    std::thread waiter([&] {
        HalvLockMutex(mutex);
        waiting.store(true);
        while (!wake)
            HalvWaitConditional(conditional, mutex);
        HalvUnlockMutex(mutex);
    });
    ASSERT_TRUE(Eventually([&] { return waiting.load(); }));
    ASSERT_EQ(HalvLockMutex(mutex), 1); /* the waiter is inside its wait */
    ASSERT_EQ(pthread_kill(waiter.native_handle(), SIGUSR1), 0);
    ASSERT_TRUE(Eventually([] { return sem_trywait(&handlerEntered) == 0; }));

    LogCapture log(false);
    wake = true;
    auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(HalvBroadcastConditional(conditional), 0);
    EXPECT_GE(MillisSince(start), 990);
    EXPECT_EQ(log.Texts(HALV_LOG_ERROR), (std::vector<std::string>{kBroadcastTimedOut}));
    EXPECT_EQ(HalvUnlockMutex(mutex), 1);
    sem_post(&handlerRelease);
    waiter.join(); /* the late waiter goes on normally */
    sigaction(SIGUSR1, &previous, nullptr);
    sem_destroy(&handlerEntered);
    sem_destroy(&handlerRelease);

    /* The conditional still works: a signal and a broadcast, each meeting a
     * waiter; a count left behind may only make a wait return early. */
    auto wait = [&] { return HalvWaitConditional(conditional, mutex); };
    EXPECT_EQ(MeetWaiter(wait, [&] { return HalvSignalConditional(conditional); }), 1);
    EXPECT_EQ(MeetWaiter(wait, [&] { return HalvBroadcastConditional(conditional); }), 1);
    EXPECT_EQ(log.Texts(HALV_LOG_ERROR).size(), 1u);
}

} // namespace
