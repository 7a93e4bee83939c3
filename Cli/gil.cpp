// The lock hand-off and the parked exception. The reader needs no lock but these two: it
// has the interpreter lock, or the editor, or it waits and touches neither. A method needs
// both.
#include "gil.h"

#include "../lineedit/lineedit.h"
#include "base.h"

PyThreadState *savedPyThreadState;

PyObject *py_lhandler_ptype;
PyObject *py_lhandler_pvalue;
PyObject *py_lhandler_ptraceback;

void
acquireGil()
{
    KEYLINE_CHECK(savedPyThreadState != nullptr, "savedPyThreadState != NULL", 57,
                  "acquireGil");
    PyEval_RestoreThread(savedPyThreadState);
    savedPyThreadState = nullptr;
    rl_let_go();
}

void
releaseGil()
{
    KEYLINE_CHECK(savedPyThreadState == nullptr, "savedPyThreadState == NULL", 64,
                  "releaseGil");
    savedPyThreadState = PyEval_SaveThread();
    rl_hold();
}

void
gil_claim_editor()
{
    if (rl_claim(0))
        return;
    // Held by the reader only while it does something, for which it may want the lock.
    PyThreadState *state = PyEval_SaveThread();
    rl_claim(1);
    PyEval_RestoreThread(state);
}

void
gil_release_editor()
{
    rl_release();
}

void
gil_park_exception()
{
    PyErr_Fetch(&py_lhandler_ptype, &py_lhandler_pvalue, &py_lhandler_ptraceback);
    rl_done = 1;
}

bool
gil_raise_parked()
{
    if (py_lhandler_ptype == nullptr)
        return false;
    PyErr_Restore(py_lhandler_ptype, py_lhandler_pvalue, py_lhandler_ptraceback);
    // The other two keep their stale values: the type alone says whether the slot is full.
    py_lhandler_ptype = nullptr;
    return true;
}
