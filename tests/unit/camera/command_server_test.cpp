// The command socket for real, in a network of its own: replies, order, several clients, misbehaviour.
#include "command_server.h"

#include <errno.h>
#include <ev.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include "camera_wire.h"
#include "isolate.h"
#include "log_capture.h"

namespace
{

using testing::ElementsAre;
using testing::HasSubstr;

std::vector<std::string> happened;
naro_isp_track_param tracked;

void on_track(const naro_isp_track_param *track)
{
    tracked = *track;
    happened.push_back("track");
}

int connections;

void on_client(void)
{
    connections++;
}

uint32_t (*hears)(void); // null: nothing
int asked;

struct CommandServer : testing::Test {
    static void SetUpTestSuite() { alone = isolate_network(); }

    void SetUp() override
    {
        if (!alone)
            GTEST_SKIP() << "no network of its own: the command socket's name is the machine's";
        loop = ev_loop_new(EVFLAG_AUTO);
    }
    void start(const char *script_text = nullptr)
    {
        command_server_settings settings = {nullptr, on_track, on_client, hears};
        if (script_text) {
            char error[256] = "";
            ASSERT_EQ(scenario_parse(script_text, strlen(script_text), &script, error, sizeof error), 0)
                << error;
            settings.script = &script;
        }
        ASSERT_EQ(command_server_start(loop, &settings), 0);
    }
    ~CommandServer() override
    {
        command_server_stop();
        for (const int fd : clients)
            close(fd);
        if (loop)
            ev_loop_destroy(loop);
    }

    // Connects as the daemon does.
    int connect_client(bool wanted = true)
    {
        sockaddr_un name = {};
        name.sun_family = AF_UNIX;
        memcpy(name.sun_path + 1, "naro_IPCsock", 12);
        const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
        EXPECT_EQ(connect(fd, reinterpret_cast<sockaddr *>(&name), sizeof name) == 0, wanted);
        clients.push_back(fd);
        pump();
        return fd;
    }
    // Everything that can happen without waiting happens.
    void pump()
    {
        for (int i = 0; i < 8; i++)
            ev_run(loop, EVRUN_NOWAIT);
    }
    void say(int fd, const Bytes &bytes)
    {
        ASSERT_EQ(send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL), static_cast<ssize_t>(bytes.size()));
        pump();
    }
    // What has come back; *closed when the server has closed.
    Bytes hear(int fd, bool *closed = nullptr)
    {
        Bytes all;
        uint8_t bytes[4096];
        ssize_t got;
        while ((got = recv(fd, bytes, sizeof bytes, MSG_DONTWAIT)) > 0)
            all.insert(all.end(), bytes, bytes + got);
        if (closed)
            *closed = got == 0 || errno == ECONNRESET;
        return all;
    }
    Bytes ask(int fd, const Bytes &bytes)
    {
        say(fd, bytes);
        return hear(fd);
    }

    static bool alone;
    struct ev_loop *loop = nullptr;
    scenario script;
    std::vector<int> clients;
};
bool CommandServer::alone;

void expect_reply(const Bytes &reply, uint32_t cmd_no, uint32_t ret, size_t data)
{
    ASSERT_EQ(reply.size(), 24 + data) << "command " << cmd_no;
    EXPECT_EQ(get_word(&reply[0]), 0x4F52414Eu);
    EXPECT_EQ(get_word(&reply[4]), 24 + data);
    EXPECT_EQ(get_word(&reply[8]), cmd_no + 1);
    EXPECT_EQ(get_word(&reply[16]), ret);
    EXPECT_EQ(get_word(&reply[20 + data]), 0xA5A5u);
}

TEST_F(CommandServer, AnswersEveryCommand)
{
    start();
    const int fd = connect_client();
    for (const naro_ipc_command &command : naro_ipc_commands)
        expect_reply(ask(fd, request_for(command.cmd_no)), command.cmd_no, 0, command.data);
    EXPECT_EQ(command_server_get_counts()->commands, 16u);
    EXPECT_EQ(command_server_get_counts()->refused, 0u);
    EXPECT_EQ(command_server_get_counts()->track_commands, 1u);
    EXPECT_GT(command_server_get_counts()->last_command_at, 0);
    EXPECT_EQ(command_server_get_counts()->clients, 1);
}

