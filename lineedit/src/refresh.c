/*
 * refresh.c: the rows of prompt and line on the screen.
 *
 * re_refresh() lays prompt and line out (layout.c), compares the frame with the one
 * drawn last and writes the differences. The window's position on the screen is not
 * known, only the cursor's in the window: all moves are relative to that.
 *
 * A row whose text goes on in the next one is joined to it in the terminal: its last
 * cell and the first of the next are written with nothing in between, so that the
 * terminal wraps by itself, and copies and reflows both as one line. That needs
 * automatic margins with a pending wrap (am and xn). On any other terminal the last
 * column stays free and a line feed is written.
 */
#include "config.h"

#include <stdlib.h>
#include <string.h>
#include <wchar.h>

#include "el.h"
#include "output.h"
#include "row.h"
#include "window.h"

/* re_follow():
 *	The window begins at another row. If it moved down for the first time, the rows
 *	above scroll out of it; otherwise its rows are overwritten.
 */
static void
re_follow(EditLine *el)
{
	el_refresh_t *r = &el->el_refresh;
	int n = r->next.top - r->drawn.top;

	if (n > 0 && n <= r->drawn.rows && r->drawn.top == r->scrolled) {
		r->drawn.top = r->scrolled = r->next.top;
		r->drawn.rows -= n;
		r->at.v -= n;
		r->depth -= n;
	}
}

/* re_clear_rows():
 *	Clear the rows that are no longer used, from the last one up
 */
static void
re_clear_rows(EditLine *el)
{
	el_refresh_t *r = &el->el_refresh;
	layout_row_t *row;
	int v;

	for (v = r->drawn.rows - 1; v >= r->next.rows; v--)
		if ((row = layout_row(&r->drawn, v))->end > 0) {
			out_move_to_row(el, v);
			if (r->at.h > 0)
				out_return(el);
			row->continued = 0;	/* or its last cell would stay joined */
			row_clear_behind(el, row, v, 0, row->end);
		}
}

/* re_draw():
 *	Make the screen show `next'
 */
static void
re_draw(EditLine *el)
{
	el_refresh_t *r = &el->el_refresh;
	layout_t drawn;
	int v, cursor_is_below;

	re_follow(el);
	cursor_is_below = r->at.v >= r->next.rows;
	if (cursor_is_below)
		re_clear_rows(el);
	for (v = 0; v < r->next.rows; v++)
		row_update(el, v);
	if (!cursor_is_below)
		re_clear_rows(el);
	/* clearing below may have separated rows again */
	for (v = 1; v < r->next.rows; v++)
		if (row_needs_join(el, v))
			(void)row_join(el, layout_row(&r->drawn, v),
			    layout_row(&r->next, v), v);
	drawn = r->drawn;
	r->drawn = r->next;
	r->next = drawn;
	r->appends = 0;
}

/* re_blank():
 *	Overwrite the cursor's row with blanks
 */
static void
re_blank(EditLine *el)
{
	el_refresh_t *r = &el->el_refresh;

	for (; r->at.h < r->drawn.width; r->at.h++)
		terminal__putc(el, ' ');
}

/* re_wipe():
 *	Move to the first row, and clear it and all below
 */
static void
re_wipe(EditLine *el)
{
	el_refresh_t *r = &el->el_refresh;
	int v, rows = r->depth;

	out_move_to_row(el, 0);
	out_return(el);
	if (out_can(el, DO_CD) != NULL)
		out_do(el, DO_CD);
	else {
		for (v = 0; v < rows; v++) {
			out_move_to_row(el, v);
			out_return(el);
			if (EL_CAN_CEOL)
				out_do(el, DO_CE);
			else
				re_blank(el);
		}
		out_move_to_row(el, 0);
		out_return(el);
	}
	re_clear_display(el);
}

/* re_begin():
 *	Before anything is drawn: if the window was resized, clear what was drawn at the
 *	old size. Returns whether it was.
 */
static int
re_begin(EditLine *el)
{
	el_refresh_t *r = &el->el_refresh;
	int rows;

	if (!r->resized)
		return 0;
	rows = window_rows_above(el);
	if (rows > el->el_terminal.t_size.v - 1)
		rows = el->el_terminal.t_size.v - 1;
	layout_free(&r->before);
	re_clear_display(el);
	r->at.v = rows;
	r->depth = rows + 1;
	re_wipe(el);
	return 1;
}

static int
re_rows(EditLine *el)
{
	return EL_CAN_UP ? el->el_terminal.t_size.v : 1;
}

/* re_resize():
 *	The window has another size, or the terminal other capabilities. Returns 0, or -1
 *	without memory, with the display unchanged.
 */
