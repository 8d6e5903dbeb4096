/* examples/nbody.vx in C. Positions and speeds are columns of 3 numbers, one for each body. */
#include "program.h"

#include <math.h>
#include <string.h>

enum { count = 5 };
static const double pi = 3.141592653589793;

void bodies(double p[][3], double v[][3], double m[]) {
    static const double places[count][3] = {
        {0, 0, 0},
        {4.84143144246472090, -1.16032004402742839, -0.103622044471123109},
        {8.34336671824457987, 4.12479856412430479, -0.403523417114321381},
        {12.8943695621391310, -15.1111514016986312, -0.223307578892655734},
        {15.3796971148509165, -25.9193146099879641, 0.179258772950371181}};
    static const double speeds[count][3] = {
        {0, 0, 0},
        {0.00166007664274403694, 0.00769901118419740425, -0.0000690460016972063023},
        {-0.00276742510726411160, 0.00499852801234917238, 0.0000230417297573763929},
        {0.00296460137564761618, 0.00237847173959480950, -0.0000296589568540237556},
        {0.00268067772490389322, 0.00162824170038242295, -0.0000951592254519715870}};
    static const double masses[count] = {1, 0.000954791938424326609, 0.000285885980666130812,
                                         0.0000436624404335156298, 0.0000515138902046611451};
    const double year = 365.24;
    const double sun = 4 * pi * pi;
    memcpy(p, places, sizeof places);
    for (int i = 0; i < count; i++) {
        m[i] = sun * masses[i];
        for (int k = 0; k < 3; k++)
            v[i][k] = year * speeds[i][k];
    }
    for (int k = 0; k < 3; k++) {
        double s = 0;
        for (int i = 1; i < count; i++)
            s += v[i][k] * m[i];
        v[0][k] = -s / sun;
    }
}

double energy(int n, const double p[][3], const double v[][3], const double m[]) {
    double e = 0;
    for (int i = 0; i < n; i++) {
        e += 0.5 * m[i] * (v[i][0] * v[i][0] + v[i][1] * v[i][1] + v[i][2] * v[i][2]);
        for (int j = i + 1; j < n; j++) {
            const double dx = p[i][0] - p[j][0];
            const double dy = p[i][1] - p[j][1];
            const double dz = p[i][2] - p[j][2];
            e -= m[i] * m[j] / sqrt(dx * dx + dy * dy + dz * dz);
        }
    }
    return e;
}

void advance(int n, double p[][3], double v[][3], const double m[], long steps) {
    const double dt = 0.01;
    for (long step = 0; step < steps; step++) {
        for (int i = 0; i < n; i++) {
            for (int j = i + 1; j < n; j++) {
                const double dx = p[i][0] - p[j][0];
                const double dy = p[i][1] - p[j][1];
                const double dz = p[i][2] - p[j][2];
                const double squared = dx * dx + dy * dy + dz * dz;
                const double pull = dt / (squared * sqrt(squared));
                v[i][0] -= dx * m[j] * pull;
                v[i][1] -= dy * m[j] * pull;
                v[i][2] -= dz * m[j] * pull;
                v[j][0] += dx * m[i] * pull;
                v[j][1] += dy * m[i] * pull;
                v[j][2] += dz * m[i] * pull;
            }
        }
        for (int i = 0; i < n; i++)
            for (int k = 0; k < 3; k++)
                p[i][k] += dt * v[i][k];
    }
}

static void solve(long steps, char *result) {
    double p[count][3], v[count][3], m[count];
    bodies(p, v, m);
    advance(count, p, v, m, steps);
    sprintf(result, "%.12f", energy(count, p, v, m));
}

int main(int argc, char **argv) {
    return run(argc, argv, solve);
}
