// naro-day: a day of the daemon's day/night controller in a second, as a line, as JSON, or the whole report.
#include <algorithm>
#include <errno.h>
#include <fcntl.h>
#include <functional>
#include <getopt.h>
#include <json.h>
#include <math.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include "day.h"
#include "maps.h"

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

const double REFLECTANCES[] = {0.05, 0.1, 0.2, 0.4, 0.6, 0.8, 0.95};
const double DISTANCES[] = {3, 2, 1.5, 1, 0.5};
const int MODES[] = {0, 3, 4, 5};
const double LAMPS_MEASURED_AT_M = 3;

// ---- Constants -------------------------------------------------------------------------------------------------------

struct constant {
    const char *name;
    double *(*of)(day_settings *settings);
};
#define ISP(member)                                                                                          \
    {                                                                                                        \
#member, [](day_settings * settings) { return &settings->isp.member; }                               \
    }
#define PROGRAM(member)                                                                                      \
    {                                                                                                        \
#member, [](day_settings * settings) { return &settings->isp.program.member; }                       \
    }
#define ROOM(member)                                                                                         \
    {                                                                                                        \
#member, [](day_settings * settings) { return &settings->room.member; }                              \
    }
const constant constants[] = {
    ISP(ev_per_luminance),
    ISP(f_number),
    ISP(iso_speed),
    ISP(bv_reference),
    ISP(bv_per_stop),
    ISP(visible_through_filter),
    ISP(infrared_through_filter),
    ISP(red_visible),
    ISP(blue_visible),
    ISP(red_infrared),
    ISP(blue_infrared),
    ISP(noise_luminance),
    ISP(lag_s),
    PROGRAM(shortest_us),
    PROGRAM(flicker_us),
    PROGRAM(frame_us),
    PROGRAM(slow_us),
    PROGRAM(longest_us),
    PROGRAM(again_low),
    PROGRAM(again_mid),
    PROGRAM(again_high),
    PROGRAM(dgain_high),
    ROOM(infrared_of_daylight),
    ROOM(white_led_lux),
    ROOM(ir_led),
};

// ---- Runs ------------------------------------------------------------------------------------------------------------

struct run {
    int day = 0, mode = 3;
    double reflectance = 0.4, distance = LAMPS_MEASURED_AT_M;
    std::vector<std::pair<int, double>> varied; // number of a constant, factor
    bool other_sensor = false;
    bool timeline = false; // the report draws it
};

// In a process of its own: the modules keep state, and the root is read once. What `write` gives comes back.
struct job {
    pid_t pid;
    int fd;
};

void remove_tree(const std::string &path)
{
    const std::string command = "rm -rf -- '" + path + "'";
    if (system(command.c_str()) != 0)
        fprintf(stderr, "naro-day: %s could not be removed\n", path.c_str());
}

bool run_here(const run &what, day_light *light, day_result *result)
{
    const char *base = access("/dev/shm", W_OK) == 0 ? "/dev/shm" : getenv("TMPDIR");
    std::string root = std::string(base ? base : "/tmp") + "/naro-day-XXXXXX";
    if (!mkdtemp(&root[0]) || setenv("NARO_ROOT", root.c_str(), 1) != 0) {
        fprintf(stderr, "naro-day: %s: %s\n", root.c_str(), strerror(errno));
        return false;
    }
    day_kinds[what.day].make(light);
    day_settings settings = {};
    settings.light = light;
    settings.mode = what.mode;
    settings.room.reflectance = what.reflectance;
    const double nearer = LAMPS_MEASURED_AT_M / what.distance;
    for (double *lamp : {&settings.room.white_led_lux, &settings.room.ir_led, &settings.room.ir_lamp})
        *lamp *= nearer * nearer;
    settings.other_sensor = what.other_sensor;
    for (const auto &[number, factor] : what.varied)
        *constants[number].of(&settings) *= factor;
    const bool done = day_run(&settings, result);
    remove_tree(root);
    return done;
}

