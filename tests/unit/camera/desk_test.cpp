// Where a camera lives.
#include "desk.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

#include "log_capture.h"

namespace
{

using testing::HasSubstr;

std::string default_root(const char *runtime_folder)
{
    char path[64];
    desk_default_root(runtime_folder, 1000, path, sizeof path);
    return path;
}

TEST(DeskRoot, IsInTheRuntimeFolderElseInTmp)
{
    EXPECT_EQ(default_root("/run/user/1000"), "/run/user/1000/naro");
    EXPECT_EQ(default_root(nullptr), "/tmp/naro-1000");
    EXPECT_EQ(default_root(""), "/tmp/naro-1000");
    EXPECT_EQ(default_root("run/user"), "/tmp/naro-1000");
}

// In a runtime folder of its own. Every case is a process of its own, too: the root is read once.
struct DeskEnter : testing::Test {
    DeskEnter()
    {
        char name[] = "/tmp/naro-desk-XXXXXX";
        folder = mkdtemp(name);
        setenv("XDG_RUNTIME_DIR", folder.c_str(), 1);
        unsetenv("NARO_ROOT");
    }
    ~DeskEnter() override { EXPECT_EQ(system(("rm -rf " + folder).c_str()), 0); }

    mode_t mode(const std::string &path)
    {
        struct stat status = {};
        EXPECT_EQ(stat((folder + path).c_str(), &status), 0) << path;
        return status.st_mode & 07777;
    }

    std::string folder;
};

TEST_F(DeskEnter, MakesThePlaceForThisUserOnly)
{
    ASSERT_EQ(desk_enter_root(true), 0);
    EXPECT_EQ(getenv("NARO_ROOT"), folder + "/naro");
    EXPECT_EQ(mode("/naro"), 0700u);
    mode("/naro/run/naro");
    mode("/naro/tmp");
    EXPECT_EQ(desk_enter_root(true), 0) << "again";
}

TEST_F(DeskEnter, WhoOnlyLooksMakesNothing)
{
    OutputCapture errors(STDERR_FILENO);
    EXPECT_EQ(desk_enter_root(false), -1);
    EXPECT_THAT(errors.text(), HasSubstr("no camera has run here yet (" + folder + "/naro is not there"));
    EXPECT_NE(access((folder + "/naro").c_str(), F_OK), 0);
}

TEST_F(DeskEnter, WhoOnlyLooksFindsTheSamePlace)
{
    ASSERT_EQ(mkdir((folder + "/naro").c_str(), 0700), 0);
    EXPECT_EQ(desk_enter_root(false), 0);
    EXPECT_EQ(getenv("NARO_ROOT"), folder + "/naro");
}

TEST_F(DeskEnter, ThePlaceThatIsGivenIsTaken)
{
    setenv("NARO_ROOT", (folder + "/mine").c_str(), 1);
    ASSERT_EQ(desk_enter_root(true), 0);
    EXPECT_EQ(getenv("NARO_ROOT"), folder + "/mine");
    mode("/mine/run/naro");
    EXPECT_NE(access((folder + "/naro").c_str(), F_OK), 0);
}

TEST_F(DeskEnter, APlaceThatCannotBeMadeIsSaid)
{
    setenv("NARO_ROOT", "/nowhere/at/all", 1);
    OutputCapture errors(STDERR_FILENO);
    EXPECT_EQ(desk_enter_root(true), -1);
    EXPECT_THAT(errors.text(), HasSubstr("NARO_ROOT: /nowhere/at/all: No such file or directory"));
}

TEST_F(DeskEnter, APlaceOfSomebodyElseIsRefused)
{
    const std::string naro = folder + "/naro";
    OutputCapture errors(STDERR_FILENO);
    ASSERT_EQ(symlink("/tmp", naro.c_str()), 0);
    EXPECT_EQ(desk_enter_root(true), -1) << "a link";
    EXPECT_THAT(errors.text(),
                HasSubstr(naro + " is there, but is not a folder that only this user can write to"));
    unlink(naro.c_str());
    close(open(naro.c_str(), O_CREAT | O_WRONLY, 0600));
    EXPECT_EQ(desk_enter_root(true), -1) << "a file";
    unlink(naro.c_str());
    for (const mode_t open_to_others : {0720, 0702}) {
        ASSERT_EQ(mkdir(naro.c_str(), 0700), 0);
        chmod(naro.c_str(), open_to_others);
        EXPECT_EQ(desk_enter_root(true), -1);
        rmdir(naro.c_str());
    }
    EXPECT_EQ(getenv("NARO_ROOT"), nullptr);
}

TEST(DeskSay, IsOneLineWithTheProgramsName)
{
    OutputCapture errors(STDERR_FILENO);
    desk_set_program("tester");
    desk_say("%s %d", "text", 5);
    EXPECT_EQ(errors.text(), "tester: text 5\n");
}

} // namespace
