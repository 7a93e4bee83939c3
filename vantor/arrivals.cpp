// Replays the directory's events on the names of the files kept. When there is no memory
// for a file, its text is lost but nothing else.
#include "arrivals.h"

#include <stdlib.h>
#include <string.h>
#include <sys/inotify.h>

static void
remove_at(Arrivals *arrivals, size_t index)
{
    free(arrivals->list[index].name);
    arrivals->count--;
    memmove(arrivals->list + index, arrivals->list + index + 1,
            (arrivals->count - index) * sizeof(Arrival));
}

static Arrival *
find_name(Arrivals *arrivals, const char *name)
{
    for (size_t i = 0; i < arrivals->count; i++) {
        Arrival *arrival = arrivals->list + i;
        if ((arrival->name != nullptr) && strcmp(arrival->name, name) == 0)
            return arrival;
    }
    return nullptr;
}

static Arrival *
find_cookie(Arrivals *arrivals, uint32_t cookie)
{
    for (size_t i = 0; i < arrivals->count; i++)
        if (arrivals->list[i].cookie == cookie && (arrivals->list[i].name == nullptr))
            return arrivals->list + i;
    return nullptr;
}

void
arrivals_add(Arrivals *arrivals, const char *name)
{
    if (arrivals->count == arrivals->capacity) {
        size_t capacity = arrivals->capacity ? 2 * arrivals->capacity : 4;
        void *list = realloc(arrivals->list, capacity * sizeof(Arrival));
        if (list == nullptr)
            return;
        arrivals->list = static_cast<Arrival *>(list);
        arrivals->capacity = capacity;
    }
    char *copy = strdup(name);
    if (copy != nullptr)
        arrivals->list[arrivals->count++] = Arrival{copy, 0, false};
}

// The file of this name was deleted or overwritten.
static bool
forget_name(Arrivals *arrivals, const char *name)
{
    Arrival *arrival = find_name(arrivals, name);
    if (arrival == nullptr)
        return false;
    remove_at(arrivals, static_cast<size_t>(arrival - arrivals->list));
    return true;
}

static bool
name_moved_away(Arrivals *arrivals, const char *name, uint32_t cookie)
{
    Arrival *arrival = find_name(arrivals, name);
    if (arrival == nullptr)
        return false;
    free(arrival->name);
    arrival->name = nullptr;
    arrival->cookie = cookie;
    return true;
}

static bool
name_appeared(Arrivals *arrivals, bool at_path, const inotify_event *event)
{
    bool known = forget_name(arrivals, event->name);
    Arrival *moved =
        event->mask & IN_MOVED_TO ? find_cookie(arrivals, event->cookie) : nullptr;
    if (moved != nullptr) {
        moved->name = strdup(event->name);
        moved->cookie = 0;
        return true;
    }
    if (at_path)
        arrivals_add(arrivals, event->name);
    return known;
}

bool
arrivals_event(Arrivals *arrivals, bool at_path, const inotify_event *event)
{
    bool known = false;
    if (event->mask & (IN_CREATE | IN_MOVED_TO))
        known = name_appeared(arrivals, at_path, event);
    else if (event->mask & IN_MOVED_FROM)
        known = name_moved_away(arrivals, event->name, event->cookie);
    else if (event->mask & IN_DELETE)
        known = forget_name(arrivals, event->name);
    return known;
}

void
arrivals_drop_opened(Arrivals *arrivals)
{
    for (size_t i = arrivals->count; i-- > 0;)
        if (arrivals->list[i].opened || (arrivals->list[i].name == nullptr))
            remove_at(arrivals, i);
}

void
arrivals_clear(Arrivals *arrivals)
{
    while (arrivals->count > 0)
        remove_at(arrivals, arrivals->count - 1);
    free(arrivals->list);
    *arrivals = Arrivals{nullptr, 0, 0};
}
