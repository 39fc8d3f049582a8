// The client of the settings store: subscriptions and their unwinding, the pump thread and its ends, values
// written back; with the library, the callbacks and the waiting in the test's hands.
#define NARO_FAKE_VARDEX_WRAPS_FREE
#include "kv_client.h"

#include <deque>
#include <errno.h>
#include <future>
#include <poll.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <sys/prctl.h>
#include <thread>
#include <unistd.h>

#include <gmock/gmock.h>

#include "failures_to_stderr.h"
#include "fake_clock.h"
#include "fake_vardex.h"
#include "in_child.h"
#include "log_capture.h"

using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

extern "C" {
int __real_poll(pollfd *fds, nfds_t count, int timeout_ms);
int __real_pthread_create(pthread_t *, const pthread_attr_t *, void *(*)(void *), void *);
int __real_pthread_cancel(pthread_t);
int __real_pthread_join(pthread_t, void **);
int __real_pthread_cond_wait(pthread_cond_t *, pthread_mutex_t *);
[[noreturn]] void __real__exit(int status);
int __real_pthread_mutex_lock(pthread_mutex_t *);
int __real_pthread_mutex_unlock(pthread_mutex_t *);
}

namespace
{

using Calls = std::vector<std::string>;

// Whether this thread would accept a cancellation now.
bool cancellable()
{
    int state, ignored;
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &state);
    pthread_setcancelstate(state, &ignored);
    return state == PTHREAD_CANCEL_ENABLE;
}

// ---- poll in the test's hands -----------------------------------------------------------------------------

struct PollScript {
    struct Answer {
        int result;
        short revents;
    };
    std::mutex mutex;
    std::condition_variable changed;
    std::deque<Answer> answers;
    bool idle = false;       // the pump waits, and there is no answer for it
    std::string asked;       // the last question
    bool cancellable = true; // each time
    int bell = eventfd(0, EFD_CLOEXEC);

    void answer(int result, short revents = 0)
    {
        std::lock_guard<std::mutex> guard(mutex);
        answers.push_back({result, revents});
        idle = false;
        const uint64_t one = 1;
        (void)!write(bell, &one, sizeof one);
    }
    // Waits until the pump has used up its answers and waits again.
    bool wait_until_idle()
    {
        std::unique_lock<std::mutex> guard(mutex);
        return changed.wait_for(guard, std::chrono::seconds(10), [&] { return idle && answers.empty(); });
    }
    int play(pollfd *fds, nfds_t count, int timeout_ms)
    {
        for (;;) {
            {
                std::lock_guard<std::mutex> guard(mutex);
                cancellable = cancellable && ::cancellable();
                asked = std::to_string(count) + " fd=" + std::to_string(fds->fd) +
                        " events=" + std::to_string(fds->events) + " " + std::to_string(timeout_ms) + " ms";
                if (!answers.empty()) {
                    const Answer next = answers.front();
                    answers.pop_front();
                    fds->revents = next.revents;
                    if (next.result < 0)
                        errno = EBADF;
                    return next.result;
                }
                idle = true;
                changed.notify_all();
            }
            pollfd ring = {bell, POLLIN, 0};
            __real_poll(&ring, 1, -1); // here the thread is cancelled
            uint64_t rung;
            (void)!read(bell, &rung, sizeof rung);
        }
    }
};

struct {
    PollScript *poll;
    std::string pump_name; // as of the first wait
    int create_result, cancel_result, join_result;
    bool create_refused;
    std::vector<std::string> thread_calls;
    bool null_attributes, null_argument;
    bool may_end;     // the process
    pthread_t thread; // the last that was made
    std::function<void()> on_cond_wait;
    std::vector<std::string> synced; // what the sync handlers were given
} world;

// ---- The callbacks' module --------------------------------------------------------------------------------

template <int number> int changed(void *, void *)
{
    return number;
}
template <int number> int timed_out(void *, void *)
{
    return -number;
}
template <int number> int synced(char *value)
{
    world.synced.push_back(std::to_string(number) + " " + (value ? value : "(null)"));
    free(value);
    return 0;
}

} // namespace

