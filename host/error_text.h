// The codes of the sort process in words.

#pragma once

#include <cstdint>
#include <string>

#include "protocol/messages.h"

namespace tvsort::host {

// Whether the process ever sends this code.
bool isAnswerCode(std::uint32_t errorCode);

// What happened, and what to do about it. A code that the process never sends gets words too.
std::string errorText(std::uint32_t errorCode);

// The same for a whole reply, with the code itself and, for the work file's codes, the operating
// system's words for the number that the reply carries.
std::string describeAnswer(const SortReply& reply);

}  // namespace tvsort::host
