// The daemon as a child: started, started again whenever it ends, ended with the camera, and measured.
#ifndef SUPERVISOR_H
#define SUPERVISOR_H

#include <stdint.h>
#include <sys/types.h>

struct ev_loop;

struct supervisor_settings {
    const char *program;  // path of the daemon
    bool verbose;         // its output goes where ours goes, not to its log file
    void (*on_end)(void); // the daemon has ended (and, unless stopping, will be started again)
};

// Its log, under the root; started anew when it grows beyond the bound.
#define SUPERVISOR_LOG "/run/naro/naro_algo.log"
enum {
    SUPERVISOR_LOG_MAX = 16 * 1024 * 1024,
    SUPERVISOR_BACKOFF_FIRST_MS = 200,
    SUPERVISOR_BACKOFF_MAX_MS = 5000,
    SUPERVISOR_STEADY_MS = 10000,    // a daemon that ran for so long starts again at the first delay
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
// Ends the daemon with SIGTERM (SIGKILL if it does not end) and calls `done` on the loop when it has, at once
// when none runs.
void supervisor_stop(void (*done)(void));
void supervisor_get_figures(supervisor_figures *figures);

// "exit status 255", "killed by signal 9 (Killed)".
void supervisor_describe(int status, char *text, unsigned size);
// The delay before the next start, given the last delay (0: none yet) and how long the daemon ran.
unsigned supervisor_next_delay(unsigned last_ms, uint64_t ran_ms);

#endif
