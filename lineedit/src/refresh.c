/*
 * refresh.c: the rows of prompt and line on the screen.
 *
 * re_refresh() lays prompt and line out anew (layout.c), compares the frame with the
 * one drawn last and writes what makes the one into the other. Where the window
 * stands on the screen is not known, only where the cursor is in it: all moves are
 * relative to that.
 *
 * A row that its text goes on behind is joined to the next one for the terminal:
 * its last cell and the first of the next are written with nothing in between, so
 * that the terminal itself wraps, and what is copied or reflows is one line. That
 * needs automatic margins which wait for the next character (am and xn). Any other
 * terminal keeps its last column free and gets a line end.
 */
#include "config.h"

#include <stdlib.h>
#include <string.h>
#include <wchar.h>
#include <termcap.h>

#include "el.h"
#include "position.h"

/* no more columns than this are inserted or deleted at a guess */
#define	SHIFT_MAX	16
/* about what a move within a row costs, in bytes */
#define	MOVE_COST	5

/* the cursor is behind the last column: it may only go back to the first */
#define	PENDING(el)	((el)->el_refresh.at.h >= (el)->el_refresh.drawn.width)

/* --- What the terminal can do ------------------------------------------------ */

/* re_wraps():
 *	Whether the terminal goes on in the next row by itself, and not before the next
 *	character. It does so at its own margin, not at that of a width set by hand.
 */
static int
re_wraps(EditLine *el)
{
	int window = el->el_terminal.t_window.h;

	return EL_HAS_AUTO_MARGINS && EL_HAS_MAGIC_MARGINS &&
	    (window == 0 || window == el->el_terminal.t_size.h);
}

static int
re_columns(EditLine *el)
{
	int columns = el->el_terminal.t_size.h;

	if ((EL_HAS_AUTO_MARGINS && EL_HAS_MAGIC_MARGINS) || columns == 1 ||
	    columns < el->el_terminal.t_window.h)
		return columns;
	return columns - 1;
}

enum { DO_CE, DO_CD, DO_CH, DO_UP, DO_UPS, DO_DOWNS, DO_LEFTS, DO_RIGHTS, DO_IC, DO_ICS,
    DO_IM, DO_EI, DO_IP, DO_DC, DO_DCS, DO_DM, DO_ED, DO_SAVE, DO_COUNT };

/* re_can():
 *	A capability of the terminal, or NULL
 */
static const char *
re_can(EditLine *el, int what)
{
	static const char names[DO_COUNT][3] = { "ce", "cd", "ch", "up", "UP", "DO", "LE",
	    "RI", "ic", "IC", "im", "ei", "ip", "dc", "DC", "dm", "ed", "sc" };
	static int place[DO_COUNT];	/* in the terminal's list, from 1 */
	const char *string;

	if (place[what] == 0)
		place[what] = terminal_place(names[what]) + 1;
	string = el->el_terminal.t_str[place[what] - 1];
	return string != NULL && *string != '\0' ? string : NULL;
}

/* re_do():
 *	Have it done, if the terminal can
 */
static void
re_do(EditLine *el, int what)
{
	const char *string = re_can(el, what);

	if (string != NULL)
		terminal_tputs(el, string, 1);
}

static void
re_number(EditLine *el, int n)
{
	if (n >= 10)
		re_number(el, n / 10);
	terminal__putc(el, (wint_t)('0' + n % 10));
}

/* re_do_many():
 *	The same for one with a count or a column. Nearly every terminal has these in
 *	one form, which needs no interpreter.
 */
static void
re_do_many(EditLine *el, int what, int n)
{
	static const char plain[] = "\033[%p1%d", from_one[] = "\033[%i%p1%d";
	const char *string = re_can(el, what);
	size_t len = strlen(string);
	int value;

	if (len == sizeof(plain) && memcmp(string, plain, len - 1) == 0)
		value = n;
	else if (len == sizeof(from_one) && memcmp(string, from_one, len - 1) == 0)
		value = n + 1;
	else {
		terminal_tputs(el, tgoto(string, n, n), n);
		return;
	}
	terminal__putc(el, '\033');
	terminal__putc(el, '[');
	if (value != 1)
		re_number(el, value);
	terminal__putc(el, (wint_t)string[len - 1]);
}

