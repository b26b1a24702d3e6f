#include "host/c/handle.h"

#include <new>
#include <utility>

namespace tvsort::capi {

namespace {

thread_local Heed* heeded = nullptr;

constexpr std::chrono::milliseconds kWatchInterval{50};

tvsort_code codeOf(host::FailureKind kind) {
    switch (kind) {
        case host::FailureKind::kSystemCall:
            return TVSORT_SYSTEM;
        case host::FailureKind::kProcessDied:
            return TVSORT_DIED;
        case host::FailureKind::kTimedOut:
            return TVSORT_TIMED_OUT;
        case host::FailureKind::kAnsweredWithError:
            return TVSORT_ANSWERED;
        case host::FailureKind::kProtocolBroken:
            return TVSORT_PROTOCOL;
        case host::FailureKind::kBadUse:
            return TVSORT_BAD_USE;
    }
    return TVSORT_INTERNAL;
}

}  // namespace

void Outcome::clear() {
    words_.clear();
    fixedWords_ = nullptr;
    failure_ = {};
}

tvsort_code Outcome::take() noexcept {
    try {
        try {
            throw;
        } catch (const host::HostError& error) {
            words_ = error.what();
            failure_.answer_code = static_cast<std::int32_t>(error.errorCode());
            failure_.system_error = error.systemError();
            return codeOf(error.kind());
        } catch (const Cancelled&) {
            words_ = "the sort was cancelled";
            return TVSORT_CANCELLED;
        } catch (const std::bad_alloc&) {
            fixedWords_ = "there is no memory left in this program";
            return TVSORT_NO_MEMORY;
        } catch (const std::exception& error) {
            words_ = error.what();
            return TVSORT_INTERNAL;
        }
    } catch (...) {
        fixedWords_ = "there is no memory left for the words of a failure";
        return TVSORT_NO_MEMORY;
    }
}

void need(const void* pointer, const char* name) {
    if (pointer == nullptr) throw host::badUse(std::string(name) + " is null");
}

void throwStructSize(const char* name, std::size_t given) {
    throw host::badUse(std::string(name) + ".struct_size is " + std::to_string(given) +
                       "; set it to sizeof(" + name + ")");
}

void Heed::look() {
    if (cancelled != nullptr && *cancelled) throw Cancelled();
    if (watch == nullptr) return;
    const auto now = std::chrono::steady_clock::now();
    if (now < next) return;
    next = now + kWatchInterval;
    if (watch(context, stage, done) != 0) throw Cancelled();
}

HeedScope::HeedScope(Heed& heed) : outer_(std::exchange(heeded, &heed)) {}

HeedScope::~HeedScope() {
    heeded = outer_;
}

void heedWaiting() {
    if (heeded != nullptr) heeded->look();
}

}  // namespace tvsort::capi
