// The tests' own helpers: a test is worth as much as the fake it stands on.
#include <ev.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <pthread.h>
#include <stdlib.h>
#include <string>
#include <sys/ipc.h>
#include <sys/shm.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>
#include <vector>

#include "fake_clock.h"
#include "in_child.h"
#include "isolate.h"
#include "log_capture.h"

namespace
{

using Sleeps = std::vector<unsigned>;

TEST(fake_clock, moves_when_told)
{
    FakeClock clock(FakeClock::Sleep::advances, 5000, 700);
    EXPECT_EQ(time_realtime_ms(), 5000u);
    EXPECT_EQ(naro_clock_monotonic_ms(), 700u);
    clock.advance_ms(30);
    EXPECT_EQ(time_realtime_ms(), 5030u);
    EXPECT_EQ(naro_clock_monotonic_ms(), 730u);
    clock.set_wall_ms(100);
    EXPECT_EQ(time_realtime_ms(), 100u);
    EXPECT_EQ(naro_clock_monotonic_ms(), 730u);
    clock.advance_ms(1);
    EXPECT_EQ(time_realtime_ms(), 101u);
}

TEST(fake_clock, gives_the_real_one_back)
{
    {
        FakeClock clock(FakeClock::Sleep::advances, 5000);
    }
    EXPECT_GT(time_realtime_ms(), 1000000u);
}

TEST(fake_clock, a_sleep_advances_it)
{
    FakeClock clock;
    const uint64_t wall = time_realtime_ms();
    std::vector<uint64_t> seen;
    clock.on_sleep = [&](unsigned ms) { seen.push_back(time_realtime_ms() - wall + ms); };
    naro_clock_sleep_ms(500);
    naro_clock_sleep_ms(20);
    EXPECT_EQ(clock.sleeps(), (Sleeps{500, 20}));
    EXPECT_EQ(seen, (std::vector<uint64_t>{500, 520}));
    EXPECT_EQ(time_realtime_ms(), wall + 520);
}

void *three_rounds(void *rounds)
{
    for (int n = 0; n < 3; n++) {
        ++*static_cast<std::atomic<int> *>(rounds);
        naro_clock_sleep_ms(100);
    }
    return nullptr;
}

TEST(fake_clock, a_blocked_sleep_waits_for_its_time)
{
    FakeClock clock(FakeClock::Sleep::blocks);
    std::atomic<int> rounds(0);
    pthread_t thread;
    ASSERT_EQ(pthread_create(&thread, nullptr, three_rounds, &rounds), 0);
    for (int n = 1; n <= 3; n++) {
        ASSERT_TRUE(clock.wait_for_sleepers(1));
        EXPECT_EQ(rounds, n);
        clock.advance_ms(99);
        ASSERT_TRUE(clock.wait_for_sleepers(1)); // still the same one
        EXPECT_EQ(rounds, n);
        clock.advance_ms(1);
    }
    pthread_join(thread, nullptr);
    naro_clock_sleep_ms(0); // does not block
    EXPECT_EQ(clock.sleeps(), (Sleeps{100, 100, 100, 0}));
}

TEST(fake_clock, a_blocked_sleep_can_be_cancelled)
{
    FakeClock clock(FakeClock::Sleep::blocks);
    std::atomic<int> rounds(0);
    pthread_t thread;
    ASSERT_EQ(pthread_create(&thread, nullptr, three_rounds, &rounds), 0);
    ASSERT_TRUE(clock.wait_for_sleepers(1));
    pthread_cancel(thread);
    void *result = nullptr;
    pthread_join(thread, &result);
    EXPECT_EQ(result, PTHREAD_CANCELED);
    EXPECT_EQ(rounds, 1);
    clock.advance_ms(1); // the lock is free
}

// A loop, and timers that note when they fired.
class FakeTimers : public testing::Test
{
  protected:
    FakeTimers() : loop(ev_loop_new(EVFLAG_AUTO))
    {
        for (ev_timer *timer : {&one, &two}) {
            ev_init(timer, [](struct ev_loop *, ev_timer *rung, int) {
                FakeTimers *self = static_cast<FakeTimers *>(rung->data);
                self->fired += std::string(rung == &self->one ? " one" : " two") + "@" +
                               std::to_string(naro_clock_monotonic_ms());
                if (self->again && rung == &self->one)
                    naro_clock_arm_timer(self->loop, rung, 0.2);
            });
            timer->data = this;
        }
    }
    ~FakeTimers() override
    {
        ev_timer_stop(loop, &one);
        ev_timer_stop(loop, &two);
        ev_loop_destroy(loop);
    }
    FakeClock clock{FakeClock::Sleep::advances, 0, 0};
    struct ev_loop *loop;
    ev_timer one, two;
    std::string fired;
    bool again = false;
};

TEST_F(FakeTimers, fire_in_order_at_their_own_time)
{
    naro_clock_arm_timer(loop, &two, 0.3);
    naro_clock_arm_timer(loop, &one, 0.1);
    EXPECT_TRUE(ev_is_active(&one));
    EXPECT_EQ(clock.armed_timers(), 2u);
    clock.advance_ms(99);
    EXPECT_EQ(fired, "");
    clock.advance_ms(1);
    EXPECT_EQ(fired, " one@100");
    EXPECT_FALSE(ev_is_active(&one));
    clock.advance_ms(1000);
    EXPECT_EQ(fired, " one@100 two@300");
    EXPECT_EQ(naro_clock_monotonic_ms(), 1100u);
    clock.advance_ms(1000);
    EXPECT_EQ(fired, " one@100 two@300");
    EXPECT_EQ(clock.armed_timers(), 0u);
}

TEST_F(FakeTimers, can_be_armed_again_and_stopped)
{
    naro_clock_arm_timer(loop, &one, 0.1);
    naro_clock_arm_timer(loop, &one, 0.5);
    naro_clock_arm_timer(loop, &two, 0.1);
    ev_timer_stop(loop, &two);
    EXPECT_EQ(clock.armed_timers(), 1u);
    clock.advance_ms(499);
    EXPECT_EQ(fired, "");
    clock.advance_ms(1);
    EXPECT_EQ(fired, " one@500");
}

TEST_F(FakeTimers, can_be_armed_by_their_own_callback)
{
    again = true;
    naro_clock_arm_timer(loop, &one, 0.2);
    clock.advance_ms(650);
    EXPECT_EQ(fired, " one@200 one@400 one@600");
}

TEST(log_capture, collects_and_counts)
{
    LogCapture log;
    log_err("a");
    log_info("b");
    log_err("a");
    EXPECT_EQ(log.texts(NARO_LOG_ERR), (std::vector<std::string>{"a", "a"}));
    EXPECT_EQ(log.count("a"), 2u);
    EXPECT_TRUE(log.has("b"));
    EXPECT_TRUE(log.has(NARO_LOG_INFO, "b"));
    EXPECT_FALSE(log.has(NARO_LOG_ERR, "b"));
    EXPECT_FALSE(log.has("c"));
    EXPECT_TRUE(log.wait_for("a", 2));
    EXPECT_FALSE(log.wait_for("a", 3, std::chrono::milliseconds(5)));
    log.clear();
    EXPECT_FALSE(log.has("a"));
}

TEST(log_capture, waits_for_another_thread)
{
    LogCapture log;
    pthread_t thread;
    ASSERT_EQ(pthread_create(
                  &thread, nullptr,
                  [](void *) -> void * {
                      log_err("late");
                      return nullptr;
                  },
                  nullptr),
              0);
    EXPECT_TRUE(log.wait_for("late"));
    pthread_join(thread, nullptr);
}

TEST(output_capture, takes_what_is_printed_and_gives_the_stream_back)
{
    const ChildResult child = in_child([] {
        printf("before ");
        std::string first, second;
        {
            OutputCapture out(STDOUT_FILENO);
            OutputCapture err(STDERR_FILENO);
            printf("printed");
            first = out.text();
            out.clear();
            fprintf(stderr, "error");
            printf("more");
            second = out.text() + err.text();
        }
        printf("[%s] [%s] after", first.c_str(), second.c_str());
    });
    EXPECT_EQ(child.out, "before [printed] [moreerror] after");
    EXPECT_EQ(child.err, "");
}

TEST(output_capture, waits)
{
    OutputCapture out(STDOUT_FILENO);
    printf("a word among others\n");
    EXPECT_TRUE(out.wait_for("word"));
    EXPECT_FALSE(out.wait_for("absent", std::chrono::milliseconds(5)));
}

TEST(in_child, tells_how_it_ended)
{
    EXPECT_EQ(in_child([] {}).status, 0);
    EXPECT_EQ(in_child([] { _exit(7); }).status, 7);
    EXPECT_EQ(in_child([] { raise(SIGKILL); }).status, 128 + SIGKILL);
    const ChildResult child = in_child([] {
        printf("out");
        fprintf(stderr, "err");
    });
    EXPECT_EQ(child.out, "out");
    EXPECT_EQ(child.err, "err");
}

int abstract_socket()
{
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    const std::string name = "naro-test-" + std::to_string(getppid());
    memcpy(address.sun_path + 1, name.data(), name.size());
    return bind(fd, reinterpret_cast<sockaddr *>(&address),
                static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + name.size())) == 0
               ? fd
               : -1;
}

