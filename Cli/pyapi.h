// The one include of the interpreter. `#` formats take sizes as Py_ssize_t, so that one
// source serves every interpreter from 3.9 on.
#pragma once

#define PY_SSIZE_T_CLEAN
#include <Python.h>
