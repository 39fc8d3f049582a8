// Start-up and teardown order, and the signals: every module that is started is played by the test.
#include "lifecycle.h"

#include <dlfcn.h>
#include <errno.h>
#include <functional>
#include <gmock/gmock.h>
#include <map>
#include <pthread.h>
#include <signal.h>
#include <stdio.h>
#include <stdio_ext.h>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include "algo_shbf.h"
#include "ir_white_led.h"
#include "ircut.h"
#include "kv_client.h"
#include "log_capture.h"
#include "mid_hchd.h"
#include "motion_event_record.h"
#include "naro_ipc.h"
#include "queues.h"
#include "sound_detect.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace
{

struct Modules {
    std::vector<std::string> calls;
    std::map<std::string, int> results; // by call; else 0
    std::map<std::string, std::function<void()>> inside;
} modules;

int called(const std::string &name)
{
    modules.calls.push_back(name);
    const auto inside = modules.inside.find(name);
    if (inside != modules.inside.end())
        inside->second();
    const auto result = modules.results.find(name);
    return result == modules.results.end() ? 0 : result->second;
}

bool watch_signals; // writes calls of signal() down

class Lifecycle : public testing::Test
{
  protected:
    void SetUp() override { modules = Modules(); }
    void TearDown() override
    {
        watch_signals = false;
        for (int number : {SIGPIPE, SIGINT, SIGQUIT, SIGTERM})
            signal(number, SIG_DFL);
    }
    LogCapture log;
};

// ---- Order
// -------------------------------------------------------------------------------------------------

TEST_F(Lifecycle, WholeLife)
{
    watch_signals = true;
    EXPECT_EQ(lifecycle_run(), 0);
    EXPECT_THAT(modules.calls,
                ElementsAre("signal PIPE ignored", "signal INT handled", "signal QUIT handled",
                            "signal TERM handled", "naro_ipc_server_connect", "queues2_init",
                            "algo_shbf_init", "ir_white_led_init", "kv_client_init", "motion_record_init",
                            "sound_detect_init", "mid_hchd_init 2", "algo_shbf_run",
                            // teardown
                            "naro_ipc_server_give_up", "ircut_exit", "mid_hchd_fini", "kv_client_exit",
                            "motion_record_finish", "algo_shbf_fini", "queues2_exit",
                            "naro_ipc_server_disconnect"));
    EXPECT_THAT(log.texts(), IsEmpty());
}

TEST_F(Lifecycle, NoConnection)
{
    modules.results["naro_ipc_server_connect"] = -1;
    EXPECT_EQ(lifecycle_run(), 0);
    EXPECT_THAT(modules.calls, ElementsAre("naro_ipc_server_connect"));
    EXPECT_THAT(log.lines(), ElementsAre(LogCapture::Line{NARO_LOG_ERR, "naro_ipc_server_connect fail\n"}));
}

TEST_F(Lifecycle, NoQueues)
{
    modules.results["queues2_init"] = -1;
    EXPECT_EQ(lifecycle_run(), 0);
    EXPECT_THAT(modules.calls,
                ElementsAre("naro_ipc_server_connect", "queues2_init", "naro_ipc_server_disconnect"));
    EXPECT_THAT(log.lines(), ElementsAre(LogCapture::Line{NARO_LOG_ERR, "queues_init fail\n"}));
}

TEST_F(Lifecycle, NoChannels)
{
    modules.results["algo_shbf_init"] = -1;
    EXPECT_EQ(lifecycle_run(), 0);
    EXPECT_THAT(modules.calls, ElementsAre("naro_ipc_server_connect", "queues2_init", "algo_shbf_init",
                                           "queues2_exit", "naro_ipc_server_disconnect"))
        << "what has failed to start is not stopped";
    EXPECT_THAT(log.lines(), ElementsAre(LogCapture::Line{NARO_LOG_ERR, "algo_shbf_init fail\n"}));
}

TEST_F(Lifecycle, NoSettings)
{
    modules.results["kv_client_init"] = -1;
    EXPECT_EQ(lifecycle_run(), 0);
    EXPECT_THAT(modules.calls, ElementsAre("naro_ipc_server_connect", "queues2_init", "algo_shbf_init",
                                           "ir_white_led_init", "kv_client_init", "algo_shbf_fini",
                                           "queues2_exit", "naro_ipc_server_disconnect"));
    EXPECT_THAT(log.lines(), ElementsAre(LogCapture::Line{NARO_LOG_ERR, "kv_client_init fail\n"}));
}

TEST_F(Lifecycle, LightsThatCannotBeSetUpAreNotAFailure)
{
    modules.results["ir_white_led_init"] = -1;
    EXPECT_EQ(lifecycle_run(), 0);
    EXPECT_EQ(modules.calls.size(), 17u);
    EXPECT_THAT(log.texts(), IsEmpty());
}

TEST_F(Lifecycle, AnyResultButZeroIsAFailure)
{
    modules.results["queues2_init"] = 1;
    lifecycle_run();
    EXPECT_TRUE(log.has("queues_init fail\n"));
}

TEST_F(Lifecycle, DetectionThatCannotStartIsNotAFailure)
{
    modules.results["mid_hchd_init 2"] = -1;
    EXPECT_EQ(lifecycle_run(), 0);
    EXPECT_THAT(modules.calls,
                ElementsAre("naro_ipc_server_connect", "queues2_init", "algo_shbf_init", "ir_white_led_init",
                            "kv_client_init", "motion_record_init", "sound_detect_init", "mid_hchd_init 2",
                            "algo_shbf_run", "naro_ipc_server_give_up", "ircut_exit", "mid_hchd_fini",
                            "kv_client_exit", "motion_record_finish", "algo_shbf_fini", "queues2_exit",
                            "naro_ipc_server_disconnect"));
    EXPECT_THAT(log.texts(), IsEmpty());
}

TEST_F(Lifecycle, SoundsThatCannotBeAskedForAreNotAFailure)
{
    modules.results["sound_detect_init"] = -11;
    EXPECT_EQ(lifecycle_run(), 0);
    EXPECT_EQ(modules.calls.size(), 17u);
    EXPECT_THAT(log.texts(), IsEmpty());
}

TEST_F(Lifecycle, RecordsThatCannotStartAreNotAFailure)
{
    modules.results["motion_record_init"] = -1;
    EXPECT_EQ(lifecycle_run(), 0);
    EXPECT_EQ(modules.calls.size(), 17u);
    EXPECT_THAT(log.texts(), IsEmpty());
}

TEST_F(Lifecycle, ResultsOfLoopAndTeardownDoNotMatter)
{
    for (const char *call :
         {"algo_shbf_run", "naro_ipc_server_give_up", "ircut_exit", "mid_hchd_fini", "kv_client_exit",
          "motion_record_finish", "algo_shbf_fini", "queues2_exit", "naro_ipc_server_disconnect"})
        modules.results[call] = -1;
    EXPECT_EQ(lifecycle_run(), 0);
    EXPECT_EQ(modules.calls.size(), 17u);
    EXPECT_THAT(log.texts(), IsEmpty());
}

// ---- Output
// ------------------------------------------------------------------------------------------------

TEST_F(Lifecycle, StandardOutputIsLineBufferedFromTheStart)
{
    int line_buffered = -1;
    modules.inside["naro_ipc_server_connect"] = [&] { line_buffered = __flbf(stdout); };
    setvbuf(stdout, nullptr, _IOFBF, BUFSIZ);
    lifecycle_run();
    EXPECT_NE(line_buffered, 0);
}

// ---- Signals
// -----------------------------------------------------------------------------------------------

class LifecycleSignal : public Lifecycle, public testing::WithParamInterface<int>
{
  protected:
    // Runs the daemon's life in a child, with `inside` called in the midst of `call`; its status as of
    // waitpid. Whatever the child would do at an orderly exit would show as another status.
    static int status_of_child(const std::string &call, const std::function<void()> &inside)
    {
        fflush(nullptr);
        const pid_t child = fork();
        if (child == 0) {
            atexit([] { _exit(7); });
            modules.inside[call] = inside;
            for (const char *name :
                 {"naro_ipc_server_give_up", "ircut_exit", "mid_hchd_fini", "kv_client_exit",
                  "motion_record_finish", "algo_shbf_fini", "queues2_exit"})
                modules.inside[name] = [] { _exit(8); };
            lifecycle_run();
            _exit(9);
        }
        int status = -1;
        waitpid(child, &status, 0);
        return status;
    }
};

TEST_P(LifecycleSignal, EndsTheProcessWith255InTheLoop)
{
    const int number = GetParam();
    const int status = status_of_child("algo_shbf_run", [number] { raise(number); });
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 255);
}

