// How far long work has come and how fast, on a terminal; nothing in a pipe or a file, and nothing
// where the output goes to the terminal as well.

#pragma once

#include <chrono>
#include <cstdint>
#include <string>

namespace tvsort::tools {

class Progress {
  public:
    explicit Progress(bool writesToTerminal = false);
    // Takes the line off the screen.
    ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    // Starts a piece of work: "loading", "sorting".
    void begin(const std::string& work);
    // Records done so far in this piece; shown a few times a second.
    void advance(std::int64_t records);
    // Shows the time that has gone by, where there is nothing to count.
    void tick();
    // Takes the line off the screen before other words.
    void clear();

  private:
    using Clock = std::chrono::steady_clock;
    bool isDue();
    void show(const std::string& text);

    bool onTerminal_;
    bool shown_ = false;
    std::string work_;
    std::int64_t records_ = 0;
    Clock::time_point begin_;
    Clock::time_point nextShow_;
};

}  // namespace tvsort::tools
