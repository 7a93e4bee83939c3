// The five methods of the module that manage the history. All are called with the
// interpreter lock held and keep it; each returns a new reference, or null with an
// exception set.
#pragma once

#include "pyapi.h"

extern "C" {

// history([key]): the lines that the mode with this key shows, oldest first; all lines when
// there is no such mode.
PyObject *py_history(PyObject *self, PyObject *args);

// newHistoryMode(key, parent_key): KeyError when the parent is not known.
PyObject *py_newHistoryMode(PyObject *self, PyObject *args);

// addHistory(line, key, parent_key): False when the mode cannot be made.
PyObject *py_addHistory(PyObject *self, PyObject *args);

PyObject *py_clearHistory(PyObject *self, PyObject *args);

// historyLimitIs(limit): 0 switches history off.
PyObject *py_historyLimitIs(PyObject *self, PyObject *args);
}
