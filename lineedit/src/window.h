/*
 * window.h: what a change of its size, or a stop, has left of prompt and line.
 */
#ifndef _h_el_window
#define	_h_el_window

libedit_private int	window_rows_above(EditLine *);
libedit_private int	window_is_right(EditLine *);
libedit_private int	window_has_moved(EditLine *);

#endif /* _h_el_window */
