// What goes over a channel's socket, for both ends.
//
// A channel is a Unix SOCK_SEQPACKET connection for each receiver: the kernel keeps order and borders. A
// packet is a head and, when the message is small enough, its bytes; a larger message travels as a sealed
// memory file whose descriptor the packet carries, so that one copy waits for all receivers, outside their
// sockets' buffers. The broadcaster's first packet is a greeting that carries one more memory file, the
// receipt page: on it the receiver counts the messages that it has taken off the socket. So the broadcaster
// knows how far each receiver lags, exactly, with one load from memory and after its event loop has ended,
// too.
//
// Nothing that arrives is trusted: heads, lengths, descriptors, file sizes and seals are checked, and the
// receipts of a receiver can only cost that receiver its messages.
#ifndef SHBF_WIRE_H
#define SHBF_WIRE_H

#include <atomic>
#include <stddef.h>
#include <stdint.h>

enum : uint16_t {
    SHBF_MAGIC = 0x4253, // also tells apart later versions of this layout
    SHBF_GREETING = 1,   // carries the receipt page; length 0
    SHBF_BYTES = 2,      // `length` bytes follow the head
    SHBF_FILE = 3,       // carries a memory file of `length` bytes
};
struct shbf_head {
    uint16_t magic;
    uint16_t kind;
    uint32_t length;
};
static_assert(sizeof(shbf_head) == 8, "packet layout");

enum {

    // Messages up to here always go with their bytes in the packet: a packet that carries a descriptor would
    // not
    // be smaller in the kernel's account.
    SHBF_SMALL = 1024,
    // Asked of the kernel for each socket. What an unprivileged process gets by default on a 64-bit machine;
    // the
    // kernel doubles it for its own overhead.
    SHBF_SEND_BUFFER = 212992,
    // No message above this goes with its bytes in the packet, however large the socket's buffer.
    SHBF_BYTES_MAX = 131072,
};

using shbf_receipt = std::atomic<uint32_t>;
static_assert(shbf_receipt::is_always_lock_free, "shared between processes");

// ---- Sockets ----------------------------------------------------------------------------------------------
// Sets the send buffer of a channel's socket and returns up to how many unread bytes in all may lie in packets
// on it. Any thread.
size_t shbf_wire_room(int fd);
// The rule behind it. A third of what the kernel grants: its account holds a packet at up to twice its size and
// a little, and 64 small packets must find room beside them.
size_t shbf_wire_room_of(int granted);
// Sends one packet without waiting: 0, or a negative errno (-EAGAIN: the peer does not read). Any thread.
int shbf_wire_send_greeting(int fd, int receipt_file);
int shbf_wire_send_bytes(int fd, const void *buffer, size_t length);
int shbf_wire_send_file(int fd, int file, size_t length);
// Makes the memory file for shbf_wire_send_file: its descriptor (the caller's to close), or a negative errno.
int shbf_wire_file(const void *buffer, size_t length);

enum shbf_arrival {
    SHBF_NOTHING, // no packet waits
    SHBF_END,     // the peer has closed, and everything it sent has been taken
    SHBF_GARBAGE, // not a packet of ours: the connection is of no more use
    SHBF_LOST,    // a good packet that could not be taken for want of memory or descriptors; errno says which
    SHBF_GREETED, // *file is the receipt page's, the caller's to close
    SHBF_MESSAGE, // *buffer is the caller's to give back with shbf_free
};
// Takes one packet off the socket without waiting. One thread at a time for a socket.
enum shbf_arrival shbf_wire_receive(int fd, void **buffer, int *file);

// ---- Receipts ---------------------------------------------------------------------------------------------
// A new receipt page, mapped for reading: its descriptor (the caller's to close), or a negative errno.
int shbf_receipt_create(const shbf_receipt **page);
// Maps a page that a greeting carried, for writing; null with errno (EPROTO: not such a page).
shbf_receipt *shbf_receipt_map(int file);
// Null is fine.
void shbf_receipt_unmap(const shbf_receipt *page);

// ---- Received buffers (shbf.cpp) --------------------------------------------------------------------------
// A buffer to be given back with shbf_free, aligned to 64 bytes; null with errno.
void *shbf_buffer_create(size_t size);
// Buffers not yet given back. Any thread.
size_t shbf_buffers_out(void);

#endif
