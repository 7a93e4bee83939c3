/*
 * sig.c: signals while a line is read.
 *
 * While readline() runs, one handler, ours, is installed for seven signals. It never
 * nests (all seven are in its mask), and it never jumps out of an operation: SIGINT
 * and SIGTSTP end a read only while the reader waits, which it says by raising
 * rl_signal_level. At any other time they set a note, which the reader checks before
 * it waits again. A signal that arrives on another thread is sent on to the one that
 * reads. The handler neither allocates nor draws; the reader handles a resize.
 *
 * rl_signal() is signal() for functions that jump out of the read. Such a function
 * is never installed in the kernel: it runs only on the reading thread, and only when
 * no operation is half done.
 *
 * Other threads may use the editor while one of them reads. The reader then calls
 * rl_hold() before readline() and rl_let_go() after it: it holds the editor's lock
 * except while it waits in rl_select(), and in callbacks that call rl_let_go(). The
 * others take the lock with rl_claim().
 *
 * All this belongs to the process that reads. In a child that is forked meanwhile
 * there is no read: it gets the dispositions from before the read, and never touches
 * the terminal. If the reading thread forked, which is in the read in the child, too,
 * the read ends there as at the end of the input.
 */
#include "config.h"

#include <sys/select.h>
#include <errno.h>
#include <pthread.h>
#include <setjmp.h>
#include <stdio_ext.h>
#include <stdlib.h>
#include <string.h>
#include <termios.h>
#include <time.h>
#include <ucontext.h>
#include <unistd.h>

#include "el.h"
#include "position.h"
#include "read.h"
#include "editline/readline.h"

#define	SIG_COUNT	7

/* the first two end a read, the next three the process, the last two redraw */
enum { AT_INT, AT_TSTP, AT_QUIT, AT_HUP, AT_TERM, AT_CONT, AT_WINCH };

static struct {
	int		 signo;
	volatile sig_atomic_t note;	/* it came, and is to be handled later */
	volatile sig_atomic_t guarded;	/* `next' came from rl_signal() */
	volatile sig_atomic_t taken;	/* `before' is to be restored */
	struct sigaction before;	/* what ours replaced in the kernel */
	struct sigaction next;		/* what ours calls */
	siginfo_t	 info;		/* of the note */
} sigs[SIG_COUNT] = {
	[AT_INT] = { .signo = SIGINT },
	[AT_TSTP] = { .signo = SIGTSTP },
	[AT_QUIT] = { .signo = SIGQUIT },
	[AT_HUP] = { .signo = SIGHUP },
	[AT_TERM] = { .signo = SIGTERM },
	[AT_CONT] = { .signo = SIGCONT },
	[AT_WINCH] = { .signo = SIGWINCH },
};

/*
 * 0: no signal may end the read now. 1: SIGINT and SIGTSTP may. 2: the same, and
 * rl_select() waits, which any note must end.
 */
volatile sig_atomic_t rl_signal_level = 0;

static EditLine *volatile sig_el;	/* the instance that reads, or NULL */
static volatile pthread_t sig_thread;	/* where the jump may be made */
static volatile sig_atomic_t sig_noted;	/* some note is set */
static volatile sig_atomic_t sig_again;	/* the read goes on: raw mode, redraw */
static volatile sig_atomic_t sig_taking;	/* dispositions are being read */
static volatile sig_atomic_t sig_left;	/* a guarded function has jumped */
static char *volatile sig_late;		/* a line that a jump may still abandon */
static volatile pid_t sig_pid;	/* the process that may read; 0 before the first */
static EditLine *volatile sig_orphan;	/* reads in the process that forked this one */

/*
 * The editor's lock, recursive. A single key releases and takes it again, nearly always
 * with nobody waiting: that is two changes of `taken'; mutex and condition are only for
 * threads that wait.
 */
static struct {
	int		 taken;		/* atomic, as is the next */
	int		 waiting;	/* number of threads */
	pthread_t	 owner;		/* atomic; 0: none */
	int		 again;		/* depth beyond the first */
	pthread_mutex_t	 mutex;
	pthread_cond_t	 given_up;
} sig_lock = { .mutex = PTHREAD_MUTEX_INITIALIZER, .given_up = PTHREAD_COND_INITIALIZER };

static volatile sig_atomic_t sig_held;	/* the reader has the lock */
static volatile sig_atomic_t sig_ending;	/* the process ends */
static pthread_key_t sig_key;		/* of the reader: see sig_thread_ended() */

