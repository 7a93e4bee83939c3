/*
 * text.h: from the bytes that are typed to the characters of the line
 */
#ifndef _h_el_text
#define	_h_el_text

libedit_private int		text_join(EditLine *, wchar_t *);
libedit_private int		text_stands(wchar_t);
libedit_private el_action_t	text_command(EditLine *, wchar_t);

#endif /* _h_el_text */
