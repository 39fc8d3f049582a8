// What docs/light.md shows, as JSON: one run, and all of them.
#ifndef DAY_REPORT_H
#define DAY_REPORT_H

#include <string>

#include "runs.h"

// The light modes that decide: 0, 3, 4 and 5.
extern const int day_modes[4];

// A run and what came of it as one line of JSON, with at most so many of its switches.
std::string day_run_json(const day_run_settings &what, const day_result &result, size_t switches);

// Runs everything, `jobs` at a time, and prints it: all days, modes and reflectances, each constant 20 % up and down,
// the lamps nearer, and the maps.
void day_report(int jobs);

#endif
