// The rules are data: this walks schema and value side by side.
#include "schema_check.h"

#include <math.h>
#include <string.h>

namespace
{

enum { DEPTH_MAX = 64 };

struct checker {
    json_object *top; // of the schema, for references
    std::string *path;
    std::string *error;
};

json_object *member(json_object *object, const char *name)
{
    json_object *value = nullptr;
    return object && json_object_object_get_ex(object, name, &value) ? value : nullptr;
}

// The value as a person wrote it, cut where it gets long.
std::string shown(json_object *value)
{
    std::string text =
        json_object_to_json_string_ext(value, JSON_C_TO_STRING_PLAIN | JSON_C_TO_STRING_NOSLASHESCAPE);
    enum { LONGEST = 60 };
    if (text.size() > LONGEST) {
        size_t cut = LONGEST;
        while (cut > 0 && (text[cut] & 0xc0) == 0x80) // not within a character
            cut--;
        text = text.substr(0, cut) + "...";
    }
    return text;
}

std::string number(json_object *value)
{
    char text[40];
    snprintf(text, sizeof text, "%.15g", json_object_get_double(value));
    return text;
}

std::string list_of(json_object *names)
{
    std::string text;
    const size_t count = json_object_array_length(names);
    for (size_t i = 0; i < count; i++)
        text += std::string(i == 0           ? ""
                            : i + 1 == count ? " or "
                                             : ", ") +
                json_object_get_string(json_object_array_get_idx(names, i));
    return text;
}

bool fail(const checker *c, const std::string &path, const std::string &error)
{
    *c->path = path;
    *c->error = error;
    return false;
}

// What a schema's node asks for, in words.
std::string expectation(json_object *schema)
{
    if (json_object *said = member(schema, "description"))
        return json_object_get_string(said);
    if (json_object *names = member(schema, "enum"))
        return list_of(names);
    json_object *kind = member(schema, "type");
    const std::string type = kind ? json_object_get_string(kind) : "";
    json_object *low = member(schema, "minimum"), *high = member(schema, "maximum");
    if (type == "integer" || type == "number") {
        std::string text = type == "integer" ? "a whole number" : "a number";
        if (low && high)
            text += " from " + number(low) + " to " + number(high);
        return text;
    }
    if (type == "boolean")
        return "true or false";
    if (type == "array") {
        json_object *least = member(schema, "minItems"), *most = member(schema, "maxItems");
        const int64_t from = least ? json_object_get_int64(least) : 0;
        if (most && json_object_get_int64(most) == from)
            return "a list of " + std::to_string(from);
        return most ? "a list of " + std::to_string(from) + " to " + number(most) : "a list";
    }
    if (type == "string") {
        json_object *least = member(schema, "minLength"), *most = member(schema, "maxLength");
        const int64_t from = least ? json_object_get_int64(least) : 0;
        return most ? "a text of " + std::to_string(from) + " to " + number(most) + " characters" : "a text";
    }
    if (json_object *most = member(schema, "maxProperties"))
        return "an object of at most " + number(most) + " members";
    return "an object";
}

bool is_of(json_object *value, const char *type)
{
    const json_type kind = json_object_get_type(value);
    if (strcmp(type, "integer") == 0)
        return kind == json_type_int;
    if (strcmp(type, "number") == 0)
        return kind == json_type_int || (kind == json_type_double && isfinite(json_object_get_double(value)));
    return strcmp(type, json_type_to_name(kind)) == 0;
}

bool within(json_object *schema, const char *low, const char *high, double value)
{
    json_object *least = member(schema, low), *most = member(schema, high);
    return (!least || value >= json_object_get_double(least)) &&
           (!most || value <= json_object_get_double(most));
}

// The value alone, without what is in it.
bool fits(json_object *schema, json_object *value)
{
    json_object *type = member(schema, "type");
    if (type && !is_of(value, json_object_get_string(type)))
        return false;
    if (json_object *names = member(schema, "enum")) {
        bool known = false;
        for (size_t i = 0; i < json_object_array_length(names); i++)
            known = known || json_object_equal(json_object_array_get_idx(names, i), value);
        if (!known)
            return false;
    }
    switch (json_object_get_type(value)) {
    case json_type_int:
    case json_type_double:
        return within(schema, "minimum", "maximum", json_object_get_double(value));
    case json_type_string:
        return within(schema, "minLength", "maxLength", json_object_get_string_len(value));
    case json_type_array:
        return within(schema, "minItems", "maxItems", static_cast<double>(json_object_array_length(value)));
    case json_type_object:
        return within(schema, "", "maxProperties", json_object_object_length(value));
    default:
        return true;
    }
}

bool check(const checker *c, json_object *schema, json_object *value, const std::string &path, int depth);

bool check_members(const checker *c, json_object *schema, json_object *value, const std::string &path,
                   int depth)
{
    json_object *rules = member(schema, "properties"), *others = member(schema, "additionalProperties");
    json_object_object_foreach(value, name, inner)
    {
        json_object *rule = member(rules, name);
        if (!rule && others && json_object_is_type(others, json_type_object))
            rule = others;
        const std::string inner_path = path + "/" + name;
        if (!rule && others) {
            std::string names;
            json_object_object_foreach(rules, known, unused)
            {
                (void)unused;
                names += (names.empty() ? "" : ", ") + std::string(known);
            }
            return fail(c, inner_path,
                        "\"" + std::string(name) + "\" is not known here; expected one of " + names);
        }
        if (rule && !check(c, rule, inner, inner_path, depth + 1))
            return false;
    }
    json_object *wanted = member(schema, "required");
    for (size_t i = 0; wanted && i < json_object_array_length(wanted); i++) {
        const char *must = json_object_get_string(json_object_array_get_idx(wanted, i));
        if (!json_object_object_get_ex(value, must, nullptr))
            return fail(c, path, "\"" + std::string(must) + "\" is missing");
    }
    return true;
}

std::string name_of(const std::string &path)
{
    const size_t slash = path.rfind('/');
    const std::string last = slash == std::string::npos ? "" : path.substr(slash + 1);
    if (last.empty())
        return "the scene";
    if (last.find_first_not_of("0123456789") == std::string::npos) { // of a list
        const std::string list = name_of(path.substr(0, slash));
        return list + "[" + last + "]";
    }
    return "\"" + last + "\"";
}

bool check(const checker *c, json_object *schema, json_object *value, const std::string &path, int depth)
{
    if (depth > DEPTH_MAX)
        return fail(c, path, "too deep");
    if (json_object *reference = member(schema, "$ref")) {
        const char *name = json_object_get_string(reference) + strlen("#/$defs/");
        return check(c, member(member(c->top, "$defs"), name), value, path, depth + 1);
    }
    if (json_object *choices = member(schema, "anyOf")) {
        std::string path_inside, error_inside;
        const checker quiet = {c->top, &path_inside, &error_inside};
        for (size_t i = 0; i < json_object_array_length(choices); i++)
            if (check(&quiet, json_object_array_get_idx(choices, i), value, path, depth + 1))
                return true;
        return fail(c, path, name_of(path) + " is " + shown(value) + "; expected " + expectation(schema));
    }
    if (!fits(schema, value))
        return fail(c, path, name_of(path) + " is " + shown(value) + "; expected " + expectation(schema));
    if (json_object_is_type(value, json_type_object))
        return check_members(c, schema, value, path, depth);
    json_object *items = member(schema, "items");
    for (size_t i = 0;
         items && json_object_is_type(value, json_type_array) && i < json_object_array_length(value); i++)
        if (!check(c, items, json_object_array_get_idx(value, i), path + "/" + std::to_string(i), depth + 1))
            return false;
    return true;
}

} // namespace

bool schema_check(json_object *schema, json_object *value, std::string *path, std::string *error)
{
    const checker c = {schema, path, error};
    return check(&c, schema, value, "", 0);
}
