// Day or night: start, stop and mode changes.
//
// Threads: see ircut_internal.h for the locks. The task and the alarm-light thread look at `task_running`
// every round. The task is joined; the alarm-light thread is not, it ends by itself within its next half
// second. Because a task may have been started again by then, each alarm-light thread has a number, and
// stopping the task withdraws it.
#include "ircut.h"

#include <pthread.h>
#include <unistd.h>

#include "algo_shbf.h"
#include "infrared.h"
#include "ir_white_led.h"
#include "ircut_config.h"
#include "ircut_drv.h"
#include "ircut_internal.h"
#include "naro_isp.h"
#include "naro_util.h"

enum {
    DAY_POLL_US = 50000, // how often, and for how long, the start asks whether the processor is in day mode
    DAY_WAIT_US = 3000000,
};

ircut_state ircut = {
    PTHREAD_MUTEX_INITIALIZER, // lock
    PTHREAD_MUTEX_INITIALIZER, // step_lock
    PTHREAD_MUTEX_INITIALIZER, // full_color_lock
    1,                         // full_color
    {},                        // task
    {0},                       // inited
    {NARO_IRCUT_MODE_AUTO_SMART},
    {NARO_IRCUT_MODE_AUTO_SMART}, // so a start in mode 5 runs no entry actions
    {0},                          // task_running
    {0},                          // sensor_ssc3338
    {NARO_ISP_RUNNING_MODE_DAY},
    {0}, // full_color_night
    {0}, // smart_night
    {0}, // alarm_flag
    {0}, // alarm_light
    {0}, // alarm_thread
};

std::atomic<int> g_motor_position_v_p{0};

// ---- Threads ---------------------------------------------------------------------------------------------
// All with the ircut lock held.

static int task_create(const char *caller)
{
    ircut.task_running = 1;
    if (pthread_create(&ircut.task, nullptr, ircut_config_get().ctrl_task, nullptr) == 0)
        return 0;
    ircut.task_running = 0;
    log_err("[%s] ircut task create fail\n", caller);
    return -1;
}

static void task_stop(void)
{
    ircut.task_running = 0;
    ircut.alarm_thread++;
    pthread_join(ircut.task, nullptr);
}

static void alarm_thread_create(const char *caller)
{
    pthread_t thread;
    void *number = reinterpret_cast<void *>(++ircut.alarm_thread);
    if (pthread_create(&thread, nullptr, white_led_status_and_alarm_check, number) == 0)
        pthread_detach(thread);
    else
        log_err("[%s] the alarm light has no thread\n", caller);
}

// ---- Start and stop --------------------------------------------------------------------------------------

static void wait_for_day(const char *caller)
{
    for (int day_wait_us = 0;;) {
        naro_clock_sleep_ms(DAY_POLL_US / 1000);
        day_wait_us += DAY_POLL_US;
        uint32_t mode = NARO_ISP_RUNNING_MODE_NIGHT;
        naro_isp_daynight_mode_get(&mode);
        if (mode == NARO_ISP_RUNNING_MODE_DAY)
            return;
        if (day_wait_us >= DAY_WAIT_US) {
            log_err("[%s]set NARO_ISP_RUNNING_MODE_DAY failed\n", caller);
            return;
        }
    }
}

static int start_automatic(const char *caller)
{
    log_info("[%s]switch to ircut mode auto\n", caller);
    log_info("[%s]force day\n", caller);
    // A night that an earlier life of the module ended in is over: the picture is that of a day from here.
    ircut.smart_night = 0;
    ircut.full_color_night = 0;
    ircut_infrared_off();
    naro_isp_daynight_mode_set(NARO_ISP_RUNNING_MODE_DAY);
    wait_for_day(caller);
    // Before the alarm-light thread looks at it: it would end at once.
    ircut.task_running = 1;
    alarm_thread_create(caller);
    log_info("[%s]create ircut task...\n", caller);
    return task_create(caller);
}

static int start(const char *caller)
{
    int result = ircut_drv_init();
    if (result < 0) {
        ircut_drv_exit();
        return result;
    }
    result = pwm_drv_init();
    if (result < 0) {
        pwm_drv_exit(); // deliberately only this one
        return result;
    }
    ir_level = 0;
    switch (ircut.mode) {
    case NARO_IRCUT_MODE_AUTO:
    case NARO_IRCUT_MODE_AUTO_NIGHT_DAY:
    case NARO_IRCUT_MODE_AUTO_FULL_COLOR:
    case NARO_IRCUT_MODE_AUTO_SMART:
        result = start_automatic(caller);
        break;
    case NARO_IRCUT_MODE_DAY:
        log_info("[%s]switch to ircut mode ady\n", caller); // misspelt as it has always been
        ircut_fixed_day();
        break;
    case NARO_IRCUT_MODE_NIGHT:
        log_info("[%s]switch to ircut mode night\n", caller);
        ircut_fixed_night();
        break;
    default: // lights off too: that mode can only be switched to
        log_err("[%s]not support ircut mode\n", caller);
        result = -1;
    }
    if (result < 0) {
        ircut_drv_exit();
        pwm_drv_exit();
    } else {
        ircut.inited = 1;
    }
    return result;
}

