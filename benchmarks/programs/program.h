/* What every C program of this folder shares: `PROGRAM SIZE [ROUNDS]` solves the problem of that size,
 * once or so many times, and prints the result. The scripts and the Lua programs do the same. */
#include <stdio.h>
#include <stdlib.h>

static inline int run(int argc, char **argv, void (*solve)(long size, char *result)) {
    char result[128];
    if (argc < 2)
        return 2;
    for (int round = argc > 2 ? atoi(argv[2]) : 1; round > 0; round--)
        solve(atol(argv[1]), result);
    puts(result);
    return 0;
}
