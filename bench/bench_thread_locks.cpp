/*
 * Lock and wake-up costs of the thread layer, each beside its standard
 * library counterpart in the same run:
 *   - uncontended lock/unlock of a critical section and of a mutex, against
 *     std::recursive_mutex, the fair peer of a recursive lock, and against
 *     std::mutex;
 *   - the same with two threads hammering one lock;
 *   - a signal/wait ping-pong between two threads through the conditional,
 *     against std::mutex + std::condition_variable.
 * After the runs the ratios are printed as the library's speed over the
 * standard one's: a lock within 1.5x of the standard cost shows 0.67x or more.
 */
#include <benchmark/benchmark.h>

#include <pthread.h>

#include <condition_variable>
#include <cstdio>
#include <map>
#include <mutex>
#include <string>
#include <thread>

#include "bench/ratio_report.h"
#include "dpk_hvsup.h"

namespace {

/* ---- locks ------------------------------------------------------------ */

struct SectionLock {
    HalvCriticalSection section = nullptr;
    SectionLock() { HalvInitCriticalSection(&section); }
    ~SectionLock() { HalvFreeCriticalSection(section); }
    void lock() { HalvEnterCriticalSection(section); }
    void unlock() { HalvLeaveCriticalSection(section); }
};

struct MutexLock {
    HalvMutex mutex = nullptr;
    MutexLock() { HalvInitMutex(&mutex); }
    ~MutexLock() { HalvFreeMutex(mutex); }
    void lock() { HalvLockMutex(mutex); }
    void unlock() { HalvUnlockMutex(mutex); }
};

/* The bare glibc locks the two are built on, to show the floor. */
struct RecursivePthread {
    pthread_mutex_t mutex = PTHREAD_RECURSIVE_MUTEX_INITIALIZER_NP;
    void lock() { pthread_mutex_lock(&mutex); }
    void unlock() { pthread_mutex_unlock(&mutex); }
};

struct RobustRecursivePthread {
    pthread_mutex_t mutex;
    RobustRecursivePthread() {
        pthread_mutexattr_t attributes;
        pthread_mutexattr_init(&attributes);
        pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_RECURSIVE);
        pthread_mutexattr_setrobust(&attributes, PTHREAD_MUTEX_ROBUST);
        pthread_mutex_init(&mutex, &attributes);
        pthread_mutexattr_destroy(&attributes);
    }
    void lock() { pthread_mutex_lock(&mutex); }
    void unlock() { pthread_mutex_unlock(&mutex); }
};

/* One lock per type, shared by the threads of a contended run. */
template <class Lock> Lock &SharedLock() {
    static Lock lock;
    return lock;
}

template <class Lock> void LockUnlock(benchmark::State &state) {
    Lock &lock = SharedLock<Lock>();
    static long counter = 0; /* guarded by the lock */
    for (auto _ : state) {
        lock.lock();
        ++counter;
        lock.unlock();
    }
    benchmark::DoNotOptimize(counter);
}

/* ---- ping-pong ---------------------------------------------------------- */

/* Two threads hand a turn back and forth; one iteration is one round trip. */
struct HalvPingPong {
    HalvMutex mutex = nullptr;
    HalvConditional ping = nullptr, pong = nullptr;
    int turn = 0; /* 0: main's turn, 1: partner's, 2: stop */
    HalvPingPong() {
        HalvInitMutex(&mutex);
        HalvInitConditional(&ping);
        HalvInitConditional(&pong);
    }
    ~HalvPingPong() {
        HalvFreeConditional(ping);
        HalvFreeConditional(pong);
        HalvFreeMutex(mutex);
    }
    void Pass(int give, int awaitOther, HalvConditional wake, HalvConditional sleep) {
        HalvLockMutex(mutex);
        turn = give;
        HalvSignalConditional(wake);
        while (turn == awaitOther)
            HalvWaitConditional(sleep, mutex);
        HalvUnlockMutex(mutex);
    }
    void Partner() {
        HalvLockMutex(mutex);
        for (;;) {
            while (turn == 0)
                HalvWaitConditional(ping, mutex);
            if (turn == 2)
                break;
            turn = 0;
            HalvSignalConditional(pong);
        }
        HalvUnlockMutex(mutex);
    }
    void RoundTrip() { Pass(1, 1, ping, pong); }
    void Stop() {
        HalvLockMutex(mutex);
        turn = 2;
        HalvSignalConditional(ping);
        HalvUnlockMutex(mutex);
    }
};

