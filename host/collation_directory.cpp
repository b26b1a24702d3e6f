#include "host/collation_directory.h"

#include <cerrno>
#include <fstream>

#include "host/host_error.h"
#include "protocol/collation_layout.h"

namespace tvsort::host {

std::string collationFileFault(const std::vector<Byte>& file) {
    const CollationCheck check = checkCollation(file.data(), file.size());
    switch (check.fault) {
        case CollationFault::kShort:
            return "its " + std::to_string(file.size()) +
                   " bytes are fewer than header and page offsets take";
        case CollationFault::kMagic:
            return "the magic number 0x667DED94 does not stand at byte 4";
        case CollationFault::kPageOutside:
            return "page " + std::to_string(check.page) + " does not lie inside it";
        default:
            return "";
    }
}

CollationDirectory::CollationDirectory(const std::filesystem::path& tempDirectory, int instance,
                                       const std::vector<Byte>& file)
    : directory_(tempDirectory) {
    const std::string fault = collationFileFault(file);
    if (!fault.empty()) throw badUse("this is no collation file: " + fault);
    const std::filesystem::path path = directory_.path() / ("tavucs" + std::to_string(instance));
    std::ofstream stream(path, std::ios::binary);
    stream.write(reinterpret_cast<const char*>(file.data()),
                 static_cast<std::streamsize>(file.size()));
    stream.close();
    if (!stream) throw systemFailure("cannot write " + path.string(), errno, "is the disk full?");
}

}  // namespace tvsort::host
