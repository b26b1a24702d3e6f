#include "host/private_directory.h"

#include <cerrno>
#include <cstdlib>
#include <string>
#include <system_error>

#include "host/host_error.h"

namespace tvsort::host {

PrivateDirectory::PrivateDirectory(const std::filesystem::path& parent) {
    std::error_code error;
    std::filesystem::path absolute = std::filesystem::absolute(parent, error);
    if (error) absolute = parent;
    std::string pattern = (absolute / "tvsort-XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr) {
        throw systemFailure("cannot create a directory under " + absolute.string(), errno,
                            "choose a temporary directory that exists and can be written");
    }
    path_ = pattern;
}

PrivateDirectory::~PrivateDirectory() {
    // There is nobody to tell of a failure here; the directory then stays for its owner to remove.
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

std::filesystem::path defaultTempDirectory() {
    const char* const directory = std::getenv("TMPDIR");
    return directory != nullptr && *directory != '\0' ? directory : "/tmp";
}

}  // namespace tvsort::host
