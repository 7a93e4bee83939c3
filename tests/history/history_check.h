// What the tests of the history share: a fresh history for every test, and a check of
// the invariants between two calls.
#pragma once

#include "../../Cli/history.h"
#include "../../Cli/history_index.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <string.h>
#include <string>
#include <vector>

// Brings the history back to what it is when the module is loaded.
inline void
fresh_history()
{
    hist_init_context();
    for (int32_t i = 0; i < hist_ctx.mode_count; i++) {
        free(hist_ctx.modes[i]->key);
        free(hist_ctx.modes[i]);
    }
    free(hist_ctx.modes);
    hist_ctx.modes = nullptr;
    hist_ctx.mode_count = 0;
    hist_ctx.mode_capacity = 0;
    hist_ctx.current_mode = nullptr;
    hist_ctx.last_event_num = 0;
}

// The stored entries, newest first; cut short where the links do not close.
inline std::vector<HistoryEntry *>
entries()
{
    std::vector<HistoryEntry *> found;
    HistoryLink *link = hist_ctx.list.next;
    while (link != &hist_ctx.list && found.size() <= hist_ctx.event_count) {
        found.push_back(static_cast<HistoryEntry *>(link));
        link = link->next;
    }
    return found;
}

inline bool
is_mode(const HistoryMode *mode)
{
    HistoryMode **end = hist_ctx.modes + hist_ctx.mode_count;
    return std::find(hist_ctx.modes, end, mode) != end;
}

inline ::testing::AssertionResult
broken(const std::string &what)
{
    return ::testing::AssertionFailure() << what;
}

inline ::testing::AssertionResult
table_holds()
{
    int32_t capacity = hist_ctx.mode_count == 0 ? 0 : 16;
    while (capacity < hist_ctx.mode_count)
        capacity *= 2;
    if (hist_ctx.mode_capacity != capacity)
        return broken("capacity of the mode table");
    if ((hist_ctx.modes == nullptr) != (capacity == 0))
        return broken("mode table without modes");
    for (int32_t i = 0; i < hist_ctx.mode_count; i++) {
        const HistoryMode *mode = hist_ctx.modes[i];
        if (i > 0 && strcmp(hist_ctx.modes[i - 1]->key, mode->key) > 0)
            return broken("order of the mode table");
        // Only the empty key, which is never found, can be there twice.
        if (i > 0 && *mode->key != '\0' &&
            strcmp(hist_ctx.modes[i - 1]->key, mode->key) == 0)
            return broken("two modes with one key");
        if (mode->parent != nullptr && !is_mode(mode->parent))
            return broken("parent that is no mode");
    }
    if (hist_ctx.current_mode != nullptr && !is_mode(hist_ctx.current_mode))
        return broken("current mode that is no mode");
    return ::testing::AssertionSuccess();
}

inline ::testing::AssertionResult
ring_holds()
{
    bool cursor_found = hist_ctx.cursor == &hist_ctx.list;
    uint32_t count = 0;
    int32_t newer_num = hist_ctx.last_event_num + 1;
    const HistoryLink *newer = &hist_ctx.list;
    for (HistoryEntry *entry : entries()) {
        if (entry->prev != newer || newer->next != entry)
            return broken("links");
        if (entry->ev.num >= newer_num || entry->ev.num < 1)
            return broken("order of the numbers");
        if (entry->ev.str == nullptr)
            return broken("entry without text");
        cursor_found = cursor_found || hist_ctx.cursor == entry;
        newer_num = entry->ev.num;
        newer = entry;
        count++;
    }
    if (newer->next != &hist_ctx.list || hist_ctx.list.prev != newer)
        return broken("the ring does not close");
    if (count != hist_ctx.event_count)
        return broken("entry count");
    return cursor_found ? ::testing::AssertionSuccess() : broken("cursor on no entry");
}

