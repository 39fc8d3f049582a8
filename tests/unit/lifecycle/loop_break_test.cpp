// The orderly end of the whole daemon: its real modules run in this process on the test's main thread, a media
// server answers from another, and the loop-break wake-up ends it all, with status 0 and within a second.
#include <atomic>
#include <chrono>
#include <ev.h>
#include <functional>
#include <gtest/gtest.h>
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <string.h>
#include <string>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <thread>
#include <unistd.h>

#include "algo_shbf.h"
#include "event_channels.h"
#include "isolate.h"
#include "lifecycle.h"
#include "log_capture.h"
#include "naro_ipc_wire.h"
#include "shbfev.h"

namespace
{

const std::string root = scratch_root();

// A media server: answers every command, counts "rawcap" requests, and sends what it is told to.
class MediaServer
{
  public:
    enum class Frames { none, moving };

    explicit MediaServer(Frames what) : frames(what) {}
    ~MediaServer() { stop(); }
    MediaServer(const MediaServer &) = delete;
    MediaServer &operator=(const MediaServer &) = delete;

    // False: another media server has the name.
    bool start()
    {
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        memcpy(address.sun_path + 1, NARO_IPC_SOCKET_NAME, sizeof NARO_IPC_SOCKET_NAME);
        listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        if (bind(listener, reinterpret_cast<sockaddr *>(&address), sizeof address) != 0 ||
            listen(listener, 4) != 0) {
            close(listener);
            return false;
        }
        quit = eventfd(0, EFD_CLOEXEC);
        commands_thread = std::thread([this] { serve_commands(); });
        stream_thread = std::thread([this] { serve_stream(); });
        return true;
    }
    void stop()
    {
        if (!commands_thread.joinable())
            return;
        eventfd_write(quit, 1);
        commands_thread.join();
        stream_thread.join();
        close(quit);
        close(listener);
    }

    std::function<void(int)> on_request; // after the n-th request was served; set it before start
    std::atomic<int> commands{0};

  private:
    void serve_commands()
    {
        int client = -1;
        for (;;) {
            pollfd wait[] = {{quit, POLLIN, 0}, {client < 0 ? listener : client, POLLIN, 0}};
            poll(wait, 2, -1);
            if (wait[0].revents)
                break;
            if (client < 0) {
                client = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
                continue;
            }
            uint32_t request[NARO_IPC_MAX_REQUEST / 4];
            if (read(client, request, sizeof request) < 20) {
                close(client);
                client = -1;
                continue;
            }
            commands++;
            const uint32_t reply[] = {NARO_IPC_MAGIC, 24, request[2] + 1, request[3], 0, NARO_IPC_TAIL};
            if (write(client, reply, sizeof reply) != sizeof reply)
                abort();
        }
        if (client >= 0)
            close(client);
    }

    void serve_stream()
    {
        struct ev_loop *loop = ev_loop_new(EVFLAG_AUTO);
        stream = shbfev_brd_create(EVENT_PATH_RAW_STREAM);
        shbfev_brd_on_message(
            stream,
            [](void *self, const void *buffer, size_t length) {
                static_cast<MediaServer *>(self)->requested(
                    std::string(static_cast<const char *>(buffer), length));
                return 0;
            },
            this);
        if (shbfev_brd_start(loop, stream) != 0)
            abort();
        ev_io end;
        ev_io_init(
            &end, [](struct ev_loop *self, ev_io *, int) { ev_break(self, EVBREAK_ALL); }, quit, EV_READ);
        ev_io_start(loop, &end);
        ev_run(loop, 0);
        shbfev_brd_destroy(stream);
        ev_loop_destroy(loop);
    }

    void requested(const std::string &text)
    {
        EXPECT_EQ(text, "rawcap");
        requests++;
        if (frames == Frames::moving)
            send_frame();
        if (on_request)
            on_request(requests);
    }

    // Grey, with a noisy patch that is new in every picture: motion, and work for the detector.
    void send_frame()
    {
        std::string message(sizeof(raw_frame_header) + ANALYSIS_FRAME_BYTES, '\x80');
        raw_frame_header header = {};
        header.width = ANALYSIS_WIDTH;
        header.height = ANALYSIS_HEIGHT;
        header.size = ANALYSIS_FRAME_BYTES;
        header.timestamp = static_cast<uint64_t>(requests);
        memcpy(&message[0], &header, sizeof header);
        uint32_t noise = static_cast<uint32_t>(requests);
        for (int y = 40; y < 160; y++)
            for (int x = 80; x < 240; x++) {
                noise = noise * 1664525u + 1013904223u;
                message[sizeof header + static_cast<size_t>(y * ANALYSIS_WIDTH + x)] =
                    static_cast<char>(noise >> 24);
            }
        shbfev_brd_broadcast_message(stream, message.data(), message.size());
    }

