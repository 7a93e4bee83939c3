// Takes the memory away from a test. To be included once in a program; the sanitizers need
// malloc() to be their own, and with them no call fails.
#pragma once

#include <stdlib.h>

inline int mallocs_left = -1; // calls until one finds no memory; without end below 0

#ifndef __SANITIZE_ADDRESS__
extern "C" void *__libc_malloc(size_t);

extern "C" void *
malloc(size_t size)
{
    return mallocs_left >= 0 && mallocs_left-- == 0 ? nullptr : __libc_malloc(size);
}
#endif
