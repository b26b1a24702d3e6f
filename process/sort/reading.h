// Reading the keys of many records through a window that is fitted to a sample of them.
//
// A window that fits every record costs several looks at each. One that is fitted to a thousand of
// them mostly fits the others, too, and one look tells which it does not fit: their digits are
// right but say less (keys/key_window.h). Where there are too many of these the window is fitted to
// all.

#pragma once

#include <algorithm>
#include <bit>
#include <cstdint>
#include <utility>

#include "process/keys/key_window.h"
#include "process/storage/record_array.h"
#include "process/storage/server_watch.h"

namespace tvsort {

// What there is to say about the values of all `records`.
inline Doubts doubtsAboutAll(SortJob& job, const NormalizedKey& key, const RecordArray& records) {
    Doubts doubts = kNoDoubts;
    if (key.checkCount == 0) return doubts;
    visitRecords(records, 0, records.count, [&](const Byte* record) {
        watchServer(job, records.recordLength);
        doubts |= doubtsAbout(key, record);
    });
    return doubts;
}

// How the keys of records with the same digits go on.
struct Continuation {
    KeyPlace place;
    bool endsKey;  // they are equal
    bool exact;    // the next window must fit every record
};

inline constexpr std::uint32_t kSampleRecords = 1024;
// One record of so many may be unlike the sample. More, and the window says too little.
inline constexpr std::uint32_t kMisfitShare = 16;

// Where the keys of `key` begin.
inline Continuation startOf(const NormalizedKey& key) {
    return {kKeyStart, key.segmentCount == 0, false};
}

// What has the same digits goes on behind the window only if they fit it; otherwise where the
// window begins, and through one that fits them. So no place in the key is read more than twice.
inline Continuation continuationOf(const KeyWindow& window, bool fitsAll) {
    if (fitsAll) return {window.next, window.endsKey, false};
    return {window.start, false, true};
}

inline constexpr std::uint32_t kReadBitsMax = kWindowBits - 1;

// A window that tells most of `recordCount` records apart: twelve bits more than their number has,
// so that few have the same digits by chance.
inline WindowFit fitFor(std::uint32_t recordCount, bool findFollowers,
                        std::uint32_t widthMax = kReadBitsMax) {
    constexpr std::uint32_t kBitsBeyondCount = 12;
    const auto countBits = static_cast<std::uint32_t>(std::bit_width(recordCount));
    return {widthMax, std::min(widthMax, countBits + kBitsBeyondCount), findFollowers};
}

// Opens a window at `from` and reads `count` records through it. `visit(step, look)` calls `look`
// with every step-th record. For each window, of which there may be two, `sink.start` is called,
// and `sink.take` with each record and its digits. No window has more than `widthMax` bits. Answers
// how the keys go on.
template <typename Visit, typename Sink>
Continuation readThrough(const NormalizedKey& key, const Continuation& from, std::uint32_t count,
                         Visit visit, Sink& sink, KeyWindow& window,
                         std::uint32_t widthMax = kReadBitsMax) {
    std::uint32_t step = from.exact ? 1 : std::max(count / kSampleRecords, 1U);
    for (;;) {
        const auto visitSample = [&](auto look) {
            bool starts = true;
            visit(step, [&](const Byte* record) { look(record, std::exchange(starts, false)); });
        };
        fitWindow(key, from.place, fitFor(count, step > 1, widthMax), visitSample, window);
        sink.start(window);
        std::uint32_t misfits = 0;
        withReader(window, [&](const auto& reader) {
            std::uint32_t found = 0;
            visit(1, [&](const Byte* record) { sink.take(record, reader.read(record, found)); });
            misfits = found;
        });
        // What has been fitted to all counts as fitting, even if the server has changed a record.
        if (step == 1) return continuationOf(window, true);
        if (misfits <= (window.width > 0 ? count / kMisfitShare : 0))
            return continuationOf(window, misfits == 0);
        step = 1;
    }
}

}  // namespace tvsort
