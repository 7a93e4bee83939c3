/*
 * text.h: from the bytes that are typed to the characters of the line
 */
#ifndef _h_el_text
#define	_h_el_text

libedit_private int		text_join(EditLine *, wchar_t *);
libedit_private int		text_stands(wchar_t);
libedit_private el_action_t	text_command(EditLine *, wchar_t);
libedit_private wchar_t		*text_after(EditLine *, wchar_t *, int);
libedit_private wchar_t		*text_before(EditLine *, wchar_t *, int);
libedit_private wchar_t		*text_base(wchar_t *, const wchar_t *);
libedit_private void		text_overwrite(EditLine *, wchar_t);
libedit_private void		text_settle(EditLine *);
libedit_private void		text_swap(wchar_t *, wchar_t *, wchar_t *);
libedit_private wchar_t		text_case(wchar_t, int);

/* A mark goes with the character before it, its base */
#define	text_is_mark(ch)	((ch) >= 0x300 && layout_width(ch) == 0)

#endif /* _h_el_text */
