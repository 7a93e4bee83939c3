// Which keys the module binds in the editor. Knows nothing of Python, so that the order of
// the binding calls can be tested without an interpreter.
#pragma once

#include "../lineedit/lineedit.h"
#include "base.h"

// The standard, Meta, Ctrl-X, vi movement and vi insertion keymaps. Exported.
KEYLINE_EXPORT Keymap maps[5];

// Selects the bindings by keymap. Nothing sets it: the editor in use has no keymap
// functions that work. Read before every single binding.
extern int readline_keymaps_supported;

// Binds TAB and "?" to completion, Ctrl-R and Ctrl-W to search and delete. The editor must
// have been initialised; errors are ignored.
void setup_key_bindings();

// Makes TAB and "?" insert themselves. Ctrl-R, Ctrl-W and the completion hook stay.
void keys_unbind_completion();
