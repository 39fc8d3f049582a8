// Which frame goes out when, and which answer belongs to it. The channels, the source and the conversion are fakes.
#include "frames.h"

#include <ev.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <string.h>
#include <string>
#include <vector>

extern "C" {
#include <libavutil/frame.h>
}

#include "event_channels.h"
#include "fake_clock.h"
#include "log_capture.h"
#include "naro_util.h"
#include "picture.h"
#include "shbf.h"
#include "shbfev.h"
#include "source.h"

// ---- Fakes ---------------------------------------------------------------------------------------------------
namespace
{

using testing::ElementsAre;
using testing::HasSubstr;

struct {
    // The channels.
    int receivers;
    int connected;
    int broadcast_result;
    int globals;
    std::vector<std::string> sent; // whole messages
    int (*upstream)(void *, const void *, size_t);
    int (*data)(void *, void *);
    int (*closed)(void *, void *);
    bool start_fails;
    // The source: a picture every `step_ms` until `end_ms`.
    uint64_t step_ms = 40, end_ms = 1000000;
    bool waits, fails, live;
    std::vector<uint64_t> asked;
    int conversions_that_fail;
} fake;

int raw_handle, event_handle;

} // namespace

int shbf_rcv_global_init(void)
{
    return ++fake.globals, 0;
}
int shbf_rcv_global_exit(void)
{
    return --fake.globals, 0;
}
// A buffer has its size before it.
void shbf_free(void *buffer)
{
    free(static_cast<size_t *>(buffer) - 1);
}
size_t shbf_size(const void *buffer)
{
    return static_cast<const size_t *>(buffer)[-1];
}
void *shbfev_brd_create(const char *path)
{
    EXPECT_STREQ(path, "/run/video_rawstream");
    return &raw_handle;
}
int shbfev_brd_register(void *, int event, int (*)(void *, int), void *)
{
    EXPECT_EQ(event, SHBFEV_BRD_ERROR);
    return 0;
}
int shbfev_brd_on_message(void *, int (*callback)(void *, const void *, size_t), void *)
{
    fake.upstream = callback;
    return 0;
}
int shbfev_brd_start(struct ev_loop *, void *)
{
    return fake.start_fails ? -1 : 0;
}
int shbfev_brd_broadcast_message(void *brd, const void *buffer, size_t length)
{
    EXPECT_EQ(brd, &raw_handle);
    if (fake.broadcast_result == 0)
        fake.sent.emplace_back(static_cast<const char *>(buffer), length);
    return fake.broadcast_result;
}
int shbfev_brd_receivers(void *)
{
    return fake.receivers;
}
void shbfev_brd_destroy(void *) {}
void *shbfev_rcv_create(struct ev_loop *, const char *path)
{
    EXPECT_STREQ(path, "/run/md_event");
    return &event_handle;
}
int shbfev_rcv_register(void *, int event, int (*callback)(void *, void *), void *)
{
    (event == SHBFEV_RCV_DATA ? fake.data : fake.closed) = callback;
    return 0;
}
int shbfev_rcv_start(void *)
{
    return 0;
}
int shbfev_rcv_connected(void *)
{
    return fake.connected;
}
void shbfev_rcv_destroy(void *) {}

enum source_result source_take(uint64_t at_ms, source_picture *picture)
{
    fake.asked.push_back(at_ms);
    if (fake.fails)
        return SOURCE_FAILED;
    if (fake.waits)
        return SOURCE_WAIT;
    if (at_ms >= fake.end_ms)
        return SOURCE_END;
    picture->frame = av_frame_alloc();
    picture->time_ms = at_ms / fake.step_ms * fake.step_ms;
    return SOURCE_PICTURE;
}

bool source_is_live(void)
{
    return fake.live;
}

int picture_to_analysis(const AVFrame *frame, uint8_t *out)
{
    EXPECT_NE(frame, nullptr);
    if (fake.conversions_that_fail > 0) {
        fake.conversions_that_fail--;
        return -1;
    }
    memset(out, static_cast<int>(fake.asked.size()), ANALYSIS_FRAME_BYTES);
    return 0;
}

