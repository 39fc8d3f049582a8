// The SD card: the slot, what is told of it, and a card that is truly full, read-only or slow.
#include "card.h"

#include <atomic>
#include <errno.h>
#include <ev.h>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <string.h>
#include <string>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include "in_child.h"
#include "isolate.h"
#include "log_capture.h"
#include "naro_util.h"

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

// ---- The daemon's endpoint, as it answers card.cpp ---------------------------------------------------------
static struct {
    std::vector<std::string> calls;
    int error;
} endpoint;
extern "C" int otrpc_call(const char *method, int, int *result)
{
    endpoint.calls.push_back(method);
    *result = 0;
    return endpoint.error;
}

namespace
{

const std::string root = scratch_root();
const std::string slot = root + "/mnt/sdcard";

std::vector<std::string> told;

class CardTest : public testing::Test
{
  protected:
    CardTest() : loop(ev_loop_new(EVFLAG_AUTO))
    {
        std::filesystem::remove_all(root + "/mnt");
        std::filesystem::remove_all(root + "/media");
        told.clear();
        endpoint = {};
    }
    ~CardTest() override
    {
        card_stop();
        ev_loop_destroy(loop);
    }
    int start(const char *what)
    {
        const card_settings settings = {what, [](const char *value) { told.push_back(value); }};
        return card_start(loop, &settings);
    }
    static bool can_write()
    {
        std::ofstream file(slot + "/x");
        file << "x";
        return static_cast<bool>(file.flush());
    }
    void run_until_told(size_t times)
    {
        const uint64_t end = naro_clock_monotonic_ms() + 10000;
        while (told.size() < times && naro_clock_monotonic_ms() < end)
            ev_run(loop, EVRUN_ONCE);
    }
    struct ev_loop *loop;
    OutputCapture err{STDERR_FILENO};
};

TEST_F(CardTest, AFolderIsACardThatLasts)
{
    ASSERT_EQ(start("folder"), 0);
    EXPECT_STREQ(card_setting(), "rdwr");
    EXPECT_TRUE(can_write());
    EXPECT_THAT(told, IsEmpty()) << "the first value is asked for";
    EXPECT_EQ(card_command("state"), "in; sdcard_rw rdwr");
    card_stop();
    ASSERT_EQ(start("folder"), 0);
    EXPECT_TRUE(std::filesystem::exists(slot + "/x"));
}

TEST_F(CardTest, AFolderThatWasThereIsTheCard)
{
    std::filesystem::create_directories(slot);
    std::ofstream(slot + "/kept") << "x";
    ASSERT_EQ(start("folder"), 0);
    EXPECT_TRUE(std::filesystem::is_symlink(slot));
    EXPECT_TRUE(std::filesystem::exists(slot + "/kept"));
}

TEST_F(CardTest, WithoutACardNothingCanBeWritten)
{
    ASSERT_EQ(start("none"), 0);
    EXPECT_STREQ(card_setting(), "none");
    EXPECT_FALSE(can_write());
    EXPECT_EQ(dir_make_parent("/mnt/sdcard/a/b", 0777), -1);
    EXPECT_EQ(card_command("state"), "out; sdcard_rw none");
    EXPECT_EQ(card_command("insert"), "cannot: the camera was started without a card");
}

TEST_F(CardTest, PullingIsNoticedLater)
{
    ASSERT_EQ(start("folder"), 0);
    const uint64_t begin = naro_clock_monotonic_ms();
    ev_now_update(loop);
    EXPECT_EQ(card_command("pull"), "out; sdcard_rw rdwr");
    EXPECT_FALSE(can_write());
    EXPECT_THAT(told, IsEmpty());
    run_until_told(1);
    EXPECT_GE(naro_clock_monotonic_ms() - begin, CARD_NOTICE_MS - 20u);
    EXPECT_THAT(told, ElementsAre("none"));
    EXPECT_EQ(card_command("insert"), "in; sdcard_rw rdwr");
    EXPECT_THAT(told, ElementsAre("none", "rdwr"));
    EXPECT_TRUE(can_write());
}

TEST_F(CardTest, PulledAndPutBackBeforeAnybodyNoticed)
{
    ASSERT_EQ(start("folder"), 0);
    card_command("pull");
    card_command("insert");
    EXPECT_THAT(told, ElementsAre("rdwr"));
    EXPECT_FALSE(ev_run(loop, EVRUN_NOWAIT) && told.size() > 1);
    EXPECT_TRUE(can_write());
}

TEST_F(CardTest, EjectingAsksTheDaemonFirst)
{
    ASSERT_EQ(start("folder"), 0);
    EXPECT_EQ(card_command("eject"), "out; sdcard_rw none");
    EXPECT_THAT(endpoint.calls, ElementsAre("sd_umount"));
    EXPECT_THAT(told, ElementsAre("none"));
    card_command("insert");
    endpoint.error = -ENOENT; // nobody is there to write
    EXPECT_EQ(card_command("eject"), "out; sdcard_rw none");
    card_command("insert");
    endpoint.error = -ECONNREFUSED;
    EXPECT_EQ(card_command("eject"), "out; sdcard_rw none");
    card_command("insert");
    endpoint.error = -ETIMEDOUT;
    EXPECT_EQ(card_command("eject"), "cannot: Connection timed out");
    EXPECT_TRUE(can_write());
}

TEST_F(CardTest, AFolderCanBeNeitherFilledNorLocked)
{
    ASSERT_EQ(start("folder"), 0);
    for (const char *command : {"fill", "lock"})
        EXPECT_EQ(card_command(command), "cannot: that takes a card of its own size: naro_camera --card 64K");
    EXPECT_EQ(card_command("free"), "in; sdcard_rw rdwr");
    EXPECT_EQ(card_command("unlock"), "in; sdcard_rw rdwr");
}

TEST_F(CardTest, WhatIsNoCommand)
{
    ASSERT_EQ(start("folder"), 0);
    for (const char *command : {"", "x", "inser", "slow"})
        EXPECT_EQ(card_command(command), "cannot: no such command") << command;
    for (const char *command :
         {"slow ", "slow 0", "slow -1", "slow 40001", "slow 5x", "slow 99999999999999999999"})
        EXPECT_EQ(card_command(command), "cannot: slow wants milliseconds, 1 to 40000") << command;
}

TEST_F(CardTest, WhatIsNoCard)
{
    for (const char *what : {"", "x", "64", "0K", "-1K", "64k", "64KB", "1048577K", "1025M", " 64K"}) {
        EXPECT_EQ(start(what), -1) << what;
        EXPECT_THAT(err.text(),
                    HasSubstr(std::string("--card wants folder, none or a size such as 64K or 4M, "
                                          "not \"") +
                              what + "\"\n"));
    }
    EXPECT_EQ(card_size("64K"), 65536u);
    EXPECT_EQ(card_size("4M"), 4194304u);
    EXPECT_EQ(card_size("1024M"), 1073741824u);
}

TEST_F(CardTest, SomethingInTheWay)
{
    std::ofstream(root + "/mnt") << "x";
    EXPECT_EQ(start("folder"), -1);
    EXPECT_THAT(err.text(), HasSubstr("no SD card at " + root + "/mnt/sdcard: Not a directory\n"));
}

TEST_F(CardTest, ACardOfItsOwnSizeIsTrulyFullAndTrulyReadOnly)
{
    // In a child, because it leaves the machine's mounts for good.
    const ChildResult child = in_child([this] {
        if (start("64K") != 0)
            _exit(77);
        const auto must = [](bool holds, const char *what) {
            if (!holds) {
                fprintf(stderr, "%s: %s\n", what, strerror(errno));
                _exit(1);
            }
        };
        must(can_write(), "a new card");
        must(card_command("fill") == "in, of its own size, full; sdcard_rw rdwr", "fill");
        const int fd = open((slot + "/y").c_str(), O_WRONLY | O_CREAT, 0600);
        must(fd >= 0 && write(fd, "y", 1) == -1 && errno == ENOSPC, "full");
        must(card_command("free") == "in, of its own size; sdcard_rw rdwr", "free");
        must(write(fd, "y", 1) == 1, "room again");
        close(fd);
        must(card_command("lock") == "in, of its own size, locked; sdcard_rw rdwr", "lock");
        must(open((slot + "/y").c_str(), O_WRONLY) == -1 && errno == EROFS, "locked");
        must(mkdir((slot + "/z").c_str(), 0700) == -1 && errno == EROFS, "locked for folders");
        must(card_command("fill") == "cannot: Read-only file system", "filling a locked one");
        must(card_command("unlock") == "in, of its own size; sdcard_rw rdwr", "unlock");
        must(can_write(), "unlocked");
        card_stop();
    });
    if (child.status == 77)
        GTEST_SKIP() << child.err;
    EXPECT_EQ(child.status, 0) << child.err;
    EXPECT_FALSE(std::filesystem::exists(slot + "/x")) << "nobody else has seen it";
}

TEST_F(CardTest, ASlowCardLetsOpenersWait)
{
    const std::string folder = slot + "/ZEDRA_RECORD_MOTION/2021031408", file = folder + "/motion_record_msg";
    ASSERT_EQ(start("folder"), 0);
    std::filesystem::create_directories(folder);
    std::ofstream(file) << "x";
    EXPECT_EQ(card_command("slow 200"), "in, slow: 200 ms; sdcard_rw rdwr");
    ev_run(loop, EVRUN_ONCE); // the lease is taken
    std::atomic<uint64_t> took{0};
    std::thread opener([&] {
        const uint64_t begin = naro_clock_monotonic_ms();
        const int fd = open(file.c_str(), O_RDWR | O_APPEND);
        took = naro_clock_monotonic_ms() - begin + 1;
        close(fd);
    });
    const uint64_t end = naro_clock_monotonic_ms() + 10000;
    while (took == 0 && naro_clock_monotonic_ms() < end)
        ev_run(loop, EVRUN_ONCE);
    opener.join();
    EXPECT_GE(took, 190u);
    EXPECT_EQ(card_command("fast"), "in; sdcard_rw rdwr");
    const uint64_t begin = naro_clock_monotonic_ms();
    close(open(file.c_str(), O_RDWR));
    EXPECT_LT(naro_clock_monotonic_ms() - begin, 5000u);
}

} // namespace
