// What is to be seen in a picture, counted pixel by pixel, and its line of JSON.
#include <algorithm>
#include <stdarg.h>
#include <string.h>

#include "world_state.h"

namespace
{

enum { WIDTH = 320, HEIGHT = 192 };
const double BEFORE = 0.2;  // seconds: the daemon compares pictures that far apart
const float MOVED = 0.003f; // metres
const float TURNED = 0.01f; // degrees
const float SWUNG = 0.2f;   // degrees of the hanging lamp

bool same_place(const scene_place &a, const scene_place &b)
{
    return memcmp(&a, &b, sizeof a) == 0; // floats only, no padding
}

bool same_view(const scene_view &a, const scene_view &b)
{
    return memcmp(&a, &b, sizeof a) == 0;
}
static_assert(sizeof(scene_view) == 8 * sizeof(float) && sizeof(scene_place) == 12 * sizeof(float),
              "compared byte by byte");

bool stands_still(const scene_object &object)
{
    return object.actor == 0 && !object.moves;
}

// A sum over the corners' bits, each with its own weight.
uint64_t shape_of(const scene_mesh &mesh, uint64_t sum)
{
    static_assert(sizeof(scene_vec) == 3 * sizeof(uint32_t), "read as three words");
    for (const scene_vertex &vertex : mesh.vertices) {
        uint32_t words[3];
        memcpy(words, &vertex.position, sizeof words);
        sum = (sum + words[0]) * UINT64_C(0x9e3779b97f4a7c15);
        sum += (static_cast<uint64_t>(words[1]) << 32) ^ words[2];
    }
    return sum;
}

// Draws what stands still, or takes it from the last time.
void draw_backdrop(world *w, const scene_lens &lens, const scene_snapshot *snapshot)
{
    world_backdrop &kept = w->backdrop;
    size_t matching = 0;
    uint64_t shape = 0;
    bool same = kept.valid && same_view(kept.view, snapshot->view);
    for (const scene_object &object : snapshot->objects) {
        if (!stands_still(object))
            continue;
        same = same && matching < kept.objects.size() && kept.objects[matching].mesh == object.mesh &&
               same_place(kept.objects[matching].place, object.place);
        shape = shape_of(*object.mesh, shape);
        matching++;
    }
    if (same && shape == kept.shape && matching == kept.objects.size()) {
        w->canvas.depth = kept.depth;
        w->canvas.actor = kept.actor;
        return;
    }
    mask_clear(&w->canvas);
    kept.objects.clear();
    for (const scene_object &object : snapshot->objects)
        if (stands_still(object)) {
            mask_draw(&w->canvas, lens, object, nullptr);
            kept.objects.push_back(object);
        }
    kept.depth = w->canvas.depth;
    kept.actor = w->canvas.actor;
    kept.view = snapshot->view;
    kept.shape = shape;
    kept.valid = true;
}

bool mesh_moved(const scene_mesh &a, const scene_mesh &b)
{
    if (a.vertices.size() != b.vertices.size())
        return true;
    for (size_t i = 0; i < a.vertices.size(); i++) {
        const scene_vec d = a.vertices[i].position - b.vertices[i].position;
        if (scene_dot(d, d) > MOVED * MOVED)
            return true;
    }
    return false;
}

scene_vec middle_of(const scene_mesh &mesh)
{
    scene_vec low = mesh.vertices.front().position, high = low;
    for (const scene_vertex &vertex : mesh.vertices) {
        const scene_vec p = vertex.position;
        low = {std::min(low.x, p.x), std::min(low.y, p.y), std::min(low.z, p.z)};
        high = {std::max(high.x, p.x), std::max(high.y, p.y), std::max(high.z, p.z)};
    }
    return (low + high) * 0.5f;
}

// Boxes and counts of the actors' pixels in the picture.
struct seen {
    int left = WIDTH, top = HEIGHT, right = 0, bottom = 0;
    uint64_t pixels = 0, alone = 0;
};

void count_pixels(const mask_canvas &canvas, std::vector<seen> *all)
{
    for (int row = 0; row < HEIGHT; row++)
        for (int column = 0; column < WIDTH; column++) {
            const uint32_t actor = canvas.actor[static_cast<size_t>(row * WIDTH + column)];
            if (actor == 0 || actor > all->size())
                continue;
            seen &s = (*all)[actor - 1];
            s.left = std::min(s.left, column);
            s.right = std::max(s.right, column + 1);
            s.top = std::min(s.top, row);
            s.bottom = std::max(s.bottom, row + 1);
            s.pixels++;
        }
}

void fill_actor(world *w, const scene_snapshot *snapshot, const scene_object &object, const seen &s,
                truth_actor *truth)
{
    const size_t index = object.actor - 1;
    world_actor &actor = w->actors[index];
    person_activity activity = PERSON_STAND;
    const double before = std::max(0.0, snapshot->time - BEFORE);
    const bool was_here = world_pose(w, index, before, snapshot->view, &actor.mesh_before, nullptr);
    truth->actor = object.actor;
    truth->name = actor.name;
    truth->kind = actor.body ? "person" : thing_kind_name(actor.kind);
    if (actor.body) {
        double local;
        const world_plan *plan = world_plan_at(w, snapshot->time, &local);
        activity = plan ? track_at(plan->tracks[index], local).activity : PERSON_STAND;
        truth->doing = person_activity_name(activity);
    }
    if (s.pixels > 0) {
        truth->box[0] = static_cast<float>(s.left);
        truth->box[1] = static_cast<float>(s.top);
        truth->box[2] = static_cast<float>(s.right);
        truth->box[3] = static_cast<float>(s.bottom);
        truth->visible = static_cast<float>(static_cast<double>(s.pixels) / static_cast<double>(s.alone));
    }
    truth->moves = !was_here || mesh_moved(actor.mesh, actor.mesh_before);
    if (object.mesh->vertices.empty())
        return;
    const scene_vec middle = middle_of(*object.mesh);
    truth->distance = scene_length(middle - snapshot->view.position);
    scene_light_at(snapshot, middle, &truth->lux, &truth->infrared);
}

bool lamp_differs(const room_state &a, const room_state &b)
{
    return a.ceiling_lamp != b.ceiling_lamp || a.table_lamp != b.table_lamp || a.tv != b.tv ||
           a.infrared_level != b.infrared_level || a.white_level != b.white_level;
}

std::vector<std::string> stirs_of(const room_state &now, const room_state &before)
{
    std::vector<std::string> stirs;
    if (now.wind > 0 && now.curtain > 0)
        stirs.push_back("curtain");
    if (now.door != before.door)
        stirs.push_back("door");
    if (fabsf(now.lamp_swing - before.lamp_swing) > SWUNG)
        stirs.push_back("lamp");
    if (now.tv || before.tv)
        stirs.push_back("tv");
    if (now.headlights >= 0 || before.headlights >= 0)
        stirs.push_back("headlights");
    return stirs;
}

void add_format(std::string *line, const char *format, ...) __attribute__((format(printf, 2, 3)));
void add_format(std::string *line, const char *format, ...)
{
    char text[128];
    va_list arguments;
    va_start(arguments, format);
    // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized): it does not see va_start
    vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    *line += text;
}

void add_text(std::string *line, const std::string &text)
{
    *line += '"';
    for (const char c : text) {
        if (c == '"' || c == '\\')
            *line += '\\';
        if (static_cast<unsigned char>(c) < 0x20)
            add_format(line, "\\u%04x", static_cast<unsigned>(c));
        else
            *line += c;
    }
    *line += '"';
}

void add_number(std::string *line, const char *name, double value, int decimals)
{
    add_format(line, "\"%s\":%.*f,", name, decimals, value);
}

void add_flag(std::string *line, const char *name, bool value)
{
    add_format(line, "\"%s\":%s,", name, value ? "true" : "false");
}

void add_actor(std::string *line, const truth_actor &actor)
{
    add_format(line, "{\"actor\":%u,\"name\":", actor.actor);
    add_text(line, actor.name);
    *line += ",\"kind\":";
    add_text(line, actor.kind);
    *line += ",\"doing\":";
    add_text(line, actor.doing);
    add_format(line, ",\"box\":[%d,%d,%d,%d],", static_cast<int>(actor.box[0]),
               static_cast<int>(actor.box[1]), static_cast<int>(actor.box[2]),
               static_cast<int>(actor.box[3]));
    add_number(line, "visible", static_cast<double>(actor.visible), 3);
    add_number(line, "distance", static_cast<double>(actor.distance), 2);
    add_flag(line, "moves", actor.moves);
    add_number(line, "lux", static_cast<double>(actor.lux), 2);
    add_number(line, "infrared", static_cast<double>(actor.infrared), 2);
    line->back() = '}';
}

} // namespace

