// The log watch library on files that move: rotation in all its forms, symbolic links,
// directories renamed and made again.
#include "vantor_check.h"

// ---- replacement and deletion ----

TEST_F(Watch, RestOfTheOldFileComesBeforeTheNewOne)
{
    start(path);
    put(path, "one\n");
    move(path, path + ".1");
    put(path + ".1", "two\n");
    put(path, "three\n");
    EXPECT_EQ(news(), "one\ntwo\nthree\n");
    EXPECT_EQ(sizes.size(), 2u) << "one piece for each file";
}

TEST_F(Watch, RenamedFileIsFollowedUntilThereIsAnother)
{
    start(path);
    move(path, path + ".1");
    EXPECT_EQ(news(), "");
    put(path + ".1", "still\n");
    EXPECT_EQ(news(), "still\n");
    put(path, "new\n");
    EXPECT_EQ(news(), "new\n");
}

TEST_F(Watch, SlowWriterOfTheReplacedFileIsHeard)
{
    start(path);
    move(path, path + ".1");
    put(path, "new\n");
    EXPECT_EQ(news(), "new\n");
    put(path + ".1", "late\n");
    EXPECT_EQ(news(), "late\n");
    put(path, "newer\n");
    EXPECT_EQ(news(), "newer\n");
}

TEST_F(Watch, OnlyTheLastReplacedFileIsHeard)
{
    start(path);
    for (const char *name : {".1", ".2"}) {
        move(path, path + name);
        put(path, "new\n");
        EXPECT_EQ(news(), "new\n");
    }
    put(path + ".1", "too late\n");
    EXPECT_EQ(news(), "");
    put(path + ".2", "late\n");
    EXPECT_EQ(news(), "late\n");
}

TEST_F(Watch, UnfinishedLineOfTheOldFileIsTold)
{
    start(path);
    put(path, "no end");
    EXPECT_EQ(news(), "");
    move(path, path + ".1");
    EXPECT_EQ(news(), "");
    put(path, "new\n");
    EXPECT_EQ(news(), "no endnew\n");
    EXPECT_EQ(sizes, (std::vector<int>{6, 4}));
}

TEST_F(Watch, UnfinishedLineOfADeletedFileIsTold)
{
    start(path);
    put(path, "whole\nno end");
    remove_path(path);
    EXPECT_EQ(news(), "whole\nno end");
}

TEST_F(Watch, DeletedFileIsFollowedUntilThereIsAnother)
{
    start(path);
    int file = open(path.c_str(), O_WRONLY | O_APPEND);
    remove_path(path);
    EXPECT_EQ(news(), "");
    ASSERT_EQ(write(file, "ghost\n", 6), 6);
    close(file);
    EXPECT_EQ(news(), "ghost\n");
    EXPECT_FALSE(readable());
    put(path, "new\n");
    EXPECT_EQ(news(), "new\n");
}

TEST_F(Watch, DeletedAndMadeAgainBetweenTwoLooks)
{
    start(path);
    for (int i = 0; i < 20; ++i) {
        put(path, "last\n");
        remove_path(path);
        put(path, "first\n");
        EXPECT_EQ(news(), "last\nfirst\n");
    }
}

TEST_F(Watch, DeletedOldFileIsLetGo)
{
    start(path);
    int descriptors = open_descriptors();
    move(path, path + ".1");
    put(path, "new\n");
    EXPECT_EQ(news(), "new\n");
    EXPECT_EQ(open_descriptors(), descriptors + 1);
    remove_path(path + ".1");
    EXPECT_EQ(news(), "");
    EXPECT_EQ(open_descriptors(), descriptors);
}

TEST_F(Watch, RenamingOverThePathReplaces)
{
    start(path);
    put(path, "one\n");
    put(path + ".new", "two\nthree\n");
    move(path + ".new", path);
    EXPECT_EQ(news(), "one\ntwo\nthree\n");
    put(path, "four\n");
    EXPECT_EQ(news(), "four\n");
}

