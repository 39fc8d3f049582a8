// The world around the controller: time, board, light, ISP, and nobody to talk to.
#include "day.h"

#include <algorithm>
#include <errno.h>
#include <ev.h>
#include <fcntl.h>
#include <math.h>
#include <pthread.h>
#include <stdlib.h>
#include <string.h>
#include <string>
#include <sys/prctl.h>
#include <time.h>
#include <unistd.h>

#include "algo_shbf.h"
#include "board.h"
#include "ir_white_led.h"
#include "ircut.h"
#include "kv_client.h"
#include "naro_isp.h"
#include "naro_util.h"

namespace
{

enum {
    STEP_MS = 100,         // the desk camera meters as often
    SWITCHES_MAX = 100000, // that are kept: two a second could not be more in a day
};
const uint64_t WALL_AT_START_MS = 1700000000000;
const char ALARM_THREAD[] = "white_led_statu"; // as the kernel cuts its name

struct {
    pthread_mutex_t lock = PTHREAD_MUTEX_INITIALIZER; // protects the next three
    pthread_cond_t changed = PTHREAD_COND_INITIALIZER;
    bool ended;    // the day is over: the task's thread waits,
    bool stopping; // until it is told to end, as the alarm light's
    int held;      // alarm-light threads in their sleep

    // Where the day stands: touched by the thread that drives it, which is the main one until the task has begun and
    // after it has ended, and the task's in between.
    const day_settings *settings;
    day_result *result;
    uint64_t now_ms;   // monotonic
    uint64_t start_ms; // when the day began
    size_t moment;     // of the schedule
    size_t seen;       // people
    uint64_t samples;  // that the task has taken
    double lux;
    double bright_s, dark_s; // how long it has been so
    bool night;

    board_state board;
    std::string paths[BOARD_LINES]; // of the lines' values,
    int lines[BOARD_LINES];         // and the files, open
    int pwm_enable, pwm_duty;
    int written; // line whose file was written last and not been looked at; -1: none
    bool pwm_written;

    uint32_t isp_mode;
    isp_metering metering;
    naro_isp_ev_attr exposure, sampled_exposure; // now, and as the task was told last
    naro_isp_wb_attr balance, sampled_balance;

