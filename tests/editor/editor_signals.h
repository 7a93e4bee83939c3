// What the tests of signals share beside editor_in_process.h: dispositions, reads that
// SIGINT and SIGTSTP leave by a jump, and a step before and after each system call of the
// editor, at which a test can do something.
#pragma once

#include "editor_in_process.h"

#include <atomic>
#include <dlfcn.h>
#include <pthread.h>
#include <setjmp.h>
#include <stdarg.h>

inline const int signals[] = {SIGINT, SIGTSTP, SIGQUIT, SIGHUP, SIGTERM, SIGCONT, SIGWINCH};

// ---- the editor's system calls, with a step before and one after each ----

inline void (*at_step)(); // called at every step while set, itself excepted
inline void (*again)();   // it, while it runs; null: no more
inline int steps;         // so many have been taken
inline int signal_at;     // raise a signal at this one; 0: at none
inline int signal_raised; // which one
inline bool is_limited;   // the step is of a wait with a timeout

inline void
step()
{
    int error = errno;
    steps++;
    if (steps == signal_at)
        raise(signal_raised);
    if (at_step != nullptr) {
        void (*call)() = at_step;
        at_step = nullptr;
        again = call;
        call();
        if (again != nullptr)
            at_step = again;
    }
    errno = error;
}

template <typename Call, typename... Arguments>
inline auto
between_steps(Call *call, Arguments... arguments)
{
    step();
    auto result = call(arguments...);
    step();
    return result;
}

template <typename Function>
inline Function *
real(Function *, const char *name)
{
    return reinterpret_cast<Function *>(dlsym(RTLD_NEXT, name));
}

// Where a time in it is wider than it was, the C library has a second function.
constexpr const char *select_name = sizeof(time_t) > sizeof(long) ? "__select64" : "select";

extern "C" {
int
sigaction(int signo, const struct sigaction *next, struct sigaction *old) noexcept
{
    static auto *call = real(&sigaction, "sigaction");
    return between_steps(call, signo, next, old);
}

ssize_t
read(int fd, void *buffer, size_t size)
{
    static auto *call = real(&read, "read");
    if (fd != slave)
        return call(fd, buffer, size);
    return between_steps(call, fd, buffer, size);
}

int
ioctl(int fd, unsigned long request, ...) noexcept
{
    static auto *call = real(&ioctl, "ioctl");
    va_list arguments;
    va_start(arguments, request);
    void *argument = va_arg(arguments, void *);
    va_end(arguments);
    return between_steps(call, fd, request, argument);
}

int
tcsetattr(int fd, int action, const struct termios *wanted) noexcept
{
    static auto *call = real(&tcsetattr, "tcsetattr");
    return between_steps(call, fd, action, wanted);
}

int
select(int nfds, fd_set *reads, fd_set *writes, fd_set *others, struct timeval *limit)
{
    static auto *call = real(&select, select_name);
    is_limited = limit != nullptr && limit->tv_sec + limit->tv_usec > 0;
    step();
    is_limited = false;
    int result = call(nfds, reads, writes, others, limit);
    step();
    return result;
}
}

// ---- dispositions ----

inline std::atomic<int> calls;     // of plain handlers
inline std::atomic<int> last_call; // with this signal

inline void
plain(int signo)
{
    last_call = signo;
    calls++;
}

inline void
with_info(int signo, siginfo_t *, void *)
{
    plain(signo);
}

inline struct sigaction
disposition(int signo)
{
    struct sigaction found = {};
    sigaction(signo, nullptr, &found);
    return found;
}

inline void
set_disposition(int signo, void (*handler)(int), int flags = 0)
{
    struct sigaction wanted = {};
    wanted.sa_handler = handler;
    wanted.sa_flags = flags;
    sigaction(signo, &wanted, nullptr);
}

inline bool
same(const struct sigaction &one, const struct sigaction &other)
{
    constexpr int restorer = 0x04000000; // the C library's own
    if (one.sa_handler != other.sa_handler ||
        (one.sa_flags | restorer) != (other.sa_flags | restorer))
        return false;
    for (int signo = 1; signo < NSIG; signo++)
        if (sigismember(&one.sa_mask, signo) != sigismember(&other.sa_mask, signo))
            return false;
    return true;
}

inline std::vector<struct sigaction>
dispositions()
{
    std::vector<struct sigaction> found;
    for (int signo : signals)
        found.push_back(disposition(signo));
    return found;
}

// The first signal whose disposition is another now, or 0.
inline int
changed_since(const std::vector<struct sigaction> &before)
{
    std::vector<struct sigaction> now = dispositions();
    for (size_t i = 0; i < now.size(); i++)
        if (!same(now[i], before[i]))
            return signals[i];
    return 0;
}

// ---- reads that SIGINT and SIGTSTP leave by a jump ----

inline sigjmp_buf landing;
inline std::atomic<int> jumps;
inline pthread_t landed_on;
inline void (*old_int)(int);
inline void (*old_tstp)(int);

inline void
jump(int signo)
{
    jumps++;
    siglongjmp(landing, signo);
}

inline void
jump_install()
{
    sigset_t both;
    sigemptyset(&both);
    sigaddset(&both, SIGINT);
    sigaddset(&both, SIGTSTP);
    pthread_sigmask(SIG_BLOCK, &both, nullptr);
    old_int = rl_signal(SIGINT, jump);
    old_tstp = rl_signal(SIGTSTP, jump);
    pthread_sigmask(SIG_UNBLOCK, &both, nullptr);
}

inline void
jump_restore()
{
    rl_signal_restore(SIGINT, old_int);
    rl_signal_restore(SIGTSTP, old_tstp);
}

constexpr const char *interrupted = "(interrupted)";
constexpr const char *suspended = "(suspended)";

// One read by the script that is set, as the module does it.
inline std::string
guarded_line()
{
    switch (sigsetjmp(landing, 1)) {
    case 0:
        break;
    case SIGINT:
        landed_on = pthread_self();
        jump_restore();
        return interrupted;
    default:
        landed_on = pthread_self();
        jump_restore();
        return suspended;
    }
    jump_install();
    char *line = readline("> ");
    jump_restore();
    std::string result = line == nullptr ? end_of_input : line;
    free(line);
    return result;
}

inline std::string
guarded_line(const std::vector<Step> &script_of_it)
{
    set_script(script_of_it);
    return guarded_line();
}

// ---- the fixture ----

class EditorSignals : public EditorTest
{
  protected:
    std::vector<struct sigaction> kept;

    void SetUp() override
    {
        EditorTest::SetUp();
        kept = dispositions();
        calls = 0;
        jumps = 0;
    }

    void TearDown() override
    {
        at_step = nullptr;
        signal_at = 0;
        for (size_t i = 0; i < kept.size(); i++)
            sigaction(signals[i], &kept[i], nullptr);
        EditorTest::TearDown();
    }
};
