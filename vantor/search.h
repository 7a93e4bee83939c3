// What came to the path while the kernel's queue had no room for its events.
#pragma once

#include "handle.h"

// Remembers a file that is let go, as told.
void search_gone(vantor_handle *handle, const Follow *follow);

// Adds to the arrivals, oldest first, the files of the path's directory that can only have
// come to the path since the events were last known, and were renamed: made since then, not
// followed, under a name that rotation gives (the log's own name and more, or more before
// its ending), not packed, and no copy of a followed file. Returns 0, or -1 with errno set.
int search_arrivals(vantor_handle *handle);
