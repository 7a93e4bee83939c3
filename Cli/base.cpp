// How the process ends when something is as it never may be.
#include "base.h"

#include "../lineedit/lineedit.h"

// The C library's reporter, which its own header hides where NDEBUG is set.
extern "C" [[noreturn]] void __assert_fail(const char *expression, const char *file,
                                           unsigned line, const char *function) noexcept;

void
keyline_check_failed(const char *expression, unsigned line, const char *function)
{
    rl_give_back_terminal();
    __assert_fail(expression, "Cli/Keyline", line, function);
}