// ---- Tests ---------------------------------------------------------------------------------------------------
namespace
{

struct Result {
    uint64_t number, time_ms;
    bool analysed, lost;
    std::vector<std::string> events;
    int boxes;
    bool picture;
};
std::vector<Result> results;
std::vector<bool> ends;

void on_result(const frame_result *result)
{
    results.push_back({result->number, result->time_ms, result->analysed, result->lost, result->events,
                       result->boxes, result->picture != nullptr});
}

std::vector<std::string> passed; // pictures as they were sent

void on_end(bool failed)
{
    ends.push_back(failed);
}

struct Frames : testing::Test {
    void start(bool fast, uint64_t end_ms = 0, int listeners = 1, bool keep_pictures = false)
    {
        loop = ev_loop_new(EVFLAG_AUTO);
        frames_settings settings = {};
        settings.fast = fast;
        settings.listeners = listeners;
        settings.end_ms = end_ms;
        settings.keep_pictures = keep_pictures;
        settings.held = held;
        settings.on_send = [](const uint8_t *nv12) {
            passed.emplace_back(reinterpret_cast<const char *>(nv12), 92160);
        };
        settings.on_result = on_result;
        settings.on_end = on_end;
        ASSERT_EQ(frames_start(loop, &settings), 0);
    }
    void start_connected(bool fast, uint64_t end_ms = 0)
    {
        fake.receivers = fake.connected = 1;
        start(fast, end_ms);
        tick();
    }
    ~Frames() override
    {
        frames_stop();
        EXPECT_EQ(fake.globals, 0);
        if (loop)
            ev_loop_destroy(loop);
    }
    // Lets the module look at its conditions once (its timer is real, its clock is not).
    void tick() { ev_run(loop, EVRUN_ONCE); }
    void event(const std::string &text)
    {
        size_t *room = static_cast<size_t *>(malloc(sizeof(size_t) + text.size()));
        *room = text.size();
        memcpy(room + 1, text.data(), text.size());
        fake.data(nullptr, room + 1);
    }
    void motion(const char *name) { event(std::string(name) + std::string(1, '\0')); }
    void track(int people = 0)
    {
        naro_isp_track_param param = {};
        for (int i = 0; i < people; i++)
            param.box[i] = {1, 2, 3, 4};
        frames_on_track(&param);
    }
    void rawcap() { fake.upstream(nullptr, "rawcap", 6); }
    static uint64_t time_of(const std::string &message)
    {
        raw_frame_header header;
        memcpy(&header, message.data(), sizeof header);
        return header.timestamp;
    }
    std::vector<uint64_t> times() const
    {
        std::vector<uint64_t> list;
        for (const std::string &message : fake.sent)
            list.push_back(time_of(message));
        return list;
    }
    const frames_counts &counts() const { return *frames_get_counts(); }

