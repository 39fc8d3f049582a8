// What a peer may send on a channel's socket: packets of any bytes, with descriptors of several kinds.
//
// The input is a row of packets: one byte that says what they carry (see `carry`), one byte of length, that many
// bytes of the packet itself. Whatever they are, nothing may be left over: no descriptor, no buffer.
#include <fcntl.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <unistd.h>
#include <vector>

#include "shbf.h"
#include "shbf_wire.h"
#include "shbfev.h"

namespace
{

void must(bool holds)
{
    if (!holds)
        abort();
}

int memory_file(size_t size, int seals)
{
    const int file = memfd_create("fuzz", MFD_CLOEXEC | MFD_ALLOW_SEALING);
    must(file >= 0 && ftruncate(file, static_cast<off_t>(size)) == 0 && fcntl(file, F_ADD_SEALS, seals) == 0);
    return file;
}

// The descriptors of a packet. Files are of the length that the packet's head declares, or one byte off.
std::vector<int> carry(uint8_t what, uint32_t declared)
{
    const int good = F_SEAL_SHRINK | F_SEAL_FUTURE_WRITE;
    const size_t length = declared <= SHBFEV_MESSAGE_MAX ? declared : 0;
    switch (what % 8) {
    case 1:
        return {memory_file(length, good)};
    case 2:
        return {memory_file(length + 1, good)};
    case 3:
        return {memory_file(length, F_SEAL_SHRINK)};
    case 4:
        return {memory_file(length, good), memory_file(length, good)};
    case 5:
        return {memory_file(4096, F_SEAL_SHRINK)};
    case 6:
        return {open("/dev/null", O_RDONLY | O_CLOEXEC)};
    case 7:
        return {dup(0), dup(1), dup(2)};
    default:
        return {};
    }
}

void send_packet(int fd, uint8_t what, const uint8_t *bytes, size_t length)
{
    shbf_head head = {};
    memcpy(&head, bytes, length < sizeof head ? length : sizeof head);
    const std::vector<int> files = carry(what, head.length);
    iovec part = {const_cast<uint8_t *>(bytes), length};
    alignas(cmsghdr) char control[CMSG_SPACE(3 * sizeof(int))] = {};
    msghdr message = {};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    if (!files.empty()) {
        message.msg_control = control;
        message.msg_controllen = CMSG_SPACE(files.size() * sizeof(int));
        cmsghdr *carried = CMSG_FIRSTHDR(&message);
        carried->cmsg_level = SOL_SOCKET;
        carried->cmsg_type = SCM_RIGHTS;
        carried->cmsg_len = CMSG_LEN(files.size() * sizeof(int));
        memcpy(CMSG_DATA(carried), files.data(), files.size() * sizeof(int));
    }
    (void)!sendmsg(fd, &message, MSG_DONTWAIT | MSG_NOSIGNAL);
    for (const int file : files)
        close(file);
}

// Takes one packet; false when the connection is over.
bool take_packet(int fd)
{
    void *buffer;
    int file;
    switch (shbf_wire_receive(fd, &buffer, &file)) {
    case SHBF_MESSAGE: {
        must(buffer && file == -1 && shbf_size(buffer) <= SHBFEV_MESSAGE_MAX);
        memset(buffer, 0, shbf_size(buffer));
        shbf_free(buffer);
        return true;
    }
    case SHBF_GREETED: {
        must(!buffer && file >= 0);
        shbf_receipt *page = shbf_receipt_map(file);
        close(file);
        if (page)
            page->fetch_add(1);
        shbf_receipt_unmap(page);
        return true;
    }
    case SHBF_LOST:
        must(!buffer && file == -1);
        return true;
    default:
        must(!buffer && file == -1);
        return false;
    }
}

int next_descriptor()
{
    const int fd = dup(0);
    must(fd >= 0);
    close(fd);
    return fd;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const int before = next_descriptor();
    int ends[2];
    must(socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) == 0);
    bool open = true;
    while (open && size >= 2) {
        const uint8_t what = data[0];
        const size_t length = data[1] < size - 2 ? data[1] : size - 2;
        send_packet(ends[0], what, data + 2, length);
        data += 2 + length;
        size -= 2 + length;
        open = take_packet(ends[1]);
    }
    close(ends[0]);
    close(ends[1]);
    must(next_descriptor() == before);
    must(shbf_buffers_out() == 0);
    return 0;
}
