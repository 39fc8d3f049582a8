// The basic controller: day and night by fewer conditions, with an infrared light whose brightness follows
// the scene. The platform table of this board does not select it; another board's could.
#include "ircut_internal.h"

#include <sys/prctl.h>

#include "algo_shbf.h"
#include "infrared.h"
#include "ircut_config.h"
#include "ircut_drv.h"
#include "naro_isp.h"
#include "naro_util.h"

enum {
    ROUND_MS = 500,
    FIRST_LEVEL = 30, // percent of the infrared light when a night begins
};

static const char TASK_NAME[] = "mstar_ircut_ctrl";

static void by_day(ircut_task *task)
{
    if (ircut_sample_is_logged(task))
        ircut_sample_log_day(task, "");
    task->d2n_count = ircut_count(task->d2n_count, ircut_dark_basic(task->sample, fullcolor_mode_get()));
    if (task->d2n_count <= IRCUT_BASIC_DARK_COUNT)
        return;
    ircut_stamp();
    if (!ircut_isp_night())
        return;
    ircut_drv_sw(IRCUT_POSITION_NIGHT);
    ir_level = FIRST_LEVEL;
    _infrared_drv(FIRST_LEVEL);
    ircut_isp_night_read_back(&task->isp_mode, TASK_NAME);
    task->d2n_count = 0;
    shbf_event_broadcast(EVENT_CHANNEL_MD, EVENT_DAY_TO_NIGHT, EVENT_DAY_NIGHT_LENGTH);
}

static void by_night(ircut_task *task, ircut_level_counts *levels)
{
    const ircut_sample &s = task->sample;
    if (ircut_sample_is_logged(task))
        log_info("___night mode____ new2 ev=%d,bv=%d,ev_attr.expr_us=%d,again=%d,dgain=%d,totalGain=%lld,"
                 "gain_sum=%d,rgain=%d,bgain=%d,v_p=%d\n",
                 static_cast<int>(s.ev), static_cast<int>(s.bv), static_cast<int>(s.expr_us),
                 static_cast<int>(s.again), static_cast<int>(s.dgain), static_cast<long long>(s.total_gain),
                 s.gain_sum, s.rgain, s.bgain, g_motor_position_v_p.load());
    switch (ircut_level_look(s.ev, levels)) {
    case IRCUT_LEVEL_UP:
        infrared_drv(1);
        break;
    case IRCUT_LEVEL_DOWN:
        infrared_drv(0);
        break;
    case IRCUT_LEVEL_STAY:
        break;
    }
    task->n2d_count = ircut_count(task->n2d_count, ircut_bright_basic(s));
    if (task->n2d_count <= IRCUT_BASIC_BRIGHT_COUNT)
        return;
    ircut_stamp();
    ircut_infrared_off();
    if (!ircut_isp_day(&task->isp_mode, TASK_NAME))
        return;
    task->n2d_count = 0;
    shbf_event_broadcast(EVENT_CHANNEL_MD, EVENT_NIGHT_TO_DAY, EVENT_DAY_NIGHT_LENGTH);
}

unsigned ircut_basic_round(ircut_basic *basic)
{
    ircut_sample_take(&basic->task);
    switch (basic->task.isp_mode) {
    case NARO_ISP_RUNNING_MODE_DAY:
        by_day(&basic->task);
        break;
    case NARO_ISP_RUNNING_MODE_NIGHT:
        by_night(&basic->task, &basic->levels);
        break;
    default:
        log_err("[%s] ircut stat expection\n", TASK_NAME);
    }
    return ROUND_MS;
}

void *mstar_ircut_ctrl(void *)
{
    prctl(PR_SET_NAME, TASK_NAME);
    ircut_basic basic = {};
    naro_isp_daynight_mode_get(&basic.task.isp_mode);
    while (ircut.task_running)
        naro_clock_sleep_ms(ircut_basic_round(&basic));
    return nullptr;
}
