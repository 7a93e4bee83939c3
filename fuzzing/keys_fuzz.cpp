// Drives the adapted editor with the module's history, key bindings and completion from
// bytes that libFuzzer makes up. Most bytes are keys; 0xFF, which would end the input,
// begins an event instead. An input is one session: its first bytes choose the terminal,
// the rest is typed until it is used up, over as many lines as it ends.
#include <locale.h>
#include <signal.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <string>
#include <sys/select.h>
#include <unistd.h>
#include <vector>

#include "../Cli/history.h"
#include "../lineedit/lineedit.h"
#include "editor_state.h"
#include "input.h"
#include "keys_tables.h"
#include "module_part.h"
#include "screen.h"
#include "terminal_stub.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

extern "C" const char *__asan_default_options();

// Allocations are the larger part of a short session: no stack is kept for each of them.
// The terminal library keeps what it has read.
extern "C" const char *
__asan_default_options()
{
    return "detect_leaks=0:malloc_context_size=2:quarantine_size_mb=8";
}

// ---- the input ----

static bool waits;          // whether this session looks for signals before every key
static std::string pending; // keys that an event stands for
static size_t pending_next;
static int repeat_left; // the key below comes that many times more
static int repeat_key;
static long work_left;       // of the session, which ends when its keys have cost too much
static bool printed = false; // whether to tell what is done, to read a finding

static const long work_at_most = 2500;

// A text of the list, or one longer than the editor's first buffers.
static std::string
any_text()
{
    unsigned which = take();
    std::string text = texts[which % (sizeof texts / sizeof *texts)];
    if (which >= 240)
        for (std::string piece = text + "x"; text.size() < 1100;)
            text += piece;
    return text;
}

// ---- events ----

static std::vector<std::string> functions; // the editor's, by name

static void
bind_and_press(const std::string &function)
{
    rl_parse_and_bind(("bind ^] " + function).c_str());
    rl_parse_and_bind(("bind -a ^] " + function).c_str());
    pending += '\035';
}

// One of the list, or words with any bytes behind them.
static std::string
any_command()
{
    unsigned which = take();
    if (which < 192)
        return commands[which % (sizeof commands / sizeof *commands)];
    static const char *const words[] = {"bind ",  "bind -a ^] ", "bind -s ^] ", "setty ",
                                        "settc ", "echotc ",     "history ",    "edit "};
    std::string line = words[which % 9 % 8];
    if (which % 9 == 8)
        line = functions[take() % functions.size()];
    for (unsigned left = take() % 32; left > 0; left--)
        line += static_cast<char>(take());
    return line;
}

static void wait_for_key();

// Between two waits, to be served later, or during one, which may not return.
static void
signal_comes(bool waiting)
{
    static const int numbers[] = {SIGINT, SIGTSTP, SIGWINCH, SIGCONT, SIGHUP};
    int number = choose(numbers);
    if (number != SIGWINCH)
        screen_lose(); // others may have printed
    if (!waiting) {
        stub_signal(number);
        return;
    }
    stub_wait = number;
    wait_for_key();
}

static void
event()
{
    unsigned kind = take() % 16;
    if (printed)
        fprintf(stdout, "event %u\n", kind);
    switch (kind) {
    case 0:
    case 1: {
        editor_shown before;
        bool shows = editor_shows(&before), was_known = stub_size_known;
        stub_size.ws_row = choose(heights);
        stub_size.ws_col = choose(widths);
        screen_resize(stub_size.ws_row, stub_size.ws_col);
        if (kind == 0)
            rl_resize_terminal();
        // Without a signal nothing is drawn anew for the size that the editor knows, also
        // when the window has had another one meanwhile.
        if (kind == 0 && !was_known && shows && before.rows == stub_size.ws_row &&
            before.columns == stub_size.ws_col)
            screen_lose();
        break;
    }
    case 2:
        screen_clear();
        rl_forced_update_display();
        break;
    case 3:
        repeat_left = static_cast<int>(take() * (take() % 4));
        repeat_key = static_cast<signed char>(take());
        break;
    case 4:
    case 5:
        bind_and_press(functions[take() % functions.size()]);
        break;
    case 6:
        bind_and_press("ed-command");
        pending += any_command();
        pending += '\r';
        break;
    case 7:
        answer.backspaces = take() % 8 == 0 ? take() * 8 : take() % 4;
        answer.is_none = take() % 8 == 0;
        answer.raises = take() % 16 == 0;
        answer.text = any_text();
        break;
    case 8:
        rl_set_prompt(choose(prompts));
        screen_clear();
        rl_forced_update_display();
        break;
    case 9:
        add_history(any_text().c_str());
        break;
    case 10:
        for (const char *digit = choose(counts); *digit != '\0'; digit++)
            (pending += '\033') += *digit;
        break;
    case 11:
        hist_ctx.current_mode = find_history_mode(choose(modes));
        break;
    case 12:
        pending += any_text();
        break;
    case 13:
        signal_comes(false);
        break;
    case 14:
        signal_comes(true);
        break;
    default:
        rl_set_screen_size(choose(heights), choose(widths));
        break;
    }
}

