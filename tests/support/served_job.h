// A sort job that serves requests inside the test program: slot, work file and one end of a socket
// pair are real, the request loop is called and not started. Modules can be tested on the same job.
//
//     ServedJob served({.memoryBlocks = 5, .pagesPerBlock = 1});
//     served.lay(records, geometry);
//     const Answer answer = served.ask(request);
//     EXPECT_EQ(answer.errorCode(), ErrorCode::kSuccess);
//     served.result(answer)

#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "process/job/sort_job.h"
#include "protocol/data_type.h"
#include "protocol/messages.h"
#include "protocol/slot_layout.h"
#include "tests/support/guarded_slot.h"

namespace tvsort::test {

using Bytes = std::vector<Byte>;
using Records = std::vector<Bytes>;

// How records lie in blocks.
struct Geometry {
    std::int32_t blockPages = 1;
    std::uint16_t recordsPerBlock = 0;  // 0: as many as fit
    std::uint16_t recordLength = 0;
};

// A request under construction; `bytes` is what goes over the socket.
struct Request {
    SortRequest head = {};
    std::vector<KeyDescriptor> keys;
    std::vector<ByteWeightTable> items;
    Bytes bytes() const;
};

struct Answer {
    Bytes bytes;
    SortReply reply() const { return loadAs<SortReply>(bytes.data()); }
    ErrorCode errorCode() const { return static_cast<ErrorCode>(reply().errorCode); }
};

// An ascending key, first in order; tests change what they are about.
KeyDescriptor ascendingKey(DataType type, std::uint16_t offset, std::uint16_t length,
                           std::uint8_t orderNumber = 1);
KeyDescriptor descendingKey(DataType type, std::uint16_t offset, std::uint16_t length,
                            std::uint8_t orderNumber = 1);
KeyDescriptor nullIndicators(std::uint16_t offset);

class ServedJob {
  public:
    explicit ServedJob(SlotLayout layout = {5, 1});
    ~ServedJob();
    ServedJob(const ServedJob&) = delete;
    ServedJob& operator=(const ServedJob&) = delete;

    SortJob& job() { return *job_; }

    // Puts the first blocks into the frames and the others into the work file, as the server does,
    // and answers a request that describes them.
    Request lay(const Records& records, Geometry geometry);

    // Sends the bytes, serves one request and takes the reply.
    Answer ask(const Bytes& message);
    Answer ask(const Request& request) { return ask(request.bytes()); }

    // The records of a good answer, in order: from the frames, then from the work file.
    Records result(const Answer& answer) const;

    // Lays, asks and expects success.
    Records sort(const Records& records, Geometry geometry, const std::vector<KeyDescriptor>& keys,
                 SortMode mode = SortMode::kOrder, std::int32_t limitCount = 0);

    Bytes workFile() const;
    Byte* frames() { return job_->frameArea; }
    const SlotLayout& layout() const { return layout_; }

  private:
    SlotLayout layout_;
    GuardedSlot slot_;
    std::unique_ptr<SortJob> job_;
    int serverFd_ = -1;
    Geometry geometry_;
    std::string path_;
};

// As many records of `recordLength` bytes as a block holds.
std::uint16_t recordsThatFit(std::int32_t blockPages, std::uint16_t recordLength);

}  // namespace tvsort::test
