// Sequences where Escape is a key by itself, which only the time between it and the next
// key can tell: a search, an argument, a command that is typed, a key that is quoted.
#include "editor_in_process.h"

#define ESC "\033"
#define PAGE_UP ESC "[5~"
#define HOME ESC "[H"
#define FOCUS ESC "[I"

class EditorSequence : public EditorTest
{
  protected:
    void SetUp() override
    {
        EditorTest::SetUp();
        add_history("one two");
        add_history("three");
    }

    static void vi()
    {
        ASSERT_EQ(rl_parse_and_bind("bind -v"), 0);
    }
};

TEST_F(EditorSequence, EndsASearchAndRuns)
{
    EXPECT_EQ(read_line({keys("\022two" HOME "x\r")}), "xone two");
    EXPECT_EQ(read_line({keys("\022two" PAGE_UP "x\r")}), "one xtwo");
    EXPECT_EQ(count_shown("\a"), 1);
}

TEST_F(EditorSequence, KeyThatCutsItInASearch)
{
    EXPECT_EQ(read_line({keys("\022tw" ESC "[1;\001x\r")}), "xone two");
    EXPECT_EQ(count_shown("\a"), 1);
}

TEST_F(EditorSequence, LoneEscapeEndsASearch)
{
    EXPECT_EQ(read_line({keys("\022two" ESC), keys("[x\r")}), "one [xtwo");
    EXPECT_EQ(read_line({keys("\022two" ESC "x\r")}), "one xtwo");
}

TEST_F(EditorSequence, ReportsAreNoPartOfASearch)
{
    EXPECT_EQ(read_line({keys("\022tw" FOCUS "o" ESC "[M\xe9\xe9\xe9\r")}), "one two");
}

TEST_F(EditorSequence, InACommandItIsRefused)
{
    EXPECT_EQ(read_line({keys(ESC "xbind -" PAGE_UP "v" FOCUS "\rab" ESC), keys("x\r")}),
              "a");
    EXPECT_EQ(count_shown("\a"), 1);
    EXPECT_EQ(read_line({keys(ESC "/tw" PAGE_UP "o\rx\r")}), "ne two");
}

TEST_F(EditorSequence, AsAnArgumentItIsRefused)
{
    vi();
    EXPECT_EQ(read_line({keys("abcd" ESC), keys("0f" PAGE_UP "x\r")}), "bcd");
    EXPECT_EQ(read_line({keys("abcd" ESC), keys("0f" FOCUS "cx\r")}), "abd");
}

TEST_F(EditorSequence, QuotedItStandsInTheLine)
{
    EXPECT_EQ(read_line({keys("a\026" PAGE_UP "\026" ESC), keys("b\r")}),
              "a" PAGE_UP ESC "b");
}
