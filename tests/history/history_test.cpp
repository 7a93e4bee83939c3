// The mode table, the line store and its side table, rule by rule and without an editor.
// Random operations against a model are in history_model_test.cpp.
#include "history_check.h"

// ---- modes ----

TEST_F(HistoryStore, TableIsEmptyUntilTheFirstMode)
{
    EXPECT_EQ(hist_ctx.modes, nullptr);
    EXPECT_EQ(hist_ctx.mode_capacity, 0);
    EXPECT_EQ(find_history_mode("exec"), nullptr);
    EXPECT_EQ(find_history_mode(""), nullptr);
    EXPECT_EQ(find_history_mode(nullptr), nullptr);
}

TEST_F(HistoryStore, TableIsSortedByBytes)
{
    for (const char *key : {"show", "exec", "config", "exec1", "\xc3\xa9", "Z"})
        ASSERT_NE(mode(key), nullptr);
    Lines keys(hist_ctx.mode_count);
    for (int32_t i = 0; i < hist_ctx.mode_count; i++) {
        keys[i] = hist_ctx.modes[i]->key;
        EXPECT_EQ(find_history_mode(keys[i].c_str()), hist_ctx.modes[i]);
    }
    EXPECT_EQ(keys, (Lines{"Z", "config", "exec", "exec1", "show", "\xc3\xa9"}));
    for (const char *key : {"A", "a", "d", "exe", "exec0", "exec2", "t", "\xff"})
        EXPECT_EQ(find_history_mode(key), nullptr) << key;
}

TEST_F(HistoryStore, TableGrowsAtTheSeventeenthAndThirtyThirdMode)
{
    for (int i = 1; i <= 33; i++) {
        // Always a new lowest key, so that every insertion moves all the others.
        std::string key = "m" + std::to_string(100 - i);
        HistoryMode *made = mode(key.c_str());
        EXPECT_EQ(hist_ctx.modes[0], made);
        EXPECT_EQ(hist_ctx.mode_count, i);
        EXPECT_EQ(hist_ctx.mode_capacity, i <= 16 ? 16 : i <= 32 ? 32 : 64);
    }
    for (int i = 1; i <= 33; i++)
        EXPECT_NE(find_history_mode(("m" + std::to_string(100 - i)).c_str()), nullptr);
}

TEST_F(HistoryStore, ModeOwnsItsKey)
{
    char key[] = "exec";
    HistoryMode *exec = mode(key);
    key[0] = 'X';
    EXPECT_STREQ(exec->key, "exec");
    EXPECT_EQ(find_history_mode("exec"), exec);
}

TEST_F(HistoryStore, ParentMustExist)
{
    EXPECT_EQ(mode("if", "config"), nullptr);
    EXPECT_EQ(hist_ctx.mode_count, 0);
    EXPECT_EQ(hist_ctx.modes, nullptr);
    HistoryMode *config = mode("config", nullptr);
    EXPECT_EQ(config->parent, nullptr);
    HistoryMode *interface = mode("if", "config");
    EXPECT_EQ(interface->parent, config);
    EXPECT_EQ(mode("if", ""), interface);
    EXPECT_EQ(mode("if", "unknown"), interface);
    EXPECT_EQ(interface->parent, config);
    EXPECT_EQ(mode("own", "own"), nullptr);
    EXPECT_EQ(hist_ctx.mode_count, 2);
}

TEST_F(HistoryStore, EmptyKeyIsNeverFound)
{
    HistoryMode *exec = mode("exec");
    HistoryMode *one = mode("");
    HistoryMode *two = mode("", "exec");
    EXPECT_NE(one, two);
    EXPECT_EQ(two->parent, exec);
    hist_ctx.current_mode = two;
    EXPECT_EQ(find_history_mode(""), nullptr);
    HistoryMode *three = mode("");
    EXPECT_EQ(hist_ctx.mode_count, 4);
    // In front of all other keys, in the order of their creation.
    EXPECT_EQ(hist_ctx.modes[0], one);
    EXPECT_EQ(hist_ctx.modes[1], two);
    EXPECT_EQ(hist_ctx.modes[2], three);
    EXPECT_EQ(hist_ctx.modes[3], exec);
}

