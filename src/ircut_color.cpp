// The modes that light with the white LED: full colour (4) and smart (5).
#include "ircut_internal.h"

#include "infrared.h"
#include "ir_white_led.h"
#include "ircut_config.h"
#include "ircut_drv.h"
#include "naro_isp.h"
#include "naro_util.h"

static const char TASK_NAME[] = "mstar_ircut_ctrl_smart";

enum { SETTLE_MS = 200 }; // after a move of the filter, and after a request of a running mode

// ---- Full colour -----------------------------------------------------------------------------------------
// At night the white LED lights the scene, and the picture stays in colour. Filter, infrared light and
// processor are not touched, and no time is published: for them it is day all along.

static void enter_full_color(ircut_task *task)
{
    log_info("[%s:%d]>>> change to  NARO_IRCUT_MODE_AUTO_FULL_COLOR,force day", TASK_NAME, __LINE__);
    if (ir_white_get_light_status() != 0) {
        led_task_set_timer_stop();
        ir_white_led_crtl(WHITE_LED_GPIO, 0);
    }
    ircut_drv_sw(IRCUT_POSITION_DAY);
    ir_white_led_crtl(IR_LED_GPIO, 0);
    ircut_isp_day(&task->isp_mode, TASK_NAME);
    ircut.full_color_night = 0;
    ircut.applied_mode = NARO_IRCUT_MODE_AUTO_FULL_COLOR;
    task->d2n_count = task->n2d_count = 0;
}

void ircut_step_full_color(ircut_task *task)
{
    const int mode = NARO_IRCUT_MODE_AUTO_FULL_COLOR;
    if (ircut.applied_mode != mode)
        enter_full_color(task);
    if (ircut.full_color_night == 0) {
        if (ircut_sample_is_logged(task))
            ircut_sample_log_day(task, "AUTO_FULL_COLOR,");
        task->d2n_count = ircut_count(task->d2n_count, ircut_dark_full_color(task->sample));
        if (task->d2n_count <= IRCUT_DARK_COUNT || ircut.alarm_flag != 0)
            return;
        log_info("[%s %d] ircut_mode:%d day to night", TASK_NAME, __LINE__, mode);
        task->d2n_count = 0;
        ir_white_led_crtl(WHITE_LED_GPIO, 1);
        ircut.full_color_night = 1;
        log_info(" full_color_type night");
        return;
    }
    task->n2d_count =
        ircut_count(task->n2d_count, ircut_check_night_to_day(&task->ev, &task->wb, mode, 0) == 1);
    if (task->n2d_count <= IRCUT_BRIGHT_COUNT_WHITE || ircut.alarm_flag != 0)
        return;
    log_info("[%s %d] ircut_mode:%d night to day", TASK_NAME, __LINE__, mode);
    task->n2d_count = 0;
    ir_white_led_crtl(WHITE_LED_GPIO, 0);
    ircut.full_color_night = 0;
    log_info(" full_color_type day");
}

// ---- Smart -----------------------------------------------------------------------------------------------
// Infrared at night, but in colour for as long as the white LED is lit, which detection does when it sees a
// person.

static void enter_smart(ircut_task *task)
{
    log_info("[%s:%d]>>> change to  NARO_IRCUT_MODE_AUTO_SMART,force day", TASK_NAME, __LINE__);
    ircut_isp_day(&task->isp_mode, TASK_NAME);
    ircut_drv_sw(IRCUT_POSITION_DAY);
    ir_white_led_crtl(IR_LED_GPIO, 0);
    ir_white_led_crtl(WHITE_LED_GPIO, 0);
    ircut.smart_night = 0;
    ircut.applied_mode = NARO_IRCUT_MODE_AUTO_SMART;
    task->white_led_seen = 0;
    task->d2n_count = task->n2d_count = 0;
}

static void smart_by_day(ircut_task *task, int mode)
{
    if (ircut_sample_is_logged(task))
        ircut_sample_log_day(task, "AUTO_SMART,");
    task->d2n_count = ircut_count(task->d2n_count, ircut_dark(task->sample));
    if (task->d2n_count <= IRCUT_DARK_COUNT || ircut.alarm_flag != 0)
        return;
    log_info("[%s %d] ircut_mode:%d day to night,default day-night vision", TASK_NAME, __LINE__, mode);
    if (ircut_go_infrared_night(task))
        ircut.smart_night = 1;
}

