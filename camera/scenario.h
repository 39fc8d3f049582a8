// Scripted misbehaviour of the media server, for tests: which command, the how manieth time, what goes wrong.
//
// A scenario is a JSON file:
//   { "rules": [
//       { "command": 4139, "occurrence": 3, "action": "refuse", "ret": 5 },
//       { "command": "naro_isp_track_run", "occurrence": 10, "count": 2, "action": "delay", "ms": 500 },
//       { "command": "any", "action": "close" } ] }
//
// command     a number, the name of the function that sends it, or "any"
// occurrence  the first time it acts, from 1; left out: every time
// count       how many times in a row (default 1); only beside occurrence
// action      what happens instead of the ordinary reply:
//   refuse    the full reply with `ret` (default 1); nothing is done
//   delay     the ordinary reply, `ms` milliseconds late
//   short     only the first `bytes` bytes of the reply; the connection stays
//   number    the reply carries the command number `number`
//   close     the first `bytes` bytes of the reply (default 0), then the connection is closed
//   surplus   the reply and `bytes` bytes more
//   data      the reply's data starts with the 32-bit numbers of the list `words`
// Of several rules that fit a request the first acts; all count.
#ifndef SCENARIO_H
#define SCENARIO_H

#include <stddef.h>
#include <stdint.h>
#include <vector>

enum scenario_action {
    SCENARIO_REFUSE,
    SCENARIO_DELAY,
    SCENARIO_SHORT,
    SCENARIO_NUMBER,
    SCENARIO_CLOSE,
    SCENARIO_SURPLUS,
    SCENARIO_DATA,
};

enum {
    SCENARIO_RULES_MAX = 1000,
    SCENARIO_FILE_MAX = 1024 * 1024,
    SCENARIO_SURPLUS_MAX = 1024, // bytes
    SCENARIO_DELAY_MAX = 3600 * 1000,
    SCENARIO_WORDS_MAX = 8,
};

struct scenario_rule {
    bool any;            // every command
    uint32_t cmd_no;     // unless any
    uint32_t occurrence; // 0: always
    uint32_t count;
    scenario_action action;
    uint32_t value; // ret, ms, bytes or number
    uint32_t words[SCENARIO_WORDS_MAX];
    uint32_t word_count;
    uint32_t seen; // requests that fitted so far
};

struct scenario {
    std::vector<scenario_rule> rules;
};

// Reads a scenario from a text: 0, or -1 with the reason in `error`. Any thread.
int scenario_parse(const char *text, size_t length, scenario *result, char *error, size_t error_size);
// The same from a file (the machine's, not under the root); says what is wrong. Any thread.
int scenario_load(const char *file, scenario *result);
// Counts a request; the rule that acts on it, or null. That task only.
const scenario_rule *scenario_take(scenario *script, uint32_t cmd_no);

#endif
