// The completion bridge: calls the shell's callback with the completion key and the line,
// and applies the result at the end of the line.
#pragma once

#include "complete_hook.h"
#include "pyapi.h"

// The callable of the current readline call, or None; NULL until the first one. Borrowed:
// alive while the caller's argument tuple is.
extern PyObject *completion_callback;
