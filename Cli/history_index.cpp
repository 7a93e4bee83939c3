// The index of the history: two and a half bytes a line as soon as lines have more than one
// mode. Following the links instead costs up to a cache miss for every line passed, on a
// fragmented heap.
#include "history_index.h"

#include <stdlib.h>
#include <string.h>

HistoryIndex hist_index;

constexpr uint32_t smallest_capacity = 64;

// A bitmap of the tags that `shown_to` shows. Modes are never freed and never change their
// parents, so this stays valid until another mode becomes the current one.
static uint64_t shown_tags[(UINT16_MAX + 1) / 64];
static const HistoryMode *shown_to; // borrowed; null: made for no mode yet

static uint32_t
number_of(const HistoryLink *link)
{
    return static_cast<uint32_t>(static_cast<const HistoryEntry *>(link)->ev.num);
}

static uint32_t
block_of(const HistoryLink *link)
{
    return number_of(link) / hist_index_block;
}

static uint32_t
tag_slot(uint32_t number)
{
    return number & (hist_index.capacity - 1);
}

static uint32_t
head_slot(uint32_t number)
{
    return tag_slot(number) / hist_index_block;
}

uint16_t
hist_index_tag(const HistoryMode *mode)
{
    uint64_t address = reinterpret_cast<uintptr_t>(mode);
    return static_cast<uint16_t>((address * 0x9e3779b97f4a7c15u) >> 48);
}

// ---- maintenance ----

// The capacity that is needed for the numbers from the oldest line's up to `newest`: one
// block more than their count, because the first and the last block may be partly used and
// must not share a slot.
static uint32_t
room_for(uint32_t newest)
{
    return newest - number_of(hist_ctx.list.prev) + 1 + hist_index_block;
}

// Replaces the rings by empty ones of this capacity; the caller frees the old ones. False
// without memory, with nothing changed.
static bool
empty_rings(uint32_t capacity)
{
    size_t blocks = capacity / hist_index_block;
    uint16_t *tags = static_cast<uint16_t *>(calloc(capacity, sizeof(uint16_t)));
    HistoryEntry **heads =
        static_cast<HistoryEntry **>(calloc(blocks, sizeof(HistoryEntry *)));
    if (tags == nullptr || heads == nullptr) {
        free(tags);
        free(heads);
        return false;
    }
    hist_index.capacity = capacity;
    hist_index.tags = tags;
    hist_index.heads = heads;
    return true;
}

// Copies the slots of all linked lines to rings of another, sufficient capacity. False
// without memory, with nothing changed.
static bool
resize(uint32_t capacity)
{
    HistoryIndex old = hist_index;
    if (!empty_rings(capacity))
        return false;
    uint32_t end = number_of(hist_ctx.list.next) + 1;
    for (uint32_t number = number_of(hist_ctx.list.prev); number != end; number++) {
        uint32_t slot = number & (old.capacity - 1);
        hist_index.tags[tag_slot(number)] = old.tags[slot];
        hist_index.heads[head_slot(number)] = old.heads[slot / hist_index_block];
    }
    free(old.tags);
    free(old.heads);
    return true;
}

// The next capacity, from `capacity` on, that has this room; 0 when nearly all of the
// numbers belong to deleted lines: the rings are not worth their memory then.
static uint32_t
capacity_for(uint32_t room, uint32_t capacity)
{
    if (room / 8 > hist_ctx.event_count + hist_index_block)
        return 0;
    while (capacity < room)
        capacity *= 2;
    return capacity;
}

static void
put(HistoryEntry *entry)
{
    uint32_t number = number_of(entry);
    hist_index.tags[tag_slot(number)] = hist_index_tag(entry->mode);
    hist_index.heads[head_slot(number)] = entry;
}

// Makes the rings for all lines and one more number; false when that fails.
static bool
build(uint32_t number)
{
    uint32_t capacity = capacity_for(room_for(number), smallest_capacity);
    if (capacity == 0 || !empty_rings(capacity))
        return false;
    for (HistoryLink *link = hist_ctx.list.prev; link != &hist_ctx.list; link = link->prev)
        put(static_cast<HistoryEntry *>(link));
    return true;
}

