/*
 * Worker pools on real threads: the ring, limits, blocking and clearing,
 * thread targets, idle retirement, shutdown, and clients racing.  The core
 * record is public: the tests read its fields under its mutex, as a host may.
 */
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <random>
#include <thread>
#include <vector>

#include "thread/support.h"

using halvtest::Attempt;
using halvtest::Eventually;
using halvtest::kPatienceMs;

namespace {

/* How long a blocked call is watched to stay blocked: only a fault finishes
 * it in that time; a slow machine merely lets a fault pass unseen. */
constexpr int kStaysBlockedMs = 100;

/* A one-way door with a bounded wait. */
class Gate {
  public:
    void Open() {
        std::lock_guard<std::mutex> hold(lock_);
        open_ = true;
        changed_.notify_all();
    }
    bool WaitFor(int ms = kPatienceMs) {
        std::unique_lock<std::mutex> hold(lock_);
        return changed_.wait_for(hold, std::chrono::milliseconds(ms), [this] { return open_; });
    }

  private:
    std::mutex lock_;
    std::condition_variable changed_;
    bool open_ = false;
};

/* The ids of tasks in the order they ran; a client's clientData. */
class Recorder {
  public:
    void Add(int id) {
        std::lock_guard<std::mutex> hold(lock_);
        ids_.push_back(id);
    }
    std::vector<int> Ids() {
        std::lock_guard<std::mutex> hold(lock_);
        return ids_;
    }

