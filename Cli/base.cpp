// How the process ends when something is as it never may be.
#include "base.h"

#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include "../lineedit/lineedit.h"

// The report is the C library's own to the letter, but takes no memory: Ctrl-C that jumped
// out of the log callable may have left the allocator half-way, and a report that asked it
// for memory would be lost, or wait for its lock for ever.
void
keyline_check_failed(const char *expression, unsigned line, const char *function)
{
    rl_give_back_terminal();
    char report[512];
    int length =
        snprintf(report, sizeof report, "%s: Cli/Keyline:%u: %s: Assertion `%s' failed.\n",
                 program_invocation_short_name, line, function, expression);
    size_t size = static_cast<size_t>(length);
    size = size < sizeof report ? size : sizeof report - 1;
    [[maybe_unused]] ssize_t written = write(STDERR_FILENO, report, size);
    abort();
}
