// The generated scene: when it moves, when it rests, and that it is always the same.
#include "generated.h"

#include <gtest/gtest.h>
#include <string.h>
#include <string>

extern "C" {
#include <libavutil/frame.h>
}

namespace
{

std::string luma(uint64_t time_ms)
{
    AVFrame *frame = generated_picture(time_ms);
    std::string bytes;
    for (int plane = 0; plane < 3; plane++)
        for (int y = 0; y < (plane ? GENERATED_HEIGHT / 2 : GENERATED_HEIGHT); y++)
            bytes.append(reinterpret_cast<char *>(frame->data[plane] + y * frame->linesize[plane]),
                         plane ? GENERATED_WIDTH / 2 : GENERATED_WIDTH);
    av_frame_free(&frame);
    return bytes;
}

// The leftmost and rightmost changed column of the luma, against the empty room.
std::pair<int, int> changed(uint64_t time_ms)
{
    const std::string room = luma(0), now = luma(time_ms);
    int left = GENERATED_WIDTH, right = -1;
    for (int i = 0; i < GENERATED_WIDTH * GENERATED_HEIGHT; i++) {
        if (room[static_cast<size_t>(i)] == now[static_cast<size_t>(i)])
            continue;
        left = std::min(left, i % GENERATED_WIDTH);
        right = std::max(right, i % GENERATED_WIDTH);
    }
    return {left, right};
}

TEST(Generated, RestsBetweenTheShapes)
{
    const std::string room = luma(0);
    for (const uint64_t ms : {2999, 8000, 11999, 17000, 19999, 20000, 22999, 40000})
        EXPECT_TRUE(luma(ms) == room) << ms;
    for (const uint64_t ms : {3400, 7800, 12400, 16800, 23400})
        EXPECT_FALSE(luma(ms) == room) << ms;
}

TEST(Generated, TheDiscGoesRightAndTheBlockLeft)
{
    EXPECT_LT(changed(4000).second, changed(6000).second);
    EXPECT_LT(changed(4000).first, changed(6000).first);
    EXPECT_GT(changed(13000).first, changed(15000).first);
    EXPECT_NEAR(changed(5500).second - changed(5500).first, 84, 1);
    EXPECT_NEAR(changed(14500).second - changed(14500).first, 109, 1);
    // They come from outside and leave to the outside.
    EXPECT_EQ(changed(3200).first, 0);
    EXPECT_EQ(changed(7800).second, GENERATED_WIDTH - 1);
    EXPECT_EQ(changed(12200).second, GENERATED_WIDTH - 1);
    EXPECT_EQ(changed(16800).first, 0);
}

TEST(Generated, IsTheSameForTheSameTime)
{
    for (const uint64_t ms : {4321, 14321}) {
        EXPECT_TRUE(luma(ms) == luma(ms));
        EXPECT_TRUE(luma(ms) == luma(ms + GENERATED_CYCLE_MS));
    }
}

} // namespace
