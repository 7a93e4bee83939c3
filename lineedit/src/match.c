/*
 * match.c: what a search looks for.
 *
 * What is typed into a search is a regular expression. Mostly it is plain: literal
 * characters, with what the search puts around them. Such a pattern is searched for
 * literally, and in the history in the stored bytes, if the locale allows that. Any other
 * one is compiled once for all lines of the history, and a line is encoded once for all
 * positions in it. One that may need unlimited time or memory is never compiled: it
 * matches literally.
 */
#include "config.h"

#include <langinfo.h>
#include <regex.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include "el.h"
#include "match.h"

/* endless_pattern():
 *	Return if a pattern has back references or counts, with which compiling
 *	and matching may need unlimited time or memory
 */
static int
endless_pattern(const wchar_t *pat)
{

	while ((pat = wcschr(pat, L'\\')) != NULL && *++pat != '\0')
		if (wcschr(L"{123456789", *pat++) != NULL)
			return 1;
	return 0;
}

/* plain_part():
 *	Find what is between `before' and ".*" in a pattern, or all of it without
 *	these. Returns its length if it is literal, else 0.
 */
static size_t
plain_part(const wchar_t *pat, const wchar_t *before, const wchar_t **part)
{
	const wchar_t *cp, *end = pat + wcslen(pat);
	size_t len = wcslen(before);

	if ((size_t)(end - pat) >= len + 2 && wcsncmp(pat, before, len) == 0 &&
	    wcscmp(end - 2, L".*") == 0) {
		pat += len;
		end -= 2;
	}
	for (cp = pat; cp < end; cp++)
		if (wcschr(L".[\\*^$", *cp) != NULL || ct_enc_width(*cp) == 0)
			return 0;
	*part = pat;
	return (size_t)(end - pat);
}

/* plain_match():
 *	Return if string contains these characters
 */
static int
plain_match(const wchar_t *str, const wchar_t *part, size_t len)
{

	for (; (str = wcschr(str, *part)) != NULL; str++)
		if (wcsncmp(str, part, len) == 0)
			return 1;
	return 0;
}

/* el_match():
 *	Return if string matches pattern
 */
libedit_private int
el_match(const wchar_t *str, const wchar_t *pat)
{
	static ct_buffer_t conv;
	static regex_t re;
	static char *compiled;	/* the pattern that re is made from, or NULL */
	const wchar_t *part;
	const char *cpat, *text;
	size_t len;

	if (wcsstr(str, pat) != NULL)
		return 1;
	if ((len = plain_part(pat, L".*", &part)) != 0)
		return plain_match(str, part, len);
	if (endless_pattern(pat))
		return 0;
	if ((cpat = ct_encode_string(pat, &conv)) == NULL)
		return 0;
	if (compiled == NULL || strcmp(compiled, cpat) != 0) {
		if (compiled != NULL)
			regfree(&re);
		free(compiled);
		compiled = strdup(cpat);
		if (compiled == NULL || regcomp(&re, compiled, 0) != 0) {
			free(compiled);
			compiled = NULL;
			return 0;
		}
	}
	text = ct_encode_string(str, &conv);
	return text != NULL && regexec(&re, text, (size_t)0, NULL, 0) == 0;
}

/*
 * The search for a pattern at each position of a line: what el_match() would return
 * for the rest of the line, with pattern and line prepared once.
 */
struct look {
	const wchar_t	*literal;	/* the last literal match */
	const wchar_t	*plain;		/* the plain part of the pattern */
	size_t		 plain_len;	/* 0 if it is not plain */
	const char	*text;		/* the line, encoded */
	size_t		 len;
	size_t		 at;		/* the position in text */
	int		 compiled;
	regex_t		 re;
};

/* look_begin():
 *	Begin to look for pat at cp
 */
static void
look_begin(struct look *look, const wchar_t *line, const wchar_t *cp,
    const wchar_t *pat)
{
	static ct_buffer_t pconv, conv;
	const wchar_t *p;
	const char *cpat;

	look->literal = NULL;
	for (p = wcsstr(line, pat); p != NULL; p = wcsstr(p + 1, pat))
		look->literal = p;
	look->at = 0;
	look->compiled = 0;
	look->plain_len = plain_part(pat, L"^", &look->plain);
	if (look->plain_len != 0)
		return;
	cpat = ct_encode_string(pat, &pconv);
	look->text = ct_encode_string(line, &conv);
	look->len = look->text == NULL ? 0 : strlen(look->text);
	for (p = line; p < cp; p++)
		look->at += ct_enc_width(*p);
	look->compiled = cpat != NULL && look->text != NULL &&
	    !endless_pattern(pat) && regcomp(&look->re, cpat, 0) == 0;
}

