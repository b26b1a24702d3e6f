// Threads, of which a system may have none left.

#pragma once

#include <system_error>
#include <thread>
#include <utility>

#include "host/host_error.h"

namespace tvsort::tools {

template <typename Work>
std::jthread startThread(Work work) {
    try {
        return std::jthread(std::move(work));
    } catch (const std::system_error& error) {
        throw host::systemFailure("cannot start a thread", error.code().value(),
                                  "give fewer --processes or raise the limit of processes");
    }
}

}  // namespace tvsort::tools
