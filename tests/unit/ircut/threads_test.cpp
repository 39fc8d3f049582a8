// The controller with its real threads.
#include "world.h"

#include <chrono>
#include <filesystem>
#include <fstream>
#include <sched.h>
#include <thread>

namespace
{

// How many threads of this process carry a name (of which the kernel keeps 15 characters).
int threads_named(const std::string &name)
{
    int count = 0;
    for (const auto &entry : std::filesystem::directory_iterator("/proc/self/task")) {
        std::ifstream file(entry.path() / "comm");
        std::string comm;
        std::getline(file, comm);
        count += comm == name.substr(0, 15);
    }
    return count;
}

// Waits (at most 10 s) for that: a thread names itself when it first runs, and the kernel shows it for a
// moment after its end.
bool come_to(const std::string &name, int count)
{
    for (int i = 0; i < 10000 && threads_named(name) != count; i++)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    return threads_named(name) == count;
}

// Time stands still until it is moved, so every round is known.
class Threads : public testing::Test
{
  protected:
    Threads()
    {
        world.real_threads = true;
        world.log.clear();
    }
    ~Threads() override
    {
        stop();
        wait_for_end(ALARM);
        world.join_detached();
    }
    // Starts in a mode: the start itself sleeps until its processor is in day mode.
    void start(int mode)
    {
        ircut_mode_config(mode);
        moved([] { ircut_init(); });
        running = true;
        if (mode != 1 && mode != 2) {
            ASSERT_TRUE(world.clock.wait_for_sleepers(2)) << "both are there";
            round(); // entry actions sleep on the way
            round();
        }
        world.journal();
    }
    void stop()
    {
        if (running)
            moved([] { ircut_exit(); });
        running = false;
    }
    // Calls on another thread, and moves the time until the call is over.
    void moved(void (*call)())
    {
        std::atomic<bool> done{false};
        std::thread caller([&] {
            call();
            done = true;
        });
        while (!done) {
            world.clock.advance_ms(10);
            sched_yield();
        }
        caller.join();
    }
    void wait_for_end(const char *name)
    {
        while (threads_named(name) > 0) {
            world.clock.advance_ms(500);
            sched_yield();
        }
    }
    // Both threads do one round.
    void round()
    {
        world.clock.advance_ms(500);
        ASSERT_TRUE(world.clock.wait_for_sleepers(2));
    }
    World world{FakeClock::Sleep::blocks};
    bool running = false;
};

TEST_F(Threads, HaveTheirNamesAndEnd)
{
    start(5);
    EXPECT_EQ(threads_named(TASK), 1);
    EXPECT_EQ(threads_named(ALARM), 1);
    stop();
    EXPECT_TRUE(come_to(TASK, 0));
    wait_for_end(ALARM);
}

TEST_F(Threads, SampleEveryHalfSecond)
{
    start(3);
    const int before = world.statistics_reads;
    for (int i = 0; i < 4; i++)
        round();
    EXPECT_EQ(world.statistics_reads, before + 4);
}

TEST_F(Threads, AStartInAFixedModeHasNone)
{
    for (int mode : {1, 2}) {
        start(mode);
        EXPECT_TRUE(come_to(TASK, 0));
        EXPECT_EQ(threads_named(ALARM), 0);
        ircut_mode_switch(3);
        ASSERT_TRUE(world.clock.wait_for_sleepers(1));
        EXPECT_EQ(threads_named(TASK), 1);
        EXPECT_EQ(threads_named(ALARM), 0) << "the task, but not the alarm light";
        stop();
    }
}

TEST_F(Threads, TheAlarmLightIsServedWhileTheTaskHoldsStill)
{
    start(3);
    const int words[3] = {0, 0, 1};
    set_white_led_alarm_info(1, words);
    const int before = world.statistics_reads;
    round(); // may still be the task's last sample before it sees the alarm
    while (ircut.alarm_flag == 1) {
        EXPECT_EQ(world.white, 1);
        world.clock.advance_ms(500);
        ASSERT_TRUE(world.clock.wait_for_sleepers(2));
    }
    EXPECT_EQ(world.white, 0);
    EXPECT_LE(world.statistics_reads, before + 1);
    for (int i = 0; i < 3; i++)
        round();
    EXPECT_GT(world.statistics_reads, before + 1) << "the task goes on";
}

TEST_F(Threads, FromModeZeroAFixedModeEndsThemBoth)
{
    start(0);
    moved([] { ircut_mode_switch(1); });
    EXPECT_TRUE(come_to(TASK, 0));
    wait_for_end(ALARM);
}

TEST_F(Threads, StoppedAndStartedAtOnceThereIsOneAlarmLight)
{
    start(5);
    stop();
    start(5);
    // Only the threads of this life sleep on; the old alarm light sees that its number is withdrawn.
    for (int i = 0; i < 5; i++)
        round();
    EXPECT_TRUE(come_to(ALARM, 1));
    EXPECT_TRUE(come_to(TASK, 1));
}

TEST_F(Threads, TheAlarmLightOfATaskThatIsStartedAgainDoesNotComeBack)
{
    start(0);
    moved([] { ircut_mode_switch(1); });
    moved([] { ircut_mode_switch(3); });
    wait_for_end(ALARM);
    EXPECT_TRUE(come_to(TASK, 1));
}

TEST_F(Threads, AFixedModeAndAStepNeverOverlap)
{
    // The task is in the middle of its way to night when fixed day is asked for: whatever the step did is
    // undone by the sequence, which comes after it.
    start(3);
    world.dark();
    for (int i = 0; i < 9; i++)
        round();
    while (ircut.isp_mode_snapshot == 0 && world.isp_mode == 0) { // in the step that asks for night
        world.clock.advance_ms(500);
        for (int i = 0; i < 100 && world.isp_mode == 0; i++)
            sched_yield();
    }
    ASSERT_EQ(world.isp_mode, 1u);
    moved([] { ircut_mode_switch(1); });
    EXPECT_EQ(world.isp_mode, 0u) << "day";
    const Journal journal = world.journal();
    const auto at = [&](const std::string &line) {
        return std::find(journal.begin(), journal.end(), line) - journal.begin();
    };
    EXPECT_LT(at("sw 0"), at("sw 1")) << "the filter's last move is the one to day";
    EXPECT_LT(at("led 45 1"), at("sw 1"));
}

TEST_F(Threads, SettingsOfAnotherThreadAtAnyMoment)
{
    start(5);
    std::atomic<bool> done{false};
    std::thread settings([&] {
        const int words[3] = {0, 1, 1};
        for (int i = 0; i < 150; i++) {
            ircut_mode_switch(i % 8);
            ircut_mode_config(3 + i % 3);
            fullcolor_mode_config(i % 2);
            set_white_led_alarm_info(i % 3 != 0, words);
            ircut_init();
            g_motor_position_v_p = i;
        }
        done = true;
    });
    std::thread detection([&] {
        int night, mode, alarm;
        while (!done)
            get_current_night_mode(&night, &mode, &alarm);
    });
    for (int i = 0; !done; i++) {
        if (i % 40 == 0)
            world.dark();
        if (i % 40 == 20)
            world.bright();
        world.clock.advance_ms(250);
        sched_yield();
    }
    settings.join();
    detection.join();
    EXPECT_TRUE(ircut_is_inited());
}

} // namespace
