// Where pictures come from: a video file, a stream, a capture device, a scene in the rendered room, or a generated
// picture of moving shapes.
//
// A thread of its own reads and decodes (or draws), a bounded number of pictures ahead; the event loop takes.
// The source's time starts at 0 with its first picture and never runs backwards. A file's time is that of its
// pictures, and goes on counting when it is played again; a stream's or device's time is that of the
// pictures' arrival.
//
// A source that stalls or breaks is reported and opened again with a growing delay, for as long as it takes.
// A file goes on where it was.
#ifndef SOURCE_H
#define SOURCE_H

#include <stdint.h>

struct AVFrame;

#define SOURCE_SHAPES "shapes"

struct source_settings {
    // File, URL, device, scene (rendered.h says what it looks like), or SOURCE_SHAPES. Must live as long as the source.
    const char *url;
    bool loop; // a file or a scene: again and again
    bool view; // of a scene: larger pictures for people, too
    bool gpu;  // of a scene: drawn by a graphics card where there is one
    // Of a file, URL or device: its sound is decoded, too, and its levels go to the camera's ear (sound.h).
    bool sound;
    // Of a scene: where the camera's head is (rendered.h). A picture is then drawn when it is asked for and not ahead,
    // so that it shows where the head is at that moment. Null: no head.
    bool (*head)(double before_s, float *pan, float *tilt);
    // Called on the source's thread when a take that had to wait is worth trying again.
    void (*wake)(void *context);
    void *context;
};

enum source_result {
    SOURCE_PICTURE, // *picture is filled
    SOURCE_WAIT,    // not decoded yet; `wake` will be called
    SOURCE_END,     // the source is over
    SOURCE_FAILED,  // it cannot be played at all; the reason was said
};

struct source_picture {
    AVFrame *frame;   // the caller's to free (av_frame_free)
    uint64_t time_ms; // source time of this picture
};

// Starts. 0, or -1 after saying why. Event loop only, as are all of these.
int source_start(const source_settings *settings);
// The picture that a player shows at source time `at_ms`: the newest whose own time is not later. Times asked
// for must not go back. A live source gives its newest picture whatever the time.
enum source_result source_take(uint64_t at_ms, source_picture *picture);
// Whether pictures come at their own pace and cannot wait. Known once the first take gave a picture.
bool source_is_live(void);
// Times that the source was opened again after trouble. Any thread.
unsigned source_reopened(void);
// Ends the thread, whatever it waits for, and frees everything. Does nothing when there is no source.
void source_stop(void);

#endif
