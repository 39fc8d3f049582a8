// naro-events: prints what is broadcast on a channel, one line an event.
#include <ctype.h>
#include <errno.h>
#include <ev.h>
#include <getopt.h>
#include <inttypes.h>
#include <json-c/json.h>
#include <memory>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <string>
#include <time.h>
#include <unistd.h>

#include "desk.h"
#include "event_channels.h"
#include "events.h"
#include "naro_util.h"
#include "shbf.h"
#include "shbfev.h"

namespace
{

const char help[] =
    "usage: naro-events [options]\n"
    "\n"
    "Prints what the daemon broadcasts, one line an event, with the time of its arrival. Waits for a daemon "
    "that is\n"
    "not there yet, and for one that comes back.\n"
    "\n"
    "  --channel NAME   md: motion, people, day and night (the default); lsd: sounds; motor: rotate "
    "requests;\n"
    "                   or the path of any channel\n"
    "  --json           one JSON object a line\n"
    "  --count N        end after N events\n"
    "  --help           this text\n"
    "\n"
    "A message on md is a name, on motor a text; one on lsd is a number of 4 bytes, the time of a sound in "
    "seconds since\n"
    "1970, and is printed as " EVENT_LOUD_SOUND
    " with that time. What is none of that, and messages of other "
    "channels that\n"
    "are no text, are printed as bytes. NARO_ROOT says where the camera lives; without it the place is found "
    "by the same\n"
    "rule as naro_camera finds it.\n";

const double ALONE_S = 0.5; // how long nobody may be there before it is said

enum kind { KIND_NAME, KIND_NUMBER, KIND_TEXT };

struct channel {
    const char *name;
    const char *path;
    kind what;
};
const channel channels[] = {
    {"md", EVENT_PATH_MD, KIND_NAME},
    {"lsd", EVENT_PATH_LSD, KIND_NUMBER},
    {"motor", EVENT_PATH_MOTOR, KIND_TEXT},
};

enum { LONG_CHANNEL = 256, LONG_JSON, LONG_COUNT };
const option long_options[] = {
    {"channel", required_argument, nullptr, LONG_CHANNEL},
    {"json", no_argument, nullptr, LONG_JSON},
    {"count", required_argument, nullptr, LONG_COUNT},
    {"help", no_argument, nullptr, 'h'},
    {nullptr, 0, nullptr, 0},
};

struct {
    struct ev_loop *loop;
    const char *path = EVENT_PATH_MD;
    kind what = KIND_NAME;
    bool json;
    uint64_t left; // events until the end; 0: no end
} tool;

const channel *find_channel(const char *path)
{
    for (const channel &candidate : channels)
        if (strcmp(candidate.path, path) == 0)
            return &candidate;
    return nullptr;
}

bool choose_channel(const char *wanted)
{
    for (const channel &candidate : channels)
        if (strcmp(candidate.name, wanted) == 0)
            wanted = candidate.path;
    if (wanted[0] != '/') {
        desk_say("--channel wants md, lsd, motor or a path, not \"%s\"", wanted);
        return false;
    }
    const channel *known = find_channel(wanted);
    tool.path = wanted;
    tool.what = known ? known->what : KIND_TEXT;
    return true;
}

bool read_count(const char *text)
{
    char *end;
    errno = 0;
    tool.left = strtoull(text, &end, 10);
    if (isdigit(static_cast<unsigned char>(text[0])) && !*end && errno == 0 && tool.left > 0)
        return true;
    desk_say("--count wants a number from 1, not \"%s\"", text);
    return false;
}

// "2026-11-21 05:12:33.120", in local time.
std::string wall_time(uint64_t ms)
{
    const time_t seconds = static_cast<time_t>(ms / 1000);
    tm parts;
    char text[64] = "";
    localtime_r(&seconds, &parts);
    const size_t used = strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &parts);
    snprintf(text + used, sizeof text - used, ".%03u", static_cast<unsigned>(ms % 1000));
    return text;
}

// What a message says, in `text` or *number; false when it can only be shown as bytes.
bool understand(const uint8_t *message, size_t length, std::string *text, uint32_t *number)
{
    if (tool.what == KIND_NUMBER) {
        if (length != 4)
            return false;
        *number = message[0] | static_cast<uint32_t>(message[1]) << 8 |
                  static_cast<uint32_t>(message[2]) << 16 | static_cast<uint32_t>(message[3]) << 24;
        // The daemon writes the time of the question that was answered with a sound.
        *text = EVENT_LOUD_SOUND "  at " +
                wall_time(uint64_t{*number} * 1000).substr(0, sizeof "YYYY-MM-DD HH:MM:SS" - 1);
        return true;
    }
    // A text may lie in a larger room of its own, filled up with zeros.
    while (tool.what == KIND_TEXT && length >= 2 && message[length - 2] == 0 && message[length - 1] == 0)
        length--;
    return event_name(message, length, text);
}

std::string hexadecimal(const uint8_t *message, size_t length)
{
    enum { SHOWN_MAX = 64 };
    std::string text;
    for (size_t i = 0; i < length && i < SHOWN_MAX; i++) {
        char byte[4];
        snprintf(byte, sizeof byte, "%02x", message[i]);
        text += byte;
    }
    return length > SHOWN_MAX ? text + "..." : text;
}

