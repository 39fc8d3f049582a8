// The infrared LED, the white LED, and the timer that the white LED lives by.
//
// Threads: a person is seen on the detection thread, the controller takes the light over on its own, the
// timer fires on the event loop. One lock makes of each of these one step: decision, line and timer wish
// together. The GPIO calls made under it are leaves that wait for nobody.
//
// libev's timers must only be touched on the loop's thread. So the others write down what is to become of the
// timer and wake the loop; since a later wish takes the place of an earlier one, one word keeps their order.
// A wish carries its point in time, so that a loop that comes late to it does not fire late.
#include "ir_white_led.h"

#include <ev.h>
#include <fcntl.h>
#include <pthread.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include "gpio.h"
#include "naro_util.h"
#include "sysfs.h"

enum {
    LIGHT_MS = 30000,      // how long the light stays on after a person
    COOL_DOWN_S = 31,      // from going out to the next lighting: more than 30 s
    EXTENSION_END_S = 1800 // after this long since it went out last, a lit light is not extended any more
};

enum timer_wish { WISH_NONE, WISH_ARM, WISH_STOP };

static struct {
    pthread_mutex_t lock; // protects everything below, and the writes of light_on
    int64_t last_off_s;   // wall clock: when the light went out last; 0 = not since the process began
    timer_wish wish;      // what is to become of the timer; the loop's thread carries it out
    uint64_t due_ms;      // monotonic clock: when a timer that is to be armed shall fire
    struct ev_loop *loop; // the default loop; null before init, and when the loop has gone
} led = {PTHREAD_MUTEX_INITIALIZER, 0, WISH_NONE, 0, nullptr};

static std::atomic<int> white_led_light_on{0}; // read without the lock
std::atomic<int> g_white_led_switch{3};

// Event loop only.
static ev_timer timer_loop_white_led;
static ev_async wish_written;
static ev_cleanup loop_going;

// ---- Lines -----------------------------------------------------------------------------------------------

static int line_prepare(int gpio)
{
    char direction[GPIO_DIRECTION_SIZE] = "";
    int result = GPIO_request(gpio);
    if (GPIO_get_direct(gpio, direction) != 0)
        result = -1;
    if (strncmp(direction, "out", 3) != 0 && GPIO_set_direct(gpio, "out") != 0)
        result = -1;
    return result;
}

int ir_white_led_fini(void)
{
    const int white = GPIO_cancel(WHITE_LED_GPIO);
    const int infrared = GPIO_cancel(IR_LED_GPIO);
    return white != 0 ? white : infrared;
}

int ir_white_led_crtl(int gpio, int on)
{
    return GPIO_set_value(gpio, on);
}

int ir_white_get_led_status(int gpio)
{
    return GPIO_get_value(gpio);
}

static int write_pwm_file(const char *path, const char *text, const char *caller)
{
    const int fd = naro_open(path, O_WRONLY, 0);
    if (fd < 0) {
        log_err("open %s fail\n", path);
        return -1;
    }
    const int result = sysfs_replace_logged(fd, text, strlen(text), caller, path);
    close(fd);
    return result;
}

int ir_white_brightness_crtl(int duty, const char *pwm)
{
    if (!pwm) {
        log_err(" pwm is null \n");
        return -1;
    }
    fprintf(stderr, "[%s] pwm duty=%d\n", __func__, duty);
    char path[64];
    char text[16];
    snprintf(text, sizeof text, "%d", duty);
    snprintf(path, sizeof path, "/sys/class/pwm/pwmchip0/pwm%.3s/duty_cycle", pwm);
    if (write_pwm_file(path, text, __func__) != 0)
        return -1;
    snprintf(path, sizeof path, "/sys/class/pwm/pwmchip0/pwm%.3s/enable", pwm);
    if (write_pwm_file(path, "1", __func__) != 0)
        return -1;
    log_info("[%s] enable pwm0\n", __func__);
    return 0;
}

void white_led_blink(void) {}

// ---- Timer -----------------------------------------------------------------------------------------------

// Event loop only, lock held.
static void carry_out_wish(struct ev_loop *loop)
{
    if (led.wish == WISH_ARM) {
        const uint64_t now = naro_clock_monotonic_ms();
        const uint64_t after_ms = led.due_ms > now ? led.due_ms - now : 0;
        // Fires once: its callback would stop a repeating one anyway.
        naro_clock_arm_timer(loop, &timer_loop_white_led, static_cast<double>(after_ms) / 1000.);
    } else if (led.wish == WISH_STOP) {
        ev_timer_stop(loop, &timer_loop_white_led);
    }
    led.wish = WISH_NONE;
}

