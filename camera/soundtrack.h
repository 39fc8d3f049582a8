// The sound of a source that FFmpeg reads, beside its pictures: decodes it and hands its levels to the
// camera's ear (sound.h). The source's thread only.
//
// Levels are measured in the stream's own time. What that is in the source's time is known only once a
// picture has come: the source says so by soundtrack_settle, and levels wait until then.
#ifndef SOUNDTRACK_H
#define SOUNDTRACK_H

#include <stdint.h>

struct AVFormatContext;
struct AVPacket;

// Chooses the sound that belongs to the video stream of an open source, and opens its decoder. The stream's
// number, or -1 where there is no sound, or none that can be decoded (which is said; the source is then
// played without). `name` is what the source is called to a person.
int soundtrack_open(AVFormatContext *format, int video_stream, const char *name);
// Decodes a packet of that stream, or with null what is left in the decoder at the stream's end. What is
// broken is left out.
void soundtrack_feed(const AVPacket *packet);
// Stream time plus `offset_ms` is the source's time: hands on what has been measured up to now.
void soundtrack_settle(int64_t offset_ms);
// The same for a source that comes at its own pace: what was just decoded ends now, at `now_ms` of the
// source's time.
void soundtrack_settle_live(int64_t now_ms);
// The stream begins again, or goes on elsewhere.
void soundtrack_restart(void);
// Does nothing when there is none.
void soundtrack_close(void);

#endif
