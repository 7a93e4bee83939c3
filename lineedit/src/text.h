/*
 * text.h: from the bytes that are typed to the characters of the line
 */
#ifndef _h_el_text
#define	_h_el_text

/* the keys of a sequence, as far as they have been read */
typedef struct {
	int	state;		/* of the parser, see text.c */
	size_t	len;
	wchar_t	chr[32];	/* the first of them, and a NUL */
} text_keys_t;

typedef struct {
	int	reading;	/* a read is in progress, or was left by a jump */
	int	paste;		/* keys are from a bracketed paste */
	int	pasted;		/* the last one was: it is text */
	int	dropped;	/* control characters of the paste were */
	wchar_t	held[5];	/* of it, what began like the end mark but is none */
	int	held_at;
	int	held_len;
	/* where Escape has led from insert to command mode */
	int	inserting;
	int	inputmode;
	ssize_t	cursor;
} el_text_t;

libedit_private int		text_join(EditLine *, wchar_t *);
libedit_private int		text_pasted(EditLine *, wchar_t *);
libedit_private void		text_forget(EditLine *);
libedit_private int		text_stands(wchar_t);
libedit_private el_action_t	text_command(EditLine *, wchar_t);
libedit_private int		text_key(EditLine *, wchar_t *, text_keys_t *);
libedit_private void		text_keys(text_keys_t *, wchar_t);
libedit_private int		text_rest(EditLine *, wchar_t *, text_keys_t *,
    keymacro_value_t *);
libedit_private void		text_leave_insert(EditLine *);
libedit_private void		text_bind(EditLine *);
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
