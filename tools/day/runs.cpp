// Constants, processes, roots.
#include "runs.h"

#include <errno.h>
#include <fcntl.h>
#include <iterator>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

#define ISP(member)                                                                                          \
    {                                                                                                        \
#member, [](day_settings * settings) { return &settings->isp.member; }                               \
    }
#define PROGRAM(member)                                                                                      \
    {                                                                                                        \
#member, [](day_settings * settings) { return &settings->isp.program.member; }                       \
    }
#define ROOM(member)                                                                                         \
    {                                                                                                        \
#member, [](day_settings * settings) { return &settings->room.member; }                              \
    }
const day_constant day_constants[] = {
    ISP(ev_per_luminance),
    ISP(f_number),
    ISP(iso_speed),
    ISP(bv_reference),
    ISP(bv_per_stop),
    ISP(visible_through_filter),
    ISP(infrared_through_filter),
    ISP(red_visible),
    ISP(blue_visible),
    ISP(red_infrared),
    ISP(blue_infrared),
    ISP(noise_luminance),
    ISP(lag_s),
    PROGRAM(shortest_us),
    PROGRAM(flicker_us),
    PROGRAM(frame_us),
    PROGRAM(slow_us),
    PROGRAM(longest_us),
    PROGRAM(again_low),
    PROGRAM(again_mid),
    PROGRAM(again_high),
    PROGRAM(dgain_high),
    ROOM(infrared_of_daylight),
    ROOM(white_led_lux),
    ROOM(ir_led),
};
const int DAY_CONSTANTS = static_cast<int>(std::size(day_constants));

static void remove_tree(const std::string &path)
{
    const std::string command = "rm -rf -- '" + path + "'";
    if (system(command.c_str()) != 0)
        fprintf(stderr, "naro-day: %s could not be removed\n", path.c_str());
}

bool day_run_here(const day_run_settings &what, day_light *light, day_result *result)
{
    const char *base = access("/dev/shm", W_OK) == 0 ? "/dev/shm" : getenv("TMPDIR");
    std::string root = std::string(base ? base : "/tmp") + "/naro-day-XXXXXX";
    if (!mkdtemp(&root[0]) || setenv("NARO_ROOT", root.c_str(), 1) != 0) {
        fprintf(stderr, "naro-day: %s: %s\n", root.c_str(), strerror(errno));
        return false;
    }
    day_kinds[what.day].make(light, what.seed);
    day_settings settings = {};
    settings.light = light;
    settings.mode = what.mode;
    settings.room.reflectance = what.reflectance;
    const double nearer = DAY_LAMPS_MEASURED_AT_M / what.distance;
    for (double *lamp : {&settings.room.white_led_lux, &settings.room.ir_led, &settings.room.ir_lamp})
        *lamp *= nearer * nearer;
    settings.other_sensor = what.other_sensor;
    for (const auto &[number, factor] : what.varied)
        *day_constants[number].of(&settings) *= factor;
    const bool done = day_run(&settings, result);
    remove_tree(root);
    return done;
}

day_job day_job_start(const std::function<std::string()> &work)
{
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) {
        perror("naro-day: pipe");
        exit(1);
    }
    fflush(stdout);
    const pid_t pid = fork();
    if (pid < 0) {
        perror("naro-day: fork");
        exit(1);
    }
    if (pid > 0) {
        close(ends[1]);
        return {pid, ends[0]};
    }
    // The modules' own words are of no use here.
    const int nothing = open("/dev/null", O_WRONLY | O_CLOEXEC);
    if (nothing >= 0)
        dup2(nothing, STDERR_FILENO);
    const std::string text = work();
    for (size_t at = 0; at < text.size();) {
        const ssize_t count = write(ends[1], text.data() + at, text.size() - at);
        if (count <= 0)
            _exit(1);
        at += static_cast<size_t>(count);
    }
    _exit(0);
}

std::string day_job_finish(const day_job &one)
{
    std::string text;
    char part[4096];
    for (ssize_t count; (count = read(one.fd, part, sizeof part)) > 0;)
        text.append(part, static_cast<size_t>(count));
    close(one.fd);
    int status;
    if (waitpid(one.pid, &status, 0) != one.pid || status != 0 || text.empty()) {
        fprintf(stderr, "naro-day: a run has failed\n");
        exit(1);
    }
    return text;
}
