// Reading one line: the editor's set-up on first use, and the two methods that read.
#pragma once

#include "pyapi.h"

// 1 once init_readline has run; cleared by resetInput, and in a child that was forked
// during a read.
extern int readline_initialized;

// 1 while TAB and "?" are bound to completion, as far as the module has bound them itself.
extern unsigned char key_bindings_enabled;

// Sets the editor up on the current sys.stdin and sys.stdout. Returns nothing: a stream
// that cannot be wrapped leaves its exception set, and the C library's stdin or stdout in
// use. Lock: held.
void init_readline();

// Runs in the child after a fork. A read in progress is the parent's: the child must not
// use that editor, and sets up another in its next readline.
extern "C" void driver_forked();

// readline(prompt, callback=None, key=None, parent_key=None): new str, or NULL with
// EOFError, KeyboardInterrupt, RuntimeError within another read, a callback's exception or
// a decoding error. Lock: held, away while the user types.
PyObject *py_readline(PyObject *self, PyObject *args);

// simpleReadline(prompt): the same without completion callback, history mode or signals of
// its own. Lock: as above.
PyObject *py_simpleReadline(PyObject *self, PyObject *args);
