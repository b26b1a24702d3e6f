#include "collation/collation_file.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "collation/collation_table.h"
#include "service/notice.h"

namespace tvsort {

const CollationTable* collationTable = nullptr;

namespace {

constexpr std::size_t kPathBytes = 4096;
constexpr char kInstanceDefault[] = "20561";
// "tavucs" and the terminating zero.
constexpr std::size_t kFixedPathBytes = 7;

CollationTable mappedTable;

// Maps the whole file; null when that fails. The descriptor may be closed afterwards.
const Byte* mapFile(int fd, std::size_t& fileBytes) {
    const off_t end = lseek(fd, 0, SEEK_END);
    if (end < 0) return nullptr;
    fileBytes = static_cast<std::size_t>(end);
    void* const start = mmap(nullptr, fileBytes, PROT_READ, MAP_SHARED, fd, 0);
    return start == MAP_FAILED ? nullptr : static_cast<const Byte*>(start);
}

}  // namespace

bool isCollationFile(const Byte* file, std::size_t fileBytes) {
    if (fileBytes < kCollationHeaderBytes + kCollationPageOffsetsBytes) return false;
    if (loadU32(file + kCollationMagicOffset) != kCollationMagic) return false;
    const Byte* const table = file + kCollationHeaderBytes;
    const std::size_t tableBytes = fileBytes - kCollationHeaderBytes;
    for (std::uint32_t page = 0; page < kCollationPageCount; ++page) {
        if (loadU16(table + 2 * page) + kCollationPageBytes > tableBytes) return false;
    }
    return true;
}

void loadCollation(const char* directoryPrefix) {
    collationTable = nullptr;
    const char* instance = getenv("TAVRIN_MBX");
    if (instance == nullptr) {
        instance = kInstanceDefault;
    } else if (strlen(instance) + strlen(directoryPrefix) + kFixedPathBytes > kPathBytes) {
        say(" TVSORT:TAVRIN_MBX is too long\n");
        return;
    }
    char path[kPathBytes];
    const int length = snprintf(path, sizeof path, "%stavucs%s", directoryPrefix, instance);
    if (length < 0 || static_cast<std::size_t>(length) >= sizeof path) return;

    // Non-blocking: a FIFO of that name must not hold up the start.
    const int fd = open(path, O_RDONLY | O_NONBLOCK);
    if (fd < 0) return;
    std::size_t fileBytes = 0;
    const Byte* const file = mapFile(fd, fileBytes);
    close(fd);
    if (file == nullptr || !isCollationFile(file, fileBytes)) return;
    mappedTable.bytes = file + kCollationHeaderBytes;
    collationTable = &mappedTable;
}

}  // namespace tvsort
