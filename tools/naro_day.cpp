// naro-day: a day of the daemon's day/night controller in a second, as a line, as JSON, or the whole report.
#include <algorithm>
#include <getopt.h>
#include <iterator>
#include <math.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <string>
#include <unistd.h>

#include "report.h"

namespace
{

const char help[] =
    "usage: naro-day [options]\n"
    "\n"
    "Runs a day of the daemon's own day/night controller in fast time against the desk camera's board and "
    "ISP model, and "
    "says\n"
    "how often it switched, for how long it was in the wrong mode, and how often it moved the filter.\n"
    "\n"
    "  --day NAME         the light of the day (--list has the names); default clear\n"
    "  --seed N           another day of its kind; default 0\n"
    "  --mode N           light mode 0, 3, 4 or 5; default 3\n"
    "  --reflectance R    of the room, 0 to 1; default 0.4\n"
    "  --distance M       of what the camera looks at, in metres; its lamps fall off with the square; "
    "default 3\n"
    "  --vary NAME=F      a constant of the model times F; may be repeated (--list has the names)\n"
    "  --other-sensor     as with the file /tmp/SSC3338\n"
    "  --switches         also every switch, with the sample that decided\n"
    "  --json             the result as JSON\n"
    "  --list             days and constants\n"
    "  --report           everything that docs/light.md shows, as JSON: all days, modes and reflectances, "
    "each constant\n"
    "                     20 % up and down, maps\n"
    "  --jobs N           of the report at a time; default: as many as there are processors\n"
    "  --help             this text\n";

std::string clock_of(double seconds)
{
    const long whole_s = lround(floor(fmod(DAY_BEGINS_HOUR * 3600 + seconds, 86400)));
    char text[32];
    snprintf(text, sizeof text, "%02ld:%02ld:%02ld", whole_s / 3600, whole_s / 60 % 60, whole_s % 60);
    return text;
}

std::string run_text(const day_run_settings &what, const day_result &result, bool switches)
{
    char line[400];
    const auto to_night = std::count_if(result.switches.begin(), result.switches.end(),
                                        [](const day_switch &one) { return one.to_night; });
    snprintf(
        line, sizeof line,
        "%s, mode %d, reflectance %g: %ld to night, %ld to day, wrong %.0f s (%.0f night in the light, %.0f "
        "day in "
        "the dark), %llu pulses of the coil, filter moved %llu times, white LED lit %llu times for %.0f s\n",
        day_kinds[what.day].name, what.mode, what.reflectance, static_cast<long>(to_night),
        static_cast<long>(result.switches.size()) - static_cast<long>(to_night),
        result.wrong_night_s + result.wrong_day_s, result.wrong_night_s, result.wrong_day_s,
        static_cast<unsigned long long>(result.pulses), static_cast<unsigned long long>(result.moves),
        static_cast<unsigned long long>(result.white_lit), result.white_s);
    std::string text = line;
    if (!switches)
        return text;
    for (const day_switch &one : result.switches) {
        const ircut_sample &s = one.sample;
        snprintf(line, sizeof line,
                 "  %s %s at %.3f lux: ev=%u bv=%d expr_us=%u again=%u gain_sum=%d rgain=%d bgain=%d",
                 clock_of(one.seconds).c_str(), one.to_night ? "night" : "day  ", one.lux, s.ev,
                 static_cast<int>(s.bv), s.expr_us, s.again, s.gain_sum, s.rgain, s.bgain);
        text += line;
        for (int bit = 0; bit < 8; bit++)
            if (one.reasons >> bit & 1)
                text += std::string(" condition ") + std::to_string(bit + 1);
        text += '\n';
    }
    return text;
}

// ---- Command line ----------------------------------------------------------------------------------------------------

[[noreturn]] void bad(const char *option, const char *text)
{
    fprintf(stderr, "naro-day: --%s cannot be \"%s\"; see --help\n", option, text);
    exit(2);
}

double read_number(const char *option, const char *text, double low, double high)
{
    char *end;
    const double value = strtod(text, &end);
    if (end == text || *end || !(value >= low && value <= high))
        bad(option, text);
    return value;
}

int read_day(const char *text)
{
    for (int day = 0; day < DAY_KINDS; day++)
        if (strcmp(day_kinds[day].name, text) == 0)
            return day;
    bad("day", text);
}

std::pair<int, double> read_variation(const char *text)
{
    const char *equals = strchr(text, '=');
    for (int number = 0; equals && number < DAY_CONSTANTS; number++)
        if (std::string(text, equals) == day_constants[number].name)
            return {number, read_number("vary", equals + 1, 0.01, 100)};
    bad("vary", text);
}

void list(void)
{
    printf("days:\n");
    for (int day = 0; day < DAY_KINDS; day++)
        printf("  %-12s %s\n", day_kinds[day].name, day_kinds[day].what);
    printf("constants:\n");
    for (const day_constant *one = day_constants; one < day_constants + DAY_CONSTANTS; one++) {
        day_settings plain = {};
        printf("  %-24s %g\n", one->name, *one->of(&plain));
    }
}

} // namespace

