// The editor's readline-compatible interface, where it was adapted: the history that it
// recalls from, what a completion sees, and what it changes.
#include "editor_in_process.h"

#include <locale.h>

class Editor : public EditorTest
{
};

static char **
complete_nothing(const char *, int, int)
{
    rl_attempted_completion_over = 1;
    return nullptr;
}

// ---- the history's reference ----

struct Store {
    int calls = 0;
    std::string line;
};

static int
store_answer(void *reference, HistEvent *event)
{
    Store *store = static_cast<Store *>(reference);
    store->calls++;
    event->num = 1;
    event->str = store->line.c_str();
    return 0;
}

static int
store_nothing(void *reference, HistEvent *)
{
    static_cast<Store *>(reference)->calls++;
    return -1;
}

static void
store_clear(void *reference, HistEvent *)
{
    static_cast<Store *>(reference)->calls++;
}

static int
store_number(void *reference, HistEvent *event, const int)
{
    return store_answer(reference, event);
}

static int
store_text(void *reference, HistEvent *event, const char *text)
{
    static_cast<Store *>(reference)->line = text;
    return store_answer(reference, event);
}

static int
use_store(History *history_of_it, Store *store)
{
    HistEvent event;
    return history(history_of_it, &event, H_FUNC, store, store_answer, store_nothing,
                   store_answer, store_nothing, store_answer, store_number, store_clear,
                   store_text, store_text, store_number);
}

TEST_F(Editor, HistoryFunctionsGetTheirReference)
{
    Store store;
    History *own = history_init();
    ASSERT_EQ(use_store(own, &store), 0);
    HistEvent event = {};
    EXPECT_EQ(history(own, &event, H_ENTER, "a line"), 0);
    EXPECT_EQ(store.line, "a line");
    EXPECT_EQ(history(own, &event, H_FIRST), 0);
    EXPECT_STREQ(event.str, "a line");
    EXPECT_EQ(history(own, &event, H_NEXT), -1);
    EXPECT_EQ(history(own, &event, H_CLEAR), 0);
    EXPECT_GE(store.calls, 4);
    history_end(own); // and with it not the store
}

TEST_F(Editor, HistoryReferenceIsNeverFreed)
{
    Store *one = new Store;
    Store *other = new Store;
    History *own = history_init();
    HistEvent event = {};
    EXPECT_EQ(history(own, &event, H_SETSIZE, 10), 0);
    EXPECT_GE(history(own, &event, H_ENTER, "freed with what is built in"), 0);
    EXPECT_EQ(use_store(own, one), 0);
    EXPECT_EQ(use_store(own, other), 0);
    EXPECT_EQ(history(own, &event, H_ENTER, "a line"), 0);
    EXPECT_EQ(one->calls, 0);
    EXPECT_EQ(other->line, "a line");
    history_end(own);
    EXPECT_EQ(other->line, "a line");
    delete one;
    delete other;
}

TEST_F(Editor, HistoryBuiltInIsFreed)
{
    History *own = history_init();
    HistEvent event = {};
    history(own, &event, H_SETSIZE, 10);
    for (int i = 0; i < 5; i++)
        history(own, &event, H_ENTER, "one that the leak checker would find");
    history_end(own);
}

TEST_F(Editor, HistoryOfTheEditorIsRecalledFrom)
{
    Store store;
    store.line = "recalled";
    ASSERT_EQ(use_store(get_history(), &store), 0);
    EXPECT_EQ(read_line({keys("\033[A\r")}), "recalled");
    int calls = store.calls;
    EXPECT_GT(calls, 0);
    ASSERT_EQ(rl_initialize(), 0); // ends the history, not the store
    EXPECT_EQ(store.line, "recalled");
    EXPECT_EQ(read_line({keys("\033[Ax\r")}), "x");
    EXPECT_EQ(store.calls, calls) << "the new history is the built-in one";
}

// ---- completions ----

static std::string line_seen;
static int key_seen;
static int point_seen;
static int end_seen;

static char **
look(const char *, int, int)
{
    key_seen = rl_completion_invoking_key;
    point_seen = rl_point;
    end_seen = rl_end;
    char *line = rl_get_line_buffer();
    line_seen = line == nullptr ? "(none)" : line;
    return complete_nothing(nullptr, 0, 0);
}