TEST_F(CommandServer, ASoundIsAskedForAtEachQuestion)
{
    hears = [] { return static_cast<uint32_t>(++asked % 2); };
    start(R"({ "rules": [ { "command": 4145, "occurrence": 4, "action": "refuse", "ret": 9 } ] })");
    const int fd = connect_client();
    for (const uint32_t heard : {1u, 0u, 1u}) {
        const Bytes reply = ask(fd, request_for(NARO_CMD_SOUND_RESULT_GET));
        expect_reply(reply, NARO_CMD_SOUND_RESULT_GET, 0, 4);
        EXPECT_EQ(get_word(&reply[20]), heard);
        EXPECT_EQ(command_server_isp()->sound, heard);
    }
    const Bytes refused = ask(fd, request_for(NARO_CMD_SOUND_RESULT_GET));
    expect_reply(refused, NARO_CMD_SOUND_RESULT_GET, 9, 4);
    EXPECT_EQ(get_word(&refused[20]), 0u);
    ask(fd, request_for(NARO_CMD_WDR_ENABLE));
    EXPECT_EQ(asked, 3);
    hears = nullptr;
}

TEST_F(CommandServer, KeepsOneStateForAllClients)
{
    start();
    const int one = connect_client(), other = connect_client();
    expect_reply(ask(one, request_bytes(NARO_CMD_DAYNIGHT_MODE_SET, 1, words({1}))),
                 NARO_CMD_DAYNIGHT_MODE_SET, 0, 0);
    const Bytes reply = ask(other, request_for(NARO_CMD_DAYNIGHT_MODE_GET));
    expect_reply(reply, NARO_CMD_DAYNIGHT_MODE_GET, 0, 4);
    EXPECT_EQ(get_word(&reply[20]), 1u);
    EXPECT_EQ(command_server_isp()->mode, 1u);
    EXPECT_EQ(command_server_get_counts()->clients, 2);
    EXPECT_EQ(connections, 2);
    close(clients[0]);
    clients.erase(clients.begin());
    pump();
    EXPECT_EQ(command_server_get_counts()->clients, 1);
    expect_reply(ask(other, request_for(NARO_CMD_WDR_ENABLE)), NARO_CMD_WDR_ENABLE, 0, 0);
}

TEST_F(CommandServer, TakesRequestsInPiecesAndInHeaps)
{
    start();
    const int fd = connect_client();
    const Bytes track = request_for(NARO_CMD_TRACK_RUN), query = request_for(NARO_CMD_EV_ATTR_GET);
    for (size_t i = 0; i < track.size(); i++) {
        EXPECT_EQ(hear(fd).size(), 0u);
        say(fd, {track[i]});
    }
    expect_reply(hear(fd), NARO_CMD_TRACK_RUN, 0, 0);
    Bytes heap;
    for (const Bytes *part : {&query, &track, &query, &track, &query})
        heap.insert(heap.end(), part->begin(), part->end());
    say(fd, heap);
    pump();
    EXPECT_EQ(hear(fd).size(), 3u * 52 + 2 * 24);
    EXPECT_EQ(command_server_get_counts()->track_commands, 3u);
}

TEST_F(CommandServer, RepliesKeepTheOrderOfRequests)
{
    start();
    const int fd = connect_client();
    Bytes both = request_for(NARO_CMD_TRACK_RUN);
    const Bytes query = request_for(NARO_CMD_DAYNIGHT_MODE_GET);
    both.insert(both.end(), query.begin(), query.end());
    const Bytes replies = ask(fd, both);
    ASSERT_EQ(replies.size(), 24u + 28);
    EXPECT_EQ(get_word(&replies[8]), static_cast<uint32_t>(NARO_CMD_TRACK_RUN + 1));
    EXPECT_EQ(get_word(&replies[24 + 8]), static_cast<uint32_t>(NARO_CMD_DAYNIGHT_MODE_GET + 1));
}

// What may happen between the daemon's two calls: the loop wakes for the command alone, and the event, though sent
// before, is only to be found when the kernel is asked again.
int event_pipe[2];

