// Mailbox, move, rest: the driver's one round.
#include "motor_driver.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "desk.h"
#include "motor_request.h"

namespace
{

struct {
    motor_driver_settings settings;
    motor_state place; // where the head is, and where it was when `move` began
    uint32_t moves;

    bool moving;
    motor_move move;
    uint64_t taken_ms; // when its request was taken
    char text[MOTOR_MAILBOX_TEXT_BYTES];

    bool to_clear;       // the mailbox is to be freed, as soon as its lock is to be had
    uint64_t locked_ms;  // since when the lock was not to be had; 0: it was
    bool to_publish;     // the place of rest has not been published
    uint64_t publish_ms; // not before
} driver;

void write_view(const motor_state *place, bool turning, const double speed[MOTOR_AXES])
{
    motor_view_record record = {};
    record.moves = driver.moves;
    record.turning = turning;
    record.place = *place;
    for (int axis = 0; axis < MOTOR_AXES; axis++)
        record.speed[axis] = speed ? speed[axis] : 0;
    motor_view_write(driver.settings.view, &record);
}

void write_turning(double ms)
{
    const motor_parameters *parameters = &driver.settings.parameters;
    const motor_state now = motor_at(parameters, &driver.move, ms);
    const motor_state before = motor_at(parameters, &driver.move, ms - MOTOR_DRIVER_TURN_MS);
    double speed[MOTOR_AXES];
    for (int axis = 0; axis < MOTOR_AXES; axis++)
        speed[axis] = (now.axis[axis].head - before.axis[axis].head) * 1000 / MOTOR_DRIVER_TURN_MS;
    write_view(&now, motor_turns(parameters, &driver.move, ms), speed);
}

// Whoever holds the lock does so for one look and one copy. After MOTOR_DRIVER_LOCKED_MS it has died, or somebody wrote
// over the lock: it is made new, as at the start.
void note_lock(bool had, uint64_t now_ms)
{
    if (had) {
        driver.locked_ms = 0;
        return;
    }
    if (driver.locked_ms == 0)
        driver.locked_ms = now_ms;
    if (now_ms - driver.locked_ms < MOTOR_DRIVER_LOCKED_MS)
        return;
    desk_say("the mailbox has been locked for %d ms: its holder has died; the lock is made anew",
             MOTOR_DRIVER_LOCKED_MS);
    motor_mailbox_lock_init(&driver.settings.mailbox->lock);
    driver.locked_ms = 0;
}

void clear(uint64_t now_ms)
{
    const bool done = motor_mailbox_clear(driver.settings.mailbox) == MOTOR_MAILBOX_DONE;
    driver.to_clear = !done;
    note_lock(done, now_ms);
}

void rest_from(uint64_t ms)
{
    driver.to_publish = true;
    driver.publish_ms = ms;
}

void publish_if_due(uint64_t now_ms)
{
    if (!driver.to_publish || now_ms < driver.publish_ms)
        return;
    char text[32];
    snprintf(text, sizeof text, "[%d,%d]",
             motor_degrees(&driver.settings.parameters, &driver.place.axis[MOTOR_PAN]),
             motor_degrees(&driver.settings.parameters, &driver.place.axis[MOTOR_TILT]));
    char *old = driver.settings.published();
    const bool same = old && strcmp(old, text) == 0;
    free(old);
    driver.to_publish = !same && !driver.settings.publish(text);
    driver.publish_ms = now_ms + MOTOR_DRIVER_AGAIN_MS;
}

void end_move(uint64_t now_ms)
{
    const motor_state from = driver.place;
    driver.place =
        motor_at(&driver.settings.parameters, &driver.move, static_cast<double>(now_ms - driver.taken_ms));
    driver.moving = false;
    write_view(&driver.place, false, nullptr);
    driver.to_clear = driver.settings.mailbox != nullptr;
    if (driver.to_clear)
        clear(now_ms);
    const motor_driver_report report = {driver.text, driver.taken_ms, now_ms, from, driver.place};
    driver.settings.on_move(&report);
    rest_from(now_ms + MOTOR_DRIVER_REST_MS);
}

void look_into_mailbox(uint64_t now_ms)
{
    const motor_mailbox_result result = motor_mailbox_read(driver.settings.mailbox, driver.text);
    note_lock(result != MOTOR_MAILBOX_LOCKED, now_ms);
    if (result != MOTOR_MAILBOX_DONE)
        return;
    motor_request request;
    if (!motor_request_parse(driver.text, sizeof driver.text, &request)) {
        for (char *byte = driver.text; *byte; byte++)
            if (*byte < ' ' || *byte > '~')
                *byte = '?';
        desk_say("\"%s\" in the mailbox is no request \"[h,v,sequence]\"; dropped", driver.text);
        clear(now_ms);
        return;
    }
    driver.moving = true;
    driver.moves++;
    driver.taken_ms = now_ms;
    driver.move = motor_plan(&driver.settings.parameters, &driver.place, request.h, request.v);
}

void move_on(uint64_t now_ms)
{
    const double ms = static_cast<double>(now_ms - driver.taken_ms);
    if (ms >= driver.move.duration_ms)
        end_move(now_ms);
    else
        write_turning(ms);
}

} // namespace

void motor_driver_start(const motor_driver_settings *settings, uint64_t now_ms)
{
    driver = {};
    driver.settings = *settings;
    motor_view_record record;
    if (motor_view_read(settings->view, &record)) {
        driver.place = record.place;
        driver.moves = record.moves;
    }
    write_view(&driver.place, false, nullptr);
    motor_driver_mailbox(settings->mailbox);
    // Nothing is written to flash before something has moved, unless what is there has become wrong.
    char *old = settings->published();
    if (old)
        rest_from(now_ms);
    free(old);
}

void motor_driver_mailbox(motor_mailbox *mailbox)
{
    driver.settings.mailbox = mailbox;
    driver.locked_ms = 0;
    driver.to_clear = false;
    if (!mailbox)
        return;
    motor_mailbox_lock_init(&mailbox->lock);
    driver.to_clear = !driver.moving && motor_mailbox_clear(mailbox) != MOTOR_MAILBOX_DONE;
}

unsigned motor_driver_round(uint64_t now_ms)
{
    if (driver.to_clear)
        clear(now_ms);
    else if (driver.moving)
        move_on(now_ms);
    else if (driver.settings.mailbox)
        look_into_mailbox(now_ms);
    if (!driver.moving)
        publish_if_due(now_ms);
    return driver.moving ? MOTOR_DRIVER_TURN_MS : MOTOR_DRIVER_LOOK_MS;
}

void motor_driver_stop(uint64_t now_ms)
{
    if (driver.moving)
        end_move(now_ms);
    else if (driver.to_clear)
        clear(now_ms);
    if (driver.to_publish)
        rest_from(now_ms);
    publish_if_due(now_ms);
}
