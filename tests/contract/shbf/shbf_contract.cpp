// The contract of the channels, through the public headers alone: any implementation can be held to it.
#include <algorithm>
#include <atomic>
#include <gtest/gtest.h>
#include <poll.h>
#include <pthread.h>
#include <semaphore.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <thread>

#include "channel_fixture.h"

namespace
{

const std::string root = long_scratch_root();
const char path[] = "/run/channel";

const size_t KB = 1024;
const size_t MB = 1024 * KB;

class Shbf : public ChannelTest
{
};

// ---- One message ------------------------------------------------------------------------------------------

TEST_F(Shbf, NumbersAndLimitsAreTheContracts)
{
    EXPECT_EQ(SHBFEV_RCV_CLOSED, 1);
    EXPECT_EQ(SHBFEV_RCV_DATA, 2);
    EXPECT_EQ(SHBFEV_BRD_ERROR, 4);
    EXPECT_EQ(SHBFEV_MESSAGE_MAX, 16777216);
    EXPECT_EQ(SHBFEV_LAG_MESSAGES, 64);
    EXPECT_EQ(SHBFEV_LAG_BYTES, 4194304);
}

TEST_F(Shbf, RootIsLongerThanASocketAddress)
{
    EXPECT_GT(root.size(), 108u);
}

TEST_F(Shbf, UnknownEventsAndMissingHandlesAreRefused)
{
    Loop loop;
    Broadcaster brd(path);
    Receiver rcv(loop, path, false);
    for (int event : {0, 1, 2, 3, 5})
        EXPECT_LT(shbfev_brd_register(brd.handle, event, nullptr, nullptr), 0) << event;
    for (int event : {0, 3, 4})
        EXPECT_LT(shbfev_rcv_register(rcv.handle, event, nullptr, nullptr), 0) << event;
    EXPECT_LT(shbfev_brd_register(nullptr, SHBFEV_BRD_ERROR, nullptr, nullptr), 0);
    EXPECT_LT(shbfev_brd_on_message(nullptr, nullptr, nullptr), 0);
    EXPECT_LT(shbfev_brd_start(loop.ev, nullptr), 0);
    EXPECT_LT(shbfev_brd_start(nullptr, brd.handle), 0);
    EXPECT_LT(shbfev_brd_broadcast_message(nullptr, "x", 1), 0);
    EXPECT_LT(shbfev_rcv_register(nullptr, SHBFEV_RCV_DATA, nullptr, nullptr), 0);
    EXPECT_LT(shbfev_rcv_start(nullptr), 0);
    EXPECT_LT(shbfev_rcv_send_message(nullptr, "x", 1), 0);
    EXPECT_EQ(shbfev_rcv_connected(nullptr), 0);
    EXPECT_EQ(shbfev_brd_receivers(nullptr), 0);
    shbfev_brd_destroy(nullptr);
    shbfev_rcv_destroy(nullptr);
    shbf_free(nullptr);
}

TEST_F(Shbf, PathsThatCannotBeAChannelAreRefused)
{
    Loop loop;
    const std::string much_too_long = "/run/" + std::string(4096, 'x');
    for (const char *wrong : {static_cast<const char *>(nullptr), "", "run/channel", much_too_long.c_str()}) {
        EXPECT_EQ(shbfev_brd_create(wrong), nullptr);
        EXPECT_EQ(shbfev_rcv_create(loop.ev, wrong), nullptr);
    }
    EXPECT_EQ(shbfev_rcv_create(nullptr, path), nullptr);
}

TEST_F(Shbf, GlobalStartsAreCounted)
{
    EXPECT_LT(shbf_rcv_global_exit(), 0);
    EXPECT_EQ(shbf_rcv_global_init(), 0);
    EXPECT_EQ(shbf_rcv_global_init(), 0);
    EXPECT_EQ(shbf_rcv_global_exit(), 0);
    EXPECT_EQ(shbf_rcv_global_exit(), 0);
    EXPECT_LT(shbf_rcv_global_exit(), 0);
}

class EverySize : public ChannelTest, public testing::WithParamInterface<size_t>
{
};
INSTANTIATE_TEST_SUITE_P(Shbf, EverySize,
                         testing::Values(0, 1, 13, 64, 1023, 1024, 1025, 4096, 16384, 92224, 131072, 131073,
                                         MB, 4 * MB, 4 * MB + 1, 16 * MB));

TEST_P(EverySize, ArrivesWhole)
{
    Loop loop;
    Broadcaster brd(path);
    ASSERT_EQ(brd.start(loop), 0);
    Receiver one(loop, path), two(loop, path);
    ASSERT_TRUE(meet(loop, one) && meet(loop, two));
    const std::vector<std::string> sent = {numbered(GetParam(), 1), "end"};
    // The second one after the first has been read: a message of more than 4 MB is a lag of its own.
    for (size_t i = 0; i < sent.size(); i++) {
        EXPECT_EQ(brd.send(sent[i]), 0);
        ASSERT_TRUE(loop.run_until([&] { return one.messages.size() > i && two.messages.size() > i; }));
    }
    EXPECT_TRUE(one.messages == sent);
    EXPECT_TRUE(two.messages == sent);
    EXPECT_TRUE(brd.errors.empty());
}

TEST_P(EverySize, ArrivesWholeUpstream)
{
    Loop loop;
    Broadcaster brd(path);
    ASSERT_EQ(brd.start(loop), 0);
    Receiver rcv(loop, path);
    ASSERT_TRUE(meet(loop, rcv));
    const std::vector<std::string> sent = {numbered(GetParam(), 7), "end"};
    for (const std::string &text : sent)
        EXPECT_EQ(rcv.send(text), 0);
    ASSERT_TRUE(loop.run_until([&] { return brd.messages.size() == sent.size(); }));
    EXPECT_TRUE(brd.messages == sent);
    EXPECT_TRUE(brd.errors.empty());
    EXPECT_TRUE(rcv.messages.empty());
}

TEST_F(Shbf, MoreThanSixteenMegabytesAreRefused)
{
    Loop loop;
    Broadcaster brd(path);
    ASSERT_EQ(brd.start(loop), 0);
    Receiver rcv(loop, path);
    ASSERT_TRUE(meet(loop, rcv));
    const std::string text(16 * MB + 1, 'x');
    EXPECT_LT(brd.send(text), 0);
    EXPECT_LT(rcv.send(text), 0);
    EXPECT_EQ(brd.send("next"), 0);
    EXPECT_EQ(rcv.send("next"), 0);
    ASSERT_TRUE(loop.run_until([&] { return !rcv.messages.empty() && !brd.messages.empty(); }));
    EXPECT_EQ(rcv.messages, std::vector<std::string>{"next"});
    EXPECT_EQ(brd.messages, std::vector<std::string>{"next"});
}

TEST_F(Shbf, NoBufferButALengthIsRefused)
{
    Loop loop;
    Broadcaster brd(path);
    ASSERT_EQ(brd.start(loop), 0);
    Receiver rcv(loop, path);
    ASSERT_TRUE(meet(loop, rcv));
    EXPECT_LT(shbfev_brd_broadcast_message(brd.handle, nullptr, 1), 0);
    EXPECT_LT(shbfev_rcv_send_message(rcv.handle, nullptr, 1), 0);
    EXPECT_EQ(shbfev_brd_broadcast_message(brd.handle, nullptr, 0), 0);
    EXPECT_EQ(shbfev_rcv_send_message(rcv.handle, nullptr, 0), 0);
    ASSERT_TRUE(loop.run_until([&] { return !rcv.messages.empty() && !brd.messages.empty(); }));
    EXPECT_EQ(rcv.messages, std::vector<std::string>{""});
    EXPECT_EQ(brd.messages, std::vector<std::string>{""});
}

TEST_F(Shbf, SizesMixedKeepTheirOrder)
{
    Loop loop, slow;
    Broadcaster brd(path);
    ASSERT_EQ(brd.start(loop), 0);
    Receiver rcv(slow, path);
    ASSERT_TRUE(meet(loop, rcv, &slow));
    std::vector<std::string> down, up;
    const size_t sizes[] = {13, 92224, 0, 1025, 200 * KB, 4, 5000, 40000};
    for (uint32_t i = 0; i < 48; i++) {
        down.push_back(numbered(sizes[i % 8], i));
        EXPECT_EQ(brd.send(down.back()), 0);
    }
    ASSERT_TRUE(slow.run_until([&] { return rcv.messages.size() == down.size(); }));
    EXPECT_TRUE(rcv.messages == down);
    for (uint32_t i = 0; i < 8; i++) {
        up.push_back(numbered(sizes[i % 8], i));
        EXPECT_EQ(rcv.send(up.back()), 0);
        ASSERT_TRUE(loop.run_until([&] { return brd.messages.size() == up.size(); }));
    }
    EXPECT_TRUE(brd.messages == up);
}

TEST_F(Shbf, NoReceiverIsNoError)
{
    Loop loop;
    Broadcaster brd(path);
    EXPECT_LT(brd.send("before the start"), 0);
    ASSERT_EQ(brd.start(loop), 0);
    EXPECT_EQ(brd.receivers(), 0);
    EXPECT_EQ(brd.send("x"), 0);
    EXPECT_EQ(brd.send(std::string(16 * MB, 'x')), 0);
    Receiver rcv(loop, path);
    ASSERT_TRUE(meet(loop, rcv));
    EXPECT_EQ(brd.receivers(), 1);
    EXPECT_EQ(brd.send("y"), 0);
    ASSERT_TRUE(loop.run_until([&] { return !rcv.messages.empty(); }));
    EXPECT_EQ(rcv.messages, std::vector<std::string>{"y"}); // what was sent before it came is not for it
    rcv.destroy();
    ASSERT_TRUE(loop.run_until([&] { return brd.receivers() == 0; }));
    EXPECT_TRUE(brd.errors.empty());
}

TEST_F(Shbf, BuffersOutliveTheirReceiverAndGoBackOnAnyThread)
{
    static std::vector<void *> kept;
    Loop loop;
    Broadcaster brd(path);
    ASSERT_EQ(brd.start(loop), 0);
    void *rcv = shbfev_rcv_create(loop.ev, path);
    ASSERT_EQ(shbfev_rcv_register(
                  rcv, SHBFEV_RCV_DATA,
                  [](void *, void *buffer) {
                      kept.push_back(buffer);
                      return 0;
                  },
                  nullptr),
              0);
    ASSERT_EQ(shbfev_rcv_start(rcv), 0);
    ASSERT_TRUE(loop.run_until([&] { return shbfev_rcv_connected(rcv) == 1; }));
    const std::vector<std::string> sent = {numbered(92224, 1), numbered(MB, 2), ""};
    for (const std::string &text : sent)
        EXPECT_EQ(brd.send(text), 0);
    ASSERT_TRUE(loop.run_until([&] { return kept.size() == 3; }));
    shbfev_rcv_destroy(rcv);
    brd.destroy();
    loop.end();
    std::thread([&] {
        for (size_t i = 0; i < kept.size(); i++) {
            EXPECT_EQ(shbf_size(kept[i]), sent[i].size());
            EXPECT_EQ(memcmp(kept[i], sent[i].data(), sent[i].size()), 0);
            memset(kept[i], 0, sent[i].size()); // it belongs to the callee
            shbf_free(kept[i]);
        }
    }).join();
}

TEST_F(Shbf, BufferOfOneReceiverIsNotSeenByAnother)
{
    static std::vector<char *> kept;
    Loop loop;
    Broadcaster brd(path);
    ASSERT_EQ(brd.start(loop), 0);
    void *rcv[2];
    for (void *&one : rcv) {
        one = shbfev_rcv_create(loop.ev, path);
        shbfev_rcv_register(
            one, SHBFEV_RCV_DATA,
            [](void *, void *buffer) {
                kept.push_back(static_cast<char *>(buffer));
                return 0;
            },
            nullptr);
        shbfev_rcv_start(one);
    }
    ASSERT_TRUE(loop.run_until([&] { return brd.receivers() == 2; }));
    EXPECT_EQ(brd.send(std::string(MB, 'x')), 0);
    ASSERT_TRUE(loop.run_until([&] { return kept.size() == 2; }));
    memset(kept[0], 'y', MB);
    EXPECT_EQ(std::string(kept[1], MB), std::string(MB, 'x'));
    for (char *buffer : kept)
        shbf_free(buffer);
    for (void *one : rcv)
        shbfev_rcv_destroy(one);
}

// ---- Lag --------------------------------------------------------------------------------------------------

struct Lag {
    size_t length;
    size_t kept;
};
void PrintTo(const Lag &lag, std::ostream *out)
{
    *out << lag.length << " bytes";
}
class LagLimit : public ChannelTest, public testing::WithParamInterface<Lag>
{
};
INSTANTIATE_TEST_SUITE_P(Shbf, LagLimit,
                         testing::Values(Lag{0, 64}, Lag{1, 64}, Lag{13, 64}, Lag{700, 64}, Lag{1024, 64},
                                         Lag{1025, 64}, Lag{2100, 64}, Lag{4200, 64}, Lag{8200, 64},
                                         Lag{16384, 64}, Lag{40000, 64}, Lag{65536, 64}, Lag{65537, 63},
                                         Lag{92224, 45}, Lag{140000, 29}, Lag{MB, 4}, Lag{MB + 1, 3},
                                         Lag{4 * MB, 1}, Lag{4 * MB + 1, 1}, Lag{5 * MB, 1}));

// A receiver that does not read keeps exactly the first ones, and is served again once it has read.
TEST_P(LagLimit, IsExact)
{
    Loop loop, slow;
    Broadcaster brd(path);
    ASSERT_EQ(brd.start(loop), 0);
    Receiver rcv(slow, path), quick(loop, path);
    ASSERT_TRUE(meet(loop, rcv, &slow) && meet(loop, quick));
    std::vector<std::string> kept;
    const uint32_t sent = static_cast<uint32_t>(GetParam().kept) + 10;
    for (int round = 0; round < 2; round++) {
        kept.clear();
        rcv.messages.clear();
        quick.messages.clear();
        for (uint32_t i = 0; i < sent; i++) {
            const std::string text = numbered(GetParam().length, i);
            EXPECT_EQ(brd.send(text), 0);
            if (i < GetParam().kept)
                kept.push_back(text);
            // The one that reads is held up by nobody.
            ASSERT_TRUE(loop.run_until([&] { return quick.messages.size() == i + 1; }));
        }
        slow.run_ready();
        EXPECT_EQ(rcv.messages.size(), kept.size());
        EXPECT_TRUE(rcv.messages == kept);
    }
    EXPECT_EQ(rcv.closed, 0);
    EXPECT_EQ(brd.receivers(), 2);
    EXPECT_TRUE(brd.errors.empty());
}

TEST_F(Shbf, LagOfMixedSizesIsTheirSum)
{
    Loop loop, slow;
    Broadcaster brd(path);
    ASSERT_EQ(brd.start(loop), 0);
    Receiver rcv(slow, path);
    ASSERT_TRUE(meet(loop, rcv, &slow));
    EXPECT_EQ(brd.send(std::string(4 * MB - 100, 'a')), 0);
    EXPECT_EQ(brd.send(std::string(101, 'b')), 0); // one byte too many
    EXPECT_EQ(brd.send(std::string(60, 'c')), 0);
    EXPECT_EQ(brd.send(std::string(41, 'd')), 0); // the same
    EXPECT_EQ(brd.send(std::string(40, 'e')), 0);
    EXPECT_EQ(brd.send("f"), 0);
    EXPECT_EQ(brd.send(""), 0); // has no bytes to be too many
    slow.run_ready();
    std::string got;
    for (const std::string &text : rcv.messages)
        got += text.empty() ? '0' : text[0];
    EXPECT_EQ(got, "ace0");
}

TEST_F(Shbf, EachMessageReadMakesRoomForOne)
{
    Loop loop, slow;
    Broadcaster brd(path);
    ASSERT_EQ(brd.start(loop), 0);
    Receiver rcv(slow, path);
    ASSERT_TRUE(meet(loop, rcv, &slow));
    for (uint32_t i = 0; i < 64; i++)
        EXPECT_EQ(brd.send(numbered(13, i)), 0);
    // While the first one is being handed out, it alone is read: of two more, one finds room.
    bool sent = false;
    rcv.on_data = [&] {
        if (!sent) {
            EXPECT_EQ(brd.send("fits"), 0);
            EXPECT_EQ(brd.send("lost"), 0);
        }
        sent = true;
    };
    slow.run_ready();
    ASSERT_EQ(rcv.messages.size(), 65u);
    EXPECT_EQ(rcv.messages[63], numbered(13, 63));
    EXPECT_EQ(rcv.messages[64], "fits");
}

// ---- Coming, going, coming back ---------------------------------------------------------------------------

double seconds_since(std::chrono::steady_clock::time_point start)
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

// The best of a few rounds: a busy machine may delay some, a wrong rhythm delays all.
TEST_F(Shbf, LaterBroadcasterIsFoundWithin200Milliseconds)
{
    Loop loop;
    double best = 1e9;
    Receiver rcv(loop, path);
    EXPECT_FALSE(rcv.connected());
    EXPECT_LT(rcv.send("x"), 0);
    for (int round = 0; round < 5; round++) {
        Broadcaster brd(path);
        ASSERT_EQ(brd.start(loop), 0);
        const auto start = std::chrono::steady_clock::now();
        ASSERT_TRUE(meet(loop, rcv));
        best = std::min(best, seconds_since(start));
        EXPECT_EQ(brd.receivers(), 1);
        EXPECT_EQ(rcv.send("x"), 0);
        EXPECT_EQ(rcv.closed, round);
        brd.destroy();
        ASSERT_TRUE(loop.run_until([&] { return !rcv.connected(); }));
        EXPECT_EQ(rcv.closed, round + 1); // once for each loss
        EXPECT_LT(rcv.send("x"), 0);
    }
    EXPECT_LT(best, 0.2);
}

TEST_F(Shbf, FolderThatIsNotThereIsMadeByTheBroadcaster)
{
    Loop loop;
    std::filesystem::remove_all(root + "/run");
    Receiver rcv(loop, path);
    Receiver deep(loop, "/run/a/b/c");
    loop.run_ready();
    EXPECT_NE(access((root + "/run").c_str(), F_OK), 0); // a receiver makes nothing
    Broadcaster brd(path), brd_deep("/run/a/b/c");
    ASSERT_EQ(brd.start(loop), 0);
    ASSERT_EQ(brd_deep.start(loop), 0);
    EXPECT_TRUE(meet(loop, rcv));
    EXPECT_TRUE(meet(loop, deep));
}

TEST_F(Shbf, EverythingSentBeforeAnOrderlyEndArrivesBeforeClosed)
{
    Loop loop, slow;
    Receiver rcv(slow, path);
    {
        Broadcaster brd(path);
        ASSERT_EQ(brd.start(loop), 0);
        ASSERT_TRUE(meet(loop, rcv, &slow));
        EXPECT_EQ(rcv.send("not read by anyone"), 0);
        for (uint32_t i = 0; i < 64; i++)
            EXPECT_EQ(brd.send(numbered(13, i)), 0);
    }
    rcv.on_data = [&] { EXPECT_EQ(rcv.closed, 0); };
    ASSERT_TRUE(slow.run_until([&] { return rcv.closed > 0; }));
    EXPECT_EQ(rcv.messages.size(), 64u);
    EXPECT_EQ(rcv.closed, 1);
}

TEST_F(Shbf, LastWordsOfAReceiverArrive)
{
    Loop loop;
    Broadcaster brd(path);
    ASSERT_EQ(brd.start(loop), 0);
    Receiver rcv(loop, path);
    ASSERT_TRUE(meet(loop, rcv));
    EXPECT_EQ(brd.send("not read"), 0);
    EXPECT_EQ(rcv.send("last"), 0);
    EXPECT_EQ(rcv.send("words"), 0);
    rcv.destroy();
    ASSERT_TRUE(loop.run_until([&] { return brd.receivers() == 0; }));
    EXPECT_EQ(brd.messages, (std::vector<std::string>{"last", "words"}));
    EXPECT_TRUE(brd.errors.empty());
}

// A process that connects and is then killed, reading or not.
TEST_F(Shbf, KilledReceiverHarmsNobody)
{
    for (const bool reads : {true, false}) {
        const pid_t child = spawn([&] {
            Loop loop;
            Receiver rcv(loop, path);
            loop.run_until([&] { return rcv.connected(); });
            rcv.send("here");
            loop.run_until([&] { return !reads; });
            pause();
            return 0;
        });
        Loop loop;
        Broadcaster brd(path);
        ASSERT_EQ(brd.start(loop), 0);
        Receiver rcv(loop, path);
        ASSERT_TRUE(loop.run_until([&] { return brd.receivers() == 2 && brd.messages.size() == 1; }));
        uint32_t number = 0;
        const auto exchange = [&](int count) {
            for (int i = 0; i < count; i++) {
                const std::string text = numbered(i % 2 ? 13 : 92224, number++);
                EXPECT_EQ(brd.send(text), 0);
                if (!loop.run_until([&] { return rcv.messages.size() == number; }) ||
                    rcv.messages.back() != text)
                    return false;
            }
            return true;
        };
        ASSERT_TRUE(exchange(100));
        ASSERT_EQ(kill(child, SIGKILL), 0);
        ASSERT_EQ(status_of(child), -1);
        // Sent before the loop can know of it.
        for (int i = 0; i < 5; i++)
            EXPECT_EQ(brd.send("into the dark"), 0);
        number += 5;
        ASSERT_TRUE(loop.run_until([&] { return rcv.messages.size() == number; }));
        ASSERT_TRUE(exchange(10));
        ASSERT_TRUE(loop.run_until([&] { return brd.receivers() == 1; }));
        EXPECT_EQ(rcv.closed, 0);
        EXPECT_TRUE(brd.errors.empty());
    }
}

TEST_F(Shbf, StoppedReceiverLosesItsOwnMessagesOnly)
{
    const pid_t child = spawn([&] {
        Loop loop;
        Receiver rcv(loop, path);
        rcv.on_data = [&] {
            if (rcv.messages.back() == "stop") {
                raise(SIGSTOP);
                return;
            }
            if (rcv.messages.back() == "report")
                rcv.send(std::to_string(rcv.messages.size()));
        };
        loop.run_until([] { return false; }, std::chrono::minutes(5));
        return 0;
    });
    Loop loop;
    Broadcaster brd(path);
    ASSERT_EQ(brd.start(loop), 0);
    Receiver rcv(loop, path);
    ASSERT_TRUE(loop.run_until([&] { return brd.receivers() == 2; }));
    EXPECT_EQ(brd.send("stop"), 0);
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, WUNTRACED), child);
    ASSERT_TRUE(WIFSTOPPED(status));
    for (uint32_t i = 0; i < 500; i++) {
        EXPECT_EQ(brd.send(numbered(13, i)), 0);
        ASSERT_TRUE(loop.run_until([&] { return rcv.messages.size() == i + 2; }));
    }
    ASSERT_EQ(kill(child, SIGCONT), 0);
    // It reads what it was left, and from then on is as good as any.
    ASSERT_TRUE(loop.run_until([&] {
        EXPECT_EQ(brd.send("report"), 0);
        return !brd.messages.empty();
    }));
    EXPECT_EQ(brd.messages[0], std::to_string(1 + 64 + 1)); // "stop", the first 64, this report
    kill(child, SIGKILL);
    status_of(child);
}

