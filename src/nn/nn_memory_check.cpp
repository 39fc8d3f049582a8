// Memory check: better to skip one picture than to be killed for want of memory in the middle of it.
#include "nn/nn_memory_check.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "naro_util.h"

namespace
{

// The second token of the first line that names the field, in bytes; 0 where there is none.
uint64_t read_available(FILE *file)
{
    char line[64];
    while (fgets(line, sizeof line, file)) {
        if (!strstr(line, "MemAvailable:"))
            continue;
        char *rest = nullptr;
        strtok_r(line, " ", &rest);
        const char *kilobytes = strtok_r(nullptr, " ", &rest);
        return kilobytes ? strtoull(kilobytes, nullptr, 10) * 1024 : 0;
    }
    return 0;
}

} // namespace

int nn_memory_check(uint32_t base_bytes, double factor)
{
    FILE *file = naro_fopen("/proc/meminfo", "r");
    if (!file) {
        puts("Warning: Cannot open /proc/meminfo, the amount of free memory is unknown.");
        return 0;
    }
    const uint64_t available = read_available(file);
    fclose(file);

    // 64 bits: a machine has more than 4 GB, and a request may ask for more.
    const uint64_t required = static_cast<uint64_t>(base_bytes * factor);
    if (required + NN_MEMORY_MARGIN <= available)
        return 0;
    printf("Error: Require %u KB + %u KB margin, but only %u KB are available.\n",
           static_cast<unsigned>(required / 1024), NN_MEMORY_MARGIN / 1024u,
           static_cast<unsigned>(available / 1024));
    return -1;
}
