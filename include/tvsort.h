/* The sort process for any language: a C interface to libtvsort.so.0, for C99 and C++.
 *
 * Two ways lead through it. The short one sorts rows by columns, wherever and however they lie, in
 * exact and stable order, through all processes of a server:
 *
 *     tvsort_server_create -> tvsort_server_start
 *     tvsort_rows_create -> add_column -> set_values -> put ... -> sort -> get ...
 *
 * The other one is the sort process as it is, record by record and slot by slot: every key type,
 * mode and option of docs/protocol.md, and different slots at once from different threads:
 *
 *     tvsort_server_slot      tvsort_request_create -> add_key
 *     tvsort_slot_load -> tvsort_slot_sort -> tvsort_slot_read
 *
 * What holds for all of it:
 *
 *     Codes      Every call that can fail answers a tvsort_code, 0 for success. The words, which
 *                say what could not be done, where, and what to do about it, are at the handle:
 *                tvsort_..._text. They stay until the next call with that handle.
 *     Structs    begin with struct_size, which the caller sets to sizeof the struct as it knows it.
 *                Everything else that is 0 or null stands for the default. A library that knows
 *                more fields takes 0 for those that the caller does not have; one that knows fewer
 *                refuses the struct unless they are 0.
 *     Ownership  What a ..._create gave is given back by its ..._destroy, which takes null as well.
 *                Text and options are copied. A server outlives the rows that use it; slots are the
 *                server's own and go with it.
 *     Threads    A handle is used by one thread at a time, whichever; the slots of one server count
 *                as handles of their own. Only ..._cancel may be called while another thread is at
 *                work with the handle.
 *     Callbacks  run in the thread of the call that they were given to, and must return.
 *     Signals    No handler is installed and none is needed. Of SIGPIPE nothing is seen.
 *     Forks      A child must not use what its parent made.
 *
 * Bytes are counted from 0; slots from 1. Values of integers and floats are little-endian unless a
 * column says otherwise. */

#ifndef TVSORT_H
#define TVSORT_H

#include <stddef.h>
#include <stdint.h>

#if defined(__GNUC__)
#define TVSORT_API __attribute__((visibility("default")))
#else
#define TVSORT_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Codes -------------------------------------------------------------------------------- */

typedef int32_t tvsort_code;

enum {
    TVSORT_OK = 0,
    TVSORT_BAD_USE = 1,   /* what was asked cannot be; nothing was started or changed by it but
                             where a call says so */
    TVSORT_SYSTEM = 2,    /* a call to the operating system failed: tvsort_..._failure */
    TVSORT_DIED = 3,      /* the sort process ended although it was needed */
    TVSORT_TIMED_OUT = 4, /* the sort process did not answer in the time granted */
    TVSORT_ANSWERED = 5,  /* the sort process refused or failed: its code by tvsort_..._failure */
    TVSORT_PROTOCOL = 6,  /* what came back from the process cannot be */
    TVSORT_CANCELLED = 7, /* by ..._cancel, or by a callback that answered so */
    TVSORT_NO_MEMORY = 8, /* of this program; that of the processes is granted at the start */
    TVSORT_INTERNAL = 9   /* a fault of this library */
};

/* The library's version, "0.1.0". */
TVSORT_API const char* tvsort_version(void);
/* A code in a word or two; "unknown" for what is none. */
TVSORT_API const char* tvsort_code_name(tvsort_code code);

/* What is behind the last failure of a handle; zeros where nothing is. */
typedef struct tvsort_failure {
    size_t struct_size;
    int32_t answer_code;  /* of the sort process, docs/protocol.md */
    int32_t system_error; /* errno */
} tvsort_failure;

/* ---- Collation ---------------------------------------------------------------------------- */

/* A table of weights for UCS-2 text, from a collation file (tvsort-host collation makes them). */
typedef struct tvsort_collation tvsort_collation;

/* Copies the file's bytes. A file that a process would not put in force is refused, and `text`, if
 * not null, gets why: at most `text_bytes` with the 0 at the end. */
TVSORT_API tvsort_code tvsort_collation_create(const void* file, size_t file_bytes,
                                               tvsort_collation** collation, char* text,
                                               size_t text_bytes);
TVSORT_API void tvsort_collation_destroy(tvsort_collation* collation);

/* ---- Server ------------------------------------------------------------------------------- */

/* Owns all that exists outside of this program: shared memory, socket, work files, and one sort
 * process per slot. Destroying it leaves none of them behind. */
typedef struct tvsort_server tvsort_server;

enum {
    TVSORT_HUGE_PAGES_OFF = 0,
    TVSORT_HUGE_PAGES_TRY = 1, /* where they can be had */
    TVSORT_HUGE_PAGES_ON = 2   /* or the server is not started */
};

