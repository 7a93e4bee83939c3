/*
 * layout.c: prompt and line as rows of cells.
 *
 * layout_make() computes what the window is to show, without side effects: it does
 * not write, and does not know what is on the screen. refresh.c draws its result,
 * cell by cell.
 *
 * Rows are laid out from the first one on into a ring buffer that holds as many as
 * the window has. At the cursor the window's position is known; when its last row is
 * full, the rest of the line is skipped.
 */
#include "config.h"

#include <stdlib.h>
#include <string.h>
#include <wchar.h>
#include <wctype.h>

#include "el.h"

/* columns of a character that is escaped, at most: \U+10FFFF */
#define	FORM_MAX	9

/* the state of layout_make() */
typedef struct {
	layout_t	*l;
	layout_row_t	*row;		/* the one being filled */
	int		 top;		/* as requested, then as the cursor needs it */
	int		 wanted;	/* the next cell is the cursor's */
	int		 placed;	/* the cursor's position is known */
	int		 over;		/* the window is full */
	wchar_t		 ignore;	/* around invisible parts of the prompt */
	const wchar_t	*parts;		/* invisible ones that need a cell, */
	const wchar_t	*parts_end;	/* in the prompt, with their delimiters */
} pen_t;

/* layout_alloc():
 *	Allocate a frame of this size. Returns 0, or -1 with the frame unchanged.
 */
libedit_private int
layout_alloc(layout_t *l, int width, int height)
{
	layout_row_t *ring = el_calloc((size_t)height, sizeof(*ring));
	int i;

	if (ring == NULL)
		return -1;
	for (i = 0; i < height; i++) {
		ring[i].cells = el_calloc((size_t)width, sizeof(wint_t));
		if (ring[i].cells == NULL) {
			while (--i >= 0)
				el_free(ring[i].cells);
			el_free(ring);
			return -1;
		}
	}
	layout_free(l);
	l->ring = ring;
	l->width = width;
	l->height = height;
	return 0;
}

libedit_private void
layout_free(layout_t *l)
{
	int i;

	for (i = 0; l->ring != NULL && i < l->height; i++)
		el_free(l->ring[i].cells);
	el_free(l->ring);
	el_free(l->pool);
	memset(l, 0, sizeof(*l));
}

/* layout_composed():
 *	What is written for a composed cell; borrowed until the next frame
 */
libedit_private const wchar_t *
layout_composed(const layout_t *l, wint_t cell)
{
	return l->pool + (cell & ~LAYOUT_COMPOSED);
}

/* layout_format():
 *	Whether it is a format character, such as a direction mark, which is not sent to
 *	the terminal
 */
static int
layout_format(wchar_t c)
{
	static const struct { wchar_t first, last; } formats[] = {
		{ 0xad, 0xad }, { 0x600, 0x605 }, { 0x61c, 0x61c }, { 0x6dd, 0x6dd },
		{ 0x70f, 0x70f }, { 0x890, 0x891 }, { 0x8e2, 0x8e2 },
		{ 0x115f, 0x1160 }, { 0x17b4, 0x17b5 }, { 0x180e, 0x180e },
		{ 0x200b, 0x200f }, { 0x2028, 0x202e }, { 0x2060, 0x206f },
		{ 0x3164, 0x3164 }, { 0xfeff, 0xfeff }, { 0xffa0, 0xffa0 },
		{ 0xfff9, 0xfffb }, { 0x110bd, 0x110bd }, { 0x110cd, 0x110cd },
		{ 0x13430, 0x1343f }, { 0x1bca0, 0x1bca3 }, { 0x1d173, 0x1d17a },
		{ 0xe0001, 0xe007f },
	};
	size_t i;

	for (i = 0; i < sizeof(formats) / sizeof(*formats); i++)
		if (c <= formats[i].last)
			return c >= formats[i].first;
	return 0;
}

/* layout_width():
 *	The width of a character: 0 of a combining mark, -1 if it is shown escaped
 */
libedit_private int
layout_width(wchar_t c)
{
	if (ct_is_ascii(c))
		return 1;
	if (c < 0xa0 || !iswprint((wint_t)c) || layout_format(c))
		return -1;
	return wcwidth(c);
}

/* layout_form():
 *	Escape a character that is not shown as itself. Returns the length.
 */