TEST_F(HistoryStore, CurrentModeIsFoundFirst)
{
    mode("exec");
    HistoryMode *config = mode("config");
    // Out of order on purpose for a moment: a search in the table misses the lower key.
    std::swap(hist_ctx.modes[0], hist_ctx.modes[1]);
    EXPECT_EQ(find_history_mode("config"), nullptr);
    hist_ctx.current_mode = config;
    EXPECT_EQ(find_history_mode("config"), config);
    std::swap(hist_ctx.modes[0], hist_ctx.modes[1]);
}

// ---- entering ----

TEST_F(HistoryStore, StartsEmptyWithItsLimit)
{
    EXPECT_EQ(hist_ctx.history_limit, 1024u);
    EXPECT_EQ(first(), -1);
    EXPECT_EQ(last(), -1);
    EXPECT_EQ(next(), -1);
    EXPECT_EQ(prev(), -1);
    EXPECT_EQ(curr(), -1);
    EXPECT_EQ(set(1), -1);
    EXPECT_EQ(del(1), -1);
    clear();
    EXPECT_EQ(ev.num, -7);
    EXPECT_EQ(ev.str, nullptr);
}

TEST_F(HistoryStore, RepeatOfTheNewestLineIsDropped)
{
    EXPECT_EQ(enter("a"), 1);
    EXPECT_EQ(enter("b"), 1);
    EXPECT_EQ(ev.num, 2);
    EXPECT_STREQ(ev.str, "b");
    ev.num = -7;
    EXPECT_EQ(enter("b"), 0);
    EXPECT_EQ(ev.num, -7);
    EXPECT_EQ(numbers(), (Numbers{2, 1}));
    EXPECT_EQ(first(), 0);
    EXPECT_STREQ(ev.str, "b");
    EXPECT_EQ(ev.num, 2);
    EXPECT_EQ(next(), 0);
    EXPECT_STREQ(ev.str, "a");
    EXPECT_EQ(next(), -1);
    EXPECT_EQ(cursor_number(), 1);
    EXPECT_EQ(enter("a"), 1);
    EXPECT_EQ(numbers(), (Numbers{3, 2, 1}));
}

TEST_F(HistoryStore, RepeatInAnotherModeIsDroppedAndKeepsItsMode)
{
    HistoryMode *exec = mode("exec");
    HistoryMode *config = mode("config");
    enter_in(exec, "show");
    hist_ctx.current_mode = config;
    EXPECT_EQ(enter("show"), 0);
    EXPECT_EQ(entries()[0]->mode, exec);
    EXPECT_EQ(shown(config), Lines{});
}

TEST_F(HistoryStore, TextIsCopiedWhateverItIs)
{
    std::string large(1 << 20, 'x');
    for (const std::string &text : {std::string(), std::string("  \t"), large,
                                    std::string("\xc3\xa9\xf0\x9f\x98\x80"), large + "y"}) {
        std::string given = text;
        EXPECT_EQ(enter(given), 1);
        std::fill(given.begin(), given.end(), '#');
        EXPECT_EQ(first(), 0);
        EXPECT_EQ(ev.str, text);
    }
    EXPECT_EQ(enter(large + "y"), 0);
}

TEST_F(HistoryStore, EnteringLeavesTheCursor)
{
    enter("a");
    EXPECT_EQ(hist_ctx.cursor, &hist_ctx.list);
    EXPECT_EQ(first(), 0);
    enter("b");
    EXPECT_EQ(cursor_number(), 1);
    EXPECT_EQ(prev(), 0);
    EXPECT_EQ(cursor_number(), 2);
}

TEST_F(HistoryStore, EnteringWhileOffLeavesNothing)
{
    enter("a");
    limit(0);
    EXPECT_EQ(enter("b"), 1);
    EXPECT_EQ(ev.num, 2);
    EXPECT_EQ(numbers(), Numbers{});
    limit(5);
    EXPECT_EQ(enter("b"), 1);
    EXPECT_EQ(numbers(), Numbers{3});
}

TEST_F(HistoryStore, AddAppendsToTheLineUnderTheCursor)
{
    EXPECT_EQ(add("one"), 1);
    EXPECT_EQ(add("one"), 0);
    enter("two");
    EXPECT_EQ(last(), 0);
    EXPECT_EQ(add(" and more"), 0);
    EXPECT_EQ(ev.num, 1);
    EXPECT_STREQ(ev.str, "one and more");
    EXPECT_EQ(add(""), 0);
    EXPECT_EQ(curr(), 0);
    EXPECT_STREQ(ev.str, "one and more");
    EXPECT_EQ(shown(nullptr), (Lines{"two", "one and more"}));
    EXPECT_EQ(hist_ctx.last_event_num, 2);
}

