#include "bench/workload.h"

#include <algorithm>

#include "bench/record_rules.h"

namespace tvsort::bench {

namespace {

constexpr std::uint64_t kSeed = 20561;

template <typename Rules>
Workload workloadOf(std::string name, Arrangement arrangement = Arrangement::kRandom) {
    return {std::move(name), arrangement,     Rules::kRecordLength, Rules::request(),
            Rules::fill,     Rules::precedes, peersOf<Rules>()};
}

// The same behind a first key that orders nothing: no path that knows the first key's type applies.
Workload behindSkippedKey(Workload workload) {
    const host::RequestBuilder request = workload.request;
    workload.name += ", without a deciding key";
    workload.request = host::RequestBuilder();
    workload.request.addKey(ascendingKey(DataType::kNone, 0, 0));
    for (KeyDescriptor key : request.keys()) {
        key.orderNumber = 0;  // its place among all
        workload.request.addKey(key);
    }
    return workload;
}

void reverseRecords(std::vector<Byte>& records, std::size_t recordLength) {
    for (std::size_t low = 0, high = records.size(); low + recordLength < high;
         low += recordLength) {
        high -= recordLength;
        std::swap_ranges(records.data() + low, records.data() + low + recordLength,
                         records.data() + high);
    }
}

std::vector<Byte> sortedRecords(const Workload& workload, std::vector<Byte> records) {
    PeerArrays arrays(records.size() / workload.recordLength, workload.recordLength);
    arrays.records = std::move(records);
    const Byte* const result = workload.peers.front().run(arrays);
    return {result, result + arrays.records.size()};
}

}  // namespace

std::vector<Workload> workloads() {
    return {
        workloadOf<TextLine>("100 bytes, key of 10"),
        workloadOf<IntegerRecord<std::int64_t, 32>>("8-byte integer in 32"),
        workloadOf<IntegerRecord<std::int64_t, 16>>("8-byte integer in 16"),
        workloadOf<IntegerRecord<std::int32_t, 32, 1000>>("4-byte integer, few"),
        workloadOf<DoubleRecord>("double in 32"),
        workloadOf<DecimalRecord>("decimal in 40"),
        workloadOf<StringRecord>("string in 64"),
        workloadOf<MixedRecord>("three keys in 48"),
        workloadOf<TextLine>("100 bytes, sorted", Arrangement::kSorted),
        workloadOf<TextLine>("100 bytes, reversed", Arrangement::kReversed),
        workloadOf<TextLine>("100 bytes, all equal", Arrangement::kAllEqual),
    };
}

std::vector<Workload> fastPathWorkloads() {
    const auto text = workloadOf<TextLine>("100 bytes, key of 10");
    const auto integer = workloadOf<IntegerRecord<std::int64_t, 32>>("8-byte integer in 32");
    const auto decimal = workloadOf<DecimalRecord>("decimal in 40");
    return {text,
            behindSkippedKey(text),
            integer,
            behindSkippedKey(integer),
            decimal,
            behindSkippedKey(decimal),
            workloadOf<IntegerRecord<std::int64_t, 31>>("8-byte integer in 31")};
}

Workload textLines() {
    return workloadOf<TextLine>("lines of 100 bytes, key of 10");
}

std::vector<Byte> makeRecords(const Workload& workload, std::size_t recordCount) {
    std::vector<Byte> records(recordCount * workload.recordLength);
    Random random(kSeed);
    for (std::size_t i = 0; i < recordCount; ++i) {
        if (workload.arrangement == Arrangement::kAllEqual) random = Random(kSeed);
        workload.fill(records.data() + i * workload.recordLength, i, random);
    }
    if (workload.arrangement == Arrangement::kSorted) return sortedRecords(workload, records);
    if (workload.arrangement == Arrangement::kReversed) {
        records = sortedRecords(workload, std::move(records));
        reverseRecords(records, workload.recordLength);
    }
    return records;
}

}  // namespace tvsort::bench
