// In place of host/values/geometry_text.cpp where GEOS is not installed.

#include "host/values/geometry_text.h"

#include "host/host_error.h"

namespace tvsort::host {

struct GeometryText::Parts {};

GeometryText::GeometryText() {
    throw badUse(
        "geometries cannot be read: tvsort was built without GEOS; install libgeos-dev, configure "
        "and build again");
}

GeometryText::~GeometryText() = default;

void GeometryText::appendBinary(std::string_view, std::vector<Byte>&) {}

void GeometryText::appendEnvelope(std::string_view, std::vector<Byte>&) {}

}  // namespace tvsort::host
