// A sample of a sort's records, from which the key ranges of several processes are made.

#pragma once

#include "host/key_ranges.h"
#include "tools/formats/record_flow.h"

namespace tvsort::tools {

// Reads the flow to its end and gives ranges that split its records into so many parts of about one
// size. Needs keys that can be split.
host::KeyRanges sampleKeyRanges(const RecordFlow& flow, std::size_t partCount);

}  // namespace tvsort::tools
