// The editor in windows of every size: those that shrink under the text, of one row or few
// columns, of sizes that no terminal has, and those there is no memory for.
#include "editor_in_child.h"

#include <histedit.h>
#include <wchar.h>

static Outcome
at(unsigned short rows, unsigned short columns, const std::string &keys,
   const char *prompt = "> ", const char *terminal = "xterm")
{
    Session with;
    with.steps = {{keys}};
    with.rows = rows;
    with.columns = columns;
    with.prompt = prompt;
    with.terminal = terminal;
    return run(with);
}

// ---- windows that change under the text ----

static const std::string text100(100, 'a');

TEST(EditorSize, NarrowerUnderALongLine)
{
    EXPECT_EQ(line_of({{text100, resize<24, 20>}, {"b\n"}}), text100 + "b");
}

TEST(EditorSize, LowerUnderALongLine)
{
    EXPECT_EQ(line_of({{times(10, text100), resize<3, 80>}, {"b\n"}}),
              times(10, text100) + "b");
}

// What the terminal shows behind this is drawn for the new window.
static void
lower_window()
{
    fflush(rl_outstream);
    ASSERT_EQ(write(terminal_fd, "\f", 1), 1);
    resize<3, 10>();
}

// The terminal has kept the cursor in the window's last row, two below its first.
TEST(EditorSize, LowerWindowIsDrawnFromItsFirstRow)
{
    Session with;
    with.steps = {{times(5, "abcdefghij"), lower_window}, {ctrl('R')}, {"\n"}};
    with.rows = 6;
    with.columns = 10;
    EXPECT_NE(run(with).screen.find("\f" ESC "[2A\r"), std::string::npos);
}

// Sizes in an order that looks like none but is the same every time.
static void
resize_somehow()
{
    static const unsigned short sides[] = {80, 1, 2, 3, 5, 8, 13, 24, 132, 300};
    static unsigned state = 1;
    state = state * 1103515245 + 12345;
    unsigned short rows = sides[(state >> 16) % 10];
    state = state * 1103515245 + 12345;
    struct winsize size = {rows, sides[(state >> 16) % 10], 0, 0};
    ioctl(terminal_fd, TIOCSWINSZ, &size);
    rl_resize_terminal();
}

TEST(EditorSize, StormOfSizes)
{
    std::vector<KeysThen> steps;
    for (int i = 0; i < 100; i++)
        steps.push_back({i % 5 == 0 ? LEFT + text100 + "\x7f" : "b", resize_somehow});
    steps.push_back({ctrl('U') + "c\n"});
    EXPECT_EQ(line_of(steps), "c");
}

// ---- few rows and columns ----

static const char bold_prompt[] = "\001\033[1m\002bold\001\033[0m\002> ";

TEST(EditorSize, RowWithoutItsEnd)
{
    EXPECT_EQ(
        at(2, 5, "\xc3\xa4" + ctrl('E') + ctrl('V') + "\n" UP "\n", bold_prompt, "dumb")
            .line,
        "\u00e4\n");
}

TEST(EditorSize, RowBehindTheLastOne)
{
    EXPECT_EQ(
        at(3, 6,
           "cd abcdefgh" + ctrl('W') + ctrl('Y') + "cd " ESC "b" + ctrl('E') + "abcdefgh\n",
           bold_prompt)
            .line,
        "cd abcdefghcd abcdefgh");
}

TEST(EditorSize, RowsBeyondTheLast)
{
    std::string control = ctrl('V') + "\001";
    EXPECT_EQ(at(2, 2, control + control + ESC "b" ESC "f\xc3\xa4\n", "").line,
              "\001\001\u00e4");
}

TEST(EditorSize, RowsBeyondTheLastOfADumbTerminal)
{
    EXPECT_EQ(at(4, 3, ESC "9b" ESC "ba" + ctrl('E') + "cd \n", "> ", "dumb").line,
              "abbbbbbbbbcd ");
}

// ---- sizes that no terminal has ----

