/*
 * Worker pool throughput: one million empty tasks through a pool of two
 * threads, fed by one producer, from the pool's creation until its last
 * task has ended, beside
 *   - a plain queue of a std::mutex and a std::condition_variable with two
 *     std::threads, written here, and
 *   - boost::asio::thread_pool with two threads.
 * Each run reports microseconds per task; the ratios are the library's
 * speed over the baseline's (1.00x or more meets the asio pool).
 */
#include <benchmark/benchmark.h>

#include <boost/asio/post.hpp>
#include <boost/asio/thread_pool.hpp>

#include <chrono>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>
#include <vector>

#include "bench/ratio_report.h"
#include "dpk_hvsup.h"

namespace {

constexpr int kTasks = 1000000;
constexpr int kThreads = 2;

/* Runs one round per iteration and reports its cost per task. */
template <class Round> void Measure(benchmark::State &state, Round round) {
    double seconds = 0;
    for (auto _ : state) {
        auto start = std::chrono::steady_clock::now();
        round();
        seconds += std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    }
    state.counters["us_per_task"] = seconds * 1e6 / ((double)state.iterations() * kTasks);
    state.SetItemsProcessed(state.iterations() * kTasks);
}

int32_t EmptyTask(void *, void *) { return 0; }

void BM_Pool_Halv(benchmark::State &state) {
    Measure(state, [] {
        HalvWorkerPool *pool = nullptr;
        HalvWorkerPoolCreateLocal(&pool, 0, 0, kThreads, nullptr);
        for (int i = 0; i < kTasks; ++i)
            HalvWorkerPoolAddTask(pool, EmptyTask, nullptr);
        /* Free would drop what is still queued: wait until all is taken,
         * then Free joins the workers, so every task has ended. */
        HalvWorkerPoolWaitForEmpty(pool);
        HalvWorkerPoolFree(pool);
    });
}

/* The plain queue: a deque under one mutex, one condition variable for the
 * workers, which leave once the queue is drained and closed. */
class PlainQueue {
  public:
    PlainQueue() {
        for (int i = 0; i < kThreads; ++i)
            workers_.emplace_back([this] { Work(); });
    }
    void Add(void (*fn)(void *), void *argument) {
        {
            std::lock_guard<std::mutex> hold(lock_);
            tasks_.push_back({fn, argument});
        }
        ready_.notify_one();
    }
    void Finish() {
        {
            std::lock_guard<std::mutex> hold(lock_);
            closed_ = true;
        }
        ready_.notify_all();
        for (auto &worker : workers_)
            worker.join();
    }

  private:
    struct Task {
        void (*fn)(void *);
        void *argument;
    };
    void Work() {
        for (;;) {
            std::unique_lock<std::mutex> hold(lock_);
            ready_.wait(hold, [this] { return !tasks_.empty() || closed_; });
            if (tasks_.empty())
                return;
            Task task = tasks_.front();
            tasks_.pop_front();
            hold.unlock();
            task.fn(task.argument);
        }
    }
    std::mutex lock_;
    std::condition_variable ready_;
    std::deque<Task> tasks_;
    bool closed_ = false;
    std::vector<std::thread> workers_;
};

void PlainEmpty(void *) {}

void BM_Pool_MutexCond(benchmark::State &state) {
    Measure(state, [] {
        PlainQueue queue;
        for (int i = 0; i < kTasks; ++i)
            queue.Add(PlainEmpty, nullptr);
        queue.Finish();
    });
}

void BM_Pool_Asio(benchmark::State &state) {
    Measure(state, [] {
        boost::asio::thread_pool pool(kThreads);
        for (int i = 0; i < kTasks; ++i)
            boost::asio::post(pool, [] {});
        pool.join();
    });
}

BENCHMARK(BM_Pool_Halv)->MinTime(2.0)->UseRealTime();
BENCHMARK(BM_Pool_MutexCond)->MinTime(2.0)->UseRealTime();
BENCHMARK(BM_Pool_Asio)->MinTime(2.0)->UseRealTime();

} // namespace

int main(int argc, char **argv) {
    return bench::RunWithRatios(argc, argv,
                                {
                                    {"1M empty tasks, 2 threads, vs boost::asio::thread_pool", "BM_Pool_Halv",
                                     "BM_Pool_Asio"},
                                    {"1M empty tasks, 2 threads, vs mutex + condition variable queue",
                                     "BM_Pool_Halv", "BM_Pool_MutexCond"},
                                });
}
