// The two things every file of the module needs: the export mark and the check that stays
// on in every build type. Knows neither the interpreter nor the editor.
#pragma once

// Marks the few symbols that other objects may see; everything else is hidden.
#define KEYLINE_EXPORT extern "C" __attribute__((visibility("default")))

// Restores the terminal, if a read is in progress, and aborts with the assertion message of
// the C library.
[[noreturn]] void keyline_check_failed(const char *expression, unsigned line,
                                       const char *function);

// Aborts in the same way, for a descriptor that select cannot wait on.
[[noreturn]] void keyline_no_room(int descriptor);

// Aborts with that message when `condition` is false, also where NDEBUG is set. Expression,
// line and function are given as literals, so that neither an edit nor a formatter ever
// changes a message that operators know; the source path is fixed for the same reason.
// `function` is the bare name, without the C++ signature.
#define KEYLINE_CHECK(condition, expression, line, function)                               \
    (__builtin_expect(static_cast<bool>(condition), 1)                                     \
         ? static_cast<void>(0)                                                            \
         : keyline_check_failed(expression, line, function))
