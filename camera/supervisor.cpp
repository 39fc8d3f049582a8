// Starting, watching and measuring the daemon.
//
// The child gets a process group of its own, so that the terminal's Ctrl-C reaches the camera alone, which
// then ends the daemon in good order; and the kernel ends it should the camera die. A pipe that closes on
// exec tells whether the program could be started at all.
#include "supervisor.h"

#include <algorithm>
#include <errno.h>
#include <ev.h>
#include <fcntl.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "desk.h"
#include "naro_util.h"

namespace
{

struct {
    struct ev_loop *loop;
    supervisor_settings settings;
    ev_signal child;
    ev_timer again; // the next start
    ev_timer look;  // measures, bounds the log
    ev_timer kill;  // patience after SIGTERM
    pid_t pid;
    int log = -1;
    uint64_t started_at_ms;
    unsigned delay_ms;
    unsigned restarts;
    double cpu_before_s; // of those that have ended
    uint64_t peak_kib;
    int last_status;
    bool stopping;
    void (*done)(void);
} super;

double seconds(const timeval &time)
{
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
}

// The CPU time that a running process has used.
double cpu_of(pid_t pid)
{
    char path[64];
    snprintf(path, sizeof path, "/proc/%d/stat", pid);
    FILE *file = fopen(path, "re"); // the machine's /proc, not the root's
    if (!file)
        return 0;
    char text[1024];
    const size_t length = fread(text, 1, sizeof text - 1, file);
    fclose(file);
    text[length] = '\0';
    // The name in brackets may hold anything; behind its last bracket come the state and numbers, of which the 11th
    // and the 12th are the times in user and in system mode.
    char *at = strrchr(text, ')');
    if (!at || strlen(at) < 3)
        return 0;
    at += 3;
    uint64_t numbers[12];
    for (uint64_t &number : numbers)
        number = strtoull(at, &at, 10);
    return static_cast<double>(numbers[10] + numbers[11]) / static_cast<double>(sysconf(_SC_CLK_TCK));
}

// A number of /proc/<pid>/status, 0 when it is not there.
uint64_t status_of(pid_t pid, const char *name)
{
    char path[64], line[256];
    uint64_t value = 0;
    snprintf(path, sizeof path, "/proc/%d/status", pid);
    FILE *file = fopen(path, "re");
    if (!file)
        return 0;
    const size_t length = strlen(name);
    while (fgets(line, sizeof line, file))
        if (strncmp(line, name, length) == 0 && line[length] == ':')
            value = strtoull(line + length + 1, nullptr, 10);
    fclose(file);
    return value;
}

void measure(void)
{
    // The kernel's own figure for a child that has ended counts our pages before its exec, too; this one does
    // not.
    if (super.pid > 0)
        super.peak_kib = std::max(super.peak_kib, status_of(super.pid, "VmHWM"));
}

int open_log(void)
{
    if (super.settings.verbose)
        return 0;
    super.log = naro_open(SUPERVISOR_LOG, O_WRONLY | O_CREAT | O_APPEND | O_TRUNC | O_NOFOLLOW, 0600);
    if (super.log >= 0)
        return 0;
    desk_say("%s%s: %s", naro_root(), SUPERVISOR_LOG, strerror(errno));
    return -1;
}

// In the child, between fork and exec: only what is allowed there. Does not return.
[[noreturn]] void become_daemon(pid_t parent, int report)
{
    const int nothing = open("/dev/null", O_RDONLY | O_CLOEXEC);
    sigset_t none;
    sigemptyset(&none);
    (void)setpgid(0, 0);
    (void)prctl(PR_SET_PDEATHSIG, SIGTERM);
    if (getppid() != parent)
        _exit(255); // the camera died before the kernel was told
    signal(SIGPIPE, SIG_DFL);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    dup2(nothing, STDIN_FILENO);
    if (super.log >= 0) {
        dup2(super.log, STDOUT_FILENO);
        dup2(super.log, STDERR_FILENO);
    }
    char *const arguments[] = {const_cast<char *>(super.settings.program), nullptr};
    execv(super.settings.program, arguments);
    const int error = errno;
    (void)!write(report, &error, sizeof error);
    _exit(127);
}

// 0, or the errno with which the program could not be started.
int launch(void)
{
    int report[2];
    if (pipe2(report, O_CLOEXEC) != 0)
        return errno;
    const pid_t self = getpid();
    const pid_t pid = fork();
    if (pid == 0)
        become_daemon(self, report[1]);
    int error = pid < 0 ? errno : 0;
    close(report[1]);
    if (pid > 0) {
        ssize_t got;
        do
            got = read(report[0], &error, sizeof error);
        while (got < 0 && errno == EINTR);
        if (got == static_cast<ssize_t>(sizeof error))
            waitpid(pid, nullptr, 0);
        else
            error = 0;
    }
    close(report[0]);
    if (error != 0)
        return error;
    super.pid = pid;
    super.started_at_ms = naro_clock_monotonic_ms();
    return 0;
}

void start_later(void)
{
    ev_timer_stop(super.loop, &super.again);
    ev_timer_set(&super.again, super.delay_ms / 1000., 0.);
    ev_timer_start(super.loop, &super.again);
}

void on_again(struct ev_loop *, ev_timer *, int)
{
    const int error = launch();
    if (error == 0) {
        super.restarts++;
        return;
    }
    super.delay_ms = supervisor_next_delay(super.delay_ms, 0);
    desk_say("%s cannot be started: %s; trying again in %u.%u s", super.settings.program, strerror(error),
             super.delay_ms / 1000, super.delay_ms % 1000 / 100);
    start_later();
}

void on_child(struct ev_loop *loop, ev_signal *, int)
{
    int status;
    rusage used;
    if (super.pid <= 0 || wait4(super.pid, &status, WNOHANG, &used) != super.pid)
        return;
    super.pid = 0;
    super.last_status = status;
    super.cpu_before_s += seconds(used.ru_utime) + seconds(used.ru_stime);
    super.settings.on_end();
    if (super.stopping) {
        ev_timer_stop(loop, &super.kill);
        ev_timer_stop(loop, &super.look);
        super.done();
        return;
    }
    super.delay_ms = supervisor_next_delay(super.delay_ms, naro_clock_monotonic_ms() - super.started_at_ms);
    char what[64];
    supervisor_describe(status, what, sizeof what);
    if (super.settings.verbose)
        desk_say("the daemon has ended (%s); starting it again in %u.%u s", what, super.delay_ms / 1000,
                 super.delay_ms % 1000 / 100);
    else
        desk_say("the daemon has ended (%s); starting it again in %u.%u s; its log: %s%s", what,
                 super.delay_ms / 1000, super.delay_ms % 1000 / 100, naro_root(), SUPERVISOR_LOG);
    start_later();
}

void on_look(struct ev_loop *, ev_timer *, int)
{
    struct stat log;
    measure();
    if (super.log >= 0 && fstat(super.log, &log) == 0 && log.st_size > SUPERVISOR_LOG_MAX)
        (void)!ftruncate(super.log, 0);
}

void on_kill(struct ev_loop *, ev_timer *, int)
{
    if (super.pid <= 0)
        return;
    desk_say("the daemon does not end on SIGTERM; killed");
    kill(super.pid, SIGKILL);
}

} // namespace

