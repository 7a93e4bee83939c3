/*
 * text.c: from the bytes that are typed to the characters of the line.
 *
 * The character reader returns single bytes with their sign, so that those above 0x7f
 * are negative. Where a key is read for editing, they are decoded here by the locale;
 * invalid bytes are refused with a beep, so that every line can be encoded again. An
 * incomplete character is kept on the stack only: a jump out of the read discards it.
 */
#include "config.h"

#include <langinfo.h>
#include <limits.h>
#include <poll.h>
#include <stdlib.h>
#include <string.h>
#include <wchar.h>
#include <wctype.h>

#include "el.h"
#include "fcns.h"
#include "position.h"
#include "read.h"

/* text_is_utf8():
 *	Whether text is UTF-8 in this locale
 */
static int
text_is_utf8(void)
{
	return MB_CUR_MAX > 1 && strcmp(nl_langinfo(CODESET), "UTF-8") == 0;
}

/* text_refuse():
 *	Beep: what was typed is no text
 */
static void
text_refuse(EditLine *el)
{
	terminal_beep(el);
	if (!sig_flushes(el))
		terminal__flush(el);
}

/* text_stands():
 *	Whether a character may be in a line: the locale can encode it. The C library
 *	encodes some that are not in Unicode, too.
 */
libedit_private int
text_stands(wchar_t ch)
{
	char bytes[MB_LEN_MAX];
	mbstate_t mbs;

	if (text_is_utf8())
		return (unsigned int)ch <= 0x10ffff && (ch & ~0x7ff) != 0xd800;
	memset(&mbs, 0, sizeof(mbs));
	return wcrtomb(bytes, ch, &mbs) != (size_t)-1;
}

/* text_join_utf8():
 *	Decode the UTF-8 sequence that begins with the byte at *cp. If it is invalid,
 *	*cp becomes the key after it.
 */
static int
text_join_utf8(EditLine *el, wchar_t *cp)
{
	/* below these a sequence is overlong */
	static const wchar_t least[] = {
		INT_MAX, 0x80, 0x800, 0x10000, 0x200000, 0x4000000
	};
	unsigned char lead = (unsigned char)*cp;
	int more = 0, left, num;
	wchar_t ch;

	if (lead >= 0xc0 && lead < 0xfe)
		while (lead & (0x40 >> more))
			more++;
	ch = lead & (0x3f >> more);
	for (left = more; left > 0; left--) {
		if ((num = read_byte(el, cp)) != 1)
			return num;
		if (!ct_is_byte(*cp) || (*cp & 0xc0) != 0x80)
			break;
		ch = ch << 6 | (*cp & 0x3f);
	}
	if (left == 0 && ch >= least[more] && text_stands(ch)) {
		*cp = ch;
		return 1;
	}
	text_refuse(el);
	return left > 0 ? 1 : read_byte(el, cp);
}

/* text_join_bytes():
 *	The same in any other locale. An invalid byte still is a key if the user has
 *	bound it.
 */
static int
text_join_bytes(EditLine *el, wchar_t *cp)
{
	mbstate_t mbs;
	unsigned char lead = (unsigned char)*cp;
	char byte = (char)lead;
	wchar_t ch;
	size_t made;
	int cut = 0, num;

	memset(&mbs, 0, sizeof(mbs));
	while ((made = mbrtowc(&ch, &byte, (size_t)1, &mbs)) == (size_t)-2) {
		if ((num = read_byte(el, cp)) != 1)
			return num;
		byte = (char)*cp;
		cut = 1;
	}
	if (made == 1 && text_stands(ch)) {
		*cp = ch;
		return 1;
	}
	if (!cut && el->el_map.current[lead] != ED_INSERT &&
	    el->el_map.current[lead] != ED_UNASSIGNED) {
		*cp = lead;
		return 1;
	}
	text_refuse(el);
	return cut ? 1 : read_byte(el, cp);
}

/* text_join():
 *	Decode the character that begins with the byte at *cp, as the reader returned
 *	it. After invalid bytes *cp is the next key. Returns what the reader did.
 */
