// Handlers and landings. The handlers do nothing but jump. That is safe because the editor
// calls them, on the reading thread and only while its reader waits (rl_signal): no jump
// leaves the allocator or a stdio stream in the middle of an operation.
#include "interrupt.h"

#include "../lineedit/lineedit.h"
#include "gil.h"

#include <signal.h>
#include <stdio.h>
#include <stdlib.h>

sigjmp_buf sigint_jmpbuf;
sigjmp_buf sigtstp_jmpbuf;
volatile bool interrupt_armed;

pthread_t readlineThreadId;

void (*old_sigint_handler)(int);
void (*old_sigtstp_handler)(int);

// A completion inside simpleReadline leaves the module's handlers installed, deliberately,
// although no landing is armed there. A jump would go to a frame that no longer exists, so
// the shell's handler is called instead.
static void
interrupt_unarmed(void (*shells)(int), int signo)
{
    if (shells != SIG_DFL && shells != SIG_IGN && shells != SIG_ERR)
        shells(signo);
}

void
sigint_handler(int signo)
{
    if (interrupt_armed)
        siglongjmp(sigint_jmpbuf, 1);
    interrupt_unarmed(old_sigint_handler, signo);
}

void
sigtstp_handler(int signo)
{
    if (interrupt_armed)
        siglongjmp(sigtstp_jmpbuf, 1);
    interrupt_unarmed(old_sigtstp_handler, signo);
}

void
interrupt_install()
{
    sigset_t both;
    sigemptyset(&both);
    sigaddset(&both, SIGINT);
    sigaddset(&both, SIGTSTP);
    // Both old dispositions are recorded before either handler can run.
    sigprocmask(SIG_BLOCK, &both, nullptr);
    old_sigint_handler = rl_signal(SIGINT, sigint_handler);
    old_sigtstp_handler = rl_signal(SIGTSTP, sigtstp_handler);
    sigprocmask(SIG_UNBLOCK, &both, nullptr);
}

void
interrupt_reinstall()
{
    rl_signal(SIGINT, sigint_handler);
    rl_signal(SIGTSTP, sigtstp_handler);
}

void
interrupt_restore()
{
    rl_signal_restore(SIGINT, old_sigint_handler);
    rl_signal_restore(SIGTSTP, old_sigtstp_handler);
}

static PyObject *
interrupt_raise(const char *message)
{
    interrupt_restore();
    interrupt_armed = false;
    acquireGil();
    PyErr_SetString(PyExc_KeyboardInterrupt, message);
    return nullptr;
}

PyObject *
interrupt_land_sigint()
{
    if (pthread_self() != readlineThreadId) {
        printf("Assertion failed: readlineThreadId == pthread_self %s:%d (%lu, %lu)\n",
               "Cli/Keyline", 519, static_cast<unsigned long>(readlineThreadId),
               static_cast<unsigned long>(pthread_self()));
        fflush(stdout); // abort does not flush, and a pipe is buffered
        abort();
    }
    return interrupt_raise("Ctrl-C pressed");
}

PyObject *
interrupt_land_sigtstp()
{
    // Says less than the one above, deliberately: operators tell the two apart by it.
    if (pthread_self() != readlineThreadId) {
        printf("Assertion failed: readlineThreadId == pthread_self %s:%d\n", "Cli/Keyline",
               537);
        fflush(stdout);
        abort();
    }
    return interrupt_raise("Ctrl-Z pressed");
}
