// A terminal that costs no system call: what the editor asks of one is answered here.
// Takes the place of the C library's functions in the fuzzer.
#include "terminal_stub.h"

#include "../lineedit/lineedit.h"

#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <signal.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/select.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <termios.h>
#include <time.h>
#include <ucontext.h>
#include <unistd.h>

#include <term.h>

struct winsize stub_size;
bool stub_size_known;
int stub_pending;
bool stub_signals;
bool stub_reading;
int stub_wait;
bool (*stub_answer)(char *byte);

static struct termios stub_settings;
static struct sigaction actions[_NSIG];

void
stub_reset()
{
    memset(&stub_settings, 0, sizeof stub_settings);
    stub_settings.c_iflag = ICRNL | IXON;
    stub_settings.c_oflag = OPOST | ONLCR;
    stub_settings.c_cflag = CS8 | CREAD;
    stub_settings.c_lflag = ISIG | ICANON | IEXTEN | ECHO | ECHOE | ECHOK;
    static const unsigned char characters[] = {3,  28, 127, 21, 4,  0,  1,  0,
                                               17, 19, 26,  0,  18, 15, 23, 22};
    memcpy(stub_settings.c_cc, characters, sizeof characters);
    cfsetospeed(&stub_settings, B38400);
    memset(actions, 0, sizeof actions);
}

void
stub_signal(int number)
{
    siginfo_t information = {};
    ucontext_t context = {};
    information.si_signo = number;
    if (actions[number].sa_flags & SA_SIGINFO)
        actions[number].sa_sigaction(number, &information, &context);
}

static void
way_out(const char *name)
{
    fprintf(stderr, "does not hold: no key calls %s\n", name);
    abort();
}

// The descriptions of the terminals seen so far: the library would read each anew and keep
// all of them.
static struct {
    char *name;
    TERMINAL *description;
    char buffer[4096];
} descriptions[16];

extern "C" {

int
tgetent(char *, const char *name)
{
    static auto real =
        reinterpret_cast<int (*)(char *, const char *)>(dlsym(RTLD_NEXT, "tgetent"));
    int i = 0;
    while (descriptions[i].name != nullptr && strcmp(descriptions[i].name, name) != 0)
        i++;
    if (descriptions[i].name == nullptr) {
        descriptions[i].name = strdup(name);
        if (real(descriptions[i].buffer, name) == 1)
            descriptions[i].description = cur_term;
    }
    if (descriptions[i].description == nullptr)
        return 0;
    set_curterm(descriptions[i].description);
    return 1;
}

// The signal of stub_wait comes during the wait, which it may leave.
int
select(int count, fd_set *reads, fd_set *writes, fd_set *others, struct timeval *limit)
{
    static auto real = reinterpret_cast<decltype(&select)>(dlsym(RTLD_NEXT, "select"));
    if (stub_wait != 0 && limit == nullptr) {
        int number = stub_wait;
        stub_wait = 0;
        stub_signal(number);
    }
    return real(count, reads, writes, others, limit);
}

int
isatty(int)
{
    return 1;
}

int
tcgetattr(int, struct termios *settings) noexcept
{
    *settings = stub_settings;
    return 0;
}

int
tcsetattr(int, int, const struct termios *settings) noexcept
{
    stub_settings = *settings;
    return 0;
}

int
ioctl(int fd, unsigned long request, ...) noexcept
{
    va_list arguments;
    va_start(arguments, request);
    void *argument = va_arg(arguments, void *);
    va_end(arguments);
    switch (request) {
    case TIOCGWINSZ:
        memcpy(argument, &stub_size, sizeof stub_size);
        stub_size_known = true;
        return 0;
    case FIONREAD:
        *static_cast<int *>(argument) = stub_pending;
        return 0;
    default:
        return static_cast<int>(syscall(SYS_ioctl, fd, request, argument));
    }
}

// No signal reaches the process but those of stub_signal.
int
sigaction(int number, const struct sigaction *next, struct sigaction *before) noexcept
{
    static auto real =
        reinterpret_cast<int (*)(int, const struct sigaction *, struct sigaction *)>(
            dlsym(RTLD_NEXT, "sigaction"));
    if (!stub_signals)
        return real(number, next, before);
    struct sigaction was = actions[number];
    if (next != nullptr)
        actions[number] = *next;
    if (before != nullptr)
        *before = was;
    return 0;
}

void (*signal(int number, void (*function)(int)) noexcept)(int)
{
    struct sigaction next = {};
    struct sigaction before;
    next.sa_handler = function;
    sigaction(number, &next, &before);
    return before.sa_handler;
}

int
raise(int) noexcept
{
    return 0;
}

int
nanosleep(const struct timespec *, struct timespec *)
{
    return 0;
}

// All descriptors are the one terminal.
int
#if __GLIBC_PREREQ(2, 33)
fstat(int fd, struct stat *found) noexcept
#else // fstat() is inline, and calls this
__fxstat(int, int fd, struct stat *found) noexcept
#endif
{
    if (!stub_signals)
        return fstatat(fd, "", found, AT_EMPTY_PATH);
    memset(found, 0, sizeof *found);
    return 0;
}

// What the editor reads by itself is the terminal's answer, or else a key.
ssize_t
read(int fd, void *buffer, size_t size)
{
    static auto real =
        reinterpret_cast<ssize_t (*)(int, void *, size_t)>(dlsym(RTLD_NEXT, "read"));
    if (!stub_signals || rl_instream == nullptr || fd != fileno(rl_instream))
        return real(fd, buffer, size);
    char *byte = static_cast<char *>(buffer);
    if (stub_answer == nullptr || !stub_answer(byte))
        *byte = 'x';
    return 1;
}
// Whoever types gets at nothing but the line: a session that asks for any of these has
// found a way out. Between the sessions they are the C library's own.
#define WAY_OUT(result, name, parameters, arguments)                                       \
    result name parameters                                                                 \
    {                                                                                      \
        static auto real =                                                                 \
            reinterpret_cast<result(*) parameters>(dlsym(RTLD_NEXT, #name));               \
        if (stub_reading)                                                                  \
            way_out(#name);                                                                \
        return real arguments;                                                             \
    }

WAY_OUT(pid_t, fork, () noexcept, ())
WAY_OUT(int, execvp, (const char *path, char *const words[]) noexcept, (path, words))
WAY_OUT(int, execve, (const char *path, char *const words[], char *const names[]) noexcept,
        (path, words, names))
WAY_OUT(int, system, (const char *line), (line))
WAY_OUT(FILE *, popen, (const char *line, const char *mode), (line, mode))
WAY_OUT(FILE *, fopen, (const char *path, const char *mode), (path, mode))
WAY_OUT(DIR *, opendir, (const char *path), (path))
WAY_OUT(int, mkstemp, (char *path), (path))
WAY_OUT(int, unlink, (const char *path) noexcept, (path))
WAY_OUT(int, kill, (pid_t process, int number) noexcept, (process, number))

int
execlp(const char *, const char *, ...) noexcept
{
    way_out("execlp");
    return -1;
}

int
open(const char *path, int flags, ...)
{
    va_list arguments;
    va_start(arguments, flags);
    mode_t mode = flags & O_CREAT ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    if (stub_reading)
        way_out("open");
    return static_cast<int>(syscall(SYS_openat, AT_FDCWD, path, flags, mode));
}
}
