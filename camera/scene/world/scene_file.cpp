// From text to script: JSON first, then the schema, then what a schema cannot say.
#include "scene_file.h"

#include <json-c/json.h>
#include <memory>
#include <string.h>

#include "json_lines.h"
#include "schema_check.h"

namespace
{

typedef std::unique_ptr<json_object, int (*)(json_object *)> json_owner;

// Which members belong to a step, and to whom.
enum step_member { TO = 1, AT = 2, SECONDS = 4, SPEED = 8, FACE = 16 };
struct verb_row {
    const char *name;
    unsigned wanted, possible; // step_member
    bool for_things;           // people do everything
};
const verb_row verbs[VERBS] = {
    {"walk", TO, TO | SPEED | FACE, true},    {"run", TO, TO | SPEED | FACE, true},
    {"carry", TO, TO | SPEED | FACE, false},  {"stand", SECONDS, SECONDS | FACE, true},
    {"wave", SECONDS, SECONDS | FACE, false}, {"crouch", SECONDS, SECONDS | FACE, false},
    {"sit", SECONDS, SECONDS | AT, false},    {"desk", SECONDS, SECONDS | AT, false},
    {"lie", SECONDS, SECONDS | AT, false},    {"fall", SECONDS, SECONDS, false},
    {"enter", 0, AT | SPEED, true},           {"leave", 0, AT | SPEED, true},
    {"away", SECONDS, SECONDS, true},
};
struct member_row {
    const char *name;
    unsigned bit;
};
const member_row step_members[] = {
    {"to", TO}, {"at", AT}, {"seconds", SECONDS}, {"speed", SPEED}, {"face", FACE}};

struct reader {
    scene_fault *fault;
    json_lines lines;
};

bool fail(reader *r, const std::string &path, const std::string &text)
{
    r->fault->line = json_lines_find(r->lines, path);
    r->fault->text = text;
    return false;
}

json_object *member(json_object *object, const char *name)
{
    json_object *value = nullptr;
    return object && json_object_object_get_ex(object, name, &value) ? value : nullptr;
}
// Members that may be missing leave what is there. Kinds and bounds are the schema's business, and checked
// before.
template <typename number> void read_number(json_object *object, const char *name, number *result)
{
    if (json_object *value = member(object, name))
        *result = static_cast<number>(json_object_get_double(value));
}
void read_flag(json_object *object, const char *name, bool *result)
{
    if (json_object *value = member(object, name))
        *result = json_object_get_boolean(value);
}
void read_switch(json_object *object, const char *name, int *result)
{
    if (json_object *value = member(object, name))
        *result = json_object_get_boolean(value) ? 1 : 0;
}
void read_text(json_object *object, const char *name, std::string *result)
{
    if (json_object *value = member(object, name))
        *result = json_object_get_string(value);
}
void read_numbers(json_object *list, float *result, size_t count)
{
    for (size_t i = 0; i < count; i++)
        result[i] = static_cast<float>(json_object_get_double(json_object_array_get_idx(list, i)));
}
size_t length_of(json_object *list)
{
    return list ? json_object_array_length(list) : 0;
}

scene_spot read_spot(json_object *value, const std::string &path)
{
    scene_spot spot;
    if (!value)
        return spot;
    spot.given = true;
    spot.path = path;
    if (json_object_is_type(value, json_type_string)) {
        spot.anchor = json_object_get_string(value);
        return spot;
    }
    float xyz[3] = {0, 0, 0};
    spot.has_height = json_object_array_length(value) == 3;
    read_numbers(value, xyz, json_object_array_length(value));
    spot.at = {xyz[0], xyz[1], xyz[2]};
    return spot;
}

world_wish read_wish(json_object *value)
{
    const char *name = json_object_get_string(value);
    return strcmp(name, "wanted") == 0      ? WISH_WANTED
           : strcmp(name, "forbidden") == 0 ? WISH_FORBIDDEN
                                            : WISH_ANY;
}

bool read_expects(reader *r, json_object *expects, scene_script *script)
{
    script->expects = {
        {0, script->seconds, read_wish(member(expects, "people")), read_wish(member(expects, "objects"))}};
    json_object *spans = member(expects, "spans");
    for (size_t i = 0; i < length_of(spans); i++) {
        json_object *span = json_object_array_get_idx(spans, i);
        world_expectation wish;
        read_number(span, "from", &wish.from);
        read_number(span, "to", &wish.to);
        wish.people = read_wish(member(span, "people"));
        wish.objects = read_wish(member(span, "objects"));
        const std::string path = "/expects/spans/" + std::to_string(i);
        if (wish.to <= wish.from)
            return fail(r, path + "/to", "\"to\" is not after \"from\"; expected a later time");
        if (script->seconds > 0 && wish.to > script->seconds)
            return fail(r, path + "/to", "\"to\" is past the end of the scene; expected at most \"seconds\"");
        script->expects.push_back(wish);
    }
    return true;
}

bool read_lights(reader *r, json_object *list, scene_script *script)
{
    for (size_t i = 0; i < length_of(list); i++) {
        json_object *entry = json_object_array_get_idx(list, i);
        scene_change change;
        read_number(entry, "at", &change.at);
        read_switch(entry, "ceiling", &change.ceiling);
        read_switch(entry, "table", &change.table);
        read_switch(entry, "tv", &change.tv);
        read_switch(entry, "corridor", &change.corridor);
        read_switch(entry, "filter", &change.filter);
        read_switch(entry, "grey", &change.grey);
        read_number(entry, "curtain", &change.curtain);
        read_number(entry, "wind", &change.wind);
        read_number(entry, "infrared", &change.infrared);
        read_number(entry, "white", &change.white);
        read_number(entry, "swing", &change.swing);
        read_number(entry, "headlights", &change.headlights);
        if (i > 0 && change.at < script->lights.back().at)
            return fail(r, "/lights/" + std::to_string(i) + "/at",
                        "\"at\" is before the change above it; expected changes in the order of time");
        script->lights.push_back(change);
    }
    return true;
}

bool read_camera(reader *r, json_object *object, scene_camera *camera)
{
    if (!object)
        return true;
    if (member(object, "anchor") && member(object, "position"))
        return fail(r, "/camera/position",
                    "the camera has an \"anchor\" and a \"position\"; expected one of them");
    read_text(object, "anchor", &camera->anchor);
    if (json_object *position = member(object, "position")) {
        float xyz[3];
        read_numbers(position, xyz, 3);
        camera->anchor.clear();
        camera->position = {xyz[0], xyz[1], xyz[2]};
    }
    read_number(object, "pan", &camera->pan);
    read_number(object, "tilt", &camera->tilt);
    read_number(object, "angle", &camera->angle);
    read_number(object, "distortion", &camera->distortion);
    read_number(object, "focus", &camera->focus);
    scene_camera_turn turn = {0, camera->pan, camera->tilt, 60};
    json_object *turns = member(object, "turns");
    for (size_t i = 0; i < length_of(turns); i++) {
        json_object *entry = json_object_array_get_idx(turns, i);
        const double before = turn.at;
        read_number(entry, "at", &turn.at);
        read_number(entry, "pan", &turn.pan);
        read_number(entry, "tilt", &turn.tilt);
        read_number(entry, "speed", &turn.speed);
        if (turn.at < before)
            return fail(r, "/camera/turns/" + std::to_string(i) + "/at",
                        "\"at\" is before the turn above it; expected turns in the order of time");
        camera->turns.push_back(turn);
    }
    return true;
}

void read_colour(json_object *object, const char *name, scene_material *material)
{
    json_object *list = member(object, name);
    if (!list)
        return;
    *material = scene_material();
    read_numbers(list, material->first, BANDS);
    read_numbers(list, material->second, BANDS);
}

void read_look(json_object *object, person_look *look)
{
    static const char *const clothes[CLOTHES_KINDS] = {"trousers", "shorts", "skirt",
                                                       "dress",    "coat",   "hood"};
    read_number(object, "height", &look->height);
    read_number(object, "build", &look->build);
    read_number(object, "shoulders", &look->shoulders);
    read_number(object, "hair_length", &look->hair_length);
    read_flag(object, "glasses", &look->glasses);
    read_flag(object, "cap", &look->cap);
    read_flag(object, "beard", &look->beard);
    if (json_object *value = member(object, "clothes"))
        for (int i = 0; i < CLOTHES_KINDS; i++)
            if (strcmp(clothes[i], json_object_get_string(value)) == 0)
                look->clothes = i;
    read_colour(object, "skin", &look->skin);
    read_colour(object, "hair", &look->hair);
    read_colour(object, "top", &look->top);
    read_colour(object, "bottom", &look->bottom);
    read_colour(object, "shoes", &look->shoes);
}

bool read_step(reader *r, json_object *object, const std::string &path, bool is_person, scene_step *step)
{
    const char *name = json_object_get_string(member(object, "do"));
    for (int i = 0; i < VERBS; i++)
        if (strcmp(verbs[i].name, name) == 0)
            step->verb = static_cast<scene_verb>(i);
    const verb_row &row = verbs[step->verb];
    if (!is_person && !row.for_things)
        return fail(r, path + "/do",
                    "only people can \"" + std::string(name) +
                        "\"; expected walk, run, stand, enter, leave or away for a thing");
    for (const member_row &m : step_members) {
        const bool there = member(object, m.name) != nullptr;
        if (there && !(row.possible & m.bit))
            return fail(r, path + "/" + m.name,
                        "\"" + std::string(m.name) + "\" does not belong to \"" + name + "\"");
        if (!there && (row.wanted & m.bit))
            return fail(r, path, "\"" + std::string(name) + "\" wants \"" + m.name + "\"");
    }
    const char *place = member(object, "to") ? "to" : "at";
    step->spot = read_spot(member(object, place), path + "/" + place);
    read_number(object, "seconds", &step->seconds);
    read_number(object, "speed", &step->speed);
    if (json_object *face = member(object, "face")) {
        step->has_face = true;
        if (json_object_is_type(face, json_type_string))
            step->face_anchor = json_object_get_string(face);
        else
            step->face = static_cast<float>(json_object_get_double(face));
    }
    return true;
}

bool read_actor(reader *r, json_object *object, const std::string &path, scene_script *script)
{
    scene_actor actor;
    actor.path = path;
    read_text(object, "name", &actor.name);
    for (const scene_actor &other : script->actors)
        if (other.name == actor.name)
            return fail(r, path + "/name",
                        "there are two actors \"" + actor.name + "\"; expected different names");
    json_object *variant = member(object, "person"), *kind = member(object, "thing"),
                *look = member(object, "look");
    if ((variant != nullptr) == (kind != nullptr))
        return fail(r, path, "actor \"" + actor.name + "\": expected either \"person\" or \"thing\"");
    if (kind && look)
        return fail(r, path + "/look", "\"look\" belongs to a \"person\"");
    actor.is_person = variant != nullptr;
    if (variant) {
        actor.look = person_variant(json_object_get_int(variant));
        read_look(look, &actor.look);
    } else {
        for (int i = 0; i < THING_KINDS; i++)
            if (strcmp(thing_kind_name(i), json_object_get_string(kind)) == 0)
                actor.kind = static_cast<thing_kind>(i);
    }
    actor.at = read_spot(member(object, "at"), path + "/at");
    actor.has_heading = member(object, "heading") != nullptr;
    read_number(object, "heading", &actor.heading);
    read_number(object, "start", &actor.start);
    read_flag(object, "loop", &actor.loop);
    json_object *steps = member(object, "steps");
    for (size_t i = 0; i < length_of(steps); i++) {
        scene_step step;
        if (!read_step(r, json_object_array_get_idx(steps, i), path + "/steps/" + std::to_string(i),
                       actor.is_person, &step))
            return false;
        actor.steps.push_back(step);
    }
    script->actors.push_back(actor);
    return true;
}

bool read_scene(reader *r, json_object *top, scene_script *script)
{
    read_text(top, "story", &script->story);
    read_text(top, "room", &script->room);
    if (json_object *seed = member(top, "seed"))
        script->seed = static_cast<uint64_t>(json_object_get_int64(seed));
    read_number(top, "seconds", &script->seconds);
    read_number(top, "repeat", &script->repeat);
    read_number(top, "hour", &script->hour);
    read_number(top, "hour_speed", &script->hour_speed);
    read_number(top, "cloud", &script->cloud);
    if (script->seconds <= 0 && script->repeat <= 0)
        return fail(r, "/seconds",
                    "\"seconds\" is 0, so the scene is endless; expected a \"repeat\" beside it");
    if (json_object *settings = member(top, "settings")) {
        json_object_object_foreach(settings, key, value) script->settings[key] =
            json_object_get_string(value);
    }
    if (!read_expects(r, member(top, "expects"), script) || !read_lights(r, member(top, "lights"), script) ||
        !read_camera(r, member(top, "camera"), &script->camera))
        return false;
    json_object *actors = member(top, "actors");
    for (size_t i = 0; i < length_of(actors); i++)
        if (!read_actor(r, json_object_array_get_idx(actors, i), "/actors/" + std::to_string(i), script))
            return false;
    return true;
}

json_owner parse(const std::string &text, std::string *error, size_t *end)
{
    std::unique_ptr<json_tokener, void (*)(json_tokener *)> parser(json_tokener_new(), json_tokener_free);
    json_tokener_set_flags(parser.get(), JSON_TOKENER_STRICT | JSON_TOKENER_VALIDATE_UTF8);
    json_owner top(json_tokener_parse_ex(parser.get(), text.data(), static_cast<int>(text.size())),
                   json_object_put);
    const json_tokener_error problem = json_tokener_get_error(parser.get());
    *end = json_tokener_get_parse_end(parser.get());
    if (problem == json_tokener_continue)
        *error = "the text ends too early";
    else if (problem != json_tokener_success) // strict: something behind the scene is an error too
        *error = json_tokener_error_desc(problem);
    return top;
}

} // namespace

