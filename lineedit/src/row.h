/*
 * row.h: one row of the window, from what it shows to what it is to show.
 */
#ifndef _h_el_row
#define	_h_el_row

/*
 * Whether the terminal takes a row and the next for one line. Some forget it when cells are
 * inserted, deleted or cleared or the last one is written alone, others do not.
 */
enum { ROW_APART, ROW_DOUBTFUL, ROW_JOINED };

libedit_private void	row_update(EditLine *, int);
libedit_private int	row_needs_join(EditLine *, int);
libedit_private int	row_join(EditLine *, layout_row_t *, layout_row_t *, int);
libedit_private void	row_clear_behind(EditLine *, layout_row_t *, int, int, int);

#endif /* _h_el_row */