    FakeClock clock;
    struct ev_loop *loop = nullptr;
    bool held = false;
};

TEST_F(Frames, HurriedNothingGoesOutBeforeEveryListenerIsThere)
{
    start(true, 0, 2);
    tick();
    EXPECT_EQ(fake.sent.size(), 0u);
    fake.receivers = 2;
    tick();
    EXPECT_EQ(fake.sent.size(), 0u) << "the events cannot be heard yet";
    EXPECT_FALSE(counts().connected);
    fake.receivers = 1;
    fake.connected = 1;
    tick();
    EXPECT_EQ(fake.sent.size(), 0u) << "one of two receivers";
    fake.receivers = 2;
    tick();
    EXPECT_EQ(fake.sent.size(), 2u);
    EXPECT_TRUE(counts().connected);
}

TEST_F(Frames, HeldOnesWaitForTheirReleaseWithEachDaemon)
{
    held = true;
    start_connected(true);
    tick();
    EXPECT_EQ(fake.sent.size(), 0u);
    EXPECT_FALSE(counts().connected);
    frames_release();
    tick();
    EXPECT_EQ(fake.sent.size(), 2u);
    frames_on_daemon_end();
    tick();
    EXPECT_EQ(fake.sent.size(), 2u) << "the next has no settings yet";
    frames_release();
    tick();
    EXPECT_EQ(fake.sent.size(), 4u);
}

TEST_F(Frames, HurriedTwoGoOutAtTheStartThenOneForEachTrackingCommand)
{
    start_connected(true);
    EXPECT_THAT(times(), ElementsAre(0, 200));
    tick();
    EXPECT_EQ(fake.sent.size(), 2u) << "not before the answer";
    track();
    EXPECT_THAT(times(), ElementsAre(0, 200, 400));
    tick();
    EXPECT_EQ(fake.sent.size(), 3u);
    track();
    track();
    EXPECT_THAT(times(), ElementsAre(0, 200, 400, 600, 800));
    EXPECT_EQ(counts().sent, 5u);
    EXPECT_EQ(counts().analysed, 3u);
    EXPECT_EQ(counts().compared, 1u);
    EXPECT_EQ(counts().lost, 0u);
    EXPECT_EQ(counts().last_time_ms, 800u);
}

TEST_F(Frames, HurriedRequestsAreIgnored)
{
    start_connected(true);
    rawcap();
    EXPECT_EQ(fake.sent.size(), 2u);
}

TEST_F(Frames, AMessageIsTheDescriptorAndThePicture)
{
    start_connected(true);
    ASSERT_EQ(fake.sent[1].size(), 64u + 92160u);
    raw_frame_header header;
    memcpy(&header, fake.sent[1].data(), sizeof header);
    EXPECT_EQ(header.width, 320u);
    EXPECT_EQ(header.height, 192u);
    EXPECT_EQ(header.size, 92160u);
    EXPECT_EQ(header.timestamp, 200u);
    EXPECT_NE(fake.sent[0][64], fake.sent[1][64]) << "each its own picture";
    EXPECT_EQ(fake.sent[1][64], fake.sent[1].back());
}

TEST_F(Frames, PicturesThatAreSentCanBeSeen)
{
    passed.clear();
    start_connected(true);
    ASSERT_EQ(passed.size(), 2u);
    EXPECT_EQ(passed[0], fake.sent[0].substr(64));
    EXPECT_EQ(passed[1], fake.sent[1].substr(64));
}

TEST_F(Frames, TheStampIsThePicturesOwnTime)
{
    fake.step_ms = 70;
    start_connected(true);
    EXPECT_THAT(times(), ElementsAre(0, 140));
    EXPECT_THAT(fake.asked, ElementsAre(0, 200, 400)) << "the third is made ready ahead";
}

TEST_F(Frames, EventsBelongToTheFrameWhoseAnswerFollows)
{
    start_connected(true);
    ASSERT_EQ(results.size(), 1u);
    EXPECT_FALSE(results[0].analysed || results[0].lost) << "the first is only compared with";
    motion("ObjectMotion");
    EXPECT_EQ(results.size(), 1u) << "shown with the answer";
    track();
    track();
    motion("PeopleMotion");
    motion("Door");
    track(2);
    ASSERT_EQ(results.size(), 4u);
    EXPECT_EQ(results[1].number, 1u);
    EXPECT_EQ(results[1].time_ms, 200u);
    EXPECT_TRUE(results[1].analysed);
    EXPECT_THAT(results[1].events, ElementsAre("ObjectMotion"));
    EXPECT_EQ(results[1].boxes, 0);
    EXPECT_EQ(results[2].time_ms, 400u);
    EXPECT_THAT(results[2].events, ElementsAre());
    EXPECT_EQ(results[3].time_ms, 600u);
    EXPECT_THAT(results[3].events, ElementsAre("PeopleMotion", "Door"));
    EXPECT_EQ(results[3].boxes, 2);
    EXPECT_EQ(counts().with_motion, 2u);
    EXPECT_EQ(counts().with_people, 1u);
}

TEST_F(Frames, AnEventThatIsNeitherIsNoMotion)
{
    start_connected(true);
    motion("NightToDay");
    track();
    EXPECT_EQ(counts().with_motion, 0u);
    EXPECT_EQ(counts().with_people, 0u);
}

TEST_F(Frames, WhatIsNoEventIsDroppedAndCounted)
{
    start_connected(true);
    OutputCapture errors(STDERR_FILENO);
    event("PeopleMotion");
    motion("ObjectMotion");
    track();
    EXPECT_THAT(results.back().events, ElementsAre("ObjectMotion"));
    EXPECT_EQ(counts().bad_events, 1u);
    EXPECT_THAT(errors.text(), HasSubstr("a message of 12 bytes on /run/md_event is no event; dropped"));
}

TEST_F(Frames, ItEndsWhenTheLastFrameIsAnswered)
{
    fake.end_ms = 600;
    start_connected(true);
    track();
    EXPECT_THAT(times(), ElementsAre(0, 200, 400));
    EXPECT_THAT(ends, ElementsAre());
    track();
    EXPECT_THAT(ends, ElementsAre(false));
    tick();
    track();
    frames_on_daemon_end();
    EXPECT_THAT(ends, ElementsAre(false)) << "once";
}

TEST_F(Frames, ASourceOfOnePictureEndsWithoutAnAnswer)
{
    fake.end_ms = 200;
    start_connected(true);
    EXPECT_THAT(times(), ElementsAre(0));
    EXPECT_THAT(ends, ElementsAre(false));
}

TEST_F(Frames, ItEndsAtTheTimeThatIsAskedFor)
{
    start_connected(true, 401);
    track();
    track();
    EXPECT_THAT(times(), ElementsAre(0, 200, 400));
    EXPECT_THAT(ends, ElementsAre(false));
}

TEST_F(Frames, TheEndDoesNotIncludeItsOwnMoment)
{
    start_connected(true, 400);
    track();
    EXPECT_THAT(times(), ElementsAre(0, 200));
    EXPECT_THAT(ends, ElementsAre(false));
}

TEST_F(Frames, ASourceThatCannotBePlayedFails)
{
    fake.fails = true;
    start_connected(true);
    EXPECT_THAT(ends, ElementsAre(true));
}

TEST_F(Frames, ASourceThatCannotBePlayedFailsBeforeAnyDaemonIsThere)
{
    fake.fails = true;
    start(true);
    tick();
    EXPECT_THAT(ends, ElementsAre(true));
}

TEST_F(Frames, AtItsOwnPaceToo)
{
    fake.fails = true;
    start(false);
    tick();
    EXPECT_THAT(ends, ElementsAre(true));
}

TEST_F(Frames, ASourceThatIsNotReadyIsTriedAgainWhenItWakes)
{
    fake.waits = true;
    start_connected(true);
    EXPECT_EQ(fake.sent.size(), 0u);
    fake.waits = false;
    frames_wake(nullptr);
    ev_run(loop, EVRUN_NOWAIT);
    EXPECT_THAT(times(), ElementsAre(0, 200));
}

TEST_F(Frames, APictureThatCannotBeConvertedIsLeftOut)
{
    fake.conversions_that_fail = 1;
    start_connected(true);
    EXPECT_THAT(times(), ElementsAre(200, 400));
}

TEST_F(Frames, ADaemonThatEndsLosesItsFramesAndTheNextStartsWithTwo)
{
    start_connected(true);
    track();
    fake.connected = 0;
    fake.closed(nullptr, nullptr);
    EXPECT_FALSE(counts().connected);
    EXPECT_EQ(counts().lost, 1u);
    ASSERT_EQ(results.size(), 3u);
    EXPECT_TRUE(results[2].lost);
    EXPECT_EQ(results[2].time_ms, 400u);
    tick();
    EXPECT_EQ(fake.sent.size(), 3u);
    fake.connected = 1;
    tick();
    EXPECT_THAT(times(), ElementsAre(0, 200, 400, 600, 800));
    EXPECT_EQ(counts().compared, 2u) << "the new one has nothing to compare with yet";
    track();
    EXPECT_EQ(results.back().time_ms, 800u);
}

TEST_F(Frames, AnAnswerToNothingIsIgnored)
{
    start(true);
    track();
    fake.receivers = fake.connected = 1;
    tick();
    EXPECT_EQ(fake.sent.size(), 2u);
    EXPECT_EQ(counts().analysed, 0u);
}

TEST_F(Frames, HurriedALostAnswerIsWaitedForAndThenItGoesOn)
{
    start_connected(true);
    OutputCapture errors(STDERR_FILENO);
    clock.advance_ms(29999);
    tick();
    EXPECT_EQ(fake.sent.size(), 2u);
    clock.advance_ms(1);
    tick();
    EXPECT_THAT(times(), ElementsAre(0, 200, 400));
    EXPECT_EQ(counts().lost, 1u);
    EXPECT_THAT(errors.text(), HasSubstr("no answer to frame 1 for 30 s; going on"));
}

TEST_F(Frames, HurriedAnAnswerLostWithAConnectionIsWaitedForTwoSeconds)
{
    start_connected(true);
    OutputCapture errors(STDERR_FILENO);
    clock.advance_ms(1999);
    frames_on_client();
    tick();
    EXPECT_EQ(fake.sent.size(), 2u);
    clock.advance_ms(1);
    tick();
    EXPECT_THAT(times(), ElementsAre(0, 200, 400));
    EXPECT_THAT(errors.text(), HasSubstr("no answer to frame 1 for 2 s; going on"));
    clock.advance_ms(29999);
    tick();
    EXPECT_EQ(fake.sent.size(), 3u) << "the doubt is over";
    track();
    frames_on_client();
    track();
    clock.advance_ms(2000);
    tick();
    EXPECT_EQ(fake.sent.size(), 5u) << "an answer takes the doubt away";
}

TEST_F(Frames, HurriedALiveSourceIsRefused)
{
    fake.live = true;
    OutputCapture errors(STDERR_FILENO);
    start_connected(true);
    EXPECT_EQ(fake.sent.size(), 0u);
    EXPECT_THAT(ends, ElementsAre(true));
    EXPECT_THAT(errors.text(), HasSubstr("--fast is for files: this source comes at its own pace"));
}

TEST_F(Frames, AFrameThatCannotBeSentIsLost)
{
    fake.broadcast_result = -1;
    start_connected(true);
    EXPECT_EQ(counts().lost, 2u);
    EXPECT_EQ(counts().compared, 0u);
}

TEST_F(Frames, PicturesComeWithTheResultsOnlyWhenTheyAreWanted)
{
    fake.receivers = fake.connected = 1;
    start(true, 0, 1, true);
    tick();
    track();
    ASSERT_EQ(results.size(), 2u);
    EXPECT_TRUE(results[0].picture);
    EXPECT_TRUE(results[1].picture);
}

TEST_F(Frames, PicturesAreLeftOutOtherwise)
{
    start_connected(true);
    track();
    EXPECT_FALSE(results[0].picture || results[1].picture);
}

// ---- At the source's pace ----

TEST_F(Frames, ARequestIsAnsweredWithThePictureOfThatMoment)
{
    start_connected(false);
    EXPECT_EQ(fake.sent.size(), 0u) << "not unasked";
    fake.asked.clear();
    rawcap();
    clock.advance_ms(200);
    rawcap();
    clock.advance_ms(235);
    rawcap();
    EXPECT_THAT(fake.asked, ElementsAre(0, 200, 435));
    EXPECT_THAT(times(), ElementsAre(0, 200, 400));
    track();
    EXPECT_EQ(fake.sent.size(), 3u) << "answers bring no frames";
}

TEST_F(Frames, OtherMessagesAndRequestsBeforeTheEventsCanBeHeardAreIgnored)
{
    fake.receivers = 1;
    start(false);
    tick();
    rawcap();
    EXPECT_EQ(fake.sent.size(), 0u);
    fake.connected = 1;
    tick();
    fake.upstream(nullptr, "rawca", 5);
    fake.upstream(nullptr, "rawcap\0", 7);
    fake.upstream(nullptr, "rawcaq", 6);
    EXPECT_EQ(fake.sent.size(), 0u);
    rawcap();
    EXPECT_EQ(fake.sent.size(), 1u);
    EXPECT_THAT(fake.asked.back(), 0u) << "time starts with the first picture";
}

TEST_F(Frames, WhileTheSourceHasNothingItsTimeStandsStill)
{
    start_connected(false);
    rawcap();
    clock.advance_ms(200);
    fake.waits = true;
    rawcap();
    clock.advance_ms(5000);
    rawcap();
    EXPECT_EQ(fake.asked.back(), 200u);
    fake.waits = false;
    frames_wake(nullptr);
    ev_run(loop, EVRUN_NOWAIT);
    EXPECT_THAT(times(), ElementsAre(0, 200));
    clock.advance_ms(200);
    rawcap();
    EXPECT_THAT(times(), ElementsAre(0, 200, 400));
}

TEST_F(Frames, AWakeWithoutAnOpenRequestSendsNothing)
{
    start_connected(false);
    rawcap();
    frames_wake(nullptr);
    ev_run(loop, EVRUN_NOWAIT);
    EXPECT_EQ(fake.sent.size(), 1u);
}

// What the daemon holds: the frame it compares with, one in work, one waiting. A third gives way to the next.
TEST_F(Frames, ADaemonThatLagsLosesItsNewestWaitingFrame)
{
    start_connected(false);
    for (int i = 0; i < 4; i++) {
        rawcap();
        clock.advance_ms(200);
    }
    EXPECT_EQ(counts().lost, 1u);
    ASSERT_EQ(results.size(), 2u);
    EXPECT_TRUE(results[1].lost);
    EXPECT_EQ(results[1].time_ms, 400u);
    track();
    track();
    EXPECT_EQ(results[2].time_ms, 200u);
    EXPECT_EQ(results[3].time_ms, 600u);
    EXPECT_EQ(counts().lost, 1u);
}

TEST_F(Frames, AFrameWithoutAnAnswerForTwoSecondsIsLost)
{
    start_connected(false);
    rawcap();
    rawcap();
    clock.advance_ms(1999);
    tick();
    EXPECT_EQ(counts().lost, 0u);
    clock.advance_ms(1);
    tick();
    EXPECT_EQ(counts().lost, 1u);
}

TEST_F(Frames, AtTheEndTheLastFrameIsWaitedFor)
{
    fake.end_ms = 400;
    start_connected(false);
    rawcap();
    clock.advance_ms(200);
    rawcap();
    clock.advance_ms(200);
    rawcap();
    EXPECT_THAT(ends, ElementsAre());
    clock.advance_ms(2000);
    tick();
    EXPECT_THAT(ends, ElementsAre(false));
    rawcap();
    EXPECT_EQ(fake.sent.size(), 2u);
}

TEST_F(Frames, AtItsOwnPaceItEndsAtTheTimeThatIsAskedForToo)
{
    start_connected(false, 300);
    rawcap();
    clock.advance_ms(299);
    rawcap();
    track();
    EXPECT_THAT(ends, ElementsAre());
    clock.advance_ms(1);
    rawcap();
    EXPECT_EQ(fake.sent.size(), 2u);
    EXPECT_THAT(ends, ElementsAre(false));
}

TEST_F(Frames, AnEventThatNoAnswerFollowsIsShownAfterASecond)
{
    start_connected(false);
    rawcap();
    clock.advance_ms(200);
    rawcap();
    track();
    motion("DayToNight");
    clock.advance_ms(999);
    tick();
    EXPECT_EQ(results.size(), 2u);
    clock.advance_ms(1);
    tick();
    ASSERT_EQ(results.size(), 3u);
    EXPECT_THAT(results[2].events, ElementsAre("DayToNight"));
    EXPECT_EQ(results[2].time_ms, 200u);
    EXPECT_FALSE(results[2].analysed);
    tick();
    EXPECT_EQ(results.size(), 3u);
}

TEST_F(Frames, AnEventThatNoAnswerFollowsIsShownAtTheEndAtTheLatest)
{
    fake.end_ms = 400;
    start_connected(true);
    motion("ObjectMotion");
    fake.closed(nullptr, nullptr);
    EXPECT_THAT(ends, ElementsAre(false));
    EXPECT_THAT(results.back().events, ElementsAre("ObjectMotion"));
}

TEST_F(Frames, ChannelsThatCannotBeOpenedAreSaid)
{
    fake.start_fails = true;
    OutputCapture errors(STDERR_FILENO);
    loop = ev_loop_new(EVFLAG_AUTO);
    frames_settings settings = {};
    EXPECT_EQ(frames_start(loop, &settings), -1);
    EXPECT_THAT(errors.text(),
                HasSubstr("the channels /run/video_rawstream and /run/md_event cannot be opened"));
}

} // namespace
