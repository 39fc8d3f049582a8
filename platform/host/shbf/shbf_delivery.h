// What one receiver is sent, and how far it lags.
//
// The lag is known exactly from the receiver's receipts (see shbf_wire.h), so the limits of 64 messages and 4 MB
// are kept here and not left to the size of some kernel buffer. That buffer is never the narrower limit: messages
// go as bytes only while the unread ones together stay within shbf_wire_room, and as memory files beyond.
//
// Lock held (the broadcaster's), all of it.
#ifndef SHBF_DELIVERY_H
#define SHBF_DELIVERY_H

#include <stddef.h>
#include <stdint.h>

#include "shbf_wire.h"
#include "shbfev.h"

struct shbf_delivery {
    int fd;
    size_t room;                 // see shbf_wire_room
    const shbf_receipt *receipt; // written by the receiver: how many messages it has taken, modulo 2^32
    uint32_t sent;               // messages, modulo 2^32
    uint32_t read;               // the same, as far as `lengths` has been emptied
    uint32_t lengths[SHBFEV_LAG_MESSAGES]; // of the messages between the two, by their number
    size_t unread_bytes;                   // their sum
    uint32_t lost;                         // counted here, and set back by whoever has said so
    int error; // why nothing is sent any more; 0 = all is well. EPROTO: false receipts, and the socket was shut
};

// One message on its way to all receivers, with the memory file that is made when the first one needs it; to be
// closed by the caller where it is not negative.
struct shbf_outgoing {
    const void *buffer;
    size_t length;
    int file; // -1 = not made, else its descriptor or a negative errno
};
// Makes the file, if that has not been done: its descriptor or a negative errno. No lock needed.
int shbf_outgoing_file(struct shbf_outgoing *message);

// Sends without waiting. 1: sent. 0: not, which is the receiver's own affair (it lags, or is gone). Negative errno:
// what hindered us.
int shbf_delivery_send(struct shbf_delivery *to, struct shbf_outgoing *message);

#endif
