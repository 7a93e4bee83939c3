// What the tests of the editor share: a session in a child process, on a terminal of its
// own, whose keys come from a script, and what became of it. A child, because a memory
// error or a hang ends the process that has it.
#pragma once

#include <editline/readline.h>
#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <locale.h>
#include <poll.h>
#include <pty.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <string>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>
#include <vector>

// Keys, as the terminal sends them.
#define ESC "\033"
#define UP ESC "[A"
#define DOWN ESC "[B"
#define RIGHT ESC "[C"
#define LEFT ESC "[D"

inline std::string
ctrl(char letter)
{
    return std::string(1, static_cast<char>(letter & 037));
}

// Keys, and then what happens before the next ones come.
struct KeysThen {
    std::string keys;
    void (*then)() = nullptr;
};

struct Session {
    std::vector<KeysThen> steps;
    std::vector<std::string> history = {}; // oldest first
    const char *prompt = "> ";
    unsigned short rows = 24;
    unsigned short columns = 80;
    const char *locale = "C.UTF-8";
    const char *terminal = "xterm";
    const char *editrc = "/dev/null";
    void (*before)() = nullptr; // in the child, before the editor is initialised
};

struct Outcome {
    std::string line;   // the line read, or how the session failed
    std::string screen; // everything written to the terminal
};

// How long a session may take; one that hangs is ended by the alarm.
static const unsigned session_seconds = 30;

// ---- in the child ----

static const Session *session;
static size_t step_index;
static size_t key_index;
static int terminal_fd;

// Hands the editor the script's keys as the module's reader does: single bytes, widened
// with their sign.
inline int
scripted_key(FILE *)
{
    while (step_index < session->steps.size()) {
        const KeysThen &step = session->steps[step_index];
        if (key_index < step.keys.size())
            return static_cast<signed char>(step.keys[key_index++]);
        if (step.then != nullptr)
            step.then();
        step_index++;
        key_index = 0;
    }
    return -1;
}

// Gives the terminal another size and lets the editor know.
template <unsigned short Rows, unsigned short Columns>
inline void
resize()
{
    struct winsize size = {Rows, Columns, 0, 0};
    ioctl(terminal_fd, TIOCSWINSZ, &size);
    rl_resize_terminal();
}

inline void
run_child(int result_fd)
{
    alarm(session_seconds);
    setenv("TERM", session->terminal, 1);
    setenv("EDITRC", session->editrc, 1);
    unsetenv("LINES");
    unsetenv("COLUMNS");
    setlocale(LC_ALL, session->locale);
    if (session->before != nullptr)
        session->before();
    rl_instream = fdopen(terminal_fd, "r");
    rl_outstream = fdopen(dup(terminal_fd), "w");
    rl_getc_function = scripted_key;
    rl_initialize();
    for (const std::string &line : session->history)
        add_history(line.c_str());
    const char *line = readline(session->prompt);
    if (line == nullptr)
        line = "(end of input)";
    for (size_t left = strlen(line); left > 0;) {
        ssize_t written = write(result_fd, line, left);
        if (written < 0)
            _exit(2);
        line += written;
        left -= static_cast<size_t>(written);
    }
    _exit(0);
}

// ---- in the test ----

// Reads both ends until the child has closed them.
inline void
collect(int master, int result_fd, Outcome *outcome)
{
    struct pollfd ends[2] = {{master, POLLIN, 0}, {result_fd, POLLIN, 0}};
    std::string *texts[2] = {&outcome->screen, &outcome->line};
    while (ends[0].fd >= 0 || ends[1].fd >= 0) {
        if (poll(ends, 2, -1) < 0 && errno != EINTR)
            break;
        for (int i = 0; i < 2; i++) {
            char buffer[4096];
            if (ends[i].fd < 0 || ends[i].revents == 0)
                continue;
            ssize_t count = read(ends[i].fd, buffer, sizeof buffer);
            if (count > 0)
                texts[i]->append(buffer, static_cast<size_t>(count));
            else
                ends[i].fd = -1;
        }
    }
}

inline Outcome
run(const Session &with)
{
    Outcome outcome;
    int master;
    int result[2];
    struct winsize size = {with.rows, with.columns, 0, 0};
    if (openpty(&master, &terminal_fd, nullptr, nullptr, &size) != 0 || pipe(result) != 0) {
        outcome.line = "(no terminal)";
        return outcome;
    }
    fflush(nullptr);
    session = &with;
    pid_t child = fork();
    if (child == 0) {
        close(master);
        close(result[0]);
        run_child(result[1]);
    }
    close(terminal_fd);
    close(result[1]);
    collect(master, result[0], &outcome);
    close(master);
    close(result[0]);
    int status = 0;
    if (child < 0 || waitpid(child, &status, 0) != child)
        outcome.line = "(no child)";
    else if (WIFSIGNALED(status))
        outcome.line = std::string("(") + strsignal(WTERMSIG(status)) + ")";
    else if (WEXITSTATUS(status) != 0)
        outcome.line = "(exit " + std::to_string(WEXITSTATUS(status)) + ")";
    return outcome;
}

// The line that the steps make.
inline std::string
line_of(const std::vector<KeysThen> &steps)
{
    Session with;
    with.steps = steps;
    return run(with).line;
}

inline std::string
line_of(const std::string &keys)
{
    return line_of({KeysThen{keys}});
}

inline std::string
times(int count, const std::string &text)
{
    std::string all;
    for (int i = 0; i < count; i++)
        all += text;
    return all;
}

// An editor's command, typed.
inline std::string
command(const std::string &text)
{
    return ESC "x" + text + "\r";
}

inline std::string
line_with_history(const std::vector<std::string> &history, const std::string &keys)
{
    Session with;
    with.steps = {{keys}};
    with.history = history;
    return run(with).line;
}

// The line that the keys make where something has happened before the editor is there.
inline std::string
line_after(void (*before)(), const std::string &keys)
{
    Session with;
    with.steps = {{keys}};
    with.before = before;
    return run(with).line;
}

// Editing as in vi, with the keys that follow in its insert mode.
inline std::string
vi(const std::string &keys)
{
    return command("bind -v") + keys;
}
