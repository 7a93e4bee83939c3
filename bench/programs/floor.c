/*
 * The floor of the comparison: the least that a program can do for a key. It reads a byte
 * in raw mode and writes it back; a carriage return ends the line and shows the next
 * prompt. Arguments as of shell.py, of which it needs the first alone: where to write
 * facts.
 */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <termios.h>
#include <unistd.h>

#include "adler.h"

#define LINE 1048576 /* more than any line of the benchmark */

static char line[LINE];
static unsigned long count, length;

static void
take_line(int facts)
{
    if (strcmp(line, "#report") == 0) {
        dprintf(facts, "%lu %lu %u\n", count, length, high << 16 | low);
        return;
    }
    count++;
    length += strlen(line);
    add(line);
    add("\n");
}

static void
put(const char *text, size_t size)
{
    if (write(1, text, size) != (ssize_t)size)
        exit(1);
}

int
main(int argc, char **argv)
{
    int facts = argc > 1 ? atoi(argv[1]) : 2;
    struct termios settings;
    size_t used = 0;
    char key;

    if (tcgetattr(0, &settings) != 0)
        return 1;
    cfmakeraw(&settings);
    tcsetattr(0, TCSADRAIN, &settings);
    put("> ", 2);
    while (read(0, &key, 1) == 1 && key != '\004') {
        if (key != '\r') {
            put(&key, 1);
            if (used < LINE - 1)
                line[used++] = key;
            continue;
        }
        put("\r\n", 2);
        line[used] = '\0';
        take_line(facts);
        used = 0;
        put("> ", 2);
    }
    return 0;
}
