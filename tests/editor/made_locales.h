// Locales that a machine need not have, made for the tests in a folder of their own.
#pragma once

#include <ftw.h>
#include <gtest/gtest.h>
#include <locale.h>
#include <stdlib.h>
#include <string>
#include <unistd.h>

constexpr const char *latin1 = "en_US.ISO-8859-1"; // a byte is a character
constexpr const char *euc_jp = "ja_JP.EUC-JP";     // two or three bytes are one

class MadeLocales : public ::testing::Environment
{
  public:
    static inline std::string folder;

    // For a child: goes over to one of them.
    static void use(const char *name)
    {
        setenv("LOCPATH", folder.c_str(), 1);
        if (setlocale(LC_ALL, name) == nullptr)
            _exit(3);
    }

    void SetUp() override
    {
        char name[] = "/tmp/locales-XXXXXX";
        ASSERT_NE(mkdtemp(name), nullptr);
        folder = name;
        for (std::string each : {latin1, euc_jp}) {
            size_t dot = each.find('.');
            std::string make = "localedef -i " + each.substr(0, dot) + " -f " +
                               each.substr(dot + 1) + " " + folder + "/" + each;
            ASSERT_EQ(system(make.c_str()), 0) << make;
        }
    }

    void TearDown() override
    {
        nftw(folder.c_str(), remove_it, 8, FTW_DEPTH | FTW_PHYS);
    }

  private:
    static int remove_it(const char *path, const struct stat *, int, struct FTW *)
    {
        return remove(path);
    }
};

inline ::testing::Environment *const made_locales =
    ::testing::AddGlobalTestEnvironment(new MadeLocales);
