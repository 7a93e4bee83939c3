// Random operations on random mode trees, each compared with a model that knows nothing of
// links, cursors in memory or side tables. The seed is printed; HISTORY_TEST_SEED repeats a
// run.
#include "history_check.h"

#include <random>

namespace
{

struct ModelMode {
    std::string key;
    int parent; // its place in `modes`, -1 for a root
    HistoryMode *real;
};

struct ModelLine {
    int num;
    int mode; // its place in `modes`, -1 for none
    std::string text;
};

struct Model {
    std::vector<ModelMode> modes;
    int current = -1;
    std::vector<ModelLine> lines; // oldest first
    int cursor = 0;               // the number of a line, 0 for none
    int last_num = 0;
    uint32_t limit = 1024;
};

Model model;
std::mt19937 source;

// A number from 0 to `end` - 1.
int
pick(size_t end)
{
    return static_cast<int>(source() % end);
}

bool
once_in(int count)
{
    return pick(count) == 0;
}

// ---- the rules, in their simplest form ----

bool
model_shows(const ModelLine &line)
{
    if (model.current < 0 || line.mode < 0)
        return true;
    for (int mode = model.current; mode >= 0; mode = model.modes[mode].parent)
        if (mode == line.mode)
            return true;
    return false;
}

int
model_find_mode(const std::string &key)
{
    for (size_t i = 0; i < model.modes.size() && !key.empty(); i++)
        if (model.modes[i].key == key)
            return static_cast<int>(i);
    return -1;
}

// The place in `lines` of the line with this number, or -1.
int
model_find_line(int num)
{
    for (size_t i = 0; i < model.lines.size(); i++)
        if (model.lines[i].num == num)
            return static_cast<int>(i);
    return -1;
}

// The place of the first visible line from `place` on, going by `way` places; or -1.
int
model_walk(int place, int way)
{
    int end = static_cast<int>(model.lines.size());
    for (; place >= 0 && place < end; place += way)
        if (model_shows(model.lines[place]))
            return place;
    return -1;
}

void
model_remove(int place)
{
    int size = static_cast<int>(model.lines.size());
    if (model.lines[place].num == model.cursor) {
        int other = place + 1 < size ? place + 1 : place - 1;
        model.cursor = other >= 0 ? model.lines[other].num : 0;
    }
    model.lines.erase(model.lines.begin() + place);
}

void
model_trim()
{
    while (model.lines.size() > model.limit)
        model_remove(0);
}

// ---- one operation each, on both sides ----

const HistEvent untouched = {-7, nullptr};
HistEvent ev;

// What a call left in `ev`: the line at this place, or nothing at all for -1.
void
expect_event(int status, int place)
{
    ASSERT_EQ(status, place >= 0 ? 0 : -1);
    if (place < 0) {
        EXPECT_EQ(ev.num, untouched.num);
        EXPECT_EQ(ev.str, untouched.str);
        return;
    }
    EXPECT_EQ(ev.num, model.lines[place].num);
    EXPECT_STREQ(ev.str, model.lines[place].text.c_str());
}

void
do_first_or_last()
{
    bool first = once_in(2);
    int status = first ? hist_first(&hist_ctx, &ev) : hist_last(&hist_ctx, &ev);
    int newest = static_cast<int>(model.lines.size()) - 1;
    int place = first ? model_walk(newest, -1) : model_walk(0, 1);
    model.cursor = place >= 0 ? model.lines[place].num : 0;
    expect_event(status, place);
}

void
do_next_or_prev(bool next)
{
    int status = next ? hist_next(&hist_ctx, &ev) : hist_prev(&hist_ctx, &ev);
    int way = next ? -1 : 1;
    int from = model_find_line(model.cursor);
    int place = from >= 0 ? model_walk(from + way, way) : -1;
    if (place >= 0)
        model.cursor = model.lines[place].num;
    expect_event(status, place);
}

void
do_curr()
{
    expect_event(hist_curr(&hist_ctx, &ev), model_find_line(model.cursor));
}

int
some_number()
{
    return once_in(8) ? pick(model.last_num + 3) - 1
                      : model.last_num - pick(model.lines.size() + 2);
}

int
model_set(int num)
{
    int place = model_find_line(num);
    if (!model.lines.empty())
        model.cursor = place >= 0 ? num : 0;
    return place;
}

void
do_set()
{
    int num = some_number();
    EXPECT_EQ(hist_set(&hist_ctx, &ev, num), model_set(num) >= 0 ? 0 : -1);
    EXPECT_EQ(ev.num, untouched.num);
}

void
do_del()
{
    int num = once_in(2) ? model.last_num : some_number();
    int status = hist_del(&hist_ctx, &ev, num);
    int place = model_set(num);
    expect_event(status, place);
    if (place >= 0) {
        model_remove(place);
        free(const_cast<char *>(ev.str));
    }
}

std::string
some_text()
{
    const char *words[] = {"show",           "no", "", "interface \xc3\xa9th", "a",
                           "exit now please"};
    return words[pick(6)] + std::to_string(pick(4));
}

void
model_enter(int status, const std::string &text)
{
    if (!model.lines.empty() && model.lines.back().text == text) {
        EXPECT_EQ(status, 0);
        EXPECT_EQ(ev.num, untouched.num);
        return;
    }
    EXPECT_EQ(status, 1);
    EXPECT_EQ(ev.num, ++model.last_num);
    if (model.limit > 0) {
        EXPECT_STREQ(ev.str, text.c_str());
    }
    model.lines.push_back({model.last_num, model.current, text});
    model_trim();
}

void
do_enter()
{
    std::string text = some_text();
    model_enter(hist_enter(&hist_ctx, &ev, text.c_str()), text);
}

void
do_add()
{
    std::string text = some_text();
    int status = hist_add(&hist_ctx, &ev, text.c_str());
    int place = model_find_line(model.cursor);
    if (place < 0) {
        model_enter(status, text);
        return;
    }
    model.lines[place].text += text;
    expect_event(status, place);
}

void
do_limit(uint32_t limit)
{
    hist_ctx.history_limit = limit;
    hist_shrink();
    model.limit = limit;
    model_trim();
}

void
do_clear()
{
    hist_clear(&hist_ctx, &ev);
    model.lines.clear();
    model.cursor = 0;
    model.last_num = 0;
}

// Finds or makes a mode, now and then with an empty key or an unknown parent.
void
do_mode()
{
    std::string key = once_in(12) ? "" : "m" + std::to_string(pick(60));
    std::string parent = once_in(6) ? "" : "m" + std::to_string(pick(60));
    HistoryMode *real = new_history_mode(key.c_str(), parent.c_str());
    int found = model_find_mode(key);
    int above = model_find_mode(parent);
    if (found >= 0) {
        EXPECT_EQ(real, model.modes[found].real);
    } else if (above < 0 && !parent.empty()) {
        EXPECT_EQ(real, nullptr);
    } else {
        ASSERT_NE(real, nullptr);
        EXPECT_EQ(real->key, key);
        EXPECT_EQ(real->parent, above >= 0 ? model.modes[above].real : nullptr);
        model.modes.push_back({key, above, real});
    }
}

void
do_find_mode()
{
    std::string key = once_in(12) ? "" : "m" + std::to_string(pick(60));
    int found = model_find_mode(key);
    EXPECT_EQ(find_history_mode(key.c_str()),
              found >= 0 ? model.modes[found].real : nullptr);
}

void
do_change_mode()
{
    model.current = pick(model.modes.size() + 1) - 1;
    hist_ctx.current_mode = model.current >= 0 ? model.modes[model.current].real : nullptr;
}

// ---- the run ----

void
expect_same_history()
{
    ASSERT_TRUE(history_holds());
    ASSERT_EQ(hist_ctx.mode_count, static_cast<int32_t>(model.modes.size()));
    ASSERT_EQ(hist_ctx.last_event_num, model.last_num);
    HistoryLink *cursor = &hist_ctx.list;
    std::vector<HistoryEntry *> stored = entries();
    ASSERT_EQ(stored.size(), model.lines.size());
    for (size_t i = 0; i < stored.size(); i++) {
        const ModelLine &line = model.lines[model.lines.size() - 1 - i];
        ASSERT_EQ(stored[i]->ev.num, line.num);
        ASSERT_STREQ(stored[i]->ev.str, line.text.c_str());
        ASSERT_EQ(stored[i]->mode, line.mode >= 0 ? model.modes[line.mode].real : nullptr);
        if (line.num == model.cursor)
            cursor = stored[i];
    }
    ASSERT_EQ(hist_ctx.cursor, cursor);
}

// How one round differs from another: a small store sees every corner often, a large one
// has long runs of lines that a mode does not show.
struct Round {
    uint32_t limit;
    int enter;       // share of entering, of a hundred operations
    int mode_change; // the current mode changes once in so many operations
};

void
do_something(const Round &round)
{
    ev = untouched;
    int share = pick(100);
    if (once_in(round.mode_change))
        do_change_mode();
    else if (once_in(400))
        do_limit(once_in(4) ? pick(4) : round.limit);
    else if (once_in(1500))
        do_clear();
    else if (share < round.enter)
        do_enter();
    else if (share < 80)
        do_next_or_prev(share % 3 != 0);
    else if (share < 88)
        do_first_or_last();
    else if (share < 91)
        do_set();
    else if (share < 93)
        do_del();
    else if (share < 95)
        do_add();
    else if (share < 97)
        do_curr();
    else if (share < 98)
        do_find_mode();
    else
        do_mode();
}

unsigned
seed_of_run()
{
    const char *given = getenv("HISTORY_TEST_SEED");
    return given != nullptr ? static_cast<unsigned>(strtoul(given, nullptr, 10))
                            : std::random_device()();
}

} // namespace

TEST(HistoryModel, AgreesWithTheStoreOnRandomOperations)
{
    unsigned seed = seed_of_run();
    printf("HISTORY_TEST_SEED=%u\n", seed);
    source.seed(seed);
    int operations = 0;
    while (operations < 200000) {
        fresh_history();
        model = Model();
        Round round = {once_in(3) ? 400u + pick(1200) : 1u + pick(60), 20 + pick(60),
                       3 + pick(once_in(2) ? 10 : 200)};
        do_limit(round.limit);
        for (int i = 0; i < 10 + pick(60); i++)
            do_mode();
        for (int i = 0; i < 2000; i++, operations++) {
            do_something(round);
            expect_same_history();
            if (::testing::Test::HasFailure())
                FAIL() << "operation " << operations << " of HISTORY_TEST_SEED=" << seed;
        }
    }
    printf("%d operations\n", operations);
    fresh_history();
}
