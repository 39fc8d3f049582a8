// The command channel on a real socket, with the test as the media server.
#include "naro_ipc.h"

#include <algorithm>
#include <atomic>
#include <dirent.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <signal.h>
#include <sys/resource.h>
#include <thread>

#include "fake_clock.h"
#include "log_capture.h"
#include "media_server.h"

using Lines = std::vector<LogCapture::Line>;
using testing::Each;
using testing::ElementsAre;

namespace
{

const char refused[] = "[naro_ipc_server_connect]connect error, errno=111\r\n"; // ECONNREFUSED

std::vector<int> connect_errors; // the next attempts to connect fail with these

std::vector<int> open_descriptors()
{
    std::vector<int> result;
    DIR *folder = opendir("/proc/self/fd");
    while (const dirent *entry = readdir(folder)) {
        const int fd = atoi(entry->d_name);
        if (entry->d_name[0] != '.' && fd != dirfd(folder))
            result.push_back(fd);
    }
    closedir(folder);
    std::sort(result.begin(), result.end());
    return result;
}

extern "C" {
int __real_connect(int fd, const sockaddr *address, socklen_t length);
int __wrap_connect(int fd, const sockaddr *address, socklen_t length)
{
    if (connect_errors.empty())
        return __real_connect(fd, address, length);
    errno = connect_errors.front();
    connect_errors.erase(connect_errors.begin());
    return -1;
}
}

class Ipc : public testing::Test
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
    }
    // The module's own descriptor.
    static int connected_descriptor()
    {
        for (int fd : open_descriptors()) {
            sockaddr_un address = {};
            socklen_t length = sizeof address;
            if (getpeername(fd, reinterpret_cast<sockaddr *>(&address), &length) == 0 &&
                length == sizeof address && address.sun_path[1] == 'n')
                return fd;
        }
        return -1;
    }
    std::vector<std::string> errors() const { return log.texts(NARO_LOG_ERR); }

    static bool alone;
    LogCapture log;
    FakeClock clock;
};
bool Ipc::alone = false;

// ---- Connecting

TEST_F(Ipc, WithoutAConnectionNothingMoves)
{
    char buffer[4] = {};
    EXPECT_EQ(naro_ipc_cmd_snd("text", 4), -1);
    EXPECT_EQ(naro_ipc_cmd_rcv(buffer, 4), -1);
    EXPECT_EQ(log.lines(), (Lines{{NARO_LOG_ERR, "not connect to ipc server\r\n"},
                                  {NARO_LOG_ERR, "not connect to ipc server\r\n"}}));
    EXPECT_TRUE(clock.sleeps().empty());
}

TEST_F(Ipc, ConnectsToTheServer)
{
    MediaServer server;
    EXPECT_EQ(naro_ipc_server_connect(), 0);
    MediaServer::Peer peer = server.accept();
    ASSERT_TRUE(peer.connected());
    EXPECT_EQ(naro_ipc_cmd_snd("NARO", 4), 0);
    EXPECT_EQ(peer.receive(4), "NARO");
    EXPECT_TRUE(log.lines().empty());
    const int fd = connected_descriptor();
    ASSERT_GE(fd, 0);
    EXPECT_EQ(fcntl(fd, F_GETFD), FD_CLOEXEC);
    int type = 0;
    socklen_t length = sizeof type;
    getsockopt(fd, SOL_SOCKET, SO_TYPE, &type, &length);
    EXPECT_EQ(type, SOCK_STREAM);
}

TEST_F(Ipc, TheNameIsZeroAndThenTheTextAndZerosToTheEnd)
{
    MediaServer server;
    EXPECT_EQ(naro_ipc_server_connect(), 0);
    sockaddr_un address;
    memset(&address, 0xFF, sizeof address);
    socklen_t length = sizeof address;
    ASSERT_EQ(getpeername(connected_descriptor(), reinterpret_cast<sockaddr *>(&address), &length), 0);
    EXPECT_EQ(length, 110u);
    std::string name(108, '\0');
    name.replace(1, 12, "naro_IPCsock");
    EXPECT_EQ(std::string(address.sun_path, sizeof address.sun_path), name);
}

