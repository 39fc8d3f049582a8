// Starting, watching and measuring the camera's children.
//
// A child gets a process group of its own, so that the terminal's Ctrl-C reaches the camera alone, which
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

// One of them, over all its lives. The watchers' data points back to it.
struct supervised {
    const char *who;
    const char *log_path;
    struct ev_loop *loop; // null: not wanted
    supervisor_settings settings;
    std::vector<char *> arguments; // of its program, made before any fork; the texts are the settings'
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
};

struct {
    supervised daemon, motor;
    bool stopping;
    void (*done)(void);
} super = {{"the daemon", SUPERVISOR_LOG, nullptr, {}, {}, {}, {}, {}, {}, 0, -1, 0, 0, 0, 0, 0, 0},
           {"the motor", SUPERVISOR_MOTOR_LOG, nullptr, {}, {}, {}, {}, {}, {}, 0, -1, 0, 0, 0, 0, 0, 0},
           false,
           nullptr};

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

void measure(supervised *one)
{
    // The kernel's own figure for a child that has ended counts our pages before its exec, too; this one does
    // not.
    if (one->pid > 0)
        one->peak_kib = std::max(one->peak_kib, status_of(one->pid, "VmHWM"));
}

int open_log(supervised *one)
{
    if (one->settings.verbose)
        return 0;
    one->log = naro_open(one->log_path, O_WRONLY | O_CREAT | O_APPEND | O_TRUNC | O_NOFOLLOW, 0600);
    if (one->log >= 0)
        return 0;
    desk_say("%s%s: %s", naro_root(), one->log_path, strerror(errno));
    return -1;
}

// In the child, between fork and exec: only what is allowed there. Does not return.
[[noreturn]] void become(const supervised *one, pid_t parent, int report)
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
    if (one->log >= 0) {
        dup2(one->log, STDOUT_FILENO);
        dup2(one->log, STDERR_FILENO);
    }
    execv(one->settings.program, one->arguments.data());
    const int error = errno;
    (void)!write(report, &error, sizeof error);
    _exit(127);
}

// 0, or the errno with which the program could not be started.
int launch(supervised *one)
{
    int report[2];
    if (pipe2(report, O_CLOEXEC) != 0)
        return errno;
    const pid_t self = getpid();
    const pid_t pid = fork();
    if (pid == 0)
        become(one, self, report[1]);
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
    one->pid = pid;
    one->started_at_ms = naro_clock_monotonic_ms();
    return 0;
}

void start_later(supervised *one)
{
    ev_timer_stop(one->loop, &one->again);
    ev_timer_set(&one->again, one->delay_ms / 1000., 0.);
    ev_timer_start(one->loop, &one->again);
}

void on_again(struct ev_loop *, ev_timer *timer, int)
{
    supervised *one = static_cast<supervised *>(timer->data);
    const int error = launch(one);
    if (error == 0) {
        one->restarts++;
        return;
    }
    one->delay_ms = supervisor_next_delay(one->delay_ms, 0);
    desk_say("%s cannot be started: %s; trying again in %u.%u s", one->settings.program, strerror(error),
             one->delay_ms / 1000, one->delay_ms % 1000 / 100);
    start_later(one);
}

void done_if_all_have_ended(void)
{
    if (super.daemon.pid <= 0 && super.motor.pid <= 0)
        super.done();
}

void on_child(struct ev_loop *loop, ev_signal *watcher, int)
{
    supervised *one = static_cast<supervised *>(watcher->data);
    int status;
    rusage used;
    if (one->pid <= 0 || wait4(one->pid, &status, WNOHANG, &used) != one->pid)
        return;
    one->pid = 0;
    one->last_status = status;
    one->cpu_before_s += seconds(used.ru_utime) + seconds(used.ru_stime);
    if (one->settings.on_end)
        one->settings.on_end();
    if (super.stopping) {
        ev_timer_stop(loop, &one->kill);
        ev_timer_stop(loop, &one->look);
        done_if_all_have_ended();
        return;
    }
    one->delay_ms = supervisor_next_delay(one->delay_ms, naro_clock_monotonic_ms() - one->started_at_ms);
    char what[64];
    supervisor_describe(status, what, sizeof what);
    if (one->settings.verbose)
        desk_say("%s has ended (%s); starting it again in %u.%u s", one->who, what, one->delay_ms / 1000,
                 one->delay_ms % 1000 / 100);
    else
        desk_say("%s has ended (%s); starting it again in %u.%u s; its log: %s%s", one->who, what,
                 one->delay_ms / 1000, one->delay_ms % 1000 / 100, naro_root(), one->log_path);
    start_later(one);
}

void on_look(struct ev_loop *, ev_timer *timer, int)
{
    supervised *one = static_cast<supervised *>(timer->data);
    struct stat log;
    measure(one);
    if (one->log >= 0 && fstat(one->log, &log) == 0 && log.st_size > SUPERVISOR_LOG_MAX)
        (void)!ftruncate(one->log, 0);
}

void on_kill(struct ev_loop *, ev_timer *timer, int)
{
    const supervised *one = static_cast<const supervised *>(timer->data);
    if (one->pid <= 0)
        return;
    desk_say("%s does not end on SIGTERM; killed", one->who);
    kill(one->pid, SIGKILL);
}

int start(supervised *one, struct ev_loop *loop, const supervisor_settings *settings)
{
    one->loop = loop;
    one->settings = *settings;
    one->arguments.assign(1, const_cast<char *>(settings->program));
    for (std::string &argument : one->settings.arguments)
        one->arguments.push_back(&argument[0]);
    one->arguments.push_back(nullptr);
    if (open_log(one) != 0)
        return -1;
    one->child.data = one->again.data = one->kill.data = one->look.data = one;
    ev_signal_init(&one->child, on_child, SIGCHLD);
    ev_signal_start(loop, &one->child);
    ev_init(&one->again, on_again);
    ev_init(&one->kill, on_kill);
    ev_timer_init(&one->look, on_look, 1., 1.);
    ev_timer_start(loop, &one->look);
    const int error = launch(one);
    if (error == 0)
        return 0;
    desk_say("%s cannot be started: %s", settings->program, strerror(error));
    return -1;
}

void end(supervised *one)
{
    if (one->loop)
        ev_timer_stop(one->loop, &one->again);
    if (one->pid <= 0)
        return;
    measure(one);
    kill(one->pid, SIGTERM);
    ev_timer_set(&one->kill, SUPERVISOR_KILL_AFTER_MS / 1000., 0.);
    ev_timer_start(one->loop, &one->kill);
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
    return start(&super.daemon, loop, settings);
}

int supervisor_start_motor(struct ev_loop *loop, const supervisor_settings *settings)
{
    return start(&super.motor, loop, settings);
}

void supervisor_stop(void (*done)(void))
{
    super.stopping = true;
    super.done = done;
    end(&super.daemon);
    end(&super.motor);
    done_if_all_have_ended();
}

void supervisor_get_figures(supervisor_figures *figures)
{
    supervised *one = &super.daemon;
    measure(one);
    *figures = {};
    figures->pid = one->pid;
    figures->restarts = one->restarts;
    figures->cpu_s = one->cpu_before_s;
    figures->peak_kib = one->peak_kib;
    figures->last_status = one->last_status;
    if (one->pid > 0) {
        figures->up_ms = naro_clock_monotonic_ms() - one->started_at_ms;
        figures->cpu_s += cpu_of(one->pid);
        figures->threads = status_of(one->pid, "Threads");
    }
}