libedit_private int
text_join(EditLine *el, wchar_t *cp)
{
	int num = 1;

	while (num == 1 && ct_is_byte(*cp))
		num = text_is_utf8() ? text_join_utf8(el, cp) :
		    text_join_bytes(el, cp);
	return num;
}

/* text_command():
 *	The command of a character. Those beyond the key map insert themselves where keys
 *	do, and so does all pasted text.
 */
libedit_private el_action_t
text_command(EditLine *el, wchar_t ch)
{
	if (el->el_text.pasted)
		return ch == '\n' || ch == '\r' ? ED_NEWLINE : ED_INSERT;
	if ((unsigned int)ch < N_KEYS)
		return el->el_map.current[ch];
	return el->el_map.current == el->el_map.alt ? ED_UNASSIGNED : ED_INSERT;
}

/*
 * Bracketed paste: a terminal in that mode (which the shell sets in its prompt) sends
 * ESC [ 200 ~ before and ESC [ 201 ~ after pasted text. In between every key is text,
 * whatever it is bound to, and control characters other than tabs and line ends are
 * dropped, because they would not be visible. A line end ends the read, and the paste
 * goes on in the next one. It ends with the second mark, an interrupt, or the instance.
 */

/* text_begin_paste():
 *	The first mark has come
 */
static void
text_begin_paste(EditLine *el)
{
	text_forget(el);
	el->el_text.paste = 1;
}

/* text_forget():
 *	The paste is over
 */
libedit_private void
text_forget(EditLine *el)
{
	el->el_text.paste = el->el_text.pasted = el->el_text.dropped = 0;
	el->el_text.held_at = el->el_text.held_len = 0;
}

/* text_mark():
 *	Escape has come in a paste: read the mark that it begins. If it is none, what
 *	was read is held and used as text.
 */
static int
text_mark(EditLine *el)
{
	static const wchar_t mark[] = L"[201~";
	el_text_t *t = &el->el_text;
	wchar_t ch;
	int num, i;

	for (i = t->held_at = t->held_len = 0; i < 5; i++) {
		if ((num = read_byte(el, &ch)) != 1)
			return num;
		t->held[t->held_len++] = ch;
		/* a second start mark is no text either */
		if (!t->paste || (ch != mark[i] && !(i == 3 && ch == '0'))) {
			t->dropped = 1;
			return 1;
		}
	}
	t->held_len = 0;
	if (ch == '~' && t->held[3] == '1')
		t->paste = t->pasted = 0;
	return 1;
}

/* text_pasted():
 *	Read the next character of a paste, or the key after it
 */
libedit_private int
text_pasted(EditLine *el, wchar_t *cp)
{
	el_text_t *t = &el->el_text;
	int num;

	while (t->paste || t->held_at < t->held_len) {
		if (t->held_at < t->held_len)
			*cp = t->held[t->held_at++];
		else if ((num = read_byte(el, cp)) != 1)
			return num;
		if ((num = text_join(el, cp)) != 1)
			return num;
		if (!t->paste)		/* forgotten meanwhile: a key */
			return 1;
		if (*cp == 033) {
			if ((num = text_mark(el)) != 1)
				return num;
		} else if (*cp >= 0x20 ? *cp < 0x7f || *cp >= 0xa0 :
		    *cp == '\t' || *cp == '\n' || *cp == '\r') {
			t->pasted = 1;
			return 1;
		} else
			t->dropped = 1;
	}
	if (t->dropped)
		text_refuse(el);
	t->dropped = 0;
	return el_wgetc(el, cp);
}

/*
 * Terminals send keys and reports as escape sequences, which begin with CSI (Escape [)
 * or SS3 (Escape O). One that is not bound is read to its end all the same, so that no
 * part of it is taken for other keys.
 */
enum {
	KEYS_OTHER,	/* not in a sequence */
	KEYS_ESCAPE,
	KEYS_CSI,	/* Escape [ */
	KEYS_DIGITS,	/* CSI and digits only */
	KEYS_MORE,	/* CSI and other parameters */
	KEYS_SS3,	/* Escape O */
	KEYS_ONE,	/* one more key ends it */
	KEYS_MOUSE,	/* three more bytes, which need not be characters */
	KEYS_DONE,
	KEYS_CUT	/* by a key that cannot be in it */
};

