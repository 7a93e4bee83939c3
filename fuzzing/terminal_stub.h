// The terminal that the fuzzer's editor believes in.
#pragma once

#include <sys/ioctl.h>

// The window's size, as the editor will find it when it asks.
extern struct winsize stub_size;

// Whether it has asked since this was set to false.
extern bool stub_size_known;

// The number of bytes that wait, as it will be told.
extern int stub_pending;

// True while signals are the editor's own affair and dispositions are not really changed.
extern bool stub_signals;

// True while a line is read: the process ends when it starts a program, opens or removes a
// file, or sends a signal to a process.
extern bool stub_reading;

// Gives the next byte of what the terminal answers, while there is any; may be null.
extern bool (*stub_answer)(char *byte);

// A signal that comes during the next wait, or 0.
extern int stub_wait;

// The signal comes, for the handler that the editor has installed, if any.
void stub_signal(int number);

// A terminal's default settings.
void stub_reset();
