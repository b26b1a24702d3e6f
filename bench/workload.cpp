#include "bench/workload.h"

#include <algorithm>

#include "bench/record_rules.h"

namespace tvsort::bench {

namespace {

constexpr std::uint64_t kSeed = 20561;

// Long records come in smaller numbers, so that peers find their memory and a slot, which holds up
// to 4 GiB, room for a copy.
constexpr std::size_t kBytesPerRecordMax = 256;
constexpr std::size_t kDataBytesMax = 1'500'000'000;

// Nearly sorted: one record in a hundred has changed places.
constexpr std::size_t kRecordsPerExchange = 200;

template <std::size_t common>
using EqualStrings = StringKey<SameBeginning<common>, 12, 12>;
template <std::size_t common>
using VaryingStrings = StringKey<SameBeginning<common>, 4, 20>;

template <typename Rules>
Workload workloadOf(std::string name, Arrangement arrangement = Arrangement::kRandom) {
    return {std::move(name), arrangement,     Rules::kRecordLength, Rules::request(),
            Rules::fill,     Rules::precedes, peersOf<Rules>()};
}

void exchange(std::vector<Byte>& records, std::size_t recordLength, std::size_t left,
              std::size_t right) {
    if (left == right) return;
    std::swap_ranges(&records[left * recordLength], &records[left * recordLength] + recordLength,
                     &records[right * recordLength]);
}

std::vector<Byte> sortedRecords(const Workload& workload, std::vector<Byte> records) {
    PeerArrays arrays(records.size() / workload.recordLength, workload.recordLength);
    arrays.records = std::move(records);
    const Byte* const result = workload.peers.front().run(arrays);
    return {result, result + arrays.records.size()};
}

}  // namespace

std::vector<Workload> workloads() {
    using Int32 = IntegerKey<std::int32_t>;
    using Int64 = IntegerKey<std::int64_t>;
    using Word = StringKey<SameBeginning<0>, 4, 16, 1000>;
    return {
        workloadOf<TextLine>("100 bytes, key of 10"),
        workloadOf<KeyedRecord<1000, BytesKey<10>>>("1000 bytes, key of 10"),
        workloadOf<KeyedRecord<16, Int64>>("8-byte integer in 16"),
        workloadOf<KeyedRecord<32, Int64>>("8-byte integer in 32"),
        workloadOf<KeyedRecord<256, Int64>>("8-byte integer in 256"),
        workloadOf<KeyedRecord<32, Descending<Int64>>>("8-byte integer, descending"),
        workloadOf<KeyedRecord<32, Nullable<Int64>>>("8-byte integer, 10 % nulls"),
        workloadOf<KeyedRecord<64, IntegerKey<std::int32_t, 1000>>>("4-byte integer, 1000 values"),
        workloadOf<KeyedRecord<64, ZipfKey<17>>>("4-byte integer, zipf"),
        workloadOf<KeyedRecord<32, FloatKey<float, 18>>>("single in 32"),
        workloadOf<KeyedRecord<48, FloatKey<double, 40>>>("double in 48"),
        workloadOf<KeyedRecord<64, DecimalKey<999'999'999'999>>>("decimal in 64"),
        workloadOf<KeyedRecord<64, EqualStrings<0>>>("string, 0 common, equal"),
        workloadOf<KeyedRecord<64, VaryingStrings<0>>>("string, 0 common, varying"),
        workloadOf<KeyedRecord<64, EqualStrings<8>>>("string, 8 common, equal"),
        workloadOf<KeyedRecord<64, VaryingStrings<8>>>("string, 8 common, varying"),
        workloadOf<KeyedRecord<64, EqualStrings<20>>>("string, 20 common, equal"),
        workloadOf<KeyedRecord<64, VaryingStrings<20>>>("string, 20 common, varying"),
        workloadOf<KeyedRecord<100, EqualStrings<60>>>("string, 60 common, equal"),
        workloadOf<KeyedRecord<100, VaryingStrings<60>>>("string, 60 common, varying"),
        workloadOf<KeyedRecord<128, StringKey<LongBeginnings, 4, 20>>>("string, long beginnings"),
        workloadOf<KeyedRecord<64, Nullable<Descending<VaryingStrings<0>>>>>(
            "string, descending, nulls"),
        workloadOf<KeyedRecord<64, UnitStringKey<20>>>("unit string in 64"),
        workloadOf<KeyedRecord<64, IntegerKey<std::int32_t, 2>, Descending<Word>>>(
            "two keys, first of 2"),
        workloadOf<KeyedRecord<64, IntegerKey<std::int32_t, 100'000>, Descending<Word>>>(
            "two keys, first of 100000"),
        workloadOf<KeyedRecord<100, IntegerKey<std::int32_t, 100>, Descending<Word>, Int32>>(
            "three keys, first of 100"),
        workloadOf<KeyedRecord<48, IntegerKey<std::int32_t, 100>, Descending<DecimalKey<5000>>,
                               BytesKey<8>>>("three keys in 48"),
        workloadOf<KeyedRecord<100, IntegerKey<std::int32_t, 100'000>, Descending<Word>,
                               IntegerKey<std::int16_t, 10>, DecimalKey<5000>>>(
            "four keys, first of 100000"),
        workloadOf<KeyedRecord<100, IntegerKey<std::int32_t, 2>, Descending<Word>,
                               IntegerKey<std::int16_t, 10>, Descending<DecimalKey<50>>, Int64>>(
            "five keys, first of 2"),
        workloadOf<TextLine>("100 bytes, sorted", Arrangement::kSorted),
        workloadOf<TextLine>("100 bytes, nearly sorted", Arrangement::kNearlySorted),
        workloadOf<TextLine>("100 bytes, reversed", Arrangement::kReversed),
        workloadOf<TextLine>("100 bytes, all equal", Arrangement::kAllEqual),
    };
}

Workload textLines() {
    return workloadOf<TextLine>("lines of 100 bytes, key of 10");
}

std::size_t recordCountOf(const Workload& workload, std::size_t recordCount) {
    const std::size_t bytes = std::min(recordCount * kBytesPerRecordMax, kDataBytesMax);
    return std::min(recordCount, bytes / workload.recordLength);
}

std::vector<Byte> makeRecords(const Workload& workload, std::size_t recordCount) {
    const Arrangement arrangement = workload.arrangement;
    const std::size_t recordLength = workload.recordLength;
    std::vector<Byte> records(recordCount * recordLength);
    Random random(kSeed);
    for (std::size_t i = 0; i < recordCount; ++i) {
        if (arrangement == Arrangement::kAllEqual) random = Random(kSeed);
        workload.fill(records.data() + i * recordLength, i, random);
    }
    if (arrangement == Arrangement::kRandom || arrangement == Arrangement::kAllEqual)
        return records;
    records = sortedRecords(workload, std::move(records));
    if (arrangement == Arrangement::kReversed) {
        for (std::size_t i = 0; i < recordCount / 2; ++i)
            exchange(records, recordLength, i, recordCount - 1 - i);
    }
    if (arrangement == Arrangement::kNearlySorted) {
        for (std::size_t i = 0; i < recordCount / kRecordsPerExchange; ++i)
            exchange(records, recordLength, random.below(recordCount), random.below(recordCount));
    }
    return records;
}

}  // namespace tvsort::bench
