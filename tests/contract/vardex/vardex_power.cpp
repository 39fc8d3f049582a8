// The power goes while settings are written: whatever was acknowledged is there afterwards, and nothing by
// halves.
//
// A writer's changes of its files are recorded. After each of them the disk is cut off in three ways, and
// what is left is opened by another process.
#include "recorded_disk.h"

#include <functional>
#include <gtest/gtest.h>
#include <map>
#include <stdlib.h>
#include <string>
#include <sys/wait.h>
#include <vector>

#include "libvardex.h"
#include "naro_util.h"

namespace
{

bool long_run()
{
    return getenv("NARO_LONG") != nullptr;
}

std::string text_and_free(char *text)
{
    const std::string result = text ? text : "(null)";
    free(text);
    return result;
}

// A value whose bytes all tell which it is, so that no half of it passes for a whole one.
std::string value_number(int number)
{
    const size_t length = number % 7 == 0 ? 9000 : 1 + static_cast<size_t>(number % 40);
    std::string value =
        std::to_string(number) + ":" + std::string(length, static_cast<char>('a' + number % 26));
    return value + ":" + std::to_string(number);
}

std::string key_number(int number)
{
    return "key" + std::to_string(number % 5);
}

// Runs `part` in a process of its own, in which `root` is the root; its exit status.
int in_process(const std::string &root, const std::function<int()> &part)
{
    fflush(nullptr);
    const pid_t pid = fork();
    if (pid == 0) {
        setenv("NARO_ROOT", root.c_str(), 1);
        const int result = part();
        fflush(nullptr);
        _exit(result);
    }
    int status = 0;
    while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

// A first start, a daemon that follows some keys and writes, its end, and another one.
int write_settings(const std::string &root, const std::string &record, int sets)
{
    recorded_disk::start(root);
    for (int round = 0, number = 0; round < 2; round++) {
        void *h = libvardex_config_open(0);
        uint64_t id;
        const libvardex_callback cb = [](void *, void *) { return 0; };
        for (int key = 0; key < 3; key++)
            libvardex_register_notification(h, "nvram", nullptr, key_number(key).c_str(), &id, cb, cb, 0, 0);
        for (int n = 0; n < sets / 2; n++, number++) {
            recorded_disk::mark("begin " + std::to_string(number));
            if (libvardex_set_value(h, "nvram", nullptr, key_number(number).c_str(), VARDEX_TEXT,
                                    value_number(number).c_str(), 0, 0, 0, 0) != 1)
                return 1;
            recorded_disk::mark("acknowledged " + std::to_string(number));
            if (n % 10 == 0)
                libvardex_xhandle_response(h);
        }
        libvardex_close(h);
    }
    recorded_disk::save(recorded_disk::stop(), record);
    return 0;
}

struct Expected {
    std::map<std::string, int> acknowledged; // by key
    int under_way = -1;                      // begun and not acknowledged

    void apply(const Change &change)
    {
        if (change.kind != Change::mark)
            return;
        const int number = atoi(change.path.c_str() + change.path.find(' '));
        under_way = change.path[0] == 'b' ? number : -1;
        if (change.path[0] == 'a')
            acknowledged[key_number(number)] = number;
    }
};

// What is wrong with the settings of this process's root; 0 for nothing.
int find_fault(const Expected &expected)
{
    for (int key = 0; key < 5; key++) {
        const std::string name = key_number(key);
        const std::string value = text_and_free(libvardex_config_get(0, "nvram", nullptr, name.c_str()));
        const auto last = expected.acknowledged.find(name);
        if (value == (last == expected.acknowledged.end() ? "(null)" : value_number(last->second)))
            continue;
        if (expected.under_way >= 0 && key_number(expected.under_way) == name &&
            value == value_number(expected.under_way))
            continue;
        fprintf(stderr, "%s is \"%.20s...\", acknowledged was %d\n", name.c_str(), value.c_str(),
                last == expected.acknowledged.end() ? -1 : last->second);
        return 1;
    }
    // And it can be gone on with.
    void *h = libvardex_config_open(0);
    const bool done = libvardex_set_value(h, "nvram", nullptr, "after", VARDEX_TEXT, "v", 0, 0, 0, 0) == 1 &&
                      text_and_free(libvardex_config_get(0, "nvram", nullptr, "after")) == "v";
    libvardex_close(h);
    return done ? 0 : 2;
}

class PowerTest : public testing::Test
{
  protected:
    PowerTest()
    {
        const char *base = getenv("TMPDIR");
        folder = std::string(base && *base == '/' ? base : "/tmp") + "/naro-power-XXXXXX";
        if (!mkdtemp(&folder[0]))
            abort();
    }
    ~PowerTest() override { std::filesystem::remove_all(folder); }

    std::vector<Change> record(int sets)
    {
        const std::string root = folder + "/written", file = folder + "/record";
        std::filesystem::create_directories(root + "/mnt/nvram");
        std::filesystem::create_directories(root + "/run");
        EXPECT_EQ(in_process(root, [&] { return write_settings(root, file, sets); }), 0);
        return recorded_disk::load(file);
    }
    // A disk on which there already are the folders that are there on a camera.
    static Disk new_disk()
    {
        Disk disk;
        for (const char *path : {"/mnt", "/mnt/nvram"})
            disk.apply({Change::folder, path, 0, ""});
        disk.apply({Change::sync, "/", 0, ""});
        disk.apply({Change::sync, "/mnt", 0, ""});
        return disk;
    }
    // The number of cuts that lost something.
    int faults_after(const Disk &disk, Disk::Leaves what, const Expected &expected, unsigned seed)
    {
        const std::string root = folder + "/cut";
        disk.leave(root, what, seed);
        return in_process(root, [&] { return find_fault(expected); }) != 0;
    }

    std::string folder;
};

TEST_F(PowerTest, nothing_acknowledged_is_lost_at_any_write)
{
#ifdef __SANITIZE_ADDRESS__
    const int sets = 12; // each cut is a process of its own, which takes the sanitizer ten times as long
#else
    const int sets = 60;
#endif
    const std::vector<Change> changes = record(long_run() ? 400 : sets);
    Disk disk = new_disk();
    Expected expected;
    unsigned number = 0, syncs = 0, cuts = 0;
    for (const Change &change : changes) {
        disk.apply(change);
        expected.apply(change);
        number++;
        syncs += change.kind == Change::sync;
        if (change.kind == Change::mark || change.path.compare(0, 4, "/mnt") != 0)
            continue;
        ASSERT_EQ(faults_after(disk, Disk::Leaves::synced, expected, 0), 0) << "after change " << number;
        cuts++;
        for (unsigned seed = 0; seed < (long_run() ? 5u : 1u); seed++, cuts++)
            ASSERT_EQ(faults_after(disk, Disk::Leaves::some, expected, number * 16 + seed), 0)
                << "after change " << number << " with seed " << number * 16 + seed;
        if (number % 8 == 0) {
            ASSERT_EQ(faults_after(disk, Disk::Leaves::all, expected, 0), 0) << "after change " << number;
            cuts++;
        }
    }
    printf("%zu changes, %u syncs, %u cuts\n", changes.size(), syncs, cuts);
    EXPECT_EQ(expected.acknowledged.size(), 5u);
    EXPECT_EQ(expected.under_way, -1);
}

// The instrument itself: on a disk that ignores syncs the same check does find losses.
TEST_F(PowerTest, a_disk_that_syncs_nothing_is_noticed)
{
    const std::vector<Change> changes = record(20);
    Disk disk = new_disk();
    disk.syncs_count = false;
    Expected expected;
    for (const Change &change : changes) {
        disk.apply(change);
        expected.apply(change);
    }
    testing::internal::CaptureStderr();
    EXPECT_EQ(faults_after(disk, Disk::Leaves::synced, expected, 0), 1);
    testing::internal::GetCapturedStderr();
}

} // namespace