// As the module's reader waits. The descriptor is always ready.
static void
wait_for_key()
{
    int fd = fileno(rl_instream);
    fd_set set;
    do {
        FD_ZERO(&set);
        FD_SET(fd, &set);
    } while (rl_select(fd + 1, &set) <= 0);
}

static int
next_key(FILE *)
{
    const char *broken = editor_broken();
    fflush(rl_outstream);
    std::string wrong = screen_wrong();
    if (broken != nullptr || !wrong.empty()) {
        fprintf(stderr, "does not hold: %s\n", broken != nullptr ? broken : wrong.c_str());
        stub_reading = false; // the fuzzer keeps a copy of the session
        abort();
    }
    work_left -= editor_work() + module_work;
    module_work = 0;
    if (work_left <= 0)
        return -1;
    if (waits)
        wait_for_key();
    for (;;) {
        if (pending_next < pending.size())
            return static_cast<signed char>(pending[pending_next++]);
        pending.clear();
        pending_next = 0;
        if (repeat_left > 0) {
            repeat_left--;
            return repeat_key;
        }
        if (input_left == 0)
            return -1;
        unsigned byte = take();
        if (byte != 0xff) {
            if (printed)
                fprintf(stdout, "key %02x\n", byte);
            return static_cast<signed char>(byte);
        }
        event();
    }
}

// ---- the session ----

static std::string *captured;

static ssize_t
take_output(void *, const char *text, size_t size)
{
    if (captured != nullptr)
        captured->append(text, size);
    else
        screen_write(text, size);
    return static_cast<ssize_t>(size);
}

// Has the editor list its functions, once.
static void
learn_functions()
{
    std::string list;
    captured = &list;
    rl_parse_and_bind("bind -l");
    fflush(rl_outstream);
    captured = nullptr;
    for (size_t at = 0; at < list.size();) {
        size_t end = list.find('\n', at);
        if (list[at] != '\t')
            functions.push_back(list.substr(at, end - at));
        at = end + 1;
    }
}

static void
set_up_once()
{
    setenv("EDITRC", "/dev/null", 1);
    setenv("EDITOR", "/bin/true", 1);
    cookie_io_functions_t stream = {nullptr, take_output, nullptr, nullptr};
    int ready[2];
    if (pipe(ready) != 0 || write(ready[1], "", 1) != 1)
        abort();
    rl_instream = fdopen(ready[0], "r");
    rl_outstream = fopencookie(nullptr, "w", stream);
    rl_getc_function = next_key;
    hist_init_context();
    for (size_t i = 1; i < sizeof modes / sizeof *modes; i++)
        new_history_mode(modes[i], modes[i - 1]);
}

static void
start_session()
{
    stub_reset();
    stub_answer = screen_answer;
    stub_wait = 0;
    stub_size.ws_col = choose(widths);
    stub_size.ws_row = choose(heights);
    unsigned flags = take();
    setenv("TERM", terminals[flags & 7], 1);
    static locale_t locales[] = {newlocale(LC_ALL_MASK, "C.UTF-8", nullptr),
                                 newlocale(LC_ALL_MASK, "C", nullptr)};
    uselocale(locales[(flags & 0x30) == 0x30]);
    screen_start(terminals[flags & 7], stub_size.ws_row, stub_size.ws_col);
    module_start();
    if (functions.empty())
        learn_functions();
    if (flags & 8)
        rl_parse_and_bind("bind -v");
    unsigned more_flags = take();
    waits = more_flags & 1;
    module_lands = more_flags & 2;
    static const int waiting[] = {0, 1, 100, 3000};
    stub_pending = waiting[more_flags >> 2 & 3];
    for (unsigned entries = flags >> 6; entries > 0; entries--)
        add_history(any_text().c_str());
    answer = {any_text(), 0, false, false};
    pending.clear();
    pending_next = 0;
    repeat_left = 0;
    work_left = work_at_most;
}

// A session that is known: the editor edits what it is given, and the screen is compared
// after each key. Without this a terminal that is not good enough for the editor would look
// like a run without findings.
static bool
check_once()
{
    static const uint8_t keys[] = {0, 0, 0, 0, 0, 0, 'a', 'c', 002, 'b', '\n'};
    set_up_once();
    input = keys;
    input_left = sizeof keys;
    stub_signals = true;
    start_session();
    char *line = readline("");
    stub_signals = false;
    if (line == nullptr || strcmp(line, "abc") != 0 || screen_compared() != 4) {
        fprintf(stderr, "the editor does not edit: %s, %lu screens\n",
                line == nullptr ? "no line" : line, screen_compared());
        abort();
    }
    free(line);
    printed = getenv("KEYS_FUZZ_PRINT") != nullptr;
    if (printed)
        setvbuf(stdout, nullptr, _IONBF, 0); // a finding ends the process
    return true;
}

int
LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static bool checked = check_once();
    (void)checked;
    input = data;
    input_left = size;
    stub_signals = true;
    start_session();
    const char *prompt = choose(prompts);
    while (input_left > 0 && work_left > 0) {
        work_left -= 100;
        screen_clear();
        stub_reading = true;
        module_read_line(prompt);
        stub_reading = false;
    }
    stub_signals = false;
    return 0;
}
