#include "host/collation_directory.h"

#include <cerrno>
#include <fstream>

#include "host/host_error.h"
#include "process/collation/collation_file.h"
#include "process/collation/collation_table.h"

namespace tvsort::host {

std::string collationFileFault(const std::vector<Byte>& file) {
    if (file.size() < kCollationHeaderBytes + kCollationPageOffsetsBytes) {
        return "its " + std::to_string(file.size()) +
               " bytes are fewer than header and page "
               "offsets take";
    }
    if (loadU32(file.data() + kCollationMagicOffset) != kCollationMagic) {
        return "the magic number 0x667DED94 does not stand at byte 4";
    }
    const Byte* const table = file.data() + kCollationHeaderBytes;
    const std::size_t tableBytes = file.size() - kCollationHeaderBytes;
    for (std::uint32_t page = 0; page < kCollationPageCount; ++page) {
        if (loadU16(table + 2 * page) + kCollationPageBytes > tableBytes) {
            return "page " + std::to_string(page) + " does not lie inside it";
        }
    }
    return "";
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
