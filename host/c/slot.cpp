#include <chrono>
#include <limits>

#include "host/c/server_handle.h"

using namespace tvsort;

namespace {

capi::Heed heedOf(tvsort_slot& slot, std::int32_t stage) {
    return {&slot.cancelled, slot.watch, slot.watchContext, stage, 0, {}};
}

// A call with the slot; a wish to cancel goes with the call that answers so.
template <typename Act>
tvsort_code slotCall(tvsort_slot* slot, std::int32_t stage, Act&& act) noexcept {
    return capi::guardedAlone(slot, [&] {
        if (slot->server.hasRows) {
            throw host::badUse("slot " + std::to_string(slot->work.slot().number()) +
                               " is taken by rows; destroy them first");
        }
        capi::Heed heed = heedOf(*slot, stage);
        const capi::HeedScope scope(heed);
        try {
            heed.look();
            act(heed);
        } catch (const capi::Cancelled&) {
            slot->cancelled = false;
            throw;
        }
    });
}

void forget(tvsort_slot& slot) {
    slot.loaded.reset();
    slot.reader.reset();
    slot.unread = {};
    slot.statistics = {};
    slot.groupCount = 0;
}

host::Geometry geometryOf(tvsort_slot& slot, std::int32_t recordBytes) {
    if (recordBytes < 1 || recordBytes > std::numeric_limits<std::uint16_t>::max()) {
        throw host::badUse("records of " + std::to_string(recordBytes) +
                           " bytes cannot be sorted; use 1 to 65535");
    }
    return host::chooseGeometry(static_cast<std::uint16_t>(recordBytes),
                                slot.work.slot().memory().layout().pagesPerBlock);
}

// `fill` puts up to so many records to its place and answers how many.
template <typename Fill>
void load(tvsort_slot& slot, capi::Heed& heed, std::int32_t recordBytes, Fill&& fill) {
    forget(slot);
    slot.geometry = geometryOf(slot, recordBytes);
    slot.work.ensureStarted();
    host::RecordLoader loader = slot.work.slot().loader(slot.geometry);
    for (;;) {
        heed.look();
        std::size_t recordsMax = 0;
        Byte* const room = loader.room(recordsMax);
        const std::size_t records = fill(room, recordsMax);
        if (records > recordsMax) {
            throw host::badUse("the source states " + std::to_string(records) +
                               " records where there was room for " + std::to_string(recordsMax));
        }
        if (records == 0) break;
        loader.took(records);
        heed.done += static_cast<std::int64_t>(records);
    }
    slot.loaded = loader.finish();
}

void sort(tvsort_slot& slot, const host::RequestBuilder& request) {
    if (!slot.loaded.has_value()) {
        throw host::badUse("the slot has no records to sort; load them, once for each sort");
    }
    const host::LoadedData loaded = *slot.loaded;
    forget(slot);
    const host::ProcessUsage before = slot.work.slot().process().usage();
    const auto start = std::chrono::steady_clock::now();
    const SortReply reply = slot.work.ask(request, slot.geometry, loaded.extent);
    const std::chrono::duration<double> passed = std::chrono::steady_clock::now() - start;
    const host::ProcessUsage after = slot.work.slot().process().usage();
    slot.reader.emplace(slot.work.slot(), slot.geometry, reply.recordCount);
    slot.statistics = {0,
                       loaded.extent.recordCount,
                       reply.recordCount,
                       slot.geometry.recordLength,
                       loaded.workFileBytes,
                       after.cpuSeconds - before.cpuSeconds,
                       passed.count(),
                       after.peakBytes};
    slot.groupCount = reply.groupCount;
}

// The next records that lie one behind the other, `bytesMax` at most; empty at the end.
std::span<const Byte> nextPiece(tvsort_slot& slot, std::size_t bytesMax) {
    if (!slot.reader.has_value()) {
        throw host::badUse("the slot has no result to read; sort first");
    }
    if (slot.unread.empty()) slot.unread = slot.reader->next();
    const auto piece = slot.unread.first(std::min(slot.unread.size(), bytesMax));
    slot.unread = slot.unread.subspan(piece.size());
    return piece;
}

}  // namespace

const char* tvsort_slot_text(const tvsort_slot* slot) {
    return slot == nullptr ? capi::kNoHandle : slot->outcome.words();
}

