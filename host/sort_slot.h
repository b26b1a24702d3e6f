// One slot with all that belongs to it: its memory, its work file, its process and the conversation
// with it.
//
//     SortSlot& slot = server.slot(1);
//     const SortResult result = slot.sort(request, geometry, source);
//     result.read(sink);
//
// `sort` is made of three steps that can be taken one by one: `load`, `ask` and `read`. A slot
// serves one request at a time; different slots may be used by different threads at once.

#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "host/connection.h"
#include "host/data_set.h"
#include "host/deadline.h"
#include "host/request_builder.h"
#include "host/server_socket.h"
#include "host/slot_memory.h"
#include "host/sort_process.h"
#include "host/work_file.h"

namespace tvsort::host {

struct ServerOptions {
    // The sort process's program; without a slash it is looked up in PATH.
    std::filesystem::path processPath = "tvsort";
    // A program to run it under (a debugger, valgrind) with that program's arguments; none if
    // empty.
    std::vector<std::string> launcher;
    // Memory that each process is granted, in pages of 4096 bytes. 5 x pagesPerBlock or more.
    std::int32_t memoryPages = 16384;
    // The largest block that a data set may have.
    std::int32_t pagesPerBlock = 16;
    // Slots 1 to slotCount, with a process each.
    int slotCount = 1;
    // Whether the slots are in pages of 2 MiB, which are brought in by 512 times fewer faults.
    HugePages hugePages = HugePages::kOff;
    // A private directory for socket and work files is made here.
    std::filesystem::path tempDirectory;
    // Where the work files are to be instead; must exist.
    std::filesystem::path workDirectory;
    // By this name, of up to four characters, the answer tells a process where its work file is.
    // Unless it is "SY00" or "TEMP" it is set as an environment variable of the process.
    std::string workDirectoryName = "TVWK";
    // Argument 4 of the process, before the name of the collation file; ends with a slash.
    // The directory of the work files if empty.
    std::string directoryPrefix;
    // Number of the server instance; ends the names of socket and collation file.
    int instance = 20561;
    // "NAME=value" strings for the processes' environment.
    std::vector<std::string> environment;
    // For a process to start and say hello, and for messages to be taken in.
    Timeout startTimeout{30000};
    // For a request to be served.
    Timeout requestTimeout = kNoTimeout;
    // For a process to end in good order, before it is killed.
    Timeout stopTimeout{5000};
    WhileWaiting whileWaiting;
    // Bytes that no file of a process may grow beyond, whatever it is asked. While it serves a
    // request its files end where the data set ends, if that is less.
    std::int64_t fileBytesMax = kNoLimit;
    // Whether a process gets no more address space than its slot, the collation file and
    // `kProcessOwnBytes`. One that is built with a sanitizer needs terabytes: then, and where this
    // library is built so, there is no limit. Under a launcher there is none for memory and files.
    bool limitAddressSpace = true;
    // Whether a process is killed when the thread that started it ends, and so with this process.
    // Not for hosts that start it in a thread that ends before; the end of the socket still ends
    // it.
    bool endsWithStarter = true;
};

// What a process needs for itself: program, C library, stack and static memory, with a reserve of
// about half of it.
inline constexpr std::int64_t kProcessOwnBytes = std::int64_t{128} * 1024 * 1024;

class SortSlot;

// What a served request gave. Good until the slot's next load or request.
struct SortResult {
    SortReply reply = {};
    LoadedData loaded;
    Geometry geometry;
    SortSlot* slot = nullptr;

    // Hands all records of the result to the sink, in order.
    void read(const RecordSink& sink) const;
};

class SortSlot {
  public:
    // Creates the work file; starts nothing. All that is passed must outlive the slot.
    SortSlot(const ServerOptions& options, const SlotMemory& memory, ServerSocket& socket,
             const std::filesystem::path& workDirectory, int slotNumber);
    // Stops the process and removes the work file.
    ~SortSlot();
    SortSlot(const SortSlot&) = delete;
    SortSlot& operator=(const SortSlot&) = delete;

    int number() const { return slotNumber_; }

    // Stops a running process, starts another, takes its hello and answers it.
    void start();
    // The same without the answer, which is then the caller's to send; gives the hello.
    SortReply startUnanswered();
    // Ends the process: by "SHUT" when it is idle, by force when it is not or does not follow.
    void stop();

    // Lays the records into frames and work file.
    LoadedData load(const Geometry& geometry, const RecordSource& source);
    // The same for records that come one by one; one loader at a time.
    RecordLoader loader(const Geometry& geometry);
    // Sends the request and gives the reply, whatever its code. A reply that cannot be one to this
    // request (host/reply_check.h) is thrown as kProtocolBroken.
    SortReply ask(const RequestBuilder& request, const Geometry& geometry, const Extent& extent);
    // Hands the first `recordCount` records of the result to the sink. Where the sink throws
    // kProtocolBroken because a record cannot be, the process's name is put before its words.
    void read(const Geometry& geometry, std::int32_t recordCount, const RecordSink& sink) const;
    // All of it. An answer with an error code is thrown as kAnsweredWithError.
    SortResult sort(const RequestBuilder& request, const Geometry& geometry,
                    const RecordSource& source);

    // For those who speak with the process themselves. Process and connection exist after `start`.
    SortProcess& process();
    Connection& connection();
    const SlotMemory& memory() const { return memory_; }
    WorkFile& workFile() { return workFile_; }

  private:
    ProcessStart processStart() const;
    ProcessLimits processLimits(const std::string& directoryPrefix) const;
    FileDescriptor acceptProcess();
    // "the sort process of slot 1 (process 17) <what>; ..."
    HostError brokenBy(const std::string& what) const;

    const ServerOptions& options_;
    const SlotMemory& memory_;
    ServerSocket& socket_;
    std::filesystem::path workDirectory_;
    int slotNumber_;
    WorkFile workFile_;
    std::unique_ptr<SortProcess> process_;
    std::unique_ptr<Connection> connection_;
    std::uint32_t serial_ = 0;
    bool replyPending_ = false;
};

// Throws a reply with an error code as kAnsweredWithError; passes one without.
void checkAnswer(const SortReply& reply);

}  // namespace tvsort::host
