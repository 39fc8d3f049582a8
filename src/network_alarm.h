// The alarm client: streams queued buffers over TCP to one server, each as a frame of its own.
//
//   offset 0   5 bytes   "IMAGE"
//   offset 5   4 bytes   payload length, big-endian
//   offset 9   payload
//
// A module ready to be switched on: nothing in the daemon starts it yet. Whoever does, on one thread:
//
//   network_queue_list_init(bytes, elements); // queues.h; at least NETWORK_QUIT_BYTES, for the quit element
//   network_server_set("192.168.1.20");
//   network_init();                           // connects, starts the sender "network_task"
//   ... producers, any thread: network_queue_list_enqueue(...) with type QUEUE_ELEMENT_FRAME ...
//   network_exit();                           // once producers have stopped: the newest element is what a
//   network_queue_list_exit();                // full queue gives up, and that would be the quit element
//
// The connection is made once. A server that goes shows as writes that fail, and nothing connects again:
// elements are taken and lost until network_exit. A queue serves one run of the client: where the sender
// has ended by itself, the quit element of network_exit stays in it.
//
// Lines go to standard output; what a system call says, to the error stream.
#ifndef NETWORK_ALARM_H
#define NETWORK_ALARM_H

#include <stddef.h>
#include <stdint.h>

enum {
    NETWORK_SERVER_PORT = 16688,
    NETWORK_TX_BYTES = 691456, // one frame at most
    NETWORK_TX_HEAD_BYTES = 9,
    NETWORK_PAYLOAD_MAX_BYTES = NETWORK_TX_BYTES - NETWORK_TX_HEAD_BYTES,
    NETWORK_QUIT_BYTES = 5,
};
// tcp_client_tx: the server has closed its end.
enum { TCP_CLIENT_BROKEN_PIPE = -2 };

// Where the server is: an IPv4 address in dotted text, copied. 0, or -1 with an error line when it is none,
// and then the old one stays. There is none at the start. Takes effect at the next network_init. Any
// thread.
int network_server_set(const char *address);

// Connects to the server (waits as long as that takes) and starts the sender: 0. -1 when that has been done
// already ("already inited"), when there is no connection, or when the thread cannot be created. Replaces
// the process's handlers of SIGPIPE, which the daemon otherwise ignores, and SIGALRM for good:
//   SIGPIPE   prints "server is disconnect....\r\n" whichever socket it was, and arms itself again for
//             signal 32 instead of its own. It stays installed all the same: a broken pipe ends nothing.
//   SIGALRM   prints "just for interrupt connect handler....\r\n"; calls that block return.
// Any thread but the sender.
int network_init(void);

// Queues the quit element, waits until the sender has sent what lies before it, and closes the connection:
// 0. -1 when the quit element is refused (no queue, or every element held), and then everything runs on.
// Where nothing was started it says so: 0. A sender that a slow server keeps waiting is waited for:
// network_alarm_send from another thread frees it. Any thread but the sender.
int network_exit(void);

// Interrupts what the sender is blocked in, by SIGALRM; nothing without a sender. A write that had already
// moved a part then ends short, and the server gets a cut frame. Not in a tight loop: alarms interrupt each
// other's handler. Always 0. Any thread.
int network_alarm_send(void);

// 1 between a network_init that succeeded and its network_exit, else 0; also while the sender has already
// ended. Any thread.
int network_is_inited(void);

// The time stamp of the last element whose write did not find the pipe broken; 0 before the first. Any
// thread.
uint64_t network_last_sent(void);

// A stream socket connected to `address` (IPv4, dotted) and `port` (1 to 65535); the caller's to close. -1
// with a line when they are no address or port ("invalid param ..."), or when a call fails. Blocks for as
// long as the connection takes; a signal may end that. Any thread.
int tcp_client_setup(const char *address, int port);

// One write: how many bytes went, which is fewer than `length` only after a signal. TCP_CLIENT_BROKEN_PIPE
// when the other end has closed, -1 when the write failed otherwise, both with a line. Blocks while the
// other end takes nothing. Any thread.
int tcp_client_tx(int socket, const void *buffer, size_t length);

// The sender. Takes elements of the network queue until a quit element comes, or the queue fails to give
// one. A payload that does not fit the frame is refused with an error line.
void *network_task(void *);

#endif