/* how long the next key of a sequence may take after Escape, in ms */
#define	KEYS_WAIT	50

/* text_keys():
 *	Add a key; the first one begins a sequence
 */
libedit_private void
text_keys(text_keys_t *keys, wchar_t ch)
{
	if (keys->len == 0) {
		/* in vi, Escape was a command of its own before "[" or "O" */
		keys->state = ch == 033 ? KEYS_ESCAPE : ch == '[' ? KEYS_CSI :
		    ch == 'O' ? KEYS_SS3 : KEYS_OTHER;
	} else if (ch < 0x20 || ch > 0x7e) {
		if (ch == 033 && (keys->state == KEYS_ESCAPE ||
		    keys->state == KEYS_OTHER))
			keys->state = KEYS_ESCAPE;
		else
			keys->state = keys->state == KEYS_ESCAPE ||
			    keys->state == KEYS_OTHER ? KEYS_DONE : KEYS_CUT;
	} else switch (keys->state) {
	case KEYS_ESCAPE:
		keys->state = ch == '[' ? KEYS_CSI : ch == 'O' ? KEYS_SS3 :
		    KEYS_DONE;
		break;
	case KEYS_CSI:
		if (ch == 'M')
			keys->state = KEYS_MOUSE;
		else if (ch == '[')	/* function keys of the console */
			keys->state = KEYS_ONE;
		else
			keys->state = ch >= '0' && ch <= '9' ? KEYS_DIGITS :
			    ch < 0x40 ? KEYS_MORE : KEYS_DONE;
		break;
	case KEYS_DIGITS:		/* with Shift, some end in $ */
		if (ch < '0' || ch > '9')
			keys->state = ch < 0x40 && ch != '$' ? KEYS_MORE :
			    KEYS_DONE;
		break;
	case KEYS_MORE:
		if (ch >= 0x40)
			keys->state = KEYS_DONE;
		break;
	case KEYS_SS3:
		if ((ch < '0' || ch > '9') && ch != ';')
			keys->state = KEYS_DONE;
		break;
	default:
		keys->state = KEYS_DONE;
		break;
	}
	if (keys->len + 1 < sizeof(keys->chr) / sizeof(*keys->chr)) {
		keys->chr[keys->len++] = ch;
		keys->chr[keys->len] = '\0';
	}
}

/* text_keys_end():
 *	Read a sequence to its end. A key that cuts it is pushed back.
 */
static int
text_keys_end(EditLine *el, wchar_t *cp, text_keys_t *keys)
{
	wchar_t again[2] = { '\0', '\0' };
	int num, i;

	while (keys->state < KEYS_MOUSE) {
		if ((num = el_wgetc(el, cp)) != 1)
			return num;
		text_keys(keys, *cp);
	}
	if (keys->state == KEYS_MOUSE)
		for (i = 0; i < 3; i++)
			if ((num = read_byte(el, cp)) != 1)
				return num;
	if (keys->state == KEYS_CUT) {
		again[0] = *cp;
		el_wpush(el, again);
	}
	return 1;
}

/* text_reports():
 *	Whether a sequence is a report of the terminal and no key: the position of mouse
 *	or cursor, the window's focus, the end of a paste that is over already
 */
static int
text_reports(const text_keys_t *keys)
{
	const wchar_t *p = keys->chr + (keys->chr[0] == 033);

	return keys->state == KEYS_MOUSE || (keys->state == KEYS_DONE &&
	    (wcscmp(p, L"[I") == 0 || wcscmp(p, L"[O") == 0 ||
	     wcscmp(p, L"[201~") == 0 || wcsncmp(p, L"[<", (size_t)2) == 0 ||
	     (p[0] == '[' && wcschr(p, L';') != NULL &&
	      keys->chr[keys->len - 1] == 'R')));
}

/* text_is_paste():
 *	Whether a sequence begins a bracketed paste
 */
static int
text_is_paste(const text_keys_t *keys)
{
	return keys->state == KEYS_DONE &&
	    wcscmp(keys->chr + (keys->chr[0] == 033), L"[200~") == 0;
}

/* text_leave_insert():
 *	Escape, or a sequence, enters vi's command mode: remember the insert mode
 */
