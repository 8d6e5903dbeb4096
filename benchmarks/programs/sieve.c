/* examples/sieve.vx in C: a byte for each number. */
#include "program.h"

#include <stdbool.h>

long primes_below(long n, long *greatest) {
    bool *const composite = calloc((size_t)n + 1, sizeof *composite);
    for (long k = 2; k * k < n; k++)
        if (!composite[k])
            for (long multiple = k * k; multiple <= n; multiple += k)
                composite[multiple] = true;
    long count = 0;
    *greatest = 0;
    for (long k = 2; k < n; k++)
        if (!composite[k]) {
            count++;
            *greatest = k;
        }
    free(composite);
    return count;
}

static void solve(long n, char *result) {
    long greatest;
    const long count = primes_below(n, &greatest);
    sprintf(result, "%ld/%ld", count, greatest);
}

int main(int argc, char **argv) {
    return run(argc, argv, solve);
}
