// Taking the history commands' keys away and giving them back, against stand-ins for the
// keymap functions of an editor that has them. The real editor's do nothing.
#include "../../Cli/history_keys.h"
#include "../../Cli/keys.h"
#include "../../lineedit/lineedit.h"
#include "../support/keymaps.h"

#include <gtest/gtest.h>
#include <iterator>
#include <limits.h>
#include <stdlib.h>
#include <string.h>
#include <string>
#include <vector>

Keymap maps[5];
int readline_keymaps_supported;

static KEYMAP_ENTRY_ARRAY keymaps[5];
static Calls calls;

// The sequences that the stand-in editor binds to its commands: in map 0 two for the first
// command, in map 3 one for the last, and in map 1 an empty list for every command. All
// other lists are null.
static bool bound;

static int
first_command(int, int)
{
    return 0;
}

static int
last_command(int, int)
{
    return 0;
}

static std::string
name_of(rl_command_func_t *command)
{
    if (command == nullptr)
        return "none";
    return command == first_command ? "first" : "last";
}

static char **
list_of(std::vector<std::string> sequences)
{
    char **list = static_cast<char **>(malloc((sequences.size() + 1) * sizeof(char *)));
    for (size_t i = 0; i < sequences.size(); i++)
        list[i] = strdup(sequences[i].c_str());
    list[sequences.size()] = nullptr;
    return list;
}

rl_command_func_t *
rl_named_function(const char *name)
{
    calls.push_back(std::string("name ") + name);
    if (strcmp(name, "beginning-of-history") == 0)
        return first_command;
    return strcmp(name, "vi-fetch-history") == 0 ? last_command : nullptr;
}

char **
rl_invoking_keyseqs_in_map(rl_command_func_t *command, Keymap map)
{
    calls.push_back("keys " + name_of(command) + " " + place_of(map));
    if (map == maps[1])
        return list_of({});
    if (bound && command == first_command && map == maps[0])
        return list_of({"\\M-<", "\\C-xb"});
    if (bound && command == last_command && map == maps[3])
        return list_of({"G"});
    return nullptr;
}

int
rl_bind_keyseq_in_map(const char *sequence, rl_command_func_t *command, Keymap map)
{
    calls.push_back("bind " + std::string(sequence) + " " + name_of(command) + " " +
                    place_of(map));
    return -1; // refused: nobody looks
}

static const char *const names[] = {
    "beginning-of-history",
    "end-of-history",
    "forward-search-history",
    "history-search-backward",
    "history-search-forward",
    "next-history",
    "non-incremental-forward-search-history",
    "non-incremental-reverse-search-history",
    "non-incremental-forward-search-history-again",
    "non-incremental-reverse-search-history-again",
    "previous-history",
    "reverse-search-history",
    "vi-fetch-history",
};

class HistoryKeys : public ::testing::Test
{
  protected:
    void SetUp() override
    {
        for (int i = 0; i < 5; i++)
            maps[i] = keymaps[i];
        readline_keymaps_supported = 1;
        bound = true;
        calls.clear();
    }

    // The calls since the last time.
    Calls taken()
    {
        Calls found;
        found.swap(calls);
        return found;
    }
    int lists_kept()
    {
        int kept = 0;
        for (const HistoryInvokers &row : history_saved_invokers)
            for (char **list : row.saved)
                kept += list != nullptr;
        return kept;
    }
};

// What the stand-in editor is asked when history goes off.
static Calls
expected_save()
{
    Calls expected;
    for (const char *name : names) {
        expected.push_back(std::string("name ") + name);
        std::string command = name == names[0]    ? "first"
                              : name == names[12] ? "last"
                                                  : "none";
        for (int i = 0; i < 5; i++) {
            expected.push_back("keys " + command + " " + std::to_string(i));
            if (bound && command == "first" && i == 0) {
                expected.push_back("bind \\M-< none 0");
                expected.push_back("bind \\C-xb none 0");
            }
            if (bound && command == "last" && i == 3)
                expected.push_back("bind G none 3");
        }
    }
    return expected;
}

