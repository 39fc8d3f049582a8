// The platform table of the day/night controller: which functions drive the filter's coil and the infrared
// light, and which controller runs. Another board would fill it with its own.
#ifndef IRCUT_CONFIG_H
#define IRCUT_CONFIG_H

struct ircut_config {
    int platform;             // IRCUT_PLATFORM_MSTAR
    const char *ircut_gpio_a; // the two lines of the filter's coil: GPIO numbers as text
    const char *ircut_gpio_b;
    int (*drv_init)(void);
    int (*drv_exit)(void);
    int (*drv_sw)(int position);
    int (*pwm_init)(void);
    int (*pwm_exit)(void);
    int (*pwm_duty)(const char *text);
    void *(*ctrl_task)(void *); // the ircut task's entry
};
enum { IRCUT_PLATFORM_MSTAR = 1 };

// Fills the table anew, under a lock, so that a running task sees the old one or the new one and nothing
// between; says "[%s] NARO_ALGO_MSTAR\n". 0. Any thread.
int ircut_config_init(void);
// The table as it is now; all zero before the first init. Any thread.
ircut_config ircut_config_get(void);

// Each calls its entry of the table and returns its result; -1 while the table is empty. What they do, and
// how long they take, is in ircut_drv.h and ircut_pwm.h. Any thread.
int ircut_drv_init(void);
int ircut_drv_exit(void);
int ircut_drv_sw(int position);
int pwm_drv_init(void);
int pwm_drv_exit(void);
int pwm_duty(const char *text);

#endif
