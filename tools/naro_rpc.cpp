// naro-rpc: calls a method of the running daemon by its name.
#include <errno.h>
#include <getopt.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "desk.h"
#include "otrpc.h"

namespace
{

const char help[] =
    "usage: naro-rpc [--timeout SECONDS] METHOD\n"
    "\n"
    "Calls METHOD of the running daemon and prints the number that it returns. The daemon has\n"
    "\n"
    "  sd_umount, sd_format   nothing more is written to the SD card, until the setting sdcard_rw says rdwr "
    "again\n"
    "\n"
    "  --timeout SECONDS  how long to wait for the answer (default 5)\n"
    "  --help             this text\n"
    "\n"
    "NARO_ROOT says where the camera lives; without it the place is found by the same rule as naro_camera "
    "finds it.\n"
    "Exit status: 0, 1 when it could not be called, 2 for a wrong command.\n";

enum { FINE = 0, FAILED = 1, WRONG = 2, LONG_TIMEOUT = 256 };
const option long_options[] = {
    {"timeout", required_argument, nullptr, LONG_TIMEOUT},
    {"help", no_argument, nullptr, 'h'},
    {nullptr, 0, nullptr, 0},
};

const char *reason(int error)
{
    switch (error) {
    case -ENOENT:
    case -ECONNREFUSED:
        return "no daemon is running there";
    case -ENOSYS:
        return "the daemon has no such method";
    case -EINVAL:
        return "that is no method's name";
    case -ETIMEDOUT:
        return "no answer in time";
    default:
        return strerror(-error);
    }
}

} // namespace

int main(int argc, char **argv)
{
    desk_set_program("naro-rpc");
    double timeout_s = 5;
    int choice;
    while ((choice = getopt_long(argc, argv, "h", long_options, nullptr)) != -1) {
        char *end;
        switch (choice) {
        case LONG_TIMEOUT:
            timeout_s = strtod(optarg, &end);
            if (end == optarg || *end || !(timeout_s > 0) || timeout_s > 1e6) {
                desk_say("--timeout wants a number above 0, not \"%s\"", optarg);
                return WRONG;
            }
            break;
        case 'h':
            fputs(help, stdout);
            return FINE;
        default:
            fputs("naro-rpc --help tells the options\n", stderr);
            return WRONG;
        }
    }
    if (optind + 1 != argc) {
        fputs("naro-rpc --help tells the usage\n", stderr);
        return WRONG;
    }
    if (desk_enter_root(false) != 0)
        return FAILED;
    int result;
    const int error = otrpc_call(argv[optind], static_cast<int>(timeout_s * 1000), &result);
    if (error != 0) {
        desk_say("%s: %s", argv[optind], reason(error));
        return FAILED;
    }
    printf("%d\n", result);
    return fflush(stdout) == 0 ? FINE : FAILED;
}
