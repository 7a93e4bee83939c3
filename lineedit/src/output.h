/*
 * output.h: capabilities of the terminal, and cursor movement.
 */
#ifndef _h_el_output
#define	_h_el_output

/* string capabilities; the names are in out_can() */
enum { DO_CE, DO_CD, DO_CH, DO_UP, DO_UPS, DO_DOWNS, DO_LEFTS, DO_RIGHTS, DO_IC, DO_ICS,
    DO_IM, DO_EI, DO_IP, DO_DC, DO_DCS, DO_DM, DO_ED, DO_SAVE, DO_BACK,
    DO_COUNT };

/* about the bytes of a cursor move within a row */
#define	OUT_MOVE_COST	5

/* the cost of a move that the terminal cannot do: more than a row has columns */
#define	OUT_NEVER	(1 << 20)

/* the cursor is in the pending wrap state, after the last column */
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
