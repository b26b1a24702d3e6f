// Names for files that nobody is to foresee.
//
// In a folder that others may write to, whoever knows the next name can take it first, or lay a
// link there that leads elsewhere. These are drawn by the system, and their users create files
// under them that must not exist yet, and draw again when one does.

#pragma once

#include <string>
#include <string_view>

namespace tvsort::host {

// Letters and digits that a drawn name has.
inline constexpr std::size_t kRandomNameChars = 6;

// So often a name that is taken is followed by another. Fails to be enough where somebody holds
// most of the 62^6 names, and never by chance.
inline constexpr int kRandomNameTries = 100;

std::string randomName();

// True for what `randomName` may give.
bool isRandomName(std::string_view text);

}  // namespace tvsort::host