job start(const std::function<std::string()> &work)
{
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) {
        perror("naro-day: pipe");
        exit(1);
    }
    fflush(stdout);
    const pid_t pid = fork();
    if (pid < 0) {
        perror("naro-day: fork");
        exit(1);
    }
    if (pid > 0) {
        close(ends[1]);
        return {pid, ends[0]};
    }
    // The modules' own words are of no use here.
    const int nothing = open("/dev/null", O_WRONLY | O_CLOEXEC);
    if (nothing >= 0)
        dup2(nothing, STDERR_FILENO);
    const std::string text = work();
    for (size_t at = 0; at < text.size();) {
        const ssize_t count = write(ends[1], text.data() + at, text.size() - at);
        if (count <= 0)
            _exit(1);
        at += static_cast<size_t>(count);
    }
    _exit(0);
}

std::string finish(const job &one)
{
    std::string text;
    char part[4096];
    for (ssize_t count; (count = read(one.fd, part, sizeof part)) > 0;)
        text.append(part, static_cast<size_t>(count));
    close(one.fd);
    int status;
    if (waitpid(one.pid, &status, 0) != one.pid || status != 0 || text.empty()) {
        fprintf(stderr, "naro-day: a run has failed\n");
        exit(1);
    }
    return text;
}

// ---- Words -----------------------------------------------------------------------------------------------------------

json_object *number(double value, int digits)
{
    char text[40];
    snprintf(text, sizeof text, "%.*f", digits, value);
    return json_object_new_double_s(strtod(text, nullptr), text);
}

json_object *short_number(double value)
{
    char text[40];
    snprintf(text, sizeof text, "%g", value);
    return json_object_new_double_s(value, text);
}

json_object *whole(double value)
{
    return json_object_new_int64(llround(value));
}

json_object *sample_json(const day_switch &one)
{
    const ircut_sample &s = one.sample;
    json_object *object = json_object_new_object();
    json_object_object_add(object, "s", number(one.seconds, 1));
    json_object_object_add(object, "to", json_object_new_string(one.to_night ? "night" : "day"));
    json_object_object_add(object, "lux", number(one.lux, 3));
    json_object_object_add(object, "ev", whole(s.ev));
    json_object_object_add(object, "bv", whole(static_cast<int32_t>(s.bv)));
    json_object_object_add(object, "expr_us", whole(s.expr_us));
    json_object_object_add(object, "again", whole(s.again));
    json_object_object_add(object, "rgain", whole(s.rgain));
    json_object_object_add(object, "bgain", whole(s.bgain));
    json_object_object_add(object, "gain_sum", whole(s.gain_sum));
    json_object *reasons = json_object_new_array();
    for (int bit = 0; bit < 8; bit++)
        if (one.reasons >> bit & 1)
            json_object_array_add(reasons, json_object_new_int(bit + 1));
    json_object_object_add(object, "conditions", reasons);
    return object;
}

// The day in bins: the share of each that was night, 0 to 9.
std::string timeline(const day_result &result)
{
    const double bin_s = 300;
    std::vector<double> night(static_cast<size_t>(DAY_S / bin_s), 0.);
    const auto add = [&](double from, double to) {
        for (size_t bin = 0; bin < night.size(); bin++) {
            const double begin = static_cast<double>(bin) * bin_s;
            night[bin] += std::max(0., std::min(to, begin + bin_s) - std::max(from, begin));
        }
    };
    double since = -1;
    for (const day_switch &one : result.switches) {
        if (one.to_night)
            since = one.seconds;
        else
            add(since, one.seconds);
    }
    if (!result.switches.empty() && result.switches.back().to_night)
        add(since, DAY_S);
    std::string text;
    for (double seconds : night)
        text += static_cast<char>('0' + std::min(9., ceil(seconds / bin_s * 9 - 1e-6)));
    return text;
}