// And when it is on again.
static Calls
expected_restore()
{
    Calls expected;
    for (const char *name : names) {
        expected.push_back(std::string("name ") + name);
        if (bound && name == names[0]) {
            expected.push_back("bind \\M-< first 0");
            expected.push_back("bind \\C-xb first 0");
        }
        if (bound && name == names[12])
            expected.push_back("bind G last 3");
    }
    return expected;
}

TEST_F(HistoryKeys, TableHasItsRowsInOrder)
{
    EXPECT_EQ(sizeof(history_saved_invokers), 14 * 6 * sizeof(void *));
    for (int i = 0; i < 13; i++)
        EXPECT_STREQ(history_saved_invokers[i].name, names[i]);
    EXPECT_EQ(history_saved_invokers[13].name, nullptr);
    EXPECT_EQ(lists_kept(), 0);
}

TEST_F(HistoryKeys, NothingHappensWithoutKeymaps)
{
    readline_keymaps_supported = 0;
    history_save_invokers();
    history_restore_invokers();
    EXPECT_EQ(calls, Calls{});
    EXPECT_EQ(lists_kept(), 0);
}

TEST_F(HistoryKeys, SavingTakesTheKeysAwayAndKeepsThem)
{
    history_save_invokers();
    EXPECT_EQ(taken(), expected_save());
    // Thirteen empty lists of map 1 are kept like the two with sequences.
    EXPECT_EQ(lists_kept(), 15);
    char **kept = history_saved_invokers[0].saved[0];
    ASSERT_NE(kept, nullptr);
    EXPECT_STREQ(kept[0], "\\M-<");
    EXPECT_STREQ(kept[1], "\\C-xb");
    EXPECT_EQ(kept[2], nullptr);
    ASSERT_NE(history_saved_invokers[12].saved[3], nullptr);
    EXPECT_STREQ(history_saved_invokers[12].saved[3][0], "G");
    ASSERT_NE(history_saved_invokers[5].saved[1], nullptr);
    EXPECT_EQ(history_saved_invokers[5].saved[1][0], nullptr);
    history_restore_invokers();
}

// That the lists and their strings are freed, once, is for the address sanitizer to say.
TEST_F(HistoryKeys, RestoringBindsThemAgainAndLetsGo)
{
    history_save_invokers();
    taken();
    history_restore_invokers();
    EXPECT_EQ(taken(), expected_restore());
    EXPECT_EQ(lists_kept(), 0);
}

TEST_F(HistoryKeys, RestoringTwiceBindsNothingMore)
{
    history_save_invokers();
    history_restore_invokers();
    taken();
    history_restore_invokers();
    Calls only_names;
    for (const char *name : names)
        only_names.push_back(std::string("name ") + name);
    EXPECT_EQ(taken(), only_names);
}

TEST_F(HistoryKeys, EveryRoundStartsAfresh)
{
    for (int i = 0; i < 10; i++) {
        bound = i % 2 == 0;
        history_save_invokers();
        EXPECT_EQ(taken(), expected_save());
        EXPECT_EQ(lists_kept(), bound ? 15 : 13);
        history_restore_invokers();
        EXPECT_EQ(taken(), expected_restore());
        EXPECT_EQ(lists_kept(), 0);
    }
}

TEST_F(HistoryKeys, OnlySwitchingOffAndOnTouchesTheKeys)
{
    unsigned int limits[] = {1024, 5, 0, 0, 0, 7, UINT_MAX, 1, 0, 3};
    for (size_t i = 1; i < std::size(limits); i++) {
        history_limit_changes(limits[i - 1], limits[i]);
        Calls expected;
        if (limits[i - 1] != 0 && limits[i] == 0)
            expected = expected_save();
        else if (limits[i - 1] == 0 && limits[i] != 0)
            expected = expected_restore();
        EXPECT_EQ(taken(), expected) << "change " << i;
        EXPECT_EQ(lists_kept(), limits[i] == 0 ? 15 : 0);
    }
}