// ---- Whose path it is -------------------------------------------------------------------------------------

TEST_F(Shbf, LivingBroadcasterKeepsItsPath)
{
    Loop loop;
    Broadcaster brd(path);
    ASSERT_EQ(brd.start(loop), 0);
    EXPECT_LT(brd.start(loop), 0); // it has started already
    Receiver rcv(loop, path);
    ASSERT_TRUE(meet(loop, rcv));
    for (int i = 0; i < 3; i++) {
        Broadcaster second(path);
        EXPECT_EQ(second.start(loop), -EADDRINUSE);
        EXPECT_LT(second.send("x"), 0);
    }
    EXPECT_EQ(status_of(spawn([&] {
                  // The parent's own broadcaster came along with the fork; only another one counts here.
                  Loop own;
                  return shbfev_brd_start(own.ev, shbfev_brd_create(path)) == -EADDRINUSE ? 0 : 1;
              })),
              0);
    Receiver late(loop, path);
    ASSERT_TRUE(meet(loop, late));
    EXPECT_EQ(brd.send("alive"), 0);
    ASSERT_TRUE(loop.run_until([&] { return rcv.messages.size() == 1 && late.messages.size() == 1; }));
    EXPECT_EQ(rcv.closed, 0);
    // A start that failed can be tried again.
    Broadcaster heir(path);
    EXPECT_EQ(heir.start(loop), -EADDRINUSE);
    brd.destroy();
    EXPECT_EQ(heir.start(loop), 0);
    ASSERT_TRUE(loop.run_until([&] { return rcv.closed == 1 && rcv.connected(); }));
}

