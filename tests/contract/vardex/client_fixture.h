// The configuration client in the hands of a test.
//
//   Client client;                        // a handle, and what its callbacks were told
//   client.follow("nvram", "wdr");
//   ASSERT_TRUE(client.set("nvram", "wdr", "on"));
//   ASSERT_TRUE(client.pump_until([&] { return client.told.size() == 1; }));
//   EXPECT_EQ(client.told[0], (Told{"wdr", "on"}));
//
//   Peer peer([](Peer::Line &line) { ... });     // another process: before this one has opened anything
#ifndef NARO_TESTS_CLIENT_FIXTURE_H
#define NARO_TESTS_CLIENT_FIXTURE_H

#include <chrono>
#include <filesystem>
#include <functional>
#include <gtest/gtest.h>
#include <list>
#include <poll.h>
#include <signal.h>
#include <stdlib.h>
#include <string>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>
#include <vector>

#include "isolate.h"
#include "libvardex.h"

using Told = std::pair<std::string, std::string>; // key, value

inline std::string text_and_free(char *text)
{
    const std::string result = text ? text : "(null)";
    free(text);
    return result;
}

// What is stored; "(null)" for nothing.
inline std::string stored(const char *layer, const char *key, const char *group = nullptr)
{
    return text_and_free(libvardex_config_get(0, layer, group, key));
}

inline bool is_readable(int fd, int wait_ms = 0)
{
    pollfd entry = {fd, POLLIN, 0};
    return poll(&entry, 1, wait_ms) == 1 && (entry.revents & POLLIN);
}

class Client
{
  public:
    Client() : h(libvardex_config_open(0))
    {
        if (h) {
            libvardex_handle_other(h);
            find(h) = this;
        }
    }
    ~Client() { close(); }
    Client(const Client &) = delete;
    Client &operator=(const Client &) = delete;

    void close()
    {
        if (!h)
            return;
        clients().remove_if([&](const auto &entry) { return entry.first == h; });
        libvardex_close(h);
        h = nullptr;
    }
    // Registers; the number, or 0.
    uint64_t follow(const char *layer, const char *key, const char *group = nullptr)
    {
        uint64_t id = 0;
        return libvardex_register_notification(h, layer, group, key, &id, on_change, on_timeout, 0, 0) == 1
                   ? id
                   : 0;
    }
    bool forget(const char *layer, const char *key, uint64_t id, const char *group = nullptr)
    {
        return libvardex_unregister_notification(h, layer, group, key, id, 0, 0, 0, 0) == 1;
    }
    bool set(const char *layer, const char *key, const std::string &value, const char *group = nullptr)
    {
        return libvardex_set_value(h, layer, group, key, VARDEX_TEXT, value.c_str(), 0, 0, 0, 0) == 1;
    }
    // As the daemon's own pump, until `done` (true) or the time is up.
    bool pump_until(const std::function<bool()> &done,
                    std::chrono::milliseconds limit = std::chrono::seconds(20))
    {
        const auto end = std::chrono::steady_clock::now() + limit;
        while (!done()) {
            if (std::chrono::steady_clock::now() >= end)
                return false;
            if (!is_readable(libvardex_client_fd(h), 50))
                libvardex_timeout_process(h);
            else if (libvardex_xhandle_response(h) != 1)
                return false;
        }
        return true;
    }
    // Pumps what is there now, and says whether anything was told.
    bool pump_now()
    {
        const size_t before = told.size();
        while (is_readable(libvardex_client_fd(h)))
            if (libvardex_xhandle_response(h) != 1)
                return false;
        return told.size() > before;
    }

    void *h;
    std::vector<Told> told;
    unsigned timeouts = 0;
    std::function<void(const Told &)> on_told; // called in the callback, after told has it

  private:
    static std::list<std::pair<void *, Client *>> &clients()
    {
        static std::list<std::pair<void *, Client *>> all;
        return all;
    }
    static Client *&find(void *handle)
    {
        for (auto &entry : clients())
            if (entry.first == handle)
                return entry.second;
        clients().push_back({handle, nullptr});
        return clients().back().second;
    }
    static int on_change(void *response, void *context)
    {
        Client *self = find(context);
        int status = 1;
        xpair *pair = xresponse_parse(response, &status);
        if (status != 0 || !pair || !pair->key || !pair->value)
            self->told.push_back({"(null)", "(null)"});
        else
            self->told.push_back({pair->key, pair->value});
        xpair_basefree(pair);
        const Told last = self->told.back();
        if (self->on_told)
            self->on_told(last);
        return 0;
    }
    static int on_timeout(void *, void *context)
    {
        find(context)->timeouts++;
        return 0;
    }
};

// Another process, a fork: to be made before this one has opened a client. It runs `part` with a line to the
// test and ends; the test may end it earlier.
class Peer
{
  public:
    // Words to the other side, one at a time.
    class Line
    {
      public:
        explicit Line(int line_fd) : fd(line_fd) {}
        void say(const std::string &word) const
        {
            if (send(fd, word.data(), word.size(), MSG_NOSIGNAL) != static_cast<ssize_t>(word.size()))
                _exit(3);
        }
        // The next word; "" when the other side is gone, or says nothing for 20 s.
        std::string hear() const
        {
            char word[4096];
            if (!is_readable(fd, 20000))
                return "";
            const ssize_t got = recv(fd, word, sizeof word, 0);
            return got > 0 ? std::string(word, static_cast<size_t>(got)) : "";
        }
        int fd;
    };

    explicit Peer(const std::function<void(Line &)> &part) : line(-1)
    {
        int fds[2];
        if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, fds) != 0)
            abort();
        fflush(nullptr);
        pid = fork();
        if (pid == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            ::close(fds[0]);
            Line own(fds[1]);
            part(own);
            fflush(nullptr);
            _exit(0);
        }
        ::close(fds[1]);
        line.fd = fds[0];
    }
    ~Peer()
    {
        end(SIGKILL);
        ::close(line.fd);
    }
    Peer(const Peer &) = delete;
    Peer &operator=(const Peer &) = delete;
    // Ends it by a signal (0: waits until it ends); its wait status.
    int end(int signal)
    {
        int status = -1;
        if (pid <= 0)
            return status;
        if (signal)
            kill(pid, signal);
        while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
        }
        pid = -1;
        return status;
    }

    Line line;
    pid_t pid;
};

// Each test begins with no stores, also where all of them run in one process.
class SettingsTest : public testing::Test
{
  protected:
    SettingsTest()
    {
        for (const char *folder : {"/run", "/mnt"}) {
            std::filesystem::remove_all(root() + folder);
            std::filesystem::create_directory(root() + folder);
        }
    }
    static const std::string &root()
    {
        static const std::string *path = new std::string(scratch_root());
        return *path;
    }
};

#endif
