// The module's part in the fuzzer: what its driver, its completion and its interrupts do
// around the editor, without an interpreter.
#include "module_part.h"

#include <setjmp.h>
#include <signal.h>
#include <stdlib.h>
#include <string.h>

#include "../Cli/complete_hook.h"
#include "../Cli/history.h"
#include "../Cli/keys.h"
#include "../lineedit/lineedit.h"
#include "screen.h"

Answer answer;
long module_work;
bool module_lands;

// What complete.cpp does with the answer of the shell's callback.
int
complete_line(int, int)
{
    screen_clear();
    rl_point = rl_end;
    const char *line = rl_get_line_buffer();
    size_t length = line == nullptr ? 0 : strnlen(line, static_cast<size_t>(rl_end));
    std::string seen(line == nullptr ? "" : line, length);
    module_work += 20 + static_cast<long>(length);
    if (answer.raises) {
        rl_done = 1;
        return 0;
    }
    if (answer.is_none) {
        rl_forced_update_display();
        return 0;
    }
    if (answer.backspaces > 0) {
        int end = rl_point;
        int count = answer.backspaces < static_cast<unsigned>(end)
                        ? static_cast<int>(answer.backspaces)
                        : end;
        rl_point = end - count;
        rl_delete_text(end - count, end);
    }
    rl_insert_text(answer.text.c_str());
    rl_point = rl_end;
    rl_forced_update_display();
    return 0;
}

extern "C" char **
complete_line_wrapper(const char *, int, int)
{
    complete_line(0, rl_completion_invoking_key);
    rl_attempted_completion_over = 1;
    return nullptr;
}

static sigjmp_buf landing; // of both interrupts

static void
leave_read(int)
{
    siglongjmp(landing, 1);
}

// As the module's init_readline, without its streams.
void
module_start()
{
    rl_initialize();
    setup_key_bindings();
    HistEvent result;
    history(get_history(), &result, H_FUNC, &hist_ctx, hist_first, hist_next, hist_last,
            hist_prev, hist_curr, hist_set, hist_clear, hist_enter, hist_add, hist_del);
    hist_clear(&hist_ctx, &result);
    hist_ctx.current_mode = nullptr;
}

// As the module's py_readline, interrupts and their landing included.
void
module_read_line(const char *prompt)
{
    static void (*old_int)(int);
    static void (*old_tstp)(int);
    char *line = nullptr;
    if (!module_lands) {
        line = readline(prompt);
    } else if (sigsetjmp(landing, 0) == 0) {
        old_int = rl_signal(SIGINT, leave_read);
        old_tstp = rl_signal(SIGTSTP, leave_read);
        line = readline(prompt);
        rl_signal_restore(SIGINT, old_int);
        rl_signal_restore(SIGTSTP, old_tstp);
    } else {
        rl_signal_restore(SIGINT, old_int);
        rl_signal_restore(SIGTSTP, old_tstp);
        return;
    }
    if (line != nullptr && *line != '\0')
        add_history(line);
    free(line);
}
