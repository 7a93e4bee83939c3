/*
 * ahead.h: typeahead, that is, what is typed between two reads.
 */
#ifndef _h_el_ahead
#define	_h_el_ahead

libedit_private void	ahead_reset(void);
libedit_private void	ahead_begin(EditLine *);
libedit_private void	ahead_end(EditLine *, int);

#endif /* _h_el_ahead */