/* --- Moves --------------------------------------------------------------------- */

static int
re_digits(int n)
{
	return n < 10 ? 1 : n < 100 ? 2 : n < 1000 ? 3 : 4;
}

static void
re_put(EditLine *el, const layout_t *l, wint_t cell)
{
	const wchar_t *s;

	if ((cell & LAYOUT_COMPOSED) == 0)
		terminal__putc(el, cell);
	else
		for (s = layout_composed(l, cell); *s != '\0'; s++)
			terminal__putc(el, (wint_t)*s);
}

/* re_cell_width():
 *	The columns of the cell in column h
 */
static int
re_cell_width(const layout_row_t *row, int h)
{
	return h + 1 < row->end && row->cells[h + 1] == LAYOUT_FILL ? 2 : 1;
}

static void
re_return(EditLine *el)
{
	terminal__putc(el, '\r');
	el->el_refresh.at.h = 0;
}

/* re_move_to_row():
 *	To a row of the window, which need not be on the screen yet. The column may
 *	become the first.
 */
static void
re_move_to_row(EditLine *el, int v)
{
	el_refresh_t *r = &el->el_refresh;
	int n = v - r->at.v;

	if (n == 0)
		return;
	if (n < 0) {
		if (PENDING(el))
			re_return(el);
		if (re_can(el, DO_UPS) != NULL && (n < -1 || re_can(el, DO_UP) == NULL))
			re_do_many(el, DO_UPS, -n);
		else
			while (n++ < 0)
				re_do(el, DO_UP);
	} else if (v < r->depth && n > 2 && !PENDING(el) &&
	    re_can(el, DO_DOWNS) != NULL)
		re_do_many(el, DO_DOWNS, n);
	else {
		while (n-- > 0)
			terminal__putc(el, '\n');
		r->at.h = 0;	/* the tty makes it a carriage return, too */
	}
	r->at.v = v;
	if (r->depth <= v)
		r->depth = v + 1;
}

/* re_rewrite_cost():
 *	What it costs to go to column h by writing the row's cells, which are on the
 *	screen, once more
 */
static int
re_rewrite_cost(const layout_row_t *row, int from, int h)
{
	int i;

	for (i = from; i < h && i < from + 2 * MOVE_COST; i++)
		if (!ct_is_ascii(row->cells[i]))
			return 10 * MOVE_COST;
	return h - from;
}

/* re_move():
 *	To a cell of the window. The row's cells up to there are as in l.
 */
static void
re_move(EditLine *el, const layout_t *l, int v, int h)
{
	coord_t *at = &el->el_refresh.at;
	const layout_row_t *row = layout_row(l, v);
	int column, cost, n, back, again;

	re_move_to_row(el, v);
	if (at->h == h)
		return;
	if (h == 0) {
		re_return(el);
		return;
	}
	column = re_can(el, DO_CH) != NULL ? 3 + re_digits(h + 1) : 1000;
	back = at->h - h;
	if (back > 0 && !PENDING(el)) {
		cost = re_can(el, DO_LEFTS) != NULL ? 3 + re_digits(back) : 1000;
		if (back <= column && back <= cost &&
		    back <= 1 + re_rewrite_cost(row, 0, h)) {
			while (back-- > 0)
				terminal__putc(el, '\b');
			at->h = h;
			return;
		}
		if (cost < column && cost <= 1 + re_rewrite_cost(row, 0, h)) {
			re_do_many(el, DO_LEFTS, back);
			at->h = h;
			return;
		}
	}
	/* forward, also from the row's beginning; not from amidst a wide character */
	again = back > 0 || row->cells[at->h] == LAYOUT_FILL;
	n = again ? 0 : at->h;
	cost = re_can(el, DO_RIGHTS) != NULL ? 3 + re_digits(h - n) : 1000;
	if (re_rewrite_cost(row, n, h) < cost)
		cost = re_rewrite_cost(row, n, h);
	if (column <= cost + again) {
		re_do_many(el, DO_CH, h);
		at->h = h;
		return;
	}
	if (again)
		re_return(el);
	if (re_can(el, DO_RIGHTS) != NULL && cost < re_rewrite_cost(row, n, h))
		re_do_many(el, DO_RIGHTS, h - n);
	else
		for (; n < h; n++)
			if (row->cells[n] != LAYOUT_FILL)
				re_put(el, l, row->cells[n]);
	at->h = h;
}