// ---- trimming, deleting, clearing ----

TEST_F(HistoryStore, TrimmingMovesTheCursorToTheNewerLine)
{
    limit(3);
    enter("1");
    EXPECT_EQ(first(), 0);
    enter("2");
    enter("3");
    enter("4");
    EXPECT_EQ(cursor_number(), 2);
    enter("5");
    EXPECT_EQ(cursor_number(), 3);
    EXPECT_EQ(numbers(), (Numbers{5, 4, 3}));
    limit(2);
    EXPECT_EQ(numbers(), (Numbers{5, 4}));
    EXPECT_EQ(cursor_number(), 4);
    limit(0);
    EXPECT_EQ(cursor_number(), 0);
    EXPECT_EQ(hist_ctx.last_event_num, 5);
}

TEST_F(HistoryStore, TrimmingKnowsNoModes)
{
    HistoryMode *exec = mode("exec");
    HistoryMode *config = mode("config");
    enter_in(exec, "e1");
    enter_in(config, "c1");
    enter_in(config, "c2");
    limit(2);
    EXPECT_EQ(shown(exec), Lines{});
    EXPECT_EQ(shown(config), (Lines{"c2", "c1"}));
}

TEST_F(HistoryStore, LimitIsUnsigned)
{
    enter("a");
    enter("b");
    limit(UINT32_MAX);
    EXPECT_EQ(numbers(), (Numbers{2, 1}));
}

TEST_F(HistoryStore, DeletingMovesTheCursorToTheNewerElseTheOlderLine)
{
    for (const char *line : {"1", "2", "3"})
        enter(line);
    EXPECT_EQ(del(2), 0);
    EXPECT_EQ(ev.num, 2);
    EXPECT_STREQ(ev.str, "2");
    free(const_cast<char *>(ev.str));
    EXPECT_EQ(cursor_number(), 3);
    EXPECT_EQ(del(3), 0);
    free(const_cast<char *>(ev.str));
    EXPECT_EQ(cursor_number(), 1);
    EXPECT_EQ(del(1), 0);
    free(const_cast<char *>(ev.str));
    EXPECT_EQ(cursor_number(), 0);
    enter("4");
    EXPECT_EQ(numbers(), Numbers{4});
}

TEST_F(HistoryStore, DeletingAnotherEntryLeavesTheCursor)
{
    for (const char *line : {"1", "2", "3"})
        enter(line);
    EXPECT_EQ(set(2), 0);
    hist_delete(entries()[2]);
    EXPECT_TRUE(history_holds());
    EXPECT_EQ(cursor_number(), 2);
    hist_delete(entries()[0]);
    EXPECT_TRUE(history_holds());
    EXPECT_EQ(cursor_number(), 2);
}

TEST_F(HistoryStore, SetTakesInvisibleLinesToo)
{
    HistoryMode *exec = mode("exec");
    HistoryMode *config = mode("config");
    enter_in(exec, "e1");
    enter_in(config, "c2");
    enter_in(exec, "e3");
    ev = {-7, nullptr};
    EXPECT_EQ(set(2), 0);
    EXPECT_EQ(ev.num, -7);
    EXPECT_EQ(curr(), 0);
    EXPECT_STREQ(ev.str, "c2");
    EXPECT_EQ(set(2), 0);
    EXPECT_EQ(next(), 0);
    EXPECT_STREQ(ev.str, "e1");
    EXPECT_EQ(set(2), 0);
    EXPECT_EQ(prev(), 0);
    EXPECT_STREQ(ev.str, "e3");
    EXPECT_EQ(set(9), -1);
    EXPECT_EQ(cursor_number(), 0);
    EXPECT_EQ(set(3), 0);
    ev = {-7, nullptr};
    EXPECT_EQ(del(9), -1);
    EXPECT_EQ(ev.num, -7);
    EXPECT_EQ(cursor_number(), 0);
}

TEST_F(HistoryStore, ClearingKeepsModesAndStartsNumbersAgain)
{
    HistoryMode *exec = mode("exec");
    limit(7);
    enter_in(exec, "a");
    enter_in(exec, "b");
    EXPECT_EQ(last(), 0);
    clear();
    EXPECT_EQ(numbers(), Numbers{});
    EXPECT_EQ(hist_ctx.cursor, &hist_ctx.list);
    EXPECT_EQ(hist_ctx.current_mode, exec);
    EXPECT_EQ(hist_ctx.history_limit, 7u);
    EXPECT_EQ(find_history_mode("exec"), exec);
    enter("b");
    EXPECT_EQ(numbers(), Numbers{1});
    EXPECT_EQ(entries()[0]->mode, exec);
}

