// An evening at home that nobody wrote, and the night and the days after it, in blocks of five minutes.
//
// Who sits where when a block begins follows from the seed and the block's number alone; within a block
// everybody in turn has a stretch of time to get up, walk about, and be where the next block wants them. So
// any moment can be asked for without playing what came before, and people do not walk through each other.
// Everyone has a seat of their own.
#include <algorithm>

#include "world_state.h"

namespace
{

const char *const seats[] = {"sofa-left", "sofa-right", "armchair", "chair", "chair-2"};
enum { SEATS = 5 };
const char *const places[] = {"table", "tv", "bookcase", "floor", "near", "window", "far", "sofa-stand"};
enum { PLACES = 8 };
const char *const pet_places[] = {"far", "bookcase", "near", "window", "tv"};
enum { PET_PLACES = 5 };
const double VACUUM_HOME_X = 1.45, VACUUM_HOME_Y = 1.0; // metres
const double LAMP_AFTER = 3.5;   // seconds after coming in until the lamp is switched on
const double CAMERA_AFTER = 2.5; // seconds that the camera takes to change between day and night
const double LONG = 2 * EVENING_BLOCK;

// A number generator for one question about the evening, so that questions do not depend on each other.
enum question { ASK_HOME = 1, ASK_REST, ASK_ORDER, ASK_STEPS, ASK_PET, ASK_TV, ASK_CARS };
scene_random ask(uint64_t seed, question what, int64_t block, uint64_t who)
{
    scene_random mixer = {seed};
    for (const uint64_t word : {static_cast<uint64_t>(what), static_cast<uint64_t>(block), who}) {
        mixer.state ^= word * UINT64_C(0xd6e8feb86659fd93);
        mixer.state = scene_next(&mixer);
    }
    return mixer;
}

int whole(scene_random *random, int count) // 0 to count - 1
{
    return static_cast<int>(scene_next(random) % static_cast<uint64_t>(count));
}

double hour_at(uint64_t seed, int64_t block)
{
    scene_random random = ask(seed, ASK_HOME, -1, 0);
    const double first = 17.5 + static_cast<double>(whole(&random, 16)) / 10;
    return fmod(first + static_cast<double>(block) * EVENING_BLOCK / 3600, 24);
}

bool dark_at(double hour)
{
    return hour > 19 || hour < 5.2;
}

// How likely somebody sits in the room.
float at_home(double hour)
{
    return hour < 6.5 ? 0 : hour < 9 ? 0.3f : hour < 16 ? 0.12f : hour < 22.5 ? 0.6f : 0.2f;
}

bool rests_here(uint64_t seed, int64_t block, size_t who)
{
    scene_random random = ask(seed, ASK_REST, block, who);
    if (block == 1 && who == 0) // somebody comes home at once
        return true;
    return block > 0 && scene_chance(&random, at_home(hour_at(seed, block)));
}

scene_step step_of(scene_verb verb, const char *where, double seconds)
{
    scene_step step;
    step.verb = verb;
    step.seconds = seconds;
    if (where) {
        step.spot.given = true;
        step.spot.anchor = where;
    }
    return step;
}

scene_step step_to(scene_verb verb, double x, double y)
{
    scene_step step;
    step.verb = verb;
    step.spot.given = true;
    step.spot.at = {static_cast<float>(x), static_cast<float>(y), 0};
    return step;
}

// Goes to a few places and does something there.
void add_visits(scene_random *random, bool child, std::vector<scene_step> *steps)
{
    const int visits = 1 + whole(random, 3);
    int last = -1;
    for (int i = 0; i < visits; i++) {
        const int place = whole(random, PLACES);
        if (place == last)
            continue;
        last = place;
        const scene_verb way = child && scene_chance(random, 0.5f) ? VERB_RUN
                               : scene_chance(random, 0.12f)       ? VERB_CARRY
                                                                   : VERB_WALK;
        steps->push_back(step_of(way, places[place], 0));
        const double seconds = static_cast<double>(scene_uniform(random, 1.5f, 7));
        steps->push_back(step_of(scene_chance(random, 0.12f)   ? VERB_CROUCH
                                 : scene_chance(random, 0.08f) ? VERB_WAVE
                                                               : VERB_STAND,
                                 nullptr, seconds));
    }
}

// One person's block. Returns whether they are up and about in their stretch of time.
bool plan_person(uint64_t seed, int64_t block, size_t who, double from, scene_actor *actor)
{
    scene_random random = ask(seed, ASK_STEPS, block, who);
    const bool here = rests_here(seed, block, who), then = rests_here(seed, block + 1, who);
    const char *seat = seats[who % SEATS];
    const double hour = hour_at(seed, block);
    const float chance = here ? 0.55f : hour < 6.5 ? 0.02f : 0.25f;
    const bool active = here != then || scene_chance(&random, chance);
    actor->steps.clear();
    if (here)
        actor->steps.push_back(step_of(VERB_SIT, seat, active ? from + 1 : LONG));
    else
        actor->steps.push_back(step_of(VERB_AWAY, nullptr, active ? from + 1 : LONG));
    if (!active)
        return false;
    if (!here)
        actor->steps.push_back(step_of(VERB_ENTER, nullptr, 0));
    add_visits(&random, actor->look.height < 1.4f, &actor->steps);
    actor->steps.push_back(then ? step_of(VERB_SIT, seat, LONG) : step_of(VERB_LEAVE, nullptr, 0));
    return true;
}

// Where a pet is when a block begins, and how it looks.
void pet_rest(uint64_t seed, int64_t block, size_t who, int *place, float *heading)
{
    scene_random random = ask(seed, ASK_PET, block, who);
    *place = whole(&random, PET_PLACES);
    *heading = scene_uniform(&random, 0, 360);
}

void plan_pet(uint64_t seed, int64_t block, size_t who, scene_actor *actor)
{
    int place, last;
    float heading, last_heading;
    pet_rest(seed, block, who, &place, &heading);
    pet_rest(seed, block + 1, who, &last, &last_heading);
    scene_random random = ask(seed, ASK_PET, block, who + 100);
    actor->at = step_of(VERB_WALK, pet_places[place], 0).spot;
    actor->heading = heading;
    actor->has_heading = true;
    actor->steps = {step_of(VERB_STAND, nullptr, static_cast<double>(scene_uniform(&random, 5, 80)))};
    const int ways = whole(&random, 5);
    for (int i = 0; i < ways; i++) {
        const scene_verb way = scene_chance(&random, 0.2f) ? VERB_RUN : VERB_WALK;
        actor->steps.push_back(step_of(way, pet_places[whole(&random, PET_PLACES)], 0));
        actor->steps.push_back(
            step_of(VERB_STAND, nullptr, static_cast<double>(scene_uniform(&random, 2, 60))));
    }
    actor->steps.push_back(step_of(VERB_WALK, pet_places[last], 0));
    scene_step rest = step_of(VERB_STAND, nullptr, LONG);
    rest.has_face = true;
    rest.face = last_heading;
    actor->steps.push_back(rest);
}

void plan_vacuum(uint64_t seed, int64_t block, bool alone, scene_actor *actor)
{
    static const double corners[][2] = {{2.3, 1.0}, {2.3, 4.8}, {3.0, 4.8},
                                        {3.0, 1.0}, {3.6, 1.0}, {3.6, 3.2}};
    const double hour = hour_at(seed, block);
    scene_random random = ask(seed, ASK_PET, block, 50);
    actor->at = step_to(VERB_WALK, VACUUM_HOME_X, VACUUM_HOME_Y).spot;
    actor->heading = 90;
    actor->has_heading = true;
    actor->steps = {step_of(VERB_STAND, nullptr, 30)};
    if (alone && hour > 9 && hour < 19 && scene_chance(&random, 0.5f))
        for (int round = 0; round < 3; round++)
            for (const double *corner : corners)
                actor->steps.push_back(step_to(VERB_WALK, corner[0], corner[1]));
    actor->steps.push_back(step_to(VERB_WALK, VACUUM_HOME_X, VACUUM_HOME_Y));
    scene_step rest = step_of(VERB_STAND, nullptr, LONG);
    rest.has_face = true;
    rest.face = 90;
    actor->steps.push_back(rest);
}

// Lamp and camera follow whoever is up in the dark. `stretches`: begin and end of those who are, in order of
// time; `left`: how many are in the room after each.
struct stretch {
    double from, to;
    int left;
};
void plan_light(uint64_t seed, int64_t block, int here, const std::vector<stretch> &stretches,
                scene_script *script)
{
    const double hour = hour_at(seed, block);
    const bool dark = dark_at(hour);
    scene_random tv = ask(seed, ASK_TV, block, 0), cars = ask(seed, ASK_CARS, block, 0);
    bool lamp = dark && here > 0;
    scene_change first;
    first.curtain = 0.5f;
    first.corridor = dark && hour > 6 ? 1 : 0;
    first.ceiling = lamp ? 1 : 0;
    first.tv = here > 0 && hour > 17 && scene_chance(&tv, 0.6f) ? 1 : 0;
    first.table = first.tv && dark ? 1 : 0;
    first.filter = dark && !lamp ? 0 : 1;
    first.grey = 1 - first.filter;
    first.infrared = first.filter ? 0.f : 1.f;
    script->lights = {first};
    const auto change = [&](double at, bool on) {
        scene_change c;
        c.at = at;
        c.ceiling = on ? 1 : 0;
        if (!on)
            c.tv = c.table = 0;
        script->lights.push_back(c);
        scene_change camera;
        camera.at = at + CAMERA_AFTER;
        camera.filter = on ? 1 : 0;
        camera.grey = on ? 0 : 1;
        camera.infrared = on ? 0.f : 1.f;
        script->lights.push_back(camera);
        lamp = on;
    };
    for (const stretch &s : stretches) {
        if (dark && !lamp)
            change(s.from + LAMP_AFTER, true);
        if (dark && lamp && s.left == 0)
            change(s.to - 2 * CAMERA_AFTER, false);
    }
    for (int i = whole(&cars, 3); dark && i > 0; i--) {
        scene_change car;
        car.at = static_cast<double>(scene_uniform(&cars, 5, 290));
        car.headlights = scene_uniform(&cars, 3, 8);
        script->lights.push_back(car);
    }
    std::stable_sort(script->lights.begin(), script->lights.end(),
                     [](const scene_change &a, const scene_change &b) { return a.at < b.at; });
}

} // namespace

