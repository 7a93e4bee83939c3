#include "display_random.h"

#include <algorithm>
#include <functional>
#include <stdlib.h>

#include "display_check.h"

static std::mt19937 generator;

static size_t
below(size_t limit)
{
    return generator() % limit;
}

static bool
one_in(size_t count)
{
    return below(count) == 0;
}

template <typename T, size_t N>
static T
any(const T (&from)[N])
{
    return from[below(N)];
}

// ---- texts ----

static const char *const words[] = {
    "access-list",
    "111",
    "permit",
    "tcp",
    "255.168.192.100",
    "0.0.0.255",
    "host",
    "no",
    "100.190.10.255",
    "eq",
    "8080",
    "log",
    "interface",
    "ip",
    "address",
    "a",
    "bc",
    "x1",
    "  ",
};
static const char *const letters[] = {"a", "b", "c", "d", "e", "1", "2", " ", ".", "-"};
static const char *const latin[] = {"\xc3\xa4", "\xc3\xb6", "\xc3\x9f",
                                    "\xc3\xa9", " ",        "z"};
static const char *const wide[] = {
    "\xe6\xbc\xa2", "\xe5\xad\x97", "\xe4\xb8\x8d", "\xf0\x9f\x98\x80", "a", " "};
static const char *const marks[] = {"e\xcc\x81", "a\xcc\x88\xcc\xa3",
                                    "\xcc\x81",  "\xe6\xbc\xa2\xcc\x81",
                                    "b",         "\xcc\x81\xcc\x81\xcc\x81"};
static const char *const others[] = {"\t",
                                     "\001",
                                     "\033",
                                     "\177",
                                     "\n",
                                     "\r",
                                     "x",
                                     "y",
                                     "\xe2\x80\x8d",
                                     "\xc2\xad",
                                     "\xe2\x80\xae",
                                     "\xef\xbb\xbf",
                                     "\xc2\x85",
                                     "\xf3\xa0\x80\x81",
                                     "\xee\x80\x80"};

static std::string
text_of(size_t pieces)
{
    std::string text;
    size_t kind = below(8);
    for (size_t i = 0; i < pieces; i++) {
        switch (kind == 7 ? below(7) : kind) {
        case 0:
        case 1:
            text += std::string(any(words)) + " ";
            break;
        case 2:
            text += any(letters);
            break;
        case 3:
            text += any(latin);
            break;
        case 4:
            text += any(wide);
            break;
        case 5:
            text += any(marks);
            break;
        default:
            text += any(others);
            break;
        }
    }
    return text;
}

static std::string
random_text()
{
    if (one_in(6))
        return text_of(60);
    return text_of(below(16));
}

static std::string
random_prompt(int columns)
{
    static const char *const prompts[] = {
        "> ",
        "> ",
        "",
        "router(config-if)# ",
        "\001\033[1m\002bold\001\033[0m\002> ",
        "\001\033[1m\002\001\033[2m\002b\001\033[0m\002",
        "\xe6\xbc\xa2\xe5\xad\x97> ",
        "two\nrows> ",
        "\n",
        "e\xcc\x81> ",
        "a\tb> ",
        "\001\033]0;title\a\002three\n\xe6\xbc\xa2 rows\n> ",
        "\003^ ",
        "ends invisibly\001\033[1m\002",
    };
    if (one_in(3)) // to the last column, or close to it, perhaps in a later row
        return std::string(static_cast<size_t>(columns) * (1 + below(2)) + below(3) - 1,
                           'p');
    return any(prompts);
}

// ---- keys ----

#define ESC "\033"

