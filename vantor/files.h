// Which files a handle follows, in which order: kept up to date from the events.
#pragma once

#include "handle.h"

// Lays the watches and follows the file from its end. Returns 0 or -1 with errno set.
int files_start(vantor_handle *handle);

// Takes all waiting events, and watches again what lost its watch. Returns 0 or -1 with
// errno set.
int files_take_events(vantor_handle *handle);

// Follows what came to the path, as far as the events taken say that something moved. True
// when it has to go on in the next call.
bool files_settle(vantor_handle *handle);

// Lets go of one file; the indexes of newer ones fall by one.
void files_remove(vantor_handle *handle, int index);
