/*
 * ahead.c: typeahead, that is, what is typed between two reads.
 *
 * Between two reads the terminal has the user's settings, and the tty echoes what is
 * typed at the cursor; the next read shows it again after the prompt. So the echo is
 * cleared before the prompt, if the row has nothing else: if the last line ended here,
 * in the first column, and the process has written nothing since. In all other cases
 * nothing is cleared: how many columns the echo took, and where a program's own text
 * is among them, cannot be known.
 *
 * And the tty delivers a paste in pieces. At the end of a line that was typed ahead
 * itself, the next piece gets a moment to arrive before the settings are restored, so
 * that it is not echoed.
 */
#include "config.h"

#include <sys/ioctl.h>
#include <sys/stat.h>
#include <fcntl.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>
#include <unistd.h>

#include "el.h"
#include "ahead.h"
#include "position.h"

static int ahead_waited;	/* bytes in the tty's queue when the read began */
static int ahead_left;		/* bytes there at the end of the last one, unechoed */
static int ahead_dry = -1;	/* so many, and no more came within the moment */
static int ahead_fd = -1;	/* /proc/self/io */
static pid_t ahead_process;	/* which process that is */
static long long ahead_written = -1;	/* by the process until then; -1: unknown */

/* ahead_account():
 *	Open /proc/self/io, which counts what this process writes. Nothing is opened while
 *	a line is read.
 */
static void
ahead_account(void)
{
	int fd;

	if (ahead_process == getpid())
		return;
	if (ahead_fd >= 0)
		(void)close(ahead_fd);
	ahead_process = getpid();
	ahead_fd = -1;
	if ((fd = open("/proc/self/io", O_RDONLY | O_CLOEXEC)) == -1)
		return;
	/* 0 to 2 are the program's, also if they are closed */
	ahead_fd = fcntl(fd, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
	(void)close(fd);
}

/* ahead_output():
 *	The bytes that this process, and those of its children that have ended, have
 *	written anywhere; -1 where that is unknown
 */
static long long
ahead_output(void)
{
	char text[256], *found;
	ssize_t n;

	if (ahead_process != getpid() || ahead_fd < 0 ||
	    (n = pread(ahead_fd, text, sizeof(text) - 1, 0)) <= 0)
		return -1;
	text[n] = '\0';
	found = strstr(text, "wchar: ");
	return found == NULL ? -1 : atoll(found + 7);
}

/* ahead_reset():
 *	A new instance begins: another user may be there, on another terminal
 */
libedit_private void
ahead_reset(void)
{
	ahead_waited = ahead_left = 0;
	ahead_dry = -1;
	ahead_written = -1;
	ahead_account();
	if (sig_reader() == NULL)	/* else they are keys of the current read */
		position_forget();
}

/* ahead_begin():
 *	Clear the echo of what was typed before this read
 */
libedit_private void
ahead_begin(EditLine *el)
{
	long long written = ahead_written;
	struct stat in, out;
	int echoed = 0;

	ahead_waited = 0;
	ahead_written = -1;	/* until this read is over */
	if ((el->el_tty.t_or.c_lflag & ECHO) == 0)
		return;
	(void)ioctl(el->el_infd, FIONREAD, &echoed);
	ahead_waited = echoed;
	echoed -= ahead_left;
	ahead_left = 0;
	if (echoed > 0 && written != -1 && written == ahead_output() &&
	    fstat(el->el_infd, &in) == 0 && fstat(el->el_outfd, &out) == 0 &&
	    in.st_rdev == out.st_rdev)
		re_clear_row(el);
}

/* ahead_end():
 *	A line of so many characters has been read, or 0 or less for none
 */
libedit_private void
ahead_end(EditLine *el, int num)
{
	static const struct timespec moment = { 0, 50000 };
	int i, before, waiting = 0;

	if ((el->el_tty.t_or.c_lflag & ECHO) == 0)
		return;
	if (num > 0)
		ahead_written = ahead_output();
	if (!sig_hurries() && num > 1)
		return;
	(void)ioctl(el->el_infd, FIONREAD, &waiting);
	if (waiting > ahead_dry)
		ahead_dry = -1;
	if (waiting <= 128 && ahead_dry == -1 && ahead_waited > 0) {
		before = waiting;
		for (i = 0; i < 5 && waiting == before; i++) {
			(void)nanosleep(&moment, NULL);
			(void)ioctl(el->el_infd, FIONREAD, &waiting);
		}
		if (waiting == before)
			ahead_dry = waiting;
	}
	ahead_left = waiting;
}
