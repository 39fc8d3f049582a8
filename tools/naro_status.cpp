// naro-status: what the camera sees of its daemon.
#include <ev.h>
#include <getopt.h>
#include <inttypes.h>
#include <json-c/json.h>
#include <memory>
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <string>
#include <unistd.h>

#include "desk.h"
#include "events.h"
#include "naro_util.h"
#include "shbf.h"
#include "shbfev.h"
#include "status.h"

namespace
{

const char help[] =
    "usage: naro-status [options]\n"
    "\n"
    "Asks the running camera what it sees of its daemon: frames sent, analysed and dropped, events, "
    "the age of\n"
    "the last command, the daemon's process, and what the picture side is set to.\n"
    "\n"
    "  --watch   again every second, until Ctrl-C\n"
    "  --json    as a JSON object on one line\n"
    "  --help    this text\n"
    "\n"
    "NARO_ROOT says where the camera lives; without it the place is found by the same rule as\n"
    "naro_camera finds it. Exit status 1 when no camera answers.\n";

const double ANSWER_S = 2; // how long a camera may take to answer
const double WATCH_S = 1;
const double KNOCK_S = 0.01;

struct {
    struct ev_loop *loop;
    void *receiver;
    ev_timer knock; // asks as soon as the camera can be heard
    ev_timer patience;
    bool json;
    bool watch;
    bool answered;
    bool asked;
} tool;

// Members of the camera's object; what is not there counts as null.
json_object *member(json_object *object, const char *name)
{
    json_object *value = nullptr;
    json_object_object_get_ex(object, name, &value);
    return value;
}

int64_t number(json_object *object, const char *name)
{
    return json_object_get_int64(member(object, name));
}

std::string age(json_object *object, const char *name)
{
    json_object *value = member(object, name);
    if (!value)
        return "never";
    char text[48];
    snprintf(text, sizeof text, "%.1f s ago", static_cast<double>(json_object_get_int64(value)) / 1000);
    return text;
}

std::string time_of(int64_t ms)
{
    const std::string text = event_time(static_cast<uint64_t>(ms));
    return text.substr(0, text.size() - 4); // whole seconds
}

void print_daemon(json_object *daemon)
{
    if (!member(daemon, "restarts"))
        printf("daemon      not started by the camera, %s\n",
               json_object_get_boolean(member(daemon, "connected")) ? "connected" : "not connected");
    else if (member(daemon, "pid"))
        printf("daemon      process %" PRId64 ", %s, up %s, %" PRId64 " threads, started again %" PRId64
               " times\n",
               number(daemon, "pid"),
               json_object_get_boolean(member(daemon, "connected")) ? "connected" : "not connected",
               time_of(number(daemon, "up_ms")).c_str(), number(daemon, "threads"),
               number(daemon, "restarts"));
    else
        printf("daemon      not running, started again %" PRId64 " times\n", number(daemon, "restarts"));
    if (member(daemon, "restarts"))
        printf("cost        %.2f s of CPU, %.1f MB resident at most\n",
               static_cast<double>(number(daemon, "cpu_ms")) / 1000,
               static_cast<double>(number(daemon, "peak_kib")) / 1024);
}

void print_events(json_object *events)
{
    if (!events || json_object_object_length(events) == 0) {
        printf("events      none\n");
        return;
    }
    json_object_object_foreach(events, name, count)
    {
        printf("events      %" PRId64 " %s\n", json_object_get_int64(count), name);
    }
}

void print_sound(json_object *sound)
{
    json_object *level = member(sound, "level_db");
    printf("sound       %s", json_object_get_boolean(member(sound, "loud")) ? "loud" : "quiet");
    if (level)
        printf(", %.1f dBFS", json_object_get_double(level));
    printf("; asked %" PRId64 " times, %" PRId64 " times loud, %" PRId64 " times told\n",
           number(sound, "asked"), number(sound, "answered_loud"), number(sound, "told"));
}

void print_status(json_object *status)
{
    json_object *source = member(status, "source"), *frames = member(status, "frames");
    json_object *commands = member(status, "commands"), *picture = member(status, "picture");
    json_object *name = member(source, "name");
    printf("source      %s, at %s%s\n", name ? json_object_get_string(name) : "?",
           time_of(number(source, "time_ms")).c_str(),
           json_object_get_boolean(member(status, "fast")) ? ", hurried" : "");
    if (number(source, "reopened") > 0)
        printf("            opened again %" PRId64 " times\n", number(source, "reopened"));
    printf("frames      %" PRId64 " sent, %" PRId64 " analysed, %" PRId64 " compared with only, %" PRId64
           " dropped\n",
           number(frames, "sent"), number(frames, "analysed"), number(frames, "compared"),
           number(frames, "dropped"));
    printf("            %" PRId64 " with motion, %" PRId64 " with people\n", number(frames, "with_motion"),
           number(frames, "with_people"));
    print_events(member(status, "events"));
    printf("commands    %" PRId64 " answered, %" PRId64 " refused, %" PRId64
           " clients; last %s, last tracking %s\n",
           number(commands, "answered"), number(commands, "refused"), number(commands, "clients"),
           age(commands, "last_age_ms").c_str(), age(commands, "last_tracking_age_ms").c_str());
    print_daemon(member(status, "daemon"));
    printf("picture     %s, WDR %s, colour transform %s\n",
           json_object_get_boolean(member(picture, "night")) ? "night" : "day",
           json_object_get_boolean(member(picture, "wdr")) ? "on" : "off",
           json_object_get_boolean(member(picture, "colour_transform")) ? "on" : "off");
    print_sound(member(status, "sound"));
    json_object *view = member(status, "view");
    if (view)
        printf("view        %.1f degrees right, %.1f down%s, %" PRId64 " moves\n",
               json_object_get_double(member(view, "right")), json_object_get_double(member(view, "down")),
               json_object_get_boolean(member(view, "turning")) ? ", turning" : "", number(view, "moves"));
}

void show(const char *text)
{
    if (tool.json) {
        puts(text);
        return;
    }
    std::unique_ptr<json_object, int (*)(json_object *)> status(json_tokener_parse(text), json_object_put);
    if (!status) {
        desk_say("the camera's answer is not JSON");
        return;
    }
    if (tool.watch && isatty(STDOUT_FILENO))
        fputs("\033[H\033[J", stdout);
    print_status(status.get());
    fflush(stdout);
}

void ask(void)
{
    tool.asked = shbfev_rcv_send_message(tool.receiver, STATUS_REQUEST, sizeof STATUS_REQUEST - 1) == 0;
}

int on_answer(void *, void *buffer)
{
    const char *text = static_cast<const char *>(buffer);
    const size_t length = shbf_size(buffer);
    // Others may have asked, too: only what we asked for is shown.
    if (tool.asked && length > 0 && text[length - 1] == '\0') {
        tool.asked = false;
        tool.answered = true;
        show(text);
        ev_timer_stop(tool.loop, &tool.patience);
        if (!tool.watch)
            ev_break(tool.loop, EVBREAK_ALL);
    }
    shbf_free(buffer);
    return 0;
}

int on_closed(void *, void *)
{
    desk_say("the camera has ended");
    ev_break(tool.loop, EVBREAK_ALL);
    return 0;
}

void on_knock(struct ev_loop *loop, ev_timer *watcher, int)
{
    if (!shbfev_rcv_connected(tool.receiver))
        return;
    ask();
    if (tool.watch) {
        watcher->repeat = WATCH_S;
        ev_timer_again(loop, watcher);
    } else {
        ev_timer_stop(loop, watcher);
    }
}

void on_patience(struct ev_loop *loop, ev_timer *, int)
{
    desk_say("no camera answers on %s%s", naro_root(), STATUS_PATH);
    ev_break(loop, EVBREAK_ALL);
}

void on_signal(struct ev_loop *loop, ev_signal *, int)
{
    ev_break(loop, EVBREAK_ALL);
}

enum { LONG_WATCH = 256, LONG_JSON };
const option long_options[] = {
    {"watch", no_argument, nullptr, LONG_WATCH},
    {"json", no_argument, nullptr, LONG_JSON},
    {"help", no_argument, nullptr, 'h'},
    {nullptr, 0, nullptr, 0},
};

// 0: go on, 1: done, -1: wrong.
int parse(int argc, char **argv)
{
    int choice;
    while ((choice = getopt_long(argc, argv, "h", long_options, nullptr)) != -1) {
        switch (choice) {
        case LONG_WATCH:
            tool.watch = true;
            break;
        case LONG_JSON:
            tool.json = true;
            break;
        case 'h':
            fputs(help, stdout);
            return 1;
        default:
            fputs("naro-status --help tells the options\n", stderr);
            return -1;
        }
    }
    if (optind == argc)
        return 0;
    desk_say("\"%s\" is no option", argv[optind]);
    return -1;
}

void run(void)
{
    ev_signal signals[2];
    ev_signal_init(&signals[0], on_signal, SIGINT);
    ev_signal_init(&signals[1], on_signal, SIGTERM);
    for (ev_signal &watcher : signals)
        ev_signal_start(tool.loop, &watcher);
    ev_timer_init(&tool.knock, on_knock, 0., KNOCK_S);
    ev_timer_init(&tool.patience, on_patience, ANSWER_S, 0.);
    ev_timer_start(tool.loop, &tool.knock);
    ev_timer_start(tool.loop, &tool.patience);
    ev_run(tool.loop, 0);
    ev_timer_stop(tool.loop, &tool.knock);
    ev_timer_stop(tool.loop, &tool.patience);
    for (ev_signal &watcher : signals)
        ev_signal_stop(tool.loop, &watcher);
}

} // namespace

int main(int argc, char **argv)
{
    desk_set_program("naro-status");
    const int parsed = parse(argc, argv);
    if (parsed != 0)
        return parsed > 0 ? 0 : 2;
    signal(SIGPIPE, SIG_IGN);
    if (desk_enter_root(false) != 0)
        return 1;
    tool.loop = ev_loop_new(EVFLAG_AUTO);
    tool.receiver = tool.loop ? shbfev_rcv_create(tool.loop, STATUS_PATH) : nullptr;
    if (!tool.receiver || shbf_rcv_global_init() < 0 ||
        shbfev_rcv_register(tool.receiver, SHBFEV_RCV_DATA, on_answer, nullptr) < 0 ||
        shbfev_rcv_register(tool.receiver, SHBFEV_RCV_CLOSED, on_closed, nullptr) < 0 ||
        shbfev_rcv_start(tool.receiver) < 0) {
        desk_say("%s cannot be listened to", STATUS_PATH);
        return 1;
    }
    run();
    shbfev_rcv_destroy(tool.receiver);
    shbf_rcv_global_exit();
    ev_loop_destroy(tool.loop);
    return tool.answered ? 0 : 1;
}
