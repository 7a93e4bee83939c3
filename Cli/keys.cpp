// The two kinds of key bindings: by the editor's bind command, which is the one in use, and
// by keymaps, for an editor whose keymap functions do something.
#include "keys.h"

#include "complete_hook.h"

Keymap maps[5] = {
    emacs_standard_keymap, emacs_meta_keymap,   emacs_ctlx_keymap,
    vi_movement_keymap,    vi_insertion_keymap,
};

int readline_keymaps_supported;

static constexpr int key_tab = 9;
static constexpr int key_help = '?';

// rl_parse_and_bind takes its argument as const: a literal will do.
static void
keys_bind_commands()
{
    rl_attempted_completion_function = complete_line_wrapper;
    rl_parse_and_bind("bind ^I rl_complete");
    rl_parse_and_bind("bind ? rl_complete");
    rl_parse_and_bind("bind ^R em-inc-search-prev");
    rl_parse_and_bind("bind ^W ed-delete-prev-word");
}

// function may be NULL, which unbinds.
static void
keys_bind_in_keymap(int key, rl_command_func_t *function, Keymap keymap)
{
    if (readline_keymaps_supported)
        rl_bind_key_in_map(key, function, keymap);
    else if (keymap == maps[0])
        rl_bind_key(key, function);
}

static void
keys_bind_keymaps()
{
    Keymap const completing[] = {maps[0], maps[3], maps[4]};
    const int movement[] = {'=', '*', '#'};
    const int meta[] = {'?', '=', '*', 27, '~', '&', '#'};

    rl_bind_key(key_tab, complete_line);
    rl_bind_key(key_help, complete_line);
    for (Keymap keymap : completing) {
        keys_bind_in_keymap(key_tab, complete_line, keymap);
        keys_bind_in_keymap(key_help, complete_line, keymap);
    }
    for (int key : movement)
        keys_bind_in_keymap(key, nullptr, maps[3]);
    for (int key : meta)
        keys_bind_in_keymap(key, nullptr, maps[1]);
}

void
setup_key_bindings()
{
    if (readline_keymaps_supported)
        keys_bind_keymaps();
    else
        keys_bind_commands();
}

void
keys_unbind_completion()
{
    rl_bind_key(key_tab, rl_insert);
    rl_bind_key(key_help, rl_insert);
}
