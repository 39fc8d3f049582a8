// Addresses under the root, taking over what a dead broadcaster left, and whom to talk to.
#include "shbf_path.h"

#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include "naro_util.h"

int shbf_path_check(const char *path)
{
    if (!path || path[0] != '/' || path[1] == '\0')
        return -EINVAL;
    return strlen(path) > SHBF_PATH_MAX ? -ENAMETOOLONG : 0;
}

int shbf_path_address(const char *path, struct sockaddr_un *address, socklen_t *size)
{
    const int root = naro_root_fd();
    if (root < 0)
        return -errno;
    address->sun_family = AF_UNIX;
    const int length =
        snprintf(address->sun_path, sizeof address->sun_path, "/proc/self/fd/%d%s", root, path);
    *size = static_cast<socklen_t>(offsetof(struct sockaddr_un, sun_path) + static_cast<size_t>(length) + 1);
    return 0;
}

// What is at `path` itself, not behind a link there: 0 or a negative errno.
static int look(const char *path, struct stat *status)
{
    const int root = naro_root_fd();
    if (root < 0)
        return -errno;
    return fstatat(root, path + 1, status, AT_SYMLINK_NOFOLLOW) == 0 ? 0 : -errno;
}

// Whether someone listens on the socket at `path`: 1, 0, or a negative errno when that cannot be found out.
static int is_living(const char *path)
{
    struct sockaddr_un address = {};
    socklen_t size = 0;
    const int result = shbf_path_address(path, &address, &size);
    if (result != 0)
        return result;
    const int fd = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (fd < 0)
        return -errno;
    const int error = connect(fd, reinterpret_cast<struct sockaddr *>(&address), size) == 0 ? 0 : errno;
    close(fd);
    switch (error) {
    case 0:
    case EAGAIN:     // so many wait there already that we would have to
    case EPROTOTYPE: // another kind of socket, and someone listens on it
        return 1;
    case ECONNREFUSED:
    case ENOENT:
        return 0;
    default:
        return -error;
    }
}

// Removes what a dead broadcaster left. The lock is held.
static int clear(const char *path)
{
    struct stat status = {};
    int result = look(path, &status);
    if (result == -ENOENT)
        return 0;
    if (result != 0)
        return result;
    if (!S_ISSOCK(status.st_mode))
        return -EEXIST;
    // The lock alone would do among ourselves. The question protects a broadcaster whose lock file was
    // deleted by hand, and any other program's socket.
    result = is_living(path);
    if (result != 0)
        return result > 0 ? -EADDRINUSE : result;
    return naro_unlink(path) == 0 || errno == ENOENT ? 0 : -errno;
}

int shbf_path_claim(const char *path)
{
    char lock_path[SHBF_PATH_MAX + sizeof ".lock"];
    snprintf(lock_path, sizeof lock_path, "%s.lock", path);
    if (dir_make_parent(path, 0755) != 0)
        return -errno;
    // The kernel gives the lock back when its holder dies, however that happens. The file stays for good:
    // were it removed, two could each hold the lock of a file of that name.
    const int lock = naro_open(lock_path, O_RDWR | O_CREAT | O_NOFOLLOW, 0600);
    if (lock < 0)
        return -errno;
    int result;
    if (flock(lock, LOCK_EX | LOCK_NB) != 0)
        result = errno == EWOULDBLOCK ? -EADDRINUSE : -errno;
    else
        result = clear(path);
    if (result != 0) {
        close(lock);
        return result;
    }
    return lock;
}

static const char *allow_list(void)
{
    const char *list = getenv("NARO_SHBF_ALLOW_UID");
    return list && list[0] ? list : nullptr;
}

int shbf_path_bind(int fd, const char *path, struct shbf_path_identity *identity)
{
    struct sockaddr_un address = {};
    socklen_t size = 0;
    int result = shbf_path_address(path, &address, &size);
    if (result != 0)
        return result;
    if (bind(fd, reinterpret_cast<struct sockaddr *>(&address), size) != 0)
        return -errno;
    // Whatever the umask says. Until the socket listens, nobody can connect to it, so there is no moment of
    // wrong permissions. Where others may connect, the door is open and each one is asked who he is.
    if (fchmodat(naro_root_fd(), path + 1, allow_list() ? 0666 : 0600, 0) != 0)
        return -errno;
    struct stat status = {};
    result = look(path, &status);
    if (result == 0)
        *identity = {status.st_dev, status.st_ino};
    return result;
}

void shbf_path_release(const char *path, const struct shbf_path_identity *identity)
{
    struct stat status = {};
    if (look(path, &status) == 0 && status.st_dev == identity->device && status.st_ino == identity->inode)
        naro_unlink(path);
}

bool shbf_peer(int fd, pid_t *pid, uid_t *uid)
{
    struct ucred peer = {};
    socklen_t size = sizeof peer;
    if (getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0 || size != sizeof peer)
        return false;
    *pid = peer.pid;
    *uid = peer.uid;
    return true;
}

bool shbf_uid_listed(const char *list, uid_t uid, bool *malformed)
{
    bool found = false;
    while (list && list[0]) {
        const size_t length = strcspn(list, ",");
        char *end;
        errno = 0;
        const unsigned long long number = strtoull(list, &end, 10);
        if (length == 3 && strncmp(list, "any", 3) == 0)
            found = true;
        else if (list[0] >= '0' && list[0] <= '9' && end == list + length && errno == 0 && number < UINT_MAX)
            found = found || number == uid;
        else if (malformed)
            *malformed = true;
        list += length;
        list += list[0] == ',';
    }
    return found;
}

bool shbf_peer_allowed(uid_t uid)
{
    return uid == geteuid() || shbf_uid_listed(allow_list(), uid, nullptr);
}

void shbf_peer_check_list(void)
{
    bool malformed = false;
    shbf_uid_listed(allow_list(), 0, &malformed);
    if (malformed)
        log_err("[shbf] NARO_SHBF_ALLOW_UID is '%s': wanted are numbers of users with commas between, or "
                "\"any\"\n",
                allow_list());
}
