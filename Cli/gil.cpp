// The lock hand-off and the parked exception. There is no other lock in the module: the
// interpreter lock is the only exclusion.
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
}

void
releaseGil()
{
    KEYLINE_CHECK(savedPyThreadState == nullptr, "savedPyThreadState == NULL", 64,
                  "releaseGil");
    savedPyThreadState = PyEval_SaveThread();
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