// Types what the editor takes the size for.
static void
insert_size()
{
    int rows;
    int columns;
    rl_get_screen_size(&rows, &columns);
    rl_insert_text((std::to_string(rows) + "x" + std::to_string(columns)).c_str());
}

static std::string
size_of_window(unsigned short rows, unsigned short columns)
{
    Session with;
    with.steps = {{"", insert_size}, {"\n"}};
    with.rows = rows;
    with.columns = columns;
    return run(with).line;
}

TEST(EditorSize, AnyWindow)
{
    EXPECT_EQ(size_of_window(0, 0), "24x80"); // what the terminal's description says
    EXPECT_EQ(size_of_window(1, 1), "1x1");
    EXPECT_EQ(size_of_window(24, 4096), "24x4096");
    EXPECT_EQ(size_of_window(24, 4097), "24x4096");
    EXPECT_EQ(size_of_window(24, 65535), "24x4096");
    EXPECT_EQ(size_of_window(2048, 80), "2048x80");
    EXPECT_EQ(size_of_window(2049, 80), "2048x80");
    EXPECT_EQ(size_of_window(65535, 80), "2048x80");
}

static std::string
size_by_command(const std::string &rows, const std::string &columns)
{
    return line_of(
        {{command("settc li " + rows) + command("settc co " + columns), insert_size},
         {"\n"}});
}

TEST(EditorSize, SizeByCommand)
{
    EXPECT_EQ(size_by_command("1", "2"), "1x2");
    EXPECT_EQ(size_by_command("0", "1"), "24x1");
    EXPECT_EQ(size_by_command("-1", "-2147483648"), "24x80");
    EXPECT_EQ(size_by_command("9999", "1000000"), "2048x4096");
    EXPECT_EQ(size_by_command("9999", "99999999999999999999"), "2048x4096");
}

template <int Rows, int Columns>
static void
set_size_and_insert_it()
{
    rl_set_screen_size(Rows, Columns);
    insert_size();
}

TEST(EditorSize, SizeByCall)
{
    EXPECT_EQ(line_of({{"", set_size_and_insert_it<-5, INT32_MIN>}, {"\n"}}), "24x80");
    EXPECT_EQ(line_of({{"", set_size_and_insert_it<3000, 5000>}, {"\n"}}), "2048x4096");
}

// ---- sizes there is no memory for ----

static size_t refused_count; // of the cells of a row that there is no memory for
static int refused_after;    // so many that there still is memory for

// Stands in for the C library's, or the sanitizer's, which have a second name: dlsym()
// calls calloc() itself in older C libraries.
#ifdef __SANITIZE_ADDRESS__
#define real_calloc __interceptor_calloc
#else
#define real_calloc __libc_calloc
#endif
extern "C" void *real_calloc(size_t, size_t) noexcept;

extern "C" void *
calloc(size_t count, size_t size) noexcept
{
    if (count == refused_count && size == sizeof(wint_t) && refused_after-- <= 0)
        return nullptr;
    return real_calloc(count, size);
}

static void
resize_without_memory()
{
    for (int rows = 0; rows < 60; rows++) {
        refused_count = 132;
        refused_after = rows;
        resize<30, 132>();
        refused_count = 0;
    }
}

TEST(EditorSize, NoMemoryForAnotherSize)
{
    EXPECT_EQ(line_of({{text100, resize_without_memory}, {LEFT "b", insert_size}, {"\n"}}),
              "24x80" + text100.substr(1) + "ba");
}

static void
start_without_memory()
{
    FILE *terminal = fdopen(dup(terminal_fd), "r+");
    for (int rows = 0; rows < 48; rows++) {
        refused_count = 77;
        refused_after = rows;
        EditLine *editor = el_init("test", terminal, terminal, stderr);
        refused_count = 0;
        if (editor != nullptr)
            _exit(3);
    }
}

TEST(EditorSize, NoMemoryForTheFirstSize)
{
    Session with;
    with.steps = {{"a\n"}};
    with.columns = 77; // the terminal library asks for 80 pointers, which may be as small
    with.before = start_without_memory;
    EXPECT_EQ(run(with).line, "a");
}