  private:
    std::mutex lock_;
    std::vector<int> ids_;
};

int32_t RecordTask(void *argument, void *clientData) {
    static_cast<Recorder *>(clientData)->Add((int)(intptr_t)argument);
    return 0;
}

/* Queues a task that records id with the client's recorder. */
int Add(HalvWorkerPool *pool, int id) {
    return HalvWorkerPoolAddTask(pool, RecordTask, (void *)(intptr_t)id);
}

/* A task that holds its worker: it reports that it started, then waits. */
struct Blocker {
    Gate started, release;
};

int32_t BlockTask(void *argument, void *) {
    auto *blocker = static_cast<Blocker *>(argument);
    blocker->started.Open();
    blocker->release.WaitFor();
    return 0;
}

/* Queues the blocker's task and waits until it holds a worker. */
bool Hold(HalvWorkerPool *pool, Blocker &blocker) {
    return HalvWorkerPoolAddTask(pool, BlockTask, &blocker) == 1 && blocker.started.WaitFor();
}

bool DrainAndFree(HalvWorkerPool *pool) {
    const bool drained = HalvWorkerPoolWaitForEmpty(pool) == 1;
    return HalvWorkerPoolFree(pool) == 1 && drained;
}

int32_t OpenTask(void *argument, void *) {
    static_cast<Gate *>(argument)->Open();
    return 0;
}

/* Queues a task that opens a gate, lets the held task go, and waits for the
 * gate: on a single worker every task queued before it has then run. */
bool RunsThrough(HalvWorkerPool *pool, Blocker *held = nullptr) {
    Gate done;
    if (HalvWorkerPoolAddTask(pool, OpenTask, &done) != 1)
        return false;
    if (held != nullptr)
        held->release.Open();
    return done.WaitFor();
}

template <class F> auto Locked(HalvWorkerPoolCore *core, F read) {
    HalvLockMutex(core->mutex);
    auto value = read();
    HalvUnlockMutex(core->mutex);
    return value;
}
uint32_t ThreadCount(HalvWorkerPool *p) { return Locked(p->core, [&] { return p->core->threadCount; }); }
uint32_t ThreadTarget(HalvWorkerPool *p) { return Locked(p->core, [&] { return p->core->threadTarget; }); }
uint32_t Pending(HalvWorkerPool *pool) {
    return Locked(pool->core, [&] { return pool->core->clients[pool->clientIndex].pendingCount; });
}
/* head * 100 + tail * 10 + count, for small rings. */
uint32_t RingShape(HalvWorkerPoolCore *core) {
    return Locked(core, [&] { return core->taskHead * 100 + core->taskTail * 10 + core->taskCount; });
}

/* The ring's invariants, as the core states them. */
void ExpectConsistentRing(HalvWorkerPoolCore *core) {
    Locked(core, [&] {
        uint32_t pending = 0;
        for (uint32_t i = 0; i < core->clientCapacity; ++i)
            pending += core->clients[i].pendingCount;
        EXPECT_EQ(core->taskCount, pending);
        if (core->taskCapacity != 0) {
            EXPECT_EQ(core->taskTail, (core->taskHead + core->taskCount) % core->taskCapacity);
        }
        EXPECT_LE(core->taskCount, core->taskCapacity);
        return 0;
    });
}

std::vector<int> Range(int from, int to) {
    std::vector<int> ids;
    for (int i = from; i < to; ++i)
        ids.push_back(i);
    return ids;
}

/* Every test runs on a started engine, which owns the global core. */
class WorkerPool : public ::testing::Test {
  protected:
    void SetUp() override {
        HalvernDisableRegistryLoad(1);
        ASSERT_EQ(HalvernInit(), 1);
    }
    void TearDown() override {
        HalvSetenv("HV_WORKERPOOL_AGE", nullptr);
        for (int i = 0; i < 100 && HalvernAbsoluteEnd() != 0; ++i) {
        }
        HalvernDisableRegistryLoad(0);
    }
};

/* A task that queues its successor until the chain is done. */
struct Chain {
    HalvWorkerPool *pool = nullptr;
    std::atomic<int> left{50};
    Gate done;
};

int32_t ChainTask(void *argument, void *) {
    auto *chain = static_cast<Chain *>(argument);
    if (chain->left.fetch_sub(1) > 1) {
        EXPECT_EQ(HalvWorkerPoolAddTask(chain->pool, ChainTask, chain), 1);
    } else {
        chain->done.Open();
    }
    return 0;
}

TEST_F(WorkerPool, LocalPoolRunsTasksInOrderAndTasksMayAddTasks) {
    Recorder recorder;
    HalvWorkerPool *pool = nullptr;
    ASSERT_EQ(HalvWorkerPoolCreateLocal(&pool, 0, 0, 1, &recorder), 1);
    ASSERT_NE(pool, nullptr);
    EXPECT_EQ(pool->clientIndex, 0u);
    EXPECT_EQ(ThreadCount(pool), 1u);
    EXPECT_EQ(pool->core->ageMs, HALV_WAIT_FOREVER);
    for (int i = 0; i < 100; ++i)
        ASSERT_EQ(Add(pool, i), 1);
    EXPECT_EQ(HalvWorkerPoolWaitForEmpty(pool), 1);
    EXPECT_EQ(Pending(pool), 0u);

    Chain chain;
    chain.pool = pool;
    ASSERT_EQ(HalvWorkerPoolAddTask(pool, ChainTask, &chain), 1);
    EXPECT_TRUE(chain.done.WaitFor());
    EXPECT_EQ(chain.left.load(), 0);
    /* Free joins the worker: every task taken has ended. */
    EXPECT_EQ(HalvWorkerPoolFree(pool), 1);
    EXPECT_EQ(recorder.Ids(), Range(0, 100));

    EXPECT_EQ(HalvWorkerPoolCreateLocal(nullptr, 0, 0, 1, nullptr), 0);
    EXPECT_EQ(HalvWorkerPoolCreateGlobal(nullptr, 0, 0, 1, 0, nullptr), 0);
}

TEST_F(WorkerPool, RingDoublesAtEveryHeadPositionAndKeepsTheOrder) {
    /* Head position h: h tasks are taken first (the last of them holds the
     * single worker), then 17 are queued: the ninth doubles the ring from 8
     * to 16 and the seventeenth to 32, wherever the head stands. */
    for (int h = 0; h <= 8; ++h) {
        SCOPED_TRACE("tasks taken before: " + std::to_string(h));
        Recorder recorder;
        Blocker blocker;
        HalvWorkerPool *pool = nullptr;
        ASSERT_EQ(HalvWorkerPoolCreateLocal(&pool, 0, 0, 0, &recorder), 1);
        HalvWorkerPoolCore *core = pool->core;
        EXPECT_EQ(Locked(core, [&] { return core->taskCapacity; }), 0u);
        for (int i = 0; i < h - 1; ++i)
            ASSERT_EQ(Add(pool, -1), 1);
        if (h > 0) {
            ASSERT_EQ(HalvWorkerPoolAddTask(pool, BlockTask, &blocker), 1);
            ASSERT_EQ(HalvWorkerPoolSetSharedThreadCount(pool, 1), 1);
            ASSERT_TRUE(blocker.started.WaitFor());
        }
        for (int i = 0; i < 17; ++i) {
            ASSERT_EQ(Add(pool, i), 1);
            uint32_t capacity = Locked(core, [&] { return core->taskCapacity; });
            EXPECT_EQ(capacity, i < 8 ? 8u : i < 16 ? 16u : 32u) << "after task " << i;
            EXPECT_EQ(Locked(core, [&] { return core->taskHead; }), (uint32_t)h % 8) << "the head moved";
            ExpectConsistentRing(core);
        }
        blocker.release.Open();
        if (h == 0) {
            ASSERT_EQ(HalvWorkerPoolSetSharedThreadCount(pool, 1), 1);
        }
        EXPECT_TRUE(DrainAndFree(pool));
        std::vector<int> expected(h > 0 ? h - 1 : 0, -1);
        for (int i = 0; i < 17; ++i)
            expected.push_back(i);
        EXPECT_EQ(recorder.Ids(), expected);
    }
}

TEST_F(WorkerPool, PoolWithoutThreadsHoldsTasksUntilACountIsRaisedAndFreeDropsThem) {
    for (bool raise : {true, false}) {
        SCOPED_TRACE(raise ? "count raised" : "freed at once");
        Recorder recorder;
        HalvWorkerPool *pool = nullptr;
        ASSERT_EQ(HalvWorkerPoolCreateLocal(&pool, 0, 0, 0, &recorder), 1);
        EXPECT_EQ(ThreadCount(pool), 0u);
        for (int i = 0; i < 1000; ++i)
            ASSERT_EQ(Add(pool, i), 1) << "no limit never refuses";
        EXPECT_EQ(Locked(pool->core, [&] { return pool->core->taskCapacity; }), 1024u);
        EXPECT_EQ(Pending(pool), 1000u);
        ExpectConsistentRing(pool->core);
        if (raise) {
            Attempt waiter([&] { EXPECT_EQ(HalvWorkerPoolWaitForEmpty(pool), 1); });
            EXPECT_FALSE(waiter.DoneWithin(kStaysBlockedMs)) << "WaitForEmpty returned with tasks queued";
            EXPECT_TRUE(recorder.Ids().empty());
            ASSERT_EQ(HalvWorkerPoolSetExclusiveThreadCount(pool, 1), 1);
            EXPECT_TRUE(waiter.DoneWithin(kPatienceMs));
            EXPECT_EQ(ThreadCount(pool), 1u);
        }
        EXPECT_EQ(HalvWorkerPoolFree(pool), 1);
        EXPECT_EQ(recorder.Ids(), raise ? Range(0, 1000) : std::vector<int>{}) << "a dropped task was called";
    }
}

TEST_F(WorkerPool, BlockedProducersAndWaitersWakeOnATakeOrOnAClear) {
    /* First a take wakes a blocked producer.  Then the only worker stays held,
     * so no task is taken: only the clear itself can wake them. */
    Recorder recorder;
    Blocker blocker, holder;
    HalvWorkerPool *pool = nullptr;
    ASSERT_EQ(HalvWorkerPoolCreateLocal(&pool, 1, 1, 1, &recorder), 1);
    ASSERT_TRUE(Hold(pool, blocker));
    ASSERT_EQ(HalvWorkerPoolAddTask(pool, BlockTask, &holder), 1);
    {
        int result = -1;
        Attempt producer([&] { result = Add(pool, 1); });
        EXPECT_FALSE(producer.DoneWithin(kStaysBlockedMs)) << "AddTask passed the limit";
        blocker.release.Open();
        ASSERT_TRUE(producer.DoneWithin(kPatienceMs));
        EXPECT_EQ(result, 1);
    }
    ASSERT_TRUE(holder.started.WaitFor());
    {
        Attempt waiter([&] { EXPECT_EQ(HalvWorkerPoolWaitForEmpty(pool), 1); });
        EXPECT_FALSE(waiter.DoneWithin(kStaysBlockedMs));
        EXPECT_EQ(HalvWorkerPoolClearTasks(pool), 1);
        EXPECT_TRUE(waiter.DoneWithin(kPatienceMs)) << "WaitForEmpty not woken by the clear";
    }
    ASSERT_EQ(Add(pool, 2), 1);
    {
        int result = -1;
        Attempt producer([&] { result = Add(pool, 3); });
        EXPECT_FALSE(producer.DoneWithin(kStaysBlockedMs));
        EXPECT_EQ(HalvWorkerPoolClearTasks(pool), 1);
        ASSERT_TRUE(producer.DoneWithin(kPatienceMs)) << "blocked AddTask not woken by the clear";
        EXPECT_EQ(result, 1);
    }
    EXPECT_EQ(Pending(pool), 1u);
    holder.release.Open();
    EXPECT_TRUE(DrainAndFree(pool));
    EXPECT_EQ(recorder.Ids(), (std::vector<int>{3}));
}

TEST_F(WorkerPool, LimitCountsOnlyTheClientsOwnQueuedTasksAndFreesAsTasksAreTaken) {
    Recorder recorder;
    Blocker first, second;
    HalvWorkerPool *limited = nullptr, *other = nullptr;
    ASSERT_EQ(HalvWorkerPoolCreateGlobal(&limited, 2, 0, 1, 0, &recorder), 1);
    ASSERT_EQ(HalvWorkerPoolCreateGlobal(&other, 0, 0, 0, 0, &recorder), 1);
    EXPECT_EQ(limited->core, other->core);
    EXPECT_NE(limited->clientIndex, other->clientIndex);
    ASSERT_TRUE(Hold(limited, first));
    /* The running task doesn't count: two more fit. */
    EXPECT_EQ(HalvWorkerPoolAddTask(limited, BlockTask, &second), 1);
    EXPECT_EQ(Add(limited, 1), 1);
    EXPECT_EQ(Add(limited, 99), 2);
    for (int i = 0; i < 5; ++i)
        ASSERT_EQ(Add(other, 100 + i), 1) << "the other client has no limit";
    EXPECT_EQ(Pending(limited) * 10 + Pending(other), 25u) << "a refused task was queued";
    ExpectConsistentRing(limited->core);
    first.release.Open();
    ASSERT_TRUE(second.started.WaitFor());
    EXPECT_EQ(Add(limited, 2), 1);
    EXPECT_EQ(Add(limited, 99), 2);

    ASSERT_TRUE(RunsThrough(other, &second));
    EXPECT_EQ(recorder.Ids(), (std::vector<int>{1, 100, 101, 102, 103, 104, 2}));
    EXPECT_EQ(HalvWorkerPoolFree(limited), 1);
    EXPECT_EQ(HalvWorkerPoolFree(other), 1);
}

TEST_F(WorkerPool, ClearAndFreeDropOnlyTheClientsTasksAcrossTheWrap) {
    Recorder recorder;
    Blocker blocker;
    HalvWorkerPool *cleared = nullptr, *kept = nullptr;
    ASSERT_EQ(HalvWorkerPoolCreateGlobal(&cleared, 0, 0, 0, 0, &recorder), 1);
    ASSERT_EQ(HalvWorkerPoolCreateGlobal(&kept, 0, 0, 1, 0, &recorder), 1);
    HalvWorkerPoolCore *core = kept->core;
    /* Five tasks taken, the last one holding the worker: the head is at 5
     * of 8, and six more tasks wrap round to slot 2. */
    for (int i = 0; i < 4; ++i)
        ASSERT_EQ(Add(kept, -1), 1);
    ASSERT_TRUE(Hold(kept, blocker));
    for (int i = 0; i < 3; ++i) {
        ASSERT_EQ(Add(cleared, 200 + i), 1);
        ASSERT_EQ(Add(kept, i), 1);
    }
    EXPECT_EQ(RingShape(core), 536u);
    EXPECT_EQ(HalvWorkerPoolClearTasks(cleared), 1);
    EXPECT_EQ(RingShape(core), 503u);
    EXPECT_EQ(Pending(cleared) * 10 + Pending(kept), 3u);
    ExpectConsistentRing(core);
    /* The ring goes on working behind the compacted entries. */
    ASSERT_EQ(Add(cleared, 203), 1);
    ASSERT_EQ(Add(kept, 3), 1);
    ASSERT_TRUE(RunsThrough(kept, &blocker));
    EXPECT_EQ(recorder.Ids(), (std::vector<int>{-1, -1, -1, -1, 0, 1, 2, 203, 3}));

    /* Freeing a client drops only its queued tasks, and its slot is reused. */
    Blocker again;
    ASSERT_TRUE(Hold(kept, again));
    for (int i = 0; i < 4; ++i) {
        ASSERT_EQ(Add(cleared, 300 + i), 1);
        ASSERT_EQ(Add(kept, 10 + i), 1);
    }
    const uint32_t freedSlot = cleared->clientIndex;
    EXPECT_EQ(HalvWorkerPoolFree(cleared), 1);
    EXPECT_EQ(Locked(core, [&] { return core->taskCount * 10 + core->clients[freedSlot].inUse; }), 40u);
    ExpectConsistentRing(core);
    HalvWorkerPool *newcomer = nullptr;
    ASSERT_EQ(HalvWorkerPoolCreateGlobal(&newcomer, 0, 0, 0, 0, nullptr), 1);
    EXPECT_EQ(newcomer->clientIndex, freedSlot) << "the lowest free slot is reused";
    ASSERT_TRUE(RunsThrough(kept, &again));
    EXPECT_EQ(recorder.Ids(), (std::vector<int>{-1, -1, -1, -1, 0, 1, 2, 203, 3, 10, 11, 12, 13}));
    EXPECT_EQ(HalvWorkerPoolFree(newcomer), 1);
    EXPECT_EQ(HalvWorkerPoolFree(kept), 1);
}

TEST_F(WorkerPool, TargetIsTheSumOfExclusiveCountsPlusTheLargestSharedOne) {
    HalvWorkerPool *first = nullptr, *second = nullptr, *local = nullptr;
    ASSERT_EQ(HalvWorkerPoolCreateGlobal(&first, 0, 0, 3, 1, nullptr), 1);
    EXPECT_EQ(ThreadTarget(first), 4u);
    ASSERT_EQ(HalvWorkerPoolCreateGlobal(&second, 0, 0, 2, 1, nullptr), 1);
    EXPECT_EQ(ThreadTarget(first) * 10 + ThreadCount(first), 55u) << "shared counts overlap, exclusive add";
    EXPECT_EQ(HalvWorkerPoolFree(first), 1);
    EXPECT_EQ(ThreadTarget(second) * 10 + ThreadCount(second), 35u) << "without an age no worker ends";
    EXPECT_EQ(HalvWorkerPoolSetExclusiveThreadCount(second, 4), 1);
    EXPECT_EQ(ThreadTarget(second) * 10 + ThreadCount(second), 66u);
    EXPECT_EQ(HalvWorkerPoolFree(second), 1);

    ASSERT_EQ(HalvWorkerPoolCreateLocal(&local, 0, 0, 2, nullptr), 1);
    EXPECT_EQ(HalvWorkerPoolSetExclusiveThreadCount(local, 3), 1);
    EXPECT_EQ(ThreadTarget(local) * 10 + ThreadCount(local), 55u);
    EXPECT_EQ(HalvWorkerPoolSetSharedThreadCount(local, 0), 1);
    EXPECT_EQ(HalvWorkerPoolSetExclusiveThreadCount(local, 1), 1);
    EXPECT_EQ(ThreadTarget(local) * 10 + ThreadCount(local), 15u);
    EXPECT_EQ(HalvWorkerPoolFree(local), 1);
}

TEST_F(WorkerPool, AgeIsReadInSecondsOnceByEachCore) {
    const struct {
        const char *value;
        uint32_t ageMs;
    } cases[] = {
        {nullptr, HALV_WAIT_FOREVER}, {"0", HALV_WAIT_FOREVER}, {"soon", HALV_WAIT_FOREVER},
        {"2", 2000},                  {" 7", 7000},             {"3 seconds", 3000},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.value ? c.value : "(unset)");
        ASSERT_EQ(HalvSetenv("HV_WORKERPOOL_AGE", c.value), 1);
        HalvWorkerPool *pool = nullptr;
        ASSERT_EQ(HalvWorkerPoolCreateLocal(&pool, 0, 0, 0, nullptr), 1);
        EXPECT_EQ(pool->core->ageMs, c.ageMs);
        ASSERT_EQ(HalvSetenv("HV_WORKERPOOL_AGE", "9"), 1);
        EXPECT_EQ(Locked(pool->core, [&] { return pool->core->ageMs; }), c.ageMs) << "read again after creation";
        EXPECT_EQ(HalvWorkerPoolFree(pool), 1);
    }
}

