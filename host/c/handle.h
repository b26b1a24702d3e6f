// What every handle of the C interface has: the outcome of its last call, and the border that no
// exception crosses.
//
//     tvsort_code tvsort_x_do(tvsort_x* x, const tvsort_x_options* options) {
//         return guarded(x, [&] { x->work.act(taken(options, "tvsort_x_options")); });
//     }
//
// Inside, failures are exceptions of the host library; here, and nowhere else, they become codes
// and words. A call that waits or works long heeds whoever wants to cancel it (`Heed`).

#pragma once

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstring>
#include <exception>
#include <memory>
#include <string>
#include <string_view>

#include "host/host_error.h"
#include "include/tvsort.h"

namespace tvsort::capi {

class Outcome {
  public:
    void clear();
    // Takes the exception that is being handled; answers its code.
    tvsort_code take() noexcept;
    const char* words() const { return fixedWords_ != nullptr ? fixedWords_ : words_.c_str(); }
    const tvsort_failure& failure() const { return failure_; }

  private:
    std::string words_;
    const char* fixedWords_ = nullptr;  // where there is no memory for others
    tvsort_failure failure_ = {};
};

// Thrown to leave a call that somebody has cancelled.
class Cancelled : public std::exception {};

inline constexpr char kNoHandle[] = "no handle was given";

// `handle` has an `outcome`.
template <typename Handle, typename Act>
tvsort_code guarded(Handle* handle, Act&& act) noexcept {
    if (handle == nullptr) return TVSORT_BAD_USE;
    try {
        handle->outcome.clear();
        act();
        return TVSORT_OK;
    } catch (...) {
        return handle->outcome.take();
    }
}

// The same for a call that another thread may be in the middle of, which then is left alone, its
// words included. `handle` has an atomic flag `busy` besides.
template <typename Handle, typename Act>
tvsort_code guardedAlone(Handle* handle, Act&& act) noexcept {
    if (handle == nullptr || handle->busy.exchange(true)) return TVSORT_BAD_USE;
    const tvsort_code code = guarded(handle, act);
    handle->busy = false;
    return code;
}

// Throws bad use where `pointer`, which `name` names, is null.
void need(const void* pointer, const char* name);

// "<name>.struct_size is 3; set it to sizeof(<name>)".
[[noreturn]] void throwStructSize(const char* name, std::size_t given);
// No struct of this interface will ever be larger; what is, was never set.
inline constexpr std::size_t kStructBytesMax = 4096;

// Bytes of a struct as its first callers were compiled.
template <typename Struct>
inline constexpr std::size_t kFirstBytes = sizeof(Struct);
template <>
inline constexpr std::size_t kFirstBytes<tvsort_server_options> = offsetof(tvsort_server_options,
                                                                           huge_pages);

// The caller's struct as this library knows it; what the caller does not know is 0.
template <typename Struct>
Struct taken(const Struct* given, const char* name) {
    need(given, name);
    const std::size_t size = given->struct_size;
    if (size < kFirstBytes<Struct> || size > kStructBytesMax) throwStructSize(name, size);
    const std::size_t known = std::min(size, sizeof(Struct));
    const auto* const bytes = reinterpret_cast<const unsigned char*>(given);
    if (!std::all_of(bytes + known, bytes + size, [](auto byte) { return byte == 0; })) {
        throw host::badUse(std::string(name) +
                           " sets what this version of the library does not know; leave it 0, or "
                           "install a newer version");
    }
    Struct made = {};
    std::memcpy(&made, given, known);
    return made;
}

// Fills the caller's struct, as far as the caller knows it.
template <typename Struct>
void give(Struct* target, Struct value, const char* name) {
    need(target, name);
    const std::size_t size = target->struct_size;
    if (size < sizeof(Struct) || size > kStructBytesMax) throwStructSize(name, size);
    value.struct_size = size;
    std::memcpy(target, &value, sizeof value);
}

// Answers a struct about `handle`, whose own words stay as they are.
template <typename Handle, typename Struct, typename Make>
tvsort_code giveOf(const Handle* handle, Struct* target, const char* name, Make&& make) noexcept {
    if (handle == nullptr) return TVSORT_BAD_USE;
    try {
        give(target, make(), name);
        return TVSORT_OK;
    } catch (...) {
        return TVSORT_BAD_USE;
    }
}

// What the work of one thread heeds: whether it is cancelled, and a watch to call now and then.
struct Heed {
    const std::atomic<bool>* cancelled = nullptr;
    tvsort_watch watch = nullptr;
    void* context = nullptr;
    std::int32_t stage = 0;
    std::int64_t done = 0;
    std::chrono::steady_clock::time_point next = {};

    // Throws Cancelled. Cheap enough for every block.
    void look();
};

// The waits of this thread heed it as long as the object lives (host::WhileWaiting: heedWaiting).
class HeedScope {
  public:
    explicit HeedScope(Heed& heed);
    ~HeedScope();
    HeedScope(const HeedScope&) = delete;
    HeedScope& operator=(const HeedScope&) = delete;

  private:
    Heed* outer_;
};
void heedWaiting();

}  // namespace tvsort::capi
