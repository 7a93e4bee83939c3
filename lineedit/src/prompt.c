/*
 * prompt.c: the prompts that a program has set.
 *
 * The prompt at the right margin can be set and read, but is not drawn: no user of this
 * editor has one.
 */
#include "config.h"

#include <stdlib.h>
#include <string.h>
#include <wchar.h>

#include "el.h"

static wchar_t *
prompt_default(EditLine *el __attribute__((__unused__)))
{
	static wchar_t text[] = L"? ";

	return text;
}

static wchar_t *
prompt_default_right(EditLine *el __attribute__((__unused__)))
{
	static wchar_t text[] = L"";

	return text;
}

static int
prompt_is_left(int op)
{
	return op == EL_PROMPT || op == EL_PROMPT_ESC;
}

libedit_private int
prompt_init(EditLine *el)
{
	(void)prompt_set(el, NULL, '\0', EL_PROMPT, 1);
	(void)prompt_set(el, NULL, '\0', EL_RPROMPT, 1);
	return 0;
}

libedit_private void
prompt_end(EditLine *el __attribute__((__unused__)))
{
}

/* prompt_set():
 *	Set the function that returns the prompt, as wide characters or not; NULL for the
 *	default
 */
libedit_private int
prompt_set(EditLine *el, el_pfunc_t function, wchar_t ignore, int op, int wide)
{
	el_prompt_t *p = prompt_is_left(op) ? &el->el_prompt : &el->el_rprompt;

	if (function == NULL) {
		function = prompt_is_left(op) ? prompt_default : prompt_default_right;
		wide = 1;
	}
	p->p_func = function;
	p->p_ignore = ignore;
	p->p_wide = wide;
	return 0;
}

libedit_private int
prompt_get(EditLine *el, el_pfunc_t *function, wchar_t *ignore, int op)
{
	el_prompt_t *p = prompt_is_left(op) ? &el->el_prompt : &el->el_rprompt;

	if (function == NULL)
		return -1;
	*function = p->p_func;
	if (ignore != NULL)
		*ignore = p->p_ignore;
	return 0;
}

/* prompt_decode():
 *	Decode a prompt, with '?' for each byte that the locale cannot decode
 */
static const wchar_t *
prompt_decode(EditLine *el, const char *prompt)
{
	const wchar_t *text = ct_decode_string(prompt, &el->el_scratch);
	mbstate_t state;
	char *copy, *s;
	size_t n;

	if (text != NULL || prompt == NULL || (copy = strdup(prompt)) == NULL)
		return text;
	for (s = copy; *s != '\0'; s += n) {
		memset(&state, 0, sizeof(state));
		n = mbrlen(s, strlen(s), &state);
		if (n == (size_t)-1 || n == (size_t)-2) {
			*s = '?';
			n = 1;
		}
	}
	text = ct_decode_string(copy, &el->el_scratch);
	el_free(copy);
	return text;
}

/* prompt_text():
 *	The current prompt, borrowed until another text is decoded, and the delimiter of
 *	its invisible parts
 */
libedit_private const wchar_t *
prompt_text(EditLine *el, wchar_t *ignore)
{
	el_prompt_t *p = &el->el_prompt;
	const wchar_t *text = (*p->p_func)(el);

	if (!p->p_wide)
		text = prompt_decode(el, (const char *)text);
	*ignore = p->p_ignore;
	return text != NULL ? text : L"";
}
