// The mailboxes of our own configuration client: who can be found, who has died, and names that are none.
#include "vardex_mailbox.h"

#include <errno.h>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <poll.h>
#include <string>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include "isolate.h"

namespace
{

const std::string root = scratch_root();
const std::string folder = root + "/run/naro/vardex/";

class Mailbox : public testing::Test
{
  protected:
    Mailbox()
    {
        naro_root_fd(); // opened once, and kept
        std::filesystem::remove_all(root + "/run");
    }
    static bool is_readable(int fd)
    {
        pollfd wait = {fd, POLLIN, 0};
        return poll(&wait, 1, 0) == 1;
    }
    static size_t open_descriptors()
    {
        const std::filesystem::directory_iterator all("/proc/self/fd");
        return static_cast<size_t>(std::distance(begin(all), end(all)));
    }
    char name[VARDEX_MAILBOX_NAME] = "";
};

TEST_F(Mailbox, IsFoundAndWokenUntilItIsDestroyed)
{
    const size_t before = open_descriptors();
    const int fd = vardex_mailbox_create(name);
    ASSERT_GE(fd, 0);
    EXPECT_EQ(std::string(name).rfind(std::to_string(getpid()) + "-", 0), 0u) << name;
    EXPECT_TRUE(std::filesystem::exists(folder + name));
    EXPECT_TRUE(vardex_mailbox_is_found(name));
    EXPECT_FALSE(is_readable(fd)) << "looking for it wakes nobody";
    EXPECT_TRUE(vardex_mailbox_knock(name));
    EXPECT_TRUE(vardex_mailbox_knock(name));
    EXPECT_TRUE(is_readable(fd));
    vardex_mailbox_drain(fd);
    EXPECT_FALSE(is_readable(fd));
    EXPECT_EQ(open_descriptors(), before + 1) << "of the calls, none keeps one";
    vardex_mailbox_destroy(fd, name);
    EXPECT_EQ(open_descriptors(), before);
    EXPECT_FALSE(std::filesystem::exists(folder + name));
    EXPECT_FALSE(vardex_mailbox_is_found(name));
    EXPECT_FALSE(vardex_mailbox_knock(name));
}

TEST_F(Mailbox, TwoHaveTwoNames)
{
    char other[VARDEX_MAILBOX_NAME];
    const int fd = vardex_mailbox_create(name), other_fd = vardex_mailbox_create(other);
    EXPECT_STRNE(name, other);
    EXPECT_TRUE(vardex_mailbox_knock(other));
    EXPECT_FALSE(is_readable(fd));
    EXPECT_TRUE(is_readable(other_fd));
    vardex_mailbox_destroy(fd, name);
    vardex_mailbox_destroy(other_fd, other);
}

TEST_F(Mailbox, OfTheDeadIsRemovedByWhoKnocks)
{
    const int fd = vardex_mailbox_create(name);
    close(fd); // as a kill does: its file stays
    EXPECT_FALSE(vardex_mailbox_is_found(name));
    EXPECT_TRUE(std::filesystem::exists(folder + name)) << "looking removes nothing";
    EXPECT_FALSE(vardex_mailbox_knock(name));
    EXPECT_FALSE(std::filesystem::exists(folder + name));
}

TEST_F(Mailbox, AFullOneIsAsGoodAsAKnock)
{
    const int fd = vardex_mailbox_create(name);
    for (int i = 0; i < 5000; i++)
        ASSERT_TRUE(vardex_mailbox_knock(name)) << i;
    vardex_mailbox_drain(fd);
    EXPECT_FALSE(is_readable(fd));
    EXPECT_TRUE(vardex_mailbox_knock(name));
    EXPECT_TRUE(is_readable(fd));
    vardex_mailbox_destroy(fd, name);
}

TEST_F(Mailbox, EmptyMessagesAreTakenToo)
{
    const int fd = vardex_mailbox_create(name);
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    ASSERT_LT(static_cast<size_t>(
                  snprintf(address.sun_path, sizeof address.sun_path, "%s%s", folder.c_str(), name)),
              sizeof address.sun_path);
    const int sender = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    for (int i = 0; i < 3; i++)
        ASSERT_EQ(sendto(sender, "", 0, 0, reinterpret_cast<const sockaddr *>(&address), sizeof address), 0);
    ASSERT_TRUE(vardex_mailbox_knock(name));
    close(sender);
    vardex_mailbox_drain(fd);
    EXPECT_FALSE(is_readable(fd));
    vardex_mailbox_destroy(fd, name);
}

// A store is a file from outside, and so are the names in it.
TEST_F(Mailbox, ANameThatReachesElsewhereIsNobodysAndTouchesNothing)
{
    const int fd = vardex_mailbox_create(name);
    std::filesystem::create_directories(folder + "below");
    for (const char *file : {"../victim", ".hidden", "below/victim"})
        std::ofstream(folder + file) << "mine";
    const std::string real = name, longest(VARDEX_MAILBOX_NAME - 1, 'x'), too_long(VARDEX_MAILBOX_NAME, 'x');
    std::ofstream(folder + too_long) << "mine";
    for (const std::string &bad :
         {std::string(), std::string("."), std::string(".."), std::string("../victim"),
          std::string(".hidden"), std::string("below/victim"), "./" + real, too_long}) {
        EXPECT_FALSE(vardex_mailbox_is_found(bad.c_str())) << bad;
        EXPECT_FALSE(vardex_mailbox_knock(bad.c_str())) << bad;
    }
    for (const char *file : {"../victim", ".hidden", "below/victim"})
        EXPECT_TRUE(std::filesystem::exists(folder + file)) << file;
    EXPECT_TRUE(std::filesystem::exists(folder + too_long));
    EXPECT_FALSE(is_readable(fd));
    // One that could be a name is looked for, and what is left of it is removed.
    for (const std::string &file : {longest, std::string("a"), std::string("a.b")}) {
        std::ofstream(folder + file) << "left behind";
        EXPECT_FALSE(vardex_mailbox_is_found(file.c_str()));
        EXPECT_FALSE(vardex_mailbox_knock(file.c_str()));
        EXPECT_FALSE(std::filesystem::exists(folder + file)) << file;
    }
    vardex_mailbox_destroy(fd, name);
}

TEST_F(Mailbox, WhereNoneCanBeMadeThereIsAReason)
{
    const size_t before = open_descriptors();
    std::filesystem::create_directories(root + "/run");
    std::ofstream(root + "/run/naro") << "in the way";
    errno = 0;
    EXPECT_EQ(vardex_mailbox_create(name), -1);
    EXPECT_EQ(errno, ENOTDIR);
    EXPECT_FALSE(vardex_mailbox_is_found("a")) << "where no folder is, nobody can be";
    EXPECT_FALSE(vardex_mailbox_knock("a"));
    std::filesystem::remove(root + "/run/naro");
    // A folder that takes no socket.
    std::filesystem::create_directories(root + "/run/naro");
    std::filesystem::create_directory_symlink("/proc/self", root + "/run/naro/vardex");
    errno = 0;
    EXPECT_EQ(vardex_mailbox_create(name), -1);
    EXPECT_NE(errno, 0);
    EXPECT_EQ(open_descriptors(), before);
}

TEST_F(Mailbox, WithoutDescriptorsNothingCanBeTold)
{
    const int fd = vardex_mailbox_create(name);
    rlimit limit;
    getrlimit(RLIMIT_NOFILE, &limit);
    const rlimit none = {0, limit.rlim_max};
    setrlimit(RLIMIT_NOFILE, &none);
    char other[VARDEX_MAILBOX_NAME];
    const int other_fd = vardex_mailbox_create(other);
    const int error = errno;
    const bool found = vardex_mailbox_is_found("nobody"), knocked = vardex_mailbox_knock("nobody");
    setrlimit(RLIMIT_NOFILE, &limit);
    EXPECT_EQ(other_fd, -1);
    EXPECT_EQ(error, EMFILE);
    EXPECT_TRUE(found) << "so nobody is thought dead for it";
    EXPECT_TRUE(knocked);
    vardex_mailbox_destroy(fd, name);
}

TEST_F(Mailbox, MayHaveTheNumberZero)
{
    close(STDIN_FILENO);
    const int fd = vardex_mailbox_create(name);
    EXPECT_EQ(fd, 0);
    EXPECT_TRUE(vardex_mailbox_knock(name));
    EXPECT_TRUE(is_readable(fd));
    vardex_mailbox_destroy(fd, name);
    // Nor do those that ask mind it.
    EXPECT_FALSE(vardex_mailbox_is_found(name));
    EXPECT_FALSE(vardex_mailbox_knock(name));
}

} // namespace
