// The fuzzer's terminal: what the editor writes, and whether it is what it should show.
#pragma once

#include <stddef.h>
#include <string>

// A new terminal of that type and size, with nothing on it. 0 is an unknown size.
void screen_start(const char *type, int rows, int columns);

// An empty one of the same type and size, as after a shell that has cleared it.
void screen_clear();

void screen_resize(int rows, int columns);

void screen_write(const char *bytes, size_t count);

// The next byte of what it answers, if any.
bool screen_answer(char *byte);

// What is on it is not compared until it is cleared.
void screen_lose();

// What is wrong on it, or nothing. Called when the editor waits for a key.
std::string screen_wrong();

// How often it has been compared so far.
unsigned long screen_compared();
