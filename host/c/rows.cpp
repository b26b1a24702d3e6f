#include <optional>

#include "host/c/row_sort.h"
#include "host/c/server_handle.h"

using namespace tvsort;

struct tvsort_rows {
    explicit tvsort_rows(tvsort_server& owner) : server(owner) {}
    ~tvsort_rows() {
        if (!hasSlots) return;
        sort.reset();
        server.hasRows = false;
    }
    tvsort_rows(const tvsort_rows&) = delete;
    tvsort_rows& operator=(const tvsort_rows&) = delete;

    capi::Outcome outcome;
    std::atomic<bool> busy = false;
    std::atomic<bool> cancelled = false;
    tvsort_server& server;
    bool hasSlots = false;
    std::optional<capi::RowSort> sort;
};

namespace {

void take(tvsort_rows& rows, const tvsort_rows_options& options) {
    if (rows.server.server == nullptr) throw host::badUse("the server has not been started");
    if (rows.server.hasRows.exchange(true)) {
        throw host::badUse(
            "the server's slots are taken by other rows; destroy them first, or use "
            "another server");
    }
    rows.hasSlots = true;
    const auto& theirs = rows.server.slots;
    if (std::any_of(theirs.begin(), theirs.end(),
                    [](const auto& slot) { return slot->busy.load(); })) {
        throw host::badUse("a slot of the server is at work");
    }
    std::vector<capi::SlotWork*> slots;
    for (const auto& slot : theirs)
        slots.push_back(&slot->work);
    rows.sort.emplace(slots, options, rows.cancelled);
    for (const auto& slot : theirs) {
        slot->loaded.reset();
        slot->reader.reset();
    }
}

template <typename Act>
tvsort_code rowsCall(tvsort_rows* rows, Act&& act) noexcept {
    return capi::guardedAlone(rows, [&] {
        if (!rows->sort.has_value()) throw host::badUse("these rows could not be created");
        if (rows->cancelled) throw capi::Cancelled();
        try {
            act(*rows->sort);
        } catch (const capi::Cancelled&) {
            rows->cancelled = true;  // by the watch; what comes after has no use
            throw;
        }
    });
}

}  // namespace

tvsort_code tvsort_rows_create(tvsort_server* server, const tvsort_rows_options* options,
                               tvsort_rows** rows) {
    if (rows == nullptr) return TVSORT_BAD_USE;
    *rows = nullptr;
    if (server == nullptr) return TVSORT_BAD_USE;
    *rows = new (std::nothrow) tvsort_rows(*server);
    return *rows == nullptr ? TVSORT_NO_MEMORY : capi::guarded(*rows, [&] {
        take(**rows, options == nullptr ? tvsort_rows_options{}
                                        : capi::taken(options, "tvsort_rows_options"));
    });
}

void tvsort_rows_destroy(tvsort_rows* rows) {
    delete rows;
}

const char* tvsort_rows_text(const tvsort_rows* rows) {
    return rows == nullptr ? capi::kNoHandle : rows->outcome.words();
}

tvsort_code tvsort_rows_failure(const tvsort_rows* rows, tvsort_failure* failure) {
    return capi::giveOf(rows, failure, "tvsort_failure", [&] { return rows->outcome.failure(); });
}

tvsort_code tvsort_rows_add_column(tvsort_rows* rows, const tvsort_column* column) {
    return rowsCall(
        rows, [&](capi::RowSort& sort) { sort.addColumn(capi::taken(column, "tvsort_column")); });
}

tvsort_code tvsort_rows_set_values(tvsort_rows* rows, int32_t column_index, const void* values,
                                   ptrdiff_t stride, const void* nulls, ptrdiff_t nulls_stride) {
    return rowsCall(rows, [&](capi::RowSort& sort) {
        sort.encoder().setValues(column_index, values, stride, nulls, nulls_stride);
    });
}

tvsort_code tvsort_rows_sample(tvsort_rows* rows, size_t row_count) {
    return rowsCall(rows, [&](capi::RowSort& sort) { sort.sample(row_count); });
}

tvsort_code tvsort_rows_put(tvsort_rows* rows, size_t row_count, const void* payload,
                            ptrdiff_t payload_stride) {
    return rowsCall(rows, [&](capi::RowSort& sort) {
        sort.put(row_count, static_cast<const Byte*>(payload), payload_stride);
    });
}

tvsort_code tvsort_rows_next_operand(tvsort_rows* rows) {
    return rowsCall(rows, [&](capi::RowSort& sort) { sort.nextOperand(); });
}

tvsort_code tvsort_rows_sort(tvsort_rows* rows) {
    return rowsCall(rows, [&](capi::RowSort& sort) { sort.sort(); });
}

tvsort_code tvsort_rows_get(tvsort_rows* rows, size_t rows_max, void* payload,
                            ptrdiff_t payload_stride, int64_t* numbers, size_t* row_count) {
    return rowsCall(rows, [&](capi::RowSort& sort) {
        capi::need(row_count, "row_count");
        *row_count = 0;
        *row_count = sort.get(rows_max, static_cast<Byte*>(payload), payload_stride, numbers);
    });
}

void tvsort_rows_cancel(tvsort_rows* rows) {
    if (rows != nullptr) rows->cancelled = true;
}

tvsort_code tvsort_rows_statistics(const tvsort_rows* rows, tvsort_statistics* statistics) {
    return capi::giveOf(rows, statistics, "tvsort_statistics", [&] {
        if (!rows->sort.has_value()) throw host::badUse("these rows could not be created");
        return rows->sort->statistics();
    });
}
