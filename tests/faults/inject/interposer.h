/* What the C files here share; interposer.py has the same structures. */
#include <stdint.h>
#include <sys/select.h>

#define PIECES 64
#define INTERPOSER_NOWHERE UINT64_MAX

enum { PLAN_NONE, PLAN_FAIL, PLAN_BEFORE, PLAN_AFTER };
enum { PIECE_KEYS, PIECE_LOG, PIECE_SIZE };
enum { HANG_UP = -1 };
enum { ON_THIS_THREAD, ON_ANOTHER_THREAD };

struct piece {
    int kind;
    int size;
    const char *data;
};

struct interposer {
    int on; /* calls of the reading thread are counted */
    int plan;
    uint64_t site; /* where the plan holds, 0: everywhere */
    int64_t visit; /* at which of the calls from there, from 1 on; 0: never */
    int64_t seen;  /* calls from there so far */
    int64_t value; /* PLAN_FAIL: what the call answers */
    int error;     /* and its errno, 0: untouched */
    int raise;     /* and whether it raises */
    int signo;     /* PLAN_BEFORE, PLAN_AFTER */
    int whom;
    int fired;
    int master, slave, log;
    int feeding; /* waits are given keys */
    int piece, pieces;
    int starved;
    int waits; /* how often the object has come to a wait */
    int noting;
    int count;       /* calls noted */
    uint64_t reader; /* the thread whose calls count */
    struct piece script[PIECES];
};

extern struct interposer interposer;

uint64_t interposer_site(uintptr_t address);
uintptr_t interposer_address(uint64_t site);
void session_feed(int descriptors, const fd_set *wanted);
void session_signal(void);

extern volatile int steps_outside;
void steps_enter(void *back);
