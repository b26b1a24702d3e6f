/* The C interface as a program in C uses it. Each argument names a test; without one all run. */

#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>
#include <unistd.h>

#include "tvsort.h"

static int faults = 0;

static void complain(int line, const char *what, const char *text) {
    fprintf(stderr, "line %d: %s (%s)\n", line, what, text);
    faults += 1;
}

#define CHECK(claim) ((claim) ? (void)0 : complain(__LINE__, #claim, ""))
/* Of a call with a handle: its code, and the words that its text must hold. */
#define GIVES(call, code, text, words)                                                     \
    do {                                                                                   \
        const tvsort_code got_ = (call);                                                   \
        if (got_ != (code)) complain(__LINE__, #call, tvsort_code_name(got_));             \
        if (got_ != (code) || strstr((text), (words)) == NULL) {                           \
            complain(__LINE__, "the words", (text));                                       \
        }                                                                                  \
    } while (0)
#define SLOT_GIVES(call, code, words) GIVES(call, code, tvsort_slot_text(slot), words)
#define SLOT_OK(call) SLOT_GIVES(call, TVSORT_OK, "")
#define ROWS_GIVES(call, code, words) GIVES(call, code, tvsort_rows_text(rows), words)
#define ROWS_OK(call) ROWS_GIVES(call, TVSORT_OK, "")

static tvsort_server_options server_options(int64_t memory_bytes, int32_t slots) {
    tvsort_server_options options;
    memset(&options, 0, sizeof options);
    options.struct_size = sizeof options;
    options.process_path = getenv("TVSORT_PROCESS");
    options.memory_bytes = memory_bytes;
    options.slot_count = slots;
    return options;
}

static tvsort_server *started(tvsort_server_options options) {
    tvsort_server *server = NULL;
    CHECK(tvsort_server_create(&server) == TVSORT_OK);
    GIVES(tvsort_server_start(server, &options), TVSORT_OK, tvsort_server_text(server), "");
    return server;
}

static tvsort_slot *slot_of(tvsort_server *server, int32_t number) {
    tvsort_slot *slot = NULL;
    GIVES(tvsort_server_slot(server, number, &slot), TVSORT_OK, tvsort_server_text(server), "");
    return slot;
}

static tvsort_key key_of(int32_t type, int32_t offset, int32_t length, uint32_t flags) {
    tvsort_key key;
    memset(&key, 0, sizeof key);
    key.struct_size = sizeof key;
    key.type = type;
    key.field_offset = offset;
    key.field_length = length;
    key.flags = flags;
    return key;
}

static tvsort_request *request_of(tvsort_key key) {
    tvsort_request *request = NULL;
    CHECK(tvsort_request_create(&request) == TVSORT_OK);
    GIVES(tvsort_request_add_key(request, &key), TVSORT_OK, tvsort_request_text(request), "");
    return request;
}

static tvsort_rows *rows_of(tvsort_server *server, int32_t result, int64_t payload, int64_t limit) {
    tvsort_rows_options options;
    tvsort_rows *rows = NULL;
    memset(&options, 0, sizeof options);
    options.struct_size = sizeof options;
    options.result = result;
    options.payload_bytes = payload;
    options.limit = limit;
    ROWS_OK(tvsort_rows_create(server, &options, &rows));
    return rows;
}

static tvsort_column column_of(int32_t type, int64_t bytes, uint32_t flags) {
    tvsort_column column;
    memset(&column, 0, sizeof column);
    column.struct_size = sizeof column;
    column.type = type;
    column.value_bytes = bytes;
    column.flags = flags;
    return column;
}

/* 64 random bits, the same in every run. */
static uint64_t drawn(uint64_t *state) {
    *state += 0x9e3779b97f4a7c15u;
    uint64_t bits = *state;
    bits = (bits ^ (bits >> 30)) * 0xbf58476d1ce4e5b9u;
    bits = (bits ^ (bits >> 27)) * 0x94d049bb133111ebu;
    return bits ^ (bits >> 31);
}

static int64_t *random_values(size_t count) {
    int64_t *values = malloc(count * sizeof *values);
    uint64_t state = 1;
    for (size_t i = 0; i < count; ++i) values[i] = (int64_t)drawn(&state);
    return values;
}

static int in_order(const int64_t *values, size_t count) {
    for (size_t i = 1; i < count; ++i)
        if (values[i - 1] > values[i]) return 0;
    return 1;
}

struct stream {
    int64_t next, end, last;
    int is_ordered, refuses;
};

static int32_t give(void *context, void *target, size_t records_max, size_t *record_count) {
    struct stream *stream = context;
    *record_count = 0;
    while (*record_count < records_max && stream->next < stream->end) {
        const int64_t value = (stream->next * 7919) % stream->end;
        memcpy((char *)target + *record_count * sizeof value, &value, sizeof value);
        *record_count += 1;
        stream->next += 1;
    }
    return stream->refuses && stream->next > 5000;
}

static int32_t follow(void *context, const void *records, size_t record_count) {
    struct stream *stream = context;
    for (size_t i = 0; i < record_count; ++i) {
        int64_t value;
        memcpy(&value, (const char *)records + i * sizeof value, sizeof value);
        stream->is_ordered = stream->is_ordered && value == stream->last + 1;
        stream->last = value;
    }
    return 0;
}

/* A slot sorts what a callback gives and hands it to another one, in memory and spilled. */
static void test_callbacks(void) {
    for (int64_t memory = 1 << 20; memory <= 16 << 20; memory *= 16) {
        tvsort_server *server = started(server_options(memory, 1));
        tvsort_slot *slot = slot_of(server, 1);
        tvsort_request *request = request_of(key_of(2, 0, 8, 0));
        struct stream stream = {0, 300001, -1, 1, 0};
        tvsort_result result = {sizeof result, 0, 0};
        tvsort_statistics statistics;
        SLOT_OK(tvsort_slot_load(slot, 8, give, &stream));
        SLOT_OK(tvsort_slot_sort(slot, request, &result));
        SLOT_OK(tvsort_slot_read(slot, follow, &stream));
        CHECK(result.record_count == 300001 && stream.is_ordered && stream.last == 300000);
        memset(&statistics, 0, sizeof statistics);
        statistics.struct_size = sizeof statistics;
        SLOT_OK(tvsort_slot_statistics(slot, &statistics));
        CHECK(statistics.records_in == 300001 && statistics.record_bytes == 8);
        CHECK((statistics.work_file_bytes > 0) == (memory == 1 << 20));
        CHECK(statistics.sort_seconds > 0 && statistics.process_peak_bytes > 0);
        stream.refuses = 1;
        stream.next = 0;
        SLOT_GIVES(tvsort_slot_load(slot, 8, give, &stream), TVSORT_CANCELLED, "cancelled");
        tvsort_request_destroy(request);
        tvsort_server_destroy(server);
    }
}

/* Keys, nulls, weights, modes and limits reach the process. */
static void test_requests(void) {
    /* value, null indicator, flag, padding */
    struct record {
        int32_t value;
        uint8_t flag, null, letter, rest;
    } const records[] = {{3, 1, 0, 'a', 0}, {1, 1, 1, 'b', 0}, {2, 1, 0, 'c', 0},
                         {3, 1, 0, 'd', 0}, {9, 1, 1, 'e', 0}};
    const size_t count = sizeof records / sizeof records[0];
    struct record got[8];
    size_t got_count = 0;
    char letters[16];
    tvsort_server *server = started(server_options(0, 1));
    tvsort_slot *slot = slot_of(server, 1);
    static const struct {
        uint32_t flags;
        int32_t mode, limit;
        const char *letters;
        int64_t groups;
    } cases[] = {{0, 0, 0, "cadbe", 0},
                 {TVSORT_DESCENDING, 0, 0, "beadc", 0},
                 {TVSORT_NULLS_FIRST, 0, 0, "becad", 0},
                 {TVSORT_DESCENDING | TVSORT_NULLS_LAST, 0, 0, "adcbe", 0},
                 {0, 1, 0, "cab", 1},
                 {0, 0, 2, "cad", 0},
                 {0, 2, 0, "cadbe", 3}};
    for (size_t i = 0; i < sizeof cases / sizeof cases[0]; ++i) {
        tvsort_key key = key_of(2, 0, 4, cases[i].flags);
        key.group = 2;
        tvsort_request *request = request_of(key);
        tvsort_result result = {sizeof result, 0, 0};
        CHECK(tvsort_request_set_nulls(request, 5) == TVSORT_OK);
        CHECK(tvsort_request_set_mode(request, cases[i].mode) == TVSORT_OK);
        CHECK(tvsort_request_set_limit(request, cases[i].limit) == TVSORT_OK);
        SLOT_OK(tvsort_slot_load_array(slot, sizeof records[0], records, count));
        SLOT_OK(tvsort_slot_sort(slot, request, &result));
        SLOT_OK(tvsort_slot_read_array(slot, got, 8, &got_count));
        memset(letters, 0, sizeof letters);
        for (size_t at = 0; at < got_count; ++at) letters[at] = (char)got[at].letter;
        /* Which of equal ones stands first, or stays, nobody promises. */
        for (char *at = letters; *at; ++at)
            if (*at == 'd' && at[1] != 'a' && strchr(letters, 'a') == NULL) *at = 'a';
        if (strstr(letters, "da")) memcpy(strstr(letters, "da"), "ad", 2);
        if (strstr(letters, "eb")) memcpy(strstr(letters, "eb"), "be", 2);
        if (got_count == 3 && letters[2] == 'e') letters[2] = 'b';
        if (strcmp(letters, cases[i].letters) != 0) complain((int)i, cases[i].letters, letters);
        CHECK(result.record_count == (int64_t)got_count && result.group_count == cases[i].groups);
        tvsort_request_destroy(request);
    }
    uint8_t weights[256];
    for (int i = 0; i < 256; ++i) weights[i] = (uint8_t)(255 - i);
    tvsort_key key = key_of(1, 6, 1, 0);
    key.weights = 7;
    tvsort_request *request = request_of(key);
    CHECK(tvsort_request_add_weights(request, 7, weights) == TVSORT_OK);
    SLOT_OK(tvsort_slot_load_array(slot, sizeof records[0], records, count));
    SLOT_OK(tvsort_slot_sort(slot, request, NULL));
    SLOT_OK(tvsort_slot_read_array(slot, got, 8, &got_count));
    CHECK(got_count == count && got[0].letter == 'e' && got[4].letter == 'a');
    tvsort_request_destroy(request);
    tvsort_server_destroy(server);
}

/* Rows by two columns, one of them nullable: numbers and payloads; distinct, limited, in parts. */
static void test_rows(void) {
    enum { kCount = 50000 };
    int64_t *values = random_values(kCount);
    uint8_t *nulls = malloc(kCount);
    int64_t *numbers = malloc(kCount * sizeof *numbers);
    int64_t *payload = malloc(kCount * sizeof *payload);
    int64_t *taken = malloc(kCount * sizeof *taken);
    for (size_t i = 0; i < kCount; ++i) {
        nulls[i] = values[i] % 5 == 0;
        values[i] %= 1000;
    }
    for (int32_t slots = 1; slots <= 3; ++slots) {
        tvsort_server *server = started(server_options(8 << 20, slots));
        for (int64_t limit = 0; limit <= 20000; limit += 20000) {
            tvsort_rows *rows = rows_of(server, TVSORT_ALL, sizeof *payload, limit);
            const tvsort_column column = column_of(TVSORT_SIGNED, 8, TVSORT_NULLABLE);
            size_t got = 0, more = 1;
            ROWS_OK(tvsort_rows_add_column(rows, &column));
            ROWS_OK(tvsort_rows_set_values(rows, 0, values, 8 * 50, nulls, 50));
            ROWS_OK(tvsort_rows_sample(rows, kCount / 50));
            ROWS_OK(tvsort_rows_set_values(rows, 0, values, 8, nulls, 1));
            ROWS_OK(tvsort_rows_put(rows, 20000, values, 8));
            ROWS_OK(tvsort_rows_set_values(rows, 0, values + 20000, 8, nulls + 20000, 1));
            ROWS_OK(tvsort_rows_put(rows, kCount - 20000, values + 20000, 8));
            ROWS_OK(tvsort_rows_sort(rows));
            ROWS_OK(tvsort_rows_get(rows, 7, payload, 8, numbers, &got));
            CHECK(got == 7);
            ROWS_OK(tvsort_rows_get(rows, kCount, payload + 7, 8, numbers + 7, &got));
            CHECK(got + 7 == (limit == 0 ? kCount : (size_t)limit));
            ROWS_OK(tvsort_rows_get(rows, kCount, NULL, 0, NULL, &more));
            CHECK(more == 0);
            for (size_t i = 1; i < got + 7; ++i) {
                const int64_t left = numbers[i - 1], right = numbers[i];
                const int both = !nulls[left] && !nulls[right];
                CHECK(nulls[left] <= nulls[right]);
                CHECK(!both || values[left] <= values[right]);
                if (nulls[left] == nulls[right] && (!both || values[left] == values[right])) {
                    CHECK(left < right);
                }
                CHECK(payload[i] == values[right]);
            }
            CHECK(tvsort_take(values, 8, kCount, 8, numbers, got + 7, taken, 2) == TVSORT_OK);
            CHECK(memcmp(taken, payload, (got + 7) * 8) == 0);
            tvsort_rows_destroy(rows);
        }
        tvsort_rows *rows = rows_of(server, TVSORT_DISTINCT, 0, 0);
        const tvsort_column column = column_of(TVSORT_SIGNED, 8, TVSORT_DESCENDING);
        size_t got = 0;
        ROWS_OK(tvsort_rows_add_column(rows, &column));
        ROWS_OK(tvsort_rows_set_values(rows, 0, values, 8, NULL, 0));
        ROWS_OK(tvsort_rows_put(rows, kCount, NULL, 0));
        ROWS_OK(tvsort_rows_sort(rows));
        ROWS_OK(tvsort_rows_get(rows, kCount, NULL, 0, numbers, &got));
        CHECK(got == 1999 && values[numbers[0]] == 999 && values[numbers[1998]] == -999);
        tvsort_rows_destroy(rows);
        tvsort_server_destroy(server);
    }
    numbers[3] = kCount;
    CHECK(tvsort_take(values, 8, kCount, 8, numbers, 9, taken, 1) == TVSORT_BAD_USE);
    numbers[3] = -1;
    CHECK(tvsort_take(values, 8, kCount, 8, numbers, 9, taken, 1) == TVSORT_BAD_USE);
    free(values);
    free(nulls);
    free(numbers);
    free(payload);
    free(taken);
}

static int32_t refuse(void *context, int32_t stage, int64_t done) {
    (void)done;
    return stage == *(const int32_t *)context;
}

struct busy {
    tvsort_server *server;
    int refused;
};

/* In the middle of a load of slot 2: rows cannot have the slots, and take nothing from slot 1. */
static int32_t create_rows(void *context, void *target, size_t records_max, size_t *record_count) {
    struct busy *busy = context;
    tvsort_rows *rows = NULL;
    (void)target;
    (void)records_max;
    *record_count = 0;
    busy->refused = tvsort_rows_create(busy->server, NULL, &rows) == TVSORT_BAD_USE &&
                    strstr(tvsort_rows_text(rows), "at work") != NULL;
    tvsort_rows_destroy(rows);
    return 0;
}

/* Rows that are shown and put in ways that nobody needs. */
static void test_rows_gone_wrong(void) {
    enum { kRows = 6000 };
    static uint32_t text[kRows];
    static uint8_t nulls[kRows];
    static int64_t numbers[kRows];
    const uint8_t wide[300] = {0};
    const int64_t value = 1;
    int32_t stage = TVSORT_STAGE_PUT;
    size_t got = 0;
    tvsort_server *server = started(server_options(2 << 20, 2));
    tvsort_column column = column_of(TVSORT_UCS4, 4, TVSORT_NULLABLE);
    text[kRows - 1] = 0x110000;
    nulls[kRows - 1] = 1;

    /* What lies under a null is no text; a sample of shorter keys, or of none, parts nothing. */
    for (int64_t more_bytes = 0; more_bytes <= 300; more_bytes += 300) {
        tvsort_rows *rows = rows_of(server, TVSORT_ALL, 0, 0);
        tvsort_column more = column_of(TVSORT_BYTES, more_bytes, 0);
        if (more_bytes == 0) ROWS_OK(tvsort_rows_add_column(rows, &more));
        if (more_bytes > 0) ROWS_OK(tvsort_rows_add_column(rows, &column));
        ROWS_OK(tvsort_rows_set_values(rows, 0, text, 4, more_bytes > 0 ? nulls : NULL, 1));
        ROWS_OK(tvsort_rows_sample(rows, kRows));
        ROWS_OK(tvsort_rows_add_column(rows, more_bytes > 0 ? &more : &column));
        ROWS_OK(tvsort_rows_set_values(rows, 1, more_bytes > 0 ? (const void *)wide : text,
                                       more_bytes > 0 ? 0 : 4, more_bytes > 0 ? NULL : nulls, 1));
        ROWS_OK(tvsort_rows_put(rows, kRows, NULL, 0));
        ROWS_OK(tvsort_rows_sort(rows));
        ROWS_OK(tvsort_rows_get(rows, kRows, NULL, 0, numbers, &got));
        CHECK(got == kRows && numbers[0] == 0 && numbers[kRows - 1] == kRows - 1);
        tvsort_rows_destroy(rows);
    }

    /* More rows than there can be, all in one place. */
    tvsort_rows *rows = rows_of(server, TVSORT_ALL, 0, 0);
    column = column_of(TVSORT_SIGNED, 8, 0);
    ROWS_OK(tvsort_rows_add_column(rows, &column));
    ROWS_OK(tvsort_rows_set_values(rows, 0, &value, 0, NULL, 0));
    ROWS_OK(tvsort_rows_sample(rows, SIZE_MAX / 8 + 1));
    ROWS_GIVES(tvsort_rows_put(rows, SIZE_MAX, NULL, 0), TVSORT_BAD_USE, "more than 4294967295");
    ROWS_OK(tvsort_rows_put(rows, 1, NULL, 0));
    tvsort_rows_destroy(rows);

    /* A put that fails in the middle can be neither repeated nor followed. */
    rows = rows_of(server, TVSORT_ALL, 0, 0);
    column = column_of(TVSORT_UCS4, 4, 0);
    ROWS_OK(tvsort_rows_add_column(rows, &column));
    ROWS_OK(tvsort_rows_set_values(rows, 0, text, 4, NULL, 0));
    ROWS_GIVES(tvsort_rows_put(rows, kRows, NULL, 0), TVSORT_BAD_USE, "no code point");
    ROWS_GIVES(tvsort_rows_put(rows, 1, NULL, 0), TVSORT_BAD_USE, "destroy them");
    ROWS_GIVES(tvsort_rows_sort(rows), TVSORT_BAD_USE, "destroy them");
    ROWS_GIVES(tvsort_rows_get(rows, 1, NULL, 0, numbers, &got), TVSORT_BAD_USE, "destroy them");
    tvsort_rows_destroy(rows);

    /* A watch cancels as a thread does: for good. */
    tvsort_rows_options options;
    memset(&options, 0, sizeof options);
    options.struct_size = sizeof options;
    options.watch = refuse;
    options.watch_context = &stage;
    CHECK(tvsort_rows_create(server, &options, &rows) == TVSORT_OK);
    ROWS_OK(tvsort_rows_add_column(rows, &column));
    ROWS_OK(tvsort_rows_set_values(rows, 0, text, 4, NULL, 0));
    ROWS_GIVES(tvsort_rows_put(rows, 9, NULL, 0), TVSORT_CANCELLED, "cancelled");
    ROWS_GIVES(tvsort_rows_sort(rows), TVSORT_CANCELLED, "cancelled");
    tvsort_rows_destroy(rows);

    struct busy busy = {server, 0};
    tvsort_slot *slot = slot_of(server, 1);
    tvsort_request *request = request_of(key_of(2, 0, 8, 0));
    SLOT_OK(tvsort_slot_load_array(slot, 8, &value, 1));
    CHECK(tvsort_slot_load(slot_of(server, 2), 8, create_rows, &busy) == TVSORT_OK && busy.refused);
    SLOT_OK(tvsort_slot_sort(slot, request, NULL));
    tvsort_request_destroy(request);
    tvsort_server_destroy(server);
}

struct part {
    tvsort_slot *slot;
    int64_t *values;
    size_t count;
    int is_right;
};

static void *sort_part(void *argument) {
    struct part *part = argument;
    tvsort_slot *slot = part->slot;
    tvsort_request *request = request_of(key_of(2, 0, 8, 0));
    for (int turn = 0; turn < 5; ++turn) {
        size_t got = 0;
        SLOT_OK(tvsort_slot_load_array(slot, 8, part->values, part->count));
        SLOT_OK(tvsort_slot_sort(slot, request, NULL));
        SLOT_OK(tvsort_slot_read_array(slot, part->values, part->count, &got));
        part->is_right = got == part->count && in_order(part->values, got);
    }
    tvsort_request_destroy(request);
    return NULL;
}

/* Different slots at once, from threads that end before the server does. */
static void test_slots_at_once(void) {
    enum { kSlots = 4, kCount = 60000 };
    tvsort_server *server = started(server_options(4 << 20, kSlots));
    int64_t *values = random_values((size_t)kSlots * kCount);
    struct part parts[kSlots];
    pthread_t threads[kSlots];
    for (int i = 0; i < kSlots; ++i) {
        const struct part part = {slot_of(server, i + 1), values + i * kCount, kCount, 0};
        parts[i] = part;
        CHECK(pthread_create(&threads[i], NULL, sort_part, &parts[i]) == 0);
    }
    for (int i = 0; i < kSlots; ++i) {
        pthread_join(threads[i], NULL);
        CHECK(parts[i].is_right);
    }
    free(values);
    tvsort_server_destroy(server);
}

enum { kMany = 5000000 };

struct canceller {
    tvsort_slot *slot;
    tvsort_rows *rows;
};

static void *cancel_soon(void *argument) {
    const struct canceller *canceller = argument;
    const struct timespec pause = {0, 100000000};
    nanosleep(&pause, NULL);
    tvsort_slot_cancel(canceller->slot);
    tvsort_rows_cancel(canceller->rows);
    return NULL;
}

/* Runs the call while another thread cancels it; it must not take much longer. */
#define CANCELLED(call, canceller, text)                                              \
    do {                                                                              \
        pthread_t thread_;                                                            \
        const time_t begin_ = time(NULL);                                             \
        CHECK(pthread_create(&thread_, NULL, cancel_soon, &(canceller)) == 0);        \
        GIVES(call, TVSORT_CANCELLED, text, "cancelled");                             \
        CHECK(time(NULL) - begin_ < 5);                                               \
        pthread_join(thread_, NULL);                                                  \
    } while (0)

/* Another thread, a watch and the time cancel a sort; the next one gets a new process. */
static void test_cancellation(void) {
    tvsort_server_options options = server_options(1 << 20, 1);
    tvsort_server *server = started(options);
    tvsort_slot *slot = slot_of(server, 1);
    tvsort_request *request = request_of(key_of(2, 0, 8, 0));
    int64_t *values = random_values(kMany);
    size_t got = 0;
    struct canceller canceller = {slot, NULL};
    SLOT_OK(tvsort_slot_load_array(slot, 8, values, kMany));
    CANCELLED(tvsort_slot_sort(slot, request, NULL), canceller, tvsort_slot_text(slot));
    SLOT_GIVES(tvsort_slot_sort(slot, request, NULL), TVSORT_BAD_USE, "no records to sort");
    tvsort_slot_cancel(slot); /* the next call, whichever */
    SLOT_GIVES(tvsort_slot_load_array(slot, 8, values, 9), TVSORT_CANCELLED, "cancelled");
    SLOT_OK(tvsort_slot_load_array(slot, 8, values, 9));
    SLOT_OK(tvsort_slot_sort(slot, request, NULL));
    SLOT_OK(tvsort_slot_read_array(slot, values, 9, &got));
    CHECK(got == 9 && in_order(values, 9));
    for (int32_t stage = TVSORT_STAGE_PUT; stage <= TVSORT_STAGE_GET; ++stage) {
        SLOT_OK(tvsort_slot_set_watch(slot, NULL, NULL));
        SLOT_OK(tvsort_slot_load_array(slot, 8, values, 20000));
        SLOT_OK(tvsort_slot_sort(slot, request, NULL));
        SLOT_OK(tvsort_slot_set_watch(slot, refuse, &stage));
        tvsort_code code = tvsort_slot_read_array(slot, values, 20000, &got);
        CHECK(code == (stage == TVSORT_STAGE_GET ? TVSORT_CANCELLED : TVSORT_OK));
        code = tvsort_slot_load_array(slot, 8, values, 20000);
        CHECK(code == (stage == TVSORT_STAGE_PUT ? TVSORT_CANCELLED : TVSORT_OK));
    }
    SLOT_OK(tvsort_slot_set_watch(slot, NULL, NULL));

    tvsort_rows *rows = rows_of(server, TVSORT_ALL, 0, 0);
    const tvsort_column column = column_of(TVSORT_SIGNED, 8, 0);
    ROWS_OK(tvsort_rows_add_column(rows, &column));
    ROWS_OK(tvsort_rows_set_values(rows, 0, values, 8, NULL, 0));
    ROWS_OK(tvsort_rows_put(rows, kMany, NULL, 0));
    struct canceller rows_canceller = {NULL, rows};
    CANCELLED(tvsort_rows_sort(rows), rows_canceller, tvsort_rows_text(rows));
    ROWS_GIVES(tvsort_rows_put(rows, 1, NULL, 0), TVSORT_CANCELLED, "cancelled");
    tvsort_rows_destroy(rows);
    tvsort_server_destroy(server);

    options.request_timeout = 50;
    server = started(options);
    slot = slot_of(server, 1);
    SLOT_OK(tvsort_slot_load_array(slot, 8, values, kMany));
    SLOT_GIVES(tvsort_slot_sort(slot, request, NULL), TVSORT_TIMED_OUT, "let the time run out");
    SLOT_OK(tvsort_slot_load_array(slot, 8, values, 9));
    SLOT_OK(tvsort_slot_sort(slot, request, NULL));
    tvsort_server_destroy(server);
    tvsort_request_destroy(request);
    free(values);
}

/* What cannot be is refused with words, and nothing breaks. */
static void test_misuse(void) {
    tvsort_server *server = NULL;
    tvsort_slot *slot = NULL;
    tvsort_rows *rows = NULL, *others = NULL;
    tvsort_request *request = NULL;
    tvsort_collation *collation = NULL;
    tvsort_failure failure = {sizeof failure, 0, 0};
    tvsort_key key = key_of(2, 0, 8, 0);
    tvsort_column column = column_of(TVSORT_SIGNED, 8, 0);
    char text[80];
    size_t count = 0;
    int64_t value = 1;

    CHECK(tvsort_server_create(NULL) == TVSORT_BAD_USE);
    CHECK(tvsort_server_start(NULL, NULL) == TVSORT_BAD_USE);
    CHECK(tvsort_server_slot(NULL, 1, &slot) == TVSORT_BAD_USE);
    rows = (tvsort_rows *)&value;
    CHECK(tvsort_rows_create(NULL, NULL, &rows) == TVSORT_BAD_USE && rows == NULL);
    CHECK(tvsort_rows_put(NULL, 1, NULL, 0) == TVSORT_BAD_USE);
    CHECK(tvsort_rows_sort(NULL) == TVSORT_BAD_USE && tvsort_slot_sort(NULL, NULL, NULL) == TVSORT_BAD_USE);
    CHECK(tvsort_request_create(NULL) == TVSORT_BAD_USE);
    CHECK(tvsort_request_add_key(NULL, &key) == TVSORT_BAD_USE);
    CHECK(tvsort_take(NULL, 8, 1, 8, &value, 1, &value, 1) == TVSORT_BAD_USE);
    CHECK(strstr(tvsort_slot_text(NULL), "no handle") != NULL);
    tvsort_server_destroy(NULL);
    tvsort_rows_destroy(NULL);
    tvsort_request_destroy(NULL);
    tvsort_collation_destroy(NULL);
    tvsort_slot_cancel(NULL);

    CHECK(tvsort_collation_create("short", 5, &collation, text, sizeof text) == TVSORT_BAD_USE);
    CHECK(collation == NULL && strstr(text, "no collation file: its 5 bytes") != NULL);
    CHECK(tvsort_collation_create("short", 5, &collation, text, 5) == TVSORT_BAD_USE);
    CHECK(strcmp(text, "this") == 0);

    CHECK(tvsort_server_create(&server) == TVSORT_OK);
    GIVES(tvsort_server_slot(server, 1, &slot), TVSORT_BAD_USE, tvsort_server_text(server),
          "has not been started");
    GIVES(tvsort_rows_create(server, NULL, &rows), TVSORT_BAD_USE, tvsort_rows_text(rows),
          "has not been started");
    ROWS_GIVES(tvsort_rows_sort(rows), TVSORT_BAD_USE, "could not be created");
    tvsort_rows_destroy(rows);
    static const struct {
        int64_t memory;
        int32_t blocks, slots, timeout;
        const char *words;
    } starts[] = {{19000, 1, 0, 0, "at least 5 blocks of its pages; grant it 20480 bytes"},
                  {-5, 0, 0, 0, "cannot have -5 bytes of memory"},
                  {0, 17, 0, 0, "blocks of 17 pages cannot be had; use 1 to 16"},
                  {0, 0, -1, 0, "-1 slots cannot be had"},
                  {INT64_C(3) << 30, 0, 3, 0, "exceed 4 GiB"},
                  {INT64_MAX, 0, 0, 0, "bytes of memory; grant it at most"},
                  {0, 0, 0, -1, "request_timeout is negative"}};
    for (size_t i = 0; i < sizeof starts / sizeof starts[0]; ++i) {
        tvsort_server_options options = server_options(starts[i].memory, starts[i].slots);
        options.block_pages = starts[i].blocks;
        options.request_timeout = starts[i].timeout;
        GIVES(tvsort_server_start(server, &options), TVSORT_BAD_USE, tvsort_server_text(server),
              starts[i].words);
    }
    tvsort_server_options options = server_options(0, 0);
    options.process_path = "/nowhere/tvsort";
    GIVES(tvsort_server_start(server, &options), TVSORT_SYSTEM, tvsort_server_text(server),
          "/nowhere/tvsort");
    CHECK(tvsort_server_failure(server, &failure) == TVSORT_OK && failure.system_error == 2);
    options.process_path = "/bin/false";
    GIVES(tvsort_server_start(server, &options), TVSORT_DIED, tvsort_server_text(server), "ended");

    /* A struct of another time: shorter, longer with nothing in it, longer with something. */
    struct {
        tvsort_server_options known;
        int64_t unknown;
    } later = {server_options(0, 0), 0};
    later.known.struct_size = 8;
    GIVES(tvsort_server_start(server, &later.known), TVSORT_BAD_USE, tvsort_server_text(server),
          "tvsort_server_options.struct_size is 8");
    later.known.struct_size = sizeof later;
    later.unknown = 1;
    GIVES(tvsort_server_start(server, &later.known), TVSORT_BAD_USE, tvsort_server_text(server),
          "what this version of the library does not know");
    later.unknown = 0;
    later.known.huge_pages = 7;
    GIVES(tvsort_server_start(server, &later.known), TVSORT_BAD_USE, tvsort_server_text(server),
          "there is no huge_pages 7");
    /* A caller from before there were huge pages sets nothing of them, whatever stands there. */
    later.known.struct_size = offsetof(tvsort_server_options, huge_pages);
    GIVES(tvsort_server_start(server, &later.known), TVSORT_OK, tvsort_server_text(server), "");
    GIVES(tvsort_server_start(server, NULL), TVSORT_BAD_USE, tvsort_server_text(server),
          "has been started");
    GIVES(tvsort_server_slot(server, 2, &slot), TVSORT_BAD_USE, tvsort_server_text(server),
          "there is no slot 2");

    slot = slot_of(server, 1);
    CHECK(tvsort_request_create(&request) == TVSORT_OK);
    key.type = 300;
    GIVES(tvsort_request_add_key(request, &key), TVSORT_BAD_USE, tvsort_request_text(request),
          "tvsort_key.type is 300; use 1 to 255");
    key = key_of(2, 65536, 8, 0);
    GIVES(tvsort_request_add_key(request, &key), TVSORT_BAD_USE, tvsort_request_text(request),
          "field_offset is 65536");
    SLOT_GIVES(tvsort_slot_load_array(slot, 65536, &value, 1), TVSORT_BAD_USE, "of 65536 bytes");
    SLOT_GIVES(tvsort_slot_load_array(slot, 8, NULL, 1), TVSORT_BAD_USE, "records is null");
    SLOT_GIVES(tvsort_slot_load(slot, 8, NULL, NULL), TVSORT_BAD_USE, "source is null");
    SLOT_GIVES(tvsort_slot_sort(slot, request, NULL), TVSORT_BAD_USE, "load them");
    SLOT_GIVES(tvsort_slot_read_array(slot, &value, 1, &count), TVSORT_BAD_USE, "sort first");
    SLOT_OK(tvsort_slot_load_array(slot, 8, &value, 1));
    SLOT_GIVES(tvsort_slot_sort(slot, NULL, NULL), TVSORT_BAD_USE, "request is null");
    SLOT_GIVES(tvsort_slot_sort(slot, request, NULL), TVSORT_ANSWERED, "code 1410");
    CHECK(tvsort_slot_failure(slot, &failure) == TVSORT_OK && failure.answer_code == 1410);

    rows = rows_of(server, TVSORT_ALL, 0, 0);
    CHECK(tvsort_rows_create(server, NULL, &others) == TVSORT_BAD_USE);
    CHECK(strstr(tvsort_rows_text(others), "taken by other rows") != NULL);
    tvsort_rows_destroy(others);
    SLOT_GIVES(tvsort_slot_load_array(slot, 8, &value, 1), TVSORT_BAD_USE, "is taken by rows");
    ROWS_GIVES(tvsort_rows_put(rows, 1, NULL, 0), TVSORT_BAD_USE, "no column to sort by");
    static const struct {
        int32_t type;
        int64_t bytes;
        uint32_t flags;
        const char *words;
    } columns[] = {{TVSORT_SIGNED, 3, 0, "no type 1 of 3 bytes"},
                   {TVSORT_FLOAT, 16, 0, "no type 3 of 16 bytes"},
                   {TVSORT_UCS4, 6, 0, "no type 5 of 6 bytes"},
                   {TVSORT_TIME, 4, 0, "no type 6 of 4 bytes"},
                   {TVSORT_BYTES, -1, 0, "no type 4 of -1 bytes"},
                   {TVSORT_BYTES, INT64_MAX, 0, "longer than 65535 bytes"},
                   {0, 8, 0, "no type 0"},
                   {TVSORT_SIGNED, 8, 64, "flags that mean nothing"}};
    for (size_t i = 0; i < sizeof columns / sizeof columns[0]; ++i) {
        column = column_of(columns[i].type, columns[i].bytes, columns[i].flags);
        ROWS_GIVES(tvsort_rows_add_column(rows, &column), TVSORT_BAD_USE, columns[i].words);
    }
    column = column_of(TVSORT_BYTES, 65535, 0);
    ROWS_OK(tvsort_rows_add_column(rows, &column));
    ROWS_GIVES(tvsort_rows_put(rows, 1, NULL, 0), TVSORT_BAD_USE, "has no values");
    ROWS_GIVES(tvsort_rows_set_values(rows, 1, &value, 8, NULL, 0), TVSORT_BAD_USE, "no column 1");
    ROWS_GIVES(tvsort_rows_set_values(rows, 0, &value, 8, &value, 8), TVSORT_BAD_USE,
               "not nullable and has nulls");
    ROWS_OK(tvsort_rows_set_values(rows, 0, &value, 8, NULL, 0));
    ROWS_GIVES(tvsort_rows_put(rows, 1, NULL, 0), TVSORT_BAD_USE, "record of 65539 bytes");
    ROWS_GIVES(tvsort_rows_get(rows, 1, NULL, 0, &value, &count), TVSORT_BAD_USE, "not sorted");
    ROWS_GIVES(tvsort_rows_next_operand(rows), TVSORT_BAD_USE, "another operand");
    ROWS_OK(tvsort_rows_sort(rows));
    ROWS_OK(tvsort_rows_get(rows, 1, NULL, 0, &value, &count));
    CHECK(count == 0);
    tvsort_rows_destroy(rows);
    SLOT_OK(tvsort_slot_load_array(slot, 8, &value, 1));
    tvsort_request_destroy(request);
    tvsort_server_destroy(server);
}

/* A collation file puts text in the order of a language. */
static void test_collation(void) {
    /* z, e with acute, a: of which the second stands last by code unit */
    const uint16_t units[] = {'z', 0xe9, 'a'};
    const char *const path = getenv("TVSORT_COLLATION");
    static char file[1 << 20];
    uint16_t got[3];
    size_t got_count = 0;
    tvsort_collation *collation = NULL;
    tvsort_request *request = request_of(key_of(11, 0, 2, 0));
    FILE *stream = path == NULL ? NULL : fopen(path, "rb");
    if (stream != NULL) {
        const size_t bytes = fread(file, 1, sizeof file, stream);
        fclose(stream);
        CHECK(tvsort_collation_create(file, bytes, &collation, NULL, 0) == TVSORT_OK);
    }
    tvsort_server_options options = server_options(0, 1);
    options.collation = collation;
    tvsort_server *server = started(options);
    tvsort_collation_destroy(collation);
    tvsort_slot *slot = slot_of(server, 1);
    SLOT_OK(tvsort_slot_load_array(slot, 2, units, 3));
    SLOT_OK(tvsort_slot_sort(slot, request, NULL));
    SLOT_OK(tvsort_slot_read_array(slot, got, 3, &got_count));
    CHECK(got_count == 3 && got[0] == 'a' && got[stream == NULL ? 2 : 1] == 0xe9);
    tvsort_request_destroy(request);
    tvsort_server_destroy(server);
}

/* A process that lies is believed nothing that would lead out of the rows. */
static void test_lies(void) {
    static const struct {
        const char *lies;
        tvsort_code code;
        const char *words;
    } cases[] = {{"records 8 4 -1", TVSORT_PROTOCOL, "gave back a record that was not put"},
                 {"record 2 8 1 9", TVSORT_PROTOCOL, "gave back a record that was not put"},
                 {"word 68 4 -5", TVSORT_PROTOCOL, "(process "},
                 {"word 68 4 9", TVSORT_PROTOCOL, "(process "},
                 {"word 8 4 1403", TVSORT_ANSWERED, "code 1403"},
                 {"part 40;end 0", TVSORT_DIED, "ended with status 0"},
                 {"end 3", TVSORT_DIED, "ended with status 3"}};
    const int64_t values[] = {1, 2, 3, 4};
    int64_t numbers[4];
    if (getenv("TVSORT_LYING_PROCESS") == NULL) return;
    for (size_t i = 0; i < sizeof cases / sizeof cases[0]; ++i) {
        tvsort_server_options options = server_options(0, 1);
        const tvsort_column column = column_of(TVSORT_SIGNED, 8, 0);
        size_t got = 0;
        setenv("TVSORT_LIES", cases[i].lies, 1);
        options.process_path = getenv("TVSORT_LYING_PROCESS");
        tvsort_server *server = started(options);
        tvsort_rows *rows = rows_of(server, TVSORT_ALL, 0, 0);
        ROWS_OK(tvsort_rows_add_column(rows, &column));
        ROWS_OK(tvsort_rows_set_values(rows, 0, values, 8, NULL, 0));
        ROWS_OK(tvsort_rows_put(rows, 4, NULL, 0));
        tvsort_code code = tvsort_rows_sort(rows);
        if (code == TVSORT_OK) code = tvsort_rows_get(rows, 4, NULL, 0, numbers, &got);
        GIVES(code, cases[i].code, tvsort_rows_text(rows), cases[i].words);
        tvsort_rows_destroy(rows);
        tvsort_server_destroy(server);
    }
}

int main(int argument_count, char **arguments) {
    static const struct {
        const char *name;
        void (*run)(void);
    } tests[] = {{"callbacks", test_callbacks}, {"requests", test_requests},
                 {"rows", test_rows},           {"slots_at_once", test_slots_at_once},
                 {"rows_gone_wrong", test_rows_gone_wrong},
                 {"cancellation", test_cancellation}, {"misuse", test_misuse}, {"lies", test_lies},
                 {"collation", test_collation}};
    int run = 0;
    for (size_t i = 0; i < sizeof tests / sizeof tests[0]; ++i) {
        if (argument_count > 1 && strcmp(arguments[1], tests[i].name) != 0) continue;
        tests[i].run();
        run += 1;
    }
    printf("%d tests of the C interface, %d faults\n", run, faults);
    return run == 0 || faults > 0;
}