TEST_F(Shbf, PathIsGoneAfterDestroy)
{
    Loop loop;
    Broadcaster brd(path);
    ASSERT_EQ(brd.start(loop), 0);
    EXPECT_EQ(access((root + path).c_str(), F_OK), 0);
    brd.destroy();
    EXPECT_NE(access((root + path).c_str(), F_OK), 0);
}

// A broadcaster that was killed leaves its path; another takes it over, and its receivers find the new one.
TEST_F(Shbf, DeadBroadcastersPathIsTakenOver)
{
    int ready[2];
    ASSERT_EQ(pipe(ready), 0);
    const pid_t child = spawn([&] {
        Loop loop;
        Broadcaster brd(path);
        if (brd.start(loop) != 0 || write(ready[1], "r", 1) != 1)
            return 1;
        loop.run_until([&] { return brd.receivers() == 1; });
        brd.send("from the first");
        loop.run_until([] { return false; }, std::chrono::minutes(5));
        return 0;
    });
    char byte;
    ASSERT_EQ(read(ready[0], &byte, 1), 1);
    Loop loop;
    Receiver rcv(loop, path);
    ASSERT_TRUE(loop.run_until([&] { return rcv.messages.size() == 1; }));
    Broadcaster brd(path);
    EXPECT_EQ(brd.start(loop), -EADDRINUSE);
    ASSERT_EQ(kill(child, SIGKILL), 0);
    ASSERT_EQ(status_of(child), -1);
    ASSERT_TRUE(loop.run_until([&] { return rcv.closed == 1; }));
    EXPECT_EQ(access((root + path).c_str(), F_OK), 0); // left behind
    ASSERT_EQ(brd.start(loop), 0);
    ASSERT_TRUE(meet(loop, rcv));
    EXPECT_EQ(brd.send("from the second"), 0);
    ASSERT_TRUE(loop.run_until([&] { return rcv.messages.size() == 2; }));
    EXPECT_EQ(rcv.messages[1], "from the second");
    EXPECT_EQ(rcv.closed, 1);
    close(ready[0]);
    close(ready[1]);
}

