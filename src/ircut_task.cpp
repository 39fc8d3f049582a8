// The ircut task: sampling, the sequences of switching, and the modes that light with infrared only.
#include "ircut_internal.h"

#include <inttypes.h>
#include <stdio.h>
#include <sys/prctl.h>

#include "infrared.h"
#include "ir_white_led.h"
#include "ircut_config.h"
#include "ircut_drv.h"
#include "kv_client.h"
#include "naro_isp.h"
#include "naro_util.h"

enum {
    ROUND_MS = 500,
    FROZEN_MS = 1000,    // a round while an alarm light is on
    ISP_SETTLE_MS = 200, // from a request of a running mode to its reading back
    LOGGED_EVERY = 60,   // samples
};

static const char TASK_NAME[] = "mstar_ircut_ctrl_smart";

// ---- Sequences -------------------------------------------------------------------------------------------

void ircut_stamp(void)
{
    const uint64_t now_ms = time_realtime_ms();
    kv_client_set_kv("mem", 1, "time_night", &now_ms);
}

void ircut_infrared_off(void)
{
    ir_level = 0;
    _infrared_drv(0);
    ircut_drv_sw(IRCUT_POSITION_DAY);
}

void ircut_fixed_day(void)
{
    ircut_stamp();
    ircut_infrared_off();
    naro_isp_daynight_mode_set(NARO_ISP_RUNNING_MODE_DAY);
}

void ircut_fixed_night(void)
{
    ircut_stamp();
    naro_isp_daynight_mode_set(NARO_ISP_RUNNING_MODE_NIGHT);
    naro_clock_sleep_ms(ISP_SETTLE_MS);
    ircut_drv_sw(IRCUT_POSITION_NIGHT);
    // The dimmable infrared light; the automatic modes use the LED's line instead. Deliberate.
    ir_level = 99;
    _infrared_drv(99);
}

bool ircut_isp_day(uint32_t *isp_mode, const char *caller)
{
    const int ret = naro_isp_daynight_mode_set(NARO_ISP_RUNNING_MODE_DAY);
    if (ret != 0) {
        log_err("naro_isp_daynight_mode_set fail NARO_ISP_RUNNING_MODE_DAY ret = %d\n", ret);
        return false;
    }
    naro_clock_sleep_ms(ISP_SETTLE_MS);
    naro_isp_daynight_mode_get(isp_mode); // where it fails, the mode from before counts
    if (*isp_mode != NARO_ISP_RUNNING_MODE_DAY)
        log_err("[%s] night2day fail\n", caller);
    *isp_mode = NARO_ISP_RUNNING_MODE_DAY;
    return true;
}

bool ircut_isp_night(void)
{
    const int ret = naro_isp_daynight_mode_set(NARO_ISP_RUNNING_MODE_NIGHT);
    if (ret != 0) {
        log_err("naro_isp_daynight_mode_set NARO_ISP_RUNNING_MODE_NIGHT fail ret = %d\n", ret);
        return false;
    }
    naro_clock_sleep_ms(ISP_SETTLE_MS);
    return true;
}

void ircut_isp_night_read_back(uint32_t *isp_mode, const char *caller)
{
    naro_isp_daynight_mode_get(isp_mode);
    if (*isp_mode != NARO_ISP_RUNNING_MODE_NIGHT)
        fprintf(stderr, "[%s] day2night fail\n", caller);
    *isp_mode = NARO_ISP_RUNNING_MODE_NIGHT;
}

bool ircut_go_infrared_night(ircut_task *task)
{
    ircut_stamp();
    if (!ircut_isp_night())
        return false; // the count stays, so that the next dark sample tries again
    ircut_drv_sw(IRCUT_POSITION_NIGHT);
    ir_level = 0;
    _infrared_drv(0);
    ir_white_led_crtl(IR_LED_GPIO, 1);
    ircut_isp_night_read_back(&task->isp_mode, TASK_NAME);
    task->d2n_count = 0;
    return true;
}

// ---- Samples ---------------------------------------------------------------------------------------------

void ircut_sample_take(ircut_task *task)
{
    naro_isp_ev_attr_get(&task->ev);
    naro_isp_wb_attr_get(&task->wb);
    task->sample = ircut_sample_of(task->ev, task->wb);
    task->samples++;
}

bool ircut_sample_is_logged(const ircut_task *task)
{
    return task->samples % LOGGED_EVERY == 0;
}

void ircut_sample_log_day(const ircut_task *task, const char *name)
{
    const ircut_sample &s = task->sample;
    log_info("%s___day mode____color=%d,ev_attr.ev=%d,ev_attr.bv=%d,ev_attr.expr_us=%d,ev_attr.again=%d,"
             "ev_attr.dgain=%d,total_gain=%lld,gain_sum=%d,rgain=%d,bgain=%d",
             name, fullcolor_mode_get(), static_cast<int>(s.ev), static_cast<int>(s.bv),
             static_cast<int>(s.expr_us), static_cast<int>(s.again), static_cast<int>(s.dgain),
             static_cast<long long>(s.total_gain), s.gain_sum, s.rgain, s.bgain);
}