TEST_F(Ipc, AServerOfAShorterNameIsAnother)
{
    MediaServer shorter(sizeof(sa_family_t) + 1 + 12);
    std::unique_ptr<MediaServer> server;
    clock.on_sleep = [&](unsigned) { server = std::make_unique<MediaServer>(); };
    EXPECT_EQ(naro_ipc_server_connect(), 0);
    EXPECT_EQ(errors(), std::vector<std::string>{refused});
    EXPECT_TRUE(shorter.idle());
}

TEST_F(Ipc, WaitsForTheServerAndTellsEveryHalfSecond)
{
    std::unique_ptr<MediaServer> server;
    int tries = 0;
    clock.on_sleep = [&](unsigned) {
        EXPECT_EQ(log.lines().size(), static_cast<size_t>(++tries)); // the line comes before the sleep
        if (tries == 4)
            server = std::make_unique<MediaServer>();
    };
    EXPECT_EQ(naro_ipc_server_connect(), 0);
    EXPECT_EQ(log.lines(), Lines(4, {NARO_LOG_ERR, refused}));
    EXPECT_THAT(clock.sleeps(), ElementsAre(500, 500, 500, 500));
    EXPECT_TRUE(server->accept().connected());
    EXPECT_TRUE(server->idle());
}

TEST_F(Ipc, AfterGivingUpItTriesOnceAndServesWhoIsThere)
{
    const size_t before = open_descriptors().size();
    EXPECT_EQ(naro_ipc_server_give_up(), 0);
    EXPECT_EQ(naro_ipc_server_connect(), -1);
    EXPECT_THAT(errors(), ElementsAre(refused));
    EXPECT_TRUE(clock.sleeps().empty());
    EXPECT_EQ(open_descriptors().size(), before);
    log.clear();
    EXPECT_EQ(naro_ipc_cmd_snd("text", 4), -1);
    EXPECT_THAT(errors(), ElementsAre("not connect to ipc server\r\n"));
    MediaServer server;
    EXPECT_EQ(naro_ipc_server_connect(), 0);
    EXPECT_TRUE(server.accept().connected());
}

TEST_F(Ipc, GivingUpEndsAWaitAndTheCommandThatItIsIn)
{
    {
        MediaServer server;
        ASSERT_EQ(naro_ipc_server_connect(), 0);
    }
    int sleeps = 0;
    clock.on_sleep = [&](unsigned) {
        if (++sleeps == 3)
            naro_ipc_server_give_up();
    };
    log.clear();
    EXPECT_EQ(naro_ipc_cmd_snd("text", 4), -1);
    EXPECT_EQ(sleeps, 3);
    EXPECT_THAT(errors(), ElementsAre(refused, refused, refused, refused, "cmd snd error, wsize = -1\r\n"));
}

TEST_F(Ipc, ADisconnectWhileAConnectGivesUpKeepsItsZero)
{
    clock.on_sleep = [&](unsigned) {
        naro_ipc_server_give_up();
        naro_ipc_server_disconnect();
    };
    EXPECT_EQ(naro_ipc_server_connect(), -1);
    log.clear();
    const int nothing = open("/dev/null", O_RDWR | O_CLOEXEC);
    dup2(nothing, STDIN_FILENO);
    EXPECT_EQ(naro_ipc_cmd_snd("text", 4), 0) << "to the standard input, as after every disconnect";
    EXPECT_THAT(errors(), ElementsAre());
    close(nothing);
}

