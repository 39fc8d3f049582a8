// Files under the root, and the faults that tests put into file calls.
#include "naro_util.h"

#include <algorithm>
#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <pthread.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

namespace
{

// Which path a descriptor was opened with; kept only while a fault hook is set. Descriptors are closed
// without our knowledge and their numbers come back for other things, so the file behind the number is
// compared as well.
struct known_file {
    char *path; // null: unknown
    dev_t device;
    ino_t inode;
};
enum { KNOWN_FILES = 1024 }; // higher descriptors stay unknown

struct file_state {
    pthread_once_t root_once; // protects root while it is read from the environment
    char *root;               // "" or an absolute path that does not end in '/'; never freed
    pthread_mutex_t fd_lock;  // protects root_fd
    int root_fd;              // -1: not opened yet
    naro_file_fault fault;    // set before threads start
    void *fault_context;
    pthread_mutex_t known_lock; // protects known
    known_file known[KNOWN_FILES];
};

file_state state = {PTHREAD_ONCE_INIT, nullptr, PTHREAD_MUTEX_INITIALIZER, -1,
                    nullptr,           nullptr, PTHREAD_MUTEX_INITIALIZER, {}};

char no_root[] = "";

void read_root()
{
    state.root = no_root;
    const char *wanted = getenv("NARO_ROOT");
    if (!wanted || !*wanted)
        return;
    // Absolute from the start, so that a later change of the working folder does not move it.
    char *folder = *wanted == '/' ? nullptr : getcwd(nullptr, 0);
    char *root = nullptr;
    if (asprintf(&root, "%s%s%s", folder ? folder : "", folder ? "/" : "", wanted) < 0)
        abort(); // without memory for a path; going on would use the machine's own files
    free(folder);
    size_t length = strlen(root);
    while (length > 0 && root[length - 1] == '/')
        root[--length] = '\0';
    state.root = root;
}

// `path` as the kernel is to see it: `path` itself, or the rooted one in `room` (of PATH_MAX bytes). Null
// with errno when there is no such path.
const char *rooted(const char *path, char *room)
{
    if (!path) {
        errno = EFAULT;
        return nullptr;
    }
    const char *root = naro_root();
    if (*path != '/' || !*root)
        return path;
    const int length = snprintf(room, PATH_MAX, "%s%s", root, path);
    if (length >= PATH_MAX) {
        errno = ENAMETOOLONG;
        return nullptr;
    }
    return room;
}

// The same for a file that is to be opened: the machine's memory figures stand in where the root has none.
const char *rooted_for_open(const char *path, char *room)
{
    const char *real = rooted(path, room);
    if (real == room && strcmp(path, "/proc/meminfo") == 0 && access(real, F_OK) != 0)
        real = path;
    return real;
}

// What the hook says about `call` on `path`: true when the call is to fail, with errno set.
bool fails(const char *call, const char *path)
{
    const int verdict = state.fault ? state.fault(state.fault_context, call, path ? path : "") : 0;
    if (verdict <= 0)
        return false;
    errno = verdict;
    return true;
}

// Where the path of `fd` is kept, with the descriptor's file in `status`; null when it can have no such place.
known_file *place_of(int fd, struct stat *status)
{
    return fd >= 0 && fd < KNOWN_FILES && fstat(fd, status) == 0 ? &state.known[fd] : nullptr;
}

void remember(int fd, const char *path)
{
    struct stat status;
    known_file *file = state.fault ? place_of(fd, &status) : nullptr;
    if (!file)
        return;
    char *copy = strdup(path);
    pthread_mutex_lock(&state.known_lock);
    free(file->path);
    *file = {copy, status.st_dev, status.st_ino};
    pthread_mutex_unlock(&state.known_lock);
}

// The path that `fd` was opened with in `room` (of PATH_MAX bytes); "" when unknown.
const char *known_path(int fd, char *room)
{
    room[0] = '\0';
    struct stat status;
    const known_file *file = place_of(fd, &status);
    if (!file)
        return room;
    pthread_mutex_lock(&state.known_lock);
    if (file->path && file->device == status.st_dev && file->inode == status.st_ino)
        snprintf(room, PATH_MAX, "%s", file->path);
    pthread_mutex_unlock(&state.known_lock);
    return room;
}

// Asks the hook about a read or write of `*length` bytes: false when it is to fail, with errno set; else
// `*length` is what it may move at most.
bool may_move(const char *call, int fd, size_t *length)
{
    if (!state.fault)
        return true;
    char room[PATH_MAX];
    const int verdict = state.fault(state.fault_context, call, known_path(fd, room));
    if (verdict > 0) {
        errno = verdict;
        return false;
    }
    if (verdict < 0)
        *length = std::min(*length, static_cast<size_t>(-(verdict + 1)));
    return true;
}

// A folder was made, or was there already.
bool make_folder(const char *path, mode_t mode)
{
    if (naro_mkdir(path, mode) == 0)
        return true;
    if (errno != EEXIST)
        return false;
    char room[PATH_MAX];
    struct stat status;
    const char *real = rooted(path, room);
    if (!real || stat(real, &status) != 0)
        return false;
    if (!S_ISDIR(status.st_mode)) {
        errno = ENOTDIR;
        return false;
    }
    return true;
}

} // namespace

