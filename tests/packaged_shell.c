/*
 * A shell on the distribution's own line editor, unadapted, with the keys that the module
 * binds: what test_same_screen.py compares the module's screen with. Arguments: the
 * descriptor for facts (see child.py), then the lines of the history, oldest first.
 */
#include <locale.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <editline/readline.h>

/* No matches, and no file names either. */
static char **
complete(const char *text, int start, int end)
{
    (void)text;
    (void)start;
    (void)end;
    rl_attempted_completion_over = 1;
    return NULL;
}

static void
bind_keys(void)
{
    static const char *const commands[] = {"bind ^I rl_complete", "bind ? rl_complete",
                                           "bind ^R em-inc-search-prev",
                                           "bind ^W ed-delete-prev-word"};
    char command[64];

    rl_attempted_completion_function = complete;
    for (size_t at = 0; at < sizeof commands / sizeof *commands; at++)
        rl_parse_and_bind(strcpy(command, commands[at]));
}

/* The fact that a line was read: a literal of its bytes, which the test decodes. */
static void
tell_line(FILE *facts, const char *text)
{
    fprintf(facts, "('line', b'");
    for (; *text != '\0'; text++)
        fprintf(facts, "\\x%02x", (unsigned char)*text);
    fprintf(facts, "')\n");
    fflush(facts);
}

/* Enters a line unless it is empty or the one before, as the module's history does. */
static void
enter(const char *text)
{
    static char *last;

    if (text[strspn(text, " ")] == '\0' || (last != NULL && strcmp(last, text) == 0))
        return;
    free(last);
    last = strdup(text);
    add_history(text);
}

int
main(int argc, char **argv)
{
    FILE *facts = argc > 1 ? fdopen(atoi(argv[1]), "w") : NULL;
    char prompt[16], *line;

    if (facts == NULL)
        return 1;
    setlocale(LC_ALL, "");
    rl_initialize();
    bind_keys();
    for (int at = 2; at < argc; at++)
        enter(argv[at]);
    for (int number = 1;; number++) {
        snprintf(prompt, sizeof prompt, "%d> ", number);
        if ((line = readline(prompt)) == NULL)
            return 0;
        tell_line(facts, line);
        enter(line);
        free(line);
    }
}