/*
 * Where a handler jumps to that has set a note while rl_select() waits: before the
 * wait. If it ran between the check of the notes and the wait, returning would leave
 * the note until the next key.
 */
static sigjmp_buf sig_back;

static volatile sig_atomic_t sig_waits;	/* this read waits in rl_select() */
static int sig_hurry;		/* keys come faster than they are read */

/* a wait that ends sooner than this, in ns, did not block */
#define	SIG_HURRY	4000

static void	sig_handler(int, siginfo_t *, void *);
static void	sig_pass(int, siginfo_t *, void *);
static void	sig_tty(EditLine *);
static void	sig_give_back(void);

static int
sig_index(int signo)
{
	int i;

	for (i = 0; i < SIG_COUNT - 1; i++)
		if (sigs[i].signo == signo)
			break;
	return i;
}

static int
sig_is_ours(const struct sigaction *sa)
{
	return (sa->sa_flags & SA_SIGINFO) && sa->sa_sigaction == sig_handler;
}

/* sig_install():
 *	Install our handler; old gets what it replaces
 */
static int
sig_install(int i, struct sigaction *old)
{
	static struct sigaction ours;	/* made once, the same ever after */
	int n;

	if (ours.sa_sigaction == NULL) {
		sigemptyset(&ours.sa_mask);
		for (n = 0; n < SIG_COUNT; n++)
			sigaddset(&ours.sa_mask, sigs[n].signo);
		ours.sa_flags = SA_RESTART | SA_SIGINFO;
		ours.sa_sigaction = sig_handler;
	}
	return sigaction(sigs[i].signo, &ours, old);
}

/* sig_forked():
 *	In a child: reset everything to before the read
 */
static void
sig_forked(void)
{
	EditLine *el = sig_el;
	struct sigaction now;
	int i;

	sig_pid = getpid();
	memset(&sig_lock, 0, sizeof(sig_lock));
	sig_lock.mutex = (pthread_mutex_t)PTHREAD_MUTEX_INITIALIZER;
	sig_lock.given_up = (pthread_cond_t)PTHREAD_COND_INITIALIZER;
	sig_held = 0;
	for (i = 0; i < SIG_COUNT; i++) {
		if (sigaction(sigs[i].signo, NULL, &now) == 0 &&
		    sig_is_ours(&now))
			(void)sigaction(sigs[i].signo, &sigs[i].before, NULL);
		sigs[i].taken = sigs[i].guarded = sigs[i].note = 0;
	}
	rl_signal_level = 0;
	sig_noted = sig_again = sig_taking = 0;
	if (el == NULL)
		return;
	/* the terminal belongs to the parent, and so does unwritten output */
	el->el_tty.t_held = 0;
	__fpurge(el->el_outfile);
	sig_orphan = el;
	sig_el = NULL;
}

/* sig_thread_ended():
 *	The reading thread has ended, as the interpreter's other threads do at exit: end
 *	the read
 */
static void
sig_thread_ended(void *el)
{
	if (el == sig_el && pthread_equal(pthread_self(), sig_thread)) {
		sig_tty(el);
		sig_give_back();
		sig_el = NULL;
	}
	rl_let_go();
}

/* sig_process():
 *	Once per process, before it reads
 */
static void
sig_process(void)
{
	if (sig_pid != 0)
		return;
	sig_pid = getpid();
	(void)pthread_atfork(NULL, NULL, sig_forked);
	(void)pthread_key_create(&sig_key, sig_thread_ended);
}

static void
sig_take(void)
{
	struct sigaction old;
	int i;

	/* our handler may run before `next' is set */
	sig_taking = 1;
	for (i = 0; i < SIG_COUNT; i++) {
		if (sigs[i].guarded || sigs[i].taken)
			continue;
		if (sig_install(i, &old) == -1 || sig_is_ours(&old))
			continue;
		sigs[i].before = sigs[i].next = old;
		sigs[i].taken = 1;
	}
	sig_taking = 0;
	for (i = AT_QUIT; i < SIG_COUNT; i++)
		if (sigs[i].note) {
			sigs[i].note = 0;
			(void)raise(sigs[i].signo);
		}
}

