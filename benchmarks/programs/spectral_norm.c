/* examples/spectral_norm.vx in C. */
#include "program.h"

#include <math.h>

static double a(double i, double j) {
    return 1 / ((i + j) * (i + j + 1) / 2 + i + 1);
}

void times(long n, const double *v, double *w) {
    for (long i = 0; i < n; i++) {
        w[i] = 0;
        for (long j = 0; j < n; j++)
            w[i] += a((double)i, (double)j) * v[j];
    }
}

void times_transposed(long n, const double *v, double *w) {
    for (long i = 0; i < n; i++) {
        w[i] = 0;
        for (long j = 0; j < n; j++)
            w[i] += a((double)j, (double)i) * v[j];
    }
}

double spectral_norm(long n) {
    double *const u = malloc((size_t)n * sizeof *u);
    double *const v = malloc((size_t)n * sizeof *v);
    double *const w = malloc((size_t)n * sizeof *w);
    for (long i = 0; i < n; i++)
        u[i] = 1;
    for (int turn = 0; turn < 10; turn++) {
        times(n, u, w);
        times_transposed(n, w, v);
        times(n, v, w);
        times_transposed(n, w, u);
    }
    double uv = 0;
    double vv = 0;
    for (long i = 0; i < n; i++) {
        uv += u[i] * v[i];
        vv += v[i] * v[i];
    }
    free(u);
    free(v);
    free(w);
    return sqrt(uv / vv);
}

static void solve(long n, char *result) {
    sprintf(result, "%.12f", spectral_norm(n));
}

int main(int argc, char **argv) {
    return run(argc, argv, solve);
}