TEST_F(WorkerPool, IdleSurplusWorkersRetireOnePerAgePeriod) {
    using Clock = std::chrono::steady_clock;
    ASSERT_EQ(HalvSetenv("HV_WORKERPOOL_AGE", "1"), 1);
    auto created = Clock::now();
    HalvWorkerPool *first = nullptr, *second = nullptr;
    ASSERT_EQ(HalvWorkerPoolCreateGlobal(&first, 0, 0, 3, 1, nullptr), 1);
    ASSERT_EQ(HalvWorkerPoolCreateGlobal(&second, 0, 0, 2, 1, nullptr), 1);
    HalvWorkerPoolCore *core = second->core;
    EXPECT_EQ(core->ageMs * 10 + ThreadCount(second), 10005u);
    EXPECT_EQ(HalvWorkerPoolFree(first), 1);

    /* Watches the count fall to the target, noting when each worker left;
     * the exits start with the moment given. */
    auto drainTo = [&](uint32_t target, Clock::time_point from) {
        std::vector<Clock::time_point> exits{from};
        uint32_t seen = Locked(core, [&] { return core->threadCount; });
        while (seen > target) {
            uint32_t now = seen;
            if (!Eventually([&] { return (now = Locked(core, [&] { return core->threadCount; })) < seen; })) {
                ADD_FAILURE() << "no worker retired from " << seen;
                break;
            }
            EXPECT_EQ(now, seen - 1) << "two workers retired in one period";
            exits.push_back(Clock::now());
            seen = now;
        }
        /* The poll may notice an exit late, never early: a margin for that. */
        for (size_t i = 1; i < exits.size(); ++i)
            EXPECT_GE(std::chrono::duration_cast<std::chrono::milliseconds>(exits[i] - exits[i - 1]).count(),
                      i == 1 && from == created ? 990 : 900)
                << "exit " << i;
        return exits;
    };
    std::vector<Clock::time_point> exits = drainTo(3, created);
    ASSERT_EQ(exits.size(), 3u);
    /* With the last client gone the target is 0, and the core drains. */
    EXPECT_EQ(HalvWorkerPoolFree(second), 1);
    EXPECT_EQ(drainTo(0, exits.back()).size(), 4u);

    /* A new client of the empty core gets a worker again. */
    HalvWorkerPool *late = nullptr;
    ASSERT_EQ(HalvWorkerPoolCreateGlobal(&late, 0, 0, 1, 0, nullptr), 1);
    EXPECT_EQ(late->core, core);
    EXPECT_TRUE(RunsThrough(late));
    EXPECT_EQ(HalvWorkerPoolFree(late), 1);
}

