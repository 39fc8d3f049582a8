// The camera on a desk: what the other processes of a camera are to the daemon, in one program.
//
// One event loop on the main thread runs everything; the source reads and decodes on a thread of its own.
// Start: root, command socket, channels, source, daemon. End: nothing more to send or a signal, the daemon by
// SIGTERM, the summary.
#include <ev.h>
#include <limits.h>
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <string>

extern "C" {
#include <libavutil/log.h>
}

#include "board.h"
#include "card.h"
#include "command_server.h"
#include "desk.h"
#include "frames.h"
#include "light.h"
#include "motor_head.h"
#include "naro_util.h"
#include "options.h"
#include "output.h"
#include "picture.h"
#include "render.h"
#include "rendered.h"
#include "scenario.h"
#include "settings.h"
#include "sound.h"
#include "source.h"
#include "supervisor.h"

namespace
{

struct {
    camera_options options;
    struct ev_loop *loop;
    ev_signal signals[4];
    scenario script;
    bool stopping;
    bool failed;
} camera;

void on_daemon_stopped(void)
{
    ev_break(camera.loop, EVBREAK_ALL);
}

void stop(void)
{
    if (camera.stopping)
        return;
    camera.stopping = true;
    supervisor_stop(on_daemon_stopped);
}

void on_frames_end(bool failed)
{
    camera.failed = failed;
    stop();
}

// Somebody has come to the command socket.
void on_client(void)
{
    frames_on_client();
    settings_on_client();
}

void on_signal(struct ev_loop *, ev_signal *, int)
{
    stop();
}

void on_result(const frame_result *result)
{
    output_result(result);
    if (output_broken())
        stop(); // nobody reads on
}

void on_sound(void)
{
    output_sound();
    if (output_broken())
        stop();
}

uint64_t source_now_ms(void)
{
    return frames_get_counts()->last_time_ms;
}

// The camera's ear; hurried it is deaf, so that the same source gives the same events in every run: the daemon asks by
// its own clock.
int start_sound(void)
{
    sound_settings sound = {};
    sound.schedule = camera.options.sound;
    sound.loop = camera.options.loop;
    sound.threshold_db = camera.options.sound_threshold_db;
    sound.now_ms = source_now_ms;
    sound.on_told = on_sound;
    return camera.options.fast ? 0 : sound_start(camera.loop, &sound);
}

// The motor's program lies beside this one, as the daemon does.
int start_motor(void)
{
    static char path[PATH_MAX + sizeof "naro_motor"]; // as long as it may be started again
    options_beside("naro_motor", path, sizeof path);
    supervisor_settings motor = {path, camera.options.verbose, nullptr};
    for (const std::string &setting : camera.options.motor_settings) {
        motor.arguments.emplace_back("--set");
        motor.arguments.push_back(setting);
    }
    return supervisor_start_motor(camera.loop, &motor);
}

void on_card(const char *sdcard_rw)
{
    settings_put("sdcard_rw", sdcard_rw);
}

int start(void)
{
    const camera_options &options = camera.options;
    if (options.scenario && scenario_load(options.scenario, &camera.script) != 0)
        return -1;
    if (desk_enter_root(true) != 0)
        return -1;
    const card_settings card = {options.card, on_card};
    if (card_start(camera.loop, &card) != 0)
        return -1;
    const command_server_settings server = {options.scenario ? &camera.script : nullptr, frames_on_track,
                                            on_client, sound_answer};
    if (command_server_start(camera.loop, &server) != 0)
        return -1;
    // The scene's own settings first, so that the command line has the last word.
    settings_wanted wanted = {};
    const char *scene;
    if (rendered_is_scene(options.source, &scene) && rendered_scene_settings(scene, &wanted.values) != 0)
        return -1;
    wanted.values.insert(wanted.values.end(), options.settings.begin(), options.settings.end());
    wanted.program = "naro_algo";
    wanted.on_ready = frames_release;
    frames_settings frames = {};
    frames.held = options.fast && !wanted.values.empty();
    frames.fast = options.fast;
    wanted.values.insert(wanted.values.begin(), {"sdcard_rw", card_setting()});
    frames.listeners = options.listeners;
    frames.end_ms = options.end_ms;
    frames.keep_pictures = options.record || options.window || options.truth;
    frames.on_send = output_sent;
    frames.on_result = on_result;
    frames.on_end = on_frames_end;
    frames.wide = options.wide;
    if (options.motor && motor_head_start() != 0)
        return -1;
    if (frames_start(camera.loop, &frames) != 0)
        return -1;
    if (output_start(camera.loop, &options) != 0 || start_sound() != 0)
        return -1;
    source_settings source = {};
    source.url = options.source;
    source.loop = options.loop;
    source.view = options.record || options.window;
    source.gpu = options.gpu;
    source.sound = !options.fast && !options.sound;
    source.head = options.motor ? motor_head_at : nullptr;
    source.wake = frames_wake;
    if (source_start(&source) != 0)
        return -1;
    if (board_start(camera.loop, nullptr) != 0 || settings_start(camera.loop, &wanted) != 0)
        return -1;
    light_settings light = {};
    light.schedule = options.lux;
    light.rendered = rendered_is_scene(options.source, &scene);
    light.daemon = options.daemon_lights;
    if (light_start(camera.loop, &light) != 0)
        return -1;
    if (options.motor && start_motor() != 0)
        return -1;
    if (!options.daemon)
        return 0;
    const supervisor_settings daemon = {options.daemon, options.verbose, frames_on_daemon_end};
    return supervisor_start(camera.loop, &daemon);
}

// Before anything is started: a signal that comes in the middle of the start is served when the loop runs, so that what
// was started is stopped as well.
void watch_signals(void)
{
    const int numbers[] = {SIGINT, SIGTERM, SIGQUIT, SIGHUP};
    for (size_t i = 0; i < sizeof numbers / sizeof *numbers; i++) {
        ev_signal_init(&camera.signals[i], on_signal, numbers[i]);
        ev_signal_start(camera.loop, &camera.signals[i]);
    }
}

} // namespace

int main(int argc, char **argv)
{
    desk_set_program("naro_camera");
    const int parsed = options_parse(argc, argv, &camera.options);
    if (parsed != 0)
        return parsed > 0 ? 0 : 2;
    render_prepare();
    setvbuf(stdout, nullptr, _IOLBF, 0);
    signal(SIGPIPE, SIG_IGN);
    av_log_set_level(camera.options.verbose ? AV_LOG_WARNING : AV_LOG_FATAL);
    camera.loop = ev_loop_new(EVFLAG_AUTO);
    if (camera.loop)
        watch_signals();
    const bool started = camera.loop && start() == 0;
    if (started) {
        ev_run(camera.loop, 0);
        if (!camera.failed)
            output_summary();
    } else if (camera.loop) {
        supervisor_stop([] {});
    }
    output_stop();
    source_stop();
    sound_stop();
    frames_stop();
    motor_head_stop();
    light_stop();
    settings_stop();
    board_stop();
    command_server_stop();
    card_stop();
    picture_exit();
    return started && !camera.failed ? 0 : 1;
}