    const Frames frames;
    int listener = -1;
    int quit = -1; // readable when both threads are to end
    std::thread commands_thread, stream_thread;
    void *stream = nullptr; // stream_thread only, as is `requests`
    int requests = 0;
};

double seconds_now()
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

class LoopBreak : public testing::Test
{
  protected:
    static void SetUpTestSuite() { isolate_network(); }

    // Lives a whole life. `wake` is called on the media server's thread after request `request`.
    void live(MediaServer::Frames frames, int request, const std::function<void()> &wake)
    {
        MediaServer server(frames);
        server.on_request = [&](int n) {
            if (n == request) {
                woken_s = seconds_now();
                wake();
            }
        };
        if (!server.start())
            GTEST_SKIP() << "another media server runs on this machine, and namespaces are refused";
        status = lifecycle_run();
        took_s = seconds_now() - woken_s.load();
        commands = server.commands;
        signal(SIGPIPE, SIG_DFL);
    }
    void expect_orderly_end()
    {
        EXPECT_EQ(status, 0);
        EXPECT_LT(took_s, 1.);
        // There is no board here: two LEDs, each asked for, read and set. And one setting is deliberately given up in
        // another layer than it was followed in.
        std::vector<std::string> errors(6, "fail to device!\n");
        errors.push_back("[kv_client_exit]send notify unreg fail[people_sensitivity unreg].\n");
        EXPECT_EQ(log.texts(NARO_LOG_ERR), errors);
        std::vector<std::string> end;
        for (const std::string &text : log.texts(NARO_LOG_INFO))
            if (text.find("shbf") != std::string::npos || text.find("ev loop") != std::string::npos)
                end.push_back(text);
        EXPECT_EQ(
            end, (std::vector<std::string>{"ev loop break all\n", "shbf stop running ...\n", "shbf exit\n"}));
    }

    LogCapture log;
    std::atomic<double> woken_s{0.};
    int status = -1;
    double took_s = 0.;
    int commands = 0;
};

TEST_F(LoopBreak, WhileNoFramesCome)
{
    live(MediaServer::Frames::none, 3, algo_shbf_signal_handler);
    if (!IsSkipped())
        expect_orderly_end();
}

TEST_F(LoopBreak, AtTheFirstRequest)
{
    live(MediaServer::Frames::none, 1, algo_shbf_signal_handler);
    if (!IsSkipped())
        expect_orderly_end();
}

TEST_F(LoopBreak, FromASignalHandler)
{
    signal(SIGUSR1, [](int) { algo_shbf_signal_handler(); });
    live(MediaServer::Frames::none, 2, [] { kill(getpid(), SIGUSR1); });
    signal(SIGUSR1, SIG_DFL);
    if (!IsSkipped())
        expect_orderly_end();
}

TEST_F(LoopBreak, WhileFramesAreAnalysed)
{
    live(MediaServer::Frames::moving, 8, algo_shbf_signal_handler);
    if (IsSkipped())
        return;
    expect_orderly_end();
    EXPECT_GT(commands, 0) << "detection was at work";
}

TEST_F(LoopBreak, WorkerThreadsBroadcastOnAndOn)
{
    std::atomic<bool> done{false};
    std::atomic<int> sent{0}, failed{0};
    std::thread worker;
    live(MediaServer::Frames::none, 3, [&] {
        worker = std::thread([&] {
            while (!done) {
                failed +=
                    shbf_event_broadcast(EVENT_CHANNEL_MD, EVENT_OBJECT_MOTION, EVENT_MOTION_LENGTH) != 0;
                sent++;
            }
        });
        while (sent < 100)
            sched_yield();
        algo_shbf_signal_handler();
    });
    if (IsSkipped())
        return;
    const int at_the_end = sent;
    while (sent < at_the_end + 100) // the loop is gone by now
        sched_yield();
    done = true;
    worker.join();
    EXPECT_EQ(failed, 0);
    expect_orderly_end();
}

} // namespace