typedef struct tvsort_server_options {
    size_t struct_size;
    /* The program of the process. Default: beside the library, in the bin folder of its prefix, or
     * in PATH. */
    const char* process_path;
    /* Where a private directory for socket and work files is made. Default: TMPDIR, else /tmp. */
    const char* temp_directory;
    /* Where the work files are to be instead; must exist. */
    const char* work_directory;
    /* For keys of UCS-2 text; copied. Default: by code unit. */
    const tvsort_collation* collation;
    /* Memory that each process is granted: 5 blocks or more, below 4 GiB, and that of all but one
     * slot together below 4 GiB. Taken up as it is used. Default: 64 MiB. */
    int64_t memory_bytes;
    /* Bytes that no work file may grow beyond. Default: no limit. */
    int64_t file_bytes_max;
    /* Pages of 4096 bytes in a block, 1 to 16; a record must fit. Default: 16, or what makes of the
     * memory a pool of 16 blocks. */
    int32_t block_pages;
    /* Slots, and so processes. Default: 1. */
    int32_t slot_count;
    /* Milliseconds for a process to start. Default: 30000. */
    int32_t start_timeout;
    /* Milliseconds for a request to be served. Default: no limit. */
    int32_t request_timeout;
    /* TVSORT_HUGE_PAGES_..., for the slots. Default: off. */
    int32_t huge_pages;
} tvsort_server_options;

/* A server without processes; TVSORT_NO_MEMORY is all that can go wrong. */
TVSORT_API tvsort_code tvsort_server_create(tvsort_server** server);
/* Starts the processes, once. `options` null stands for the defaults. A failed start can be tried
 * again. */
TVSORT_API tvsort_code tvsort_server_start(tvsort_server* server,
                                           const tvsort_server_options* options);
/* Ends the processes: in good order, or by force where one is at work. */
TVSORT_API void tvsort_server_destroy(tvsort_server* server);
TVSORT_API const char* tvsort_server_text(const tvsort_server* server);
TVSORT_API tvsort_code tvsort_server_failure(const tvsort_server* server, tvsort_failure* failure);

/* ---- Callbacks ---------------------------------------------------------------------------- */

enum {
    TVSORT_STAGE_PUT = 1, /* records on their way to the processes; `done` of them so far */
    TVSORT_STAGE_SORT = 2,
    TVSORT_STAGE_GET = 3 /* results on their way back; `done` of them so far */
};

/* Called about every 50 ms of a call's work or wait. Anything but 0 cancels, as ..._cancel does. */
typedef int32_t (*tvsort_watch)(void* context, int32_t stage, int64_t done);
/* Puts up to `records_max` records, one behind the other, to `target` and says how many; 0 are the
 * end. Anything but 0 as an answer cancels. */
typedef int32_t (*tvsort_source)(void* context, void* target, size_t records_max,
                                 size_t* record_count);
/* Takes records that lie one behind the other, until it returns. Anything but 0 cancels. */
typedef int32_t (*tvsort_sink)(void* context, const void* records, size_t record_count);

/* ---- Rows --------------------------------------------------------------------------------- */

/* One sort of rows by columns. The columns of each row become one string of bytes that compare as
 * the columns do, so that
 *
 *     the order is exact   integers of any size, floats bit for bit but that 0.0 and -0.0 are equal
 *                          and NaN is a null, text by code point, bytes as unsigned numbers
 *     the order is stable  equal rows stay as they were put
 *
 * What comes back is the numbers of the rows, counted from 0 as they were put, or a payload that
 * travels with each row, or both. Numbers are what to ask for where the rows are in memory;
 * payloads where they are not: data sets larger than memory go through the work files, one block
 * at a time. */
typedef struct tvsort_rows tvsort_rows;

enum {
    TVSORT_SIGNED = 1,   /* 1, 2, 4 or 8 bytes */
    TVSORT_UNSIGNED = 2, /* 1, 2, 4 or 8 bytes */
    TVSORT_FLOAT = 3,    /* IEEE, 2, 4 or 8 bytes; NaN is a null */
    TVSORT_BYTES = 4,    /* any number */
    TVSORT_UCS4 = 5,     /* code points of 4 bytes each, filled up with 0 */
    TVSORT_TIME = 6      /* 8 bytes, signed; the least value is a null */
};

enum {
    TVSORT_DESCENDING = 1,
    TVSORT_NULLS_FIRST = 2, /* default: last, whatever the direction */
    TVSORT_BIG_ENDIAN = 4,
    TVSORT_NULLABLE = 8 /* a byte for each row says whether it is null: tvsort_rows_set_values */
};

typedef struct tvsort_column {
    size_t struct_size;
    int32_t type;
    uint32_t flags;
    int64_t value_bytes;
} tvsort_column;

