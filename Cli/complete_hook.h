// The two functions by which the editor starts completion. Key bindings need these alone,
// and nothing of the interpreter.
#pragma once

#include "base.h"

// A command function of the editor, exported under this name. count is ignored, key goes to
// the callback. Always 0. Lock: away. Runs inside a read.
KEYLINE_EXPORT int complete_line(int count, int key);

extern "C" {
// The editor's attempted-completion hook: the same with the key that started it. Never a
// list of matches (NULL), and never the editor's own completion afterwards. Lock: away.
char **complete_line_wrapper(const char *text, int start, int end);
}
