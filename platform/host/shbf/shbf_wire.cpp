// Packets, memory files and receipt pages: see shbf_wire.h for the layout.
#include "shbf_wire.h"

#include <algorithm>
#include <errno.h>
#include <fcntl.h>

#include <string.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>

#include <unistd.h>

#include "shbf.h"
#include "shbfev.h"

// Newer than the C library's headers of the oldest system we build on; kernels before 6.3 do not know it.
#ifndef MFD_NOEXEC_SEAL
#define MFD_NOEXEC_SEAL 0x0008U
#endif

enum { RECEIPT_BYTES = 4096 };

size_t shbf_wire_room_of(int granted)
{
    return granted > 0 ? std::min<size_t>(static_cast<size_t>(granted) / 3, SHBF_BYTES_MAX) : 0;
}

size_t shbf_wire_room(int fd)
{
    const int wanted = SHBF_SEND_BUFFER;
    int granted = 0;
    socklen_t size = sizeof granted;
    (void)setsockopt(fd, SOL_SOCKET, SO_SNDBUF, &wanted, sizeof wanted);
    if (getsockopt(fd, SOL_SOCKET, SO_SNDBUF, &granted, &size) != 0)
        return 0;
    return shbf_wire_room_of(granted);
}

static int send_packet(int fd, uint16_t kind, const void *buffer, size_t length, int file)
{
    shbf_head head = {SHBF_MAGIC, kind, static_cast<uint32_t>(length)};
    iovec parts[2] = {{&head, sizeof head}, {const_cast<void *>(buffer), buffer ? length : 0}};
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int))] = {};
    msghdr message = {};
    message.msg_iov = parts;
    message.msg_iovlen = 2;
    if (file >= 0) {
        message.msg_control = control;
        message.msg_controllen = sizeof control;
        cmsghdr *carried = CMSG_FIRSTHDR(&message);
        carried->cmsg_level = SOL_SOCKET;
        carried->cmsg_type = SCM_RIGHTS;
        carried->cmsg_len = CMSG_LEN(sizeof(int));
        memcpy(CMSG_DATA(carried), &file, sizeof file);
    }
    ssize_t sent;
    do
        sent = sendmsg(fd, &message, MSG_DONTWAIT | MSG_NOSIGNAL);
    while (sent < 0 && errno == EINTR);
    return sent < 0 ? -errno : 0;
}

int shbf_wire_send_greeting(int fd, int receipt_file)
{
    return send_packet(fd, SHBF_GREETING, nullptr, 0, receipt_file);
}

int shbf_wire_send_bytes(int fd, const void *buffer, size_t length)
{
    return send_packet(fd, SHBF_BYTES, buffer, length, -1);
}

int shbf_wire_send_file(int fd, int file, size_t length)
{
    return send_packet(fd, SHBF_FILE, nullptr, length, file);
}

// A memory file to be sealed. Not executable where the kernel knows how: some systems allow no other.
static int memory_file(const char *name)
{
    int file = memfd_create(name, MFD_CLOEXEC | MFD_ALLOW_SEALING | MFD_NOEXEC_SEAL);
    if (file < 0 && errno == EINVAL)
        file = memfd_create(name, MFD_CLOEXEC | MFD_ALLOW_SEALING);
    return file;
}

// Closes `fd`, and gives -errno of what went wrong before.
static int close_failed(int fd)
{
    const int error = errno;
    close(fd);
    return -error;
}

int shbf_wire_file(const void *buffer, size_t length)
{
    const int file = memory_file("shbf message");
    if (file < 0)
        return -errno;
    for (size_t done = 0; done < length;) {
        const ssize_t written =
            pwrite(file, static_cast<const char *>(buffer) + done, length - done, static_cast<off_t>(done));
        if (written < 0 && errno != EINTR)
            return close_failed(file);
        done += written > 0 ? static_cast<size_t>(written) : 0;
    }
    // Sealed, so that no receiver can change what the others get. Not F_SEAL_WRITE: it waits until nobody
    // holds the file's fresh pages, which takes milliseconds when the thread has moved to another CPU
    // meanwhile. As we have no mapping of it, this one is as good.
    if (fcntl(file, F_ADD_SEALS, F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_FUTURE_WRITE | F_SEAL_SEAL) != 0)
        return close_failed(file);
    return file;
}

// The descriptor that a received packet carried, -1 for none. There can be but one: the control area has no
// room for a second, which the kernel would have dropped with MSG_CTRUNC set.
static int carried_file(msghdr *message)
{
    const cmsghdr *carried = CMSG_FIRSTHDR(message);
    int file = -1;
    if (carried && carried->cmsg_level == SOL_SOCKET && carried->cmsg_type == SCM_RIGHTS &&
        carried->cmsg_len >= CMSG_LEN(sizeof(int)))
        memcpy(&file, CMSG_DATA(carried), sizeof file);
    return file;
}

// Takes the packet that waits, whose head has been checked: its bytes into `buffer`, its descriptor into
// *file. False when it does not carry what a packet of its kind carries; *lost when that may be our own want
// of descriptors.
static bool take_packet(int fd, const shbf_head &peeked, void *buffer, int *file, bool *lost)
{
    shbf_head head;
    iovec parts[2] = {{&head, sizeof head}, {buffer, buffer ? peeked.length : 0}};
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int))];
    msghdr message = {};
    message.msg_iov = parts;
    message.msg_iovlen = 2;
    message.msg_control = control;
    message.msg_controllen = CMSG_LEN(sizeof(int));
    *lost = false;
    // The packet is there; the peer may have closed since it was looked at, which shows first, and once.
    ssize_t length;
    do
        length = recvmsg(fd, &message, MSG_DONTWAIT | MSG_CMSG_CLOEXEC);
    while (length < 0 && (errno == EINTR || errno == ECONNRESET));
    if (length < 0)
        return false;
    *file = carried_file(&message);
    const bool wanted = peeked.kind != SHBF_BYTES;
    const bool dropped = (message.msg_flags & MSG_CTRUNC) != 0;
    if (wanted == (*file >= 0) && !dropped)
        return true;
    *lost = wanted && dropped && *file < 0;
    if (*file >= 0)
        close(*file);
    *file = -1;
    return false;
}

