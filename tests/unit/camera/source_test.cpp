// Files and the generated scene as sources: which picture is shown when, the end, playing again, and stopping.
#include "source.h"

#include <chrono>
#include <condition_variable>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <mutex>
#include <sys/stat.h>

#include "clip_maker.h"
#include "generated.h"
#include "isolate.h"
#include "log_capture.h"

namespace
{

using testing::HasSubstr;

const std::string folder = scratch_root();

struct Source : testing::Test {
    static void wake(void *context)
    {
        Source *self = static_cast<Source *>(context);
        std::lock_guard<std::mutex> guard(self->mutex);
        self->wakes++;
        self->woken.notify_all();
    }
    void start(const std::string &path, bool loop = false)
    {
        url = path;
        source_settings settings = {};
        settings.url = url.c_str();
        settings.loop = loop;
        settings.wake = wake;
        settings.context = this;
        ASSERT_EQ(source_start(&settings), 0);
    }
    ~Source() override { source_stop(); }

    // Takes, waiting for as long as the source asks to. The picture's luma, or a negative enum source_result.
    int take(uint64_t at_ms, uint64_t *time_ms = nullptr)
    {
        for (;;) {
            int before;
            {
                std::lock_guard<std::mutex> guard(mutex);
                before = wakes;
            }
            source_picture picture = {};
            const enum source_result result = source_take(at_ms, &picture);
            if (result == SOURCE_WAIT) {
                std::unique_lock<std::mutex> guard(mutex);
                if (!woken.wait_for(guard, std::chrono::seconds(20), [&] { return wakes > before; }))
                    return -1000;
                continue;
            }
            if (result != SOURCE_PICTURE)
                return -result;
            const int luma = picture.frame->data[0][0];
            if (time_ms)
                *time_ms = picture.time_ms;
            av_frame_free(&picture.frame);
            return luma;
        }
    }