static void
sig_give_back(void)
{
	struct sigaction old;
	int i;

	for (i = 0; i < SIG_COUNT; i++) {
		if (!sigs[i].taken)
			continue;
		sigs[i].taken = 0;
		sigs[i].guarded = 0;
		/* keep what the program has installed meanwhile */
		if (sigaction(sigs[i].signo, &sigs[i].before, &old) == 0 &&
		    !sig_is_ours(&old))
			(void)sigaction(sigs[i].signo, &old, NULL);
	}
}

/* sig_tty():
 *	Restore the terminal's settings, also from a background process group
 */
static void
sig_tty(EditLine *el)
{
	sigset_t one, old;

	sigemptyset(&one);
	sigaddset(&one, SIGTTOU);
	(void)pthread_sigmask(SIG_BLOCK, &one, &old);
	tty_restore(el, TCSANOW);
	(void)pthread_sigmask(SIG_SETMASK, &old, NULL);
}

/*
 * For a process that ends during a read, on any thread: restores the terminal's
 * settings, and they are not changed again. Between two reads it does nothing.
 */
void
rl_give_back_terminal(void)
{
	EditLine *el = sig_el;

	sig_ending = 1;

	if (el != NULL && getpid() == sig_pid)
		sig_tty(el);
}

/* sig_call():
 *	Act as the disposition below our handler says. May not return.
 */
static void
sig_call(int i, siginfo_t *info, void *context)
{
	struct sigaction *next = &sigs[i].next, dfl, ours;
	sigset_t one, old;
	int signo = sigs[i].signo;

	if (next->sa_flags & SA_SIGINFO) {
		(*next->sa_sigaction)(signo, info, context);
	} else if (next->sa_handler == SIG_DFL) {
		memset(&dfl, 0, sizeof(dfl));
		dfl.sa_handler = SIG_DFL;
		sigemptyset(&one);
		sigaddset(&one, signo);
		(void)sigaction(signo, &dfl, &ours);
		(void)pthread_sigmask(SIG_UNBLOCK, &one, &old);
		(void)raise(signo);
		/* stopped and continued */
		(void)pthread_sigmask(SIG_SETMASK, &old, NULL);
		(void)sigaction(signo, &ours, NULL);
	} else if (next->sa_handler != SIG_IGN) {
		if (sigs[i].guarded)
			sig_left = 1;
		(*next->sa_handler)(signo);
		sig_left = 0;
	}
}

/* sig_pass():
 *	Restore terminal and dispositions, then pass the signal on. If that returns,
 *	the read goes on.
 */
static void
sig_pass(int i, siginfo_t *info, void *context)
{
	EditLine *el = sig_el;
	sig_atomic_t level = rl_signal_level;

	sigs[i].note = 0;
	terminal__flush(el);	/* before the shell prints */
	sig_tty(el);
	sig_give_back();
	sig_el = NULL;
	rl_signal_level = 0;
	sig_call(i, info, context);

	if (i == AT_INT)
		text_forget(el);
	sig_el = el;
	sig_take();
	if (i == AT_TSTP)
		sigs[AT_CONT].note = 1;	/* stopped: the cursor may be anywhere */
	else
		sig_again = 1;
	sig_noted = 1;
	rl_signal_level = level;
}

/* sig_end_wait():
 *	Jump from the handler to before the wait. The mask is restored here: saving it
 *	there would be a system call for every key.
 */
static void
sig_end_wait(void *context)
{
	rl_signal_level = 0;
	(void)pthread_sigmask(SIG_SETMASK, &((ucontext_t *)context)->uc_sigmask,
	    NULL);
	siglongjmp(sig_back, 1);
}

static void
sig_handler(int signo, siginfo_t *info, void *context)
{
	int save_errno = errno, i = sig_index(signo), fatal;

	if (getpid() != sig_pid) {
		/* a child not made by fork(): no atfork handler ran */
		sig_forked();
		(void)raise(signo);
	} else if (sig_taking) {
		sigs[i].info = *info;
		sigs[i].note = sig_noted = 1;
	} else if (i == AT_QUIT || i == AT_HUP || i == AT_TERM) {
		fatal = !(sigs[i].next.sa_flags & SA_SIGINFO) &&
		    sigs[i].next.sa_handler == SIG_DFL;
		if (fatal && sig_el != NULL)
			sig_tty(sig_el);
		sig_call(i, info, context);
		if (fatal && sig_el != NULL) {	/* init of a PID namespace survives */
			sig_again = sig_noted = 1;
			if (!pthread_equal(pthread_self(), sig_thread))
				(void)pthread_kill(sig_thread, signo);
		}
	} else if (!pthread_equal(pthread_self(), sig_thread)) {
		(void)pthread_kill(sig_thread, signo);
	} else if (i == AT_CONT || i == AT_WINCH) {
		if (sigs[i].next.sa_handler != SIG_DFL)
			sig_call(i, info, context);
		if (sig_el != NULL)
			sigs[i].note = sig_noted = 1;
	} else if (sig_el == NULL) {
		sig_call(i, info, context);
	} else if (rl_signal_level == 0) {
		sigs[i].info = *info;
		sigs[i].note = sig_noted = 1;
	} else
		sig_pass(i, info, context);
	if (rl_signal_level == 2 && sig_noted &&
	    pthread_equal(pthread_self(), sig_thread))
		sig_end_wait(context);
	errno = save_errno;
}

