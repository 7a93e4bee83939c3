// The module around the editor, as the fuzzer plays it.
#pragma once

#include <string>

// What the shell's completion callback will answer.
struct Answer {
    std::string text;
    unsigned backspaces;
    bool is_none;
    bool raises;
};

extern Answer answer;

// What completions have cost, roughly, in keys.
extern long module_work;

// Whether Ctrl-C and Ctrl-Z leave the read by a jump; else they are ignored.
extern bool module_lands;

// Initialises the editor again, with the module's keys and an empty history.
void module_start();

// Reads a line and puts it into the history.
void module_read_line(const char *prompt);
