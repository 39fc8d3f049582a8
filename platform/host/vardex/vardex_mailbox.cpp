// Mailboxes are datagram sockets: who sends never waits, a full one is as good as a knock, and one whose
// owner was killed refuses, so that the dead are found by the first who calls on them.
#include "vardex_mailbox.h"

#include <errno.h>
#include <fcntl.h>
#include <pthread.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>
#include <sys/random.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include "naro_util.h"

namespace
{

#define FOLDER "/run/naro/vardex/"

// Where `name` is, from the root's descriptor: a long root does not meet the limit of an address. False with
// errno.
bool address_of(const char *name, sockaddr_un *address, socklen_t *size)
{
    *address = {};
    *size = 0;
    const int root = naro_root_fd();
    if (root < 0)
        return false;
    address->sun_family = AF_UNIX;
    const int length =
        snprintf(address->sun_path, sizeof address->sun_path, "/proc/self/fd/%d" FOLDER "%s", root, name);
    if (length < 0 || static_cast<size_t>(length) >= sizeof address->sun_path) {
        errno = ENAMETOOLONG;
        return false;
    }
    *size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + static_cast<size_t>(length) + 1);
    return true;
}

// A name in a store is from outside: no other folder is reached by it.
bool is_name(const char *name)
{
    return name[0] != '\0' && name[0] != '.' && strlen(name) < VARDEX_MAILBOX_NAME && !strchr(name, '/');
}

// 0 or an errno.
int bind_to(int fd, const char *name)
{
    sockaddr_un address;
    socklen_t size;
    if (address_of(name, &address, &size) &&
        bind(fd, reinterpret_cast<const sockaddr *>(&address), size) == 0)
        return 0;
    return errno;
}

int open_socket(void)
{
    return socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
}

// Whether a failed call says that nobody owns the mailbox. Anything else says nothing.
bool is_dead(int error)
{
    return error == ECONNREFUSED || error == ENOENT || error == ENOTDIR;
}

void path_of(const char *name, char path[sizeof FOLDER + VARDEX_MAILBOX_NAME])
{
    snprintf(path, sizeof FOLDER + VARDEX_MAILBOX_NAME, FOLDER "%s", name);
}

} // namespace

int vardex_mailbox_create(char name[VARDEX_MAILBOX_NAME])
{
    uint64_t number = 0;
    if (dir_make_parent(FOLDER, 0755) != 0 || getrandom(&number, sizeof number, 0) != sizeof number)
        return -1;
    const int fd = open_socket();
    if (fd < 0)
        return -1;
    // The number makes it one of its kind; the process is for people who look into the folder.
    snprintf(name, VARDEX_MAILBOX_NAME, "%ld-%016llx", static_cast<long>(getpid()),
             static_cast<unsigned long long>(number));
    const int error = bind_to(fd, name);
    if (error == 0)
        return fd;
    close(fd);
    errno = error;
    return -1;
}

bool vardex_mailbox_is_found(const char *name)
{
    sockaddr_un address;
    socklen_t size;
    if (!is_name(name))
        return false;
    const int fd = address_of(name, &address, &size) ? open_socket() : -1;
    if (fd < 0)
        return true;
    // Connecting wakes nobody.
    const int error = connect(fd, reinterpret_cast<const sockaddr *>(&address), size) == 0 ? 0 : errno;
    close(fd);
    return !is_dead(error);
}

void vardex_mailbox_drain(int fd)
{
    char sink[16];
    while (recv(fd, sink, sizeof sink, 0) >= 0) {
    }
}

void vardex_mailbox_destroy(int fd, const char *name)
{
    char path[sizeof FOLDER + VARDEX_MAILBOX_NAME];
    path_of(name, path);
    naro_unlink(path);
    close(fd);
}

bool vardex_mailbox_knock(const char *name)
{
    sockaddr_un address;
    socklen_t size;
    if (!is_name(name))
        return false;
    const int fd = address_of(name, &address, &size) ? open_socket() : -1;
    if (fd < 0)
        return true; // nothing can be said; it looks by itself within a second
    const char knock = 'k';
    const ssize_t sent =
        sendto(fd, &knock, 1, MSG_NOSIGNAL, reinterpret_cast<const sockaddr *>(&address), size);
    const int error = sent == 1 ? 0 : errno;
    close(fd);
    if (!is_dead(error))
        return true;
    char path[sizeof FOLDER + VARDEX_MAILBOX_NAME];
    path_of(name, path);
    naro_unlink(path);
    return false;
}
