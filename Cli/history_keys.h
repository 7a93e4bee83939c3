// The key bindings of the editor's history commands: removed while history is off, and
// restored when it is on again. Does nothing with an editor without keymaps, as the one in
// use. Knows nothing of Python.
#pragma once

#include "base.h"

// One history command and, for each of `maps`, the key sequences that were unbound from it.
struct HistoryInvokers {
    const char *name; // null in the row that ends the table
    char *
        *saved[5]; // owned null-terminated lists of owned strings; null while none is kept
};

KEYLINE_EXPORT HistoryInvokers history_saved_invokers[14];

// Each does nothing unless readline_keymaps_supported. They are called alternately: a
// second save would lose what the first one saved.
void history_save_invokers();
void history_restore_invokers();

// Saves or restores when this change of the limit switches history off or on; a change from
// zero to zero, or between two limits, leaves the keys alone.
void history_limit_changes(unsigned int from, unsigned int to);
