/*
 * sig.h: signals while a line is read
 */
#ifndef _h_el_sig
#define	_h_el_sig

#include <signal.h>

libedit_private void	sig_set(EditLine *);
libedit_private void	sig_clr(EditLine *, char *);
libedit_private EditLine *sig_reader(void);
libedit_private int	sig_orphaned(EditLine *);
libedit_private int	sig_may_set(EditLine *, int);
libedit_private void	sig_wait(int);
libedit_private int	sig_flushes(EditLine *);
libedit_private int	sig_hurries(void);

#endif /* _h_el_sig */