static char **
be_done(const char *, int, int)
{
    rl_done = 1;
    return complete_nothing(nullptr, 0, 0);
}

TEST_F(Editor, DoneAfterACompletion)
{
    rl_attempted_completion_function = be_done;
    EXPECT_EQ(read_line({keys("ab\t"), keys("c\r")}), end_of_input);
    rl_attempted_completion_function = complete_nothing;
    EXPECT_EQ(read_line({keys("ab\t"), keys("c\r")}), "abc");
}

TEST_F(Editor, KeyThatStartedTheCompletion)
{
    rl_parse_and_bind("bind ? rl_complete");
    rl_attempted_completion_function = look;
    for (char key : {'\t', '?'}) {
        key_seen = 0;
        EXPECT_EQ(read_line({keys(std::string("ab") + key), keys("\r")}), "ab");
        EXPECT_EQ(key_seen, key);
        EXPECT_EQ(line_seen, "ab");
        EXPECT_EQ(point_seen, 2);
        EXPECT_EQ(end_seen, 2);
    }
}

TEST_F(Editor, LineBufferEndsWhereTheLineEnds)
{
    rl_attempted_completion_function = look;
    EXPECT_EQ(read_line({keys("abcdef\b\b\b\t"), keys("\r")}), "abc");
    EXPECT_EQ(line_seen, "abc");
    EXPECT_EQ(end_seen, 3);
    read_line({keys("abcdef\001\v\t"), keys("\r")});
    EXPECT_EQ(line_seen, "");
    EXPECT_EQ(end_seen, 0);
    ASSERT_EQ(rl_initialize(), 0);
    rl_insert_text("outside of a read");
    EXPECT_STREQ(rl_get_line_buffer(), "outside of a read");
}

TEST_F(Editor, LineBufferIsEncodedAnew)
{
    std::string longer(3000, 'x');
    rl_insert_text("ab");
    EXPECT_STREQ(rl_get_line_buffer(), "ab");
    rl_insert_text(longer.c_str());
    EXPECT_EQ(rl_get_line_buffer(), "ab" + longer);
    EXPECT_EQ(rl_line_buffer, "ab" + longer);
}

TEST_F(Editor, CharactersAndBytes)
{
    setlocale(LC_ALL, "C.UTF-8");
    ASSERT_EQ(rl_initialize(), 0);
    rl_insert_text("a\xc3\xa9z");
    EXPECT_EQ(rl_end, 3);
    EXPECT_EQ(rl_point, 3);
    EXPECT_STREQ(rl_get_line_buffer(), "a\xc3\xa9z");
    EXPECT_EQ(rl_delete_text(1, 2), 1);
    EXPECT_STREQ(rl_get_line_buffer(), "az");
    setlocale(LC_ALL, "C");
}

static std::string long_line;

TEST_F(Editor, CompletionInALongLine)
{
    rl_attempted_completion_function = look;
    long_line.assign(4000, 'x');
    EXPECT_EQ(read_line({keys(long_line), keys("\t"), keys("\r")}), long_line);
    EXPECT_EQ(line_seen, long_line);
    EXPECT_EQ(end_seen, 4000);
}

TEST_F(Editor, CompletionInALineWithANul)
{
    rl_attempted_completion_function = look;
    auto put_nul = [] { sig_reader()->el_line.buffer[2] = L'\0'; }; // no key does
    EXPECT_EQ(read_line({keys("ab-cd"), then(put_nul), keys("\t"), keys("\r")}), "ab");
    EXPECT_EQ(line_seen, "ab");
    EXPECT_EQ(end_seen, 5) << "characters, all of them";
}

// ---- the interface's other names ----

TEST_F(Editor, KeymapFunctionsAreStubs)
{
    EXPECT_EQ(rl_named_function("rl_complete"), nullptr);
    EXPECT_EQ(rl_invoking_keyseqs_in_map(nullptr, nullptr), nullptr);
    EXPECT_EQ(rl_bind_keyseq_in_map("\\C-a", nullptr, nullptr), 0);
    const void *maps[] = {emacs_standard_keymap, emacs_meta_keymap, emacs_ctlx_keymap,
                          vi_movement_keymap, vi_insertion_keymap};
    for (const void *&one : maps)
        for (const void *&other : maps)
            EXPECT_EQ(one == other, &one == &other);
}

