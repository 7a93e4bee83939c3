/*
 * Every instruction of the module as a point of its own: the processor's single steps tell
 * which ones a read comes to, and a breakpoint in the place of one brings the planned signal
 * right before it. Not for what runs with all signals blocked, as the log library does.
 */
#define _GNU_SOURCE
#include "interposer.h"

#include <signal.h>
#include <string.h>
#include <sys/mman.h>
#include <ucontext.h>
#include <unistd.h>

#define STEPS 65536
#define TRAP_FLAG 0x100
#define BREAKPOINT 0xcc

int steps_count;
uint64_t steps_sites[STEPS]; /* as in struct call, in the order of the first visit */

static unsigned char seen[1 << 24];
static volatile int stepping;
volatile int steps_outside;
static unsigned char *planted, kept;

static void
note_step(uint64_t site)
{
    uint64_t index = ((site >> 32) << 23 | (site & 0x7fffff)) & (sizeof seen - 1);

    if (!seen[index] && steps_count < STEPS)
        steps_sites[steps_count++] = site;
    seen[index] = 1;
}

/* Puts a breakpoint there; the byte that it replaces. */
static unsigned char
put_breakpoint(unsigned char *place)
{
    uintptr_t size = (uintptr_t)sysconf(_SC_PAGESIZE);
    unsigned char was = *place;

    mprotect((void *)((uintptr_t)place & ~(size - 1)), size,
             PROT_READ | PROT_WRITE | PROT_EXEC);
    *place = BREAKPOINT;
    return was;
}

/* One step further. What the objects call is passed over in one go: a breakpoint waits for
 * its return. When they return to their caller, steps begin again with their next call. */
static void
take_step(greg_t *registers)
{
    uint64_t site = interposer_site((uintptr_t)registers[REG_RIP]);
    unsigned char *back = *(unsigned char **)(uintptr_t)registers[REG_RSP];

    if (site != INTERPOSER_NOWHERE) {
        note_step(site);
    } else {
        registers[REG_EFL] &= ~TRAP_FLAG;
        steps_outside = interposer_site((uintptr_t)back) == INTERPOSER_NOWHERE;
        if (!steps_outside) {
            kept = put_breakpoint(back);
            planted = back;
        }
    }
}

/* With all signals blocked: what is sent here comes when this returns, at that instruction. */
static void
on_trap(int signo, siginfo_t *info, void *context)
{
    greg_t *registers = ((ucontext_t *)context)->uc_mcontext.gregs;

    (void)signo;
    (void)info;
    if (planted != NULL && registers[REG_RIP] == (greg_t)(uintptr_t)(planted + 1)) {
        *planted = kept;
        planted = NULL;
        registers[REG_RIP]--;
        if (stepping) {
            registers[REG_EFL] |= TRAP_FLAG;
            take_step(registers);
        } else {
            interposer.fired++;
            session_signal();
        }
    } else if (stepping) {
        take_step(registers);
    } else {
        registers[REG_EFL] &= ~TRAP_FLAG;
    }
}

static void
take_traps(void)
{
    struct sigaction action = {.sa_sigaction = on_trap, .sa_flags = SA_SIGINFO};

    sigfillset(&action.sa_mask);
    sigaction(SIGTRAP, &action, NULL);
}

void
steps_begin(void)
{
    take_traps();
    stepping = steps_outside = 1;
}

/* The objects have made a call, which will return there. */
void
steps_enter(void *back)
{
    steps_outside = 0;
    planted = back;
    kept = put_breakpoint(planted);
}

/* Brings the planned signal before this instruction is executed for the next time. */
void
steps_plant(uint64_t site)
{
    unsigned char *place = (unsigned char *)interposer_address(site);

    take_traps();
    kept = put_breakpoint(place);
    planted = place;
}

/* Takes a breakpoint out again that has not been met. */
void
steps_clear(void)
{
    if (planted != NULL)
        *planted = kept;
    planted = NULL;
}

void
steps_end(void)
{
    stepping = steps_outside = 0;
    steps_clear();
}
