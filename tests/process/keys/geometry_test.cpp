// Envelopes of geometries in well-known binary, and keys ordered by them.

#include "process/keys/geometry_envelope.h"

#include <gtest/gtest.h>

#include "tests/process/keys/key_cases.h"

namespace tvsort::test {
namespace {

constexpr double kM = 1.7976931348623157e308;
constexpr Envelope kEmpty = {kM, kM, -kM, -kM};

// Well-known binary from its parts: geometries, counts and coordinates.
template <typename Value>
void append(Bytes& bytes, const Value& value) {
    const Bytes more = bytesOf(value);
    bytes.insert(bytes.end(), more.begin(), more.end());
}
Bytes operator+(Bytes left, const Bytes& right) {
    left.insert(left.end(), right.begin(), right.end());
    return left;
}
Bytes header(Byte type) {
    return {1, type, 0, 0, 0};
}
Bytes count(std::uint32_t number) {
    return bytesOf(number);
}
Bytes at(std::initializer_list<double> coordinates) {
    Bytes bytes;
    for (const double coordinate : coordinates)
        append(bytes, coordinate);
    return bytes;
}
Bytes point(double x, double y) {
    return header(1) + at({x, y});
}
const Bytes kNowhere(16, 0xff);

// A collection in a collection in a collection ..., with a point innermost.
Bytes nested(int depth) {
    Bytes bytes;
    for (int i = 0; i < depth; ++i)
        bytes = bytes + header(7) + count(1);
    return bytes + point(3, 4);
}

struct EnvelopeCase {
    const char* name;
    Byte type;
    Bytes value;
    Envelope envelope;
};

const Bytes kLine = header(2) + count(2) + at({5, -1, 2, 7});
const Bytes kSquare = header(3) + count(1) + count(4) + at({0, 0, 0, 2, 2, 2, 0, 0});

const EnvelopeCase kReadable[] = {
    {"no type", 0, header(0), kEmpty},
    {"point", 1, point(1, 2), {1, 2, 1, 2}},
    {"empty point", 1, header(1) + kNowhere, kEmpty},
    {"type from the value", 255, point(1, 2), {1, 2, 1, 2}},
    {"only the low byte of the type counts", 255, Bytes{0, 1, 2, 3, 4} + at({1, 2}), {1, 2, 1, 2}},
    {"the key's type wins over the value's", 1, header(7) + at({1, 2}), {1, 2, 1, 2}},
    {"line string", 2, kLine, {2, -1, 5, 7}},
    {"line without points", 2, header(2) + count(0), kEmpty},
    {"points within the tolerance do not grow",
     2,
     header(2) + count(2) + at({1, 2, 1 - 1e-11, 2}),
     {1, 2, 1, 2}},
    {"nor do points just at it",
     2,
     header(2) + count(3) + at({0, 0, 1e-10, -1e-10, -1e-10, 1e-10}),
     {0, 0, 0, 0}},
    {"points beyond it do", 2, header(2) + count(2) + at({1, 2, 1 - 1e-9, 2}), {1 - 1e-9, 2, 1, 2}},
    {"curved string", 130, kLine, {2, -1, 5, 7}},
    {"polygon: the first ring decides",
     3,
     header(3) + count(2) + count(3) + at({0, 0, 0, 1, 1, 0}) + count(2) + at({-9, -9, 9, 9}),
     {0, 0, 1, 1}},
    {"polygon with an empty first ring", 3, header(3) + count(2) + count(0) + count(1) + at({4, 4}),
     kEmpty},
    {"polygon without rings", 3, header(3) + count(0), kEmpty},
    {"multi-point", 4, header(4) + count(2) + point(1, 2) + point(3, -4), {1, -4, 3, 2}},
    {"multi-line string", 5, header(5) + count(2) + kLine + kLine, {2, -1, 5, 7}},
    {"multi-polygon", 6, header(6) + count(1) + kSquare, {0, 0, 2, 2}},
    {"members of types 5 and 6 are read by the type of the whole",
     5,
     header(5) + count(1) + header(9) + count(1) + at({6, 6}),
     {6, 6, 6, 6}},
    {"collection",
     7,
     header(7) + count(4) + point(9, 9) + kLine + (header(7) + count(1) + kSquare) +
         (header(7) + count(0)),
     {0, -1, 9, 9}},
    {"empty collection", 7, header(7) + count(0), kEmpty},
    {"collections in collections", 7, nested(20), {3, 4, 3, 4}},
    {"circle", 129, header(129) + at({1, 2, 3}), {-2, -1, 4, 5}},
    {"circle of no size", 129, header(129) + at({1, 2, 0}), {1, 2, 1, 2}},
    {"circle with a negative radius", 129, header(129) + at({1, 2, -1}), kEmpty},
    {"circle around nothing", 129, header(129) + kNowhere + at({5}), kEmpty},
    {"unknown types", 8, header(8), kEmpty},
    {"unknown types", 254, header(254) + at({1}), kEmpty},
};

TEST(GeometryEnvelopes, AreReadFromEveryType) {
    for (const EnvelopeCase& c : kReadable) {
        SCOPED_TRACE(c.name);
        Envelope envelope = {};
        std::uint32_t position = 0;
        const auto length = static_cast<std::uint32_t>(c.value.size());
        ASSERT_TRUE(geometryEnvelope(c.type, c.value.data(), length, position, envelope));
        EXPECT_EQ(position, c.type == 254 ? 5 : length) << "an unknown type has no body";
        EXPECT_EQ(bytesOf(envelope), bytesOf(c.envelope));
    }
}

TEST(GeometryEnvelopes, ValuesCutAtAnyByteAreUnreadable) {
    for (const EnvelopeCase& c : kReadable) {
        for (std::size_t length = 0; length < c.value.size(); ++length) {
            if (c.type == 254 && length >= 5) continue;
            // Memory of just this size, so that the address sanitizer sees a step beyond it.
            const std::unique_ptr<Byte[]> cut(new Byte[length]);
            std::copy_n(c.value.begin(), length, cut.get());
            Envelope envelope = {};
            std::uint32_t position = 0;
            EXPECT_FALSE(geometryEnvelope(c.type, cut.get(), static_cast<std::uint32_t>(length),
                                          position, envelope))
                << c.name << " cut to " << length;
        }
    }
}

TEST(GeometryEnvelopes, NestsAreReadAsDeepAsAValueCanHoldThem) {
    const Bytes deepest = nested(3638);
    ASSERT_EQ(deepest.size(), 32763U);
    Envelope envelope = {};
    std::uint32_t position = 0;
    ASSERT_TRUE(geometryEnvelope(255, deepest.data(), 32763, position, envelope));
    EXPECT_EQ(bytesOf(envelope), bytesOf(Envelope{3, 4, 3, 4}));
}

TEST(GeometryEnvelopes, CountsThatTheBytesCannotHoldAreUnreadable) {
    const Bytes unreadable[] = {
        header(2) + count(0xffffffff) + at({1, 2}),
        header(3) + count(0x40000001) + count(0),
        header(4) + count(0x0c30c30d) + point(1, 2),
        header(5) + count(0x20000000) + kLine,
        header(6) + count(3) + kSquare,
        header(7) + count(0x33333334) + point(1, 2),
    };
    for (const Bytes& value : unreadable) {
        SCOPED_TRACE(&value - unreadable);
        Envelope envelope = {};
        std::uint32_t position = 0;
        EXPECT_FALSE(geometryEnvelope(255, value.data(), static_cast<std::uint32_t>(value.size()),
                                      position, envelope));
    }
}

TEST(GeometryEnvelopes, CompareByTheLowerLeftCornerFirst) {
    constexpr double kNan = std::numeric_limits<double>::quiet_NaN();
    struct Case {
        Envelope left, right;
        int order;
    };
    const Case envelopes[] = {
        {{1, 2, 3, 4}, {1, 2, 3, 4}, 0},
        {{1, 2, 3, 4}, {1 + 1e-11, 2 - 1e-11, 3, 4 + 1e-11}, 0},
        {{0, 0, 0, 0}, {1e-10, -1e-10, 1e-10, -1e-10}, 0},  // just at the tolerance
        {{1, 2, 3, 4}, {1 + 1e-9, 0, 0, 0}, -1},
        {{1, 2, 9, 9}, {1, 3, 0, 0}, -1},
        {{1, 2, 3, 4}, {1, 2, 5, 0}, -1},
        {{1, 2, 3, 4}, {1, 2, 3, 5}, -1},
        {{kNan, 2, 3, 4}, {1, 2, 3, 4}, 0},
        {{kNan, 2, 3, 4}, {1, 3, 3, 4}, -1},
        {kEmpty, {1e300, 0, 1e300, 0}, 1},
        {kEmpty, kEmpty, 0},
    };
    for (const Case& c : envelopes) {
        SCOPED_TRACE(&c - envelopes);
        EXPECT_EQ(compareEnvelopes(c.left, c.right), c.order);
        EXPECT_EQ(compareEnvelopes(c.right, c.left), -c.order);
    }
}

Bytes stored(const Bytes& value) {
    return prefixed(std::string(value.begin(), value.end()));
}

TEST(GeometryKeys, OrderRecordsAndUnreadableValuesRaise181AndTie) {
    KeyCases cases;
    const auto key = [](DataType type, Byte geometryType, Byte extraBits) {
        KeyDescriptor descriptor = ascendingKey(type, 0, 100);
        descriptor.geometryType = geometryType;
        descriptor.kindFlags |= extraBits;
        return descriptor;
    };
    struct Case {
        Byte geometryType, extraBits;
        Bytes left, right;
        Verdict ascending;
        ErrorCode errorCode;
    };
    const ErrorCode good = ErrorCode::kSuccess;
    const ErrorCode unreadable = ErrorCode::kGeometryUnreadable;
    const Bytes box = at({1, 2, 3, 4});
    const Case keys[] = {
        {1, 0, stored(point(1, 2)), stored(point(1, 3)), Verdict::kLeftFirst, good},
        {1, 0, stored(point(1, 2)), stored(point(1 + 1e-11, 2)), Verdict::kTie, good},
        {255, 0, stored(kLine), stored(kSquare), Verdict::kRightFirst, good},
        {255, 0, stored(point(1, 2)), stored({}), Verdict::kTie, unreadable},
        {255, 0, prefixed(-21, ""), stored(point(1, 2)), Verdict::kTie, unreadable},
        {2, 0, stored(kLine), stored(point(0.1, 2)), Verdict::kTie, unreadable},
        {255, 0x80, stored(box), stored(at({1, 2, 3, 5})), Verdict::kLeftFirst, good},
        {1, 0x80, stored(box), stored(Bytes(31, 0)), Verdict::kTie, unreadable},
        {1, 0x80, stored(box + Bytes{0}), stored(box), Verdict::kTie, unreadable},
        {0, 0, stored(point(1, 2)), stored(point(-1, 2)), Verdict::kLeftFirst,
         good},  // no geometry
    };
    for (const DataType type : {DataType::kWeightedString, DataType::kString}) {
        for (const Case& c : keys) {
            SCOPED_TRACE(&c - keys);
            cases.setKeys({key(type, c.geometryType, c.extraBits)});
            EXPECT_EQ(cases.order(c.left, c.right), c.ascending);
            EXPECT_EQ(cases.job().errorCode, c.errorCode);
            EXPECT_EQ(cases.difference() == Difference::kSame, c.ascending == Verdict::kTie);
            EXPECT_EQ(cases.job().errorCode, c.errorCode);
            KeyDescriptor descending = key(type, c.geometryType, c.extraBits);
            descending.kindFlags &= 0xe0;
            cases.setKeys({descending});
            EXPECT_EQ(cases.order(c.right, c.left), c.ascending);
        }
    }
}

TEST(GeometryKeys, LengthsAboveTheFieldsStopBeforeTheGeometryIsRead) {
    KeyCases cases;
    KeyDescriptor key = ascendingKey(DataType::kString, 0, 20);
    key.geometryType = kGeometryTypeOfValue;
    cases.setKeys({key});
    cases.order(stored(point(1, 2)), stored(point(1, 2)));
    EXPECT_EQ(cases.job().errorCode, ErrorCode::kValueTooLong);
}

}  // namespace
}  // namespace tvsort::test
