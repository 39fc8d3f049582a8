// Scenes by name: opening, planning, and the snapshot of a moment.
#include "world.h"

#include <algorithm>
#include <dirent.h>
#include <errno.h>
#include <stdlib.h>
#include <string.h>

#include "desk.h"
#include "world_state.h"

namespace
{

enum { PLANS_KEPT = 3 }; // of an evening: the block asked for, its neighbour, and one more

bool read_file(const std::string &path, std::string *text)
{
    std::unique_ptr<FILE, int (*)(FILE *)> stream(fopen(path.c_str(), "re"), fclose);
    if (!stream) {
        desk_say("%s: %s", path.c_str(), strerror(errno));
        return false;
    }
    text->assign(SCENE_FILE_MAX + 1, '\0');
    text->resize(fread(&(*text)[0], 1, text->size(), stream.get()));
    if (ferror(stream.get())) {
        desk_say("%s: cannot be read: %s", path.c_str(), strerror(errno));
        return false;
    }
    return true;
}

uint32_t seed_of(uint64_t seed, size_t index)
{
    scene_random random = {seed ^ (UINT64_C(0x5bd1e995) * (index + 1))};
    return static_cast<uint32_t>(scene_next(&random) >> 32);
}

std::string room_names(void)
{
    std::string names;
    for (int i = 0; room_name(i); i++)
        names += (i ? ", " : "") + std::string(room_name(i));
    return names;
}

// The room, the camera's place in it and the actors' bodies, all from the script.
bool furnish(world *w, const scene_script &script, std::string *path, std::string *text)
{
    w->place = room_make(script.room.c_str(), static_cast<uint32_t>(script.seed));
    if (!w->place) {
        *path = "/room";
        *text = "there is no room \"" + script.room + "\"; expected one of " + room_names();
        return false;
    }
    w->ground = track_ground_make(w->place);
    w->seed = script.seed;
    const scene_camera &camera = script.camera;
    w->placement.position = camera.position;
    if (!camera.anchor.empty()) {
        room_anchor anchor = {};
        if (!room_find(w->place, camera.anchor.c_str(), &anchor)) {
            *path = "/camera/anchor";
            *text = "there is no \"" + camera.anchor + "\" in this room; expected shelf or corner";
            return false;
        }
        w->placement.position = anchor.position;
        w->placement.pan = anchor.heading;
        w->placement.tilt = anchor.tilt;
    }
    w->placement.width_angle = camera.angle;
    w->placement.distortion = camera.distortion;
    w->placement.focus = camera.focus;
    for (const scene_actor &actor : script.actors) {
        world_actor a;
        a.name = actor.name;
        a.kind = actor.kind;
        a.seed = seed_of(script.seed, w->actors.size());
        if (actor.is_person)
            a.body = person_make(&actor.look);
        else
            a.object = thing_make(actor.kind, a.seed);
        w->actors.push_back(a);
    }
    return true;
}

// Whether everybody who is there when a repeated scene ends is where it began.
bool closes(const world_plan &plan, std::string *path, std::string *text)
{
    const double end = plan.script.repeat;
    for (size_t i = 0; end > 0 && i < plan.tracks.size(); i++) {
        const track_moment first = track_at(plan.tracks[i], 0), last = track_at(plan.tracks[i], end);
        if (first.here == last.here && (!first.here || scene_length(first.position - last.position) < 0.05f))
            continue;
        *path = plan.script.actors[i].path;
        *text = "\"" + plan.script.actors[i].name +
                "\" is elsewhere when the scene repeats; expected to end where it began, or away both times";
        return false;
    }
    return true;
}

bool open_file(world *w, const std::string &file)
{
    std::string text, path, error;
    if (!read_file(file, &text))
        return false;
    std::unique_ptr<world_plan> plan(new world_plan);
    scene_fault fault;
    if (!scene_parse(text, &plan->script, &fault)) {
        if (fault.line > 0)
            desk_say("%s:%d: %s", file.c_str(), fault.line, fault.text.c_str());
        else
            desk_say("%s: %s", file.c_str(), fault.text.c_str());
        return false;
    }
    if (!furnish(w, plan->script, &path, &error) || !world_plan_make(w, plan.get(), &path, &error) ||
        !closes(*plan, &path, &error)) {
        desk_say("%s:%d: %s", file.c_str(), scene_line(text, path), error.c_str());
        return false;
    }
    w->plans.push_back(std::move(plan));
    return true;
}

// "random" with an optional "?seed=N".
bool open_evening(world *w, const std::string &name)
{
    const std::string start = "random?seed=";
    uint64_t seed = 1;
    if (name != "random") {
        const std::string digits = name.compare(0, start.size(), start) == 0 ? name.substr(start.size()) : "";
        errno = 0;
        if (!digits.empty() && digits.find_first_not_of("0123456789") == std::string::npos)
            seed = strtoull(digits.c_str(), nullptr, 10);
        else
            errno = EINVAL;
        if (errno != 0) {
            desk_say("%s: expected random?seed=N with a whole number N", name.c_str());
            return false;
        }
    }
    scene_script home;
    evening_home(seed, &home);
    std::string path, error;
    w->evening = true;
    if (!furnish(w, home, &path, &error)) {
        desk_say("%s: %s", name.c_str(), error.c_str());
        return false;
    }
    w->seed = seed;
    double local;
    return world_plan_at(w, 0, &local) != nullptr;
}

} // namespace

