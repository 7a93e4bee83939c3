// Which files appeared at the path while the event queue overflowed.
#pragma once

#include "handle.h"

// Remembers a file that is no longer followed because all of it was delivered.
void search_remember(vantor_handle *handle, const Follow *follow);

// Adds to the arrivals, oldest first, the files of the path's directory that must have
// appeared at the path after `known` and been renamed: created since then, not followed,
// named as by rotation (a suffix on the log's name, or one before its extension), not
// compressed, and no copy of a followed file. Returns 0, or -1 with errno set.
int search_arrivals(vantor_handle *handle);
