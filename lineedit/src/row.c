/*
 * row.c: updating one row of the window.
 *
 * At the first difference, columns are inserted or deleted if that is cheaper. Then the cells
 * that still differ are written, and the rest of the row is cleared.
 */
#include "config.h"

#include <stdlib.h>
#include <string.h>
#include <wchar.h>

#include "el.h"
#include "output.h"
#include "row.h"

/* up to so many columns, each number is tried for an insertion or deletion */
#define	SHIFT_MAX	16

/* row_is_same():
 *	Whether a cell on the screen, where nothing is after the end, shows `new' already
 */
static int
row_is_same(EditLine *el, const layout_row_t *old, int from, wint_t new)
{
	el_refresh_t *r = &el->el_refresh;
	wint_t was = from < old->end ? old->cells[from] : LAYOUT_EMPTY;

	if (was & new & LAYOUT_COMPOSED)
		return wcscmp(layout_composed(&r->drawn, was),
		    layout_composed(&r->next, new)) == 0;
	return was == new;
}

/* row_plain_end():
 *	The first column from h on where the two differ or are composed
 */
static int
row_plain_end(const layout_row_t *old, const layout_row_t *new, int h)
{
	int end = old->end < new->end ? old->end : new->end;
	const wint_t *was = old->cells, *is = new->cells;

	while (h < end && was[h] == is[h] && !(is[h] & LAYOUT_COMPOSED))
		h++;
	return h;
}

/* row_shift_cost():
 *	The cost of updating old to new from column f on after inserting n columns there
 *	(deleting, if negative); or any value above most
 */
static int
row_shift_cost(EditLine *el, const layout_row_t *old, const layout_row_t *new, int f, int n,
    int most)
{
	int width = el->el_refresh.next.width;
	int end = old->end + n < width ? old->end + n : width;
	int h = f, cost = 0, gap = 0;

	if (n != 0)
		cost = OUT_MOVE_COST - 1;
	if (n > 0) {
		h += n;
		cost += n;
	}
	for (; h < new->end && cost <= most; h++)
		if (h < end && (old->cells[h - n] == new->cells[h] ?
		    !(new->cells[h] & LAYOUT_COMPOSED) :
		    row_is_same(el, old, h - n, new->cells[h])))
			gap++;
		else {
			if (new->cells[h] != LAYOUT_FILL)
				cost += ct_is_ascii(new->cells[h]) ? 1 : 3;
			if (h > f)
				cost += gap < OUT_MOVE_COST ? gap : OUT_MOVE_COST;
			gap = 0;
		}
	if (end > new->end)
		cost += OUT_MOVE_COST;
	return cost;
}

/* row_find_shift():
 *	How many columns to insert (delete, if negative) at column f, where old and new
 *	first differ
 */
static int
row_find_shift(EditLine *el, const layout_row_t *old, const layout_row_t *new, int f)
{
	int width = el->el_refresh.next.width;
	int best = 0, n, cost, most = row_shift_cost(el, old, new, f, 0, 10000);
	int lengths = new->end - old->end;

	if (f >= old->end || f >= new->end)
		return 0;
	for (n = 1; n <= SHIFT_MAX + 1; n++) {
		/* at last, the difference of the lengths */
		int in = n <= SHIFT_MAX ? n : lengths, out = n <= SHIFT_MAX ? n : -lengths;

		if (EL_CAN_INSERT && in > 0 && f + in < new->end && (out_wraps(el) ||
		    old->end + in <= width) && new->cells[f + in] == old->cells[f] &&
		    (cost = row_shift_cost(el, old, new, f, in, most)) < most) {
			best = in;
			most = cost;
		}
		if (EL_CAN_DELETE && out > 0 && f + out < old->end &&
		    old->cells[f + out] == new->cells[f] &&
		    (cost = row_shift_cost(el, old, new, f, -out, most)) < most) {
			best = -out;
			most = cost;
		}
	}
	return best;
}

/* row_insert():
 *	Insert the n columns that new has in column f
 */
