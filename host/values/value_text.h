// Key values of every type from text, one after the other, for text lines and columns alike. How a
// text is read, the kind of its format says (host/values/value_format.h):
//
//     integers, byte        digits with an optional sign
//     float, double         1.5, -2e10, inf, nan
//     decimal:SCALE         -12.50; SCALE digits behind the point (host/values/decimal_text.h)
//     strings, bytes        the text's bytes
//     UCS-2                 UTF-8 text (host/values/ucs2_text.h)
//     wkt, wkt-envelope     a geometry in well-known text (host/values/geometry_text.h)

#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "host/host_error.h"
#include "host/values/value_format.h"
#include "protocol/bytes.h"

namespace tvsort::host {

class GeometryText;

// A text as messages show it: cut where it is long, and without what a terminal would obey.
std::string shownText(std::string_view text);

// `"<text>" is no <wanted>: <reason>`, as bad use; a long text is cut. Where the text stands, its
// file and line, is for the caller to add.
HostError badValue(std::string_view text, const std::string& wanted, const std::string& reason);

class ValueEncoder {
  public:
    explicit ValueEncoder(const ValueFormat& format);
    ~ValueEncoder();

    const ValueFormat& format() const { return format_; }

    // The value's bytes without a length prefix, good until the next call. A text that is no value
    // of the format is bad use.
    const std::vector<Byte>& encode(std::string_view text);

  private:
    void append(std::string_view text);

    ValueFormat format_;
    std::vector<Byte> bytes_;
    std::unique_ptr<GeometryText> geometryText_;
};

}  // namespace tvsort::host
