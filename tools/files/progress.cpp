#include "tools/files/progress.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>

#include "tools/files/byte_units.h"
#include "tools/files/spoken.h"

namespace tvsort::tools {

namespace {

constexpr std::chrono::milliseconds kShowInterval{200};
// Back to the line's start, and everything behind it away.
constexpr char kClearLine[] = "\r\033[K";

std::uint64_t percentOf(std::uint64_t done, std::uint64_t wanted) {
    constexpr std::uint64_t kWhole = 100;
    return std::min(kWhole * done / wanted, kWhole);
}

}  // namespace

std::string progressText(const WorkDone& done, double seconds) {
    const double passed = std::max(seconds, 0.001);
    const auto rate = [passed](std::uint64_t count) {
        return static_cast<std::int64_t>(static_cast<double>(count) / passed);
    };
    const std::string bytesRate = inUnits(rate(done.bytes)) + " per second";
    if (done.bytesWanted > 0) {
        return fmt::format("{} %, {}, {} records", percentOf(done.bytes, done.bytesWanted),
                           bytesRate, done.records);
    }
    if (done.bytes > 0) return inUnits(static_cast<std::int64_t>(done.bytes)) + ", " + bytesRate;
    if (done.recordsWanted > 0) {
        return fmt::format("{} %, {} records per second",
                           percentOf(done.records, done.recordsWanted), rate(done.records));
    }
    if (done.records > 0)
        return fmt::format("{} records, {} per second", done.records, rate(done.records));
    return fmt::format("{} s", static_cast<std::int64_t>(seconds));
}

Progress::Progress(bool writesToTerminal)
    : onTerminal_(isatty(STDERR_FILENO) == 1 && !writesToTerminal) {}

Progress::~Progress() {
    clear();
}

void Progress::clear() {
    const std::lock_guard lock(mutex_);
    wipe();
}

void Progress::wipe() {
    if (shown_) std::fputs(kClearLine, stderr);
    shown_ = false;
}

void Progress::begin(const std::string& work, std::int64_t recordsWanted,
                     std::uint64_t bytesWanted) {
    const std::lock_guard lock(mutex_);
    work_ = harmless(work);
    done_ = {};
    done_.bytesWanted = bytesWanted;
    done_.recordsWanted = static_cast<std::uint64_t>(std::max<std::int64_t>(recordsWanted, 0));
    if (onTerminal_ && position_) bytesBefore_ = position_().bytes;
    begin_ = Clock::now();
    nextShow_ = begin_ + kShowInterval;
}

void Progress::advance(std::int64_t records) {
    const std::lock_guard lock(mutex_);
    done_.records += static_cast<std::uint64_t>(records);
    if (isDue()) show();
}

void Progress::advanceBytes(std::size_t byteCount) {
    const std::lock_guard lock(mutex_);
    done_.bytes += byteCount;
    if (isDue()) show();
}

void Progress::tick() {
    const std::lock_guard lock(mutex_);
    if (isDue()) show();
}

bool Progress::isDue() {
    if (!onTerminal_ || Clock::now() < nextShow_) return false;
    nextShow_ = Clock::now() + kShowInterval;
    return true;
}

void Progress::show() {
    WorkDone done = done_;
    // Work that does not read the inputs on is not counted by them.
    if (position_ && done.bytes == 0 && done.recordsWanted == 0) {
        const Position position = position_();
        if (position.bytes > bytesBefore_) {
            done.bytes = position.bytes;
            done.bytesWanted = position.bytesWanted;
        }
    }
    const std::chrono::duration<double> passed = Clock::now() - begin_;
    std::fputs(
        fmt::format("{}tvsort-host: {}: {}", kClearLine, work_, progressText(done, passed.count()))
            .c_str(),
        stderr);
    std::fflush(stderr);
    shown_ = true;
}

}  // namespace tvsort::tools
