// The board's files under "/sys" as plain files in the test's root, and a record of what was done to them.
//
//   static const std::string root = scratch_root();     // isolate.h, at the top of the file
//   SysfsTree sysfs;                                     // gpio 45, 47, 78, 79; pwm 4 and 6
//   _mstar_ircut_drv_sw(1);
//   EXPECT_EQ(sysfs.calls(), (Calls{"open gpio/gpio78/value", ..., "write gpio/gpio78/value 0", ...}));
//   EXPECT_EQ(sysfs.get("gpio/gpio78/value"), "0");
//   sysfs.fail("write", "gpio/export", EBUSY);           // from now on; 0 takes it back
//
// Paths are those behind "/sys/class/". A write is recorded with the bytes that were asked for, zero bytes as
// "\0", also where it is made to fail; an open or access as the call's name. One at a time; make and drop it
// while no other thread touches files. Its members may be called from any thread. Link with
// -Wl,--wrap=naro_write.
#ifndef NARO_TESTS_SYSFS_TREE_H
#define NARO_TESTS_SYSFS_TREE_H

#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <map>
#include <mutex>
#include <sstream>
#include <stdlib.h>
#include <string>
#include <unistd.h>
#include <utility>
#include <vector>

#include "naro_util.h"

extern "C" ssize_t __real_naro_write(int fd, const void *buffer, size_t length);

using Calls = std::vector<std::string>;

class SysfsTree
{
  public:
    SysfsTree()
    {
        for (const char *line : {"45", "47", "78", "79"}) {
            set(std::string("gpio/gpio") + line + "/direction", "in\n");
            set(std::string("gpio/gpio") + line + "/value", "0\n");
        }
        set("gpio/export", "");
        set("gpio/unexport", "");
        for (const char *channel : {"4", "6"})
            for (const char *file : {"period", "duty_cycle", "enable"})
                set(std::string("pwm/pwmchip0/pwm") + channel + "/" + file, "0\n");
        set("pwm/pwmchip0/export", "");
        set("pwm/pwmchip0/unexport", "");
        instance() = this;
        naro_file_set_fault(
            [](void *self, const char *call, const char *path) {
                return static_cast<SysfsTree *>(self)->verdict(call, path);
            },
            this);
    }
    ~SysfsTree()
    {
        naro_file_set_fault(nullptr, nullptr);
        instance() = nullptr;
        std::error_code ignored;
        std::filesystem::remove_all(naro_root() + std::string("/sys"), ignored);
    }
    SysfsTree(const SysfsTree &) = delete;
    SysfsTree &operator=(const SysfsTree &) = delete;

    // What a file holds.
    std::string get(const std::string &path) const
    {
        std::ifstream file(place(path));
        std::stringstream text;
        text << file.rdbuf();
        return text.str();
    }
    void set(const std::string &path, const std::string &text)
    {
        std::filesystem::create_directories(std::filesystem::path(place(path)).parent_path());
        std::ofstream(place(path)) << text;
    }
    void remove(const std::string &path) { std::filesystem::remove_all(place(path)); }
    // As naro_file_set_fault says: an errno, or -n for a write or read of n - 1 bytes; 0 for none.
    void fail(const std::string &call, const std::string &path, int verdict)
    {
        std::lock_guard<std::mutex> guard(mutex);
        faults[{call, PREFIX + path}] = verdict;
    }

    // Everything so far, in order.
    Calls calls() const
    {
        std::lock_guard<std::mutex> guard(mutex);
        return record;
    }
    // The writes alone.
    Calls writes() const
    {
        Calls result;
        for (const std::string &call : calls())
            if (call.rfind("write ", 0) == 0)
                result.push_back(call.substr(6));
        return result;
    }
    // How each file that was written to was open.
    std::map<std::string, std::string> access() const
    {
        std::lock_guard<std::mutex> guard(mutex);
        return opened;
    }
    void clear()
    {
        std::lock_guard<std::mutex> guard(mutex);
        record.clear();
    }

    static SysfsTree *&instance()
    {
        static SysfsTree *tree;
        return tree;
    }
    void writing(int fd, const void *buffer, size_t length)
    {
        char link[64], target[4096];
        snprintf(link, sizeof link, "/proc/self/fd/%d", fd);
        const ssize_t got = readlink(link, target, sizeof target);
        const std::string prefix = naro_root() + PREFIX;
        std::string line(target, got > 0 ? static_cast<size_t>(got) : 0);
        if (line.compare(0, prefix.size(), prefix) == 0)
            line.erase(0, prefix.size());
        const int access = fcntl(fd, F_GETFL) & O_ACCMODE;
        {
            std::lock_guard<std::mutex> guard(mutex);
            opened[line] = access == O_RDWR ? "read-write" : "write-only";
        }
        line = "write " + line + " ";
        for (size_t i = 0; i < length; i++) {
            const char c = static_cast<const char *>(buffer)[i];
            line += c ? std::string(1, c) : "\\0";
        }
        std::lock_guard<std::mutex> guard(mutex);
        record.push_back(line);
    }

  private:
    static inline const std::string PREFIX = "/sys/class/";

    static std::string place(const std::string &path) { return naro_root() + PREFIX + path; }
    int verdict(const std::string &call, const std::string &path)
    {
        std::lock_guard<std::mutex> guard(mutex);
        if (call != "write" && call != "read")
            record.push_back(
                call + " " +
                (path.compare(0, PREFIX.size(), PREFIX) == 0 ? path.substr(PREFIX.size()) : path));
        const auto fault = faults.find({call, path});
        return fault == faults.end() ? 0 : fault->second;
    }

    mutable std::mutex mutex; // protects everything below
    std::map<std::pair<std::string, std::string>, int> faults;
    std::map<std::string, std::string> opened;
    Calls record;
};

// How many descriptors the process has open: the same before and after calls that close what they open.
inline size_t open_descriptors()
{
    size_t count = 0;
    for (const auto &entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        static_cast<void>(entry);
        count++;
    }
    return count;
}

extern "C" inline __attribute__((used)) ssize_t __wrap_naro_write(int fd, const void *buffer, size_t length)
{
    if (SysfsTree *tree = SysfsTree::instance())
        tree->writing(fd, buffer, length);
    return __real_naro_write(fd, buffer, length);
}

#endif
