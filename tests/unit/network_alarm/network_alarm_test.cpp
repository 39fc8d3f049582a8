// The alarm client against a real TCP server that listens, is slow, closes, refuses and resets.
#include "network_alarm.h"

#include <atomic>
#include <chrono>
#include <dlfcn.h>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <functional>
#include <gmock/gmock.h>
#include <memory>
#include <optional>
#include <pthread.h>
#include <signal.h>
#include <thread>
#include <vector>

#include "failures_to_stderr.h"
#include "lock_watch.h"
#include "log_capture.h"
#include "queues.h"
#include "tcp_server.h"

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

namespace
{

const char connected_line[] = "connecting server...\r\n[tcp_client_setup] connect server succeed!!!\r\n";
const char quit_line[] = "[network_task] quit\r\n";
const char finished_line[] = "___[network_exit]___ finished\r\n";
const char pipe_line[] = "server is disconnect....\r\n";
const char alarm_line[] = "just for interrupt connect handler....\r\n";

// What the wrapped calls do, and what was asked of them.
struct Calls {
    std::atomic<int> create_error{0}, join_error{0}, socket_error{0}, bind_error{0};
    std::atomic<bool> buffer_refused{false};
    std::atomic<void *> buffer{nullptr};
    std::atomic<int> kills{0};        // signals to threads
    std::atomic<int> buffers{0};      // of the sender, that are there
    std::atomic<int> writes{0};       // to sockets
    std::atomic<int> short_writes{0}; // that ended by a signal, with a part or nothing
    std::atomic<int> last_write_error{0};
    std::atomic<int> rearmed{-1}; // the signal that a handler was installed for inside a handler
    std::vector<sockaddr_in> bound;
    std::atomic<bool> in_handler{false};
    std::atomic<bool> watch_locks{false}; // of these calls write the locks held down:
    std::atomic<int> held_socket{-1}, held_create{-1}, held_join{-1}, held_write{-1};
} &calls = *new Calls;

// Waits for what another thread is about to do.
bool comes(const std::function<bool()> &condition)
{
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (!condition()) {
        if (std::chrono::steady_clock::now() >= end)
            return false;
        std::this_thread::yield();
    }
    return true;
}

// One alarm, and time to deal with it: alarms interrupt each other, and a storm of them would fill the stack.
void alarm_once()
{
    EXPECT_EQ(network_alarm_send(), 0);
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
}

std::string frame(const std::string &payload)
{
    const size_t n = payload.size();
    return std::string("IMAGE") + static_cast<char>(n >> 24) + static_cast<char>(n >> 16) +
           static_cast<char>(n >> 8) + static_cast<char>(n) + payload;
}

std::string noise(size_t length)
{
    std::string bytes(length, '\0');
    uint32_t word = 1;
    for (char &byte : bytes) {
        word = word * 1664525u + 1013904223u;
        byte = static_cast<char>(word >> 24);
    }
    return bytes;
}

int enqueue(const std::string &payload, uint64_t timestamp = 0)
{
    return network_queue_list_enqueue(payload.data(), static_cast<uint32_t>(payload.size()), 0, 0,
                                      QUEUE_ELEMENT_FRAME, timestamp);
}

size_t open_descriptors()
{
    size_t count = 0;
    for (int fd = 0; fd < 100; fd++)
        count += fcntl(fd, F_GETFD) >= 0;
    return count;
}

class Client : public testing::Test
{
  protected:
    static constexpr int element_bytes = NETWORK_TX_BYTES + 64, elements = 3;
    void SetUp() override
    {
        signal(SIGPIPE, SIG_IGN); // as the daemon has it
        ASSERT_EQ(network_queue_list_init(element_bytes, elements), 0);
    }
    void TearDown() override
    {
        calls.join_error = 0;
        if (network_is_inited()) {
            std::atomic<bool> done{false};
            std::thread freeing([&] {
                while (!done)
                    alarm_once();
            });
            network_exit();
            done = true;
            freeing.join();
        }
        network_queue_list_exit();
    }
    void listen(int room = 0)
    {
        server.reset(); // the name is free again
        server = std::make_unique<TcpServer>(address, NETWORK_SERVER_PORT, room);
        ASSERT_EQ(network_server_set(address.c_str()), 0);
    }
    // A server, a client and their connection.
    void connect(int room = 0)
    {
        listen(room);
        ASSERT_EQ(network_init(), 0);
        peer = server->accept();
        ASSERT_TRUE(peer.connected());
    }
    // Sends frames until a write finds the pipe broken.
    static void send_until_broken()
    {
        ASSERT_TRUE(comes([] {
            const int before = calls.writes;
            EXPECT_EQ(enqueue("x", 1), 0);
            EXPECT_TRUE(comes([before] { return calls.writes > before; }));
            return calls.last_write_error == EPIPE;
        }));
    }