enum {
    TVSORT_ALL = 0,
    TVSORT_DISTINCT = 1,  /* of equal rows the first */
    TVSORT_INTERSECT = 2, /* the first of equal rows of operand 1, if operand 2 has equal ones */
    TVSORT_EXCEPT = 3     /* the same, if it has none */
};

typedef struct tvsort_rows_options {
    size_t struct_size;
    /* Bytes that travel with each row. Keys, 4 bytes and this are 65535 at most. */
    int64_t payload_bytes;
    /* Leading rows of the result wanted. Default: all. */
    int64_t limit;
    int32_t result; /* TVSORT_ALL ... */
    int32_t reserved;
    tvsort_watch watch;
    void* watch_context;
} tvsort_rows_options;

typedef struct tvsort_statistics {
    size_t struct_size;
    int64_t records_in;
    int64_t records_out;     /* by the processes, before rows are taken for equal */
    int64_t record_bytes;    /* of a record in the slot */
    int64_t work_file_bytes; /* spilled by this side; 0 where all fits into memory */
    double process_seconds;  /* of CPU, of all processes together */
    double sort_seconds;     /* from the request to the reply */
    int64_t process_peak_bytes;
} tvsort_statistics;

/* Takes all slots of a started server, whatever is loaded or unread in them, until it is destroyed;
 * TVSORT_BAD_USE where one is at work, or where other rows have them.
 * The handle is there after a failure of that kind too, for its text. */
TVSORT_API tvsort_code tvsort_rows_create(tvsort_server* server, const tvsort_rows_options* options,
                                          tvsort_rows** rows);
TVSORT_API void tvsort_rows_destroy(tvsort_rows* rows);
TVSORT_API const char* tvsort_rows_text(const tvsort_rows* rows);
TVSORT_API tvsort_code tvsort_rows_failure(const tvsort_rows* rows, tvsort_failure* failure);

/* The most significant column first; before the first put. */
TVSORT_API tvsort_code tvsort_rows_add_column(tvsort_rows* rows, const tvsort_column* column);
/* Where the next puts and samples find column `column_index`, counted from 0: the value of their
 * first row, and the bytes from one row's value to the next one's, which may be negative or 0. Of a
 * nullable column, `nulls` is the first row's byte, not 0 for a null; of any other it is null. */
TVSORT_API tvsort_code tvsort_rows_set_values(tvsort_rows* rows, int32_t column_index,
                                              const void* values, ptrdiff_t stride,
                                              const void* nulls, ptrdiff_t nulls_stride);
/* Shows rows that stand for all, some thousand, before the first put: the rows are then parted
 * among the slots by their order. Without it, slot 1 sorts alone. */
TVSORT_API tvsort_code tvsort_rows_sample(tvsort_rows* rows, size_t row_count);
/* Lays rows into the slots, each with its payload; `payload_stride` is the bytes from one payload
 * to the next. 4294967295 rows at most, and 2147483647 in each slot. Where this or the sort fails
 * between the rows, as by text that holds what is no code point, they can only be destroyed. */
TVSORT_API tvsort_code tvsort_rows_put(tvsort_rows* rows, size_t row_count, const void* payload,
                                       ptrdiff_t payload_stride);
/* What follows is operand 2; for TVSORT_INTERSECT and TVSORT_EXCEPT. */
TVSORT_API tvsort_code tvsort_rows_next_operand(tvsort_rows* rows);
/* No more puts; has the processes sort. */
TVSORT_API tvsort_code tvsort_rows_sort(tvsort_rows* rows);
/* The next rows of the result, up to `rows_max`; 0 are the end. `payload` and `numbers` may be
 * null. */
TVSORT_API tvsort_code tvsort_rows_get(tvsort_rows* rows, size_t rows_max, void* payload,
                                       ptrdiff_t payload_stride, int64_t* numbers,
                                       size_t* row_count);
/* From any thread, at any time between create and destroy: the call at work and all later ones
 * answer TVSORT_CANCELLED, within about 50 ms. */
TVSORT_API void tvsort_rows_cancel(tvsort_rows* rows);
/* After tvsort_rows_sort. */
TVSORT_API tvsort_code tvsort_rows_statistics(const tvsort_rows* rows,
                                              tvsort_statistics* statistics);

/* Copies rows by their numbers: row numbers[i], of `row_bytes`, from source + numbers[i] x
 * source_stride to target + i x row_bytes, by up to `threads` threads (0: 1). TVSORT_BAD_USE, and
 * nothing copied for sure, where a number is not below `row_count`. */
TVSORT_API tvsort_code tvsort_take(const void* source, ptrdiff_t source_stride, int64_t row_count,
                                   size_t row_bytes, const int64_t* numbers, size_t number_count,
                                   void* target, int32_t threads);

