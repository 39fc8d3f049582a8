// Plain files, inotify, and a coil.
#include "board.h"

#include <algorithm>
#include <errno.h>
#include <ev.h>
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <string>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include "desk.h"
#include "naro_util.h"

const int board_line_numbers[BOARD_LINES] = {45, 47, 78, 79};

// ---- What hangs on the lines ------------------------------------------------------------------------------

static bool is_coil(int line)
{
    return line == BOARD_COIL_NIGHT || line == BOARD_COIL_DAY;
}

void board_init(board_state *board)
{
    *board = {};
    board->filter_day = true;
}

// The pulse on a coil line is over.
static void end_pulse(board_state *board, board_line line, uint64_t now_ms)
{
    board->pulses++;
    const bool day = line == BOARD_COIL_DAY;
    if (now_ms - board->since_ms[line] < BOARD_PULSE_MIN_MS || board->filter_day == day)
        return;
    board->filter_day = day;
    board->moves++;
}

const char *board_set_line(board_state *board, board_line line, bool high, uint64_t now_ms)
{
    if (board->high[line] == high)
        return nullptr;
    const char *breach = board_check(board, now_ms);
    if (is_coil(line) && !high)
        end_pulse(board, line, now_ms);
    board->high[line] = high;
    board->since_ms[line] = now_ms;
    board->breached[line] = false;
    if (is_coil(line) && board->high[BOARD_COIL_NIGHT] && board->high[BOARD_COIL_DAY]) {
        board->breaches++;
        return "both lines of the filter's coil are high";
    }
    return breach;
}

const char *board_check(board_state *board, uint64_t now_ms)
{
    for (int line : {BOARD_COIL_NIGHT, BOARD_COIL_DAY}) {
        if (!board->high[line] || board->breached[line] ||
            now_ms - board->since_ms[line] <= BOARD_PULSE_MAX_MS)
            continue;
        board->breached[line] = true;
        board->breaches++;
        return "the filter's coil has been driven for more than a second";
    }
    return nullptr;
}

// ---- The files --------------------------------------------------------------------------------------------

