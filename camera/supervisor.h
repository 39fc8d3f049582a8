// The daemon and the motor as children: started, started again whenever they end, ended with the camera; the daemon is
// measured.
#ifndef SUPERVISOR_H
#define SUPERVISOR_H

#include <stdint.h>
#include <string>
#include <sys/types.h>
#include <vector>

struct ev_loop;

struct supervisor_settings {
    const char *program;  // its path
    bool verbose;         // its output goes where ours goes, not to its log file
    void (*on_end)(void); // it has ended (and, unless stopping, will be started again); null: nobody asks
    std::vector<std::string> arguments = {};
};

// Their logs, under the root; started anew when they grow beyond the bound.
#define SUPERVISOR_LOG "/run/naro/naro_algo.log"
#define SUPERVISOR_MOTOR_LOG "/run/naro/naro_motor.log"
enum {
    SUPERVISOR_LOG_MAX = 16 * 1024 * 1024,
    SUPERVISOR_BACKOFF_FIRST_MS = 200,
    SUPERVISOR_BACKOFF_MAX_MS = 5000,
    SUPERVISOR_STEADY_MS = 10000,    // who ran for so long starts again at the first delay
    SUPERVISOR_KILL_AFTER_MS = 2000, // from SIGTERM to SIGKILL
};

struct supervisor_figures {
    pid_t pid; // 0: not running
    unsigned restarts;
    uint64_t up_ms;    // of the running one
    double cpu_s;      // user and system, of all that ran
    uint64_t peak_kib; // largest resident size of any of them; 0: not known
    uint64_t threads;  // of the running one
    int last_status;   // wait status of the last that ended
};

// Starts the daemon. 0, or -1 after saying why. Event loop only, as are all of these. Wants SIGCHLD for
// itself.
int supervisor_start(struct ev_loop *loop, const supervisor_settings *settings);
// The same for the motor.
int supervisor_start_motor(struct ev_loop *loop, const supervisor_settings *settings);
// Ends both with SIGTERM (SIGKILL for who does not end) and calls `done` on the loop when they have, at once
// when none runs.
void supervisor_stop(void (*done)(void));
// Of the daemon.
void supervisor_get_figures(supervisor_figures *figures);

// "exit status 255", "killed by signal 9 (Killed)".
void supervisor_describe(int status, char *text, unsigned size);
// The delay before the next start, given the last delay (0: none yet) and how long the daemon ran.
unsigned supervisor_next_delay(unsigned last_ms, uint64_t ran_ms);

#endif
