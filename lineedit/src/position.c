/*
 * position.c: asking the terminal where its cursor is.
 *
 * The answer arrives among the keys. Those that come before it are kept here, and given
 * to the character reader in their order (rl_select, rl_read). A terminal that has not
 * answered in time is not asked again; its late answer is ignored as a report.
 */
#include "config.h"

#include <sys/select.h>
#include <string.h>
#include <time.h>
#include <unistd.h>

#include "el.h"
#include "position.h"

/* how long an answer is waited for, in ms */
#define	PATIENCE	300

static char kept[256];		/* keys that came with the answer */
libedit_private size_t position_first, position_end;

/* position_find():
 *	The first answer in the text: its length, and the column from 0; or 0
 */
static size_t
position_find(const char *text, size_t len, size_t *start, int *column)
{
	size_t i, at;
	int n, numbers[2];

	for (i = 0; i + 1 < len; i++) {
		if (text[i] != '\033' || text[i + 1] != '[')
			continue;
		for (at = i + 2, n = 0; n < 2; n++) {
			numbers[n] = 0;
			for (; at < len && text[at] >= '0' && text[at] <= '9' &&
			    numbers[n] < 100000; at++)
				numbers[n] = numbers[n] * 10 + text[at] - '0';
			if (at >= len || text[at++] != (n == 0 ? ';' : 'R'))
				break;
		}
		if (n == 2 && numbers[0] > 0 && numbers[1] > 0) {
			*start = i;
			*column = numbers[1] - 1;
			return at - i;
		}
	}
	return 0;
}

/* position_wait():
 *	Whether something can be read within PATIENCE of start
 */
static int
position_wait(int fd, const struct timespec *start)
{
	struct timespec now;
	struct timeval left;
	fd_set set;
	long gone;

	if (fd < 0 || fd >= FD_SETSIZE)
		return 0;
	(void)clock_gettime(CLOCK_MONOTONIC, &now);
	gone = (long)(now.tv_sec - start->tv_sec) * 1000 +
	    (now.tv_nsec - start->tv_nsec) / 1000000;
	if (gone >= PATIENCE)
		return 0;
	left.tv_sec = 0;
	left.tv_usec = (PATIENCE - gone) * 1000;
	FD_ZERO(&set);
	FD_SET(fd, &set);
	return select(fd + 1, &set, NULL, NULL, &left) > 0;
}

/* position_column():
 *	Ask for the cursor's column, from 0; -1 without an answer, or when there is no
 *	room for the keys that come before it. An impossible answer ends the wait, too.
 */
libedit_private int
position_column(EditLine *el, int columns)
{
	struct timespec start;
	size_t first, len;
	ssize_t n;
	int column;

	if (position_first == position_end)
		position_first = position_end = 0;
	(void)fputs("\033[6n", el->el_outfile);
	terminal__flush(el);
	(void)clock_gettime(CLOCK_MONOTONIC, &start);
	while (position_end < sizeof(kept) && position_wait(el->el_infd, &start)) {
		n = read(el->el_infd, kept + position_end, sizeof(kept) - position_end);
		if (n <= 0)
			break;
		position_end += (size_t)n;
		len = position_find(kept + position_first, position_end - position_first, &first,
		    &column);
		if (len > 0) {
			first += position_first;
			memmove(kept + first, kept + first + len, position_end - first - len);
			position_end -= len;
			return column <= columns ? column : -1;
		}
	}
	return -1;
}

/* position_key():
 *	Read from the kept keys
 */
libedit_private ssize_t
position_key(void *buf, size_t len)
{
	if (len > position_end - position_first)
		len = position_end - position_first;
	memcpy(buf, kept + position_first, len);
	position_first += len;
	return (ssize_t)len;
}

/* position_forget():
 *	Drop the kept keys: they were another user's
 */
libedit_private void
position_forget(void)
{
	position_first = position_end = 0;
}
