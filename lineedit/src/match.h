/*
 * match.h: what a search looks for.
 */
#ifndef _h_el_match
#define	_h_el_match

/* The first place with the pattern from cp on, forward or back; NULL for none. */
libedit_private wchar_t		*match_along(const wchar_t *, wchar_t *,
    const wchar_t *, int);

/* The pattern of a search as match_step() takes it. */
libedit_private const char	*match_plain(EditLine *);

/* Whether a line of the history is another one than this and has the pattern. */
libedit_private int		 match_step(EditLine *, const void *, const char *);

#endif /* _h_el_match */
