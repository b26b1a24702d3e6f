#include <dlfcn.h>

#include <filesystem>
#include <limits>
#include <new>

#include "host/c/server_handle.h"

namespace tvsort::capi {

namespace {

constexpr char kProcessName[] = "tvsort";
constexpr std::int64_t kMemoryBytesDefault = std::int64_t{64} << 20;
constexpr std::int32_t kBlockPagesMax = 16;
// So many blocks make a pool.
constexpr std::int64_t kBlocksWanted = 16;
constexpr std::int32_t kSlotsMax = 65535;

// Beside the library, as in a build, or in the bin folder of the library's prefix; else the name
// alone, which is looked up in PATH.
std::filesystem::path defaultProcessPath() {
    Dl_info own = {};
    if (dladdr(reinterpret_cast<const void*>(&tvsort_version), &own) != 0 &&
        own.dli_fname != nullptr) {
        std::error_code ignored;
        const auto folder = std::filesystem::weakly_canonical(own.dli_fname, ignored).parent_path();
        for (const char* const way : {"", "../bin", "../../bin"}) {
            const auto candidate = folder / way / kProcessName;
            if (std::filesystem::is_regular_file(candidate, ignored)) return candidate;
        }
    }
    return kProcessName;
}

host::Timeout timeoutOf(std::int32_t milliseconds, host::Timeout otherwise, const char* name) {
    if (milliseconds < 0) throw host::badUse(std::string(name) + " is negative; use 0 for none");
    return milliseconds == 0 ? otherwise : host::Timeout(milliseconds);
}

host::HugePages hugePagesOf(const tvsort_server_options& options) {
    switch (options.huge_pages) {
        case TVSORT_HUGE_PAGES_OFF:
            return host::HugePages::kOff;
        case TVSORT_HUGE_PAGES_TRY:
            return host::HugePages::kTry;
        case TVSORT_HUGE_PAGES_ON:
            return host::HugePages::kOn;
        default:
            throw host::badUse("there is no huge_pages " + std::to_string(options.huge_pages) +
                               "; use TVSORT_HUGE_PAGES_OFF, _TRY or _ON");
    }
}

std::int32_t blockPagesOf(const tvsort_server_options& options, std::int64_t pages) {
    if (options.block_pages < 0 || options.block_pages > kBlockPagesMax) {
        throw host::badUse("blocks of " + std::to_string(options.block_pages) +
                           " pages cannot be had; use 1 to 16");
    }
    if (options.block_pages > 0) return options.block_pages;
    std::int32_t blockPages = kBlockPagesMax;
    while (blockPages > 1 && pages / blockPages < kBlocksWanted)
        blockPages /= 2;
    return blockPages;
}

void setMemory(const tvsort_server_options& options, host::ServerOptions& target) {
    const std::int64_t bytes =
        options.memory_bytes == 0 ? kMemoryBytesDefault : options.memory_bytes;
    const std::int64_t pages = bytes / kPageBytes;
    if (bytes < 0) {
        throw host::badUse("a process cannot have " + std::to_string(bytes) + " bytes of memory");
    }
    target.pagesPerBlock = blockPagesOf(options, pages);
    // Too little or too much of it is refused where the slots are laid out.
    target.memoryPages = static_cast<std::int32_t>(
        std::min<std::int64_t>(pages, std::numeric_limits<std::int32_t>::max()));
}

host::ServerOptions serverOptions(const tvsort_server_options& options) {
    host::ServerOptions made;
    made.processPath =
        options.process_path == nullptr ? defaultProcessPath() : options.process_path;
    if (options.temp_directory != nullptr) made.tempDirectory = options.temp_directory;
    if (options.work_directory != nullptr) made.workDirectory = options.work_directory;
    if (options.slot_count < 0 || options.slot_count > kSlotsMax) {
        throw host::badUse(std::to_string(options.slot_count) +
                           " slots cannot be had; use 1 to 65535");
    }
    made.slotCount = options.slot_count == 0 ? 1 : options.slot_count;
    if (options.file_bytes_max < 0) {
        throw host::badUse("file_bytes_max is negative; use 0 for no limit");
    }
    if (options.file_bytes_max > 0) made.fileBytesMax = options.file_bytes_max;
    made.startTimeout = timeoutOf(options.start_timeout, made.startTimeout, "start_timeout");
    made.requestTimeout = timeoutOf(options.request_timeout, host::kNoTimeout, "request_timeout");
    made.hugePages = hugePagesOf(options);
    setMemory(options, made);
    made.whileWaiting = heedWaiting;
    // Threads of other languages come and go.
    made.endsWithStarter = false;
    return made;
}

void start(tvsort_server& handle, const tvsort_server_options& options) {
    if (handle.server != nullptr) {
        throw host::badUse("the server has been started; create another one");
    }
    handle.options = serverOptions(options);
    handle.collation.reset();
    if (options.collation != nullptr) {
        const auto temp = handle.options.tempDirectory.empty() ? host::defaultTempDirectory()
                                                               : handle.options.tempDirectory;
        handle.collation.emplace(temp, handle.options.instance, options.collation->file);
        handle.options.directoryPrefix = handle.collation->prefix();
    }
    auto server = std::make_unique<host::SortServer>(handle.options, host::Processes::kLeave);
    std::vector<std::unique_ptr<tvsort_slot>> slots;
    for (int number = 1; number <= handle.options.slotCount; ++number) {
        slots.push_back(std::make_unique<tvsort_slot>(handle, server->slot(number), handle.door));
        slots.back()->work.ensureStarted();
    }
    handle.server = std::move(server);
    handle.slots = std::move(slots);
}

}  // namespace

}  // namespace tvsort::capi

