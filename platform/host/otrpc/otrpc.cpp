// The endpoint: a socket and a thread that calls the program's handlers.
//
// The thread waits for everything at once: to be stopped, new connections, and requests of those that are
// there. It never waits for one of them. There are places for a few; whoever comes when all are taken gets
// the place of the one that has been there the longest, so that those who connect and say nothing keep nobody
// out.
#include "otrpc.h"

#include <dlfcn.h>
#include <errno.h>
#include <poll.h>
#include <pthread.h>
#include <string.h>
#include <sys/eventfd.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include "naro_util.h"
#include "otrpc_wire.h"
#include "shbf_path.h"

namespace
{

enum { PLACES = 8, NO_DESCRIPTORS_MS = 100 };

// Of start and stop; the thread reads it in between. `client` and `clients` are the thread's alone.
struct {
    const otrpc_row *table; // the program's; null: not open
    int path_lock;          // held as long as the endpoint is open
    int listener;
    int stop; // an eventfd: readable when the thread is to end
    shbf_path_identity identity;
    pthread_t thread;
    int client[PLACES]; // in the order of their coming
    int clients;
} endpoint;

const otrpc_row *find_row(const char *method)
{
    for (const otrpc_row *row = endpoint.table; row->method; row++)
        if (strcmp(row->method, method) == 0)
            return row;
    return nullptr;
}

// One request of `fd`; false when the connection is to end.
bool serve(int fd, short events)
{
    char packet[OTRPC_REQUEST_MAX + 1]; // a byte more, so that what is too long is seen
    const ssize_t length = recv(fd, packet, sizeof packet, MSG_DONTWAIT);
    if (length < 0)
        return errno == EAGAIN || errno == EINTR;
    if (length == 0 && (events & (POLLHUP | POLLRDHUP)))
        return false; // gone, not an empty packet
    char method[OTRPC_METHOD_MAX + 1];
    otrpc_outcome outcome = OTRPC_MALFORMED;
    int result = 0;
    if (otrpc_read_request(packet, static_cast<size_t>(length), method) == 0) {
        const otrpc_row *row = find_row(method);
        outcome = row ? OTRPC_RESULT : OTRPC_UNKNOWN_METHOD;
        if (row)
            result = row->handler(nullptr, nullptr, nullptr);
    }
    char text[OTRPC_ANSWER_MAX];
    const size_t text_length = otrpc_write_answer(outcome, result, text);
    // Who does not read his answers loses his connection.
    return send(fd, text, text_length, MSG_DONTWAIT | MSG_NOSIGNAL) == static_cast<ssize_t>(text_length);
}

void drop(int place)
{
    close(endpoint.client[place]);
    endpoint.clients--;
    memmove(&endpoint.client[place], &endpoint.client[place + 1],
            static_cast<size_t>(endpoint.clients - place) * sizeof endpoint.client[0]);
}

void admit()
{
    const int fd = accept4(endpoint.listener, nullptr, nullptr, SOCK_CLOEXEC);
    if (fd < 0) {
        if (errno != EAGAIN && errno != EINTR && errno != ECONNABORTED)
            naro_clock_sleep_ms(NO_DESCRIPTORS_MS); // the connection stays ready, and would be at once again
        return;
    }
    pid_t pid;
    uid_t uid;
    if (!shbf_peer(fd, &pid, &uid) || !shbf_peer_allowed(uid)) {
        close(fd);
        return;
    }
    if (endpoint.clients == PLACES)
        drop(0);
    endpoint.client[endpoint.clients++] = fd;
}

void *otrpc_thread(void *)
{
    prctl(PR_SET_NAME, "otrpc");
    for (;;) {
        pollfd wait[2 + PLACES] = {{endpoint.stop, POLLIN, 0}, {endpoint.listener, POLLIN, 0}};
        for (int i = 0; i < endpoint.clients; i++)
            wait[2 + i] = {endpoint.client[i], POLLIN | POLLRDHUP, 0};
        if (poll(wait, static_cast<nfds_t>(2 + endpoint.clients), -1) < 0)
            continue; // a signal
        if (wait[0].revents)
            break;
        for (int i = endpoint.clients - 1; i >= 0; i--) // from the end: a drop moves the later ones
            if (wait[2 + i].revents && !serve(wait[2 + i].fd, wait[2 + i].revents))
                drop(i);
        if (wait[1].revents)
            admit();
    }
    while (endpoint.clients > 0)
        drop(endpoint.clients - 1);
    return nullptr;
}

int open_listener(void)
{
    const int fd = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (fd < 0)
        return -errno;
    int result = shbf_path_bind(fd, OTRPC_PATH, &endpoint.identity);
    if (result == 0 && listen(fd, PLACES) != 0) {
        result = -errno;
        shbf_path_release(OTRPC_PATH, &endpoint.identity);
    }
    if (result != 0) {
        close(fd);
        return result;
    }
    return fd;
}

int start_thread(void)
{
    endpoint.stop = eventfd(0, EFD_CLOEXEC);
    if (endpoint.stop < 0)
        return -errno;
    const int error = pthread_create(&endpoint.thread, nullptr, otrpc_thread, nullptr);
    if (error != 0)
        close(endpoint.stop);
    return -error;
}

// 0 or a negative errno, with nothing left open.
int open_endpoint(void)
{
    endpoint.path_lock = shbf_path_claim(OTRPC_PATH);
    if (endpoint.path_lock < 0)
        return endpoint.path_lock;
    endpoint.listener = open_listener();
    int result = endpoint.listener;
    if (result >= 0) {
        result = start_thread();
        if (result == 0)
            return 0;
        shbf_path_release(OTRPC_PATH, &endpoint.identity);
        close(endpoint.listener);
    }
    close(endpoint.path_lock);
    return result;
}

} // namespace

int otrpc_start(void)
{
    if (endpoint.table)
        return 0;
    endpoint.table = static_cast<const otrpc_row *>(dlsym(RTLD_DEFAULT, "otrpc_table"));
    if (!endpoint.table) {
        log_err("[otrpc] the program exports no otrpc_table\n");
        return -1;
    }
    const int result = open_endpoint();
    if (result != 0) {
        log_err("[otrpc] %s cannot be opened: %s\n", OTRPC_PATH, strerror(-result));
        endpoint.table = nullptr;
        return -1;
    }
    return 0;
}

void otrpc_stop(void)
{
    if (!endpoint.table)
        return;
    eventfd_write(endpoint.stop, 1);
    pthread_join(endpoint.thread, nullptr);
    shbf_path_release(OTRPC_PATH, &endpoint.identity);
    close(endpoint.listener);
    close(endpoint.stop);
    close(endpoint.path_lock);
    endpoint.table = nullptr;
}
