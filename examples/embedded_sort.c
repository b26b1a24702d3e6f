/* Sorts accounts by falling balance and then by owner, in plain C: the columns say what counts, and
 * the numbers of the rows come back in order. */

#include <stdio.h>
#include <tvsort.h>

struct account {
    int64_t balance;
    char owner[24];
};

static const struct account accounts[] = {{50, "Noether"}, {-7, "Gauss"}, {120, "Hopper"},
                                          {50, "Curie"},   {0, "Turing"}, {120, "Ada"}};
enum { ACCOUNT_COUNT = sizeof accounts / sizeof accounts[0] };

/* Answers 0, or 1 when what was done with the rows did not succeed. */
static int sort_accounts(tvsort_rows *rows) {
    const tvsort_column balance = {sizeof balance, TVSORT_SIGNED, TVSORT_DESCENDING, 8};
    const tvsort_column owner = {sizeof owner, TVSORT_BYTES, 0, sizeof accounts[0].owner};
    const ptrdiff_t stride = sizeof accounts[0];
    int64_t numbers[ACCOUNT_COUNT];
    size_t count;
    if (tvsort_rows_add_column(rows, &balance) != TVSORT_OK ||
        tvsort_rows_add_column(rows, &owner) != TVSORT_OK ||
        tvsort_rows_set_values(rows, 0, &accounts[0].balance, stride, NULL, 0) != TVSORT_OK ||
        tvsort_rows_set_values(rows, 1, accounts[0].owner, stride, NULL, 0) != TVSORT_OK ||
        tvsort_rows_put(rows, ACCOUNT_COUNT, NULL, 0) != TVSORT_OK ||
        tvsort_rows_sort(rows) != TVSORT_OK ||
        tvsort_rows_get(rows, ACCOUNT_COUNT, NULL, 0, numbers, &count) != TVSORT_OK) {
        return 1;
    }
    for (size_t i = 0; i < count; ++i) {
        printf("%4lld %s\n", (long long)accounts[numbers[i]].balance, accounts[numbers[i]].owner);
    }
    return 0;
}

int main(void) {
    tvsort_server *server = NULL;
    tvsort_rows *rows = NULL;
    int status = tvsort_server_create(&server) != TVSORT_OK;
    if (status == 0 && tvsort_server_start(server, NULL) != TVSORT_OK) {
        fprintf(stderr, "embedded_sort: %s\n", tvsort_server_text(server));
        status = 1;
    }
    if (status == 0) {
        status = tvsort_rows_create(server, NULL, &rows) != TVSORT_OK || sort_accounts(rows) != 0;
        if (status != 0) fprintf(stderr, "embedded_sort: %s\n", tvsort_rows_text(rows));
    }
    tvsort_rows_destroy(rows);
    tvsort_server_destroy(server);
    return status;
}
