#include "process/keys/geometry_envelope.h"

#include <algorithm>
#include <limits>

namespace tvsort {

namespace {

constexpr double kTolerance = 1e-10;
constexpr double kLargest = std::numeric_limits<double>::max();
constexpr Envelope kEmptyEnvelope = {kLargest, kLargest, -kLargest, -kLargest};

constexpr std::uint32_t kHeaderBytes = 5;
constexpr std::uint32_t kTypeOffset = 1;
constexpr std::uint32_t kCountBytes = 4;
constexpr std::uint32_t kPointBytes = 16;
constexpr std::uint32_t kCircleBytes = 24;
// The least that a member of each kind of geometry takes; a count that promises more members than
// the remaining bytes can hold fails before the first is read.
constexpr std::uint32_t kRingBytesMin = kCountBytes;
constexpr std::uint32_t kMemberBytesMin = kHeaderBytes + kCountBytes;

enum GeometryType : std::uint8_t {
    kPoint = 1,
    kLineString = 2,
    kPolygon = 3,
    kMultiPoint = 4,
    kMultiLineString = 5,
    kMultiPolygon = 6,
    kCollection = 7,
    kCircle = 129,
    kCurvedString = 130,
};

// The bytes of a value that have not been read yet.
struct Reader {
    const Byte* next;
    std::uint32_t remaining;
};

const Byte* take(Reader& reader, std::uint32_t byteCount) {
    if (byteCount > reader.remaining) return nullptr;
    const Byte* const taken = reader.next;
    reader.next += byteCount;
    reader.remaining -= byteCount;
    return taken;
}

// A count of members that take at least `memberBytesMin` bytes each.
bool takeCount(Reader& reader, std::uint32_t memberBytesMin, std::uint32_t& count) {
    const Byte* const word = take(reader, kCountBytes);
    if (word == nullptr) return false;
    count = loadOnce<std::uint32_t>(word);
    return count <= reader.remaining / memberBytesMin;
}

void growByMinimum(Envelope& envelope, double x, double y) {
    if (envelope.minX - x > kTolerance) envelope.minX = x;
    if (envelope.minY - y > kTolerance) envelope.minY = y;
}

void growByMaximum(Envelope& envelope, double x, double y) {
    if (x - envelope.maxX > kTolerance) envelope.maxX = x;
    if (y - envelope.maxY > kTolerance) envelope.maxY = y;
}

void growByEnvelope(Envelope& envelope, const Envelope& member) {
    growByMinimum(envelope, member.minX, member.minY);
    growByMaximum(envelope, member.maxX, member.maxY);
}

void growByPoint(Envelope& envelope, const Byte* point) {
    const double x = loadAs<double>(point);
    const double y = loadAs<double>(point + 8);
    growByMinimum(envelope, x, y);
    growByMaximum(envelope, x, y);
}

bool isEmptyPoint(const Byte* point) {
    return std::all_of(point, point + kPointBytes, [](Byte byte) { return byte == 0xff; });
}

// The bodies: each starts behind the header with `envelope` empty, and fails at the value's end.

bool readPoint(Reader& reader, Envelope& envelope) {
    const Byte* const point = take(reader, kPointBytes);
    if (point == nullptr) return false;
    if (isEmptyPoint(point)) return true;
    const double x = loadAs<double>(point);
    const double y = loadAs<double>(point + 8);
    envelope = {x, y, x, y};
    return true;
}

bool readCircle(Reader& reader, Envelope& envelope) {
    const Byte* const circle = take(reader, kCircleBytes);
    if (circle == nullptr) return false;
    const double radius = loadAs<double>(circle + kPointBytes);
    if (isEmptyPoint(circle) || radius < 0) return true;
    const double x = loadAs<double>(circle);
    const double y = loadAs<double>(circle + 8);
    envelope = {x - radius, y - radius, x + radius, y + radius};
    return true;
}

// A counted run of points, each behind `headerBytes` of its own.
bool readPoints(Reader& reader, std::uint32_t headerBytes, Envelope& envelope) {
    const std::uint32_t stride = headerBytes + kPointBytes;
    std::uint32_t count = 0;
    if (!takeCount(reader, stride, count)) return false;
    const Byte* point = take(reader, count * stride) + headerBytes;
    for (std::uint32_t i = 0; i < count; ++i, point += stride)
        growByPoint(envelope, point);
    return true;
}

bool readPolygon(Reader& reader, Envelope& envelope) {
    std::uint32_t ringCount = 0;
    if (!takeCount(reader, kRingBytesMin, ringCount)) return false;
    for (std::uint32_t ring = 0; ring < ringCount; ++ring) {
        Envelope hole = kEmptyEnvelope;
        if (!readPoints(reader, 0, ring == 0 ? envelope : hole)) return false;
    }
    return true;
}

// The members of types 5 and 6: all of one kind, whatever their own headers say.
template <typename ReadMember>
bool readMembers(Reader& reader, Envelope& envelope, ReadMember readMember) {
    std::uint32_t count = 0;
    if (!takeCount(reader, kMemberBytesMin, count)) return false;
    for (std::uint32_t i = 0; i < count; ++i) {
        Envelope member = kEmptyEnvelope;
        if (take(reader, kHeaderBytes) == nullptr || !readMember(reader, member)) return false;
        growByEnvelope(envelope, member);
    }
    return true;
}

bool readLineString(Reader& reader, Envelope& envelope) {
    return readPoints(reader, 0, envelope);
}

// The body of every type but a collection's.
bool readBody(std::uint8_t type, Reader& reader, Envelope& envelope) {
    switch (type) {
        case kPoint:
            return readPoint(reader, envelope);
        case kLineString:
        case kCurvedString:
            return readLineString(reader, envelope);
        case kPolygon:
            return readPolygon(reader, envelope);
        case kMultiPoint:
            return readPoints(reader, kHeaderBytes, envelope);
        case kMultiLineString:
            return readMembers(reader, envelope, readLineString);
        case kMultiPolygon:
            return readMembers(reader, envelope, readPolygon);
        case kCircle:
            return readCircle(reader, envelope);
        default:
            return true;
    }
}

// A collection whose members are being read.
struct OpenCollection {
    std::uint32_t membersLeft;
    Envelope envelope;
};

// Those that are open, from the outermost: static, because deep nesting would take 145 KB of stack.
OpenCollection open[kCollectionDepthMax];

// The header and, but for a collection, the body of the next geometry. `type` is the one that the
// value carries when it comes as kGeometryTypeOfValue.
bool readSimple(Reader& reader, std::uint8_t& type, Envelope& envelope) {
    const Byte* const header = take(reader, kHeaderBytes);
    if (header == nullptr) return false;
    if (type == kGeometryTypeOfValue) type = loadOnce<Byte>(header + kTypeOffset);
    envelope = kEmptyEnvelope;
    return type == kCollection || readBody(type, reader, envelope);
}

// The collection's members, and theirs, depth first; what is open stands on a stack.
bool readCollection(Reader& reader, Envelope& envelope) {
    int depth = 0;
    std::uint8_t type = kCollection;
    for (;;) {
        if (type == kCollection) {
            if (depth == kCollectionDepthMax) return false;
            std::uint32_t count = 0;
            if (!takeCount(reader, kHeaderBytes, count)) return false;
            open[depth++] = {count, kEmptyEnvelope};
        } else {
            growByEnvelope(open[depth - 1].envelope, envelope);
        }
        // Every collection whose last member has been read becomes a member itself.
        while (open[depth - 1].membersLeft == 0) {
            envelope = open[--depth].envelope;
            if (depth == 0) return true;
            growByEnvelope(open[depth - 1].envelope, envelope);
        }
        open[depth - 1].membersLeft -= 1;
        type = kGeometryTypeOfValue;
        if (!readSimple(reader, type, envelope)) return false;
    }
}

bool envelopeOfValue(std::uint8_t geometryType, bool storedEnvelope, const Byte* value,
                     std::int32_t length, Envelope& envelope) {
    if (storedEnvelope) {
        if (length != static_cast<std::int32_t>(sizeof(Envelope))) return false;
        envelope = loadAs<Envelope>(value);
        return true;
    }
    std::uint32_t position = 0;
    return length > 0 && geometryEnvelope(geometryType, value, static_cast<std::uint32_t>(length),
                                          position, envelope);
}

// -1, 0 or 1 for one corner.
int compareCorners(double leftX, double leftY, double rightX, double rightY) {
    if (leftX - rightX > kTolerance) return 1;
    if (rightX - leftX > kTolerance) return -1;
    if (leftY - rightY > kTolerance) return 1;
    if (rightY - leftY > kTolerance) return -1;
    return 0;
}

}  // namespace

bool geometryEnvelope(std::uint8_t type, const Byte* value, std::uint32_t length,
                      std::uint32_t& position, Envelope& envelope) {
    Reader reader = {value + position, length - position};
    if (!readSimple(reader, type, envelope)) return false;
    if (type == kCollection && !readCollection(reader, envelope)) return false;
    position = length - reader.remaining;
    return true;
}

int compareEnvelopes(const Envelope& left, const Envelope& right) {
    const int lowerLeft = compareCorners(left.minX, left.minY, right.minX, right.minY);
    if (lowerLeft != 0) return lowerLeft;
    return compareCorners(left.maxX, left.maxY, right.maxX, right.maxY);
}

bool compareGeometryKeys(std::uint8_t geometryType, bool storedEnvelope, const Byte* left,
                         std::int32_t leftLength, const Byte* right, std::int32_t rightLength,
                         int& order) {
    Envelope leftEnvelope;
    Envelope rightEnvelope;
    if (!envelopeOfValue(geometryType, storedEnvelope, left, leftLength, leftEnvelope) ||
        !envelopeOfValue(geometryType, storedEnvelope, right, rightLength, rightEnvelope)) {
        return false;
    }
    order = compareEnvelopes(leftEnvelope, rightEnvelope);
    return true;
}

}  // namespace tvsort
