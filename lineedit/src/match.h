/*
 * match.h: what a search looks for.
 */
#ifndef _h_el_match
#define	_h_el_match

/* The first match of the pattern from cp on, forward or back; NULL for none. */
libedit_private wchar_t		*match_along(const wchar_t *, wchar_t *,
    const wchar_t *, int);

/* The pattern of a search as match_step() needs it. */
libedit_private const char	*match_plain(EditLine *);

/* Whether a line of the history differs from the current line and matches. */
libedit_private int		 match_step(EditLine *, const void *, const char *);

#endif /* _h_el_match */
