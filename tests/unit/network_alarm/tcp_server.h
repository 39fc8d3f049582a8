// A real TCP server in the hands of a test, on a loopback address of this process alone.
//
// Every wait ends after 10 s: accept() then gives a peer that is not there, receive() what has come.
#ifndef TCP_SERVER_H
#define TCP_SERVER_H

#include <algorithm>
#include <arpa/inet.h>
#include <errno.h>
#include <netinet/in.h>
#include <poll.h>
#include <stdexcept>
#include <string.h>
#include <string>
#include <sys/socket.h>
#include <unistd.h>
#include <utility>

// All of 127.0.0.0/8 is this machine: tests that run at the same time do not meet.
inline std::string own_loopback_address()
{
    const unsigned pid = static_cast<unsigned>(getpid());
    return "127." + std::to_string(1 + (pid >> 16 & 63)) + "." + std::to_string(pid >> 8 & 255) + "." +
           std::to_string(pid & 255);
}

class TcpServer
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
        // Exactly `length` bytes, fewer at the end of the stream.
        std::string receive(size_t length) const
        {
            std::string bytes(length, '\0');
            size_t have = 0;
            while (have < length && readable(10000)) {
                const ssize_t got = recv(fd, &bytes[have], length - have, 0);
                if (got <= 0)
                    break;
                have += static_cast<size_t>(got);
            }
            bytes.resize(have);
            return bytes;
        }
        bool silent() const { return !readable(0); }
        // The other end has closed, with nothing left to read.
        bool ended() const
        {
            char byte;
            return readable(10000) && recv(fd, &byte, 1, 0) <= 0;
        }
        void hang_up()
        {
            if (fd >= 0)
                close(fd);
            fd = -1;
        }
        // The connection is gone at once for the other end too, with whatever was on its way.
        void reset()
        {
            const linger at_once = {1, 0};
            setsockopt(fd, SOL_SOCKET, SO_LINGER, &at_once, sizeof at_once);
            hang_up();
        }

      private:
        bool readable(int timeout_ms) const
        {
            pollfd wait = {fd, POLLIN, 0};
            return poll(&wait, 1, timeout_ms) > 0;
        }
        int fd;
    };

    // A small `room` (bytes, 0: the system's own) is soon full when nothing is read.
    TcpServer(const std::string &where, int port, int room = 0)
    {
        sockaddr_in address = {};
        address.sin_family = AF_INET;
        address.sin_port = htons(static_cast<uint16_t>(port));
        inet_pton(AF_INET, where.c_str(), &address.sin_addr);
        fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        const int yes = 1;
        setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
        if (room > 0)
            setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &room, sizeof room);
        if (bind(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0 || listen(fd, 4) != 0)
            throw std::runtime_error("no server at " + where + ": " + strerror(errno));
    }
    ~TcpServer() { close(fd); }
    TcpServer(const TcpServer &) = delete;
    TcpServer &operator=(const TcpServer &) = delete;

    // The next client; waits for it.
    Peer accept() const
    {
        pollfd wait = {fd, POLLIN, 0};
        return poll(&wait, 1, 10000) > 0 ? Peer(accept4(fd, nullptr, nullptr, SOCK_CLOEXEC)) : Peer();
    }

  private:
    int fd;
};

#endif