void world_truth(world *world, const scene_snapshot *snapshot, uint64_t number, truth_moment *truth)
{
    const scene_lens lens = scene_lens_of(&snapshot->view, WIDTH, HEIGHT);
    mask_prepare(&world->canvas, lens, true);
    draw_backdrop(world, lens, snapshot);
    std::vector<seen> all(world->actors.size());
    for (const scene_object &object : snapshot->objects) {
        if (stands_still(object))
            continue;
        if (object.actor > 0 && object.actor <= all.size()) {
            mask_count_new(&world->canvas);
            mask_draw(&world->canvas, lens, object, &all[object.actor - 1].alone);
        } else {
            mask_draw(&world->canvas, lens, object, nullptr);
        }
    }
    count_pixels(world->canvas, &all);

    *truth = truth_moment();
    truth->time = snapshot->time;
    truth->number = number;
    for (const scene_object &object : snapshot->objects) {
        if (object.actor == 0 || object.actor > all.size())
            continue;
        truth->actors.push_back(truth_actor());
        fill_actor(world, snapshot, object, all[object.actor - 1], &truth->actors.back());
    }

    // The scene's own past is asked of its plan; the controls' past is what they were for the snapshot
    // before.
    room_state now, before;
    scene_optics optics, optics_before;
    const bool recent = world->time_before >= 0 && world->time - world->time_before <= BEFORE + 0.1 &&
                        world->time > world->time_before;
    const world_controls *past = recent ? &world->controls_before : &world->controls;
    world_state_at(world, snapshot->time, &world->controls, &now, &optics);
    world_state_at(world, std::max(0.0, snapshot->time - BEFORE), past, &before, &optics_before);
    truth->filter = snapshot->optics.filter;
    truth->grey = snapshot->optics.grey;
    truth->infrared_lamp = now.infrared_lamp;
    truth->white_lamp = now.white_lamp;
    truth->lamps = {{"ceiling", now.ceiling_lamp},
                    {"table", now.table_lamp},
                    {"tv", now.tv},
                    {"headlights", now.headlights >= 0}};
    truth->pan = snapshot->view.pan;
    truth->tilt = snapshot->view.tilt;
    truth->view_moves =
        fabsf(now.view.pan - before.view.pan) > TURNED || fabsf(now.view.tilt - before.view.tilt) > TURNED;
    truth->light_changes = lamp_differs(now, before) || optics.filter != optics_before.filter ||
                           optics.grey != optics_before.grey;
    truth->stirs = stirs_of(now, before);
    truth->hour = now.hour;
}

