/*
 * What must hold in the editor whenever it asks for a key: it edits, positions lie in the line, the
 * cursor and the rows in use in the window, every row of the display has its end.
 */
#include "config.h"

#include "el.h"
#include "sig.h"

const char *editor_broken(void);
long editor_work(void);

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

/* Says what does not hold, or NULL. */
const char *
editor_broken(void)
{
    EditLine *el = sig_reader();
    const el_line_t *line;
    const coord_t *size;
    int i;

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
    if (size->h < 2 || size->v < 1 || size->h > 4096 || size->v > 2048)
        return "size";
    if (el->el_cursor.v < 0 || el->el_cursor.v >= size->v)
        return "row of the cursor";
    if (el->el_cursor.h < 0 || el->el_cursor.h > size->h)
        return "column of the cursor";
    if (el->el_refresh.r_oldcv < 0 || el->el_refresh.r_oldcv >= size->v)
        return "rows in use";
    for (i = 0; i <= el->el_refresh.r_oldcv; i++)
        if (el->el_display[i][size->h] != '\0')
            return "end of a row";
    return NULL;
}