/* --- One row --------------------------------------------------------------------- */

/* re_is_same():
 *	Whether a cell of the screen, behind whose end nothing is, needs no writing
 */
static int
re_is_same(EditLine *el, const layout_row_t *old, int from, wint_t new)
{
	el_refresh_t *r = &el->el_refresh;
	wint_t was = from < old->end ? old->cells[from] : LAYOUT_EMPTY;

	if (was & new & LAYOUT_COMPOSED)
		return wcscmp(layout_composed(&r->drawn, was),
		    layout_composed(&r->next, new)) == 0;
	return was == new;
}

/* re_plain_end():
 *	How far the two are the same from column h on, without composed cells
 */
static int
re_plain_end(const layout_row_t *old, const layout_row_t *new, int h)
{
	int end = old->end < new->end ? old->end : new->end;
	const wint_t *was = old->cells, *is = new->cells;

	while (h < end && was[h] == is[h] && !(is[h] & LAYOUT_COMPOSED))
		h++;
	return h;
}

/* re_shift_cost():
 *	What it costs to make old new from column f on when n columns have been inserted
 *	there (or deleted, below 0); or more than most
 */
static int
re_shift_cost(EditLine *el, const layout_row_t *old, const layout_row_t *new, int f, int n,
    int most)
{
	int width = el->el_refresh.next.width;
	int end = old->end + n < width ? old->end + n : width;
	int h = f, cost = 0, gap = 0;

	if (n != 0)
		cost = MOVE_COST - 1;
	if (n > 0) {
		h += n;
		cost += n;
	}
	for (; h < new->end && cost <= most; h++)
		if (h < end && (old->cells[h - n] == new->cells[h] ?
		    !(new->cells[h] & LAYOUT_COMPOSED) :
		    re_is_same(el, old, h - n, new->cells[h])))
			gap++;
		else {
			if (new->cells[h] != LAYOUT_FILL)
				cost += ct_is_ascii(new->cells[h]) ? 1 : 3;
			if (h > f)
				cost += gap < MOVE_COST ? gap : MOVE_COST;
			gap = 0;
		}
	if (end > new->end)
		cost += MOVE_COST;
	return cost;
}

/* re_find_shift():
 *	How many columns to insert or delete (below 0) at column f, where old and new
 *	first differ
 */
static int
re_find_shift(EditLine *el, const layout_row_t *old, const layout_row_t *new, int f)
{
	int width = el->el_refresh.next.width;
	int best = 0, n, cost, most = re_shift_cost(el, old, new, f, 0, 10000);
	int lengths = new->end - old->end;

	if (f >= old->end || f >= new->end)
		return 0;
	for (n = 1; n <= SHIFT_MAX + 1; n++) {
		/* at last, what makes the rows equally long */
		int in = n <= SHIFT_MAX ? n : lengths, out = n <= SHIFT_MAX ? n : -lengths;

		if (EL_CAN_INSERT && in > 0 && f + in < new->end && (re_wraps(el) ||
		    old->end + in <= width) && new->cells[f + in] == old->cells[f] &&
		    (cost = re_shift_cost(el, old, new, f, in, most)) < most) {
			best = in;
			most = cost;
		}
		if (EL_CAN_DELETE && out > 0 && f + out < old->end &&
		    old->cells[f + out] == new->cells[f] &&
		    (cost = re_shift_cost(el, old, new, f, -out, most)) < most) {
			best = -out;
			most = cost;
		}
	}
	return best;
}

