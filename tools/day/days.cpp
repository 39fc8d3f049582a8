// The sun's table, the clouds' law, and what people do.
#include "days.h"

#include <algorithm>
#include <iterator>
#include <math.h>
#include <stdint.h>

namespace
{

const double LATITUDE = 50; // degrees north, at an equinox: the sun rises at six and sets at eighteen
const double DAYLIGHT_FACTOR = 0.015; // of a living room (BS 8206-2)
const double STARLIGHT_LUX = 0.0006;  // outdoors, without a moon
const double LAMP_LUX = 100;          // of a room's ceiling lamp
// Beside a lux of a filament at 2700 K (infrared.py). Headlights, which glow whiter, have at most as much.
const double INFRARED_OF_GLOWING = 3.5;
const double GRID_S = 20;    // between two moments of the sun
const double EDGE_S = 0.001; // a lamp that is switched

double seconds_at(double hour)
{
    return (hour < DAY_BEGINS_HOUR ? hour + 24 - DAY_BEGINS_HOUR : hour - DAY_BEGINS_HOUR) * 3600;
}

// ---- Chance ----------------------------------------------------------------------------------------------------------
// splitmix64: the same numbers everywhere.

uint64_t mixed(uint64_t value)
{
    value = (value ^ (value >> 30)) * 0xBF58476D1CE4E5B9u;
    value = (value ^ (value >> 27)) * 0x94D049BB133111EBu;
    return value ^ (value >> 31);
}

double share_of(uint64_t value)
{
    return static_cast<double>(mixed(value) >> 11) / 9007199254740992.;
}

struct chance {
    uint64_t state;
    double between(double low, double high)
    {
        state += 0x9E3779B97F4A7C15u;
        return low + (high - low) * share_of(state);
    }
};

// Of each kind of day, and of each seed, its own.
chance first_of(unsigned kind, unsigned seed)
{
    return {kind + uint64_t{seed} * 1000003};
}

// ---- Parts -----------------------------------------------------------------------------------------------------------

// A curve of straight lines; 0 outside.
struct curve {
    std::vector<std::pair<double, double>> points; // times grow
    double at(double seconds) const
    {
        auto next = std::upper_bound(points.begin(), points.end(), seconds,
                                     [](double time, const auto &point) { return time < point.first; });
        if (next == points.begin() || next == points.end())
            return 0;
        const auto &[from, value] = *std::prev(next);
        return value + (next->second - value) * (seconds - from) / (next->first - from);
    }
};

// What one day's light is the sum of.
struct parts {
    curve cover = {};         // of the sky with clouds: 0 to 1
    curve dimmed = {};        // by a thunderstorm: 0 to 1 of what the clouds leave
    curve lamp = {};          // lux
    double lamp_infrared = 0; // beside a lux of it
    curve beam = {};          // lux of headlights and lightning
};

void add_lamp(parts *p, double from, double to)
{
    p->lamp.points.insert(p->lamp.points.end(),
                          {{from - EDGE_S, 0}, {from, LAMP_LUX}, {to - EDGE_S, LAMP_LUX}, {to, 0}});
}

// A beam that sweeps through the room. `stays` seconds at its brightest.
void add_beam(parts *p, double from, double rises, double stays, double lux)
{
    p->beam.points.insert(
        p->beam.points.end(),
        {{from, 0}, {from + rises, lux}, {from + rises + stays, lux}, {from + 2 * rises + stays, 0}});
}

void add_cars(parts *p, chance *dice, double from, double to, double gap_min, double gap_max, double jams)
{
    for (double at = from; at < to;) {
        // One in so many waits at the crossing.
        const double stays = dice->between(0, 1) < jams ? dice->between(10, 40) : dice->between(1, 2.5);
        add_beam(p, at, 0.6, stays, dice->between(5, 25));
        at += 1.2 + stays + dice->between(gap_min, gap_max);
    }
}

void add_thunderstorm(parts *p, chance *dice, double from, double to)
{
    p->dimmed.points.push_back({from, 0});
    double at = from + 60;
    for (; at < to; at += dice->between(30, 120))
        p->dimmed.points.push_back({at, dice->between(0.5, 0.98)});
    p->dimmed.points.push_back({at, 0});
    for (at = from; at < to; at += dice->between(5, 60))
        add_beam(p, at, 0.05, 0.3, 50);
}

void add_switching(parts *p, chance *dice, double from, double to, double shortest, double longest)
{
    for (double at = from; at < to;) {
        const double on = dice->between(shortest, longest);
        add_lamp(p, at, at + on);
        at += on + dice->between(shortest, longest);
    }
}

// ---- Days ------------------------------------------------------------------------------------------------------------

void compose(const parts &p, day_light *day)
{
    std::vector<double> times;
    for (double at = 0; at <= DAY_S; at += GRID_S)
        times.push_back(at);
    for (const curve *one : {&p.cover, &p.dimmed, &p.lamp, &p.beam})
        for (const auto &point : one->points)
            times.push_back(point.first);
    // Light goes by equal factors between two moments, so that a beam that rises from nothing needs moments of its own.
    for (size_t i = 0; i + 1 < p.beam.points.size(); i++)
        for (int part = 1; part < 4; part++)
            times.push_back(p.beam.points[i].first +
                            (p.beam.points[i + 1].first - p.beam.points[i].first) * part / 4);
    std::sort(times.begin(), times.end());
    times.erase(std::unique(times.begin(), times.end()), times.end());
    const double infrared_of_daylight = room_constants().infrared_of_daylight;
    for (double at : times) {
        const double sky = day_sun_lux(day_sun_altitude(DAY_BEGINS_HOUR + at / 3600)) * DAYLIGHT_FACTOR *
                           day_cloud_share(p.cover.at(at)) * (1 - p.dimmed.at(at));
        const double lamp = p.lamp.at(at), beam = p.beam.at(at);
        day->moments.push_back(
            {at, sky + lamp + beam,
             sky * infrared_of_daylight + lamp * p.lamp_infrared + beam * INFRARED_OF_GLOWING});
    }
}

void clear_day(day_light *day, unsigned)
{
    compose({}, day);
}

void restless_day(day_light *day, unsigned)
{
    compose({}, day);
    day->unrest = 0.15;
}

void add_clouds(parts *p, chance *dice)
{
    for (double at = 0; at < DAY_S + 600; at += dice->between(60, 600))
        p->cover.points.push_back({at, dice->between(0, 1)});
}

void cloudy_day(day_light *day, unsigned seed)
{
    parts p;
    chance dice = first_of(1, seed);
    add_clouds(&p, &dice);
    compose(p, day);
}

void thundery_day(day_light *day, unsigned seed)
{
    parts p;
    chance dice = first_of(2, seed);
    add_clouds(&p, &dice);
    add_thunderstorm(&p, &dice, seconds_at(16), seconds_at(21));
    compose(p, day);
}

void headlights(day_light *day, unsigned seed)
{
    parts p;
    chance dice = first_of(3, seed);
    add_cars(&p, &dice, seconds_at(17.5), seconds_at(6), 120, 1200, 0.05);
    compose(p, day);
}

void traffic(day_light *day, unsigned seed)
{
    parts p;
    chance dice = first_of(4, seed);
    add_cars(&p, &dice, seconds_at(17.5), seconds_at(6), 2, 20, 0.1);
    compose(p, day);
}

void add_evening(parts *p)
{
    add_lamp(p, seconds_at(17.5), seconds_at(23));
    add_lamp(p, seconds_at(5.5), seconds_at(6.25));
}

void lamp(day_light *day, unsigned)
{
    parts p;
    add_evening(&p);
    compose(p, day);
}

void glowing_lamp(day_light *day, unsigned)
{
    parts p;
    p.lamp_infrared = INFRARED_OF_GLOWING;
    add_evening(&p);
    compose(p, day);
}

void switching(day_light *day, unsigned seed)
{
    parts p;
    chance dice = first_of(5, seed);
    add_switching(&p, &dice, seconds_at(20), seconds_at(22), 2, 30);
    compose(p, day);
}

void everything(day_light *day, unsigned seed)
{
    parts p;
    chance dice = first_of(6, seed);
    add_clouds(&p, &dice);
    add_thunderstorm(&p, &dice, seconds_at(16), seconds_at(19));
    // One after the other: beams must not overlap.
    add_cars(&p, &dice, seconds_at(19.1), seconds_at(6), 2, 20, 0.1);
    add_switching(&p, &dice, seconds_at(20), seconds_at(22), 2, 30);
    compose(p, day);
    day->unrest = 0.15;
}

// Somebody is up at night; detection lights the white LED at every third picture with a person, five pictures a second.
void visitors(day_light *day, unsigned seed)
{
    compose({}, day);
    chance dice = first_of(7, seed);
    const double again_s = 0.6;
    for (double at = seconds_at(20); at < seconds_at(23); at += dice.between(20, 300))
        for (const double end = at + dice.between(5, 40); at < end; at += again_s)
            day->seen.push_back(at);
}

} // namespace