TEST_F(WorkerPool, EngineShutdownDropsQueuedGlobalTasksUncalled) {
    Recorder recorder;
    Blocker blocker;
    HalvWorkerPool *pool = nullptr;
    ASSERT_EQ(HalvWorkerPoolCreateGlobal(&pool, 0, 0, 1, 0, &recorder), 1);
    HalvWorkerPoolCore *core = pool->core;
    ASSERT_TRUE(Hold(pool, blocker));
    for (int i = 0; i < 10; ++i)
        ASSERT_EQ(Add(pool, i), 1);
    {
        int ended = -1;
        Attempt end([&] { ended = HalvernEnd(); });
        /* The core lives until its worker is joined, which waits for the
         * held task: its shutdown flag can be read meanwhile. */
        EXPECT_TRUE(Eventually([&] { return Locked(core, [&] { return core->shutdown; }) == 1; }));
        EXPECT_FALSE(end.DoneWithin(kStaysBlockedMs)) << "the end did not wait for the running task";
        blocker.release.Open();
        ASSERT_TRUE(end.DoneWithin(kPatienceMs));
        EXPECT_EQ(ended, 1);
    }
    EXPECT_TRUE(recorder.Ids().empty()) << "a queued task ran at shutdown";
    /* The handle has lost its core with the engine. */
    halv_internal_free(pool);

    ASSERT_EQ(HalvernInit(), 1);
    ASSERT_EQ(HalvWorkerPoolCreateGlobal(&pool, 0, 0, 1, 0, nullptr), 1);
    EXPECT_EQ(Locked(pool->core, [&] { return pool->core->shutdown * 10 + pool->core->threadCount; }), 1u);
    EXPECT_TRUE(RunsThrough(pool));
    EXPECT_EQ(HalvWorkerPoolFree(pool), 1);
}

