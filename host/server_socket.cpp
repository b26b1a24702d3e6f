#include "host/server_socket.h"

#include <sys/socket.h>
#include <sys/un.h>

#include <cerrno>
#include <cstring>

#include "host/host_error.h"

namespace tvsort::host {

std::filesystem::path socketPath(const std::filesystem::path& directory, int instance) {
    return directory / ("tavrin.internal." + std::to_string(instance));
}

ServerSocket::ServerSocket(const std::filesystem::path& directory, int instance)
    : path_(socketPath(directory, instance)) {
    const std::string text = path_.string();
    if (text.size() > kSocketPathCharsMax) {
        throw badUse("the socket path " + text + " has " + std::to_string(text.size()) +
                     " characters, of which a socket takes " + std::to_string(kSocketPathCharsMax) +
                     "; choose a shorter temporary directory");
    }
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, text.data(), text.size());
    listener_ = FileDescriptor(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!listener_.isOpen() ||
        bind(descriptor(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
        listen(descriptor(), SOMAXCONN) != 0) {
        throw systemFailure("cannot listen at " + text, errno,
                            "choose another temporary directory");
    }
}

ServerSocket::~ServerSocket() {
    unlink(path_.c_str());
}

FileDescriptor ServerSocket::acceptWaiting() {
    const int accepted = accept4(descriptor(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
    if (accepted < 0 && errno != EAGAIN && errno != EINTR && errno != ECONNABORTED) {
        throw systemFailure("cannot accept a connection at " + path_.string(), errno,
                            "close other files or raise the limit of open files");
    }
    return FileDescriptor(accepted);
}

}  // namespace tvsort::host