/* ---- Requests ----------------------------------------------------------------------------- */

/* Keys, mode and options of a sort of records by one process, as docs/protocol.md has them. */
typedef struct tvsort_request tvsort_request;

typedef struct tvsort_key {
    size_t struct_size;
    int32_t type;          /* the code of the type, 1 to 13 */
    uint32_t flags;        /* TVSORT_DESCENDING, TVSORT_NULLS_FIRST, TVSORT_NULLS_LAST */
    int32_t field_offset;  /* in bytes; 0 to 65535 */
    int32_t field_length;  /* in bytes; 0 to 65535 */
    int32_t group;         /* 0, or 1: counts for equality, or 2: begins a group as well */
    int32_t geometry_type; /* types 8 and 9; 0 to 255 */
    int32_t weights;       /* types 1 and 8: identifier of the byte-weight table; 0 to 65535 */
    int32_t is_envelope;   /* the geometry is a stored envelope */
} tvsort_key;

/* Of a tvsort_key, where nulls count as the greatest of values unless one of the two flags is
 * set. */
enum { TVSORT_NULLS_LAST = 16 };

TVSORT_API tvsort_code tvsort_request_create(tvsort_request** request);
TVSORT_API void tvsort_request_destroy(tvsort_request* request);
TVSORT_API const char* tvsort_request_text(const tvsort_request* request);
/* The most significant key first. */
TVSORT_API tvsort_code tvsort_request_add_key(tvsort_request* request, const tvsort_key* key);
/* One byte for each key, 1 for null, begins at this byte of the record. */
TVSORT_API tvsort_code tvsort_request_set_nulls(tvsort_request* request, int32_t field_offset);
/* 0 to 255. */
TVSORT_API tvsort_code tvsort_request_set_mode(tvsort_request* request, int32_t mode);
/* Leading records wanted, and their ties; 0 for all. */
TVSORT_API tvsort_code tvsort_request_set_limit(tvsort_request* request, int64_t limit);
/* `weights`: 256 of them, by byte value. */
TVSORT_API tvsort_code tvsort_request_add_weights(tvsort_request* request, int32_t identifier,
                                                  const uint8_t* weights);

/* ---- Slots -------------------------------------------------------------------------------- */

typedef struct tvsort_slot tvsort_slot;

typedef struct tvsort_result {
    size_t struct_size;
    int64_t record_count;
    int64_t group_count;
} tvsort_result;

/* Slots 1 to slot_count of a started server. */
TVSORT_API tvsort_code tvsort_server_slot(tvsort_server* server, int32_t slot_number,
                                          tvsort_slot** slot);
TVSORT_API const char* tvsort_slot_text(const tvsort_slot* slot);
TVSORT_API tvsort_code tvsort_slot_failure(const tvsort_slot* slot, tvsort_failure* failure);
/* Called from now on, in calls with this slot; null for none. */
TVSORT_API tvsort_code tvsort_slot_set_watch(tvsort_slot* slot, tvsort_watch watch, void* context);

/* Lays records of 1 to 65535 bytes into the slot and, what does not fit, into its work file. Starts
 * the process again where an earlier call ended it. */
TVSORT_API tvsort_code tvsort_slot_load(tvsort_slot* slot, int32_t record_bytes,
                                        tvsort_source source, void* context);
/* The same of records that lie one behind the other. */
TVSORT_API tvsort_code tvsort_slot_load_array(tvsort_slot* slot, int32_t record_bytes,
                                              const void* records, size_t record_count);
/* Has the loaded records sorted, once for each load; `result` may be null. After TVSORT_CANCELLED,
 * TVSORT_TIMED_OUT and TVSORT_DIED the process is ended, and the next load starts another. */
TVSORT_API tvsort_code tvsort_slot_sort(tvsort_slot* slot, const tvsort_request* request,
                                        tvsort_result* result);
/* Hands the result to the sink, as far as it has not been read yet. */
TVSORT_API tvsort_code tvsort_slot_read(tvsort_slot* slot, tvsort_sink sink, void* context);
/* The next records of the result, up to `records_max`; 0 are the end. */
TVSORT_API tvsort_code tvsort_slot_read_array(tvsort_slot* slot, void* target, size_t records_max,
                                              size_t* record_count);
/* From any thread, at any time: the call at work, or else the next one, answers TVSORT_CANCELLED,
 * within about 50 ms. */
TVSORT_API void tvsort_slot_cancel(tvsort_slot* slot);
/* After tvsort_slot_sort. */
TVSORT_API tvsort_code tvsort_slot_statistics(const tvsort_slot* slot,
                                              tvsort_statistics* statistics);

#ifdef __cplusplus
}
#endif

#endif