void print_line(const uint8_t *message, size_t length)
{
    const uint64_t now = time_realtime_ms();
    std::string text;
    uint32_t number = 0;
    if (understand(message, length, &text, &number))
        printf("%s  %s\n", wall_time(now).c_str(), text.c_str());
    else
        printf("%s  %zu bytes: %s\n", wall_time(now).c_str(), length, hexadecimal(message, length).c_str());
}

void print_json(const uint8_t *message, size_t length)
{
    std::unique_ptr<json_object, int (*)(json_object *)> line(json_object_new_object(), json_object_put);
    std::string text;
    uint32_t number = 0;
    json_object_object_add(line.get(), "time_ms",
                           json_object_new_int64(static_cast<int64_t>(time_realtime_ms())));
    json_object_object_add(line.get(), "channel", json_object_new_string(tool.path));
    if (!understand(message, length, &text, &number))
        json_object_object_add(line.get(), "bytes",
                               json_object_new_string(hexadecimal(message, length).c_str()));
    else if (tool.what == KIND_NUMBER) {
        json_object_object_add(line.get(), "event", json_object_new_string(EVENT_LOUD_SOUND));
        json_object_object_add(line.get(), "number", json_object_new_int64(number));
    } else
        json_object_object_add(line.get(), "event", json_object_new_string(text.c_str()));
    puts(json_object_to_json_string_ext(line.get(), JSON_C_TO_STRING_PLAIN | JSON_C_TO_STRING_NOSLASHESCAPE));
}

int on_message(void *, void *buffer)
{
    const uint8_t *message = static_cast<const uint8_t *>(buffer);
    if (tool.json)
        print_json(message, shbf_size(buffer));
    else
        print_line(message, shbf_size(buffer));
    shbf_free(buffer);
    if (ferror(stdout) || (tool.left > 0 && --tool.left == 0))
        ev_break(tool.loop, EVBREAK_ALL);
    return 0;
}

int on_closed(void *, void *)
{
    desk_say("%s has closed; waiting for it to come back", tool.path);
    return 0;
}

void on_alone(struct ev_loop *, ev_timer *watcher, int)
{
    if (!shbfev_rcv_connected(watcher->data))
        desk_say("waiting for %s%s", naro_root(), tool.path);
}

void on_signal(struct ev_loop *loop, ev_signal *, int)
{
    ev_break(loop, EVBREAK_ALL);
}

// 0: go on, 1: done, -1: wrong.
int parse(int argc, char **argv)
{
    int choice;
    while ((choice = getopt_long(argc, argv, "h", long_options, nullptr)) != -1) {
        switch (choice) {
        case LONG_CHANNEL:
            if (!choose_channel(optarg))
                return -1;
            break;
        case LONG_JSON:
            tool.json = true;
            break;
        case LONG_COUNT:
            if (!read_count(optarg))
                return -1;
            break;
        case 'h':
            fputs(help, stdout);
            return 1;
        default:
            fputs("naro-events --help tells the options\n", stderr);
            return -1;
        }
    }
    if (optind == argc)
        return 0;
    desk_say("\"%s\" is no option", argv[optind]);
    return -1;
}

int listen_on(void)
{
    void *receiver = shbfev_rcv_create(tool.loop, tool.path);
    if (shbf_rcv_global_init() < 0 || !receiver ||
        shbfev_rcv_register(receiver, SHBFEV_RCV_DATA, on_message, nullptr) < 0 ||
        shbfev_rcv_register(receiver, SHBFEV_RCV_CLOSED, on_closed, nullptr) < 0 ||
        shbfev_rcv_start(receiver) < 0) {
        desk_say("%s cannot be listened to", tool.path);
        return -1;
    }
    ev_timer alone;
    ev_timer_init(&alone, on_alone, ALONE_S, 0.);
    alone.data = receiver;
    ev_timer_start(tool.loop, &alone);
    ev_run(tool.loop, 0);
    ev_timer_stop(tool.loop, &alone);
    shbfev_rcv_destroy(receiver);
    shbf_rcv_global_exit();
    return 0;
}

} // namespace

int main(int argc, char **argv)
{
    desk_set_program("naro-events");
    const int parsed = parse(argc, argv);
    if (parsed != 0)
        return parsed > 0 ? 0 : 2;
    setvbuf(stdout, nullptr, _IOLBF, 0);
    signal(SIGPIPE, SIG_IGN);
    if (desk_enter_root(true) != 0)
        return 1;
    tool.loop = ev_loop_new(EVFLAG_AUTO);
    if (!tool.loop)
        return 1;
    ev_signal signals[2];
    ev_signal_init(&signals[0], on_signal, SIGINT);
    ev_signal_init(&signals[1], on_signal, SIGTERM);
    for (ev_signal &watcher : signals)
        ev_signal_start(tool.loop, &watcher);
    const int result = listen_on();
    for (ev_signal &watcher : signals)
        ev_signal_stop(tool.loop, &watcher);
    ev_loop_destroy(tool.loop);
    return result == 0 ? 0 : 1;
}
