// One sort process, from its start to its last remains.
//
//     start -> runs -> ends by itself, or is killed -> reaped: status, text and usage stay here
//
// Its standard output is caught: the lines that a process prints before it ends are the reason of
// its end, and they go into the error that says so. Its end is noticed without signals: the pipe
// behind its standard output closes with it.
//
// The process stands in a process group of its own, so that Ctrl-C reaches the host alone, which
// then stops it in good order. Destroying the object kills what still runs; no zombie stays. What
// else is around it stands in host/process_start.h.

#pragma once

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>

#include "host/deadline.h"
#include "host/file_descriptor.h"
#include "host/host_error.h"
#include "host/process_start.h"

namespace tvsort::host {

// What the operating system counted. Bytes moved by read(2) and write(2) include the messages: 80
// bytes and more per request; the rest is the work file's. Fields that cannot be had are 0.
struct ProcessUsage {
    std::int64_t peakBytes = 0;  // of memory, the part of the slot that it touched included
    std::int64_t readBytes = 0;
    std::int64_t writtenBytes = 0;
    std::int64_t readCalls = 0;
    std::int64_t writeCalls = 0;
    double cpuSeconds = 0;  // user and system together
    double userSeconds = 0;
    double systemSeconds = 0;
};

enum class WaitOutcome : std::uint8_t { kReady, kProcessEnded, kTimedOut };

class SortProcess {
  public:
    explicit SortProcess(const ProcessStart& start);
    ~SortProcess();
    SortProcess(const SortProcess&) = delete;
    SortProcess& operator=(const SortProcess&) = delete;

    pid_t id() const { return id_; }

    // Reaps the process if it has ended.
    bool hasEnded();
    // True when the process ended in time.
    bool waitForEnd(Timeout timeout, const WhileWaiting& whileWaiting = {});
    // Sends the signal, to a process that has not ended.
    void sendSignal(int signalNumber);
    // No file of the process grows beyond so many bytes, or beyond its limit where that is less.
    // Answers the limit before, for `setFileLimit`. Nothing where the system does not allow it or
    // the process has ended.
    std::uint64_t lowerFileLimit(std::int64_t byteCount);
    void setFileLimit(std::uint64_t byteCount);
    // Kills and reaps; nothing when it has ended.
    void kill();

    // Waits until `descriptor` is ready for `events` (as poll(2) has them), the process has ended
    // or the deadline has passed, in this order of precedence.
    WaitOutcome waitFor(int descriptor, short events, const Deadline& deadline,
                        const WhileWaiting& whileWaiting);

    // The exit status or the signal, once it has ended: the value that waitpid(2) gives.
    std::optional<int> waitStatus() const { return waitStatus_; }
    // All that it has printed, without what exceeds 64 KiB.
    const std::string& outputText();
    // "ended with status 0 after printing "...""; needs an ended process.
    std::string describeEnd();
    // While it runs: what /proc knows; after its end: what was counted in all, without bytes moved.
    // User and system time apart are known after its end only.
    ProcessUsage usage() const;
    // Whether it has restricted its own system calls, which it does before its hello. False once it
    // has ended, and where the system does not tell.
    bool isFiltered() const;

  private:
    // Takes the status and usage of an ended process; wait4(2) explains the options.
    bool reap(int waitOptions);
    void readOutput();

    pid_t id_ = -1;
    FileDescriptor output_;
    std::string outputText_;
    std::optional<int> waitStatus_;
    ProcessUsage finalUsage_;
};

// The error of a process that ended although it was needed; `when` completes "while ...". Needs an
// ended process.
HostError processDied(SortProcess& process, int slotNumber, const std::string& when,
                      const std::string& advice = "start it again and repeat the request");

}  // namespace tvsort::host
