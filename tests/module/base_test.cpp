// The report of a failed check: what operators know, and what it must not need.
#include "../../Cli/base.h"
#include "../../lineedit/lineedit.h"
#include "../support/failing_malloc.h"

#include <errno.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <string>
#include <unistd.h>

static void
say(const char *text)
{
    EXPECT_NE(write(STDERR_FILENO, text, strlen(text)), -1);
}

// In the editor's place.
extern "C" void
rl_give_back_terminal()
{
    say("given back, ");
}

static std::string
report(const std::string &rest)
{
    return std::string("^given back, ") + program_invocation_short_name +
           ": Cli/Keyline:" + rest + "\n$";
}

TEST(Base, ReportTakesNoMemory)
{
    auto fail = [] {
        mallocs_left = 0;
        KEYLINE_CHECK(1 == 2, "one == two", 57, "acquireGil");
    };
    EXPECT_EXIT(fail(), ::testing::KilledBySignal(SIGABRT),
                report("57: acquireGil: Assertion `one == two' failed\\."));
}

TEST(Base, NothingHappensWhereTheCheckHolds)
{
    KEYLINE_CHECK(1 == 1, "one == one", 57, "acquireGil");
}

// Longer than any there is: it is cut off, not written over its end.
TEST(Base, LongReport)
{
    static const std::string expression(1000, 'x');
    EXPECT_EXIT(keyline_check_failed(expression.c_str(), 1, "f"),
                ::testing::KilledBySignal(SIGABRT), "Assertion `xxxxx+$");
}

TEST(Base, ADescriptorThatASetHasNoRoomFor)
{
    auto fail = [] {
        mallocs_left = 0;
        keyline_no_room(1024);
    };
    EXPECT_EXIT(fail(), ::testing::KilledBySignal(SIGABRT),
                std::string("^given back, ") + program_invocation_short_name +
                    ": Keyline cannot wait on descriptor 1024: only on 0 to 1023\n$");
}
