// The listening socket at which sort processes announce themselves.
//
// Its path is "<directory>/tavrin.internal.<instance>"; processes learn both parts from the
// environment variables TAVRIN_TMP and TAVRIN_MBX. The file goes away with the object.

#pragma once

#include <filesystem>
#include <string>

#include "host/file_descriptor.h"

namespace tvsort::host {

// An address holds 108 bytes, the terminating zero included.
inline constexpr std::size_t kSocketPathCharsMax = 107;

std::filesystem::path socketPath(const std::filesystem::path& directory, int instance);

class ServerSocket {
  public:
    // The directory must exist; a path that is too long is bad use.
    ServerSocket(const std::filesystem::path& directory, int instance);
    ~ServerSocket();
    ServerSocket(const ServerSocket&) = delete;
    ServerSocket& operator=(const ServerSocket&) = delete;

    const std::filesystem::path& path() const { return path_; }
    // Becomes readable when a process has connected.
    int descriptor() const { return listener_.number(); }

    // The connection that came first, or none when there is none waiting. Never blocks.
    FileDescriptor acceptWaiting();

  private:
    std::filesystem::path path_;
    FileDescriptor listener_;
};

}  // namespace tvsort::host
