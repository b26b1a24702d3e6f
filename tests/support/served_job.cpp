#include "tests/support/served_job.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>

#include "process/service/request_loop.h"

namespace tvsort::test {

namespace {

template <typename Value>
void append(Bytes& bytes, const Value& value) {
    const std::size_t start = bytes.size();
    bytes.resize(start + sizeof value);
    storeAs(bytes.data() + start, value);
}

KeyDescriptor keyOf(KeyKind kind, DataType type, std::uint16_t offset, std::uint16_t length,
                    std::uint8_t orderNumber) {
    KeyDescriptor key = {};
    key.dataType = static_cast<std::uint8_t>(type);
    key.fieldLength = length;
    key.fieldOffset = offset;
    key.kindFlags = static_cast<std::uint8_t>(kind);
    key.groupKey = kStartsGroup;
    key.orderNumber = orderNumber;
    return key;
}

}  // namespace

Bytes Request::bytes() const {
    Bytes result;
    append(result, head);
    for (const KeyDescriptor& key : keys)
        append(result, key);
    append(result, static_cast<std::uint16_t>(items.size()));
    for (const ByteWeightTable& item : items)
        append(result, item);
    storeAs(result.data(), static_cast<std::uint32_t>(result.size()));
    storeAs(result.data() + offsetof(SortRequest, keyCount),
            static_cast<std::uint16_t>(keys.size()));
    return result;
}

KeyDescriptor ascendingKey(DataType type, std::uint16_t offset, std::uint16_t length,
                           std::uint8_t orderNumber) {
    return keyOf(KeyKind::kAscending, type, offset, length, orderNumber);
}

KeyDescriptor descendingKey(DataType type, std::uint16_t offset, std::uint16_t length,
                            std::uint8_t orderNumber) {
    return keyOf(KeyKind::kDescending, type, offset, length, orderNumber);
}

KeyDescriptor nullIndicators(std::uint16_t offset) {
    return keyOf(KeyKind::kNullIndicators, DataType::kNone, offset, 0, 0);
}

std::uint16_t recordsThatFit(std::int32_t blockPages, std::uint16_t recordLength) {
    const std::int64_t fit = blockPages * kPageBytes / recordLength;
    const std::int64_t reachable = (65535 / recordLength) + 1;
    return static_cast<std::uint16_t>(std::min(fit, reachable));
}

ServedJob::ServedJob(SlotLayout layout)
    : layout_(layout),
      slot_(layout),
      job_(std::make_unique<SortJob>()),
      path_("/tmp/tvsort-test-XXXXXX") {
    slot_.giveTo(*job_);
    int pair[2];
    EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, pair), 0);
    serverFd_ = pair[1];
    job_->socketFd = pair[0];
    job_->workFd = mkstemp(path_.data());
    EXPECT_GE(job_->workFd, 0) << "no temporary file at " << path_;
    job_->workFileOpen = 1;
    job_->slotNumber = 1;
    job_->directoryPrefix = "/tmp/";
}

ServedJob::~ServedJob() {
    close(serverFd_);
    close(job_->socketFd);
    close(job_->workFd);
    unlink(path_.c_str());
}

Request ServedJob::lay(const Records& records, Geometry geometry) {
    if (geometry.recordsPerBlock == 0) {
        geometry.recordsPerBlock = recordsThatFit(geometry.blockPages, geometry.recordLength);
    }
    geometry_ = geometry;
    const std::size_t blockBytes = static_cast<std::size_t>(geometry.blockPages * kPageBytes);
    const std::size_t blocks =
        (records.size() + geometry.recordsPerBlock - 1) / geometry.recordsPerBlock;
    Bytes data(blocks * blockBytes, 0);
    for (std::size_t i = 0; i < records.size(); ++i) {
        EXPECT_EQ(records[i].size(), geometry.recordLength);
        std::copy(records[i].begin(), records[i].end(),
                  data.begin() + static_cast<std::ptrdiff_t>(
                                     i / geometry.recordsPerBlock * blockBytes +
                                     i % geometry.recordsPerBlock * geometry.recordLength));
    }
    const std::int32_t frames = layout_.pagesPerBlock / geometry.blockPages * layout_.memoryBlocks;
    const std::size_t inFrames =
        std::min(data.size(), static_cast<std::size_t>(frames) * blockBytes);
    std::copy_n(data.begin(), inFrames, job_->frameArea);
    EXPECT_EQ(ftruncate(job_->workFd, 0), 0);
    EXPECT_EQ(pwrite(job_->workFd, data.data() + inFrames, data.size() - inFrames,
                     static_cast<off_t>(inFrames)),
              static_cast<ssize_t>(data.size() - inFrames));

    Request request;
    std::memcpy(request.head.workDirName, "TEMP", 4);
    request.head.fileBlocks = static_cast<std::int32_t>(blocks);
    request.head.blockPages = geometry.blockPages;
    request.head.recordCount = static_cast<std::int32_t>(records.size());
    request.head.recordsPerBlock = geometry.recordsPerBlock;
    request.head.recordLength = geometry.recordLength;
    return request;
}

Answer ServedJob::ask(const Bytes& message) {
    EXPECT_EQ(write(serverFd_, message.data(), message.size()),
              static_cast<ssize_t>(message.size()));
    Bytes head = message;
    head.resize(sizeof(SortRequest));
    slot_.poisonUnused(loadAs<SortRequest>(head.data()));
    serveRequest(*job_);
    slot_.unpoison();
    Answer answer = {Bytes(sizeof(SortReply))};
    EXPECT_EQ(read(serverFd_, answer.bytes.data(), answer.bytes.size()),
              static_cast<ssize_t>(answer.bytes.size()));
    return answer;
}

Bytes ServedJob::workFile() const {
    Bytes file(static_cast<std::size_t>(lseek(job_->workFd, 0, SEEK_END)));
    EXPECT_EQ(pread(job_->workFd, file.data(), file.size(), 0), static_cast<ssize_t>(file.size()));
    return file;
}

Records ServedJob::result(const Answer& answer) const {
    const Bytes file = workFile();
    const std::size_t blockBytes = static_cast<std::size_t>(geometry_.blockPages * kPageBytes);
    const std::size_t inFrames = static_cast<std::size_t>(job_->frameCount) * blockBytes;
    Records records;
    for (std::int32_t i = 0; i < answer.reply().recordCount; ++i) {
        const auto index = static_cast<std::size_t>(i);
        const std::size_t place = index / geometry_.recordsPerBlock * blockBytes +
                                  index % geometry_.recordsPerBlock * geometry_.recordLength;
        const Byte* const start = place < inFrames ? job_->frameArea + place : file.data() + place;
        records.emplace_back(start, start + geometry_.recordLength);
    }
    return records;
}

Records ServedJob::sort(const Records& records, Geometry geometry,
                        const std::vector<KeyDescriptor>& keys, SortMode mode,
                        std::int32_t limitCount) {
    Request request = lay(records, geometry);
    request.keys = keys;
    request.head.sortMode = static_cast<std::uint16_t>(mode);
    request.head.limitCount = limitCount;
    const Answer answer = ask(request);
    EXPECT_EQ(answer.errorCode(), ErrorCode::kSuccess);
    if (answer.errorCode() != ErrorCode::kSuccess) return {};
    return result(answer);
}

}  // namespace tvsort::test
