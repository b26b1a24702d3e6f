// `tvsort-host verify`: is a file in the order that the keys ask for?
//
// Each record is compared with the one before it by a definition of the order that the sort process
// does not share (host/record_order.h), each row by its ordered key (tools/ordered/order_check.h).
// The report goes to standard output:
//
//     in order  yes
//     records   1000
//     checksum  2a9f...   the same for every order of the same records (tools/command/checksum.h)

#pragma once

#include <cstdint>
#include <string>

#include "tools/options/record_options.h"

namespace tvsort::tools {

struct VerifyOptions {
    RecordOptions records;
    std::string input;
};

struct VerifyReport {
    std::int64_t recordCount = 0;
    // The first record, from 1, that must not stand behind the one before it; 0 when in order.
    std::int64_t firstMisplaced = 0;
    std::string fault;  // with what the two hold, where keys are ordered bytes
    std::string checksum;
};

// Reads the whole file, in order or not.
VerifyReport verifyFile(VerifyOptions options);

}  // namespace tvsort::tools
