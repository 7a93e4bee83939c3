// Releasing the interpreter lock while the editor runs, and the exception that a callback
// parks meanwhile. Code that the editor calls uses Python objects only between acquireGil
// and releaseGil.
#pragma once

#include "pyapi.h"

// The reading thread's state; set exactly while the lock is away.
extern PyThreadState *savedPyThreadState;

// The parked exception: owned references, full while the type is not NULL. Filled by the
// completion bridge, emptied by readline.
extern PyObject *py_lhandler_ptype;
extern PyObject *py_lhandler_pvalue;
extern PyObject *py_lhandler_ptraceback;

// Takes the lock back, and lets other threads use the editor. Lock: away -> held. Aborts
// when it was not away.
void acquireGil();

// Releases the lock, and takes the editor's: other threads may use the editor only while
// the reader waits. Lock: held -> away. Aborts when it is away already.
void releaseGil();

// The editor's lock, for a method that uses the editor or the history: another thread may
// be reading a line. Waits until the reader uses neither. Recursive. Lock: held, away
// during the wait.
void gil_claim_editor();
void gil_release_editor();

// Moves the current exception into the empty slot and makes the editor end its read.
// Lock: held.
void gil_park_exception();

// Raises the parked exception and empties the slot; false when there is none. Lock: held.
bool gil_raise_parked();