void evening_home(uint64_t seed, scene_script *script)
{
    scene_random random = ask(seed, ASK_HOME, 0, 0);
    *script = scene_script();
    script->story =
        "An endless evening at home, made from its seed: people come, sit, walk about and go; people events "
        "when somebody walks, never for pets or light.";
    script->room = "living-room";
    script->seed = seed;
    script->seconds = EVENING_BLOCK;
    script->cloud = scene_uniform(&random, 0, 0.9f);
    script->expects = {{0, 0, WISH_ANY, WISH_ANY}};
    const int people = 2 + whole(&random, SEATS - 1), first = whole(&random, PERSON_VARIANTS);
    static const char *const names[SEATS] = {"anna", "ben", "clara", "david", "ella"};
    for (int i = 0; i < people; i++) {
        scene_actor actor;
        actor.name = names[i];
        actor.path = "/actors/" + std::to_string(i);
        actor.look = person_variant(first + i * 5); // 5 and 24 have no common factor: all different
        if (i == 2)                                 // the third of them is a child
            actor.look.height = scene_uniform(&random, 1.1f, 1.35f);
        script->actors.push_back(actor);
    }
    static const thing_kind kinds[] = {THING_CAT, THING_DOG, THING_VACUUM};
    static const float chances[] = {0.6f, 0.4f, 0.3f};
    for (int i = 0; i < 3; i++) {
        if (!scene_chance(&random, chances[i]))
            continue;
        scene_actor actor;
        actor.is_person = false;
        actor.kind = kinds[i];
        actor.name = thing_kind_name(kinds[i]);
        actor.path = "/actors/" + std::to_string(script->actors.size());
        script->actors.push_back(actor);
    }
}