static int
layout_form(wchar_t form[FORM_MAX], wchar_t c)
{
	static const wchar_t digits[] = L"0123456789ABCDEF";
	unsigned int value = (unsigned int)c;
	int n = 0, shift;

	if (value < 0x20 || value == 0x7f) {
		form[n++] = '^';
		form[n++] = (wchar_t)(value ^ 0x40);
		return n;
	}
	form[n++] = '\\';
	form[n++] = 'U';
	form[n++] = '+';
	for (shift = c > 0xfffff ? 20 : c > 0xffff ? 16 : 12; shift >= 0; shift -= 4)
		form[n++] = digits[value >> shift & 0xf];
	return n;
}

/* layout_write():
 *	Append a character to the composed cell being made; without memory set
 *	pool_full
 */
static void
layout_write(layout_t *l, wchar_t c)
{
	size_t size = l->pool_size > 0 ? 2 * l->pool_size : 64;
	wchar_t *pool;

	if (l->pool_used == l->pool_size) {
		if ((pool = el_realloc(l->pool, size * sizeof(*pool))) == NULL) {
			l->pool_full = 1;
			return;
		}
		l->pool = pool;
		l->pool_size = size;
	}
	l->pool[l->pool_used++] = c;
}

static void
layout_write_parts(pen_t *p, wchar_t ignore)
{
	int inside = 0;

	for (; p->parts != NULL && p->parts < p->parts_end; p->parts++)
		if (*p->parts == ignore)
			inside = !inside;
		else if (inside)
			layout_write(p->l, *p->parts);
	p->parts = NULL;
}

/* layout_compose():
 *	Make the last cell a composed one: invisible parts before it, its character,
 *	then other parts or a mark
 */
static void
layout_compose(pen_t *p, int parts_first, wchar_t mark)
{
	layout_t *l = p->l;
	wint_t *cell = &p->row->cells[l->last_h];
	size_t start = l->pool_used;

	l->pool_full = 0;
	if (parts_first)
		layout_write_parts(p, p->ignore);
	if (*cell & LAYOUT_COMPOSED)	/* the last one in the pool: append to it */
		l->pool_used = --start;
	else
		layout_write(l, (wchar_t)*cell);
	layout_write_parts(p, p->ignore);
	if (mark != '\0')
		layout_write(l, mark);
	layout_write(l, '\0');
	if (l->pool_full) {
		/* write its NUL again, which may have been overwritten */
		l->pool_used = start;
		if (*cell & LAYOUT_COMPOSED)
			l->pool[l->pool_used++] = '\0';
	} else if (!(*cell & LAYOUT_COMPOSED))
		*cell = LAYOUT_COMPOSED | (wint_t)start;
}

static void
layout_next_row(pen_t *p, int continued)
{
	layout_t *l = p->l;

	p->row->end = l->next.h;
	p->row->continued = continued;
	if (p->placed && l->next.v + 1 >= p->top + l->height) {
		p->over = 1;
		return;
	}
	l->next.v++;
	l->next.h = 0;
	l->last_h = -1;
	p->row = &l->ring[l->next.v % l->height];
	p->row->end = p->row->continued = p->row->joined = 0;
}

static void
layout_place_cursor(pen_t *p, int h)
{
	layout_t *l = p->l;

	l->cursor.v = l->next.v;
	l->cursor.h = h;
	p->wanted = 0;
	p->placed = 1;
	if (l->next.v < p->top)
		p->top = l->next.v;
	else if (l->next.v >= p->top + l->height)
		p->top = l->next.v - l->height + 1;
}

/* layout_cell():
 *	Place a character of one or two columns
 */
static void
layout_cell(pen_t *p, wchar_t c, int width)
{
	layout_t *l = p->l;

	if (l->next.h + width > l->width) {
		layout_next_row(p, 1);
		if (p->over)
			return;
	}
	if (p->wanted)
		layout_place_cursor(p, l->next.h);
	l->last_h = l->next.h;
	l->marks = 0;
	p->row->cells[l->next.h++] = (wint_t)c;
	if (width == 2)
		p->row->cells[l->next.h++] = LAYOUT_FILL;
	if (p->parts != NULL)
		layout_compose(p, 1, '\0');
}

/* layout_char():
 *	Place any character, or its escaped form
 */
