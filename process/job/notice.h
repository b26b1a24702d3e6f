// Lines for whoever reads the process's standard output: why it ends, as a rule.
//
// They are best effort. Standard output belongs to the server, and a reader that is slow or stuck
// must hold up neither the process nor its end: a line is written once, whole, if it can be written
// without waiting, else it is dropped. The descriptor stays blocking, since its flags are shared
// with the server's own.

#pragma once

namespace tvsort {

// A line is cut here. It is shorter than PIPE_BUF, so a pipe that is writable takes it whole.
inline constexpr int kNoticeBytesMax = 160;

// Formats as printf does.
[[gnu::format(printf, 1, 2)]] void sayFormatted(const char* format, ...);

// Says a line as it stands; for signal handlers too.
void say(const char* line);

}  // namespace tvsort
