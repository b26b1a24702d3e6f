// How far long work has come and how fast, on a terminal; nothing in a pipe or a file, and nothing
// where the output goes to the terminal as well.
//
//     loading: 43 %, 120.5 MiB per second, 1200000 records     of inputs whose size is known
//     reading standard input: 3.1 GiB, 95.2 MiB per second     of a pipe
//     sorting: 4 s                                             what nobody counts
//     writing: 12 %, 800000 records per second

#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>

namespace tvsort::tools {

// How much of a piece of work is done, as far as it is known; 0 where nobody counts it.
struct WorkDone {
    std::uint64_t records = 0;
    std::uint64_t recordsWanted = 0;
    std::uint64_t bytes = 0;
    std::uint64_t bytesWanted = 0;
};

// What is said of it after so many seconds.
std::string progressText(const WorkDone& done, double seconds);

class Progress {
  public:
    explicit Progress(bool writesToTerminal = false);
    // Takes the line off the screen.
    ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    // Bytes of the inputs that are read and that there are, asked for when something is shown.
    struct Position {
        std::uint64_t bytes;
        std::uint64_t bytesWanted;
    };
    void watch(std::function<Position()> position) { position_ = std::move(position); }

    // All that follow may be called by several threads.

    // Starts a piece of work: "loading", "sorting". How much is wanted: where it is known.
    void begin(const std::string& work, std::int64_t recordsWanted = 0,
               std::uint64_t bytesWanted = 0);
    // Records done in addition; shown a few times a second.
    void advance(std::int64_t records);
    // Likewise bytes, where there are no records yet.
    void advanceBytes(std::size_t byteCount);
    // Shows the time that has gone by, where there is nothing to count.
    void tick();
    // Takes the line off the screen before other words.
    void clear();

  private:
    using Clock = std::chrono::steady_clock;
    bool isDue();
    void show();
    void wipe();

    std::mutex mutex_;
    bool onTerminal_;
    bool shown_ = false;
    std::string work_;
    WorkDone done_;
    std::function<Position()> position_;
    std::uint64_t bytesBefore_ = 0;  // where the inputs were when the work began
    Clock::time_point begin_;
    Clock::time_point nextShow_;
};

}  // namespace tvsort::tools