bool world_plan_make(const world *world, world_plan *plan, std::string *path, std::string *text)
{
    const scene_script &script = plan->script;
    const double end = script.repeat > 0 ? script.repeat : script.seconds;
    plan->turns = stage_turns_plan(script.camera);
    plan->tracks.resize(script.actors.size());
    for (size_t i = 0; i < script.actors.size(); i++)
        if (!track_plan(world->ground, script.actors[i], end, &plan->tracks[i], &plan->passages, path, text))
            return false;
    return true;
}

const world_plan *world_plan_at(world *world, double time, double *local)
{
    if (!world->evening) {
        const world_plan *plan = world->plans.front().get();
        *local = plan->script.repeat > 0 ? fmod(time, plan->script.repeat) : time;
        return plan;
    }
    const double block = floor(time / EVENING_BLOCK);
    *local = time - block * EVENING_BLOCK;
    for (const std::unique_ptr<world_plan> &plan : world->plans)
        if (plan->begin == block * EVENING_BLOCK)
            return plan.get();
    std::unique_ptr<world_plan> plan(new world_plan);
    plan->begin = block * EVENING_BLOCK;
    evening_home(world->seed, &plan->script);
    evening_block(world->seed, static_cast<int64_t>(block), &plan->script);
    std::string path, text;
    if (!world_plan_make(world, plan.get(), &path,
                         &text)) { // our own script: a room without a place it counts on
        desk_say("%s: %s: %s", world->name.c_str(), path.c_str(), text.c_str());
        return nullptr;
    }
    if (world->plans.size() >= PLANS_KEPT)
        world->plans.erase(world->plans.begin());
    world->plans.push_back(std::move(plan));
    return world->plans.back().get();
}

void world_state_at(world *world, double time, const world_controls *controls, room_state *state,
                    scene_optics *optics)
{
    double local;
    const world_plan *plan = world_plan_at(world, time, &local);
    *state = room_state();
    *optics = scene_optics();
    state->time = time;
    state->view = world->placement;
    if (!plan)
        return;
    stage_light_at(plan->script, local, state, optics);
    state->door = track_door(plan->passages, local);
    float pan, tilt;
    stage_turn_at(plan->script.camera, plan->turns, local, &pan, &tilt);
    if (controls && controls->view_set) {
        pan = plan->script.camera.pan + controls->pan;
        tilt = plan->script.camera.tilt + controls->tilt;
    }
    if (controls && controls->lights_set) {
        optics->filter = controls->filter;
        optics->grey = controls->grey;
        state->infrared_level = controls->infrared;
        state->white_level = controls->white;
        state->infrared_lamp = controls->infrared > 0;
        state->white_lamp = controls->white > 0;
    }
    state->view.pan += pan;
    state->view.tilt += tilt;
}

// Before the lens, where a moth flies to the camera's own light.
static scene_vec insect_place(const scene_view &view, uint32_t seed, double time)
{
    const scene_lens lens = scene_lens_of(&view, 320, 192);
    const double phase = seed % 1000, t = time;
    const float x = static_cast<float>(0.11 * sin(t * 1.7 + phase) + 0.05 * sin(t * 4.3 + phase * 3));
    const float y = static_cast<float>(0.06 * sin(t * 2.1 + phase * 2) + 0.03 * sin(t * 5.7));
    const float z = static_cast<float>(0.24 + 0.07 * sin(t * 1.1 + phase));
    return scene_to_world(lens, {x, y, z});
}

bool world_pose(world *world, size_t actor, double time, const scene_view &view, scene_mesh *mesh,
                person_activity *activity)
{
    double local;
    const world_plan *plan = world_plan_at(world, time, &local);
    const world_actor &a = world->actors[actor];
    if (!plan || actor >= plan->tracks.size())
        return false;
    const track_moment at = track_at(plan->tracks[actor], local);
    if (!at.here)
        return false;
    if (activity)
        *activity = at.activity;
    // The world's time, not the script's: nobody's breath jumps where a script begins again. Folded while a
    // float still tells hundredths of a second apart.
    const float breath = static_cast<float>(fmod(time, 36000));
    if (a.body) {
        person_moment moment;
        moment.activity = at.activity;
        moment.before = at.before;
        moment.blend = at.blend;
        moment.position = at.position;
        moment.before_position = at.before_position;
        moment.heading = at.heading;
        moment.before_heading = at.before_heading;
        moment.way = at.way;
        moment.speed = at.pace;
        moment.time = breath;
        moment.seed = a.seed;
        person_pose(a.body, &moment, mesh);
        return true;
    }
    thing_moment moment;
    moment.position = a.kind == THING_INSECT ? insect_place(view, a.seed, time) : at.position;
    moment.heading = at.heading;
    moment.way = at.way;
    moment.speed = a.kind == THING_FAN ? 1 : at.speed; // whoever has a fan in a scene wants it to run
    moment.time = breath;
    thing_pose(a.object, &moment, mesh);
    return true;
}

