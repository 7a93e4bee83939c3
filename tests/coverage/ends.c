/*
 * Loaded before everything else: a process that ends without the exit handlers, by _exit(),
 * abort(), a failed check or a signal that it raises, writes its counts first. Those of one
 * that is killed from outside, or by the kernel for a fault, are lost.
 */
#define _GNU_SOURCE
#undef NDEBUG /* hides __assert_fail() */
#include <assert.h>
#include <dlfcn.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/syscall.h>
#include <unistd.h>

#define OBJECTS_MAX 8

static void (*objects[OBJECTS_MAX])(void);
static int object_count;

void counts_add(void (*write_counts)(void));

void
counts_add(void (*write_counts)(void))
{
    if (object_count < OBJECTS_MAX)
        objects[object_count++] = write_counts;
}

static void
write_all(void)
{
    for (int i = 0; i < object_count; i++)
        objects[i]();
}

void
_exit(int status)
{
    write_all();
    for (;;)
        syscall(SYS_exit_group, status);
}

void
abort(void)
{
    write_all();
    ((void (*)(void))dlsym(RTLD_NEXT, "abort"))();
    __builtin_unreachable();
}

void
__assert_fail(const char *expression, const char *file, unsigned line, const char *function)
{
    write_all();
    ((void (*)(const char *, const char *, unsigned, const char *))dlsym(
        RTLD_NEXT, "__assert_fail"))(expression, file, line, function);
    __builtin_unreachable();
}

/* Most signals that are raised are handled, or stop the process for a while. */
int
raise(int signo)
{
    write_all();
    return ((int (*)(int))dlsym(RTLD_NEXT, "raise"))(signo);
}
