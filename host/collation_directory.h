// Puts a collation file in force: a sort process looks for it, when it starts, under its directory
// prefix and the name of the server's instance.
//
//     const CollationDirectory collation(tempDirectory, options.instance, bytes);
//     options.directoryPrefix = collation.prefix();
//
// The process passes over a file that it cannot trust without a word and compares by code unit.
// That is caught here.

#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "host/private_directory.h"
#include "protocol/bytes.h"

namespace tvsort::host {

class CollationDirectory {
  public:
    // A private directory under `tempDirectory` with the file in it, until the object goes away.
    // Bytes that are no collation file are bad use, and the error says why they are none.
    CollationDirectory(const std::filesystem::path& tempDirectory, int instance,
                       const std::vector<Byte>& file);

    // For ServerOptions::directoryPrefix.
    std::string prefix() const { return directory_.path().string() + "/"; }

  private:
    PrivateDirectory directory_;
};

// Why a process would not put these bytes in force; empty when it would.
std::string collationFileFault(const std::vector<Byte>& file);

}  // namespace tvsort::host