/* sig_redraw():
 *	Set raw mode again where it was lost, take the current size, redraw
 */
static void
sig_redraw(EditLine *el, int continued, int again)
{
	if (el->el_flags & (NO_TTY | EDIT_DISABLED)) {
		el_resize(el);
		return;
	}
	if (continued || again) {
		el->el_tty.t_mode = EX_IO;
		(void)tty_rawmode(el);
	}
	el_resize(el);
	re_redraw(el, continued);
	terminal__flush(el);
}

/* sig_serve():
 *	Handle the notes. May not return.
 */
static void
sig_serve(void)
{
	EditLine *el = sig_el;
	int i, continued, again;

	sig_noted = 0;
	if (el == NULL)
		return;
	for (i = AT_INT; i <= AT_TSTP; i++)
		if (sigs[i].note)
			sig_pass(i, &sigs[i].info, NULL);
	continued = sigs[AT_CONT].note;
	again = sig_again;
	if (continued || again || sigs[AT_WINCH].note) {
		sigs[AT_CONT].note = sigs[AT_WINCH].note = sig_again = 0;
		sig_redraw(el, continued, again);
	}
}

/* sig_set():
 *	A read begins: from here on a signal sets a note
 */
libedit_private void
sig_set(EditLine *el)
{
	int i;

	sig_process();
	rl_signal_level = 0;
	sig_noted = sig_again = sig_waits = 0;
	for (i = 0; i < SIG_COUNT; i++)
		sigs[i].note = 0;
	sig_thread = pthread_self();
	(void)pthread_setspecific(sig_key, el);
	sig_el = el;
	sig_take();
	/* a line that a jump has abandoned; otherwise the caller has it */
	if (sig_left)
		free(sig_late);
	sig_late = NULL;
	sig_left = 0;
}

/* sig_clr():
 *	A read is over, with this line. May not return.
 */
libedit_private void
sig_clr(EditLine *el, char *line)
{
	int i, in_force[2];

	for (i = AT_INT; i <= AT_TSTP; i++)
		in_force[i] = sigs[i].taken || sigs[i].guarded;
	sig_late = line;
	sig_give_back();
	sig_el = NULL;
	for (i = AT_INT; i <= AT_TSTP; i++)
		if (sigs[i].note && in_force[i]) {
			sigs[i].note = 0;
			read_forget(el);
			sig_call(i, &sigs[i].info, NULL);
		}
	if (!sigs[AT_INT].guarded && !sigs[AT_TSTP].guarded)
		sig_late = NULL;
}

/* sig_reader():
 *	The instance that reads now, or NULL
 */
libedit_private EditLine *
sig_reader(void)
{
	return sig_el;
}

/* sig_may_set():
 *	Whether the instance may change the terminal's settings or, with `back',
 *	restore them
 */
libedit_private int
sig_may_set(EditLine *el, int back)
{
	return el != sig_orphan && (back || !sig_ending);
}

/* sig_orphaned():
 *	Whether the instance was reading in the parent when this process was forked
 */
libedit_private int
sig_orphaned(EditLine *el)
{
	return el != NULL && el == sig_orphan;
}

/* sig_wait():
 *	Wait until fd is readable, handling signals meanwhile
 */
libedit_private void
sig_wait(int fd)
{
	fd_set set;
	int n;

	if (fd < 0 || fd >= FD_SETSIZE)
		return;
	do {
		FD_ZERO(&set);
		FD_SET(fd, &set);
		n = rl_select(fd + 1, &set);
	} while (n == 0 || (n == -1 && errno == EINTR));
}

/* sig_flushes():
 *	Whether the reader of this instance flushes its output
 */
