// The order in which keys are bound, in both forms, against stand-ins for the editor's
// binding functions. The real editor's keymap functions do nothing.
#include "../../Cli/complete_hook.h"
#include "../../Cli/keys.h"
#include "../support/keymaps.h"

#include <gtest/gtest.h>
#include <set>
#include <string>
#include <vector>

KEYMAP_ENTRY_ARRAY emacs_standard_keymap;
KEYMAP_ENTRY_ARRAY emacs_meta_keymap;
KEYMAP_ENTRY_ARRAY emacs_ctlx_keymap;
KEYMAP_ENTRY_ARRAY vi_movement_keymap;
KEYMAP_ENTRY_ARRAY vi_insertion_keymap;
rl_completion_func_t *rl_attempted_completion_function;

static Calls calls;

// What the stand-ins answer, and the numbers of the calls, from 1, that turn the flag over.
static int result;
static std::set<size_t> turns;

static std::string
name_of(rl_command_func_t *function)
{
    if (function == nullptr)
        return "none";
    if (function == complete_line)
        return "complete_line";
    return function == rl_insert ? "insert" : "unknown function";
}

static int
called(const std::string &call)
{
    calls.push_back(call);
    if (turns.count(calls.size()) != 0)
        readline_keymaps_supported = !readline_keymaps_supported;
    return result;
}

int
complete_line(int, int)
{
    return called("completion");
}

char **
complete_line_wrapper(const char *, int, int)
{
    called("hook");
    return nullptr;
}

int
rl_insert(int, int)
{
    return called("insertion");
}

// The hook is told with the command: it must be there before the first key can start it.
int
rl_parse_and_bind(const char *line)
{
    bool hooked = rl_attempted_completion_function == complete_line_wrapper;
    return called(std::string(line) + (hooked ? "" : " without the hook"));
}

int
rl_bind_key(int key, rl_command_func_t *function)
{
    return called(std::to_string(key) + " " + name_of(function));
}

int
rl_bind_key_in_map(int key, rl_command_func_t *function, Keymap map)
{
    return called(std::to_string(key) + " " + name_of(function) + " in " + place_of(map));
}

static const Calls commands = {
    "bind ^I rl_complete",
    "bind ? rl_complete",
    "bind ^R em-inc-search-prev",
    "bind ^W ed-delete-prev-word",
};

static const Calls in_keymaps = {
    "9 complete_line",       "63 complete_line",      "9 complete_line in 0",
    "63 complete_line in 0", "9 complete_line in 3",  "63 complete_line in 3",
    "9 complete_line in 4",  "63 complete_line in 4", "61 none in 3",
    "42 none in 3",          "35 none in 3",          "63 none in 1",
    "61 none in 1",          "42 none in 1",          "27 none in 1",
    "126 none in 1",         "38 none in 1",          "35 none in 1",
};

class Keys : public ::testing::TestWithParam<int>
{
  protected:
    void SetUp() override
    {
        rl_attempted_completion_function = nullptr;
        readline_keymaps_supported = 0;
        result = GetParam();
        turns.clear();
        calls.clear();
    }
};

TEST(KeyTables, MapsAreTheEditorsFive)
{
    EXPECT_EQ(sizeof(maps), 5 * sizeof(Keymap));
    Keymap const expected[] = {emacs_standard_keymap, emacs_meta_keymap, emacs_ctlx_keymap,
                               vi_movement_keymap, vi_insertion_keymap};
    for (int i = 0; i < 5; i++)
        EXPECT_EQ(maps[i], expected[i]) << "map " << i;
}

TEST(KeyTables, NothingHasSetTheFlag)
{
    EXPECT_EQ(readline_keymaps_supported, 0);
}

TEST_P(Keys, CommandsAreRunBehindTheHook)
{
    setup_key_bindings();
    EXPECT_EQ(calls, commands);
    EXPECT_EQ(rl_attempted_completion_function, complete_line_wrapper);
}

// The flag chooses the form once; the commands after it do not depend on it.
TEST_P(Keys, CommandsGoOnWhateverTheFlag)
{
    for (size_t i = 1; i <= commands.size(); i++) {
        readline_keymaps_supported = 0;
        turns = {i};
        calls.clear();
        setup_key_bindings();
        EXPECT_EQ(calls, commands) << "turned over by call " << i;
    }
}

TEST_P(Keys, KeymapsAreBoundInOrderAndWithoutTheHook)
{
    readline_keymaps_supported = 1;
    setup_key_bindings();
    EXPECT_EQ(calls, in_keymaps);
    EXPECT_EQ(rl_attempted_completion_function, nullptr);
}

TEST_P(Keys, EveryFlagButZeroMeansKeymaps)
{
    for (int flag : {-1, 2, 256}) {
        readline_keymaps_supported = flag;
        calls.clear();
        setup_key_bindings();
        EXPECT_EQ(calls, in_keymaps) << "flag " << flag;
    }
}

// Without keymaps a key of map 0 is bound in the current one, and no other is bound at all.
TEST_P(Keys, FlagIsReadAnewBeforeEveryBinding)
{
    for (size_t i = 1; i <= in_keymaps.size(); i++) {
        Calls expected(in_keymaps.begin(), in_keymaps.begin() + static_cast<long>(i));
        if (i < 2)
            expected.push_back("63 complete_line");
        if (i < 3)
            expected.push_back("9 complete_line");
        if (i < 4)
            expected.push_back("63 complete_line");
        readline_keymaps_supported = 1;
        turns = {i};
        calls.clear();
        setup_key_bindings();
        EXPECT_EQ(calls, expected) << "turned over by call " << i;
        EXPECT_EQ(readline_keymaps_supported, 0);
    }
}

TEST_P(Keys, FlagMayComeBack)
{
    Calls expected = in_keymaps;
    expected[2] = "9 complete_line";
    readline_keymaps_supported = 1;
    turns = {2, 3};
    setup_key_bindings();
    EXPECT_EQ(calls, expected);
}

TEST_P(Keys, SettingUpAgainMakesTheSameBindings)
{
    Calls twice = commands;
    twice.insert(twice.end(), commands.begin(), commands.end());
    setup_key_bindings();
    setup_key_bindings();
    EXPECT_EQ(calls, twice);
}

TEST_P(Keys, SwitchingOffMakesTheTwoKeysInsertThemselves)
{
    for (int flag : {0, 1}) {
        readline_keymaps_supported = flag;
        rl_attempted_completion_function = complete_line_wrapper;
        calls.clear();
        keys_unbind_completion();
        EXPECT_EQ(calls, (Calls{"9 insert", "63 insert"}));
        EXPECT_EQ(rl_attempted_completion_function, complete_line_wrapper);
    }
}

// The editor's answer is not looked at: 0, or refused.
INSTANTIATE_TEST_SUITE_P(Answers, Keys, ::testing::Values(0, -1));
