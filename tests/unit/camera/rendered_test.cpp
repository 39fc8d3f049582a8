// A scene as a source: names, pictures, their truth, and where they end.
#include "rendered.h"

#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <string.h>
#include <string>
#include <vector>

extern "C" {
#include <libavutil/frame.h>
#include <libavutil/pixfmt.h>
}

#include "event_channels.h"
#include "isolate.h"
#include "log_capture.h"

namespace
{

using testing::HasSubstr;

using Bytes = std::vector<uint8_t>;

Bytes bytes_of(const AVFrame *frame)
{
    const size_t luma = static_cast<size_t>(frame->width) * static_cast<size_t>(frame->height);
    Bytes bytes(frame->data[0], frame->data[0] + luma);
    bytes.insert(bytes.end(), frame->data[1], frame->data[1] + luma / 2);
    return bytes;
}

// The first `count` pictures of a scene.
std::vector<Bytes> pictures(const rendered_settings &settings, uint64_t count)
{
    std::vector<Bytes> all;
    EXPECT_EQ(rendered_open(&settings), 0);
    for (uint64_t number = 0; number < count; number++) {
        AVFrame *frame = rendered_picture(number);
        if (!frame)
            break;
        all.push_back(bytes_of(frame));
        av_frame_free(&frame);
    }
    rendered_close();
    return all;
}

TEST(RenderedName, IsASchemeAPathOrASeed)
{
    const struct {
        const char *source, *scene;
    } cases[] = {{"scene:cat", "cat"},
                 {"scene:random?seed=7", "random?seed=7"},
                 {"scenes/random?seed=7", "random?seed=7"},
                 {"some/where.json", "some/where.json"},
                 {"clip.mp4", nullptr},
                 {".json", nullptr},
                 {"shapes", nullptr},
                 {"json", nullptr}};
    for (const auto &one : cases) {
        const char *scene = nullptr;
        EXPECT_EQ(rendered_is_scene(one.source, &scene), one.scene != nullptr) << one.source;
        EXPECT_STREQ(scene, one.scene);
    }
}

TEST(Rendered, PicturesAreTheDaemonsAndCarryTheTruth)
{
    const rendered_settings settings = {"person-crosses", false, true, false};
    ASSERT_EQ(rendered_open(&settings), 0);
    EXPECT_GT(rendered_end_ms(), 5000u);
    bool seen = false;
    for (uint64_t number = 0; number < rendered_end_ms() / RENDERED_STEP_MS && !seen; number += 5) {
        AVFrame *frame = rendered_picture(number);
        ASSERT_NE(frame, nullptr);
        EXPECT_EQ(frame->width, ANALYSIS_WIDTH);
        EXPECT_EQ(frame->height, ANALYSIS_HEIGHT);
        EXPECT_EQ(frame->format, AV_PIX_FMT_NV12);
        EXPECT_EQ(frame->linesize[0], ANALYSIS_WIDTH);
        AVFrame *copy = av_frame_clone(frame);
        av_frame_free(&frame);
        const rendered_extra *extra = rendered_extra_of(copy);
        ASSERT_NE(extra, nullptr);
        ASSERT_NE(extra->view, nullptr);
        EXPECT_EQ(extra->view->width, RENDERED_VIEW_SCALE * ANALYSIS_WIDTH);
        EXPECT_EQ(extra->truth.number, number);
        EXPECT_DOUBLE_EQ(extra->truth.time, static_cast<double>(number) * 0.2);
        for (const truth_actor &actor : extra->truth.actors)
            seen = seen || (actor.kind == "person" && actor.visible > 0.9f);
        av_frame_free(&copy);
    }
    EXPECT_TRUE(seen);
    rendered_close();
}

TEST(Rendered, TheSameSceneGivesTheSameBytesWithAndWithoutALargerPicture)
{
    const std::vector<Bytes> first = pictures({"person-crosses", false, false, false}, 4);
    const std::vector<Bytes> second = pictures({"person-crosses", false, true, false}, 4);
    ASSERT_EQ(first.size(), 4u);
    EXPECT_TRUE(first == second);
    EXPECT_FALSE(first[0] == first[1]) << "noise is new in each picture";
}

TEST(Rendered, LoopedItNeverEndsAndBeginsAgain)
{
    const rendered_settings settings = {"person-crosses", true, false, false};
    ASSERT_EQ(rendered_open(&settings), 0);
    EXPECT_EQ(rendered_end_ms(), 0u);
    AVFrame *frame = rendered_picture(1000001);
    ASSERT_NE(frame, nullptr);
    EXPECT_LT(rendered_extra_of(frame)->truth.time, 3600);
    EXPECT_EQ(rendered_extra_of(frame)->truth.number, 1000001u);
    av_frame_free(&frame);
    rendered_close();
}

TEST(Rendered, OtherPicturesHaveNoExtra)
{
    AVFrame *frame = av_frame_alloc();
    EXPECT_EQ(rendered_extra_of(frame), nullptr);
    uint8_t *data = static_cast<uint8_t *>(av_malloc(1));
    frame->opaque_ref = av_buffer_create(data, 1, nullptr, nullptr, 0);
    EXPECT_EQ(rendered_extra_of(frame), nullptr) << "somebody else's";
    av_frame_free(&frame);
}

TEST(Rendered, ASceneThatIsNoneIsSaid)
{
    OutputCapture errors(STDERR_FILENO);
    const rendered_settings settings = {"no-such-scene", false, false, false};
    EXPECT_EQ(rendered_open(&settings), -1);
    EXPECT_THAT(errors.text(), HasSubstr("no-such-scene"));
}

} // namespace
