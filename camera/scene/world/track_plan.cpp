// Plans steps into legs: ways over the floor, turns on the spot, sitting down and getting up in between.
#include "track.h"

#include <algorithm>

namespace
{

const float PEOPLE_RADIUS = 0.24f, THINGS_RADIUS = 0.16f; // metres of floor that they need
const float TURN_SPEED = 150;                             // degrees a second on the spot
const float TURN_ON_THE_SPOT = 50;                        // degrees; less is turned while walking off
const double TURN_WALKING = 0.7;                          // seconds for that
const float SEAT_EDGE = 0.5f; // metres from beside a bed to where one sits down on it
enum { LEGS_MAX = 4000 };

struct speed_row {
    float walk, run, acceleration; // metres a second (squared)
};
const speed_row person_speeds = {1.15f, 2.6f, 1.6f};
const speed_row thing_speeds[THING_KINDS] = {
    {0.7f, 2.2f, 2.5f},  // cat
    {0.9f, 2.6f, 2.5f},  // dog
    {0.3f, 0.5f, 0.6f},  // vacuum
    {0.5f, 1.f, 1.f},    // fan
    {1.4f, 3.f, 1.f},    // ball
    {0.3f, 0.6f, 1.f},   // insect
    {0.5f, 1.f, 1.f},    // coat
    {0.25f, 0.6f, 0.3f}, // balloon
    {0.5f, 1.f, 1.f},    // box
    {1.2f, 2.5f, 2.f},   // shadow
};

bool is_low(person_activity activity)
{
    return activity == PERSON_SIT || activity == PERSON_DESK || activity == PERSON_LIE ||
           activity == PERSON_FALLEN || activity == PERSON_CROUCH;
}

// Seconds that a change of activity takes a body.
double blend_seconds(person_activity before, person_activity activity)
{
    if (before == activity)
        return 0;
    if (activity == PERSON_FALLEN)
        return 0.8;
    if (before == PERSON_FALLEN)
        return 2.6;
    if (activity == PERSON_LIE || before == PERSON_LIE)
        return 2.2;
    if (activity == PERSON_CROUCH || before == PERSON_CROUCH)
        return 0.9;
    if (is_low(activity) != is_low(before))
        return 1.4;
    return 0.5;
}

// What is known while an actor's steps are planned one after the other.
struct planner {
    const track_ground &ground;
    const scene_actor &actor;
    const floor_map &floor;
    const speed_row &speeds;
    track *result;
    std::vector<track_passage> *passages;
    std::string *fault_path, *fault_text;
    double time;
    scene_vec position;
    float heading;
    person_activity activity;
    bool away;
    scene_vec rise_to; // where one stands after getting up from where one sits or lies
    bool entering;     // is at the door's outside, and the next way begins there
    float gone, pace;
};

bool fail(planner *p, const std::string &path, const std::string &text)
{
    *p->fault_path = path;
    *p->fault_text = text;
    return false;
}

std::string anchor_names(const room *room)
{
    std::string names;
    for (int i = 0; room_anchor_name(room, i); i++)
        names += (i ? ", " : "") + std::string(room_anchor_name(room, i));
    return names;
}

bool find_anchor(planner *p, const std::string &path, const std::string &name, room_anchor *anchor)
{
    if (room_find(p->ground.owner, name.c_str(), anchor))
        return true;
    return fail(p, path,
                "there is no \"" + name + "\" in this room; expected one of " +
                    anchor_names(p->ground.owner));
}

// Things that hang, fly or stand outside are wherever their file says.
bool needs_floor(const scene_actor &actor)
{
    return actor.is_person || actor.kind == THING_CAT || actor.kind == THING_DOG ||
           actor.kind == THING_VACUUM || actor.kind == THING_BALL || actor.kind == THING_FAN ||
           actor.kind == THING_BOX;
}

// A spot to stand on or to go to: of a seat, the place before it.
bool find_spot(planner *p, const scene_spot &spot, room_anchor *result)
{
    if (spot.anchor.empty()) {
        *result = {};
        result->position = spot.at;
        result->heading = p->heading;
        if (needs_floor(p->actor) && spot.at.z <= 0 && !floor_is_free(p->floor, spot.at)) {
            char text[120];
            snprintf(text, sizeof text, "[%g, %g] is in a wall or a piece of furniture; expected free floor",
                     static_cast<double>(spot.at.x), static_cast<double>(spot.at.y));
            return fail(p, spot.path, text);
        }
        return true;
    }
    if (!find_anchor(p, spot.path, spot.anchor, result))
        return false;
    room_anchor before = {};
    if (needs_floor(p->actor) && room_find(p->ground.owner, (spot.anchor + "-stand").c_str(), &before))
        *result = before;
    if (needs_floor(p->actor))
        result->position.z = 0;
    return true;
}

track_leg *add_leg(planner *p, double seconds, person_activity activity)
{
    track_leg leg;
    leg.begin = p->time;
    leg.end = p->time + seconds;
    leg.before = p->activity;
    leg.activity = activity;
    leg.blend = blend_seconds(leg.before, activity);
    leg.from = leg.to = p->position;
    leg.heading_from = leg.heading_to = p->heading;
    leg.gone = p->gone;
    leg.pace = p->pace;
    p->activity = activity;
    p->time = leg.end;
    p->result->legs.push_back(leg);
    return &p->result->legs.back();
}

// Into another place, height and heading while the body changes.
void add_shift(planner *p, double seconds, person_activity activity, scene_vec to, float heading)
{
    track_leg *leg = add_leg(p, seconds, activity);
    leg->to = p->position = to;
    leg->heading_to = p->heading = heading;
    leg->shift = std::max(leg->blend, 0.3);
}

void get_up(planner *p)
{
    if (!is_low(p->activity))
        return;
    if (p->activity == PERSON_LIE) { // first to the edge, then up
        const scene_vec side = {p->rise_to.x - p->position.x, p->rise_to.y - p->position.y, 0};
        scene_vec edge = p->rise_to - scene_unit(side) * SEAT_EDGE;
        edge.z = p->position.z;
        add_shift(p, 3, PERSON_SIT, edge, track_heading(p->position, p->rise_to));
    }
    const double seconds = blend_seconds(p->activity, PERSON_STAND);
    add_shift(p, seconds, PERSON_STAND, {p->rise_to.x, p->rise_to.y, 0}, p->heading);
}

void turn_to(planner *p, float heading, float least)
{
    const float by = fabsf(track_angle(heading - p->heading));
    if (by <= least)
        return;
    track_leg *leg = add_leg(p, static_cast<double>(by / TURN_SPEED) + 0.25, PERSON_STAND);
    leg->heading_to = p->heading = heading;
    leg->shift = leg->end - leg->begin;
}

// False when it is too short for a step, and nobody moves.
bool go_way(planner *p, const std::vector<scene_vec> &way, person_activity activity, float speed)
{
    if (way.size() < 2 ||
        scene_length(way.back() - way.front()) + static_cast<float>(way.size()) * FLOOR_STEP < 0.1f)
        return false;
    track_leg probe;
    probe.way = way;
    turn_to(p, track_leg_heading(probe, 0), TURN_ON_THE_SPOT);
    track_leg *leg = add_leg(p, 0, activity);
    leg->way = way;
    leg->length = static_cast<float>(way.size() - 1) * FLOOR_STEP;
    leg->speed = leg->pace = p->pace = speed;
    leg->acceleration = p->speeds.acceleration;
    leg->rolls = !p->actor.is_person && p->actor.kind == THING_BALL;
    leg->end = p->time = leg->begin + track_duration(*leg);
    leg->shift = TURN_WALKING;
    leg->heading_to = p->heading = track_leg_heading(*leg, leg->length);
    leg->to = p->position = way.back();
    p->gone += leg->length;
    return true;
}

// When so many metres of a leg's way are done.
double time_at(const track_leg &leg, float done)
{
    const double step = 0.02; // seconds
    double time = leg.begin;
    while (time < leg.end && track_done(leg, time) < done)
        time += step;
    return time;
}

float usual_speed(const planner *p, const scene_step &step)
{
    if (step.speed > 0)
        return step.speed;
    return step.verb == VERB_RUN     ? p->speeds.run
           : step.verb == VERB_CARRY ? p->speeds.walk * 0.85f
                                     : p->speeds.walk;
}

// From here to there, in at the door first if that is where one is; out at the door at the end if `leaving`.
bool go(planner *p, scene_vec to, person_activity activity, float speed, const std::string &path,
        bool leaving)
{
    get_up(p);
    std::vector<scene_vec> way, part;
    scene_vec from = p->position;
    room_anchor outside = {}, inside = {};
    if ((p->entering || leaving) &&
        (!find_anchor(p, path, "door", &inside) || !find_anchor(p, path, "door-outside", &outside)))
        return false;
    if (p->entering) {
        floor_line(outside.position, inside.position, &way);
        from = inside.position;
    }
    const scene_vec target = leaving ? inside.position : to;
    if (!needs_floor(p->actor))
        floor_line(from, target, &part);
    else if (!floor_way(p->floor, from, target, &part))
        return fail(p, path,
                    "\"" + p->actor.name + "\" finds no way there; expected free floor to walk over");
    floor_join(&way, part);
    if (leaving) {
        floor_line(inside.position, outside.position, &part);
        floor_join(&way, part);
    }
    const float doorway = scene_length(outside.position - inside.position) * 0.5f; // from either of its ends
    const bool entered = p->entering;
    p->entering = false;
    if (!go_way(p, way, activity, speed))
        return true;
    track_leg &leg = p->result->legs.back();
    if (entered)
        p->passages->push_back({time_at(leg, doorway)});
    if (leaving)
        p->passages->push_back({time_at(leg, leg.length - doorway)});
    if (!needs_floor(p->actor)) { // it keeps the height that its file gave it
        for (scene_vec &point : leg.way)
            point.z = to.z;
        p->position.z = leg.to.z = to.z;
    }
    return true;
}

bool face_of(planner *p, const scene_step &step, const std::string &path, float *heading)
{
    *heading = step.face;
    room_anchor anchor = {};
    if (step.face_anchor.empty())
        return true;
    if (!find_anchor(p, path + "/face", step.face_anchor, &anchor))
        return false;
    *heading = track_heading(p->position, anchor.position);
    return true;
}

// Sits or lies down at an anchor that has a height.
bool settle(planner *p, const scene_step &step, const std::string &path)
{
    const char *usual = step.verb == VERB_LIE ? "bed" : step.verb == VERB_DESK ? "desk-chair" : "sofa";
    scene_spot spot = step.spot;
    if (!spot.given) {
        spot.anchor = usual;
        spot.path = path;
    }
    const person_activity activity = step.verb == VERB_LIE    ? PERSON_LIE
                                     : step.verb == VERB_DESK ? PERSON_DESK
                                                              : PERSON_SIT;
    room_anchor seat = {};
    if (spot.anchor.empty()) {
        seat.position = spot.at;
        seat.heading = p->heading;
    } else if (!find_anchor(p, spot.path, spot.anchor, &seat)) {
        return false;
    }
    if (activity != PERSON_LIE && seat.position.z <= 0)
        return fail(p, spot.path,
                    "nobody can sit there; expected a seat's anchor, or its place as [x, y, height]");
    const bool there = scene_length(seat.position - p->position) < 0.01f && is_low(p->activity);
    if (there) { // only does something else where it sits
        add_leg(p, std::max(step.seconds, 0.6), activity);
        return true;
    }
    scene_vec before = seat.position;
    room_anchor stand = {};
    if (!spot.anchor.empty() && room_find(p->ground.owner, (spot.anchor + "-stand").c_str(), &stand))
        before = stand.position;
    else if (!floor_nearest(p->floor, seat.position, 1.2f, &before))
        return fail(p, spot.path, "there is no free floor before that seat; expected some within 1.2 m");
    before.z = 0;
    if (!p->away && !go(p, before, PERSON_WALK, usual_speed(p, step), spot.path, false))
        return false;
    if (p->away) { // is there from the beginning
        p->away = false;
        p->position = seat.position;
        p->heading = seat.heading;
        p->activity = activity;
    }
    p->rise_to = before;
    if (activity == PERSON_LIE) {
        const scene_vec side = {before.x - seat.position.x, before.y - seat.position.y, 0};
        scene_vec edge = before - scene_unit(side) * SEAT_EDGE;
        edge.z = seat.position.z;
        if (p->activity != PERSON_LIE && seat.position.z > 0) {
            const float out = track_heading(seat.position, before);
            turn_to(p, out, 10);
            add_shift(p, 2, PERSON_SIT, edge, out);
        }
    } else if (p->activity != activity) {
        turn_to(p, seat.heading, 10);
    }
    add_shift(p, std::max(step.seconds, 2.5), activity, seat.position, seat.heading);
    return true;
}

bool stay(planner *p, const scene_step &step, const std::string &path)
{
    static const person_activity activities[VERBS] = {
        PERSON_WALK, PERSON_RUN, PERSON_CARRY,  PERSON_STAND, PERSON_WAVE, PERSON_CROUCH, PERSON_SIT,
        PERSON_DESK, PERSON_LIE, PERSON_FALLEN, PERSON_WALK,  PERSON_WALK, PERSON_STAND};
    const person_activity activity = activities[step.verb];
    if (activity != PERSON_FALLEN)
        get_up(p);
    p->rise_to = p->position;
    float heading = p->heading;
    if (step.has_face) {
        if (!face_of(p, step, path, &heading))
            return false;
        turn_to(p, heading, 10);
    }
    if (step.seconds > 0) {
        track_leg *leg = add_leg(p, step.seconds, activity);
        leg->heading_to = p->heading = heading;
        leg->shift = 0.5;
    }
    return true;
}

void stay_away(planner *p, double seconds)
{
    track_leg *leg = add_leg(p, seconds, PERSON_STAND);
    leg->away = true;
    p->away = true;
}

bool plan_step(planner *p, const scene_step &step, const std::string &path)
{
    if (step.verb == VERB_AWAY) {
        stay_away(p, step.seconds);
        return true;
    }
    if (step.verb == VERB_ENTER) {
        room_anchor outside = {};
        if (!find_anchor(p, path, "door-outside", &outside))
            return false;
        if (!p->away)
            return fail(p, path,
                        "\"" + p->actor.name +
                            "\" is in the room already; expected \"enter\" only after \"leave\" or "
                            "\"away\", or at first without \"at\"");
        p->position = {outside.position.x, outside.position.y, 0};
        room_anchor inside = {};
        if (!find_anchor(p, path, "door", &inside))
            return false;
        p->heading = track_heading(outside.position, inside.position);
        p->activity = PERSON_STAND;
        p->away = false;
        p->entering = true;
        return true;
    }
    const bool seated_first = p->away && p->result->legs.empty() &&
                              (step.verb == VERB_SIT || step.verb == VERB_DESK || step.verb == VERB_LIE);
    // What flies or hangs is simply there again.
    if (p->away && p->actor.at.given && !needs_floor(p->actor))
        p->away = false;
    if (p->away && !seated_first)
        return fail(p, path,
                    "\"" + p->actor.name +
                        "\" is not in the room; expected an \"at\" for the actor, or \"enter\" first");
    switch (step.verb) {
    case VERB_WALK:
    case VERB_RUN:
    case VERB_CARRY: {
        room_anchor target = {};
        if (!find_spot(p, step.spot, &target) || !go(p, target.position,
                                                     step.verb == VERB_RUN     ? PERSON_RUN
                                                     : step.verb == VERB_CARRY ? PERSON_CARRY
                                                                               : PERSON_WALK,
                                                     usual_speed(p, step), step.spot.path, false))
            return false;
        float heading;
        if (step.has_face) {
            if (!face_of(p, step, path, &heading))
                return false;
            turn_to(p, heading, 5);
        }
        return true;
    }
    case VERB_LEAVE:
        if (!go(p, p->position, PERSON_WALK, usual_speed(p, step), path, true))
            return false;
        stay_away(p, 0);
        return true;
    case VERB_SIT:
    case VERB_DESK:
    case VERB_LIE:
        return settle(p, step, path);
    default:
        return stay(p, step, path);
    }
}

} // namespace