// Whether a peer's descriptor is a memory file of that size with at least these seals. Nothing else is read
// (it might not answer) or mapped (it might fault).
static bool is_memory_file(int file, int seals, size_t size)
{
    const int set = fcntl(file, F_GET_SEALS);
    struct stat status = {};
    return set >= 0 && (set & seals) == seals && fstat(file, &status) == 0 &&
           status.st_size == static_cast<off_t>(size);
}

// The message in a memory file. It is read rather than mapped: what the sender may still do to the file
// cannot matter afterwards, and a copy costs no more than the faults of a mapping.
static enum shbf_arrival read_file(int file, void **buffer, size_t length)
{
    if (!is_memory_file(file, F_SEAL_SHRINK | F_SEAL_FUTURE_WRITE, length))
        return SHBF_GARBAGE;
    *buffer = shbf_buffer_create(length);
    if (!*buffer)
        return SHBF_LOST;
    for (size_t done = 0; done < length;) {
        const ssize_t got =
            pread(file, static_cast<char *>(*buffer) + done, length - done, static_cast<off_t>(done));
        if (got == 0 || (got < 0 && errno != EINTR)) {
            const int error = got == 0 ? EIO : errno;
            shbf_free(*buffer);
            *buffer = nullptr;
            errno = error;
            return SHBF_LOST;
        }
        done += got > 0 ? static_cast<size_t>(got) : 0;
    }
    return SHBF_MESSAGE;
}

enum shbf_arrival shbf_wire_receive(int fd, void **buffer, int *file)
{
    *buffer = nullptr;
    *file = -1;
    shbf_head head;
    ssize_t length;
    // A look first, to make a buffer of the right size; with MSG_TRUNC the packet's true length is returned.
    // A peer that closes before it has read everything shows as ECONNRESET, once, before what it sent itself.
    do
        length = recv(fd, &head, sizeof head, MSG_PEEK | MSG_TRUNC | MSG_DONTWAIT);
    while (length < 0 && (errno == EINTR || errno == ECONNRESET));
    if (length < 0)
        return errno == EAGAIN ? SHBF_NOTHING : SHBF_END;
    if (length == 0)
        return SHBF_END;
    if (static_cast<size_t>(length) < sizeof head || head.magic != SHBF_MAGIC ||
        head.length > SHBFEV_MESSAGE_MAX)
        return SHBF_GARBAGE;
    const size_t follows = static_cast<size_t>(length) - sizeof head;
    const bool greeting = head.kind == SHBF_GREETING && head.length == 0 && follows == 0;
    const bool bytes = head.kind == SHBF_BYTES && head.length == follows;
    if (!greeting && !bytes && !(head.kind == SHBF_FILE && follows == 0))
        return SHBF_GARBAGE;
    if (bytes) {
        *buffer = shbf_buffer_create(head.length);
        if (!*buffer) {
            (void)recv(fd, &head, sizeof head, MSG_DONTWAIT);
            errno = ENOMEM;
            return SHBF_LOST;
        }
    }
    bool lost;
    if (!take_packet(fd, head, *buffer, file, &lost)) {
        shbf_free(*buffer);
        *buffer = nullptr;
        errno = EMFILE;
        return lost ? SHBF_LOST : SHBF_GARBAGE;
    }
    if (greeting)
        return SHBF_GREETED;
    if (bytes)
        return SHBF_MESSAGE;
    const enum shbf_arrival arrival = read_file(*file, buffer, head.length);
    const int error = errno;
    close(*file);
    *file = -1;
    errno = error;
    return arrival;
}

// ---- Receipts ---------------------------------------------------------------------------------------------

int shbf_receipt_create(const shbf_receipt **page)
{
    const int file = memory_file("shbf receipts");
    if (file < 0)
        return -errno;
    // The size is sealed, so that the receiver cannot take the page away from under the broadcaster.
    if (ftruncate(file, RECEIPT_BYTES) != 0 ||
        fcntl(file, F_ADD_SEALS, F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_SEAL) != 0)
        return close_failed(file);
    void *memory = mmap(nullptr, RECEIPT_BYTES, PROT_READ, MAP_SHARED, file, 0);
    if (memory == MAP_FAILED)
        return close_failed(file);
    *page = static_cast<const shbf_receipt *>(memory); // zero: nothing read yet
    return file;
}

shbf_receipt *shbf_receipt_map(int file)
{
    if (!is_memory_file(file, F_SEAL_SHRINK, RECEIPT_BYTES)) {
        errno = EPROTO;
        return nullptr;
    }
    void *memory = mmap(nullptr, RECEIPT_BYTES, PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
    return memory == MAP_FAILED ? nullptr : static_cast<shbf_receipt *>(memory);
}

void shbf_receipt_unmap(const shbf_receipt *page)
{
    if (page)
        munmap(const_cast<shbf_receipt *>(page), RECEIPT_BYTES);
}