libedit_private int
sig_flushes(EditLine *el)
{
	return sig_waits && el == sig_el;
}

/* sig_hurries():
 *	Whether the last key was there already when the wait began
 */
libedit_private int
sig_hurries(void)
{
	return sig_hurry;
}

/* sig_try_lock():
 *	Take the lock if nobody else has it. Whether it was taken.
 */
static int
sig_try_lock(void)
{
	int is_free = 0;

	return __atomic_compare_exchange_n(&sig_lock.taken, &is_free, 1, 0, __ATOMIC_SEQ_CST,
	    __ATOMIC_SEQ_CST);
}

/* sig_wait_for_lock():
 *	Who waits says so before the last look, and who gives the lock up looks for waiters
 *	after that: one of the two sees the other.
 */
static void
sig_wait_for_lock(void)
{
	(void)pthread_mutex_lock(&sig_lock.mutex);
	(void)__atomic_add_fetch(&sig_lock.waiting, 1, __ATOMIC_SEQ_CST);
	while (!sig_try_lock())
		(void)pthread_cond_wait(&sig_lock.given_up, &sig_lock.mutex);
	(void)__atomic_sub_fetch(&sig_lock.waiting, 1, __ATOMIC_SEQ_CST);
	(void)pthread_mutex_unlock(&sig_lock.mutex);
}

static void
sig_wake_waiter(void)
{
	(void)pthread_mutex_lock(&sig_lock.mutex);
	(void)pthread_cond_signal(&sig_lock.given_up);
	(void)pthread_mutex_unlock(&sig_lock.mutex);
}

static inline int
sig_take_lock(int wait)
{
	pthread_t self = pthread_self();

	/* no other thread makes this one the owner, or leaves it so */
	if (__atomic_load_n(&sig_lock.owner, __ATOMIC_RELAXED) == self) {
		sig_lock.again++;
		return 1;
	}
	if (!sig_try_lock()) {
		if (!wait)
			return 0;
		sig_wait_for_lock();
	}
	__atomic_store_n(&sig_lock.owner, self, __ATOMIC_RELAXED);
	return 1;
}

static inline void
sig_give_lock_up(void)
{
	if (sig_lock.again > 0) {
		sig_lock.again--;
		return;
	}
	__atomic_store_n(&sig_lock.owner, 0, __ATOMIC_RELAXED);
	__atomic_store_n(&sig_lock.taken, 0, __ATOMIC_SEQ_CST);
	if (__atomic_load_n(&sig_lock.waiting, __ATOMIC_SEQ_CST) > 0)
		sig_wake_waiter();
}

static inline void
sig_hold(void)
{
	(void)sig_take_lock(1);
	sig_held = 1;
}

static inline void
sig_let_go(void)
{
	if (!sig_held)
		return;		/* a function that left rl_select() */
	sig_held = 0;
	sig_give_lock_up();
}

/*
 * For the thread that reads: take the editor's lock, and release it.
 */
void
rl_hold(void)
{
	sig_hold();
}

void
rl_let_go(void)
{
	sig_let_go();
}

/*
 * For any thread that is to use the editor: take the lock, which is recursive. Without
 * `wait', returns 0 if another thread has it. Each 1 needs an rl_release().
 */
int
rl_claim(int wait)
{
	return sig_take_lock(wait);
}

void
rl_release(void)
{
	sig_give_lock_up();
}

/* sig_wait_for():
 *	The wait itself, with the level raised, and how soon it ended. If a note is set
 *	it fails at once.
 */
static int
sig_wait_for(int nfds, fd_set *set)
{
	static struct timespec begun, ended;
	int n;

	if (sigsetjmp(sig_back, 0) != 0)
		return -1;
	rl_signal_level = 2;
	if (sig_noted) {
		rl_signal_level = 0;
		return -1;
	}
	(void)clock_gettime(CLOCK_MONOTONIC, &begun);
	n = select(nfds, set, NULL, NULL, NULL);
	rl_signal_level = 0;
	(void)clock_gettime(CLOCK_MONOTONIC, &ended);
	sig_hurry = n > 0 && (ended.tv_sec - begun.tv_sec) * 1000000000LL +
	    ended.tv_nsec - begun.tv_nsec < SIG_HURRY;
	return n;
}

/* sig_select():
 *	The wait, without the editor's lock
 */
