// Whoever sits at the prompt can reach no more than the line: no command of the editor
// starts a program, makes or reads a file, or sends a signal to another process. The kernel
// watches (confine.h): a session that does any of it ends by "Bad system call".
#include "editor_in_child.h"

#include "../support/confine.h"

#include <set>

// What such a session comes to.
static const std::string caught = "(Bad system call)";

static void
confine_or_die()
{
    if (confine(0) != 0)
        _exit(9);
}

// The module's hook answers; the editor itself completes nothing.
static char **
no_completion(const char *, int, int)
{
    rl_attempted_completion_over = 1;
    return nullptr;
}

static void
as_the_module_starts()
{
    rl_attempted_completion_function = no_completion;
    signal(SIGTSTP, SIG_IGN); // the key for suspend would stop the test
    setenv("EDITOR", "true", 1);
}

// ---- that the kernel watches ----

static std::string
line_after_act(void (*act)())
{
    Session with;
    with.steps = {{"a", confine_or_die}, {"b", act}, {"\n"}};
    with.before = as_the_module_starts;
    return run(with).line;
}

TEST(EditorRights, TheKernelWatches)
{
    EXPECT_EQ(line_after_act([] {}), "ab");
    EXPECT_EQ(line_after_act([] { kill(getpid(), 0); }), "ab");
    EXPECT_EQ(line_after_act([] { raise(SIGTSTP); }), "ab");
    EXPECT_EQ(line_after_act([] { kill(getppid(), 0); }), caught);
    EXPECT_EQ(line_after_act([] { kill(0, 0); }), caught);
    EXPECT_EQ(line_after_act([] { fork(); }), caught);
    EXPECT_EQ(line_after_act([] { execl("/bin/true", "true", nullptr); }), caught);
    EXPECT_EQ(line_after_act([] { close(open("/dev/null", O_RDONLY)); }), caught);
    EXPECT_EQ(line_after_act([] { unlink("/nowhere/at/all"); }), caught);
    EXPECT_EQ(line_after_act([] { access("/dev/null", R_OK); }), caught);
}

// ---- every command ----

// The names of all commands that the editor knows, as it lists them.
static std::vector<std::string>
all_commands()
{
    Session with;
    with.steps = {{command("bind -l")}, {"\n"}};
    with.columns = 200;
    std::string listed = run(with).screen;
    std::vector<std::string> names;
    for (size_t at = 0, end; (end = listed.find("\r\n", at)) != std::string::npos;
         at = end + 2)
        if (listed.compare(end + 2, 1, "\t") == 0)
            names.push_back(listed.substr(listed[at] == '\r' ? at + 1 : at, end - at));
    return names;
}

static const std::string *walked;

// Puts the command on a key of both maps. Then the process is confined.
static void
bind_and_confine()
{
    rl_parse_and_bind(("bind ^] " + *walked).c_str());
    rl_parse_and_bind(("bind -a ^] " + *walked).c_str());
    confine_or_die();
}

// The key in the middle of text, with a count, again, and what commands wait for: a
// character, a line that ends.
static std::string
keys_around(const std::string &escape)
{
    std::string key(1, '\035');
    return "x" + escape + "ione two" + escape + key + "a" + escape + "b" ESC "3" + key +
           "w" + key + key + escape + "0" + key + "xy" + key + "bind\r" + key;
}

// Every session ends as sessions do.
static void
walk(const std::string &name, const char *mode, const std::string &escape)
{
    Session with;
    with.history = {"an older line", "a newer line"};
    with.before = as_the_module_starts;
    walked = &name;
    // Commands that end the input in an empty line are not there to be tried again.
    for (const char *first : {"", "\035"}) {
        with.steps = {{mode, bind_and_confine}, {first + keys_around(escape)}};
        std::string line = run(with).line;
        EXPECT_TRUE(line[0] != '(' || line == "(end of input)")
            << name << " after " << mode << escape << first << ": " << line;
    }
}

TEST(EditorRights, NoCommandLeavesTheLine)
{
    std::vector<std::string> names = all_commands();
    std::set<std::string> known(names.begin(), names.end());
    EXPECT_GT(known.size(), 90u);
    for (const char *name :
         {"vi-histedit", "vi-alias", "ed-command", "rl_complete", "rl_tstp"})
        EXPECT_EQ(known.count(name), 1u) << name;
    for (const std::string &name : names) {
        walk(name, "", "");
        walk(name, ESC "xbind -v\r", "");
        walk(name, ESC "xbind -v\r", ESC);
    }
}

// ---- command lines ----

// What can be said after Meta-X, or stand in the settings. None of it names a file that is
// looked at, or made.
static const char *const lines[] = {
    "bind",
    "bind -l",
    "bind -v",
    "bind -a v vi-histedit",
    "bind ^T vi-histedit",
    "bind -s ^T \"!true\"",
    "echotc home",
    "echotc -v lines",
    "edit off",
    "edit on",
    "history",
    "history list",
    "history size 5",
    "history unique 1",
    "history load /dev/null",
    "history save /tmp/history-of-editor",
    "telltc",
    "settc cl x",
    "settc term ../../../etc/passwd",
    "setty",
    "setty -a",
    "setty +isig -icanon",
    "source /dev/null",
    "test:source /dev/null",
    ".*:bind ^T vi-histedit",
    "!true",
    "`true`",
    "$(true)",
    "/bin/true",
    "sh -c true",
    "^[xtrue",
};

TEST(EditorRights, NoCommandLineLeavesTheLine)
{
    Session with;
    with.before = as_the_module_starts;
    for (const char *line : lines) {
        with.steps = {{"", confine_or_die},
                      {command(line) + command("edit on") + "a" + ctrl('T') + ESC "vb\n"}};
        std::string read = run(with).line;
        EXPECT_TRUE(read[0] != '(' || read == "(end of input)") << line << ": " << read;
    }
}

static void
may_look_or_die()
{
    as_the_module_starts();
    if (confine(1) != 0)
        _exit(9);
}

TEST(EditorRights, NoSettingsLeaveTheLine)
{
    char path[] = "/tmp/settings.XXXXXX";
    Session with;
    with.before = may_look_or_die;
    with.editrc = path;
    close(mkstemp(path));
    for (const char *line : lines) {
        FILE *settings = fopen(path, "w");
        ASSERT_NE(settings, nullptr);
        fprintf(settings, "%s\n", line);
        fclose(settings);
        // The key that it may have bound, and the one of vi's.
        with.steps = {{"a" + ctrl('T') + ESC "vb\n"}};
        std::string read = run(with).line;
        EXPECT_TRUE(read[0] != '(' || read == "(end of input)") << line << ": " << read;
    }
    unlink(path);
}

// The settings themselves are watched as well.
TEST(EditorRights, TheKernelWatchesTheSettings)
{
    Session with;
    with.before = [] {
        may_look_or_die();
        close(open("/tmp/made", O_WRONLY | O_CREAT, 0600));
    };
    EXPECT_EQ(run(with).line, caught);
}
