#include "host/sort_server.h"

#include <string>

#include "host/host_error.h"

namespace tvsort::host {

namespace {

// A process cuts the value of the directory's variable to this length.
constexpr std::size_t kWorkDirectoryCharsMax = 258;

SlotLayout layoutOf(const ServerOptions& options) {
    if (options.pagesPerBlock < 1) {
        throw badUse("memory blocks of " + std::to_string(options.pagesPerBlock) +
                     " pages cannot be had; use 1 or more");
    }
    return {options.memoryPages / options.pagesPerBlock, options.pagesPerBlock};
}

std::filesystem::path tempDirectoryOf(const ServerOptions& options) {
    return options.tempDirectory.empty() ? defaultTempDirectory() : options.tempDirectory;
}

// A socket's path is short; where the private directory's is not, the socket gets one of its own.
std::filesystem::path chooseSocketDirectory(const PrivateDirectory& directory, int instance,
                                            std::optional<PrivateDirectory>& other) {
    if (socketPath(directory.path(), instance).string().size() <= kSocketPathCharsMax) {
        return directory.path();
    }
    return other.emplace("/tmp").path();
}

std::filesystem::path chooseWorkDirectory(const ServerOptions& options,
                                          const PrivateDirectory& directory) {
    std::filesystem::path chosen =
        options.workDirectory.empty() ? directory.path() : options.workDirectory;
    if (chosen.string().size() > kWorkDirectoryCharsMax) {
        throw badUse("the directory of the work files, " + chosen.string() + ", has more than " +
                     std::to_string(kWorkDirectoryCharsMax) +
                     " characters; choose a shorter temporary directory");
    }
    return chosen;
}

}  // namespace

SortServer::SortServer(const ServerOptions& options, Processes processes)
    : options_(options),
      memory_(layoutOf(options), options.slotCount, options.hugePages),
      directory_(tempDirectoryOf(options)),
      socket_(chooseSocketDirectory(directory_, options.instance, socketDirectory_),
              options.instance),
      workDirectory_(chooseWorkDirectory(options, directory_)) {
    for (int slotNumber = 1; slotNumber <= options.slotCount; ++slotNumber) {
        slots_.push_back(
            std::make_unique<SortSlot>(options_, memory_, socket_, workDirectory_, slotNumber));
        if (processes == Processes::kStart) slots_.back()->start();
    }
}

SortSlot& SortServer::slot(int slotNumber) {
    if (slotNumber < 1 || slotNumber > options_.slotCount) {
        throw badUse("there is no slot " + std::to_string(slotNumber) + "; slots 1 to " +
                     std::to_string(options_.slotCount) + " exist");
    }
    return *slots_[static_cast<std::size_t>(slotNumber - 1)];
}

}  // namespace tvsort::host
