// The raw stream in the hands of a system test: answers each "rawcap" with a picture in which a bright square moves,
// and does what it is told on its standard input, a line each:
//   auto on | auto off                 answers requests, or lets them go by (on at the start)
//   frame                              sends a picture unasked
//   still BRIGHTNESS                   the same, with a square that stands still, of this brightness before a ground of
//                                      128: from one to the next the picture differs by what the two numbers differ
//   message WIDTH HEIGHT SIZE BYTES    sends a head with these numbers and BYTES bytes of pixels behind it
//   bytes COUNT                        sends COUNT bytes of nothing
// Ends when its standard input does. Tells on standard output: "ready", and "rawcap" for each request.
#include <ev.h>
#include <inttypes.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>
#include <vector>

#include "event_channels.h"
#include "shbfev.h"

namespace
{

struct {
    void *channel;
    bool answers = true;
    unsigned frames;
    char line[256]; // what has come of the next command
    size_t line_length;
} feeder;

void broadcast(const std::vector<uint8_t> &message)
{
    if (shbfev_brd_broadcast_message(feeder.channel, message.data(), message.size()) != 0)
        fprintf(stderr, "raw_feeder: a message could not be sent\n");
}

enum { GROUND = 128, SQUARE = 48, TOP = 64 };

void send_message(uint32_t width, uint32_t height, uint32_t size, size_t bytes, unsigned left,
                  uint8_t brightness)
{
    raw_frame_header head = {};
    head.width = width;
    head.height = height;
    head.size = size;
    head.timestamp = feeder.frames;
    std::vector<uint8_t> message(sizeof head + bytes, GROUND);
    memcpy(message.data(), &head, sizeof head);
    uint8_t *luma = message.data() + sizeof head;
    if (bytes >= ANALYSIS_FRAME_BYTES)
        for (unsigned y = TOP; y < TOP + SQUARE; y++)
            memset(luma + y * ANALYSIS_WIDTH + left, brightness, SQUARE);
    feeder.frames++;
    broadcast(message);
}

void send_moving(uint32_t width, uint32_t height, uint32_t size, size_t bytes)
{
    send_message(width, height, size, bytes, feeder.frames * 16 % (ANALYSIS_WIDTH - SQUARE), 230);
}

void send_frame()
{
    send_moving(ANALYSIS_WIDTH, ANALYSIS_HEIGHT, ANALYSIS_FRAME_BYTES, ANALYSIS_FRAME_BYTES);
}

void send_still(uint8_t brightness)
{
    send_message(ANALYSIS_WIDTH, ANALYSIS_HEIGHT, ANALYSIS_FRAME_BYTES, ANALYSIS_FRAME_BYTES, 128,
                 brightness);
}

int on_message(void *, const void *buffer, size_t length)
{
    if (length == RAW_FRAME_REQUEST_LENGTH && memcmp(buffer, RAW_FRAME_REQUEST, length) == 0) {
        puts("rawcap");
        if (feeder.answers)
            send_frame();
    }
    return 0;
}

void obey(const char *line)
{
    uint32_t width, height, size;
    uint8_t brightness;
    size_t bytes;
    if (strcmp(line, "auto on") == 0)
        feeder.answers = true;
    else if (strcmp(line, "auto off") == 0)
        feeder.answers = false;
    else if (strcmp(line, "frame") == 0)
        send_frame();
    else if (sscanf(line, "message %" SCNu32 " %" SCNu32 " %" SCNu32 " %zu", &width, &height, &size,
                    &bytes) == 4)
        send_moving(width, height, size, bytes);
    else if (sscanf(line, "still %" SCNu8, &brightness) == 1)
        send_still(brightness);
    else if (sscanf(line, "bytes %zu", &bytes) == 1)
        broadcast(std::vector<uint8_t>(bytes));
    else
        fprintf(stderr, "raw_feeder: what is \"%s\"?\n", line);
}

void on_input(struct ev_loop *loop, ev_io *, int)
{
    const ssize_t got =
        read(STDIN_FILENO, feeder.line + feeder.line_length, sizeof feeder.line - 1 - feeder.line_length);
    if (got <= 0) {
        ev_break(loop, EVBREAK_ALL);
        return;
    }
    feeder.line_length += static_cast<size_t>(got);
    feeder.line[feeder.line_length] = '\0';
    while (char *end = strchr(feeder.line, '\n')) {
        *end = '\0';
        obey(feeder.line);
        const size_t used = static_cast<size_t>(end + 1 - feeder.line);
        memmove(feeder.line, end + 1, feeder.line_length - used + 1);
        feeder.line_length -= used;
    }
}

} // namespace

int main()
{
    setvbuf(stdout, nullptr, _IOLBF, 0);
    struct ev_loop *loop = ev_default_loop(0);
    feeder.channel = shbfev_brd_create(EVENT_PATH_RAW_STREAM);
    shbfev_brd_on_message(feeder.channel, on_message, nullptr);
    if (shbfev_brd_start(loop, feeder.channel) != 0) {
        fprintf(stderr, "raw_feeder: %s cannot be served\n", EVENT_PATH_RAW_STREAM);
        return 1;
    }
    ev_io input;
    ev_io_init(&input, on_input, STDIN_FILENO, EV_READ);
    ev_io_start(loop, &input);
    puts("ready");
    ev_run(loop, 0);
    shbfev_brd_destroy(feeder.channel);
    return 0;
}