/* One client's round in the stress test. */
struct Round {
    std::atomic<int> ran{0}, wrongData{0};
    int queued = 0;
    bool cleared = false;
};

int32_t CountTask(void *argument, void *clientData) {
    auto *round = static_cast<Round *>(argument);
    if (clientData != argument)
        round->wrongData.fetch_add(1);
    round->ran.fetch_add(1);
    return 0;
}

TEST_F(WorkerPool, ClientsAddClearAndFreeAtOnce) {
    constexpr int kProducers = 4, kRounds = 40, kTasks = 30;
    std::vector<std::unique_ptr<Round>> rounds(kProducers * kRounds);
    for (auto &round : rounds)
        round = std::make_unique<Round>();
    /* A client of the global core that stays, so it outlives the others. */
    HalvWorkerPool *anchor = nullptr;
    ASSERT_EQ(HalvWorkerPoolCreateGlobal(&anchor, 0, 0, 2, 0, nullptr), 1);
    std::atomic<bool> producing{true};

    std::vector<std::thread> producers;
    for (int p = 0; p < kProducers; ++p)
        producers.emplace_back([&, p] {
            std::mt19937 random(p + 1);
            for (int r = 0; r < kRounds; ++r) {
                Round &round = *rounds[p * kRounds + r];
                bool local = random() % 3 == 0;
                uint32_t limit = random() % 4;
                int block = random() % 2;
                HalvWorkerPool *pool = nullptr;
                int made = local ? HalvWorkerPoolCreateLocal(&pool, limit, block, 1 + random() % 2, &round)
                                 : HalvWorkerPoolCreateGlobal(&pool, limit, block, random() % 3, random() % 2, &round);
                ASSERT_EQ(made, 1);
                for (int t = 0; t < kTasks; ++t) {
                    int added = HalvWorkerPoolAddTask(pool, CountTask, &round);
                    ASSERT_TRUE(added == 1 || (added == 2 && limit != 0 && !block)) << added;
                    round.queued += added == 1;
                    if (random() % 16 == 0) {
                        HalvWorkerPoolClearTasks(pool);
                        round.cleared = true;
                    }
                }
                if (random() % 4 == 0)
                    round.cleared = true; /* freed with its tasks perhaps still queued */
                else
                    HalvWorkerPoolWaitForEmpty(pool);
                EXPECT_EQ(HalvWorkerPoolFree(pool), 1);
            }
        });
    std::thread checker([&] {
        while (producing.load()) {
            ExpectConsistentRing(anchor->core);
            std::this_thread::yield();
        }
    });
    for (auto &producer : producers)
        producer.join();
    producing.store(false);
    checker.join();
    EXPECT_EQ(HalvWorkerPoolFree(anchor), 1);
    /* The engine's end joins the global workers: every count is final. */
    ASSERT_EQ(HalvernEnd(), 1);
    for (size_t i = 0; i < rounds.size(); ++i) {
        const Round &round = *rounds[i];
        SCOPED_TRACE("round " + std::to_string(i));
        EXPECT_EQ(round.wrongData.load(), 0) << "a task got another client's data";
        if (round.cleared) {
            EXPECT_LE(round.ran.load(), round.queued);
        } else {
            EXPECT_EQ(round.ran.load(), round.queued);
        }
    }
}

} // namespace
