// The server's side of sorting, whole: an engine links this.
//
//     tvsort::host::ServerOptions options;
//     options.memoryPages = 16384;
//     tvsort::host::SortServer server(options);
//     auto result = server.slot(1).sort(request, geometry, source);
//     result.read(sink);
//
// The object owns all that exists outside of it: socket, shared memory, work files and one process
// per slot. Destroying it, on whatever path, leaves none of them behind.

#pragma once

#include <filesystem>
#include <memory>
#include <optional>
#include <vector>

#include "host/private_directory.h"
#include "host/server_socket.h"
#include "host/slot_memory.h"
#include "host/sort_slot.h"

namespace tvsort::host {

// Whether the processes are started at once, or later by `SortSlot::start`.
enum class Processes : bool { kStart, kLeave };

class SortServer {
  public:
    explicit SortServer(const ServerOptions& options, Processes processes = Processes::kStart);

    const ServerOptions& options() const { return options_; }
    // Slots count from 1.
    SortSlot& slot(int slotNumber);
    const SlotMemory& memory() const { return memory_; }
    const std::filesystem::path& workDirectory() const { return workDirectory_; }
    const std::filesystem::path& socketPath() const { return socket_.path(); }

  private:
    ServerOptions options_;
    SlotMemory memory_;
    PrivateDirectory directory_;
    // Where the path of the first one is too long for a socket.
    std::optional<PrivateDirectory> socketDirectory_;
    ServerSocket socket_;
    std::filesystem::path workDirectory_;
    std::vector<std::unique_ptr<SortSlot>> slots_;
};

}  // namespace tvsort::host