libedit_private int
re_resize(EditLine *el)
{
	el_refresh_t *r = &el->el_refresh;
	layout_t drawn, next;

	memset(&drawn, 0, sizeof(drawn));
	memset(&next, 0, sizeof(next));
	if (layout_alloc(&drawn, out_columns(el), re_rows(el)) == -1 ||
	    layout_alloc(&next, out_columns(el), re_rows(el)) == -1) {
		layout_free(&drawn);
		return -1;
	}
	if (r->drawn.rows > 0 && !r->resized) {
		r->before = r->drawn;
		r->resized = 1;
		r->appends = 0;
	} else
		layout_free(&r->drawn);
	layout_free(&r->next);
	r->drawn = drawn;
	r->next = next;
	return 0;
}

libedit_private void
re_end(EditLine *el)
{
	layout_free(&el->el_refresh.drawn);
	layout_free(&el->el_refresh.next);
	layout_free(&el->el_refresh.before);
}

/* re_clear_display():
 *	Nothing is on the screen yet: the next frame begins at the cursor, which is assumed
 *	to be in the first column.
 */
libedit_private void
re_clear_display(EditLine *el)
{
	el_refresh_t *r = &el->el_refresh;

	layout_free(&r->before);
	r->drawn.top = r->drawn.rows = 0;
	r->at.v = r->at.h = 0;
	r->depth = 1;
	r->scrolled = r->resized = 0;
	r->appends = 0;
}

/*
 * While the user resizes a window, it may have another width by now than the last one that
 * was reported, and the text other rows. Relative moves up to the cursor would go too far,
 * and the next resize would clear rows above the prompt. So the cursor is saved and restored
 * by the terminal, after the rows below it have been made.
 */
static int
re_can_return(EditLine *el)
{
	return out_can(el, DO_SAVE) != NULL && out_can(el, DO_BACK) != NULL &&
	    (out_can(el, DO_UPS) != NULL || out_can(el, DO_UP) != NULL);
}

static void
re_remember_start(EditLine *el)
{
	if (re_can_return(el)) {
		out_move_to_row(el, el->el_refresh.next.rows - 1);
		out_move_to_row(el, 0);
		out_do(el, DO_SAVE);
	}
}

static void
re_return_to_start(EditLine *el)
{
	if (re_can_return(el)) {
		out_do(el, DO_BACK);
		el->el_refresh.at.v = el->el_refresh.at.h = 0;
	}
}

/* re_make():
 *	Lay out and draw, with the cursor on this character
 */
static void
re_make(EditLine *el, size_t cursor)
{
	el_refresh_t *r = &el->el_refresh;
	layout_text_t text;
	int resized;

	/* a command may have changed the capabilities */
	if (out_columns(el) != r->drawn.width || re_rows(el) != r->drawn.height)
		(void)re_resize(el);
	resized = re_begin(el);
	text.prompt = prompt_text(el, &text.ignore);
	text.line = el->el_line.buffer;
	text.length = (size_t)(el->el_line.lastchar - el->el_line.buffer);
	text.cursor = cursor;
	layout_make(&r->next, &text, r->drawn.top);
	resized &= r->next.cursor.v < r->next.rows - 1;
	if (resized)
		re_remember_start(el);
	re_draw(el);
	if (resized)
		re_return_to_start(el);
}

/* re_refresh():
 *	Draw the current prompt and line
 */
libedit_private void
re_refresh(EditLine *el)
{
	el_refresh_t *r = &el->el_refresh;
	el_line_t *line = &el->el_line;

	if (line->cursor >= line->lastchar) {
		line->cursor = line->lastchar;
		if (el->el_map.current == el->el_map.alt && line->lastchar != line->buffer)
			line->cursor = text_base(line->cursor - 1, line->buffer);
	}
	re_make(el, (size_t)(line->cursor - line->buffer));
	out_move(el, &r->drawn, r->drawn.cursor.v, r->drawn.cursor.h);
	if (line->cursor == line->lastchar)
		r->appends = (size_t)(line->lastchar - line->buffer) + 1;
}

/* re_refresh_cursor():
 *	Only the cursor has moved; but it may be outside the window, or need a new row
 */
libedit_private void
re_refresh_cursor(EditLine *el)
{
	re_refresh(el);
}

/* re_redraw():
 *	Redraw everything in place; or at the cursor, if others may have moved it while the
 *	process was stopped
 */
libedit_private void
re_redraw(EditLine *el, int stopped)
{
	el_refresh_t *r = &el->el_refresh;

	if (stopped && window_has_moved(el))
		re_clear_display(el);
	else if (!stopped && window_is_right(el))
		return;
	if (!r->resized)
		re_wipe(el);
	re_refresh(el);
}