static void
row_insert(EditLine *el, layout_row_t *old, const layout_row_t *new, int f, int n)
{
	el_refresh_t *r = &el->el_refresh;
	int i, mode = 0, keep = old->end - f;

	if (keep > r->next.width - f - n)
		keep = r->next.width - f - n;
	memmove(old->cells + f + n, old->cells + f, (size_t)keep * sizeof(wint_t));
	old->end = f + n + keep;
	if (old->end == r->next.width && keep > 0 && old->cells[old->end - 1] != LAYOUT_FILL &&
	    !ct_is_ascii(old->cells[old->end - 1]))
		old->cells[old->end - 1] = LAYOUT_UNKNOWN;	/* perhaps cut in half */

	if (out_can(el, DO_IC) != NULL && n == 1)
		out_do(el, DO_IC);
	else if (out_can(el, DO_ICS) != NULL)
		out_do_many(el, DO_ICS, n);
	else if ((mode = out_can(el, DO_IM) != NULL && out_can(el, DO_EI) != NULL))
		out_do(el, DO_IM);
	else
		for (i = 0; i < n; i++)
			out_do(el, DO_IC);
	for (i = f; i < f + n; i++)
		if (new->cells[i] != LAYOUT_FILL) {
			out_put(el, &r->next, new->cells[i]);
			out_do(el, DO_IP);
		}
	if (mode)
		out_do(el, DO_EI);
	r->at.h = f + n;
}

static void
row_delete(EditLine *el, layout_row_t *old, int f, int n)
{
	memmove(old->cells + f, old->cells + f + n,
	    (size_t)(old->end - f - n) * sizeof(wint_t));
	old->end -= n;

	if (out_can(el, DO_DCS) != NULL && (n > 1 || out_can(el, DO_DC) == NULL)) {
		out_do_many(el, DO_DCS, n);
		return;
	}
	out_do(el, DO_DM);
	while (n-- > 0)
		out_do(el, DO_DC);
	out_do(el, DO_ED);
}

static void
row_doubt(layout_row_t *row)
{
	if (row->joined == ROW_JOINED)
		row->joined = ROW_DOUBTFUL;
}

/* row_erase():
 *	Erase row v from column h, where the cursor is. From the first column, that may
 *	separate it from the row above.
 */
static void
row_erase(EditLine *el, int v, int h)
{
	el_refresh_t *r = &el->el_refresh;

	out_do(el, DO_CE);
	if (h == 0 && v > 0) {
		row_doubt(layout_row(&r->drawn, v - 1));
		row_doubt(layout_row(&r->next, v - 1));
	}
}

/* row_clear_behind():
 *	Clear a row from column h on
 */
libedit_private void
row_clear_behind(EditLine *el, layout_row_t *new, int v, int h, int end)
{
	el_refresh_t *r = &el->el_refresh;

	if (h >= end)
		return;
	if (!EL_CAN_CEOL && !new->continued && new->joined != ROW_APART)
		end = r->next.width;	/* the last cell ends the join */
	out_move(el, &r->next, v, h);
	row_doubt(new);
	if (!new->continued)
		new->joined = ROW_APART;
	if (EL_CAN_CEOL) {
		row_erase(el, v, h);
		return;
	}
	for (; h < end; h++)
		terminal__putc(el, ' ');
	r->at.h = end;
}

/* row_write_differences():
 *	Write the cells that differ from column h on, and clear the rest of the row
 */
static void
row_write_differences(EditLine *el, layout_row_t *old, layout_row_t *new, int v, int h)
{
	el_refresh_t *r = &el->el_refresh;
	int width;

	for (; h < new->end; h += width) {
		if ((h = row_plain_end(old, new, h)) >= new->end)
			break;
		if (new->cells[h] == LAYOUT_FILL)
			h--;
		width = layout_cell_width(new, h);
		if (row_is_same(el, old, h, new->cells[h]) &&
		    (width == 1 || row_is_same(el, old, h + 1, LAYOUT_FILL)))
			continue;
		out_move(el, &r->next, v, h);
		out_put(el, &r->next, new->cells[h]);
		r->at.h += width;
		if (h + width < old->end && old->cells[h + width] == LAYOUT_FILL)
			old->cells[h + width] = LAYOUT_UNKNOWN;
		if (h + width == r->next.width)
			row_doubt(new);
	}
	row_clear_behind(el, new, v, new->end, old->end);
}