/* re_insert():
 *	Insert the n columns that new has in column f
 */
static void
re_insert(EditLine *el, layout_row_t *old, const layout_row_t *new, int f, int n)
{
	el_refresh_t *r = &el->el_refresh;
	int i, mode = 0, keep = old->end - f;

	if (keep > r->next.width - f - n)
		keep = r->next.width - f - n;
	memmove(old->cells + f + n, old->cells + f, (size_t)keep * sizeof(wint_t));
	old->end = f + n + keep;
	if (old->end == r->next.width && keep > 0 && old->cells[old->end - 1] != LAYOUT_FILL &&
	    !ct_is_ascii(old->cells[old->end - 1]))
		old->cells[old->end - 1] = LAYOUT_UNKNOWN;	/* half of it, perhaps */

	if (re_can(el, DO_IC) != NULL && n == 1)
		re_do(el, DO_IC);
	else if (re_can(el, DO_ICS) != NULL)
		re_do_many(el, DO_ICS, n);
	else if ((mode = re_can(el, DO_IM) != NULL && re_can(el, DO_EI) != NULL))
		re_do(el, DO_IM);
	else
		for (i = 0; i < n; i++)
			re_do(el, DO_IC);
	for (i = f; i < f + n; i++)
		if (new->cells[i] != LAYOUT_FILL) {
			re_put(el, &r->next, new->cells[i]);
			re_do(el, DO_IP);
		}
	if (mode)
		re_do(el, DO_EI);
	r->at.h = f + n;
}

static void
re_delete(EditLine *el, layout_row_t *old, int f, int n)
{
	memmove(old->cells + f, old->cells + f + n,
	    (size_t)(old->end - f - n) * sizeof(wint_t));
	old->end -= n;

	if (re_can(el, DO_DCS) != NULL && (n > 1 || re_can(el, DO_DC) == NULL)) {
		re_do_many(el, DO_DCS, n);
		return;
	}
	re_do(el, DO_DM);
	while (n-- > 0)
		re_do(el, DO_DC);
	re_do(el, DO_ED);
}

/* re_clear_behind():
 *	Clear a row from column h on
 */
static void
re_clear_behind(EditLine *el, layout_row_t *new, int v, int h, int end)
{
	el_refresh_t *r = &el->el_refresh;

	if (h >= end)
		return;
	re_move(el, &r->next, v, h);
	if (EL_CAN_CEOL) {
		re_do(el, DO_CE);
		new->joined = 0;
		return;
	}
	for (; h < end; h++)
		terminal__putc(el, ' ');
	r->at.h = end;
}

/* re_write_differences():
 *	Write what differs from column h on, and clear what is behind the end
 */
static void
re_write_differences(EditLine *el, layout_row_t *old, layout_row_t *new, int v, int h)
{
	el_refresh_t *r = &el->el_refresh;
	int width;

	for (; h < new->end; h += width) {
		if ((h = re_plain_end(old, new, h)) >= new->end)
			break;
		if (new->cells[h] == LAYOUT_FILL)
			h--;
		width = re_cell_width(new, h);
		if (re_is_same(el, old, h, new->cells[h]) &&
		    (width == 1 || re_is_same(el, old, h + 1, LAYOUT_FILL)))
			continue;
		re_move(el, &r->next, v, h);
		re_put(el, &r->next, new->cells[h]);
		r->at.h += width;
		if (h + width < old->end && old->cells[h + width] == LAYOUT_FILL)
			old->cells[h + width] = LAYOUT_UNKNOWN;
		if (h + width == r->next.width)
			new->joined = 0;
	}
	re_clear_behind(el, new, v, new->end, old->end);
}

/* re_join():
 *	Have the terminal itself go on from row v - 1 to this one: write the last cell
 *	there, unless that was just done, and the first here. A wide character that has
 *	no room there is taken to this row by the terminal, too.
 */
