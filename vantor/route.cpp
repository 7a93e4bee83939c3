// Walks the path as the kernel would, name by name, and puts each watch before the look, so
// that no change can fall between them.
#include "route.h"

#include <errno.h>
#include <stdio.h>
#include <string.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

constexpr int links_max = 40;
constexpr int walks_max = 16;

// What happens to a directory on the way itself; to a link also that another is renamed
// over it; and to the entries of the last directory also that they become readable.
constexpr unsigned directory_events = IN_DELETE_SELF | IN_MOVE_SELF;
constexpr unsigned link_events = directory_events | IN_ATTRIB;
constexpr unsigned entry_events =
    directory_events | IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO | IN_ATTRIB;
const unsigned route_file_events = IN_MODIFY | IN_ATTRIB;

enum Kind { kind_missing, kind_link, kind_directory, kind_other };

void
route_init(Route *route)
{
    memset(route, 0, sizeof *route);
    route->entries = route->above = -1;
}

int
route_place(const Route *route, const char *name, char *place)
{
    int length = snprintf(place, PATH_MAX, "%s/%s", route->dir, name);
    if (length < 0 || length >= PATH_MAX) {
        errno = ENAMETOOLONG;
        return -1;
    }
    return 0;
}

// What stands at a place, links not followed. Out of reach counts as missing.
static Kind
look(const char *place)
{
    struct stat status;
    if (lstat(place, &status) == -1)
        return kind_missing;
    if (S_ISLNK(status.st_mode))
        return kind_link;
    return S_ISDIR(status.st_mode) ? kind_directory : kind_other;
}

static bool
has_watch(const Route *route, int watch)
{
    for (int i = 0; i < route->count; i++)
        if (route->watches[i] == watch)
            return true;
    return false;
}

// Adds a watch, without taking events from one that is there. Returns it, or -1 with errno
// set: ENOENT also when directories that come during the walk leave no room for it.
static int
add_watch(Route *route, int inotify, const char *place, unsigned events)
{
    int watch = inotify_add_watch(inotify, place, events | IN_MASK_ADD | IN_DONT_FOLLOW);
    if (watch == -1 || has_watch(route, watch))
        return watch;
    if (route->count == route_watches) {
        inotify_rm_watch(inotify, watch);
        errno = ENOENT;
        return -1;
    }
    route->watches[route->count++] = watch;
    return watch;
}

// Watches a directory or link on the way. One that may not be read, or that has just gone,
// is passed over: only the lack of resources is an error.
static int
watch_step(Route *route, int inotify, const char *place, unsigned events)
{
    if (route->count >= route_watches - 2) // the others are for its end
        return 0;
    if (add_watch(route, inotify, place, events) >= 0)
        return 0;
    return errno == ENOSPC || errno == ENOMEM ? -1 : 0;
}

// Takes the first name off `rest` into route->name. False when there is none left.
static bool
take_name(Route *route, char *rest)
{
    const char *start = rest + strspn(rest, "/");
    size_t length = strcspn(start, "/");
    if (length == 0)
        return false;
    memcpy(route->name, start, length);
    route->name[length] = '\0';
    memmove(rest, start + length, strlen(start + length) + 1);
    return true;
}

// Goes on at the target of a link: puts it before `rest`.
static int
enter_link(Route *route, const char *place, char *rest)
{
    char target[PATH_MAX];
    ssize_t length = readlink(place, target, sizeof target - 1);
    if (length < 0)
        return -1;
    target[length] = '\0';
    size_t left = strlen(rest);
    if (static_cast<size_t>(length) + left + 2 > PATH_MAX) {
        errno = ENAMETOOLONG;
        return -1;
    }
    memmove(rest + length + 1, rest, left + 1);
    memcpy(rest, target, static_cast<size_t>(length));
    rest[length] = '/';
    if (target[0] == '/')
        route->dir[0] = '\0';
    return 0;
}

// Watches the entries of the last directory. Returns 0, or -1 with errno set.
static int
watch_entries(Route *route, int inotify)
{
    const char *dir = route->dir[0] ? route->dir : "/";
    int watch = add_watch(route, inotify, dir, entry_events | IN_ONLYDIR);
    if (watch == -1)
        return -1;
    route->entries = watch;
    return 0;
}