/* row_join():
 *	Make the terminal wrap from row v - 1 to this one: write the last cell there,
 *	unless that was just done, and the first here. The terminal also wraps before a
 *	wide character that has no room there.
 */
libedit_private int
row_join(EditLine *el, layout_row_t *old, layout_row_t *new, int v)
{
	el_refresh_t *r = &el->el_refresh;
	layout_row_t *above = layout_row(&r->next, v - 1);
	int h = above->end, width = layout_cell_width(new, 0);

	if (r->at.v != v - 1 || r->at.h != h) {
		if (h == r->next.width) {
			h -= above->cells[h - 1] == LAYOUT_FILL ? 2 : 1;
			out_move(el, &r->next, v - 1, h);
			out_put(el, &r->next, above->cells[h]);
		} else	/* one column is left, and a wide character follows */
			out_move(el, &r->next, v - 1, h);
	}
	out_put(el, &r->next, new->cells[0]);
	above->joined = ROW_JOINED;
	r->at.v = v;
	r->at.h = width;
	if (r->depth <= v)
		r->depth = v + 1;
	if (width == r->next.width)
		row_doubt(new);
	if (old->end < width)
		old->end = width;
	else if (width < old->end && old->cells[width] == LAYOUT_FILL)
		old->cells[width] = LAYOUT_UNKNOWN;
	return width;
}

/* row_needs_join():
 *	Whether row v is to be joined to the one above
 */
libedit_private int
row_needs_join(EditLine *el, int v)
{
	layout_row_t *above;

	if (v == 0 || layout_row(&el->el_refresh.next, v)->end == 0)
		return 0;
	above = layout_row(&el->el_refresh.next, v - 1);
	return above->continued && above->joined != ROW_JOINED && out_wraps(el);
}

/* row_part():
 *	Make the terminal treat the row as the end of a line
 */
static void
row_part(EditLine *el, layout_row_t *new, int v)
{
	el_refresh_t *r = &el->el_refresh;
	int h = new->end - 1;

	if (h + 1 < r->next.width)
		row_clear_behind(el, new, v, h + 1, r->next.width);
	else {
		h -= new->cells[h] == LAYOUT_FILL;
		out_move(el, &r->next, v, h);
		if (EL_CAN_CEOL)
			row_erase(el, v, h);
		out_put(el, &r->next, new->cells[h]);
		r->at.h = new->end;
	}
	new->joined = ROW_APART;
}

/* row_update():
 *	Draw row v of the window
 */
libedit_private void
row_update(EditLine *el, int v)
{
	el_refresh_t *r = &el->el_refresh;
	layout_row_t *old = layout_row(&r->drawn, v), *new = layout_row(&r->next, v);
	int h = 0, shift;

	if (v >= r->drawn.rows) {
		old->end = 0;
		old->joined = ROW_APART;
	}
	new->joined = old->joined;
	if (row_needs_join(el, v))
		h = row_join(el, old, new, v);

	while (h < new->end && row_is_same(el, old, h, new->cells[h]))
		h = row_plain_end(old, new, h + 1);
	if (h < new->end || old->end > new->end) {
		while (h > 0 && ((h < new->end && new->cells[h] == LAYOUT_FILL) ||
		    (h < old->end && old->cells[h] == LAYOUT_FILL)))
			h--;
		if ((shift = row_find_shift(el, old, new, h)) != 0) {
			out_move(el, &r->next, v, h);
			row_doubt(new);
			if (shift > 0)
				row_insert(el, old, new, h, shift);
			else
				row_delete(el, old, h, -shift);
			if (shift > 0)
				h += shift;
		}
		row_write_differences(el, old, new, v, h);
	}
	if (!new->continued && new->joined != ROW_APART)
		row_part(el, new, v);
}
