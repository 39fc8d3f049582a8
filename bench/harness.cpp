// See harness.h.
#include "harness.h"

#include <algorithm>
#include <stdio.h>
#include <time.h>

namespace
{

struct {
    int rounds = 31;
    double batch_s = 0.004; // what one turn of a rival takes, about
    bool quick = false;
} settings;

// Processor time leaves out what other programs on a busy machine take; only what waits for another thread
// needs the wall clock.
double now_s(clocked by)
{
    timespec now;
    clock_gettime(by == clocked::wall ? CLOCK_MONOTONIC : CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + 1e-9 * static_cast<double>(now.tv_nsec);
}

double batch(const rival &rival, size_t times, clocked by)
{
    const double begin = now_s(by);
    rival.run(times);
    return now_s(by) - begin;
}

// How many calls fill a turn. Also the warming up.
size_t calls_for_a_turn(const rival &rival, clocked by)
{
    size_t times = 1;
    for (;;) {
        const double took = batch(rival, times, by);
        if (took >= settings.batch_s / 2)
            return std::max<size_t>(
                1, static_cast<size_t>(static_cast<double>(times) * settings.batch_s / took));
        times *= 2;
    }
}

double quantile(std::vector<double> values, double share)
{
    std::sort(values.begin(), values.end());
    return values[static_cast<size_t>(share * static_cast<double>(values.size() - 1) + 0.5)];
}

void print_time(double seconds)
{
    if (seconds < 1e-6)
        printf("%9.1f ns", seconds * 1e9);
    else if (seconds < 1e-3)
        printf("%9.2f us", seconds * 1e6);
    else
        printf("%9.2f ms", seconds * 1e3);
}

} // namespace

void harness_set_quick(void)
{
    settings.rounds = 3;
    settings.batch_s = 0.0005;
    settings.quick = true;
}

bool harness_quick(void)
{
    return settings.quick;
}

std::vector<double> compare(const char *title, const std::vector<rival> &rivals, clocked by)
{
    std::vector<size_t> times;
    for (const rival &rival : rivals)
        times.push_back(calls_for_a_turn(rival, by));
    std::vector<std::vector<double>> took(rivals.size()), share(rivals.size());
    for (int round = 0; round < settings.rounds; round++)
        for (size_t i = 0; i < rivals.size(); i++) {
            took[i].push_back(batch(rivals[i], times[i], by) / static_cast<double>(times[i]));
            share[i].push_back(took[0].back() / took[i].back());
        }
    // What waits for another thread waits for the machine's other programs too: there the fastest round tells
    // most.
    const double middle = by == clocked::wall ? 0 : 0.5;
    printf("%s\n", title);
    std::vector<double> figures;
    for (size_t i = 0; i < rivals.size(); i++) {
        figures.push_back(quantile(took[i], middle));
        printf("  %-44s ", rivals[i].name);
        print_time(figures[i]);
        if (i > 0)
            printf("   ours takes %6.2f of it (%.2f to %.2f)",
                   by == clocked::wall ? figures[0] / figures[i] : quantile(share[i], 0.5),
                   quantile(share[i], 0.25), quantile(share[i], 0.75));
        printf("\n");
    }
    printf("\n");
    fflush(stdout);
    return figures;
}
