#include "host/connection.h"

#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>

#include "host/serial_number.h"

namespace tvsort::host {

namespace {

// An answer ends right behind the directory name.
constexpr std::size_t kAnswerBytes = offsetof(SortRequest, workDirName) + kDirectoryNameBytes;
// A process that closed its socket is about to end; this long we wait to see how.
constexpr Timeout kEndAfterStream{2000};

}  // namespace

Connection::Connection(FileDescriptor socket, SortProcess& process, int slotNumber,
                       const WhileWaiting& whileWaiting)
    : socket_(std::move(socket)),
      process_(process),
      slotNumber_(slotNumber),
      whileWaiting_(whileWaiting) {}

void Connection::waitUntil(short events, const Deadline& deadline, const std::string& purpose) {
    if (!socket_.isOpen()) {
        throw badUse("the connection to slot " + std::to_string(slotNumber_) +
                     " is closed; start its process again");
    }
    switch (process_.waitFor(socket_.number(), events, deadline, whileWaiting_)) {
        case WaitOutcome::kReady:
            return;
        case WaitOutcome::kProcessEnded:
            throw processDied(process_, slotNumber_, purpose);
        case WaitOutcome::kTimedOut:
            throw HostError(FailureKind::kTimedOut,
                            "the sort process of slot " + std::to_string(slotNumber_) +
                                " (process " + std::to_string(process_.id()) +
                                ") let the time run out while " + purpose +
                                "; grant it more time, or stop it and start it again");
    }
}

void Connection::endOfStream(const std::string& purpose) {
    if (process_.waitForEnd(kEndAfterStream)) throw processDied(process_, slotNumber_, purpose);
    throw HostError(FailureKind::kProtocolBroken,
                    "the sort process of slot " + std::to_string(slotNumber_) +
                        " closed its connection while " + purpose + "; start it again");
}

void Connection::send(std::span<const Byte> bytes, Timeout timeout) {
    const std::string purpose = "it was being sent a message";
    const Deadline deadline(timeout);
    while (!bytes.empty()) {
        waitUntil(POLLOUT, deadline, purpose);
        const ssize_t moved = ::send(socket_.number(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (moved >= 0) {
            bytes = bytes.subspan(static_cast<std::size_t>(moved));
        } else if (errno == EPIPE || errno == ECONNRESET) {
            endOfStream(purpose);
        } else if (errno != EAGAIN && errno != EINTR) {
            throw systemFailure("cannot send to the sort process", errno);
        }
    }
}

void Connection::sendNamed(const std::string& directoryName, Timeout timeout) {
    std::array<Byte, kAnswerBytes> message = {};
    storeAs<std::uint32_t>(message.data(), kAnswerBytes);
    std::string padded = directoryName;
    padded.resize(kDirectoryNameBytes, ' ');
    std::copy(padded.begin(), padded.end(), message.data() + offsetof(SortRequest, workDirName));
    send(message, timeout);
}

void Connection::sendAnswer(const std::string& directoryName, Timeout timeout) {
    sendNamed(directoryName, timeout);
}

void Connection::sendShutdown(Timeout timeout) {
    sendNamed(kShutdownName, timeout);
}

SortReply Connection::receiveRaw(Timeout timeout) {
    const std::string purpose = "its reply was awaited";
    const Deadline deadline(timeout);
    std::array<Byte, sizeof(SortReply)> bytes = {};
    std::size_t received = 0;
    while (received < bytes.size()) {
        waitUntil(POLLIN, deadline, purpose);
        const ssize_t moved =
            recv(socket_.number(), bytes.data() + received, bytes.size() - received, 0);
        if (moved == 0 || (moved < 0 && errno == ECONNRESET)) endOfStream(purpose);
        if (moved > 0) {
            received += static_cast<std::size_t>(moved);
        } else if (errno != EAGAIN && errno != EINTR) {
            throw systemFailure("cannot receive from the sort process", errno);
        }
    }
    return loadAs<SortReply>(bytes.data());
}

SortReply Connection::receiveReply(Timeout timeout) {
    const SortReply reply = receiveRaw(timeout);
    if (reply.length != sizeof(SortReply) || reply.processId != process_.id()) {
        throw HostError(FailureKind::kProtocolBroken,
                        "slot " + std::to_string(slotNumber_) + " received " +
                            std::to_string(sizeof(SortReply)) +
                            " bytes that are no reply of process " + std::to_string(process_.id()) +
                            "; check that the program is tvsort, and start it again");
    }
    return reply;
}

SortReply Connection::receiveReplyTo(std::uint32_t serial, Timeout timeout) {
    SortReply reply = receiveReply(timeout);
    const bool reportsStart =
        serialOf(reply) == 0 &&
        reply.errorCode == static_cast<std::uint32_t>(ErrorCode::kWorkFileOpen);
    if (reportsStart && serial != 0) reply = receiveReply(timeout);
    if (serialOf(reply) != serial) {
        throw HostError(FailureKind::kProtocolBroken,
                        "the sort process of slot " + std::to_string(slotNumber_) + " (process " +
                            std::to_string(process_.id()) + ") sent the reply to request " +
                            std::to_string(serialOf(reply)) + " instead of that to " +
                            std::to_string(serial) + "; start it again");
    }
    return reply;
}

}  // namespace tvsort::host