void evening_block(uint64_t seed, int64_t block, scene_script *script)
{
    std::vector<size_t> people;
    int here = 0;
    for (size_t i = 0; i < script->actors.size(); i++)
        if (script->actors[i].is_person) {
            people.push_back(i);
            here += rests_here(seed, block, i);
        }
    // Whose turn is when.
    scene_random random = ask(seed, ASK_ORDER, block, 0);
    for (size_t i = people.size(); i > 1; i--)
        std::swap(people[i - 1], people[static_cast<size_t>(whole(&random, static_cast<int>(i)))]);
    if (block == 0)
        std::swap(people.front(), *std::find(people.begin(), people.end(), 0));
    const double length = EVENING_BLOCK / static_cast<double>(people.size());
    std::vector<stretch> stretches;
    int inside = here;
    for (size_t turn = 0; turn < people.size(); turn++) {
        const double from = length * static_cast<double>(turn);
        const size_t who = people[turn];
        if (!plan_person(seed, block, who, from, &script->actors[who]))
            continue;
        inside += static_cast<int>(rests_here(seed, block + 1, who)) -
                  static_cast<int>(rests_here(seed, block, who));
        stretches.push_back({from, from + length, inside});
    }
    for (size_t i = 0; i < script->actors.size(); i++) {
        if (script->actors[i].is_person)
            continue;
        if (script->actors[i].kind == THING_VACUUM)
            plan_vacuum(seed, block, here == 0 && stretches.empty(), &script->actors[i]);
        else
            plan_pet(seed, block, i, &script->actors[i]);
    }
    plan_light(seed, block, here, stretches, script);
    script->hour = hour_at(seed, block);
}
