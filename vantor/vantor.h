// Interface of the log watch library, libVantor.so: it follows one log file by its path and
// hands each piece of new text over once. For C and C++. The operations of one handle are
// called from one thread; different handles do not touch each other.
//
// What is new. Everything that is written behind the end that the file had when it was
// opened here, in the order in which it was written, each byte once:
//
// - Replaced (renamed away or deleted, and another file put at the path): first the rest of
//   the old file, then all of the new one. Files that came and were renamed away within the
//   directory while nobody processed events are found under their new names and told in
//   between; what was deleted before it was seen is lost. The last file that was replaced
//   stays followed, for writers that are slow to change over, until it is deleted or the
//   next replacement.
// - Events that the kernel dropped, since so many came before anybody processed them: the
//   files that came and went meanwhile are looked for in the directory. They are found when
//   they were made since the last look, in one more tick of the clock than it, and are
//   called as rotation calls them: the name of the log with ".", "-", "_" or "~" and more
//   behind it and not packed, or more before its ending (log-1.txt). Copies of what was
//   told are left out. What was deleted, packed, renamed to another name or out of the
//   directory is lost.
// - Nothing at the path (the file, or a directory on the way, is renamed away or deleted):
//   the old file stays followed until the path leads to another file. A deleted file keeps
//   its room on the disk until then.
// - Truncated: all that is in the file is new if it was written anew, which shows in its
//   first bytes; otherwise only what is written behind the new end. Lines cut off before
//   they were seen are lost.
// - Symbolic links, as the last or any other name of the path: followed, and noticed when
//   put on another target. A directory on the way is noticed when renamed or made again, if
//   it can be read. A file system mounted over the path, writes through a memory map and
//   writes by another host to a network file system are not noticed.
//
// In which pieces. Whole lines, as many as are there, up to VANTOR_TEXT_MAX bytes in a
// piece; a thousand short appends are told in one go. The start of a line waits for the
// rest of it. Only two pieces may end within a line: one of VANTOR_TEXT_MAX bytes, when a
// line is longer than that, and the last of a file that was replaced or deleted.
#pragma once

#ifdef __cplusplus
extern "C" {
#endif

#define VANTOR_TEXT_MAX 32768

typedef struct vantor_handle vantor_handle;

// Takes one piece of news. `first` is a descriptor that stands at the start of the new text
// and holds exactly that text, `second` its length in bytes, 1 to VANTOR_TEXT_MAX; so
// read(first, ..., second) gets all of it, and end of file is behind it. The text is a
// copy: whatever happens to the log file meanwhile, and however large it is, it is what was
// announced. The descriptor is the library's, the same in every call, and not to be closed;
// the text stays until the next vantor_process_event. Text left unread is not told again.
//
// The callback may close its own handle; apart from that it calls no operation on it. Other
// handles it may process and close, which neither tells nor loses anything of this one. It
// may be left by a jump: the text is then told again, unless some of it was read.
typedef void (*vantor_callback)(int first, void *context, int second);

// Starts following the file. The name is copied, the working directory of now is the one
// that counts; the context is only passed on. Returns a handle, to be given to
// vantor_close, or NULL with errno set: ENOENT (no such file or directory, empty name),
// EISDIR, EINVAL (neither file nor directory; no name or callback), EACCES (the file or its
// directory may not be read, or a directory on the way not be searched), EMFILE or ENFILE
// (out of descriptors or inotify instances), ENOSPC (out of inotify watches), ENOMEM,
// ELOOP, ENAMETOOLONG, ENOTDIR.
vantor_handle *vantor_open(const char *filename, vantor_callback callback, void *context);

// Stops and frees everything; there is no callback any more. NULL is allowed.
void vantor_close(vantor_handle *handle);

// The descriptor to wait on, for select or poll: readable when vantor_process_event is to
// be called. It changes while more text waits than one call told, and behind a wait when a
// look at the path failed before it, so ask before every wait. Never close or read it.
// Negative for NULL.
int vantor_inotify_fd(vantor_handle *handle);

// Takes in all that has happened to the file and calls the callback at most once, on this
// thread; what is left makes the descriptor readable at once. Never waits for news. Signals
// are held back except during the callback, so that a handler that jumps finds the handle
// in order. Returns 0, or -1 when it ran out of memory or the handle is NULL.
int vantor_process_event(vantor_handle *handle);

#ifdef __cplusplus
}
#endif