const kv_setting kv_settings[KV_SETTINGS] = {
    {"motion_region", "nvram", changed<1>, timed_out<1>, "tag-1"},
    {"night_mode", "nvram", changed<2>, timed_out<2>, "tag-2"},
    {"full_color", "nvram", changed<3>, timed_out<3>, "tag-3"},
    {"wdr", "nvram", changed<4>, timed_out<4>, "tag-4"},
    {"hdr_switch", "nvram", changed<5>, timed_out<5>, "tag-5"},
    {"track_switch", "mem", changed<6>, timed_out<6>, "tag-6"},
    {"power", "nvram", changed<7>, timed_out<7>, "tag-7"},
    {"sdcard_rw", "mem", changed<8>, timed_out<8>, "tag-8"},
    {"face_detect", "mem", changed<9>, timed_out<9>, "tag-9"},
    {"baby_cry_detect", "mem", changed<10>, timed_out<10>, "tag-10"},
    {"human_detect", "mem", changed<11>, timed_out<11>, "tag-11"},
    {"motor", "nvram", changed<12>, timed_out<12>, "tag-12"},
    {"people_sensitivity", "mem", changed<13>, timed_out<13>, "tag-13"},
    {"alarm_event", "mem", changed<14>, timed_out<14>, "tag-14"},
    {"people_region_detect", "mem", changed<15>, timed_out<15>, "tag-15"},
    {"fav_area_rect", "mem", changed<16>, timed_out<16>, "tag-16"},
};
const kv_stored_setting kv_stored_settings[KV_STORED_SETTINGS] = {
    {"motion_region", "nvram", synced<1>}, {"wdr", "nvram", synced<2>},
    {"night_mode", "nvram", synced<3>},    {"full_color", "nvram", synced<4>},
    {"track_switch", "mem", nullptr},
};