/* re_save_start():
 *	Save the cursor position at the start of the prompt, for a program that prints over
 *	prompt and line
 */
libedit_private void
re_save_start(EditLine *el)
{
	el_refresh_t *r = &el->el_refresh;
	coord_t at;

	if (r->resized)
		re_refresh(el);
	at = r->at;
	if (r->drawn.rows == 0 || out_can(el, DO_SAVE) == NULL ||
	    (el->el_flags & (NO_TTY | EDIT_DISABLED)))
		return;
	out_move(el, &r->drawn, 0, 0);
	out_do(el, DO_SAVE);
	out_move(el, &r->drawn, at.v, at.h);
	terminal__flush(el);
}

/* re_goto_bottom():
 *	The read is over: move to the row below the line
 */
libedit_private void
re_goto_bottom(EditLine *el)
{
	el_refresh_t *r = &el->el_refresh;

	if (r->resized || (r->drawn.rows > 0 && (!r->drawn.whole ||
	    layout_row(&r->drawn, r->drawn.rows - 1)->end > r->drawn.next.h)))
		re_make(el, (size_t)-1);
	if (r->drawn.rows > 0)	/* else nothing was drawn since the last clear */
		out_move_to_row(el, r->drawn.rows - 1);
	terminal__putc(el, '\n');
	re_clear_display(el);
	terminal__flush(el);
}

/* re_clear_lines():
 *	Clear all rows before a redraw
 */
libedit_private void
re_clear_lines(EditLine *el)
{
	el_refresh_t *r = &el->el_refresh;
	int v;

	if (r->resized)
		re_refresh(el);
	if (EL_CAN_CEOL)
		for (v = r->drawn.rows - 1; v >= 0; v--) {
			out_move_to_row(el, v);
			out_return(el);
			out_do(el, DO_CE);
		}
	else {
		out_move_to_row(el, r->drawn.rows - 1);
		out_return(el);
		terminal__putc(el, '\n');
	}
}

/* re_append_row():
 *	The last row is full: move the cursor to a new one
 */
static void
re_append_row(EditLine *el)
{
	el_refresh_t *r = &el->el_refresh;
	layout_t *l = &r->drawn;
	layout_row_t *row = layout_row(l, l->rows - 1);

	if (l->rows == l->height) {
		l->top = ++r->scrolled;
		l->rows--;
	}
	row->continued = 1;
	row->joined = out_wraps(el) ? ROW_JOINED : ROW_APART;
	l->cursor.v = r->at.v = l->rows++;
	if (r->depth < l->rows)
		r->depth = l->rows;
	l->next.v++;
	l->next.h = 0;
	row = layout_row(l, r->at.v);
	row->cells[0] = ' ';
	row->end = 1;
	row->continued = 0;
	row->joined = ROW_APART;
	if (!out_wraps(el))
		terminal__putc(el, '\n');
	terminal__putc(el, ' ');
	terminal__putc(el, '\r');
}

/* re_fastaddc():
 *	A character has been added to the line. At the end, the usual case, only that is
 *	written and added to the frame. It is flushed before the wait for the next key.
 */
libedit_private void
re_fastaddc(EditLine *el)
{
	el_refresh_t *r = &el->el_refresh;
	layout_t *l = &r->drawn;
	el_line_t *line = &el->el_line;
	wchar_t c = line->cursor[-1];
	int width = ct_is_ascii(c) ? 1 : layout_width(c), h = l->next.h;
	layout_row_t *row;

	if ((size_t)(line->cursor - line->buffer) != r->appends ||
	    line->cursor != line->lastchar || width <= 0 || h + width > l->width ||
	    (h + width == l->width && l->rows == l->height && l->top != r->scrolled)) {
		re_refresh(el);
		return;
	}
	terminal__putc(el, (wint_t)c);
	row = layout_row(l, r->at.v);
	row->cells[h++] = (wint_t)c;
	if (width == 2)
		row->cells[h++] = LAYOUT_FILL;
	row->end = l->next.h = h;
	r->appends++;
	if (h == l->width)
		re_append_row(el);
	l->cursor.h = r->at.h = l->next.h;
}

/* re_clear_row():
 *	Clear the cursor's row, before anything is drawn
 */
libedit_private void
re_clear_row(EditLine *el)
{
	if (EL_CAN_CEOL) {
		terminal__putc(el, '\r');
		out_do(el, DO_CE);
	}
}

/* re_putc():
 *	Write a character that is not part of the display, such as a bell or a line feed
 */
libedit_private void
re_putc(EditLine *el, wint_t c, int shift __attribute__((__unused__)))
{
	terminal__putc(el, c);
}
