// Scenario files: a small table of JSON members, checked one by one so that a typing error is named.
#include "scenario.h"

#include <errno.h>
#include <json-c/json.h>
#include <memory>
#include <stdarg.h>
#include <stdio.h>
#include <string.h>
#include <string>
#include <string_view>

#include "desk.h"
#include "ipc_request.h"

namespace
{

struct action_row {
    const char *name;
    const char *member; // the number that goes with it; null: none
    int64_t fallback, smallest, largest;
    scenario_action action;
    bool wanted; // the number must be there
};
const action_row actions[] = {
    {"refuse", "ret", 1, INT32_MIN, INT32_MAX, SCENARIO_REFUSE, false},
    {"delay", "ms", 0, 0, SCENARIO_DELAY_MAX, SCENARIO_DELAY, true},
    {"short", "bytes", 0, 0, NARO_IPC_MAX_REPLY - 1, SCENARIO_SHORT, true},
    {"number", "number", 0, 0, UINT32_MAX, SCENARIO_NUMBER, true},
    {"close", "bytes", 0, 0, NARO_IPC_MAX_REPLY, SCENARIO_CLOSE, false},
    {"surplus", "bytes", 0, 1, SCENARIO_SURPLUS_MAX, SCENARIO_SURPLUS, true},
    {"data", nullptr, 0, 0, 0, SCENARIO_DATA, false},
};

// Where an error is, and room for saying it.
struct reader {
    size_t rule; // from 1; 0: the file as a whole
    char *error;
    size_t error_size;
};

__attribute__((format(printf, 2, 3))) int fail(const reader *at, const char *format, ...)
{
    size_t used = 0;
    if (at->rule > 0)
        used = static_cast<size_t>(snprintf(at->error, at->error_size, "rule %zu: ", at->rule));
    va_list arguments;
    va_start(arguments, format);
    if (used < at->error_size)
        // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized): it does not see va_start
        vsnprintf(at->error + used, at->error_size - used, format, arguments);
    va_end(arguments);
    return -1;
}

// An integer member within bounds: 1 when there, 0 when not, -1 with the error.
int read_number(const reader *at, json_object *rule, const char *name, int64_t smallest, int64_t largest,
                int64_t *result)
{
    json_object *value;
    if (!json_object_object_get_ex(rule, name, &value))
        return 0;
    if (!json_object_is_type(value, json_type_int) || json_object_get_int64(value) < smallest ||
        json_object_get_int64(value) > largest)
        return fail(at, "\"%s\" is %s; expected a whole number from %lld to %lld", name,
                    json_object_to_json_string(value), static_cast<long long>(smallest),
                    static_cast<long long>(largest));
    *result = json_object_get_int64(value);
    return 1;
}

int read_command(const reader *at, json_object *rule, scenario_rule *result)
{
    json_object *value;
    if (!json_object_object_get_ex(rule, "command", &value))
        return fail(at,
                    "\"command\" is missing; expected a command's number, its function's name, or \"any\"");
    if (json_object_is_type(value, json_type_string)) {
        const char *name = json_object_get_string(value);
        result->any = strcmp(name, "any") == 0;
        for (const naro_ipc_command &command : naro_ipc_commands)
            if (strcmp(command.function, name) == 0)
                result->cmd_no = command.cmd_no;
        if (result->any || result->cmd_no != 0)
            return 0;
        return fail(at, "\"command\" is \"%s\"; expected a command's number, its function's name, or \"any\"",
                    name);
    }
    int64_t number = 0;
    if (read_number(at, rule, "command", 1, UINT32_MAX, &number) < 0)
        return -1;
    result->cmd_no = static_cast<uint32_t>(number);
    return 0;
}

int read_words(const reader *at, json_object *rule, scenario_rule *result)
{
    json_object *list;
    if (!json_object_object_get_ex(rule, "words", &list) || !json_object_is_type(list, json_type_array) ||
        json_object_array_length(list) < 1 || json_object_array_length(list) > SCENARIO_WORDS_MAX)
        return fail(at, "\"words\" is missing; expected a list of 1 to %d numbers", SCENARIO_WORDS_MAX);
    for (size_t i = 0; i < json_object_array_length(list); i++) {
        json_object *word = json_object_array_get_idx(list, i);
        const int64_t number = json_object_get_int64(word);
        if (!json_object_is_type(word, json_type_int) || number < INT32_MIN || number > UINT32_MAX)
            return fail(at, "\"words\" holds %s; expected numbers of 32 bits",
                        json_object_to_json_string(word));
        result->words[result->word_count++] = static_cast<uint32_t>(number);
    }
    return 0;
}

int read_action(const reader *at, json_object *rule, scenario_rule *result, const action_row **row)
{
    json_object *value;
    const char *name = "";
    if (json_object_object_get_ex(rule, "action", &value) && json_object_is_type(value, json_type_string))
        name = json_object_get_string(value);
    for (const action_row &candidate : actions)
        if (strcmp(candidate.name, name) == 0)
            *row = &candidate;
    if (!*row)
        return fail(at, "\"action\" is \"%s\"; expected refuse, delay, short, number, close, surplus or data",
                    name);
    result->action = (*row)->action;
    if (result->action == SCENARIO_DATA)
        return read_words(at, rule, result);
    int64_t number = (*row)->fallback;
    const int found = read_number(at, rule, (*row)->member, (*row)->smallest, (*row)->largest, &number);
    if (found < 0)
        return -1;
    if (!found && (*row)->wanted)
        return fail(at, "\"%s\" wants a number \"%s\"", name, (*row)->member);
    result->value = static_cast<uint32_t>(number);
    return 0;
}

int read_rule(const reader *at, json_object *rule, scenario_rule *result)
{
    if (!json_object_is_type(rule, json_type_object))
        return fail(at, "expected an object with \"command\" and \"action\"");
    const action_row *row = nullptr;
    if (read_command(at, rule, result) != 0 || read_action(at, rule, result, &row) != 0)
        return -1;
    int64_t occurrence = 0, count = 1;
    const int has_occurrence = read_number(at, rule, "occurrence", 1, UINT32_MAX, &occurrence);
    const int has_count = read_number(at, rule, "count", 1, UINT32_MAX, &count);
    if (has_occurrence < 0 || has_count < 0)
        return -1;
    if (has_count && !has_occurrence)
        return fail(at, "\"count\" goes with \"occurrence\"");
    result->occurrence = static_cast<uint32_t>(occurrence);
    result->count = static_cast<uint32_t>(count);
    json_object_object_foreach(rule, name, unused)
    {
        (void)unused;
        const bool known = strcmp(name, "command") == 0 || strcmp(name, "action") == 0 ||
                           strcmp(name, "occurrence") == 0 || strcmp(name, "count") == 0 ||
                           strcmp(name, row->member ? row->member : "words") == 0;
        if (!known)
            return fail(at, "\"%s\" does not belong to \"%s\"", name, row->name);
    }
    return 0;
}

int read_rules(reader *at, json_object *top, scenario *result)
{
    json_object *rules;
    if (!json_object_is_type(top, json_type_object) || !json_object_object_get_ex(top, "rules", &rules) ||
        !json_object_is_type(rules, json_type_array))
        return fail(at, "expected { \"rules\": [ ... ] }");
    const size_t count = json_object_array_length(rules);
    if (count > SCENARIO_RULES_MAX)
        return fail(at, "%zu rules; at most %d are possible", count, SCENARIO_RULES_MAX);
    for (size_t i = 0; i < count; i++) {
        scenario_rule rule = {};
        at->rule = i + 1;
        if (read_rule(at, json_object_array_get_idx(rules, i), &rule) != 0)
            return -1;
        result->rules.push_back(rule);
    }
    return 0;
}

} // namespace

