/*
 * window.c: where prompt and line are after a resize or a stop.
 */
#include "config.h"

#include <string.h>
#include <wchar.h>

#include "el.h"
#include "position.h"
#include "row.h"
#include "window.h"

/*
 * What the terminal does with joined rows when its width changes, if known: it reflows
 * them, and the cursor stays on its character; or it truncates them, and the cursor stays
 * in its row. One reflows once it has scrolled, with the cursor in the first row then.
 */
enum { FLOW_NEW, FLOW_UNSURE, FLOW_REFLOWS, FLOW_CUTS, FLOW_TO_TOP };

/* window_flow_of():
 *	What terminals of this type do; FLOW_NEW for an unknown type. xterm truncates, but
 *	many that reflow have its type. The VT50, VT52 and VT61 are unknown here, for they
 *	would show a request as text.
 */
static int
window_flow_of(const char *type)
{
	static const struct { const char *prefix; int flow; } types[] = {
		{ "tmux", FLOW_REFLOWS }, { "screen", FLOW_REFLOWS },
		{ "xterm-kitty", FLOW_REFLOWS }, { "alacritty", FLOW_REFLOWS },
		{ "foot", FLOW_REFLOWS }, { "vte", FLOW_REFLOWS },
		{ "gnome", FLOW_REFLOWS }, { "konsole", FLOW_REFLOWS },
		{ "rxvt", FLOW_TO_TOP }, { "st-", FLOW_CUTS }, { "linux", FLOW_CUTS },
		{ "vt1", FLOW_CUTS }, { "vt2", FLOW_CUTS }, { "vt3", FLOW_CUTS },
		{ "vt4", FLOW_CUTS }, { "vt510", FLOW_CUTS }, { "vt520", FLOW_CUTS },
		{ "vt525", FLOW_CUTS }, { "xterm", FLOW_UNSURE },
	};
	size_t i;

	for (i = 0; i < sizeof(types) / sizeof(*types); i++)
		if (strncmp(type, types[i].prefix, strlen(types[i].prefix)) == 0)
			return types[i].flow;
	return FLOW_NEW;
}

static int
window_flow(EditLine *el)
{
	el_refresh_t *r = &el->el_refresh;

	if (r->flow == FLOW_NEW)
		r->flow = window_flow_of(el->el_terminal.t_name);
	return r->flow;
}

/* window_is_right():
 *	Whether the terminal's reflow has made the rows what they are to be. Then nothing is
 *	drawn before the next key: while the user resizes a window, output may arrive when
 *	it has another width than the last one that was reported.
 */
libedit_private int
window_is_right(EditLine *el)
{
	el_refresh_t *r = &el->el_refresh;

	return r->resized && window_flow(el) == FLOW_REFLOWS &&
	    (r->before.height <= r->drawn.height || r->at.v == r->before.rows - 1);
}

/* window_reflowed():
 *	Where the cursor is, counted from the first row, if the terminal has reflowed the
 *	joined rows
 */
static coord_t
window_reflowed(const layout_t *l, int width, coord_t cursor)
{
	const layout_row_t *row;
	coord_t to = { 0, 0 };
	int v, h, w;

	for (v = 0; v <= cursor.v; v++) {
		row = layout_row(l, v);
		for (h = 0; h < row->end && (v < cursor.v || h < cursor.h); h += w) {
			w = layout_cell_width(row, h);
			if (to.h > 0 && to.h + w > width) {
				to.v++;
				to.h = 0;
			}
			to.h += w;
		}
		if (v < cursor.v ? row->joined != ROW_JOINED :
		    h < row->end && to.h > 0 && to.h + layout_cell_width(row, h) > width) {
			to.v++;
			to.h = 0;
		}
	}
	return to;
}

/* window_ask():
 *	The column of the terminal's cursor, or -1. A terminal of an unknown type is not
 *	asked, nor one again that has not answered.
 */
static int
window_ask(EditLine *el)
{
	el_refresh_t *r = &el->el_refresh;
	int column;

	if (r->mute || window_flow_of(el->el_terminal.t_name) == FLOW_NEW)
		return -1;
	column = position_column(el, el->el_terminal.t_size.h);
	r->mute = column == -1;
	return column;
}

/* window_cut():
 *	Where the cursor is if the terminal has truncated the rows
 */
static coord_t
window_cut(EditLine *el)
{
	coord_t to = el->el_refresh.at;

	if (to.h > el->el_terminal.t_size.h - 1)
		to.h = el->el_terminal.t_size.h - 1;
	return to;
}

/* window_rows_above():
 *	How many rows above the cursor the prompt begins, which was drawn at the old size.
 *	If that depends on whether the terminal reflows, and this is unknown, the terminal
 *	is asked for its cursor. Without an answer the lower number is taken: that may leave
 *	a part of the old prompt, but clears no rows above it. If rows have scrolled out of
 *	the window, the column says nothing, since these reflow, too.
 */
libedit_private int
window_rows_above(EditLine *el)
{
	el_refresh_t *r = &el->el_refresh;
	int width = el->el_terminal.t_size.h, column;
	coord_t cut = window_cut(el), flown = window_reflowed(&r->before, width, r->at);

	if (r->before.width == r->drawn.width)
		return cut.v;
	if (window_flow(el) == FLOW_TO_TOP)
		return 0;
	if (r->flow == FLOW_UNSURE && flown.v != cut.v && flown.h != cut.h &&
	    flown.h > 0 && flown.h < width && r->scrolled == 0) {
		column = window_ask(el);
		if (column == flown.h)
			r->flow = FLOW_REFLOWS;
		else if (column == cut.h)
			r->flow = FLOW_CUTS;
	}
	if (r->flow == FLOW_REFLOWS || (r->flow != FLOW_CUTS && flown.v < cut.v))
		return flown.v;
	return cut.v;
}

/* window_has_moved():
 *	Whether others have moved the cursor while the process was stopped: a shell has, to
 *	the first column. Assumed if unknown.
 */
libedit_private int
window_has_moved(EditLine *el)
{
	el_refresh_t *r = &el->el_refresh;
	int column = r->at.h;

	if (r->at.v == 0)
		return 0;	/* the cursor's row is the only one to clear */
	if (r->resized && r->flow == FLOW_REFLOWS)
		column = window_reflowed(&r->before, el->el_terminal.t_size.h, r->at).h;
	else if (r->resized && r->flow == FLOW_CUTS)
		column = window_cut(el).h;
	else if (r->resized && r->before.width != r->drawn.width)
		return 1;
	return column == 0 || column >= el->el_terminal.t_size.h || window_ask(el) != column;
}