tvsort_code tvsort_slot_failure(const tvsort_slot* slot, tvsort_failure* failure) {
    return capi::giveOf(slot, failure, "tvsort_failure", [&] { return slot->outcome.failure(); });
}

tvsort_code tvsort_slot_set_watch(tvsort_slot* slot, tvsort_watch watch, void* context) {
    return capi::guardedAlone(slot, [&] {
        slot->watch = watch;
        slot->watchContext = context;
    });
}

tvsort_code tvsort_slot_load(tvsort_slot* slot, int32_t record_bytes, tvsort_source source,
                             void* context) {
    return slotCall(slot, TVSORT_STAGE_PUT, [&](capi::Heed& heed) {
        if (source == nullptr) throw host::badUse("source is null");
        load(*slot, heed, record_bytes, [&](Byte* room, std::size_t recordsMax) {
            std::size_t records = 0;
            if (source(context, room, recordsMax, &records) != 0) throw capi::Cancelled();
            return records;
        });
    });
}

tvsort_code tvsort_slot_load_array(tvsort_slot* slot, int32_t record_bytes, const void* records,
                                   size_t record_count) {
    return slotCall(slot, TVSORT_STAGE_PUT, [&](capi::Heed& heed) {
        if (record_count > 0) capi::need(records, "records");
        const auto* next = static_cast<const Byte*>(records);
        std::size_t left = record_count;
        load(*slot, heed, record_bytes, [&](Byte* room, std::size_t recordsMax) {
            const std::size_t count = std::min(left, recordsMax);
            const std::size_t bytes = count * static_cast<std::size_t>(record_bytes);
            if (count > 0) std::memcpy(room, next, bytes);
            next += bytes;
            left -= count;
            return count;
        });
    });
}

tvsort_code tvsort_slot_sort(tvsort_slot* slot, const tvsort_request* request,
                             tvsort_result* result) {
    return slotCall(slot, TVSORT_STAGE_SORT, [&](capi::Heed&) {
        capi::need(request, "request");
        // Refused before anything is asked, where the caller could not be told.
        if (result != nullptr) capi::give(result, {}, "tvsort_result");
        sort(*slot, request->builder);
        if (result != nullptr) {
            capi::give(result, {0, slot->statistics.records_out, slot->groupCount},
                       "tvsort_result");
        }
    });
}

tvsort_code tvsort_slot_read(tvsort_slot* slot, tvsort_sink sink, void* context) {
    return slotCall(slot, TVSORT_STAGE_GET, [&](capi::Heed& heed) {
        if (sink == nullptr) throw host::badUse("sink is null");
        std::vector<Byte> copy;
        for (;;) {
            const auto piece = nextPiece(*slot, std::numeric_limits<std::size_t>::max());
            if (piece.empty()) return;
            // A copy, which the process cannot change any more.
            copy.assign(piece.begin(), piece.end());
            const std::size_t records = copy.size() / slot->geometry.recordLength;
            if (sink(context, copy.data(), records) != 0) throw capi::Cancelled();
            heed.done += static_cast<std::int64_t>(records);
            heed.look();
        }
    });
}

tvsort_code tvsort_slot_read_array(tvsort_slot* slot, void* target, size_t records_max,
                                   size_t* record_count) {
    return slotCall(slot, TVSORT_STAGE_GET, [&](capi::Heed& heed) {
        capi::need(record_count, "record_count");
        *record_count = 0;
        if (records_max > 0) capi::need(target, "target");
        const std::size_t recordBytes = slot->geometry.recordLength;
        auto* next = static_cast<Byte*>(target);
        std::size_t left = records_max;
        do {
            const auto recordsWanted = std::min<std::size_t>(left, slot->geometry.recordsPerBlock);
            const auto piece = nextPiece(*slot, recordsWanted * recordBytes);
            if (piece.empty()) break;
            std::copy(piece.begin(), piece.end(), next);
            next += piece.size();
            left -= piece.size() / recordBytes;
            heed.done += static_cast<std::int64_t>(piece.size() / recordBytes);
            heed.look();
        } while (left > 0);
        *record_count = records_max - left;
    });
}

void tvsort_slot_cancel(tvsort_slot* slot) {
    if (slot != nullptr) slot->cancelled = true;
}

tvsort_code tvsort_slot_statistics(const tvsort_slot* slot, tvsort_statistics* statistics) {
    return capi::giveOf(slot, statistics, "tvsort_statistics", [&] { return slot->statistics; });
}
