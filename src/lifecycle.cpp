// The life of the daemon's process.
//
// Start-up and teardown are two tables that are walked from top to bottom. A module joins the daemon by its
// line in one or both.
//
// Deliberate gaps: worker threads are started by the modules, never here, and some of them live on when main
// returns. So nothing in the daemon may have a destructor that runs at exit.
#include "lifecycle.h"

#include <signal.h>
#include <stdio.h>
#include <unistd.h>

#include "algo_shbf.h"
#include "ir_white_led.h"
#include "ircut.h"
#include "kv_client.h"
#include "mid_hchd.h"
#include "motion_event_record.h"
#include "naro_ipc.h"
#include "naro_util.h"
#include "queues.h"
#include "sound_detect.h"

// Where the teardown begins. Each label's calls are followed by those of the labels after it.
enum teardown_label {
    STOP_TASKS,      // everything is there; the event loop has returned
    STOP_EVENT_LOOP, // no task yet
    STOP_QUEUES,     // no event loop either
    STOP_CONNECTION, // nothing but the connection to the media server
    STOP_NOTHING,    // not even that
};

static int detection_init(void)
{
    return mid_hchd_init(2);
}

static const struct {
    int (*call)(void);
    const char *message = nullptr; // logged when the result is not 0; null: the result does not matter
    teardown_label on_failure = STOP_TASKS;
} startup[] = {
    // Blocks until the media server listens.
    {naro_ipc_server_connect, "naro_ipc_server_connect fail\n", STOP_NOTHING},
    {queues2_init, "queues_init fail\n", STOP_CONNECTION},
    {algo_shbf_init, "algo_shbf_init fail\n", STOP_QUEUES},
    {ir_white_led_init},
    {kv_client_init, "kv_client_init fail\n", STOP_EVENT_LOOP},
    // Without records, sounds, or a detector, the rest of the daemon is still of use.
    {motion_record_init},
    {sound_detect_init}, // never stopped: it lives on beside and after the teardown
    {detection_init},
    // The main thread stays in here for as long as the daemon runs.
    {algo_shbf_run},
};

static const struct {
    teardown_label label;
    int (*call)(void);
} teardown[] = {
    // Threads that are to be joined may be waiting for a media server that has gone.
    {STOP_TASKS, naro_ipc_server_give_up},
    {STOP_TASKS, ircut_exit}, // started by the "power" setting, not here
    {STOP_TASKS, mid_hchd_fini},
    {STOP_TASKS, kv_client_exit},       // after those whom settings steer
    {STOP_TASKS, motion_record_finish}, // whoever still reports is refused
    {STOP_EVENT_LOOP, algo_shbf_fini},
    {STOP_QUEUES, queues2_exit},
    {STOP_CONNECTION, naro_ipc_server_disconnect},
};

// _exit and not exit: it may interrupt any code on any thread, where the C library's locks may be held, and
// must neither wait for them nor run exit handlers beside living threads.
static void on_termination_signal(int)
{
    _exit(255);
}

int lifecycle_run(void)
{
    // Whoever reads our output through a pipe wants each line when it is printed; a forced end loses none.
    setvbuf(stdout, nullptr, _IOLBF, 0);

    // Before any thread is started, so that all of them have it so.
    signal(SIGPIPE, SIG_IGN);
    signal(SIGINT, on_termination_signal);
    signal(SIGQUIT, on_termination_signal);
    signal(SIGTERM, on_termination_signal);

    teardown_label label = STOP_TASKS;
    for (const auto &step : startup) {
        if (step.call() != 0 && step.message) {
            log_err("%s", step.message);
            label = step.on_failure;
            break;
        }
    }
    for (const auto &step : teardown)
        if (step.label >= label)
            step.call();
    return 0;
}
