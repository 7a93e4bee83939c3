// The two things every file of the module needs: the export mark and the check that stays
// on in every build type. Knows neither the interpreter nor the editor.
#pragma once

// The C library's reporter, which its own header hides where NDEBUG is set.
extern "C" [[noreturn]] void __assert_fail(const char *expression, const char *file,
                                           unsigned line, const char *function) noexcept;

// Marks the few symbols that other objects may see; everything else is hidden.
#define KEYLINE_EXPORT extern "C" __attribute__((visibility("default")))

// Ends the process with the platform's assertion report when `condition` is false, also
// where NDEBUG is set. Expression, line and function are given as literals, so that neither
// an edit nor a formatter ever changes a report that operators know; the source path is
// fixed for the same reason. `function` is the bare name, without the C++ signature.
#define KEYLINE_CHECK(condition, expression, line, function)                               \
    (__builtin_expect(static_cast<bool>(condition), 1)                                     \
         ? static_cast<void>(0)                                                            \
         : __assert_fail(expression, "Cli/Keyline", line, function))
