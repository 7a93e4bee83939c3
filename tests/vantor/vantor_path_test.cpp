// The log watch library on long paths, and on paths with dots and links.
#include "vantor_check.h"

#include <climits>
#include <sched.h>

// A directory in which a path has room for 10 to 210 bytes more.
static std::string
make_deep(std::string deep)
{
    while (deep.size() < PATH_MAX - 210) {
        deep += "/" + std::string(200, 'd');
        make_directory(deep);
    }
    return deep;
}

// A deleted file is held open by the library, and maybe by its writer, which keeps its
// directory from telling that it goes, too.
class Deleted : public Watch
{
  protected:
    void expect_quiet()
    {
        EXPECT_EQ(news(), "");
        EXPECT_FALSE(readable()) << "the look failed, and is made again";
    }

    // Deletes the log and then directories above it, the innermost first, and makes them
    // again.
    void expect_found_again(const std::string &log, const std::vector<std::string> &above)
    {
        remove_path(log);
        expect_quiet();
        for (const std::string &name : above) {
            remove_path(name);
            expect_quiet();
        }
        for (auto name = above.rbegin(); name != above.rend(); ++name) {
            make_directory(*name);
            expect_quiet();
        }
        put(log, "again\n");
        EXPECT_EQ(news(), "again\n");
    }
};

// "/" and "." are directories without a name in one.
TEST_F(Watch, LinkPutOnADirectoryForATime)
{
    std::string link = dir + "/link";
    make_link("log", link);
    start(link);
    for (const char *target : {"/", ".", "//./"}) {
        remove_path(link);
        make_link(target, link);
        put(path, "one\n");
        EXPECT_EQ(news(), "one\n") << "the old file is followed";
        remove_path(link);
        make_link("log", link);
        put(path, "two\n");
        EXPECT_EQ(news(), "two\n");
    }
    put(dir + "/other", "other\n");
    remove_path(link);
    make_link("other", link);
    EXPECT_EQ(news(), "other\n");
}

TEST_F(Watch, DotsInThePath)
{
    start("/../.." + dir + "/./../" + dir.substr(dir.rfind('/') + 1) + "/log");
    move(path, path + ".1");
    put(path, "new\n");
    EXPECT_EQ(news(), "new\n");
}

// More directories than are watched: those beyond tell nothing, the file's own does.
TEST_F(Deleted, FileDeepBelow)
{
    std::string deep = dir;
    for (int i = 0; i < 1000; ++i) {
        deep += "/d";
        make_directory(deep);
    }
    put(deep + "/log", "old\n");
    start(deep + "/log");
    put(deep + "/log", "one\n");
    move(deep + "/log", deep + "/log.1");
    put(deep + "/log", "two\n");
    EXPECT_EQ(news(), "one\ntwo\n");
    move(dir + "/d", dir + "/e");
    make_directory(dir + "/d");
    EXPECT_EQ(news(), "");
    remove_path(dir + "/d");
    move(dir + "/e", dir + "/d");
    put(deep + "/log", "three\n");
    EXPECT_EQ(news(), "three\n");
    remove_path(deep + "/log.1");
    expect_found_again(deep + "/log", {deep});
}

TEST_F(Deleted, DirectoriesAboveTheFile)
{
    std::string outer = dir + "/outer";
    std::string inner = outer + "/inner";
    make_directory(outer);
    make_directory(inner);
    put(inner + "/log", "old\n");
    start(inner + "/log");
    expect_found_again(inner + "/log", {inner});
    expect_found_again(inner + "/log", {inner, outer});
    for (const std::string &parent : {dir, outer}) {
        make_directory(parent + "/other");
        remove_path(parent + "/other");
        EXPECT_FALSE(readable()) << "only the entries of the last directory count";
    }
}

TEST_F(Deleted, DirectoryOfTheRoot)
{
    expect_in_child([this] {
        if ((geteuid() != 0 && unshare(CLONE_NEWUSER) == -1) || chroot(dir.c_str()) == -1)
            return false;
        make_directory("/logs");
        put("/logs/log", "old\n");
        start("/logs/log");
        expect_found_again("/logs/log", {"/logs"});
        return !HasFailure();
    });
}

TEST_F(Deleted, FileOfADirectoryThatIsRenamedOver)
{
    make_directory(dir + "/one");
    make_directory(dir + "/two");
    put(dir + "/one/log", "old\n");
    put(dir + "/two/log", "one\n");
    start(dir + "/one/log");
    remove_path(dir + "/one/log");
    EXPECT_EQ(news(), "");
    move(dir + "/two", dir + "/one");
    EXPECT_EQ(news(), "one\n");
    put(dir + "/one/log", "two\n");
    EXPECT_EQ(news(), "two\n");
}

// A file that was rotated, before it was seen, to a name that makes its path too long is
// lost; those before and behind it are not.
TEST_F(Watch, RotatedToANameThatMakesThePathTooLong)
{
    std::string deep = make_deep(dir);
    std::string name = deep + "/log";
    put(name, "old\n");
    start(name);
    put(name, "one\n");
    move(name, name + ".1");
    put(name, "two\n");
    int folder = open(deep.c_str(), O_PATH | O_CLOEXEC);
    ASSERT_EQ(renameat(folder, "log", folder, std::string(250, 'l').c_str()), 0);
    close(folder);
    put(name, "three\n");
    EXPECT_EQ(news(), "one\nthree\n");
}

// The kernel resolves such links one name at a time; what they lead to has too long a path.
TEST_F(Watch, LinksThatLeadTooFar)
{
    make_directory(dir + "/inner");
    put(dir + "/inner/log", "");
    std::string detour;
    while (detour.size() < PATH_MAX - 100)
        detour += "./";
    make_link(detour + "inner", dir + "/link");
    std::string rest;
    while (rest.size() < 200)
        rest += "/.";
    vantor_handle *opened = vantor_open((dir + "/link/log").c_str(), take, this);
    EXPECT_NE(opened, nullptr) << strerror(errno);
    vantor_close(opened);
    ASSERT_EQ(access((dir + "/link" + rest + "/log").c_str(), R_OK), 0);
    expect_error((dir + "/link" + rest + "/log").c_str(), ENAMETOOLONG);
}

TEST_F(Watch, PlaceWithTooLongAPath)
{
    std::string deep = make_deep(dir);
    make_link(deep, dir + "/link");
    std::string last(250, 'l');
    put(dir + "/link/" + last, "");
    expect_error((dir + "/link/" + last).c_str(), ENAMETOOLONG);
}