int scenario_parse(const char *text, size_t length, scenario *result, char *error, size_t error_size)
{
    reader at = {0, error, error_size};
    *result = {};
    if (length > SCENARIO_FILE_MAX)
        return fail(&at, "%zu bytes; at most %d are possible", length, SCENARIO_FILE_MAX);
    std::unique_ptr<json_tokener, void (*)(json_tokener *)> parser(json_tokener_new(), json_tokener_free);
    std::unique_ptr<json_object, int (*)(json_object *)> top(
        json_tokener_parse_ex(parser.get(), text, static_cast<int>(length)), json_object_put);
    json_tokener_error problem = json_tokener_get_error(parser.get());
    const size_t end = json_tokener_get_parse_end(parser.get());
    // The text has no terminator: what follows the value is looked at by its length.
    if (problem == json_tokener_success &&
        std::string_view(text + end, length - end).find_first_not_of(" \t\r\n") != std::string_view::npos)
        problem = json_tokener_error_parse_unexpected;
    if (problem != json_tokener_success) {
        size_t line = 1;
        for (size_t i = 0; i < end; i++)
            line += text[i] == '\n';
        return fail(&at, "not JSON: line %zu: %s", line,
                    problem == json_tokener_continue ? "the text ends too early"
                                                     : json_tokener_error_desc(problem));
    }
    return read_rules(&at, top.get(), result);
}

int scenario_load(const char *file, scenario *result)
{
    std::unique_ptr<FILE, int (*)(FILE *)> stream(fopen(file, "re"), fclose);
    if (!stream) {
        desk_say("%s: %s", file, strerror(errno));
        return -1;
    }
    std::string text(SCENARIO_FILE_MAX + 1, '\0');
    text.resize(fread(&text[0], 1, text.size(), stream.get()));
    char error[512] = "";
    if (scenario_parse(text.c_str(), text.size(), result, error, sizeof error) != 0) {
        desk_say("%s: %s", file, error);
        return -1;
    }
    return 0;
}

const scenario_rule *scenario_take(scenario *script, uint32_t cmd_no)
{
    const scenario_rule *acts = nullptr;
    for (scenario_rule &rule : script->rules) {
        if (!rule.any && rule.cmd_no != cmd_no)
            continue;
        if (rule.seen < UINT32_MAX)
            rule.seen++;
        const bool due = rule.occurrence == 0 ||
                         (rule.seen >= rule.occurrence && rule.seen - rule.occurrence < rule.count);
        if (due && !acts)
            acts = &rule;
    }
    return acts;
}
