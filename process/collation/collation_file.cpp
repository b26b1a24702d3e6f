#include "process/collation/collation_file.h"

#include <errno.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "process/collation/collation_table.h"
#include "process/job/notice.h"
#include "protocol/collation_layout.h"

namespace tvsort {

const CollationTable* collationTable = nullptr;

namespace {

constexpr std::size_t kPathBytes = 4096;
constexpr char kInstanceDefault[] = "20561";
// "tavucs" and the terminating zero.
constexpr std::size_t kFixedPathBytes = 7;

// As much of a file as page offsets of 16 bits can lead to.
Byte file[kCollationHeaderBytes + 0xffff + kCollationPageBytes];
const CollationTable fileTable = {file + kCollationHeaderBytes};

// Reads the file's beginning, as far as it goes or fits; what cannot be read is 0 bytes long.
std::size_t readFile(int fd) {
    std::size_t fileBytes = 0;
    while (fileBytes < sizeof file) {
        const ssize_t moved = read(fd, file + fileBytes, sizeof file - fileBytes);
        if (moved < 0 && errno == EINTR) continue;
        if (moved <= 0) break;
        fileBytes += static_cast<std::size_t>(moved);
    }
    return fileBytes;
}

}  // namespace

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
    const std::size_t fileBytes = readFile(fd);
    close(fd);
    if (isCollationFile(file, fileBytes)) collationTable = &fileTable;
}

}  // namespace tvsort
