// The conversation with one sort process, message by message.
//
//     process                      host
//        |  ------- hello ------->  |   receiveReply
//        |  <------ answer -------  |   sendAnswer: names the work file's directory
//        |  <------ request ------  |   send
//        |  ------- reply ------->  |   receiveReply
//        |  <------ "SHUT" -------  |   sendShutdown
//
// Each message carries a serial number, 0 in the answer, that comes back in its reply. A process
// that could not open its work file at the answer says so in a reply of its own, before any
// request; the serial number tells it from a request's reply.
//
// Every wait has a timeout, and every failure throws: kProcessDied with what the process printed,
// kTimedOut, kProtocolBroken, or kSystemCall.

#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include "host/deadline.h"
#include "host/file_descriptor.h"
#include "host/sort_process.h"
#include "protocol/bytes.h"
#include "protocol/messages.h"

namespace tvsort::host {

class Connection {
  public:
    // The process and the hook must outlive the connection; `slotNumber` is for messages.
    Connection(FileDescriptor socket, SortProcess& process, int slotNumber,
               const WhileWaiting& whileWaiting);

    // Sends any bytes as they are, a whole message or not.
    void send(std::span<const Byte> bytes, Timeout timeout);
    // Answers the hello: `directoryName` (up to four characters) names the work file's directory.
    void sendAnswer(const std::string& directoryName, Timeout timeout);
    void sendShutdown(Timeout timeout);

    // The next 80 bytes, which must be a reply of this process.
    SortReply receiveReply(Timeout timeout);
    // The next 80 bytes as they are.
    SortReply receiveRaw(Timeout timeout);
    // The reply to the message with this serial number; a start-up failure's reply is passed over.
    SortReply receiveReplyTo(std::uint32_t serial, Timeout timeout);

    // Closes this side; a waiting process then ends.
    void close() { socket_.close(); }

  private:
    void waitUntil(short events, const Deadline& deadline, const std::string& purpose);
    [[noreturn]] void endOfStream(const std::string& purpose);
    void sendNamed(const std::string& directoryName, Timeout timeout);

    FileDescriptor socket_;
    SortProcess& process_;
    int slotNumber_;
    const WhileWaiting& whileWaiting_;
};

}  // namespace tvsort::host