static const char *const emacs_keys[] = {
    ESC "[A",        ESC "[B",   ESC "[C",   ESC "[C", ESC "[D",   ESC "[D", ESC "[3~",
    "\001",          "\001",     "\005",     "\005",   "\002",     "\006",   ESC "b",
    ESC "b",         ESC "f",    ESC "f",    "\004",   "\177",     "\177",   "\177",
    "\010",          "\013",     "\025",     "\031",   "\031",     "\027",   ESC "d",
    ESC "\177",      "\024",     "\024",     ESC "c",  ESC "u",    ESC "l",  "\026\001",
    "\026\t",        "\026\n",   "\026\033", "\026x",  "\020",     "\020",   "\016",
    "\000",          "\030\030", ESC "w",    "\037",   ESC "\037", "\f",     ESC "3",
    ESC "1" ESC "2", "\001\024", "\007",     "\xbf",   "\xd9",     ESC "q",  "\r",
    ESC "n",         ESC "p",
};
static const char *const vi_keys[] = {
    ESC,        ESC,      "h",      "h",  "l",    "l",    "w",    "b",       "e",
    "W",        "B",      "E",      "0",  "^",    "$",    "x",    "X",       "D",
    "C",        "dw",     "db",     "dd", "d$",   "cw",   "cc",   "yw",      "yy",
    "p",        "P",      "u",      "U",  "~",    "rx",   "r ",   "Rab" ESC, "i",
    "i",        "i",      "a",      "A",  "I",    "s",    "S",    "j",       "k",
    "k",        "fa",     "t ",     "Fb", ";",    ",",    ".",    "3",       "5x",
    "/a\r",     "?e\r",   "n",      "N",  "|",    "%",    "\177", "\r",      "\f",
    "\026\001", ESC "[D", ESC "[A", "@",  "\020", "\031", "\027", "\025",
};

static void
add_key(DisplaySession *session, const std::string &bytes)
{
    DisplayEvent event;
    event.bytes = bytes;
    session->events.push_back(event);
}

static void
add_search(DisplaySession *session)
{
    static const char *const keys[] = {"a",    "e",    "1",    " ",   "o",
                                       "\022", "\023", "\177", "\027"};
    static const char *const ends[] = {ESC, "\r", "\007", "\005", "\001", ESC "[D"};
    add_key(session, one_in(3) ? "\023" : "\022");
    for (size_t i = below(6); i > 0; i--)
        add_key(session, any(keys));
    add_key(session, any(ends));
}

// One, or several at a time, in a terminal that does always the same.
static void
add_resizes(DisplaySession *session, TerminalModel::Resize how)
{
    DisplayEvent event;
    event.kind = DisplayEvent::Resize;
    event.how = how;
    do {
        event.rows = one_in(2) ? session->rows : static_cast<int>(1 + below(24));
        event.columns = one_in(4) ? session->columns : static_cast<int>(2 + below(80));
        event.is_told = !one_in(4);
        session->events.push_back(event);
    } while (!event.is_told || one_in(3));
}

static void
add_event(DisplaySession *session, bool clears, bool resizes, TerminalModel::Resize how)
{
    size_t which = below(100);
    if (which < 40) {
        std::string text = one_in(2) ? std::string(any(words)) + " " : any(letters);
        for (char c : text)
            add_key(session, std::string(1, c));
    } else if (which < 84) {
        std::string key = session->vi ? any(vi_keys) : any(emacs_keys);
        if (key == "\f" && !clears)
            return;
        add_key(session, key.empty() ? std::string(1, '\0') : key);
        for (size_t more = one_in(5) ? below(8) : 0; more > 0; more--)
            add_key(session, key.empty() ? std::string(1, '\0') : key);
    } else if (which < 88 && !session->vi) {
        add_search(session);
    } else if (which < 96 || !resizes) {
        DisplayEvent event;
        event.kind = one_in(4) ? DisplayEvent::News : DisplayEvent::Answer;
        event.bytes = event.kind == DisplayEvent::News ? "news" : random_text();
        session->events.push_back(event);
    } else {
        add_resizes(session, how);
    }
}