const day_kind day_kinds[] = {
    {"clear", "sun alone", clear_day, false},
    {"restless", "the clear day; what moves in the room changes its reflectance by 15 %", restless_day,
     false},
    {"clouds", "broken clouds, 25 to 100 % of the clear sky's light, changing within minutes", cloudy_day,
     true},
    {"thunder", "clouds, and a thunderstorm with lightning over the dusk", thundery_day, true},
    {"headlights", "a car's headlights through the window every 2 to 20 minutes of the night", headlights,
     true},
    {"traffic", "a storm of them: every 2 to 20 seconds, one in ten waits in front of the window", traffic,
     true},
    {"lamp", "an LED lamp of 100 lux from 17:30 to 23:00 and from 5:30 to 6:15", lamp, false},
    {"glow", "the same with a filament, which gives 3.5 times as much near infrared", glowing_lamp, false},
    {"switching", "a storm of it: on and off every 2 to 30 seconds, from 20:00 to 22:00", switching, true},
    {"everything", "clouds, thunderstorm, traffic, switching and a restless room in one day", everything,
     true},
    {"visitors", "the clear day; people are seen every 20 to 300 seconds from 20:00 to 23:00", visitors,
     false},
};
const int DAY_KINDS = static_cast<int>(std::size(day_kinds));

