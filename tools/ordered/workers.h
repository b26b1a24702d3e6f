// Several threads at one piece of work, the first failure of which ends all.

#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <exception>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

#include "tools/files/interrupt.h"
#include "tools/run/thread_start.h"

namespace tvsort::tools {

// Another worker has failed: its reason is the one that counts.
class WorkIsOff {};

// Calls `work` with 0 to count - 1, side by side, and waits for all. When one throws or cannot be
// started, `callOff` is called for the others to end; what was thrown is thrown here. An interrupt
// ends a call that waits in any of them.
inline void workTogether(std::size_t count, const std::function<void(std::size_t)>& work,
                         const std::function<void()>& callOff) {
    if (count == 1) return work(0);
    constexpr std::chrono::milliseconds kWakeInterval{50};
    std::mutex mutex;
    std::condition_variable ended;
    std::size_t endedCount = 0;
    std::exception_ptr failure;
    const auto attempt = [&](const auto& step) {
        try {
            step();
        } catch (const WorkIsOff&) {
            // Somebody else has the reason.
        } catch (...) {
            {
                const std::lock_guard lock(mutex);
                if (failure == nullptr) failure = std::current_exception();
            }
            callOff();
        }
    };
    {
        std::vector<std::jthread> threads;
        attempt([&] {
            threads.reserve(count);
            for (std::size_t i = 0; i < count; ++i) {
                threads.push_back(startThread([&, i] {
                    attempt([&] { work(i); });
                    const std::lock_guard lock(mutex);
                    endedCount += 1;
                    ended.notify_one();
                }));
            }
        });
        // Again and again, since one may have looked for the signal's note and not yet wait.
        std::unique_lock lock(mutex);
        while (!ended.wait_for(lock, kWakeInterval, [&] { return endedCount == threads.size(); })) {
            for (std::jthread& thread : threads)
                wakeIfInterrupted(thread.native_handle());
        }
    }
    if (failure != nullptr) std::rethrow_exception(failure);
}

// Whose turn it is, from 0 on.
class Turns {
  public:
    void await(std::size_t turn) {
        std::unique_lock lock(mutex_);
        passed_.wait(lock, [&] { return isOff_ || turn_ == turn; });
        if (isOff_) throw WorkIsOff();
    }
    void pass() {
        {
            const std::lock_guard lock(mutex_);
            turn_ += 1;
        }
        passed_.notify_all();
    }
    void callOff() {
        {
            const std::lock_guard lock(mutex_);
            isOff_ = true;
        }
        passed_.notify_all();
    }

  private:
    std::mutex mutex_;
    std::condition_variable passed_;
    std::size_t turn_ = 0;
    bool isOff_ = false;
};

}  // namespace tvsort::tools
