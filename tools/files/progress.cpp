#include "tools/files/progress.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>

namespace tvsort::tools {

namespace {

constexpr std::chrono::milliseconds kShowInterval{200};
// Back to the line's start, and everything behind it away.
constexpr char kClearLine[] = "\r\033[K";

}  // namespace

Progress::Progress(bool writesToTerminal)
    : onTerminal_(isatty(STDERR_FILENO) == 1 && !writesToTerminal) {}

Progress::~Progress() {
    clear();
}

void Progress::clear() {
    if (shown_) std::fputs(kClearLine, stderr);
    shown_ = false;
}

void Progress::begin(const std::string& work) {
    work_ = work;
    records_ = 0;
    begin_ = Clock::now();
    nextShow_ = begin_ + kShowInterval;
}

void Progress::advance(std::int64_t records) {
    records_ += records;
    if (!isDue()) return;
    const std::chrono::duration<double> passed = Clock::now() - begin_;
    show(fmt::format("{} records, {:.0f} per second", records_,
                     static_cast<double>(records_) / std::max(passed.count(), 0.001)));
}

void Progress::tick() {
    if (!isDue()) return;
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(Clock::now() - begin_);
    show(fmt::format("{} s", seconds.count()));
}

bool Progress::isDue() {
    if (!onTerminal_ || Clock::now() < nextShow_) return false;
    nextShow_ = Clock::now() + kShowInterval;
    return true;
}

void Progress::show(const std::string& text) {
    std::fputs(fmt::format("{}tvsort-host: {}: {}", kClearLine, work_, text).c_str(), stderr);
    std::fflush(stderr);
    shown_ = true;
}

}  // namespace tvsort::tools
