// Resolves the path as the kernel would, component by component. Each watch is added before
// the component is checked, so that no change can fall between them.
#include "route.h"

#include <errno.h>
#include <stdio.h>
#include <string.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

constexpr int links_max = 40;
constexpr int walks_max = 16;

// A directory of the path: what happens to it itself. A link: also that another is renamed
// over it. The last directory: what happens to its entries, also that they become readable.
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
    route->entries = route->parent = -1;
}

int
route_join(const Route *route, const char *name, char *path)
{
    int length = snprintf(path, PATH_MAX, "%s/%s", route->dir, name);
    if (length < 0 || length >= PATH_MAX) {
        errno = ENAMETOOLONG;
        return -1;
    }
    return 0;
}

// The kind of file at a path, links not followed. One that lstat cannot reach is missing.
static Kind
kind_of(const char *path)
{
    struct stat status;
    if (lstat(path, &status) == -1)
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

// Adds a watch, or events to the mask of an existing one. Returns the watch descriptor, or
// -1 with errno set: ENOENT also when directories created during the walk have filled the
// array.
static int
add_watch(Route *route, int inotify, const char *path, unsigned events)
{
    int watch = inotify_add_watch(inotify, path, events | IN_MASK_ADD | IN_DONT_FOLLOW);
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

// Watches a directory or link in the path. One that may not be read, or has just been
// removed, is skipped: only a lack of resources is an error.
static int
watch_component(Route *route, int inotify, const char *path, unsigned events)
{
    if (route->count >= route_watches - 2) // reserved: the last directory and its parent
        return 0;
    if (add_watch(route, inotify, path, events) >= 0)
        return 0;
    return errno == ENOSPC || errno == ENOMEM ? -1 : 0;
}

// Moves the first component of `rest` to route->name. False when there is none left.
static bool
next_component(Route *route, char *rest)
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

// Prepends the target of a link to `rest`.
static int
expand_link(Route *route, const char *path, char *rest)
{
    char target[PATH_MAX];
    ssize_t length = readlink(path, target, sizeof target - 1);
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

// Watches the parent of the last directory, for the deletion of the latter. Returns 0, also
// when the parent may not be read, or -1 with errno set.
static int
watch_parent(Route *route, int inotify)
{
    char parent[PATH_MAX];
    strcpy(parent, route->dir);
    char *slash = strrchr(parent, '/');
    if (slash == nullptr)
        return 0;
    slash[slash == parent ? 1 : 0] = '\0';
    route->parent = add_watch(route, inotify, parent, IN_DELETE);
    return route->parent == -1 && errno != EACCES ? -1 : 0;
}

// The kind of the path's last component, or of a missing one, checked again once the
// entries of the directory are watched. -1 with errno set when they cannot be.
//
// With nothing at the path, the directory may be deleted next. It gives no IN_DELETE_SELF
// while a deleted file in it is still open, by a handle or by the file's writer, so its
// parent is watched, too. If it was deleted before that, watching it again fails.
static int
kind_once_watched(Route *route, int inotify, const char *path)
{
    if (watch_entries(route, inotify) == -1)
        return -1;
    int kind = kind_of(path);
    if (kind != kind_missing)
        return kind;
    if (watch_parent(route, inotify) == -1 || watch_entries(route, inotify) == -1)
        return -1;
    return kind_of(path);
}

// One walk. ENOENT, ENOTDIR and EINVAL mean that the path changed during it.
static int
walk(Route *route, int inotify, const char *path)
{
    char rest[PATH_MAX];
    char prefix[PATH_MAX];
    int links = 0;
    route_init(route);
    strcpy(rest, path);
    for (;;) {
        if (!next_component(route, rest)) {
            errno = EISDIR;
            return -1;
        }
        if (strcmp(route->name, ".") == 0)
            continue;
        if (strcmp(route->name, "..") == 0) { // `dir` has no links: cut its last name
            char *slash = strrchr(route->dir, '/');
            if (slash != nullptr)
                *slash = '\0';
            continue;
        }
        if (route_join(route, route->name, prefix) == -1)
            return -1;
        bool last = rest[strspn(rest, "/")] == '\0';
        int kind = kind_of(prefix);
        if (kind == kind_missing || kind == kind_other ||
            (last && kind == kind_directory)) {
            kind = kind_once_watched(route, inotify, prefix);
            if (kind == -1)
                return -1;
        }
        if (kind != kind_link && (last || kind != kind_directory)) {
            route->whole = last;
            return 0;
        }
        unsigned events = kind == kind_link ? link_events : directory_events;
        if (watch_component(route, inotify, prefix, events) == -1)
            return -1;
        if (kind == kind_directory) {
            strcpy(route->dir, prefix);
        } else if (++links > links_max) {
            errno = ELOOP;
            return -1;
        } else if (expand_link(route, prefix, rest) == -1) {
            return -1;
        }
    }
}

// Walks until the path does not change during a walk; EAGAIN after too many. The watches of
// a walk that failed so are removed at once: the next one may not come upon them.
static int
walk_until_stable(Route *route, int inotify, const char *path)
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

// Removes the watch on a directory's entries if that is an intermediate directory now.
static bool
drop_intermediate(const Route *fresh, int inotify, int watch)
{
    return watch >= 0 && watch != fresh->entries && watch != fresh->parent &&
           has_watch(fresh, watch) && inotify_rm_watch(inotify, watch) == 0;
}

int
route_update(Route *route, int inotify, const char *path)
{
    Route fresh;
    int result = walk_until_stable(&fresh, inotify, path);
    // The second walk adds the removed watches again, with fewer events.
    bool entries = drop_intermediate(&fresh, inotify, route->entries);
    bool parent = drop_intermediate(&fresh, inotify, route->parent);
    if (entries || parent)
        result = walk_until_stable(&fresh, inotify, path);
    int error = errno;
    for (int i = 0; i < route->count; i++)
        if (!has_watch(&fresh, route->watches[i]))
            inotify_rm_watch(inotify, route->watches[i]);
    *route = fresh;
    errno = error;
    return result;
}