namespace
{

const char GPIO[] = "/sys/class/gpio";
const char PWM[] = "/sys/class/pwm/pwmchip0";
const int PWM_INFRARED = 4, PWM_OTHER = 6;
const int64_t LATE_MAX_MS = 10000; // who comes later than that to a file has slept through more than a pulse

struct {
    board_state board;
    struct ev_loop *loop;
    ev_io io;
    ev_timer check;
    int notify = -1;
    int watch[BOARD_LINES], watch_pwm;
    void (*on_change)(void);
} state;

std::string line_folder(int line)
{
    return std::string(GPIO) + "/gpio" + std::to_string(board_line_numbers[line]);
}

std::string pwm_folder(int channel)
{
    return std::string(PWM) + "/pwm" + std::to_string(channel);
}

// Makes a file with a text in it. False after saying why.
bool make(const std::string &path, const char *text)
{
    if (dir_make_parent(path.c_str(), 0755) == 0) {
        const int fd = naro_open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        const ssize_t length = static_cast<ssize_t>(strlen(text));
        const bool done = fd >= 0 && naro_write(fd, text, strlen(text)) == length;
        if (fd >= 0)
            close(fd);
        if (done)
            return true;
    }
    desk_say("the board: %s: %s", path.c_str(), strerror(errno));
    return false;
}

bool make_all(void)
{
    bool done = true;
    for (const char *folder : {GPIO, PWM})
        for (const char *name : {"/export", "/unexport"})
            done = done && make(std::string(folder) + name, "");
    for (int line = 0; line < BOARD_LINES; line++)
        done = done && make(line_folder(line) + "/direction", "in\n") &&
               make(line_folder(line) + "/value", "0\n");
    for (int channel : {PWM_INFRARED, PWM_OTHER})
        for (const char *name : {"/period", "/enable", "/duty_cycle"})
            done = done && make(pwm_folder(channel) + name, "0\n");
    return done;
}

// How long ago an open file was written, by its stamp; 0 where that cannot be told, because the clock was set
// or is not the stamps' own.
uint64_t age_ms(int fd)
{
    struct stat status;
    if (fstat(fd, &status) != 0)
        return 0;
    const int64_t written_ms =
        static_cast<int64_t>(status.st_mtim.tv_sec) * 1000 + status.st_mtim.tv_nsec / 1000000;
    const int64_t age = static_cast<int64_t>(time_realtime_ms()) - written_ms;
    return age > 0 && age <= LATE_MAX_MS ? static_cast<uint64_t>(age) : 0;
}

// The number in a file, and how long ago it was written (null: nobody asks); false while there is none.
bool read_number(const std::string &path, unsigned *number, uint64_t *age = nullptr)
{
    const int fd = naro_open(path.c_str(), O_RDONLY, 0);
    if (fd < 0)
        return false;
    char text[16] = "", *end;
    const ssize_t length = naro_read(fd, text, sizeof text - 1);
    if (age)
        *age = age_ms(fd);
    close(fd);
    if (length <= 0)
        return false;
    const unsigned long value = strtoul(text, &end, 10);
    *number = static_cast<unsigned>(value);
    return end != text && value <= UINT32_MAX;
}

bool starts_with(const std::string &path, const char *word)
{
    const int fd = naro_open(path.c_str(), O_RDONLY, 0);
    if (fd < 0)
        return false;
    char text[8] = "";
    const ssize_t length = naro_read(fd, text, sizeof text - 1);
    close(fd);
    return length >= static_cast<ssize_t>(strlen(word)) && strncmp(text, word, strlen(word)) == 0;
}

void say(const char *breach)
{
    if (breach)
        desk_say("the board: %s", breach);
}

void changed(void)
{
    if (state.on_change)
        state.on_change();
}

// Looks again when the pulse that began first will have taken too long: its line may stay high for ever, when
// whoever drove it was killed.
void watch_pulses(void)
{
    uint64_t due_ms = UINT64_MAX;
    for (int line : {BOARD_COIL_NIGHT, BOARD_COIL_DAY})
        if (state.board.high[line] && !state.board.breached[line])
            due_ms = std::min<uint64_t>(due_ms, state.board.since_ms[line] + BOARD_PULSE_MAX_MS + 1);
    const uint64_t now_ms = naro_clock_monotonic_ms();
    if (due_ms == UINT64_MAX)
        ev_timer_stop(state.loop, &state.check);
    else
        naro_clock_arm_timer(state.loop, &state.check,
                             due_ms > now_ms ? static_cast<double>(due_ms - now_ms) / 1000. : 0.);
}

// A line has had a level for `age` already: a busy loop comes late to it, and a pulse is not longer for that.
void set_line(int line, bool high, uint64_t age)
{
    if (state.board.high[line] == high)
        return;
    const uint64_t now_ms = naro_clock_monotonic_ms();
    const uint64_t at_ms = std::max(state.board.since_ms[line], now_ms - std::min(now_ms, age));
    say(board_set_line(&state.board, static_cast<board_line>(line), high, at_ms));
    watch_pulses();
    changed();
}

// A file was written. `then_value`: so was the line's value, after it.
void follow_line(int line, const std::string &name, bool then_value)
{
    unsigned value;
    uint64_t age;
    // As the kernel has it: a line that is made an output starts low. What was written into it since is a new
    // level, and stays: a daemon may make it an output and begin a pulse before we have seen either.
    if (name == "direction" && starts_with(line_folder(line) + "/direction", "out")) {
        set_line(line, false, 0);
        if (!then_value && (!read_number(line_folder(line) + "/value", &value) || value != 0))
            make(line_folder(line) + "/value", "0\n");
    } else if (name == "value" && read_number(line_folder(line) + "/value", &value, &age)) {
        set_line(line, value != 0, age);
    }
}

void follow_pwm(void)
{
    unsigned enable, duty;
    if (!read_number(pwm_folder(PWM_INFRARED) + "/enable", &enable) ||
        !read_number(pwm_folder(PWM_INFRARED) + "/duty_cycle", &duty))
        return;
    const unsigned percent = enable == 0 ? 0 : duty > 100 ? 100 : duty;
    if (percent == state.board.pwm_percent)
        return;
    state.board.pwm_percent = percent;
    changed();
}

void follow_files(void)
{
    struct written {
        int watch;
        std::string name;
    };
    std::vector<written> all;
    alignas(inotify_event) char bytes[4096];
    ssize_t length;
    while ((length = read(state.notify, bytes, sizeof bytes)) > 0) {
        for (const char *at = bytes; at < bytes + length;) {
            const inotify_event *event = reinterpret_cast<const inotify_event *>(at);
            at += sizeof *event + event->len;
            all.push_back({event->wd, event->len > 0 ? event->name : ""});
        }
    }
    for (auto file = all.begin(); file != all.end(); ++file) {
        const bool then_value = std::any_of(file + 1, all.end(), [&](const written &later) {
            return later.watch == file->watch && later.name == "value";
        });
        for (int line = 0; line < BOARD_LINES; line++)
            if (file->watch == state.watch[line])
                follow_line(line, file->name, then_value);
        if (file->watch == state.watch_pwm)
            follow_pwm();
    }
}

void on_notify(struct ev_loop *, ev_io *, int)
{
    follow_files();
}

void on_check(struct ev_loop *, ev_timer *, int)
{
    follow_files(); // first: what is written is newer than what we know
    say(board_check(&state.board, naro_clock_monotonic_ms()));
    watch_pulses();
}

int watch(const std::string &folder)
{
    return inotify_add_watch(state.notify, (naro_root() + folder).c_str(), IN_MODIFY | IN_MOVED_TO);
}

} // namespace

int board_start(struct ev_loop *loop, void (*on_change)(void))
{
    board_init(&state.board);
    state.loop = loop;
    state.on_change = on_change;
    if (!make_all())
        return -1;
    state.notify = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    bool done = state.notify >= 0;
    for (int line = 0; done && line < BOARD_LINES; line++)
        done = (state.watch[line] = watch(line_folder(line))) >= 0;
    done = done && (state.watch_pwm = watch(pwm_folder(PWM_INFRARED))) >= 0;
    if (!done) {
        desk_say("the board: file notification: %s", strerror(errno));
        if (state.notify >= 0)
            close(state.notify);
        state.notify = -1;
        return -1;
    }
    ev_timer_init(&state.check, on_check, 0., 0.);
    ev_io_init(&state.io, on_notify, state.notify, EV_READ);
    ev_io_start(loop, &state.io);
    return 0;
}

const board_state *board_get(void)
{
    return &state.board;
}

void board_stop(void)
{
    if (state.notify < 0)
        return;
    ev_io_stop(state.loop, &state.io);
    ev_timer_stop(state.loop, &state.check);
    close(state.notify);
    state.notify = -1;
}
