#include "fuzz/hostile_request.h"

#include <cstring>

#include "protocol/data_type.h"

namespace tvsort::fuzz {

namespace {

constexpr std::int32_t kManyBlocks = 100;
constexpr std::int32_t kManyRecords = 10000;
constexpr std::uint32_t kLengthOfManyMax = 43;  // fits twice into 280 blocks
constexpr std::int32_t kRecordsMax = 400;
constexpr std::uint16_t kLevelKeyOffset = 16;

struct Plan {
    Geometry geometry;
    SortMode mode;
    std::vector<KeyDescriptor> keys;
    bool hostileValues;
    Byte mask;   // of random bytes: few bits make many equal values
    bool large;  // random bytes are drawn four at a time
};

bool holdsMany(const Plan& plan) {
    return plan.geometry.recordCount >= kManyRecords;
}

SortMode takeMode(FuzzInput& input) {
    constexpr std::uint8_t kModes[] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 255};
    return static_cast<SortMode>(kModes[input.below(sizeof kModes)]);
}

Geometry takeGeometry(FuzzInput& input, const SlotLayout& layout, SortMode mode) {
    Geometry geometry = {};
    const bool many = layout.memoryBlocks >= kManyBlocks;
    geometry.blockPages = 1 + static_cast<std::int32_t>(
                                  input.below(static_cast<std::uint32_t>(layout.pagesPerBlock)));
    const std::uint32_t lengthMax =
        many               ? kLengthOfManyMax
        : input.rarely(16) ? static_cast<std::uint32_t>(geometry.blockPages * kPageBytes)
                           : 80;
    geometry.recordLength = 1 + static_cast<std::int32_t>(input.below(lengthMax));
    if (mode == SortMode::kHierarchy) geometry.recordLength += kLevelKeyOffset;
    const auto blockBytes = static_cast<std::int32_t>(geometry.blockBytes());
    geometry.recordLength = std::min(geometry.recordLength, blockBytes);
    const std::int32_t fit = blockBytes / geometry.recordLength;
    const std::uint32_t fewer = input.below(8);
    geometry.recordsPerBlock = std::max(1, many ? fit : fit >> fewer);
    geometry.recordCount = many ? kManyRecords + static_cast<std::int32_t>(input.below(500))
                                : static_cast<std::int32_t>(input.below(kRecordsMax));
    // At most a few times what the frames hold.
    geometry.recordCount =
        std::min(geometry.recordCount, 4 * static_cast<std::int32_t>(layout.framesMax()) /
                                           geometry.blockPages * geometry.recordsPerBlock);
    return geometry;
}

KeyDescriptor takeKey(FuzzInput& input, const Plan& plan, std::uint8_t orderNumber) {
    constexpr std::uint8_t kLengths[] = {1, 2, 4, 8, 3, 5, 16, 34};
    constexpr std::uint8_t kStableTypes[] = {2, 4, 5, 6, 9};
    constexpr std::uint8_t kGeometryTypes[] = {0, 0, 1, 3, 255, 129, 7, 6};
    KeyDescriptor key = {};
    key.dataType = static_cast<std::uint8_t>(input.below(15));
    const std::uint32_t choice = input.below(64);
    key.fieldLength = kLengths[choice % 8];
    key.geometryType = kGeometryTypes[choice / 8];
    if (holdsMany(plan) && choice / 8 < 7) {
        key.dataType = kStableTypes[key.dataType % sizeof kStableTypes];
        key.geometryType = kGeometryTypeNone;
    }
    const std::uint32_t bytes = keyFieldBytes(key.dataType, key.fieldLength);
    const auto length = static_cast<std::uint32_t>(plan.geometry.recordLength);
    key.fieldOffset =
        static_cast<std::uint16_t>(input.below(length >= bytes ? length - bytes + 1 : 1));
    const auto flags = input.take<std::uint8_t>();
    key.kindFlags = static_cast<std::uint8_t>((flags & 0xe0) | flags % 3);
    key.groupKey = static_cast<std::uint8_t>(flags / 3 % 3);
    key.orderNumber = orderNumber;
    key.weightTableId = static_cast<std::uint16_t>(flags / 9 % 4);
    return key;
}

void takeKeys(FuzzInput& input, Plan& plan) {
    const std::int32_t length = plan.geometry.recordLength;
    const std::uint32_t count = 1 + input.below(5);
    for (std::uint8_t i = 0; i < count; ++i)
        plan.keys.push_back(takeKey(input, plan, static_cast<std::uint8_t>(i + 1)));
    if (plan.mode == SortMode::kHierarchy) plan.keys[0].fieldOffset = kLevelKeyOffset;
    if (input.rarely(3)) {
        KeyDescriptor nulls = {};
        nulls.kindFlags = static_cast<std::uint8_t>(KeyKind::kNullIndicators);
        const std::int32_t room = length - static_cast<std::int32_t>(count);
        nulls.fieldOffset =
            static_cast<std::uint16_t>(input.below(static_cast<std::uint32_t>(std::max(1, room))));
        plan.keys.push_back(nulls);
    }
}

// Coordinates, and floats, that are equal, nearly equal or far apart.
double smallNumber(Xorshift& random) {
    const double nearby = random.below(4) * 0x1p-50;
    return (static_cast<double>(random.below(5)) - 2.0) * (1.0 + nearby);
}

void fillText(Xorshift& random, const KeyDescriptor& key, bool padded, std::size_t bytes,
              Byte* field) {
    const std::size_t content = bytes - kLengthPrefixBytes;
    std::size_t length = random.below(static_cast<std::uint32_t>(content) + 1);
    if (key.geometryType != kGeometryTypeNone && key.dataType != 12) {
        if ((key.kindFlags & kEnvelopeBit) != 0 && content >= 32) {
            length = 32;
            for (std::size_t i = 0; i < 4; ++i)
                storeAs(field + 2 + 8 * i, smallNumber(random));
        } else if (content >= 21) {
            length = 21;
            field[2] = 1;
            storeAs(field + 3, std::uint32_t{1});
            storeAs(field + 7, smallNumber(random));
            storeAs(field + 15, smallNumber(random));
        }
    }
    if (padded || random.below(2) == 0) std::fill(field + 2 + length, field + bytes, Byte{0});
    storeAs(field, static_cast<std::uint16_t>(length));
}

// Makes the field a value that its type allows; it holds random bytes. Strings are `padded` with
// zeros always, or now and then.
void fillField(Xorshift& random, const KeyDescriptor& key, bool padded, std::size_t bytes,
               Byte* field) {
    switch (static_cast<DataType>(key.dataType)) {
        case DataType::kFloat:
            if (bytes == 4) {
                storeAs(field, static_cast<float>(smallNumber(random)));
            } else {
                storeAs(field, smallNumber(random));
            }
            return;
        case DataType::kDecimal:
        case DataType::kAlsoDecimal:
            for (std::size_t i = 1; i < bytes; ++i)
                field[i] = static_cast<Byte>(field[i] % 100);
            field[0] = static_cast<Byte>(random.below(3));
            if (field[0] == 0) std::fill(field + 1, field + bytes, Byte{0});
            return;
        case DataType::kWeightedString:
        case DataType::kString:
        case DataType::kUnitString:
            return fillText(random, key, padded, bytes, field);
        default:
            return;
    }
}

Bytes makeRecords(const Plan& plan, std::uint32_t seed) {
    const auto length = static_cast<std::size_t>(plan.geometry.recordLength);
    Xorshift random(seed);
    Bytes records(length * static_cast<std::size_t>(plan.geometry.recordCount));
    if (plan.large) {
        for (std::size_t i = 0; i + 4 <= records.size(); i += 4)
            storeAs(records.data() + i, random.next() & plan.mask * 0x01010101U);
    } else {
        for (Byte& byte : records)
            byte = static_cast<Byte>(random.next() >> 11) & plan.mask;
    }
    std::int32_t level = 0;
    for (std::size_t start = 0; start < records.size(); start += length) {
        Byte* const record = records.data() + start;
        for (const KeyDescriptor& key : plan.keys) {
            const std::size_t bytes = keyFieldBytes(key.dataType, key.fieldLength);
            if (key.fieldOffset + bytes > length) continue;
            if (plan.hostileValues && random.below(200) == 0) continue;
            fillField(random, key, holdsMany(plan), bytes, record + key.fieldOffset);
        }
        if (length > kRecordFlagOffset && (plan.mask & 4) == 0) {
            record[kRecordFlagOffset] = static_cast<Byte>(1 + random.below(3));
        }
        if (plan.mode == SortMode::kHierarchy && length >= kLevelKeyOffset) {
            level = 1 + static_cast<std::int32_t>(
                            random.below(static_cast<std::uint32_t>(std::min(level + 1, 9))));
            storeAs(record + kLevelKeyOffset - sizeof level, level);
        }
    }
    return records;
}

template <typename Value>
void append(Bytes& bytes, const Value& value) {
    bytes.resize(bytes.size() + sizeof value);
    storeAs(bytes.data() + bytes.size() - sizeof value, value);
}

Bytes makeMessage(FuzzInput& input, const Plan& plan) {
    SortRequest head = {};
    std::memcpy(head.workDirName, "TEMP", sizeof head.workDirName);
    head.fileBlocks = plan.geometry.blockCount();
    head.blockPages = plan.geometry.blockPages;
    head.recordCount = plan.geometry.recordCount;
    head.recordsPerBlock = static_cast<std::uint16_t>(plan.geometry.recordsPerBlock);
    head.recordLength = static_cast<std::uint16_t>(plan.geometry.recordLength);
    head.keyCount = static_cast<std::uint16_t>(plan.keys.size());
    head.sortMode = static_cast<std::uint8_t>(plan.mode);
    if (input.rarely(4)) head.limitCount = static_cast<std::int32_t>(input.below(kRecordsMax));
    Bytes message;
    append(message, head);
    for (const KeyDescriptor& key : plan.keys)
        append(message, key);
    const std::uint32_t items = input.rarely(4) ? 1 + input.below(32) : 0;
    append(message, static_cast<std::uint16_t>(items));
    for (std::uint16_t i = 0; i < items; ++i) {
        ByteWeightTable item = {i, static_cast<std::uint8_t>(i % 3 != 2), 0, {}};
        for (unsigned b = 0; b < sizeof item.weights; ++b)
            item.weights[b] = static_cast<std::uint8_t>((255 - b) >> (i % 4));
        append(message, item);
    }
    storeAs(message.data(), static_cast<std::uint32_t>(message.size()));
    return message;
}

void patch(FuzzInput& input, Bytes& bytes) {
    const std::size_t place = input.take<std::uint16_t>();
    const auto value = input.take<std::uint8_t>();
    if (!bytes.empty()) bytes[place % bytes.size()] = value;
}

std::int32_t takeBorderLength(FuzzInput& input, std::int32_t blockBytes) {
    constexpr std::int32_t kRecordBytesMax = 65535;
    switch (input.below(4)) {
        case 0:
            return static_cast<std::int32_t>(input.below(4));
        case 1:
            return kRecordBytesMax - static_cast<std::int32_t>(input.below(3));
        case 2:
            return std::min(blockBytes / static_cast<std::int32_t>(2 + input.below(100)),
                            kRecordBytesMax);
        default:
            return 1 + static_cast<std::int32_t>(input.below(80));
    }
}

// Mostly one that could be served.
Geometry takeBorderGeometry(FuzzInput& input, const SlotLayout& layout) {
    constexpr std::int32_t kRecordOffsetEnd = 65536;
    constexpr std::int32_t kCounts[] = {0, 1, 2, 3, 20, 21, 22, 100, 101, 102, 103};
    constexpr std::int32_t kDataBytesMax = 1 << 20;
    Geometry geometry = {};
    const auto pages = static_cast<std::uint32_t>(layout.pagesPerBlock);
    geometry.blockPages =
        static_cast<std::int32_t>(input.rarely(3) ? 1 + input.below(pages) : pages);
    const auto blockBytes = static_cast<std::int32_t>(geometry.blockBytes());
    geometry.recordLength = takeBorderLength(input, blockBytes);
    const std::int32_t length = std::max(1, geometry.recordLength);
    const std::int32_t reachable = std::min(blockBytes, kRecordOffsetEnd + length - 1) / length;
    geometry.recordsPerBlock = std::clamp(reachable >> input.below(3), 1, 0xffff);
    geometry.recordCount = input.rarely(3) ? static_cast<std::int32_t>(input.below(kRecordsMax))
                                           : kCounts[input.below(std::size(kCounts))];
    // Up to twice what the frames hold, in bounded time.
    const std::int32_t blocksMax = std::max(
        1, std::min(2 * static_cast<std::int32_t>(layout.framesMax()) / geometry.blockPages,
                    kDataBytesMax / blockBytes));
    geometry.recordCount = static_cast<std::int32_t>(std::min(
        std::int64_t{geometry.recordCount}, std::int64_t{blocksMax} * geometry.recordsPerBlock));
    return geometry;
}

// Without length, or at, over or beyond the record's end.
void moveToBorder(FuzzInput& input, std::int32_t recordLength, KeyDescriptor& key) {
    if (input.rarely(2)) key.fieldLength = static_cast<std::uint16_t>(input.below(4));
    const auto bytes = static_cast<std::int32_t>(keyFieldBytes(key.dataType, key.fieldLength));
    const std::int32_t offsets[] = {recordLength - bytes,
                                    recordLength - bytes + 1,
                                    recordLength - bytes - 1,
                                    recordLength - 1,
                                    recordLength,
                                    recordLength + 1,
                                    0x8000,
                                    0xffff};
    key.fieldOffset = static_cast<std::uint16_t>(offsets[input.below(std::size(offsets))]);
}

// A field of the message's head becomes a number at some border.
void putBorder(FuzzInput& input, Bytes& message) {
    constexpr std::uint32_t kBorders[] = {0,          1,          2,          0x7fff,
                                          0x8000,     0xffff,     0x10000,    0x10001,
                                          0x7fffffff, 0x80000000, 0xfffffffe, 0xffffffff};
    constexpr std::size_t kWords[] = {
        offsetof(SortRequest, fileBlocks), offsetof(SortRequest, blockPages),
        offsetof(SortRequest, recordCount), offsetof(SortRequest, limitCount)};
    constexpr std::size_t kHalves[] = {
        offsetof(SortRequest, recordsPerBlock), offsetof(SortRequest, recordLength),
        offsetof(SortRequest, keyCount), offsetof(SortRequest, sortMode)};
    const std::uint32_t field = input.below(8);
    const std::uint32_t border = kBorders[input.below(std::size(kBorders))];
    if (field < 4) {
        storeAs(message.data() + kWords[field], border);
    } else {
        storeAs(message.data() + kHalves[field - 4], static_cast<std::uint16_t>(border));
    }
}

// The plan's records and message, and what the input takes back of them.
HostileRequest makeRequest(FuzzInput& input, Plan& plan) {
    constexpr Byte kMasks[] = {0xff, 0x01, 0x03, 0x83, 0xc1, 0x80, 0x07, 0x00};
    plan.mask = kMasks[input.below(sizeof kMasks)];
    plan.hostileValues = input.rarely(3);

    HostileRequest request = {};
    request.geometry = plan.geometry;
    request.records = makeRecords(plan, input.take<std::uint32_t>());
    request.message = makeMessage(input, plan);
    if (input.rarely(8)) {
        const bool honest = input.rarely(2);
        request.message.resize(input.below(static_cast<std::uint32_t>(request.message.size())));
        if (honest && request.message.size() >= kLengthWordBytes) {
            storeAs(request.message.data(), static_cast<std::uint32_t>(request.message.size()));
        }
    }
    if (input.rarely(3)) request.poolGarbage = input.take<std::uint32_t>();
    for (std::uint32_t patches = input.below(8); patches > 0; --patches)
        patch(input, input.rarely(3) ? request.records : request.message);
    if (input.rarely(8)) request.missingBytes = input.take<std::uint16_t>();
    return request;
}

}  // namespace

HostileRequest takeRequest(FuzzInput& input, const SlotLayout& layout) {
    Plan plan = {};
    plan.mode = takeMode(input);
    plan.geometry = takeGeometry(input, layout, plan.mode);
    takeKeys(input, plan);
    return makeRequest(input, plan);
}

HostileRequest takeRequestAtBorders(FuzzInput& input, const SlotLayout& layout) {
    Plan plan = {};
    plan.mode = takeMode(input);
    plan.geometry = takeBorderGeometry(input, layout);
    plan.large = true;
    takeKeys(input, plan);
    for (KeyDescriptor& key : plan.keys) {
        if (input.rarely(3)) moveToBorder(input, plan.geometry.recordLength, key);
    }
    HostileRequest request = makeRequest(input, plan);
    if (request.message.size() >= sizeof(SortRequest)) {
        for (std::uint32_t fields = input.below(6); fields > 2; --fields)
            putBorder(input, request.message);
    }
    if (input.rarely(4)) request.scribbling = 1 + input.take<std::uint16_t>();
    return request;
}

}  // namespace tvsort::fuzz
