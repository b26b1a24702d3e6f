#include <limits>
#include <new>

#include "host/c/server_handle.h"

using namespace tvsort;

namespace {

template <typename Number>
Number within(std::int64_t value, std::int64_t least, const char* name) {
    constexpr std::int64_t kMost = std::numeric_limits<Number>::max();
    if (value < least || value > kMost) {
        throw host::badUse(std::string(name) + " is " + std::to_string(value) + "; use " +
                           std::to_string(least) + " to " + std::to_string(kMost));
    }
    return static_cast<Number>(value);
}

KeyDescriptor descriptorOf(const tvsort_key& key) {
    constexpr std::uint32_t kFlags = TVSORT_DESCENDING | TVSORT_NULLS_FIRST | TVSORT_NULLS_LAST;
    if ((key.flags & ~kFlags) != 0) {
        throw host::badUse("tvsort_key.flags has bits that mean nothing for a key");
    }
    const bool descending = (key.flags & TVSORT_DESCENDING) != 0;
    const auto type = within<std::uint8_t>(key.type, 1, "tvsort_key.type");
    const auto offset = within<std::uint16_t>(key.field_offset, 0, "tvsort_key.field_offset");
    const auto length = within<std::uint16_t>(key.field_length, 0, "tvsort_key.field_length");
    KeyDescriptor made = (descending ? host::descendingKey : host::ascendingKey)(
        static_cast<DataType>(type), offset, length);
    if ((key.flags & TVSORT_NULLS_FIRST) != 0) made.kindFlags |= kNullsFirstBit;
    if ((key.flags & TVSORT_NULLS_LAST) != 0) made.kindFlags |= kNullsLastBit;
    if (key.is_envelope != 0) made.kindFlags |= kEnvelopeBit;
    made.groupKey = within<std::uint8_t>(key.group, 0, "tvsort_key.group");
    made.geometryType = within<std::uint8_t>(key.geometry_type, 0, "tvsort_key.geometry_type");
    made.weightTableId = within<std::uint16_t>(key.weights, 0, "tvsort_key.weights");
    return made;
}

}  // namespace

tvsort_code tvsort_request_create(tvsort_request** request) {
    if (request == nullptr) return TVSORT_BAD_USE;
    *request = new (std::nothrow) tvsort_request;
    return *request == nullptr ? TVSORT_NO_MEMORY : TVSORT_OK;
}

void tvsort_request_destroy(tvsort_request* request) {
    delete request;
}

const char* tvsort_request_text(const tvsort_request* request) {
    return request == nullptr ? capi::kNoHandle : request->outcome.words();
}

tvsort_code tvsort_request_add_key(tvsort_request* request, const tvsort_key* key) {
    return capi::guarded(
        request, [&] { request->builder.addKey(descriptorOf(capi::taken(key, "tvsort_key"))); });
}

tvsort_code tvsort_request_set_nulls(tvsort_request* request, int32_t field_offset) {
    return capi::guarded(request, [&] {
        request->builder.setNullIndicators(within<std::uint16_t>(field_offset, 0, "field_offset"));
    });
}

tvsort_code tvsort_request_set_mode(tvsort_request* request, int32_t mode) {
    return capi::guarded(request, [&] {
        request->builder.setMode(static_cast<SortMode>(within<std::uint8_t>(mode, 0, "mode")));
    });
}

tvsort_code tvsort_request_set_limit(tvsort_request* request, int64_t limit) {
    return capi::guarded(
        request, [&] { request->builder.setLimit(within<std::int32_t>(limit, 0, "limit")); });
}

tvsort_code tvsort_request_add_weights(tvsort_request* request, int32_t identifier,
                                       const uint8_t* weights) {
    return capi::guarded(request, [&] {
        capi::need(weights, "weights");
        ByteWeightTable table = {};
        table.identifier = within<std::uint16_t>(identifier, 0, "identifier");
        table.applies = 1;
        std::memcpy(table.weights, weights, sizeof table.weights);
        request->builder.addWeightTable(table);
    });
}
