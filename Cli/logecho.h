// The character reader, which waits on the terminal and on the watched log file at once,
// and the switch for the latter.
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