TEST_P(LifecycleSignal, EndsTheProcessWith255WhileConnecting)
{
    const int number = GetParam();
    const int status = status_of_child("naro_ipc_server_connect", [number] { raise(number); });
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 255);
}

TEST_P(LifecycleSignal, EndsTheProcessWhileTheInterruptedThreadHoldsALock)
{
    // The C library takes this lock again at an orderly exit, and would wait for itself.
    const int number = GetParam();
    const int status = status_of_child("algo_shbf_run", [number] {
        flockfile(stdout);
        alarm(10);
        pthread_t other;
        pthread_create(
            &other, nullptr,
            [](void *signal_number) -> void * {
                raise(*static_cast<const int *>(signal_number));
                return nullptr;
            },
            const_cast<int *>(&number));
        pthread_join(other, nullptr);
    });
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 255);
}

INSTANTIATE_TEST_SUITE_P(, LifecycleSignal, testing::Values(SIGINT, SIGQUIT, SIGTERM),
                         [](const auto &test) { return std::string(sigabbrev_np(test.param)); });

TEST_F(Lifecycle, BrokenPipeIsAnErrorAndNoSignal)
{
    modules.inside["algo_shbf_run"] = [] {
        int ends[2];
        ASSERT_EQ(pipe(ends), 0);
        close(ends[0]);
        errno = 0;
        EXPECT_EQ(write(ends[1], "x", 1), -1);
        EXPECT_EQ(errno, EPIPE);
        close(ends[1]);
    };
    EXPECT_EQ(lifecycle_run(), 0);
}

} // namespace