TEST_F(HistoryStore, InitialisingAgainFreesTheLines)
{
    HistoryMode *exec = mode("exec");
    enter_in(exec, "a");
    limit(3);
    hist_init_context();
    EXPECT_TRUE(history_holds());
    EXPECT_EQ(hist_ctx.event_count, 0u);
    EXPECT_EQ(hist_ctx.history_limit, 1024u);
    EXPECT_EQ(find_history_mode("exec"), exec);
}

TEST_F(HistoryStore, ClearingAbortsWhenTheCountIsWrong)
{
    enter("a");
    auto clear_with_wrong_count = [] {
        hist_ctx.event_count++;
        HistEvent unused;
        hist_clear(&hist_ctx, &unused);
    };
    EXPECT_EXIT(
        clear_with_wrong_count(), ::testing::KilledBySignal(SIGABRT),
        "Cli/Keyline:344: hist_clear: Assertion `hist_ctx.event_count == 0' failed");
}

// ---- what a mode shows ----

TEST_F(HistoryStore, ModesShowTheirOwnAndTheirAncestorsLines)
{
    HistoryMode *root = mode("root");
    HistoryMode *left = mode("left", "root");
    HistoryMode *right = mode("right", "root");
    HistoryMode *leaf = mode("leaf", "left");
    enter_in(nullptr, "none 1");
    enter_in(root, "root 1");
    enter_in(left, "left 1");
    enter_in(leaf, "leaf 1");
    enter_in(right, "right 1");
    enter_in(root, "root 2");
    EXPECT_EQ(shown(root), (Lines{"root 2", "root 1", "none 1"}));
    EXPECT_EQ(shown(left), (Lines{"root 2", "left 1", "root 1", "none 1"}));
    EXPECT_EQ(shown(right), (Lines{"root 2", "right 1", "root 1", "none 1"}));
    EXPECT_EQ(shown(leaf), (Lines{"root 2", "leaf 1", "left 1", "root 1", "none 1"}));
    EXPECT_EQ(shown(nullptr),
              (Lines{"root 2", "right 1", "leaf 1", "left 1", "root 1", "none 1"}));
}

TEST_F(HistoryStore, ModesAreToldApartByRecordAndNotByKey)
{
    HistoryMode *one = mode("");
    HistoryMode *two = mode("");
    enter_in(one, "of one");
    EXPECT_EQ(shown(two), Lines{});
    EXPECT_EQ(shown(one), Lines{"of one"});
}

TEST_F(HistoryStore, NothingVisibleLeavesTheCursorOnNothing)
{
    HistoryMode *exec = mode("exec");
    HistoryMode *config = mode("config");
    enter_in(exec, "a");
    enter_in(exec, "b");
    hist_ctx.current_mode = config;
    ev = {-7, nullptr};
    for (int (*walk)(void *, HistEvent *) : {hist_first, hist_last}) {
        EXPECT_EQ(set(1), 0);
        EXPECT_EQ(step(walk(&hist_ctx, &ev)), -1);
        EXPECT_EQ(cursor_number(), 0);
        EXPECT_EQ(curr(), -1);
        EXPECT_EQ(next(), -1);
        EXPECT_EQ(prev(), -1);
    }
    EXPECT_EQ(set(1), 0);
    EXPECT_EQ(next(), -1);
    EXPECT_EQ(prev(), -1);
    EXPECT_EQ(cursor_number(), 1);
    EXPECT_EQ(ev.num, -7);
}

TEST_F(HistoryStore, WalksGoBothWays)
{
    HistoryMode *exec = mode("exec");
    HistoryMode *config = mode("config");
    enter_in(config, "c1");
    enter_in(exec, "e2");
    enter_in(config, "c3");
    enter_in(exec, "e4");
    enter_in(config, "c5");
    hist_ctx.current_mode = exec;
    EXPECT_EQ(last(), 0);
    EXPECT_STREQ(ev.str, "e2");
    EXPECT_EQ(next(), -1);
    EXPECT_EQ(prev(), 0);
    EXPECT_STREQ(ev.str, "e4");
    EXPECT_EQ(prev(), -1);
    EXPECT_EQ(cursor_number(), 4);
    EXPECT_EQ(first(), 0);
    EXPECT_EQ(ev.num, 4);
}
