// The "wdr" setting.
#include "wdr.h"

#include <pthread.h>

#include "naro_isp.h"
#include "naro_util.h"

static struct {
    pthread_mutex_t lock; // the WDR lock: protects mode, and keeps it the mode that was sent last
    int mode;
} wdr = {PTHREAD_MUTEX_INITIALIZER, NARO_ISP_WDR_MODE_OFF};

// Whether the mode is one of the two. Lock held.
static bool send(int mode, const char *caller)
{
    switch (mode) {
    case NARO_ISP_WDR_MODE_OFF:
        log_info("[%s] NARO_ISP_WDR_MODE_OFF\n", caller);
        naro_isp_wdr_disable();
        return true;
    case NARO_ISP_WDR_MODE_ON:
        log_info("[%s] NARO_ISP_WDR_MODE_ON\n", caller);
        naro_isp_wdr_enable();
        return true;
    default:
        log_err("[%s] Not support\n", caller);
        return false;
    }
}

int wdr_init(void)
{
    pthread_mutex_lock(&wdr.lock);
    send(wdr.mode, __func__);
    pthread_mutex_unlock(&wdr.lock);
    return 0;
}

int wdr_exit(void)
{
    return 0;
}

int wdr_mode_switch(int mode)
{
    pthread_mutex_lock(&wdr.lock);
    if (send(mode, __func__))
        wdr.mode = mode;
    pthread_mutex_unlock(&wdr.lock);
    return 0;
}

int wdr_mode_config(int mode)
{
    pthread_mutex_lock(&wdr.lock);
    wdr.mode = mode;
    pthread_mutex_unlock(&wdr.lock);
    return 0;
}
