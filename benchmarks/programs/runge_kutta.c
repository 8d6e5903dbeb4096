/* examples/runge_kutta.vx in C. */
#include "program.h"

static const double pi = 3.141592653589793;

static double force(double y) {
    return -y;
}

void swing(long steps, double *place, double *speed) {
    const double h = 2 * pi / (double)steps;
    double y = 1;
    double v = 0;
    for (long i = 0; i < steps; i++) {
        const double y1 = v;
        const double v1 = force(y);
        const double y2 = v + h / 2 * v1;
        const double v2 = force(y + h / 2 * y1);
        const double y3 = v + h / 2 * v2;
        const double v3 = force(y + h / 2 * y2);
        const double y4 = v + h * v3;
        const double v4 = force(y + h * y3);
        y = y + h / 6 * (y1 + 2 * y2 + 2 * y3 + y4);
        v = v + h / 6 * (v1 + 2 * v2 + 2 * v3 + v4);
    }
    *place = y;
    *speed = v;
}

static void solve(long steps, char *result) {
    double y, v;
    swing(steps, &y, &v);
    sprintf(result, "%.15f/%.15f", y, v);
}

int main(int argc, char **argv) {
    return run(argc, argv, solve);
}