inline ::testing::AssertionResult
index_holds()
{
    uint32_t capacity = hist_index.capacity;
    if (capacity == 0) {
        if (hist_index.tags != nullptr || hist_index.heads != nullptr)
            return broken("rings without capacity");
        const HistoryMode *seen = nullptr;
        for (HistoryEntry *entry : entries()) {
            if (hist_index.in_use && entry != hist_ctx.list.next && entry->mode != seen)
                return broken("a second mode without rings");
            seen = entry->mode;
        }
        return ::testing::AssertionSuccess();
    }
    if ((capacity & (capacity - 1)) != 0 || hist_ctx.event_count == 0)
        return broken("capacity of the rings");
    std::vector<HistoryEntry *> heads(capacity / hist_index_block, nullptr);
    uint32_t oldest = 0;
    uint32_t newest = 0;
    for (HistoryEntry *entry : entries()) {
        uint32_t number = static_cast<uint32_t>(entry->ev.num);
        uint32_t slot = number % capacity;
        if (hist_index.tags[slot] != hist_index_tag(entry->mode))
            return broken("tag");
        HistoryEntry *&head = heads[slot / hist_index_block];
        if (head == nullptr)
            head = entry;
        newest = std::max(newest, number);
        oldest = number;
    }
    if (newest - oldest + 1 + hist_index_block > capacity)
        return broken("room in the rings");
    if (!std::equal(heads.begin(), heads.end(), hist_index.heads))
        return broken("newest entry of a block");
    return ::testing::AssertionSuccess();
}

// The invariants, checked after every step.
inline ::testing::AssertionResult
history_holds()
{
    ::testing::AssertionResult result = table_holds();
    if (result)
        result = ring_holds();
    if (result)
        result = index_holds();
    return result;
}

// Lets a test write `step(hist_enter(...))`: the value, after the walk.
inline int
step(int value)
{
    EXPECT_TRUE(history_holds());
    return value;
}

inline HistoryMode *
step(HistoryMode *mode)
{
    EXPECT_TRUE(history_holds());
    return mode;
}

using Lines = std::vector<std::string>;
using Numbers = std::vector<int>;

// Every call that a test makes through the fixture is followed by the walk.
class HistoryStore : public ::testing::Test
{
  protected:
    void SetUp() override
    {
        fresh_history();
    }
    void TearDown() override
    {
        EXPECT_TRUE(history_holds());
        fresh_history();
    }

    HistEvent ev = {-7, nullptr};

    int first()
    {
        return step(hist_first(&hist_ctx, &ev));
    }
    int next()
    {
        return step(hist_next(&hist_ctx, &ev));
    }
    int last()
    {
        return step(hist_last(&hist_ctx, &ev));
    }
    int prev()
    {
        return step(hist_prev(&hist_ctx, &ev));
    }
    int curr()
    {
        return step(hist_curr(&hist_ctx, &ev));
    }
    int set(int num)
    {
        return step(hist_set(&hist_ctx, &ev, num));
    }
    int add(const char *str)
    {
        return step(hist_add(&hist_ctx, &ev, str));
    }
    int del(int num)
    {
        return step(hist_del(&hist_ctx, &ev, num));
    }
    int enter(const std::string &str)
    {
        return step(hist_enter(&hist_ctx, &ev, str.c_str()));
    }
    void clear()
    {
        hist_clear(&hist_ctx, &ev);
        EXPECT_TRUE(history_holds());
    }
    void limit(uint32_t value)
    {
        hist_ctx.history_limit = value;
        hist_shrink();
        EXPECT_TRUE(history_holds());
    }
    HistoryMode *mode(const char *key, const char *parent = "")
    {
        return step(new_history_mode(key, parent));
    }
    void enter_in(HistoryMode *in, const std::string &str)
    {
        hist_ctx.current_mode = in;
        ASSERT_EQ(enter(str), 1);
    }

    // What the editor shows to a user who goes up to the end, newest first.
    std::vector<std::string> shown(HistoryMode *in)
    {
        hist_ctx.current_mode = in;
        std::vector<std::string> lines;
        for (int status = first(); status == 0; status = next())
            lines.push_back(ev.str);
        return lines;
    }
    int cursor_number()
    {
        bool none = hist_ctx.cursor == &hist_ctx.list;
        return none ? 0 : static_cast<HistoryEntry *>(hist_ctx.cursor)->ev.num;
    }
    std::vector<int> numbers()
    {
        std::vector<int> found;
        for (HistoryEntry *entry : entries())
            found.push_back(entry->ev.num);
        return found;
    }
};
