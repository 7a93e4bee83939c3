// New log text at the prompt. The reader runs without the lock and makes no interpreter
// call; only the delivery of a piece of text takes it.
#include "logecho.h"

#include "../lineedit/lineedit.h"
#include "../vantor/vantor.h"
#include "base.h"
#include "gil.h"

#include <sys/select.h>
#include <unistd.h>

// The watched file while log echo is on. Owned; opened and closed by
// py_loggingSyncEnabledIs alone, and deliberately not by a reset of the input.
static vantor_handle *syncLogHandle;

// The handle whose events are being processed, or null; and whether it was switched off
// meanwhile: it is closed afterwards, and its callable not called again.
static vantor_handle *logecho_processing;
static bool logecho_close_pending;

// How often it was switched on or off.
static unsigned logecho_switched;

// Calls the shell's callable with the library's two integers, which are passed on
// unchanged, and draws prompt and line again when it asks for that. Lock: held.
static void
conlog_call(PyObject *callback, int first, int second)
{
    // While the callable runs, Ctrl-C and Ctrl-Z go to the read's own handlers, which find
    // the lock held and abort. Deliberate: the shell's dispositions are not restored here,
    // as they are for a completion.
    rl_signal_level = 1;
    PyObject *result = PyObject_CallFunction(callback, "ii", first, second);
    rl_signal_level = 0;
    // An exception stays set, neither printed nor cleared, until the interpreter notices
    // it; so does the one for a result that is no int.
    if (result == nullptr)
        return;
    if (result != Py_None && PyLong_AsLongLong(result) > 0)
        rl_forced_update_display();
    Py_DECREF(result);
}

extern "C" {
// The library's callback, called from vantor_process_event on the reading thread. context
// is the shell's callable, borrowed. Lock: away.
static void
conlog_callback(int first, void *context, int second)
{
    PyObject *callback = static_cast<PyObject *>(context);
    if (callback == Py_None || logecho_close_pending)
        return;
    acquireGil();
    KEYLINE_CHECK(PyCallable_Check(callback), "PyCallable_Check( callback )", 678,
                  "conlog_callback");
    rl_save_start(); // the callable may print over prompt and line
    conlog_call(callback, first, second);
    releaseGil();
}
}

// Lets the library deliver new text. Lock: away.
static void
logecho_process()
{
    if (syncLogHandle == nullptr) // switched off by another thread during the wait
        return;
    logecho_processing = syncLogHandle;
    vantor_process_event(logecho_processing);
    if (logecho_close_pending)
        vantor_close(logecho_processing);
    logecho_close_pending = false;
    logecho_processing = nullptr;
}

// Lock: held.
static void
logecho_close()
{
    if (syncLogHandle == logecho_processing)
        logecho_close_pending = true;
    else
        vantor_close(syncLogHandle);
    syncLogHandle = nullptr;
    logecho_switched++;
}

// Adds fd to the set. A set ends at descriptor 1023: for a higher one the process aborts
// rather than write past the set.
static void
logecho_add(fd_set *set, int fd)
{
    if (fd < 0 || fd >= FD_SETSIZE)
        keyline_no_room(fd);
    FD_SET(fd, set);
}

int
read_char(FILE *)
{
    // No stream: resetInput was called during a read, or right before simpleReadline.
    int fd = rl_instream != nullptr ? fileno(rl_instream) : STDIN_FILENO;
    fd_set set;
    FD_ZERO(&set); // once: select leaves a subset, and each pass adds both again
    for (;;) {
        unsigned switched = logecho_switched;
        int watch = -1;
        int highest = fd;
        logecho_add(&set, fd);
        if (syncLogHandle != nullptr) {
            watch = vantor_inotify_fd(syncLogHandle); // every time: it may change
            if (watch >= 0)
                logecho_add(&set, watch);
            if (watch > highest)
                highest = watch;
        }
        int ready = rl_select(highest + 1, &set);
        if (ready == -2) // the log callable forked, and this is the child
            return -1;
        if (ready <= 0)
            continue; // whatever the error: wait again
        // The file before the terminal: text appears above a key that was typed after it.
        if (watch >= 0 && FD_ISSET(watch, &set))
            logecho_process();
        if (watch >= 0 && switched != logecho_switched)
            FD_CLR(watch, &set); // it is closed
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
    gil_claim_editor();
    // While it is on, another file or callable is ignored, deliberately: switching it off
    // and on again is the only way to change either.
    if (callback == Py_None && syncLogHandle != nullptr) {
        logecho_close();
    } else if (callback != Py_None && syncLogHandle == nullptr) {
        syncLogHandle = vantor_open(filename, conlog_callback, callback);
        if (syncLogHandle == nullptr)
            perror("create inotify event");
        logecho_switched++;
    }
    gil_release_editor();
    Py_RETURN_NONE;
}