world *world_open(const char *scene)
{
    std::unique_ptr<world, void (*)(world *)> w(new world, world_close);
    std::string name = scene;
    const std::string folder = "scenes/", ending = ".json";
    if (name.compare(0, folder.size() + 6, folder + "random") ==
        0) // as people write it beside the files' names
        name = name.substr(folder.size());
    w->name = name;
    bool opened;
    if (name.compare(0, 6, "random") == 0 && name.find('/') == std::string::npos &&
        (name.size() == 6 || name[6] == '?')) {
        opened = open_evening(w.get(), name);
    } else {
        const bool is_path = name.find('/') != std::string::npos ||
                             (name.size() > ending.size() &&
                              name.compare(name.size() - ending.size(), ending.size(), ending) == 0);
        if (!is_path) {
            const std::vector<std::string> names = world_names();
            if (!std::binary_search(names.begin(), names.end(), name)) {
                desk_say("there is no scene \"%s\" in %s; naro_camera --scenes lists them", name.c_str(),
                         world_folder().c_str());
                return nullptr;
            }
        }
        opened = open_file(w.get(), is_path ? name : world_folder() + "/" + name + ending);
    }
    return opened ? w.release() : nullptr;
}

void world_close(world *world)
{
    if (!world)
        return;
    for (world_actor &actor : world->actors) {
        if (actor.body)
            person_free(actor.body);
        if (actor.object)
            thing_free(actor.object);
    }
    if (world->place)
        room_free(world->place);
    delete world;
}

std::string world_folder(void)
{
    const char *given = getenv("NARO_SCENES");
    return given && *given ? given : NARO_SCENES_FOLDER;
}

std::vector<std::string> world_names(void)
{
    const std::string ending = ".json";
    std::vector<std::string> names;
    std::unique_ptr<DIR, int (*)(DIR *)> folder(opendir(world_folder().c_str()), closedir);
    if (!folder)
        return names;
    while (const dirent *entry = readdir(folder.get())) {
        const std::string file = entry->d_name;
        if (file.size() > ending.size() &&
            file.compare(file.size() - ending.size(), ending.size(), ending) == 0 && file != "schema.json")
            names.push_back(file.substr(0, file.size() - ending.size()));
    }
    std::sort(names.begin(), names.end());
    return names;
}

const char *world_name(const world *world)
{
    return world->name.c_str();
}

const char *world_story(const world *world)
{
    return world->plans.front()->script.story.c_str();
}

double world_seconds(const world *world)
{
    return world->evening ? 0 : world->plans.front()->script.seconds;
}

uint64_t world_seed(const world *world)
{
    return world->seed;
}

const std::map<std::string, std::string> &world_settings(const world *world)
{
    return world->plans.front()->script.settings;
}

const std::vector<world_expectation> &world_expects(const world *world)
{
    return world->plans.front()->script.expects;
}

void world_snapshot(world *world, double time, const world_controls *controls, scene_snapshot *snapshot)
{
    room_state state;
    snapshot->objects.clear();
    snapshot->lights.clear();
    std::fill(snapshot->ambient, snapshot->ambient + BANDS, 0.f);
    std::fill(snapshot->sky, snapshot->sky + BANDS, 0.f);
    world_state_at(world, time, controls, &state, &snapshot->optics);
    snapshot->time = time;
    snapshot->view = state.view;
    room_snapshot(world->place, &state, snapshot);
    for (size_t i = 0; i < world->actors.size(); i++) {
        world_actor &actor = world->actors[i];
        if (!world_pose(world, i, time, state.view, &actor.mesh, nullptr))
            continue;
        scene_object object;
        object.mesh = &actor.mesh;
        object.materials = actor.body ? person_materials(actor.body) : thing_materials(actor.object);
        object.actor = static_cast<uint32_t>(i + 1);
        object.moves = true;
        snapshot->objects.push_back(object);
    }
    if (time != world->time || world->time_before < 0) { // the same moment again does not become its own past
        world->controls_before = world->controls;
        world->time_before = world->time;
    }
    world->controls = controls ? *controls : world_controls();
    world->time = time;
}
