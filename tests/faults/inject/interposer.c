/*
 * Stands between a shared object and everything that it imports: each call from the object
 * into another library passes here first, through a stub that takes the place of the
 * function in the object's global offset table. Calls that others make of the same functions
 * are not seen. A call can be noted, made to fail, or accompanied by a signal before it is
 * made or after it has returned. Whatever waits for the terminal is given its next keys here
 * too, so that a whole session runs on one thread and the same way every time.
 *
 * For x86-64 and the ELF linker's eager binding. Driven from Python: see interposer.py.
 */
#define _GNU_SOURCE
#include "interposer.h"

#include <elf.h>
#include <errno.h>
#include <link.h>
#include <pthread.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <dlfcn.h>

#define IMPORTS 512
#define OBJECTS 2
#define CALLS 100000

struct call {
    uint64_t import;
    uint64_t site;   /* object << 32 | offset behind the call */
};

struct import {
    const char *name;
    void *function;
};

struct frame {
    uint64_t rdi, rsi, rdx, rcx, r8, r9, rax, import;
    uint64_t result; /* where to go on, or the answer of a call that fails */
    uint64_t unused;
    char xmm[8][16];
};

struct interposer interposer;
struct call *interposer_calls; /* shared with forked children */
int interposer_imports;

static struct import imports[IMPORTS];
static uintptr_t bases[OBJECTS], ends[OBJECTS];
static int objects;
static void *after_return;
static void (*raise_error)(void *, const char *);
static void **memory_error;

/* ---- every call ---- */

static int
jumps(const char *name)
{
    return strstr(name, "setjmp") != NULL || strstr(name, "longjmp") != NULL;
}

/* The place of an address in one of the objects: object << 32 | offset. */
uint64_t
interposer_site(uintptr_t address)
{
    for (int i = 0; i < objects; i++)
        if (bases[i] <= address && address < ends[i])
            return (uint64_t)i << 32 | (address - bases[i]);
    return INTERPOSER_NOWHERE;
}

uintptr_t
interposer_address(uint64_t site)
{
    return bases[site >> 32] + (site & 0xffffffff);
}

void *interposer_at_return(void);
extern char interposer_after[];

/* Whether the call fails; frame->result says where to go on, or what it answers. */
__attribute__((used)) static int
interposer_before(struct frame *frame, void **return_slot)
{
    const struct import *import = &imports[frame->import];
    int error = errno;
    uint64_t site;

    frame->result = (uint64_t)(uintptr_t)import->function;
    if (!interposer.on || (uint64_t)pthread_self() != interposer.reader)
        return 0;
    site = interposer_site((uintptr_t)*return_slot);
    if (steps_outside && site != INTERPOSER_NOWHERE)
        steps_enter(*return_slot);
    if (site == INTERPOSER_NOWHERE) /* a call at a function's end returns past the object */
        site = (uint64_t)OBJECTS << 32 | frame->import;
    if (interposer.noting && interposer.count < CALLS) {
        interposer_calls[interposer.count].import = frame->import;
        interposer_calls[interposer.count++].site = site;
    }
    if (strcmp(import->name, "select") == 0 && frame->r8 == 0) /* without a timeout */
        session_feed((int)frame->rdi, (const fd_set *)(uintptr_t)frame->rsi);
    errno = error;
    if (interposer.plan == PLAN_NONE || (interposer.site != 0 && interposer.site != site))
        return 0;
    if (++interposer.seen != interposer.visit)
        return 0;
    if (interposer.plan == PLAN_AFTER) {
        if (jumps(import->name))
            return 0;
        after_return = *return_slot;
        *return_slot = interposer_after;
        return 0;
    }
    interposer.fired++;
    if (interposer.plan == PLAN_BEFORE) {
        session_signal();
        errno = error;
        return 0;
    }
    frame->result = (uint64_t)interposer.value;
    if (interposer.raise)
        raise_error(*memory_error, "injected");
    if (interposer.error != 0)
        errno = interposer.error;
    return 1;
}

__attribute__((used)) void *
interposer_at_return(void)
{
    int error = errno;
    void *to = after_return;

    interposer.fired++;
    session_signal();
    errno = error;
    return to;
}

extern char interposer_common[];

