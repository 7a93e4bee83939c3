/*
 * row.h: updating one row of the window.
 */
#ifndef _h_el_row
#define	_h_el_row

/*
 * Whether the terminal treats a row and the next as one line. Some terminals end that when
 * cells are inserted, deleted or cleared, or when the last one is written alone.
 */
enum { ROW_APART, ROW_DOUBTFUL, ROW_JOINED };

libedit_private void	row_update(EditLine *, int);
libedit_private int	row_needs_join(EditLine *, int);
libedit_private int	row_join(EditLine *, layout_row_t *, layout_row_t *, int);
libedit_private void	row_clear_behind(EditLine *, layout_row_t *, int, int, int);

#endif /* _h_el_row */
