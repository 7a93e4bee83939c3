// What the tests of the adapted editor share: the editor in this process, on a terminal of
// its own, with a character reader of the module's shape. The reader follows a script:
// keys, which are typed at the other end of the terminal, and what happens between them.
#pragma once

#include <functional>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include <fcntl.h>
#include <malloc.h>
#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <time.h>
#include <unistd.h>

extern "C" {
#include "config.h"

#include "el.h"

#include <editline/readline.h>
}

// How long any one wait, and any one test, may take before it has failed.
constexpr int wait_seconds = 20;
constexpr unsigned test_seconds = 60;

// ---- memory ----

#ifdef __SANITIZE_ADDRESS__
extern "C" size_t __sanitizer_get_current_allocated_bytes();
extern "C" const char *__lsan_default_suppressions();

// The terminal library keeps a few bytes of each description that it reads.
extern "C" const char *
__lsan_default_suppressions()
{
    return "leak:libtinfo.so\n";
}
#endif

inline size_t
allocated()
{
#ifdef __SANITIZE_ADDRESS__
    return __sanitizer_get_current_allocated_bytes();
#elif __GLIBC_PREREQ(2, 33)
    return mallinfo2().uordblks;
#else
    return static_cast<unsigned>(mallinfo().uordblks);
#endif
}

// ---- the terminal ----

inline int master = -1;   // the user's end, which never blocks
inline int slave = -1;    // the editor's
inline std::string shown; // all that the user has seen on this terminal

// Takes what has arrived at the user's end.
inline void
drain()
{
    char buffer[4096];
    ssize_t count;
    while ((count = read(master, buffer, sizeof buffer)) > 0)
        shown.append(buffer, static_cast<size_t>(count));
}

// Waits for a state, reading what the editor writes meanwhile. False when it did not come.
inline bool
wait_until(const std::function<bool()> &state)
{
    time_t deadline = time(nullptr) + wait_seconds;
    drain();
    while (!state()) {
        if (time(nullptr) > deadline)
            return false;
        struct pollfd end = {master, POLLIN, 0};
        poll(&end, 1, 1);
        drain();
    }
    return true;
}

// Waits until the user has seen the text, looked for from `from` on.
inline bool
sees(const std::string &text, size_t from = 0)
{
    return wait_until([&] { return shown.find(text, from) != std::string::npos; });
}

inline int
count_shown(const std::string &text, size_t from = 0)
{
    int count = 0;
    while ((from = shown.find(text, from)) != std::string::npos) {
        from += text.size();
        count++;
    }
    return count;
}

inline int
pending()
{
    int count = 0;
    ioctl(slave, FIONREAD, &count);
    return count;
}

// Waits until exactly so many bytes can be read.
inline bool
is_pending(int count)
{
    return wait_until([&] { return pending() == count; });
}

inline struct termios
settings()
{
    struct termios found;
    memset(&found, 0, sizeof found);
    tcgetattr(slave, &found);
    return found;
}

inline bool
same(const struct termios &one, const struct termios &other)
{
    return memcmp(&one, &other, sizeof one) == 0;
}

// Keys come one by one and unseen: what editing needs.
inline bool
is_raw()
{
    return (settings().c_lflag & (ICANON | ECHO)) == 0;
}

inline void
set_window(int rows, int columns)
{
    struct winsize size = {static_cast<unsigned short>(rows),
                           static_cast<unsigned short>(columns), 0, 0};
    ioctl(slave, TIOCSWINSZ, &size);
}

// ---- the script ----

struct Step {
    std::string keys;
    std::function<void()> action;
};

inline std::vector<Step> script;
inline size_t next_step;
inline size_t typed;          // bytes given to the terminal
inline size_t taken;          // bytes that the reader got
inline void (*before_read)(); // called between the wait and the read
inline bool scripted = true;  // or else whoever types is elsewhere

inline Step
keys(const std::string &text)
{
    return {text, nullptr};
}

// Happens when all keys before it have been read and what they do is done.
inline Step
then(const std::function<void()> &action)
{
    return {"", action};
}

inline void
type(const std::string &text)
{
    typed += text.size();
    ASSERT_EQ(write(master, text.data(), text.size()), static_cast<ssize_t>(text.size()));
}

// Goes on with the script until keys are there to be read. False at its end.
inline bool
follow_script()
{
    while (taken >= typed) {
        if (next_step == script.size())
            return false;
        const Step &step = script[next_step++];
        if (step.action)
            step.action();
        if (!step.keys.empty())
            type(step.keys);
    }
    return true;
}

// What the reader does about signals that have come, before the next key does.
inline void
serve_signals()
{
    fd_set none;
    FD_ZERO(&none);
    rl_select(0, &none);
}

extern "C" {
// The reader: waits and reads through the editor's two calls, and keeps a byte's sign. At
// the script's end there is no more input.
inline int
awaited_key(FILE *stream)
{
    if (scripted) {
        fflush(rl_outstream); // or it would be written only when the reader waits
        drain();
        if (!follow_script())
            return -1;
    }
    int fd = fileno(stream);
    fd_set set;
    do {
        FD_ZERO(&set);
        FD_SET(fd, &set);
    } while (rl_select(fd + 1, &set) <= 0);
    if (before_read != nullptr)
        before_read();
    signed char byte;
    if (rl_read(fd, &byte, 1) != 1)
        return -1;
    taken++;
    return byte;
}
}

// ---- one read ----

constexpr const char *end_of_input = "(end of input)";

inline void
set_script(const std::vector<Step> &steps)
{
    script = steps;
    next_step = 0;
}

// The line that is read, or end_of_input. Not to be left by a jump.
inline std::string
read_line(const std::vector<Step> &steps, const char *prompt = "> ")
{
    set_script(steps);
    char *line = readline(prompt);
    std::string result = line == nullptr ? end_of_input : line;
    free(line);
    drain();
    return result;
}

// ---- the fixture ----

// An editor that has just started on a fresh terminal, with the settings that terminals
// start with.
class EditorTest : public ::testing::Test
{
  protected:
    struct termios original;

    void SetUp() override
    {
        alarm(test_seconds);
        setenv("TERM", "xterm", 1);
        setenv("EDITRC", "/dev/null", 1);
        unsetenv("LINES");
        unsetenv("COLUMNS");
        rl_getc_function = awaited_key;
        rl_attempted_completion_function = nullptr;
        rl_terminal_name = nullptr;
        rl_readline_name = "test";
        open_terminal();
        start_editor(fdopen(slave, "r"), fdopen(dup(slave), "w"));
        original = settings();
    }

    // Ends the editor's instance before its terminal.
    void TearDown() override
    {
        std::vector<FILE *> over;
        over.swap(streams);
        start_editor(fopen("/dev/null", "r"), fopen("/dev/null", "w"));
        for (FILE *stream : over)
            fclose(stream);
        close(master);
        alarm(0);
    }

    static void start_editor(FILE *in, FILE *out)
    {
        rl_instream = in;
        rl_outstream = out;
        streams.push_back(in);
        streams.push_back(out);
        ASSERT_EQ(rl_initialize(), 0);
    }

  private:
    static inline std::vector<FILE *> streams; // open, owned

    static void open_terminal()
    {
        struct winsize size = {24, 80, 0, 0};
        ASSERT_EQ(openpty(&master, &slave, nullptr, nullptr, &size), 0);
        fcntl(master, F_SETFL, O_NONBLOCK);
        shown.clear();
        typed = taken = 0;
        before_read = nullptr;
        scripted = true;
    }
};
