// A call into another program.
#include <errno.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include "otrpc.h"
#include "otrpc_wire.h"
#include "shbf_path.h"

static int ask(int fd, const char *method, int *result)
{
    struct sockaddr_un address = {};
    socklen_t size = 0;
    const int no_root = shbf_path_address(OTRPC_PATH, &address, &size);
    if (no_root != 0)
        return no_root;
    if (connect(fd, reinterpret_cast<struct sockaddr *>(&address), size) != 0)
        return -errno;
    if (send(fd, method, strlen(method), MSG_NOSIGNAL) < 0)
        return -errno;
    char packet[OTRPC_ANSWER_MAX];
    const ssize_t length = recv(fd, packet, sizeof packet, 0);
    if (length < 0)
        return -errno;
    otrpc_outcome outcome;
    if (otrpc_read_answer(packet, static_cast<size_t>(length), &outcome, result) != 0)
        return -EPROTO;
    return outcome == OTRPC_RESULT ? 0 : outcome == OTRPC_UNKNOWN_METHOD ? -ENOSYS : -EINVAL;
}

int otrpc_call(const char *method, int timeout_ms, int *result)
{
    char name[OTRPC_METHOD_MAX + 1];
    if (otrpc_read_request(method, strlen(method), name) != 0)
        return -EINVAL;
    const int fd = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
    if (fd < 0)
        return -errno;
    // Of the connection and the sending, and of the answer; a zero would be forever.
    const int limit_ms = timeout_ms > 0 ? timeout_ms : 1;
    const struct timeval limit = {limit_ms / 1000, limit_ms % 1000 * 1000};
    setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
    setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    const int error = ask(fd, name, result);
    close(fd);
    return error == -EAGAIN ? -ETIMEDOUT : error;
}
