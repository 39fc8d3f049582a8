// JSON, by json-c.
#include "report.h"

#include <algorithm>
#include <json.h>
#include <math.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include "maps.h"

const int day_modes[4] = {0, 3, 4, 5};

namespace
{

const double REFLECTANCES[] = {0.05, 0.1, 0.2, 0.4, 0.6, 0.8, 0.95};
const double DISTANCES[] = {3, 2, 1.5, 1, 0.5};

// ---- Words ---------------------------------------------------------------------------------------------------------

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

json_object *run_object(const day_run_settings &what, const day_result &result, size_t switches)
{
    json_object *object = json_object_new_object();
    json_object_object_add(object, "day", json_object_new_string(day_kinds[what.day].name));
    json_object_object_add(object, "mode", json_object_new_int(what.mode));
    json_object_object_add(object, "reflectance", short_number(what.reflectance));
    if (what.distance != DAY_LAMPS_MEASURED_AT_M)
        json_object_object_add(object, "distance_m", short_number(what.distance));
    if (what.seed != 0)
        json_object_object_add(object, "seed", json_object_new_int64(what.seed));
    for (const auto &[constant, factor] : what.varied) {
        json_object_object_add(object, "constant", json_object_new_string(day_constants[constant].name));
        json_object_object_add(object, "factor", short_number(factor));
    }
    const auto to_night = std::count_if(result.switches.begin(), result.switches.end(),
                                        [](const day_switch &one) { return one.to_night; });
    json_object_object_add(object, "to_night", json_object_new_int64(to_night));
    json_object_object_add(object, "to_day",
                           json_object_new_int64(static_cast<int64_t>(result.switches.size()) - to_night));
    // The light at the first switch each way.
    for (const bool night : {true, false}) {
        const auto first = std::find_if(result.switches.begin(), result.switches.end(),
                                        [&](const day_switch &one) { return one.to_night == night; });
        if (first != result.switches.end())
            json_object_object_add(object, night ? "night_lux" : "day_lux", number(first->lux, 3));
    }
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

// ---- Everything ----------------------------------------------------------------------------------------------------

enum { SWITCHES_REPORTED = 4, SEEDS = 20 };

std::vector<day_run_settings> report_runs(void)
{
    std::vector<day_run_settings> runs;
    for (int day = 0; day < DAY_KINDS; day++)
        for (int mode : day_modes)
            for (double reflectance : REFLECTANCES) {
                day_run_settings one;
                one.day = day;
                one.mode = mode;
                one.reflectance = reflectance;
                one.timeline = true;
                runs.push_back(one);
            }
    for (int mode : day_modes)
        for (double reflectance : REFLECTANCES) {
            for (double distance : DISTANCES) {
                day_run_settings one;
                one.mode = mode;
                one.reflectance = reflectance;
                one.distance = distance;
                if (distance != DAY_LAMPS_MEASURED_AT_M && mode != 0)
                    runs.push_back(one);
            }
            for (int number = 0; number < DAY_CONSTANTS; number++)
                for (double factor : {0.8, 1.2}) {
                    day_run_settings one;
                    one.mode = mode;
                    one.reflectance = reflectance;
                    one.varied = {{number, factor}};
                    if (mode != 0)
                        runs.push_back(one);
                }
        }
    // Days of chance, each with other seeds.
    for (int day = 0; day < DAY_KINDS; day++)
        for (unsigned seed = 1; seed <= SEEDS; seed++)
            for (int mode : {3, 4}) {
                day_run_settings one;
                one.day = day;
                one.mode = mode;
                one.seed = seed;
                if (day_kinds[day].chance)
                    runs.push_back(one);
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

// The dimmest and the brightest moment of every two minutes, so that no headlight is lost.
void add_lux(json_object *object, const day_light &light)
{
    const double every_s = 120, look_s = 0.5;
    json_object *low = json_object_new_array(), *high = json_object_new_array();
    size_t from = 0;
    for (double at = 0; at < DAY_S; at += every_s) {
        double dimmest = INFINITY, brightest = 0;
        for (double moment = at; moment < at + every_s; moment += look_s) {
            const double lux = light_schedule_at(light.moments, moment, &from).lux;
            dimmest = std::min(dimmest, lux);
            brightest = std::max(brightest, lux);
        }
        json_object_array_add(low, short_number(dimmest));
        json_object_array_add(high, short_number(brightest));
    }
    json_object_object_add(object, "dimmest_lux", low);
    json_object_object_add(object, "brightest_lux", high);
}

} // namespace

std::string day_run_json(const day_run_settings &what, const day_result &result, size_t switches)
{
    return text_of(run_object(what, result, switches));
}

void day_report(int jobs)
{
    const std::vector<day_run_settings> runs = report_runs();
    std::vector<day_job> started;
    printf("{\"bright_lux\": %g, \"dark_lux\": %g, \"grace_s\": %g, \"begins_hour\": %g,\n \"days\": [",
           DAY_BRIGHT_LUX, DAY_DARK_LUX, DAY_GRACE_S, DAY_BEGINS_HOUR);
    for (int day = 0; day < DAY_KINDS; day++) {
        day_light light;
        day_kinds[day].make(&light, 0);
        json_object *object = json_object_new_object();
        json_object_object_add(object, "name", json_object_new_string(day_kinds[day].name));
        json_object_object_add(object, "what", json_object_new_string(day_kinds[day].what));
        add_lux(object, light);
        printf("%s\n  %s", day ? "," : "", text_of(object).c_str());
    }
    printf("],\n \"constants\": [");
    for (int i = 0; i < DAY_CONSTANTS; i++) {
        day_settings plain = {};
        printf("%s\n  {\"name\": \"%s\", \"value\": %g}", i ? "," : "", day_constants[i].name,
               *day_constants[i].of(&plain));
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
            const day_run_settings &what = runs[started.size()];
            started.push_back(day_job_start([&what] {
                day_light light;
                day_result result;
                const size_t switches = what.varied.empty() && what.seed == 0 ? SWITCHES_REPORTED : 0;
                return day_run_here(what, &light, &result) ? day_run_json(what, result, switches)
                                                           : std::string();
            }));
        }
        printf("%s\n  %s", i ? "," : "", day_job_finish(started[i]).c_str());
        if (isatty(STDERR_FILENO))
            fprintf(stderr, "\r%zu of %zu ", i + 1, runs.size());
    }
    printf("]}\n");
}
