// A terminal that costs no system call: what the editor asks of one is answered here, what
// it writes goes to the screen. Takes the place of the C library's functions in the fuzzer.
#include "terminal_stub.h"

#include "../lineedit/lineedit.h"
#include "screen.h"

#include <dlfcn.h>
#include <signal.h>
#include <stdarg.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <termios.h>
#include <time.h>
#include <unistd.h>

#include <term.h>

struct winsize stub_size;
int stub_pending;
bool stub_signals;

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
    information.si_signo = number;
    if (actions[number].sa_flags & SA_SIGINFO)
        actions[number].sa_sigaction(number, &information, nullptr);
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
        return 0;
    case TCSETS:
    case TCSETSW:
    case TCSETSF: {
        // The kernel's form: fewer characters and no speeds of their own.
        tcflag_t *flags = static_cast<tcflag_t *>(argument);
        stub_settings.c_iflag = flags[0];
        stub_settings.c_oflag = flags[1];
        stub_settings.c_cflag = flags[2];
        stub_settings.c_lflag = flags[3];
        unsigned char *rest = reinterpret_cast<unsigned char *>(flags + 4);
        stub_settings.c_line = rest[0];
        memcpy(stub_settings.c_cc, rest + 1, 19);
        return 0;
    }
    case FIONREAD:
        *static_cast<int *>(argument) = stub_pending;
        return 0;
    default:
        return static_cast<int>(syscall(SYS_ioctl, fd, request, argument));
    }
}

// No signal leaves the process, and no child is made: the text that an external editor is
// to change stays as it was written for it.
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
kill(pid_t, int) noexcept
{
    return 0;
}

pid_t
fork() noexcept
{
    return 1000000;
}

// The text for it is a file in memory.
int
mkstemp(char *)
{
    return memfd_create("edited", 0);
}

int
nanosleep(const struct timespec *, struct timespec *)
{
    return 0;
}

// All descriptors are the one terminal.
int
fstat(int fd, struct stat *found) noexcept
{
    static auto real =
        reinterpret_cast<int (*)(int, struct stat *)>(dlsym(RTLD_NEXT, "fstat"));
    if (!stub_signals)
        return real(fd, found);
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
    if (!screen_answer(byte))
        *byte = 'x';
    return 1;
}

int
unlink(const char *) noexcept
{
    return 0;
}

pid_t
waitpid(pid_t child, int *status, int)
{
    *status = 0;
    return child;
}
}
