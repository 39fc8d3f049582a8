// The command channel to the media server: one process-wide connection, whole messages, one lock.
//
// A command takes the lock, sends its request, reads its reply and gives the lock back: requests and
// replies of two threads never mix. Messages move by a single write and a single read. One that moves short
// is not resumed: it fails the command, and what is left of it stays in the stream and spoils the replies
// that follow, until the connection is lost and made again; then everything works as before. Both ends
// hence agree on every length (naro_ipc_wire.h).
//
// The process must ignore SIGPIPE: a server that is gone shows as a failed write.
#ifndef NARO_IPC_H
#define NARO_IPC_H

#include <stddef.h>

#include "naro_ipc_wire.h"

// Makes a new connection in the place of the old one, which is closed. Waits without limit for a server that
// listens: a failed attempt logs "[naro_ipc_server_connect]connect error, errno=%d\r\n" and is repeated after
// 500 ms. 0, or -1 when no socket could be created ("socket error") or the teardown has given up; the channel
// is then without a connection, until the next call. Before threads start, or lock held.
int naro_ipc_server_connect(void);

// From here on a connect tries once, and fails where no server listens, instead of waiting: 0. The first step
// of the teardown, since threads that are to be joined may be inside a command that waits for a server that
// does not come back; such a one fails within 500 ms. A server that is there is served as before, and one
// that does not answer is waited for. There is no way back. Any thread, no lock.
int naro_ipc_server_give_up(void);

// Closes the connection: 0. What is sent afterwards, until the next connect, goes to the standard input: the
// descriptor is then 0, not negative. Kept as it is; it is the last step of the teardown, and all that can
// still come is the sound poller's next question. Does not wait for the lock, since a command may be waiting
// under it for a server that does not come back: the connection of a command that is under way is shut down,
// which ends the command, and its descriptor goes with the process. Any thread, lock not held, once.
int naro_ipc_server_disconnect(void);

// One write, or one read, of exactly `len` bytes: 0. -1 with a log line when there never was a connection
// ("not connect to ipc server\r\n") or when another count moved ("cmd snd error, wsize = %d\r\n", "cmd rcv
// error, rsize = %d\r\n"). A result of -1 of the call itself makes the connection anew before that line,
// and so may wait long; the command fails all the same. Lock held.
int naro_ipc_cmd_snd(const void *buf, size_t len);
int naro_ipc_cmd_rcv(void *buf, size_t len);

// The lock that makes request and reply one. Not recursive. The result of the pthread call. Any thread.
int naro_ipc_lock(void);
int naro_ipc_unlock(void);

#endif