TEST_F(Shbf, SomethingElseAtThePathIsLeftAlone)
{
    Loop loop;
    std::ofstream(root + path) << "precious";
    Broadcaster brd(path);
    EXPECT_LT(brd.start(loop), 0);
    std::string text;
    std::ifstream(root + path) >> text;
    EXPECT_EQ(text, "precious");
    ASSERT_EQ(unlink((root + path).c_str()), 0);
    EXPECT_EQ(brd.start(loop), 0);
}

// Several processes start at the same moment on a path that a dead one left: one wins, and stays reachable.
TEST_F(Shbf, OfManyThatStartAtOnceOneWins)
{
    const int processes = 6;
    for (int round = 0; round < 10; round++) {
        int go[2], result[2], over[2];
        ASSERT_TRUE(pipe(go) == 0 && pipe(result) == 0 && pipe(over) == 0);
        std::vector<pid_t> children;
        for (int i = 0; i < processes; i++)
            children.push_back(spawn([&] {
                close(go[1]);
                close(over[1]);
                Loop loop;
                Broadcaster brd(path);
                char byte;
                if (read(go[0], &byte, 1) != 0) // ends when the parent opens the gate for all
                    return 1;
                const char won = brd.start(loop) == 0 ? 'w' : 'l';
                if (write(result[1], &won, 1) != 1)
                    return 1;
                if (won == 'w')
                    loop.run_until([&] { return !brd.messages.empty(); });
                (void)!read(over[0], &byte, 1);
                _exit(won == 'w' && brd.messages.empty() ? 1 : 0); // without a destroy: the path stays behind
            }));
        close(go[0]);
        close(go[1]);
        std::string outcomes(processes, '?');
        for (char &outcome : outcomes)
            ASSERT_EQ(read(result[0], &outcome, 1), 1);
        EXPECT_EQ(std::count(outcomes.begin(), outcomes.end(), 'w'), 1) << outcomes;
        Loop loop;
        Receiver rcv(loop, path);
        ASSERT_TRUE(meet(loop, rcv));
        EXPECT_EQ(rcv.send("found"), 0);
        close(over[1]);
        for (const pid_t child : children)
            EXPECT_EQ(status_of(child), 0);
        close(over[0]);
        close(result[0]);
        close(result[1]);
    }
}

