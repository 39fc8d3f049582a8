// A scene as a source while the camera's head may turn: pictures are drawn when they are asked for.
#include "source.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <gtest/gtest.h>
#include <mutex>
#include <stdint.h>

extern "C" {
#include <libavutil/frame.h>
}

#include "render.h"
#include "rendered.h"

namespace
{

// Before any thread.
const bool prepared = [] {
    render_prepare();
    return true;
}();

std::atomic<float> head_pan{0};

bool head_at(double, float *pan, float *tilt)
{
    *pan = head_pan;
    *tilt = 0;
    return true;
}

void turn_to(float pan)
{
    head_pan = pan;
}

struct SourceHead : testing::Test {
    static void wake(void *context)
    {
        SourceHead *self = static_cast<SourceHead *>(context);
        std::lock_guard<std::mutex> guard(self->mutex);
        self->wakes++;
        self->woken.notify_all();
    }
    SourceHead()
    {
        source_settings settings = {};
        settings.url = "scene:empty-day";
        settings.head = head_at;
        settings.wake = wake;
        settings.context = this;
        EXPECT_EQ(source_start(&settings), 0);
    }
    ~SourceHead() override { source_stop(); }
    // The truth of the picture shown at that time; its number is -1 at the end.
    truth_moment take(uint64_t at_ms)
    {
        for (;;) {
            int before;
            {
                std::lock_guard<std::mutex> guard(mutex);
                before = wakes;
            }
            source_picture picture = {};
            const enum source_result result = source_take(at_ms, &picture);
            if (result == SOURCE_PICTURE) {
                const truth_moment truth = rendered_extra_of(picture.frame)->truth;
                EXPECT_EQ(picture.time_ms, truth.number * RENDERED_STEP_MS);
                av_frame_free(&picture.frame);
                return truth;
            }
            truth_moment nothing = {};
            nothing.number = UINT64_MAX;
            if (result != SOURCE_WAIT)
                return nothing;
            std::unique_lock<std::mutex> guard(mutex);
            if (!woken.wait_for(guard, std::chrono::seconds(20), [&] { return wakes > before; })) {
                ADD_FAILURE() << "nobody woke the one who waits for " << at_ms;
                return nothing;
            }
        }
    }
    std::mutex mutex;
    std::condition_variable woken;
    int wakes = 0;
};

TEST_F(SourceHead, APictureIsDrawnWhenItIsAskedForAndNotAhead)
{
    EXPECT_EQ(take(0).pan, 0);
    turn_to(10);
    EXPECT_EQ(take(199).number, 0u) << "it is shown until the next is due";
    EXPECT_EQ(take(199).pan, 0);
    const truth_moment next = take(200);
    EXPECT_EQ(next.number, 1u);
    EXPECT_FLOAT_EQ(next.pan, 10);
    turn_to(25);
    const truth_moment later = take(1050);
    EXPECT_EQ(later.number, 5u) << "what nobody asked for is not drawn";
    EXPECT_FLOAT_EQ(later.pan, 25);
    turn_to(26);
    EXPECT_FLOAT_EQ(take(1200).pan, 26);
}

TEST_F(SourceHead, ItEndsWithTheScene)
{
    EXPECT_EQ(take(29900).number, 149u); // "empty-day" is 30 s long
    EXPECT_EQ(take(30000).number, UINT64_MAX);
}

TEST_F(SourceHead, ThatIsNotAskedForMoreStops)
{
    EXPECT_EQ(take(0).number, 0u);
    source_stop(); // while its thread waits to be asked
}

} // namespace
