// What the camera is asked for on its command line.
#ifndef OPTIONS_H
#define OPTIONS_H

#include <stdint.h>
#include <string>
#include <utility>
#include <vector>

struct camera_options {
    const char *source;
    bool loop;
    bool gpu;          // draw scenes with a graphics card
    const char *truth; // file; null: none
    const char *lux;   // file; null: none
    const char *sound; // file of a schedule; null: the source's own sound
    double sound_threshold_db;
    bool daemon_lights; // of a scene: the daemon drives filter and lamps
    bool fast;
    uint64_t end_ms;    // 0: when the source ends
    const char *record; // folder; null: no recording
    bool window;
    const char *card;                        // of card_settings
    const char *daemon;                      // path; null: none is started
    const char *scenario;                    // file; null: behave
    std::vector<std::string> motor_settings; // KEY=VALUE, checked
    double wide;                             // share of the picture that is seen at a time; 0: all of it
    int listeners;
    const char *frames;                                        // file for the pictures as sent; null: none
    std::vector<std::pair<std::string, std::string>> settings; // key and value, in the order given
    bool json;
    bool summary_only;
    bool verbose;
    bool motor; // the pan-tilt head is driven
};

// Fills *options from the command line. 0: run; 1: nothing to run (help was shown); -1: wrong, and it was
// said why. `beside` is where the program lies: the daemon is looked for there. Before threads start.
int options_parse(int argc, char **argv, camera_options *options);
// Path of a program that lies beside this one, wherever that was started from. Any thread.
void options_beside(const char *program, char *path, size_t size);

#endif
