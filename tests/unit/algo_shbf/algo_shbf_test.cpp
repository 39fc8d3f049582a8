// The event loop and its channels: on a real libev loop, with channels and motion queue played by the test.
#include "algo_shbf_internal.h"

#include <dlfcn.h>
#include <errno.h>
#include <functional>
#include <gmock/gmock.h>
#include <signal.h>
#include <stdlib.h>
#include <string.h>
#include <thread>

#include "algo_shm.h"
#include "fake_shbf.h"
#include "log_capture.h"
#include "queues.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace
{

struct QueuedFrame {
    std::string pixels;
    uint32_t size, width, height, type;
    uint64_t timestamp;
    size_t freed_before; // buffers given back when the frame was queued
};

struct FakeQueue {
    std::vector<QueuedFrame> frames;
    int result = 0;
} queue;

struct FakeMailbox {
    std::vector<std::string> texts;
    int result = 0;
} mailbox;

// The wire format written down once more, byte by byte.
std::string frame_message(uint32_t width, uint32_t height, uint32_t size, uint64_t timestamp, size_t pixels)
{
    std::string message(64, '\xEE'); // what is not used must not matter
    const auto put = [&](size_t at, uint64_t value, size_t bytes) {
        for (size_t i = 0; i < bytes; i++)
            message[at + i] = static_cast<char>(value >> (8 * i));
    };
    put(4, width, 4);
    put(8, height, 4);
    put(16, size, 4);
    put(32, timestamp, 8);
    for (size_t i = 0; i < pixels; i++)
        message.push_back(static_cast<char>(i * 7 + i / 256));
    return message;
}

std::string mde_line(const std::string &line)
{
    // The number is the implementation's choice, but one, large, and no channel's.
    const std::string head = "[shbf_event_broadcast]shbf_mde ", tail = " is NULL\r\n";
    EXPECT_EQ(line.substr(0, head.size()), head);
    EXPECT_GE(line.size(), head.size() + tail.size());
    EXPECT_EQ(line.substr(line.size() - tail.size()), tail);
    return line.substr(head.size(), line.size() - head.size() - tail.size());
}

std::atomic<int> sent_to_libev{0}; // calls of ev_async_send

class AlgoShbf : public testing::Test
{
  protected:
    void SetUp() override
    {
        sent_to_libev = 0;
        fake_shbf = FakeShbf();
        queue = FakeQueue();
        mailbox = FakeMailbox();
        for (shbf_server &server : shbf_server_table) {
            server.broadcaster = nullptr;
            server.zero = 77; // init must set them
            server.index = 77;
        }
    }
    void TearDown() override
    {
        algo_shbf_fini();
        EXPECT_THAT(fake_shbf.buffers, IsEmpty()) << "a delivered buffer was not given back";
    }

    FakeReceiver *raw_stream() { return fake_shbf.receiver("/run/video_rawstream"); }
    void fire_frame_request()
    {
        ev_invoke(ev_default_loop(0), algo_shbf_frame_request_watcher(), EV_PERIODIC);
    }

    LogCapture log;
};

// ---- Start-up
// ----------------------------------------------------------------------------------------------

TEST_F(AlgoShbf, InitSetsEverythingUpInOrder)
{
    EXPECT_EQ(algo_shbf_init(), 0);
    EXPECT_THAT(fake_shbf.calls,
                ElementsAre("shbf_rcv_global_init",
                            // channel 0, then 3, never 1
                            "brd_create /run/md_event", "brd_register /run/md_event 4",
                            "brd_start /run/md_event", "brd_create /run/lsd_event",
                            "brd_register /run/lsd_event 4", "brd_start /run/lsd_event",
                            // then the receiver
                            "rcv_create /run/video_rawstream", "rcv_register /run/video_rawstream 2",
                            "rcv_register /run/video_rawstream 1", "rcv_start /run/video_rawstream"));
    EXPECT_THAT(log.texts(NARO_LOG_ERR), IsEmpty());
    EXPECT_THAT(log.lines(), ElementsAre(LogCapture::Line{
                                 NARO_LOG_DEBUG, "[algo_shbf_server_init] the event channels are served\n"}));
}

TEST_F(AlgoShbf, EverythingIsOnTheDefaultLoop)
{
    algo_shbf_init();
    struct ev_loop *loop = ev_default_loop(0);
    EXPECT_EQ(fake_shbf.broadcaster("/run/md_event")->loop, loop);
    EXPECT_EQ(fake_shbf.broadcaster("/run/lsd_event")->loop, loop);
    EXPECT_EQ(raw_stream()->loop, loop);
    EXPECT_TRUE(ev_is_default_loop(loop));
}

TEST_F(AlgoShbf, SlotsHoldBroadcasterZeroAndIndex)
{
    algo_shbf_init();
    EXPECT_EQ(shbf_server_table[0].broadcaster, fake_shbf.broadcaster("/run/md_event"));
    EXPECT_EQ(shbf_server_table[0].zero, 0);
    EXPECT_EQ(shbf_server_table[0].index, 0);
    EXPECT_EQ(shbf_server_table[1].broadcaster, nullptr);
    EXPECT_EQ(shbf_server_table[2].broadcaster, nullptr);
    EXPECT_EQ(shbf_server_table[3].broadcaster, fake_shbf.broadcaster("/run/lsd_event"));
    EXPECT_EQ(shbf_server_table[3].zero, 0);
    EXPECT_EQ(shbf_server_table[3].index, 3);
    EXPECT_EQ(fake_shbf.broadcaster("/run/md_event")->context, &shbf_server_table[0]);
    EXPECT_EQ(fake_shbf.broadcaster("/run/lsd_event")->context, &shbf_server_table[3]);
}

TEST_F(AlgoShbf, ReceiverContexts)
{
    algo_shbf_init();
    EXPECT_EQ(raw_stream()->data_context, nullptr);
    EXPECT_STREQ(static_cast<const char *>(raw_stream()->closed_context), "raw_stream");
    EXPECT_TRUE(raw_stream()->started);
}

TEST_F(AlgoShbf, FrameRequestsRunFiveTimesASecondFromTheStart)
{
    algo_shbf_init();
    const ev_periodic *periodic = algo_shbf_frame_request_watcher();
    EXPECT_TRUE(ev_is_active(periodic));
    EXPECT_EQ(periodic->offset, 0.);
    EXPECT_EQ(periodic->interval, 0.2);
    EXPECT_EQ(periodic->reschedule_cb, nullptr);
}

TEST_F(AlgoShbf, Channel0ThatCannotStartFailsInitAtOnceButTheRestIsThere)
{
    fake_shbf.start_results["/run/md_event"] = -5;
    EXPECT_EQ(algo_shbf_init(), -1);
    EXPECT_THAT(log.lines(), ElementsAre(LogCapture::Line{NARO_LOG_ERR, "shbf 0 start error -5\n"},
                                         LogCapture::Line{NARO_LOG_ERR, "shbf_init(0) fail -5, quit.\n"},
                                         LogCapture::Line{NARO_LOG_ERR, "shbf_server_create fail\n"}));
    EXPECT_EQ(fake_shbf.broadcaster("/run/lsd_event"), nullptr) << "channel 3 is not tried after channel 0";
    EXPECT_EQ(shbf_server_table[0].broadcaster, nullptr);
    EXPECT_TRUE(fake_shbf.broadcaster("/run/md_event")->destroyed);

    EXPECT_TRUE(raw_stream()->started);
    EXPECT_TRUE(ev_is_active(algo_shbf_frame_request_watcher()));
    algo_shbf_signal_handler();
    EXPECT_EQ(algo_shbf_run(), 0) << "the wake-up is there too";
}

TEST_F(AlgoShbf, Channel3ThatCannotStartIsLoggedWithTheLoopCounter)
{
    fake_shbf.start_results["/run/lsd_event"] = -98;
    EXPECT_EQ(algo_shbf_init(), -1);
    EXPECT_THAT(log.lines(),
                ElementsAre(LogCapture::Line{NARO_LOG_ERR, "shbf 3 start error -98\n"},
                            LogCapture::Line{NARO_LOG_ERR, "shbf_init(1) lsd shbf fail -98, quit.\n"},
                            LogCapture::Line{NARO_LOG_ERR, "shbf_server_create fail\n"}));
    EXPECT_EQ(shbf_server_table[0].broadcaster, fake_shbf.broadcaster("/run/md_event"));
    EXPECT_FALSE(fake_shbf.broadcaster("/run/md_event")->destroyed);
    EXPECT_EQ(shbf_server_table[3].broadcaster, nullptr);
    EXPECT_TRUE(raw_stream()->started);
    EXPECT_TRUE(ev_is_active(algo_shbf_frame_request_watcher()));
}

TEST_F(AlgoShbf, ChannelThatCannotBeCreatedFailsToo)
{
    fake_shbf.refused.insert("/run/md_event");
    EXPECT_EQ(algo_shbf_init(), -1);
    EXPECT_THAT(log.texts(NARO_LOG_ERR),
                ElementsAre("[shbf_init] no broadcaster for /run/md_event\n", "shbf_init(0) fail -1, quit.\n",
                            "shbf_server_create fail\n"));
    EXPECT_EQ(shbf_server_table[0].broadcaster, nullptr);
}

TEST_F(AlgoShbf, OnlyANegativeStartResultIsAFailure)
{
    fake_shbf.start_results["/run/md_event"] = 1;
    EXPECT_EQ(shbf_init(0), 0);
    EXPECT_EQ(shbf_server_table[0].broadcaster, fake_shbf.broadcaster("/run/md_event"));
    fake_shbf.start_results["/run/md_event"] = -1;
    EXPECT_EQ(shbf_init(0), -1);
}

TEST_F(AlgoShbf, CreatorTakesChannels0And1And3)
{
    EXPECT_EQ(shbf_init(1), 0) << "accepted, though nobody asks for it";
    EXPECT_EQ(fake_shbf.broadcasters.back()->path, "/run/motor_event");
    EXPECT_EQ(shbf_server_table[1].broadcaster, fake_shbf.broadcasters.back().get());
    EXPECT_EQ(shbf_server_table[1].index, 1);
    EXPECT_EQ(shbf_server_table[1].zero, 0);
    EXPECT_EQ(fake_shbf.broadcasters.back()->context, &shbf_server_table[1]);
    EXPECT_EQ(shbf_init(3), 0);
    EXPECT_EQ(shbf_init(0), 0);
    EXPECT_EQ(fake_shbf.broadcasters.size(), 3u);
    for (int index : {-1, 2, 4, 5})
        EXPECT_EQ(shbf_init(index), -1) << index;
    EXPECT_EQ(fake_shbf.broadcasters.size(), 3u) << "refused before anything is created";
    EXPECT_THAT(log.texts(NARO_LOG_ERR), IsEmpty());
}

TEST_F(AlgoShbf, ServerCreateAloneIsTheTwoChannels)
{
    EXPECT_EQ(shbf_server_create(), 0);
    EXPECT_EQ(fake_shbf.broadcasters.size(), 2u);
    fake_shbf.start_results["/run/md_event"] = -7;
    EXPECT_EQ(shbf_server_create(), -1);
    fake_shbf.start_results.clear();
    fake_shbf.start_results["/run/lsd_event"] = -7;
    EXPECT_EQ(shbf_server_create(), -1);
    EXPECT_FALSE(log.has("shbf_server_create fail\n")) << "that is said by the caller";
    EXPECT_EQ(algo_shbf_server_init(), -1);
    EXPECT_TRUE(log.has(NARO_LOG_ERR, "shbf_server_create fail\n"));
    fake_shbf.start_results.clear();
    log.clear();
    EXPECT_EQ(algo_shbf_server_init(), 0);
    ASSERT_EQ(log.lines().size(), 1u);
    EXPECT_EQ(log.lines()[0].level, NARO_LOG_DEBUG);
}

TEST_F(AlgoShbf, ReceiverTroubleIsLoggedAndIsNoFailure)
{
    fake_shbf.start_results["/run/video_rawstream"] = -3;
    EXPECT_EQ(algo_shbf_init(), 0);
    EXPECT_THAT(log.texts(NARO_LOG_ERR),
                ElementsAre("[raw_stream_start] receiver of /run/video_rawstream: start error -3\n"));
    fire_frame_request();
    EXPECT_EQ(raw_stream()->sent.size(), 1u);
}

TEST_F(AlgoShbf, NoReceiverMeansNoRequestsAndNothingWorse)
{
    fake_shbf.refused.insert("/run/video_rawstream");
    EXPECT_EQ(algo_shbf_init(), 0);
    EXPECT_THAT(log.texts(NARO_LOG_ERR),
                ElementsAre("[raw_stream_start] no receiver for /run/video_rawstream\n"));
    fire_frame_request();
    EXPECT_TRUE(ev_is_active(algo_shbf_frame_request_watcher()));
    algo_shbf_fini();
    EXPECT_THAT(fake_shbf.calls, testing::Contains("rcv_destroy null"));
}

TEST_F(AlgoShbf, SecondInitChangesNothing)
{
    algo_shbf_init();
    const size_t calls = fake_shbf.calls.size();
    log.clear();
    EXPECT_EQ(algo_shbf_init(), 0);
    EXPECT_EQ(fake_shbf.calls.size(), calls);
    EXPECT_THAT(log.lines(),
                ElementsAre(LogCapture::Line{NARO_LOG_INFO, "[algo_shbf_init]algo_shbf already inited\n"}));
}

TEST_F(AlgoShbf, WithoutAnEventLoopInitFailsAndLeavesNothing)
{
    setenv("LIBEV_FLAGS", "32", 1); // a way of waiting that no Linux has
    EXPECT_EQ(algo_shbf_init(), -1);
    unsetenv("LIBEV_FLAGS");
    EXPECT_THAT(fake_shbf.calls, IsEmpty());
    EXPECT_THAT(log.texts(NARO_LOG_ERR),
                ElementsAre("[algo_shbf_init] no event loop: libev finds no way to wait for events\n"));
    log.clear();
    EXPECT_EQ(algo_shbf_fini(), 0);
    EXPECT_THAT(log.lines(),
                ElementsAre(LogCapture::Line{NARO_LOG_INFO, "[algo_shbf_fini]algo_shbf already exit\n"}));
}

// ---- Broadcasting
// ------------------------------------------------------------------------------------------

TEST_F(AlgoShbf, BroadcastGoesToItsChannelWithItsLengthAndResult)
{
    algo_shbf_init();
    log.clear();
    EXPECT_EQ(shbf_event_broadcast(EVENT_CHANNEL_MD, EVENT_PEOPLE_MOTION, EVENT_MOTION_LENGTH), 0);
    EXPECT_THAT(fake_shbf.broadcaster("/run/md_event")->sent, ElementsAre(std::string("PeopleMotion\0", 13)));
    EXPECT_THAT(fake_shbf.broadcaster("/run/lsd_event")->sent, IsEmpty());

    fake_shbf.broadcaster("/run/lsd_event")->result = -11;
    EXPECT_EQ(shbf_event_broadcast(EVENT_CHANNEL_LSD, "\1\0\0\0", 4), -11);
    EXPECT_THAT(fake_shbf.broadcaster("/run/lsd_event")->sent, ElementsAre(std::string("\1\0\0\0", 4)));
    EXPECT_EQ(fake_shbf.broadcaster("/run/md_event")->sent.size(), 1u);
    EXPECT_THAT(log.texts(), IsEmpty());
}

TEST_F(AlgoShbf, BroadcastWithoutAChannelLogsOneAndTheSameLineAndSucceeds)
{
    algo_shbf_init();
    log.clear();
    const char text[64] = "[1,2,3]";
    const std::vector<int> nowhere = {2, 4, -1, 1000000, -1000000};
    for (int index : nowhere)
        EXPECT_EQ(shbf_event_broadcast(index, text, sizeof text), 0) << index;
    ASSERT_EQ(log.texts(NARO_LOG_ERR).size(), nowhere.size());
    const std::string number = mde_line(log.texts(NARO_LOG_ERR)[0]);
    for (const std::string &line : log.texts(NARO_LOG_ERR))
        EXPECT_EQ(mde_line(line), number);
    EXPECT_GT(std::stoi(number), 1000000);
    EXPECT_EQ(log.lines().size(), nowhere.size());
    for (const auto &broadcaster : fake_shbf.broadcasters)
        EXPECT_THAT(broadcaster->sent, IsEmpty());
}

TEST_F(AlgoShbf, ChannelsThatFailedToStartAreLikeThoseThatDoNotExist)
{
    fake_shbf.start_results["/run/md_event"] = -5;
    algo_shbf_init();
    log.clear();
    EXPECT_EQ(shbf_event_broadcast(0, "DayToNight", 11), 0);
    EXPECT_EQ(shbf_event_broadcast(3, "\1\0\0\0", 4), 0);
    ASSERT_EQ(log.texts(NARO_LOG_ERR).size(), 2u);
    EXPECT_EQ(mde_line(log.texts()[0]), mde_line(log.texts()[1]));
    EXPECT_THAT(fake_shbf.broadcaster("/run/md_event")->sent, IsEmpty());
}

TEST_F(AlgoShbf, WhatIsForTheMotorGoesToItsMailbox)
{
    algo_shbf_init();
    log.clear();
    char text[64] = "[1,2,3]";
    EXPECT_EQ(shbf_event_broadcast(EVENT_CHANNEL_MOTOR, text, sizeof text), 0);
    mailbox.result = -1;
    EXPECT_EQ(shbf_event_broadcast(EVENT_CHANNEL_MOTOR, "[4,5,6]", 2), -1) << "the mailbox's result";
    EXPECT_THAT(mailbox.texts, ElementsAre("[1,2,3]", "[4,5,6]")) << "the length does not count";
    EXPECT_THAT(log.texts(), IsEmpty());
    for (const auto &broadcaster : fake_shbf.broadcasters)
        EXPECT_THAT(broadcaster->sent, IsEmpty());
    for (int other : {0, 2, 3})
        shbf_event_broadcast(other, text, sizeof text);
    EXPECT_EQ(mailbox.texts.size(), 2u);
}

TEST_F(AlgoShbf, BroadcasterOfTheMotorChannelWouldBeUsed)
{
    shbf_init(1);
    EXPECT_EQ(shbf_event_broadcast(1, "[1,2,3]", 8), 0);
    EXPECT_THAT(fake_shbf.broadcaster("/run/motor_event")->sent, ElementsAre(std::string("[1,2,3]\0", 8)));
    EXPECT_THAT(mailbox.texts, IsEmpty());
}

TEST_F(AlgoShbf, BroadcastAfterTheLoopIsGone)
{
    algo_shbf_init();
    algo_shbf_fini();
    log.clear();
    EXPECT_EQ(shbf_event_broadcast(0, "NightToDay", 11), 0);
    EXPECT_THAT(fake_shbf.broadcaster("/run/md_event")->sent, ElementsAre(std::string("NightToDay\0", 11)));
    EXPECT_FALSE(fake_shbf.broadcaster("/run/md_event")->destroyed);
    EXPECT_FALSE(fake_shbf.broadcaster("/run/lsd_event")->destroyed);
    EXPECT_THAT(log.texts(), IsEmpty());
}

TEST_F(AlgoShbf, BroadcasterErrorIsLoggedWithCodeAndErrnoText)
{
    algo_shbf_init();
    log.clear();
    FakeBroadcaster *lsd = fake_shbf.broadcaster("/run/lsd_event");
    errno = ECONNREFUSED;
    EXPECT_EQ(lsd->on_error(lsd->context, 42), 0);
    EXPECT_THAT(log.lines(),
                ElementsAre(LogCapture::Line{NARO_LOG_ERR, "receiver error: 42: Connection refused\n"}));
}

// ---- Raw stream
// --------------------------------------------------------------------------------------------

TEST_F(AlgoShbf, RequestIsSixBytesUpstream)
{
    algo_shbf_init();
    fire_frame_request();
    EXPECT_THAT(raw_stream()->sent, ElementsAre("rawcap"));
    fire_frame_request();
    EXPECT_THAT(raw_stream()->sent, ElementsAre("rawcap", "rawcap"));
}

TEST_F(AlgoShbf, FrameIsQueuedThenGivenBack)
{
    algo_shbf_init();
    log.clear();
    const std::string message = frame_message(320, 192, 92160, 0x1122334455667788u, 92160);
    const void *buffer = fake_shbf.deliver(raw_stream(), message);
    ASSERT_EQ(queue.frames.size(), 1u);
    const QueuedFrame &frame = queue.frames[0];
    EXPECT_EQ(frame.size, 92160u);
    EXPECT_EQ(frame.width, 320u);
    EXPECT_EQ(frame.height, 192u);
    EXPECT_EQ(frame.type, 0u);
    EXPECT_EQ(frame.timestamp, 0x1122334455667788u);
    EXPECT_TRUE(frame.pixels == message.substr(64)) << "the pixels are those from byte 64 on";
    EXPECT_EQ(frame.freed_before, 0u) << "queued before it is given back";
    EXPECT_THAT(fake_shbf.freed, ElementsAre(buffer));
    EXPECT_THAT(log.texts(), IsEmpty());
}

TEST_F(AlgoShbf, SurplusBytesBehindThePictureAreHarmless)
{
    algo_shbf_init();
    fake_shbf.deliver(raw_stream(), frame_message(320, 192, 92160, 1, 92160 + 33));
    ASSERT_EQ(queue.frames.size(), 1u);
    EXPECT_EQ(queue.frames[0].size, 92160u);
}

TEST_F(AlgoShbf, FrameThatTheQueueRefusesIsGivenBack)
{
    algo_shbf_init();
    queue.result = -1;
    const void *buffer = fake_shbf.deliver(raw_stream(), frame_message(320, 192, 92160, 1, 92160));
    EXPECT_THAT(fake_shbf.freed, ElementsAre(buffer));
}

TEST_F(AlgoShbf, FrameOfSizeZeroIsGivenBackInSilence)
{
    algo_shbf_init();
    log.clear();
    const void *first = fake_shbf.deliver(raw_stream(), frame_message(320, 192, 0, 1, 0));
    const void *second = fake_shbf.deliver(raw_stream(), frame_message(0, 0, 0, 1, 92160));
    EXPECT_THAT(queue.frames, IsEmpty());
    EXPECT_THAT(fake_shbf.freed, ElementsAre(first, second));
    EXPECT_THAT(log.texts(), IsEmpty());
}

TEST_F(AlgoShbf, CallbacksReturn0)
{
    algo_shbf_init();
    void *buffer = calloc(1, 64);
    fake_shbf.buffers[buffer] = 64;
    EXPECT_EQ(raw_stream()->on_data(raw_stream()->data_context, buffer), 0);
    EXPECT_EQ(raw_stream()->on_closed(raw_stream()->closed_context, nullptr), 0);
}

struct WrongFrame {
    const char *name;
    uint32_t width, height, size;
    size_t pixels; // that really follow
};

class AlgoShbfWrongFrame : public AlgoShbf, public testing::WithParamInterface<WrongFrame>
{
};

TEST_P(AlgoShbfWrongFrame, IsLoggedGivenBackAndNeverQueued)
{
    const WrongFrame &wrong = GetParam();
    algo_shbf_init();
    log.clear();
    const void *buffer = fake_shbf.deliver(
        raw_stream(), frame_message(wrong.width, wrong.height, wrong.size, 1, wrong.pixels));
    EXPECT_THAT(queue.frames, IsEmpty());
    EXPECT_THAT(fake_shbf.freed, ElementsAre(buffer));
    const std::string line = "[enqueue_frame] raw frame dropped: " + std::to_string(wrong.width) + "x" +
                             std::to_string(wrong.height) + ", " + std::to_string(wrong.size) +
                             " bytes, of which " + std::to_string(wrong.pixels) +
                             " arrived; wanted is NV12 of 320x192, 92160 bytes\n";
    EXPECT_THAT(log.lines(), ElementsAre(LogCapture::Line{NARO_LOG_ERR, line}));

    log.clear();
    fake_shbf.deliver(raw_stream(), frame_message(320, 192, 92160, 2, 92160));
    EXPECT_EQ(queue.frames.size(), 1u) << "the next frame is served as ever";
    EXPECT_THAT(log.texts(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(, AlgoShbfWrongFrame,
                         testing::Values(WrongFrame{"OneByteMissing", 320, 192, 92160, 92159},
                                         WrongFrame{"NoPixels", 320, 192, 92160, 0},
                                         WrongFrame{"HugeSize", 320, 192, 0xFFFFFFFFu, 92160},
                                         WrongFrame{"LargerThanAQueueElement", 320, 192, 184321, 184321},
                                         WrongFrame{"OneByteMore", 320, 192, 92161, 92161},
                                         WrongFrame{"OneByteLess", 320, 192, 92159, 92160},
                                         WrongFrame{"TooWide", 321, 192, 92160, 92160},
                                         WrongFrame{"TooNarrow", 319, 192, 92160, 92160},
                                         WrongFrame{"TooHigh", 320, 193, 92160, 92160},
                                         WrongFrame{"TooLow", 320, 191, 92160, 92160},
                                         WrongFrame{"Turned", 192, 320, 92160, 92160}),
                         [](const auto &test) { return std::string(test.param.name); });

TEST_F(AlgoShbf, MessageShorterThanAHeaderIsDropped)
{
    algo_shbf_init();
    log.clear();
    const std::string whole = frame_message(320, 192, 92160, 1, 0);
    for (size_t length : {size_t(0), size_t(1), size_t(40), size_t(63)}) {
        const void *buffer = fake_shbf.deliver(raw_stream(), whole.substr(0, length));
        EXPECT_EQ(fake_shbf.freed.back(), buffer);
    }
    EXPECT_THAT(queue.frames, IsEmpty());
    EXPECT_EQ(fake_shbf.freed.size(), 4u);
    EXPECT_THAT(
        log.texts(NARO_LOG_ERR),
        ElementsAre("[enqueue_frame] raw stream message of 0 bytes dropped: its header alone has 64\n",
                    "[enqueue_frame] raw stream message of 1 bytes dropped: its header alone has 64\n",
                    "[enqueue_frame] raw stream message of 40 bytes dropped: its header alone has 64\n",
                    "[enqueue_frame] raw stream message of 63 bytes dropped: its header alone has 64\n"));
}

TEST_F(AlgoShbf, CloseOfTheRawStreamIsLoggedAndTheReceiverStays)
{
    algo_shbf_init();
    log.clear();
    raw_stream()->on_closed(raw_stream()->closed_context, nullptr);
    EXPECT_THAT(log.lines(),
                ElementsAre(LogCapture::Line{NARO_LOG_INFO, "[shbf_rcv_close] rcv: [raw_stream] closed\n"}));
    EXPECT_EQ(fake_shbf.receivers.size(), 1u);
    EXPECT_FALSE(raw_stream()->destroyed);
    fire_frame_request();
    EXPECT_EQ(raw_stream()->sent.size(), 1u);
}

// ---- Rate
// --------------------------------------------------------------------------------------------------

TEST_F(AlgoShbf, RateTable)
{
    algo_shbf_init();
    const ev_periodic *periodic = algo_shbf_frame_request_watcher();
    const struct {
        int fps;
        double interval;
    } table[] = {{10, 0.1}, {5, 0.125}, {4, 0.25}, {3, 0.3}, {2, 0.5}};
    log.clear();
    for (const auto &row : table) {
        update_ev_peroid_timer(row.fps);
        EXPECT_EQ(periodic->interval, row.interval) << row.fps;
        EXPECT_EQ(periodic->offset, 0.);
        EXPECT_EQ(periodic->reschedule_cb, nullptr);
    }
    EXPECT_THAT(
        log.lines(),
        ElementsAre(LogCapture::Line{NARO_LOG_ERR, "update_ev_peroid_timer interval 0 fps to 10 fps\n"},
                    LogCapture::Line{NARO_LOG_ERR, "update_ev_peroid_timer interval 10 fps to 5 fps\n"},
                    LogCapture::Line{NARO_LOG_ERR, "update_ev_peroid_timer interval 5 fps to 4 fps\n"},
                    LogCapture::Line{NARO_LOG_ERR, "update_ev_peroid_timer interval 4 fps to 3 fps\n"},
                    LogCapture::Line{NARO_LOG_ERR, "update_ev_peroid_timer interval 3 fps to 2 fps\n"}));
}

TEST_F(AlgoShbf, SameRateAgainDoesNothing)
{
    algo_shbf_init();
    log.clear();
    update_ev_peroid_timer(5);
    EXPECT_EQ(algo_shbf_frame_request_watcher()->interval, 0.125);
    EXPECT_THAT(log.texts(), ElementsAre("update_ev_peroid_timer interval 0 fps to 5 fps\n"));
    log.clear();
    update_ev_peroid_timer(5);
    EXPECT_EQ(algo_shbf_frame_request_watcher()->interval, 0.125);
    EXPECT_THAT(log.texts(), IsEmpty());
}

TEST_F(AlgoShbf, UnknownRateIsRememberedButChangesNothing)
{
    algo_shbf_init();
    update_ev_peroid_timer(5);
    for (int fps : {7, 0, -1, 1, 6, 8, 9, 11, 15, 30}) {
        log.clear();
        update_ev_peroid_timer(fps);
        ASSERT_EQ(log.lines().size(), 2u) << fps;
        EXPECT_EQ(log.lines()[1],
                  (LogCapture::Line{NARO_LOG_ERR, "param error ,should be greater than zero\n"}));
        EXPECT_EQ(algo_shbf_frame_request_watcher()->interval, 0.125) << fps;
        log.clear();
        update_ev_peroid_timer(fps);
        EXPECT_THAT(log.texts(), IsEmpty()) << "said once";
    }
    update_ev_peroid_timer(2);
    EXPECT_THAT(log.texts(), ElementsAre("update_ev_peroid_timer interval 30 fps to 2 fps\n"));
}

TEST_F(AlgoShbf, UnknownRateFromTheInitialState)
{
    algo_shbf_init();
    log.clear();
    update_ev_peroid_timer(7);
    EXPECT_THAT(log.texts(), ElementsAre("update_ev_peroid_timer interval 0 fps to 7 fps\n",
                                         "param error ,should be greater than zero\n"));
    EXPECT_EQ(algo_shbf_frame_request_watcher()->interval, 0.2);
}

TEST_F(AlgoShbf, RateZeroIsTheInitialStateAndSaysNothing)
{
    algo_shbf_init();
    log.clear();
    update_ev_peroid_timer(0);
    EXPECT_THAT(log.texts(), IsEmpty());
    EXPECT_EQ(algo_shbf_frame_request_watcher()->interval, 0.2);
}

TEST_F(AlgoShbf, RateStartsAnewWithInit)
{
    algo_shbf_init();
    update_ev_peroid_timer(5);
    algo_shbf_fini();
    algo_shbf_init();
    EXPECT_EQ(algo_shbf_frame_request_watcher()->interval, 0.2);
    log.clear();
    update_ev_peroid_timer(5);
    EXPECT_THAT(log.texts(), ElementsAre("update_ev_peroid_timer interval 0 fps to 5 fps\n"));
}

TEST_F(AlgoShbf, RateChangeHoldsFromTheNextFiringOn)
{
    algo_shbf_init();
    ev_periodic *periodic = algo_shbf_frame_request_watcher();
    const double next = ev_periodic_at(periodic);
    update_ev_peroid_timer(2);
    EXPECT_TRUE(ev_is_active(periodic));
    EXPECT_EQ(ev_periodic_at(periodic), next) << "the firing that is due stays where it was";

    algo_shbf_stop();
    update_ev_peroid_timer(10);
    EXPECT_FALSE(ev_is_active(periodic)) << "a stopped periodic is not started by a new rate";
}

TEST_F(AlgoShbf, StopAndRestartThePeriodic)
{
    algo_shbf_init();
    algo_shbf_stop();
    EXPECT_FALSE(ev_is_active(algo_shbf_frame_request_watcher()));
    algo_shbf_stop();
    EXPECT_FALSE(ev_is_active(algo_shbf_frame_request_watcher()));
    algo_shbf_restart();
    EXPECT_TRUE(ev_is_active(algo_shbf_frame_request_watcher()));
    algo_shbf_restart();
    EXPECT_TRUE(ev_is_active(algo_shbf_frame_request_watcher()));
}

// ---- The loop
// ----------------------------------------------------------------------------------------------

TEST_F(AlgoShbf, RunEndsByTheWakeUpAndSaysSo)
{
    algo_shbf_init();
    log.clear();
    algo_shbf_signal_handler(); // counts, though nobody runs the loop yet
    EXPECT_EQ(algo_shbf_run(), 0);
    EXPECT_THAT(log.lines(), ElementsAre(LogCapture::Line{NARO_LOG_INFO, "ev loop break all\n"},
                                         LogCapture::Line{NARO_LOG_INFO, "shbf stop running ...\n"}));
}

// Calls `round` on the loop at each of its rounds.
struct EachRound {
    explicit EachRound(std::function<void(int)> call) : round(std::move(call))
    {
        ev_idle_init(&idle, [](struct ev_loop *, ev_idle *self, int) {
            EachRound *each = static_cast<EachRound *>(self->data);
            each->round(each->rounds++);
        });
        idle.data = this;
        ev_idle_start(ev_default_loop(0), &idle);
    }
    ~EachRound() { ev_idle_stop(ev_default_loop(0), &idle); }
    std::function<void(int)> round;
    int rounds = 0;
    ev_idle idle;
};

TEST_F(AlgoShbf, RunGoesOnUntilTheWakeUp)
{
    algo_shbf_init();
    EachRound each([](int round) {
        if (round == 100)
            algo_shbf_signal_handler();
    });
    algo_shbf_run();
    EXPECT_GT(each.rounds, 100);
}

TEST_F(AlgoShbf, WakeUpEndsNestedLoopsToo)
{
    algo_shbf_init();
    int nested_returned = 0;
    int rounds_after = 0;
    EachRound each([&](int round) {
        if (round == 0) {
            algo_shbf_signal_handler();
            ev_run(ev_default_loop(0), 0);
            nested_returned++;
        } else if (nested_returned && ++rounds_after > 10) {
            ev_break(ev_default_loop(0), EVBREAK_ALL); // do not hang, fail
        }
    });
    algo_shbf_run();
    EXPECT_EQ(nested_returned, 1);
    EXPECT_EQ(rounds_after, 0);
    EXPECT_EQ(log.count("ev loop break all\n"), 1u);
}

TEST_F(AlgoShbf, WakeUpFromAnotherThread)
{
    algo_shbf_init();
    std::thread other([] { algo_shbf_signal_handler(); });
    algo_shbf_run();
    other.join();
    EXPECT_TRUE(log.has(NARO_LOG_INFO, "shbf stop running ...\n"));
}

TEST_F(AlgoShbf, WakeUpFromASignalHandler)
{
    algo_shbf_init();
    signal(SIGUSR1, [](int) { algo_shbf_signal_handler(); });
    EachRound each([](int round) {
        if (round == 1)
            raise(SIGUSR1);
    });
    algo_shbf_run();
    signal(SIGUSR1, SIG_DFL);
    EXPECT_TRUE(log.has("ev loop break all\n"));
}

TEST_F(AlgoShbf, WakeUpOutsideOfInitAndFiniDoesNothing)
{
    algo_shbf_signal_handler();
    EXPECT_EQ(sent_to_libev, 0);
    algo_shbf_init();
    algo_shbf_signal_handler();
    EXPECT_EQ(sent_to_libev, 1);
    algo_shbf_fini();
    algo_shbf_signal_handler();
    EXPECT_EQ(sent_to_libev, 1) << "the loop is gone";
}

TEST_F(AlgoShbf, LifeCanBeLivedAgain)
{
    algo_shbf_init();
    algo_shbf_signal_handler();
    algo_shbf_fini();
    algo_shbf_init();
    EXPECT_TRUE(ev_is_active(algo_shbf_frame_request_watcher()));
    int rounds = 0;
    EachRound each([&](int round) {
        rounds = round;
        if (round == 20)
            algo_shbf_signal_handler();
    });
    algo_shbf_run();
    EXPECT_EQ(rounds, 20) << "the wake-up of the life before left no trace";
}

TEST_F(AlgoShbf, WakeUpsWhileTheLoopGoesAway)
{
    std::atomic<bool> done{false};
    std::thread threads[3];
    for (std::thread &thread : threads)
        thread = std::thread([&] {
            while (!done)
                algo_shbf_signal_handler();
        });
    for (int i = 0; i < 20; i++) {
        algo_shbf_init();
        algo_shbf_run();
        algo_shbf_fini();
    }
    done = true;
    for (std::thread &thread : threads)
        thread.join();
    EXPECT_EQ(log.count("shbf exit\n"), 20u);
}

// ---- The end
// -----------------------------------------------------------------------------------------------

TEST_F(AlgoShbf, FiniDestroysReceiverAndLoopAndSaysSo)
{
    algo_shbf_init();
    fake_shbf.calls.clear();
    log.clear();
    // The loop must still be there when the receiver leaves it, and gone before the receiving side is.
    ev_cleanup cleanup;
    ev_cleanup_init(&cleanup,
                    [](struct ev_loop *, ev_cleanup *, int) { fake_shbf.calls.push_back("loop destroyed"); });
    ev_cleanup_start(ev_default_loop(0), &cleanup);
    fake_shbf.on_global_exit = [&] { EXPECT_THAT(log.texts(), IsEmpty()) << "said when all is done"; };
    EXPECT_EQ(algo_shbf_fini(), 0);
    EXPECT_THAT(fake_shbf.calls,
                ElementsAre("rcv_destroy /run/video_rawstream", "loop destroyed", "shbf_rcv_global_exit"));
    EXPECT_THAT(log.lines(), ElementsAre(LogCapture::Line{NARO_LOG_INFO, "shbf exit\n"}));
}

TEST_F(AlgoShbf, NothingIsAskedOfTheReceiverThatIsGone)
{
    algo_shbf_init();
    algo_shbf_fini();
    ev_invoke(nullptr, algo_shbf_frame_request_watcher(), EV_PERIODIC);
    EXPECT_THAT(raw_stream()->sent, IsEmpty());
}

TEST_F(AlgoShbf, SecondFiniDoesNothing)
{
    algo_shbf_init();
    algo_shbf_fini();
    fake_shbf.calls.clear();
    log.clear();
    EXPECT_EQ(algo_shbf_fini(), 0);
    EXPECT_THAT(fake_shbf.calls, IsEmpty());
    EXPECT_THAT(log.lines(),
                ElementsAre(LogCapture::Line{NARO_LOG_INFO, "[algo_shbf_fini]algo_shbf already exit\n"}));
}

TEST_F(AlgoShbf, FiniAfterAFailedInit)
{
    fake_shbf.start_results["/run/lsd_event"] = -1;
    EXPECT_EQ(algo_shbf_init(), -1);
    log.clear();
    EXPECT_EQ(algo_shbf_fini(), 0);
    EXPECT_TRUE(raw_stream()->destroyed);
    EXPECT_THAT(log.texts(), ElementsAre("shbf exit\n"));
}

} // namespace

// In front of libev's, which is looked up beforehand: not a thing to do in a signal handler.
static const auto real_async_send =
    reinterpret_cast<decltype(&ev_async_send)>(dlsym(RTLD_NEXT, "ev_async_send"));
void ev_async_send(struct ev_loop *loop, ev_async *watcher) noexcept
{
    sent_to_libev++;
    real_async_send(loop, watcher);
}

int algo_shm_write_wrap(const char *text)
{
    mailbox.texts.push_back(text);
    return mailbox.result;
}

int motion_queue_list_enqueue(const void *src, uint32_t size, uint32_t width, uint32_t height, uint32_t type,
                              uint64_t timestamp)
{
    queue.frames.push_back({std::string(static_cast<const char *>(src), size), size, width, height, type,
                            timestamp, fake_shbf.freed.size()});
    return queue.result;
}
