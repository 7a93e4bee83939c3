#include "display_session.h"

#include <algorithm>
#include <fcntl.h>
#include <locale.h>
#include <memory>
#include <pty.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ioctl.h>
#include <unistd.h>
#include <wchar.h>

extern "C" {
#include "config.h"

#include "el.h"
#include "sig.h"

#include <editline/readline.h>
}

#include "display_check.h"

static int terminal_fd = -1; // the settings and the size are there, but no keys
static int user_fd = -1;     // its other end
static std::unique_ptr<TerminalModel> terminal;
static std::unique_ptr<DisplayCheck> check;
static const DisplaySession *session;
static size_t next_event;
static size_t next_byte; // of a key
static std::string answer;
static std::wstring prompt; // as it is laid out
static std::string trouble;
static bool is_over;     // the reader has said so
static EditLine *editor; // that of the session

// ---- what is on the screen ----

static std::wstring
decoded(const std::string &text)
{
    std::wstring wide(text.size() + 1, L'\0');
    size_t count = mbstowcs(&wide[0], text.c_str(), wide.size());
    wide.resize(count == static_cast<size_t>(-1) ? 0 : count);
    return wide;
}

// As the editor makes its own marks of the two that begin and end what has no columns.
static std::wstring
decoded_prompt(std::string text)
{
    for (size_t at; (at = text.find("\002\001")) != std::string::npos;)
        text.erase(at, 2);
    for (char &c : text)
        if (c == RL_PROMPT_END_IGNORE)
            c = RL_PROMPT_START_IGNORE;
    return decoded(text);
}

static Layout
layout_now()
{
    const el_line_t &line = sig_reader()->el_line;
    return naive_layout(
        prompt, RL_PROMPT_START_IGNORE, std::wstring(line.buffer, line.lastchar),
        static_cast<size_t>(line.cursor - line.buffer), check->usable_width());
}

// The line that was read, characters that have no bytes included, without its end.
static std::wstring
entered()
{
    const el_line_t &line = editor->el_line;
    return std::wstring(line.buffer, line.lastchar - 1);
}

// ---- what the shell does ----

static size_t written; // since the size has changed; a beep shows nothing
static bool is_left;   // what is on the screen is what the terminal made of it

// Where the terminal has laid the rows out itself nothing is drawn before the next key.
static void
compare_resized()
{
    is_left = written == 0;
    if (!is_left)
        trouble = check->compare_resized(layout_now());
}

// The cursor goes below the line, as the shell's would that knows how long it is, and
// prints there.
static void
print_below(const std::string &text)
{
    if (is_left) {
        rl_save_start(); // as before any callback
        fflush(rl_outstream);
        compare_resized();
    }
    fflush(rl_outstream);
    terminal->feed(std::string(check->rows_below(), '\n') + text);
    check->begin();
}

static char **
complete(const char *, int, int)
{
    rl_attempted_completion_over = 1;
    print_below("");
    rl_point = rl_end;
    rl_insert_text(answer.c_str());
    rl_point = rl_end;
    rl_forced_update_display();
    return nullptr;
}

static void
set_size(int rows, int columns)
{
    struct winsize size = {static_cast<unsigned short>(rows),
                           static_cast<unsigned short>(columns), 0, 0};
    ioctl(terminal_fd, TIOCSWINSZ, &size);
}

static void
change_size(const DisplayEvent &event)
{
    if (!is_left)
        written = 0;
    check->resize(terminal.get(), event.rows, event.columns, event.how);
    set_size(event.rows, event.columns);
    if (!event.is_told)
        return;
    check->told();
    if (check->is_misleading()) {
        is_over = true;
        return;
    }
    raise(SIGWINCH);
    fd_set none;
    FD_ZERO(&none);
    rl_select(0, &none); // serves the signal
    fflush(rl_outstream);
    compare_resized();
}

static bool is_traced = getenv("KEYLINE_DISPLAY_TRACE") != nullptr;

static std::string
quoted(const std::string &text)
{
    std::string all = "\"";
    char code[8];
    for (unsigned char c : text) { // as char is on some machines anyway
        if (c < ' ' || c == 127) {
            snprintf(code, sizeof code, "\\%03o", static_cast<unsigned>(c));
            all += code;
        } else {
            all += static_cast<char>(c);
        }
    }
    return all + "\"";
}

// ---- what the editor asks for ----

// The output is a terminal, too, though it has no descriptor.
extern "C" int
isatty(int) noexcept
{
    return 1;
}

// Not all of the last changes of the size have been told.
static bool
is_resizing()
{
    return next_event > 0 && !session->events[next_event - 1].is_told;
}

// One key may do several things: what vi repeats, and a search, which shows what it looks
// for before what it has found.
static bool
has_more()
{
    const el_line_t &line = sig_reader()->el_line;
    std::wstring text(line.buffer, line.lastchar);
    return session->vi || text.find(L"\nbck") != text.npos ||
           text.find(L"\nfwd") != text.npos;
}

static ssize_t
show(void *, const char *text, size_t size)
{
    if (is_traced)
        printf("    wrote %s\n", quoted(std::string(text, size)).c_str());
    terminal->feed(text, size);
    written += size - static_cast<size_t>(std::count(text, text + size, '\a'));
    std::string answers = terminal->take_answers();
    if (session->answers && write(user_fd, answers.data(), answers.size()) < 0)
        abort();
    return static_cast<ssize_t>(size);
}