// ---- Other users ------------------------------------------------------------------------------------------

const uid_t stranger = 54321;

mode_t mode_of(const char *channel)
{
    struct stat status = {};
    return lstat((root + channel).c_str(), &status) == 0 ? status.st_mode & 07777 : 0;
}

TEST_F(Shbf, SocketIsItsUsersOwnWhateverTheUmask)
{
    Loop loop;
    for (const mode_t mask : {0, 022, 0177}) {
        const mode_t before = umask(mask);
        Broadcaster brd(path);
        const int result = brd.start(loop);
        umask(before);
        ASSERT_EQ(result, 0);
        EXPECT_EQ(mode_of(path), 0600u);
    }
    setenv("NARO_SHBF_ALLOW_UID", "54321", 1);
    const mode_t before = umask(077);
    Broadcaster brd(path);
    ASSERT_EQ(brd.start(loop), 0);
    umask(before);
    EXPECT_EQ(mode_of(path), 0666u);
    unsetenv("NARO_SHBF_ALLOW_UID");
}

// Whether a process of another user gets through to a broadcaster here, and back: 0 = yes, 1 = no.
int serve_stranger(const char *allow)
{
    int gate[2];
    EXPECT_EQ(pipe(gate), 0);
    const pid_t child = spawn([&] {
        char byte;
        if (read(gate[0], &byte, 1) != 1 || setgid(stranger) != 0 || setuid(stranger) != 0)
            return 2;
        setenv("NARO_SHBF_ALLOW_UID", "0", 1); // he himself has nothing against us
        Loop loop;
        Receiver rcv(loop, path);
        if (!loop.run_until([&] { return rcv.connected(); }, std::chrono::milliseconds(400)))
            return 1;
        rcv.send("hello");
        return loop.run_until([&] { return rcv.messages.size() == 1; }) ? 0 : 3;
    });
    if (allow)
        setenv("NARO_SHBF_ALLOW_UID", allow, 1);
    else
        unsetenv("NARO_SHBF_ALLOW_UID");
    Loop loop;
    Broadcaster brd(path);
    EXPECT_EQ(brd.start(loop), 0);
    EXPECT_EQ(chmod((root + path).c_str(), 0666), 0); // the door alone is not to be what keeps him out
    EXPECT_EQ(write(gate[1], "g", 1), 1);
    int status = 0;
    loop.run_until([&] {
        if (!brd.messages.empty())
            brd.send("welcome");
        return waitpid(child, &status, WNOHANG) == child;
    });
    close(gate[0]);
    close(gate[1]);
    if (!WIFEXITED(status))
        return -1;
    if (WEXITSTATUS(status) == 1) {
        EXPECT_TRUE(brd.messages.empty());
        EXPECT_FALSE(brd.errors.empty());
        for (const auto &error : brd.errors)
            EXPECT_EQ(error, (std::pair<int, int>{EACCES, EACCES}));
    }
    return WEXITSTATUS(status);
}