DisplaySession
random_session(unsigned seed, const std::vector<std::string> &types, bool with_resizes)
{
    static const int widths[] = {80, 80, 40, 20, 20, 10, 132, 8, 7, 5, 4, 3, 2, 1};
    static const int heights[] = {24, 24, 10, 5, 4, 3, 2, 1};
    generator.seed(seed);
    DisplaySession session;
    session.type = types[below(types.size())];
    if (one_in(2))
        session.type = "xterm";
    TerminalType type = terminal_type(session.type);
    session.columns = one_in(2) ? any(widths) : static_cast<int>(1 + below(90));
    if (session.columns == 1 && !(type.margins && type.delayed))
        session.columns = 2;
    session.rows = one_in(2) ? any(heights) : static_cast<int>(1 + below(30));
    session.above = static_cast<int>(below(30));
    session.vi = one_in(5);
    session.prompt = random_prompt(session.columns);
    for (size_t entries = below(5); entries > 0; entries--)
        session.history.push_back(random_text());
    bool clears = type.can(Action::EraseAll);
    // What the old size has left can only be cleared by those that can.
    bool resizes = with_resizes && type.margins && type.delayed && type.can(Action::Up) &&
                   type.can(Action::EraseRight) && type.can(Action::EraseBelow);
    TerminalModel::Resize how = one_in(2) ? TerminalModel::Reflows : TerminalModel::Clips;
    if (display_known_resize(session.type, &how))
        session.answers = true;
    else
        session.answers = !one_in(100);
    for (size_t wanted = 20 + below(80); session.events.size() < wanted;)
        add_event(&session, clears, resizes, how);
    return session;
}

// ---- a shorter one ----

static size_t tries_left;

// Whether that goes wrong, too. It is cut where it does.
static bool
still_wrong(DisplaySession *session, DisplayOutcome *outcome)
{
    if (tries_left == 0)
        return false;
    tries_left--;
    if (!session->events.empty())
        session->events.back().is_told = true;
    for (size_t i = 0; i + 1 < session->events.size(); i++)
        if (session->events[i + 1].kind != DisplayEvent::Resize)
            session->events[i].is_told = true;
    DisplayOutcome found = run(*session);
    if (found.trouble.empty())
        return false;
    session->events.resize(std::min(session->events.size(), found.events + 1));
    *outcome = found;
    return true;
}

template <typename T>
static void
drop_parts(DisplaySession *session, std::vector<T> DisplaySession::*list,
           DisplayOutcome *outcome)
{
    for (size_t size = std::max<size_t>(1, (session->*list).size() / 2); size > 0;
         size /= 2)
        for (size_t at = 0; at < (session->*list).size();) {
            DisplaySession without = *session;
            auto first = (without.*list).begin() + static_cast<long>(at);
            (without.*list)
                .erase(first, first + static_cast<long>(
                                          std::min(size, (without.*list).size() - at)));
            if (still_wrong(&without, outcome))
                *session = without;
            else
                at += size;
        }
}

static void
shorten_text(DisplaySession *session,
             const std::function<std::string &(DisplaySession *)> &text,
             DisplayOutcome *outcome)
{
    for (size_t size = std::max<size_t>(1, text(session).size() / 2); size > 0; size /= 2)
        for (size_t at = 0; at < text(session).size();) {
            DisplaySession without = *session;
            text(&without).erase(at, size);
            if (mbstowcs(nullptr, text(&without).c_str(), 0) != static_cast<size_t>(-1) &&
                still_wrong(&without, outcome))
                *session = without;
            else
                at += size;
        }
}

DisplaySession
shortened(DisplaySession session, DisplayOutcome *outcome)
{
    tries_left = 3000;
    if (!still_wrong(&session, outcome))
        return session;
    drop_parts(&session, &DisplaySession::events, outcome);
    drop_parts(&session, &DisplaySession::history, outcome);
    for (int above : {0, session.above / 2}) {
        DisplaySession fewer = session;
        fewer.above = above;
        if (still_wrong(&fewer, outcome))
            session = fewer;
    }
    if (session.prompt.find('\001') == std::string::npos)
        shorten_text(
            &session, [](DisplaySession *of) -> std::string & { return of->prompt; },
            outcome);
    for (size_t i = 0; i < session.history.size(); i++)
        shorten_text(
            &session, [i](DisplaySession *of) -> std::string & { return of->history[i]; },
            outcome);
    for (size_t i = 0; i < session.events.size(); i++)
        if (session.events[i].kind == DisplayEvent::Answer)
            shorten_text(
                &session,
                [i](DisplaySession *of) -> std::string & { return of->events[i].bytes; },
                outcome);
    drop_parts(&session, &DisplaySession::events, outcome);
    run(session); // and what is wrong is that of this one
    return session;
}