static void
layout_char(pen_t *p, wchar_t c)
{
	layout_t *l = p->l;
	wchar_t form[FORM_MAX];
	int i, n, width;

	if (c == '\n') {
		if (l->next.h == l->width)
			layout_next_row(p, 0);
		if (p->wanted && !p->over)
			layout_place_cursor(p, l->next.h);
		if (!p->over)
			layout_next_row(p, 0);
		return;
	}
	if (c == '\t') {
		do
			layout_cell(p, ' ', 1);
		while (!p->over && l->next.h % 8 != 0 && l->next.h < l->width);
		return;
	}
	width = layout_width(c);
	if (width == 0 && l->last_h >= 0 && l->marks < LAYOUT_MARKS) {
		if (p->wanted)
			layout_place_cursor(p, l->last_h);
		l->marks++;
		layout_compose(p, 0, c);
	} else if (width > 0 && width <= l->width)
		layout_cell(p, c, width);
	else {
		n = layout_form(form, c);
		for (i = 0; i < n && !p->over; i++)
			layout_cell(p, form[i], 1);
	}
}

static void
layout_prompt(pen_t *p, const layout_text_t *text)
{
	const wchar_t *s, *end;

	for (s = text->prompt; *s != '\0' && !p->over; s++) {
		if (p->ignore == '\0' || *s != p->ignore) {
			layout_char(p, *s);
			continue;
		}
		if ((end = wcschr(s + 1, p->ignore)) == NULL)
			break;
		if (p->parts == NULL)
			p->parts = s;
		p->parts_end = end + 1;
		s = end;
	}
	if (p->parts != NULL && p->l->last_h >= 0)
		layout_compose(p, 0, '\0');
}

/* layout_plain():
 *	Place at most n ASCII characters, as many as the row has room for. Returns how
 *	many.
 */
static size_t
layout_plain(pen_t *p, const wchar_t *s, size_t n)
{
	layout_t *l = p->l;
	wint_t *cell = p->row->cells + l->next.h;
	size_t i;

	if (p->parts != NULL)
		return 0;
	if (n > (size_t)(l->width - l->next.h))
		n = (size_t)(l->width - l->next.h);
	for (i = 0; i < n && ct_is_ascii(s[i]); i++)
		cell[i] = (wint_t)s[i];
	if (i > 0) {
		l->next.h += (int)i;
		l->last_h = l->next.h - 1;
		l->marks = 0;
	}
	return i;
}

static void
layout_line(pen_t *p, const layout_text_t *text)
{
	layout_t *l = p->l;
	size_t i;

	for (i = 0; i < text->length && !p->over; i++) {
		if (i == text->cursor)
			p->wanted = 1;
		else
			i += layout_plain(p, text->line + i, (i < text->cursor &&
			    text->cursor < text->length ? text->cursor :
			    text->length) - i);
		if (i == text->cursor)
			p->wanted = 1;
		if (i < text->length)
			layout_char(p, text->line[i]);
	}
	if (p->over || text->cursor < text->length)
		return;
	if (text->cursor > text->length)	/* the end, without a cursor */
		layout_place_cursor(p, l->next.h);
	else if (l->next.h < l->width)
		layout_place_cursor(p, l->next.h);
	else {
		/* a row of its own; the blank makes the terminal wrap */
		layout_next_row(p, 1);
		layout_place_cursor(p, 0);
		p->row->cells[0] = ' ';
		p->row->end = 1;
	}
}

/* layout_make():
 *	Lay the text out. The window begins at row top, unless the cursor would be
 *	outside.
 */
libedit_private void
layout_make(layout_t *l, const layout_text_t *text, int top)
{
	pen_t pen = { .l = l, .top = top, .ignore = text->ignore };

	l->next.v = l->next.h = 0;
	l->last_h = -1;
	l->marks = 0;
	l->pool_used = 0;
	pen.row = &l->ring[0];
	pen.row->end = pen.row->continued = pen.row->joined = 0;

	layout_prompt(&pen, text);
	layout_line(&pen, text);

	if (!pen.over && pen.row->end < l->next.h)
		pen.row->end = l->next.h;
	l->whole = !pen.over;
	if (pen.top + l->height > l->next.v + 1)
		pen.top = l->next.v + 1 > l->height ? l->next.v + 1 - l->height : 0;
	l->top = pen.top;
	l->rows = l->next.v + 1 - l->top;
	l->cursor.v -= l->top;
}
