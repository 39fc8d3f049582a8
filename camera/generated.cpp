// The generated scene. Integers only, so that it is the same everywhere.
#include "generated.h"

#include <stddef.h>
#include <string.h>

extern "C" {
#include <libavutil/frame.h>
#include <libavutil/pixfmt.h>
}

namespace
{

struct colour {
    uint8_t y, u, v;
};
const colour wall = {150, 122, 132};
const colour floor_colour = {95, 118, 138};
const colour disc_colour = {60, 100, 200};
const colour block_colour = {215, 60, 135};

enum { FLOOR_FROM = 270, DISC_RADIUS = 42, BLOCK_WIDTH = 110, BLOCK_HEIGHT = 70 };

void put(AVFrame *frame, ptrdiff_t x, ptrdiff_t y, const colour &what)
{
    frame->data[0][y * frame->linesize[0] + x] = what.y;
    frame->data[1][y / 2 * frame->linesize[1] + x / 2] = what.u;
    frame->data[2][y / 2 * frame->linesize[2] + x / 2] = what.v;
}

void draw_room(AVFrame *frame)
{
    for (int y = 0; y < GENERATED_HEIGHT; y++) {
        const colour &base = y < FLOOR_FROM ? wall : floor_colour;
        for (int x = 0; x < GENERATED_WIDTH; x++) {
            // Boards on the floor and a pattern on the wall, so that the picture is not flat.
            const int pattern = y < FLOOR_FROM ? (x / 32 + y / 32) % 2 * 6 : (x + 2 * y) / 48 % 2 * 10;
            frame->data[0][y * frame->linesize[0] + x] = static_cast<uint8_t>(base.y + pattern);
        }
        const ptrdiff_t half = y / 2;
        memset(frame->data[1] + half * frame->linesize[1], base.u, GENERATED_WIDTH / 2);
        memset(frame->data[2] + half * frame->linesize[2], base.v, GENERATED_WIDTH / 2);
    }
}

// Where something is that crosses the picture from outside to outside, given how long it has been on its way.
int crossing(int64_t since_ms, int64_t whole_ms, int size)
{
    return static_cast<int>(since_ms * (GENERATED_WIDTH + 2 * size) / whole_ms) - size;
}

void draw_disc(AVFrame *frame, int centre_x, int centre_y)
{
    for (int y = centre_y - DISC_RADIUS; y <= centre_y + DISC_RADIUS; y++) {
        for (int x = centre_x - DISC_RADIUS; x <= centre_x + DISC_RADIUS; x++) {
            const int dx = x - centre_x, dy = y - centre_y;
            if (x >= 0 && x < GENERATED_WIDTH && dx * dx + dy * dy <= DISC_RADIUS * DISC_RADIUS)
                put(frame, x, y, disc_colour);
        }
    }
}

void draw_block(AVFrame *frame, int centre_x, int top)
{
    for (int y = top; y < top + BLOCK_HEIGHT; y++)
        for (int x = centre_x - BLOCK_WIDTH / 2; x < centre_x + BLOCK_WIDTH / 2; x++)
            if (x >= 0 && x < GENERATED_WIDTH)
                put(frame, x, y, block_colour);
}

} // namespace

AVFrame *generated_picture(uint64_t time_ms)
{
    AVFrame *frame = av_frame_alloc();
    if (!frame)
        return nullptr;
    frame->width = GENERATED_WIDTH;
    frame->height = GENERATED_HEIGHT;
    frame->format = AV_PIX_FMT_YUV420P;
    frame->colorspace = AVCOL_SPC_SMPTE170M;
    frame->color_range = AVCOL_RANGE_MPEG;
    if (av_frame_get_buffer(frame, 0) < 0) {
        av_frame_free(&frame);
        return nullptr;
    }
    draw_room(frame);
    const int64_t now = static_cast<int64_t>(time_ms % GENERATED_CYCLE_MS);
    if (now >= GENERATED_DISC_FROM_MS && now < GENERATED_DISC_TO_MS)
        draw_disc(frame,
                  crossing(now - GENERATED_DISC_FROM_MS, GENERATED_DISC_TO_MS - GENERATED_DISC_FROM_MS,
                           DISC_RADIUS),
                  240);
    if (now >= GENERATED_BLOCK_FROM_MS && now < GENERATED_BLOCK_TO_MS)
        draw_block(frame,
                   GENERATED_WIDTH - crossing(now - GENERATED_BLOCK_FROM_MS,
                                              GENERATED_BLOCK_TO_MS - GENERATED_BLOCK_FROM_MS,
                                              BLOCK_WIDTH / 2),
                   110);
    return frame;
}