TEST_F(Ipc, TellsTheErrorOfEachAttempt)
{
    MediaServer server;
    connect_errors = {EINTR, EAGAIN, EACCES};
    EXPECT_EQ(naro_ipc_server_connect(), 0);
    EXPECT_THAT(errors(), ElementsAre("[naro_ipc_server_connect]connect error, errno=4\r\n",
                                      "[naro_ipc_server_connect]connect error, errno=11\r\n",
                                      "[naro_ipc_server_connect]connect error, errno=13\r\n"));
    EXPECT_EQ(clock.sleeps().size(), 3u);
    EXPECT_TRUE(server.accept().connected());
}

TEST_F(Ipc, NoSocketNoConnection)
{
    MediaServer server;
    ASSERT_EQ(naro_ipc_server_connect(), 0);
    MediaServer::Peer peer = server.accept();
    rlimit limit;
    getrlimit(RLIMIT_NOFILE, &limit);
    const rlimit none = {0, limit.rlim_max};
    setrlimit(RLIMIT_NOFILE, &none);
    const int result = naro_ipc_server_connect();
    setrlimit(RLIMIT_NOFILE, &limit);
    EXPECT_EQ(result, -1);
    EXPECT_THAT(errors(), ElementsAre("[naro_ipc_server_connect]socket error\r\n"));
    EXPECT_TRUE(peer.ended());
    log.clear();
    EXPECT_EQ(naro_ipc_cmd_snd("text", 4), -1);
    EXPECT_THAT(errors(), ElementsAre("not connect to ipc server\r\n"));
    EXPECT_TRUE(clock.sleeps().empty());
    // The next one works.
    EXPECT_EQ(naro_ipc_server_connect(), 0);
    EXPECT_TRUE(server.accept().connected());
}

TEST_F(Ipc, AReconnectClosesTheOldDescriptor)
{
    MediaServer server;
    ASSERT_EQ(naro_ipc_server_connect(), 0);
    MediaServer::Peer first = server.accept();
    const size_t before = open_descriptors().size();
    for (int i = 0; i < 5; i++) {
        ASSERT_EQ(naro_ipc_server_connect(), 0);
        EXPECT_TRUE(first.ended());
        first = server.accept();
        EXPECT_EQ(open_descriptors().size(), before);
    }
}

// ---- Disconnecting

TEST_F(Ipc, DisconnectCloses)
{
    MediaServer server;
    ASSERT_EQ(naro_ipc_server_connect(), 0);
    MediaServer::Peer peer = server.accept();
    EXPECT_EQ(naro_ipc_server_disconnect(), 0);
    EXPECT_TRUE(peer.ended());
    EXPECT_EQ(connected_descriptor(), -1);
    EXPECT_TRUE(log.lines().empty());
}

// Deliberate: the descriptor is 0 after a disconnect, not -1, so what is sent then goes to the standard input.
TEST_F(Ipc, AfterADisconnectTheDescriptorIsZero)
{
    int ends[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, ends), 0);
    ASSERT_EQ(dup2(ends[1], 0), 0);
    MediaServer server;
    ASSERT_EQ(naro_ipc_server_connect(), 0);
    EXPECT_EQ(naro_ipc_server_disconnect(), 0);
    EXPECT_EQ(naro_ipc_cmd_snd("text", 4), 0);
    char buffer[5] = {};
    EXPECT_EQ(read(ends[0], buffer, 4), 4);
    EXPECT_STREQ(buffer, "text");
    EXPECT_EQ(write(ends[0], "back", 4), 4);
    EXPECT_EQ(naro_ipc_cmd_rcv(buffer, 4), 0);
    EXPECT_STREQ(buffer, "back");
    // 0 is not ours to close: neither by a second disconnect nor by a new connection.
    EXPECT_EQ(naro_ipc_server_disconnect(), 0);
    EXPECT_GE(fcntl(0, F_GETFD), 0);
    EXPECT_EQ(naro_ipc_server_connect(), 0);
    EXPECT_GE(fcntl(0, F_GETFD), 0);
    EXPECT_TRUE(log.lines().empty());
}