static int
sig_select(int nfds, fd_set *set)
{
	int n, held = sig_held;

	if (held)
		sig_let_go();
	n = sig_wait_for(nfds, set);
	if (held)
		sig_hold();
	if (n == -1 && sig_noted) {
		sig_serve();
		errno = EINTR;
	}
	return n;
}

/* sig_look():
 *	While keys come faster than they are read, look whether one is there before the
 *	output is written. Nothing is held back when anything but a key is ready. Its two
 *	sets are not on the way of a key alone.
 */
static __attribute__((__noinline__)) int
sig_look(EditLine *el, int nfds, fd_set *set)
{
	struct timeval now = { 0, 0 };
	fd_set wanted = *set;
	int n = select(nfds, set, NULL, NULL, &now);

	if (n <= 0)
		*set = wanted;
	if (n != 1 || !FD_ISSET(el->el_infd, set))
		terminal__flush(el);
	return n;
}

/*
 * select() for a character reader: waits without a timeout until one of the
 * descriptors is readable. Returns what select() does, or 0 or less when a signal
 * was handled: wait again then. May be abandoned by a function of rl_signal(). In a
 * child that was forked during the read: always -2, at once.
 *
 * The editor's output is flushed here, before the wait and not before every key.
 */
int
rl_select(int nfds, fd_set *set)
{
	EditLine *el = sig_el;
	int n;

	if (el == NULL && sig_orphan != NULL)
		return -2;
	if (el != NULL) {
		sig_waits = 1;
		if (position_has_key() && !sig_noted) {
			FD_ZERO(set);
			FD_SET(el->el_infd, set);
			return 1;
		}
		if (__fpending(el->el_outfile) > 0) {
			if (!sig_hurry || sig_noted)
				terminal__flush(el);
			else if ((n = sig_look(el, nfds, set)) > 0)
				return n;
		}
	}
	return sig_select(nfds, set);
}

/*
 * For a callback that prints while a line is read: saves the cursor position at the start
 * of the prompt. The callback returns there by ESC 8, clears by ESC [ J and prints.
 */
void
rl_save_start(void)
{
	EditLine *el = sig_el;

	if (el != NULL)
		re_save_start(el);
}

/*
 * read() for a character reader. A signal that has come since rl_select() is handled
 * first: the tty may have flushed the key with it. May be abandoned.
 */
ssize_t
rl_read(int fd, void *buf, size_t len)
{
	ssize_t n;

	if (sig_el == NULL && sig_orphan != NULL)
		return 0;
	rl_signal_level = 1;
	if (sigs[AT_INT].note || sigs[AT_TSTP].note) {
		rl_signal_level = 0;
		sig_serve();
		sig_noted = 1;
		rl_signal_level = 1;
	}
	n = position_has_key() ? position_key(buf, len) : read(fd, buf, len);
	rl_signal_level = 0;
	return n;
}

/*
 * signal() for SIGINT and SIGTSTP and a function that jumps out of the read, on this
 * thread. Returns the old disposition, as signal() does. From the next readline() on
 * the function is called only while the reader waits or when the read is over; before
 * that, at once.
 */
rl_sigfunc_t *
rl_signal(int signo, rl_sigfunc_t *function)
{
	struct sigaction old;
	int i = sig_index(signo);

	sig_process();
	sigs[i].next.sa_flags = 0;
	sigs[i].next.sa_handler = function;
	sigs[i].guarded = 1;
	sig_thread = pthread_self();
	if (sig_install(i, &old) == -1)
		return SIG_ERR;
	if (sig_is_ours(&old))
		return sigs[i].before.sa_handler;
	sigs[i].before = old;
	return old.sa_handler;
}

/*
 * The reverse: signal(), but with the flags and the mask that the disposition had when
 * rl_signal() replaced it.
 */
rl_sigfunc_t *
rl_signal_restore(int signo, rl_sigfunc_t *old)
{
	int i = sig_index(signo);
	rl_sigfunc_t *was = sigs[i].next.sa_handler;

	if (sigs[i].before.sa_handler == old) {
		if (sigaction(signo, &sigs[i].before, NULL) == -1)
			was = SIG_ERR;
	} else
		was = signal(signo, old);
	sigs[i].guarded = 0;
	if (sigs[i].note && old != SIG_DFL && !sig_left) {
		/* it came for a function that is no longer installed */
		sigs[i].note = 0;
		(void)raise(signo);
	}
	if (!sigs[AT_INT].guarded && !sigs[AT_TSTP].guarded && !sig_left)
		sig_late = NULL;
	return was;
}
