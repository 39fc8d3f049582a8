// The recording: a folder with "video.mp4" (the frames sent, with boxes and events drawn in) and
// "events.jsonl" (one event a line, as --json prints them). Event loop only.
#ifndef RECORD_H
#define RECORD_H

#include <stdint.h>
#include <string>

#define RECORD_VIDEO "video.mp4"
#define RECORD_EVENTS "events.jsonl"

// Makes the folder and opens both files, written over if they are there. 0, or -1 after saying why.
int record_start(const char *folder);
// A picture as overlay_draw leaves it. Trouble is said once and ends the recording; the camera goes on.
void record_picture(const uint32_t *pixels, uint64_t time_ms);
void record_event(const std::string &json);
// Finishes the files. Does nothing when there is no recording.
void record_stop(void);

#endif
