// Handing the interpreter lock away while the editor runs, and the exception that a
// callback had to park meanwhile. Whoever touches a Python object from inside the editor
// brackets it with acquireGil and releaseGil.
#pragma once

#include "pyapi.h"

// Set exactly while the lock is handed away: the reading thread's state.
extern PyThreadState *savedPyThreadState;

// The parked exception: owned references, full while the type is not NULL. Filled by the
// completion bridge, emptied by readline.
extern PyObject *py_lhandler_ptype;
extern PyObject *py_lhandler_pvalue;
extern PyObject *py_lhandler_ptraceback;

// Takes the lock back, and lets other threads use the editor. Lock: away -> held. Aborts
// when it had not been handed away.
void acquireGil();

// Hands the lock away, and keeps other threads from the editor but while the reader waits.
// Lock: held -> away. Aborts when it is away already.
void releaseGil();

// Around what a method does with the editor or the history, for a line may be read on
// another thread: waits until the reader does nothing with them. May be done within itself.
// Lock: held, away meanwhile.
void gil_claim_editor();
void gil_release_editor();

// Moves the current exception into the empty slot and makes the editor end its read.
// Lock: held.
void gil_park_exception();

// Raises the parked exception, which empties the slot; false when there is none. Lock:
// held.
bool gil_raise_parked();
