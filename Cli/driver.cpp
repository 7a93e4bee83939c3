// Sets the editor up and reads lines with it. py_readline is one piece on purpose: the
// landings of Ctrl-C and Ctrl-Z return to its frame.
#include "driver.h"

#include "../lineedit/lineedit.h"
#include "complete.h"
#include "gil.h"
#include "history.h"
#include "interrupt.h"
#include "keys.h"
#include "logecho.h"

#include <errno.h>
#include <stdio.h>
#include <stdlib.h>

int readline_initialized;
unsigned char key_bindings_enabled;

// Whether a line is being read: from before the lock is released until it is back.
static bool driver_reading;

// A stdio stream on the descriptor of a Python file, which is shared, not duplicated. NULL
// with an exception. The stream is never closed, only forgotten by resetInput: closing it
// would close the descriptor that the Python file uses. Lock: held.
static FILE *
file_with_mode(PyObject *file, const char *mode)
{
    PyObject *flushed = PyObject_CallMethod(file, "flush", nullptr);
    if (flushed == nullptr)
        return nullptr;
    Py_DECREF(flushed);
    int fd = PyObject_AsFileDescriptor(file);
    if (fd == -1)
        return nullptr;
    FILE *stream = fdopen(fd, mode);
    if (stream == nullptr)
        PyErr_SetFromErrno(PyExc_OSError);
    else if (mode[0] == 'w')
        setvbuf(stream, nullptr, _IOFBF, BUFSIZ); // the editor says when, not each line
    return stream;
}

// A stream on sys.<name>. Takes a reference to that, which resetInput drops. Lock: held.
static FILE *
driver_stream(const char *name, const char *mode)
{
    PyObject *file = PySys_GetObject(name);
    Py_INCREF(file);
    return file_with_mode(file, mode);
}

void
init_readline()
{
    gil_claim_editor();
    rl_instream = driver_stream("stdin", "r");
    rl_outstream = driver_stream("stdout", "w");
    rl_getc_function = read_char;
    rl_initialize();
    // Refused by the editor: the flood guard stays off. Deliberate.
    rl_tty_overflow_fix(1);
    // After rl_initialize, deliberately: the first instance has no name, and what a user's
    // editor settings say for this name applies from the second initialisation on.
    rl_readline_name = "OrvaneCli";
    // Refused too: no key is -1. The name was never registered, and nothing relies on it.
    rl_add_defun("ov-complete-line", complete_line, -1);
    setup_key_bindings();
    HistEvent event;
    history(get_history(), &event, H_FUNC, &hist_ctx, hist_first, hist_next, hist_last,
            hist_prev, hist_curr, hist_set, hist_clear, hist_enter, hist_add, hist_del);
    key_bindings_enabled = 1;
    readline_initialized = 1;
    gil_release_editor();
}

// The line as a new str, or NULL with the decoding error of bytes that are no UTF-8. Takes
// the line over. Lock: held.
static PyObject *
driver_line(char *line)
{
    PyObject *text = PyUnicode_FromString(line);
    free(line);
    return text;
}

// True with an exception when a read is in progress, on another thread or in the caller of
// a callback: there is only one at a time. That read is not affected. Lock: held.
static bool
driver_is_refused()
{
    if (driver_reading)
        PyErr_SetString(PyExc_RuntimeError, "a line is being read already");
    return driver_reading;
}

// Ends a read that a signal interrupted. Passes the landing's result on. Lock: held.
static PyObject *
driver_landed(PyObject *raised)
{
    driver_reading = false;
    return raised;
}

void
driver_forked()
{
    if (!driver_reading)
        return;
    driver_reading = false;
    interrupt_armed = false;
    // Set when another thread forked than the one that reads, which the child does not
    // have.
    savedPyThreadState = nullptr;
    readline_initialized = 0;
}

PyObject *
py_readline(PyObject *, PyObject *args)
{
    const char *prompt;
    const char *key = nullptr;
    const char *parent_key = nullptr;

    if (driver_is_refused())
        return nullptr;
    completion_callback = Py_None; // borrowed, as is what the parser stores there
    if (!PyArg_ParseTuple(args, "s|Oss:readline", &prompt, &completion_callback, &key,
                          &parent_key))
        return nullptr;
    driver_reading = true;
    if (!readline_initialized)
        init_readline();
    // When the parent is not known there is no mode, and every line is visible.
    if (key != nullptr)
        hist_ctx.current_mode = new_history_mode(key, parent_key);

    readlineThreadId = pthread_self();
    releaseGil();
    // Both save the signal mask: the jump leaves a handler, during which the kernel blocks
    // signals. The landings read globals alone, so no local here needs to survive the jump.
    if (sigsetjmp(sigint_jmpbuf, 1) != 0)
        return driver_landed(interrupt_land_sigint());
    if (sigsetjmp(sigtstp_jmpbuf, 1) != 0)
        return driver_landed(interrupt_land_sigtstp());
    interrupt_armed = true;
    interrupt_install(); // a pending signal lands here
    char *line = readline(prompt);
    interrupt_restore();
    interrupt_armed = false;
    acquireGil();
    driver_reading = false;

    if (gil_raise_parked()) { // wins over a line
        free(line);
        return nullptr;
    }
    if (line != nullptr)
        return driver_line(line);
    PyErr_SetString(PyExc_EOFError, "readline returned NULL");
    return nullptr;
}

// Deliberately bare: no set-up, no callback, no mode, no thread, no handlers, and an
// exception that a completion parks here waits for the next readline.
PyObject *
py_simpleReadline(PyObject *, PyObject *args)
{
    const char *prompt;
    if (driver_is_refused())
        return nullptr;
    if (!PyArg_ParseTuple(args, "s:simpleReadline", &prompt))
        return nullptr;
    driver_reading = true;
    releaseGil();
    char *line = readline(prompt);
    acquireGil();
    driver_reading = false;
    if (line != nullptr)
        return driver_line(line);
    PyErr_SetString(PyExc_EOFError, "simpleReadline returned NULL");
    return nullptr;
}
