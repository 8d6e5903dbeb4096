/* The first and the second task of examples/coins.vx in C. */
#include "program.h"

#include <stdint.h>

static int32_t ways(long total, const long *coins, int kinds) {
    int32_t *const table = calloc((size_t)total + 1, sizeof *table);
    table[0] = 1;
    for (int k = 0; k < kinds; k++)
        for (long sum = coins[k]; sum <= total; sum++)
            table[sum] = table[sum] + table[sum - coins[k]];
    const int32_t result = table[total];
    free(table);
    return result;
}

static double longest_common(const double *a, long m, const double *b, long n) {
    double *const best = calloc((size_t)((m + 1) * (n + 1)), sizeof *best);
    for (long i = 0; i < m; i++)
        for (long j = 0; j < n; j++) {
            const long here = i + 1 + (j + 1) * (m + 1);
            if (a[i] == b[j]) {
                best[here] = best[i + j * (m + 1)] + 1;
            } else {
                const double above = best[i + (j + 1) * (m + 1)];
                const double before = best[i + 1 + j * (m + 1)];
                best[here] = above > before ? above : before;
            }
        }
    const double result = best[m + n * (m + 1)];
    free(best);
    return result;
}

static void solve(long n, char *result) {
    static const long coins[] = {1, 2, 5, 10, 20, 50, 100, 200};
    int32_t count = 0;
    for (long turn = 0; turn < n; turn++)
        count = ways(200, coins, 8);
    double *const a = malloc((size_t)n * sizeof *a);
    double *const b = malloc((size_t)n * sizeof *b);
    int seed = 1;
    for (long i = 0; i < n; i++) {
        seed = (seed * 421 + 1663) % 7875;
        a[i] = seed % 4;
        seed = (seed * 421 + 1663) % 7875;
        b[i] = seed % 4;
    }
    sprintf(result, "%d/%.0f", count, longest_common(a, n, b, n));
    free(a);
    free(b);
}

int main(int argc, char **argv) {
    return run(argc, argv, solve);
}
