// What every implementation of the file calls owes to its callers where there is no root: the C library's
// behaviour, parents made on demand, and faults wherever a test asks for one.
#include <atomic>
#include <errno.h>
#include <fcntl.h>
#include <filesystem>
#include <gtest/gtest.h>
#include <limits.h>
#include <pthread.h>
#include <stdlib.h>
#include <string.h>
#include <string>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include "heap_use.h"
#include "in_child.h"
#include "naro_util.h"

namespace
{

// Before anything reads it.
const bool no_root = unsetenv("NARO_ROOT") == 0;

class Files : public testing::Test
{
  protected:
    Files()
    {
        EXPECT_TRUE(no_root);
        char name[] = "/tmp/naro-test-XXXXXX";
        EXPECT_NE(mkdtemp(name), nullptr);
        folder = name;
    }
    ~Files() override
    {
        naro_file_set_fault(nullptr, nullptr);
        std::filesystem::remove_all(folder);
    }
    std::string in(const std::string &name) const { return folder + "/" + name; }
    void make(const std::string &name, const std::string &text) const
    {
        FILE *file = fopen(in(name).c_str(), "w");
        ASSERT_NE(file, nullptr);
        fputs(text.c_str(), file);
        fclose(file);
    }
    std::string folder;
};

bool close_on_exec(int fd)
{
    return fcntl(fd, F_GETFD) & FD_CLOEXEC;
}

mode_t mode_of(const std::string &path)
{
    struct stat status = {};
    return stat(path.c_str(), &status) == 0 ? status.st_mode & 07777 : 0;
}

TEST_F(Files, there_is_no_root)
{
    EXPECT_STREQ(naro_root(), "");
    struct stat top, seen;
    ASSERT_EQ(stat("/", &top), 0);
    ASSERT_GE(naro_root_fd(), 0);
    ASSERT_EQ(fstat(naro_root_fd(), &seen), 0);
    EXPECT_EQ(seen.st_ino, top.st_ino);
    EXPECT_EQ(seen.st_dev, top.st_dev);
    EXPECT_TRUE(close_on_exec(naro_root_fd()));
    EXPECT_EQ(naro_root_fd(), naro_root_fd());
}

TEST_F(Files, open_reads_writes_and_creates)
{
    umask(022);
    const int fd = naro_open(in("new").c_str(), O_RDWR | O_CREAT | O_EXCL, 0640);
    ASSERT_GE(fd, 0);
    EXPECT_TRUE(close_on_exec(fd));
    EXPECT_EQ(mode_of(in("new")), 0640u);
    EXPECT_EQ(naro_write(fd, "12345", 5), 5);
    EXPECT_EQ(lseek(fd, 0, SEEK_SET), 0);
    char buf[8] = "#######";
    EXPECT_EQ(naro_read(fd, buf, 7), 5);
    EXPECT_STREQ(buf, "12345##");
    EXPECT_EQ(naro_read(fd, buf, 7), 0);
    close(fd);

    EXPECT_EQ(naro_open(in("new").c_str(), O_RDWR | O_CREAT | O_EXCL, 0640), -1);
    EXPECT_EQ(errno, EEXIST);
    EXPECT_EQ(naro_open(in("none").c_str(), O_RDONLY, 0), -1);
    EXPECT_EQ(errno, ENOENT);
}

TEST_F(Files, read_and_write_report_errors)
{
    char buf[4];
    EXPECT_EQ(naro_read(-1, buf, 4), -1);
    EXPECT_EQ(errno, EBADF);
    EXPECT_EQ(naro_write(-1, buf, 4), -1);
    EXPECT_EQ(errno, EBADF);
}

TEST_F(Files, fopen_reads_writes_and_appends)
{
    FILE *file = naro_fopen(in("new").c_str(), "w");
    ASSERT_NE(file, nullptr);
    EXPECT_TRUE(close_on_exec(fileno(file)));
    fputs("one", file);
    fclose(file);
    file = naro_fopen(in("new").c_str(), "ab+");
    ASSERT_NE(file, nullptr);
    EXPECT_TRUE(close_on_exec(fileno(file)));
    fputs("two", file);
    rewind(file);
    char buf[16] = "";
    EXPECT_EQ(fread(buf, 1, sizeof buf - 1, file), 6u); // the '+' was there
    EXPECT_STREQ(buf, "onetwo");
    fclose(file);
    file = naro_fopen(in("new").c_str(), "r");
    ASSERT_NE(file, nullptr);
    EXPECT_EQ(fputs("three", file), EOF);
    fclose(file);
    EXPECT_EQ(naro_fopen(in("none").c_str(), "r"), nullptr);
    EXPECT_EQ(errno, ENOENT);
}

TEST_F(Files, fopen_refuses_what_is_no_mode)
{
    make("file", "text");
    for (const char *mode : {"", "x", "read this file and then write to it, please"}) {
        errno = 0;
        EXPECT_EQ(naro_fopen(in("file").c_str(), mode), nullptr) << mode;
        EXPECT_EQ(errno, EINVAL) << mode;
    }
}

TEST_F(Files, opendir_access_mkdir_unlink)
{
    umask(022);
    EXPECT_EQ(naro_mkdir(in("folder").c_str(), 0750), 0);
    EXPECT_EQ(mode_of(in("folder")), 0750u);
    EXPECT_EQ(naro_mkdir(in("folder").c_str(), 0750), -1);
    EXPECT_EQ(errno, EEXIST);
    make("folder/file", "text");
    EXPECT_EQ(naro_access(in("folder/file").c_str(), R_OK), 0);
    EXPECT_EQ(naro_access(in("folder/file").c_str(), X_OK), -1);
    EXPECT_EQ(errno, EACCES);
    DIR *dir = naro_opendir(in("folder").c_str());
    ASSERT_NE(dir, nullptr);
    EXPECT_TRUE(close_on_exec(dirfd(dir)));
    std::vector<std::string> names;
    while (const dirent *entry = readdir(dir))
        if (entry->d_name[0] != '.')
            names.push_back(entry->d_name);
    closedir(dir);
    EXPECT_EQ(names, std::vector<std::string>{"file"});
    EXPECT_EQ(naro_unlink(in("folder/file").c_str()), 0);
    EXPECT_EQ(naro_access(in("folder/file").c_str(), F_OK), -1);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(naro_opendir(in("none").c_str()), nullptr);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(naro_unlink(in("none").c_str()), -1);
    EXPECT_EQ(errno, ENOENT);
}

TEST_F(Files, a_relative_path_counts_from_the_working_folder)
{
    make("file", "text");
    char before[PATH_MAX];
    ASSERT_NE(getcwd(before, sizeof before), nullptr);
    ASSERT_EQ(chdir(folder.c_str()), 0);
    EXPECT_EQ(naro_access("file", F_OK), 0);
    EXPECT_EQ(dir_make_parent("a/b/file", 0755), 0);
    EXPECT_EQ(chdir(before), 0);
    EXPECT_NE(mode_of(in("a/b")), 0u);
}

TEST_F(Files, no_path_at_all_is_an_error)
{
    errno = 0;
    EXPECT_EQ(naro_open(nullptr, O_RDONLY, 0), -1);
    EXPECT_EQ(errno, EFAULT);
    errno = 0;
    EXPECT_EQ(naro_fopen(nullptr, "r"), nullptr);
    EXPECT_EQ(errno, EFAULT);
    errno = 0;
    EXPECT_EQ(naro_opendir(nullptr), nullptr);
    EXPECT_EQ(errno, EFAULT);
    errno = 0;
    EXPECT_EQ(naro_access(nullptr, F_OK), -1);
    EXPECT_EQ(errno, EFAULT);
    errno = 0;
    EXPECT_EQ(naro_mkdir(nullptr, 0), -1);
    EXPECT_EQ(errno, EFAULT);
    errno = 0;
    EXPECT_EQ(naro_unlink(nullptr), -1);
    EXPECT_EQ(errno, EFAULT);
    errno = 0;
    EXPECT_EQ(dir_make_parent(nullptr, 0755), -1);
    EXPECT_EQ(errno, EFAULT);
}

TEST_F(Files, memory_figures_are_the_machines)
{
    FILE *file = naro_fopen("/proc/meminfo", "r");
    ASSERT_NE(file, nullptr);
    char word[16] = "";
    EXPECT_EQ(fscanf(file, "%15s", word), 1);
    EXPECT_STREQ(word, "MemTotal:");
    fclose(file);
}

TEST_F(Files, dir_make_parent_makes_all_parents_and_not_the_file)
{
    umask(022);
    EXPECT_EQ(dir_make_parent(in("a/bb/ccc/file").c_str(), 0777), 0);
    EXPECT_EQ(mode_of(in("a")), 0755u); // less the umask, as mkdir does
    EXPECT_EQ(mode_of(in("a/bb")), 0755u);
    EXPECT_EQ(mode_of(in("a/bb/ccc")), 0755u);
    EXPECT_EQ(mode_of(in("a/bb/ccc/file")), 0u);
    EXPECT_EQ(dir_make_parent(in("a/dd/file").c_str(), 0700), 0);
    EXPECT_EQ(mode_of(in("a")), 0755u);
    EXPECT_EQ(mode_of(in("a/dd")), 0700u);
}

TEST_F(Files, dir_make_parent_takes_existing_folders)
{
    EXPECT_EQ(dir_make_parent(in("a/b/file").c_str(), 0755), 0);
    EXPECT_EQ(dir_make_parent(in("a/b/file").c_str(), 0755), 0);
    make("a/b/file", "text");
    EXPECT_EQ(dir_make_parent(in("a/b/file").c_str(), 0755), 0);
    ASSERT_EQ(symlink(in("a").c_str(), in("link").c_str()), 0);
    EXPECT_EQ(dir_make_parent(in("link/c/file").c_str(), 0755), 0);
    EXPECT_NE(mode_of(in("a/c")), 0u);
}

TEST_F(Files, dir_make_parent_takes_every_way_to_write_a_path)
{
    EXPECT_EQ(dir_make_parent("file", 0755), 0);
    EXPECT_EQ(dir_make_parent("/file", 0755), 0);
    EXPECT_EQ(dir_make_parent("", 0755), 0);
    EXPECT_EQ(dir_make_parent("/", 0755), 0);
    EXPECT_EQ(dir_make_parent(("/" + in("x//y///file")).c_str(), 0755), 0);
    EXPECT_NE(mode_of(in("x/y")), 0u);
    EXPECT_EQ(dir_make_parent(in("x/./y/../z/file").c_str(), 0755), 0);
    EXPECT_NE(mode_of(in("x/z")), 0u);
    // What ends in '/' names no file: the whole of it is parents.
    EXPECT_EQ(dir_make_parent(in("p/q/").c_str(), 0755), 0);
    EXPECT_NE(mode_of(in("p/q")), 0u);
}

TEST_F(Files, dir_make_parent_fails_on_what_is_no_folder)
{
    make("file", "text");
    errno = 0;
    EXPECT_EQ(dir_make_parent(in("file/x").c_str(), 0755), -1);
    EXPECT_EQ(errno, ENOTDIR);
    errno = 0;
    EXPECT_EQ(dir_make_parent(in("file/x/y").c_str(), 0755), -1);
    EXPECT_EQ(errno, ENOTDIR);
    ASSERT_EQ(symlink("nowhere", in("dangling").c_str()), 0);
    errno = 0;
    EXPECT_EQ(dir_make_parent(in("dangling/x").c_str(), 0755), -1);
    EXPECT_EQ(errno, ENOENT);
    const std::string too_long(NAME_MAX + 1, 'n');
    errno = 0;
    EXPECT_EQ(dir_make_parent(in("before/" + too_long + "/after/x").c_str(), 0755), -1);
    EXPECT_EQ(errno, ENAMETOOLONG);
    EXPECT_NE(mode_of(in("before")), 0u); // what could be made stays
}

// A hook that notes what it is asked and answers from a plan.
struct Plan {
    std::vector<std::string> asked; // "call path"
    std::string call, path;         // which to answer with `verdict`; empty: every one
    int verdict = 0;
};

int answer(void *context, const char *call, const char *path)
{
    Plan *plan = static_cast<Plan *>(context);
    plan->asked.push_back(std::string(call) + " " + path);
    const bool meant =
        (plan->call.empty() || plan->call == call) && (plan->path.empty() || plan->path == path);
    return meant ? plan->verdict : 0;
}

TEST_F(Files, faults_are_asked_for_with_call_and_path)
{
    make("file", "text");
    Plan plan;
    naro_file_set_fault(answer, &plan);
    const std::string path = in("file");
    const int fd = naro_open(path.c_str(), O_RDWR, 0);
    ASSERT_GE(fd, 0);
    char buf[8];
    EXPECT_EQ(naro_read(fd, buf, 8), 4);
    EXPECT_EQ(naro_write(fd, "more", 4), 4);
    close(fd);
    FILE *file = naro_fopen(path.c_str(), "r");
    ASSERT_NE(file, nullptr);
    EXPECT_EQ(naro_read(fileno(file), buf, 8), 8);
    fclose(file);
    DIR *dir = naro_opendir(folder.c_str());
    ASSERT_NE(dir, nullptr);
    closedir(dir);
    EXPECT_EQ(naro_access(path.c_str(), F_OK), 0);
    EXPECT_EQ(naro_unlink(path.c_str()), 0);
    EXPECT_EQ(naro_mkdir(in("new").c_str(), 0755), 0);
    EXPECT_EQ(plan.asked,
              (std::vector<std::string>{"open " + path, "read " + path, "write " + path, "fopen " + path,
                                        "read " + path, "opendir " + folder, "access " + path,
                                        "unlink " + path, "mkdir " + in("new")}));
    naro_file_set_fault(nullptr, nullptr);
    EXPECT_EQ(naro_access(path.c_str(), F_OK), -1);
    EXPECT_EQ(plan.asked.size(), 9u);
}

TEST_F(Files, a_fault_makes_any_call_fail_with_any_error_and_do_nothing)
{
    make("file", "text");
    Plan plan;
    const std::string path = in("file");
    naro_file_set_fault(answer, &plan);
    const int fd = naro_open(path.c_str(), O_RDWR, 0);
    ASSERT_GE(fd, 0);
    for (int error : {EPERM, EIO, ENOSPC, EINTR}) {
        plan.verdict = error;
        char buf[8] = "";
        const struct {
            const char *call;
            bool failed;
        } calls[] = {
            {"open",
             (errno = 0, naro_open(in("created").c_str(), O_RDWR | O_CREAT, 0600)) == -1 && errno == error},
            {"fopen", (errno = 0, naro_fopen(in("created").c_str(), "w")) == nullptr && errno == error},
            {"opendir", (errno = 0, naro_opendir(folder.c_str())) == nullptr && errno == error},
            {"access", (errno = 0, naro_access(path.c_str(), F_OK)) == -1 && errno == error},
            {"mkdir", (errno = 0, naro_mkdir(in("created").c_str(), 0700)) == -1 && errno == error},
            {"unlink", (errno = 0, naro_unlink(path.c_str())) == -1 && errno == error},
            {"read", (errno = 0, naro_read(fd, buf, 4)) == -1 && errno == error},
            {"write", (errno = 0, naro_write(fd, "x", 1)) == -1 && errno == error},
            {"dir_make_parent",
             (errno = 0, dir_make_parent(in("created/x").c_str(), 0700)) == -1 && errno == error},
        };
        for (const auto &call : calls)
            EXPECT_TRUE(call.failed) << call.call;
        EXPECT_STREQ(buf, "");
    }
    EXPECT_EQ(mode_of(in("created")), 0u);
    plan.verdict = 0;
    char buf[8] = "";
    EXPECT_EQ(naro_read(fd, buf, 7), 4); // from the beginning: nothing had moved
    EXPECT_STREQ(buf, "text");
    close(fd);
}

TEST_F(Files, a_fault_is_asked_for_without_a_path_too)
{
    Plan plan;
    naro_file_set_fault(answer, &plan);
    EXPECT_EQ(naro_open(nullptr, O_RDONLY, 0), -1);
    EXPECT_EQ(errno, EFAULT);
    EXPECT_EQ(plan.asked, std::vector<std::string>{"open "});
}

TEST_F(Files, a_fault_meets_one_path_and_call_alone)
{
    Plan plan;
    plan.call = "mkdir";
    plan.path = in("a/b");
    plan.verdict = EROFS;
    naro_file_set_fault(answer, &plan);
    errno = 0;
    EXPECT_EQ(dir_make_parent(in("a/b/c/file").c_str(), 0755), -1);
    EXPECT_EQ(errno, EROFS);
    EXPECT_NE(mode_of(in("a")), 0u);
    EXPECT_EQ(mode_of(in("a/b")), 0u);
    EXPECT_EQ(plan.asked.back(), "mkdir " + in("a/b"));
}

TEST_F(Files, a_negative_fault_makes_reads_and_writes_short)
{
    make("file", "abcdefgh");
    Plan plan;
    naro_file_set_fault(answer, &plan);
    const int fd = naro_open(in("file").c_str(), O_RDWR, 0);
    ASSERT_GE(fd, 0);
    char buf[16] = "";
    plan.verdict = -1;
    EXPECT_EQ(naro_read(fd, buf, 8), 0);
    EXPECT_EQ(naro_write(fd, "x", 1), 0);
    plan.verdict = -3;
    EXPECT_EQ(naro_read(fd, buf, 8), 2);
    EXPECT_STREQ(buf, "ab");
    EXPECT_EQ(naro_write(fd, "CDEF", 4), 2);
    EXPECT_EQ(naro_read(fd, buf, 1), 1); // asked for less than the bound
    EXPECT_STREQ(buf, "eb");
    plan.verdict = INT_MIN;
    EXPECT_EQ(naro_read(fd, buf, 8), 3);
    EXPECT_STREQ(buf, "fgh");
    // The other calls have no length: they go through.
    plan.verdict = -1;
    EXPECT_EQ(naro_access(in("file").c_str(), F_OK), 0);
    const int other = naro_open(in("file").c_str(), O_RDONLY, 0);
    EXPECT_GE(other, 0);
    close(other);
    close(fd);
    plan.verdict = 0;
    FILE *file = naro_fopen(in("file").c_str(), "r");
    ASSERT_NE(file, nullptr);
    EXPECT_NE(fgets(buf, sizeof buf, file), nullptr);
    EXPECT_STREQ(buf, "abCDefgh");
    fclose(file);
}

TEST_F(Files, the_path_of_a_descriptor_from_elsewhere_is_unknown)
{
    make("file", "text");
    const int early = naro_open(in("file").c_str(), O_RDONLY, 0);
    Plan plan;
    naro_file_set_fault(answer, &plan);
    char buf[8];
    EXPECT_EQ(naro_read(early, buf, 1), 1); // opened before the hook was there
    EXPECT_EQ(plan.asked.back(), "read ");
    close(early);

    const int fd = naro_open(in("file").c_str(), O_RDONLY, 0);
    close(fd);
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    ASSERT_EQ(ends[0], fd); // the number came back for something else
    EXPECT_EQ(naro_write(ends[1], "x", 1), 1);
    EXPECT_EQ(naro_read(ends[0], buf, 1), 1);
    EXPECT_EQ(plan.asked.back(), "read ");
    close(ends[0]);
    close(ends[1]);

    EXPECT_EQ(naro_read(-1, buf, 1), -1);
    EXPECT_EQ(plan.asked.back(), "read ");
    EXPECT_EQ(naro_read(1000000, buf, 1), -1);
    EXPECT_EQ(plan.asked.back(), "read ");
}

TEST_F(Files, the_path_of_a_descriptor_that_was_opened_elsewhere_in_the_same_folder_is_unknown)
{
    make("one", "1");
    make("two", "2");
    Plan plan;
    naro_file_set_fault(answer, &plan);
    const int first = naro_open(in("one").c_str(), O_RDONLY, 0);
    close(first);
    const int second = open(in("two").c_str(), O_RDONLY | O_CLOEXEC);
    ASSERT_EQ(first, second);
    char byte;
    EXPECT_EQ(naro_read(second, &byte, 1), 1);
    EXPECT_EQ(plan.asked.back(), "read ");
    close(second);
}

TEST_F(Files, paths_are_known_for_descriptors_from_0_to_1023)
{
    make("file", "text");
    const ChildResult child = in_child([this] {
        Plan plan;
        naro_file_set_fault(answer, &plan);
        const std::string path = in("file");
        char byte;
        for (int wanted : {0, 1023, 1024}) {
            // Everything below is taken, so that it is the next.
            const rlimit limit = {2048, 2048};
            setrlimit(RLIMIT_NOFILE, &limit);
            for (int lowest = -1; lowest < wanted;)
                lowest = fcntl(2, F_DUPFD, 0);
            close(wanted);
            const int fd = naro_open(path.c_str(), O_RDONLY, 0);
            naro_read(fd, &byte, 1);
            printf("%d %d ", fd, plan.asked.back() == "read " + path);
        }
        printf("%d", plan.asked.back() == "read ");
    });
    EXPECT_EQ(child.out, "0 1 1023 1 1024 0 1") << child.err;
}

TEST_F(Files, faults_are_asked_for_by_many_threads)
{
    make("file", "text");
    static std::atomic<int> wrong;
    wrong = 0;
    static std::string path;
    path = in("file");
    naro_file_set_fault(
        [](void *, const char *, const char *asked) {
            wrong += asked != path;
            return 0;
        },
        nullptr);
    pthread_t all[4];
    for (pthread_t &thread : all)
        ASSERT_EQ(pthread_create(
                      &thread, nullptr,
                      [](void *) -> void * {
                          for (int n = 0; n < 200; n++) {
                              char byte;
                              const int fd = naro_open(path.c_str(), O_RDONLY, 0);
                              naro_read(fd, &byte, 1);
                              close(fd);
                          }
                          return nullptr;
                      },
                      nullptr),
                  0);
    for (pthread_t thread : all)
        pthread_join(thread, nullptr);
    EXPECT_EQ(wrong, 0);
}

TEST_F(Files, a_descriptor_number_that_comes_back_has_the_new_path)
{
    make("one", "1");
    make("two", "2");
    Plan plan;
    naro_file_set_fault(answer, &plan);
    const int first = naro_open(in("one").c_str(), O_RDONLY, 0);
    close(first);
    const int second = naro_open(in("two").c_str(), O_RDONLY, 0);
    ASSERT_EQ(first, second);
    char buf[2];
    EXPECT_EQ(naro_read(second, buf, 1), 1);
    EXPECT_EQ(plan.asked.back(), "read " + in("two"));
    // A new hook knows nothing of what was opened under the old one.
    naro_file_set_fault(answer, &plan);
    EXPECT_EQ(naro_read(second, buf, 1), 0);
    EXPECT_EQ(plan.asked.back(), "read ");
    close(second);
}

TEST_F(Files, no_memory_is_kept)
{
    make("file", "text");
    EXPECT_EQ(leaked_bytes([this] { dir_make_parent(in("a/b").c_str(), 0755); }), 0u);
    EXPECT_EQ(leaked_bytes([this] { dir_make_parent(in("file/b/c").c_str(), 0755); }), 0u);
    // The names of open files, while faults are asked for and after.
    const std::string path = in("file");
    EXPECT_EQ(leaked_bytes([&] {
                  naro_file_set_fault([](void *, const char *, const char *) { return 0; }, nullptr);
                  for (int n = 0; n < 3; n++)
                      close(naro_open(path.c_str(), O_RDONLY, 0));
                  naro_file_set_fault(nullptr, nullptr);
              }),
              0u);
}

} // namespace
