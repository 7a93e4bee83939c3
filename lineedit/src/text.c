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
