#include "tools/options/row_errors.h"

#include <fmt/format.h>

#include "host/host_error.h"

namespace tvsort::tools {

void RowErrors::stop(const std::string& text) {
    throw host::badUse(text + "; correct it, or leave such rows out with --on-error=skip");
}

void RowErrors::restart() {
    skippedCount_ = 0;
    first_.clear();
}

std::string RowErrors::report() const {
    std::string report;
    if (skippedCount_ == 0) return report;
    for (const std::string& text : first_)
        report += fmt::format("{}: {}\n", skips_ ? "skipped" : "unreadable", text);
    return report + fmt::format("{} {} {}\n", skippedCount_, skippedCount_ == 1 ? "row" : "rows",
                                skips_ ? "skipped" : "put last, unreadable");
}

}  // namespace tvsort::tools
