// What the history costs: entering a line, keeping it, and the walks behind the editor's
// keys in a mode that shows one line in a thousand. Ends with 1 when a figure misses its
// goal: 1 us for entering, 100 bytes a line above its text, 5 ms a key with 100,000 lines.
#include "../Cli/history.h"

#include <malloc.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

static const int mode_depth = 16;
static const int other_modes = 20;
static bool missed;

static double
seconds()
{
    struct timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<double>(now.tv_sec) + 1e-9 * static_cast<double>(now.tv_nsec);
}

static const char *
judged(double value, double goal)
{
    missed = missed || value > goal;
    return value > goal ? "  MISSED" : "";
}

// The private memory of this process in bytes.
static double
private_memory()
{
    double sum = 0;
    char line[256];
    FILE *stream = fopen("/proc/self/smaps_rollup", "r");
    while (stream != nullptr && fgets(line, sizeof(line), stream) != nullptr) {
        long kilobytes;
        if (sscanf(line, "Private_Clean: %ld", &kilobytes) == 1 ||
            sscanf(line, "Private_Dirty: %ld", &kilobytes) == 1)
            sum += 1024.0 * static_cast<double>(kilobytes);
    }
    if (stream != nullptr)
        fclose(stream);
    return sum;
}

// A chain of modes of the given depth, and modes beside its last one. Made once.
static HistoryMode *deepest;
static HistoryMode *beside[other_modes];

static void
make_modes()
{
    char key[32];
    char parent[32] = "";
    for (int i = 0; i < mode_depth - 1; i++) {
        snprintf(key, sizeof(key), "level-%d", i);
        deepest = new_history_mode(key, parent);
        strcpy(parent, key);
    }
    for (int i = 0; i < other_modes; i++) {
        snprintf(key, sizeof(key), "beside-%d", i);
        beside[i] = new_history_mode(key, parent);
    }
    deepest = new_history_mode("deepest", parent);
}

// Enters one more line of about 20 characters; one in a thousand is of the deepest mode.
static void
enter_line(int number)
{
    char line[32];
    HistEvent event;
    int length = snprintf(line, sizeof(line), "show interface %05d", number);
    line[length] = '\0';
    hist_ctx.current_mode = number % 1000 == 999 ? deepest : beside[random() % other_modes];
    hist_enter(&hist_ctx, &event, line);
}

static void
start_over(int limit)
{
    HistEvent event;
    hist_clear(&hist_ctx, &event);
    hist_ctx.history_limit = static_cast<uint32_t>(limit);
}

// ---- entering and keeping ----

static void
measure_entering(int lines)
{
    start_over(lines);
    malloc_trim(0); // or the lines would go into memory that was counted before
    double memory = private_memory();
    double start = seconds();
    for (int i = 0; i < lines; i++)
        enter_line(i);
    double filling = (seconds() - start) / lines;
    memory = (private_memory() - memory) / lines;

    // From here on every line drops the oldest one.
    int more = 200000;
    start = seconds();
    for (int i = 0; i < more; i++)
        enter_line(lines + i);
    double full = (seconds() - start) / more;
    printf("%9d %12.0f %12.0f", lines, 1e9 * filling, 1e9 * full);
    // Too little memory to be seen in whole pages says nothing of a line.
    if (lines >= 10000)
        printf(" %14.1f %14.1f%s", memory, memory - 20, judged(memory - 20, 100));
    printf("%s\n", judged(filling > full ? filling : full, 1e-6));
}

// ---- walking ----

// The calls of the editor's key that goes up to the n-th line.
static void
go_up(int n)
{
    HistEvent event;
    int status = hist_first(&hist_ctx, &event);
    while (--n > 0 && status == 0)
        status = hist_next(&hist_ctx, &event);
}

// The calls of a search that finds nothing.
static void
search_all(int)
{
    HistEvent event;
    int status = hist_first(&hist_ctx, &event);
    while (status == 0)
        status = hist_next(&hist_ctx, &event);
}

// The same lines by following the links alone, to compare with.
static void
follow_links(int)
{
    volatile int seen = 0;
    for (HistoryLink *link = hist_ctx.list.next; link != &hist_ctx.list; link = link->next)
        if (hist_visible(static_cast<HistoryEntry *>(link), hist_ctx.current_mode))
            seen = seen + 1;
}

static double
milliseconds(void (*walk)(int), int n)
{
    double best = 1e9;
    for (int i = 0; i < 7; i++) {
        double start = seconds();
        walk(n);
        double taken = 1e3 * (seconds() - start);
        best = taken < best ? taken : best;
    }
    return best;
}

static void
measure_walks(const char *where, int lines, double goal)
{
    start_over(lines);
    for (int i = 0; i < lines; i++)
        enter_line(i);
    hist_ctx.current_mode = deepest;
    int last = lines / 1000;
    double first = milliseconds(go_up, 1);
    double middle = milliseconds(go_up, last / 2);
    double top = milliseconds(go_up, last);
    double search = milliseconds(search_all, 0);
    double links = milliseconds(follow_links, 0);
    double worst = top > search ? top : search;
    printf("%9d  %-10s %10.4f %10.3f %10.3f %10.3f %14.3f%s\n", lines, where, first, middle,
           top, search, links, judged(worst, goal));
}

// Leaves holes all over the heap, in random order, for the entries that come next.
static void *volatile kept_between; // or the compiler drops what nobody frees

static void
scatter_heap(int holes)
{
    size_t count = 2 * static_cast<size_t>(holes);
    void **blocks = static_cast<void **>(malloc(count * sizeof(void *)));
    for (size_t i = 0; i < count; i++) {
        // An entry or a text; what lies between them stays allocated.
        blocks[i] = malloc(i % 2 == 0 ? sizeof(HistoryEntry) : 21);
        kept_between = malloc(64);
    }
    for (size_t i = count - 1; i > 0; i--) {
        size_t other = static_cast<size_t>(random()) % (i + 1);
        void *block = blocks[i];
        blocks[i] = blocks[other];
        blocks[other] = block;
    }
    for (size_t i = 0; i < count; i++)
        free(blocks[i]);
    free(blocks);
}

int
main()
{
    hist_init_context();
    make_modes();
    printf("entering lines of 20 characters\n");
    printf("%9s %12s %12s %14s %14s\n", "limit", "filling ns", "full ns", "bytes a line",
           "above text");
    for (int lines = 100; lines <= 1000000; lines *= 10)
        measure_entering(lines);

    printf("\nwalks in ms, modes %d deep, one visible line in a thousand\n", mode_depth);
    printf("%9s  %-10s %10s %10s %10s %10s %14s\n", "lines", "heap", "first up", "half up",
           "last up", "Ctrl-R", "(links alone)");
    measure_walks("in order", 1000, 5);
    measure_walks("in order", 10000, 5);
    measure_walks("in order", 100000, 5);
    measure_walks("in order", 1000000, 50);
    start_over(0);
    scatter_heap(1000000);
    measure_walks("scattered", 1000, 5);
    measure_walks("scattered", 10000, 5);
    measure_walks("scattered", 100000, 5);
    measure_walks("scattered", 1000000, 50);
    return missed ? 1 : 0;
}
