// Requests and records of any kind through the request loop, as they would come over the socket.
//
//     0   u8    memory of the slot; bit 7: requests at the borders
//     1   ...   requests, one after the other, each served on the same job
//               (fuzz/hostile_request.h); a good one behind them

#include <cstdio>
#include <cstdlib>

#include "fuzz/watched_job.h"
#include "process/collation/collation_table.h"

using namespace tvsort;
using namespace tvsort::fuzz;

namespace {

constexpr int kRequestsMax = 4;
constexpr std::uint8_t kBordersBit = 0x80;
constexpr std::uint8_t kLayoutMask = 0x3f;

SlotLayout takeLayout(FuzzInput& input, std::uint8_t choice) {
    switch (choice & kLayoutMask) {
        case 63:
            return {280, 1};  // enough for a copy of many records, and slow
        case 62:
            return {40, 1};
        case 61:
            return {6, 3};
        default:
            return input.below(2) == 0 ? SlotLayout{5, 1} : SlotLayout{5, 2};
    }
}

// Blocks of a page, and of as many and more as the largest record needs.
SlotLayout borderLayout(std::uint8_t choice) {
    constexpr SlotLayout kLayouts[] = {{5, 1}, {5, 2}, {5, 16}, {5, 17}, {5, 32}, {6, 20}, {40, 1}};
    return kLayouts[(choice & kLayoutMask) % std::size(kLayouts)];
}

// Says at the end how much was done: an input is several requests.
struct RequestCounter {
    long served = 0;
    ~RequestCounter() { std::fprintf(stderr, "stat::requests_served: %ld\n", served); }
};
RequestCounter counter;

// A table in which neighbouring units weigh the same, and some weigh nothing of their own.
const CollationTable* smallCollation() {
    static Byte bytes[kCollationPageOffsetsBytes + kCollationPageBytes];
    static const CollationTable table = {bytes};
    for (std::uint32_t page = 0; page < kCollationPageCount; ++page)
        storeAs(bytes + 2 * page, static_cast<std::uint16_t>(kCollationPageOffsetsBytes));
    for (std::uint32_t unit = 0; unit < 256; ++unit) {
        Byte* const entry = bytes + kCollationPageOffsetsBytes + unit * kCollationEntryBytes;
        storeAs(entry, static_cast<std::uint16_t>(unit % 16 == 0 ? kRangeEntry | 0x200 : 0));
        storeAs(entry + 4, static_cast<std::uint16_t>(unit / 2));
    }
    return &table;
}

// What would keep the process busy for longer than the watchdog waits: a request may ask for two
// thousand million records, in a file that holds none of them. The server does not wait either.
bool asksForTooMuch(const Bytes& message) {
    constexpr std::int32_t kRecordsServed = 20000;
    constexpr std::int64_t kPagesServed = 1 << 13;
    if (message.size() < sizeof(SortRequest)) return false;
    const auto request = loadAs<SortRequest>(message.data());
    if (request.recordsPerBlock == 0) return false;
    const std::int64_t blocks = std::int64_t{request.recordCount} / request.recordsPerBlock + 1;
    return request.fileBlocks >= blocks - 1 &&
           (request.recordCount > kRecordsServed || blocks * request.blockPages > kPagesServed);
}

}  // namespace

// The process takes nothing from the heap, so what is freed need not be kept aside to be watched.
extern "C" const char* __asan_default_options() {
    return "quarantine_size_mb=8:abort_on_error=1";
}

extern "C" int LLVMFuzzerTestOneInput(const Byte* data, std::size_t size) {
    FuzzInput input(data, size);
    std::srand(1);  // the pivots of one input are the same every time
    const auto choice = input.take<std::uint8_t>();
    const bool atBorders = (choice & kBordersBit) != 0;
    const SlotLayout layout = atBorders ? borderLayout(choice) : takeLayout(input, choice);
    collationTable = input.rarely(4) ? smallCollation() : nullptr;
    WatchedJob job(layout);
    for (int i = 0; i < kRequestsMax && !input.atEnd(); ++i) {
        const HostileRequest request =
            atBorders ? takeRequestAtBorders(input, layout) : takeRequest(input, layout);
        ++counter.served;
        job.lay(request.geometry, request.records, request.missingBytes);
        if (request.poolGarbage != 0) job.fillPool(request.poolGarbage);
        if (asksForTooMuch(request.message)) {
            job.hangUpDuring(request.message);
            return 0;
        }
        const bool goesOn = request.scribbling != 0
                                ? job.serveScribbled(request.message, request.scribbling)
                                : job.serve(request.message);
        if (!goesOn) return 0;
    }
    job.serveGoodRequest();
    return 0;
}
