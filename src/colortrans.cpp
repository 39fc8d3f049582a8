// The colour-transform watcher.
#include "colortrans.h"

#include <pthread.h>
#include <string.h>
#include <sys/prctl.h>

#include "ircut.h"
#include "naro_isp.h"
#include "naro_util.h"

enum {
    START_MS = 10000, // the processor's exposure has settled by then
    PAUSE_MS = 2000,
    PERIOD_MS = 1000,
};
static const uint32_t GAIN_ENABLE = 46080;  // 45 times
static const uint32_t GAIN_DISABLE = 30720; // 30 times, exclusive

std::atomic<int> g_uvo_hdr_flag{0};

static struct {
    pthread_mutex_t lock; // protects started
    bool started;
} watcher = {PTHREAD_MUTEX_INITIALIZER, false};

uint32_t colortrans_gain(uint32_t again, uint32_t dgain)
{
    return (again * dgain) >> 10; // deliberately in 32 bits: a product beyond them wraps
}

colortrans_action colortrans_look(uint32_t gain, colortrans_state *state)
{
    if (gain >= GAIN_ENABLE && !state->on) {
        *state = {1, 0};
        return COLORTRANS_ENABLE;
    }
    if (gain < GAIN_DISABLE && !state->off) {
        *state = {0, 1};
        return COLORTRANS_DISABLE;
    }
    return COLORTRANS_NOTHING;
}

void *ircut_set_COLORTRANS_thread(void *)
{
    prctl(PR_SET_NAME, "COLORTRANS");
    pthread_detach(pthread_self());
    naro_clock_sleep_ms(START_MS);
    naro_isp_ev_attr attr = {};
    colortrans_state state = {0, 0};
    for (;;) {
        while (g_uvo_hdr_flag == 1 || !ircut_is_inited())
            naro_clock_sleep_ms(PAUSE_MS);
        naro_isp_ev_attr_get(&attr); // where it fails, the last values count on
        switch (colortrans_look(colortrans_gain(attr.word[3], attr.word[4]), &state)) {
        case COLORTRANS_ENABLE:
            log_err(" totalGain too large enable colorTrans \n");
            naro_isp_COLORTRANS_enable();
            break;
        case COLORTRANS_DISABLE:
            log_err(" totalGain too small disable colorTrans\n");
            naro_isp_COLORTRANS_disable();
            break;
        case COLORTRANS_NOTHING:
            break;
        }
        naro_clock_sleep_ms(PERIOD_MS);
    }
}

int ircut_set_COLORTRANS(int on)
{
    int error = 0;
    pthread_mutex_lock(&watcher.lock);
    if (on == 1 && !watcher.started) {
        pthread_t thread;
        error = pthread_create(&thread, nullptr, ircut_set_COLORTRANS_thread, nullptr);
        watcher.started = error == 0;
    }
    pthread_mutex_unlock(&watcher.lock);
    if (error == 0)
        return 0;
    log_err("create ircut_set_COLORTRANS_thread fail ,ret = %d,(%s)", error, strerror(error));
    return -1;
}
