/*
 * A shell in C on one of the packaged line editors, which share this interface: compiled
 * once with -DGNU, once without. Arguments as of shell.py: FACTS LINES TIMED.
 */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>
#ifdef GNU
#include <readline/history.h>
#include <readline/readline.h>
#else
#include <editline/readline.h>
#endif

#include "adler.h"

static const char *const words[] = {"clear",  "configure", "copy",      "exit",
                                    "help",   "hostname",  "interface", "ping",
                                    "reload", "show",      "write",     NULL};

static char **lines;
static size_t line_count, line_room;

static char *
next_word(const char *text, int state)
{
    static size_t at;

    if (state == 0)
        at = 0;
    while (words[at] != NULL) {
        const char *word = words[at++];
        if (strncmp(word, text, strlen(text)) == 0)
            return strdup(word);
    }
    return NULL;
}

static char **
complete(const char *text, int start, int end)
{
    (void)start;
    (void)end;
    rl_attempted_completion_over = 1;
    return rl_completion_matches(text, next_word);
}

/* The same lines as of shell.py: 12 to 35 characters, the oldest with the word to find. */
static const char *
history_line(long number)
{
    static char line[64];
    int length = 12 + (int)(number % 24) - 6;

    if (number == 0)
        return "needle XYWXYWXYW";
    snprintf(line, sizeof line, "%.*s%06ld", length, "show interface ethernet counters",
             number % 1000000);
    return line;
}

static void
fill(int facts, long count, long timed)
{
    struct timespec before, after;
    long number;

    for (number = 0; number < count; number++)
        add_history(history_line(number));
    clock_gettime(CLOCK_MONOTONIC, &before);
    for (; number < count + timed; number++)
        add_history(history_line(number));
    clock_gettime(CLOCK_MONOTONIC, &after);
    if (timed != 0)
        dprintf(facts, "%f\n",
                ((double)(after.tv_sec - before.tv_sec) * 1e9 +
                 (double)(after.tv_nsec - before.tv_nsec)) /
                    (double)timed);
}

static void
keep(char *line)
{
    if (line_count == line_room) {
        line_room = line_room * 2 + 64;
        lines = realloc(lines, line_room * sizeof *lines);
    }
    lines[line_count++] = line;
}

static void
report(int facts)
{
    unsigned long length = 0;

    for (size_t at = 0; at < line_count; at++) {
        length += strlen(lines[at]);
        add(lines[at]);
        add("\n");
    }
    dprintf(facts, "%zu %lu %u\n", line_count, length, high << 16 | low);
}

int
main(int argc, char **argv)
{
    char *line;
    int facts;

    if (argc != 4)
        return 1;
    facts = atoi(argv[1]);
    rl_attempted_completion_function = complete;
    using_history();
    fill(facts, atol(argv[2]), atol(argv[3]));
    while ((line = readline("> ")) != NULL) {
        if (*line != '\0')
            add_history(line);
        if (strcmp(line, "#report") == 0)
            report(facts);
        else
            keep(line);
    }
    return 0;
}