TEST_F(Shbf, ReceiverOfAnotherUserNeedsPermission)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "needs root, to become another user";
    EXPECT_EQ(serve_stranger(nullptr), 1);
    EXPECT_EQ(serve_stranger("54322,5432,543210,x"), 1);
    EXPECT_EQ(serve_stranger("1,54321"), 0);
    EXPECT_EQ(serve_stranger("any"), 0);
}

TEST_F(Shbf, BroadcasterOfAnotherUserNeedsPermission)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "needs root, to become another user";
    ASSERT_EQ(chmod((root + "/run").c_str(), 0777), 0);
    const char his[] = "/run/strangers";
    int over[2];
    ASSERT_EQ(pipe(over), 0);
    const pid_t child = spawn([&] {
        close(over[1]);
        if (setgid(stranger) != 0 || setuid(stranger) != 0)
            return 2;
        setenv("NARO_SHBF_ALLOW_UID", "any", 1);
        Loop loop;
        Broadcaster brd(his);
        if (brd.start(loop) != 0)
            return 3;
        const auto is_over = [&] {
            struct pollfd end = {over[0], POLLIN, 0};
            return poll(&end, 1, 0) == 1;
        };
        return loop.run_until(is_over, std::chrono::minutes(5)) ? 0 : 4;
    });
    close(over[0]);
    Loop loop;
    {
        Receiver rcv(loop, his);
        ASSERT_TRUE(loop.run_until([&] { return access((root + his).c_str(), F_OK) == 0; }));
        EXPECT_FALSE(loop.run_until([&] { return rcv.connected(); }, std::chrono::milliseconds(400)));
        EXPECT_EQ(rcv.closed, 0);
    }
    setenv("NARO_SHBF_ALLOW_UID", "54321", 1);
    Receiver rcv(loop, his);
    EXPECT_TRUE(meet(loop, rcv));
    close(over[1]);
    EXPECT_EQ(status_of(child), 0);
}

// ---- Upstream ---------------------------------------------------------------------------------------------

TEST_F(Shbf, UpstreamIsRefusedWhenTheBroadcasterDoesNotRead)
{
    Loop loop, other;
    Broadcaster brd(path);
    ASSERT_EQ(brd.start(loop), 0);
    Receiver rcv(other, path);
    ASSERT_TRUE(meet(loop, rcv, &other));
    size_t taken = 0;
    while (taken < 100000 && rcv.send("rawcap") == 0)
        taken++;
    EXPECT_GE(taken, 64u);
    EXPECT_LT(taken, 100000u);
    ASSERT_TRUE(loop.run_until([&] { return brd.messages.size() == taken; }));
    EXPECT_EQ(rcv.send("again"), 0);
    ASSERT_TRUE(loop.run_until([&] { return brd.messages.size() == taken + 1; }));
    EXPECT_EQ(brd.messages.back(), "again");
}

TEST_F(Shbf, WithoutCallbacksMessagesAreDropped)
{
    Loop loop;
    void *brd = shbfev_brd_create(path);
    ASSERT_EQ(shbfev_brd_start(loop.ev, brd), 0);
    void *rcv = shbfev_rcv_create(loop.ev, path);
    ASSERT_EQ(shbfev_rcv_start(rcv), 0);
    EXPECT_LT(shbfev_rcv_start(rcv), 0); // it has started already
    ASSERT_TRUE(loop.run_until([&] { return shbfev_rcv_connected(rcv) == 1; }));
    const std::string large(MB, 'x');
    EXPECT_EQ(shbfev_brd_broadcast_message(brd, large.data(), large.size()), 0);
    EXPECT_EQ(shbfev_brd_broadcast_message(brd, "x", 1), 0);
    EXPECT_EQ(shbfev_rcv_send_message(rcv, "x", 1), 0);
    loop.run_ready();
    EXPECT_EQ(shbfev_rcv_connected(rcv), 1);
    shbfev_brd_destroy(brd);
    ASSERT_TRUE(loop.run_until([&] { return shbfev_rcv_connected(rcv) == 0; }));
    shbfev_rcv_destroy(rcv);
}

// ---- Ends inside callbacks --------------------------------------------------------------------------------

TEST_F(Shbf, ReceiverMayBeDestroyedInItsCallbacks)
{
    static void *handle;
    static int calls;
    for (const int event : {SHBFEV_RCV_DATA, SHBFEV_RCV_CLOSED}) {
        calls = 0;
        Loop loop;
        Broadcaster brd(path);
        ASSERT_EQ(brd.start(loop), 0);
        handle = shbfev_rcv_create(loop.ev, path);
        shbfev_rcv_register(
            handle, event,
            [](void *, void *buffer) {
                calls++;
                shbf_free(buffer);
                shbfev_rcv_destroy(handle);
                return 0;
            },
            nullptr);
        ASSERT_EQ(shbfev_rcv_start(handle), 0);
        ASSERT_TRUE(loop.run_until([&] { return brd.receivers() == 1; }));
        brd.send("one");
        brd.send("two");
        if (event == SHBFEV_RCV_CLOSED) {
            loop.run_ready();
            brd.destroy();
        }
        ASSERT_TRUE(loop.run_until([&] { return calls > 0; }));
        loop.run_ready();
        EXPECT_EQ(calls, 1);
    }
}