static int
re_join(EditLine *el, layout_row_t *old, layout_row_t *new, int v)
{
	el_refresh_t *r = &el->el_refresh;
	layout_row_t *above = layout_row(&r->next, v - 1);
	int h = above->end, width = re_cell_width(new, 0);

	if (r->at.v != v - 1 || r->at.h != h) {
		if (h == r->next.width) {
			h -= above->cells[h - 1] == LAYOUT_FILL ? 2 : 1;
			re_move(el, &r->next, v - 1, h);
			re_put(el, &r->next, above->cells[h]);
		} else	/* one column is left, too narrow for what comes */
			re_move(el, &r->next, v - 1, h);
	}
	re_put(el, &r->next, new->cells[0]);
	above->joined = 1;
	r->at.v = v;
	r->at.h = width;
	if (r->depth <= v)
		r->depth = v + 1;
	if (width == r->next.width)
		new->joined = 0;
	if (old->end < width)
		old->end = width;
	else if (width < old->end && old->cells[width] == LAYOUT_FILL)
		old->cells[width] = LAYOUT_UNKNOWN;
	return width;
}

/* re_part():
 *	Have the terminal take the last row, which is full, for the end of a line
 */
static void
re_part(EditLine *el, layout_row_t *new, int v)
{
	el_refresh_t *r = &el->el_refresh;
	int h = new->cells[new->end - 1] == LAYOUT_FILL ? new->end - 2 : new->end - 1;

	re_move(el, &r->next, v, h);
	re_do(el, DO_CE);
	re_put(el, &r->next, new->cells[h]);
	r->at.h = new->end;
	new->joined = 0;
}

/* re_update_row():
 *	Make row v of the window what it is to be
 */
static void
re_update_row(EditLine *el, int v)
{
	static layout_row_t nothing;
	el_refresh_t *r = &el->el_refresh;
	layout_row_t *old = layout_row(&r->drawn, v), *new = layout_row(&r->next, v);
	layout_row_t *above = v > 0 ? layout_row(&r->next, v - 1) : &nothing;
	int h = 0, shift;

	if (v >= r->drawn.rows)
		old->end = old->joined = 0;
	new->joined = old->joined;
	if (above->continued && !above->joined && new->end > 0 && re_wraps(el))
		h = re_join(el, old, new, v);

	while (h < new->end && re_is_same(el, old, h, new->cells[h]))
		h = re_plain_end(old, new, h + 1);
	if (h < new->end || old->end > new->end) {
		while (h > 0 && ((h < new->end && new->cells[h] == LAYOUT_FILL) ||
		    (h < old->end && old->cells[h] == LAYOUT_FILL)))
			h--;
		if ((shift = re_find_shift(el, old, new, h)) != 0) {
			re_move(el, &r->next, v, h);
			new->joined = 0;
			if (shift > 0)
				re_insert(el, old, new, h, shift);
			else
				re_delete(el, old, h, -shift);
			if (shift > 0)
				h += shift;
		}
		re_write_differences(el, old, new, v, h);
	}
	if (new->joined && !new->continued && new->end == r->next.width && EL_CAN_CEOL)
		re_part(el, new, v);
}

/* --- The window -------------------------------------------------------------------- */

/* re_follow():
 *	The window begins at another row. Where it only goes on, the rows above it leave
 *	it at its top, once for all; otherwise others are written over those that it has.
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
 *	Clear the rows that are no longer there, from the last one on
 */
static void
re_clear_rows(EditLine *el)
{
	el_refresh_t *r = &el->el_refresh;
	layout_row_t *row;
	int v;

	for (v = r->drawn.rows - 1; v >= r->next.rows; v--)
		if ((row = layout_row(&r->drawn, v))->end > 0) {
			re_move_to_row(el, v);
			if (r->at.h > 0)
				re_return(el);
			re_clear_behind(el, row, v, 0, row->end);
		}
}

/* re_draw():
 *	Make the screen what next says
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
		re_update_row(el, v);
	if (!cursor_is_below)
		re_clear_rows(el);
	drawn = r->drawn;
	r->drawn = r->next;
	r->next = drawn;
	r->appends = 0;
}

/*
 * What the terminal does with joined rows when its width changes, as far as is known:
 * lay them out anew, and the cursor keeps its place in the text; or cut them, and it
 * keeps its row.
 */