static void smart_by_night(ircut_task *task, int mode)
{
    const int bright = ircut_check_night_to_day(&task->ev, &task->wb, mode, task->white_led_now);
    task->n2d_count = ircut_count(task->n2d_count, bright == 1);
    if (task->n2d_count <= IRCUT_BRIGHT_COUNT_WHITE || ircut.alarm_flag != 0)
        return;
    log_info("[%s %d] ircut_mode:%d night to day", TASK_NAME, __LINE__, mode);
    ircut_stamp();
    ircut_infrared_off();
    ir_white_led_crtl(IR_LED_GPIO, 0);
    if (ircut_isp_day(&task->isp_mode, TASK_NAME)) {
        ircut.smart_night = 0;
        led_task_set_timer_stop();
        task->white_led_seen = task->white_led_now = 0;
        task->n2d_count = 0;
    }
    ir_white_led_crtl(WHITE_LED_GPIO, 0);
}

static void turn_to_color(ircut_task *task, int mode)
{
    log_info("[%s %d] ircut_mode:%d smart_auto mode,white light open,need close IR, full color vision",
             TASK_NAME, __LINE__, mode);
    ircut_drv_sw(IRCUT_POSITION_DAY);
    naro_clock_sleep_ms(SETTLE_MS);
    ir_white_led_crtl(IR_LED_GPIO, 0);
    task->white_led_seen = task->white_led_now; // also where the processor refuses: it is not tried again
    if (ircut_isp_day(&task->isp_mode, TASK_NAME))
        task->n2d_count = 0;
}

// Back to night. Its failure messages deliberately name the other direction.
static void isp_night_again(ircut_task *task)
{
    const int ret = naro_isp_daynight_mode_set(NARO_ISP_RUNNING_MODE_NIGHT);
    if (ret != 0) {
        log_err("naro_isp_daynight_mode_set fail NARO_ISP_RUNNING_MODE_DAY ret = %d\n", ret);
        return;
    }
    naro_clock_sleep_ms(SETTLE_MS);
    naro_isp_daynight_mode_get(&task->isp_mode);
    if (task->isp_mode != NARO_ISP_RUNNING_MODE_NIGHT)
        log_err("[%s] night2day fail\n", TASK_NAME);
    task->isp_mode = NARO_ISP_RUNNING_MODE_NIGHT;
}

static void turn_to_infrared(ircut_task *task, int mode)
{
    log_info("[%s %d] ircut_mode:%d white light off, need open IR to day-night vision", TASK_NAME, __LINE__,
             mode);
    ircut_drv_sw(IRCUT_POSITION_NIGHT);
    naro_clock_sleep_ms(SETTLE_MS);
    ir_white_led_crtl(IR_LED_GPIO, 1);
    task->white_led_seen = 0;
    isp_night_again(task);
    // Lit again meanwhile: from here on the next person lights it.
    if (ir_white_get_light_status() != 0) {
        led_task_set_timer_stop();
        ir_white_led_crtl(WHITE_LED_GPIO, 0);
    }
    task->d2n_count = 0;
}

void ircut_step_smart(ircut_task *task)
{
    const int mode = NARO_IRCUT_MODE_AUTO_SMART;
    if (ircut.applied_mode != mode)
        enter_smart(task);
    const int white = ir_white_get_led_status(WHITE_LED_GPIO);
    if (white >= 0) // a line that cannot be read is taken to be as it was
        task->white_led_now = white;
    if (ircut.smart_night == 0)
        smart_by_day(task, mode);
    else
        smart_by_night(task, mode);
    switch (ircut_white_light(task->white_led_now, task->white_led_seen, ircut.smart_night, task->isp_mode)) {
    case IRCUT_TO_COLOR:
        turn_to_color(task, mode);
        break;
    case IRCUT_TO_INFRARED:
        turn_to_infrared(task, mode);
        break;
    case IRCUT_STAY:
        break;
    }
}