int ircut_init(void)
{
    if (naro_access("/tmp/SSC3338", F_OK) == 0) {
        log_info("[%s %d] use ssc3338 sensor \n", __func__, __LINE__);
        ircut.sensor_ssc3338 = 1;
    }
    int result = 0;
    pthread_mutex_lock(&ircut.lock);
    ircut_config_init();
    if (ircut.inited)
        log_info("[%s] already inited\n", __func__);
    else
        result = start(__func__);
    pthread_mutex_unlock(&ircut.lock);
    return result;
}

int ircut_exit(void)
{
    log_info("[%s]\n", __func__);
    pthread_mutex_lock(&ircut.lock);
    if (!ircut.inited) {
        log_info("[%s] already exit\n", __func__);
    } else {
        if (ircut.task_running)
            task_stop();
        ir_white_led_crtl(IR_LED_GPIO, 0);
        ir_white_led_crtl(WHITE_LED_GPIO, 0);
        ircut_drv_exit();
        _infrared_drv(0);
        pwm_drv_exit();
        ir_level = 0;
        ircut.inited = 0;
    }
    pthread_mutex_unlock(&ircut.lock);
    log_info("____[%s]____ finished\n", __func__);
    return 0;
}

bool ircut_is_inited(void)
{
    return ircut.inited == 1;
}

// ---- Mode changes ----------------------------------------------------------------------------------------

// Modes 1 and 2.
static void switch_to_fixed(int mode, void (*sequence)(void), const char *event)
{
    // Deliberately only from mode 0: in the others a running task stays, and idles.
    if (ircut.mode == NARO_IRCUT_MODE_AUTO && ircut.task_running)
        task_stop();
    if (ircut.mode == mode)
        return;
    pthread_mutex_lock(&ircut.step_lock);
    sequence();
    ircut.mode = mode;
    pthread_mutex_unlock(&ircut.step_lock);
    shbf_event_broadcast(EVENT_CHANNEL_MD, event, EVENT_DAY_NIGHT_LENGTH);
}

static void switch_mode(int mode, const char *caller)
{
    switch (mode) {
    case NARO_IRCUT_MODE_AUTO:
        log_info("[%s]switch to ircut mode auto\n", caller);
        if (ircut.mode == NARO_IRCUT_MODE_AUTO)
            break;
        ircut.mode = NARO_IRCUT_MODE_AUTO_SMART;
        if (!ircut.task_running)
            task_create(caller);
        break;
    case NARO_IRCUT_MODE_DAY:
        log_info("[%s]switch to ircut mode ady\n", caller);
        switch_to_fixed(mode, ircut_fixed_day, EVENT_NIGHT_TO_DAY);
        break;
    case NARO_IRCUT_MODE_NIGHT:
        log_info("[%s]switch to ircut mode night\n", caller);
        switch_to_fixed(mode, ircut_fixed_night, EVENT_DAY_TO_NIGHT);
        break;
    case NARO_IRCUT_MODE_AUTO_NIGHT_DAY:
    case NARO_IRCUT_MODE_AUTO_FULL_COLOR:
    case NARO_IRCUT_MODE_AUTO_SMART:
    case NARO_IRCUT_MODE_LIGHTS_OFF:
        log_info("[%s %d] switch to ircut mode %d \n", caller, __LINE__, mode);
        ircut.mode = mode;
        if (ircut.task_running)
            log_info("[%s %d] ircut task thread exist \n", caller, __LINE__);
        else
            task_create(caller);
        break;
    default:
        break;
    }
}

int ircut_mode_switch(int mode)
{
    pthread_mutex_lock(&ircut.lock);
    if (ircut.inited)
        switch_mode(mode, __func__);
    else
        log_info("[%s] ircut not inited\n", __func__);
    pthread_mutex_unlock(&ircut.lock);
    return 0;
}

int ircut_mode_config(int mode)
{
    pthread_mutex_lock(&ircut.lock);
    ircut.mode = mode;
    pthread_mutex_unlock(&ircut.lock);
    return 0;
}

int fullcolor_mode_config(int value)
{
    pthread_mutex_lock(&ircut.full_color_lock);
    ircut.full_color = value;
    pthread_mutex_unlock(&ircut.full_color_lock);
    return 0;
}

int fullcolor_mode_get(void)
{
    pthread_mutex_lock(&ircut.full_color_lock);
    const int value = ircut.full_color;
    pthread_mutex_unlock(&ircut.full_color_lock);
    return value;
}
