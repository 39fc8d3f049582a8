// The media server's end of the command socket in the hands of a test.
//
//   ASSERT_TRUE(alone_with_the_command_socket()) ...    // before threads start; else GTEST_SKIP
//   MediaServer server;                                 // listens
//   naro_ipc_server_connect();
//   MediaServer::Peer peer = server.accept();
//   peer.send(media_reply(NARO_CMD_WDR_ENABLE + 1, 0)); // a reply may wait in the socket before it is asked for, so
//   naro_isp_wdr_enable();                              // that one thread plays both ends
//   EXPECT_EQ(peer.receive(20), ...);
//
// Every wait ends after 10 s: accept() then gives a peer that is not there, receive() what has come.
#ifndef NARO_TESTS_MEDIA_SERVER_H
#define NARO_TESTS_MEDIA_SERVER_H

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <stdexcept>
#include <string.h>
#include <string>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>
#include <utility>

#include "isolate.h"
#include "naro_ipc_wire.h"

// `length` counts the family and as many bytes of the name as belong to it: all 110 are right.
inline sockaddr_un media_server_address()
{
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    memcpy(address.sun_path + 1, NARO_IPC_SOCKET_NAME, strlen(NARO_IPC_SOCKET_NAME));
    return address;
}

class MediaServer
{
  public:
    class Peer
    {
      public:
        explicit Peer(int connected = -1) : fd(connected) {}
        Peer(Peer &&other) noexcept : fd(std::exchange(other.fd, -1)) {}
        Peer &operator=(Peer &&other) noexcept
        {
            std::swap(fd, other.fd);
            return *this;
        }
        ~Peer() { hang_up(); }
        bool connected() const { return fd >= 0; }
        bool send(const std::string &bytes) const
        {
            return ::send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(bytes.size());
        }
        // Exactly `length` bytes, fewer at the end of the stream.
        std::string receive(size_t length) const
        {
            std::string bytes;
            char block[4096];
            while (bytes.size() < length && readable(10000)) {
                const size_t want = std::min(sizeof block, length - bytes.size());
                const ssize_t got = read(fd, block, want);
                if (got <= 0)
                    break;
                bytes.append(block, static_cast<size_t>(got));
            }
            return bytes;
        }
        // Nothing has come, and the stream has not ended either.
        bool silent() const { return !readable(0); }
        // The other end has closed, with nothing left to read.
        bool ended() const
        {
            char byte;
            return readable(10000) && read(fd, &byte, 1) <= 0;
        }
        void hang_up()
        {
            if (fd >= 0)
                close(fd);
            fd = -1;
        }

      private:
        bool readable(int timeout_ms) const
        {
            pollfd wait = {fd, POLLIN, 0};
            return poll(&wait, 1, timeout_ms) > 0;
        }
        int fd;
    };

    explicit MediaServer(socklen_t name_length = sizeof(sockaddr_un))
    {
        const sockaddr_un address = media_server_address();
        fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        if (bind(fd, reinterpret_cast<const sockaddr *>(&address), name_length) != 0 || listen(fd, 16) != 0)
            throw std::runtime_error(std::string("the command socket cannot be served: ") + strerror(errno));
    }
    ~MediaServer() { close(fd); }
    MediaServer(const MediaServer &) = delete;
    MediaServer &operator=(const MediaServer &) = delete;

    // The next client; waits for it.
    Peer accept() const
    {
        return waiting(10000) ? Peer(accept4(fd, nullptr, nullptr, SOCK_CLOEXEC)) : Peer();
    }
    // Nobody has asked for a connection.
    bool idle() const { return !waiting(0); }

  private:
    bool waiting(int timeout_ms) const
    {
        pollfd wait = {fd, POLLIN, 0};
        return poll(&wait, 1, timeout_ms) > 0;
    }
    int fd;
};

inline std::string media_words(std::initializer_list<uint32_t> words)
{
    std::string bytes;
    for (uint32_t word : words)
        for (int shift = 0; shift < 32; shift += 8)
            bytes += static_cast<char>(word >> shift & 0xFF);
    return bytes;
}

// A whole reply as a well-behaved server sends it. `cmd_no` is the reply's own: the request's + 1.
inline std::string media_reply(uint32_t cmd_no, uint32_t ret, const std::string &data = "")
{
    return media_words({0x4F52414E, static_cast<uint32_t>(24 + data.size()), cmd_no, 0, ret}) + data +
           media_words({0xA5A5});
}

// Nobody else's server or client meets this process on the command socket from here on: in a network of its own, or,
// where none may be had, by taking turns with other tests. False when the name is taken by somebody who takes no
// turns (a camera that runs on this machine). Before threads start.
inline bool alone_with_the_command_socket()
{
    if (isolate_network())
        return true;
    const char *path = "/tmp/naro-command-socket-tests.lock";
    int lock = open(path, O_RDONLY | O_CLOEXEC); // also another user's, who made it
    if (lock < 0)
        lock = open(path, O_RDONLY | O_CREAT | O_CLOEXEC, 0444);
    if (lock < 0 || flock(lock, LOCK_EX) != 0) // given back when the process ends
        return false;
    const sockaddr_un address = media_server_address();
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const bool taken = connect(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0;
    close(fd);
    return !taken;
}

#endif