// Watches the parent of the last directory for its deletion. Returns 0, also when it may
// not be read, or -1 with errno set.
static int
watch_above(Route *route, int inotify)
{
    char above[PATH_MAX];
    strcpy(above, route->dir);
    char *slash = strrchr(above, '/');
    if (slash == nullptr)
        return 0;
    slash[slash == above ? 1 : 0] = '\0';
    route->above = add_watch(route, inotify, above, IN_DELETE);
    return route->above == -1 && errno != EACCES ? -1 : 0;
}

// What stands at a place that ends the way, or lets it go on after all: looks again once
// the entries of the directory are watched. -1 with errno set when they cannot be.
//
// With nothing at the place the directory may be deleted. It does not say so itself while a
// deleted file of it is held open, by a handle or by the file's writer, so its parent is
// asked; a directory that went before that is no longer there to be watched.
static int
look_watched(Route *route, int inotify, const char *place)
{
    if (watch_entries(route, inotify) == -1)
        return -1;
    int kind = look(place);
    if (kind != kind_missing)
        return kind;
    if (watch_above(route, inotify) == -1 || watch_entries(route, inotify) == -1)
        return -1;
    return look(place);
}

// One walk. ENOENT, ENOTDIR and EINVAL say that the way changed underfoot.
static int
walk(Route *route, int inotify, const char *path)
{
    char rest[PATH_MAX];
    char place[PATH_MAX];
    int links = 0;
    route_init(route);
    strcpy(rest, path);
    for (;;) {
        if (!take_name(route, rest)) {
            errno = EISDIR;
            return -1;
        }
        if (strcmp(route->name, ".") == 0)
            continue;
        if (strcmp(route->name, "..") == 0) { // no link in `dir`: the text is enough
            char *slash = strrchr(route->dir, '/');
            if (slash != nullptr)
                *slash = '\0';
            continue;
        }
        if (route_place(route, route->name, place) == -1)
            return -1;
        bool last = rest[strspn(rest, "/")] == '\0';
        int kind = look(place);
        if (kind == kind_missing || kind == kind_other ||
            (last && kind == kind_directory)) {
            kind = look_watched(route, inotify, place);
            if (kind == -1)
                return -1;
        }
        if (kind != kind_link && (last || kind != kind_directory)) {
            route->whole = last;
            return 0;
        }
        unsigned events = kind == kind_link ? link_events : directory_events;
        if (watch_step(route, inotify, place, events) == -1)
            return -1;
        if (kind == kind_directory) {
            strcpy(route->dir, place);
        } else if (++links > links_max) {
            errno = ELOOP;
            return -1;
        } else if (enter_link(route, place, rest) == -1) {
            return -1;
        }
    }
}

// Walks until the way holds still, and else ends with EAGAIN. Watches of a broken walk that
// are not met again would be forgotten, so they are dropped at once.
static int
walk_through(Route *route, int inotify, const char *path)
{
    for (int tries = 1;; tries++) {
        int result = walk(route, inotify, path);
        bool moved =
            result == -1 && (errno == ENOENT || errno == ENOTDIR || errno == EINVAL);
        if (!moved)
            return result;
        if (tries == walks_max)
            break;
        for (int i = 0; i < route->count; i++)
            inotify_rm_watch(inotify, route->watches[i]);
    }
    errno = EAGAIN;
    return -1;
}

// Drops a watch that told of a directory's entries, if the directory is only passed now.
static bool
drop_passed(const Route *fresh, int inotify, int watch)
{
    return watch >= 0 && watch != fresh->entries && watch != fresh->above &&
           has_watch(fresh, watch) && inotify_rm_watch(inotify, watch) == 0;
}

int
route_lay(Route *route, int inotify, const char *path)
{
    Route fresh;
    int result = walk_through(&fresh, inotify, path);
    // The second walk adds what was dropped with fewer events.
    bool entries = drop_passed(&fresh, inotify, route->entries);
    bool above = drop_passed(&fresh, inotify, route->above);
    if (entries || above)
        result = walk_through(&fresh, inotify, path);
    int error = errno;
    for (int i = 0; i < route->count; i++)
        if (!has_watch(&fresh, route->watches[i]))
            inotify_rm_watch(inotify, route->watches[i]);
    *route = fresh;
    errno = error;
    return result;
}
