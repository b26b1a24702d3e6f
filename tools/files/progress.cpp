#include "tools/files/progress.h"

#include <fmt/format.h>
#include <unistd.h>

#include <cstdio>

namespace tvsort::tools {

namespace {

constexpr std::chrono::milliseconds kShowInterval{200};
// Back to the line's start, and everything behind it away.
constexpr char kClearLine[] = "\r\033[K";

}  // namespace

Progress::Progress() : onTerminal_(isatty(STDERR_FILENO) == 1) {}

Progress::~Progress() {
    if (shown_) std::fputs(kClearLine, stderr);
}

void Progress::begin(const std::string& work) {
    work_ = work;
    records_ = 0;
    begin_ = Clock::now();
    nextShow_ = begin_ + kShowInterval;
}

void Progress::advance(std::int64_t records) {
    records_ += records;
    if (isDue()) show(fmt::format("{} records", records_));
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
