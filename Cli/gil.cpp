// The two locks and the parked exception. The reader holds the interpreter lock, or the
// editor's, or it waits in the editor and uses neither. A method needs both.
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
    // The reader holds it, and may need the interpreter lock before it lets go.
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
