// The account of one receiver: what it was sent, what it has read, what it loses.
#include "shbf_delivery.h"

#include <errno.h>
#include <linux/sockios.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

// What one packet may cost in the kernel's account at the very most: it rounds up to a power of two and adds about
// 1 KB. Far above what is seen, as it is only to tell a liar from an honest receiver.
enum { PACKET_COST = 8192, BYTE_COST = 4 };

int shbf_outgoing_file(struct shbf_outgoing *message)
{
    if (message->file == -1)
        message->file = shbf_wire_file(message->buffer, message->length);
    return message->file;
}

// Nothing more goes to this receiver: the event loop sees its socket end, and removes it.
static void give_up(struct shbf_delivery *to, int error)
{
    to->error = error;
    shutdown(to->fd, SHUT_RDWR);
}

// Takes the receipts in. A count outside what was sent is a lie.
static void take_receipts(struct shbf_delivery *to)
{
    const uint32_t read = to->receipt->load(std::memory_order_acquire);
    if (read - to->read > to->sent - to->read) {
        give_up(to, EPROTO);
        return;
    }
    for (; to->read != read; to->read++)
        to->unread_bytes -= to->lengths[to->read % SHBFEV_LAG_MESSAGES];
}

// Whether more lies in the receiver's socket than the messages it has not read can amount to: it gave receipts for
// messages that it did not take, and would have us pile up memory files.
static bool receipts_are_false(const struct shbf_delivery *to)
{
    int held = 0;
    if (ioctl(to->fd, SIOCOUTQ, &held) != 0 || held < 0)
        return false;
    // The greeting, and the one that is being taken right now, may be there, too.
    const size_t packets = to->sent - to->read + 2;
    return static_cast<size_t>(held) > packets * PACKET_COST + to->unread_bytes * BYTE_COST;
}

int shbf_delivery_send(struct shbf_delivery *to, struct shbf_outgoing *message)
{
    if (!to->error)
        take_receipts(to);
    if (to->error)
        return 0;
    const uint32_t unread = to->sent - to->read;
    const size_t lag = to->unread_bytes + message->length;
    // A message larger than the limit goes to a receiver that has read everything, and to no other.
    if (unread >= SHBFEV_LAG_MESSAGES || (unread > 0 && lag > SHBFEV_LAG_BYTES)) {
        to->lost++;
        return 0;
    }
    int result;
    if (message->length <= SHBF_SMALL || lag <= to->room) {
        result = shbf_wire_send_bytes(to->fd, message->buffer, message->length);
    } else if (receipts_are_false(to)) {
        give_up(to, EPROTO);
        return 0;
    } else {
        const int file = shbf_outgoing_file(message);
        result = file < 0 ? file : shbf_wire_send_file(to->fd, file, message->length);
    }
    switch (-result) {
    case 0:
        to->lengths[to->sent % SHBFEV_LAG_MESSAGES] = static_cast<uint32_t>(message->length);
        to->sent++;
        to->unread_bytes += message->length;
        return 1;
    case EPIPE:
    case ECONNRESET:
    case ENOTCONN:
        to->error = -result; // gone; the event loop will see it, too
        return 0;
    case EAGAIN: // whatever the kernel's account held
        to->lost++;
        return 0;
    default:
        return result;
    }
}
