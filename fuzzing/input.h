// The bytes of an input, and how a fuzzer takes them: one after the other, then only 0
// when they are used up.
#pragma once

#include <stddef.h>
#include <stdint.h>

inline const uint8_t *input; // borrowed
inline size_t input_left;

inline unsigned
take()
{
    if (input_left == 0)
        return 0;
    input_left--;
    return *input++;
}

template <typename T, size_t N>
inline const T &
choose(const T (&from)[N])
{
    return from[take() % N];
}
