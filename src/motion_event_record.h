// Motion records: what was detected, appended to a small file for each hour on the SD card, so that a player
// or an uploader elsewhere on the camera can list what happened when.
//
// Whoever detects something calls motion_record_event_write_wrap. It never waits for the card: it puts the
// event into a queue, and a thread of its own ("motion_record") writes. docs/records.md is the page about the
// files.
//
// The module's lock and semaphore are never destroyed, and the wrap looks for the module under the lock: it
// may be called at any time, also before init and after finish, when it refuses.
#ifndef MOTION_EVENT_RECORD_H
#define MOTION_EVENT_RECORD_H

#include <stdint.h>

#include <atomic>

#include "otrpc.h"

// What the four 16-bit fields and the value mean depends on the type.
enum motion_record_type {
    // Something moved, and nobody was recognised in it. Fields: the moving rectangle, x1, y1, x2, y2
    // inclusive, in pixels of the 320x192 picture; value: 0.
    MOTION_RECORD_OBJECT = 0,
    // People. Fields: the corners of the largest of them, as they go to the media server; value: how many
    // there are.
    MOTION_RECORD_PEOPLE = 1,
    MOTION_RECORD_SOUND = 7, // a loud sound; see sound_detect.h
};

// The words that settings write and this module, or another one, reads: each stands for itself, relaxed. They
// live as long as the process, so that a setting that arrives before init is kept, and a new init changes
// none of them.
struct motion_record_words {
    std::atomic<uint8_t>
        sdcard_writable;               // 0 at the start; the gate of everything. Also closed by the RPC hook
    std::atomic<uint8_t> face_detect;  // 1 at the start; nothing reads it yet
    std::atomic<uint8_t> human_detect; // 1 at the start; nothing reads it yet
    std::atomic<uint8_t> baby_cry_detect; // 0 at the start; without it sounds are refused
    std::atomic<uint8_t> track_mode;      // 0 at the start; the tracker's note of the mode that it is in
};
extern motion_record_words motion_record_settings;

// The tracker's note: which mode it has entered. They are there whether this module is or not. Any thread.
int motion_record_track_mode_get(void);
void motion_record_track_mode_set(int mode);

// The module while it is there; null before init and after finish.
struct motion_record_context {
    std::atomic<int32_t> running; // 1; 0: the writer ends when the queue is empty
    uint32_t reserved;            // 0
};
extern motion_record_context *motion_record;

// Starts the writer thread, and the platform's RPC endpoint, which finds otrpc_table. 0, also when that has
// been done before (a line says so); -1 with a line when there is no memory or no thread, with everything
// undone. An endpoint that cannot be opened is no failure: it has said so itself. Not together with another
// init or finish.
int motion_record_init(void);

// Closes the endpoint, lets the writer write what is queued (if the card may be written) and waits for it: as
// long as the card takes. Always 0. Not on the writer thread. Not together with another init or finish.
int motion_record_finish(void);

// Queues an event. `time` is when it happened, in seconds since 1970 (32 bits of it; docs/records.md says
// what that means from 2038 on). 0 when it is queued, -1 when it is refused: silently while the card may not
// be written, while the module is not there, for a sound while baby_cry_detect is 0, and for people and
// object events that come less than 5 s after the last accepted one of their type (so also for those that are
// older); with a line while the clock has not been set, when there is no memory, and when the card is so slow
// that MOTION_RECORD_QUEUE_MAX events wait. Any thread, at any time; never waits for the card.
int motion_record_event_write_wrap(uint32_t type, uint64_t value, int32_t time, uint16_t f1, uint16_t f2,
                                   uint16_t f3, uint16_t f4);

enum {
    MOTION_RECORD_QUEUE_MAX = 4096, // over an hour of the busiest events, in 160 KB
    MOTION_RECORD_THROTTLE_S = 5,
    MOTION_RECORD_CLOCK_SET_S = 1438992489, // an earlier wall clock has not been set; 2015-08-08
};

// The RPC hook for both methods of the table below: from its return on nothing is queued, and nothing but the
// record that is just being written still reaches the card, until the "sdcard_rw" setting says "rdwr" again.
// The arguments are ignored. Always 0. Any thread.
int rpc_sdcard_format_umount_pre(void *, void *, void *);

// "sd_format" and "sd_umount", which the camera calls before it takes the card away. Found by name by the
// platform.
extern "C" const otrpc_row otrpc_table[];

#endif
