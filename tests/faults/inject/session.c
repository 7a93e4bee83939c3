/*
 * A session without a second process: whatever waits for the terminal is given its next keys
 * first, and signals come at the moment that was planned. And the accounts of what is to be
 * as it was.
 */
#define _GNU_SOURCE
#include "interposer.h"

#include <malloc.h>
#include <poll.h>
#include <pthread.h>
#include <sched.h>
#include <signal.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#define STARVED 5 /* how often a wait without keys is answered with Enter */

static int
ready(int fd)
{
    struct pollfd one = {.fd = fd, .events = POLLIN};
    return poll(&one, 1, 0) == 1 && (one.revents & POLLIN);
}

static void
drain(void)
{
    char text[4096];
    while (interposer.master >= 0 && ready(interposer.master) &&
           read(interposer.master, text, sizeof text) > 0)
        ;
}

static void
put(int fd, const char *data, size_t size)
{
    while (size > 0) {
        ssize_t done = write(fd, data, size);
        if (done <= 0)
            return;
        data += done;
        size -= (size_t)done;
    }
}

static void
give(const struct piece *piece)
{
    struct winsize size = {0, 0, 0, 0};

    if (piece->kind == PIECE_KEYS) {
        put(interposer.master, piece->data, (size_t)piece->size);
        ready(interposer.slave); /* what is still on its way is there now */
    } else if (piece->kind == PIECE_LOG) {
        put(interposer.log, piece->data, (size_t)piece->size);
    } else {
        size.ws_row = (unsigned short)piece->data[0];
        size.ws_col = (unsigned short)piece->data[1];
        ioctl(interposer.master, TIOCSWINSZ, &size);
    }
}

/* The object is about to wait for one of these: what comes next in the script is given until
 * the wait will end, and Enter when there is no more. */
void
session_feed(int descriptors, const fd_set *wanted)
{
    drain();
    interposer.waits++;
    while (interposer.feeding && interposer.master >= 0) {
        struct timeval now = {0, 0};
        fd_set set = *wanted;
        if (ready(interposer.slave) || select(descriptors, &set, NULL, NULL, &now) != 0)
            return;
        if (interposer.piece < interposer.pieces) {
            give(&interposer.script[interposer.piece++]);
        } else {
            if (++interposer.starved > STARVED)
                _exit(77);
            put(interposer.master, "\r", 1);
        }
    }
}

/* ---- signals ---- */

static volatile int asked, answered;

static void
send_here(int signo)
{
    syscall(SYS_tgkill, getpid(), (pid_t)syscall(SYS_gettid), signo);
}

/* A thread that never reads, and takes signals when it is told to. */
static void *
bystander(void *nothing)
{
    (void)nothing;
    for (;;) {
        int mine = asked; /* who asked may have jumped away, and ask again already */
        if (mine == answered) {
            sched_yield();
            continue;
        }
        send_here(interposer.signo);
        answered = mine;
    }
    return NULL;
}

void
interposer_start_bystander(void)
{
    pthread_t thread;
    pthread_create(&thread, NULL, bystander, NULL);
}

void
session_signal(void)
{
    if (interposer.signo == HANG_UP) {
        close(interposer.master);
        interposer.master = -1;
    } else if (interposer.whom == ON_ANOTHER_THREAD) {
        int mine = ++asked;
        while (answered != mine)
            sched_yield();
    } else {
        send_here(interposer.signo);
    }
}

/* ---- what is to be as it was ---- */

/* Handler and flags of the signals that the editor takes, then the mask. */
void
interposer_dispositions(uint64_t *found)
{
    static const int signals[] = {SIGHUP,  SIGINT,  SIGQUIT, SIGTERM,
                                  SIGCONT, SIGTSTP, SIGWINCH};
    struct sigaction action;
    sigset_t mask;

    for (size_t i = 0; i < sizeof signals / sizeof *signals; i++) {
        sigaction(signals[i], NULL, &action);
        *found++ = (uint64_t)(uintptr_t)action.sa_handler;
        *found++ = (uint64_t)action.sa_flags;
    }
    pthread_sigmask(SIG_BLOCK, NULL, &mask);
    memcpy(found, &mask, sizeof *found);
}

/* Bytes that the C library has handed out. */
uint64_t
interposer_memory(void)
{
#if __GLIBC_PREREQ(2, 33)
    struct mallinfo2 info = mallinfo2();
#else
    struct mallinfo info = mallinfo();
#endif
    return info.uordblks + info.hblkhd;
}
