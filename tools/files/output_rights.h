// Who may do what with an output that takes an earlier file's place: whoever might with that file,
// and nobody else.
//
// A file's rights for its group are those of that group and, where the file has an access list, the
// most that the list gives to anybody; on a file of another group, or without the list, the same
// bits would let others in. So group and list go over along with the bits. Where the system does
// not allow that, the group keeps what everybody has. The owner is who runs the command.

#pragma once

#include <sys/stat.h>

#include <optional>
#include <string>

namespace tvsort::tools {

struct Replaced {
    int folder;
    const std::string& name;
    const std::optional<struct stat>& status;  // none where nothing is replaced
};

// Gives the new file the rights of what it is to replace, or those that a new file gets. False with
// the reason in `errno` when they cannot be set.
bool setRights(int file, const Replaced& replaced);

}  // namespace tvsort::tools