enum { FLOW_NEW, FLOW_UNSURE, FLOW_REFLOWS, FLOW_CUTS };

/* re_flow_of():
 *	What terminals of this type do; FLOW_NEW for one that is not known at all. Many
 *	call themselves an xterm, which itself cuts.
 */
static int
re_flow_of(const char *type)
{
	static const struct { const char *prefix; int flow; } types[] = {
		{ "tmux", FLOW_REFLOWS }, { "screen", FLOW_REFLOWS },
		{ "xterm-kitty", FLOW_REFLOWS }, { "alacritty", FLOW_REFLOWS },
		{ "foot", FLOW_REFLOWS }, { "vte", FLOW_REFLOWS },
		{ "gnome", FLOW_REFLOWS }, { "konsole", FLOW_REFLOWS },
		{ "rxvt", FLOW_CUTS }, { "st-", FLOW_CUTS }, { "linux", FLOW_CUTS },
		{ "vt", FLOW_CUTS }, { "xterm", FLOW_UNSURE },
	};
	size_t i;

	for (i = 0; i < sizeof(types) / sizeof(*types); i++)
		if (strncmp(type, types[i].prefix, strlen(types[i].prefix)) == 0)
			return types[i].flow;
	return FLOW_NEW;
}

/* re_reflowed():
 *	Where the cursor stands, from the first row on, when the terminal has laid out the
 *	joined rows anew
 */
static coord_t
re_reflowed(const layout_t *l, int width, coord_t cursor)
{
	const layout_row_t *row;
	coord_t to = { 0, 0 };
	int v, h, w;

	for (v = 0; v <= cursor.v; v++) {
		row = layout_row(l, v);
		for (h = 0; h < row->end && (v < cursor.v || h < cursor.h); h += w) {
			w = re_cell_width(row, h);
			if (to.h + w > width) {
				to.v++;
				to.h = 0;
			}
			to.h += w;
		}
		if (v < cursor.v ? !row->joined : h < row->end && to.h >= width) {
			to.v++;
			to.h = 0;
		}
	}
	return to;
}

/* re_ask():
 *	The column of the terminal's cursor, or -1. A type that is not known is not asked,
 *	and none again that has not answered.
 */
static int
re_ask(EditLine *el)
{
	el_refresh_t *r = &el->el_refresh;
	int column;

	if (r->mute || re_flow_of(el->el_terminal.t_name) == FLOW_NEW)
		return -1;
	column = position_column(el, el->el_terminal.t_size.h);
	r->mute = column == -1;
	return column;
}

/* re_cut():
 *	Where the cursor stands when the terminal has cut the rows
 */
static coord_t
re_cut(EditLine *el)
{
	coord_t to = el->el_refresh.at;

	if (to.h > el->el_terminal.t_size.h - 1)
		to.h = el->el_terminal.t_size.h - 1;
	return to;
}

/* re_rows_above():
 *	How many rows above the cursor what was drawn at the old size begins now. Where
 *	that depends on what the terminal does, one that may do either is asked, until it
 *	is known. The lesser number leaves a part of the old, but clears no row of others.
 */
static int
re_rows_above(EditLine *el)
{
	el_refresh_t *r = &el->el_refresh;
	int width = el->el_terminal.t_size.h, column;
	coord_t cut = re_cut(el), flown = re_reflowed(&r->before, width, r->at);

	if (r->flow == FLOW_NEW)
		r->flow = re_flow_of(el->el_terminal.t_name);
	if (r->flow == FLOW_UNSURE && flown.v != cut.v && flown.h != cut.h &&
	    flown.h > 0 && flown.h < width) {
		column = re_ask(el);
		if (column == flown.h)
			r->flow = FLOW_REFLOWS;
		else if (column == cut.h)
			r->flow = FLOW_CUTS;
	}
	if (r->flow == FLOW_REFLOWS || (r->flow != FLOW_CUTS && flown.v < cut.v))
		return flown.v;
	return cut.v;
}

