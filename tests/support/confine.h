// A seccomp filter: from then on the process may make the system calls that reading a line
// needs. Any other ends it by SIGSYS. The calls that are allowed are listed, so that no
// other is forgotten. While the editor is set up it may also look at files and read them,
// as that of the terminal's description.
//
// C, so that it can also be loaded into an interpreter.
#pragma once

#include <fcntl.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <stddef.h>
#include <stdint.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#ifdef SYS_newfstatat
enum { CONFINE_FSTATAT = SYS_newfstatat };
#else
enum { CONFINE_FSTATAT = SYS_fstatat64 };
#endif

// Calls that touch nothing but the process itself and what it has open.
static const unsigned confine_allowed[] = {SYS_read,
                                           SYS_pread64,
                                           SYS_write,
                                           SYS_readv,
                                           SYS_writev,
                                           SYS_close,
                                           SYS_lseek,
                                           SYS_ioctl,
                                           SYS_fstat,
                                           SYS_pselect6,
                                           SYS_ppoll,
                                           SYS_rt_sigaction,
                                           SYS_rt_sigprocmask,
                                           SYS_rt_sigreturn,
                                           SYS_sigaltstack,
                                           SYS_futex,
                                           SYS_mmap,
                                           SYS_munmap,
                                           SYS_mremap,
                                           SYS_mprotect,
                                           SYS_madvise,
                                           SYS_brk,
                                           SYS_getpid,
                                           SYS_gettid,
                                           SYS_clock_gettime,
                                           SYS_nanosleep,
                                           SYS_gettimeofday,
                                           SYS_restart_syscall,
                                           SYS_clock_nanosleep,
                                           SYS_sched_yield,
                                           SYS_getrandom,
                                           SYS_exit,
                                           SYS_exit_group};

// Calls that look at files, also as the user himself, as newer terminal libraries do.
static const unsigned confine_looking[] = {SYS_faccessat, SYS_readlinkat, SYS_getdents64,
                                           SYS_dup,       SYS_fcntl,      SYS_getuid,
                                           SYS_geteuid,   SYS_getgid,     SYS_getegid,
                                           SYS_setfsuid,  SYS_setfsgid,   CONFINE_FSTATAT};

// The same where calls with wider numbers were added, on 32-bit machines.
#ifdef SYS_fcntl64
static const unsigned confine_allowed_anew[] = {SYS__llseek,
                                                SYS_fstat64,
                                                SYS_mmap2,
                                                SYS__newselect,
                                                SYS_pselect6_time64,
                                                SYS_ppoll_time64,
                                                SYS_futex_time64,
                                                SYS_clock_gettime64,
                                                SYS_clock_nanosleep_time64,
                                                SYS_rt_sigtimedwait_time64};
static const unsigned confine_looking_anew[] = {
    SYS_fcntl64,  SYS_stat64,    SYS_lstat64,    SYS_getuid32,   SYS_geteuid32,
    SYS_getgid32, SYS_getegid32, SYS_setfsuid32, SYS_setfsgid32, SYS_statx};
#endif

#ifdef SYS_open // a machine that also has the older calls
static const unsigned confine_allowed_of_old[] = {SYS_select, SYS_poll, SYS_time,
                                                  SYS_alarm};
static const unsigned confine_looking_of_old[] = {SYS_access, SYS_stat, SYS_readlink};
#endif

enum { CONFINE_AT_MOST = 200 };

struct confine_filter {
    struct sock_filter steps[CONFINE_AT_MOST];
    unsigned short length;
};

static inline void
confine_step(struct confine_filter *filter, uint16_t code, uint8_t if_true,
             uint8_t if_false, uint32_t value)
{
    struct sock_filter step = {code, if_true, if_false, value};
    filter->steps[filter->length++] = step;
}

static inline void
confine_look(struct confine_filter *filter, size_t at)
{
    confine_step(filter, BPF_LD | BPF_W | BPF_ABS, 0, 0, (uint32_t)at);
}

static inline void
confine_decide(struct confine_filter *filter, uint32_t decision)
{
    confine_step(filter, BPF_RET | BPF_K, 0, 0, decision);
}

static inline void
confine_allow(struct confine_filter *filter, const unsigned *calls, size_t count)
{
    for (size_t i = 0; i < count; i++) {
        confine_step(filter, BPF_JMP | BPF_JEQ | BPF_K, 0, 1, calls[i]);
        confine_decide(filter, SECCOMP_RET_ALLOW);
    }
}

#define CONFINE_ALLOW(filter, calls)                                                       \
    confine_allow(filter, calls, sizeof(calls) / sizeof *(calls))

// The call is allowed when `test` of that argument with `value` says so, and fatal if not.
static inline void
confine_allow_if(struct confine_filter *filter, unsigned call, unsigned argument,
                 uint16_t test, uint32_t value, int wanted)
{
    confine_step(filter, BPF_JMP | BPF_JEQ | BPF_K, 0, 4, call);
    const size_t low = __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__ ? 4 : 0;
    confine_look(filter, offsetof(struct seccomp_data, args) + 8 * argument + low);
    confine_step(filter, BPF_JMP | test | BPF_K, wanted ? 0 : 1, wanted ? 1 : 0, value);
    confine_decide(filter, SECCOMP_RET_ALLOW);
    confine_decide(filter, SECCOMP_RET_KILL_PROCESS);
}

// From here on; there is no way back, only further. 0, or -1 when the kernel refuses.
static inline int
confine(int may_look)
{
    struct confine_filter filter;
    filter.length = 0;
    uint32_t self = (uint32_t)getpid();
    confine_look(&filter, offsetof(struct seccomp_data, nr));
    CONFINE_ALLOW(&filter, confine_allowed);
#ifdef SYS_fcntl64
    CONFINE_ALLOW(&filter, confine_allowed_anew);
    if (may_look)
        CONFINE_ALLOW(&filter, confine_looking_anew);
#endif
#ifdef SYS_open
    CONFINE_ALLOW(&filter, confine_allowed_of_old);
    if (may_look)
        CONFINE_ALLOW(&filter, confine_looking_of_old);
#endif
    if (may_look) {
        const uint32_t changes = O_WRONLY | O_RDWR | O_CREAT | O_TRUNC;
        CONFINE_ALLOW(&filter, confine_looking);
        confine_allow_if(&filter, SYS_openat, 2, BPF_JSET, changes, 0);
    }
    confine_allow_if(&filter, SYS_kill, 0, BPF_JEQ, self, 1);
    confine_allow_if(&filter, SYS_tgkill, 0, BPF_JEQ, self, 1);
    // What a descriptor stands for may be asked, but not what a path does.
    const uint32_t empty_path = 0x1000; // AT_EMPTY_PATH, with other features
    confine_allow_if(&filter, CONFINE_FSTATAT, 3, BPF_JSET, empty_path, 1);
    confine_allow_if(&filter, SYS_statx, 2, BPF_JSET, empty_path, 1);
    confine_decide(&filter, SECCOMP_RET_KILL_PROCESS);

    struct sock_fprog program = {filter.length, filter.steps};
    if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0)
        return -1;
    return prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program, 0, 0);
}
