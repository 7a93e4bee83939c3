/*
 * refresh.h: prompt and line on the screen.
 */
#ifndef _h_el_refresh
#define	_h_el_refresh

#include "layout.h"

typedef struct {
	layout_t	 drawn;		/* what the window shows */
	layout_t	 next;		/* what it is to show, while that is drawn */
	layout_t	 before;	/* what it showed at its old size, if `resized' */
	size_t		 appends;	/* the line's length after one more character at */
					/* its end, if re_fastaddc() can draw that; or 0 */
	coord_t		 at;		/* the terminal's cursor; if h is the width, the */
					/* wrap is pending */
	int		 depth;		/* rows of the window that are on the screen */
	int		 scrolled;	/* rows that scrolled out of the window */
	int		 resized;	/* nothing was drawn since the size changed */
	int		 mute;		/* the terminal did not report its cursor */
	int		 flow;		/* whether the terminal reflows, see window.c */
} el_refresh_t;

libedit_private int	re_resize(EditLine *);
libedit_private void	re_end(EditLine *);
libedit_private void	re_putc(EditLine *, wint_t, int);
libedit_private void	re_clear_lines(EditLine *);
libedit_private void	re_clear_display(EditLine *);
libedit_private void	re_refresh(EditLine *);
libedit_private void	re_refresh_cursor(EditLine *);
libedit_private void	re_redraw(EditLine *, int);
libedit_private void	re_clear_row(EditLine *);
libedit_private void	re_save_start(EditLine *);
libedit_private void	re_fastaddc(EditLine *);
libedit_private void	re_goto_bottom(EditLine *);

#endif /* _h_el_refresh */
