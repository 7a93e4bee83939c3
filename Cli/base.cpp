// How the process ends when something is as it never may be.
#include "base.h"

#include "../lineedit/lineedit.h"

#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

// Gives the terminal back, writes the report, of which so much was wanted, and aborts.
// Takes no memory: Ctrl-C that jumped out of the log callable may have left the allocator
// half-way, and a report that asked it for memory would be lost, or wait for its lock for
// ever.
[[noreturn]] static void
base_abort(const char *report, size_t room, int wanted)
{
    rl_give_back_terminal();
    size_t size = static_cast<size_t>(wanted);
    size = size < room ? size : room - 1;
    [[maybe_unused]] ssize_t written = write(STDERR_FILENO, report, size);
    abort();
}

// The report is the C library's own to the letter.
void
keyline_check_failed(const char *expression, unsigned line, const char *function)
{
    char report[512];
    int wanted =
        snprintf(report, sizeof report, "%s: Cli/Keyline:%u: %s: Assertion `%s' failed.\n",
                 program_invocation_short_name, line, function, expression);
    base_abort(report, sizeof report, wanted);
}

void
keyline_no_room(int descriptor)
{
    char report[512];
    int wanted = snprintf(report, sizeof report,
                          "%s: Keyline cannot wait on descriptor %d: only on 0 to 1023\n",
                          program_invocation_short_name, descriptor);
    base_abort(report, sizeof report, wanted);
}
