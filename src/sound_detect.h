// Sound: asks the media server again and again whether a loud sound or a baby's cry was heard, and tells
// everyone.
//
// The media server listens; this module polls its result (naro_audio_sound_result_get) on a thread of its
// own, "cry_or_loud". A result of 1 is a sound: its time goes out on the lsd channel and into the record of
// events. The daemon has no other word for what was heard: any loud sound is a record of the type "baby
// cry".
#ifndef SOUND_DETECT_H
#define SOUND_DETECT_H

#include <stdint.h>

// The result that means a sound. What the media server may say besides it is no sound.
enum { SOUND_HEARD = 1 };

// Starts the thread: 0, or the negative of the error number with "babycry_init error\n" when it cannot be
// created. The channels and the record of events must exist. There is no way to stop it: it detaches itself
// and lives as long as the process, also beside and after the teardown of what it uses, which is why none
// of that is ever destroyed. Once, event loop's thread.
int sound_detect_init(void);

// One question and what follows from the answer; that thread only, and tests. What the media server
// answered, or 0 when it did not (which it says itself, see naro_isp.h, and which leaves
// sound_detect_last_result as it is).
//
// On SOUND_HEARD the four bytes of the wall clock's seconds, taken before the question, are broadcast on
// the lsd channel; "**** test>>>>>>naro_algo,loud sound detect yes\n" is logged; and a record of type 7
// with the answer as its value is handed to the record of events, which takes or refuses it by its own
// rules.
uint32_t sound_detect_round(void);

// How long the thread rests after a round that gave `result`, in milliseconds: 300, or 2000 after a sound,
// so that one that goes on is told every two seconds. Pure.
unsigned sound_detect_rest_ms(uint32_t result);

// The media server's last answer; 0 before the first. Any thread.
uint32_t sound_detect_last_result(void);

#endif
