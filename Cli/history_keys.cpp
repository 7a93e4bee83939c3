// Saving and restoring the key sequences of the history commands, for an editor that can
// list the keys bound to a command. Errors of its keymap calls are ignored.
#include "history_keys.h"

#include "../lineedit/lineedit.h"
#include "keys.h"

#include <stdlib.h>

HistoryInvokers history_saved_invokers[14] = {
    {"beginning-of-history", {}},
    {"end-of-history", {}},
    {"forward-search-history", {}},
    {"history-search-backward", {}},
    {"history-search-forward", {}},
    {"next-history", {}},
    {"non-incremental-forward-search-history", {}},
    {"non-incremental-reverse-search-history", {}},
    {"non-incremental-forward-search-history-again", {}},
    {"non-incremental-reverse-search-history-again", {}},
    {"previous-history", {}},
    {"reverse-search-history", {}},
    {"vi-fetch-history", {}},
    {nullptr, {}},
};

void
history_save_invokers()
{
    if (readline_keymaps_supported == 0)
        return;
    for (HistoryInvokers *row = history_saved_invokers; row->name != nullptr; row++) {
        rl_command_func_t *command = rl_named_function(row->name);
        for (int i = 0; i < 5; i++) {
            // Kept even when it is empty, to be freed when history is on again.
            char **sequences = rl_invoking_keyseqs_in_map(command, maps[i]);
            row->saved[i] = sequences;
            for (; sequences != nullptr && *sequences != nullptr; sequences++)
                rl_bind_keyseq_in_map(*sequences, nullptr, maps[i]);
        }
    }
}

// Binds every sequence of a saved list again, and frees the list and what it holds.
static void
restore_list(char **list, rl_command_func_t *command, Keymap map)
{
    for (char **sequence = list; *sequence != nullptr; sequence++) {
        rl_bind_keyseq_in_map(*sequence, command, map);
        free(*sequence);
    }
    free(list);
}

void
history_restore_invokers()
{
    if (readline_keymaps_supported == 0)
        return;
    for (HistoryInvokers *row = history_saved_invokers; row->name != nullptr; row++) {
        rl_command_func_t *command = rl_named_function(row->name);
        for (int i = 0; i < 5; i++) {
            if (row->saved[i] == nullptr)
                continue;
            restore_list(row->saved[i], command, maps[i]);
            row->saved[i] = nullptr;
        }
    }
}

void
history_limit_changes(unsigned int from, unsigned int to)
{
    if (from != 0 && to == 0)
        history_save_invokers();
    else if (from == 0 && to != 0)
        history_restore_invokers();
}