/* look_at():
 *	Return if the pattern matches at cp, which is look->at
 */
static int
look_at(struct look *look, const wchar_t *cp)
{
	regmatch_t rest;

	if (look->literal != NULL && cp <= look->literal)
		return 1;
	if (look->plain_len != 0)
		return wcsncmp(cp, look->plain, look->plain_len) == 0;
	if (!look->compiled || look->at > look->len)
		return 0;
	rest.rm_so = 0;
	rest.rm_eo = (regoff_t)(look->len - look->at);
	return regexec(&look->re, look->text + look->at, (size_t)0, &rest,
	    REG_STARTEND) == 0;
}

libedit_private wchar_t *
match_along(const wchar_t *line, wchar_t *cp, const wchar_t *pat, int back)
{
	struct look look;
	int hit = 0;

	look_begin(&look, line, cp, pat);
	if (back) {
		while (!(hit = look_at(&look, cp)) && cp > line)
			look.at -= ct_enc_width(*--cp);
	} else {
		for (; *cp != '\0' && !(hit = look_at(&look, cp)); cp++)
			look.at += ct_enc_width(*cp);
	}
	if (look.compiled)
		regfree(&look.re);
	return hit ? cp : NULL;
}

/* 16 bytes, unaligned */
typedef unsigned char bytes_t __attribute__((__vector_size__(16)));

/* at_places():
 *	Which of the 16 bytes from s on are this one
 */
static inline bytes_t
at_places(const char *s, char byte)
{
	bytes_t b;

	(void)memcpy(&b, s, sizeof(b));
	return (bytes_t)(b == (unsigned char)byte);
}

/* begins_at():
 *	Whether the pattern begins at one of so many positions from s on
 */
static int
begins_at(const char *s, size_t places, const char *pat, size_t n)
{
	size_t i;

	for (i = 0; i < places; i++)
		if (s[i] == pat[0] && s[i + n - 1] == pat[n - 1] &&
		    memcmp(s + i, pat, n) == 0)
			return 1;
	return 0;
}

/* has_bytes():
 *	Whether the pattern, of n bytes and not empty, is in the string: strstr()
 *	for many short strings. Compares the pattern's first, second and last
 *	byte at 16 positions at a time.
 */
static int
has_bytes(const char *s, const char *pat, size_t n)
{
	size_t len = strlen(s), second = n > 1, places, at;
	uint64_t hit[2];
	bytes_t hits;

	if (n > len)
		return 0;
	places = len - n + 1;
	if (places < sizeof(bytes_t))
		return begins_at(s, places, pat, n);
	for (at = 0; at < places; at += sizeof(bytes_t)) {
		if (at > places - sizeof(bytes_t))
			at = places - sizeof(bytes_t);
		hits = at_places(s + at, pat[0]) &
		    at_places(s + at + second, pat[second]) &
		    at_places(s + at + n - 1, pat[n - 1]);
		(void)memcpy(hit, &hits, sizeof(hit));
		if ((hit[0] | hit[1]) != 0 &&
		    begins_at(s + at, sizeof(bytes_t), pat, n))
			return 1;
	}
	return 0;
}

/* match_plain():
 *	The pattern, encoded like the lines of the history, if it is plain; else
 *	NULL. Valid until the next call.
 */
libedit_private const char *
match_plain(EditLine *el)
{
	static ct_buffer_t conv;
	const wchar_t *part;
	wchar_t *from, last;
	size_t len;
	const char *pat;

	/* an incremental search puts these around what is typed */
	if (!(el->el_flags & NARROW_HISTORY) ||
	    (MB_CUR_MAX > 1 && strcmp(nl_langinfo(CODESET), "UTF-8") != 0) ||
	    (len = plain_part(el->el_search.patbuf, L".*", &part)) == 0)
		return NULL;
	from = el->el_search.patbuf + (part - el->el_search.patbuf);
	last = from[len];
	from[len] = '\0';
	pat = ct_encode_string(from, &conv);
	from[len] = last;
	return pat;
}

/* match_step():
 *	Whether a line of the history differs from the current line and matches
 *	the pattern. A plain pattern is searched for in its bytes first.
 */
libedit_private int
match_step(EditLine *el, const void *step, const char *plain)
{
	const wchar_t *hp;
	size_t len = (size_t)(el->el_line.lastchar - el->el_line.buffer);

	if (plain != NULL && !has_bytes(step, plain, strlen(plain)))
		return 0;
	if ((hp = hist_text(el, step)) == NULL)
		return 0;
	return (wcsncmp(hp, el->el_line.buffer, len) || hp[len]) &&
	    c_hmatch(el, hp);
}
