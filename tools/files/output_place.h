// Where an output is to be: the folder, held open, and the name in it.
//
// Symbolic links are followed here and not by the system, for two reasons. What a link leads to is
// replaced, not the link, so its folder must be known. And in a folder like /tmp, where everybody
// may write and nobody may touch the files of others, anybody can lay a link that leads a command
// of another user to a file of that user's. Linux refuses to follow such links, but not everywhere
// (fs.protected_symlinks), and not for a program that reads where they lead. Here the rule holds at
// every step of the way: a link in a sticky folder that everybody can write is followed when it
// belongs to the user or to the folder's owner. So with a file or a pipe there (Linux has the rule
// as fs.protected_regular and fs.protected_fifos): whoever laid it under the output's name could
// read what is written. The folder stays open, so nothing that is exchanged on the way to it
// afterwards matters.

#pragma once

#include <sys/stat.h>

#include <optional>
#include <string>

#include "host/file_descriptor.h"

namespace tvsort::tools {

struct OutputPlace {
    host::FileDescriptor folder;  // O_PATH
    std::string name;             // never empty
    // Of what stands there, which is no symbolic link; none where nothing does.
    std::optional<struct stat> found;
    // The name is a link of /proc to something that has no other name, such as a pipe, and is
    // opened through it.
    bool isOpenFile = false;
};

// Throws where a part of the way is missing or no directory, at a link that is not followed, and
// where another user's file or pipe is not written.
OutputPlace findOutputPlace(const std::string& path);

}  // namespace tvsort::tools
