// Interface of the log watch library, libVantor.so: it follows one log file by its path and
// delivers each piece of new text once. For C and C++. The operations of one handle are
// called from one thread; handles are independent of each other.
//
// What is new. Everything that is written after the end that the file had in vantor_open,
// in the order in which it was written, each byte once:
//
// - Replaced (renamed away or deleted, and another file put at the path): first the rest of
//   the old file, then all of the new one. Files that appeared and were renamed within the
//   directory before their events were processed are found under their new names and
//   delivered in between; a file that was deleted before that is lost. The last file that
//   was replaced stays followed, for writers that are slow to reopen the log, until it is
//   deleted or the next replacement.
// - Event queue overflow: the directory is searched for the files that appeared and were
//   renamed meanwhile. A file is found if it was created since the last call, at least one
//   clock tick later, and has a name that rotation gives: the log's name with a suffix that
//   begins with ".", "-", "_" or "~" and is not that of a compressed file, or something
//   before its extension (log-1.txt). Copies of text that was delivered are left out. A
//   file that was deleted, compressed, renamed otherwise or moved to another directory is
//   lost.
// - Nothing at the path (the file, or a directory of the path, is renamed or deleted): the
//   old file stays followed until the path leads to another file. A deleted file uses disk
//   space until then.
// - Truncated: all of the file is new if it was rewritten, that is, if its first bytes
//   differ; otherwise only what is written after the new end. Lines that were truncated
//   before they were read are lost.
// - Symbolic links, as the last or any other component of the path: followed, also when
//   they get another target. A directory of the path may be renamed or created again, if it
//   can be read. A file system mounted over the path, writes through a memory mapping and
//   writes by another host to a network file system are not noticed.
//
// In which pieces. Whole lines, as many as there are, up to VANTOR_TEXT_MAX bytes in a
// piece; a thousand short appends are delivered at once. The start of a line waits for the
// rest of it. Only two pieces may end within a line: one of VANTOR_TEXT_MAX bytes, when a
// line is longer than that, and the last of a file that was replaced or deleted.
#pragma once

#ifdef __cplusplus
extern "C" {
#endif

#define VANTOR_TEXT_MAX 32768

typedef struct vantor_handle vantor_handle;

// Receives one piece of text. `first` is a descriptor of a file that holds exactly that
// text, with its offset at the start; `second` is the length in bytes, 1 to
// VANTOR_TEXT_MAX. So read(first, ..., second) gets all of it, and the next read end of
// file. The text is a copy that does not depend on what happens to the log file meanwhile.
// The descriptor belongs to the library, is the same in every call, and must not be closed;
// the text stays until the next vantor_process_event. Text that is not read is not
// delivered again.
//
// The callback may close its own handle; apart from that it calls no operation on it. It
// may process and close other handles, which does not affect this one. It may be left by a
// longjmp: the text is then delivered again, unless some of it was read.
typedef void (*vantor_callback)(int first, void *context, int second);

// Starts following the file. The name is copied; a relative one is resolved now. The
// context is passed to the callback. Returns a handle, to be freed by vantor_close, or NULL
// with errno set: ENOENT (no such file or directory, empty name), EISDIR, EINVAL (neither
// regular file nor directory; no name or callback), EACCES (no permission to read the file
// or its directory, or to search a directory of the path), EMFILE or ENFILE (out of
// descriptors or inotify instances), ENOSPC (out of inotify watches), ENOMEM, ELOOP,
// ENAMETOOLONG, ENOTDIR.
vantor_handle *vantor_open(const char *filename, vantor_callback callback, void *context);

// Stops and frees everything; the callback is not called any more. NULL is allowed.
void vantor_close(vantor_handle *handle);

// The descriptor to wait on, for select or poll: readable when vantor_process_event is to
// be called. It is another one while more text waits than one call delivers, and after the
// path could not be resolved, so call this before every wait. Never close or read it.
// Negative for NULL.
int vantor_inotify_fd(vantor_handle *handle);

// Processes all queued events and calls the callback at most once, on this thread; if there
// is more text, the descriptor is readable at once. Never waits for new text. Signals are
// blocked except during the callback, so that a handler may leave that by a longjmp.
// Returns 0, or -1 when it ran out of memory or the handle is NULL.
int vantor_process_event(vantor_handle *handle);

#ifdef __cplusplus
}
#endif