namespace
{

// "register nvram motion_region" of the first `count` settings.
Calls registrations(size_t count)
{
    Calls calls;
    for (size_t i = 0; i < count; i++)
        calls.push_back(std::string("register ") + kv_settings[i].layer + " " + kv_settings[i].key);
    return calls;
}

// What must be given up when the row `failed` (1 to 16; 17: the thread) fails, as row numbers.
std::vector<int> rows_given_up(int failed)
{
    switch (failed) {
    case 5:
        return {3, 2, 1};
    case 14:
        return {12, 11, 10, 9, 8, 7, 6, 4, 3, 2, 1};
    case 15:
        return {14, 12, 11, 10, 9, 8, 7, 6, 4, 3, 2, 1};
    case 16:
    case 17:
        return {12, 11, 10, 9, 8, 7, 6, 4, 3, 2, 1, 14, 15};
    default: {
        std::vector<int> rows;
        for (int row = failed - 1; row >= 1; row--)
            if (row != 5)
                rows.push_back(row);
        return rows;
    }
    }
}

Calls given_up(int failed)
{
    Calls calls;
    for (int row : rows_given_up(failed))
        calls.push_back(std::string("unregister ") + kv_settings[row - 1].layer + " " +
                        kv_settings[row - 1].key);
    return calls;
}

Calls operator+(Calls a, const Calls &b)
{
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

class KvClient : public testing::Test
{
  protected:
    KvClient()
    {
        world.poll = &script;
        fake.fd = 77;
    }
    ~KvClient() override
    {
        if (fake.open)
            kv_client_exit();
        world.poll = nullptr;
    }
    // Until somebody is about to join the pump.
    void wait_for_join()
    {
        std::unique_lock<std::mutex> guard(fake.mutex);
        fake.changed.wait(guard, [] { return world.thread_calls.size() >= 3; });
    }
    void start()
    {
        ASSERT_EQ(kv_client_init(), 0);
        ASSERT_TRUE(script.wait_until_idle());
    }

    PollScript script;
    FakeVardex &fake = fake_vardex();
    FakeClock clock;
    LogCapture log;
};

// ---- Start ------------------------------------------------------------------------------------------------

TEST_F(KvClient, InitOpensSubscribesAndPumps)
{
    start();
    EXPECT_THAT(fake.calls(),
                ElementsAreArray(Calls{"open 0", "handle_other"} + registrations(16) + Calls{"client_fd"}));
    EXPECT_EQ(fake.registered.size(), 16u);
    EXPECT_THAT(log.texts(), IsEmpty());
    for (const auto &[key, registration] : fake.registered)
        EXPECT_TRUE(registration.default_group) << key;
}

TEST_F(KvClient, EachSettingIsRegisteredWithItsOwnCallbacks)
{
    start();
    for (const kv_setting &setting : kv_settings) {
        EXPECT_EQ(fake.registered[setting.key].change_cb, setting.change_cb) << setting.key;
        EXPECT_EQ(fake.registered[setting.key].timeout_cb, setting.timeout_cb) << setting.key;
    }
}

TEST_F(KvClient, SecondInitSaysSoAndDoesNothing)
{
    start();
    fake.forget();
    OutputCapture err(STDERR_FILENO);
    EXPECT_EQ(kv_client_init(), 0);
    EXPECT_EQ(err.text(), "[kv_client_init] already inited\r\n");
    EXPECT_THAT(fake.calls(), IsEmpty());
    EXPECT_THAT(log.texts(), IsEmpty());
}

TEST_F(KvClient, LibraryThatDoesNotOpen)
{
    fake.open_fails = true;
    EXPECT_EQ(kv_client_init(), -1);
    EXPECT_THAT(fake.calls(), ElementsAre("open 0"));
    EXPECT_THAT(log.lines(), ElementsAre(LogCapture::Line{NARO_LOG_ERR, "libvardex open faild.\n"}));
    EXPECT_EQ(kv_client_exit(), 0);
    EXPECT_TRUE(log.has("[kv_client_exit] already exit\r\n")) << "it is not inited";

    fake.open_fails = false;
    start(); // and can be tried again
}

class KvClientRefusal : public KvClient, public testing::WithParamInterface<int>
{
};

TEST_P(KvClientRefusal, GivesUpWhatIsListedAndFails)
{
    const int failed = GetParam();
    const kv_setting &setting = kv_settings[failed - 1];
    fake.fail_register = setting.key;
    EXPECT_EQ(kv_client_init(), -1);
    EXPECT_THAT(fake.calls(), ElementsAreArray(Calls{"open 0", "handle_other"} +
                                               registrations(static_cast<size_t>(failed)) + given_up(failed) +
                                               Calls{"close"}));
    EXPECT_THAT(log.lines(),
                ElementsAre(LogCapture::Line{NARO_LOG_ERR, "[kv_sys_callback_init]send notify cmd fail[tag-" +
                                                               std::to_string(failed) + " reg].\n"},
                            LogCapture::Line{NARO_LOG_ERR, "kv_sys_callback_init fail\r\n"}));
    EXPECT_THAT(world.thread_calls, IsEmpty());
    OutputCapture err(STDERR_FILENO);
    EXPECT_EQ(kv_client_set_kv("mem", 0, "x", "y"), -1);
    EXPECT_EQ(err.text(), "kv not init\r\n");
}

INSTANTIATE_TEST_SUITE_P(, KvClientRefusal, testing::Range(1, 17));

// How many lines had been logged when each subscription was given up, and at the close.
class KvClientLines : public KvClient
{
  protected:
    KvClientLines()
    {
        fake.on_call = [this](const std::string &call) {
            if (call.compare(0, 11, "unregister ") == 0 || call == "close")
                lines_before.push_back(log.lines().size());
        };
    }
    ~KvClientLines() override { fake.on_call = nullptr; }
    std::vector<size_t> lines_before;
};

TEST_F(KvClientLines, ARefusalIsToldBeforeTheOthersAreGivenUp)
{
    fake.fail_register = "full_color";
    kv_client_init();
    EXPECT_THAT(lines_before, ElementsAre(1, 1, 2));
}

TEST_F(KvClientLines, AMissingThreadIsToldBeforeTheOthersAreGivenUp)
{
    world.create_refused = true;
    kv_client_init();
    world.create_refused = false;
    std::vector<size_t> wanted(13, 1);
    wanted.push_back(2);
    EXPECT_THAT(lines_before, ElementsAreArray(wanted));
}

TEST_F(KvClientLines, EachRefusalAtTheEndIsToldBeforeTheNextIsGivenUp)
{
    start();
    fake.fail_unregister = true;
    kv_client_exit();
    std::vector<size_t> wanted;
    for (size_t n = 0; n <= 16; n++)
        wanted.push_back(n);
    EXPECT_THAT(lines_before, ElementsAreArray(wanted));
}

TEST_F(KvClient, OnlyOneIsSuccess)
{
    fake.fail_register = "wdr";
    fake.refusal = 2;
    EXPECT_EQ(kv_client_init(), -1);
    EXPECT_EQ(fake.calls("unregister"), given_up(4));
}

TEST_F(KvClient, NoThread)
{
    world.create_refused = true;
    EXPECT_EQ(kv_client_init(), -1);
    EXPECT_THAT(fake.calls(), ElementsAreArray(Calls{"open 0", "handle_other"} + registrations(16) +
                                               given_up(17) + Calls{"close"}));
    EXPECT_THAT(log.lines(), ElementsAre(LogCapture::Line{NARO_LOG_ERR, "ky_task fail\r\n"},
                                         LogCapture::Line{NARO_LOG_ERR, "kv_sys_callback_init fail\r\n"}));
    world.create_refused = false;
    fake.forget();
    start();
    EXPECT_EQ(fake.calls("register").size(), 16u) << "all again";
}

TEST_F(KvClient, SubscribingAlone)
{
    EXPECT_EQ(kv_sys_callback_init(fake.handle()), 0);
    ASSERT_TRUE(script.wait_until_idle());
    __real_pthread_cancel(world.thread);
    __real_pthread_join(world.thread, nullptr);
    world.create_refused = true;
    EXPECT_EQ(kv_sys_callback_init(fake.handle()), -1);
    world.create_refused = false;
    fake.fail_register = "power";
    EXPECT_EQ(kv_sys_callback_init(fake.handle()), -1);
    EXPECT_THAT(fake.calls("close"), IsEmpty()) << "that is for who has opened";
}

// ---- The pump ---------------------------------------------------------------------------------------------

TEST_F(KvClient, ThreadHasItsNameAndDefaultAttributes)
{
    start();
    EXPECT_EQ(world.pump_name, "kv_client_task");
    EXPECT_TRUE(world.null_attributes);
    EXPECT_TRUE(world.null_argument);
}

TEST_F(KvClient, WaitsASecondForTheLibrarysDescriptor)
{
    start();
    EXPECT_EQ(script.asked, "1 fd=77 events=" + std::to_string(POLLIN) + " 1000 ms");
}

TEST_F(KvClient, SilenceLetsTheLibraryLookAtItsTimeouts)
{
    start();
    fake.forget();
    script.answer(0);
    script.answer(0);
    ASSERT_TRUE(script.wait_until_idle());
    EXPECT_THAT(fake.calls(), ElementsAre("timeout_process", "timeout_process"));
    EXPECT_THAT(clock.sleeps(), IsEmpty()) << "it has waited already";
}

TEST_F(KvClient, SomethingToReadIsDispatched)
{
    start();
    fake.forget();
    script.answer(1, POLLIN);
    script.answer(1, POLLIN | POLLHUP);
    ASSERT_TRUE(script.wait_until_idle());
    EXPECT_THAT(fake.calls(), ElementsAre("xhandle_response", "xhandle_response"));
    EXPECT_THAT(clock.sleeps(), IsEmpty());
}

TEST_F(KvClient, ReadyWithoutAnythingToReadIsNoDispatchAndDoesNotSpin)
{
    start();
    fake.forget();
    for (const short trouble : {POLLERR, POLLHUP, POLLNVAL})
        script.answer(1, trouble);
    ASSERT_TRUE(script.wait_until_idle());
    EXPECT_THAT(fake.calls(), IsEmpty());
    EXPECT_THAT(clock.sleeps(), ElementsAre(1000, 1000, 1000));
    EXPECT_THAT(log.texts(), IsEmpty());
}

TEST_F(KvClient, CancellationIsAcceptedInTheWaitAndNowhereElse)
{
    std::atomic<int> accepted{0}, looked{0};
    fake.on_client_fd = [&] {
        looked++;
        accepted += cancellable();
    };
    fake.on_response = [&] {
        looked++;
        accepted += cancellable();
        return static_cast<uint8_t>(1);
    };
    fake.on_timeout = [&] {
        looked++;
        accepted += cancellable();
    };
    start();
    script.answer(1, POLLIN);
    script.answer(0);
    ASSERT_TRUE(script.wait_until_idle());
    EXPECT_EQ(looked, 3);
    EXPECT_EQ(accepted, 0);
    EXPECT_TRUE(script.cancellable);
}

TEST_F(KvClient, WaitOfATroubledDescriptorCanBeCancelledToo)
{
    std::atomic<bool> accepted{false};
    clock.on_sleep = [&](unsigned) { accepted = cancellable(); };
    start();
    script.answer(1, POLLERR);
    ASSERT_TRUE(script.wait_until_idle());
    EXPECT_TRUE(accepted);
}

// The daemon's end, in a child: what it said, and its status.
ChildResult end_of_the_daemon(const std::function<void()> &go_on)
{
    return in_child([&] {
        PollScript script;
        FakeClock clock;
        world.poll = &script;
        world.may_end = true;
        alarm(20);
        atexit([] { _exit(9); }); // nothing may be taken down beneath other threads
        setvbuf(stdout, nullptr, _IOLBF, 0);
        naro_log_set_sink(
            [](void *, naro_log_level level, const char *text) { printf("log %d %s", level, text); },
            nullptr);
        clock.on_sleep = [](unsigned ms) { printf("sleeps %u\n", ms); };
        fake_vardex().on_response = [] { return static_cast<uint8_t>(0); };
        kv_client_init();
        script.wait_until_idle();
        printf("waits\n");
        world.poll = &script;
        go_on();
        for (;;)
            pause();
    });
}

TEST(KvClientEnd, WhenThePollFails)
{
    const ChildResult child = end_of_the_daemon([] { world.poll->answer(-1); });
    EXPECT_EQ(child.out, "waits\nlog 3 [kv_client_task] poll fail\nsleeps 1000\n");
    EXPECT_EQ(child.status, 0);
}

TEST(KvClientEnd, WhenTheDispatchFails)
{
    const ChildResult child = end_of_the_daemon([] { world.poll->answer(1, POLLIN); });
    EXPECT_EQ(child.out, "waits\nlog 3 [kv_client_task] xhandle fail\nsleeps 1000\n");
    EXPECT_EQ(child.status, 0);
}

TEST(KvClientEnd, WhenTheDispatchAnswersAnythingButOne)
{
    const ChildResult child = end_of_the_daemon([] {
        fake_vardex().on_response = [] { return static_cast<uint8_t>(2); };
        world.poll->answer(1, POLLIN);
    });
    EXPECT_EQ(child.out, "waits\nlog 3 [kv_client_task] xhandle fail\nsleeps 1000\n");
    EXPECT_EQ(child.status, 0);
}

// ---- End --------------------------------------------------------------------------------------------------

const Calls all_given_up = {
    "unregister mem baby_cry_detect",
    "unregister mem face_detect",
    "unregister mem human_detect",
    "unregister mem sdcard_rw",
    "unregister nvram power",
    "unregister mem track_switch",
    "unregister nvram wdr",
    "unregister nvram hdr_switch",
    "unregister nvram full_color",
    "unregister nvram night_mode",
    "unregister nvram motion_region",
    "unregister nvram motor",
    "unregister nvram people_sensitivity",
    "unregister mem alarm_event",
    "unregister mem people_region_detect",
    "unregister mem fav_area_rect",
};

TEST_F(KvClient, ExitEndsThePumpThenUnsubscribesAndCloses)
{
    start();
    fake.forget();
    EXPECT_EQ(kv_client_exit(), 0);
    EXPECT_THAT(world.thread_calls, ElementsAre("create", "cancel after 0 calls", "join after 0 calls"));
    EXPECT_THAT(fake.calls(), ElementsAreArray(all_given_up + Calls{"close"}));
    // In another layer than it was subscribed in: the library refuses.
    EXPECT_THAT(log.lines(),
                ElementsAre(LogCapture::Line{
                    NARO_LOG_ERR, "[kv_client_exit]send notify unreg fail[people_sensitivity unreg].\n"}));
}

TEST_F(KvClient, ExitWithoutInit)
{
    EXPECT_EQ(kv_client_exit(), 0);
    EXPECT_THAT(log.lines(),
                ElementsAre(LogCapture::Line{NARO_LOG_INFO, "[kv_client_exit] already exit\r\n"}));
    EXPECT_THAT(fake.calls(), IsEmpty());
    EXPECT_THAT(world.thread_calls, IsEmpty());
}

TEST_F(KvClient, ExitAndStartAgain)
{
    start();
    kv_client_exit();
    log.clear();
    kv_client_exit();
    EXPECT_THAT(log.texts(), ElementsAre("[kv_client_exit] already exit\r\n"));
    fake.forget();
    fake.registered.clear();
    start();
    EXPECT_EQ(fake.calls("register"), registrations(16));
    log.clear();
    kv_client_exit();
    EXPECT_THAT(fake.calls("wrong"), IsEmpty()) << "the ids are those of the second time";
}

TEST_F(KvClient, EachRefusalAtTheEndHasItsLineAndNothingIsLeftOut)
{
    start();
    fake.forget();
    fake.fail_unregister = true;
    EXPECT_EQ(kv_client_exit(), 0);
    Calls lines;
    for (const char *tag :
         {"power_mode", "power_mode", "power_mode", "power_mode", "power_mode", "track_mode", "wdr_mode",
          "hdr_mode", "fullcolor", "night_mode", "motion_region", "motion_region", "people_sensitivity",
          "alarm_event_notice", "key_people_region", "key_people_region"})
        lines.push_back(std::string("[kv_client_exit]send notify unreg fail[") + tag + " unreg].\n");
    EXPECT_THAT(log.texts(NARO_LOG_ERR), ElementsAreArray(lines));
    EXPECT_THAT(fake.calls(), ElementsAreArray(all_given_up + Calls{"close"}));
    OutputCapture err(STDERR_FILENO);
    EXPECT_EQ(kv_client_set_kv("mem", 0, "x", "y"), -1) << "closed all the same";
}

TEST_F(KvClient, NegativeResultsOfTheThreadsEndAreLogged)
{
    start();
    world.cancel_result = world.join_result = -1;
    kv_client_exit();
    world.cancel_result = world.join_result = 0;
    ASSERT_EQ(log.texts().size(), 3u);
    EXPECT_EQ(log.lines()[0], (LogCapture::Line{NARO_LOG_ERR, "pthread_cancel ky_client_task\r\n"}));
    EXPECT_EQ(log.lines()[1], (LogCapture::Line{NARO_LOG_ERR, "pthread_join ky_client_task\r\n"}));
    EXPECT_EQ(fake.calls().back(), "close");
}

TEST_F(KvClient, OtherResultsOfTheThreadsEndAreNot)
{
    start();
    world.cancel_result = world.join_result = ESRCH;
    kv_client_exit();
    world.cancel_result = world.join_result = 0;
    EXPECT_THAT(log.texts(),
                ElementsAre("[kv_client_exit]send notify unreg fail[people_sensitivity unreg].\n"));
}

TEST_F(KvClient, ExitWaitsForACallbackWhichMayWriteMeanwhile)
{
    std::atomic<int> result{-99};
    std::promise<void> cancelled;
    fake.on_response = [&] {
        fake.note("callback begins");
        cancelled.get_future().wait();
        naro_clock_sleep_ms(1); // where a cancellation would be accepted
        result = kv_client_set_kv("mem", 0, "time_night", "now");
        fake.note("callback ends");
        return static_cast<uint8_t>(1);
    };
    start();
    script.answer(1, POLLIN);
    ASSERT_TRUE(fake.wait_for("callback begins"));
    std::thread exiting([] { kv_client_exit(); });
    wait_for_join();
    cancelled.set_value();
    exiting.join();
    EXPECT_EQ(result, 0);
    const Calls calls = fake.calls();
    const auto ends = std::find(calls.begin(), calls.end(), "callback ends");
    const auto first = std::find(calls.begin(), calls.end(), all_given_up[0]);
    EXPECT_LT(ends, first);
    EXPECT_NE(first, calls.end());
}

TEST_F(KvClient, SecondExitWhileOneIsAtWork)
{
    fake.on_response = [&] {
        fake.note("callback begins");
        wait_for_join();
        kv_client_exit(); // on the pump thread, even
        fake.note("callback ends");
        return static_cast<uint8_t>(1);
    };
    start();
    script.answer(1, POLLIN);
    ASSERT_TRUE(fake.wait_for("callback begins"));
    kv_client_exit();
    EXPECT_EQ(log.count("[kv_client_exit] already exit\r\n"), 1u);
    EXPECT_EQ(fake.calls("close").size(), 1u);
}

TEST_F(KvClient, HandleStaysUntilTheLastWriterIsOut)
{
    std::promise<void> stored;
    fake.on_set = [&] { stored.get_future().wait(); };
    start();
    std::atomic<int> result{-99}, late{-99};
    std::thread writer([&] { result = kv_client_set_kv("mem", 0, "time_night", "now"); });
    ASSERT_TRUE(fake.wait_for("set mem time_night"));
    world.on_cond_wait = [&] { fake.note("exit waits"); };
    std::thread exiting([] { kv_client_exit(); });
    {
        // It waits, or (which is the mistake) has closed.
        std::unique_lock<std::mutex> guard(fake.mutex);
        fake.changed.wait_for(guard, std::chrono::seconds(10), [&] {
            return !fake.journal.empty() &&
                   (fake.journal.back() == "exit waits" || fake.journal.back() == "close");
        });
    }
    OutputCapture err(STDERR_FILENO);
    late = kv_client_set_kv("mem", 0, "late", "x");
    EXPECT_EQ(err.text(), "kv not init\r\n");
    stored.set_value();
    writer.join();
    exiting.join();
    world.on_cond_wait = nullptr;
    EXPECT_EQ(result, 0) << "its value was stored";
    EXPECT_EQ(late, -1) << "and no new writer came in";
    EXPECT_FALSE(fake.closed_under_writer);
    EXPECT_EQ(fake.calls().back(), "close");
}

// ---- Values -----------------------------------------------------------------------------------------------

TEST_F(KvClient, WritersDoNotWaitForEachOther)
{
    std::promise<void> inside, go_on;
    std::atomic<int> sets{0};
    fake.on_set = [&] {
        if (sets++ == 0) {
            inside.set_value();
            go_on.get_future().wait();
        }
    };
    start();
    std::thread slow([] { EXPECT_EQ(kv_client_set_kv("mem", 0, "slow", "y"), 0); });
    inside.get_future().wait();
    for (int n = 0; n < 2; n++)
        EXPECT_EQ(kv_client_set_kv("mem", 0, "quick", "y"), 0);
    EXPECT_EQ(fake.calls("set"), (Calls{"set mem slow", "set mem quick", "set mem quick"}));
    go_on.set_value();
    slow.join();
    EXPECT_EQ(kv_client_set_kv("mem", 0, "quick", "y"), 0);
}

TEST_F(KvClient, SetBeforeInit)
{
    OutputCapture err(STDERR_FILENO);
    EXPECT_EQ(kv_client_set_kv("mem", 0, "track", "on"), -1);
    EXPECT_EQ(err.text(), "kv not init\r\n");
    EXPECT_THAT(fake.calls(), IsEmpty());
    EXPECT_THAT(log.texts(), IsEmpty());
}

TEST_F(KvClient, SetOfA64BitNumber)
{
    start();
    // At an odd address, as a field of a packed record has it.
    char bytes[9];
    const uint64_t value = 1700000000123;
    memcpy(bytes + 1, &value, sizeof value);
    OutputCapture out(STDOUT_FILENO);
    EXPECT_EQ(kv_client_set_kv("mem", 1, "time_night", bytes + 1), 0);
    EXPECT_EQ(out.text(), "X_TYPE_UINT64 = 1700000000123\n");
    ASSERT_EQ(fake.sets.size(), 1u);
    EXPECT_EQ(fake.sets[0].layer, "mem");
    EXPECT_EQ(fake.sets[0].key, "time_night");
    EXPECT_TRUE(fake.sets[0].default_group);
    EXPECT_EQ(fake.sets[0].code, 5);
    EXPECT_EQ(fake.sets[0].value, "1700000000123");
    EXPECT_THAT(log.lines(), ElementsAre(LogCapture::Line{
                                 NARO_LOG_INFO, "[kv_client_set_kv]set value=time_night.............\r\n"}));
    EXPECT_THAT(fake.calls("wrong"), IsEmpty());
}

TEST_F(KvClient, LargeNumberIsStoredAsItIsThoughPrintedWithASign)
{
    start();
    const uint64_t value = UINT64_MAX;
    OutputCapture out(STDOUT_FILENO);
    EXPECT_EQ(kv_client_set_kv("mem", 1, "time_night", &value), 0);
    EXPECT_EQ(out.text(), "X_TYPE_UINT64 = -1\n");
    EXPECT_EQ(fake.sets[0].value, "18446744073709551615");
}

TEST_F(KvClient, OtherTypes)
{
    start();
    OutputCapture out(STDOUT_FILENO);
    const int32_t number = -5;
    EXPECT_EQ(kv_client_set_kv("nvram", 2, "n", &number), 0);
    for (const int type : {0, 3, 5, -1, 77})
        EXPECT_EQ(kv_client_set_kv("nvram", type, "t", "text"), 0);
    EXPECT_EQ(out.text(), "");
    ASSERT_EQ(fake.sets.size(), 6u);
    EXPECT_EQ(fake.sets[0].code, 2);
    EXPECT_EQ(fake.sets[0].value, "-5");
    for (size_t i = 1; i < 6; i++) {
        EXPECT_EQ(fake.sets[i].code, 1);
        EXPECT_EQ(fake.sets[i].value, "text");
        EXPECT_EQ(fake.sets[i].layer, "nvram");
    }
}

TEST_F(KvClient, SetThatFails)
{
    start();
    for (const uint8_t result : {0, 2}) {
        log.clear();
        fake.set_result = result;
        EXPECT_EQ(kv_client_set_kv("mem", 0, "track", "on"), -1);
        EXPECT_THAT(log.lines(), ElementsAre(LogCapture::Line{
                                     NARO_LOG_ERR, "[kv_client_set_kv][track]send set value cmd fail.\n"}));
    }
}

TEST_F(KvClient, MotorStateIsTrackInMem)
{
    start();
    EXPECT_EQ(kv_motor_drv("on"), 0);
    ASSERT_EQ(fake.sets.size(), 1u);
    EXPECT_EQ(fake.sets[0].layer, "mem");
    EXPECT_EQ(fake.sets[0].key, "track");
    EXPECT_EQ(fake.sets[0].code, 1);
    EXPECT_EQ(fake.sets[0].value, "on");
    fake.set_result = 0;
    EXPECT_EQ(kv_motor_drv("off"), -1);
}

TEST_F(KvClient, Layers)
{
    EXPECT_STREQ(kv_get_mem_layer(), "mem");
    EXPECT_STREQ(kv_get_nvram_layer(), "nvram");
}

// ---- What was stored --------------------------------------------------------------------------------------

TEST_F(KvClient, StoredValuesGoToTheirHandlersInOrder)
{
    fake.stored = {{"nvram default motion_region", "a"},
                   {"nvram default wdr", "b"},
                   {"nvram default night_mode", "c"},
                   {"nvram default full_color", "d"},
                   {"mem default track_switch", "on"}};
    EXPECT_EQ(kv_sys_param_init(nullptr), 0);
    EXPECT_THAT(fake.calls(), ElementsAre("get nvram default motion_region", "get nvram default wdr",
                                          "get nvram default night_mode", "get nvram default full_color",
                                          "get mem default track_switch"));
    EXPECT_THAT(world.synced, ElementsAre("1 a", "2 b", "3 c", "4 d"));
    EXPECT_THAT(fake.live_texts, IsEmpty()) << "what nobody wants is freed, too";
    EXPECT_THAT(log.texts(), IsEmpty());
}

TEST_F(KvClient, WhatIsNotStoredIsNull)
{
    EXPECT_EQ(kv_sys_param_init(fake.handle()), 0);
    EXPECT_EQ(fake.calls("get").size(), 5u);
    EXPECT_THAT(world.synced, ElementsAre("1 (null)", "2 (null)", "3 (null)", "4 (null)"));
}

// ---- All at once ------------------------------------------------------------------------------------------

TEST_F(KvClient, WritersChangesAndAnEndMeet)
{
    FakeVardex &library = fake;
    OutputCapture err(STDERR_FILENO);
    OutputCapture out(STDOUT_FILENO);
    fake.on_response = [] {
        const uint64_t now = 5;
        kv_client_set_kv("mem", 1, "time_night", &now);
        return static_cast<uint8_t>(1);
    };
    for (int round = 0; round < 20; round++) {
        start();
        std::vector<std::thread> writers;
        for (int i = 0; i < 3; i++)
            writers.emplace_back([] {
                for (int n = 0; n < 20; n++)
                    kv_client_set_kv("mem", 0, "track", "on");
            });
        for (int n = 0; n < 5; n++)
            script.answer(1, POLLIN);
        kv_client_exit();
        for (std::thread &writer : writers)
            writer.join();
        script.answers.clear();
        fake.registered.clear();
    }
    EXPECT_FALSE(library.closed_under_writer);
    EXPECT_EQ(library.calls("close").size(), 20u);
}

} // namespace

// ---- Wrapped calls ----------------------------------------------------------------------------------------

extern "C" {

int __wrap_poll(pollfd *fds, nfds_t count, int timeout_ms)
{
    if (!world.poll)
        return __real_poll(fds, count, timeout_ms);
    char name[16] = "";
    prctl(PR_GET_NAME, name);
    world.pump_name = name;
    return world.poll->play(fds, count, timeout_ms);
}

int __wrap_pthread_create(pthread_t *thread, const pthread_attr_t *attributes, void *(*entry)(void *),
                          void *argument)
{
    if (world.create_refused)
        return EAGAIN;
    {
        std::lock_guard<std::mutex> guard(fake_vardex().mutex);
        world.thread_calls.push_back("create");
        world.null_attributes = attributes == nullptr;
        world.null_argument = argument == nullptr;
    }
    const int result = __real_pthread_create(thread, attributes, entry, argument);
    world.thread = *thread;
    return result;
}

static void note_thread_call(const std::string &call)
{
    FakeVardex &fake = fake_vardex();
    std::lock_guard<std::mutex> guard(fake.mutex);
    world.thread_calls.push_back(call + " after " + std::to_string(fake.journal.size()) + " calls");
    fake.changed.notify_all();
}

int __wrap_pthread_cancel(pthread_t thread)
{
    note_thread_call("cancel");
    const int result = __real_pthread_cancel(thread);
    return world.cancel_result ? world.cancel_result : result;
}

int __wrap_pthread_join(pthread_t thread, void **result)
{
    note_thread_call("join");
    const int joined = __real_pthread_join(thread, result);
    return world.join_result ? world.join_result : joined;
}

static thread_local int locks_held;

int __wrap_pthread_mutex_lock(pthread_mutex_t *mutex)
{
    locks_held++;
    return __real_pthread_mutex_lock(mutex);
}

int __wrap_pthread_mutex_unlock(pthread_mutex_t *mutex)
{
    if (locks_held-- == 0)
        abort(); // it was never locked
    return __real_pthread_mutex_unlock(mutex);
}

void __wrap__exit(int status)
{
    if (!world.may_end)
        abort();
    __real__exit(status);
}

int __wrap_pthread_cond_wait(pthread_cond_t *condition, pthread_mutex_t *mutex)
{
    if (world.on_cond_wait)
        world.on_cond_wait();
    return __real_pthread_cond_wait(condition, mutex);
}

} // extern "C"
