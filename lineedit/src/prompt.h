/*
 * prompt.h: the prompts that a program has set.
 */
#ifndef _h_el_prompt
#define	_h_el_prompt

typedef wchar_t *(*el_pfunc_t)(EditLine *);

typedef struct {
	el_pfunc_t	p_func;		/* returns the text, which it owns */
	wchar_t		p_ignore;	/* delimiter of invisible parts, or NUL */
	int		p_wide;		/* the text is of wide characters */
} el_prompt_t;

libedit_private int	prompt_init(EditLine *);
libedit_private void	prompt_end(EditLine *);
libedit_private int	prompt_set(EditLine *, el_pfunc_t, wchar_t, int, int);
libedit_private int	prompt_get(EditLine *, el_pfunc_t *, wchar_t *, int);
libedit_private const wchar_t *prompt_text(EditLine *, wchar_t *);

#endif /* _h_el_prompt */
