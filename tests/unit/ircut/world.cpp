#include "world.h"

#include <errno.h>
#include <pthread.h>
#include <string.h>

#include "algo_shbf.h"
#include "ir_white_led.h"
#include "ircut_drv.h"
#include "ircut_pwm.h"
#include "kv_client.h"
#include "lock_watch.h"
#include "naro_isp.h"

World *world;

World::World(FakeClock::Sleep sleep_mode) : clock(sleep_mode)
{
    world = this;
    clock.on_sleep = [this](unsigned ms) { note("sleep " + std::to_string(ms)); };
    dusk();
    ircut_config_init();
    log.clear();
}

World::~World()
{
    world = nullptr;
}

void World::measure(uint32_t new_ev, uint32_t bv, uint32_t expr_us, uint32_t again, int red, int blue)
{
    std::lock_guard<std::mutex> guard(mutex);
    ev = {{new_ev, bv, expr_us, again, 1024, 0, 0}};
    wb = {{red, blue, 0, 0, 0, 0, 0, 0}};
}

Journal World::journal()
{
    std::lock_guard<std::mutex> guard(mutex);
    Journal result;
    result.swap(written);
    return result;
}

// "[name 12]" and "[name:12]" become "[name N]" and "[name:N]".
static std::string without_source_line(const std::string &text)
{
    const size_t end = text.find(']');
    const size_t begin = text.substr(0, end).find_last_not_of("0123456789") + 1;
    if (text.empty() || text[0] != '[' || end == std::string::npos || begin == end ||
        (text[begin - 1] != ' ' && text[begin - 1] != ':'))
        return text;
    return text.substr(0, begin) + "N" + text.substr(end);
}

Lines World::lines()
{
    Lines result = log.lines();
    log.clear();
    for (LogCapture::Line &line : result)
        line.text = without_source_line(line.text);
    return result;
}

void World::story()
{
    everything = true;
    naro_log_set_sink(
        [](void *self, naro_log_level level, const char *text) {
            static_cast<World *>(self)->note((level == NARO_LOG_ERR ? "complains " : "says ") +
                                             without_source_line(text));
        },
        this);
}

void World::note(const std::string &line)
{
    if (on_note)
        on_note(line);
    std::lock_guard<std::mutex> guard(mutex);
    written.push_back(line);
}

Journal World::rounds(ircut_task *task, int count)
{
    for (int i = 0; i < count; i++) {
        journal();
        lines();
        EXPECT_EQ(ircut_task_round(task), 500u);
    }
    return journal();
}

// ---- The processor ---------------------------------------------------------------------------------------

int naro_isp_daynight_mode_set(uint32_t mode)
{
    world->note("isp " + std::to_string(mode));
    if (world->set_result == 0 && world->follows)
        world->isp_mode = mode;
    return world->set_result;
}
int naro_isp_daynight_mode_get(uint32_t *mode)
{
    world->mode_reads++;
    if (world->everything)
        world->note("mode?");
    if (world->get_result == 0)
        *mode = world->isp_mode;
    return world->get_result;
}
int naro_isp_ev_attr_get(naro_isp_ev_attr *attr)
{
    world->statistics_reads++;
    if (world->everything)
        world->note("ev?");
    std::lock_guard<std::mutex> guard(world->mutex);
    if (world->ev_result == 0)
        *attr = world->ev;
    return world->ev_result;
}
int naro_isp_wb_attr_get(naro_isp_wb_attr *attr)
{
    if (world->everything)
        world->note("wb?");
    std::lock_guard<std::mutex> guard(world->mutex);
    if (world->wb_result == 0)
        *attr = world->wb;
    return world->wb_result;
}

// ---- Drivers ---------------------------------------------------------------------------------------------