struct StdPingPong {
    std::mutex mutex;
    std::condition_variable ping, pong;
    int turn = 0;
    void Partner() {
        std::unique_lock<std::mutex> hold(mutex);
        for (;;) {
            ping.wait(hold, [&] { return turn != 0; });
            if (turn == 2)
                break;
            turn = 0;
            pong.notify_one();
        }
    }
    void RoundTrip() {
        std::unique_lock<std::mutex> hold(mutex);
        turn = 1;
        ping.notify_one();
        pong.wait(hold, [&] { return turn != 1; });
    }
    void Stop() {
        std::lock_guard<std::mutex> hold(mutex);
        turn = 2;
        ping.notify_one();
    }
};

template <class PingPong> void RoundTrips(benchmark::State &state) {
    PingPong game;
    std::thread partner([&] { game.Partner(); });
    for (auto _ : state)
        game.RoundTrip();
    game.Stop();
    partner.join();
}

} // namespace

int main(int argc, char **argv) {
    benchmark::RegisterBenchmark("uncontended/halv_section", LockUnlock<SectionLock>);
    benchmark::RegisterBenchmark("uncontended/halv_mutex", LockUnlock<MutexLock>);
    benchmark::RegisterBenchmark("uncontended/std_mutex", LockUnlock<std::mutex>);
    benchmark::RegisterBenchmark("uncontended/std_recursive_mutex", LockUnlock<std::recursive_mutex>);
    benchmark::RegisterBenchmark("uncontended/pthread_recursive", LockUnlock<RecursivePthread>);
    benchmark::RegisterBenchmark("uncontended/pthread_robust_recursive", LockUnlock<RobustRecursivePthread>);
    benchmark::RegisterBenchmark("contended/halv_section", LockUnlock<SectionLock>)->Threads(2)->UseRealTime();
    benchmark::RegisterBenchmark("contended/halv_mutex", LockUnlock<MutexLock>)->Threads(2)->UseRealTime();
    benchmark::RegisterBenchmark("contended/std_mutex", LockUnlock<std::mutex>)->Threads(2)->UseRealTime();
    benchmark::RegisterBenchmark("contended/std_recursive_mutex", LockUnlock<std::recursive_mutex>)
        ->Threads(2)
        ->UseRealTime();
    benchmark::RegisterBenchmark("pingpong/halv_conditional", RoundTrips<HalvPingPong>)->UseRealTime();
    benchmark::RegisterBenchmark("pingpong/std_condition_variable", RoundTrips<StdPingPong>)->UseRealTime();

    return bench::RunWithRatios(
        argc, argv,
        {
            {"uncontended: section / std::recursive_mutex", "uncontended/halv_section",
             "uncontended/std_recursive_mutex"},
            {"uncontended: mutex / std::recursive_mutex", "uncontended/halv_mutex", "uncontended/std_recursive_mutex"},
            {"uncontended: section / std::mutex", "uncontended/halv_section", "uncontended/std_mutex"},
            {"uncontended: mutex / std::mutex", "uncontended/halv_mutex", "uncontended/std_mutex"},
            {"  floor: pthread recursive / std::mutex", "uncontended/pthread_recursive", "uncontended/std_mutex"},
            {"  floor: pthread robust rec. / std::mutex", "uncontended/pthread_robust_recursive",
             "uncontended/std_mutex"},
            {"contended x2: section / std::recursive_mutex", "contended/halv_section/real_time/threads:2",
             "contended/std_recursive_mutex/real_time/threads:2"},
            {"contended x2: section / std::mutex", "contended/halv_section/real_time/threads:2",
             "contended/std_mutex/real_time/threads:2"},
            {"contended x2: mutex / std::mutex", "contended/halv_mutex/real_time/threads:2",
             "contended/std_mutex/real_time/threads:2"},
            {"ping-pong: conditional / std::cv", "pingpong/halv_conditional/real_time",
             "pingpong/std_condition_variable/real_time"},
        });
}
