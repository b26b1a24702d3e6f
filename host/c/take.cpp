#include <atomic>
#include <thread>
#include <vector>

#include "host/c/handle.h"
#include "protocol/bytes.h"

using namespace tvsort;

namespace {

// So many rows ahead memory is asked for, which takes about as long as copying them.
constexpr std::size_t kRowsAhead = 16;
constexpr std::size_t kLineBytes = 64;
// A thread has to be worth its start.
constexpr std::size_t kRowsPerThreadMin = 32768;

struct Rows {
    const Byte* source;
    std::ptrdiff_t stride;
    std::int64_t rowCount;
    std::size_t rowBytes;
};

// True when all numbers were below the row count.
template <typename Copy>
bool takeEach(const Rows& rows, const std::int64_t* numbers, std::size_t count, Byte* target,
              Copy&& copy) {
    const auto rowCount = static_cast<std::uint64_t>(rows.rowCount);
    for (std::size_t i = 0; i < count; ++i) {
        if (i + kRowsAhead < count &&
            static_cast<std::uint64_t>(numbers[i + kRowsAhead]) < rowCount) {
            const Byte* const ahead = rows.source + numbers[i + kRowsAhead] * rows.stride;
            for (std::size_t at = 0; at < rows.rowBytes; at += kLineBytes)
                __builtin_prefetch(ahead + at);
        }
        if (static_cast<std::uint64_t>(numbers[i]) >= rowCount) return false;
        copy(target, rows.source + numbers[i] * rows.stride);
        target += rows.rowBytes;
    }
    return true;
}

bool takeSome(const Rows& rows, const std::int64_t* numbers, std::size_t count, Byte* target) {
    const auto fixed = [&](auto bytes) {
        return takeEach(rows, numbers, count, target, [](Byte* to, const Byte* from) {
            std::memcpy(to, from, decltype(bytes)::value);
        });
    };
    switch (rows.rowBytes) {
        case 4:
            return fixed(std::integral_constant<std::size_t, 4>());
        case 8:
            return fixed(std::integral_constant<std::size_t, 8>());
        case 16:
            return fixed(std::integral_constant<std::size_t, 16>());
        case 32:
            return fixed(std::integral_constant<std::size_t, 32>());
        default:
            return takeEach(rows, numbers, count, target, [&](Byte* to, const Byte* from) {
                std::memcpy(to, from, rows.rowBytes);
            });
    }
}

bool takeAll(const Rows& rows, const std::int64_t* numbers, std::size_t count, Byte* target,
             std::size_t threadsMax) {
    const std::size_t parts = std::clamp<std::size_t>(count / kRowsPerThreadMin, 1, threadsMax);
    std::atomic<bool> inside = true;
    const auto part = [&](std::size_t index) {
        const std::size_t first = count * index / parts;
        const std::size_t end = count * (index + 1) / parts;
        if (!takeSome(rows, numbers + first, end - first, target + first * rows.rowBytes)) {
            inside = false;
        }
    };
    {
        std::vector<std::jthread> threads;
        for (std::size_t i = 1; i < parts; ++i)
            threads.emplace_back(part, i);
        part(0);
    }
    return inside;
}

}  // namespace

tvsort_code tvsort_take(const void* source, ptrdiff_t source_stride, int64_t row_count,
                        size_t row_bytes, const int64_t* numbers, size_t number_count, void* target,
                        int32_t threads) {
    struct Call {
        capi::Outcome outcome;
    } call;
    return capi::guarded(&call, [&] {
        if (number_count == 0) return;
        capi::need(source, "source");
        capi::need(numbers, "numbers");
        capi::need(target, "target");
        const Rows rows = {static_cast<const Byte*>(source), source_stride, row_count, row_bytes};
        if (row_count < 0 || threads < 0 ||
            !takeAll(rows, numbers, number_count, static_cast<Byte*>(target),
                     static_cast<std::size_t>(std::max(threads, 1)))) {
            throw host::badUse("a row number lies outside of the rows");
        }
    });
}