int main(int argc, char **argv)
{
    enum {
        DAY = 1,
        SEED,
        MODE,
        REFLECTANCE,
        DISTANCE,
        VARY,
        OTHER,
        SWITCHES,
        JSON,
        LIST,
        REPORT,
        JOBS,
        HELP
    };
    const option options[] = {
        {"day", required_argument, nullptr, DAY},
        {"seed", required_argument, nullptr, SEED},
        {"mode", required_argument, nullptr, MODE},
        {"reflectance", required_argument, nullptr, REFLECTANCE},
        {"distance", required_argument, nullptr, DISTANCE},
        {"vary", required_argument, nullptr, VARY},
        {"other-sensor", no_argument, nullptr, OTHER},
        {"switches", no_argument, nullptr, SWITCHES},
        {"json", no_argument, nullptr, JSON},
        {"list", no_argument, nullptr, LIST},
        {"report", no_argument, nullptr, REPORT},
        {"jobs", required_argument, nullptr, JOBS},
        {"help", no_argument, nullptr, HELP},
        {nullptr, 0, nullptr, 0},
    };
    day_run_settings what;
    bool switches = false, json = false, whole_report = false;
    int jobs = std::max(1, static_cast<int>(sysconf(_SC_NPROCESSORS_ONLN)));
    for (int found; (found = getopt_long(argc, argv, "", options, nullptr)) != -1;) {
        switch (found) {
        case DAY:
            what.day = read_day(optarg);
            break;
        case SEED:
            what.seed = static_cast<unsigned>(read_number("seed", optarg, 0, 1e9));
            break;
        case MODE:
            what.mode = static_cast<int>(read_number("mode", optarg, 0, 5));
            if (std::find(std::begin(day_modes), std::end(day_modes), what.mode) == std::end(day_modes))
                bad("mode", optarg);
            break;
        case REFLECTANCE:
            what.reflectance = read_number("reflectance", optarg, 0.001, 1);
            break;
        case DISTANCE:
            what.distance = read_number("distance", optarg, 0.1, 100);
            break;
        case VARY:
            what.varied.push_back(read_variation(optarg));
            break;
        case OTHER:
            what.other_sensor = true;
            break;
        case SWITCHES:
            switches = true;
            break;
        case JSON:
            json = true;
            break;
        case LIST:
            list();
            return 0;
        case REPORT:
            whole_report = true;
            break;
        case JOBS:
            jobs = static_cast<int>(read_number("jobs", optarg, 1, 1000));
            break;
        case HELP:
            fputs(help, stdout);
            return 0;
        default:
            fputs(help, stderr);
            return 2;
        }
    }
    if (optind < argc)
        bad("", argv[optind]);
    if (whole_report) {
        day_report(jobs);
        return 0;
    }
    what.timeline = json;
    const std::string text = day_job_finish(day_job_start([&] {
        day_light light;
        day_result result;
        if (!day_run_here(what, &light, &result))
            return std::string();
        return json ? day_run_json(what, result, switches ? SIZE_MAX : 0) + "\n"
                    : run_text(what, result, switches);
    }));
    fputs(text.c_str(), stdout);
    return 0;
}
