/*
 * window.c: what a change of its size, or a stop, has left of prompt and line.
 */
#include "config.h"

#include <string.h>
#include <wchar.h>

#include "el.h"
#include "position.h"
#include "row.h"
#include "window.h"

/*
 * What the terminal does with joined rows when its width changes, as far as is known:
 * lay them out anew, and the cursor keeps its place in the text; or cut them, and it
 * keeps its row. One does the former as soon as it has scrolled, with the cursor in the
 * first row then.
 */
enum { FLOW_NEW, FLOW_UNSURE, FLOW_REFLOWS, FLOW_CUTS, FLOW_TO_TOP };

/* window_flow_of():
 *	What terminals of this type do; FLOW_NEW for one that is not known at all. Many
 *	call themselves an xterm, which itself cuts.
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
		{ "vt", FLOW_CUTS }, { "xterm", FLOW_UNSURE },
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
 *	Whether the terminal itself has laid the rows out as they are to be. Nothing is drawn
 *	then before the next key: while a window is dragged, what is drawn comes to one of
 *	another width than this one was told.
 */
libedit_private int
window_is_right(EditLine *el)
{
	el_refresh_t *r = &el->el_refresh;

	return r->resized && window_flow(el) == FLOW_REFLOWS &&
	    (r->before.height <= r->drawn.height || r->at.v == r->before.rows - 1);
}

/* window_reflowed():
 *	Where the cursor stands, from the first row on, when the terminal has laid out the
 *	joined rows anew
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
 *	The column of the terminal's cursor, or -1. A type that is not known is not asked,
 *	and none again that has not answered.
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
 *	Where the cursor stands when the terminal has cut the rows
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
 *	How many rows above the cursor what was drawn at the old size begins now. Where
 *	that depends on what the terminal does, one that may do either is asked, until it
 *	is known. The lesser number leaves a part of the old, but clears no row of others.
 *	Where rows have left the window at its top they are laid out anew, too, and the column
 *	tells nothing.
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
 *	Whether others have moved the cursor while the process was stopped: a shell has,
 *	and stands in the first column now. Where it cannot be told, they have.
 */
libedit_private int
window_has_moved(EditLine *el)
{
	el_refresh_t *r = &el->el_refresh;
	int column = r->at.h;

	if (r->at.v == 0)
		return 0;	/* its row is all there is to clear */
	if (r->resized && r->flow == FLOW_REFLOWS)
		column = window_reflowed(&r->before, el->el_terminal.t_size.h, r->at).h;
	else if (r->resized && r->flow == FLOW_CUTS)
		column = window_cut(el).h;
	else if (r->resized && r->before.width != r->drawn.width)
		return 1;
	return column == 0 || column >= el->el_terminal.t_size.h || window_ask(el) != column;
}
