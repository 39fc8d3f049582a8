// Channels in the hands of a test: an event loop that runs until something has come true, and both ends of a
// channel with everything that they were told.
//
//   Loop loop;
//   Broadcaster brd("/run/x");
//   Receiver rcv(loop, "/run/x");
//   ASSERT_EQ(brd.start(loop), 0);
//   ASSERT_TRUE(meet(loop, brd, rcv));           // the loop of both; a receiver's loop that is not run is
//   slow brd.send("text"); ASSERT_TRUE(loop.run_until([&] { return rcv.messages.size() == 1; }));
#ifndef NARO_TESTS_CHANNEL_FIXTURE_H
#define NARO_TESTS_CHANNEL_FIXTURE_H

#include <chrono>
#include <dirent.h>
#include <errno.h>
#include <ev.h>
#include <filesystem>
#include <fstream>
#include <functional>
#include <gtest/gtest.h>
#include <set>
#include <signal.h>
#include <stdlib.h>
#include <string.h>
#include <string>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>
#include <vector>

#include "isolate.h"
#include "shbf.h"
#include "shbfev.h"

// A root whose name alone is longer than a socket's address may be: all tests run under it. Before main.
inline std::string long_scratch_root()
{
    static std::string *base = nullptr; // never freed: the handler at exit needs it
    static pid_t owner = 0;
    if (!base) {
        base = new std::string("/tmp/naro-shbf-XXXXXX");
        const std::string folder = std::string(mkdtemp(&(*base)[0])) + "/" + std::string(120, 'r');
        // Other users must be able to come in: some tests are about them.
        if (chmod(base->c_str(), 0755) != 0 || mkdir(folder.c_str(), 0755) != 0 ||
            setenv("TMPDIR", folder.c_str(), 1) != 0)
            abort();
        owner = getpid();
        atexit([] {
            std::error_code ignored;
            if (getpid() == owner)
                std::filesystem::remove_all(*base, ignored);
        });
    }
    const std::string root = scratch_root();
    if (chmod(root.c_str(), 0755) != 0)
        abort();
    return root;
}

// Each test begins with an empty "/run", also where all of them run in one process.
class ChannelTest : public testing::Test
{
  protected:
    ChannelTest()
    {
        std::filesystem::remove_all(long_scratch_root() + "/run");
        std::filesystem::create_directory(long_scratch_root() + "/run");
        unsetenv("NARO_SHBF_ALLOW_UID");
    }
};

class Loop
{
  public:
    Loop() : ev(ev_loop_new(EVFLAG_AUTO)) { tick_on(); }
    // The default loop, as the daemon's.
    struct Default {
    };
    explicit Loop(Default) : ev(ev_default_loop(EVFLAG_AUTO)) { tick_on(); }
    ~Loop() { end(); }
    Loop(const Loop &) = delete;
    Loop &operator=(const Loop &) = delete;

    void end()
    {
        if (!ev)
            return;
        ev_timer_stop(ev, &tick);
        ev_loop_destroy(ev);
        ev = nullptr;
    }
    // Runs until `done`; false when that does not come to pass.
    bool run_until(const std::function<bool()> &done,
                   std::chrono::milliseconds limit = std::chrono::seconds(30))
    {
        const auto end = std::chrono::steady_clock::now() + limit;
        while (!done()) {
            if (std::chrono::steady_clock::now() >= end)
                return false;
            ev_run(ev, EVRUN_ONCE);
        }
        return true;
    }
    // Runs what is ready now, and what that makes ready.
    void run_ready()
    {
        for (int turn = 0; turn < 20; turn++)
            ev_run(ev, EVRUN_NOWAIT);
    }

    // From here on only what is under test keeps the loop active.
    void stop_ticking() { ev_timer_stop(ev, &tick); }

    struct ev_loop *ev;

  private:
    void tick_on()
    {
        ev_timer_init(
            &tick, [](struct ev_loop *, ev_timer *, int) {}, 0.002, 0.002);
        ev_timer_start(ev, &tick);
    }
    ev_timer tick = {};
};

