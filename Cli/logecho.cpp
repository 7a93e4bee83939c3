// Log news at the prompt. The reader runs without the lock and makes no interpreter call;
// only the delivery of one piece of news takes it.
#include "logecho.h"

#include <stdlib.h>
#include <sys/select.h>
#include <unistd.h>

#include "../lineedit/lineedit.h"
#include "../vantor/vantor.h"
#include "base.h"
#include "gil.h"

// The watched file while log echo is on. Owned; opened and closed by
// py_loggingSyncEnabledIs alone, and deliberately not by a reset of the input.
static vantor_handle *syncLogHandle;

// Calls the shell's callable with the library's two integers, unread. True when it asks for
// the prompt and line to be drawn again. Lock: held.
static bool
conlog_call(PyObject *callback, int first, int second)
{
    // While the callable runs, Ctrl-C and Ctrl-Z go to the read's own handlers, which find
    // the lock taken and stop the process. Deliberate: the shell's dispositions are not put
    // back here as they are for a completion.
    rl_signal_level = 1;
    PyObject *result = PyObject_CallFunction(callback, "ii", first, second);
    rl_signal_level = 0;
    // An exception stays set, neither printed nor cleared, and surfaces when the
    // interpreter looks next; so does the one of a result that is no int.
    if (result == nullptr)
        return false;
    bool redraw = result != Py_None && PyLong_AsLong(result) > 0;
    if (redraw)
        rl_forced_update_display();
    Py_DECREF(result);
    return redraw;
}

extern "C" {
// The library's callback, called from vantor_process_event on the reading thread. context
// is the shell's callable, borrowed. Lock: away.
static void
conlog_callback(int first, void *context, int second)
{
    PyObject *callback = static_cast<PyObject *>(context);
    if (callback == Py_None)
        return;
    acquireGil();
    KEYLINE_CHECK(PyCallable_Check(callback), "PyCallable_Check( callback )", 678,
                  "conlog_callback");
    rl_save_start(); // the callable may print in the place of prompt and line
    conlog_call(callback, first, second);
    releaseGil();
}
}

// Puts fd into the set. A set has no room for descriptors from 1024 on: they cannot be
// waited on, and the process stops rather than write past the set.
static void
logecho_add(fd_set *set, int fd)
{
    if (fd >= FD_SETSIZE)
        abort();
    FD_SET(fd, set);
}

int
read_char(FILE *)
{
    // No stream: a reset came in the middle of a read, or simpleReadline right after one.
    int fd = rl_instream != nullptr ? fileno(rl_instream) : STDIN_FILENO;
    fd_set set;
    FD_ZERO(&set); // once: select leaves the ready bits, and each pass adds its own
    for (;;) {
        int watch = -1;
        int highest = fd;
        logecho_add(&set, fd);
        if (syncLogHandle != nullptr) {
            watch = vantor_inotify_fd(syncLogHandle); // anew, it may change
            if (watch >= 0)
                logecho_add(&set, watch);
            if (watch > highest)
                highest = watch;
        }
        if (rl_select(highest + 1, &set) <= 0)
            continue; // whatever the error: wait again
        // The file before the terminal: what was logged stands above the key typed after
        // it.
        if (watch >= 0 && FD_ISSET(watch, &set))
            vantor_process_event(syncLogHandle);
        if (FD_ISSET(fd, &set))
            break;
    }
    // The byte keeps its sign, deliberately: 0x80 to 0xFF come out negative and 0xFF is the
    // end of input.
    signed char byte;
    if (rl_read(fd, &byte, 1) != 1)
        return -1;
    return byte;
}

PyObject *
py_loggingSyncEnabledIs(PyObject *, PyObject *args)
{
    const char *filename;
    PyObject *callback = Py_None;
    if (!PyArg_ParseTuple(args, "s|O:loggingSyncEnabledIs", &filename, &callback))
        return nullptr;
    // While it is on, another file or callable is ignored, deliberately: off and on again
    // is the only way to change either.
    if (callback == Py_None && syncLogHandle != nullptr) {
        vantor_close(syncLogHandle);
        syncLogHandle = nullptr;
    } else if (callback != Py_None && syncLogHandle == nullptr) {
        syncLogHandle = vantor_open(filename, conlog_callback, callback);
        if (syncLogHandle == nullptr)
            perror("create inotify event");
    }
    Py_RETURN_NONE;
}
