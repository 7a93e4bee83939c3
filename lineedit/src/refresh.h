/*
 * refresh.h: what is on the screen of prompt and line.
 */
#ifndef _h_el_refresh
#define	_h_el_refresh

#include "layout.h"

typedef struct {
	layout_t	 drawn;		/* what the window shows */
	layout_t	 next;		/* what it is to show, while that is drawn */
	layout_t	 before;	/* what it showed at its old size, if `resized' */
	size_t		 appends;	/* the line's length when one more character has */
					/* been added where the cursor is; or 0 */
	coord_t		 at;		/* the terminal's cursor; h is the width: */
					/* behind the last column, not wrapped yet */
	int		 depth;		/* rows of the window that the screen has */
	int		 scrolled;	/* rows that have left it at its top */
	int		 resized;	/* the size is new since something was drawn */
	int		 mute;		/* the terminal has not said where its cursor is */
	int		 flow;		/* what the terminal does then: see refresh.c */
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
