/*
 * position.h: asking the terminal where its cursor is.
 */
#ifndef _h_el_position
#define	_h_el_position

#include <sys/types.h>

libedit_private int	position_column(EditLine *, int);
libedit_private ssize_t	position_key(void *, size_t);
libedit_private void	position_forget(void);

extern libedit_private size_t position_first, position_end;	/* of the keys kept */

/* position_has_key():
 *	Whether a key is kept
 */
static inline int
position_has_key(void)
{
	return position_first < position_end;
}

#endif /* _h_el_position */