TEST_F(Watch, FileThatComesBackIsNotToldTwice)
{
    start(path);
    put(path, "one\n");
    EXPECT_EQ(news(), "one\n");
    move(path, path + ".away");
    EXPECT_EQ(news(), "");
    move(path + ".away", path);
    put(path, "two\n");
    EXPECT_EQ(news(), "two\n");
    move(path, path + ".away");
    put(path, "other\n");
    EXPECT_EQ(news(), "other\n");
    move(path + ".away", path);
    put(path, "three\n");
    EXPECT_EQ(news(), "three\n");
}

TEST_F(Watch, SwappedFilesAreEachToldOnce)
{
    start(path);
    put(path + ".other", "other\n");
    for (int i = 0; i < 4; ++i) {
        ASSERT_EQ(renameat2(AT_FDCWD, path.c_str(), AT_FDCWD, (path + ".other").c_str(),
                            RENAME_EXCHANGE),
                  0);
        EXPECT_EQ(news(), i == 0 ? "other\n" : "");
        put(path, "new\n");
        EXPECT_EQ(news(), "new\n");
    }
}

TEST_F(Watch, LinkedAndUnlinkedFileIsFollowed)
{
    start(path);
    ASSERT_EQ(link(path.c_str(), (path + ".1").c_str()), 0);
    remove_path(path);
    put(path + ".1", "old\n");
    put(path, "new\n");
    EXPECT_EQ(news(), "old\nnew\n");
}

TEST_F(Watch, FileDeletedUnderAllItsNamesIsFollowed)
{
    start(path);
    int file = open(path.c_str(), O_WRONLY | O_APPEND | O_CLOEXEC);
    delete_all_names();
    ASSERT_EQ(write(file, "at once\n", 8), 8);
    EXPECT_EQ(news(), "at once\n");
    EXPECT_FALSE(readable());
    for (const char *line : {"late\n", "more\n"}) {
        ASSERT_EQ(write(file, line, 5), 5);
        EXPECT_EQ(news(), line);
    }
    close(file);
    int descriptors = open_descriptors();
    put(path, "new\n");
    EXPECT_EQ(news(), "new\n");
    EXPECT_EQ(open_descriptors(), descriptors) << "the old file is let go";
}

TEST_F(Watch, SecondFileDeletedUnderAllItsNamesIsFollowed)
{
    start(path);
    move(path, path + ".1");
    put(path, "new\n");
    EXPECT_EQ(news(), "new\n");
    int file = open(path.c_str(), O_WRONLY | O_APPEND | O_CLOEXEC);
    delete_all_names();
    EXPECT_EQ(news(), "");
    ASSERT_EQ(write(file, "late\n", 5), 5);
    close(file);
    EXPECT_EQ(news(), "late\n");
}

TEST_F(Watch, CopiedAndEmptied)
{
    start(path);
    put(path, "one\n");
    EXPECT_EQ(news(), "one\n");
    put(path + ".1", "old\none\n");
    cut(path, 0);
    put(path, "two\n");
    EXPECT_EQ(news(), "two\n");
}

TEST_F(Watch, UnreadableThingsAtThePathAreWaitedOut)
{
    start(path);
    move(path, path + ".1");
    make_directory(path);
    EXPECT_EQ(news(), "");
    remove_path(path);
    ASSERT_EQ(mkfifo(path.c_str(), 0644), 0);
    EXPECT_EQ(news(), "");
    remove_path(path);
    put(path, "new\n");
    EXPECT_EQ(news(), "new\n");
}

TEST_F(Watch, OtherFilesOfTheDirectoryAreIgnored)
{
    start(path);
    put(dir + "/other", "text\n");
    put(path + ".1", "text\n");
    move(dir + "/other", dir + "/third");
    remove_path(dir + "/third");
    EXPECT_EQ(news(), "");
}

// ---- several rotations between two looks ----

TEST_F(Watch, FilesThatCameAndWentAreToldInOrder)
{
    start(path);
    std::string expected = "0\n";
    put(path, expected);
    for (int i = 1; i <= 100; ++i) {
        std::string line = std::to_string(i) + "\n";
        move(path, path + "." + std::to_string(i));
        put(path, line);
        expected += line;
    }
    EXPECT_EQ(news(), expected);
    put(path, "end\n");
    EXPECT_EQ(news(), "end\n");
}