const char *naro_root(void)
{
    pthread_once(&state.root_once, read_root);
    return state.root;
}

int naro_root_fd(void)
{
    const char *root = naro_root();
    int cancel_state = 0;
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &cancel_state); // the lock must be given back
    pthread_mutex_lock(&state.fd_lock);
    if (state.root_fd < 0)
        state.root_fd = open(*root ? root : "/", O_PATH | O_DIRECTORY | O_CLOEXEC);
    const int fd = state.root_fd;
    pthread_mutex_unlock(&state.fd_lock);
    pthread_setcancelstate(cancel_state, nullptr);
    return fd;
}

int naro_open(const char *path, int flags, mode_t mode)
{
    if (fails("open", path))
        return -1;
    char room[PATH_MAX];
    const char *real = rooted_for_open(path, room);
    if (!real)
        return -1;
    const int fd = open(real, flags | O_CLOEXEC, mode);
    remember(fd, path);
    return fd;
}

FILE *naro_fopen(const char *path, const char *mode)
{
    if (fails("fopen", path))
        return nullptr;
    char room[PATH_MAX];
    const char *real = rooted_for_open(path, room);
    if (!real)
        return nullptr;
    char with_cloexec[32];
    const int length = snprintf(with_cloexec, sizeof with_cloexec, "%.1se%s", mode, *mode ? mode + 1 : "");
    if (length < 0 || static_cast<size_t>(length) >= sizeof with_cloexec) {
        errno = EINVAL;
        return nullptr;
    }
    FILE *file = fopen(real, with_cloexec);
    if (file)
        remember(fileno(file), path);
    return file;
}

DIR *naro_opendir(const char *path)
{
    char room[PATH_MAX];
    const char *real = fails("opendir", path) ? nullptr : rooted(path, room);
    return real ? opendir(real) : nullptr;
}

int naro_access(const char *path, int mode)
{
    char room[PATH_MAX];
    const char *real = fails("access", path) ? nullptr : rooted_for_open(path, room);
    return real ? access(real, mode) : -1;
}

int naro_mkdir(const char *path, mode_t mode)
{
    char room[PATH_MAX];
    const char *real = fails("mkdir", path) ? nullptr : rooted(path, room);
    return real ? mkdir(real, mode) : -1;
}

int naro_unlink(const char *path)
{
    char room[PATH_MAX];
    const char *real = fails("unlink", path) ? nullptr : rooted(path, room);
    return real ? unlink(real) : -1;
}

ssize_t naro_read(int fd, void *buffer, size_t length)
{
    return may_move("read", fd, &length) ? read(fd, buffer, length) : -1;
}

ssize_t naro_write(int fd, const void *buffer, size_t length)
{
    return may_move("write", fd, &length) ? write(fd, buffer, length) : -1;
}

int dir_make_parent(const char *file_path, mode_t mode)
{
    if (!file_path) {
        errno = EFAULT;
        return -1;
    }
    char *path = strdup(file_path);
    if (!path)
        return -1;
    bool made = true;
    for (char *slash = strchr(path, '/'); made && slash; slash = strchr(slash + 1, '/')) {
        *slash = '\0';
        // Nothing before the slash: it is the first of an absolute path, or one of several in a row.
        if (slash != path && slash[-1] != '\0' && slash[-1] != '/')
            made = make_folder(path, mode);
        *slash = '/';
    }
    const int error = errno;
    free(path);
    if (!made)
        errno = error;
    return made ? 0 : -1;
}

void naro_file_set_fault(naro_file_fault fault, void *context)
{
    state.fault = fault;
    state.fault_context = context;
    pthread_mutex_lock(&state.known_lock);
    for (known_file &file : state.known) {
        free(file.path);
        file = {};
    }
    pthread_mutex_unlock(&state.known_lock);
}
