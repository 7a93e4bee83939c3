/*
 * text.c: from the bytes that are typed to the characters of the line.
 *
 * The character reader hands over single bytes with their sign, so that those above
 * 0x7f are negative. Where a key is read for editing they are joined to characters
 * here, by the locale's rules; what makes no character is refused with a beep, and so
 * nothing gets into a line that could not be handed out again. Bytes of a character
 * are only kept while the next one is waited for: a read that is left in between
 * leaves nothing to the next.
 */
#include "config.h"

#include <langinfo.h>
#include <limits.h>
#include <stdlib.h>
#include <string.h>
#include <wchar.h>
#include <wctype.h>

#include "el.h"
#include "fcns.h"
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
 *	What was typed is no text
 */
static void
text_refuse(EditLine *el)
{
	terminal_beep(el);
	if (!sig_flushes(el))
		terminal__flush(el);
}

/* text_stands():
 *	Whether a character may stand in a line: it has bytes in this locale. The C
 *	library has some for what is beyond Unicode, too.
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
 *	Join the byte at *cp with those that it announces. When they make no
 *	character, *cp becomes the key behind them.
 */
static int
text_join_utf8(EditLine *el, wchar_t *cp)
{
	/* no shorter sequence has these */
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
		if (*cp >= 0 || (*cp & 0xc0) != 0x80)
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
 *	The same in any other locale. A byte that is no character there still is a
 *	key when the user has bound it.
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
 *	Join the byte at *cp, as the reader has handed it over, with the next ones to
 *	a character, or to the key behind what is none. Returns what the reader did.
 */
libedit_private int
text_join(EditLine *el, wchar_t *cp)
{
	int num = 1;

	while (num == 1 && *cp < 0)
		num = text_is_utf8() ? text_join_utf8(el, cp) :
		    text_join_bytes(el, cp);
	return num;
}

/* text_command():
 *	What a character stands for as a key. Those that the map has no room for are
 *	text wherever keys are.
 */
libedit_private el_action_t
text_command(EditLine *el, wchar_t ch)
{
	if ((unsigned int)ch < N_KEYS)
		return el->el_map.current[ch];
	return el->el_map.current == el->el_map.alt ? ED_UNASSIGNED : ED_INSERT;
}

/*
 * A character of the line is a base with the marks behind it: the cursor stands on
 * bases, and what is deleted or moved goes whole. Marks that nothing is before are
 * one character, too.
 */

/* text_after():
 *	The place so many characters behind p
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
 *	The place so many characters before p
 */
libedit_private wchar_t *
text_before(EditLine *el, wchar_t *p, int count)
{
	while (count-- > 0 && p > el->el_line.buffer)
		p = text_base(p - 1, el->el_line.buffer);
	return p;
}

/* text_base():
 *	Where the character begins that p is in
 */
libedit_private wchar_t *
text_base(wchar_t *p, const wchar_t *low)
{
	while (p > low && text_is_mark(*p))
		p--;
	return p;
}

/* text_overwrite():
 *	Put ch in the place of the character at the cursor
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
 *	A command has left the cursor on a mark: its base came, or it was looked for
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
 *	A letter in upper or lower case, where it has that in this locale
 */
libedit_private wchar_t
text_case(wchar_t ch, int upper)
{
	wchar_t other = (wchar_t)(upper ? towupper((wint_t)ch) :
	    towlower((wint_t)ch));

	return other <= 0x7f || (!text_is_mark(ch) && text_stands(other)) ?
	    other : ch;
}