TEST_F(Watch, NumberedFilesThatMoveUpAreToldInOrder)
{
    constexpr int kept = 9;
    start(path);
    std::string expected = "0\n";
    put(path, expected);
    for (int i = 1; i <= kept; ++i) {
        for (int old = i - 1; old >= 1; --old)
            move(path + "." + std::to_string(old), path + "." + std::to_string(old + 1));
        move(path, path + ".1");
        std::string line = std::to_string(i) + "\n";
        put(path, line);
        expected += line;
    }
    EXPECT_EQ(news(), expected);
}

TEST_F(Watch, DescriptorsDoNotGrowWithRotations)
{
    start(path);
    int descriptors = open_descriptors();
    for (int i = 0; i < 200; ++i) {
        move(path, path + "." + std::to_string(i));
        put(path, "line\n");
        if (i % 7 == 0) {
            EXPECT_NE(news(), "");
        }
    }
    EXPECT_NE(news(), "");
    EXPECT_EQ(open_descriptors(), descriptors + 1) << "the last replaced file";
}

TEST_F(Watch, FileMovedOutOfTheDirectoryBeforeItWasSeenIsLostAlone)
{
    make_directory(dir + "/away");
    start(path);
    put(path, "one\n");
    move(path, dir + "/away/1");
    put(path, "two\n");
    move(path, dir + "/away/2");
    put(path, "three\n");
    EXPECT_EQ(news(), "one\nthree\n");
}

TEST_F(Watch, FileMovedOutOfTheDirectoryIsNoneThatIsRenamedThere)
{
    make_directory(dir + "/away");
    put(dir + "/other", "text\n");
    start(path);
    put(path, "one\n");
    move(path, dir + "/away/1");
    put(path, "two\n");
    move(path, dir + "/away/2");
    move(dir + "/other", dir + "/third");
    put(path, "three\n");
    EXPECT_EQ(news(), "one\nthree\n");
}

// ---- links ----

TEST_F(Watch, LinkToTheFile)
{
    make_link("log", dir + "/link");
    start(dir + "/link");
    put(path, "one\n");
    EXPECT_EQ(news(), "one\n");
    move(path, path + ".1");
    put(path, "two\n");
    EXPECT_EQ(news(), "two\n");
}

TEST_F(Watch, LinkPutOnAnotherTarget)
{
    put(dir + "/second", "in second\n");
    put(dir + "/third", "in third\n");
    make_link(path, dir + "/link");
    start(dir + "/link");
    put(path, "one\n");
    remove_path(dir + "/link");
    make_link("second", dir + "/link");
    EXPECT_EQ(news(), "one\nin second\n");
    make_link("third", dir + "/link.new");
    move(dir + "/link.new", dir + "/link");
    EXPECT_EQ(news(), "in third\n");
    put(dir + "/third", "three\n");
    EXPECT_EQ(news(), "three\n");
}

TEST_F(Watch, LinkToADirectoryPutOnAnotherTarget)
{
    make_directory(dir + "/a");
    make_directory(dir + "/b");
    put(dir + "/a/log", "old\n");
    make_link("a", dir + "/now");
    start(dir + "/now/../now/./log");
    put(dir + "/a/log", "one\n");
    EXPECT_EQ(news(), "one\n");
    make_link("b", dir + "/next");
    move(dir + "/next", dir + "/now");
    EXPECT_EQ(news(), "");
    put(dir + "/a/log", "two\n");
    EXPECT_EQ(news(), "two\n") << "followed until the path leads to another file";
    put(dir + "/b/log", "three\n");
    EXPECT_EQ(news(), "three\n");
}

TEST_F(Watch, FileThatCameInPlaceOfADirectoryIsNotTold)
{
    make_directory(dir + "/a");
    put(dir + "/a/log", "old\n");
    make_link("a", dir + "/now");
    start(dir + "/now/log");
    make_link("a/gone", dir + "/next");
    move(dir + "/next", dir + "/now");
    EXPECT_EQ(news(), "");
    put(dir + "/a/gone", "another's\n");
    EXPECT_EQ(news(), "");
    make_link("a", dir + "/next");
    move(dir + "/next", dir + "/now");
    EXPECT_EQ(news(), "") << "it never was at the path";
    put(dir + "/a/log", "new\n");
    EXPECT_EQ(news(), "new\n");
}

