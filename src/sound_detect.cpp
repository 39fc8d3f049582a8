// The poller of the media server's sound result.
//
// The thread takes no lock of its own and owns nothing: it may be anywhere in a round when the process ends.
#include "sound_detect.h"

#include <pthread.h>
#include <sys/prctl.h>

#include <atomic>

#include "algo_shbf.h"
#include "motion_event_record.h"
#include "naro_isp.h"
#include "naro_util.h"

enum {
    REST_MS = 300,
    REST_AFTER_SOUND_MS = 2000,
};

static struct {
    std::atomic<uint32_t> last_result; // one independent word, hence relaxed
} state;

uint32_t sound_detect_round(void)
{
    uint32_t result = 0;
    // The wire has 32 bits for the time; the low ones, as receivers have always taken them.
    const uint32_t time_s = static_cast<uint32_t>(naro_clock_wall_s());
    if (naro_audio_sound_result_get(&result) != 0)
        return 0; // so that the next question comes soon, also where the last answer was a sound
    if (result == SOUND_HEARD) {
        shbf_event_broadcast(EVENT_CHANNEL_LSD, &time_s, sizeof time_s);
        log_info("**** test>>>>>>naro_algo,loud sound detect yes\n");
        motion_record_event_write_wrap(MOTION_RECORD_SOUND, result, static_cast<int32_t>(time_s), 0, 0, 0, 0);
    }
    state.last_result.store(result, std::memory_order_relaxed);
    return result;
}

unsigned sound_detect_rest_ms(uint32_t result)
{
    return result == SOUND_HEARD ? REST_AFTER_SOUND_MS : REST_MS;
}

uint32_t sound_detect_last_result(void)
{
    return state.last_result.load(std::memory_order_relaxed);
}

static void *sound_detect_thread(void *)
{
    pthread_detach(pthread_self());
    prctl(PR_SET_NAME, "cry_or_loud");
    uint32_t result = 0;
    for (;;) {
        naro_clock_sleep_ms(sound_detect_rest_ms(result));
        result = sound_detect_round();
    }
}

int sound_detect_init(void)
{
    pthread_t thread;
    const int result = -pthread_create(&thread, nullptr, sound_detect_thread, nullptr);
    if (result < 0)
        log_err("babycry_init error\n");
    return result;
}
