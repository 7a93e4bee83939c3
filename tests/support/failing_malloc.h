// A malloc() that fails when a test says so. To be included once in a program. The
// sanitizers need their own malloc(): with them no call fails.
#pragma once

#include <stdlib.h>

inline int mallocs_left = -1; // calls until one fails; negative: none does

#ifndef __SANITIZE_ADDRESS__
extern "C" void *__libc_malloc(size_t);

extern "C" void *
malloc(size_t size)
{
    return mallocs_left >= 0 && mallocs_left-- == 0 ? nullptr : __libc_malloc(size);
}
#endif
