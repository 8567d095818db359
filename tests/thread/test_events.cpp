/*
 * Events: manual and auto reset, pulses, and waits on several events for
 * any or all of them, with real threads setting them.
 */
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

#include "thread/support.h"

using halvtest::Attempt;
using halvtest::Eventually;
using halvtest::kPatienceMs;
using halvtest::MillisSince;

namespace {

/* Owns a set of events for one test. */
struct Events {
    std::vector<HalvEvent> handles;
    Events(std::initializer_list<int> manualFlags) {
        for (int manual : manualFlags) {
            HalvEvent event = nullptr;
            EXPECT_EQ(HalvInitEvent(&event, manual, 0), 1);
            handles.push_back(event);
        }
    }
    ~Events() {
        for (HalvEvent event : handles)
            EXPECT_EQ(HalvFreeEvent(event), 1);
    }
    HalvEvent operator[](size_t i) const { return handles[i]; }
    HalvEvent *data() { return handles.data(); }
    uint32_t size() const { return (uint32_t)handles.size(); }
};

TEST(ThreadEvent, ManualResetStaysSetUntilReset) {
    HalvEvent event = nullptr;
    ASSERT_EQ(HalvInitEvent(&event, 1, 1), 1);
    EXPECT_EQ(HalvWaitSingleEvent(event, 0), 1);
    EXPECT_EQ(HalvWaitSingleEvent(event, HALV_WAIT_FOREVER), 1);
    EXPECT_EQ(HalvResetEvent(event), 1);
    auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(HalvWaitSingleEvent(event, 40), 2);
    EXPECT_GE(MillisSince(start), 39);

    /* One set releases every waiter. */
    constexpr int kWaiters = 6;
    std::atomic<int> released{0};
    std::vector<std::thread> waiters;
    for (int i = 0; i < kWaiters; ++i)
        waiters.emplace_back([&] {
            EXPECT_EQ(HalvWaitSingleEvent(event, kPatienceMs), 1);
            released.fetch_add(1);
        });
    EXPECT_EQ(HalvSetEvent(event), 1);
    for (auto &waiter : waiters)
        waiter.join();
    EXPECT_EQ(released.load(), kWaiters);
    EXPECT_EQ(HalvWaitSingleEvent(event, 0), 1);
    EXPECT_EQ(HalvFreeEvent(event), 1);
}

TEST(ThreadEvent, AutoResetReleasesOneWaiterPerSet) {
    HalvEvent event = nullptr;
    ASSERT_EQ(HalvInitEvent(&event, 0, 1), 1);
    EXPECT_EQ(HalvWaitSingleEvent(event, 0), 1);
    EXPECT_EQ(HalvWaitSingleEvent(event, 0), 2) << "the release cleared it";
    EXPECT_EQ(HalvSetEvent(event), 1);
    EXPECT_EQ(HalvSetEvent(event), 1);
    EXPECT_EQ(HalvWaitSingleEvent(event, 0), 1);
    EXPECT_EQ(HalvWaitSingleEvent(event, 0), 2) << "two sets are one state, not a count";

    constexpr int kWaiters = 5;
    std::atomic<int> released{0};
    std::vector<std::thread> waiters;
    for (int i = 0; i < kWaiters; ++i)
        waiters.emplace_back([&] {
            EXPECT_EQ(HalvWaitSingleEvent(event, HALV_WAIT_FOREVER), 1);
            released.fetch_add(1);
        });
    for (int round = 1; round <= kWaiters; ++round) {
        /* A set that no waiter took yet stays set, so waiting for the
         * event to be clear again tells the release has happened. */
        EXPECT_EQ(HalvSetEvent(event), 1);
        EXPECT_TRUE(Eventually([&] { return released.load() >= round; }));
        EXPECT_EQ(released.load(), round) << "one set released several waiters";
    }
    for (auto &waiter : waiters)
        waiter.join();
    EXPECT_EQ(HalvWaitSingleEvent(event, 0), 2);
    EXPECT_EQ(HalvFreeEvent(event), 1);
}

TEST(ThreadEvent, PulseReleasesPresentWaitersAndIsNotRemembered) {
    for (int manual = 0; manual < 2; ++manual) {
        HalvEvent event = nullptr;
        ASSERT_EQ(HalvInitEvent(&event, manual, 1), 1);
        EXPECT_EQ(HalvPulseEvent(event), 1);
        EXPECT_EQ(HalvWaitSingleEvent(event, 30), 2) << "pulse leaves the event clear, manual " << manual;

        constexpr int kWaiters = 4;
        std::atomic<int> entered{0}, released{0};
        std::vector<std::thread> waiters;
        for (int i = 0; i < kWaiters; ++i)
            waiters.emplace_back([&] {
                entered.fetch_add(1);
                EXPECT_EQ(HalvWaitSingleEvent(event, kPatienceMs * 2), 1);
                released.fetch_add(1);
            });
        ASSERT_TRUE(Eventually([&] { return entered.load() == kWaiters; }));
        /* Pulse until every waiter is out; a pulse reaches only the waiters
         * already inside, and an auto-reset pulse releases at most one. */
        int pulses = 0;
        auto start = std::chrono::steady_clock::now();
        while (released.load() < kWaiters && MillisSince(start) < kPatienceMs) {
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
            ASSERT_EQ(HalvPulseEvent(event), 1);
            ++pulses;
            if (!manual) {
                EXPECT_LE(released.load(), pulses) << "an auto-reset pulse released several waiters";
            }
        }
        for (auto &waiter : waiters)
            waiter.join();
        EXPECT_EQ(released.load(), kWaiters);
        if (!manual) {
            EXPECT_GE(pulses, kWaiters);
        }
        EXPECT_EQ(HalvWaitSingleEvent(event, 0), 2) << "a pulse set the event, manual " << manual;
        EXPECT_EQ(HalvFreeEvent(event), 1);
    }
}

TEST(ThreadEvent, WaitMultipleRefusesBadArguments) {
    Events events({1, 0});
    uint32_t index = 99;
    EXPECT_EQ(HalvWaitMultipleEvent(nullptr, 3, 0, HALV_WAIT_FOREVER, &index), 1);
    EXPECT_EQ(index, 0u);
    EXPECT_EQ(HalvWaitMultipleEvent(nullptr, 3, 1, 0, nullptr), 1);

    index = 99;
    EXPECT_EQ(HalvWaitMultipleEvent(events.data(), 0, 0, 0, &index), 0);
    EXPECT_EQ(index, 0u) << "the index is stored before anything else";
    std::vector<HalvEvent> tooMany(HALV_WAIT_MAX_EVENTS + 1, events[0]);
    EXPECT_EQ(HalvWaitMultipleEvent(tooMany.data(), (uint32_t)tooMany.size(), 0, 0, &index), 0);
    HalvEvent withNull[2] = {events[0], nullptr};
    EXPECT_EQ(HalvWaitMultipleEvent(withNull, 2, 0, 0, &index), 0);
    HalvMutex mutex = nullptr;
    ASSERT_EQ(HalvInitMutex(&mutex), 1);
    HalvEvent withMutex[2] = {events[0], mutex};
    EXPECT_EQ(HalvWaitMultipleEvent(withMutex, 2, 1, 0, &index), 0);
    EXPECT_EQ(HalvFreeMutex(mutex), 1);

    /* The full allowance works. */
    std::vector<HalvEvent> most(HALV_WAIT_MAX_EVENTS, events[1]);
    most.back() = events[0];
    ASSERT_EQ(HalvSetEvent(events[0]), 1);
    EXPECT_EQ(HalvWaitMultipleEvent(most.data(), (uint32_t)most.size(), 0, 0, &index), 1);
    EXPECT_EQ(index, (uint32_t)HALV_WAIT_MAX_EVENTS - 1);
}

TEST(ThreadEvent, WaitAnyGivesTheLowestSignalledIndexAndWaitAllTakesEveryEventInOneStep) {
    Events events({1, 0, 0}); /* manual, auto, auto */
    uint32_t index = 99;
    using Got = std::pair<int, uint32_t>;
    /* The result of a wait for any, and the index it stored. */
    auto waitAny = [&](uint32_t timeout) {
        int result = HalvWaitMultipleEvent(events.data(), 3, 0, timeout, &index);
        return Got(result, index);
    };
    auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(waitAny(30), Got(2, 0));
    EXPECT_GE(MillisSince(start), 29);

    ASSERT_EQ(HalvSetEvent(events[2]), 1);
    ASSERT_EQ(HalvSetEvent(events[1]), 1);
    EXPECT_EQ(waitAny(0), Got(1, 1));
    EXPECT_EQ(waitAny(0), Got(1, 2)) << "the auto-reset event 1 was cleared by the first wait";
    EXPECT_EQ(HalvWaitMultipleEvent(events.data(), 3, 0, 0, nullptr), 2);

    ASSERT_EQ(HalvSetEvent(events[0]), 1);
    EXPECT_EQ(waitAny(0), Got(1, 0));
    EXPECT_EQ(waitAny(0), Got(1, 0)) << "a manual-reset event stays set";
    ASSERT_EQ(HalvResetEvent(events[0]), 1);

    /* A set of event 2 from another thread ends a wait that is under way. */
    auto waitForLateSet = [&](int all, uint32_t timeout) {
        Attempt setter([&] {
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
            EXPECT_EQ(HalvSetEvent(events[2]), 1);
        });
        int result = HalvWaitMultipleEvent(events.data(), 3, all, timeout, &index);
        EXPECT_TRUE(setter.DoneWithin(kPatienceMs));
        return result;
    };
    EXPECT_EQ(waitForLateSet(0, HALV_WAIT_FOREVER), 1);
    EXPECT_EQ(index, 2u);

    ASSERT_EQ(HalvSetEvent(events[0]), 1);
    ASSERT_EQ(HalvSetEvent(events[1]), 1);
    EXPECT_EQ(HalvWaitMultipleEvent(events.data(), 3, 1, 30, &index), 2);
    EXPECT_EQ(HalvWaitSingleEvent(events[1], 0), 1) << "a failed wait-all took an event";
    ASSERT_EQ(HalvSetEvent(events[1]), 1);
    EXPECT_EQ(waitForLateSet(1, kPatienceMs), 1);
    EXPECT_EQ(index, 0u);
    /* Manual reset stays set, auto reset is cleared by the wait-all. */
    EXPECT_EQ(std::vector<int>({HalvWaitSingleEvent(events[0], 0), HalvWaitSingleEvent(events[1], 0),
                                HalvWaitSingleEvent(events[2], 0)}),
              (std::vector<int>{1, 2, 2}));
}

TEST(ThreadEvent, ContendedWaitAllAndWaitAnyLoseNoRelease) {
    /* Two auto-reset events, set together kRounds times, each time after
     * the previous sets were taken.  A wait-all taker and a wait-any taker
     * compete; every set must be taken exactly once. */
    Events events({0, 0});
    constexpr int kRounds = 300;
    std::atomic<int> takenAll{0}, takenAny{0};
    std::atomic<bool> stop{false};
    std::vector<std::thread> takers;
    for (int t = 0; t < 2; ++t)
        takers.emplace_back([&, t] {
            while (!stop.load()) {
                uint32_t index = 9;
                if (HalvWaitMultipleEvent(events.data(), 2, t == 0, 5, &index) == 1)
                    (t == 0 ? takenAll : takenAny).fetch_add(t == 0 ? 2 : 1);
            }
        });
    for (int i = 0; i < kRounds; ++i) {
        ASSERT_EQ(HalvSetEvent(events[0]), 1);
        ASSERT_EQ(HalvSetEvent(events[1]), 1);
        ASSERT_TRUE(Eventually([&] { return takenAll.load() + takenAny.load() >= 2 * (i + 1); }));
    }
    stop.store(true);
    for (auto &taker : takers)
        taker.join();
    EXPECT_EQ(takenAll.load() + takenAny.load(), 2 * kRounds);
}

} // namespace
