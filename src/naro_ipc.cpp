// The client end of the media server's command socket.
#include "naro_ipc.h"

#include <atomic>
#include <errno.h>
#include <pthread.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include "naro_util.h"

namespace
{

constexpr unsigned retry_ms = 500;

// The connection; -1 before the first. Written with ipc_mutex held, or before threads start; the teardown's
// disconnect alone does not wait for the lock, hence atomic.
std::atomic<int> ipc_fd{-1};
// Held by a command from before its request is sent until after its reply has been checked.
pthread_mutex_t ipc_mutex = PTHREAD_MUTEX_INITIALIZER;
// The teardown has begun: no server is waited for any more.
std::atomic<bool> given_up{false};

} // namespace

int naro_ipc_server_connect(void)
{
    // The old descriptor goes first, so that a process at its limit of descriptors can still reconnect. 0
    // is what a disconnect leaves behind, and is not ours.
    const int old_fd = ipc_fd.exchange(-1);
    if (old_fd > 0)
        close(old_fd);
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    ipc_fd = fd;
    if (fd < 0) {
        log_err("[%s]socket error\r\n", __func__);
        return -1;
    }
    // The name begins after a zero byte, which selects the abstract namespace, and is as long as the field:
    // the zeros that follow belong to it. The length given is hence that of the whole structure.
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    static_assert(sizeof(NARO_IPC_SOCKET_NAME) <= sizeof(address.sun_path) - 1, "name fits");
    memcpy(address.sun_path + 1, NARO_IPC_SOCKET_NAME, sizeof(NARO_IPC_SOCKET_NAME));
    while (connect(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0) {
        const int error = errno;
        log_err("[%s]connect error, errno=%d\r\n", __func__, error);
        if (given_up) {
            int ours = fd; // unless a disconnect has it by now
            if (ipc_fd.compare_exchange_strong(ours, -1))
                close(fd);
            return -1;
        }
        naro_clock_sleep_ms(retry_ms);
    }
    return 0;
}

int naro_ipc_server_give_up(void)
{
    given_up = true;
    return 0;
}

int naro_ipc_server_disconnect(void)
{
    const int fd = ipc_fd.exchange(0); // 0, not -1: see the header
    if (fd == 0)
        return 0;
    if (pthread_mutex_trylock(&ipc_mutex) == 0) {
        close(fd);
        pthread_mutex_unlock(&ipc_mutex);
        return 0;
    }
    // The number stays taken, so that the command that uses it never meets another file under it.
    shutdown(fd, SHUT_RDWR);
    return 0;
}

int naro_ipc_cmd_snd(const void *buf, size_t len)
{
    const int fd = ipc_fd;
    if (fd < 0) {
        log_err("not connect to ipc server\r\n");
        return -1;
    }
    const ssize_t wsize = write(fd, buf, len);
    if (wsize == -1)
        naro_ipc_server_connect();
    if (wsize != static_cast<ssize_t>(len)) {
        log_err("cmd snd error, wsize = %d\r\n", static_cast<int>(wsize));
        return -1;
    }
    return 0;
}

int naro_ipc_cmd_rcv(void *buf, size_t len)
{
    const int fd = ipc_fd;
    if (fd < 0) {
        log_err("not connect to ipc server\r\n");
        return -1;
    }
    const ssize_t rsize = read(fd, buf, len);
    if (rsize == -1)
        naro_ipc_server_connect();
    if (rsize != static_cast<ssize_t>(len)) {
        log_err("cmd rcv error, rsize = %d\r\n", static_cast<int>(rsize));
        return -1;
    }
    return 0;
}

int naro_ipc_lock(void)
{
    return pthread_mutex_lock(&ipc_mutex);
}

int naro_ipc_unlock(void)
{
    return pthread_mutex_unlock(&ipc_mutex);
}
