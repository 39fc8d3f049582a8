// The meter, the schedule, and what was measured between the source's thread and the daemon's questions.
#include "sound.h"

#include <algorithm>
#include <deque>
#include <errno.h>
#include <math.h>
#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "desk.h"
#include "event_channels.h"
#include "naro_util.h"
#include "shbf.h"
#include "shbfev.h"

namespace
{

const size_t MEASURED_MAX = 6000;    // ten minutes
const uint64_t STANDSTILL_MS = 1000; // pictures come five times a second

struct level {
    int64_t end_ms;
    double db;
};

struct {
    bool running;
    sound_settings settings;
    std::vector<sound_moment> schedule;
    void *channel; // receiver; null: none
    sound_counts counts;
    uint64_t last_now_ms;   // the source's time at the last answer
    uint64_t last_moved_ms; // monotonic; when it was first seen there

    pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER; // protects measured
    std::deque<level> measured;
} ear;

// ---- The schedule

const char *skip_blanks(const char *at)
{
    return at + strspn(at, " \t\r");
}

// One line of a schedule, without its remark; false where it says something else.
bool read_moment(const std::string &line, sound_moment *moment)
{
    char *end;
    moment->seconds = strtod(line.c_str(), &end);
    if (strlen(line.c_str()) != line.size()) // a zero byte, which no text has
        return false;
    if (end == line.c_str() || !(moment->seconds >= 0 && moment->seconds <= 1e9))
        return false;
    std::string word = skip_blanks(end);
    word.erase(word.find_last_not_of(" \t\r") + 1);
    moment->loud = word == "loud";
    return moment->loud || word == "quiet";
}

int read_schedule(const char *path)
{
    FILE *file = fopen(path, "re");
    if (!file) {
        desk_say("%s: %s", path, strerror(errno));
        return -1;
    }
    std::string text(SOUND_FILE_MAX + 1, '\0'), error;
    text.resize(fread(&text[0], 1, text.size(), file));
    fclose(file);
    if (text.size() > SOUND_FILE_MAX)
        error = "larger than a schedule can be";
    if (!error.empty() || sound_schedule_parse(text, &ear.schedule, &error) != 0) {
        desk_say("%s: %s", path, error.c_str());
        return -1;
    }
    return 0;
}

// ---- What was measured

// Whether the source's own sound was loud just before `now_ms`, and its newest level there. Forgets what is
// older.
bool measured_loud(int64_t now_ms)
{
    bool loud = false;
    int64_t newest_ms = -1;
    ear.counts.has_level = false;
    pthread_mutex_lock(&ear.mutex);
    std::deque<level> kept;
    for (const level &one : ear.measured) {
        if (one.end_ms <= now_ms - SOUND_HOLD_MS)
            continue;
        kept.push_back(one);
        if (one.end_ms > now_ms)
            continue;
        loud = loud || one.db >= ear.settings.threshold_db;
        if (one.end_ms >= newest_ms) {
            newest_ms = one.end_ms;
            ear.counts.has_level = true;
            ear.counts.level_db = one.db;
        }
    }
    ear.measured.swap(kept);
    pthread_mutex_unlock(&ear.mutex);
    return loud;
}

// Whether the source's time has not moved for a while: a stream that is lost, say.
bool stands_still(uint64_t now_ms)
{
    const uint64_t clock_ms = naro_clock_monotonic_ms();
    if (now_ms != ear.last_now_ms) {
        ear.last_now_ms = now_ms;
        ear.last_moved_ms = clock_ms;
    }
    return clock_ms - ear.last_moved_ms >= STANDSTILL_MS;
}

// ---- The daemon's channel

int on_told(void *, void *buffer)
{
    if (shbf_size(buffer) == 4) {
        ear.counts.told++;
        if (ear.settings.on_told)
            ear.settings.on_told();
    } else {
        ear.counts.bad++;
        desk_say("a message of %zu bytes on %s is no time; dropped", shbf_size(buffer), EVENT_PATH_LSD);
    }
    shbf_free(buffer);
    return 0;
}

} // namespace

void sound_meter_start(sound_meter *meter, int rate)
{
    *meter = {};
    meter->hop_samples = std::max(1, static_cast<int>(int64_t{rate} * SOUND_HOP_MS / 1000));
}

