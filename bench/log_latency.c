/*
 * The yardstick of log_latency.py: the least that a program can do to see a new line in a
 * file. It waits on inotify and reads the file; after each piece it writes the time, in
 * nanoseconds, to its standard output.
 */
#include <fcntl.h>
#include <stdint.h>
#include <stdio.h>
#include <sys/inotify.h>
#include <sys/select.h>
#include <time.h>
#include <unistd.h>

int
main(int argc, char **argv)
{
    static char events[4096], text[32768];
    int notices = inotify_init1(IN_CLOEXEC);
    int log = argc == 2 ? open(argv[1], O_RDONLY) : -1;

    if (log == -1 || lseek(log, 0, SEEK_END) == -1 ||
        inotify_add_watch(notices, argv[1], IN_MODIFY) == -1) {
        fprintf(stderr, "usage: log_latency FILE\n");
        return 1;
    }
    for (;;) {
        struct timespec now;
        int64_t time;
        fd_set set;
        FD_ZERO(&set);
        FD_SET(notices, &set);
        if (select(notices + 1, &set, NULL, NULL, NULL) <= 0)
            continue;
        if (read(notices, events, sizeof events) <= 0 || read(log, text, sizeof text) <= 0)
            continue;
        clock_gettime(CLOCK_MONOTONIC, &now);
        time = now.tv_sec * INT64_C(1000000000) + now.tv_nsec;
        if (write(1, &time, sizeof time) != sizeof time)
            return 0;
    }
}
