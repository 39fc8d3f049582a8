// Checks a JSON value against a schema: the part of JSON Schema that scenes/schema.json uses, so that editors
// and this program hold a file to the same rules.
#ifndef SCHEMA_CHECK_H
#define SCHEMA_CHECK_H

#include <json-c/json.h>
#include <string>

// The text of scenes/schema.json, as it was when this was built.
extern const char *const schema_text;

// Known: type, enum, minimum, maximum, minLength, maxLength, minItems, maxItems, maxProperties, items,
// properties, required, additionalProperties (false, or the rule for the others), anyOf (with a description),
// "$ref" to "#/$defs/...". Everything else is only for people. True when `value` is as the schema says;
// otherwise the first fault: `path` of the value ("/actors/0/name") and `error`, which says what is there and
// what was expected. Any thread.
bool schema_check(json_object *schema, json_object *value, std::string *path, std::string *error);

#endif