libedit_private void
text_leave_insert(EditLine *el)
{
	el->el_text.inserting = el->el_map.current == el->el_map.key;
	el->el_text.inputmode = el->el_state.inputmode;
	el->el_text.cursor = el->el_line.cursor - el->el_line.buffer;
}

/* text_back_to_insert():
 *	It was a sequence that is not bound: back to the insert mode
 */
static void
text_back_to_insert(EditLine *el, const text_keys_t *keys)
{
	if (keys->chr[0] == 033 || !el->el_text.inserting ||
	    el->el_state.lastcmd != VI_COMMAND_MODE)
		return;
	el->el_map.current = el->el_map.key;
	el->el_state.inputmode = el->el_text.inputmode;
	el->el_line.cursor = el->el_line.buffer + el->el_text.cursor;
	/* "." is not to do it again */
	if (el->el_chared.c_redo.pos > el->el_chared.c_redo.buf &&
	    el->el_chared.c_redo.pos[-1] == 033)
		el->el_chared.c_redo.pos--;
	re_refresh_cursor(el);
}

/* text_rest():
 *	Read the rest of a sequence that is not bound, *cp being its last key so far, for
 *	keymacro_get()
 */
libedit_private int
text_rest(EditLine *el, wchar_t *cp, text_keys_t *keys, keymacro_value_t *val)
{
	/* 1: a lead-in key that no bound sequence begins with */
	if (keys->len > 1 && text_keys_end(el, cp, keys) != 1)
		return XK_NOD;
	text_back_to_insert(el, keys);
	if (text_reports(keys)) {
		val->str = NULL;
		return XK_STR;
	}
	val->cmd = ED_UNASSIGNED;
	if (text_is_paste(keys)) {
		text_begin_paste(el);
		val->cmd = ED_IGNORE;	/* which drops a count before it */
	}
	return XK_CMD;
}

/* text_follows():
 *	Whether another key comes within KEYS_WAIT
 */
static int
text_follows(EditLine *el)
{
	struct pollfd in = { el->el_infd, POLLIN, 0 };

	if (read_pushed(el) || position_has_key())
		return 1;
	if (!sig_flushes(el))
		return 0;
	terminal__flush(el);
	return poll(&in, (nfds_t)1, KEYS_WAIT) == 1;
}

/* text_key():
 *	el_wgetc() where Escape is a key. If a sequence begins with it, that is in keys;
 *	else keys is empty.
 */
libedit_private int
text_key(EditLine *el, wchar_t *cp, text_keys_t *keys)
{
	wchar_t again[2] = { '\0', '\0' };
	int num;

	for (;;) {
		keys->len = 0;
		num = el_wgetc(el, cp);
		if (num != 1 || *cp != 033 || !text_follows(el))
			return num;
		text_keys(keys, *cp);
		if ((num = el_wgetc(el, cp)) != 1)
			return num;
		if (*cp != '[' && *cp != 'O') {
			again[0] = *cp;
			el_wpush(el, again);
			keys->len = 0;
			*cp = 033;
			return 1;
		}
		text_keys(keys, *cp);
		if ((num = text_keys_end(el, cp, keys)) != 1)
			return num;
		if (text_is_paste(keys))
			text_begin_paste(el);
		else if (keys->state == KEYS_CUT)
			text_refuse(el);
		else if (!text_reports(keys)) {
			*cp = 033;
			return 1;
		}
	}
}

/* text_bind():
 *	Bind the usual sequences of some keys, whatever the terminal's description says
 */
