// The platform table, and the wrappers through which the controller calls its entries.
//
// The table is filled again by every ircut_init, also by one that then finds the module running. So the task
// may be calling through it at that moment: everyone works on a copy taken under the lock.
#include "ircut_config.h"

#include <pthread.h>

#include "ircut_drv.h"
#include "ircut_internal.h"
#include "ircut_pwm.h"
#include "naro_util.h"

static struct {
    pthread_mutex_t lock; // protects table; held for a copy, never during a call
    ircut_config table;
} config = {PTHREAD_MUTEX_INITIALIZER, {}};

int ircut_config_init(void)
{
    pthread_mutex_lock(&config.lock);
    config.table = {};
    config.table.platform = IRCUT_PLATFORM_MSTAR;
    config.table.ircut_gpio_a = "78";
    config.table.ircut_gpio_b = "79";
    config.table.drv_init = _mstar_ircut_drv_init;
    config.table.drv_exit = _mstar_ircut_drv_exit;
    config.table.drv_sw = _mstar_ircut_drv_sw;
    config.table.pwm_init = _mstar_pwm_drv_init;
    config.table.pwm_exit = _mstar_pwm_drv_exit;
    config.table.pwm_duty = _mstar_pwm_duty;
    config.table.ctrl_task = mstar_ircut_ctrl_smart;
    pthread_mutex_unlock(&config.lock);
    log_info("[%s] NARO_ALGO_MSTAR\n", __func__);
    return 0;
}

ircut_config ircut_config_get(void)
{
    pthread_mutex_lock(&config.lock);
    const ircut_config table = config.table;
    pthread_mutex_unlock(&config.lock);
    return table;
}

int ircut_drv_init(void)
{
    const ircut_config table = ircut_config_get();
    return table.drv_init ? table.drv_init() : -1;
}

int ircut_drv_exit(void)
{
    const ircut_config table = ircut_config_get();
    return table.drv_exit ? table.drv_exit() : -1;
}

int ircut_drv_sw(int position)
{
    const ircut_config table = ircut_config_get();
    return table.drv_sw ? table.drv_sw(position) : -1;
}

int pwm_drv_init(void)
{
    const ircut_config table = ircut_config_get();
    return table.pwm_init ? table.pwm_init() : -1;
}

int pwm_drv_exit(void)
{
    const ircut_config table = ircut_config_get();
    return table.pwm_exit ? table.pwm_exit() : -1;
}

int pwm_duty(const char *text)
{
    const ircut_config table = ircut_config_get();
    return table.pwm_duty ? table.pwm_duty(text) : -1;
}
