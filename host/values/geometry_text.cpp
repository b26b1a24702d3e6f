#include "host/values/geometry_text.h"

#include <geos_c.h>

#include <limits>
#include <string>

#include "host/values/value_text.h"

namespace tvsort::host {

namespace {

constexpr Byte kLittleEndian = 1;
constexpr std::uint32_t kPointType = 1;
constexpr std::size_t kPointBytes = 2 * sizeof(double);

template <typename Value>
void append(std::vector<Byte>& target, Value value) {
    target.resize(target.size() + sizeof value);
    storeAs(target.data() + target.size() - sizeof value, value);
}

void appendHeader(std::vector<Byte>& target, std::uint32_t type) {
    append(target, kLittleEndian);
    append(target, type);
}

// The type code of a geometry that is made of others; 0 for the ones that are not.
std::uint32_t compoundType(int geosType) {
    switch (geosType) {
        case GEOS_MULTIPOINT:
            return 4;
        case GEOS_MULTILINESTRING:
            return 5;
        case GEOS_MULTIPOLYGON:
            return 6;
        case GEOS_GEOMETRYCOLLECTION:
            return 7;
        default:
            return 0;
    }
}

void takeMessage(const char* message, void* words) {
    *static_cast<std::string*>(words) = message;
}

}  // namespace

struct GeometryText::Parts {
    struct Destroy {
        GEOSContextHandle_t context;
        void operator()(GEOSGeometry* geometry) const { GEOSGeom_destroy_r(context, geometry); }
    };
    using Geometry = std::unique_ptr<GEOSGeometry, Destroy>;

    Parts() {
        GEOSContext_setErrorMessageHandler_r(context, takeMessage, &words);
        GEOSWKBWriter_setByteOrder_r(context, writer, GEOS_WKB_NDR);
        GEOSWKBWriter_setOutputDimension_r(context, writer, 2);
    }
    ~Parts() {
        GEOSWKBWriter_destroy_r(context, writer);
        GEOSWKTReader_destroy_r(context, reader);
        GEOS_finish_r(context);
    }
    Parts(const Parts&) = delete;
    Parts& operator=(const Parts&) = delete;

    Geometry read(std::string_view text) {
        words = "it has a zero byte";
        const bool hasZero = text.find('\0') != std::string_view::npos;
        Geometry geometry(
            hasZero ? nullptr : GEOSWKTReader_read_r(context, reader, std::string(text).c_str()),
            Destroy{context});
        if (geometry == nullptr) throw badValue(text, "geometry", words);
        return geometry;
    }

    // GEOS writes what consists of points; how a compound and an empty point are written is said
    // here, since members may be empty points on every level.
    void appendGeometry(const GEOSGeometry* geometry, std::vector<Byte>& target) {
        const int type = GEOSGeomTypeId_r(context, geometry);
        const std::uint32_t compound = compoundType(type);
        if (compound != 0) {
            const int count = GEOSGetNumGeometries_r(context, geometry);
            appendHeader(target, compound);
            append(target, static_cast<std::uint32_t>(count));
            for (int i = 0; i < count; ++i) {
                appendGeometry(GEOSGetGeometryN_r(context, geometry, i), target);
            }
        } else if (type == GEOS_POINT && GEOSisEmpty_r(context, geometry) == 1) {
            appendHeader(target, kPointType);
            target.insert(target.end(), kPointBytes, Byte{0xff});
        } else {
            std::size_t size = 0;
            unsigned char* const bytes = GEOSWKBWriter_write_r(context, writer, geometry, &size);
            if (bytes == nullptr) throw std::bad_alloc();
            target.insert(target.end(), bytes, bytes + size);
            GEOSFree_r(context, bytes);
        }
    }

    std::string words;
    GEOSContextHandle_t context = GEOS_init_r();
    GEOSWKTReader* reader = GEOSWKTReader_create_r(context);
    GEOSWKBWriter* writer = GEOSWKBWriter_create_r(context);
};

GeometryText::GeometryText() : parts_(std::make_unique<Parts>()) {}

GeometryText::~GeometryText() = default;

void GeometryText::appendBinary(std::string_view text, std::vector<Byte>& target) {
    const Parts::Geometry geometry = parts_->read(text);
    parts_->appendGeometry(geometry.get(), target);
}

void GeometryText::appendEnvelope(std::string_view text, std::vector<Byte>& target) {
    const GEOSContextHandle_t context = parts_->context;
    const Parts::Geometry geometry = parts_->read(text);
    constexpr double kLargest = std::numeric_limits<double>::max();
    double corners[] = {kLargest, kLargest, -kLargest, -kLargest};
    if (GEOSisEmpty_r(context, geometry.get()) != 1) {
        GEOSGeom_getXMin_r(context, geometry.get(), &corners[0]);
        GEOSGeom_getYMin_r(context, geometry.get(), &corners[1]);
        GEOSGeom_getXMax_r(context, geometry.get(), &corners[2]);
        GEOSGeom_getYMax_r(context, geometry.get(), &corners[3]);
    }
    for (const double corner : corners)
        append(target, corner);
}

}  // namespace tvsort::host