void late_event(struct ev_loop *loop, ev_check *watcher, int)
{
    ev_check_stop(loop, watcher);
    EXPECT_EQ(write(event_pipe[1], "e", 1), 1);
}

void take_event(struct ev_loop *, ev_io *watcher, int)
{
    char byte;
    EXPECT_EQ(read(watcher->fd, &byte, 1), 1);
    happened.push_back("event");
}

TEST_F(CommandServer, WhatCameBeforeATrackingCommandIsHandledBeforeIt)
{
    start();
    const int fd = connect_client();
    ASSERT_EQ(pipe(event_pipe), 0);
    ev_io event;
    ev_io_init(&event, take_event, event_pipe[0], EV_READ);
    ev_io_start(loop, &event);
    for (int i = 0; i < 3; i++) {
        happened.clear();
        ev_check late;
        ev_check_init(&late, late_event);
        ev_check_start(loop, &late);
        say(fd, request_for(NARO_CMD_TRACK_RUN));
        pump();
        EXPECT_THAT(happened, ElementsAre("event", "track"));
        expect_reply(hear(fd), NARO_CMD_TRACK_RUN, 0, 0);
    }
    ev_io_stop(loop, &event);
    close(event_pipe[0]);
    close(event_pipe[1]);
}

TEST_F(CommandServer, TheBoxesOfATrackingCommandAreHandedOn)
{
    start();
    const int fd = connect_client();
    std::vector<uint32_t> boxes(24);
    boxes[0] = 10;
    boxes[3] = 40;
    boxes[23] = 7;
    ask(fd, request_bytes(NARO_CMD_TRACK_RUN, 1, words(boxes)));
    EXPECT_EQ(tracked.box[0].x1, 10);
    EXPECT_EQ(tracked.box[0].y2, 40);
    EXPECT_EQ(tracked.box[5].y2, 7);
    EXPECT_TRUE(command_server_isp()->tracking);
}

TEST_F(CommandServer, RefusesWithTheFullReply)
{
    start();
    const int fd = connect_client();
    Bytes wrong_type = request_for(NARO_CMD_WB_ATTR_GET);
    put_word(&wrong_type[12], 1);
    expect_reply(ask(fd, wrong_type), NARO_CMD_WB_ATTR_GET, IPC_RET_BAD_TYPE, 32);
    expect_reply(ask(fd, request_bytes(NARO_CMD_DAYNIGHT_MODE_SET, 1, words({9}))),
                 NARO_CMD_DAYNIGHT_MODE_SET, IPC_RET_BAD_VALUE, 0);
    expect_reply(ask(fd, request_bytes(5000, 1, Bytes(3))), 5000, IPC_RET_UNKNOWN_COMMAND, 0);
    expect_reply(ask(fd, request_for(NARO_CMD_WDR_ENABLE)), NARO_CMD_WDR_ENABLE, 0, 0);
    EXPECT_EQ(command_server_get_counts()->refused, 3u);
    EXPECT_EQ(command_server_get_counts()->commands, 4u);
}

TEST_F(CommandServer, ARefusalCarriesNoData)
{
    start();
    const int fd = connect_client();
    Bytes wrong_tail = request_for(NARO_CMD_EV_ATTR_GET);
    wrong_tail[16] ^= 1;
    const Bytes reply = ask(fd, wrong_tail);
    expect_reply(reply, NARO_CMD_EV_ATTR_GET, IPC_RET_BAD_TAIL, 28);
    EXPECT_EQ(Bytes(&reply[20], &reply[48]), Bytes(28));
}

TEST_F(CommandServer, AnswersAndClosesAfterAWrongMagicOrLength)
{
    start();
    OutputCapture errors(STDERR_FILENO);
    for (const uint32_t at : {0u, 4u}) {
        const int fd = connect_client(), other = connect_client();
        Bytes wrong = request_for(NARO_CMD_DAYNIGHT_MODE_GET);
        wrong[at]++;
        say(fd, wrong);
        bool closed = false;
        expect_reply(hear(fd, &closed), NARO_CMD_DAYNIGHT_MODE_GET,
                     at == 0 ? IPC_RET_BAD_MAGIC : IPC_RET_BAD_LENGTH, 4);
        EXPECT_TRUE(closed);
        expect_reply(ask(other, request_for(NARO_CMD_WDR_ENABLE)), NARO_CMD_WDR_ENABLE, 0, 0);
    }
    EXPECT_THAT(errors.text(),
                HasSubstr("the command socket got what is not a request (command 4118, error 2); the "
                          "client is closed"));
}

