// Geometries from text: well-known text (WKT) by GEOS, as the binary form that the sort process
// reads.
//
// It reads little-endian values of two dimensions, of types 1 to 7
// (process/keys/geometry_envelope.h), and knows an empty point by coordinates of all one bits,
// where other programs write any NaN. Further dimensions (Z, M) are left out; they have no part in
// the order.
//
// This header and its source are all that knows GEOS.

#pragma once

#include <memory>
#include <string_view>
#include <vector>

#include "protocol/bytes.h"

namespace tvsort::host {

class GeometryText {
  public:
    GeometryText();
    ~GeometryText();

    // Append the geometry in well-known binary, or its bounding box as the four doubles minX, minY,
    // maxX, maxY: (M, M, -M, -M) for an empty one, M being the largest double. A text that is no
    // WKT is bad use, and the error has GEOS's words.
    void appendBinary(std::string_view text, std::vector<Byte>& target);
    void appendEnvelope(std::string_view text, std::vector<Byte>& target);

  private:
    struct Parts;
    std::unique_ptr<Parts> parts_;
};

}  // namespace tvsort::host
