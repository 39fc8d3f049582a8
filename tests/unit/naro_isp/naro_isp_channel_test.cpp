// The commands over the real channel: the lock on every path, a stream that goes wrong and right again, threads.
#include "naro_isp.h"

#include <atomic>
#include <gmock/gmock.h>
#include <pthread.h>
#include <signal.h>
#include <thread>

#include "fake_clock.h"
#include "log_capture.h"
#include "media_server.h"
#include "naro_ipc.h"

using testing::ElementsAre;

namespace
{

class Commands : public testing::Test
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
        server = std::make_unique<MediaServer>();
        ASSERT_EQ(naro_ipc_server_connect(), 0);
        peer = server->accept();
    }
    // Another thread gets the lock, which it would never on a path that kept it.
    static void expect_lock_is_free()
    {
        std::thread([] {
            EXPECT_EQ(naro_ipc_lock(), 0);
            EXPECT_EQ(naro_ipc_unlock(), 0);
        }).join();
    }
    std::vector<std::string> errors() const { return log.texts(NARO_LOG_ERR); }

    static bool alone;
    LogCapture log;
    FakeClock clock;
    std::unique_ptr<MediaServer> server;
    MediaServer::Peer peer;
};
bool Commands::alone = false;

TEST_F(Commands, RequestAndReply)
{
    ASSERT_TRUE(peer.send(media_reply(NARO_CMD_DAYNIGHT_MODE_GET + 1, 0, media_words({1}))));
    uint32_t mode = 7;
    EXPECT_EQ(naro_isp_daynight_mode_get(&mode), 0);
    EXPECT_EQ(mode, 1u);
    EXPECT_EQ(peer.receive(20), "NARO" + media_words({20, 4118, 2, 0xA5A5}));
    EXPECT_TRUE(peer.silent());
    EXPECT_TRUE(log.lines().empty());
    expect_lock_is_free();
}

TEST_F(Commands, TheLockIsFreeAfterEveryFailure)
{
    ASSERT_TRUE(peer.send(media_reply(NARO_CMD_WDR_ENABLE + 1, 5)));
    EXPECT_EQ(naro_isp_wdr_enable(), -1);
    EXPECT_THAT(errors(), ElementsAre("[naro_isp_wdr_enable][cmd_no=4110][ret=5][param] get error\n"));
    expect_lock_is_free();
    log.clear();

    ASSERT_TRUE(peer.send("short"));
    EXPECT_EQ(naro_isp_wdr_disable(), -1);
    EXPECT_THAT(errors(), ElementsAre("cmd rcv error, rsize = 5\r\n",
                                      "[naro_isp_wdr_disable][rcv][cmd_no=4111][fail][1]\n"));
    expect_lock_is_free();
    log.clear();

    peer.receive(40);
    peer.hang_up();
    EXPECT_EQ(naro_isp_track_stop(), -1);
    EXPECT_THAT(errors(), ElementsAre("cmd snd error, wsize = -1\r\n",
                                      "[naro_isp_track_stop][snd][cmd_no=4141][fail]\n"));
    expect_lock_is_free();
    log.clear();

    EXPECT_EQ(naro_isp_track_run(nullptr, 0), -1);
    expect_lock_is_free();

    // And the connection that was made on the way works.
    peer = server->accept();
    ASSERT_TRUE(peer.send(media_reply(NARO_CMD_TRACK_STOP + 1, 0)));
    EXPECT_EQ(naro_isp_track_stop(), 0);
}

TEST_F(Commands, AServerThatClosesWithTheRequestUnread)
{
    uint32_t result = 9;
    std::thread closing([&] {
        // Readable means the request is there; gone without a look at it.
        while (peer.silent())
            std::this_thread::yield();
        peer.hang_up();
    });
    EXPECT_EQ(naro_audio_sound_result_get(&result), -1);
    closing.join();
    EXPECT_EQ(result, 9u);
    EXPECT_THAT(errors(), ElementsAre("cmd rcv error, rsize = -1\r\n",
                                      "[naro_audio_sound_result_get][rcv][cmd_no=4145][fail][1]\n"));
    peer = server->accept();
    ASSERT_TRUE(peer.send(media_reply(NARO_CMD_SOUND_RESULT_GET + 1, 0, media_words({2}))));
    EXPECT_EQ(naro_audio_sound_result_get(&result), 0);
    EXPECT_EQ(result, 2u);
}

// What is more than a command expects is the beginning of the next one's reply: that one fails, and so do those after
// it, until the connection is lost.
TEST_F(Commands, SurplusBytesSpoilTheRepliesThatFollow)
{
    ASSERT_TRUE(peer.send(media_reply(NARO_CMD_MD_ENABLE + 1, 0) + "more"));
    EXPECT_EQ(naro_isp_md_enable(), 0);
    for (int i = 0; i < 3; i++) {
        ASSERT_TRUE(peer.send(media_reply(NARO_CMD_MD_ENABLE + 1, 0)));
        EXPECT_EQ(naro_isp_md_enable(), -1);
    }
    // "more", magic and length stand where magic, length and number are looked for.
    EXPECT_EQ(errors()[0], "[naro_isp_md_enable][cmd_no=24][ret=0][param] get error\n");
    peer.receive(80);
    peer.hang_up();
    EXPECT_EQ(naro_isp_md_enable(), -1);
    peer = server->accept();
    ASSERT_TRUE(peer.connected());
    ASSERT_TRUE(peer.send(media_reply(NARO_CMD_MD_ENABLE + 1, 0)));
    EXPECT_EQ(naro_isp_md_enable(), 0);
}

