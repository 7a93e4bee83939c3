// The side table of the history: that walks find the same with it and without it, and that
// it is as large as it has to be and no larger.
#include "history_check.h"

// The lines that the current mode shows, newest first, found by looking at every entry.
static Numbers
looked_at_one_by_one()
{
    Numbers found;
    for (HistoryEntry *entry : entries())
        if (hist_visible(entry, hist_ctx.current_mode))
            found.push_back(entry->ev.num);
    return found;
}

class HistorySideTable : public HistoryStore
{
  protected:
    HistoryMode *exec = nullptr;
    HistoryMode *config = nullptr;

    void SetUp() override
    {
        HistoryStore::SetUp();
        hist_ctx.history_limit = 100000;
        exec = new_history_mode("exec", "");
        config = new_history_mode("config", "");
    }

    // Enters lines of config, with one of exec after every `gap`.
    void fill(int count, int gap)
    {
        for (int i = 1; i <= count; i++) {
            hist_ctx.current_mode = i % gap == 0 ? exec : config;
            hist_enter(&hist_ctx, &ev, std::to_string(hist_ctx.last_event_num).c_str());
        }
        EXPECT_TRUE(history_holds());
    }

    Numbers walked(int (*start)(void *, HistEvent *), int (*go_on)(void *, HistEvent *))
    {
        Numbers found;
        for (int status = start(&hist_ctx, &ev); status == 0;
             status = go_on(&hist_ctx, &ev))
            found.push_back(ev.num);
        return found;
    }

    // Compares both directions with the plain look at every entry.
    void expect_same_lines(HistoryMode *in)
    {
        hist_ctx.current_mode = in;
        Numbers expected = looked_at_one_by_one();
        EXPECT_EQ(walked(hist_first, hist_next), expected);
        std::reverse(expected.begin(), expected.end());
        EXPECT_EQ(walked(hist_last, hist_prev), expected);
    }
};

TEST_F(HistorySideTable, FindsWhatAPlainWalkFinds)
{
    // Around the number of entries that are looked at first, and around whole blocks.
    for (int gap : {1, 2, 15, 16, 17, 18, 19, 31, 32, 33, 34, 64, 333, 1999}) {
        clear();
        fill(2000, gap);
        ASSERT_TRUE(hist_index.in_use);
        ASSERT_EQ(hist_index.capacity, gap == 1 ? 0u : 2048u);
        expect_same_lines(exec);
        expect_same_lines(config);
        EXPECT_EQ(static_cast<int>(shown(exec).size()), 2000 / gap);
    }
}

TEST_F(HistorySideTable, NeedsNoMemoryForLinesOfOneMode)
{
    HistoryMode *child = mode("child", "config");
    fill(3000, 5000);
    ASSERT_TRUE(hist_index.in_use);
    EXPECT_EQ(hist_index.capacity, 0u);
    EXPECT_EQ(hist_index.tags, nullptr);
    for (HistoryMode *in : {config, exec, child})
        expect_same_lines(in);
    EXPECT_EQ(shown(exec).size(), 0u);
    // Then it knows of the old lines as well.
    for (HistoryMode *newer : {exec, config, child}) {
        enter_in(newer, newer->key);
        EXPECT_EQ(hist_index.capacity, 4096u);
        for (HistoryMode *in : {config, exec, child})
            expect_same_lines(in);
    }
}

TEST_F(HistorySideTable, IsNoLargerThanItMustBe)
{
    for (int lines = 40; lines < 60; lines++) {
        clear();
        fill(lines, lines); // the last one is of the other mode
        EXPECT_EQ(hist_index.capacity, lines + 16 <= 64 ? 64u : 128u) << lines;
    }
}

TEST_F(HistorySideTable, DoesWithoutWhenTheSecondModeFindsSparseNumbers)
{
    fill(2, 5);
    for (int i = 0; i < 2000; i++) {
        enter_in(config, "again");
        ASSERT_EQ(del(hist_ctx.last_event_num), 0);
        free(const_cast<char *>(ev.str));
    }
    ASSERT_TRUE(hist_index.in_use);
    enter_in(exec, "of another mode");
    EXPECT_FALSE(hist_index.in_use);
    EXPECT_EQ(hist_index.capacity, 0u);
    expect_same_lines(exec);
    expect_same_lines(config);
}

TEST_F(HistorySideTable, FollowsTheModeAndNewLines)
{
    fill(500, 100);
    HistoryMode *child = mode("child", "exec");
    expect_same_lines(child);
    expect_same_lines(exec);
    expect_same_lines(config);
    expect_same_lines(child);
    enter_in(child, "of the child");
    fill(50, 1000);
    expect_same_lines(child);
    expect_same_lines(exec);
    enter_in(nullptr, "of no mode");
    fill(50, 1000);
    expect_same_lines(child);
    expect_same_lines(mode("other"));
}