double day_sun_lux(double altitude)
{
    // Polynomials of the decimal logarithm in altitude / 90 degrees, from altitudes upwards (Janiczek and DeYoung 1987).
    static const struct {
        double from, l0, l1, l2, l3;
    } pieces[] = {
        {20, 3.74, 3.97, -4.07, 1.47},         {5, 3.05, 13.28, -45.98, 64.33},
        {-0.8, 2.88, 22.26, -207.64, 1034.30}, {-5, 2.88, 21.81, -258.11, -858.36},
        {-12, 2.70, 12.17, -431.69, -1899.83}, {-18, 13.84, 262.72, 1447.42, 2797.93},
    };
    for (const auto &piece : pieces) {
        if (altitude < piece.from)
            continue;
        const double x = altitude / 90;
        return std::max(STARLIGHT_LUX, pow(10, piece.l0 + x * (piece.l1 + x * (piece.l2 + x * piece.l3))));
    }
    return STARLIGHT_LUX;
}

double day_sun_altitude(double hour)
{
    return asin(cos(LATITUDE * M_PI / 180) * cos((hour - 12) * M_PI / 12)) * 180 / M_PI;
}

double day_cloud_share(double cover)
{
    return 1 - 0.75 * pow(cover, 3.4); // Kasten and Czeplak 1980
}

double day_unrest(double unrest, double seconds)
{
    if (unrest == 0)
        return 1;
    // Somebody turns, a curtain moves: a new value every two seconds, roughly normal, with straight lines between.
    const double every_s = 2;
    const double knot = floor(seconds / every_s), part = seconds / every_s - knot;
    const auto normal = [](double number) {
        const uint64_t seed = static_cast<uint64_t>(number) * 4;
        return (share_of(seed) + share_of(seed + 1) + share_of(seed + 2) + share_of(seed + 3) - 2) * sqrt(3.);
    };
    return exp(unrest * (normal(knot) * (1 - part) + normal(knot + 1) * part));
}