libedit_private void
text_bind(EditLine *el)
{
	static const struct {
		const wchar_t	*keys;
		int		 cmd;
	} usual[] = {
		{ L"\033[1~", ED_MOVE_TO_BEG }, { L"\033[7~", ED_MOVE_TO_BEG },
		{ L"\033[4~", ED_MOVE_TO_END }, { L"\033[8~", ED_MOVE_TO_END },
		{ L"\033[3~", ED_DELETE_NEXT_CHAR },
		{ L"\033[2~", ED_QUOTED_INSERT },
		/* with Control */
		{ L"\033[1;5C", EM_NEXT_WORD }, { L"\033[1;5D", ED_PREV_WORD },
		{ L"\033[5C", EM_NEXT_WORD }, { L"\033[5D", ED_PREV_WORD },
		{ L"\033Oc", EM_NEXT_WORD }, { L"\033Od", ED_PREV_WORD },
		{ L"\033O5C", EM_NEXT_WORD }, { L"\033O5D", ED_PREV_WORD },
		/* with Alt */
		{ L"\033[1;3C", EM_NEXT_WORD }, { L"\033[1;3D", ED_PREV_WORD },
		{ L"\033[1;9C", EM_NEXT_WORD }, { L"\033[1;9D", ED_PREV_WORD },
		{ L"\033\033[C", EM_NEXT_WORD }, { L"\033\033[D", ED_PREV_WORD },
		{ L"\033\033OC", EM_NEXT_WORD }, { L"\033\033OD", ED_PREV_WORD },
	};
	size_t i;

	for (i = 0; i < sizeof(usual) / sizeof(*usual); i++) {
		keymacro_add(el, usual[i].keys,
		    keymacro_map_cmd(el, usual[i].cmd), XK_CMD);
		if (el->el_map.type == MAP_VI && usual[i].keys[1] != 033)
			keymacro_add(el, usual[i].keys + 1,
			    keymacro_map_cmd(el, usual[i].cmd), XK_CMD);
	}
}

/*
 * A character of the line is a base with the combining marks after it: the cursor is
 * on bases, and both are deleted and moved together. Marks at the start of the line are
 * one character, too.
 */

/* text_after():
 *	The position so many characters after p
 */
libedit_private wchar_t *
text_after(EditLine *el, wchar_t *p, int count)
{
	wchar_t *end = el->el_line.lastchar;

	while (count-- > 0 && p < end)
		for (p++; p < end && text_is_mark(*p); p++)
			continue;
	return p;
}

/* text_before():
 *	The position so many characters before p
 */
libedit_private wchar_t *
text_before(EditLine *el, wchar_t *p, int count)
{
	while (count-- > 0 && p > el->el_line.buffer)
		p = text_base(p - 1, el->el_line.buffer);
	return p;
}

/* text_base():
 *	The start of the character that p is in
 */
libedit_private wchar_t *
text_base(wchar_t *p, const wchar_t *low)
{
	while (p > low && text_is_mark(*p))
		p--;
	return p;
}

/* text_overwrite():
 *	Replace the character at the cursor by ch
 */
libedit_private void
text_overwrite(EditLine *el, wchar_t ch)
{
	wchar_t *next = text_after(el, el->el_line.cursor, 1);

	*el->el_line.cursor++ = ch;
	if (next == el->el_line.cursor)
		return;
	(void)memmove(el->el_line.cursor, next, sizeof(*next) *
	    (size_t)(el->el_line.lastchar - next));
	el->el_line.lastchar -= next - el->el_line.cursor;
}

/* text_settle():
 *	A command may have left the cursor on a mark, whose base was inserted just before
 *	it or which was searched for: move it to the next base
 */
libedit_private void
text_settle(EditLine *el)
{
	if (el->el_line.cursor == el->el_line.buffer)
		return;
	while (el->el_line.cursor < el->el_line.lastchar &&
	    text_is_mark(*el->el_line.cursor))
		el->el_line.cursor++;
	re_refresh_cursor(el);
}

static void
text_reverse(wchar_t *from, wchar_t *to)
{
	wchar_t ch;

	while (from < --to) {
		ch = *from;
		*from++ = *to;
		*to = ch;
	}
}

/* text_swap():
 *	Exchange what is from first to mid with what is from there to last
 */
libedit_private void
text_swap(wchar_t *first, wchar_t *mid, wchar_t *last)
{
	text_reverse(first, mid);
	text_reverse(mid, last);
	text_reverse(first, last);
}

/* text_case():
 *	A letter in upper or lower case, if the locale can encode that
 */
libedit_private wchar_t
text_case(wchar_t ch, int upper)
{
	wchar_t other = (wchar_t)(upper ? towupper((wint_t)ch) :
	    towlower((wint_t)ch));

	return other <= 0x7f || (!text_is_mark(ch) && text_stands(other)) ?
	    other : ch;
}