    // The white LED's timer.
    struct ev_loop *loop;
    struct ev_timer *timer;
    uint64_t timer_due_ms;
} world;

// ---- Board -----------------------------------------------------------------------------------------------------------

const char GPIO[] = "/sys/class/gpio/";
const char PWM[] = "/sys/class/pwm/pwmchip0/";
const char VARIANT[] = "/tmp/SSC3338";

// Of the first characters of an open file, which is read again and again.
unsigned number_in(int fd)
{
    char text[16] = "";
    const ssize_t length = pread(fd, text, sizeof text - 1, 0);
    text[std::max<ssize_t>(length, 0)] = '\0';
    return static_cast<unsigned>(strtoul(text, nullptr, 10));
}

int open_file(const std::string &path)
{
    return open((naro_root() + path).c_str(), O_RDONLY | O_CLOEXEC);
}

bool make_file(const std::string &path, const char *text)
{
    if (dir_make_parent(path.c_str(), 0755) != 0)
        return false;
    const int fd = open((naro_root() + path).c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd < 0)
        return false;
    const ssize_t length = static_cast<ssize_t>(strlen(text));
    const bool done = write(fd, text, strlen(text)) == length;
    close(fd);
    return done;
}

bool make_board(bool other_sensor)
{
    bool done = true;
    for (int line = 0; line < BOARD_LINES; line++) {
        const std::string folder = GPIO + ("gpio" + std::to_string(board_line_numbers[line]));
        world.paths[line] = folder + "/value";
        done = done && make_file(folder + "/direction", "in\n") && make_file(world.paths[line], "0\n") &&
               (world.lines[line] = open_file(world.paths[line])) >= 0;
    }
    for (const char *channel : {"pwm4", "pwm6"})
        for (const char *file : {"/period", "/duty_cycle", "/enable"})
            done = done && make_file(PWM + std::string(channel) + file, "0\n");
    for (const char *folder : {GPIO, PWM})
        for (const char *file : {"export", "unexport"})
            done = done && make_file(folder + std::string(file), "");
    done = done && (world.pwm_enable = open_file(PWM + std::string("pwm4/enable"))) >= 0 &&
           (world.pwm_duty = open_file(PWM + std::string("pwm4/duty_cycle"))) >= 0;
    unlink((naro_root() + std::string(VARIANT)).c_str());
    return done && (!other_sensor || make_file(VARIANT, ""));
}

void close_board(void)
{
    for (int fd : world.lines)
        close(fd);
    close(world.pwm_enable);
    close(world.pwm_duty);
}

// Takes in what was written last.
void follow_board(void)
{
    if (world.written >= 0) {
        const board_line line = static_cast<board_line>(world.written);
        world.written = -1;
        const bool high = number_in(world.lines[line]) != 0;
        if (line == BOARD_WHITE_LED && high && !world.board.high[line])
            world.result->white_lit++;
        board_set_line(&world.board, line, high, world.now_ms);
    }
    if (world.pwm_written) {
        world.pwm_written = false;
        const bool enabled = number_in(world.pwm_enable) != 0;
        world.board.pwm_percent = enabled ? number_in(world.pwm_duty) : 0;
    }
}

// Before each file call of the daemon: by then what it wrote before is there.
int on_file_call(void *, const char *call, const char *path)
{
    if (world.written >= 0 || world.pwm_written)
        follow_board();
    // What is opened as a stream is written unseen, when it is closed.
    if (strcmp(call, "write") != 0 && strcmp(call, "fopen") != 0)
        return 0;
    for (int line = 0; line < BOARD_LINES; line++)
        if (world.paths[line] == path)
            world.written = line;
    if (strncmp(path, PWM, strlen(PWM)) == 0)
        world.pwm_written = true;
    return 0;
}

// ---- The day ---------------------------------------------------------------------------------------------------------

bool is_night(void)
{
    int night = 0, mode, alarm;
    switch (world.settings->mode) {
    case NARO_IRCUT_MODE_AUTO_FULL_COLOR:
        return world.board.high[BOARD_WHITE_LED];
    case NARO_IRCUT_MODE_AUTO_SMART: // where the ISP runs by day while a person lights the white LED
        get_current_night_mode(&night, &mode, &alarm);
        return night == 1;
    default:
        return world.isp_mode == NARO_ISP_RUNNING_MODE_NIGHT;
    }
}

double day_seconds(void)
{
    return static_cast<double>(world.now_ms - world.start_ms) / 1000;
}

void note_switch(void)
{
    const bool night = is_night();
    if (night == world.night)
        return;
    world.night = night;
    if (world.result->switches.size() >= SWITCHES_MAX)
        return;
    const ircut_sample sample = ircut_sample_of(world.sampled_exposure, world.sampled_balance);
    const bool reasoned = world.settings->mode != NARO_IRCUT_MODE_AUTO_FULL_COLOR;
    const unsigned reasons = !reasoned ? 0
                             : night   ? ircut_dark_reasons(sample)
                                       : ircut_bright_reasons(sample);
    world.result->switches.push_back({day_seconds(), night, world.lux, sample, reasons});
}

void count_time(double seconds)
{
    day_result *result = world.result;
    world.bright_s = world.lux >= DAY_BRIGHT_LUX ? world.bright_s + seconds : 0;
    world.dark_s = world.lux <= DAY_DARK_LUX ? world.dark_s + seconds : 0;
    if (world.night && world.bright_s > DAY_GRACE_S)
        result->wrong_night_s += seconds;
    if (!world.night && world.dark_s > DAY_GRACE_S)
        result->wrong_day_s += seconds;
    result->night_s += world.night ? seconds : 0;
    result->white_s += world.board.high[BOARD_WHITE_LED] ? seconds : 0;
}

void meter(double seconds)
{
    const double at = day_seconds();
    const light_moment moment = light_schedule_at(world.settings->light->moments, at, &world.moment);
    world.lux = moment.lux;
    room_constants room = world.settings->room;
    room.reflectance *= day_unrest(world.settings->light->unrest, at);
    const isp_light light = light_of_room(moment, world.board, room);
    isp_model_step(&world.settings->isp, &world.metering, &light, world.board.filter_day, seconds,
                   &world.exposure, &world.balance);
}

// As detection does at a person's frame.
void see_people(void)
{
    const std::vector<double> &seen = world.settings->light->seen;
    if (seen.empty())
        return;
    for (; world.seen < seen.size() && seen[world.seen] <= day_seconds(); world.seen++) {
        int night, mode, alarm;
        get_current_night_mode(&night, &mode, &alarm);
        if (night == 1 && mode == NARO_IRCUT_MODE_AUTO_SMART && alarm == 0)
            led_task_set_white_led_on();
    }
    ev_run(world.loop, EVRUN_NOWAIT); // the timer's wishes
    if (world.timer && ev_is_active(world.timer) && world.now_ms >= world.timer_due_ms) {
        ev_timer_stop(world.loop, world.timer);
        ev_invoke(world.loop, world.timer, EV_TIMER);
    }
}

void go_on(unsigned ms)
{
    follow_board();
    while (ms > 0) {
        const unsigned step = std::min<unsigned>(ms, STEP_MS);
        ms -= step;
        world.now_ms += step;
        board_check(&world.board, world.now_ms);
        meter(step / 1000.);
        see_people();
        follow_board();
        if (day_seconds() >
            world.settings->seconds) // a sequence that was begun before the end goes on after it
            continue;
        note_switch();
        count_time(step / 1000.);
    }
}

void keep_counts(void)
{
    world.result->pulses = world.board.pulses;
    world.result->moves = world.board.moves;
    world.result->breaches = world.board.breaches;
    world.result->samples = world.samples;
}

// ---- The clock seam --------------------------------------------------------------------------------------------------

bool is_alarm_thread(void)
{
    static thread_local int known = -1;
    if (known < 0) {
        char name[16] = "";
        prctl(PR_GET_NAME, name);
        known = strcmp(name, ALARM_THREAD) == 0;
    }
    return known == 1;
}

void wait_for_the_end(void)
{
    while (!world.stopping)
        pthread_cond_wait(&world.changed, &world.lock);
}

void sleep_ms(void *, unsigned ms)
{
    pthread_mutex_lock(&world.lock);
    if (is_alarm_thread()) {
        world.held++;
        wait_for_the_end();
        world.held--;
        pthread_cond_broadcast(&world.changed);
    } else if (world.ended) {
        wait_for_the_end();
    } else {
        // The lock is not needed to drive the day, and calls of the modules may be made meanwhile.
        pthread_mutex_unlock(&world.lock);
        go_on(ms);
        pthread_mutex_lock(&world.lock);
        if (day_seconds() >= world.settings->seconds) {
            keep_counts(); // what the task does from here on, while time stands still, is no part of the day
            world.ended = true;
            pthread_cond_broadcast(&world.changed);
        }
    }
    const bool stopping = world.stopping;
    pthread_mutex_unlock(&world.lock);
    if (stopping) {
        const timespec moment = {0, 100000};
        nanosleep(&moment, nullptr); // time stands still: let the others end
    }
}

uint64_t monotonic_ms(void *)
{
    return world.now_ms;
}

uint64_t wall_ms(void *)
{
    return WALL_AT_START_MS + world.now_ms;
}

void arm_timer(void *, struct ev_loop *loop, struct ev_timer *timer, double after_s)
{
    const double far_away_s = 1e9; // it fires by our time
    ev_timer_stop(loop, timer);
    ev_timer_set(timer, far_away_s, 0.);
    ev_timer_start(loop, timer);
    world.timer = timer;
    world.timer_due_ms = world.now_ms + static_cast<uint64_t>(after_s * 1000);
}

} // namespace