TEST_F(CommandServer, ATrackingCommandOfTheWrongLengthIsNoAnswerToAFrame)
{
    start();
    OutputCapture errors(STDERR_FILENO);
    const int fd = connect_client();
    Bytes wrong = request_for(NARO_CMD_TRACK_RUN);
    put_word(&wrong[4], 115);
    say(fd, wrong);
    EXPECT_THAT(happened, ElementsAre());
    EXPECT_EQ(command_server_get_counts()->track_commands, 0u);
}

TEST_F(CommandServer, ASecondCameraIsToldWhereTheFirstIs)
{
    start();
    OutputCapture errors(STDERR_FILENO);
    // Within one process the module has one server; another process would see the same.
    const command_server_settings settings = {};
    EXPECT_EQ(command_server_start(loop, &settings), -1);
    EXPECT_THAT(errors.text(),
                HasSubstr("another camera runs on this machine already: process " + std::to_string(getpid()) +
                          " listens on the command socket \"naro_IPCsock\". There can be one at a time"));
    expect_reply(ask(connect_client(), request_for(NARO_CMD_WDR_ENABLE)), NARO_CMD_WDR_ENABLE, 0, 0);
}

TEST_F(CommandServer, TooManyClientsAreRefused)
{
    start();
    OutputCapture errors(STDERR_FILENO);
    for (int i = 0; i < COMMAND_SERVER_CLIENTS_MAX; i++)
        connect_client();
    EXPECT_EQ(command_server_get_counts()->clients, COMMAND_SERVER_CLIENTS_MAX);
    const int one_more = connect_client();
    bool closed = false;
    hear(one_more, &closed);
    EXPECT_TRUE(closed);
    EXPECT_THAT(errors.text(), HasSubstr("more than 32 clients"));
    expect_reply(ask(clients[0], request_for(NARO_CMD_WDR_ENABLE)), NARO_CMD_WDR_ENABLE, 0, 0);
}