TEST_F(Watch, LinkThatLeadsNowhereForATime)
{
    make_directory(dir + "/a");
    put(dir + "/a/log", "old\n");
    make_link(dir + "/a/log", dir + "/link");
    start(dir + "/link");
    remove_path(dir + "/a/log");
    remove_path(dir + "/a");
    EXPECT_EQ(news(), "");
    make_directory(dir + "/a");
    EXPECT_EQ(news(), "");
    put(dir + "/a/log", "new\n");
    EXPECT_EQ(news(), "new\n");
}

TEST_F(Watch, LinkTurnedIntoALoopAndBack)
{
    make_link("log", dir + "/link");
    start(dir + "/link");
    remove_path(dir + "/link");
    make_link("link", dir + "/link");
    EXPECT_EQ(news(), "");
    remove_path(dir + "/link");
    put(dir + "/link", "file\n");
    EXPECT_EQ(news(), "file\n");
}

// ---- directories ----

TEST_F(Watch, RelativeNameStaysWhereItWas)
{
    int before = open(".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    ASSERT_EQ(chdir(dir.c_str()), 0);
    start("./log");
    ASSERT_EQ(fchdir(before), 0);
    close(before);
    move(path, path + ".1");
    put(path, "new\n");
    EXPECT_EQ(news(), "new\n");
}

TEST_F(Watch, DirectoryRenamedAwayAndMadeAgain)
{
    std::string inner = dir + "/inner";
    make_directory(inner);
    put(inner + "/log", "old\n");
    start(inner + "/log");
    move(inner, dir + "/away");
    EXPECT_EQ(news(), "");
    put(dir + "/away/log", "still\n");
    EXPECT_EQ(news(), "still\n");
    put(dir + "/away/log.new", "not at the path\n");
    move(dir + "/away/log.new", dir + "/away/log");
    EXPECT_EQ(news(), "");
    make_directory(inner);
    EXPECT_EQ(news(), "");
    put(inner + "/log", "new\n");
    EXPECT_EQ(news(), "new\n");
}

TEST_F(Watch, DirectoryRenamedAwayAndBack)
{
    std::string inner = dir + "/inner";
    make_directory(inner);
    put(inner + "/log", "old\n");
    start(inner + "/log");
    move(inner, dir + "/away");
    put(dir + "/away/log", "one\n");
    EXPECT_EQ(news(), "one\n");
    move(dir + "/away", inner);
    put(inner + "/log", "two\n");
    EXPECT_EQ(news(), "two\n");
    put(dir + "/other", "");
    EXPECT_FALSE(readable()) << "the directory above is only passed again";
}

TEST_F(Watch, DirectoryAboveRenamedAndMadeAgainBetweenTwoLooks)
{
    std::string deep = dir + "/a/b/c";
    make_directory(dir + "/a");
    make_directory(dir + "/a/b");
    make_directory(deep);
    put(deep + "/log", "old\n");
    start(deep + "/log");
    put(deep + "/log", "one\n");
    move(dir + "/a", dir + "/z");
    make_directory(dir + "/a");
    make_directory(dir + "/a/b");
    make_directory(deep);
    put(deep + "/log", "two\n");
    EXPECT_EQ(news(), "one\ntwo\n");
    put(deep + "/log", "three\n");
    EXPECT_EQ(news(), "three\n");
}

TEST_F(Watch, DirectoriesMadeAgainStepByStep)
{
    make_directory(dir + "/a");
    make_directory(dir + "/a/b");
    put(dir + "/a/b/log", "old\n");
    start(dir + "/a/b/log");
    remove_path(dir + "/a/b/log");
    remove_path(dir + "/a/b");
    remove_path(dir + "/a");
    EXPECT_EQ(news(), "");
    put(dir + "/a", "a file where a directory was\n");
    EXPECT_EQ(news(), "");
    remove_path(dir + "/a");
    for (const char *step : {"/a", "/a/b"}) {
        make_directory(dir + step);
        EXPECT_EQ(news(), "");
    }
    put(dir + "/a/b/log", "new\n");
    EXPECT_EQ(news(), "new\n");
    put(dir + "/a/log", "elsewhere\n");
    put(dir + "/elsewhere", "elsewhere\n");
    EXPECT_FALSE(readable()) << "only the last directory tells of its entries";
}
