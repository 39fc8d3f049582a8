// What the desk camera hears, and its answer when the daemon asks for it: of the source's own sound by how
// loud it is, or from a schedule.
//
// Loudness is metered over 300 ms, the shortest time over which people judge it, and for an answer that
// does not flicker; ten times a second. A level is the root mean square of the loudest channel, in dB below
// the largest sample that there can be (dBFS: a sine that fills the range has -3).
//
// A sound counts for a while after it has gone, so that the daemon, which asks every 300 ms, hears one
// however short.
#ifndef SOUND_H
#define SOUND_H

#include <stdint.h>
#include <string>
#include <vector>

struct ev_loop;

enum {
    SOUND_HOP_MS = 100, // between two levels
    SOUND_HOPS = 3,     // in the window of one level
    SOUND_CHANNELS_MAX = 8,
    // How long a loud level counts. The daemon asks every 300 ms, of a picture that may be 200 ms old.
    SOUND_HOLD_MS = 500,
};

const double SOUND_SILENCE_DB = -120;
// Speech in recorded video is levelled to about -23 dB (EBU R 128), and its loudest syllables reach 7 dB
// more over such a window: what is louder than that is loud.
const double SOUND_THRESHOLD_DB = -15;
const double SOUND_THRESHOLD_MIN_DB = -90; // below the noise of any recording

// ---- Metering: pure, any thread ---------------------------------------------------------------------------

struct sound_meter {
    int hop_samples;
    int samples;                                   // in the hop that is being filled
    int hop;                                       // its place in energy
    double energy[SOUND_HOPS][SOUND_CHANNELS_MAX]; // sums of squares
};

// In silence. `rate`: samples a second.
void sound_meter_start(sound_meter *meter, int rate);
// Takes one sample of each channel (of those beyond SOUND_CHANNELS_MAX nothing is heard; 1 is full scale,
// what is no number is silence). True when it ended a hop, with the level of the window that ends there in
// *level_db.
bool sound_meter_add(sound_meter *meter, const double *sample, int channels, double *level_db);

// ---- A schedule -------------------------------------------------------------------------------------------

// A schedule of sound is a text file: on each line a time in seconds of the source, and "loud" or "quiet";
// "#" begins a remark. Times grow. Before the first line it is quiet, after the last one it stays as that
// says. Where the source is played again and again, so is the schedule: it begins anew at the time of its
// last line.
struct sound_moment {
    double seconds;
    bool loud;
};
enum { SOUND_FILE_MAX = 1024 * 1024 };
// From a text: 0, or -1 with line and reason in *error. Any thread.
int sound_schedule_parse(const std::string &text, std::vector<sound_moment> *schedule, std::string *error);
// What a schedule of at least one line says of a time. Any thread.
bool sound_schedule_at(const std::vector<sound_moment> &schedule, double seconds, bool loop);

// ---- The camera's ear -------------------------------------------------------------------------------------

struct sound_settings {
    const char *schedule; // file; null: the source's own sound
    bool loop;            // the source is played again and again
    double threshold_db;
    uint64_t (*now_ms)(void); // the source's time
    void (*on_told)(void);    // the daemon has told of a sound on its channel; null: nobody cares
};

struct sound_counts {
    uint64_t asked; // answers given
    uint64_t loud;  // those that said so
    uint64_t told;  // messages of the daemon
    uint64_t bad;   // messages on its channel that tell no time; each was said
    bool is_loud;   // the last answer
    bool has_level;
    double level_db; // of the source's own sound at the last answer, if it has any there
};

// Reads the schedule, forgets what was measured, and opens the daemon's sound channel. 0, or -1 after
// saying why. Event loop only, as is all below but sound_measured. The channels' receiving side has been
// started (frames_start).
int sound_start(struct ev_loop *loop, const sound_settings *settings);
void sound_stop(void);
// What the daemon is answered: 1 for a loud sound, else 0. The source's own sound is silent while its
// pictures stand still. Before sound_start: 0.
uint32_t sound_answer(void);
const sound_counts *sound_get_counts(void);

// The level of the window that ends at `end_ms` of the source's time. May come ahead of that time by ten
// minutes, and more than once. Any thread.
void sound_measured(int64_t end_ms, double level_db);

#endif
