#include "fuzz/watched_job.h"

#include <sys/mman.h>
#include <sys/socket.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "process/keys/record_precedes.h"
#include "process/service/request_loop.h"
#include "tests/support/scribbler.h"

namespace {

// Where the process's call of exit() leads while a message is served.
std::jmp_buf afterEnd;
bool serving = false;

}  // namespace

extern "C" [[noreturn]] void __real_exit(int status);
extern "C" [[noreturn]] void __wrap_exit(int status) {
    if (!serving) __real_exit(status);
    std::longjmp(afterEnd, 1);
}

namespace tvsort::fuzz {

namespace {

void require(bool holds, int line = __builtin_LINE()) {
    if (holds) return;
    std::fprintf(stderr, "watched_job.cpp:%d does not hold\n", line);
    std::abort();
}

std::size_t sizeOf(std::int64_t bytes) {
    return static_cast<std::size_t>(bytes);
}

// What comparing records decides the same way whatever else is in the data set.
bool isTransitive(const KeyRule& rule) {
    switch (rule.comparison) {
        case Comparison::kSingle:
        case Comparison::kDouble:
        case Comparison::kGeometry:
            return false;
        case Comparison::kDecimal:
            return rule.ascending;
        default:
            return true;
    }
}

// FNV-1a over 64 bits: enough to tell a lost record from another one.
std::uint64_t hashOf(const Byte* bytes, std::size_t count, std::uint64_t hash) {
    for (std::size_t i = 0; i < count; ++i)
        hash = (hash ^ bytes[i]) * 0x100000001b3;
    return hash;
}

// A number for each record, sorted; the fields that belong to the sort mode do not count.
std::vector<std::uint64_t> identitiesOf(const SortRequest& request, const Bytes& packed) {
    const auto mode = static_cast<SortMode>(request.sortMode & 0xff);
    std::size_t ownFields = 1;
    if (mode == SortMode::kHierarchy) ownFields = 8;
    if (mode == SortMode::kOrder || mode == SortMode::kUnique ||
        mode == SortMode::kUniqueUnlessNull) {
        ownFields = 0;
    }
    const std::size_t length = request.recordLength;
    const std::size_t head = std::min(kRecordFlagOffset, length);
    const std::size_t rest = std::min(kRecordFlagOffset + ownFields, length);
    std::vector<std::uint64_t> identities;
    identities.reserve(packed.size() / std::max<std::size_t>(length, 1));
    for (std::size_t start = 0; length > 0 && start < packed.size(); start += length) {
        const Byte* const record = packed.data() + start;
        const std::uint64_t hash = hashOf(record, head, 0xcbf29ce484222325);
        identities.push_back(hashOf(record + rest, length - rest, hash));
    }
    std::sort(identities.begin(), identities.end());
    return identities;
}

// `count` records of a data set, back to back; the first blocks in `frames`, the others in `file`.
Bytes packRecords(const SortRequest& request, std::int32_t frameCount, const Byte* frames,
                  const Bytes& file, std::int32_t count) {
    Bytes packed;
    const std::size_t blockBytes = sizeOf(request.blockPages * kPageBytes);
    const std::size_t inFrames = blockBytes * static_cast<std::size_t>(frameCount);
    for (std::size_t i = 0; i < static_cast<std::size_t>(count); ++i) {
        const std::size_t place = i / request.recordsPerBlock * blockBytes +
                                  i % request.recordsPerBlock * request.recordLength;
        require(place < inFrames || place + request.recordLength <= file.size());
        const Byte* const record = (place < inFrames ? frames : file.data()) + place;
        packed.insert(packed.end(), record, record + request.recordLength);
    }
    return packed;
}

}  // namespace

WatchedJob::WatchedJob(SlotLayout layout)
    : layout_(layout), slot_(layout), job_(std::make_unique<SortJob>()) {
    slot_.giveTo(*job_);
    int pair[2];
    require(socketpair(AF_UNIX, SOCK_STREAM, 0, pair) == 0);
    serverFd_ = pair[1];
    job_->socketFd = pair[0];
    job_->workFd = memfd_create("work file", 0);
    require(job_->workFd >= 0);
    job_->workFileOpen = 1;
    job_->slotNumber = 2;
    job_->processId = 4711;
    job_->directoryPrefix = "/tmp/";
}

WatchedJob::~WatchedJob() {
    if (serverFd_ >= 0) close(serverFd_);
    close(job_->socketFd);
    if (job_->workFileOpen == 1) close(job_->workFd);
}

void WatchedJob::lay(const Geometry& geometry, const Bytes& records, std::uint32_t missingBytes) {
    const std::size_t blockBytes = geometry.blockBytes();
    const auto perBlock = static_cast<std::size_t>(geometry.recordsPerBlock) *
                          static_cast<std::size_t>(geometry.recordLength);
    Bytes data(blockBytes * static_cast<std::size_t>(geometry.blockCount()), Byte{0x3c});
    for (std::size_t block = 0; block * perBlock < records.size(); ++block) {
        const std::size_t start = block * perBlock;
        std::copy_n(records.data() + start,
                    std::min({perBlock, blockBytes, records.size() - start}),
                    data.data() + block * blockBytes);
    }
    const std::size_t frames =
        sizeOf(layout_.pagesPerBlock / geometry.blockPages * layout_.memoryBlocks) * blockBytes;
    const std::size_t inFrames = std::min(frames, data.size());
    std::copy_n(data.data(), inFrames, job_->frameArea);
    require(ftruncate(job_->workFd, 0) == 0);
    const std::size_t rest =
        data.size() - inFrames - std::min<std::size_t>(missingBytes, data.size() - inFrames);
    require(pwrite(job_->workFd, data.data() + inFrames, rest, static_cast<off_t>(inFrames)) ==
            static_cast<ssize_t>(rest));
}

void WatchedJob::fillPool(std::uint32_t seed) {
    Xorshift random(seed);
    const std::int64_t end = layout_.hashTableOffset() +
                             layout_.framesMax() * static_cast<std::int64_t>(sizeof(std::int32_t));
    const bool small = random.below(2) == 0;  // values that could be frames and blocks
    for (std::int64_t at = layout_.pageDescriptorsOffset(); at < end; at += 4) {
        storeAs(slot() + at, small ? random.below(32) : random.next());
    }
}

Bytes WatchedJob::workFile() const {
    Bytes file(sizeOf(lseek(job_->workFd, 0, SEEK_END)));
    require(pread(job_->workFd, file.data(), file.size(), 0) == static_cast<ssize_t>(file.size()));
    return file;
}

// False when the process ended instead.
bool WatchedJob::runsToItsEnd(const SortRequest& request) {
    slot_.poisonUnused(request);
    serving = true;
    const bool ended = setjmp(afterEnd) != 0;
    if (!ended) serveRequest(*job_);
    serving = false;
    slot_.unpoison();
    return !ended;
}

void WatchedJob::checkConstants() const {
    require(job_->shmBase == slot() && job_->message == slot());
    require(job_->frameArea == slot() + layout_.frameAreaOffset());
    require(job_->slotNumber == 2 && job_->processId == 4711);
    require(job_->memoryBlocks == layout_.memoryBlocks && job_->hashBlocks == layout_.memoryBlocks);
    require(job_->pagesPerBlock == layout_.pagesPerBlock);
}

void WatchedJob::checkRest(const Bytes& before) const {
    const std::int64_t end = layout_.hashTableOffset() + layout_.framesMax() * 4;
    require(std::equal(before.begin() + end, before.end(), slot() + end));
}

void WatchedJob::checkBuffer(const Bytes& expected, ErrorCode code) const {
    const auto same = [&](std::size_t from, std::size_t to) {
        return std::memcmp(slot() + from, expected.data() + from, to - from) == 0;
    };
    const auto reply = loadAs<SortReply>(slot());
    require(reply.length == sizeof reply && reply.processId == 4711);
    require(reply.errorCode == static_cast<std::uint32_t>(code));
    require(same(12, 44) && same(48, 60) && same(78, kMessageBufferBytes));
    const bool fileFailed = code >= ErrorCode::kWorkFileOpen && code <= ErrorCode::kWorkFileWrite;
    require(fileFailed || same(44, 48));
    require(code == ErrorCode::kSuccess || same(60, 78));
}

void WatchedJob::checkDataSet(const SortRequest& request, const Before& before,
                              ErrorCode code) const {
    const Bytes file = workFile();
    const std::size_t frameAreaBytes = sizeOf(layout_.frameAreaBytes());
    const std::int32_t frameCount = job_->frameCount;
    if (code == ErrorCode::kRequestContradictory) {
        require(file == before.file);
        require(std::memcmp(job_->frameArea, before.slot.data() + layout_.frameAreaOffset(),
                            frameAreaBytes) == 0);
        return;
    }
    if (frameCount < 1 || request.fileBlocks <= frameCount) {
        require(file == before.file);
        return;
    }
    // Nothing behind the data set is written, and the frames hold what the file begins with.
    const std::size_t blockBytes = sizeOf(request.blockPages * kPageBytes);
    const std::size_t dataBytes = blockBytes * static_cast<std::size_t>(request.fileBlocks);
    require(file.size() <= std::max(before.file.size(), dataBytes));
    if (dataBytes < before.file.size()) {
        require(std::memcmp(file.data() + dataBytes, before.file.data() + dataBytes,
                            before.file.size() - dataBytes) == 0);
    }
    const std::size_t loaded =
        std::min(file.size(), blockBytes * static_cast<std::size_t>(frameCount));
    // The only record stays in the first frame and never gets to the file.
    const std::size_t kept = request.recordCount == 1 ? std::min(blockBytes, loaded) : 0;
    require(std::equal(file.data() + kept, file.data() + loaded, job_->frameArea + kept));
}

// One record is not looked at, and stays where it is: in the first frame.
void WatchedJob::checkOnlyRecord(const SortRequest& request, const Before& before) const {
    if (request.recordCount < 1 || request.fileBlocks < 1) return;
    const std::size_t bytes =
        std::min<std::size_t>(request.recordLength, sizeOf(request.blockPages * kPageBytes));
    require(std::memcmp(job_->frameArea, before.slot.data() + layout_.frameAreaOffset(), bytes) ==
            0);
}

void WatchedJob::checkResult(const SortRequest& request, const Before& before) {
    const auto reply = loadAs<SortReply>(slot());
    const auto mode = static_cast<SortMode>(request.sortMode & 0xff);
    require(reply.recordLength == request.recordLength && reply.blockPages == request.blockPages);
    require(reply.recordCount >= 0 && reply.recordCount <= request.recordCount);
    require(reply.fileBlocks >= 0 && reply.fileBlocks <= request.fileBlocks);
    if (request.recordCount < 2) return checkOnlyRecord(request, before);
    for (std::int32_t frame = 0; frame < job_->framesInUse; ++frame)
        require(job_->pageDescriptors[frame].pinned == 0);

    const std::int32_t frames = job_->frameCount;
    const std::size_t dataBytes = sizeOf((request.recordCount - 1) / request.recordsPerBlock + 1) *
                                  sizeOf(request.blockPages * kPageBytes);
    const Bytes file = workFile();
    const bool inFrames = request.fileBlocks <= frames;
    if (!inFrames && before.file.size() < dataBytes) return;  // what was never there is not kept
    // A row limit moves no record, and all of them are still there.
    const bool keepsAll = mode == SortMode::kOrder || mode == SortMode::kGroups ||
                          mode == SortMode::kHierarchy || mode == SortMode::kUnique ||
                          mode == SortMode::kUniqueUnlessNull;
    const std::int32_t count = keepsAll ? request.recordCount : reply.recordCount;
    const Bytes arrived =
        packRecords(request, frames, before.slot.data() + layout_.frameAreaOffset(), before.file,
                    request.recordCount);
    const Bytes result = packRecords(request, frames, job_->frameArea, file, count);
    const std::vector<std::uint64_t> all = identitiesOf(request, arrived);
    const std::vector<std::uint64_t> kept = identitiesOf(request, result);
    require(std::includes(all.begin(), all.end(), kept.begin(), kept.end()));
    if (mode == SortMode::kGroups) require(reply.recordCount == request.recordCount);
    checkOrder(request, result);
}

void WatchedJob::checkOrder(const SortRequest& request, const Bytes& records) {
    const auto mode = static_cast<SortMode>(request.sortMode & 0xff);
    if (mode >= SortMode::kHierarchy && mode <= SortMode::kUniqueUnlessNull) return;
    // Shaping writes the record's flag, which may be part of a key.
    const auto isStable = [mode](const KeyRule& rule) {
        return mode == SortMode::kOrder ||
               (rule.fieldOffset > kRecordFlagOffset && rule.nullOffset > kRecordFlagOffset);
    };
    const auto decides = [&](const KeyRule& rule) { return isTransitive(rule) && isStable(rule); };
    if (!std::all_of(job_->keyRules, job_->keyRules + job_->keyCount, decides)) return;
    job_->modeFlag = 0;
    const std::uint32_t length = request.recordLength;
    for (std::size_t next = length; next < records.size(); next += length) {
        // Record and successor, where frame 0 was: they have been looked at.
        std::memcpy(job_->frameArea, records.data() + next - length, 2 * std::size_t{length});
        require(!recordPrecedes(*job_, length, 0));
    }
}

WatchedJob::Delivery WatchedJob::deliver(const Bytes& message) {
    const Bytes before(slot(), slot() + kMessageBufferBytes);
    // What a short message does not fill is an earlier one's.
    Delivery delivery = {before, {}, false, false};
    std::copy_n(message.data(), std::min(message.size(), kMessageBufferBytes),
                delivery.buffer.data());
    const std::uint32_t length = loadU32(delivery.buffer.data());
    const bool lengthFits = length >= kMessageBytesMin && length <= kMessageBytesMax;
    const bool complete =
        message.size() >= kLengthWordBytes && lengthFits && length <= message.size();
    if (complete && length < kMessageBufferBytes) {
        std::copy(before.begin() + length, before.end(), delivery.buffer.begin() + length);
    }
    delivery.request = loadAs<SortRequest>(delivery.buffer.data());
    delivery.answered = complete && std::memcmp(delivery.request.workDirName, kShutdownName,
                                                kDirectoryNameBytes) != 0;
    delivery.alone = length == message.size();
    require(write(serverFd_, message.data(), message.size()) ==
            static_cast<ssize_t>(message.size()));
    if (!complete) ::shutdown(serverFd_, SHUT_WR);
    return delivery;
}

bool WatchedJob::serve(const Bytes& message) {
    const Before before = {Bytes(slot(), slot() + layout_.slotBytes()), workFile()};
    const Delivery delivery = deliver(message);
    require(runsToItsEnd(delivery.request) == delivery.answered);
    checkConstants();
    checkRest(before.slot);
    if (!delivery.answered) return false;

    Bytes reply(sizeof(SortReply) + 1);
    require(recv(serverFd_, reply.data(), reply.size(), MSG_DONTWAIT) == sizeof(SortReply));
    require(std::memcmp(reply.data(), slot(), sizeof(SortReply)) == 0);
    const auto code = job_->errorCode;
    checkBuffer(delivery.buffer, code);
    checkDataSet(delivery.request, before, code);
    if (code == ErrorCode::kSuccess) checkResult(delivery.request, before);
    return delivery.alone;
}

bool WatchedJob::serveScribbled(const Bytes& message, std::uint32_t seed) {
    const Delivery delivery = deliver(message);
    {
        const test::Scribbler scribbler(slot(), layout_, seed);
        require(runsToItsEnd(delivery.request) == delivery.answered);
    }
    checkConstants();
    if (!delivery.answered) return false;
    Bytes reply(sizeof(SortReply) + 1);
    require(recv(serverFd_, reply.data(), reply.size(), MSG_DONTWAIT) == sizeof(SortReply));
    return delivery.alone;
}

void WatchedJob::hangUpDuring(const Bytes& message) {
    std::signal(SIGPIPE, SIG_IGN);  // as the process does at its start
    const Delivery delivery = deliver(message);
    close(serverFd_);
    serverFd_ = -1;
    require(!runsToItsEnd(delivery.request));
    checkConstants();
}

void WatchedJob::serveGoodRequest() {
    // One record in each block, and more blocks than frames.
    const auto count = static_cast<std::int32_t>(layout_.framesMax()) + 3;
    const Geometry geometry = {1, 1, 8, count};
    Bytes records(8 * static_cast<std::size_t>(count));
    for (std::int32_t i = 0; i < count; ++i)
        storeAs(records.data() + 8 * static_cast<std::size_t>(i), std::int64_t{count} - i);
    lay(geometry, records);
    SortRequest head = {};
    std::memcpy(head.workDirName, "TEMP", sizeof head.workDirName);
    head.fileBlocks = head.recordCount = count;
    head.blockPages = 1;
    head.recordsPerBlock = 1;
    head.recordLength = 8;
    head.keyCount = 1;
    KeyDescriptor key = {};
    key.dataType = 2;
    key.fieldLength = 8;
    key.kindFlags = 1;
    key.orderNumber = 1;
    Bytes message(sizeof head + sizeof key);
    head.length = static_cast<std::uint32_t>(message.size());
    storeAs(message.data(), head);
    storeAs(message.data() + sizeof head, key);
    require(serve(message));
    require(job_->errorCode == ErrorCode::kSuccess);
    const Bytes file = workFile();
    for (std::int32_t i = 0; i < count; ++i)
        require(loadAs<std::int64_t>(file.data() + sizeOf(i * kPageBytes)) == i + 1);
}

}  // namespace tvsort::fuzz