std::string truth_json(const truth_moment *truth)
{
    std::string line = "{";
    add_number(&line, "time", truth->time, 3);
    add_format(&line, "\"number\":%llu,\"actors\":[", static_cast<unsigned long long>(truth->number));
    for (const truth_actor &actor : truth->actors) {
        add_actor(&line, actor);
        line += ',';
    }
    if (!truth->actors.empty())
        line.pop_back();
    line += "],";
    add_flag(&line, "filter", truth->filter);
    add_flag(&line, "grey", truth->grey);
    add_flag(&line, "infrared_lamp", truth->infrared_lamp);
    add_flag(&line, "white_lamp", truth->white_lamp);
    line += "\"lamps\":{";
    for (const auto &lamp : truth->lamps)
        add_flag(&line, lamp.first.c_str(), lamp.second);
    if (!truth->lamps.empty())
        line.pop_back();
    line += "},";
    add_number(&line, "pan", static_cast<double>(truth->pan), 2);
    add_number(&line, "tilt", static_cast<double>(truth->tilt), 2);
    add_flag(&line, "view_moves", truth->view_moves);
    add_flag(&line, "light_changes", truth->light_changes);
    line += "\"stirs\":[";
    for (const std::string &stir : truth->stirs) {
        add_text(&line, stir);
        line += ',';
    }
    if (!truth->stirs.empty())
        line.pop_back();
    line += "],";
    add_number(&line, "hour", truth->hour, 4);
    line.back() = '}';
    return line;
}
