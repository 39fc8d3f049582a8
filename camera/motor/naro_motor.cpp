// The process that turns the camera's head: reads the daemon's rotate requests from the mailbox, moves as
// motor_model.h says, and shows the camera where the view is. Or, asked with --turn, leaves a request itself.
#include <errno.h>
#include <fcntl.h>
#include <getopt.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <string>
#include <sys/file.h>

#include "desk.h"
#include "libvardex.h"
#include "motor_driver.h"
#include "motor_request.h"
#include "naro_util.h"

namespace
{

const char help[] =
    "usage: naro_motor [--set KEY=VALUE]... | --turn H,V\n"
    "\n"
    "The pan-tilt motor of a camera on a desk; naro_camera starts it.\n"
    "\n"
    "  --set KEY=VALUE  another motor than the usual one; may be repeated. Keys and usual values:\n";
const char help_turn[] =
    "  --turn H,V       turn the view by whole degrees, to the right and downwards, the way the daemon does: "
    "by a\n"
    "                   request in the mailbox; waits until the motor has moved\n"
    "  --help           this text\n";

enum { LONG_SET = 256, LONG_TURN };
const option long_options[] = {
    {"set", required_argument, nullptr, LONG_SET},
    {"turn", required_argument, nullptr, LONG_TURN},
    {"help", no_argument, nullptr, 'h'},
    {nullptr, 0, nullptr, 0},
};

enum {
    SEGMENT_LOOK_MS = 1000, // how often the segment behind the key is looked for
    TURN_PATIENCE_MS = 20000,
};

const char LOCK_PATH[] = "/run/naro/motor_lock";
const char LAYER[] = "nvram", KEY[] = "motor";

struct {
    motor_parameters parameters;
    const char *turn;
    void *store;
    int segment = -1;
    motor_mailbox *mailbox;
    uint64_t looked_ms;
    bool trouble_told;
} motor;
volatile sig_atomic_t quit;

void show_help(void)
{
    fputs(help, stdout);
    for (const std::string &key : motor_keys())
        printf("                     %-18s %g\n", key.c_str(),
               motor_parameter_get(&motor.parameters, key.c_str()));
    fputs(help_turn, stdout);
}

int parse(int argc, char **argv)
{
    int choice;
    std::string error;
    motor.parameters = motor_parameters_usual();
    while ((choice = getopt_long(argc, argv, "h", long_options, nullptr)) != -1) {
        switch (choice) {
        case LONG_SET:
            if (motor_parameter_set(&motor.parameters, optarg, &error) != 0) {
                desk_say("--set \"%s\": %s", optarg, error.c_str());
                return -1;
            }
            break;
        case LONG_TURN:
            motor.turn = optarg;
            break;
        case 'h':
            show_help();
            return 1;
        default:
            fputs("naro_motor --help tells the options\n", stderr);
            return -1;
        }
    }
    if (optind < argc) {
        desk_say("\"%s\" is no option", argv[optind]);
        return -1;
    }
    return 0;
}

bool publish(const char *text)
{
    return motor.store &&
           libvardex_set_value(motor.store, LAYER, nullptr, KEY, VARDEX_TEXT, text, 0, 0, 0, 0) == 1;
}

char *published(void)
{
    return libvardex_config_get(0, LAYER, nullptr, KEY);
}

void tell(const motor_driver_report *report)
{
    const auto degrees = [](const motor_state &state, motor_axis axis) {
        return motor_degrees(&motor.parameters, &state.axis[axis]);
    };
    printf("%llu %s: [%d,%d] -> [%d,%d] in %llu ms\n", static_cast<unsigned long long>(report->taken_ms),
           report->text, degrees(report->from, MOTOR_PAN), degrees(report->from, MOTOR_TILT),
           degrees(report->to, MOTOR_PAN), degrees(report->to, MOTOR_TILT),
           static_cast<unsigned long long>(report->ended_ms - report->taken_ms));
}

// The mailbox behind the key, which somebody may have removed and made anew. Null after saying why, once.
motor_mailbox *find_mailbox(void)
{
    const int segment = motor_mailbox_get();
    if (segment >= 0 && segment == motor.segment)
        return motor.mailbox;
    if (motor.mailbox)
        shmdt(motor.mailbox);
    motor.segment = -1;
    motor.mailbox = segment >= 0 ? motor_mailbox_map(segment) : nullptr;
    if (motor.mailbox)
        motor.segment = segment;
    else if (!motor.trouble_told)
        desk_say("the mailbox (key %d): %s", MOTOR_MAILBOX_KEY, strerror(errno));
    motor.trouble_told = !motor.mailbox;
    return motor.mailbox;
}

void on_signal(int)
{
    quit = 1;
}

void handle_signals(void)
{
    struct sigaction action = {};
    action.sa_handler = on_signal;
    for (int number : {SIGINT, SIGTERM, SIGQUIT, SIGHUP})
        sigaction(number, &action, nullptr);
}

// One head has one driver. The lock ends with the process, however that ends. False after saying why.
bool be_the_only_one(void)
{
    const int file = naro_open(LOCK_PATH, O_RDWR | O_CREAT | O_NOFOLLOW, 0600);
    if (file >= 0 && flock(file, LOCK_EX | LOCK_NB) == 0)
        return true; // and stays open
    if (file >= 0 && errno == EWOULDBLOCK)
        desk_say("another motor drives this camera already");
    else
        desk_say("%s%s: %s", naro_root(), LOCK_PATH, strerror(errno));
    return false;
}

int drive(void)
{
    if (!be_the_only_one())
        return 1;
    motor_view_file *view = motor_view_open(false);
    if (!view) {
        desk_say("%s%s: %s", naro_root(), MOTOR_VIEW_PATH, strerror(errno));
        return 1;
    }
    motor.store = libvardex_config_open(0);
    motor_driver_settings settings = {motor.parameters, find_mailbox(), view, publish, published, tell};
    motor.looked_ms = naro_clock_monotonic_ms();
    motor_driver_start(&settings, motor.looked_ms);
    while (!quit) {
        const uint64_t now = naro_clock_monotonic_ms();
        if (now - motor.looked_ms >= SEGMENT_LOOK_MS) {
            const int before = motor.segment;
            motor_mailbox *const found = find_mailbox();
            if (motor.segment != before)
                motor_driver_mailbox(found);
            motor.looked_ms = now;
        }
        naro_clock_sleep_ms(motor_driver_round(now));
    }
    motor_driver_stop(naro_clock_monotonic_ms());
    libvardex_close(motor.store);
    motor_view_close(view);
    return 0;
}

// Leaves the request and waits until the mailbox is free again.
int turn(void)
{
    motor_request request;
    const std::string text = "[" + std::string(motor.turn) + ",0]";
    if (text.size() >= MOTOR_MAILBOX_TEXT_BYTES ||
        !motor_request_parse(text.c_str(), text.size() + 1, &request)) {
        desk_say("--turn wants H,V in whole degrees, not \"%s\"", motor.turn);
        return 2;
    }
    if (!find_mailbox())
        return 1;
    bool left = false;
    for (unsigned waited = 0; waited < TURN_PATIENCE_MS; waited += MOTOR_DRIVER_LOOK_MS) {
        char unused[MOTOR_MAILBOX_TEXT_BYTES];
        if (!left)
            left = motor_mailbox_put(motor.mailbox, text.c_str()) == MOTOR_MAILBOX_DONE;
        else if (motor_mailbox_read(motor.mailbox, unused) == MOTOR_MAILBOX_NOT_NOW)
            return 0;
        naro_clock_sleep_ms(MOTOR_DRIVER_LOOK_MS);
    }
    desk_say(left ? "no motor has taken the request" : "the mailbox is not to be had");
    return 1;
}

} // namespace

int main(int argc, char **argv)
{
    desk_set_program("naro_motor");
    setvbuf(stdout, nullptr, _IOLBF, 0);
    const int parsed = parse(argc, argv);
    if (parsed != 0)
        return parsed > 0 ? 0 : 2;
    if (motor.turn)
        return turn();
    handle_signals();
    signal(SIGPIPE, SIG_IGN);
    if (desk_enter_root(true) != 0)
        return 1;
    return drive();
}
