// A sort job that serves messages in process, and knows what serving one may change.
//
//     +--------------+----------------------------------------------------+--------------+
//     |  no access   |  buffer   frames   descriptors   hash table   rest |  no access   |
//     +--------------+----------------------------------------------------+--------------+
//                     as listed below                            never
//
// Whatever the message: the bytes behind the hash table, the work file behind the data set and the
// job's constant fields stay as they are, and of the message buffer only the words of the reply
// change. A request refused as contradictory changes neither frame nor work file; a
// data set that fits into the frames leaves the work file alone. Behind an answer of 0 the result
// holds the records that arrived, all of them or those that the sort mode keeps, in order, and no
// frame is pinned. The process ends where the channel says so and nowhere else. While somebody
// scribbles over the slot, this last rule is all that is left.
//
// Everything that is not so ends the program by abort().

#pragma once

#include <csetjmp>
#include <memory>

#include "fuzz/hostile_request.h"
#include "process/job/sort_job.h"
#include "tests/support/guarded_slot.h"

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
    // The same while a thread writes over all of the slot.
    bool serveScribbled(const Bytes& message, std::uint32_t seed);
    // Sends the message and hangs up: the process ends, whatever it was asked for. The job is then
    // not to be used.
    void hangUpDuring(const Bytes& message);
    // Serves a fixed request on a data set larger than the frames, and checks the literal result.
    void serveGoodRequest();

  private:
    // What serving a message may change, as it was before.
    struct Before {
        Bytes slot;
        Bytes file;
    };

    // A message on its way: what it is to the process, and what must become of it.
    struct Delivery {
        Bytes buffer;  // the message buffer, with the message
        SortRequest request;
        bool answered;  // or else the process ends
        bool alone;     // no other message follows in the stream
    };

    Bytes workFile() const;
    Delivery deliver(const Bytes& message);
    bool runsToItsEnd(const SortRequest& request);
    void checkConstants() const;
    void checkRest(const Bytes& before) const;
    void checkBuffer(const Bytes& expected, ErrorCode code) const;
    void checkDataSet(const SortRequest& request, const Before& before, ErrorCode code) const;
    void checkOnlyRecord(const SortRequest& request, const Before& before) const;
    void checkResult(const SortRequest& request, const Before& before);
    void checkOrder(const SortRequest& request, const Bytes& records);
    Byte* slot() const { return slot_.start(); }

    SlotLayout layout_;
    test::GuardedSlot slot_;
    std::unique_ptr<SortJob> job_;
    int serverFd_ = -1;
};

}  // namespace tvsort::fuzz
