// The line store. Lines form a circular list, newest first, with a sentinel; every line has
// the mode in which it was entered. The line editor browses with a cursor that skips the
// lines that the current mode does not show.
#include "history.h"

#include "base.h"
#include "history_index.h"

#include <stdlib.h>
#include <string.h>

// ---- the ring ----

// Any link but the sentinel is an entry.
static HistoryEntry *
entry_of(HistoryLink *link)
{
    return static_cast<HistoryEntry *>(link);
}

static bool
is_empty()
{
    return hist_ctx.list.next == &hist_ctx.list;
}

void
hist_delete(HistoryEntry *entry)
{
    if (hist_ctx.cursor == entry)
        hist_ctx.cursor = entry->prev != &hist_ctx.list ? entry->prev : entry->next;
    hist_index_remove(entry);
    entry->next->prev = entry->prev;
    entry->prev->next = entry->next;
    free(const_cast<char *>(entry->ev.str));
    free(entry);
    hist_ctx.event_count--;
}

void
hist_shrink()
{
    // hist_delete moves a cursor on the oldest entry to the newer one, or off the lines.
    while (hist_ctx.event_count > hist_ctx.history_limit)
        hist_delete(entry_of(hist_ctx.list.prev));
    hist_index_fit();
}

static void
delete_all()
{
    while (!is_empty())
        hist_delete(entry_of(hist_ctx.list.next));
}

void
hist_init_context()
{
    // The ring is unset until the first call; a later one must not lose the lines stored.
    if (hist_ctx.list.next != nullptr)
        delete_all();
    hist_index_drop();
    hist_ctx.history_limit = 1024;
    hist_ctx.list.next = &hist_ctx.list;
    hist_ctx.list.prev = &hist_ctx.list;
    hist_ctx.cursor = &hist_ctx.list;
}

// ---- browsing ----

// How many entries a walk checks one by one before it uses the index.
constexpr int steps_before_index = 16;

// The first visible entry from `link` on towards older lines, `link` included; the sentinel
// when there is none. The next function is the same towards newer lines.
static HistoryLink *
walk_older(HistoryLink *link)
{
    for (int step = 0; link != &hist_ctx.list; step++, link = link->next) {
        if (hist_visible(entry_of(link), hist_ctx.current_mode))
            return link;
        if (step == steps_before_index && hist_index.in_use)
            return hist_index_older(entry_of(link));
    }
    return link;
}

static HistoryLink *
walk_newer(HistoryLink *link)
{
    for (int step = 0; link != &hist_ctx.list; step++, link = link->prev) {
        if (hist_visible(entry_of(link), hist_ctx.current_mode))
            return link;
        if (step == steps_before_index && hist_index.in_use)
            return hist_index_newer(entry_of(link));
    }
    return link;
}

// The cheap check first: it holds for most lines that a search passes.
static bool
is_of_current_mode(HistoryLink *link)
{
    return link != &hist_ctx.list && entry_of(link)->mode == hist_ctx.current_mode;
}

static HistoryLink *
visible_older(HistoryLink *link)
{
    return is_of_current_mode(link) ? link : walk_older(link);
}

static HistoryLink *
visible_newer(HistoryLink *link)
{
    return is_of_current_mode(link) ? link : walk_newer(link);
}

int
hist_curr(void *, HistEvent *ev)
{
    if (hist_ctx.cursor == &hist_ctx.list)
        return -1;
    *ev = entry_of(hist_ctx.cursor)->ev;
    return 0;
}

int
hist_first(void *ref, HistEvent *ev)
{
    hist_ctx.cursor = visible_older(hist_ctx.list.next);
    return hist_curr(ref, ev);
}

int
hist_last(void *ref, HistEvent *ev)
{
    hist_ctx.cursor = visible_newer(hist_ctx.list.prev);
    return hist_curr(ref, ev);
}

int
hist_next(void *ref, HistEvent *ev)
{
    if (hist_ctx.cursor == &hist_ctx.list)
        return -1;
    HistoryLink *found = visible_older(hist_ctx.cursor->next);
    if (found == &hist_ctx.list)
        return -1;
    hist_ctx.cursor = found;
    return hist_curr(ref, ev);
}

int
hist_prev(void *ref, HistEvent *ev)
{
    if (hist_ctx.cursor == &hist_ctx.list)
        return -1;
    HistoryLink *found = visible_newer(hist_ctx.cursor->prev);
    if (found == &hist_ctx.list)
        return -1;
    hist_ctx.cursor = found;
    return hist_curr(ref, ev);
}

int
hist_set(void *, HistEvent *, int num)
{
    if (is_empty())
        return -1;
    if (hist_ctx.cursor != &hist_ctx.list && entry_of(hist_ctx.cursor)->ev.num == num)
        return 0;
    HistoryLink *link = hist_ctx.list.next;
    while (link != &hist_ctx.list && entry_of(link)->ev.num != num)
        link = link->next;
    hist_ctx.cursor = link;
    return link != &hist_ctx.list ? 0 : -1;
}

// ---- changing ----

void
hist_clear(void *, HistEvent *)
{
    delete_all();
    hist_ctx.cursor = &hist_ctx.list;
    hist_ctx.last_event_num = 0;
    KEYLINE_CHECK(hist_ctx.event_count == 0, "hist_ctx.event_count == 0", 344,
                  "hist_clear");
}

int
hist_enter(void *, HistEvent *ev, const char *str)
{
    // A line equal to the newest of the whole store, whatever the mode of that, is a
    // repeat. The stored line keeps its mode, deliberately.
    if (!is_empty() && strcmp(entry_of(hist_ctx.list.next)->ev.str, str) == 0)
        return 0;
    HistoryEntry *entry = static_cast<HistoryEntry *>(malloc(sizeof(HistoryEntry)));
    entry->ev.str = strdup(str);
    entry->ev.num = ++hist_ctx.last_event_num;
    entry->mode = hist_ctx.current_mode;
    hist_index_add(entry);
    entry->next = hist_ctx.list.next;
    entry->prev = &hist_ctx.list;
    entry->next->prev = entry;
    hist_ctx.list.next = entry;
    hist_ctx.event_count++;
    // Copied before trimming: with a limit of 0 the entry is freed there, and the line that
    // `ev` points to with it.
    *ev = entry->ev;
    hist_shrink();
    return 1;
}

int
hist_add(void *ref, HistEvent *ev, const char *str)
{
    if (hist_ctx.cursor == &hist_ctx.list)
        return hist_enter(ref, ev, str);
    HistoryEntry *entry = entry_of(hist_ctx.cursor);
    char *line = const_cast<char *>(entry->ev.str);
    line = static_cast<char *>(realloc(line, strlen(line) + strlen(str) + 1));
    strcat(line, str);
    entry->ev.str = line;
    *ev = entry->ev;
    return 0;
}

int
hist_del(void *ref, HistEvent *ev, int num)
{
    if (hist_set(ref, ev, num) != 0)
        return -1;
    HistoryEntry *entry = entry_of(hist_ctx.cursor);
    ev->str = strdup(entry->ev.str);
    ev->num = entry->ev.num;
    hist_delete(entry);
    return 0;
}