/* re_wipe():
 *	To the first row, and clear it and all below
 */
static void
re_wipe(EditLine *el)
{
	el_refresh_t *r = &el->el_refresh;
	int v, rows = r->depth;

	re_move_to_row(el, 0);
	re_return(el);
	if (re_can(el, DO_CD) != NULL)
		re_do(el, DO_CD);
	else if (EL_CAN_CEOL) {
		for (v = 0; v < rows; v++) {
			re_move_to_row(el, v);
			re_do(el, DO_CE);
		}
		re_move_to_row(el, 0);
	}
	re_clear_display(el);
}

/* re_begin():
 *	Before anything is drawn: after a change of the window's size, clear what its old
 *	size has left.
 */
static void
re_begin(EditLine *el)
{
	el_refresh_t *r = &el->el_refresh;
	int rows;

	if (!r->resized)
		return;
	rows = re_rows_above(el);
	if (rows > el->el_terminal.t_size.v - 1)
		rows = el->el_terminal.t_size.v - 1;
	layout_free(&r->before);
	re_clear_display(el);
	r->at.v = rows;
	r->depth = rows + 1;
	re_wipe(el);
}

static int
re_rows(EditLine *el)
{
	return EL_CAN_UP ? el->el_terminal.t_size.v : 1;
}

/* re_resize():
 *	The window has another size, or the terminal other capabilities. 0, or -1 without
 *	memory: the display stays as it was.
 */