// ---- The modules
// -------------------------------------------------------------------------------------------

int naro_ipc_server_connect(void)
{
    return called("naro_ipc_server_connect");
}
int naro_ipc_server_give_up(void)
{
    return called("naro_ipc_server_give_up");
}
int naro_ipc_server_disconnect(void)
{
    return called("naro_ipc_server_disconnect");
}
int queues2_init(void)
{
    return called("queues2_init");
}
int queues2_exit(void)
{
    return called("queues2_exit");
}
int algo_shbf_init(void)
{
    return called("algo_shbf_init");
}
int algo_shbf_run(void)
{
    return called("algo_shbf_run");
}
int algo_shbf_fini(void)
{
    return called("algo_shbf_fini");
}
int ir_white_led_init(void)
{
    return called("ir_white_led_init");
}
int ircut_exit(void)
{
    return called("ircut_exit");
}
int kv_client_init(void)
{
    return called("kv_client_init");
}
int kv_client_exit(void)
{
    return called("kv_client_exit");
}
int motion_record_init(void)
{
    return called("motion_record_init");
}
int motion_record_finish(void)
{
    return called("motion_record_finish");
}
int sound_detect_init(void)
{
    return called("sound_detect_init");
}
int mid_hchd_init(int ignored)
{
    return called("mid_hchd_init " + std::to_string(ignored));
}
int mid_hchd_fini(void)
{
    return called("mid_hchd_fini");
}

// In front of the C library's: writes down in which order the dispositions are set.
extern "C" __sighandler_t signal(int number, __sighandler_t handler) noexcept
{
    static const auto real = reinterpret_cast<decltype(&signal)>(dlsym(RTLD_NEXT, "signal"));
    if (watch_signals)
        modules.calls.push_back(std::string("signal ") + sigabbrev_np(number) +
                                (handler == SIG_IGN   ? " ignored"
                                 : handler == SIG_DFL ? " default"
                                                      : " handled"));
    return real(number, handler);
}