// Makes room in the rings for one more number; false when that fails.
static bool
make_room(uint32_t number)
{
    uint32_t room = room_for(number);
    if (room <= hist_index.capacity)
        return true;
    uint32_t capacity = capacity_for(room, hist_index.capacity);
    return capacity != 0 && resize(capacity);
}

void
hist_index_drop()
{
    free(hist_index.tags);
    free(hist_index.heads);
    hist_index = {false, 0, nullptr, nullptr};
    shown_to = nullptr;
}

void
hist_index_add(HistoryEntry *entry)
{
    if (hist_ctx.event_count == 0) {
        hist_index.in_use = true;
        return;
    }
    // Without rings all lines have the mode of the newest.
    bool rings = hist_index.capacity != 0;
    const HistoryMode *newest = static_cast<HistoryEntry *>(hist_ctx.list.next)->mode;
    if (!hist_index.in_use || (!rings && entry->mode == newest))
        return;
    uint32_t number = number_of(entry);
    // Without memory the store works on without the index.
    if (rings ? make_room(number) : build(number))
        put(entry);
    else
        hist_index_drop();
}

void
hist_index_remove(const HistoryEntry *entry)
{
    if (hist_ctx.event_count == 1)
        hist_index_drop();
    if (hist_index.capacity == 0)
        return;
    HistoryEntry **head = hist_index.heads + head_slot(number_of(entry));
    if (*head != entry)
        return;
    bool last = entry->next == &hist_ctx.list || block_of(entry->next) != block_of(entry);
    *head = last ? nullptr : static_cast<HistoryEntry *>(entry->next);
}

void
hist_index_fit()
{
    uint32_t capacity = hist_index.capacity;
    if (capacity <= smallest_capacity)
        return;
    uint32_t room = room_for(number_of(hist_ctx.list.next));
    if (room > capacity / 8)
        return;
    while (capacity > smallest_capacity && room <= capacity / 4)
        capacity /= 2;
    static_cast<void>(resize(capacity)); // on failure the index stays large
}

// ---- lookup ----

static void
show_tag(const HistoryMode *mode)
{
    uint16_t tag = hist_index_tag(mode);
    shown_tags[tag / 64] |= uint64_t{1} << (tag % 64);
}

static void
show_current_mode()
{
    if (shown_to == hist_ctx.current_mode)
        return;
    memset(shown_tags, 0, sizeof shown_tags);
    show_tag(nullptr);
    for (const HistoryMode *mode = hist_ctx.current_mode; mode != nullptr;
         mode = mode->parent)
        show_tag(mode);
    shown_to = hist_ctx.current_mode;
}

// The line with this number if it exists and the current mode shows it, else null.
static HistoryEntry *
shown_line(uint32_t number)
{
    uint16_t tag = hist_index.tags[tag_slot(number)];
    if ((shown_tags[tag / 64] >> (tag % 64) & 1) == 0)
        return nullptr;
    HistoryEntry *entry = hist_index.heads[head_slot(number)];
    if (entry == nullptr)
        return nullptr;
    // Ends at the oldest line at the latest: `number` is never lower.
    while (number_of(entry) > number)
        entry = static_cast<HistoryEntry *>(entry->next);
    bool found = number_of(entry) == number && hist_visible(entry, hist_ctx.current_mode);
    return found ? entry : nullptr;
}

HistoryLink *
hist_index_older(const HistoryEntry *entry)
{
    if (hist_index.capacity == 0)
        return &hist_ctx.list;
    show_current_mode();
    uint32_t number = number_of(entry);
    for (uint32_t left = number - number_of(hist_ctx.list.prev) + 1; left > 0; left--) {
        HistoryEntry *found = shown_line(number--);
        if (found != nullptr)
            return found;
    }
    return &hist_ctx.list;
}

HistoryLink *
hist_index_newer(const HistoryEntry *entry)
{
    if (hist_index.capacity == 0)
        return &hist_ctx.list;
    show_current_mode();
    uint32_t number = number_of(entry);
    for (uint32_t left = number_of(hist_ctx.list.next) - number + 1; left > 0; left--) {
        HistoryEntry *found = shown_line(number++);
        if (found != nullptr)
            return found;
    }
    return &hist_ctx.list;
}