TEST_F(Editor, KeyIsBoundToNothingButItself)
{
    EXPECT_EQ(rl_bind_key('\x01', rl_complete), -1);
    EXPECT_EQ(rl_bind_key('\x05', rl_insert), 0);
    EXPECT_EQ(read_line({keys("b\001a\005\r")}), "a\005b");
}

TEST_F(Editor, HistoryHandleIsTheEditorsOwn)
{
    HistEvent event = {};
    EXPECT_GE(history(get_history(), &event, H_ENTER, "a line"), 0);
    EXPECT_EQ(read_line({keys("\033[A\r")}), "a line");
}

// ---- deleting and inserting ----

struct Deletion {
    int start;
    int end;
    int count;
    const char *left;
    int cursor;
};

static const Deletion deletions[] = {
    {0, 2, 2, "cdefgh", 0},    {2, 4, 2, "abefgh", 2},   {0, 8, 8, "", 0},
    {6, 8, 2, "abcdef", 6},    {7, 8, 1, "abcdefg", 7},  {-5, 2, 2, "cdefgh", 0},
    {6, 100, 2, "abcdef", 6},  {-1, 100, 8, "", 0},      {3, 3, 0, "abcdefgh", 8},
    {5, 2, 0, "abcdefgh", 8},  {8, 9, 0, "abcdefgh", 8}, {-3, 0, 0, "abcdefgh", 8},
    {0, 1, 1, "bcdefgh", 0},   {1, 7, 6, "ah", 1},       {-2, -1, 0, "abcdefgh", 8},
    {20, 30, 0, "abcdefgh", 8}};

TEST_F(Editor, DeletedText)
{
    for (const Deletion &each : deletions) {
        ASSERT_EQ(rl_initialize(), 0);
        rl_insert_text("abcdefgh");
        EXPECT_EQ(rl_delete_text(each.start, each.end), each.count);
        SCOPED_TRACE(std::to_string(each.start) + " to " + std::to_string(each.end));
        EXPECT_STREQ(rl_get_line_buffer(), each.left);
        EXPECT_EQ(rl_point, each.cursor);
        EXPECT_EQ(rl_end, static_cast<int>(strlen(each.left)));
        rl_insert_text("|"); // at the cursor
        EXPECT_EQ(rl_get_line_buffer()[each.cursor], '|');
    }
}

TEST_F(Editor, InsertedText)
{
    EXPECT_EQ(rl_insert_text(nullptr), 0);
    EXPECT_EQ(rl_insert_text(""), 0);
    EXPECT_EQ(rl_insert_text("abef"), 4);
    EXPECT_EQ(rl_point, 4);
    EXPECT_EQ(rl_end, 4);
    rl_point = 2;
    EXPECT_EQ(rl_insert_text("cd"), 2);
    EXPECT_STREQ(rl_get_line_buffer(), "abcdef");
    EXPECT_EQ(rl_point, 4);
    EXPECT_EQ(rl_end, 6);
    rl_point = 0;
    rl_insert_text("<");
    for (int outside : {-1, 9, 1000}) {
        rl_point = outside; // the cursor stays where it is
        rl_insert_text("|");
    }
    EXPECT_STREQ(rl_get_line_buffer(), "<|||abcdef");
    EXPECT_EQ(rl_point, 4);
    EXPECT_EQ(rl_end, 10);
}

// An answer at the end of the line, wherever the cursor is: two characters less, then a
// text.
static char **
answer_at_end(const char *, int, int)
{
    rl_point = rl_end - 2;
    rl_delete_text(rl_end - 2, rl_end);
    rl_insert_text("XYZ");
    rl_point = rl_end;
    rl_forced_update_display();
    return complete_nothing(nullptr, 0, 0);
}

TEST_F(Editor, AnswerOfACompletion)
{
    rl_attempted_completion_function = answer_at_end;
    EXPECT_EQ(read_line({keys("abcd\033[D\033[D\t"), keys("!\r")}), "abXYZ!");
}