TEST_F(Ipc, TheZeroOfADisconnectIsNotClosedByTheNextConnect)
{
    MediaServer server;
    ASSERT_EQ(naro_ipc_server_connect(), 0);
    naro_ipc_server_disconnect();
    ASSERT_GE(fcntl(STDIN_FILENO, F_GETFD), 0);
    ASSERT_EQ(naro_ipc_server_connect(), 0);
    EXPECT_GE(fcntl(STDIN_FILENO, F_GETFD), 0) << "it is not ours";
}

TEST_F(Ipc, AConnectionMayHaveTheNumberZero)
{
    MediaServer server;
    close(STDIN_FILENO);
    EXPECT_EQ(naro_ipc_server_connect(), 0);
    EXPECT_EQ(connected_descriptor(), 0);
    MediaServer::Peer peer = server.accept();
    EXPECT_EQ(naro_ipc_cmd_snd("text", 4), 0);
    EXPECT_THAT(errors(), ElementsAre());
}

TEST_F(Ipc, DisconnectWithoutAConnection)
{
    const std::vector<int> before = open_descriptors();
    EXPECT_EQ(naro_ipc_server_disconnect(), 0);
    EXPECT_EQ(open_descriptors(), before);
    EXPECT_TRUE(log.lines().empty());
}

// A command waits for its reply, with the lock held: it ends, the lock is free, and the descriptor's number is nobody
// else's meanwhile.
TEST_F(Ipc, DisconnectEndsACommandThatIsUnderWay)
{
    MediaServer server;
    ASSERT_EQ(naro_ipc_server_connect(), 0);
    MediaServer::Peer peer = server.accept();
    // Where it has sent and does not wait yet, it will read the descriptor 0, and find an end as well.
    const int nothing = open("/dev/null", O_RDWR | O_CLOEXEC);
    ASSERT_EQ(dup2(nothing, 0), 0);
    const std::vector<int> before = open_descriptors();
    int sent = -2, received = -2;
    std::thread command([&] {
        char reply[4];
        naro_ipc_lock();
        sent = naro_ipc_cmd_snd("text", 4);
        received = naro_ipc_cmd_rcv(reply, 4);
        naro_ipc_unlock();
    });
    EXPECT_EQ(peer.receive(4), "text");
    EXPECT_EQ(naro_ipc_server_disconnect(), 0);
    command.join();
    EXPECT_EQ(sent, 0);
    EXPECT_EQ(received, -1);
    EXPECT_TRUE(peer.ended());
    EXPECT_EQ(open_descriptors(), before);
    EXPECT_THAT(log.texts(), ElementsAre("cmd rcv error, rsize = 0\r\n"));
    EXPECT_EQ(naro_ipc_lock(), 0);
    EXPECT_EQ(naro_ipc_unlock(), 0);
}

// And afterwards the lock is free: the next command could be another thread's.
TEST_F(Ipc, DisconnectGivesTheLockBack)
{
    MediaServer server;
    ASSERT_EQ(naro_ipc_server_connect(), 0);
    EXPECT_EQ(naro_ipc_server_disconnect(), 0);
    std::thread([] {
        EXPECT_EQ(naro_ipc_lock(), 0);
        EXPECT_EQ(naro_ipc_unlock(), 0);
    }).join();
}

// ---- Sending and receiving

TEST_F(Ipc, MovesExactlyTheBytesGiven)
{
    MediaServer server;
    ASSERT_EQ(naro_ipc_server_connect(), 0);
    MediaServer::Peer peer = server.accept();
    EXPECT_EQ(naro_ipc_cmd_snd("0123456789", 7), 0);
    EXPECT_EQ(peer.receive(7), "0123456");
    EXPECT_TRUE(peer.silent());
    ASSERT_TRUE(peer.send("abcdefgh"));
    char buffer[9] = "........";
    EXPECT_EQ(naro_ipc_cmd_rcv(buffer, 5), 0);
    EXPECT_STREQ(buffer, "abcde...");
    // What is more than expected stays in the stream.
    EXPECT_EQ(naro_ipc_cmd_rcv(buffer, 3), 0);
    EXPECT_STREQ(buffer, "fghde...");
    EXPECT_TRUE(log.lines().empty());
}

