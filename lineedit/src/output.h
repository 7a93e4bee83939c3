/*
 * output.h: what the terminal can do, and moves.
 */
#ifndef _h_el_output
#define	_h_el_output

/* what is done by a string of the terminal's description */
enum { DO_CE, DO_CD, DO_CH, DO_UP, DO_UPS, DO_DOWNS, DO_LEFTS, DO_RIGHTS, DO_IC, DO_ICS,
    DO_IM, DO_EI, DO_IP, DO_DC, DO_DCS, DO_DM, DO_ED, DO_SAVE, DO_BACK,
    DO_COUNT };

/* about what a move within a row costs, in bytes */
#define	OUT_MOVE_COST	5

/* the cursor is behind the last column: it may only go back to the first */
#define	OUT_IS_PENDING(el) \
	((el)->el_refresh.at.h >= (el)->el_refresh.drawn.width)

libedit_private int	out_wraps(EditLine *);
libedit_private int	out_columns(EditLine *);
libedit_private const char *out_can(EditLine *, int);
libedit_private void	out_do(EditLine *, int);
libedit_private void	out_do_many(EditLine *, int, int);
libedit_private void	out_put(EditLine *, const layout_t *, wint_t);
libedit_private void	out_return(EditLine *);
libedit_private void	out_move_to_row(EditLine *, int);
libedit_private void	out_move(EditLine *, const layout_t *, int, int);

#endif /* _h_el_output */
