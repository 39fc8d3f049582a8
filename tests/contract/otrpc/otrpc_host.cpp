// What our own endpoint promises beyond the contract: its wire, to the byte, and peers that behave badly.
#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <string.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include <gmock/gmock.h>

#include "fake_clock.h"
#include "in_child.h"
#include "isolate.h"
#include "log_capture.h"
#include "otrpc.h"
#include "otrpc_wire.h"

using std::string;
using namespace std::string_literals;
using testing::ElementsAre;
using testing::IsEmpty;

namespace
{

const string root = scratch_root();
const string path = root + OTRPC_PATH;

char thread_name[16];
std::atomic<int> refuse_accepts{0}; // so many fail, with EMFILE
std::atomic<bool> no_thread{false};
std::atomic<bool> strangers{false}; // whoever comes is another user
std::atomic<int> calls{0};

int hello(void *, void *, void *)
{
    prctl(PR_GET_NAME, thread_name);
    calls++;
    return 42;
}

int descriptors()
{
    const int fd = dup(0);
    close(fd);
    return fd;
}

// A client that speaks the wire by hand.
class Peer
{
  public:
    Peer()
    {
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
        fd = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
        const timeval limit = {10, 0};
        setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
        connected = connect(fd, reinterpret_cast<sockaddr *>(&address), sizeof address) == 0;
    }
    ~Peer() { close(fd); }
    Peer(const Peer &) = delete;
    Peer &operator=(const Peer &) = delete;

