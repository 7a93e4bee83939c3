// Finds by names and birth times what the lost events would have said.
#include "search.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

struct Found {
    char *name; // owned
    dev_t device;
    ino_t inode;
    struct timespec birth;
};

struct Findings {
    Found *list; // owned
    size_t count;
    size_t capacity;
};

static bool
ends_with(const char *name, const char *ending)
{
    size_t length = strlen(name);
    size_t wanted = strlen(ending);
    return length > wanted && strcmp(name + length - wanted, ending) == 0;
}

static bool
is_compressed(const char *name)
{
    static const char *const endings[] = {".gz",  ".bz2", ".xz", ".zst",
                                          ".lz4", ".zip", ".Z"};
    for (const char *ending : endings)
        if (ends_with(name, ending))
            return true;
    return false;
}

// For log.txt: log.txt.1, log.txt-20260101, log.txt.old, log-1.txt, log.1.txt.
static bool
is_rotated(const char *log, const char *name)
{
    size_t whole = strlen(log);
    const char *dot = strrchr(log, '.');
    if (strncmp(name, log, whole) == 0 && name[whole] != '\0' &&
        (strchr(".-_~", name[whole]) != nullptr))
        return !is_compressed(name);
    if ((dot == nullptr) || dot == log || !ends_with(name, dot) || strlen(name) <= whole)
        return false;
    size_t stem = static_cast<size_t>(dot - log);
    return strncmp(name, log, stem) == 0 && (strchr(".-_", name[stem]) != nullptr);
}

static bool
is_later(const struct timespec *one, const struct timespec *other)
{
    return one->tv_sec != other->tv_sec ? one->tv_sec > other->tv_sec
                                        : one->tv_nsec > other->tv_nsec;
}

static bool
is_same(const struct timespec *one, const struct timespec *other)
{
    return one->tv_sec == other->tv_sec && one->tv_nsec == other->tv_nsec;
}

// Fills in all but the name; false for anything but a regular file. On file systems without
// birth times, the modification time is used.
static bool
identify(int dir, const char *name, int flags, Found *found)
{
    struct statx status;
    if (statx(dir, name, flags, STATX_BASIC_STATS | STATX_BTIME, &status) == -1 ||
        !S_ISREG(status.stx_mode))
        return false;
    const struct statx_timestamp *birth =
        status.stx_mask & STATX_BTIME ? &status.stx_btime : &status.stx_mtime;
    found->device = makedev(status.stx_dev_major, status.stx_dev_minor);
    found->inode = status.stx_ino;
    found->birth.tv_sec = birth->tv_sec;
    found->birth.tv_nsec = birth->tv_nsec;
    return true;
}

void
search_remember(vantor_handle *handle, const Follow *follow)
{
    Found found;
    if (identify(follow->file, "", AT_EMPTY_PATH, &found))
        handle->gone[handle->gone_count++ % gone_max] =
            Gone{found.device, found.inode, found.birth};
}

// Whether the open file starts like one of the followed files: a copy of it, as made by a
// rotation that copies and truncates.
static bool
is_copy(const vantor_handle *handle, int file)
{
    char head[follow_head_max];
    for (int i = 0; i < handle->count; i++) {
        const Follow *follow = handle->files + i;
        if (follow->head_size == 0)
            continue;
        ssize_t got = pread(file, head, follow->head_size, 0);
        if (got == static_cast<ssize_t>(follow->head_size) &&
            memcmp(head, follow->head, follow->head_size) == 0)
            return true;
    }
    return false;
}

// Whether it is followed, or was: a file that was created at the time in `known` may look
// newer than that.
static bool
is_known(const vantor_handle *handle, const Found *found)
{
    for (int i = 0; i < handle->count; i++) {
        const Follow *follow = handle->files + i;
        if (follow->inode == found->inode && follow->device == found->device)
            return true;
    }
    for (const Gone &gone : handle->gone) {
        if (gone.inode == found->inode && gone.device == found->device &&
            is_same(&gone.birth, &found->birth))
            return true;
    }
    return false;
}

// Whether the entry is one that is searched for; `found` gets all but its name.
static bool
is_candidate(const vantor_handle *handle, int dir, const char *name, Found *found)
{
    if (!is_rotated(handle->route.name, name) ||
        !identify(dir, name, AT_SYMLINK_NOFOLLOW, found) || is_known(handle, found) ||
        !is_later(&found->birth, &handle->known))
        return false;
    int file = openat(dir, name, O_RDONLY | O_NONBLOCK | O_NOCTTY | O_NOFOLLOW | O_CLOEXEC);
    if (file == -1)
        return true; // opened again later, and then delivered or given up
    bool copy = is_copy(handle, file);
    close(file);
    return !copy;
}

// False without memory for it.
static bool
keep(Findings *findings, const Found *found, const char *name)
{
    if (findings->count == findings->capacity) {
        size_t capacity = findings->capacity ? 2 * findings->capacity : 8;
        void *list = realloc(findings->list, capacity * sizeof(Found));
        if (list == nullptr)
            return false;
        findings->list = static_cast<Found *>(list);
        findings->capacity = capacity;
    }
    Found *kept = findings->list + findings->count;
    *kept = *found;
    kept->name = strdup(name);
    if (kept->name == nullptr)
        return false;
    findings->count++;
    return true;
}

// With equal birth times, the lower inode number counts as older.
static int
compare(const void *one, const void *other)
{
    const Found *a = static_cast<const Found *>(one);
    const Found *b = static_cast<const Found *>(other);
    if (is_same(&a->birth, &b->birth))
        return a->inode < b->inode ? -1 : 1;
    return is_later(&a->birth, &b->birth) ? 1 : -1;
}

int
search_arrivals(vantor_handle *handle)
{
    DIR *dir = opendir(handle->route.dir[0] ? handle->route.dir : "/");
    if (dir == nullptr)
        return -1;
    Findings findings = {nullptr, 0, 0};
    int result = 0;
    while (const dirent *entry = readdir(dir)) {
        Found found;
        if (is_candidate(handle, dirfd(dir), entry->d_name, &found) &&
            !keep(&findings, &found, entry->d_name))
            result = -1;
    }
    closedir(dir);
    if (findings.count > 1)
        qsort(findings.list, findings.count, sizeof(Found), compare);
    for (size_t i = 0; i < findings.count; i++) {
        if (result == 0)
            arrivals_add(&handle->arrivals, findings.list[i].name);
        free(findings.list[i].name);
    }
    free(findings.list);
    if (result == -1)
        errno = ENOMEM;
    return result;
}
