// Measures what the program is for, each thing beside its peer or the machine's limit, in one run.
#include <stdio.h>
#include <string.h>

#include "benches.h"
#include "harness.h"
#include "isolate.h"

namespace
{

const struct {
    const char *name;
    void (*run)(void);
} benches[] = {
    {"difference", bench_block_difference},
    {"conversion", bench_conversion},
    {"detector", bench_detector},
    {"queue", bench_queue},
    {"command", bench_command},
    {"broadcast", bench_broadcast},
    {"settings", bench_settings},
    {"notify", bench_notify},
};

// What the modules tell about their work would stand between the figures.
void print_errors(void *, naro_log_level level, const char *text)
{
    if (level <= NARO_LOG_ERR)
        fprintf(stderr, "%s\n", text);
}

int usage(FILE *out, int status)
{
    fprintf(out,
            "usage: naro_bench [--quick] [NAME ...]\n\n  --quick  short rounds: shows that everything runs\n"
            "  NAME     only these:");
    for (const auto &bench : benches)
        fprintf(out, " %s", bench.name);
    fprintf(out, "\n");
    return status;
}

} // namespace

int main(int argc, char **argv)
{
    // A root and a network of its own: a camera that runs on this machine is not met.
    scratch_root();
    const bool alone = isolate_network();
    naro_log_set_sink(print_errors, nullptr);
    bool some = false;
    for (int i = 1; i < argc; i++) {
        if (strcmp(argv[i], "--help") == 0)
            return usage(stdout, 0);
        if (strcmp(argv[i], "--quick") == 0) {
            harness_set_quick();
            continue;
        }
        some = true;
        bool known = false;
        for (const auto &bench : benches)
            known |= strcmp(argv[i], bench.name) == 0;
        if (!known)
            return usage(stderr, 2);
    }
    puts("Times are medians of processor time; round trips: the fastest round by the wall clock. The shares\n"
         "beside them are of this same run, so they hold where times do not: below 1 ours is the faster;\n"
         "beside a limit, 1 would be perfect.\n");
    if (!alone)
        printf("(No network namespace for this user: the command round trip shares the machine's socket "
               "names.)\n\n");
    for (const auto &bench : benches) {
        bool chosen = !some;
        for (int i = 1; i < argc; i++)
            chosen |= strcmp(argv[i], bench.name) == 0;
        if (chosen)
            bench.run();
    }
    return 0;
}
