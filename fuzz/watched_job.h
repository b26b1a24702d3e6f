// A sort job that serves messages in process, and knows what serving one may change.
//
//     +--------------+----------------------------------------------------+--------------+
//     |  other slot  |  buffer   frames   descriptors   hash table   rest |  other slot  |
//     +--------------+----------------------------------------------------+--------------+
//      never          as listed below                            never     never
//
// Whatever the message: the other slots, the bytes behind the hash table, the work file behind the
// data set and the job's constant fields stay as they are, and of the message buffer only the words
// of the reply change. A request refused as contradictory changes neither frame nor work file; a
// data set that fits into the frames leaves the work file alone. Behind an answer of 0 the result
// holds the records that arrived, all of them or those that the sort mode keeps, in order, and no
// frame is pinned. The process ends where the channel says so and nowhere else.
//
// Everything that is not so ends the program by abort().

#pragma once

#include <csetjmp>
#include <memory>

#include "fuzz/hostile_request.h"
#include "service/sort_job.h"

namespace tvsort::fuzz {

class WatchedJob {
  public:
    explicit WatchedJob(SlotLayout layout);
    ~WatchedJob();
    WatchedJob(const WatchedJob&) = delete;
    WatchedJob& operator=(const WatchedJob&) = delete;

    // Lays the records into frames and work file, which ends `missingBytes` early.
    void lay(const Geometry& geometry, const Bytes& records, std::uint32_t missingBytes = 0);
    // Overwrites page descriptors and hash table.
    void fillPool(std::uint32_t seed);
    // Sends the message, serves it and checks. False when the process has ended, or the stream
    // holds more than one message; the job is then not to be used.
    bool serve(const Bytes& message);
    // Serves a fixed request on a data set larger than the frames, and checks the literal result.
    void serveGoodRequest();

  private:
    // What serving a message may change, as it was before.
    struct Before {
        Bytes slot;
        Bytes file;
    };

    Bytes workFile() const;
    bool runsToItsEnd();
    void checkNeighbours() const;
    void checkBuffer(const Bytes& expected, ErrorCode code) const;
    void checkDataSet(const SortRequest& request, const Before& before, ErrorCode code) const;
    void checkResult(const SortRequest& request, const Before& before);
    void checkOrder(const SortRequest& request, const Bytes& records);
    Byte* slot() const { return slots_.get() + layout_.slotBytes(); }

    struct FreeBytes {
        void operator()(void* bytes) const { std::free(bytes); }
    };

    SlotLayout layout_;
    std::unique_ptr<SortJob> job_;
    std::unique_ptr<Byte, FreeBytes> slots_;
    int serverFd_ = -1;
};

}  // namespace tvsort::fuzz
