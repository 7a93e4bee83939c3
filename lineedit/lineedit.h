// The one view of the line editor: its readline-compatible interface with what the patch
// series adds to it, and its history operations. C names, no interpreter.
#pragma once

#include <stdio.h>

extern "C" {
#include <histedit.h>

#include <editline/readline.h>
}