    std::string url;
    std::mutex mutex; // protects wakes
    std::condition_variable woken;
    int wakes = 0;
};

TEST_F(Source, ShowsTheNewestPictureThatIsNotLater)
{
    make_clip(folder + "/clip.mkv", 50, 40);
    start(folder + "/clip.mkv");
    uint64_t time = 99;
    EXPECT_EQ(take(0, &time), 0);
    EXPECT_EQ(time, 0u);
    EXPECT_EQ(take(39, &time), 0);
    EXPECT_EQ(take(40, &time), 1);
    EXPECT_EQ(time, 40u);
    EXPECT_EQ(take(199), 4);
    EXPECT_EQ(take(200), 5);
    EXPECT_EQ(take(200), 5) << "again";
    EXPECT_EQ(take(1599), 39) << "more than is ever kept ready";
    EXPECT_EQ(take(1600), 40);
    EXPECT_FALSE(source_is_live());
}

TEST_F(Source, EndsWhenItsLastPictureIsOver)
{
    make_clip(folder + "/clip.mkv", 10, 100);
    start(folder + "/clip.mkv");
    EXPECT_EQ(take(899), 8);
    EXPECT_EQ(take(900), 9);
    EXPECT_EQ(take(999), 9);
    EXPECT_EQ(take(1000), -SOURCE_END);
    EXPECT_EQ(take(1000), -SOURCE_END);
    EXPECT_EQ(source_reopened(), 0u);
}

TEST_F(Source, JumpsToTheEndAtOnce)
{
    make_clip(folder + "/clip.mkv", 40, 40);
    start(folder + "/clip.mkv");
    EXPECT_EQ(take(100000), -SOURCE_END);
}

TEST_F(Source, ItsTimeBeginsWithItsFirstPicture)
{
    make_clip(folder + "/clip.mkv", std::vector<int64_t>{5000, 5040, 5080});
    start(folder + "/clip.mkv");
    uint64_t time;
    EXPECT_EQ(take(0, &time), 0);
    EXPECT_EQ(time, 0u);
    EXPECT_EQ(take(40, &time), 1);
    EXPECT_EQ(time, 40u);
}

TEST_F(Source, PicturesFewAndFarBetweenAreShownUntilTheNext)
{
    make_clip(folder + "/clip.mkv", 3, 1000);
    start(folder + "/clip.mkv");
    EXPECT_EQ(take(0), 0);
    EXPECT_EQ(take(600), 0);
    EXPECT_EQ(take(999), 0);
    EXPECT_EQ(take(1000), 1);
}

TEST_F(Source, AStepOfTimeThatCannotBeIsNotWaitedFor)
{
    make_clip(folder + "/clip.mkv", std::vector<int64_t>{0, 40, 80, 3600000, 3600040, 3600080});
    start(folder + "/clip.mkv");
    uint64_t time;
    EXPECT_EQ(take(80, &time), 2);
    EXPECT_EQ(take(120, &time), 3);
    EXPECT_EQ(time, 120u);
    EXPECT_EQ(take(160, &time), 4);
    EXPECT_EQ(time, 160u);
}

TEST_F(Source, AStepOfTenSecondsIsBelieved)
{
    make_clip(folder + "/clip.mkv", std::vector<int64_t>{0, 40, 10080});
    start(folder + "/clip.mkv");
    EXPECT_EQ(take(9000), 1);
    EXPECT_EQ(take(10080), 2);
}

TEST_F(Source, PlaysAgainAndItsTimeGoesOn)
{
    make_clip(folder + "/clip.mkv", 10, 100);
    start(folder + "/clip.mkv", true);
    uint64_t time;
    EXPECT_EQ(take(900, &time), 9);
    EXPECT_EQ(take(1000, &time), 0);
    EXPECT_EQ(time, 1000u);
    EXPECT_EQ(take(1950, &time), 9);
    EXPECT_EQ(take(2000, &time), 0);
    EXPECT_EQ(take(25500, &time), 5);
    EXPECT_EQ(time, 25500u);
    EXPECT_EQ(source_reopened(), 0u);
}

TEST_F(Source, AFileThatIsNotThereFails)
{
    OutputCapture errors(STDERR_FILENO);
    start(folder + "/nothing.mkv");
    EXPECT_EQ(take(0), -SOURCE_FAILED);
    EXPECT_THAT(errors.text(), HasSubstr("nothing.mkv: No such file or directory"));
}

TEST_F(Source, AFileThatIsNoVideoFails)
{
    std::ofstream(folder + "/text.txt") << "just words\n";
    OutputCapture errors(STDERR_FILENO);
    start(folder + "/text.txt");
    EXPECT_EQ(take(0), -SOURCE_FAILED);
    EXPECT_THAT(errors.text(), HasSubstr("text.txt: "));
}

TEST_F(Source, AFileWithoutAnyPictureFails)
{
    make_clip(folder + "/empty.mkv", 0, 40);
    OutputCapture errors(STDERR_FILENO);
    start(folder + "/empty.mkv", true);
    EXPECT_EQ(take(0), -SOURCE_FAILED);
    EXPECT_THAT(errors.text(), HasSubstr("empty.mkv: it ends before its first picture"));
}

TEST_F(Source, OfAFileThatIsCutOffThePartThatIsThereIsShown)
{
    make_clip(folder + "/clip.mkv", 50, 40);
    struct stat status;
    ASSERT_EQ(stat((folder + "/clip.mkv").c_str(), &status), 0);
    ASSERT_EQ(truncate((folder + "/clip.mkv").c_str(), status.st_size / 2), 0);
    start(folder + "/clip.mkv");
    EXPECT_EQ(take(400), 10);
    EXPECT_EQ(take(100000), -SOURCE_END);
}

TEST_F(Source, GarbageInTheMiddleIsNoEndOfTheWorld)
{
    const std::string path = folder + "/clip.mkv";
    make_clip(path, 50, 40);
    struct stat status;
    ASSERT_EQ(stat(path.c_str(), &status), 0);
    {
        std::fstream file(path, std::ios::in | std::ios::out | std::ios::binary);
        file.seekp(status.st_size / 2);
        file << std::string(300, '\xaa');
    }
    start(path);
    EXPECT_EQ(take(400), 10);
    EXPECT_EQ(take(100000), -SOURCE_END);
}

TEST_F(Source, StopsWhateverItIsDoing)
{
    make_clip(folder + "/clip.mkv", 200, 40);
    for (int i = 0; i < 20; i++) {
        start(folder + "/clip.mkv", true);
        if (i % 2) {
            EXPECT_EQ(take(0), 0); // and then it waits for room
        }
        source_stop();
        source_stop();
    }
}

TEST_F(Source, WhichSideIsUpTravelsWithThePictures)
{
    make_clip(folder + "/clip.mov", {0, 40, 80}, -90);
    start(folder + "/clip.mov");
    ASSERT_EQ(take(40), 1);
    source_picture picture;
    ASSERT_EQ(source_take(40, &picture), SOURCE_PICTURE);
    const AVFrameSideData *matrix = av_frame_get_side_data(picture.frame, AV_FRAME_DATA_DISPLAYMATRIX);
    ASSERT_NE(matrix, nullptr);
    // Set clockwise, told counter-clockwise.
    EXPECT_NEAR(av_display_rotation_get(reinterpret_cast<const int32_t *>(matrix->data)), 90, 0.1);
    av_frame_free(&picture.frame);
}

TEST_F(Source, WithoutAFileItIsTheGeneratedScene)
{
    start(SOURCE_SHAPES);
    uint64_t time;
    const int room = take(0, &time);
    EXPECT_GT(room, 0);
    EXPECT_EQ(take(199, &time), room);
    EXPECT_EQ(time, 100u);
    EXPECT_EQ(take(123456, &time), room);
    EXPECT_EQ(time, 123400u);
    EXPECT_FALSE(source_is_live());
}

} // namespace
