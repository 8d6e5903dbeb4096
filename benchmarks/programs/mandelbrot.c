/* examples/mandelbrot.vx in C. */
#include "program.h"

#include <stdbool.h>

static bool escapes(double x, double y, int limit) {
    double a = 0;
    double b = 0;
    for (int n = 1; n <= limit; n++) {
        const double aa = a * a;
        const double bb = b * b;
        if (aa + bb > 4)
            return true;
        b = 2 * a * b + y;
        a = aa - bb + x;
    }
    return false;
}

long area(long columns, long rows, int limit) {
    long inside = 0;
    for (long j = 1; j <= rows; j++) {
        const double y = 1.2 * ((double)j - 0.5) / (double)rows;
        for (long i = 1; i <= columns; i++) {
            const double x = -2 + 2.5 * ((double)i - 0.5) / (double)columns;
            if (!escapes(x, y, limit))
                inside++;
        }
    }
    return inside;
}

static void solve(long columns, char *result) {
    sprintf(result, "%ld", area(columns, columns * 2 / 3, 150));
}

int main(int argc, char **argv) {
    return run(argc, argv, solve);
}
