#include "terminal_type.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <curses.h>
#include <term.h>

// What each capability does.
static const struct {
    const char *name;
    Action action;
} capabilities[] = {
    {"cub", Action::Left},      {"cub1", Action::Left},       {"cuf", Action::Right},
    {"cuf1", Action::Right},    {"cuu", Action::Up},          {"cuu1", Action::Up},
    {"cud", Action::Down},      {"cud1", Action::Down},       {"hpa", Action::Column},
    {"home", Action::Home},     {"ich", Action::Insert},      {"ich1", Action::Insert},
    {"dch", Action::Delete},    {"dch1", Action::Delete},     {"el", Action::EraseRight},
    {"ed", Action::EraseBelow}, {"smir", Action::InsertMode}, {"rmir", Action::ReplaceMode},
    {"sc", Action::Save},       {"rc", Action::Restore},      {"ht", Action::Tab},
    {"u7", Action::Report},     {"ip", Action::Nothing},      {"bel", Action::Nothing},
    {"bold", Action::Nothing},  {"smul", Action::Nothing},    {"rmul", Action::Nothing},
    {"smso", Action::Nothing},  {"rmso", Action::Nothing},    {"rev", Action::Nothing},
    {"sgr0", Action::Nothing},  {"smdc", Action::Nothing},    {"rmdc", Action::Nothing},
};

bool
TerminalType::can(Action action) const
{
    for (const auto &known_one : sequences)
        if (known_one.second == action)
            return true;
    return false;
}

int
TerminalType::usable(int window) const
{
    return margins && delayed ? window : window > 1 ? window - 1 : 1;
}

// A capability without padding, its one number as `#`. Others than numbers are left as they
// are, nothing that is sent looks like them.
static std::string
pattern(const char *capability)
{
    std::string text;
    for (const char *at = capability; *at != '\0';) {
        const char *end;
        if (at[0] == '$' && at[1] == '<' && (end = strchr(at, '>')) != nullptr) {
            at = end + 1;
        } else if (strncmp(at, "%i", 2) == 0) {
            at += 2;
        } else if (strncmp(at, "%p1%d", 5) == 0 || strncmp(at, "%p2%d", 5) == 0) {
            text += '#';
            at += 5;
        } else {
            text += *at++;
        }
    }
    return text;
}

// A capability may be several sequences, as the one that goes home and clears.
static std::vector<std::string>
parts(const std::string &text)
{
    std::vector<std::string> found;
    for (char c : text) {
        if (found.empty() || c == '\033' || found.back()[0] != '\033')
            found.emplace_back();
        found.back() += c;
    }
    return found;
}

static void
read_description(TerminalType *type)
{
    type->margins = tigetflag("am") > 0;
    type->delayed = tigetflag("xenl") > 0;
    for (const auto &capability : capabilities) {
        const char *text = tigetstr(capability.name);
        if (text == nullptr || text == reinterpret_cast<char *>(-1) || *text == '\0')
            continue;
        std::vector<std::string> all = parts(pattern(text));
        for (const std::string &part : all)
            type->sequences.emplace(part,
                                    all.size() == 1 ? capability.action : Action::Nothing);
    }
    const char *clear = tigetstr("clear");
    if (clear != nullptr && clear != reinterpret_cast<char *>(-1))
        for (const std::string &part : parts(pattern(clear)))
            type->sequences.emplace(part, Action::EraseAll);
}

TerminalType
terminal_type(const std::string &name)
{
    TerminalType type;
    type.name = name;
    TERMINAL *before = set_curterm(nullptr);
    int status;
    if (setupterm(name.c_str(), STDOUT_FILENO, &status) == OK) {
        type.known = true;
        read_description(&type);
        del_curterm(cur_term);
    }
    set_curterm(before);
    return type;
}

// ---- types that lack something ----

static const char invented[] = R"(
test-no-column|cannot go to a column, hpa@, use=xterm,
test-no-many|one step at a time, hpa@, cub@, cuf@, cuu@, cud@, ich@, dch@, ich1=\E[@, use=xterm,
test-no-right|cannot go right, hpa@, cuf@, cuf1@, use=xterm,
test-no-left|back by backspaces alone, hpa@, cub@, use=xterm,
test-no-down|down by line feeds alone, cud@, use=xterm,
test-no-up|cannot go up, cuu@, cuu1@, ri@, use=xterm,
test-no-insert|cannot insert, ich@, ich1@, smir@, rmir@, use=xterm,
test-insert-mode|inserts by its mode alone, ich@, ich1@, use=xterm,
test-insert-one|inserts one at a time, ich@, ich1=\E[@, smir@, rmir@, use=xterm,
test-no-delete|cannot delete, dch@, dch1@, use=xterm,
test-delete-one|deletes one at a time, dch@, use=xterm,
test-no-erase-right|cannot clear a row, el@, use=xterm,
test-no-erase-below|cannot clear what is below, ed@, use=xterm,
test-no-erase|cannot clear, el@, ed@, clear@, use=xterm,
test-no-delay|wraps at once, xenl@, use=xterm,
test-no-margins|does not wrap, am@, xenl@, use=xterm,
test-no-save|cannot save the cursor, sc@, rc@, use=xterm,
test-tabs|has hardware tabs, OTpt, hpa@, use=xterm,
test-least|can go up and back,
	am, xenl, cols#80, lines#24, bel=^G, cr=\r, cud1=\n, ind=\n, cub1=^H, cuu1=\E[A,
test-least-margins|can go up and back and does not wrap,
	cols#80, lines#24, bel=^G, cr=\r, cud1=\n, ind=\n, cub1=^H, cuu1=\E[A,
test-padded|with padding everywhere, el=\E[K$<3>, ed=\E[J$<50/>, cuu1=\E[A$<2*>,
	cub=\E[%p1%dD$<1>, dch1=\E[P$<2>, ich=\E[%p1%d@$<3*>, use=xterm,
)";

bool
invent_types(std::vector<std::string> *names)
{
    static char folder[] = "/tmp/terminal_types.XXXXXX";
    if (mkdtemp(folder) == nullptr)
        return false;
    // The database has been asked for nothing so far, and looks there first from now on.
    std::string command = std::string("tic -x -o ") + folder + " - 2>&1";
    FILE *compiler = popen(command.c_str(), "w");
    if (compiler == nullptr)
        return false;
    fputs(invented, compiler);
    if (pclose(compiler) != 0)
        return false;
    setenv("TERMINFO", folder, 1);
    atexit([] {
        std::string remove = std::string("rm -rf ") + folder;
        if (system(remove.c_str()) != 0)
            perror(folder);
    });
    for (const char *line = invented; line != nullptr; line = strchr(line, '\n')) {
        line++;
        if (*line != '\t' && *line != '\0')
            names->push_back(std::string(line, strcspn(line, "|")));
    }
    return true;
}
