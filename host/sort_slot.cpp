#include "host/sort_slot.h"

#include <poll.h>

#include "host/error_text.h"
#include "host/host_error.h"
#include "host/reply_check.h"

namespace tvsort::host {

namespace {

constexpr char kStartAdvice[] = "check that the program is tvsort, and what it says";

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kIsSanitized = true;
#elif defined(__has_feature)
// NOLINTNEXTLINE(misc-redundant-expression): it reads what the questions expand to
constexpr bool kIsSanitized = __has_feature(address_sanitizer) || __has_feature(thread_sanitizer) ||
                              __has_feature(memory_sanitizer);
#else
constexpr bool kIsSanitized = false;
#endif

// Where the data set's last block ends in the work file.
std::int64_t dataSetBytes(const Geometry& geometry, const Extent& extent) {
    if (extent.fileBlocks < 1 || geometry.blockPages < 1) return 0;
    const auto blockBytes = static_cast<std::int64_t>(geometry.blockBytes());
    return extent.fileBlocks > kNoLimit / blockBytes ? kNoLimit : extent.fileBlocks * blockBytes;
}

bool namesVariable(const std::string& directoryName) {
    return directoryName != "SY00" && directoryName != "TEMP" && !directoryName.empty();
}

}  // namespace

void checkAnswer(const SortReply& reply) {
    if (reply.errorCode == 0) return;
    throw HostError(FailureKind::kAnsweredWithError,
                    "the sort process answered with " + describeAnswer(reply),
                    static_cast<ErrorCode>(reply.errorCode), reply.osError);
}

void SortResult::read(const RecordSink& sink) const {
    slot->read(geometry, reply.recordCount, sink);
}

SortSlot::SortSlot(const ServerOptions& options, const SlotMemory& memory, ServerSocket& socket,
                   const std::filesystem::path& workDirectory, int slotNumber)
    : options_(options),
      memory_(memory),
      socket_(socket),
      workDirectory_(workDirectory),
      slotNumber_(slotNumber),
      workFile_(workDirectory, slotNumber) {}

SortSlot::~SortSlot() {
    try {
        stop();
    } catch (...) {
        // Whoever is told of a failure here is gone; the process's destructor kills what still
        // runs.
        connection_.reset();
    }
}

ProcessStart SortSlot::processStart() const {
    ProcessStart start;
    start.program =
        options_.launcher.empty() ? options_.processPath.string() : options_.launcher[0];
    if (!options_.launcher.empty()) {
        start.arguments.assign(options_.launcher.begin() + 1, options_.launcher.end());
        start.arguments.push_back(options_.processPath.string());
    }
    const std::string prefix =
        options_.directoryPrefix.empty() ? workDirectory_.string() + "/" : options_.directoryPrefix;
    for (const std::string& argument :
         {std::to_string(options_.memoryPages), std::to_string(slotNumber_),
          std::to_string(memory_.descriptor()), prefix, std::to_string(options_.pagesPerBlock)}) {
        start.arguments.push_back(argument);
    }
    start.environment = options_.environment;
    start.environment.push_back("TAVRIN_TMP=" + socket_.path().parent_path().string());
    start.environment.push_back("TAVRIN_MBX=" + std::to_string(options_.instance));
    if (namesVariable(options_.workDirectoryName)) {
        start.environment.push_back(options_.workDirectoryName + "=" + workDirectory_.string());
    }
    start.sharedDescriptor = memory_.descriptor();
    start.limits = processLimits(prefix);
    start.timeout = options_.startTimeout;
    start.whileWaiting = options_.whileWaiting;
    return start;
}

ProcessLimits SortSlot::processLimits(const std::string& directoryPrefix) const {
    ProcessLimits limits;
    limits.endsWithStarter = options_.endsWithStarter;
    if (!options_.launcher.empty()) return limits;
    limits.fileBytes = options_.fileBytesMax;
    if (!options_.limitAddressSpace || kIsSanitized) return limits;
    std::error_code absent;
    const auto collationBytes = std::filesystem::file_size(
        directoryPrefix + "tavucs" + std::to_string(options_.instance), absent);
    limits.addressBytes = memory_.layout().slotBytes() + kProcessOwnBytes +
                          (absent ? 0 : static_cast<std::int64_t>(collationBytes));
    return limits;
}

FileDescriptor SortSlot::acceptProcess() {
    const Deadline deadline(options_.startTimeout);
    const std::string purpose = "it was to connect at " + socket_.path().string();
    for (;;) {
        const WaitOutcome outcome =
            process_->waitFor(socket_.descriptor(), POLLIN, deadline, options_.whileWaiting);
        if (outcome == WaitOutcome::kProcessEnded) {
            throw processDied(*process_, slotNumber_, purpose, kStartAdvice);
        }
        if (outcome == WaitOutcome::kTimedOut) {
            throw HostError(FailureKind::kTimedOut,
                            "the sort process " + options_.processPath.string() + " (process " +
                                std::to_string(process_->id()) + ") let the time run out while " +
                                purpose + "; " + kStartAdvice);
        }
        FileDescriptor accepted = socket_.acceptWaiting();
        if (accepted.isOpen()) return accepted;
    }
}

SortReply SortSlot::startUnanswered() {
    stop();
    process_ = std::make_unique<SortProcess>(processStart());
    connection_ = std::make_unique<Connection>(acceptProcess(), *process_, slotNumber_,
                                               options_.whileWaiting);
    const SortReply hello = connection_->receiveReply(options_.startTimeout);
    if (hello.errorCode != 0) {
        throw brokenBy("said hello with code " + std::to_string(hello.errorCode));
    }
    return hello;
}

void SortSlot::start() {
    startUnanswered();
    connection_->sendAnswer(options_.workDirectoryName, options_.startTimeout);
}

void SortSlot::stop() {
    if (process_ == nullptr) return;
    const bool idle = connection_ != nullptr && !replyPending_ && !process_->hasEnded();
    replyPending_ = false;
    if (idle) {
        try {
            connection_->sendShutdown(options_.stopTimeout);
            process_->waitForEnd(options_.stopTimeout);
        } catch (const HostError&) {
            // It ended before it could be told, or does not listen: both are over with the kill.
        }
    }
    connection_.reset();
    process_.reset();
}

HostError SortSlot::brokenBy(const std::string& what) const {
    const std::string id =
        process_ == nullptr ? "" : " (process " + std::to_string(process_->id()) + ")";
    return {FailureKind::kProtocolBroken, "the sort process of slot " +
                                              std::to_string(slotNumber_) + id + " " + what +
                                              "; check that the program is tvsort, and start it "
                                              "again"};
}

LoadedData SortSlot::load(const Geometry& geometry, const RecordSource& source) {
    return loadRecords(memory_, slotNumber_, workFile_, geometry, source);
}

RecordLoader SortSlot::loader(const Geometry& geometry) {
    return {memory_, slotNumber_, workFile_, geometry};
}

SortReply SortSlot::ask(const RequestBuilder& request, const Geometry& geometry,
                        const Extent& extent) {
    serial_ += 1;
    const std::vector<Byte> message = request.build(geometry, extent, serial_);
    const bool limited = options_.launcher.empty();
    const std::uint64_t fileLimit =
        limited ? process().lowerFileLimit(dataSetBytes(geometry, extent)) : 0;
    replyPending_ = true;
    connection().send(message, options_.startTimeout);
    const SortReply reply = connection().receiveReplyTo(serial_, options_.requestTimeout);
    const std::string fault = replyFault(request, geometry, extent, reply);
    // The reply stays pending: such a process is not asked to end, but ended.
    if (!fault.empty()) throw brokenBy(fault);
    replyPending_ = false;
    if (limited) process().setFileLimit(fileLimit);
    return reply;
}

void SortSlot::read(const Geometry& geometry, std::int32_t recordCount,
                    const RecordSink& sink) const {
    try {
        readRecords(memory_, slotNumber_, workFile_, geometry, recordCount, sink);
    } catch (const HostError& error) {
        if (error.kind() != FailureKind::kProtocolBroken) throw;
        throw brokenBy(error.what());
    }
}

SortResult SortSlot::sort(const RequestBuilder& request, const Geometry& geometry,
                          const RecordSource& source) {
    SortResult result;
    result.loaded = load(geometry, source);
    result.geometry = geometry;
    result.slot = this;
    result.reply = ask(request, geometry, result.loaded.extent);
    checkAnswer(result.reply);
    return result;
}

SortProcess& SortSlot::process() {
    if (process_ == nullptr) throw badUse("the slot has no process; start it first");
    return *process_;
}

Connection& SortSlot::connection() {
    if (connection_ == nullptr) throw badUse("the slot has no process; start it first");
    return *connection_;
}

}  // namespace tvsort::host