track_ground track_ground_make(const room *room)
{
    return {room, floor_make(room, PEOPLE_RADIUS), floor_make(room, THINGS_RADIUS)};
}

bool track_plan(const track_ground &ground, const scene_actor &actor, double end, track *result,
                std::vector<track_passage> *passages, std::string *path, std::string *text)
{
    result->legs.clear();
    planner p = {ground,
                 actor,
                 actor.is_person ? ground.people : ground.things,
                 actor.is_person ? person_speeds : thing_speeds[actor.kind],
                 result,
                 passages,
                 path,
                 text,
                 0,
                 {0, 0, 0},
                 actor.heading,
                 PERSON_STAND,
                 !actor.at.given,
                 {0, 0, 0},
                 false,
                 0,
                 0};
    if (actor.at.given) {
        room_anchor spot = {};
        if (!find_spot(&p, actor.at, &spot))
            return false;
        p.position = p.rise_to = spot.position;
        if (!actor.has_heading)
            p.heading = spot.heading;
    }
    if (actor.start > 0 && p.away)
        stay_away(&p, actor.start);
    else if (actor.start > 0)
        add_leg(&p, actor.start, PERSON_STAND);
    do {
        const double round_began = p.time;
        for (size_t i = 0; i < actor.steps.size(); i++)
            if (!plan_step(&p, actor.steps[i], actor.path + "/steps/" + std::to_string(i)))
                return false;
        if (p.entering) { // came in and was given nothing to do there
            room_anchor inside = {};
            if (!find_anchor(&p, actor.path, "door", &inside) ||
                !go(&p, inside.position, PERSON_WALK, p.speeds.walk, actor.path, false))
                return false;
        }
        if (actor.loop && p.time - round_began < 0.5)
            return fail(&p, actor.path + "/loop", "a loop takes no time; expected steps that last");
    } while (actor.loop && p.time < end && result->legs.size() < LEGS_MAX);
    if (result->legs.empty() || p.away != result->legs.back().away)
        p.away ? stay_away(&p, 1) : static_cast<void>(add_leg(&p, 1, PERSON_STAND));
    const track_leg &last = result->legs.back();
    if (!last.away && !last.way.empty()) // nobody stops in mid-step
        add_leg(&p, 1, PERSON_STAND);
    return true;
}
