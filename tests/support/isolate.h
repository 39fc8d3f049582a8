// Keeps a test's traces to itself: names of the abstract socket space, System V keys, and files.
//
//   static const std::string root = scratch_root();     // at the top of the file: before main and any thread
//   if (!isolate_network())                             // in SetUpTestSuite or main, before any thread
//       GTEST_SKIP();
//
// Namespaces may be refused (an ordinary user on a locked-down machine, a container): the functions say false
// then, and nothing has changed. A test that cannot run without one skips; one that merely must not meet
// itself takes another way to be alone (a ctest RESOURCE_LOCK).
#ifndef NARO_TESTS_ISOLATE_H
#define NARO_TESTS_ISOLATE_H

#include <fcntl.h>
#include <filesystem>
#include <net/if.h>
#include <sched.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <string>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include "naro_util.h"

namespace isolate_detail
{

inline bool write_text(const char *path, const std::string &text)
{
    const int fd = open(path, O_WRONLY | O_CLOEXEC);
    if (fd < 0)
        return false;
    const bool done = write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size());
    close(fd);
    return done;
}

// Leaves the namespaces of `flags`: as root directly, else (or where root may not) inside a user namespace of
// its own, in which the user keeps the same number.
inline bool leave(int flags)
{
    if (unshare(flags) == 0)
        return true;
    const std::string uid = std::to_string(geteuid());
    const std::string gid = std::to_string(getegid());
    if (unshare(CLONE_NEWUSER | flags) != 0)
        return false;
    // Without the maps the test would run as "nobody", which is ugly but harmless: the namespaces are there.
    write_text("/proc/self/setgroups", "deny");
    write_text("/proc/self/uid_map", uid + " " + uid + " 1");
    write_text("/proc/self/gid_map", gid + " " + gid + " 1");
    return true;
}

} // namespace isolate_detail

// A network of its own for this process: abstract socket names cannot clash, every TCP and UDP port is free,
// and only the loopback device (127.0.0.1, up) is there. Before threads start.
inline bool isolate_network()
{
    if (!isolate_detail::leave(CLONE_NEWNET))
        return false;
    const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (fd >= 0) {
        ifreq request = {};
        strcpy(request.ifr_name, "lo");
        if (ioctl(fd, SIOCGIFFLAGS, &request) == 0) {
            request.ifr_flags = static_cast<short>(request.ifr_flags | IFF_UP);
            ioctl(fd, SIOCSIFFLAGS, &request);
        }
        close(fd);
    }
    return true;
}

// System V keys of its own for this process. Before threads start.
inline bool isolate_ipc()
{
    return isolate_detail::leave(CLONE_NEWIPC);
}

// A fresh temporary folder with "run" inside, made the root (NARO_ROOT) of this process before anything has
// read it; the process ends with a message where it is too late for that. Removed when the process exits; a
// second call gives the same folder. Returns its path without '/' at the end. Before threads start.
inline std::string scratch_root()
{
    static std::string *path = nullptr; // never freed: the handler at exit needs it
    static pid_t owner = 0;
    if (path)
        return *path;
    const char *base = getenv("TMPDIR");
    std::string name = std::string(base && *base == '/' ? base : "/tmp") + "/naro-test-XXXXXX";
    if (!mkdtemp(&name[0]) || mkdir((name + "/run").c_str(), 0755) != 0 ||
        setenv("NARO_ROOT", name.c_str(), 1) != 0) {
        perror("scratch_root: no temporary folder");
        abort();
    }
    path = new std::string(name);
    owner = getpid();
    atexit([] {
        std::error_code ignored;
        if (getpid() == owner)
            std::filesystem::remove_all(*path, ignored);
    });
    if (name != naro_root()) {
        fprintf(stderr, "scratch_root: the root was already read as '%s'\n", naro_root());
        exit(1);
    }
    return *path;
}

#endif
