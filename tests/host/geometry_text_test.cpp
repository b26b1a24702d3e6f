// The envelopes that the process computes from well-known binary, beside GEOS's own.

#include "host/geometry_text.h"

#include <gtest/gtest.h>

#include <random>
#include <string>

#include "keys/geometry_envelope.h"

namespace tvsort::host {
namespace {

// Random well-known text of all types, empty ones and nested collections included.
class RandomGeometry {
  public:
    explicit RandomGeometry(unsigned seed) : random_(seed) {}

    std::string next(int depthMax) {
        switch (random_() % (depthMax > 0 ? 7 : 6)) {
            case 0:
                return "POINT " + orEmpty([this] { return "(" + point() + ")"; });
            case 1:
                return "LINESTRING " + line();
            case 2:
                return "POLYGON " + polygon();
            case 3:
                return "MULTIPOINT " + several([this] { return "(" + point() + ")"; });
            case 4:
                return "MULTILINESTRING " + several([this] { return line(); });
            case 5:
                return "MULTIPOLYGON " + several([this] { return polygon(); });
            default:
                return "GEOMETRYCOLLECTION " +
                       several([this, depthMax] { return next(depthMax - 1); });
        }
    }

  private:
    double coordinate() { return std::uniform_real_distribution<double>(-1000, 1000)(random_); }
    std::string point() {
        char text[80];
        std::snprintf(text, sizeof text, "%.17g %.17g", coordinate(), coordinate());
        return text;
    }
    template <typename Make>
    std::string orEmpty(Make make) {
        return random_() % 8 == 0 ? "EMPTY" : make();
    }
    template <typename Make>
    std::string several(Make make) {
        return orEmpty([&] {
            std::string text = "(" + make();
            for (unsigned more = random_() % 4; more > 0; --more)
                text += ", " + make();
            return text + ")";
        });
    }
    std::string line() {
        return orEmpty([this] {
            std::string text = "(" + point();
            for (auto more = random_() % 5 + 1; more > 0; --more)
                text += ", " + point();
            return text + ")";
        });
    }
    std::string ring() {
        const std::string first = point();
        return "(" + first + ", " + point() + ", " + point() + ", " + first + ")";
    }
    std::string polygon() {
        return orEmpty(
            [this] { return "(" + ring() + (random_() % 2 == 0 ? ", " + ring() : "") + ")"; });
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
