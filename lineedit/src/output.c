/*
 * output.c: capabilities of the terminal, and cursor movement.
 *
 * All moves are relative to the cursor's position in the window, el_refresh.at. Terminals
 * differ in what they do in the pending wrap state: there only a carriage return, a line
 * feed and a move to an absolute column are used.
 */
#include "config.h"

#include <stdlib.h>
#include <string.h>
#include <termcap.h>
#include <wchar.h>

#include "el.h"
#include "output.h"

/* out_wraps():
 *	Whether the terminal wraps, and only at the next character (am and xn). It does so
 *	at its own margin, not at a width set by rl_set_screen_size().
 */
libedit_private int
out_wraps(EditLine *el)
{
	int window = el->el_terminal.t_window.h;

	return EL_HAS_AUTO_MARGINS && EL_HAS_MAGIC_MARGINS &&
	    (window == 0 || window == el->el_terminal.t_size.h);
}

libedit_private int
out_columns(EditLine *el)
{
	int columns = el->el_terminal.t_size.h;

	if ((EL_HAS_AUTO_MARGINS && EL_HAS_MAGIC_MARGINS) || columns == 1)
		return columns;
	return columns - 1;
}

/* out_can():
 *	A capability of the terminal, or NULL
 */
libedit_private const char *
out_can(EditLine *el, int what)
{
	static const char names[DO_COUNT][3] = { "ce", "cd", "ch", "up", "UP", "DO", "LE",
	    "RI", "ic", "IC", "im", "ei", "ip", "dc", "DC", "dm", "ed", "sc", "rc" };
	static int place[DO_COUNT];	/* index in t_str, from 1; 0: not looked up */
	const char *string;

	if (place[what] == 0)
		place[what] = terminal_place(names[what]) + 1;
	string = el->el_terminal.t_str[place[what] - 1];
	return string != NULL && *string != '\0' ? string : NULL;
}

/* out_do():
 *	Send a capability, if the terminal has it. Only padding needs tputs.
 */
libedit_private void
out_do(EditLine *el, int what)
{
	const char *string = out_can(el, what);

	if (string == NULL)
		return;
	if (strchr(string, '$') == NULL)
		(void)fputs(string, el->el_outfile);
	else
		terminal_tputs(el, string, 1);
}

static void
out_number(EditLine *el, int n)
{
	if (n >= 10)
		out_number(el, n / 10);
	terminal__putc(el, (wint_t)('0' + n % 10));
}

/* out_do_many():
 *	The same for one with a parameter, a count or a column. Nearly all terminals use
 *	one of two forms, which need no tgoto.
 */
libedit_private void
out_do_many(EditLine *el, int what, int n)
{
	static const char plain[] = "\033[%p1%d", from_one[] = "\033[%i%p1%d";
	const char *string = out_can(el, what);
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
		out_number(el, value);
	terminal__putc(el, (wint_t)string[len - 1]);
}

static int
out_digits(int n)
{
	return n < 10 ? 1 : n < 100 ? 2 : n < 1000 ? 3 : 4;
}

libedit_private void
out_put(EditLine *el, const layout_t *l, wint_t cell)
{
	const wchar_t *s;

	if ((cell & LAYOUT_COMPOSED) == 0)
		terminal__putc(el, cell);
	else
		for (s = layout_composed(l, cell); *s != '\0'; s++)
			terminal__putc(el, (wint_t)*s);
}

libedit_private void
out_return(EditLine *el)
{
	terminal__putc(el, '\r');
	el->el_refresh.at.h = 0;
}

/* out_move_to_row():
 *	Move to a row of the window, which need not be on the screen yet. May end in the
 *	first column.
 */
libedit_private void
out_move_to_row(EditLine *el, int v)
{
	el_refresh_t *r = &el->el_refresh;
	int n = v - r->at.v;

	if (n == 0)
		return;
	if (n < 0) {
		if (OUT_IS_PENDING(el))
			out_return(el);
		if (out_can(el, DO_UPS) != NULL && (n < -1 || out_can(el, DO_UP) == NULL))
			out_do_many(el, DO_UPS, -n);
		else
			while (n++ < 0)
				out_do(el, DO_UP);
	} else if (v < r->depth && out_can(el, DO_DOWNS) != NULL) {
		/* no line feed: in some terminals it separates joined rows */
		if (OUT_IS_PENDING(el))
			out_return(el);
		out_do_many(el, DO_DOWNS, n);
	} else {
		while (n-- > 0)
			terminal__putc(el, '\n');
		r->at.h = 0;	/* the tty adds a carriage return (onlcr) */
	}
	r->at.v = v;
	if (r->depth <= v)
		r->depth = v + 1;
}

/* out_rewrite_cost():
 *	The cost of moving to column h by writing the row's cells again
 */
static int
out_rewrite_cost(const layout_row_t *row, int from, int h)
{
	int i;

	for (i = from; i < h && i < from + 2 * OUT_MOVE_COST; i++)
		if (!ct_is_ascii(row->cells[i]))
			return 10 * OUT_MOVE_COST;
	return h - from;
}

/* out_move():
 *	Move to a cell of the window. The row's cells up to there are as in l.
 */
libedit_private void
out_move(EditLine *el, const layout_t *l, int v, int h)
{
	coord_t *at = &el->el_refresh.at;
	const layout_row_t *row = layout_row(l, v);
	int column, cost, rewrite, n, back, again;

	out_move_to_row(el, v);
	if (at->h == h)
		return;
	if (h == 0) {
		out_return(el);
		return;
	}
	column = out_can(el, DO_CH) != NULL ? 3 + out_digits(h + 1) : OUT_NEVER;
	back = at->h - h;
	if (back > 0 && !OUT_IS_PENDING(el)) {
		cost = out_can(el, DO_LEFTS) != NULL ? 3 + out_digits(back) : OUT_NEVER;
		rewrite = v == 0 ? OUT_NEVER : 1 + out_rewrite_cost(row, 0, h);
		if (back <= column && back <= cost && back <= rewrite) {
			while (back-- > 0)
				terminal__putc(el, '\b');
			at->h = h;
			return;
		}
		if (cost < column && cost <= rewrite) {
			out_do_many(el, DO_LEFTS, back);
			at->h = h;
			return;
		}
	}
	/* forward, perhaps after a carriage return; not from inside a wide character */
	again = back > 0 || row->cells[at->h] == LAYOUT_FILL;
	n = again ? 0 : at->h;
	cost = out_can(el, DO_RIGHTS) != NULL ? 3 + out_digits(h - n) : OUT_NEVER;
	rewrite = out_rewrite_cost(row, n, h);
	if (n == 0 && v == 0 && (column < OUT_NEVER || cost < OUT_NEVER))
		rewrite = OUT_NEVER;	/* a script would take the prompt for another one */
	if (rewrite < cost)
		cost = rewrite;
	if (column <= cost + again) {
		out_do_many(el, DO_CH, h);
		at->h = h;
		return;
	}
	if (again)
		out_return(el);
	if (cost < rewrite)
		out_do_many(el, DO_RIGHTS, h - n);
	else
		for (; n < h; n++)
			if (row->cells[n] != LAYOUT_FILL)
				out_put(el, l, row->cells[n]);
	at->h = h;
}