void supervisor_describe(int status, char *text, unsigned size)
{
    if (WIFSIGNALED(status))
        snprintf(text, size, "killed by signal %d (%s)", WTERMSIG(status), strsignal(WTERMSIG(status)));
    else
        snprintf(text, size, "exit status %d", WEXITSTATUS(status));
}

unsigned supervisor_next_delay(unsigned last_ms, uint64_t ran_ms)
{
    if (last_ms == 0 || ran_ms >= SUPERVISOR_STEADY_MS)
        return SUPERVISOR_BACKOFF_FIRST_MS;
    return std::min<unsigned>(2 * last_ms, SUPERVISOR_BACKOFF_MAX_MS);
}

int supervisor_start(struct ev_loop *loop, const supervisor_settings *settings)
{
    super.loop = loop;
    super.settings = *settings;
    if (open_log() != 0)
        return -1;
    ev_signal_init(&super.child, on_child, SIGCHLD);
    ev_signal_start(loop, &super.child);
    ev_init(&super.again, on_again);
    ev_init(&super.kill, on_kill);
    ev_timer_init(&super.look, on_look, 1., 1.);
    ev_timer_start(loop, &super.look);
    const int error = launch();
    if (error == 0)
        return 0;
    desk_say("%s cannot be started: %s", settings->program, strerror(error));
    return -1;
}

void supervisor_stop(void (*done)(void))
{
    super.stopping = true;
    super.done = done;
    if (super.loop)
        ev_timer_stop(super.loop, &super.again);
    if (super.pid <= 0) {
        done();
        return;
    }
    measure();
    kill(super.pid, SIGTERM);
    ev_timer_set(&super.kill, SUPERVISOR_KILL_AFTER_MS / 1000., 0.);
    ev_timer_start(super.loop, &super.kill);
}

void supervisor_get_figures(supervisor_figures *figures)
{
    measure();
    *figures = {};
    figures->pid = super.pid;
    figures->restarts = super.restarts;
    figures->cpu_s = super.cpu_before_s;
    figures->peak_kib = super.peak_kib;
    figures->last_status = super.last_status;
    if (super.pid > 0) {
        figures->up_ms = naro_clock_monotonic_ms() - super.started_at_ms;
        figures->cpu_s += cpu_of(super.pid);
        figures->threads = status_of(super.pid, "Threads");
    }
}
