// The envelopes that the process computes from well-known binary, beside GEOS's own.

#include "host/values/geometry_text.h"

#include <gtest/gtest.h>

#include <random>
#include <string>

#include "process/keys/geometry_envelope.h"

namespace tvsort::host {
namespace {

// Random well-known text of all types, empty ones and nested collections included.
class RandomGeometry {
  public:
    explicit RandomGeometry(unsigned seed) : random_(seed) {}

    std::string next(int depthMax) {
        switch (random_() % (depthMax > 0 ? 7 : 6)) {
            case 0:
                return tagged("POINT",
                              orEmpty([this] { return listOf(1, [this] { return point(); }); }));
            case 1:
                return tagged("LINESTRING", line());
            case 2:
                return tagged("POLYGON", polygon());
            case 3:
                return tagged("MULTIPOINT",
                              several([this] { return listOf(1, [this] { return point(); }); }));
            case 4:
                return tagged("MULTILINESTRING", several([this] { return line(); }));
            case 5:
                return tagged("MULTIPOLYGON", several([this] { return polygon(); }));
            default:
                return tagged("GEOMETRYCOLLECTION", several([&] { return next(depthMax - 1); }));
        }
    }

  private:
    static std::string tagged(std::string type, const std::string& body) {
        return type.append(" ").append(body);
    }
    template <typename Make>
    static std::string listOf(std::size_t count, Make make) {
        std::string text = "(";
        for (; count > 1; --count)
            text.append(make()).append(", ");
        return text.append(make()).append(")");
    }
    template <typename Make>
    std::string orEmpty(Make make) {
        return random_() % 8 == 0 ? "EMPTY" : make();
    }
    template <typename Make>
    std::string several(Make make) {
        return orEmpty([&] { return listOf(random_() % 4 + 1, make); });
    }

    double coordinate() { return std::uniform_real_distribution<double>(-1000, 1000)(random_); }
    std::string point() {
        char text[80];
        std::snprintf(text, sizeof text, "%.17g %.17g", coordinate(), coordinate());
        return text;
    }
    std::string line() {
        return orEmpty([this] { return listOf(random_() % 5 + 2, [this] { return point(); }); });
    }
    // Three points and the first one again.
    std::string ring() {
        const std::string first = point();
        int number = 0;
        return listOf(4, [&] { return number++ % 3 == 0 ? first : point(); });
    }
    std::string polygon() {
        return orEmpty([this] { return listOf(random_() % 2 + 1, [this] { return ring(); }); });
    }

    std::mt19937 random_;
};

// Beyond the shell a hole shapes no envelope, in GEOS neither.
TEST(GeometryText, EnvelopesOfTheProcessAreThoseOfGeos) {
    constexpr unsigned kSeed = 20561;
    // An extreme moves only by more than this.
    constexpr double kTolerance = 1e-10;
    RandomGeometry geometries(kSeed);
    GeometryText reader;
    for (int i = 0; i < 800; ++i) {
        const std::string text = geometries.next(4);
        SCOPED_TRACE("seed " + std::to_string(kSeed) + ", " + text);
        std::vector<Byte> binary;
        std::vector<Byte> corners;
        reader.appendBinary(text, binary);
        reader.appendEnvelope(text, corners);
        const auto length = static_cast<std::uint32_t>(binary.size());
        Envelope computed = {};
        std::uint32_t position = 0;
        ASSERT_TRUE(
            geometryEnvelope(kGeometryTypeOfValue, binary.data(), length, position, computed));
        ASSERT_EQ(position, length);
        const auto expected = loadAs<Envelope>(corners.data());
        ASSERT_NEAR(computed.minX, expected.minX, kTolerance);
        ASSERT_NEAR(computed.minY, expected.minY, kTolerance);
        ASSERT_NEAR(computed.maxX, expected.maxX, kTolerance);
        ASSERT_NEAR(computed.maxY, expected.maxY, kTolerance);
    }
}

}  // namespace
}  // namespace tvsort::host