TEST_F(Shbf, BroadcasterMayBeDestroyedInItsCallback)
{
    static void *handle;
    static int calls;
    Loop loop;
    handle = shbfev_brd_create(path);
    shbfev_brd_on_message(
        handle,
        [](void *, const void *, size_t) {
            calls++;
            shbfev_brd_destroy(handle);
            return 0;
        },
        nullptr);
    ASSERT_EQ(shbfev_brd_start(loop.ev, handle), 0);
    Receiver one(loop, path), two(loop, path);
    ASSERT_TRUE(meet(loop, one) && meet(loop, two));
    one.send("one");
    one.send("two");
    two.send("three");
    ASSERT_TRUE(loop.run_until([&] { return one.closed == 1 && two.closed == 1; }));
    EXPECT_EQ(calls, 1);
}

// ---- Threads ----------------------------------------------------------------------------------------------

// Eight threads send, receivers come and go meanwhile, and one that stays gets everything in each thread's
// order.
TEST_F(Shbf, EightThreadsBroadcast)
{
    const int threads = 8, rounds = 150, a_round = 8; // 64 messages in flight at most
    Loop loop;
    Broadcaster brd(path);
    ASSERT_EQ(brd.start(loop), 0);
    Receiver rcv(loop, path);
    ASSERT_TRUE(meet(loop, rcv));
    std::vector<std::thread> senders;
    std::vector<sem_t> go(threads);
    for (int t = 0; t < threads; t++) {
        sem_init(&go[t], 0, 0);
        senders.emplace_back([&, t] {
            for (uint32_t round = 0; round < rounds; round++) {
                while (sem_wait(&go[t]) != 0) {
                }
                for (uint32_t i = 0; i < a_round; i++) {
                    // Sizes that go each way there is, within 4 MB for a round.
                    const size_t length = t == 0 && i == 0 ? 200000 : t == 1 ? 20000 : 13;
                    std::string text = numbered(length, round * a_round + i);
                    text[4] = static_cast<char>(t);
                    EXPECT_EQ(brd.send(text), 0);
                    EXPECT_GE(brd.receivers(), 1);
                }
            }
        });
    }
    std::atomic<bool> over{false};
    std::thread visitors([&] {
        while (!over) {
            Loop own;
            Receiver visitor(own, path);
            own.run_until([&] { return visitor.messages.size() >= 3 || over; });
            visitor.send("bye");
        }
    });
    std::vector<uint32_t> next(threads, 0);
    for (int round = 0; round < rounds; round++) {
        for (sem_t &gate : go)
            sem_post(&gate);
        ASSERT_TRUE(loop.run_until([&] { return rcv.messages.size() == size_t{threads} * a_round; }));
        for (const std::string &text : rcv.messages) {
            uint32_t number;
            memcpy(&number, text.data(), sizeof number);
            const size_t t = static_cast<size_t>(text[4]);
            ASSERT_LT(t, next.size());
            EXPECT_EQ(number, next[t]++);
        }
        rcv.messages.clear();
    }
    over = true;
    visitors.join();
    for (std::thread &sender : senders)
        sender.join();
    for (sem_t &gate : go)
        sem_destroy(&gate);
    EXPECT_TRUE(brd.errors.empty());
    EXPECT_EQ(rcv.closed, 0);
}

// Both ends used from other threads while the broadcaster vanishes and returns.
TEST_F(Shbf, UpstreamFromThreadsWhileConnectionsBreak)
{
    Loop loop;
    Receiver rcv(loop, path);
    std::atomic<bool> over{false};
    std::atomic<size_t> accepted{0};
    std::vector<std::thread> senders;
    for (int t = 0; t < 4; t++)
        senders.emplace_back([&] {
            while (!over) {
                if (rcv.send("rawcap") == 0)
                    accepted++;
                (void)rcv.connected();
                std::this_thread::yield();
            }
        });
    size_t arrived = 0;
    for (int round = 0; round < 5; round++) {
        Broadcaster brd(path);
        ASSERT_EQ(brd.start(loop), 0);
        ASSERT_TRUE(loop.run_until([&] { return brd.messages.size() >= 20; }));
        arrived += brd.messages.size();
        for (const std::string &text : brd.messages)
            EXPECT_EQ(text, "rawcap");
        brd.destroy();
        ASSERT_TRUE(loop.run_until([&] { return rcv.closed == round + 1; }));
    }
    over = true;
    for (std::thread &sender : senders)
        sender.join();
    EXPECT_LE(arrived, accepted.load());
}

// Threads go on broadcasting while the default loop ends, and after: what is connected is still served.
TEST_F(Shbf, BroadcastAfterTheLoopIsGone)
{
    Loop mine{Loop::Default{}};
    Loop other;
    Broadcaster brd(path);
    ASSERT_EQ(brd.start(mine), 0);
    Receiver rcv(other, path), lagging(other, path), here(mine, path);
    Loop asleep;
    Receiver sleeper(asleep, path);
    ASSERT_TRUE(meet(mine, rcv, &other) && meet(mine, lagging, &other) && meet(mine, here));
    ASSERT_TRUE(meet(mine, sleeper, &asleep));
    std::atomic<bool> over{false};
    std::atomic<int> sent{0};
    std::vector<std::thread> senders;
    for (int t = 0; t < 4; t++)
        senders.emplace_back([&] {
            while (!over) {
                EXPECT_EQ(brd.send("tick"), 0);
                sent++;
                std::this_thread::yield();
            }
        });
    ASSERT_TRUE(mine.run_until([&] { return sent > 100; }));
    here.destroy();
    mine.end();
    const int before = sent;
    ASSERT_TRUE(other.run_until([&] { return sent > before + 1000; }));
    over = true;
    for (std::thread &sender : senders)
        sender.join();
    other.run_ready();
    rcv.messages.clear();
    EXPECT_EQ(brd.send("last"), 0);
    ASSERT_TRUE(other.run_until([&] { return !rcv.messages.empty(); }));
    EXPECT_EQ(rcv.messages.back(), "last");
    lagging.destroy();
    EXPECT_EQ(brd.send("to one less"), 0); // one has left, and no loop knows
    EXPECT_EQ(brd.send("to one less"), 0);
    ASSERT_TRUE(other.run_until([&] { return rcv.messages.size() == 3; }));
    brd.destroy();
    ASSERT_TRUE(other.run_until([&] { return rcv.closed == 1; }));
}

