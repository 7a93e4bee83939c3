// How the process ends when a check fails.
#include "base.h"

#include "../lineedit/lineedit.h"

#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

// Restores the terminal, writes the message and aborts. `length` is what snprintf returned
// for a buffer of `size`. Allocates nothing: Ctrl-C may have jumped out of the allocator in
// the log callable, and the message would be lost, or wait for its lock forever.
[[noreturn]] static void
base_abort(const char *message, size_t size, int length)
{
    rl_give_back_terminal();
    size_t whole = static_cast<size_t>(length);
    [[maybe_unused]] ssize_t written =
        write(STDERR_FILENO, message, whole < size ? whole : size - 1);
    abort();
}

// The message is exactly the one of the C library's assert.
void
keyline_check_failed(const char *expression, unsigned line, const char *function)
{
    char message[512];
    int length = snprintf(message, sizeof message,
                          "%s: Cli/Keyline:%u: %s: Assertion `%s' failed.\n",
                          program_invocation_short_name, line, function, expression);
    base_abort(message, sizeof message, length);
}

void
keyline_no_room(int descriptor)
{
    char message[512];
    int length = snprintf(message, sizeof message,
                          "%s: Keyline cannot wait on descriptor %d: only on 0 to 1023\n",
                          program_invocation_short_name, descriptor);
    base_abort(message, sizeof message, length);
}
