/* examples/pancakes.vx in C: the numbers are doubles, as they are there. */
#include "program.h"

#include <stdbool.h>

static int flips(const double *given, double *order, int n) {
    for (int i = 0; i < n; i++)
        order[i] = given[i];
    int count = 0;
    int first = (int)order[0];
    while (first != 1) {
        for (int i = 0, j = first - 1; i < j; i++, j--) {
            const double held = order[i];
            order[i] = order[j];
            order[j] = held;
        }
        count++;
        first = (int)order[0];
    }
    return count;
}

long pancakes(int n, int *most) {
    double order[16], turned[16];
    int turns[16] = {0};
    long checksum = 0;
    int r = n;
    *most = 0;
    for (int i = 0; i < n; i++)
        order[i] = i + 1;
    for (long number = 0;; number++) {
        for (; r > 1; r--)
            turns[r - 1] = r;
        const int count = flips(order, turned, n);
        if (count > *most)
            *most = count;
        checksum += number % 2 == 0 ? count : -count;
        while (true) {
            if (r == n)
                return checksum;
            const double first = order[0];
            for (int i = 0; i < r; i++)
                order[i] = order[i + 1];
            order[r] = first;
            turns[r]--;
            if (turns[r] > 0)
                break;
            r++;
        }
    }
}

static void solve(long n, char *result) {
    int most;
    const long checksum = pancakes((int)n, &most);
    sprintf(result, "%ld/%d", checksum, most);
}

int main(int argc, char **argv) {
    return run(argc, argv, solve);
}
