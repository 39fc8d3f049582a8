// The header at the start of every element that travels through an element queue.
#ifndef QUEUE_ELEMENT_H
#define QUEUE_ELEMENT_H

#include <stddef.h>
#include <stdint.h>

enum { QUEUE_ELEMENT_FRAME = 0, QUEUE_ELEMENT_QUIT = 256 };

// 64 bytes; the payload follows it and is thereby 64-byte aligned, as the image engine and the copy routine
// like.
struct meta_list_data {
    uint32_t type;   // QUEUE_ELEMENT_FRAME or QUEUE_ELEMENT_QUIT
    uint32_t size;   // payload bytes
    uint32_t width;  // pixels, 0 for messages
    uint32_t height; // pixels, 0 for messages
    uint8_t reserved0[8];
    uint64_t timestamp; // as the producer gave it
    uint8_t reserved1[32];
};
static_assert(sizeof(meta_list_data) == 64, "the payload starts 64 bytes after the header");
static_assert(offsetof(meta_list_data, timestamp) == 24, "layout shared with consumers");

#endif
