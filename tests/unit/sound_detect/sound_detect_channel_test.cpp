// Rounds over the real command socket, with a media server that answers, refuses, hangs up and comes back in between.
#include "sound_detect.h"

#include <gmock/gmock.h>
#include <signal.h>

#include "algo_shbf.h"
#include "fake_clock.h"
#include "log_capture.h"
#include "media_server.h"
#include "motion_event_record.h"
#include "naro_ipc.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace
{

int broadcasts, records; // one thread

class SoundChannel : public testing::Test
{
  protected:
    static void SetUpTestSuite()
    {
        signal(SIGPIPE, SIG_IGN);
        alone = alone_with_the_command_socket();
    }
    void SetUp() override
    {
        if (!alone)
            GTEST_SKIP() << "SKIPPED: somebody else serves the command socket of this machine";
        broadcasts = records = 0;
        server = std::make_unique<MediaServer>();
        ASSERT_EQ(naro_ipc_server_connect(), 0);
        peer = server->accept();
    }
    void TearDown() override { naro_ipc_server_disconnect(); }
    static std::string answer(uint32_t result, uint32_t ret = 0, uint32_t cmd_no = 4146)
    {
        return media_reply(cmd_no, ret, media_words({result}));
    }
    std::vector<std::string> errors() const { return log.texts(NARO_LOG_ERR); }

    static bool alone;
    LogCapture log;
    FakeClock clock;
    std::unique_ptr<MediaServer> server;
    MediaServer::Peer peer;
};
bool SoundChannel::alone = false;

TEST_F(SoundChannel, TheQuestionAndItsAnswer)
{
    ASSERT_TRUE(peer.send(answer(1)));
    EXPECT_EQ(sound_detect_round(), 1u);
    EXPECT_EQ(peer.receive(20), "NARO" + media_words({20, 4145, 2, 42405}));
    EXPECT_TRUE(peer.silent());
    EXPECT_THAT(errors(), IsEmpty());
    EXPECT_EQ(broadcasts, 1);
    EXPECT_EQ(records, 1);
}

TEST_F(SoundChannel, ARefusalOrAnotherCommandsReplyIsNoSound)
{
    for (const std::string &reply :
         {answer(1, 5), answer(1, 0xFFFFFFFF), answer(1, 0, 4145), answer(1, 0, 4147)}) {
        ASSERT_TRUE(peer.send(reply));
        EXPECT_EQ(sound_detect_round(), 0u);
    }
    EXPECT_THAT(errors(),
                ElementsAre("[naro_audio_sound_result_get][cmd_no=4146][ret=5][param] get error\n",
                            "[naro_audio_sound_result_get][cmd_no=4146][ret=-1][param] get error\n",
                            "[naro_audio_sound_result_get][cmd_no=4145][ret=0][param] get error\n",
                            "[naro_audio_sound_result_get][cmd_no=4147][ret=0][param] get error\n"));
    EXPECT_EQ(broadcasts + records, 0);
    ASSERT_TRUE(peer.send(answer(1)));
    EXPECT_EQ(sound_detect_round(), 1u);
}

// Sounds before, between and after every kind of failure: each that was answered is told once.
TEST_F(SoundChannel, FailuresInBetweenLoseOnlyTheirOwnAnswers)
{
    ASSERT_TRUE(peer.send(answer(1)));
    EXPECT_EQ(sound_detect_round(), 1u);

    ASSERT_TRUE(peer.send(answer(1).substr(0, 27))); // one byte short
    EXPECT_EQ(sound_detect_round(), 0u);
    EXPECT_THAT(errors(), ElementsAre("cmd rcv error, rsize = 27\r\n",
                                      "[naro_audio_sound_result_get][rcv][cmd_no=4145][fail][1]\n"));
    log.clear();

    ASSERT_TRUE(peer.send(answer(0)));
    EXPECT_EQ(sound_detect_round(), 0u);
    EXPECT_EQ(sound_detect_last_result(), 0u);
    ASSERT_TRUE(peer.send(answer(1)));
    EXPECT_EQ(sound_detect_round(), 1u);
    EXPECT_EQ(broadcasts, 2);
    EXPECT_THAT(errors(), IsEmpty());

    peer.receive(80); // all questions: what hangs up with nothing unread
    peer.hang_up();
    EXPECT_EQ(sound_detect_round(), 0u);
    EXPECT_THAT(errors(), ElementsAre("cmd snd error, wsize = -1\r\n",
                                      "[naro_audio_sound_result_get][snd][cmd_no=4145][fail]\n"));
    EXPECT_EQ(sound_detect_last_result(), 1u) << "as it was";
    log.clear();

    // The server's process is gone and back: the question waits for it, and fails.
    peer = server->accept();
    ASSERT_TRUE(peer.connected());
    peer.hang_up();
    server.reset();
    clock.on_sleep = [&](unsigned) { server = std::make_unique<MediaServer>(); };
    EXPECT_EQ(sound_detect_round(), 0u);
    EXPECT_THAT(errors(), ElementsAre("[naro_ipc_server_connect]connect error, errno=111\r\n",
                                      "cmd snd error, wsize = -1\r\n",
                                      "[naro_audio_sound_result_get][snd][cmd_no=4145][fail]\n"));
    EXPECT_EQ(broadcasts, 2);
    log.clear();

    peer = server->accept();
    ASSERT_TRUE(peer.send(answer(1)));
    EXPECT_EQ(sound_detect_round(), 1u);
    EXPECT_EQ(broadcasts, 3);
    EXPECT_EQ(records, 3);
    EXPECT_THAT(errors(), IsEmpty());
}

} // namespace

int shbf_event_broadcast(int index, const void *, int)
{
    EXPECT_EQ(index, EVENT_CHANNEL_LSD);
    broadcasts++;
    return 0;
}

int motion_record_event_write_wrap(uint32_t type, uint64_t, int32_t, uint16_t, uint16_t, uint16_t, uint16_t)
{
    EXPECT_EQ(type, static_cast<uint32_t>(MOTION_RECORD_SOUND));
    records++;
    return 0;
}
