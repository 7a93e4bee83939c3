/*
 * The editor's inner state, as the fuzzer needs it.
 */
#pragma once

#include <stddef.h>
#include <wchar.h>

#ifdef __cplusplus
extern "C" {
#endif

struct editor_shown {
    const wchar_t *prompt; /* borrowed, as the line, until the editor goes on */
    wchar_t ignore;
    const wchar_t *line;
    size_t length;
    size_t cursor;
    int rows;
    int columns;
    int window; /* the columns of the window that it was told of last, or 0 */
    int is_old; /* the size is new, and nothing drawn in it yet */
};

/* The invariant that does not hold, or NULL. */
const char *editor_broken(void);

/* What the next key will cost, very roughly. */
long editor_work(void);

/* What is to be on the screen. 0 while a command asks for its own, or has printed. */
int editor_shows(struct editor_shown *shown);

#ifdef __cplusplus
}
#endif
