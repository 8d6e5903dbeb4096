/* examples/collatz.vx in C. */
#include "program.h"

#include <stdint.h>

static int steps(int32_t n) {
    int count = 0;
    while (n != 1) {
        if (n % 2 == 0)
            n = n / 2;
        else
            n = 3 * n + 1;
        count++;
    }
    return count;
}

long longest(long below, int *most) {
    long start = 1;
    *most = 0;
    for (long n = 1; n < below; n++) {
        const int count = steps((int32_t)n);
        if (count > *most) {
            *most = count;
            start = n;
        }
    }
    return start;
}

/* From 113383 on, 32 bits are not enough. */
static void solve(long rounds, char *result) {
    long start = 0;
    int most = 0;
    for (long round = 1; round <= rounds; round++)
        start = longest(100000 + round, &most);
    sprintf(result, "%ld/%d", start, most);
}

int main(int argc, char **argv) {
    return run(argc, argv, solve);
}