/* Arguments are kept as they are: the function behind may take any number and kind. */
__asm__(
    ".text\n"
    "interposer_common:\n"
    "    pushq %rbp\n"
    "    movq %rsp, %rbp\n"
    "    subq $208, %rsp\n"
    "    movq %rdi, 0(%rsp)\n    movq %rsi, 8(%rsp)\n    movq %rdx, 16(%rsp)\n"
    "    movq %rcx, 24(%rsp)\n   movq %r8, 32(%rsp)\n    movq %r9, 40(%rsp)\n"
    "    movq %rax, 48(%rsp)\n   movq %r11, 56(%rsp)\n"
    "    movups %xmm0, 80(%rsp)\n    movups %xmm1, 96(%rsp)\n"
    "    movups %xmm2, 112(%rsp)\n   movups %xmm3, 128(%rsp)\n"
    "    movups %xmm4, 144(%rsp)\n   movups %xmm5, 160(%rsp)\n"
    "    movups %xmm6, 176(%rsp)\n   movups %xmm7, 192(%rsp)\n"
    "    movq %rsp, %rdi\n"
    "    leaq 8(%rbp), %rsi\n"
    "    call interposer_before\n"
    "    movq 64(%rsp), %r11\n"
    "    testl %eax, %eax\n"
    "    jnz 1f\n"
    "    movq 0(%rsp), %rdi\n    movq 8(%rsp), %rsi\n    movq 16(%rsp), %rdx\n"
    "    movq 24(%rsp), %rcx\n   movq 32(%rsp), %r8\n    movq 40(%rsp), %r9\n"
    "    movq 48(%rsp), %rax\n"
    "    movups 80(%rsp), %xmm0\n    movups 96(%rsp), %xmm1\n"
    "    movups 112(%rsp), %xmm2\n   movups 128(%rsp), %xmm3\n"
    "    movups 144(%rsp), %xmm4\n   movups 160(%rsp), %xmm5\n"
    "    movups 176(%rsp), %xmm6\n   movups 192(%rsp), %xmm7\n"
    "    leave\n"
    "    jmp *%r11\n"
    "1:  movq %r11, %rax\n"
    "    leave\n"
    "    ret\n"
    "interposer_after:\n"
    "    pushq %rax\n"
    "    pushq %rdx\n"
    "    subq $32, %rsp\n"
    "    movups %xmm0, (%rsp)\n    movups %xmm1, 16(%rsp)\n"
    "    call interposer_at_return\n"
    "    movq %rax, %r11\n"
    "    movups (%rsp), %xmm0\n    movups 16(%rsp), %xmm1\n"
    "    addq $32, %rsp\n"
    "    popq %rdx\n"
    "    popq %rax\n"
    "    jmp *%r11\n");

/* ---- interposing ---- */

static char *
make_stub(uint64_t index)
{
    static char *next, *end;
    char *stub, *to = interposer_common;

    if (next == end) {
        next = mmap(NULL, 65536, PROT_READ | PROT_WRITE | PROT_EXEC,
                    MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        end = next + 65536;
    }
    stub = next;
    memcpy(stub, "\x49\xbb", 2); /* mov $index, %r11 */
    memcpy(stub + 2, &index, 8);
    memcpy(stub + 10, "\x49\xba", 2); /* mov $interposer_common, %r10 */
    memcpy(stub + 12, &to, 8);
    memcpy(stub + 20, "\x41\xff\xe2", 3); /* jmp *%r10 */
    next += 32;
    return stub;
}

static void
replace(void **slot, const char *name)
{
    long page = sysconf(_SC_PAGESIZE);
    char *start = (char *)((uintptr_t)slot & ~(uintptr_t)(page - 1));

    if (interposer_imports == IMPORTS)
        abort();
    imports[interposer_imports].name = name;
    imports[interposer_imports].function = *slot;
    mprotect(start, (size_t)page, PROT_READ | PROT_WRITE);
    *slot = make_stub((uint64_t)interposer_imports++);
}

static int
attach(struct dl_phdr_info *info, size_t size, void *name)
{
    const ElfW(Dyn) *dynamic = NULL;
    const ElfW(Rela) *relocations = NULL;
    const ElfW(Sym) *symbols = NULL;
    const char *names = NULL;
    size_t length = 0;

    (void)size;
    if (strstr(info->dlpi_name, name) == NULL)
        return 0;
    for (int i = 0; i < info->dlpi_phnum; i++) {
        uintptr_t start = info->dlpi_addr + info->dlpi_phdr[i].p_vaddr;
        if (info->dlpi_phdr[i].p_type == PT_DYNAMIC)
            dynamic = (const void *)start;
        else if (info->dlpi_phdr[i].p_type == PT_LOAD)
            ends[objects] = start + info->dlpi_phdr[i].p_memsz;
    }
    for (; dynamic->d_tag != DT_NULL; dynamic++) {
        const void *address = (const void *)dynamic->d_un.d_ptr;
        if (dynamic->d_tag == DT_JMPREL)
            relocations = address;
        else if (dynamic->d_tag == DT_PLTRELSZ)
            length = dynamic->d_un.d_val / sizeof *relocations;
        else if (dynamic->d_tag == DT_SYMTAB)
            symbols = address;
        else if (dynamic->d_tag == DT_STRTAB)
            names = address;
    }
    bases[objects++] = info->dlpi_addr;
    for (size_t i = 0; i < length; i++) {
        const ElfW(Sym) *symbol = &symbols[ELF64_R_SYM(relocations[i].r_info)];
        if (symbol->st_shndx == SHN_UNDEF)
            replace((void **)(info->dlpi_addr + relocations[i].r_offset),
                    names + symbol->st_name);
    }
    return 1;
}

/* Interposes on the imports of the loaded object with this in its path. */
int
interposer_attach(const char *name)
{
    if (interposer_calls == NULL) {
        interposer_calls = mmap(NULL, CALLS * sizeof *interposer_calls, PROT_READ | PROT_WRITE,
                             MAP_SHARED | MAP_ANONYMOUS, -1, 0);
        raise_error = (void (*)(void *, const char *))dlsym(RTLD_DEFAULT, "PyErr_SetString");
        memory_error = dlsym(RTLD_DEFAULT, "PyExc_MemoryError");
    }
    return dl_iterate_phdr(attach, (void *)name);
}

const char *
interposer_name(uint64_t import)
{
    return imports[import].name;
}

uint64_t
interposer_thread(void)
{
    return (uint64_t)pthread_self();
}