libedit_private int
re_resize(EditLine *el)
{
	el_refresh_t *r = &el->el_refresh;
	layout_t drawn, next;

	memset(&drawn, 0, sizeof(drawn));
	memset(&next, 0, sizeof(next));
	if (layout_alloc(&drawn, re_columns(el), re_rows(el)) == -1 ||
	    layout_alloc(&next, re_columns(el), re_rows(el)) == -1) {
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
	position_forget();
}

/* re_clear_display():
 *	Nothing is on the screen yet: the next frame begins where the cursor is, which is
 *	taken for the first column.
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

/* re_make():
 *	Lay out and draw, with the cursor at this character
 */
static void
re_make(EditLine *el, size_t cursor)
{
	el_refresh_t *r = &el->el_refresh;
	layout_text_t text;

	/* commands may change what the terminal can do */
	if (re_columns(el) != r->drawn.width || re_rows(el) != r->drawn.height)
		(void)re_resize(el);
	re_begin(el);
	text.prompt = prompt_text(el, &text.ignore);
	text.line = el->el_line.buffer;
	text.length = (size_t)(el->el_line.lastchar - el->el_line.buffer);
	text.cursor = cursor;
	layout_make(&r->next, &text, r->drawn.top);
	re_draw(el);
}

/* re_refresh():
 *	Draw prompt and line as they are now
 */
libedit_private void
re_refresh(EditLine *el)
{
	el_refresh_t *r = &el->el_refresh;
	el_line_t *line = &el->el_line;

	if (line->cursor >= line->lastchar) {
		line->cursor = line->lastchar;
		if (el->el_map.current == el->el_map.alt && line->lastchar != line->buffer)
			line->cursor--;
	}
	re_make(el, (size_t)(line->cursor - line->buffer));
	re_move(el, &r->drawn, r->drawn.cursor.v, r->drawn.cursor.h);
	if (line->cursor == line->lastchar)
		r->appends = (size_t)(line->lastchar - line->buffer) + 1;
}

/* re_refresh_cursor():
 *	Only the cursor has moved; but its row may be another's, or a new one
 */
libedit_private void
re_refresh_cursor(EditLine *el)
{
	re_refresh(el);
}

/* re_has_moved():
 *	Whether others have moved the cursor while the process was stopped: a shell has,
 *	and stands in the first column now. Where it cannot be told, they have.
 */
static int
re_has_moved(EditLine *el)
{
	el_refresh_t *r = &el->el_refresh;
	int column = r->at.h;

	if (r->at.v == 0)
		return 0;	/* its row is all there is to clear */
	if (r->resized && r->flow == FLOW_REFLOWS)
		column = re_reflowed(&r->before, el->el_terminal.t_size.h, r->at).h;
	else if (r->resized && r->flow == FLOW_CUTS)
		column = re_cut(el).h;
	else if (r->resized)
		return 1;
	return column == 0 || column >= el->el_terminal.t_size.h || re_ask(el) != column;
}

/* re_redraw():
 *	Draw all of it anew, in its place; or, behind a stop in which others may have moved
 *	the cursor, where that is
 */
libedit_private void
re_redraw(EditLine *el, int stopped)
{
	el_refresh_t *r = &el->el_refresh;

	if (stopped && re_has_moved(el))
		re_clear_display(el);
	if (!r->resized)
		re_wipe(el);
	re_refresh(el);
}

/* re_save_start():
 *	Have the terminal remember where prompt and line begin, for a program that prints in
 *	their place
 */
libedit_private void
re_save_start(EditLine *el)
{
	el_refresh_t *r = &el->el_refresh;
	coord_t at = r->at;

	if (r->drawn.rows == 0 || r->resized || re_can(el, DO_SAVE) == NULL ||
	    (el->el_flags & (NO_TTY | EDIT_DISABLED)))
		return;
	re_move(el, &r->drawn, 0, 0);
	re_do(el, DO_SAVE);
	re_move(el, &r->drawn, at.v, at.h);
	terminal__flush(el);
}

/* re_goto_bottom():
 *	To the row behind the line, all of which is over
 */
libedit_private void
re_goto_bottom(EditLine *el)
{
	el_refresh_t *r = &el->el_refresh;

	if (!r->drawn.whole || r->resized ||
	    layout_row(&r->drawn, r->drawn.rows - 1)->end > r->drawn.next.h)
		re_make(el, (size_t)-1);
	re_move_to_row(el, r->drawn.rows - 1);
	terminal__putc(el, '\n');
	re_clear_display(el);
	terminal__flush(el);
}

/* re_clear_lines():
 *	Clear all rows, for them to be drawn anew
 */
libedit_private void
re_clear_lines(EditLine *el)
{
	el_refresh_t *r = &el->el_refresh;
	int v;

	if (EL_CAN_CEOL)
		for (v = r->drawn.rows - 1; v >= 0; v--) {
			re_move_to_row(el, v);
			re_return(el);
			re_do(el, DO_CE);
		}
	else {
		re_move_to_row(el, r->drawn.rows - 1);
		re_return(el);
		terminal__putc(el, '\n');
	}
}

/* --- A character at the end ------------------------------------------------------------ */

/* re_append_row():
 *	The last row is full, and the cursor goes to a new one
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
	row->joined = re_wraps(el);
	l->cursor.v = r->at.v = l->rows++;
	if (r->depth < l->rows)
		r->depth = l->rows;
	l->next.v++;
	l->next.h = 0;
	row = layout_row(l, r->at.v);
	row->cells[0] = ' ';
	row->end = 1;
	row->continued = row->joined = 0;
	if (!re_wraps(el))
		terminal__putc(el, '\n');
	terminal__putc(el, ' ');
	terminal__putc(el, '\r');
}

/* re_fastaddc():
 *	A character has been added to the line. At the end, the usual place, it is written
 *	and noted in the frame, nothing else.
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
	if (!sig_flushes(el))
		terminal__flush(el);
}

/* re_clear_echo():
 *	Clear so many columns before the cursor, and what is behind it
 */
libedit_private void
re_clear_echo(EditLine *el, int columns)
{
	if (columns >= el->el_terminal.t_size.h)
		terminal__putc(el, '\r');
	else
		while (columns-- > 0)
			terminal__putc(el, '\b');
	re_do(el, DO_CE);
}

/* re_putc():
 *	Ring, or begin a row, for a program that does so by itself
 */
libedit_private void
re_putc(EditLine *el, wint_t c, int shift __attribute__((__unused__)))
{
	terminal__putc(el, c);
}