bool sound_meter_add(sound_meter *meter, const double *sample, int channels, double *level_db)
{
    for (int i = 0; i < std::min<int>(channels, SOUND_CHANNELS_MAX); i++)
        if (isfinite(sample[i]))
            meter->energy[meter->hop][i] += sample[i] * sample[i];
    if (++meter->samples < meter->hop_samples)
        return false;
    double loudest = 0;
    for (int i = 0; i < SOUND_CHANNELS_MAX; i++) {
        double sum = 0;
        for (const auto &hop : meter->energy)
            sum += hop[i];
        loudest = std::max(loudest, sum);
    }
    // Over the whole window from the first hop on: before the beginning there was silence.
    const double mean = loudest / (static_cast<double>(meter->hop_samples) * SOUND_HOPS);
    *level_db = std::max(SOUND_SILENCE_DB, 10 * log10(mean));
    meter->samples = 0;
    meter->hop = (meter->hop + 1) % SOUND_HOPS;
    memset(meter->energy[meter->hop], 0, sizeof meter->energy[meter->hop]);
    return true;
}

int sound_schedule_parse(const std::string &text, std::vector<sound_moment> *schedule, std::string *error)
{
    schedule->clear();
    size_t number = 0;
    for (size_t from = 0; from < text.size();) {
        const size_t end = std::min(text.find('\n', from), text.size());
        std::string line = text.substr(from, end - from);
        from = end + 1;
        number++;
        line = line.substr(0, line.find('#'));
        if (line.find_first_not_of(" \t\r") == std::string::npos)
            continue;
        sound_moment moment;
        if (!read_moment(line, &moment)) {
            *error = "line " + std::to_string(number) +
                     ": seconds, from 0 to a thousand million, and then loud or quiet are wanted";
            return -1;
        }
        if (!schedule->empty() && moment.seconds < schedule->back().seconds) {
            *error = "line " + std::to_string(number) + ": times go back";
            return -1;
        }
        schedule->push_back(moment);
    }
    if (schedule->empty()) {
        *error = "there is no sound in it";
        return -1;
    }
    return 0;
}

bool sound_schedule_at(const std::vector<sound_moment> &schedule, double seconds, bool loop)
{
    if (loop && schedule.back().seconds > 0)
        seconds = fmod(seconds, schedule.back().seconds);
    bool loud = false;
    for (const sound_moment &moment : schedule)
        if (moment.seconds <= seconds)
            loud = moment.loud;
    return loud;
}

int sound_start(struct ev_loop *loop, const sound_settings *settings)
{
    ear.settings = *settings;
    ear.schedule.clear();
    ear.counts = {};
    ear.last_now_ms = 0;
    ear.last_moved_ms = naro_clock_monotonic_ms();
    pthread_mutex_lock(&ear.mutex);
    ear.measured.clear();
    pthread_mutex_unlock(&ear.mutex);
    if (settings->schedule && read_schedule(settings->schedule) != 0)
        return -1;
    ear.channel = shbfev_rcv_create(loop, EVENT_PATH_LSD);
    if (!ear.channel || shbfev_rcv_register(ear.channel, SHBFEV_RCV_DATA, on_told, nullptr) < 0 ||
        shbfev_rcv_start(ear.channel) < 0) {
        desk_say("the channel %s cannot be opened", EVENT_PATH_LSD);
        sound_stop();
        return -1;
    }
    ear.running = true;
    return 0;
}

void sound_stop(void)
{
    if (ear.channel)
        shbfev_rcv_destroy(ear.channel);
    ear.channel = nullptr;
    ear.running = false;
}

uint32_t sound_answer(void)
{
    if (!ear.running)
        return 0;
    const uint64_t now_ms = ear.settings.now_ms();
    if (!ear.schedule.empty())
        ear.counts.is_loud =
            sound_schedule_at(ear.schedule, static_cast<double>(now_ms) / 1000, ear.settings.loop);
    else
        ear.counts.is_loud = measured_loud(static_cast<int64_t>(now_ms)) && !stands_still(now_ms);
    ear.counts.asked++;
    ear.counts.loud += ear.counts.is_loud;
    return ear.counts.is_loud ? 1 : 0;
}

const sound_counts *sound_get_counts(void)
{
    return &ear.counts;
}

void sound_measured(int64_t end_ms, double level_db)
{
    pthread_mutex_lock(&ear.mutex);
    ear.measured.push_back({end_ms, level_db});
    if (ear.measured.size() > MEASURED_MAX)
        ear.measured.pop_front();
    pthread_mutex_unlock(&ear.mutex);
}
