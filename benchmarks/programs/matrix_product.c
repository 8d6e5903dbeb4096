/* examples/matrix_product.vx in C: matrices by columns. */
#include "program.h"

void product(long rows, long inner, long columns, const double *a, const double *b, double *c) {
    for (long j = 0; j < columns; j++)
        for (long i = 0; i < rows; i++) {
            double sum = 0;
            for (long k = 0; k < inner; k++)
                sum += a[i + k * rows] * b[k + j * inner];
            c[i + j * rows] = sum;
        }
}

static double *filled(long n, int seed) {
    double *const a = malloc((size_t)(n * n) * sizeof *a);
    for (long i = 0; i < n * n; i++) {
        seed = (seed * 421 + 1663) % 7875;
        a[i] = seed % 19 - 9;
    }
    return a;
}

static void solve(long n, char *result) {
    double *const a = filled(n, 1);
    double *const b = filled(n, 2);
    double *const c = malloc((size_t)(n * n) * sizeof *c);
    product(n, n, n, a, b, c);
    double trace = 0;
    for (long i = 0; i < n; i++)
        trace += c[i + i * n];
    sprintf(result, "%.0f", trace);
    free(a);
    free(b);
    free(c);
}

int main(int argc, char **argv) {
    return run(argc, argv, solve);
}
