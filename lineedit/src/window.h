/*
 * window.h: where prompt and line are after a resize or a stop.
 */
#ifndef _h_el_window
#define	_h_el_window

libedit_private int	window_rows_above(EditLine *);
libedit_private int	window_is_right(EditLine *);
libedit_private int	window_has_moved(EditLine *);

#endif /* _h_el_window */
