// The one context, the table of modes, which is sorted by key, and what a mode shows.
#include "history_store.h"

#include <stdlib.h>
#include <string.h>

HistoryContext hist_ctx;

HistoryMode *
find_history_mode(const char *key)
{
    if (hist_ctx.modes == nullptr || key == nullptr || *key == '\0')
        return nullptr;
    if (hist_ctx.current_mode != nullptr && strcmp(hist_ctx.current_mode->key, key) == 0)
        return hist_ctx.current_mode;
    int32_t lo = 0;
    int32_t hi = hist_ctx.mode_count - 1;
    while (lo <= hi) {
        int32_t mid = (lo + hi) / 2;
        int order = strcmp(hist_ctx.modes[mid]->key, key);
        if (order == 0)
            return hist_ctx.modes[mid];
        if (order < 0)
            lo = mid + 1;
        else
            hi = mid - 1;
    }
    return nullptr;
}

// Inserts the mode, which the table owns from now on, after all keys that do not compare
// greater: of equal keys, and only empty ones can be equal, the newest comes last.
static void
insert_mode(HistoryMode *mode)
{
    if (hist_ctx.mode_count == hist_ctx.mode_capacity) {
        int32_t capacity = hist_ctx.mode_capacity == 0 ? 16 : 2 * hist_ctx.mode_capacity;
        size_t size = static_cast<size_t>(capacity) * sizeof(HistoryMode *);
        hist_ctx.modes = static_cast<HistoryMode **>(realloc(hist_ctx.modes, size));
        hist_ctx.mode_capacity = capacity;
    }
    int32_t i = 0;
    while (i < hist_ctx.mode_count && strcmp(hist_ctx.modes[i]->key, mode->key) <= 0)
        i++;
    size_t greater = static_cast<size_t>(hist_ctx.mode_count - i);
    memmove(hist_ctx.modes + i + 1, hist_ctx.modes + i, greater * sizeof(HistoryMode *));
    hist_ctx.modes[i] = mode;
    hist_ctx.mode_count++;
}

HistoryMode *
new_history_mode(const char *key, const char *parent_key)
{
    HistoryMode *mode = find_history_mode(key);
    if (mode != nullptr)
        return mode;
    HistoryMode *parent = nullptr;
    if (parent_key != nullptr && *parent_key != '\0') {
        parent = find_history_mode(parent_key);
        if (parent == nullptr)
            return nullptr;
    }
    mode = static_cast<HistoryMode *>(malloc(sizeof(HistoryMode)));
    mode->key = strdup(key);
    mode->parent = parent;
    insert_mode(mode);
    return mode;
}

bool
hist_visible(const HistoryEntry *entry, const HistoryMode *mode)
{
    if (mode == nullptr || entry->mode == nullptr)
        return true;
    for (; mode != nullptr; mode = mode->parent)
        if (mode == entry->mode)
            return true;
    return false;
}
