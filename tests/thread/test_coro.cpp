/*
 * Coroutines: yields through many resumes, nested resumes, resumes from two
 * threads in turn, stack sizes and the guard page an overflow faults in,
 * floating-point control kept on each side, and stacks given back on free.
 */
#include <gtest/gtest.h>

#include <fenv.h>
#include <signal.h>
#include <unistd.h>

#include <climits>
#include <condition_variable>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <mutex>
#include <string>
#include <thread>
#include <tuple>
#include <utility>
#include <vector>

#include "dpk_hvsup.h"

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define SANITIZED_BUILD 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define SANITIZED_BUILD 1
#endif
#endif

namespace {

/* The stack an address lies on: the start of its usable part (the end of
 * the inaccessible guard right below it) and the guard's start; zeros when
 * the address is on no writable mapping or no guard lies below it. */
struct StackView {
    uintptr_t guardStart = 0, usableStart = 0;
};

StackView StackAround(const void *address) {
    const auto at = reinterpret_cast<uintptr_t>(address);
    std::ifstream maps("/proc/self/maps");
    StackView view;
    unsigned long start = 0, end = 0, previousStart = 0, previousEnd = 0;
    char perms[8] = {}, previousPerms[8] = {};
    for (std::string line; std::getline(maps, line); previousStart = start, previousEnd = end) {
        std::memcpy(previousPerms, perms, sizeof perms);
        if (std::sscanf(line.c_str(), "%lx-%lx %7s", &start, &end, perms) != 3 || at < start || at >= end)
            continue;
        if (std::strncmp(perms, "rw", 2) == 0 && previousEnd == start &&
            std::strncmp(previousPerms, "---", 3) == 0)
            view = {previousStart, start};
        break;
    }
    return view;
}

long VmSizeKiB() {
    std::ifstream status("/proc/self/status");
    std::string line;
    while (std::getline(status, line))
        if (line.rfind("VmSize:", 0) == 0)
            return std::stol(line.substr(7));
    return -1;
}

struct Generator {
    int limit = 0, entries = 0, produced = 0;
    uint64_t value = 0;
};

/* Yields the Fibonacci numbers (mod 2^64) one by one, its state in locals
 * of its own stack. */
int32_t Fibonacci(HalvCoro *coro, void *raw) {
    auto *gen = static_cast<Generator *>(raw);
    gen->entries++;
    uint64_t a = 0, b = 1;
    for (int i = 0; i < gen->limit; ++i) {
        gen->value = a;
        gen->produced++;
        EXPECT_EQ(HalvCoroYield(coro), 1);
        b += std::exchange(a, b);
    }
    return 0;
}

TEST(ThreadCoro, YieldsValuesThroughManyResumesAndFinishesOnce) {
    constexpr int kValues = 20000;
    Generator gen;
    gen.limit = kValues;
    HalvCoro *coro = nullptr;
    ASSERT_EQ(HalvCoroCreate(&coro, Fibonacci, &gen, 0), 1);
    ASSERT_NE(coro, nullptr);
    EXPECT_TRUE(coro->finished == 0 && coro->fiber != nullptr);
    EXPECT_EQ(gen.entries, 0) << "the function started at creation";

    uint64_t a = 0, b = 1;
    for (int i = 0; i < kValues; ++i) {
        ASSERT_EQ(HalvCoroResume(coro), 1);
        ASSERT_EQ(gen.value, a) << "value " << i;
        ASSERT_EQ(coro->finished, 0);
        b += std::exchange(a, b);
    }
    /* The resume in which the function returns gives 1 and releases the
     * stack; the next gives 0 and runs nothing. */
    EXPECT_EQ(HalvCoroResume(coro), 1);
    EXPECT_EQ(std::tuple(coro->finished, coro->fiber), std::tuple(1, nullptr));
    EXPECT_EQ(HalvCoroResume(coro), 0);
    EXPECT_EQ(std::tuple(gen.entries, gen.produced), std::tuple(1, kValues));
    HalvCoroFree(coro);
}

TEST(ThreadCoro, RefusesWhatItCannotDo) {
    auto idle = [](HalvCoro *, void *) -> int32_t { return 0; };
    HalvCoro *coro = reinterpret_cast<HalvCoro *>(&coro);
    EXPECT_EQ(HalvCoroCreate(nullptr, idle, nullptr, 0), 0);
    EXPECT_EQ(HalvCoroCreate(&coro, nullptr, nullptr, 0), 0);
    EXPECT_EQ(coro, nullptr);
    coro = reinterpret_cast<HalvCoro *>(&coro);
    EXPECT_EQ(HalvCoroCreate(&coro, idle, nullptr, SIZE_MAX - 4096), 0) << "no such stack";
    EXPECT_EQ(coro, nullptr);
    EXPECT_EQ(HalvCoroResume(nullptr), 0);
    EXPECT_EQ(HalvCoroYield(nullptr), 0);
    HalvCoroFree(nullptr);

    /* A yield from outside and a resume from inside itself are refused. */
    int selfResume = -1;
    ASSERT_EQ(HalvCoroCreate(&coro, [](HalvCoro *self, void *raw) -> int32_t {
                  *static_cast<int *>(raw) = HalvCoroResume(self);
                  HalvCoroYield(self);
                  return 0;
              }, &selfResume, 0),
              1);
    EXPECT_EQ(HalvCoroYield(coro), 0) << "yield of a coroutine that is not running";
    EXPECT_EQ(HalvCoroResume(coro), 1);
    EXPECT_EQ(selfResume, 0);
    EXPECT_EQ(HalvCoroYield(coro), 0);
    EXPECT_EQ(HalvCoroResume(coro), 1);
    EXPECT_EQ(coro->finished, 1);
    HalvCoroFree(coro);
}

struct Nest {
    std::vector<std::string> log;
    HalvCoro *inner = nullptr;
    std::vector<int> innerResumes; /* results of the outer's resumes of inner */
};

int32_t Inner(HalvCoro *self, void *raw) {
    auto *nest = static_cast<Nest *>(raw);
    for (int i = 0; i < 3; ++i) {
        nest->log.push_back("B" + std::to_string(i));
        HalvCoroYield(self);
    }
    return 0;
}

int32_t Outer(HalvCoro *self, void *raw) {
    auto *nest = static_cast<Nest *>(raw);
    nest->log.push_back("A0");
    nest->innerResumes.push_back(HalvCoroResume(nest->inner));
    nest->log.push_back("A1");
    HalvCoroYield(self);
    nest->innerResumes.push_back(HalvCoroResume(nest->inner));
    nest->log.push_back("A2");
    HalvCoroYield(self);
    nest->log.push_back("A3");
    return 0;
}

TEST(ThreadCoro, NestedResumesGoBackToWhoeverResumed) {
    Nest nest;
    HalvCoro *outer = nullptr;
    ASSERT_EQ(HalvCoroCreate(&nest.inner, Inner, &nest, 0), 1);
    ASSERT_EQ(HalvCoroCreate(&outer, Outer, &nest, 0), 1);
    EXPECT_EQ(HalvCoroResume(outer), 1);      /* A0, B0 back to A, A1 */
    EXPECT_EQ(HalvCoroResume(nest.inner), 1); /* B1, back to this thread */
    EXPECT_EQ(HalvCoroResume(outer), 1);      /* B2 back to A, A2 */
    EXPECT_EQ(nest.inner->finished, 0);
    EXPECT_EQ(HalvCoroResume(nest.inner), 1); /* inner returns */
    EXPECT_EQ(nest.inner->finished, 1);
    EXPECT_EQ(HalvCoroResume(nest.inner), 0);
    EXPECT_EQ(HalvCoroResume(outer), 1); /* A3, outer returns */
    EXPECT_EQ(outer->finished, 1);
    EXPECT_EQ(nest.log, (std::vector<std::string>{"A0", "B0", "A1", "B1", "B2", "A2", "A3"}));
    EXPECT_EQ(nest.innerResumes, (std::vector<int>{1, 1}));
    HalvCoroFree(nest.inner);
    HalvCoroFree(outer);
}

struct Relay {
    std::vector<uint32_t> seenInside; /* the thread id the coroutine ran on, step by step */
    uint64_t checksum = 0;
};

int32_t RecordThread(HalvCoro *self, void *raw) {
    auto *relay = static_cast<Relay *>(raw);
    uint64_t sum = 0; /* lives on the coroutine's stack across threads */
    for (uint32_t step = 0;; ++step) {
        relay->seenInside.push_back(HalvGetCurrentThreadId());
        sum = sum * 31 + step;
        relay->checksum = sum;
        if (step == 199)
            return 0;
        HalvCoroYield(self);
    }
}

TEST(ThreadCoro, ResumesFromTwoThreadsInTurn) {
    Relay relay;
    HalvCoro *coro = nullptr;
    ASSERT_EQ(HalvCoroCreate(&coro, RecordThread, &relay, 0), 1);
    std::mutex lock;
    std::condition_variable turnChanged;
    int turn = 0; /* whose resume is next: 0 or 1, or -1 when done */
    std::vector<uint32_t> resumers;
    auto player = [&](int me) {
        for (;;) {
            std::unique_lock<std::mutex> hold(lock);
            turnChanged.wait(hold, [&] { return turn == me || turn == -1; });
            if (turn == -1)
                return;
            resumers.push_back(HalvGetCurrentThreadId());
            EXPECT_EQ(HalvCoroResume(coro), 1);
            turn = coro->finished ? -1 : 1 - me;
            turnChanged.notify_all();
        }
    };
    std::thread first(player, 0), second(player, 1);
    first.join();
    second.join();
    ASSERT_EQ(relay.seenInside.size(), 200u);
    EXPECT_EQ(relay.seenInside, resumers) << "the coroutine ran on another thread than its resumer";
    EXPECT_NE(resumers[0], resumers[1]);
    uint64_t sum = 0;
    for (uint32_t step = 0; step < 200; ++step)
        sum = sum * 31 + step;
    EXPECT_EQ(relay.checksum, sum);
    EXPECT_EQ(HalvCoroResume(coro), 0);
    HalvCoroFree(coro);
}

/* Frame addresses, not addresses of locals: a sanitizer may keep locals
 * elsewhere. */
int32_t ReportStack(HalvCoro *self, void *raw) {
    *static_cast<const void **>(raw) = __builtin_frame_address(0);
    HalvCoroYield(self);
    return 0;
}

TEST(ThreadCoro, StackHasTheAskedSizeAndAGuardPageBelow) {
    const size_t page = (size_t)sysconf(_SC_PAGESIZE);
    struct Case {
        size_t asked, usable;
    };
    const Case cases[] = {{0, 1u << 20}, {1000, 64 * 1024}, {100000, 102400},
                          {300 * 1024 + 1, 300 * 1024 + page}, {64 * 1024, 64 * 1024}};
    for (const Case &c : cases) {
        SCOPED_TRACE("asked " + std::to_string(c.asked));
        const void *local = nullptr;
        HalvCoro *coro = nullptr;
        ASSERT_EQ(HalvCoroCreate(&coro, ReportStack, &local, c.asked), 1);
        ASSERT_EQ(HalvCoroResume(coro), 1);
        StackView view = StackAround(local);
        ASSERT_NE(view.usableStart, 0u) << "no inaccessible page below the stack";
        EXPECT_GE(view.usableStart - view.guardStart, page);
        /* The frame sits near the top: within a few KiB below usable size. */
        uintptr_t depth = reinterpret_cast<uintptr_t>(local) - view.usableStart;
        EXPECT_LT(depth, c.usable);
        EXPECT_GT(depth, c.usable - 16 * 1024);
        ASSERT_EQ(HalvCoroResume(coro), 1);
        EXPECT_EQ(coro->finished, 1);
        HalvCoroFree(coro);
    }
}

TEST(ThreadCoro, FreeWhileSuspendedGivesTheStackBack) {
    constexpr int kCoros = 200;
    auto suspendForever = [](HalvCoro *self, void *) -> int32_t {
        char scratch[512];
        memset(scratch, 1, sizeof scratch);
        HalvCoroYield(self);
        ADD_FAILURE() << "a freed coroutine ran on";
        return scratch[0];
    };
    long before = VmSizeKiB();
    ASSERT_GT(before, 0);
    std::vector<HalvCoro *> coros(kCoros);
    for (int i = 0; i < kCoros; ++i) {
        ASSERT_EQ(HalvCoroCreate(&coros[i], suspendForever, nullptr, 1u << 20), 1);
        if (i % 2 == 0) {
            ASSERT_EQ(HalvCoroResume(coros[i]), 1); /* the rest never start */
        }
    }
    EXPECT_GE(VmSizeKiB() - before, kCoros * 1024L) << "the stacks are not where this test looks";
    for (HalvCoro *coro : coros)
        HalvCoroFree(coro);
    EXPECT_LT(VmSizeKiB() - before, 32 * 1024L) << "freed coroutines kept their stacks";
}

/* 1/3 rounds to nearest downward and 1/10 upward, so rounding upward shows
 * in the one and rounding downward in the other. */
double Ratio(double over, double under) {
    volatile double a = over, b = under;
    return a / b;
}

struct Rounding {
    int modeAtStart = -1, modeAfterYield = -1;
    double tenthAtStart = 0, thirdAfterYield = 0;
};

int32_t ChangeRounding(HalvCoro *self, void *raw) {
    auto *r = static_cast<Rounding *>(raw);
    r->modeAtStart = fegetround();
    r->tenthAtStart = Ratio(1, 10);
    fesetround(FE_UPWARD);
    HalvCoroYield(self);
    r->modeAfterYield = fegetround();
    r->thirdAfterYield = Ratio(1, 3);
    fesetround(FE_TONEAREST);
    return 0;
}

TEST(ThreadCoro, FloatingPointControlStaysWithEachSide) {
    const double third = Ratio(1, 3), tenth = Ratio(1, 10);
    fesetround(FE_DOWNWARD);
    const double tenthDown = Ratio(1, 10);
    Rounding r;
    HalvCoro *coro = nullptr;
    ASSERT_EQ(HalvCoroCreate(&coro, ChangeRounding, &r, 0), 1);
    fesetround(FE_TONEAREST);
    ASSERT_LT(tenthDown, tenth);
    ASSERT_EQ(HalvCoroResume(coro), 1);
    EXPECT_EQ(r.modeAtStart, FE_DOWNWARD) << "a coroutine starts with its creator's control words";
    EXPECT_EQ(r.tenthAtStart, tenthDown);
    EXPECT_EQ(fegetround(), FE_TONEAREST) << "the coroutine's rounding leaked to its resumer";
    EXPECT_EQ(Ratio(1, 3), third);
    ASSERT_EQ(HalvCoroResume(coro), 1);
    EXPECT_EQ(r.modeAfterYield, FE_UPWARD);
    EXPECT_GT(r.thirdAfterYield, third) << "SSE rounding not restored in the coroutine";
    EXPECT_EQ(fegetround(), FE_TONEAREST);
    HalvCoroFree(coro);
}

/* Overflow into the guard page, in a child process. */
constexpr int kFaultAtGuard = 42, kFaultElsewhere = 43;

volatile uintptr_t guardStart, guardEnd;
volatile int recursionLimit = INT_MAX;

void OnFault(int, siginfo_t *info, void *) {
    auto at = reinterpret_cast<uintptr_t>(info->si_addr);
    _exit(at >= guardStart && at < guardEnd ? kFaultAtGuard : kFaultElsewhere);
}

int Recurse(int depth) {
    volatile char frame[256];
    frame[0] = (char)depth;
    if (depth == recursionLimit)
        return 0;
    return Recurse(depth + 1) + frame[0];
}

int32_t Overflow(HalvCoro *, void *) {
    StackView view = StackAround(__builtin_frame_address(0));
    guardStart = view.guardStart;
    guardEnd = view.usableStart;
    if (guardEnd == 0)
        _exit(kFaultElsewhere + 1);
    return Recurse(0);
}

void OverflowCoroutine() {
    HalvCoro *coro = nullptr;
    if (HalvCoroCreate(&coro, Overflow, nullptr, 64 * 1024) != 1)
        _exit(kFaultElsewhere + 2);
    HalvCoroResume(coro);
    _exit(0);
}

/* Runs the overflow with a handler on an alternate stack that says where
 * the fault was. */
void OverflowWithHandler() {
    static char altStack[64 * 1024];
    stack_t alt = {altStack, 0, sizeof altStack};
    sigaltstack(&alt, nullptr);
    struct sigaction action = {};
    action.sa_sigaction = OnFault;
    action.sa_flags = SA_SIGINFO | SA_ONSTACK;
    sigaction(SIGSEGV, &action, nullptr);
    OverflowCoroutine();
}

TEST(ThreadCoroDeathTest, StackOverflowFaultsAtTheGuardPage) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(OverflowWithHandler(), ::testing::ExitedWithCode(kFaultAtGuard), "");
}

#if !defined(SANITIZED_BUILD)
/* Without a handler of its own the process dies of the fault (the
 * sanitizers catch it themselves and end the process otherwise). */
TEST(ThreadCoroDeathTest, StackOverflowKillsWithSIGSEGV) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(OverflowCoroutine(), ::testing::KilledBySignal(SIGSEGV), "");
}
#endif

} // namespace
