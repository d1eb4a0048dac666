/* LD_PRELOAD shim for the patch benchmark: times every pure wait made with select() (no file
 * descriptors, a timeout), which is how the task pauses. At exit it writes to the file named by
 * RPX_SLEEP_METER two numbers in seconds: the wall time spent in those waits and the time they
 * asked for. With RPX_SLEEP_METER_SKIP=1 the waits return at once (quick runs). */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/select.h>
#include <time.h>

static double gSlept;
static double gAsked;

static double Now(void) {
    struct timespec t;
    clock_gettime(CLOCK_MONOTONIC, &t);
    return (double)t.tv_sec + (double)t.tv_nsec / 1e9;
}

int select(int nfds, fd_set* readfds, fd_set* writefds, fd_set* exceptfds, struct timeval* timeout) {
    typedef int (*SelectFn)(int, fd_set*, fd_set*, fd_set*, struct timeval*);
    static SelectFn real;
    if (!real) real = (SelectFn)dlsym(RTLD_NEXT, "select");
    int pureWait = nfds == 0 && !readfds && !writefds && !exceptfds && timeout;
    if (!pureWait) return real(nfds, readfds, writefds, exceptfds, timeout);
    gAsked += (double)timeout->tv_sec + (double)timeout->tv_usec / 1e6;
    const char* skip = getenv("RPX_SLEEP_METER_SKIP");
    if (skip && skip[0] == '1') {
        timeout->tv_sec = 0;
        timeout->tv_usec = 0;
        return 0;
    }
    double start = Now();
    int result = real(nfds, readfds, writefds, exceptfds, timeout);
    gSlept += Now() - start;
    return result;
}

__attribute__((destructor)) static void WriteTotals(void) {
    const char* path = getenv("RPX_SLEEP_METER");
    if (!path || !*path) return;
    FILE* f = fopen(path, "w");
    if (!f) return;
    fprintf(f, "%.6f %.6f\n", gSlept, gAsked);
    fclose(f);
}