using namespace tvsort;

const char* tvsort_version(void) {
    return TVSORT_VERSION;
}

const char* tvsort_code_name(tvsort_code code) {
    switch (code) {
        case TVSORT_OK:
            return "success";
        case TVSORT_BAD_USE:
            return "bad use";
        case TVSORT_SYSTEM:
            return "system call failed";
        case TVSORT_DIED:
            return "process died";
        case TVSORT_TIMED_OUT:
            return "timed out";
        case TVSORT_ANSWERED:
            return "answered with error";
        case TVSORT_PROTOCOL:
            return "protocol broken";
        case TVSORT_CANCELLED:
            return "cancelled";
        case TVSORT_NO_MEMORY:
            return "no memory";
        case TVSORT_INTERNAL:
            return "internal fault";
        default:
            return "unknown";
    }
}

tvsort_code tvsort_collation_create(const void* file, size_t file_bytes,
                                    tvsort_collation** collation, char* text, size_t text_bytes) {
    struct Words {
        capi::Outcome outcome;
    } words;
    const tvsort_code code = capi::guarded(&words, [&] {
        capi::need(file, "file");
        capi::need(collation, "collation");
        *collation = nullptr;
        const auto* const first = static_cast<const Byte*>(file);
        auto made = std::make_unique<tvsort_collation>();
        made->file.assign(first, first + file_bytes);
        const std::string fault = host::collationFileFault(made->file);
        if (!fault.empty()) throw host::badUse("this is no collation file: " + fault);
        *collation = made.release();
    });
    if (text != nullptr && text_bytes > 0) {
        const std::size_t length = std::min(std::strlen(words.outcome.words()), text_bytes - 1);
        std::memcpy(text, words.outcome.words(), length);
        text[length] = '\0';
    }
    return code;
}

void tvsort_collation_destroy(tvsort_collation* collation) {
    delete collation;
}

tvsort_code tvsort_server_create(tvsort_server** server) {
    if (server == nullptr) return TVSORT_BAD_USE;
    *server = new (std::nothrow) tvsort_server;
    return *server == nullptr ? TVSORT_NO_MEMORY : TVSORT_OK;
}

tvsort_code tvsort_server_start(tvsort_server* server, const tvsort_server_options* options) {
    return capi::guarded(server, [&] {
        capi::start(*server, options == nullptr ? tvsort_server_options{}
                                                : capi::taken(options, "tvsort_server_options"));
    });
}

void tvsort_server_destroy(tvsort_server* server) {
    delete server;
}

const char* tvsort_server_text(const tvsort_server* server) {
    return server == nullptr ? capi::kNoHandle : server->outcome.words();
}

tvsort_code tvsort_server_failure(const tvsort_server* server, tvsort_failure* failure) {
    return capi::giveOf(server, failure, "tvsort_failure",
                        [&] { return server->outcome.failure(); });
}

tvsort_code tvsort_server_slot(tvsort_server* server, int32_t slot_number, tvsort_slot** slot) {
    if (slot != nullptr) *slot = nullptr;
    return capi::guarded(server, [&] {
        capi::need(slot, "slot");
        if (server->server == nullptr) throw host::badUse("the server has not been started");
        server->server->slot(slot_number);
        *slot = server->slots[static_cast<std::size_t>(slot_number - 1)].get();
    });
}