int _mstar_ircut_drv_init(void)
{
    world->note("drv_init");
    return world->drv_init_result;
}
int _mstar_ircut_drv_exit(void)
{
    world->note("drv_exit");
    return world->drive_result;
}
int _mstar_ircut_drv_sw(int position)
{
    world->note("sw " + std::to_string(position) +
                (world->everything ? " at level " + std::to_string(ir_level) : ""));
    return world->drive_result;
}
int _mstar_pwm_drv_init(void)
{
    world->note("pwm_init");
    return world->pwm_init_result;
}
int _mstar_pwm_drv_exit(void)
{
    world->note("pwm_exit");
    return world->drive_result;
}
int _mstar_pwm_duty(const char *text)
{
    const int level = ir_level;
    world->note(std::string("pwm ") + text +
                (std::to_string(level) == text ? "" : " at level " + std::to_string(level)));
    return world->drive_result;
}

// ---- Lights ----------------------------------------------------------------------------------------------

int ir_white_led_crtl(int gpio, int on)
{
    world->note("led " + std::to_string(gpio) + " " + std::to_string(on));
    if (gpio == WHITE_LED_GPIO && world->white >= 0)
        world->white = on;
    return world->drive_result;
}
int ir_white_get_led_status(int gpio)
{
    EXPECT_EQ(gpio, 47);
    world->white_reads++;
    if (world->everything)
        world->note("led 47?");
    return world->white;
}
int ir_white_get_light_status(void)
{
    if (world->everything)
        world->note("lit?");
    return world->person_light;
}
int led_task_set_timer_stop(void)
{
    world->note("timer stop");
    world->person_light = 0;
    return world->drive_result;
}

// ---- Settings and channels -------------------------------------------------------------------------------

int kv_client_set_kv(const char *layer, int type, const char *key, const void *value)
{
    EXPECT_STREQ(layer, "mem");
    EXPECT_EQ(type, 1);
    EXPECT_STREQ(key, "time_night");
    uint64_t ms;
    memcpy(&ms, value, sizeof ms);
    world->note("stamp " + std::to_string(ms));
    return world->drive_result;
}
int shbf_event_broadcast(int index, const void *buf, int len)
{
    const char *text = static_cast<const char *>(buf);
    EXPECT_EQ(strlen(text) + 1, static_cast<size_t>(len)) << "with its end";
    world->note("event " + std::to_string(index) + " " + text + " " + std::to_string(len));
    return world->drive_result;
}

// ---- Threads ---------------------------------------------------------------------------------------------

extern "C" int __real_pthread_create(pthread_t *, const pthread_attr_t *, void *(*)(void *), void *);
extern "C" int __real_pthread_join(pthread_t, void **);
extern "C" int __real_pthread_detach(pthread_t);

extern "C" int __wrap_pthread_create(pthread_t *thread, const pthread_attr_t *attr, void *(*entry)(void *),
                                     void *arg)
{
    if (!world)
        return __real_pthread_create(thread, attr, entry, arg);
    world->note(std::string("thread ") + (entry == mstar_ircut_ctrl_smart             ? "task"
                                          : entry == white_led_status_and_alarm_check ? "alarm"
                                                                                      : "?"));
    EXPECT_EQ(ircut.task_running, 1) << "before the thread looks at it";
    if (world->created == world->create_fails_at)
        return EAGAIN;
    world->created++;
    if (entry == white_led_status_and_alarm_check)
        world->alarm_number = arg;
    if (world->real_threads)
        return __real_pthread_create(thread, attr, entry, arg);
    *thread = pthread_self();
    return 0;
}
extern "C" int __wrap_pthread_join(pthread_t thread, void **result)
{
    if (world)
        world->note("join");
    return world && !world->real_threads ? 0 : __real_pthread_join(thread, result);
}
// Kept, so that a case can wait for the end of a thread that nobody else will join.
extern "C" int __wrap_pthread_detach(pthread_t thread)
{
    if (!world)
        return __real_pthread_detach(thread);
    world->note("detach");
    if (world->real_threads) {
        std::lock_guard<std::mutex> guard(world->mutex);
        world->detached.push_back(thread);
    }
    return 0;
}

void World::join_detached()
{
    std::vector<pthread_t> threads;
    {
        std::lock_guard<std::mutex> guard(mutex);
        threads.swap(detached);
    }
    for (pthread_t thread : threads)
        __real_pthread_join(thread, nullptr);
}
