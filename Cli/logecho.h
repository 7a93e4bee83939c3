// The character reader, which waits for the terminal and the watched log file at once, and
// the method that switches the latter on and off.
#pragma once

#include <stdio.h>

#include "pyapi.h"

extern "C" {
// The editor's reader: one byte from the descriptor of rl_instream as a signed char, or -1
// at the end of input. The stream argument is ignored. Lock: away. May be abandoned.
int read_char(FILE *stream);
}

// loggingSyncEnabledIs(filename, callback=None) -> None. Lock: held.
PyObject *py_loggingSyncEnabledIs(PyObject *self, PyObject *args);
