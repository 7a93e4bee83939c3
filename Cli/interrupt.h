// Ctrl-C and Ctrl-Z end a read: the two handlers, the landings that they jump to, and the
// dispositions that the shell had. The landings are armed in py_readline, whose frame they
// return to.
#pragma once

#include <pthread.h>
#include <setjmp.h>

#include "base.h"
#include "pyapi.h"

// Valid only while py_readline is on the stack of the thread in readlineThreadId.
extern sigjmp_buf sigint_jmpbuf;
extern sigjmp_buf sigtstp_jmpbuf;

// True from when both landings are armed until py_readline is about to return.
extern volatile bool interrupt_armed;

// The thread that last entered readline; the landings compare it and nothing else.
extern "C" __attribute__((visibility("default"))) pthread_t readlineThreadId;

// What the shell had before the read.
extern void (*old_sigint_handler)(int);
extern void (*old_sigtstp_handler)(int);

extern "C" {
// Jump to the landing of their signal and do not return. The editor calls them on the
// reading thread, when a jump out of it is safe: see interrupt.cpp.
void sigint_handler(int signo);
void sigtstp_handler(int signo);
}

// Records the shell's dispositions and installs the two handlers, with both signals blocked
// meanwhile. A pending signal lands before this returns: may be abandoned. Lock: away.
void interrupt_install();

// Installs the two handlers again after Python code ran inside the read. What that code may
// have installed is not recorded. Lock: any.
void interrupt_reinstall();

// Restores the shell's dispositions. Lock: any.
void interrupt_restore();

// What a landing does, on the landing thread: checks the thread (aborts with a message on
// standard output when it is not the reading one), restores the dispositions, takes the
// lock and raises KeyboardInterrupt. Always NULL. Lock: away -> held.
PyObject *interrupt_land_sigint();
PyObject *interrupt_land_sigtstp();
