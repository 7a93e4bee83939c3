// Which files a handle follows, in which order: kept up to date from the events.
#pragma once

#include "handle.h"

// Adds the watches and follows the file from its end. Returns 0 or -1 with errno set.
int files_start(vantor_handle *handle);

// Reads and handles all queued events, and watches files again that lost their watch.
// Returns 0 or -1 with errno set.
int files_read_events(vantor_handle *handle);

// Follows the files that appeared at the path, if events said that something changed. True
// when it has to go on in the next call.
bool files_settle(vantor_handle *handle);

// Stops following one file; the indexes of newer ones fall by one.
void files_remove(vantor_handle *handle, int index);