TEST_F(Ipc, AShortReplyFailsWithoutAReconnect)
{
    MediaServer server;
    ASSERT_EQ(naro_ipc_server_connect(), 0);
    MediaServer::Peer peer = server.accept();
    ASSERT_TRUE(peer.send("abc"));
    char buffer[8];
    EXPECT_EQ(naro_ipc_cmd_rcv(buffer, 4), -1);
    EXPECT_EQ(log.lines(), (Lines{{NARO_LOG_ERR, "cmd rcv error, rsize = 3\r\n"}}));
    EXPECT_TRUE(server.idle());
    EXPECT_EQ(naro_ipc_cmd_snd("x", 1), 0); // the same connection goes on
    EXPECT_EQ(peer.receive(1), "x");
}

TEST_F(Ipc, TheEndOfTheStreamIsACountOfZeroAndTheNextSendReconnects)
{
    MediaServer server;
    ASSERT_EQ(naro_ipc_server_connect(), 0);
    server.accept().hang_up();
    char buffer[8];
    EXPECT_EQ(naro_ipc_cmd_rcv(buffer, 4), -1);
    EXPECT_THAT(errors(), ElementsAre("cmd rcv error, rsize = 0\r\n"));
    EXPECT_TRUE(server.idle());
    log.clear();
    EXPECT_EQ(naro_ipc_cmd_snd("text", 4), -1);
    EXPECT_EQ(log.lines(), (Lines{{NARO_LOG_ERR, "cmd snd error, wsize = -1\r\n"}}));
    MediaServer::Peer peer = server.accept();
    ASSERT_TRUE(peer.connected());
    EXPECT_TRUE(peer.silent()); // what failed is not sent again
    EXPECT_EQ(naro_ipc_cmd_snd("text", 4), 0);
    EXPECT_EQ(peer.receive(4), "text");
}

// A server that goes with something unread resets the connection.
TEST_F(Ipc, AResetWhileReceivingReconnects)
{
    MediaServer server;
    ASSERT_EQ(naro_ipc_server_connect(), 0);
    MediaServer::Peer peer = server.accept();
    ASSERT_EQ(naro_ipc_cmd_snd("text", 4), 0);
    peer.hang_up();
    char buffer[8];
    EXPECT_EQ(naro_ipc_cmd_rcv(buffer, 4), -1);
    EXPECT_EQ(log.lines(), (Lines{{NARO_LOG_ERR, "cmd rcv error, rsize = -1\r\n"}}));
    peer = server.accept();
    ASSERT_TRUE(peer.connected());
    ASSERT_TRUE(peer.send("text"));
    EXPECT_EQ(naro_ipc_cmd_rcv(buffer, 4), 0);
}

// Sending and receiving both wait for the server to be back, before they tell of the failure.
TEST_F(Ipc, AServerThatIsGoneIsWaitedForInsideTheCommand)
{
    for (const bool receiving : {false, true}) {
        std::unique_ptr<MediaServer> server = std::make_unique<MediaServer>();
        ASSERT_EQ(naro_ipc_server_connect(), 0);
        MediaServer::Peer peer = server->accept();
        ASSERT_EQ(naro_ipc_cmd_snd("unread", 6), 0);
        peer.hang_up();
        server.reset();
        int tries = 0;
        clock.on_sleep = [&](unsigned) {
            if (++tries == 3)
                server = std::make_unique<MediaServer>();
        };
        char buffer[4];
        EXPECT_EQ(receiving ? naro_ipc_cmd_rcv(buffer, 4) : naro_ipc_cmd_snd("text", 4), -1);
        EXPECT_THAT(errors(), ElementsAre(refused, refused, refused,
                                          receiving ? "cmd rcv error, rsize = -1\r\n"
                                                    : "cmd snd error, wsize = -1\r\n"));
        log.clear();
        peer = server->accept();
        EXPECT_EQ(naro_ipc_cmd_snd("text", 4), 0);
        EXPECT_EQ(peer.receive(4), "text");
    }
}

