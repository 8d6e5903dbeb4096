/* examples/lu_solve.vx in C: matrices by columns, whole rows exchanged. */
#include "program.h"

#include <math.h>

double factor(long n, double *a, long *order) {
    double sign = 1;
    for (long k = 0; k < n; k++)
        order[k] = k;
    for (long k = 0; k < n; k++) {
        long best = k;
        for (long i = k + 1; i < n; i++)
            if (fabs(a[i + k * n]) > fabs(a[best + k * n]))
                best = i;
        if (best != k) {
            for (long j = 0; j < n; j++) {
                const double held = a[k + j * n];
                a[k + j * n] = a[best + j * n];
                a[best + j * n] = held;
            }
            const long held = order[k];
            order[k] = order[best];
            order[best] = held;
            sign = -sign;
        }
        for (long i = k + 1; i < n; i++) {
            a[i + k * n] = a[i + k * n] / a[k + k * n];
            for (long j = k + 1; j < n; j++)
                a[i + j * n] = a[i + j * n] - a[i + k * n] * a[k + j * n];
        }
    }
    return sign;
}

/* The logarithm of the determinant of a matrix that is well-conditioned. */
static void solve(long n, char *result) {
    double *const a = malloc((size_t)(n * n) * sizeof *a);
    long *const order = malloc((size_t)n * sizeof *order);
    for (long i = 0; i < n; i++)
        for (long j = 0; j < n; j++)
            a[i + j * n] = 1 / (double)(i + j + 1) + (i + j == n - 1 ? 1 : 0);
    const double sign = factor(n, a, order);
    double sum = 0;
    for (long i = 0; i < n; i++)
        sum += log(fabs(a[i + i * n]));
    sprintf(result, "%.0f/%.12f", sign, sum);
    free(a);
    free(order);
}

int main(int argc, char **argv) {
    return run(argc, argv, solve);
}