    const std::string address = own_loopback_address();
    LogCapture log;
    std::unique_ptr<TcpServer> server;
    TcpServer::Peer peer;
};

// ---- Connecting -------------------------------------------------------------------------------------------------

TEST_F(Client, WantsAnAddressAndAPort)
{
    OutputCapture out(STDOUT_FILENO);
    EXPECT_EQ(tcp_client_setup(nullptr, 16688), -1);
    EXPECT_EQ(out.text(), "invalid param server_ip = (null), server_port = 16688\r\n");
    const struct {
        const char *where;
        int port;
    } wrong[] = {{"127.0.0.1", 0}, {"127.0.0.1", -1}, {"127.0.0.1", 65536},
                 {"", 1},          {"localhost", 1},  {"1.2.3", 1}};
    for (const auto &row : wrong) {
        out.clear();
        EXPECT_EQ(tcp_client_setup(row.where, row.port), -1);
        EXPECT_EQ(out.text(), std::string("invalid param server_ip = ") + row.where +
                                  ", server_port = " + std::to_string(row.port) + "\r\n");
    }
    EXPECT_THAT(calls.bound, IsEmpty());
}

TEST_F(Client, ConnectsASocketOfItsOwn)
{
    for (const int port : {1, 65535, 16688}) {
        std::unique_ptr<TcpServer> there;
        try {
            there = std::make_unique<TcpServer>(address, port);
        } catch (const std::exception &) {
            continue; // not everybody may have port 1
        }
        std::string said;
        int fd;
        {
            OutputCapture out(STDOUT_FILENO);
            fd = tcp_client_setup(address.c_str(), port);
            said = out.text();
        }
        ASSERT_GE(fd, 0);
        EXPECT_EQ(said, connected_line);
        EXPECT_EQ(fcntl(fd, F_GETFD), FD_CLOEXEC);
        // From any address and port.
        EXPECT_EQ(calls.bound.back().sin_family, AF_INET);
        EXPECT_EQ(calls.bound.back().sin_addr.s_addr, htonl(INADDR_ANY));
        EXPECT_EQ(calls.bound.back().sin_port, 0);
        peer = there->accept();
        ASSERT_TRUE(peer.connected());
        EXPECT_EQ(write(fd, "hello", 5), 5);
        EXPECT_EQ(peer.receive(5), "hello");
        close(fd);
        EXPECT_TRUE(peer.ended());
    }
}

TEST_F(Client, ARefusedConnectionLeavesNothingOpen)
{
    const size_t before = open_descriptors();
    std::string said, errors;
    {
        OutputCapture out(STDOUT_FILENO), err(STDERR_FILENO);
        EXPECT_EQ(tcp_client_setup(address.c_str(), NETWORK_SERVER_PORT), -1);
        said = out.text();
        errors = err.text();
    }
    EXPECT_EQ(said, "connecting server...\r\n");
    EXPECT_EQ(errors, "connect: Connection refused\n");
    EXPECT_EQ(open_descriptors(), before);
}

TEST_F(Client, CallsThatFailAreTold)
{
    const size_t before = open_descriptors();
    std::string said, errors;
    {
        OutputCapture out(STDOUT_FILENO), err(STDERR_FILENO);
        calls.socket_error = EMFILE;
        EXPECT_EQ(tcp_client_setup(address.c_str(), NETWORK_SERVER_PORT), -1);
        calls.socket_error = 0;
        calls.bind_error = EADDRNOTAVAIL;
        EXPECT_EQ(tcp_client_setup(address.c_str(), NETWORK_SERVER_PORT), -1);
        said = out.text();
        errors = err.text();
    }
    EXPECT_EQ(said, "");
    EXPECT_EQ(errors, "socket: Too many open files\nbind: Cannot assign requested address\n");
    EXPECT_EQ(open_descriptors(), before);
}

// ---- One write ----------------------------------------------------------------------------------------------------

TEST_F(Client, AWriteTellsItsCount)
{
    listen();
    const int fd = tcp_client_setup(address.c_str(), NETWORK_SERVER_PORT);
    peer = server->accept();
    EXPECT_EQ(tcp_client_tx(fd, "IMAGES", 6), 6);
    EXPECT_EQ(tcp_client_tx(fd, "", 0), 0);
    EXPECT_EQ(calls.writes, 2);
    EXPECT_EQ(peer.receive(6), "IMAGES");
    close(fd);
}

TEST_F(Client, ABrokenPipeAndOtherFailuresAreTwoThings)
{
    listen();
    const int fd = tcp_client_setup(address.c_str(), NETWORK_SERVER_PORT);
    peer = server->accept();
    peer.reset();
    std::string errors;
    int first, second, third;
    {
        OutputCapture err(STDERR_FILENO);
        first = tcp_client_tx(fd, "x", 1);  // the reset is told once,
        second = tcp_client_tx(fd, "x", 1); // and from then on the pipe is broken
        third = tcp_client_tx(-1, "x", 1);
        errors = err.text();
    }
    close(fd);
    EXPECT_EQ(first, -1);
    EXPECT_EQ(second, -2);
    EXPECT_EQ(third, -1);
    EXPECT_EQ(errors, "tcp_client_tx\r\n: Connection reset by peer\n"
                      "tcp_client_tx\r\n: Broken pipe\n"
                      "tcp_client_tx\r\n: Bad file descriptor\n");
}

// ---- The server's address -------------------------------------------------------------------------------------------

TEST_F(Client, WithoutAServerThereIsNoConnection)
{
    OutputCapture out(STDOUT_FILENO);
    EXPECT_EQ(network_init(), -1);
    EXPECT_EQ(out.text(), "invalid param server_ip = (null), server_port = 16688\r\n"
                          "[network_init] tcp_client_setup fail\r\n");
    EXPECT_EQ(network_is_inited(), 0);
}

TEST_F(Client, TheServersAddressIsLookedAt)
{
    listen();
    for (const char *wrong :
         {"", "localhost", "1.2.3", "256.1.1.1", "::1", "127.0.0.1 ", "127.0.0.1:16688"}) {
        log.clear();
        EXPECT_EQ(network_server_set(wrong), -1);
        EXPECT_EQ(log.lines(), (std::vector<LogCapture::Line>{
                                   {NARO_LOG_ERR, std::string("[network_server_set] no IPv4 address: \"") +
                                                      wrong + "\"; the old one stays\n"}}));
    }
    log.clear();
    EXPECT_EQ(network_server_set(nullptr), -1);
    EXPECT_THAT(log.texts(),
                ElementsAre("[network_server_set] no IPv4 address: \"(null)\"; the old one stays\n"));
    log.clear();
    EXPECT_EQ(network_init(), 0) << "at the old one";
    EXPECT_TRUE(server->accept().connected());
    EXPECT_EQ(network_server_set("255.255.255.255"), 0) << "the longest; for the next time";
    EXPECT_THAT(log.texts(), IsEmpty());
}

// ---- Start and stop -----------------------------------------------------------------------------------------------

TEST_F(Client, ARun)
{
    listen();
    std::string said, at_start, errors;
    {
        OutputCapture out(STDOUT_FILENO), err(STDERR_FILENO);
        EXPECT_EQ(network_is_inited(), 0);
        EXPECT_EQ(network_last_sent(), 0u);
        EXPECT_EQ(network_init(), 0);
        EXPECT_EQ(network_is_inited(), 1);
        at_start = out.text();
        peer = server->accept();
        EXPECT_EQ(enqueue("one"), 0);
        EXPECT_EQ(peer.receive(12), frame("one"));
        out.clear();
        EXPECT_EQ(network_exit(), 0);
        EXPECT_EQ(network_is_inited(), 0);
        said = out.text();
        errors = err.text();
    }
    EXPECT_EQ(errors, "");
    EXPECT_EQ(at_start, connected_line);
    // Deliberate: the quit line comes twice.
    EXPECT_EQ(said, std::string(quit_line) + quit_line + finished_line);
    EXPECT_TRUE(peer.ended()) << "and nothing of the quit element was sent";
    EXPECT_EQ(calls.buffers, 0);
    EXPECT_THAT(log.texts(), IsEmpty());
}

// What may take long holds up nobody who only looks: one lock is held across it, and none by the sender.
TEST_F(Client, LocksAreNotHeldAcrossWhatBlocks)
{
    calls.watch_locks = true;
    connect();
    enqueue("x");
    EXPECT_EQ(peer.receive(10), frame("x"));
    EXPECT_EQ(network_exit(), 0);
    EXPECT_EQ(calls.held_socket, 1);
    EXPECT_EQ(calls.held_create, 2) << "nobody finds a sender without its number";
    EXPECT_EQ(calls.held_write, 0);
    EXPECT_EQ(calls.held_join, 1);
    EXPECT_EQ(locks_held(), 0u);
}

TEST_F(Client, ExitOfWhatWasNeverStarted)
{
    OutputCapture out(STDOUT_FILENO);
    EXPECT_EQ(network_exit(), 0);
    EXPECT_EQ(out.text(), std::string("network already destroied\r\n") + finished_line);
}

// Deliberate: the number 0 means that there is no connection, so a socket of that number stays open.
TEST_F(Client, ASocketOfTheNumberZeroIsSentToButNotClosed)
{
    listen();
    close(STDIN_FILENO);
    ASSERT_EQ(network_init(), 0);
    peer = server->accept();
    enqueue("zero");
    EXPECT_EQ(peer.receive(13), frame("zero"));
    EXPECT_EQ(network_exit(), 0);
    EXPECT_GE(fcntl(STDIN_FILENO, F_GETFD), 0);
    EXPECT_TRUE(peer.silent());
}

TEST_F(Client, ASecondInitIsRefusedAndTheFirstGoesOn)
{
    connect();
    std::string said;
    {
        OutputCapture out(STDOUT_FILENO);
        EXPECT_EQ(network_init(), -1);
        said = out.text();
    }
    EXPECT_EQ(said, "[network_init] already inited\r\n");
    EXPECT_EQ(network_is_inited(), 1);
    enqueue("on");
    EXPECT_EQ(peer.receive(11), frame("on"));
}

TEST_F(Client, ARefusedConnectionIsAFailedInit)
{
    network_server_set(address.c_str());
    std::string said;
    {
        OutputCapture out(STDOUT_FILENO);
        EXPECT_EQ(network_init(), -1);
        said = out.text();
    }
    EXPECT_EQ(said, "connecting server...\r\n[network_init] tcp_client_setup fail\r\n");
    EXPECT_EQ(network_is_inited(), 0);
    struct sigaction action;
    sigaction(SIGPIPE, nullptr, &action);
    EXPECT_EQ(action.sa_handler, SIG_IGN) << "handlers come with the connection";
    connect(); // and now there is one
}

TEST_F(Client, WithoutAThreadTheConnectionIsClosed)
{
    listen();
    calls.create_error = EAGAIN;
    const size_t before = open_descriptors();
    std::string said;
    {
        OutputCapture out(STDOUT_FILENO);
        EXPECT_EQ(network_init(), -1);
        said = out.text();
    }
    EXPECT_EQ(said, std::string(connected_line) + "create network_task fail\r\n");
    EXPECT_EQ(network_is_inited(), 0);
    EXPECT_EQ(open_descriptors(), before);
    peer = server->accept();
    EXPECT_TRUE(peer.ended());
    EXPECT_EQ(network_alarm_send(), 0);
    calls.create_error = 0;
    EXPECT_EQ(network_init(), 0);
}

TEST_F(Client, WithoutABufferTheThreadEnds)
{
    listen();
    calls.buffer_refused = true;
    std::string said;
    {
        OutputCapture out(STDOUT_FILENO);
        EXPECT_EQ(network_init(), 0);
        EXPECT_TRUE(out.wait_for("fail"));
        EXPECT_EQ(network_is_inited(), 1);
        EXPECT_EQ(network_exit(), 0);
        said = out.text();
    }
    EXPECT_EQ(said, std::string(connected_line) + "tx buf malloc fail\r\n" + finished_line);
}

TEST_F(Client, AQuitElementThatIsRefused)
{
    connect();
    queue_list_elem *held[elements];
    for (queue_list_elem *&elem : held)
        ASSERT_EQ(network_queue_list_free_elem_take(&elem), 0);
    std::string said;
    {
        OutputCapture out(STDOUT_FILENO);
        EXPECT_EQ(network_exit(), -1);
        said = out.text();
    }
    EXPECT_EQ(said, std::string("network_queue_list_enqueue fail\r\n") + finished_line);
    EXPECT_EQ(network_is_inited(), 1);
    for (queue_list_elem *elem : held)
        network_queue_list_data_elem_give(elem);
    enqueue("still there");
    EXPECT_EQ(peer.receive(20), frame("still there"));
    EXPECT_EQ(network_exit(), 0);
}

TEST_F(Client, AJoinThatFailsIsToldAndTheRestDone)
{
    connect();
    calls.join_error = EDEADLK;
    std::string said, errors;
    {
        OutputCapture out(STDOUT_FILENO), err(STDERR_FILENO);
        EXPECT_EQ(network_exit(), 0);
        said = out.text();
        errors = err.text();
    }
    EXPECT_EQ(errors, "pthread_join face_det_tsk fail\r\n: Resource deadlock avoided\n");
    EXPECT_THAT(said, HasSubstr(finished_line));
    EXPECT_EQ(network_is_inited(), 0);
    EXPECT_TRUE(peer.ended());
}

TEST_F(Client, AQueueThatFailsEndsTheThread)
{
    listen();
    network_queue_list_exit();
    std::string said;
    {
        OutputCapture out(STDOUT_FILENO);
        EXPECT_EQ(network_init(), 0);
        EXPECT_TRUE(out.wait_for("quit"));
        EXPECT_EQ(network_is_inited(), 1);
        said = out.text();
        EXPECT_TRUE(comes([] { // once it has ended, it is sent no more signals
            const int before = calls.kills;
            alarm_once();
            return calls.kills == before;
        }));
        EXPECT_EQ(network_exit(), -1) << "there is still no queue";
    }
    EXPECT_EQ(said, std::string(connected_line) + "yuv queue dequeue fail, quit\r\n");
    ASSERT_EQ(network_queue_list_init(NETWORK_QUIT_BYTES, 1), 0);
    EXPECT_EQ(network_exit(), 0);
    // Nobody has taken the quit element.
    char payload[5] = "";
    uint32_t size = 0, width = 9, height = 9, type = 0;
    uint64_t timestamp = 9;
    ASSERT_EQ(network_queue_list_dequeue(payload, &size, &width, &height, &type, &timestamp), 0);
    EXPECT_EQ(std::string(payload, size), std::string("quit\0", 5));
    EXPECT_EQ(type, 256u);
    EXPECT_EQ(width + height + timestamp, 0u);
}

TEST_F(Client, RunsAgainOnTheSameQueue)
{
    network_queue_list_exit();
    ASSERT_EQ(network_queue_list_init(64, 1), 0); // one element: one that is not given back is missed at once
    for (int run = 0; run < 3; run++) {
        connect();
        EXPECT_EQ(network_last_sent(), 0u);
        for (const char *payload : {"a", "bc", "def"}) {
            ASSERT_EQ(enqueue(payload, 7), 0);
            EXPECT_EQ(peer.receive(9 + strlen(payload)), frame(payload));
            ASSERT_TRUE(comes([] { return network_last_sent() == 7; }));
        }
        ASSERT_EQ(network_exit(), 0);
        EXPECT_TRUE(peer.ended());
        EXPECT_EQ(network_last_sent(), 7u);
    }
}

TEST_F(Client, TheThreadHasItsName)
{
    connect();
    EXPECT_TRUE(comes([] {
        for (const auto &task : std::filesystem::directory_iterator("/proc/self/task")) {
            std::string name;
            std::getline(std::ifstream(task.path() / "comm"), name);
            if (name == "network_task")
                return true;
        }
        return false;
    }));
}

// ---- Frames -------------------------------------------------------------------------------------------------------

TEST_F(Client, AnEmptyPayloadIsNineBytes)
{
    connect();
    enqueue("");
    EXPECT_EQ(peer.receive(9), std::string("IMAGE\0\0\0\0", 9));
    EXPECT_EQ(network_exit(), 0);
    EXPECT_TRUE(peer.ended());
    EXPECT_EQ(calls.writes, 1);
}

TEST_F(Client, TheLengthIsBigEndian)
{
    connect();
    const std::string payload = noise(0x0A0B0C - 0x020000); // 0x080B0C: each of its bytes another
    enqueue(payload);
    EXPECT_EQ(peer.receive(9), std::string("IMAGE\x00\x08\x0b\x0c", 9));
    EXPECT_TRUE(peer.receive(payload.size()) == payload);
}

TEST_F(Client, TheLargestPayloadGoesInOneWrite)
{
    connect();
    const std::string payload = noise(691447);
    ASSERT_EQ(enqueue(payload, 5), 0);
    EXPECT_TRUE(peer.receive(691456) == frame(payload));
    EXPECT_TRUE(comes([] { return network_last_sent() == 5; }));
    EXPECT_EQ(calls.writes, 1);
    EXPECT_THAT(log.texts(), IsEmpty());
}

TEST_F(Client, ALargerOneIsRefusedAndTheNextGoes)
{
    connect();
    ASSERT_EQ(enqueue(noise(691448), 5), 0);
    ASSERT_EQ(enqueue("next", 6), 0);
    EXPECT_EQ(peer.receive(13), frame("next"));
    EXPECT_EQ(log.lines(),
              (std::vector<LogCapture::Line>{
                  {NARO_LOG_ERR, "[network_task] a payload of 691448 bytes is refused: a frame holds "
                                 "691447\n"}}));
    EXPECT_TRUE(comes([] { return network_last_sent() == 6; }));
    EXPECT_EQ(calls.writes, 1);
    // Its element has come back: all of them can be held.
    queue_list_elem *held[elements];
    for (queue_list_elem *&elem : held)
        ASSERT_EQ(network_queue_list_free_elem_take(&elem), 0);
    for (queue_list_elem *elem : held)
        network_queue_list_data_elem_give(elem);
}

// A header that lies, as no producer writes it: nothing is read behind the element.
TEST_F(Client, ASizeThatCannotBeIsRefused)
{
    connect();
    queue_list_elem *elem = nullptr;
    ASSERT_EQ(network_queue_list_free_elem_take(&elem), 0);
    meta_list_data *head = meta_list_data_get(elem);
    *head = {};
    head->size = UINT32_MAX;
    ASSERT_EQ(network_queue_list_free_elem_give(elem), 0);
    ASSERT_EQ(enqueue("x"), 0);
    EXPECT_EQ(peer.receive(10), frame("x"));
    EXPECT_THAT(
        log.texts(),
        ElementsAre("[network_task] a payload of 4294967295 bytes is refused: a frame holds 691447\n"));
}

TEST_F(Client, ElementsOfAnOddSizeAreRead)
{
    network_queue_list_exit();
    ASSERT_EQ(network_queue_list_init(13, 3), 0); // slots are not aligned
    connect();
    for (int i = 0; i < 6; i++) {
        const std::string payload(static_cast<size_t>(13 - i), static_cast<char>('a' + i));
        enqueue(payload);
        EXPECT_EQ(peer.receive(9 + payload.size()), frame(payload));
    }
}

// Every kind but quit is a frame.
TEST_F(Client, OnlyTheQuitKindEndsIt)
{
    connect();
    for (const uint32_t type : {0u, 1u, 255u, 257u, 0xFFFFFFFFu}) {
        network_queue_list_enqueue("ab", 2, 0, 0, type, type);
        EXPECT_EQ(peer.receive(11), frame("ab"));
    }
    network_queue_list_enqueue("ab", 2, 0, 0, 256, 0);
    EXPECT_EQ(network_exit(), 0); // whose own quit element stays in the queue, as told in the header
    EXPECT_TRUE(peer.ended());
}

TEST_F(Client, WhatLiesBeforeTheQuitElementIsSent)
{
    network_queue_list_exit();
    ASSERT_EQ(network_queue_list_init(64, 8), 0);
    for (int i = 0; i < 5; i++)
        enqueue(std::string(1, static_cast<char>('0' + i)));
    connect();
    EXPECT_EQ(network_exit(), 0);
    EXPECT_EQ(peer.receive(1000), frame("0") + frame("1") + frame("2") + frame("3") + frame("4"));
}

// ---- Servers that are not so kind ---------------------------------------------------------------------------------

TEST_F(Client, ASlowServerGetsEverything)
{
    connect(4096);
    std::string sent, got;
    std::thread producing([&] {
        for (uint64_t i = 1; i <= 6; i++) {
            const std::string payload = noise(200000 + static_cast<size_t>(i));
            sent += frame(payload);
            enqueue(payload, i);
            comes([i] { return network_last_sent() == i; });
        }
    });
    const size_t all = 6 * (200000 + 9) + 21;
    while (got.size() < all) {
        const std::string piece = peer.receive(std::min<size_t>(7919, all - got.size()));
        if (piece.empty())
            break;
        got += piece;
        std::this_thread::yield();
    }
    producing.join();
    EXPECT_TRUE(got == sent);
    EXPECT_EQ(calls.writes, 6);
    EXPECT_EQ(network_last_sent(), 6u);
}

TEST_F(Client, AServerThatClosesBreaksThePipeAndNothingElse)
{
    connect();
    enqueue("first", 10);
    EXPECT_EQ(peer.receive(14), frame("first"));
    ASSERT_TRUE(comes([] { return network_last_sent() == 10; }));
    std::string said, errors;
    {
        OutputCapture out(STDOUT_FILENO), err(STDERR_FILENO);
        peer.hang_up();
        send_until_broken();
        EXPECT_TRUE(err.wait_for("Broken pipe"));
        const uint64_t before = network_last_sent();
        // It goes on taking elements; each write fails, and none of them counts as sent.
        for (uint64_t i = 100; i < 105; i++) {
            const int writes = calls.writes;
            enqueue("lost", i);
            EXPECT_TRUE(comes([writes] { return calls.writes > writes; }));
        }
        EXPECT_EQ(network_exit(), 0);
        EXPECT_EQ(network_last_sent(), before);
        EXPECT_NE(before, 10u) << "the write before the break did count";
        said = out.text();
        errors = err.text();
    }
    // One line of each for every broken write.
    EXPECT_THAT(
        said, StartsWith(std::string(pipe_line) + pipe_line + pipe_line + pipe_line + pipe_line + pipe_line));
    EXPECT_THAT(errors, HasSubstr("tcp_client_tx\r\n: Broken pipe\n"));
    EXPECT_THAT(said, Not(HasSubstr("connecting"))) << "there is no reconnection";
}

TEST_F(Client, AResetCountsAsSent)
{
    connect();
    peer.reset();
    std::string said;
    {
        OutputCapture out(STDOUT_FILENO);
        enqueue("x", 33);
        EXPECT_TRUE(comes([] { return network_last_sent() == 33; }))
            << "deliberate: only a broken pipe does not";
        EXPECT_EQ(calls.last_write_error, ECONNRESET);
        enqueue("x", 34);
        EXPECT_TRUE(comes([] { return calls.last_write_error == EPIPE; }));
        EXPECT_EQ(network_exit(), 0);
        said = out.text();
    }
    EXPECT_EQ(network_last_sent(), 33u);
    EXPECT_EQ(said, std::string(pipe_line) + quit_line + quit_line + finished_line);
}

// ---- Signals ------------------------------------------------------------------------------------------------------

TEST_F(Client, HandlersReplaceWhatTheProcessHad)
{
    connect();
    struct sigaction pipe_action, alarm_action;
    sigaction(SIGPIPE, nullptr, &pipe_action);
    sigaction(SIGALRM, nullptr, &alarm_action);
    EXPECT_NE(pipe_action.sa_handler, SIG_IGN);
    EXPECT_NE(pipe_action.sa_handler, SIG_DFL);
    EXPECT_NE(pipe_action.sa_handler, alarm_action.sa_handler);
    EXPECT_TRUE(alarm_action.sa_flags & SA_NODEFER);
    EXPECT_FALSE(alarm_action.sa_flags & SA_RESTART) << "the interrupted call must return";
    std::string said;
    {
        OutputCapture out(STDOUT_FILENO);
        errno = 77;
        raise(SIGALRM);
        EXPECT_EQ(errno, 77);
        said = out.text();
    }
    EXPECT_EQ(said, alarm_line);
    EXPECT_EQ(network_exit(), 0);
    struct sigaction after;
    sigaction(SIGPIPE, nullptr, &after);
    EXPECT_EQ(after.sa_handler, pipe_action.sa_handler) << "they stay";
}

// Deliberate: the handler arms itself again for signal 32, which is not the one that called it.
TEST_F(Client, TheBrokenPipeHandlerRearmsTheWrongSignal)
{
    connect();
    std::string said;
    {
        OutputCapture out(STDOUT_FILENO);
        calls.in_handler = true;
        errno = 78;
        raise(SIGPIPE);
        EXPECT_EQ(errno, 78);
        calls.in_handler = false;
        said = out.text();
    }
    EXPECT_EQ(said, pipe_line);
    EXPECT_EQ(calls.rearmed, 32);
    // And a second broken pipe is handled all the same.
    {
        OutputCapture out(STDOUT_FILENO);
        raise(SIGPIPE);
        said = out.text();
    }
    EXPECT_EQ(said, pipe_line);
}

// Whatever was interrupted finds its error number as it was, also where the line could not be printed.
TEST_F(Client, HandlersKeepTheErrorNumber)
{
    connect();
    const int out = dup(STDOUT_FILENO);
    close(STDOUT_FILENO);
    int after_alarm, after_pipe;
    errno = 77;
    raise(SIGALRM);
    after_alarm = errno;
    errno = 78;
    raise(SIGPIPE);
    after_pipe = errno;
    dup2(out, STDOUT_FILENO);
    close(out);
    EXPECT_EQ(after_alarm, 77);
    EXPECT_EQ(after_pipe, 78);
}

TEST_F(Client, AnAlarmFreesASenderFromAServerThatReadsNothing)
{
    connect(4096);
    const std::string payload = noise(500000);
    std::string said;
    {
        OutputCapture out(STDOUT_FILENO);
        // More than any socket holds; each element is done with only because of the alarm.
        for (uint64_t i = 1; i <= 40; i++) {
            enqueue(payload, i);
            ASSERT_TRUE(comes([i] {
                alarm_once();
                return network_last_sent() == i;
            }));
        }
        said = out.text();
    }
    EXPECT_GT(calls.short_writes, 0);
    EXPECT_THAT(said, StartsWith(alarm_line));
}

TEST_F(Client, AnAlarmFreesAnExitThatWaitsForTheSender)
{
    network_queue_list_exit();
    ASSERT_EQ(network_queue_list_init(element_bytes, 40), 0);
    connect(4096);
    const std::string payload = noise(500000);
    for (uint64_t i = 1; i <= 39; i++)
        enqueue(payload, i);
    std::atomic<bool> done{false};
    std::thread freeing([&] {
        while (!done)
            alarm_once();
    });
    {
        OutputCapture out(STDOUT_FILENO);
        EXPECT_EQ(network_exit(), 0);
    }
    done = true;
    freeing.join();
    EXPECT_EQ(network_last_sent(), 39u);
    EXPECT_EQ(network_is_inited(), 0);
}

TEST_F(Client, AnAlarmWithoutASenderIsNoSignal)
{
    EXPECT_EQ(network_alarm_send(), 0) << "it would have ended the process";
    connect();
    EXPECT_EQ(network_exit(), 0);
    std::string said;
    {
        OutputCapture out(STDOUT_FILENO);
        EXPECT_EQ(network_alarm_send(), 0);
        said = out.text();
    }
    EXPECT_EQ(said, "");
}

// ---- Threads ------------------------------------------------------------------------------------------------------

TEST_F(Client, EverybodyAtOnce)
{
    listen();
    OutputCapture out(STDOUT_FILENO);
    std::atomic<bool> stop{false};
    std::vector<std::thread> threads;
    threads.emplace_back([&] { // the server: takes what comes
        while (!stop) {
            TcpServer::Peer client = server->accept();
            while (client.connected() && !client.receive(4096).empty()) {
            }
        }
    });
    threads.emplace_back([&] {
        while (!stop)
            alarm_once();
    });
    threads.emplace_back([&] {
        while (!stop) {
            network_is_inited();
            network_last_sent();
            network_server_set(address.c_str());
        }
    });
    for (int run = 0; run < 20; run++) {
        ASSERT_EQ(network_init(), 0);
        std::thread producer([] {
            for (uint64_t i = 1; i < 20; i++)
                enqueue("payload", i);
        });
        producer.join(); // before the exit
        EXPECT_EQ(network_exit(), 0);
    }
    stop = true;
    const int last = tcp_client_setup(address.c_str(), NETWORK_SERVER_PORT); // wakes the server
    close(last);
    for (std::thread &thread : threads)
        thread.join();
}

TEST_F(Client, TwoStartsAndTwoStopsAtOnce)
{
    listen();
    OutputCapture out(STDOUT_FILENO);
    for (int run = 0; run < 20; run++) {
        std::atomic<int> started{0}, stopped{0};
        std::thread other([&] { started += network_init() == 0; });
        started += network_init() == 0;
        other.join();
        EXPECT_EQ(started, 1);
        std::thread stopping([&] { stopped += network_exit() == 0; });
        stopped += network_exit() == 0;
        stopping.join();
        EXPECT_EQ(stopped, 2) << "one of them had nothing to do";
        EXPECT_EQ(network_is_inited(), 0);
        peer = server->accept();
    }
}

} // namespace