// ---- What the modules call -------------------------------------------------------------------------------------------

int naro_isp_daynight_mode_set(uint32_t mode)
{
    world.isp_mode = mode;
    return 0;
}
int naro_isp_daynight_mode_get(uint32_t *mode)
{
    *mode = world.isp_mode;
    return 0;
}
int naro_isp_ev_attr_get(naro_isp_ev_attr *attr)
{
    *attr = world.sampled_exposure = world.exposure;
    world.samples++;
    return 0;
}
int naro_isp_wb_attr_get(naro_isp_wb_attr *attr)
{
    *attr = world.sampled_balance = world.balance;
    return 0;
}
int kv_client_set_kv(const char *, int, const char *, const void *)
{
    return 0;
}
int shbf_event_broadcast(int, const void *, int)
{
    return 0;
}

// ---- A run -----------------------------------------------------------------------------------------------------------

bool day_run(const day_settings *settings, day_result *result)
{
    *result = {};
    world.ended = world.stopping = false;
    world.held = 0;
    world.settings = settings;
    world.result = result;
    world.now_ms = world.start_ms = 1000000;
    world.moment = world.seen = 0;
    world.samples = 0;
    world.bright_s = world.dark_s = 0;
    world.night = false;
    board_init(&world.board);
    world.written = -1;
    world.pwm_written = false;
    world.isp_mode = NARO_ISP_RUNNING_MODE_DAY;
    world.metering = {};
    world.timer = nullptr;
    if (!make_board(settings->other_sensor))
        return false;
    meter(0);
    const naro_clock seam = {nullptr, wall_ms, monotonic_ms, sleep_ms, arm_timer};
    naro_clock_replace(&seam);
    naro_file_set_fault(on_file_call, nullptr);
    naro_log_set_sink([](void *, naro_log_level, const char *) {}, nullptr);

    ir_white_led_init();
    world.loop = ev_default_loop(EVFLAG_AUTO);
    ircut_mode_config(settings->mode);
    const bool started = ircut_init() == 0;
    if (started) {
        pthread_mutex_lock(&world.lock);
        while (!world.ended)
            pthread_cond_wait(&world.changed, &world.lock);
        world.stopping = true;
        pthread_cond_broadcast(&world.changed);
        pthread_mutex_unlock(&world.lock);
        ircut_exit();
        pthread_mutex_lock(&world.lock);
        while (world.held > 0)
            pthread_cond_wait(&world.changed, &world.lock);
        pthread_mutex_unlock(&world.lock);
    }
    naro_log_set_sink(nullptr, nullptr);
    naro_file_set_fault(nullptr, nullptr);
    naro_clock_replace(nullptr);
    close_board();
    return started;
}

double day_period_s(const day_result *result)
{
    std::vector<double> periods;
    double last = -1;
    for (const day_switch &one : result->switches) {
        if (!one.to_night)
            continue;
        if (last >= 0)
            periods.push_back(one.seconds - last);
        last = one.seconds;
    }
    if (periods.size() < 2)
        return 0;
    std::nth_element(periods.begin(), periods.begin() + static_cast<ptrdiff_t>(periods.size() / 2),
                     periods.end());
    return periods[periods.size() / 2];
}
