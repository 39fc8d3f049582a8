// One day under chosen conditions, each in a process of its own: the modules keep state, and the root is read once.
#ifndef DAY_RUNS_H
#define DAY_RUNS_H

#include <functional>
#include <string>
#include <sys/types.h>
#include <utility>
#include <vector>

#include "day.h"

// A constant of the model, by which a run can differ.
struct day_constant {
    const char *name;
    double *(*of)(day_settings *settings);
};
extern const day_constant day_constants[];
extern const int DAY_CONSTANTS;

// How far the wall is on which the lamps are as bright as room_constants says.
const double DAY_LAMPS_MEASURED_AT_M = 3;

struct day_run_settings {
    int day = 0; // of day_kinds
    int mode = 3;
    double reflectance = 0.4, distance = DAY_LAMPS_MEASURED_AT_M;
    std::vector<std::pair<int, double>> varied; // number of a constant, factor
    bool other_sensor = false;
    unsigned seed = 0;     // of the day
    bool timeline = false; // the report draws it
};

// Runs it in this process, in a root of its own that is gone afterwards. False where that failed. Once in a process.
bool day_run_here(const day_run_settings &what, day_light *light, day_result *result);

// Starts a process that does `work`, which gives a text that is not empty; the process that began ends where none can
// be started. Before threads start.
struct day_job {
    pid_t pid;
    int fd;
};
day_job day_job_start(const std::function<std::string()> &work);
// Waits for the text. The process ends with a message where the work has failed.
std::string day_job_finish(const day_job &job);

#endif
