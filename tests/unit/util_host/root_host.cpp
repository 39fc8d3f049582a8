// The root: what NARO_ROOT means, and that no path escapes it but the machine's memory figures.
#include <errno.h>
#include <fcntl.h>
#include <filesystem>
#include <gtest/gtest.h>
#include <limits.h>
#include <pthread.h>
#include <stdlib.h>
#include <string.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

#include "in_child.h"
#include "naro_util.h"

namespace
{

class Root : public testing::Test
{
  protected:
    Root()
    {
        char name[] = "/tmp/naro-test-XXXXXX";
        EXPECT_NE(mkdtemp(name), nullptr);
        folder = name;
    }
    ~Root() override { std::filesystem::remove_all(folder); }
    void make(const std::string &name, const std::string &text) const
    {
        std::filesystem::create_directories(std::filesystem::path(folder + "/" + name).parent_path());
        FILE *file = fopen((folder + "/" + name).c_str(), "we");
        ASSERT_NE(file, nullptr);
        fputs(text.c_str(), file);
        fclose(file);
    }
    bool there(const std::string &name) const { return access((folder + "/" + name).c_str(), F_OK) == 0; }
    // Runs `piece` in a child with NARO_ROOT set to `root`; gives what it printed.
    static std::string under(const std::string &root, const std::function<void()> &piece)
    {
        const ChildResult child = in_child([&] {
            setenv("NARO_ROOT", root.c_str(), 1);
            piece();
        });
        EXPECT_EQ(child.status, 0) << child.err;
        return child.out;
    }
    std::string folder;
};

TEST_F(Root, is_the_environments_without_slashes_at_the_end)
{
    const auto print_root = [] { printf("%s", naro_root()); };
    EXPECT_EQ(under("/a/b", print_root), "/a/b");
    EXPECT_EQ(under("/a/b/", print_root), "/a/b");
    EXPECT_EQ(under("/a/b///", print_root), "/a/b");
    EXPECT_EQ(under("", print_root), "");
    EXPECT_EQ(under("/", print_root), "");
    EXPECT_EQ(under("///", print_root), "");
    EXPECT_EQ(in_child([] {
                  unsetenv("NARO_ROOT");
                  printf("'%s'", naro_root());
              }).out,
              "''");
}

TEST_F(Root, relative_counts_from_the_working_folder_of_the_start)
{
    EXPECT_EQ(under("x/y/",
                    [&] {
                        if (chdir(folder.c_str()) != 0)
                            _exit(1);
                        printf("%s ", naro_root());
                        if (chdir("/") != 0)
                            _exit(1);
                        printf("%s", naro_root());
                    }),
              folder + "/x/y " + folder + "/x/y");
}

TEST_F(Root, is_read_once)
{
    EXPECT_EQ(under("/a",
                    [] {
                        printf("%s ", naro_root());
                        setenv("NARO_ROOT", "/b", 1);
                        printf("%s", naro_root());
                    }),
              "/a /a");
}

TEST_F(Root, is_read_once_by_many_threads)
{
    EXPECT_EQ(under("/a/",
                    [] {
                        pthread_t all[8];
                        for (pthread_t &thread : all)
                            pthread_create(
                                &thread, nullptr,
                                [](void *) -> void * { return const_cast<char *>(naro_root()); }, nullptr);
                        const char *first = naro_root();
                        bool same = true;
                        for (pthread_t thread : all) {
                            void *seen = nullptr;
                            pthread_join(thread, &seen);
                            same = same && seen == first;
                        }
                        printf("%s %s", first, same ? "same" : "different");
                    }),
              "/a same");
}

TEST_F(Root, stands_before_every_absolute_path)
{
    make("mnt/file", "text");
    EXPECT_EQ(under(folder,
                    [] {
                        char buf[8] = "";
                        const int fd = naro_open("/mnt/file", O_RDONLY, 0);
                        printf("open %zd %s, ", naro_read(fd, buf, 7), buf);
                        FILE *file = naro_fopen("/mnt/new", "w");
                        printf("fopen %d, ", file && fclose(file) == 0);
                        printf("access %d, ", naro_access("/mnt/new", F_OK));
                        printf("mkdir %d, ", naro_mkdir("/run", 0755));
                        printf("parents %d, ", dir_make_parent("/sys/class/gpio/gpio9/value", 0755));
                        DIR *dir = naro_opendir("/sys/class/gpio");
                        printf("opendir %d, ", dir && closedir(dir) == 0);
                        printf("unlink %d", naro_unlink("/mnt/file"));
                    }),
              "open 4 text, fopen 1, access 0, mkdir 0, parents 0, opendir 1, unlink 0");
    EXPECT_TRUE(there("mnt/new"));
    EXPECT_TRUE(there("run"));
    EXPECT_TRUE(there("sys/class/gpio/gpio9"));
    EXPECT_FALSE(there("sys/class/gpio/gpio9/value"));
    EXPECT_FALSE(there("mnt/file"));
}

TEST_F(Root, does_not_stand_before_a_relative_path)
{
    make("elsewhere/file", "text");
    EXPECT_EQ(under(folder + "/root",
                    [&] {
                        if (chdir((folder + "/elsewhere").c_str()) != 0)
                            _exit(1);
                        printf("%d", naro_access("file", F_OK));
                    }),
              "0");
}

TEST_F(Root, hides_the_machines_own_files)
{
    EXPECT_EQ(under(folder,
                    [] {
                        printf("%d ", naro_open("/proc/stat", O_RDONLY, 0));
                        printf("%d ", errno == ENOENT);
                        printf("%d ", naro_open("/proc/meminfo2", O_RDONLY, 0));
                        printf("%d ", naro_fopen("/etc/passwd", "r") == nullptr);
                        printf("%d ", naro_opendir("/proc") == nullptr);
                        printf("%d ", naro_access("/tmp", F_OK));
                        printf("%d", dir_make_parent("/tmp/x", 0755));
                    }),
              "-1 1 -1 1 1 -1 0");
    EXPECT_TRUE(there("tmp"));
}

TEST_F(Root, is_not_in_the_paths_that_faults_see)
{
    make("mnt/file", "text");
    EXPECT_EQ(under(folder,
                    [] {
                        naro_file_set_fault(
                            [](void *, const char *call, const char *path) {
                                printf("%s %s, ", call, path);
                                return 0;
                            },
                            nullptr);
                        char byte;
                        const int fd = naro_open("/mnt/file", O_RDONLY, 0);
                        printf("%zd, ", naro_read(fd, &byte, 1));
                        dir_make_parent("/mnt/a/b", 0755);
                    }),
              "open /mnt/file, read /mnt/file, 1, mkdir /mnt, mkdir /mnt/a, ");
}

const char *first_word()
{
    static char word[32];
    FILE *file = naro_fopen("/proc/meminfo", "r");
    if (!file || fscanf(file, "%31s", word) != 1)
        strcpy(word, "none");
    if (file)
        fclose(file);
    return word;
}

TEST_F(Root, lends_the_machines_memory_figures_where_it_has_none)
{
    EXPECT_EQ(under(folder,
                    [] {
                        char buf[10] = "";
                        const int fd = naro_open("/proc/meminfo", O_RDONLY, 0);
                        printf("%zd %s ", naro_read(fd, buf, 9), buf);
                        printf("%s ", first_word());
                        printf("%d ", naro_access("/proc/meminfo", R_OK));
                        printf("%d ", naro_unlink("/proc/meminfo"));
                        printf("%d", errno == ENOENT);
                    }),
              "9 MemTotal: MemTotal: 0 -1 1");
}

TEST_F(Root, uses_its_own_memory_figures_where_it_has_some)
{
    make("proc/meminfo", "Mine: 5 kB\n");
    EXPECT_EQ(under(folder,
                    [] {
                        char buf[6] = "";
                        const int fd = naro_open("/proc/meminfo", O_RDONLY, 0);
                        printf("%zd %s ", naro_read(fd, buf, 5), buf);
                        printf("%s", first_word());
                    }),
              "5 Mine: Mine:");
}

TEST_F(Root, a_path_that_gets_too_long_is_an_error)
{
    const size_t room = PATH_MAX - 1 - folder.size(); // for what comes after the root
    std::string fits;
    while (fits.size() + 2 <= room)
        fits += "/.";
    if (fits.size() < room)
        fits.insert(0, "/");
    ASSERT_EQ(fits.size(), room);
    EXPECT_EQ(under(folder,
                    [&] {
                        const int fd = naro_open(fits.c_str(), O_RDONLY, 0);
                        printf("%d ", fd >= 0);
                        errno = 0;
                        printf("%d ", naro_open((fits + "/").c_str(), O_RDONLY, 0));
                        printf("%d", errno == ENAMETOOLONG);
                    }),
              "1 -1 1");
}

std::string identity(int fd)
{
    struct stat status = {};
    return fstat(fd, &status) == 0 ? std::to_string(status.st_dev) + ":" + std::to_string(status.st_ino)
                                   : "none";
}

TEST_F(Root, has_a_descriptor)
{
    const int fd = open(folder.c_str(), O_PATH | O_CLOEXEC);
    const std::string expected = identity(fd);
    close(fd);
    EXPECT_EQ(under(folder,
                    [] {
                        printf("%s ", identity(naro_root_fd()).c_str());
                        printf("%d ", fcntl(naro_root_fd(), F_GETFD) == FD_CLOEXEC);
                        printf("%d", naro_root_fd() == naro_root_fd());
                    }),
              expected + " 1 1");
}

TEST_F(Root, descriptor_can_reach_what_is_inside)
{
    make("run/file", "text");
    EXPECT_EQ(under(folder,
                    [] {
                        char path[64];
                        snprintf(path, sizeof path, "/proc/self/fd/%d/run/file", naro_root_fd());
                        printf("%d", access(path, F_OK));
                    }),
              "0");
}

TEST_F(Root, descriptor_is_tried_again_until_the_folder_is_there)
{
    make("file", "text");
    EXPECT_EQ(under(folder + "/later",
                    [&] {
                        printf("%d ", naro_root_fd());
                        printf("%d ", errno == ENOENT);
                        if (mkdir((folder + "/later").c_str(), 0755) != 0)
                            _exit(1);
                        printf("%d", naro_root_fd() >= 0);
                    }),
              "-1 1 1");
    EXPECT_EQ(under(folder + "/file",
                    [] {
                        printf("%d ", naro_root_fd());
                        printf("%d", errno == ENOTDIR);
                    }),
              "-1 1");
}

TEST_F(Root, descriptor_is_given_to_a_thread_that_is_to_be_cancelled)
{
    // Nor does such a thread keep the lock from the others.
    EXPECT_EQ(under(folder,
                    [] {
                        pthread_t thread;
                        pthread_create(
                            &thread, nullptr,
                            [](void *) -> void * {
                                pthread_cancel(pthread_self());
                                printf("%d ", naro_root_fd() >= 0);
                                pthread_testcancel();
                                return nullptr;
                            },
                            nullptr);
                        void *result = nullptr;
                        pthread_join(thread, &result);
                        printf("%d %d", result == PTHREAD_CANCELED, naro_root_fd() >= 0);
                    }),
              "1 1 1");
}

} // namespace
