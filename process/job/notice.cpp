#include "process/job/notice.h"

#include <limits.h>
#include <poll.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdio>
#include <cstring>

namespace tvsort {

static_assert(kNoticeBytesMax < PIPE_BUF);

void sayFormatted(const char* format, ...) {
    char line[kNoticeBytesMax];
    va_list arguments;
    va_start(arguments, format);
    // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized): it was started
    const int length = vsnprintf(line, sizeof line, format, arguments);
    va_end(arguments);
    if (length > 0) say(line);
}

void say(const char* line) {
    pollfd output = {STDOUT_FILENO, POLLOUT, 0};
    if (poll(&output, 1, 0) != 1 || (output.revents & POLLOUT) == 0) return;
    // Nobody is left to be told that this failed.
    if (write(STDOUT_FILENO, line, strlen(line)) < 0) return;
}

}  // namespace tvsort
