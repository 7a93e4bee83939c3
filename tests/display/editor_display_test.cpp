// What the editor draws: after every key the screen is the layout of prompt and line.
//
// KEYLINE_DISPLAY_KEYS sets how many keys, KEYLINE_DISPLAY_SEED with which the first
// session is made up; each session has the next number. A session that goes wrong is told
// with its number and shortened.
#include <gtest/gtest.h>
#include <signal.h>
#include <stdlib.h>
#include <unistd.h>

#include "display_random.h"
#include "display_session.h"

static unsigned session_seed; // of the session under way

// A session that hangs says which it was.
static void
tell_seed(int number)
{
    char text[80];
    int length = snprintf(text, sizeof text, "signal %d in KEYLINE_DISPLAY_SEED=%u\n",
                          number, session_seed);
    if (write(STDERR_FILENO, text, static_cast<size_t>(length)) < 0)
        _exit(2);
    signal(number, SIG_DFL);
    raise(number);
}

extern "C" void __asan_on_error();

extern "C" void
__asan_on_error()
{
    fprintf(stderr, "KEYLINE_DISPLAY_SEED=%u\n", session_seed);
}

static unsigned long
from_environment(const char *name, unsigned long otherwise)
{
    const char *text = getenv(name);
    return text == nullptr ? otherwise : strtoul(text, nullptr, 10);
}

class EditorDisplay : public ::testing::Test
{
  protected:
    static void SetUpTestSuite()
    {
        types = {"xterm", "vt100", "vt220", "linux", "screen",
                 "tmux",  "rxvt",  "ansi",  "dumb",  "vt52"};
        ASSERT_TRUE(invent_types(&types));
        display_set_up();
        signal(SIGALRM, tell_seed);
#ifndef __SANITIZE_ADDRESS__
        signal(SIGSEGV, tell_seed);
        signal(SIGABRT, tell_seed);
#endif
    }

    // So many keys in random sessions. Stops after a few that went wrong.
    static void random_sessions(unsigned long keys, bool with_resizes)
    {
        unsigned seed = static_cast<unsigned>(from_environment("KEYLINE_DISPLAY_SEED", 1));
        int failures_left = 3;
        printf("KEYLINE_DISPLAY_SEED=%u\n", seed);
        unsigned long sessions = 0;
        for (unsigned long done = 0; done < keys && failures_left > 0; seed++, sessions++) {
            session_seed = seed;

            DisplaySession session = random_session(seed, types, with_resizes);
            DisplayOutcome outcome = run(session);
            done += outcome.events + 1;
            if (outcome.trouble.empty())
                continue;
            failures_left--;
            session = shortened(session, &outcome);
            ADD_FAILURE() << "KEYLINE_DISPLAY_SEED=" << seed << "\n"
                          << description(session) << "  " << outcome.trouble;
        }

        printf("%lu sessions\n", sessions);
    }

    static inline std::vector<std::string> types;
};

// ---- what was wrong once ----

// Keys of one byte each, after a prompt of two columns.
static DisplaySession
session_of(const std::string &keys, int columns)
{
    DisplaySession session;
    session.type = "xterm";
    session.prompt = "> ";
    session.above = 3;
    session.columns = columns;
    for (char key : keys) {
        DisplayEvent event;
        event.bytes = key;
        session.events.push_back(event);
    }
    return session;
}

static void
expect_right(const DisplaySession &session)
{
    DisplayOutcome outcome = run(session);
    EXPECT_EQ(outcome.trouble, "") << description(session);
    EXPECT_EQ(outcome.events, session.events.size());
}

TEST_F(EditorDisplay, WordBeforeALineOfTwoRows)
{
    std::string line = "access-list 111 permit tcp 255.168.192.100 0.0.0.255 host "
                       "100.190.10.255 eq 8080 log";
    for (int columns : {80, 40, 20})
        expect_right(session_of(line + "\001no \005\177\177\r", columns));
}

TEST_F(EditorDisplay, CommandThatFailsHalfWay)
{
    expect_right(session_of("one two\001\024\024x\005y\r", 80));
}

// The row that a wide character has left goes on for the terminal until its last cell is
// written, which has no cell to be cleared.
TEST_F(EditorDisplay, RowsClearedWithBlanksNoLongerGoOn)
{
    DisplaySession session =
        session_of(std::string(17, 'a') + "\t\025bbbbbbbbbbb\026\nc\r", 10);
    session.type = "test-no-erase";
    session.events[17].kind = DisplayEvent::Answer;
    session.events[17].bytes = "漢";
    expect_right(session);
}

// The cursor of vi's commands stands on the last character, not on its mark.
TEST_F(EditorDisplay, EnterOnAMarkInVi)
{
    DisplaySession session = session_of("\033k8 \r", 20);
    session.vi = true;
    session.history = {"ab\u0301"};
    expect_right(session);
}

// It is asked for its cursor once, and does not answer.
TEST_F(EditorDisplay, ResizeOfATerminalThatDoesNotAnswer)
{
    DisplaySession session = session_of(std::string(100, 'a') + "\002\002", 80);
    session.answers = false;
    for (int columns : {60, 90, 70}) {
        DisplayEvent event;
        event.kind = DisplayEvent::Resize;
        event.rows = 24;
        event.columns = columns;
        session.events.push_back(event);
    }
    session.events.push_back(session.events[0]);
    expect_right(session);
}

// What has left the window at its top belongs to the line, too: the cursor's column says
// nothing of what the terminal does.
TEST_F(EditorDisplay, ResizeOfALineThatIsTallerThanTheWindow)
{
    DisplaySession session = session_of(std::string(38, 'a'), 5);
    session.rows = 6;
    DisplayEvent event;
    event.kind = DisplayEvent::Resize;
    event.rows = 24;
    event.columns = 40;
    session.events.push_back(event);
    expect_right(session);
}

// A wide character has no room in a row of one column, and takes one all the same.
TEST_F(EditorDisplay, ResizeToOneColumnAndBack)
{
    DisplaySession session = session_of("", 1);
    session.prompt = "漢字";
    session.above = 4;
    DisplayEvent event;
    event.kind = DisplayEvent::Resize;
    event.rows = 24;
    for (int columns : {11, 1}) {
        event.columns = columns;
        session.events.push_back(event);
    }
    session.events.push_back(session_of("a", 1).events[0]);
    expect_right(session);
}

// ---- at random ----

TEST_F(EditorDisplay, ScreenIsTheLayout)
{
    random_sessions(from_environment("KEYLINE_DISPLAY_KEYS", 50000), false);
}

TEST_F(EditorDisplay, ScreenIsTheLayoutAfterResizes)
{
    random_sessions(from_environment("KEYLINE_DISPLAY_KEYS", 50000) / 2, true);
}