    bool send(const string &packet) const
    {
        return ::send(fd, packet.data(), packet.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(packet.size());
    }
    // The next packet; "(end)" when the connection is over.
    string receive() const
    {
        char packet[256];
        const ssize_t length = recv(fd, packet, sizeof packet, 0);
        if (length < 0)
            return errno == EAGAIN ? "(silence)" : "(end)";
        return length > 0 ? string(packet, static_cast<size_t>(length)) : "(end)";
    }
    string ask(const string &packet) const
    {
        send(packet);
        return receive();
    }
    bool connected;
    int fd;
};

class OtrpcHost : public testing::Test
{
  protected:
    void TearDown() override { otrpc_stop(); }
    LogCapture log;
};

} // namespace

extern "C" const otrpc_row otrpc_table[] = {
    {"hello", hello, {nullptr, nullptr}},
    {nullptr, nullptr, {nullptr, nullptr}},
};

namespace
{

TEST_F(OtrpcHost, TheWire)
{
    ASSERT_EQ(otrpc_start(), 0);
    const Peer peer;
    EXPECT_EQ(peer.ask("hello"), "result 42\n");
    EXPECT_EQ(peer.ask("hello\n"), "result 42\n");
    EXPECT_EQ(peer.ask("hello\0"s), "result 42\n");
    EXPECT_EQ(peer.ask("bye"), "unknown method\n");
    for (const string &name : {"a"s, "z"s, "A"s, "Z"s, "0"s, "9"s, "_"s, "az_AZ_09"s, "a\n"s, "a\0"s})
        EXPECT_EQ(peer.ask(name), "unknown method\n") << name;
    for (const char *beside : {"@", "[", "`", "{", "/", ":", "-"})
        EXPECT_EQ(peer.ask(beside), "malformed request\n") << beside;
    EXPECT_EQ(peer.ask(string(63, 'a')), "unknown method\n");
    EXPECT_EQ(peer.ask(string(63, 'a') + "\n"), "unknown method\n");
    for (const string &wrong : {""s, "\n"s, "\0"s, "hello\n\n"s, "hello\0\0"s, "\nhello"s, "hel lo"s,
                                "hello\r\n"s, "h\xe4llo"s, "hello;"s, string(64, 'a'), string(65, 'a'),
                                string(63, 'a') + "\n\n", string(5000, 'a'), "hello" + string(60, '\n')})
        EXPECT_EQ(peer.ask(wrong), "malformed request\n") << wrong.substr(0, 80);
    EXPECT_EQ(peer.ask("hello"), "result 42\n") << "and the connection lives on";
    EXPECT_STREQ(thread_name, "otrpc");
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(OtrpcHost, RequestsThatComeAtOnceAreAnsweredInOrder)
{
    ASSERT_EQ(otrpc_start(), 0);
    const Peer peer;
    peer.send("hello");
    peer.send("bye");
    peer.send("?");
    EXPECT_EQ(peer.receive(), "result 42\n");
    EXPECT_EQ(peer.receive(), "unknown method\n");
    EXPECT_EQ(peer.receive(), "malformed request\n");
}

TEST_F(OtrpcHost, PeersThatSayNothingKeepNobodyOut)
{
    ASSERT_EQ(otrpc_start(), 0);
    const int before = descriptors();
    {
        std::vector<std::unique_ptr<Peer>> peers;
        for (int i = 0; i < 8; i++) {
            peers.push_back(std::make_unique<Peer>());
            ASSERT_EQ(peers.back()->ask("hello"), "result 42\n");
        }
        for (const auto &peer : peers) // all eight have a place
            EXPECT_EQ(peer->ask("hello"), "result 42\n");
        Peer ninth;
        EXPECT_EQ(ninth.ask("hello"), "result 42\n");
        EXPECT_EQ(peers[0]->receive(), "(end)") << "the one that has been there the longest";
        for (int i = 1; i < 8; i++)
            EXPECT_EQ(peers[static_cast<size_t>(i)]->ask("hello"), "result 42\n") << i;
        peers[4].reset();                    // one leaves,
        peers[4] = std::make_unique<Peer>(); // and another has room
        EXPECT_EQ(peers[4]->ask("hello"), "result 42\n");
        EXPECT_EQ(peers[1]->ask("hello"), "result 42\n");
        EXPECT_EQ(ninth.ask("hello"), "result 42\n");
    }
    otrpc_stop();
    EXPECT_LE(descriptors(), before);
}

TEST_F(OtrpcHost, WhoDoesNotReadHisAnswersLosesHisConnection)
{
    ASSERT_EQ(otrpc_start(), 0);
    const Peer deaf;
    fcntl(deaf.fd, F_SETFL, O_NONBLOCK);
    // Sends until the endpoint has hung up on it; between, its own buffer may be full for a moment.
    while (deaf.send("hello") || errno == EAGAIN)
        ;
    EXPECT_TRUE(errno == EPIPE || errno == ECONNRESET)
        << errno; // whether its own requests were all taken or not
    const Peer other;
    EXPECT_EQ(other.ask("hello"), "result 42\n");
}

TEST_F(OtrpcHost, APeerThatLeavesBeforeItsAnswer)
{
    ASSERT_EQ(otrpc_start(), 0);
    for (int i = 0; i < 20; i++) {
        Peer peer;
        peer.send("hello");
    }
    const Peer peer;
    EXPECT_EQ(peer.ask("hello"), "result 42\n");
}

TEST_F(OtrpcHost, APeerThatWillSayNoMoreIsLetGo)
{
    ASSERT_EQ(otrpc_start(), 0);
    const Peer peer;
    ASSERT_EQ(peer.ask("hello"), "result 42\n");
    shutdown(peer.fd, SHUT_WR);
    EXPECT_EQ(peer.receive(), "(end)") << "and not an answer to nothing";
}

TEST_F(OtrpcHost, OtherUsersAreNotServed)
{
    ASSERT_EQ(otrpc_start(), 0);
    const int before = descriptors();
    strangers = true;
    for (int i = 0; i < 3; i++) {
        const Peer peer;
        EXPECT_EQ(peer.ask("hello"), "(end)");
    }
    strangers = false;
    EXPECT_EQ(descriptors(), before);
    const Peer peer;
    EXPECT_EQ(peer.ask("hello"), "result 42\n");
}

TEST_F(OtrpcHost, WithoutDescriptorsItWaitsALittleBeforeItTriesAgain)
{
    FakeClock clock;
    ASSERT_EQ(otrpc_start(), 0);
    refuse_accepts = 2;
    const Peer peer;
    EXPECT_EQ(peer.ask("hello"), "result 42\n");
    EXPECT_THAT(clock.sleeps(), ElementsAre(100, 100));
    otrpc_stop();
}

TEST_F(OtrpcHost, TheSocketIsThisUsersAndGoesWithTheEndpoint)
{
    const mode_t before = umask(0);
    ASSERT_EQ(otrpc_start(), 0);
    umask(before);
    struct stat status;
    ASSERT_EQ(lstat(path.c_str(), &status), 0);
    EXPECT_TRUE(S_ISSOCK(status.st_mode));
    EXPECT_EQ(status.st_mode & 0777, 0600u);
    const Peer peer;
    ASSERT_TRUE(peer.connected);
    otrpc_stop();
    EXPECT_EQ(peer.receive(), "(end)");
    EXPECT_EQ(lstat(path.c_str(), &status), -1);
    EXPECT_EQ(errno, ENOENT);
}

TEST_F(OtrpcHost, NoDescriptorIsLeft)
{
    ASSERT_EQ(otrpc_start(), 0); // the root's own stays
    otrpc_stop();
    const int before = descriptors();
    for (int i = 0; i < 3; i++) {
        ASSERT_EQ(otrpc_start(), 0);
        int result;
        EXPECT_EQ(otrpc_call("hello", 10000, &result), 0);
        EXPECT_EQ(otrpc_call("bye", 10000, &result), -ENOSYS);
        otrpc_stop();
    }
    EXPECT_EQ(descriptors(), before);
}

TEST_F(OtrpcHost, WhatAProgramLeftThatWasKilledIsTakenOver)
{
    const ChildResult child = in_child([] {
        otrpc_start();
        kill(getpid(), SIGKILL);
    });
    ASSERT_EQ(child.status, 128 + SIGKILL);
    struct stat status;
    ASSERT_EQ(lstat(path.c_str(), &status), 0);
    int result;
    EXPECT_EQ(otrpc_call("hello", 1000, &result), -ECONNREFUSED);
    ASSERT_EQ(otrpc_start(), 0);
    EXPECT_EQ(otrpc_call("hello", 10000, &result), 0);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(OtrpcHost, ALivingProgramKeepsIt)
{
    int ready[2], done[2];
    ASSERT_EQ(pipe(ready), 0);
    ASSERT_EQ(pipe(done), 0);
    const pid_t other = fork(); // the first, with an endpoint of its own
    if (other == 0) {
        char byte = otrpc_start() == 0 ? 'y' : 'n';
        if (write(ready[1], &byte, 1) != 1 || read(done[0], &byte, 1) != 1)
            _exit(1);
        otrpc_stop();
        _exit(0);
    }
    char byte = 0;
    ASSERT_EQ(read(ready[0], &byte, 1), 1);
    ASSERT_EQ(byte, 'y');
    EXPECT_EQ(otrpc_start(), -1);
    EXPECT_THAT(log.lines(),
                ElementsAre(LogCapture::Line{
                    NARO_LOG_ERR, "[otrpc] /run/naro/otrpc cannot be opened: Address already in use\n"}));
    int result;
    EXPECT_EQ(otrpc_call("hello", 10000, &result), 0) << "the first one's";
    ASSERT_EQ(write(done[1], "x", 1), 1);
    int status;
    ASSERT_EQ(waitpid(other, &status, 0), other);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(otrpc_start(), 0) << "and when it has gone it is free";
    for (const int fd : {ready[0], ready[1], done[0], done[1]})
        close(fd);
}

TEST_F(OtrpcHost, WithoutAThreadNothingIsLeft)
{
    ASSERT_EQ(otrpc_start(), 0); // the root's own descriptor stays
    otrpc_stop();
    const int before = descriptors();
    no_thread = true;
    EXPECT_EQ(otrpc_start(), -1);
    no_thread = false;
    EXPECT_THAT(log.lines(), ElementsAre(LogCapture::Line{
                                 NARO_LOG_ERR, "[otrpc] /run/naro/otrpc cannot be opened: Resource "
                                               "temporarily unavailable\n"}));
    EXPECT_EQ(descriptors(), before);
    int result;
    EXPECT_EQ(otrpc_call("hello", 1000, &result), -ENOENT);
    otrpc_stop();
    EXPECT_EQ(otrpc_start(), 0);
    EXPECT_EQ(otrpc_call("hello", 10000, &result), 0);
}

TEST_F(OtrpcHost, SomethingElseInItsPlace)
{
    std::filesystem::create_directories(root + "/run/naro");
    std::ofstream(path) << "x";
    EXPECT_EQ(otrpc_start(), -1);
    EXPECT_THAT(log.lines(), ElementsAre(LogCapture::Line{
                                 NARO_LOG_ERR, "[otrpc] /run/naro/otrpc cannot be opened: File exists\n"}));
    std::filesystem::remove(path);
    EXPECT_EQ(otrpc_start(), 0);
}

// ---- The wire alone --------------------------------------------------------------------------------------

TEST(OtrpcWire, Answers)
{
    char text[OTRPC_ANSWER_MAX];
    otrpc_outcome outcome;
    int result;
    const auto round = [&](otrpc_outcome what, int value) {
        const size_t length = otrpc_write_answer(what, value, text);
        EXPECT_EQ(otrpc_read_answer(text, length, &outcome, &result), 0);
        return string(text, length);
    };
    for (const int value : {0, 1, -1, INT32_MAX, INT32_MIN}) {
        EXPECT_EQ(round(OTRPC_RESULT, value), "result " + std::to_string(value) + "\n");
        EXPECT_EQ(outcome, OTRPC_RESULT);
        EXPECT_EQ(result, value);
    }
    EXPECT_EQ(round(OTRPC_UNKNOWN_METHOD, 5), "unknown method\n");
    EXPECT_EQ(outcome, OTRPC_UNKNOWN_METHOD);
    EXPECT_EQ(result, 0);
    EXPECT_EQ(round(OTRPC_MALFORMED, 5), "malformed request\n");
    EXPECT_EQ(outcome, OTRPC_MALFORMED);
    for (const string &wrong :
         {""s, "result"s, "result "s, "result \n"s, "result 1"s, "result 1 \n"s, "result  1\n"s,
          "result +1\n"s, "result -\n"s, "result 2147483648\n"s, "result -2147483649\n"s,
          "result 99999999999999999999\n"s, "Result 1\n"s, "result 1\n\n"s, "result 1\n\0"s,
          "unknown method"s, "unknown method\n\0"s, string(64, 'a'), "result " + string(55, '0') + "1\n"})
        EXPECT_EQ(otrpc_read_answer(wrong.data(), wrong.size(), &outcome, &result), -1) << wrong;
    const string longest = "result " + string(54, '0') + "1\n";
    EXPECT_EQ(longest.size(), 63u);
    EXPECT_EQ(otrpc_read_answer(longest.data(), longest.size(), &outcome, &result), 0);
    EXPECT_EQ(result, 1);
}

} // namespace

// ---- Fakes -----------------------------------------------------------------------------------------------

extern "C" {

int __real_accept4(int fd, sockaddr *address, socklen_t *length, int flags);
int __wrap_accept4(int fd, sockaddr *address, socklen_t *length, int flags)
{
    if (refuse_accepts > 0) {
        refuse_accepts--;
        errno = EMFILE;
        return -1;
    }
    return __real_accept4(fd, address, length, flags);
}

int __real_pthread_create(pthread_t *thread, const pthread_attr_t *attr, void *(*start)(void *),
                          void *argument);
int __wrap_pthread_create(pthread_t *thread, const pthread_attr_t *attr, void *(*start)(void *),
                          void *argument)
{
    return no_thread ? EAGAIN : __real_pthread_create(thread, attr, start, argument);
}

// shbf_peer_allowed(uid_t)
bool __wrap__Z17shbf_peer_allowedj(uid_t)
{
    return !strangers;
}
}
