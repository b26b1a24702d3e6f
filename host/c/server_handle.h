// The handles of servers, slots, requests and collations.

#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

#include "host/c/handle.h"
#include "host/c/slot_work.h"
#include "host/collation_directory.h"
#include "host/sort_server.h"

struct tvsort_collation {
    std::vector<tvsort::Byte> file;
};

struct tvsort_request {
    tvsort::capi::Outcome outcome;
    tvsort::host::RequestBuilder builder;
};

struct tvsort_slot {
    tvsort_slot(tvsort_server& owner, tvsort::host::SortSlot& slot, std::mutex& door)
        : server(owner), work(slot, door) {}

    tvsort::capi::Outcome outcome;
    std::atomic<bool> busy = false;
    std::atomic<bool> cancelled = false;
    tvsort_server& server;
    tvsort::capi::SlotWork work;
    tvsort_watch watch = nullptr;
    void* watchContext = nullptr;
    // Of the data set that is loaded, and of its result.
    std::optional<tvsort::host::LoadedData> loaded;
    tvsort::host::Geometry geometry;
    std::optional<tvsort::capi::ResultReader> reader;
    std::span<const tvsort::Byte> unread;
    tvsort_statistics statistics = {};
    std::int64_t groupCount = 0;
};

struct tvsort_server {
    tvsort::capi::Outcome outcome;
    std::mutex door;
    tvsort::host::ServerOptions options;
    std::optional<tvsort::host::CollationDirectory> collation;
    std::unique_ptr<tvsort::host::SortServer> server;
    std::vector<std::unique_ptr<tvsort_slot>> slots;
    std::atomic<bool> hasRows = false;  // which have all slots
};
