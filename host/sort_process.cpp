#include "host/sort_process.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>

namespace tvsort::host {

namespace {

constexpr std::size_t kOutputTextBytesMax = 65536;
constexpr int kPiecesMax = 16;

double secondsOf(const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
}

// The number behind `name` in a file of "name: number" lines; 0 when there is none.
std::int64_t numberIn(const std::string& path, const std::string& name) {
    std::ifstream file(path);
    for (std::string line; std::getline(file, line);) {
        if (line.starts_with(name + ":")) return std::atoll(line.c_str() + name.size() + 1);
    }
    return 0;
}

// How many filters of system calls are in force, those inherited included. Older kernels tell no
// number, only (as 2) that there are some.
std::int64_t filterCount(const std::string& process) {
    const std::string path = "/proc/" + process + "/status";
    const std::int64_t count = numberIn(path, "Seccomp_filters");
    return count != 0 ? count : std::int64_t{numberIn(path, "Seccomp") == 2};
}

// Control characters would spoil the line that the text becomes a part of.
std::string printable(const std::string& text) {
    const std::size_t end = text.find_last_not_of(" \n");
    std::string result;
    for (const char character : text.substr(0, end == std::string::npos ? 0 : end + 1)) {
        result += static_cast<unsigned char>(character) < ' ' ? ' ' : character;
    }
    return result.substr(std::min(result.find_first_not_of(' '), result.size()));
}

// 0 where the system does not tell.
double cpuSecondsOf(pid_t id) {
    clockid_t clock = {};
    timespec time = {};
    if (clock_getcpuclockid(id, &clock) != 0 || clock_gettime(clock, &time) != 0) return 0;
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

}  // namespace

SortProcess::SortProcess(const ProcessStart& start) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) {
        throw systemFailure("cannot make a pipe for the sort process", errno,
                            "close other files or raise the limit of open files");
    }
    output_ = FileDescriptor(ends[0]);
    const FileDescriptor writeEnd(ends[1]);
    fcntl(output_.number(), F_SETFL, O_NONBLOCK);
    id_ = startProcess(start, writeEnd.number());
}

SortProcess::~SortProcess() {
    kill();
}

bool SortProcess::hasEnded() {
    return reap(WNOHANG);
}

bool SortProcess::reap(int waitOptions) {
    if (waitStatus_.has_value()) return true;
    int status = 0;
    rusage usage = {};
    const pid_t reaped = wait4(id_, &status, waitOptions, &usage);
    // In a host that ignores SIGCHLD the system reaps: the process has ended, nobody knows how.
    const bool unknown = reaped < 0 && errno == ECHILD;
    if (reaped != id_ && !unknown) return false;
    waitStatus_ = status;
    finalUsage_.peakBytes = std::int64_t{usage.ru_maxrss} * 1024;
    finalUsage_.userSeconds = secondsOf(usage.ru_utime);
    finalUsage_.systemSeconds = secondsOf(usage.ru_stime);
    finalUsage_.cpuSeconds = finalUsage_.userSeconds + finalUsage_.systemSeconds;
    return true;
}

bool SortProcess::waitForEnd(Timeout timeout, const WhileWaiting& whileWaiting) {
    return waitFor(-1, 0, Deadline(timeout), whileWaiting) == WaitOutcome::kProcessEnded;
}

void SortProcess::sendSignal(int signalNumber) {
    // Not reaped yet, so the id is still this process's own.
    if (!hasEnded()) ::kill(id_, signalNumber);
}

std::uint64_t SortProcess::lowerFileLimit(std::int64_t byteCount) {
    rlimit limits = {RLIM_INFINITY, RLIM_INFINITY};
    if (!hasEnded()) prlimit(id_, RLIMIT_FSIZE, nullptr, &limits);
    const rlim_t before = limits.rlim_cur;
    if (static_cast<rlim_t>(byteCount) < before) {
        setFileLimit(static_cast<std::uint64_t>(byteCount));
    }
    return before;
}

