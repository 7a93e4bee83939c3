// The line editor's headers: its readline-compatible interface, with what the patches add
// to it, and its history functions. Knows nothing of the interpreter.
#pragma once

#include <stdio.h>

extern "C" {
#include <histedit.h>

#include <editline/readline.h>
}