TEST_F(Ipc, AShortWriteIsNotResumed)
{
    MediaServer server;
    ASSERT_EQ(naro_ipc_server_connect(), 0);
    MediaServer::Peer peer = server.accept();
    const int fd = connected_descriptor();
    ASSERT_EQ(fcntl(fd, F_SETFL, O_NONBLOCK), 0); // a full socket now takes what it can
    const std::string much(8 << 20, 'm');
    EXPECT_EQ(naro_ipc_cmd_snd(much.data(), much.size()), -1);
    ASSERT_EQ(errors().size(), 1u);
    int wsize = 0;
    ASSERT_EQ(sscanf(errors()[0].c_str(), "cmd snd error, wsize = %d\r\n", &wsize), 1) << errors()[0];
    EXPECT_EQ(errors()[0], "cmd snd error, wsize = " + std::to_string(wsize) + "\r\n");
    EXPECT_GT(wsize, 0);
    EXPECT_LT(wsize, 8 << 20);
    EXPECT_TRUE(server.idle());
    EXPECT_EQ(peer.receive(static_cast<size_t>(wsize)).size(), static_cast<size_t>(wsize));
    EXPECT_TRUE(peer.silent());
}

// ---- The lock

TEST_F(Ipc, TheLockKeepsOthersOut)
{
    EXPECT_EQ(naro_ipc_lock(), 0);
    std::atomic<bool> there{false};
    int value = 0, seen = 0;
    std::thread other([&] {
        there = true;
        naro_ipc_lock();
        seen = value;
        naro_ipc_unlock();
    });
    while (!there)
        std::this_thread::yield();
    value = 1;
    EXPECT_EQ(naro_ipc_unlock(), 0);
    other.join();
    EXPECT_EQ(seen, 1);
    // And under contention.
    long counter = 0;
    auto count = [&] {
        for (int i = 0; i < 100000; i++) {
            naro_ipc_lock();
            counter = counter + 1;
            naro_ipc_unlock();
        }
    };
    std::thread first(count), second(count);
    first.join();
    second.join();
    EXPECT_EQ(counter, 200000);
}

// Commands of many threads, a server that hangs up now and then, and a disconnect at the end.
TEST_F(Ipc, ThreadsShareOneConnection)
{
    MediaServer server;
    std::atomic<bool> stop{false};
    std::thread serving([&] {
        while (!stop) {
            MediaServer::Peer peer = server.accept();
            for (int i = 0; i < 50 && !stop; i++) {
                const std::string request = peer.receive(4);
                if (request.size() < 4 || !peer.send(request))
                    break;
            }
        }
    });
    ASSERT_EQ(naro_ipc_server_connect(), 0);
    std::atomic<int> done{0}, mixed{0};
    auto command = [&](uint32_t self) {
        for (uint32_t i = 0; i < 300; i++) {
            const uint32_t sent = self << 16 | i;
            uint32_t back = 0;
            naro_ipc_lock();
            const bool whole = naro_ipc_cmd_snd(&sent, 4) == 0 && naro_ipc_cmd_rcv(&back, 4) == 0;
            naro_ipc_unlock();
            done += whole;
            mixed += whole && back != sent;
        }
    };
    std::vector<std::thread> threads;
    for (uint32_t i = 1; i <= 4; i++)
        threads.emplace_back(command, i);
    for (std::thread &thread : threads)
        thread.join();
    EXPECT_EQ(mixed, 0);
    EXPECT_GT(done, 1000);
    stop = true;
    EXPECT_EQ(naro_ipc_server_disconnect(), 0);
    naro_ipc_server_connect(); // the server may be waiting for the next client
    naro_ipc_server_disconnect();
    serving.join();
}

} // namespace