int ircut_check_night_to_day(const naro_isp_ev_attr *ev, const naro_isp_wb_attr *wb, int mode,
                             int white_led_on)
{
    static std::atomic<uint32_t> calls{0};
    const ircut_sample s = ircut_sample_of(*ev, *wb);
    if (calls++ % LOGGED_EVERY == 0)
        log_info("[%s:%d] ___night mode____ new2 ev=%d,bv=%d,ev_attr.expr_us=%d,again=%d,dgain=%d,"
                 "totalGain=%lld,gain_sum=%d,rgain=%d,bgain=%d,v_p=%d ircut_mode:%d\n",
                 __func__, __LINE__, static_cast<int>(s.ev), static_cast<int>(s.bv),
                 static_cast<int>(s.expr_us), static_cast<int>(s.again), static_cast<int>(s.dgain),
                 static_cast<long long>(s.total_gain), s.gain_sum, s.rgain, s.bgain,
                 g_motor_position_v_p.load(), mode);
    return ircut_bright(s, mode, white_led_on, ircut.sensor_ssc3338 == 1) ? 1 : 0;
}

// ---- Modes 0 and 3 ---------------------------------------------------------------------------------------

static void enter_night_day(ircut_task *task, int mode)
{
    log_info("[%s:%d]>>>change to  NARO_IRCUT_MODE_AUTO_NIGHT_DAY, force day ", TASK_NAME, __LINE__);
    ircut_isp_day(&task->isp_mode, TASK_NAME);
    ircut_drv_sw(IRCUT_POSITION_DAY);
    ir_white_led_crtl(IR_LED_GPIO, 0);
    if (ir_white_get_light_status() != 0)
        led_task_set_timer_stop();
    ir_white_led_crtl(WHITE_LED_GPIO, 0);
    ircut.applied_mode = mode;
    task->d2n_count = task->n2d_count = 0;
}

static void night_day_by_day(ircut_task *task, int mode)
{
    if (ircut_sample_is_logged(task))
        ircut_sample_log_day(task, "AUTO_NIGHT_DAY,");
    task->d2n_count = ircut_count(task->d2n_count, ircut_dark(task->sample));
    if (task->d2n_count <= IRCUT_DARK_COUNT || ircut.alarm_flag != 0)
        return;
    log_info("[%s %d] ircut_mode:%d day to night", TASK_NAME, __LINE__, mode);
    ircut_go_infrared_night(task);
}

static void night_day_by_night(ircut_task *task, int mode)
{
    task->n2d_count =
        ircut_count(task->n2d_count, ircut_check_night_to_day(&task->ev, &task->wb, mode, 0) == 1);
    if (task->n2d_count <= IRCUT_BRIGHT_COUNT || ircut.alarm_flag != 0)
        return;
    log_info("[%s %d] ircut_mode:%d night to day", TASK_NAME, __LINE__, mode);
    ircut_stamp();
    ircut_infrared_off();
    ir_white_led_crtl(IR_LED_GPIO, 0);
    if (ircut_isp_day(&task->isp_mode, TASK_NAME))
        task->n2d_count = 0;
}

void ircut_step_night_day(ircut_task *task, int mode)
{
    if (ircut.applied_mode != mode)
        enter_night_day(task, mode);
    switch (task->isp_mode) {
    case NARO_ISP_RUNNING_MODE_DAY:
        night_day_by_day(task, mode);
        break;
    case NARO_ISP_RUNNING_MODE_NIGHT:
        night_day_by_night(task, mode);
        break;
    default:
        log_err("[%s] ircut stat expection\n", TASK_NAME);
    }
}

// ---- Rounds ----------------------------------------------------------------------------------------------

// Mode 6. An alarm is not served in it, so its request goes.
static void keep_lights_off(void)
{
    int asked = 1;
    ircut.alarm_flag.compare_exchange_strong(asked, 0);
    ircut.applied_mode = NARO_IRCUT_MODE_LIGHTS_OFF;
    led_task_set_timer_stop();
    if (ircut.task_running) {
        ir_white_led_crtl(WHITE_LED_GPIO, 0);
        ir_white_led_crtl(IR_LED_GPIO, 0);
    }
}

unsigned ircut_task_round(ircut_task *task)
{
    if (ircut.mode == NARO_IRCUT_MODE_LIGHTS_OFF) {
        keep_lights_off();
        return ROUND_MS;
    }
    if (ircut.alarm_flag == 1)
        return FROZEN_MS; // its light would be measured as a day's

    naro_isp_daynight_mode_get(&task->isp_mode); // where it fails, the mode from before counts
    ircut.isp_mode_snapshot = task->isp_mode;
    ircut_sample_take(task);

    pthread_mutex_lock(&ircut.step_lock);
    const int mode = ircut.mode;
    switch (mode) {
    case NARO_IRCUT_MODE_AUTO:
    case NARO_IRCUT_MODE_AUTO_NIGHT_DAY:
        ircut_step_night_day(task, mode);
        break;
    case NARO_IRCUT_MODE_AUTO_FULL_COLOR:
        ircut_step_full_color(task);
        break;
    case NARO_IRCUT_MODE_AUTO_SMART:
        ircut_step_smart(task);
        break;
    default: // fixed day and night: nothing to decide
        break;
    }
    pthread_mutex_unlock(&ircut.step_lock);
    return ROUND_MS;
}

void *mstar_ircut_ctrl_smart(void *)
{
    prctl(PR_SET_NAME, TASK_NAME);
    ircut_task task = {};
    while (ircut.task_running)
        naro_clock_sleep_ms(ircut_task_round(&task));
    return nullptr;
}