class Broadcaster
{
  public:
    explicit Broadcaster(const char *path) : handle(shbfev_brd_create(path))
    {
        shbfev_brd_register(
            handle, SHBFEV_BRD_ERROR,
            [](void *self, int error) {
                static_cast<Broadcaster *>(self)->errors.push_back({error, errno});
                return 0;
            },
            this);
        shbfev_brd_on_message(
            handle,
            [](void *self, const void *buffer, size_t length) {
                static_cast<Broadcaster *>(self)->messages.emplace_back(static_cast<const char *>(buffer),
                                                                        length);
                return 0;
            },
            this);
    }
    ~Broadcaster() { destroy(); }
    Broadcaster(const Broadcaster &) = delete;
    Broadcaster &operator=(const Broadcaster &) = delete;

    int start(Loop &loop) { return shbfev_brd_start(loop.ev, handle); }
    int send(const std::string &text)
    {
        return shbfev_brd_broadcast_message(handle, text.data(), text.size());
    }
    int receivers() { return shbfev_brd_receivers(handle); }
    void destroy()
    {
        shbfev_brd_destroy(handle);
        handle = nullptr;
    }

    void *handle;
    std::vector<std::string> messages;       // that came from receivers
    std::vector<std::pair<int, int>> errors; // argument and errno of event 4
};

class Receiver
{
  public:
    Receiver(Loop &loop, const char *path, bool start_now = true) : handle(shbfev_rcv_create(loop.ev, path))
    {
        shbfev_rcv_register(
            handle, SHBFEV_RCV_DATA,
            [](void *self, void *buffer) {
                Receiver *receiver = static_cast<Receiver *>(self);
                receiver->messages.emplace_back(static_cast<const char *>(buffer), shbf_size(buffer));
                shbf_free(buffer);
                if (receiver->on_data)
                    receiver->on_data();
                return 0;
            },
            this);
        shbfev_rcv_register(
            handle, SHBFEV_RCV_CLOSED,
            [](void *self, void *buffer) {
                Receiver *receiver = static_cast<Receiver *>(self);
                receiver->closed += buffer == nullptr ? 1 : 1000;
                return 0;
            },
            this);
        if (start_now)
            shbfev_rcv_start(handle);
    }
    ~Receiver() { destroy(); }
    Receiver(const Receiver &) = delete;
    Receiver &operator=(const Receiver &) = delete;

    int send(const std::string &text) { return shbfev_rcv_send_message(handle, text.data(), text.size()); }
    bool connected() { return shbfev_rcv_connected(handle) == 1; }
    void destroy()
    {
        shbfev_rcv_destroy(handle);
        handle = nullptr;
    }

    void *handle;
    std::vector<std::string> messages;
    int closed = 0;
    std::function<void()> on_data;
};

// Until the two have met. `other` is the receiver's loop where it is not the broadcaster's.
inline bool meet(Loop &loop, Receiver &rcv, Loop *other = nullptr)
{
    return loop.run_until([&] {
        if (other)
            ev_run(other->ev, EVRUN_NOWAIT);
        return rcv.connected();
    });
}

// A process of its own that ends with what `body` returns, and with this one at the latest.
inline pid_t spawn(const std::function<int()> &body)
{
    const pid_t pid = fork();
    if (pid == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        _exit(body());
    }
    return pid;
}
// Waits for a process: its exit status, or -1 when a signal ended it.
inline int status_of(pid_t pid)
{
    int status = 0;
    if (waitpid(pid, &status, 0) != pid)
        return -2;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

inline std::set<int> open_descriptors()
{
    std::set<int> result;
    DIR *folder = opendir("/proc/self/fd");
    while (const dirent *entry = readdir(folder))
        if (entry->d_name[0] != '.')
            result.insert(atoi(entry->d_name));
    result.erase(dirfd(folder));
    closedir(folder);
    return result;
}
// Mappings of memory files in this process: received buffers and receipts that were not given back.
inline size_t mapped_memory_files()
{
    std::ifstream maps("/proc/self/maps");
    size_t count = 0;
    for (std::string line; std::getline(maps, line);)
        count += line.find("/memfd:") != std::string::npos;
    return count;
}

// `length` bytes that tell which message they are, when they have the room.
inline std::string numbered(size_t length, uint32_t number)
{
    std::string text(length, static_cast<char>('a' + number % 26));
    if (length >= sizeof number) {
        memcpy(&text[0], &number, sizeof number);
        memcpy(&text[length - sizeof number], &number, sizeof number);
    }
    return text;
}

#endif
