/* The C interface as another language finds it: the library opened at run time, its functions by
 * name. Usage: c_loading_test LIBRARY */

#include <dlfcn.h>
#include <stdio.h>
#include <string.h>

#include "tvsort.h"

/* `name` becomes the library's function of that name. */
#define FIND(name)                                                      \
    do {                                                                \
        void *const found_ = dlsym(library, #name);                     \
        if (found_ == NULL) return complain(#name, dlerror());          \
        memcpy(&name##_found, &found_, sizeof found_);                  \
    } while (0)
#define NEED(call)                                                      \
    do {                                                                \
        if ((call) != TVSORT_OK) return complain(#call, "failed");      \
    } while (0)

static int complain(const char *what, const char *words) {
    fprintf(stderr, "%s: %s\n", what, words);
    return 1;
}

static int sort_with(void *library) {
    const double values[] = {2.5, -1.0, 7.0, 0.0};
    const int64_t expected[] = {2, 0, 3, 1};
    int64_t numbers[4] = {0};
    size_t count = 0;
    tvsort_server *server = NULL;
    tvsort_rows *rows = NULL;
    tvsort_column column = {sizeof column, TVSORT_FLOAT, TVSORT_DESCENDING, 8};
    tvsort_code (*tvsort_server_create_found)(tvsort_server **);
    tvsort_code (*tvsort_server_start_found)(tvsort_server *, const tvsort_server_options *);
    void (*tvsort_server_destroy_found)(tvsort_server *);
    tvsort_code (*tvsort_rows_create_found)(tvsort_server *, const tvsort_rows_options *,
                                            tvsort_rows **);
    tvsort_code (*tvsort_rows_add_column_found)(tvsort_rows *, const tvsort_column *);
    tvsort_code (*tvsort_rows_set_values_found)(tvsort_rows *, int32_t, const void *, ptrdiff_t,
                                                const void *, ptrdiff_t);
    tvsort_code (*tvsort_rows_put_found)(tvsort_rows *, size_t, const void *, ptrdiff_t);
    tvsort_code (*tvsort_rows_sort_found)(tvsort_rows *);
    tvsort_code (*tvsort_rows_get_found)(tvsort_rows *, size_t, void *, ptrdiff_t, int64_t *,
                                         size_t *);
    void (*tvsort_rows_destroy_found)(tvsort_rows *);
    FIND(tvsort_server_create);
    FIND(tvsort_server_start);
    FIND(tvsort_server_destroy);
    FIND(tvsort_rows_create);
    FIND(tvsort_rows_add_column);
    FIND(tvsort_rows_set_values);
    FIND(tvsort_rows_put);
    FIND(tvsort_rows_sort);
    FIND(tvsort_rows_get);
    FIND(tvsort_rows_destroy);
    NEED(tvsort_server_create_found(&server));
    /* The process stands beside the library. */
    NEED(tvsort_server_start_found(server, NULL));
    NEED(tvsort_rows_create_found(server, NULL, &rows));
    NEED(tvsort_rows_add_column_found(rows, &column));
    NEED(tvsort_rows_set_values_found(rows, 0, values, sizeof values[0], NULL, 0));
    NEED(tvsort_rows_put_found(rows, 4, NULL, 0));
    NEED(tvsort_rows_sort_found(rows));
    NEED(tvsort_rows_get_found(rows, 4, NULL, 0, numbers, &count));
    tvsort_rows_destroy_found(rows);
    tvsort_server_destroy_found(server);
    if (count != 4 || memcmp(numbers, expected, sizeof numbers) != 0) {
        return complain("the order", "is another one");
    }
    return 0;
}

int main(int argument_count, char **arguments) {
    if (argument_count != 2) return complain("usage", "c_loading_test LIBRARY");
    /* Twice: what is closed leaves nothing that the next one would stumble over. */
    for (int turn = 0; turn < 2; ++turn) {
        void *library = dlopen(arguments[1], RTLD_NOW | RTLD_LOCAL);
        if (library == NULL) return complain(arguments[1], dlerror());
        /* Nothing but the interface is visible, not even to who asks. */
        if (dlsym(library, "_ZN6tvsort4host10SortServer4slotEi") != NULL) {
            return complain("the library", "shows its inside");
        }
        if (sort_with(library) != 0 || dlclose(library) != 0) return 1;
    }
    puts("loaded, used and closed twice");
    return 0;
}