TEST(isolate, a_network_of_ones_own)
{
    const ChildResult child = in_child([] {
        const bool held = abstract_socket() >= 0;
        if (!isolate_network())
            _exit(77);
        const int loopback = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in address = {};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        bind(loopback, reinterpret_cast<sockaddr *>(&address), sizeof address);
        listen(loopback, 1);
        socklen_t length = sizeof address;
        getsockname(loopback, reinterpret_cast<sockaddr *>(&address), &length);
        const int client = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        printf("%d %d %d", held, abstract_socket() >= 0,
               connect(client, reinterpret_cast<sockaddr *>(&address), sizeof address));
    });
    if (child.status == 77)
        GTEST_SKIP() << "no namespaces here";
    EXPECT_EQ(child.out, "1 1 0");
}

TEST(isolate, keys_of_ones_own)
{
    const int flags = IPC_CREAT | IPC_EXCL | 0600;
    const key_t key = getpid();
    const int held = shmget(key, 64, flags);
    ASSERT_GE(held, 0);
    const uid_t user = geteuid();
    const ChildResult child = in_child([=] {
        if (!isolate_ipc())
            _exit(77);
        printf("%d %d", shmget(key, 64, flags) >= 0, geteuid() == user);
    });
    shmctl(held, IPC_RMID, nullptr);
    if (child.status == 77)
        GTEST_SKIP() << "no namespaces here";
    EXPECT_EQ(child.out, "1 1");
}

TEST(scratch_root, is_the_root_while_the_process_lives)
{
    const ChildResult child = in_child([] {
        const std::string root = scratch_root();
        const bool same = root == naro_root() && root == scratch_root();
        printf("%d %d %s", same, naro_access("/run", F_OK), root.c_str());
        exit(0);
    });
    ASSERT_EQ(child.out.substr(0, 4), "1 0 ");
    EXPECT_EQ(access(child.out.substr(4).c_str(), F_OK), -1);
    EXPECT_EQ(errno, ENOENT);
}

TEST(scratch_root, says_when_it_comes_too_late)
{
    const ChildResult child = in_child([] {
        setenv("NARO_ROOT", "/early", 1);
        naro_root();
        scratch_root();
    });
    EXPECT_EQ(child.status, 1);
    EXPECT_EQ(child.err, "scratch_root: the root was already read as '/early'\n");
}

} // namespace
