// What is wrong with a value that was written as text.

#pragma once

#include <string>
#include <string_view>

#include "host/host_error.h"

namespace tvsort::host {

// `"<text>" is no <wanted>: <reason>`, as bad use; a long text is cut. Where the text stands, its
// file and line, is for the caller to add.
HostError badValue(std::string_view text, const std::string& wanted, const std::string& reason);

}  // namespace tvsort::host