TEST_F(CommandServer, AClientThatTakesNoRepliesIsDroppedAndTheOthersServed)
{
    start();
    OutputCapture errors(STDERR_FILENO);
    const int deaf = connect_client(), other = connect_client();
    const int small = 4096;
    setsockopt(deaf, SOL_SOCKET, SO_RCVBUF, &small, sizeof small);
    Bytes heap;
    for (int i = 0; i < 50; i++) {
        const Bytes query = request_for(NARO_CMD_WB_ATTR_GET);
        heap.insert(heap.end(), query.begin(), query.end());
    }
    for (int i = 0; i < 2000 && command_server_get_counts()->clients == 2; i++) {
        (void)!send(deaf, heap.data(), heap.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
        pump();
    }
    EXPECT_EQ(command_server_get_counts()->clients, 1);
    EXPECT_THAT(errors.text(), HasSubstr("does not take its replies; dropped"));
    expect_reply(ask(other, request_for(NARO_CMD_WDR_ENABLE)), NARO_CMD_WDR_ENABLE, 0, 0);
}

TEST_F(CommandServer, AClientThatGoesInTheMiddleOfATrackingCommandHurtsNobody)
{
    start();
    const int fd = connect_client(), other = connect_client();
    const Bytes track = request_for(NARO_CMD_TRACK_RUN);
    ASSERT_EQ(send(fd, track.data(), track.size(), 0), static_cast<ssize_t>(track.size()));
    ev_run(loop, EVRUN_NOWAIT);
    close(clients[0]);
    clients.erase(clients.begin());
    pump();
    EXPECT_EQ(command_server_get_counts()->track_commands, 1u) << "the frame was analysed";
    expect_reply(ask(other, request_for(NARO_CMD_WDR_ENABLE)), NARO_CMD_WDR_ENABLE, 0, 0);
}

// ---- Scripted misbehaviour ----

TEST_F(CommandServer, Refuse)
{
    start("{\"rules\":[{\"command\":4120,\"occurrence\":2,\"action\":\"refuse\",\"ret\":5}]}");
    const int fd = connect_client();
    const Bytes night = request_bytes(NARO_CMD_DAYNIGHT_MODE_SET, 1, words({1}));
    const Bytes day = request_bytes(NARO_CMD_DAYNIGHT_MODE_SET, 1, words({0}));
    expect_reply(ask(fd, night), NARO_CMD_DAYNIGHT_MODE_SET, 0, 0);
    expect_reply(ask(fd, day), NARO_CMD_DAYNIGHT_MODE_SET, 5, 0);
    EXPECT_EQ(command_server_isp()->mode, 1u) << "nothing is done";
    expect_reply(ask(fd, day), NARO_CMD_DAYNIGHT_MODE_SET, 0, 0);
}

TEST_F(CommandServer, ARefusedTrackingCommandStillEndsItsFrame)
{
    start("{\"rules\":[{\"command\":4139,\"action\":\"refuse\",\"ret\":5}]}");
    const int fd = connect_client();
    expect_reply(ask(fd, request_for(NARO_CMD_TRACK_RUN)), NARO_CMD_TRACK_RUN, 5, 0);
    EXPECT_THAT(happened, ElementsAre("track"));
}

TEST_F(CommandServer, ShortNumberSurplusAndData)
{
    start("{\"rules\":[{\"command\":4118,\"occurrence\":1,\"action\":\"short\",\"bytes\":27},"
          "{\"command\":4118,\"occurrence\":2,\"action\":\"number\",\"number\":4118},"
          "{\"command\":4118,\"occurrence\":3,\"action\":\"surplus\",\"bytes\":5},"
          "{\"command\":4118,\"occurrence\":4,\"action\":\"data\",\"words\":[77]}]}");
    const int fd = connect_client();
    const Bytes query = request_for(NARO_CMD_DAYNIGHT_MODE_GET);
    EXPECT_EQ(ask(fd, query).size(), 27u);
    const Bytes number = ask(fd, query);
    ASSERT_EQ(number.size(), 28u);
    EXPECT_EQ(get_word(&number[8]), 4118u);
    EXPECT_EQ(get_word(&number[16]), 0u);
    EXPECT_EQ(ask(fd, query).size(), 33u);
    const Bytes data = ask(fd, query);
    expect_reply(data, 4118, 0, 4);
    EXPECT_EQ(get_word(&data[20]), 77u);
    expect_reply(ask(fd, query), 4118, 0, 4);
}

TEST_F(CommandServer, Close)
{
    start("{\"rules\":[{\"command\":4118,\"occurrence\":1,\"action\":\"close\"},"
          "{\"command\":4118,\"occurrence\":2,\"action\":\"close\",\"bytes\":10}]}");
    for (const size_t length : {size_t(0), size_t(10)}) {
        const int fd = connect_client();
        say(fd, request_for(NARO_CMD_DAYNIGHT_MODE_GET));
        bool closed = false;
        EXPECT_EQ(hear(fd, &closed).size(), length);
        EXPECT_TRUE(closed);
    }
    expect_reply(ask(connect_client(), request_for(NARO_CMD_DAYNIGHT_MODE_GET)), 4118, 0, 4);
}

TEST_F(CommandServer, DelayHoldsUpOneClientOnly)
{
    start("{\"rules\":[{\"command\":4118,\"occurrence\":1,\"action\":\"delay\",\"ms\":150}]}");
    const int late = connect_client(), other = connect_client();
    Bytes two = request_for(NARO_CMD_DAYNIGHT_MODE_GET);
    const Bytes next = request_for(NARO_CMD_WDR_ENABLE);
    two.insert(two.end(), next.begin(), next.end());
    ev_now_update(loop);
    const double sent_at = ev_now(loop);
    say(late, two);
    EXPECT_EQ(hear(late).size(), 0u);
    expect_reply(ask(other, next), NARO_CMD_WDR_ENABLE, 0, 0);
    ev_run(loop, EVRUN_ONCE); // until the delay is over
    EXPECT_GE(ev_now(loop) - sent_at, 0.149);
    pump();
    EXPECT_EQ(hear(late).size(), 28u + 24);
}

} // namespace
