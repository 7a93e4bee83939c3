/*
 * Linked into whatever is built to be counted: writes the counts of this object, at the end
 * and whenever ends.c, where that is loaded, says so. Each object has its own.
 */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <gcov.h>
#include <sys/stat.h>

/* Also a process that has become another user adds to the files. */
static void
write_for_all(void)
{
    mode_t mask = umask(0);

    __gcov_dump();
    (void)umask(mask);
}

static void
write_counts(void)
{
    write_for_all();
    __gcov_reset(); /* or nothing that comes after this would be written at the end */
}

static void __attribute__((constructor))
say_how(void)
{
    void (*add)(void (*)(void)) = (void (*)(void (*)(void)))dlsym(RTLD_DEFAULT, "counts_add");

    if (add)
        add(write_counts);
}

static void __attribute__((destructor))
write_at_end(void)
{
    write_for_all();
}
