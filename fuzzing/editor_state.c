/*
 * The editor's invariants whenever it asks for a key: it edits, positions lie in the line, the
 * cursor in the window. And what it means to show.
 */
#include "config.h"

#include "el.h"
#include "fcns.h"
#include "sig.h"

#include "editor_state.h"


/* What the next key will cost, very roughly. */
long
editor_work(void)
{
    EditLine *el = sig_reader();
    long work = 1, length;

    if (el == NULL)
        return work;
    length = el->el_line.lastchar - el->el_line.buffer;
    work += el->el_line.cursor < el->el_line.lastchar ? length / 4 : length / 64;
    work += length / el->el_terminal.t_size.h * el->el_terminal.t_size.v / 1000;
    return work + el->el_terminal.t_size.h / 16;
}

/* The invariant that does not hold, or NULL. */
const char *
editor_broken(void)
{
    EditLine *el = sig_reader();
    const el_line_t *line;
    const coord_t *size;

    if (el == NULL)
        return NULL;
    if (el->el_flags & NO_TTY)
        return "the terminal is none, nothing would be edited";
    line = &el->el_line;
    size = &el->el_terminal.t_size;
    if (line->lastchar < line->buffer || line->lastchar > line->limit)
        return "end of the line";
    if (line->cursor < line->buffer || line->cursor > line->lastchar)
        return "cursor in the line";
    if (el->el_chared.c_kill.last < el->el_chared.c_kill.buf ||
        el->el_chared.c_kill.last - el->el_chared.c_kill.buf > line->limit - line->buffer)
        return "kill buffer";
    if (el->el_chared.c_kill.mark < line->buffer || el->el_chared.c_kill.mark > line->limit)
        return "mark";
    if (el->el_chared.c_undo.len > line->limit - line->buffer)
        return "undo buffer";
    if (el->el_history.last < el->el_history.buf ||
        el->el_history.last - el->el_history.buf > line->limit - line->buffer)
        return "saved line";
    if (el->el_history.eventno < 0)
        return "place in the history";
    if (size->h < 1 || size->v < 1 || size->h > 4096 || size->v > 2048)
        return "size";
    if (el->el_refresh.resized) /* until it is redrawn, it is where it was */
        return NULL;
    if (el->el_refresh.at.v < 0 || el->el_refresh.at.v >= size->v)
        return "row of the cursor";
    if (el->el_refresh.at.h < 0 || el->el_refresh.at.h > size->h)
        return "column of the cursor";
    return NULL;
}

int
editor_shows(struct editor_shown *shown)
{
    EditLine *el = sig_reader();

    if (el == NULL || el->el_state.thiscmd == ED_COMMAND)
        return 0;
    shown->prompt = prompt_text(el, &shown->ignore);
    shown->line = el->el_line.buffer;
    shown->length = (size_t)(el->el_line.lastchar - el->el_line.buffer);
    shown->cursor = (size_t)(el->el_line.cursor - el->el_line.buffer);
    shown->rows = el->el_terminal.t_size.v;
    shown->columns = el->el_terminal.t_size.h;
    shown->window = el->el_terminal.t_window.h;
    shown->is_old = el->el_refresh.resized;
    return 1;
}