bool scene_parse(const std::string &text, scene_script *script, scene_fault *fault)
{
    *script = scene_script();
    *fault = scene_fault();
    if (text.size() > SCENE_FILE_MAX) {
        fault->text =
            std::to_string(text.size()) + " bytes; expected at most " + std::to_string(SCENE_FILE_MAX);
        return false;
    }
    std::string error = text.find('\0') != std::string::npos ? "a zero byte" : "", path;
    size_t end = text.find('\0');
    json_owner top(nullptr, json_object_put);
    if (error.empty())
        top = parse(text, &error, &end);
    if (!error.empty()) {
        fault->line = 1;
        for (size_t i = 0; i < end && i < text.size(); i++)
            fault->line += text[i] == '\n';
        fault->text = "not JSON: " + error;
        return false;
    }
    reader r = {fault, {}};
    if (!json_lines_read(text, &r.lines, &fault->text, &fault->line))
        return false;
    fault->line = 0;
    std::unique_ptr<json_object, int (*)(json_object *)> schema(json_tokener_parse(schema_text),
                                                                json_object_put);
    if (!schema_check(schema.get(), top.get(), &path, &error))
        return fail(&r, path, error);
    return read_scene(&r, top.get(), script);
}

int scene_line(const std::string &text, const std::string &path)
{
    json_lines lines;
    std::string error;
    int line;
    json_lines_read(text, &lines, &error, &line);
    return json_lines_find(lines, path);
}

const char *scene_verb_name(int verb)
{
    return verb >= 0 && verb < VERBS ? verbs[verb].name : nullptr;
}
