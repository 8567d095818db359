/*
 * tests/thread_support.h - helpers of the thread tests: a capture of the
 * logging funnel, bounded polling, and a call run on its own thread whose
 * progress can be watched.
 */
#ifndef HALV_TESTS_THREAD_SUPPORT_H
#define HALV_TESTS_THREAD_SUPPORT_H

#include <atomic>
#include <chrono>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "dpk_hvsup.h"

namespace halvtest {

/* Generous bound for anything that must happen: far above what a loaded
 * machine needs, and only reached when the code under test is broken. */
constexpr int kPatienceMs = 20000;

/* Holds the logging callback for its lifetime and keeps every message. */
class LogCapture {
  public:
    explicit LogCapture(bool withDebug = true) {
        HalvSetDebug(withDebug ? 1 : 0);
        HalvSetLoggingCallback(&LogCapture::Receive, reinterpret_cast<intptr_t>(this));
    }
    ~LogCapture() {
        HalvSetLoggingCallback(nullptr, 0);
        HalvSetDebug(0);
    }
    std::vector<std::string> Texts(int kind) {
        std::lock_guard<std::mutex> hold(lock_);
        std::vector<std::string> texts;
        for (const auto &entry : entries_)
            if (entry.first == kind)
                texts.push_back(entry.second);
        return texts;
    }
    void Clear() {
        std::lock_guard<std::mutex> hold(lock_);
        entries_.clear();
    }

  private:
    static void Receive(const char *text, int kind, intptr_t self) {
        auto *capture = reinterpret_cast<LogCapture *>(self);
        std::lock_guard<std::mutex> hold(capture->lock_);
        capture->entries_.emplace_back(kind, text);
    }
    std::mutex lock_;
    std::vector<std::pair<int, std::string>> entries_;
};

/* Polls until pred holds or limitMs pass; the final answer of pred. */
template <class Pred> bool Eventually(Pred pred, int limitMs = kPatienceMs) {
    auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(limitMs);
    while (!pred()) {
        if (std::chrono::steady_clock::now() > end)
            return pred();
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

/* Runs a call on its own thread; the test asks whether it has finished. */
class Attempt {
  public:
    explicit Attempt(std::function<void()> call)
        : thread_([this, call = std::move(call)] {
              call();
              done_.store(true);
          }) {}
    ~Attempt() { thread_.join(); }
    bool DoneWithin(int ms) {
        return Eventually([this] { return done_.load(); }, ms);
    }

  private:
    std::atomic<bool> done_{false};
    std::thread thread_;
};

/* Runs call on another thread; whether it ended in good time. */
inline bool OnOtherThread(std::function<void()> call) {
    Attempt other(std::move(call));
    return other.DoneWithin(kPatienceMs);
}

inline long long MillisSince(std::chrono::steady_clock::time_point start) {
    return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - start).count();
}

} // namespace halvtest

#endif