// ---- The wrapped calls --------------------------------------------------------------------------------------------

extern "C" {

int __real_pthread_create(pthread_t *, const pthread_attr_t *, void *(*)(void *), void *);
int __wrap_pthread_create(pthread_t *thread, const pthread_attr_t *attributes, void *(*work)(void *),
                          void *argument)
{
    calls.held_create = static_cast<int>(locks_held());
    return calls.create_error ? calls.create_error.load()
                              : __real_pthread_create(thread, attributes, work, argument);
}

int __real_pthread_join(pthread_t, void **);
int __wrap_pthread_join(pthread_t thread, void **result)
{
    calls.held_join = static_cast<int>(locks_held());
    const int error = __real_pthread_join(thread, result);
    return calls.join_error ? calls.join_error.load() : error;
}

int __real_socket(int, int, int);
int __wrap_socket(int domain, int type, int protocol)
{
    if (calls.watch_locks && locks_held() > 0) // the test's own sockets are made without
        calls.held_socket = static_cast<int>(locks_held());
    if (calls.socket_error) {
        errno = calls.socket_error;
        return -1;
    }
    return __real_socket(domain, type, protocol);
}

int __real_bind(int, const sockaddr *, socklen_t);
int __wrap_bind(int fd, const sockaddr *address, socklen_t length)
{
    if (calls.bind_error) {
        errno = calls.bind_error;
        return -1;
    }
    sockaddr_in copy = {};
    memcpy(&copy, address, std::min<size_t>(length, sizeof copy));
    if (copy.sin_port == 0) // the client's, not a server's
        calls.bound.push_back(copy);
    return __real_bind(fd, address, length);
}

ssize_t __real_write(int, const void *, size_t);
ssize_t __wrap_write(int fd, const void *bytes, size_t length)
{
    const ssize_t result = __real_write(fd, bytes, length);
    if (fd <= STDERR_FILENO)
        return result;
    const int error = result < 0 ? errno : 0;
    calls.held_write = static_cast<int>(locks_held());
    if ((result >= 0 && result < static_cast<ssize_t>(length)) || error == EINTR)
        calls.short_writes++;
    calls.last_write_error = error;
    calls.writes++;
    errno = error;
    return result;
}

void *__real_naro_malloc(size_t, size_t);
void *__wrap_naro_malloc(size_t size, size_t alignment)
{
    if (size != NETWORK_TX_BYTES)
        return __real_naro_malloc(size, alignment);
    if (calls.buffer_refused)
        return nullptr;
    calls.buffers++;
    return calls.buffer = __real_naro_malloc(size, alignment);
}

void __real_naro_free(void *);
void __wrap_naro_free(void *memory)
{
    if (memory && memory == calls.buffer)
        calls.buffers--;
    __real_naro_free(memory);
}

int __real_pthread_kill(pthread_t, int);
int __wrap_pthread_kill(pthread_t thread, int number)
{
    calls.kills++;
    return __real_pthread_kill(thread, number);
}

// In front of the C library's.
__sighandler_t signal(int number, __sighandler_t handler) noexcept
{
    static const auto real = reinterpret_cast<decltype(&signal)>(dlsym(RTLD_NEXT, "signal"));
    if (calls.in_handler)
        calls.rearmed = number;
    return real(number, handler);
}
}
