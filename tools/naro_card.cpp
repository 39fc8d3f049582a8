// naro-card: does things to the SD card of a running desk camera.
#include <ev.h>
#include <getopt.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <string>

#include "card.h"
#include "desk.h"
#include "naro_util.h"
#include "shbf.h"
#include "shbfev.h"

namespace
{

const char help[] =
    "usage: naro-card [COMMAND]\n"
    "\n"
    "Does something to the SD card of a running desk camera, and prints what has become of it.\n"
    "\n"
    "  state          prints it (the default)\n"
    "  insert         puts the card into its slot; sdcard_rw becomes rdwr\n"
    "  pull           takes it out, just so; the camera notices a second later\n"
    "  eject          asks the daemon to write nothing more (sd_umount), and takes it out\n"
    "  fill, free     makes it full; gives room again\n"
    "  lock, unlock   makes it read-only, and writable again; nobody is told\n"
    "  slow MS, fast  lets whoever opens the newest hour's file wait for so many milliseconds\n"
    "\n"
    "fill and lock want a card of its own size (naro_camera --card 64K). NARO_ROOT says where the camera "
    "lives; without\n"
    "it the place is found by the same rule as naro_camera finds it. Exit status: 0, 1 when it could not be "
    "done, 2 for\n"
    "a wrong command.\n";

const double KNOCK_S = 0.02, ANSWER_S = 5.;

struct {
    struct ev_loop *loop;
    void *receiver;
    std::string command = "state";
    bool asked;
    int result = 1;
    ev_timer knock, patience;
} tool;

int on_answer(void *, void *buffer)
{
    const char *text = static_cast<const char *>(buffer);
    const size_t length = shbf_size(buffer);
    if (tool.asked && length > 0 && text[length - 1] == '\0') {
        tool.result = strncmp(text, "cannot: ", 8) == 0;
        if (tool.result == 0)
            puts(text);
        else
            desk_say("%s", text);
        ev_break(tool.loop, EVBREAK_ALL);
    }
    shbf_free(buffer);
    return 0;
}

void on_knock(struct ev_loop *loop, ev_timer *watcher, int)
{
    if (!shbfev_rcv_connected(tool.receiver))
        return;
    tool.asked = shbfev_rcv_send_message(tool.receiver, tool.command.data(), tool.command.size()) == 0;
    ev_timer_stop(loop, watcher);
}

void on_patience(struct ev_loop *loop, ev_timer *, int)
{
    desk_say("no camera answers on %s%s", naro_root(), CARD_PATH);
    ev_break(loop, EVBREAK_ALL);
}

const option long_options[] = {{"help", no_argument, nullptr, 'h'}, {nullptr, 0, nullptr, 0}};

// -1: go on, or the exit status.
int parse(int argc, char **argv)
{
    int choice;
    while ((choice = getopt_long(argc, argv, "+h", long_options, nullptr)) != -1) {
        if (choice == 'h') {
            fputs(help, stdout);
            return 0;
        }
        fputs("naro-card --help tells the commands\n", stderr);
        return 2;
    }
    if (optind < argc)
        tool.command = argv[optind++];
    for (; optind < argc; optind++)
        tool.command += std::string(" ") + argv[optind];
    return -1;
}

} // namespace

int main(int argc, char **argv)
{
    desk_set_program("naro-card");
    const int parsed = parse(argc, argv);
    if (parsed >= 0)
        return parsed;
    signal(SIGPIPE, SIG_IGN);
    if (desk_enter_root(false) != 0)
        return 1;
    tool.loop = ev_loop_new(EVFLAG_AUTO);
    tool.receiver = tool.loop ? shbfev_rcv_create(tool.loop, CARD_PATH) : nullptr;
    if (!tool.receiver || shbf_rcv_global_init() < 0 ||
        shbfev_rcv_register(tool.receiver, SHBFEV_RCV_DATA, on_answer, nullptr) < 0 ||
        shbfev_rcv_start(tool.receiver) < 0) {
        desk_say("%s cannot be opened", CARD_PATH);
        return 1;
    }
    ev_timer_init(&tool.knock, on_knock, 0., KNOCK_S);
    ev_timer_init(&tool.patience, on_patience, ANSWER_S, 0.);
    ev_timer_start(tool.loop, &tool.knock);
    ev_timer_start(tool.loop, &tool.patience);
    ev_run(tool.loop, 0);
    ev_timer_stop(tool.loop, &tool.knock);
    ev_timer_stop(tool.loop, &tool.patience);
    shbfev_rcv_destroy(tool.receiver);
    shbf_rcv_global_exit();
    ev_loop_destroy(tool.loop);
    return fflush(stdout) == 0 ? tool.result : 1;
}
