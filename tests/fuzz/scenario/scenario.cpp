// Scenario files, which people write by hand.
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include "naro_ipc_wire.h"
#include "scenario.h"

namespace
{

void require(bool condition)
{
    if (!condition)
        abort();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *bytes, size_t size)
{
    scenario script;
    char error[128] = "";
    const int result =
        scenario_parse(reinterpret_cast<const char *>(bytes), size, &script, error, sizeof error);
    require(result == 0 || (result == -1 && error[0] != '\0' && memchr(error, '\0', sizeof error)));
    if (result != 0)
        return 0;
    require(script.rules.size() <= SCENARIO_RULES_MAX);
    for (const scenario_rule &rule : script.rules) {
        require(rule.word_count <= SCENARIO_WORDS_MAX);
        require(rule.action != SCENARIO_SURPLUS || rule.value <= SCENARIO_SURPLUS_MAX);
        require(rule.action != SCENARIO_DELAY || rule.value <= SCENARIO_DELAY_MAX);
        require(rule.action != SCENARIO_SHORT || rule.value < NARO_IPC_MAX_REPLY);
    }
    for (int i = 0; i < 5; i++)
        scenario_take(&script, NARO_CMD_TRACK_RUN);
    return 0;
}