TEST_F(Shbf, ReceiverAfterTheLoopIsGone)
{
    Loop mine, other;
    Broadcaster brd(path);
    ASSERT_EQ(brd.start(other), 0);
    Receiver rcv(mine, path), never_started(mine, path, false);
    ASSERT_TRUE(meet(other, rcv, &mine));
    mine.end();
    EXPECT_FALSE(rcv.connected());
    EXPECT_LT(rcv.send("x"), 0);
    EXPECT_LT(shbfev_rcv_start(never_started.handle), 0);
    EXPECT_EQ(rcv.closed, 0); // its own end is no loss of the broadcaster
    ASSERT_TRUE(other.run_until([&] { return brd.receivers() == 0; }));
}

TEST_F(Shbf, CancelledThreadFinishesItsSend)
{
    Loop loop;
    Broadcaster brd(path);
    ASSERT_EQ(brd.start(loop), 0);
    Receiver rcv(loop, path);
    ASSERT_TRUE(meet(loop, rcv));
    struct Both {
        Broadcaster *brd;
        Receiver *rcv;
        std::atomic<bool> survived;
    } both = {&brd, &rcv, {false}};
    pthread_t thread;
    ASSERT_EQ(pthread_create(
                  &thread, nullptr,
                  [](void *context) -> void * {
                      Both *ends = static_cast<Both *>(context);
                      pthread_cancel(pthread_self()); // will strike at the next cancellation point
                      static const char large[200000] = "large";
                      shbfev_brd_broadcast_message(ends->brd->handle, "small", 5);
                      shbfev_brd_broadcast_message(ends->brd->handle, large, sizeof large);
                      shbfev_rcv_send_message(ends->rcv->handle, "up", 2);
                      shbfev_rcv_send_message(ends->rcv->handle, large, sizeof large);
                      (void)shbfev_brd_receivers(ends->brd->handle);
                      (void)shbfev_rcv_connected(ends->rcv->handle);
                      ends->survived = true;
                      pthread_testcancel();
                      return nullptr;
                  },
                  &both),
              0);
    void *result = nullptr;
    ASSERT_EQ(pthread_join(thread, &result), 0);
    EXPECT_TRUE(both.survived);
    EXPECT_EQ(result, PTHREAD_CANCELED);
    ASSERT_TRUE(loop.run_until([&] { return rcv.messages.size() == 2 && brd.messages.size() == 2; }));
    EXPECT_EQ(brd.send("not locked out"), 0);
    EXPECT_EQ(rcv.send("not locked out"), 0);
}

// ---- What is left over ------------------------------------------------------------------------------------

// A sanitizer makes each round many times as long, and watches memory by itself.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
const int many = 2000;
#else
const int many = 10000;
#endif

TEST_F(Shbf, DescriptorsCloseOnExec)
{
    const std::set<int> before = open_descriptors();
    Loop loop;
    const std::set<int> of_loop = open_descriptors();
    Broadcaster brd(path);
    ASSERT_EQ(brd.start(loop), 0);
    Receiver rcv(loop, path), lost(loop, "/run/nobody");
    ASSERT_TRUE(meet(loop, rcv));
    size_t ours = 0;
    for (const int fd : open_descriptors()) {
        if (before.count(fd) || of_loop.count(fd))
            continue;
        ours++;
        EXPECT_EQ(fcntl(fd, F_GETFD) & FD_CLOEXEC, FD_CLOEXEC) << fd;
    }
    EXPECT_GE(ours, 3u); // the broadcaster's, and both ends of the connection
}

TEST_F(Shbf, ManyConnectionsLeaveNothing)
{
    Loop loop;
    std::set<int> before;
    size_t mapped = 0;
    Broadcaster brd(path);
    ASSERT_EQ(brd.start(loop), 0);
    for (int i = 0; i < many; i++) {
        Receiver rcv(loop, path);
        ASSERT_TRUE(meet(loop, rcv));
        if (i % 3 == 0) {
            EXPECT_EQ(brd.send("unread"), 0);
        }
        if (i % 5 == 0) {
            EXPECT_EQ(rcv.send("rawcap"), 0);
        }
        rcv.destroy();
        ASSERT_TRUE(loop.run_until([&] { return brd.receivers() == 0; }));
        if (i == 10) {
            before = open_descriptors();
            mapped = mapped_memory_files();
        }
    }
    EXPECT_EQ(open_descriptors(), before);
    EXPECT_EQ(mapped_memory_files(), mapped);
    EXPECT_TRUE(brd.errors.empty());
}

TEST_F(Shbf, ManyMessagesLeaveNothing)
{
    Loop loop, slow;
    Broadcaster brd(path);
    ASSERT_EQ(brd.start(loop), 0);
    Receiver rcv(loop, path), sleeper(slow, path);
    ASSERT_TRUE(meet(loop, rcv) && meet(loop, sleeper, &slow));
    std::set<int> before;
    size_t mapped = 0;
    const std::string sizes[] = {std::string(13, 'a'), std::string(92224, 'b'), std::string(150000, 'c')};
    for (int i = 0; i < many; i++) {
        const std::string &text = sizes[i % 3];
        EXPECT_EQ(brd.send(text), 0);
        ASSERT_TRUE(loop.run_until([&] { return rcv.messages.size() == 1; }));
        EXPECT_TRUE(rcv.messages[0] == text);
        rcv.messages.clear();
        if (i % 100 == 50) {
            slow.run_ready();
            sleeper.messages.clear();
        }
        if (i == 1050) {
            before = open_descriptors();
            mapped = mapped_memory_files();
        }
    }
    slow.run_ready();
    EXPECT_EQ(open_descriptors(), before);
    EXPECT_EQ(mapped_memory_files(), mapped);
    EXPECT_TRUE(brd.errors.empty());
}

} // namespace