TEST_F(HistorySideTable, FindsALineAmongManyModes)
{
    std::vector<HistoryMode *> modes;
    for (int i = 0; i < 3000; i++)
        modes.push_back(new_history_mode(("m" + std::to_string(i)).c_str(), ""));
    for (HistoryMode *in : modes) {
        hist_ctx.current_mode = in;
        hist_enter(&hist_ctx, &ev, in->key);
    }
    ASSERT_TRUE(history_holds());
    for (HistoryMode *in : modes) {
        hist_ctx.current_mode = in;
        ASSERT_EQ(hist_first(&hist_ctx, &ev), 0);
        ASSERT_STREQ(ev.str, in->key);
        ASSERT_EQ(hist_next(&hist_ctx, &ev), -1);
        ASSERT_EQ(hist_last(&hist_ctx, &ev), 0);
        ASSERT_STREQ(ev.str, in->key);
    }
}

TEST_F(HistorySideTable, LooksBehindAnEqualHash)
{
    fill(200, 60);
    // Which hashes are equal depends on addresses, so all lines get the hash of one mode.
    std::fill_n(hist_index.tags, hist_index.capacity, hist_index_tag(exec));
    expect_same_lines(exec);
    clear();
}

TEST_F(HistorySideTable, MovesAlongWithTrimming)
{
    limit(300);
    for (int i = 0; i < 20; i++) {
        fill(97, 40);
        expect_same_lines(exec);
    }
    EXPECT_EQ(hist_ctx.event_count, 300u);
    EXPECT_EQ(hist_index.capacity, 512u);
}

TEST_F(HistorySideTable, DoesNotFindDeletedLines)
{
    fill(400, 50);
    for (int num : {400, 350, 200, 199, 1, 2, 50}) {
        ASSERT_EQ(del(num), 0);
        free(const_cast<char *>(ev.str));
        expect_same_lines(exec);
        expect_same_lines(config);
    }
    for (int num = 60; num < 140; num++) {
        if (del(num) == 0)
            free(const_cast<char *>(ev.str));
        expect_same_lines(exec);
    }
    fill(120, 50);
    expect_same_lines(exec);
}

TEST_F(HistorySideTable, GivesMemoryBack)
{
    EXPECT_EQ(hist_index.capacity, 0u);
    fill(50000, 100);
    EXPECT_EQ(hist_index.capacity, 65536u);
    limit(10);
    EXPECT_LE(hist_index.capacity, 128u);
    expect_same_lines(config);
    limit(0);
    EXPECT_EQ(hist_index.capacity, 0u);
    limit(100000);
    fill(50, 30);
    EXPECT_EQ(hist_index.capacity, 128u);
    expect_same_lines(exec);
    clear();
    EXPECT_EQ(hist_index.capacity, 0u);
}

TEST_F(HistorySideTable, GivesUpOnSparseNumbersAndComesBack)
{
    fill(100, 40);
    // The newest line is deleted time and again while the oldest stay.
    for (int i = 0; i < 2000; i++) {
        enter_in(exec, "again");
        ASSERT_EQ(del(hist_ctx.last_event_num), 0);
        free(const_cast<char *>(ev.str));
        ASSERT_LE(hist_index.capacity, 2048u);
    }
    EXPECT_EQ(hist_index.capacity, 0u);
    fill(100, 40);
    EXPECT_EQ(hist_index.capacity, 0u);
    expect_same_lines(exec);
    expect_same_lines(config);
    clear();
    fill(100, 40);
    EXPECT_EQ(hist_index.capacity, 128u);
    expect_same_lines(exec);
}

TEST_F(HistorySideTable, MakesRoomForAJumpOfTheNumbers)
{
    // Numbers that were given out and deleted again: the rings shrink in between and have
    // to hold old and new lines at once afterwards.
    fill(1700, 40);
    hist_ctx.cursor = &hist_ctx.list;
    for (int num = 1700; num > 200; num--)
        hist_delete(static_cast<HistoryEntry *>(hist_ctx.list.next));
    limit(100000);
    EXPECT_EQ(hist_index.capacity, 512u);
    fill(30, 25);
    EXPECT_EQ(hist_index.capacity, 2048u);
    expect_same_lines(exec);
    for (int num = 1; num < 100; num++)
        hist_delete(static_cast<HistoryEntry *>(hist_ctx.list.prev));
    EXPECT_TRUE(history_holds());
    expect_same_lines(exec);
}