void SortProcess::setFileLimit(std::uint64_t byteCount) {
    rlimit limits = {};
    if (hasEnded() || prlimit(id_, RLIMIT_FSIZE, nullptr, &limits) != 0) return;
    limits.rlim_cur = byteCount;
    prlimit(id_, RLIMIT_FSIZE, &limits, nullptr);
}

void SortProcess::kill() {
    sendSignal(SIGKILL);
    while (!reap(0) && errno == EINTR)
        continue;
}

WaitOutcome SortProcess::waitFor(int descriptor, short events, const Deadline& deadline,
                                 const WhileWaiting& whileWaiting) {
    for (;;) {
        // Asked for before the poll: what the process sent in its last moments is then ready.
        const bool ended = hasEnded();
        // Between the end of its output and its end lie moments only.
        const int slice = output_.isOpen() ? deadline.sliceMilliseconds() : 1;
        pollfd polled[] = {{descriptor, events, 0}, {ended ? -1 : output_.number(), POLLIN, 0}};
        const int ready = poll(polled, std::size(polled), ended ? 0 : slice);
        if (ready < 0 && errno != EINTR) {
            throw systemFailure("cannot wait for the sort process", errno);
        }
        if (ready > 0 && polled[0].revents != 0) return WaitOutcome::kReady;
        if (ended) return WaitOutcome::kProcessEnded;
        if (ready > 0) readOutput();
        if (whileWaiting) whileWaiting();
        if (deadline.hasPassed()) return WaitOutcome::kTimedOut;
    }
}

// No more at a time than the pipe holds: one that never stops printing must not stop the clock.
void SortProcess::readOutput() {
    char piece[4096];
    for (int i = 0; output_.isOpen() && i < kPiecesMax; ++i) {
        const ssize_t moved = read(output_.number(), piece, sizeof piece);
        if (moved < 0 && errno == EINTR) continue;
        if (moved < 0 && errno == EAGAIN) return;
        if (moved <= 0) {
            output_.close();
            return;
        }
        const std::size_t room = kOutputTextBytesMax - outputText_.size();
        outputText_.append(piece, std::min(room, static_cast<std::size_t>(moved)));
    }
}

const std::string& SortProcess::outputText() {
    readOutput();
    return outputText_;
}

std::string SortProcess::describeEnd() {
    const int status = waitStatus_.value();
    std::string text = WIFSIGNALED(status)
                           ? "was ended by signal " + std::to_string(WTERMSIG(status)) + " (" +
                                 strsignal(WTERMSIG(status)) + ")"
                           : "ended with status " + std::to_string(WEXITSTATUS(status));
    const std::string words = printable(outputText());
    text += words.empty() ? " without a word" : ", saying \"" + words + "\"";
    return text;
}

ProcessUsage SortProcess::usage() const {
    if (waitStatus_.has_value()) return finalUsage_;
    const std::string directory = "/proc/" + std::to_string(id_);
    ProcessUsage usage;
    usage.peakBytes = numberIn(directory + "/status", "VmHWM") * 1024;
    usage.readBytes = numberIn(directory + "/io", "rchar");
    usage.writtenBytes = numberIn(directory + "/io", "wchar");
    usage.readCalls = numberIn(directory + "/io", "syscr");
    usage.writeCalls = numberIn(directory + "/io", "syscw");
    usage.cpuSeconds = cpuSecondsOf(id_);
    return usage;
}

bool SortProcess::isFiltered() const {
    return !waitStatus_.has_value() && filterCount(std::to_string(id_)) > filterCount("self");
}

HostError processDied(SortProcess& process, int slotNumber, const std::string& when,
                      const std::string& advice) {
    return {FailureKind::kProcessDied, "the sort process of slot " + std::to_string(slotNumber) +
                                           " (process " + std::to_string(process.id()) + ") " +
                                           process.describeEnd() + " while " + when + "; " +
                                           advice};
}

}  // namespace tvsort::host