json_object *run_json(const run &what, const day_result &result, size_t switches)
{
    json_object *object = json_object_new_object();
    json_object_object_add(object, "day", json_object_new_string(day_kinds[what.day].name));
    json_object_object_add(object, "mode", json_object_new_int(what.mode));
    json_object_object_add(object, "reflectance", short_number(what.reflectance));
    if (what.distance != LAMPS_MEASURED_AT_M)
        json_object_object_add(object, "distance_m", short_number(what.distance));
    for (const auto &[constant, factor] : what.varied) {
        json_object_object_add(object, "constant", json_object_new_string(constants[constant].name));
        json_object_object_add(object, "factor", short_number(factor));
    }
    const auto to_night = std::count_if(result.switches.begin(), result.switches.end(),
                                        [](const day_switch &one) { return one.to_night; });
    json_object_object_add(object, "to_night", json_object_new_int64(to_night));
    json_object_object_add(object, "to_day",
                           json_object_new_int64(static_cast<int64_t>(result.switches.size()) - to_night));
    json_object_object_add(object, "wrong_night_s", whole(result.wrong_night_s));
    json_object_object_add(object, "wrong_day_s", whole(result.wrong_day_s));
    json_object_object_add(object, "night_s", whole(result.night_s));
    json_object_object_add(object, "pulses", json_object_new_int64(static_cast<int64_t>(result.pulses)));
    json_object_object_add(object, "moves", json_object_new_int64(static_cast<int64_t>(result.moves)));
    json_object_object_add(object, "breaches", json_object_new_int64(static_cast<int64_t>(result.breaches)));
    if (result.white_lit) {
        json_object_object_add(object, "white_lit",
                               json_object_new_int64(static_cast<int64_t>(result.white_lit)));
        json_object_object_add(object, "white_s", whole(result.white_s));
    }
    if (day_period_s(&result) > 0)
        json_object_object_add(object, "period_s", number(day_period_s(&result), 1));
    if (what.timeline)
        json_object_object_add(object, "night", json_object_new_string(timeline(result).c_str()));
    if (switches > 0) {
        json_object *list = json_object_new_array();
        for (size_t i = 0; i < std::min(switches, result.switches.size()); i++)
            json_object_array_add(list, sample_json(result.switches[i]));
        json_object_object_add(object, "switches", list);
    }
    return object;
}

std::string text_of(json_object *object)
{
    const std::string text = json_object_to_json_string_ext(object, JSON_C_TO_STRING_PLAIN);
    json_object_put(object);
    return text;
}

std::string clock_of(double seconds)
{
    const long whole_s = lround(floor(fmod(DAY_BEGINS_HOUR * 3600 + seconds, 86400)));
    char text[32];
    snprintf(text, sizeof text, "%02ld:%02ld:%02ld", whole_s / 3600, whole_s / 60 % 60, whole_s % 60);
    return text;
}

std::string run_text(const run &what, const day_result &result, bool switches)
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

// ---- The report ------------------------------------------------------------------------------------------------------

enum { SWITCHES_REPORTED = 4 };

std::vector<run> report_runs(void)
{
    std::vector<run> runs;
    for (int day = 0; day < DAY_KINDS; day++)
        for (int mode : MODES)
            for (double reflectance : REFLECTANCES) {
                run one;
                one.day = day;
                one.mode = mode;
                one.reflectance = reflectance;
                one.timeline = true;
                runs.push_back(one);
            }
    for (int mode : MODES)
        for (double reflectance : REFLECTANCES) {
            for (double distance : DISTANCES) {
                run one;
                one.mode = mode;
                one.reflectance = reflectance;
                one.distance = distance;
                if (distance != LAMPS_MEASURED_AT_M && mode != 0)
                    runs.push_back(one);
            }
            for (int number = 0; number < static_cast<int>(std::size(constants)); number++)
                for (double factor : {0.8, 1.2}) {
                    run one;
                    one.mode = mode;
                    one.reflectance = reflectance;
                    one.varied = {{number, factor}};
                    if (mode != 0)
                        runs.push_back(one);
                }
        }
    return runs;
}

json_object *map_json(const map_plane &plane)
{
    json_object *object = json_object_new_object();
    json_object *x = json_object_new_array(), *y = json_object_new_array(), *rows = json_object_new_array();
    for (double end : {plane.from_x, plane.to_x})
        json_object_array_add(x, short_number(end));
    for (double end : {plane.from_y, plane.to_y})
        json_object_array_add(y, short_number(end));
    for (const std::string &row : plane.rows)
        json_object_array_add(rows, json_object_new_string(row.c_str()));
    json_object_object_add(object, "x", x);
    json_object_object_add(object, "y", y);
    json_object_object_add(object, "rows", rows);
    return object;
}

// Every two minutes.
json_object *lux_json(const day_light &light)
{
    json_object *list = json_object_new_array();
    size_t from = 0;
    for (double at = 0; at <= DAY_S; at += 120)
        json_object_array_add(list, short_number(light_schedule_at(light.moments, at, &from).lux));
    return list;
}

