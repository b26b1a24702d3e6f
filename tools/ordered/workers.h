// Several threads at one piece of work, the first failure of which ends all.

#pragma once

#include <condition_variable>
#include <cstddef>
#include <exception>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

namespace tvsort::tools {

// Another worker has failed: its reason is the one that counts.
class WorkIsOff {};

// Calls `work` with 0 to count - 1, side by side, and waits for all. When one throws, `callOff` is
// called, in its thread, for the others to end; what it threw is thrown here.
inline void workTogether(std::size_t count, const std::function<void(std::size_t)>& work,
                         const std::function<void()>& callOff) {
    if (count == 1) return work(0);
    std::mutex mutex;
    std::exception_ptr failure;
    {
        std::vector<std::jthread> threads;
        for (std::size_t i = 0; i < count; ++i) {
            threads.emplace_back([&, i] {
                try {
                    work(i);
                } catch (const WorkIsOff&) {
                    // Somebody else has the reason.
                } catch (...) {
                    {
                        const std::lock_guard lock(mutex);
                        if (failure == nullptr) failure = std::current_exception();
                    }
                    callOff();
                }
            });
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