TEST_F(Commands, AReplyInTwoPiecesFailsItsCommand)
{
    const std::string reply = media_reply(NARO_CMD_EV_ATTR_GET + 1, 0, std::string(28, 'e'));
    ASSERT_TRUE(peer.send(reply.substr(0, 30)));
    naro_isp_ev_attr attr;
    memset(&attr, 0x11, sizeof attr);
    const naro_isp_ev_attr before = attr;
    EXPECT_EQ(naro_isp_ev_attr_get(&attr), -1);
    EXPECT_EQ(memcmp(&attr, &before, sizeof attr), 0);
    EXPECT_THAT(errors(), ElementsAre("cmd rcv error, rsize = 30\r\n",
                                      "[naro_isp_ev_attr_get][rcv][cmd_no=4122][fail][1]\n"));
}

TEST_F(Commands, ALateReplyIsWaitedFor)
{
    std::thread answering([&] {
        peer.receive(20);
        for (int i = 0; i < 1000; i++)
            std::this_thread::yield();
        peer.send(media_reply(NARO_CMD_COLORTRANS_ENABLE + 1, 0));
    });
    EXPECT_EQ(naro_isp_COLORTRANS_enable(), 0);
    answering.join();
    EXPECT_TRUE(log.lines().empty());
}

// A thread that is cancelled while it waits for its reply takes it first: else the next command would read it.
TEST_F(Commands, ACancelledThreadEndsItsCommand)
{
    pthread_t thread;
    static std::atomic<int> result{9};
    ASSERT_EQ(pthread_create(
                  &thread, nullptr,
                  [](void *) -> void * {
                      result = naro_isp_wdr_enable();
                      pthread_testcancel();
                      return nullptr;
                  },
                  nullptr),
              0);
    EXPECT_EQ(peer.receive(20).size(), 20u);
    EXPECT_EQ(pthread_cancel(thread), 0);
    ASSERT_TRUE(peer.send(media_reply(NARO_CMD_WDR_ENABLE + 1, 0)));
    void *end = nullptr;
    pthread_join(thread, &end);
    EXPECT_EQ(end, PTHREAD_CANCELED);
    EXPECT_EQ(result, 0);
    expect_lock_is_free();
    ASSERT_TRUE(peer.send(media_reply(NARO_CMD_WDR_DISABLE + 1, 0)));
    EXPECT_EQ(naro_isp_wdr_disable(), 0);
}

// Different commands of several threads, a server that answers each by its number, and one that now and then hangs
// up in the middle: no reply ever reaches another command.
TEST_F(Commands, RepliesReachTheirOwnCommands)
{
    std::atomic<bool> stop{false};
    std::thread serving([&] {
        for (int served = 1; !stop; served++) {
            const std::string head = peer.receive(16);
            if (head.size() < 16) {
                peer = server->accept();
                continue;
            }
            uint32_t fields[4];
            memcpy(fields, head.data(), sizeof fields);
            peer.receive(fields[1] - 16);
            if (served % 97 == 0)
                peer.hang_up();
            const naro_ipc_command *command = naro_ipc_command_find(fields[2]);
            const std::string data(command ? command->data : 0, static_cast<char>(fields[2]));
            if (!peer.connected() || !peer.send(media_reply(fields[2] + 1, 0, data)))
                peer = server->accept();
        }
    });
    std::atomic<int> done{0}, wrong{0};
    std::vector<std::thread> threads;
    threads.emplace_back([&] {
        for (int i = 0; i < 300; i++) {
            uint32_t mode = 0;
            if (naro_isp_daynight_mode_get(&mode) == 0) {
                done++;
                wrong += mode != 0x16161616;
            }
        }
    });
    threads.emplace_back([&] {
        for (int i = 0; i < 300; i++) {
            naro_isp_ev_attr attr;
            if (naro_isp_ev_attr_get(&attr) == 0) {
                done++;
                wrong += attr.word[6] != 0x1A1A1A1A;
            }
        }
    });
    threads.emplace_back([&] {
        const naro_isp_track_param boxes = {};
        for (int i = 0; i < 300; i++)
            done += naro_isp_track_run(&boxes, 0) == 0;
    });
    for (std::thread &thread : threads)
        thread.join();
    EXPECT_EQ(wrong, 0);
    EXPECT_GT(done, 800);
    stop = true;
    naro_ipc_server_connect(); // ends what the server waits for
    naro_ipc_server_disconnect();
    serving.join();
    for (const std::string &text : errors()) // nothing was refused or mistaken for another
        EXPECT_EQ(text.find("get error"), std::string::npos) << text;
}

} // namespace
