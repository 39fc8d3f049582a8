// Where a channel lives in the file system, and whose processes may meet there.
#ifndef SHBF_PATH_H
#define SHBF_PATH_H

#include <sys/socket.h>
#include <sys/types.h>
#include <sys/un.h>

// Longest path of a channel. An address holds 108 bytes; "/proc/self/fd/", a number and a zero byte want
// theirs.
enum { SHBF_PATH_MAX = 80 };
// Whether `path` can be a channel's: 0, -EINVAL (not an absolute path) or -ENAMETOOLONG. Any thread.
int shbf_path_check(const char *path);
// The address of a channel's socket. It names the root by its descriptor, so that a long root never meets the
// limit of 108 bytes. 0, or a negative errno when there is no root. `path` has been checked. Any thread.
int shbf_path_address(const char *path, struct sockaddr_un *address, socklen_t *size);

// Makes `path` this process's: the descriptor of its lock, to be kept as long as the broadcaster listens,
// with nothing left at `path`; or a negative errno: -EADDRINUSE when a living broadcaster is there, -EEXIST
// when something is there that is no socket. Of several who try at once one wins.
int shbf_path_claim(const char *path);
// Binds `fd` there, with permissions for those who may connect, and says in *identity which file that made,
// for shbf_path_release. 0 or a negative errno.
struct shbf_path_identity {
    dev_t device;
    ino_t inode;
};
int shbf_path_bind(int fd, const char *path, struct shbf_path_identity *identity);
// Removes the socket from `path`, if it still is that one. The lock's descriptor is closed by the caller,
// after.
void shbf_path_release(const char *path, const struct shbf_path_identity *identity);

// Who is at the other end of a connection; false if the kernel does not say. Any thread.
bool shbf_peer(int fd, pid_t *pid, uid_t *uid);
// Whether processes of `uid` may take part: our own user, and those that NARO_SHBF_ALLOW_UID names. Any
// thread.
bool shbf_peer_allowed(uid_t uid);
// The rule behind it: `list` is numbers separated by commas, or "any"; null is an empty list. Other words in
// it name nobody, and set *malformed (null is fine) to true.
bool shbf_uid_listed(const char *list, uid_t uid, bool *malformed);
// Logs an error if NARO_SHBF_ALLOW_UID has words that name nobody.
void shbf_peer_check_list(void);

#endif