static void on_wish_written(struct ev_loop *loop, ev_async *, int)
{
    pthread_mutex_lock(&led.lock);
    carry_out_wish(loop);
    pthread_mutex_unlock(&led.lock);
}

static void on_loop_going(struct ev_loop *, ev_cleanup *, int)
{
    pthread_mutex_lock(&led.lock);
    led.loop = nullptr;
    pthread_mutex_unlock(&led.lock);
}

void timer_action(struct ev_loop *loop, struct ev_timer *timer, int)
{
    pthread_mutex_lock(&led.lock);
    if (led.wish != WISH_NONE) {
        // Somebody was faster than this firing: a person extended the time, or the light was taken over.
        carry_out_wish(loop);
    } else {
        led.last_off_s = naro_clock_wall_s();
        ev_timer_stop(loop, timer);
        ir_white_led_crtl(WHITE_LED_GPIO, 0);
        white_led_light_on = 0;
    }
    pthread_mutex_unlock(&led.lock);
}

// Lock held.
static void wish(timer_wish what)
{
    led.wish = what;
    led.due_ms = naro_clock_monotonic_ms() + LIGHT_MS;
    if (led.loop)
        ev_async_send(led.loop, &wish_written);
}

static void watchers_start(void)
{
    struct ev_loop *loop = ev_default_loop(EVFLAG_AUTO);
    pthread_mutex_lock(&led.lock);
    if (loop && !led.loop) {
        ev_timer_init(&timer_loop_white_led, timer_action, 0., 0.);
        ev_async_init(&wish_written, on_wish_written);
        ev_async_start(loop, &wish_written);
        ev_cleanup_init(&loop_going, on_loop_going);
        ev_cleanup_start(loop, &loop_going);
        led.loop = loop;
        if (led.wish != WISH_NONE)
            ev_async_send(loop, &wish_written);
    }
    pthread_mutex_unlock(&led.lock);
}

int ir_white_led_init(void)
{
    watchers_start();
    const int white = line_prepare(WHITE_LED_GPIO);
    const int infrared = line_prepare(IR_LED_GPIO);
    return white != 0 ? white : infrared;
}

white_led_verdict white_led_on_person(int64_t now_s, int64_t last_off_s, int light_on, int enable)
{
    if (last_off_s >= now_s || now_s - last_off_s < COOL_DOWN_S || enable != 3)
        return WHITE_LED_NOTHING;
    if (!light_on)
        return WHITE_LED_LIGHT;
    // Later, nothing: the light goes out when its current time is over, at most 30 s from here.
    return now_s - last_off_s < EXTENSION_END_S ? WHITE_LED_EXTEND : WHITE_LED_NOTHING;
}

int led_task_set_white_led_on(void)
{
    pthread_mutex_lock(&led.lock);
    const int64_t now = naro_clock_wall_s();
    switch (white_led_on_person(now, led.last_off_s, white_led_light_on, g_white_led_switch)) {
    case WHITE_LED_LIGHT:
        ir_white_led_crtl(WHITE_LED_GPIO, 1);
        white_led_light_on = 1;
        wish(WISH_ARM);
        // The first lighting of all counts as the last time it was out, so it is not extended for 30 s and
        // not for longer than 30 minutes.
        if (led.last_off_s == 0)
            led.last_off_s = now;
        break;
    case WHITE_LED_EXTEND:
        wish(WISH_ARM);
        break;
    case WHITE_LED_NOTHING:
        break;
    }
    pthread_mutex_unlock(&led.lock);
    return 0;
}

int led_task_set_timer(int restart)
{
    if (restart != 0 && restart != 1)
        return 0;
    pthread_mutex_lock(&led.lock);
    wish(WISH_ARM);
    pthread_mutex_unlock(&led.lock);
    return 0;
}

int led_task_set_timer_stop(void)
{
    pthread_mutex_lock(&led.lock);
    if (white_led_light_on == 1) {
        wish(WISH_STOP);
        white_led_light_on = 0;
        led.last_off_s = naro_clock_wall_s();
    }
    pthread_mutex_unlock(&led.lock);
    return 0;
}

int ir_white_get_light_status(void)
{
    return white_led_light_on;
}