static int
next_key(FILE *)
{
    for (;;) {
        if (is_over)
            return -1;
        fflush(rl_outstream);
        if (is_left)
            compare_resized();
        if (trouble.empty() && !is_resizing() && !is_left)
            trouble = check->compare(layout_now(), has_more());
        if (is_traced)
            printf("%s%sbefore key %zu\n", terminal->text().c_str(), trouble.c_str(),
                   next_event);
        editor = sig_reader();
        const el_line_t &line = editor->el_line;
        is_over = !trouble.empty() || next_event == session->events.size() ||
                  line.lastchar - line.buffer > 5000; // a key was repeated very often
        if (is_over)
            return -1;
        const DisplayEvent &event = session->events[next_event];
        if (event.kind == DisplayEvent::Key && next_byte < event.bytes.size())
            return static_cast<signed char>(event.bytes[next_byte++]);
        next_event++;
        next_byte = 0;
        switch (event.kind) {
        case DisplayEvent::Key:
            break;
        case DisplayEvent::Answer:
            answer = event.bytes;
            return '\t';
        case DisplayEvent::News:
            print_below(event.bytes + "\n");
            check->begin();
            rl_forced_update_display();
            break;
        case DisplayEvent::Resize:
            change_size(event);
            break;
        }
    }
}

void
display_set_up()
{
    setlocale(LC_ALL, "C.UTF-8");
    setenv("EDITRC", "/dev/null", 1);
    unsetenv("LINES");
    unsetenv("COLUMNS");
    if (openpty(&user_fd, &terminal_fd, nullptr, nullptr, nullptr) != 0)
        abort();
    cookie_io_functions_t stream = {nullptr, show, nullptr, nullptr};
    rl_instream = fdopen(terminal_fd, "r");
    rl_outstream = fopencookie(nullptr, "w", stream);
    rl_getc_function = next_key;
    rl_attempted_completion_function = complete;
}

// One line after the other, until everything has happened.
DisplayOutcome
run(const DisplaySession &with)
{
    alarm(20); // for one that hangs
    TerminalType type = terminal_type(with.type);
    terminal = std::make_unique<TerminalModel>(type, with.rows, with.columns);
    check = std::make_unique<DisplayCheck>(terminal.get(), type);
    session = &with;
    next_event = next_byte = 0;
    is_left = false;
    trouble.clear();
    is_over = false;
    prompt = decoded_prompt(with.prompt);
    set_size(with.rows, with.columns);
    setenv("TERM", with.type.c_str(), 1);
    rl_terminal_name = nullptr;
    rl_initialize();
    clear_history();
    for (const std::string &line : with.history)
        add_history(line.c_str());
    rl_parse_and_bind("bind M-x ed-unassigned"); // it prints
    if (with.vi)
        rl_parse_and_bind("bind -v");
    for (int i = 0; i < with.above; i++)
        terminal->feed("o" + std::to_string(i) + "\n");
    while (!is_over) {
        check->begin();
        char *line = readline(with.prompt.c_str());
        if (line == nullptr || is_over) {
            free(line);
            terminal->feed("\n"); // as the shell would: something may stand there
            continue;
        }
        fflush(rl_outstream);
        trouble = check->compare_entered(naive_layout(
            prompt, RL_PROMPT_START_IGNORE, entered(), no_cursor, check->usable_width()));
        free(line);
        is_over = is_over || !trouble.empty();
    }
    alarm(0);
    return {next_event, trouble};
}

// ---- to be read ----

static std::string
name(const std::string &bytes)
{
    static const struct {
        const char *bytes;
        const char *name;
    } names[] = {
        {"\033[A", "Up"},   {"\033[B", "Down"},    {"\033[C", "Right"},
        {"\033[D", "Left"}, {"\033[3~", "Delete"}, {"\r", "Enter"},
        {"\n", "Ctrl-J"},   {"\x7f", "Backspace"}, {"\033", "Escape"},
        {" ", "Space"},     {"\t", "TAB"},
    };
    for (const auto &key : names)
        if (bytes == key.bytes)
            return key.name;
    std::string text;
    for (size_t i = 0; i < bytes.size(); i++) {
        unsigned char c = static_cast<unsigned char>(bytes[i]);
        if (c == '\033' && i + 1 < bytes.size())
            text += "Meta-";
        else if (c < 32)
            text += std::string("Ctrl-") + static_cast<char>(c ^ 0100);
        else if (c == 127)
            text += "Backspace";
        else
            text += static_cast<char>(c);
        if (c < 32 && c != '\033' && i + 1 < bytes.size())
            text += ' ';
    }
    return text;
}

std::string
description(const DisplaySession &with)
{
    std::string text = "  " + with.type + ", " + std::to_string(with.rows) + " rows of " +
                       std::to_string(with.columns) + " columns, " +
                       std::to_string(with.above) + " printed above" +
                       (with.vi ? ", vi" : "") + (with.answers ? "" : ", mute") +
                       ", prompt " + quoted(with.prompt) + "\n";
    for (const std::string &line : with.history)
        text += "  history: " + quoted(line) + "\n";
    text += "  keys:";
    for (const DisplayEvent &event : with.events) {
        switch (event.kind) {
        case DisplayEvent::Key:
            text += " " + name(event.bytes) + ",";
            break;
        case DisplayEvent::Answer:
            text += " (TAB inserts " + quoted(event.bytes) + "),";
            break;
        case DisplayEvent::News:
            text += " (news " + quoted(event.bytes) + "),";
            break;
        case DisplayEvent::Resize:
            text += " (" + std::to_string(event.rows) + " rows of " +
                    std::to_string(event.columns) +
                    (event.how == TerminalModel::Reflows ? ", reflowed" : ", clipped") +
                    (event.is_told ? ")," : ", and then");
            break;
        }
    }
    return text + "\n";
}
