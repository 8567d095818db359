/*
 * Threads, thread-local storage and clocks: exit codes by return and by
 * HalvExitThread, detached threads, joins that are refused, per-thread TLS
 * values, and the counters' units.
 */
#include <gtest/gtest.h>

#include <pthread.h>

#include <atomic>
#include <chrono>
#include <set>
#include <thread>
#include <vector>

#include "thread/support.h"

using halvtest::Eventually;
using halvtest::kPatienceMs;

namespace {

uint32_t ReturnArgument(void *argument) { return (uint32_t)(uintptr_t)argument; }

/* Ends its thread from two noexcept frames down, as library code would. */
[[noreturn]] __attribute__((noinline)) void EndFromDeep(uint32_t code) noexcept { HalvExitThread(code); }
struct FrameCleanup {
    volatile int *mark;
    ~FrameCleanup() { *mark = 1; }
};
__attribute__((noinline)) uint32_t MiddleFrame(uint32_t code) noexcept {
    volatile int mark = 0;
    FrameCleanup cleanup{&mark}; /* gives the noexcept frame a cleanup to run */
    if (code != 1)
        EndFromDeep(code);
    return (uint32_t)mark;
}
uint32_t ExitThroughFrames(void *argument) { return MiddleFrame((uint32_t)(uintptr_t)argument) + 1000; }

TEST(ThreadThreads, ExitCodesByReturnAndByExit) {
    struct Case {
        HalvThreadFn fn;
        uint32_t code;
    };
    const Case cases[] = {{ReturnArgument, 42}, {ReturnArgument, 0}, {ReturnArgument, 0xFFFFFFFFu},
                          {ExitThroughFrames, 7}, {ExitThroughFrames, 0x80000001u}};
    std::vector<HalvThread> threads;
    for (const Case &c : cases) {
        HalvThread thread = nullptr;
        ASSERT_EQ(HalvCreateThread(&thread, c.fn, (void *)(uintptr_t)c.code), 1);
        ASSERT_NE(thread, nullptr);
        threads.push_back(thread);
    }
    for (size_t i = 0; i < threads.size(); ++i) {
        uint32_t code = 12345;
        EXPECT_EQ(HalvJoinThread(threads[i], &code), 1);
        EXPECT_EQ(code, cases[i].code) << "case " << i;
    }
    /* HalvExitThread also ends a thread the library did not start. */
    pthread_t foreign;
    ASSERT_EQ(pthread_create(&foreign, nullptr, [](void *) -> void * { HalvExitThread(9); }, nullptr), 0);
    void *result = nullptr;
    ASSERT_EQ(pthread_join(foreign, &result), 0);
    EXPECT_EQ((uintptr_t)result, 9u);
}

TEST(ThreadThreads, DetachedThreadsRunAndRefusedJoinsKeepTheHandle) {
    HalvEvent release = nullptr;
    ASSERT_EQ(HalvInitEvent(&release, 1, 0), 1);
    auto setEvent = [](void *event) -> uint32_t { return (uint32_t)HalvSetEvent((HalvEvent)event); };
    EXPECT_EQ(HalvCreateThread(nullptr, setEvent, release), 1);
    EXPECT_EQ(HalvWaitSingleEvent(release, kPatienceMs), 1) << "the detached thread did not run";
    ASSERT_EQ(HalvResetEvent(release), 1);
    EXPECT_EQ(HalvCreateThread(nullptr, nullptr, nullptr), 0);
    HalvThread thread = nullptr;
    EXPECT_EQ(HalvCreateThread(&thread, nullptr, nullptr), 0);
    EXPECT_EQ(thread, nullptr);

    ASSERT_EQ(HalvCreateThread(&thread, [](void *event) -> uint32_t {
                  return HalvWaitSingleEvent(static_cast<HalvEvent>(event), kPatienceMs) == 1 ? 5u : 6u;
              }, release),
              1);
    EXPECT_EQ(HalvJoinThread(thread, nullptr), 0);
    EXPECT_EQ(HalvJoinThread(nullptr, nullptr), 0);
    uint32_t code = 77;
    EXPECT_EQ(HalvJoinThread(nullptr, &code), 0);
    EXPECT_EQ(HalvJoinThread(HalvGetCurrentThread(), &code), 0) << "the pseudo handle is not joinable";
    EXPECT_EQ(code, 77u);
    ASSERT_EQ(HalvSetEvent(release), 1);
    EXPECT_EQ(HalvJoinThread(thread, &code), 1);
    EXPECT_EQ(code, 5u);
    EXPECT_EQ(HalvFreeEvent(release), 1);

    /* Nor can a thread join itself. */
    struct Shared {
        std::atomic<HalvThread> self{nullptr};
        int selfJoin = -1;
    } shared;
    ASSERT_EQ(HalvCreateThread(&thread, [](void *raw) -> uint32_t {
                  auto *s = static_cast<Shared *>(raw);
                  while (s->self.load() == nullptr)
                      std::this_thread::yield();
                  uint32_t code = 0;
                  s->selfJoin = HalvJoinThread(s->self.load(), &code);
                  return 3;
              }, &shared),
              1);
    shared.self.store(thread);
    EXPECT_EQ(HalvJoinThread(thread, &code), 1);
    EXPECT_EQ(code, 3u);
    EXPECT_EQ(shared.selfJoin, 0);
}

TEST(ThreadThreads, IdentifiersAndPseudoHandles) {
    constexpr int kThreads = 6;
    std::vector<uint32_t> ids(kThreads);
    std::vector<int> stable(kThreads, 0);
    std::atomic<int> arrived{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i)
        threads.emplace_back([&, i] {
            ids[i] = HalvGetCurrentThreadId();
            HalvThread self = HalvGetCurrentThread();
            stable[i] = self != nullptr && self == HalvGetCurrentThread() && ids[i] == HalvGetCurrentThreadId();
            /* All alive at once, so the identifiers must differ. */
            arrived.fetch_add(1);
            Eventually([&] { return arrived.load() == kThreads; });
        });
    for (auto &thread : threads)
        thread.join();
    std::set<uint32_t> distinct(ids.begin(), ids.end());
    distinct.insert(HalvGetCurrentThreadId());
    EXPECT_EQ(distinct.size(), (size_t)kThreads + 1);
    for (int i = 0; i < kThreads; ++i)
        EXPECT_EQ(stable[i], 1);
}

TEST(ThreadTLS, ValuesArePerThreadAndKeysRunOutAndComeBack) {
    uint32_t key = 0;
    ASSERT_EQ(HalvTLSAlloc(&key), 1);
    EXPECT_EQ(HalvTLSGetValue(key), nullptr);
    int mine = 0;
    ASSERT_EQ(HalvTLSSetValue(key, &mine), 1);

    constexpr int kThreads = 4;
    std::vector<int> values(kThreads), fine(kThreads, 0);
    std::atomic<int> set{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i)
        threads.emplace_back([&, i] {
            bool unsetIsNull = HalvTLSGetValue(key) == nullptr;
            bool stored = HalvTLSSetValue(key, &values[i]) == 1;
            set.fetch_add(1);
            Eventually([&] { return set.load() == kThreads; }); /* all set before reading */
            fine[i] = unsetIsNull && stored && HalvTLSGetValue(key) == &values[i];
        });
    for (auto &thread : threads)
        thread.join();
    for (int i = 0; i < kThreads; ++i)
        EXPECT_EQ(fine[i], 1) << "thread " << i;
    EXPECT_EQ(HalvTLSGetValue(key), &mine);
    EXPECT_EQ(HalvTLSSetValue(key, nullptr), 1);
    EXPECT_EQ(HalvTLSGetValue(key), nullptr);
    EXPECT_EQ(HalvTLSFree(key), 1);

    /* Keys run out, and come back once freed. */
    std::vector<uint32_t> keys;
    for (int i = 0; i < 5000 && HalvTLSAlloc(&key) == 1; ++i)
        keys.push_back(key);
    EXPECT_LT(keys.size(), 5000u) << "keys never ran out";
    EXPECT_EQ(HalvTLSAlloc(&key), 0);
    for (uint32_t k : keys)
        EXPECT_EQ(HalvTLSFree(k), 1);
    EXPECT_EQ(HalvTLSAlloc(&key), 1);
    EXPECT_EQ(HalvTLSFree(key), 1);
}

TEST(ThreadClock, CountersMeasureIntervals) {
    uint64_t frequency = 0, before = 0, after = 0;
    EXPECT_EQ(HalvGetPerfFrequency(&frequency), 1);
    EXPECT_EQ(frequency, 1000000000u);
    EXPECT_EQ(HalvGetPerfFrequency(nullptr), 0);
    EXPECT_EQ(HalvGetPerfCounter(nullptr), 0);

    uint32_t tickBefore = HalvGetClockTick();
    ASSERT_EQ(HalvGetPerfCounter(&before), 1);
    std::this_thread::sleep_for(std::chrono::milliseconds(30));
    ASSERT_EQ(HalvGetPerfCounter(&after), 1);
    uint32_t elapsedTicks = HalvGetClockTick() - tickBefore; /* wraps by design */
    EXPECT_GE(elapsedTicks, 29u);
    EXPECT_LT(elapsedTicks, 600000u);
    EXPECT_GE(after - before, 29000000u);
    EXPECT_GE(elapsedTicks + 1, (after - before) / 1000000u) << "tick and counter disagree";
}

} // namespace