void report(int jobs)
{
    const std::vector<run> runs = report_runs();
    std::vector<job> started;
    printf("{\"bright_lux\": %g, \"dark_lux\": %g, \"grace_s\": %g, \"begins_hour\": %g,\n \"days\": [",
           DAY_BRIGHT_LUX, DAY_DARK_LUX, DAY_GRACE_S, DAY_BEGINS_HOUR);
    for (int day = 0; day < DAY_KINDS; day++) {
        day_light light;
        day_kinds[day].make(&light);
        json_object *object = json_object_new_object();
        json_object_object_add(object, "name", json_object_new_string(day_kinds[day].name));
        json_object_object_add(object, "what", json_object_new_string(day_kinds[day].what));
        json_object_object_add(object, "lux", lux_json(light));
        printf("%s\n  %s", day ? "," : "", text_of(object).c_str());
    }
    printf("],\n \"constants\": [");
    for (const constant &one : constants) {
        day_settings plain = {};
        printf("%s\n  {\"name\": \"%s\", \"value\": %g}", &one == constants ? "" : ",", one.name,
               *one.of(&plain));
    }
    printf("],\n \"maps\": [");
    const day_settings plain = {};
    for (int mode : {3, 4, 5}) {
        json_object *object = json_object_new_object();
        json_object_object_add(object, "mode", json_object_new_int(mode));
        json_object_object_add(object, "statistics", map_json(map_statistics(mode, plain.isp)));
        json_object_object_add(object, "room", map_json(map_room(mode, plain.isp, plain.room)));
        printf("%s\n  %s", mode == 3 ? "" : ",", text_of(object).c_str());
    }
    printf("],\n \"runs\": [");
    for (size_t i = 0; i < runs.size(); i++) {
        for (; started.size() < std::min(i + static_cast<size_t>(jobs), runs.size());) {
            const run &what = runs[started.size()];
            started.push_back(start([&what] {
                day_light light;
                day_result result;
                const size_t switches = what.varied.empty() ? SWITCHES_REPORTED : 0;
                return run_here(what, &light, &result) ? text_of(run_json(what, result, switches))
                                                       : std::string();
            }));
        }
        printf("%s\n  %s", i ? "," : "", finish(started[i]).c_str());
        if (isatty(STDERR_FILENO))
            fprintf(stderr, "\r%zu of %zu ", i + 1, runs.size());
    }
    printf("]}\n");
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
    for (int number = 0; equals && number < static_cast<int>(std::size(constants)); number++)
        if (std::string(text, equals) == constants[number].name)
            return {number, read_number("vary", equals + 1, 0.01, 100)};
    bad("vary", text);
}

void list(void)
{
    printf("days:\n");
    for (int day = 0; day < DAY_KINDS; day++)
        printf("  %-12s %s\n", day_kinds[day].name, day_kinds[day].what);
    printf("constants:\n");
    for (const constant &one : constants) {
        day_settings plain = {};
        printf("  %-24s %g\n", one.name, *one.of(&plain));
    }
}

} // namespace

int main(int argc, char **argv)
{
    enum { DAY = 1, MODE, REFLECTANCE, DISTANCE, VARY, OTHER, SWITCHES, JSON, LIST, REPORT, JOBS, HELP };
    const option options[] = {
        {"day", required_argument, nullptr, DAY},
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
    run what;
    bool switches = false, json = false, whole_report = false;
    int jobs = std::max(1, static_cast<int>(sysconf(_SC_NPROCESSORS_ONLN)));
    for (int found; (found = getopt_long(argc, argv, "", options, nullptr)) != -1;) {
        switch (found) {
        case DAY:
            what.day = read_day(optarg);
            break;
        case MODE:
            what.mode = static_cast<int>(read_number("mode", optarg, 0, 5));
            if (std::find(std::begin(MODES), std::end(MODES), what.mode) == std::end(MODES))
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
        report(jobs);
        return 0;
    }
    what.timeline = json;
    const std::string text = finish(start([&] {
        day_light light;
        day_result result;
        if (!run_here(what, &light, &result))
            return std::string();
        return json ? text_of(run_json(what, result, switches ? SIZE_MAX : 0)) + "\n"
                    : run_text(what, result, switches);
    }));
    fputs(text.c_str(), stdout);
    return 0;
}
