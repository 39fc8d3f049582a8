// What a planned track says of a moment.
#include "track.h"

#include <algorithm>

namespace
{

const float LOOK_AHEAD = 0.22f; // metres: how far ahead and behind a walker's heading looks
const double DOOR_OPENS = 1.6, DOOR_SHUTS = 0.9,
             DOOR_TAKES = 0.9; // seconds before, after a passage, for the swing

float smooth(float t)
{
    return t <= 0 ? 0 : t >= 1 ? 1 : t * t * (3 - 2 * t);
}

// How far along a way of `length` one is after `t` seconds, and how fast.
struct progress {
    double duration;
    float done, speed;
};
progress advance(const track_leg &leg, double t)
{
    const double length = leg.length, a = leg.acceleration;
    double v = leg.speed;
    if (leg.rolls) { // slower all the way: v^2 = 2 a length
        const double duration = 2 * length / v, left = std::max(0.0, 1 - t / duration);
        return {duration, static_cast<float>(length * (1 - left * left)), static_cast<float>(v * left)};
    }
    if (length < v * v / a)
        v = sqrt(length * a);
    const double rise = v / a, duration = length / v + rise;
    if (t < rise)
        return {duration, static_cast<float>(a * t * t / 2), static_cast<float>(a * t)};
    if (t <= duration - rise)
        return {duration, static_cast<float>(v * (t - rise / 2)), static_cast<float>(v)};
    const double left = std::max(0.0, duration - t);
    return {duration, static_cast<float>(length - a * left * left / 2), static_cast<float>(a * left)};
}

scene_vec along(const std::vector<scene_vec> &way, float done)
{
    const float last = static_cast<float>(way.size() - 1);
    const float at = std::min(std::max(done / FLOOR_STEP, 0.f), last);
    const size_t i = std::min(static_cast<size_t>(at), way.size() - 2);
    return way[i] + (way[i + 1] - way[i]) * (at - static_cast<float>(i));
}

} // namespace

double track_duration(const track_leg &leg)
{
    return advance(leg, 0).duration;
}

float track_done(const track_leg &leg, double time)
{
    return advance(leg, std::max(0.0, time - leg.begin)).done;
}

float track_leg_heading(const track_leg &leg, float done)
{
    return track_heading(along(leg.way, done - LOOK_AHEAD), along(leg.way, done + LOOK_AHEAD));
}

track_moment track_at(const track &track, double time)
{
    track_moment m;
    // The last leg that has begun; of legs that take no time the later one.
    const auto next = std::upper_bound(track.legs.begin(), track.legs.end(), time,
                                       [](double t, const track_leg &leg) { return t < leg.begin; });
    const track_leg &leg = next == track.legs.begin() ? track.legs.front() : *(next - 1);
    if (leg.away)
        return m;
    const double t = std::max(0.0, time - leg.begin);
    m.here = true;
    m.activity = leg.activity;
    m.before = leg.before;
    m.blend = leg.blend > 0 ? smooth(static_cast<float>(t / leg.blend)) : 1;
    m.before_position = leg.from;
    m.before_heading = leg.heading_from;
    m.pace = leg.pace;
    const float share = leg.shift > 0 ? smooth(static_cast<float>(t / leg.shift)) : 1;
    if (leg.way.empty() && m.blend < 1 && scene_length(leg.to - leg.from) > 0) { // a body between two places
        m.position = leg.to;
        m.heading = leg.heading_to;
        m.way = leg.gone;
        return m;
    }
    if (leg.way.empty()) {
        m.position = leg.from + (leg.to - leg.from) * share;
        m.heading = track_angle(leg.heading_from + track_angle(leg.heading_to - leg.heading_from) * share);
        m.way = leg.gone;
        return m;
    }
    const progress p = advance(leg, t);
    m.position = m.before_position = along(leg.way, p.done);
    const float tangent = track_leg_heading(leg, p.done);
    m.heading = m.before_heading =
        track_angle(leg.heading_from + track_angle(tangent - leg.heading_from) * share);
    m.way = leg.gone + p.done;
    m.speed = p.speed;
    return m;
}

float track_door(const std::vector<track_passage> &passages, double time)
{
    float open = 0;
    for (const track_passage &passage : passages) {
        const double since = time - (passage.at - DOOR_OPENS),
                     left = passage.at + DOOR_SHUTS + DOOR_TAKES - time;
        const float share = std::min(smooth(static_cast<float>(since / DOOR_TAKES)),
                                     smooth(static_cast<float>(left / DOOR_TAKES)));
        open = std::max(open, share * TRACK_DOOR_OPEN);
    }
    return open;
}

float track_angle(float degrees)
{
    const float turned = fmodf(degrees + 180, 360);
    return turned < 0 ? turned + 180 : turned - 180;
}

float track_heading(scene_vec from, scene_vec to)
{
    return atan2f(to.x - from.x, to.y - from.y) * static_cast<float>(180 / M_PI);
}
