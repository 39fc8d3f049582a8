// Channels, their paths, and the wire format of a raw frame: what the daemon and its peers must agree on.
#ifndef EVENT_CHANNELS_H
#define EVENT_CHANNELS_H

#include <stddef.h>
#include <stdint.h>

// Index of shbf_event_broadcast. Index 2 does not exist.
enum { EVENT_CHANNEL_MD = 0, EVENT_CHANNEL_MOTOR = 1, EVENT_CHANNEL_LSD = 3, EVENT_CHANNEL_SLOTS = 4 };

#define EVENT_PATH_MD "/run/md_event"
#define EVENT_PATH_MOTOR "/run/motor_event"
#define EVENT_PATH_LSD "/run/lsd_event"
#define EVENT_PATH_RAW_STREAM "/run/video_rawstream"

// Texts on the md channel are sent with their terminating zero byte.
#define EVENT_PEOPLE_MOTION "PeopleMotion"
#define EVENT_OBJECT_MOTION "ObjectMotion"
enum { EVENT_MOTION_LENGTH = 13 };

// What the daemon sends upstream on the raw stream to ask for one frame: 6 bytes, no terminator.
#define RAW_FRAME_REQUEST "rawcap"
enum { RAW_FRAME_REQUEST_LENGTH = 6 };

// The analysis picture: NV12, luma plane then chroma, stride 320 for both.
enum {
    ANALYSIS_WIDTH = 320,
    ANALYSIS_HEIGHT = 192,
    ANALYSIS_CHROMA_OFFSET = ANALYSIS_WIDTH * ANALYSIS_HEIGHT,
    ANALYSIS_FRAME_BYTES = ANALYSIS_WIDTH * ANALYSIS_HEIGHT * 3 / 2,
};

// Head of a raw frame message, little-endian; the pixels follow at byte 64.
struct raw_frame_header {
    uint32_t reserved0;
    uint32_t width;  // pixels
    uint32_t height; // pixels
    uint32_t reserved1;
    uint32_t size; // pixel bytes; 0 = no frame
    uint8_t reserved2[12];
    uint64_t timestamp;
    uint8_t reserved3[24];
};
static_assert(sizeof(raw_frame_header) == 64, "wire layout");
static_assert(offsetof(raw_frame_header, size) == 16 && offsetof(raw_frame_header, timestamp) == 32,
              "wire layout");

#endif
