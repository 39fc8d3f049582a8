// The meter, schedules, and what the daemon is answered.
#include "sound.h"

#include <algorithm>
#include <atomic>
#include <ev.h>
#include <fcntl.h>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <limits>
#include <math.h>
#include <string.h>
#include <thread>

#include "event_channels.h"
#include "fake_clock.h"
#include "isolate.h"
#include "lock_watch.h"
#include "log_capture.h"
#include "shbf.h"
#include "shbfev.h"

namespace
{

using testing::DoubleNear;
using testing::ElementsAre;
using testing::StartsWith;

const std::string folder = scratch_root();

// ---- The meter ------------------------------------------------------------------------------------------------

// The levels of `seconds` of a sine of some amplitude in one of `channels`, after what the meter has heard before.
std::vector<double> sine(sound_meter *meter, int rate, double seconds, double amplitude, int channels = 1,
                         int in = 0)
{
    std::vector<double> levels;
    for (int i = 0; i < static_cast<int>(seconds * rate); i++) {
        double sample[12] = {}, db;
        sample[in] = amplitude * sin(2 * M_PI * 440 * i / rate);
        if (sound_meter_add(meter, sample, channels, &db))
            levels.push_back(db);
    }
    return levels;
}

TEST(Meter, IsTheRootMeanSquareOfThreeTenths)
{
    sound_meter meter;
    sound_meter_start(&meter, 48000);
    // A sine that fills the range has -3 dB; one and two thirds of the window were silence before it.
    EXPECT_THAT(sine(&meter, 48000, 0.5, 1),
                ElementsAre(DoubleNear(-7.78, 0.01), DoubleNear(-4.77, 0.01), DoubleNear(-3.01, 0.01),
                            DoubleNear(-3.01, 0.01), DoubleNear(-3.01, 0.01)));
    EXPECT_THAT(sine(&meter, 48000, 0.4, 0.1),
                ElementsAre(DoubleNear(-4.75, 0.01), DoubleNear(-7.70, 0.01), DoubleNear(-23.01, 0.01),
                            DoubleNear(-23.01, 0.01)));
    EXPECT_THAT(sine(&meter, 48000, 0.3, 0),
                ElementsAre(DoubleNear(-24.77, 0.01), DoubleNear(-27.78, 0.01), -120));
}

TEST(Meter, HasTenLevelsASecondAtAnyRate)
{
    for (const int rate : {8000, 11025, 44100, 192000}) {
        sound_meter meter;
        sound_meter_start(&meter, rate);
        const std::vector<double> levels = sine(&meter, rate, 1.0, 0.5);
        EXPECT_EQ(levels.size(), 10u) << rate;
        EXPECT_NEAR(levels.back(), -9.03, 0.05) << rate;
    }
    sound_meter meter;
    sound_meter_start(&meter, 1); // nothing that exists; a level for each sample
    double one = 1, db = 0;
    EXPECT_TRUE(sound_meter_add(&meter, &one, 1, &db));
}

TEST(Meter, TakesTheLoudestChannel)
{
    for (const int in : {0, 1, 7}) {
        sound_meter meter;
        sound_meter_start(&meter, 8000);
        EXPECT_NEAR(sine(&meter, 8000, 0.3, 1, 8, in).back(), -3.01, 0.01) << in;
    }
    sound_meter meter;
    sound_meter_start(&meter, 8000);
    EXPECT_EQ(sine(&meter, 8000, 0.3, 1, 12, 8).back(), -120) << "more channels than are heard";
}

TEST(Meter, NothingIsHeardOfChannelsThatAreNotThere)
{
    sound_meter meter;
    sound_meter_start(&meter, 10);
    const double sample[] = {0, 0, 1, 1};
    double db = 0;
    EXPECT_TRUE(sound_meter_add(&meter, sample, 2, &db));
    EXPECT_EQ(db, -120);
}

TEST(Meter, WhatIsNoNumberIsSilence)
{
    sound_meter meter;
    sound_meter_start(&meter, 30);
    double db = 0;
    for (const double odd :
         {std::numeric_limits<double>::quiet_NaN(), std::numeric_limits<double>::infinity(),
          -std::numeric_limits<double>::infinity()})
        sound_meter_add(&meter, &odd, 1, &db);
    EXPECT_EQ(db, -120);
    const double one = 1;
    for (int i = 0; i < 9; i++)
        sound_meter_add(&meter, &one, 1, &db);
    EXPECT_NEAR(db, 0, 1e-9);
}

// ---- Schedules --------------------------------------------------------------------------------------------------

std::vector<sound_moment> parsed(const std::string &text)
{
    std::vector<sound_moment> schedule;
    std::string error;
    EXPECT_EQ(sound_schedule_parse(text, &schedule, &error), 0) << error;
    return schedule;
}

std::string refused(const std::string &text)
{
    std::vector<sound_moment> schedule;
    std::string error;
    EXPECT_EQ(sound_schedule_parse(text, &schedule, &error), -1) << text;
    return error;
}

TEST(Schedule, IsRead)
{
    const auto schedule = parsed("# a cry\r\n\n 0 quiet\r\n1.5\tloud # here\n2 quiet \n2 loud\n1e9 quiet");
    ASSERT_EQ(schedule.size(), 5u);
    EXPECT_EQ(schedule[1].seconds, 1.5);
    EXPECT_TRUE(schedule[1].loud);
    EXPECT_FALSE(schedule[2].loud);
    EXPECT_EQ(schedule[4].seconds, 1e9);
}

TEST(Schedule, IsNotAddedToAnother)
{
    std::vector<sound_moment> schedule = {{5, true}};
    std::string error;
    EXPECT_EQ(sound_schedule_parse("1 quiet\n3 loud", &schedule, &error), 0);
    EXPECT_EQ(schedule.size(), 2u);
}

TEST(Schedule, WhatIsNoneIsSaid)
{
    const std::string wanted = ": seconds, from 0 to a thousand million, and then loud or quiet are wanted";
    EXPECT_EQ(refused("0 loud\n\n1 louder"), "line 3" + wanted);
    for (const char *line :
         {"loud", "1", "1 Loud", "1 loud quiet", "-1 loud", "nan loud", "1.1e9 loud", "1 2 loud"})
        EXPECT_EQ(refused(line), "line 1" + wanted) << line;
    for (const std::string &line :
         {std::string("1 loud\0", 7), std::string("\0", 1), std::string("1\0 loud", 7)})
        EXPECT_EQ(refused(line), "line 1" + wanted) << "zero bytes";
    EXPECT_EQ(refused("2 loud\n1 quiet"), "line 2: times go back");
    for (const char *text : {"", "\n\n", "# nothing"})
        EXPECT_EQ(refused(text), "there is no sound in it");
}

TEST(Schedule, SaysWhatIsHeard)
{
    const auto schedule = parsed("1 loud\n2 quiet\n3 loud");
    const struct {
        double seconds;
        bool loud;
    } table[] = {{0, false}, {0.999, false}, {1, true}, {1.999, true},
                 {2, false}, {2.999, false}, {3, true}, {99, true}};
    for (const auto &row : table)
        EXPECT_EQ(sound_schedule_at(schedule, row.seconds, false), row.loud) << row.seconds;
}

TEST(Schedule, BeginsAnewAtItsLastLine)
{
    const auto schedule = parsed("1 loud\n2 quiet\n10 loud");
    for (const double round : {0., 10., 70.}) {
        EXPECT_FALSE(sound_schedule_at(schedule, round, true)) << "not what the last line says";
        EXPECT_TRUE(sound_schedule_at(schedule, round + 1, true));
        EXPECT_FALSE(sound_schedule_at(schedule, round + 2, true));
        EXPECT_FALSE(sound_schedule_at(schedule, round + 9.999, true));
    }
    EXPECT_TRUE(sound_schedule_at(parsed("0 loud"), 5, true)) << "one that has no length";
    EXPECT_TRUE(sound_schedule_at(parsed("0.4 loud\n0.5 quiet"), 0.9, true));
}

// ---- The ear ----------------------------------------------------------------------------------------------------

uint64_t source_ms;
int told;

size_t open_descriptors()
{
    size_t count = 0;
    for (int fd = 0; fd < 100; fd++)
        count += fcntl(fd, F_GETFD) >= 0;
    return count;
}

class Ear : public testing::Test
{
  protected:
    void SetUp() override
    {
        source_ms = 0;
        told = 0;
        settings.threshold_db = -15;
        settings.now_ms = [] { return source_ms; };
        settings.on_told = [] { told++; };
        loop = ev_loop_new(EVFLAG_AUTO);
        ASSERT_EQ(shbf_rcv_global_init(), 0);
    }
    void TearDown() override
    {
        sound_stop();
        shbf_rcv_global_exit();
        ev_loop_destroy(loop);
    }
    void start()
    {
        sound_stop(); // an earlier one
        ASSERT_EQ(sound_start(loop, &settings), 0);
    }
    // The answer at a time of the source.
    uint32_t at(uint64_t ms)
    {
        source_ms = ms;
        return sound_answer();
    }
    FakeClock clock;
    sound_settings settings = {};
    struct ev_loop *loop = nullptr;
};

TEST_F(Ear, IsDeafBeforeItsStart)
{
    sound_measured(0, 0);
    EXPECT_EQ(sound_answer(), 0u);
    EXPECT_EQ(sound_get_counts()->asked, 0u);
    start();
    EXPECT_EQ(at(0), 0u) << "what was measured before it is forgotten";
}

TEST_F(Ear, HearsWhatReachesTheThreshold)
{
    start();
    sound_measured(1000, -15.01);
    EXPECT_EQ(at(1000), 0u);
    sound_measured(2000, -15);
    EXPECT_EQ(at(1999), 0u) << "it is still to come";
    EXPECT_EQ(at(2000), 1u);
    EXPECT_EQ(at(2499), 1u);
    EXPECT_EQ(at(2500), 0u);
    const sound_counts *counts = sound_get_counts();
    EXPECT_EQ(counts->asked, 5u);
    EXPECT_EQ(counts->loud, 2u);
    EXPECT_FALSE(counts->is_loud);
}

TEST_F(Ear, OneLoudLevelIsEnough)
{
    start();
    for (int i = 0; i < 10; i++)
        sound_measured(i * 100, i == 5 ? -3 : -60);
    EXPECT_EQ(at(400), 0u);
    EXPECT_EQ(at(900), 1u);
    EXPECT_TRUE(sound_get_counts()->is_loud);
    EXPECT_EQ(at(1000), 0u);
}

TEST_F(Ear, KnowsItsLevel)
{
    start();
    at(0);
    EXPECT_FALSE(sound_get_counts()->has_level);
    for (int i = 1; i <= 5; i++)
        sound_measured(i * 100, -10. * i);
    sound_measured(200, -99); // a part that is read again
    at(300);
    EXPECT_TRUE(sound_get_counts()->has_level);
    EXPECT_EQ(sound_get_counts()->level_db, -30);
    at(1000);
    EXPECT_FALSE(sound_get_counts()->has_level);
}

TEST_F(Ear, ForgetsWhatIsOver)
{
    start();
    for (const int ms : {100, 200, 9600})
        sound_measured(ms, -3);
    EXPECT_EQ(at(10000), 1u);
    EXPECT_EQ(at(200), 0u) << "nobody plays backwards";
    EXPECT_EQ(at(9600), 1u);
}

TEST_F(Ear, TheThresholdIsAsked)
{
    settings.threshold_db = -40;
    start();
    sound_measured(100, -40);
    EXPECT_EQ(at(100), 1u);
}

TEST_F(Ear, TenMinutesAreKept)
{
    start();
    sound_measured(0, -3);
    for (int i = 1; i < 6000; i++)
        sound_measured(i * 100, -60);
    EXPECT_EQ(at(0), 1u);
    start();
    sound_measured(0, -3);
    for (int i = 1; i <= 6000; i++)
        sound_measured(i * 100, -60);
    EXPECT_EQ(at(0), 0u) << "the oldest goes";
}

TEST_F(Ear, IsSilentWhilePicturesStandStill)
{
    start();
    sound_measured(1000, -3);
    EXPECT_EQ(at(1000), 1u);
    clock.advance_ms(999);
    EXPECT_EQ(at(1000), 1u);
    clock.advance_ms(1);
    EXPECT_EQ(at(1000), 0u);
    EXPECT_EQ(at(1200), 1u) << "they go on";
}

TEST_F(Ear, ScheduleInsteadOfTheSourcesSound)
{
    const std::string path = folder + "/schedule";
    std::ofstream(path) << "1 loud\n2 quiet\n4 quiet\n";
    settings.schedule = path.c_str();
    start();
    sound_measured(0, 0);
    EXPECT_EQ(at(0), 0u);
    EXPECT_EQ(at(1000), 1u);
    clock.advance_ms(5000);
    EXPECT_EQ(at(1000), 1u) << "also while pictures stand still";
    EXPECT_EQ(at(2000), 0u);
    EXPECT_EQ(at(5000), 0u);
    settings.loop = true;
    start();
    EXPECT_EQ(at(5000), 1u);
    EXPECT_EQ(sound_get_counts()->asked, 1u);
    settings.schedule = nullptr;
    start();
    EXPECT_EQ(sound_get_counts()->asked, 0u) << "from the beginning";
    EXPECT_EQ(at(5000), 0u);
}

TEST_F(Ear, AScheduleThatCannotBeReadIsSaid)
{
    const std::string missing = folder + "/missing", wrong = folder + "/wrong", large = folder + "/large";
    std::ofstream(wrong) << "1 loud\n0 loud\n";
    std::ofstream(large) << std::string(SOUND_FILE_MAX - 5, '\n') + "1 loud";
    const size_t before = open_descriptors();
    for (const auto &[path, why] :
         {std::pair(missing, "No such file"), std::pair(wrong, "line 2: times go back"),
          std::pair(large, "larger than a schedule can be")}) {
        settings.schedule = path.c_str();
        OutputCapture errors(STDERR_FILENO);
        EXPECT_EQ(sound_start(loop, &settings), -1);
        EXPECT_THAT(errors.text(), StartsWith("naro: " + path + ": " + why));
    }
    EXPECT_EQ(open_descriptors(), before);
    std::ofstream(large) << std::string(SOUND_FILE_MAX - 6, '\n') + "1 loud";
    settings.schedule = large.c_str();
    start();
    EXPECT_EQ(at(1000), 1u) << "the largest";
}

TEST_F(Ear, IsDeafAfterItsEnd)
{
    start();
    sound_measured(100, -3);
    EXPECT_EQ(at(100), 1u);
    sound_stop();
    EXPECT_EQ(sound_answer(), 0u);
    sound_stop(); // and does nothing more
}

TEST_F(Ear, AChannelThatCannotBeOpenedIsSaid)
{
    OutputCapture errors(STDERR_FILENO);
    EXPECT_EQ(sound_start(nullptr, &settings), -1);
    EXPECT_EQ(errors.text(), "naro: the channel /run/lsd_event cannot be opened\n");
    EXPECT_EQ(sound_answer(), 0u);
    EXPECT_EQ(sound_get_counts()->asked, 0u);
}

TEST_F(Ear, CountsWhatTheDaemonTells)
{
    void *daemon = shbfev_brd_create(EVENT_PATH_LSD);
    ASSERT_GE(shbfev_brd_start(loop, daemon), 0);
    start();
    const auto until = [&](const std::function<bool()> &condition) {
        for (int i = 0; i < 10000 && !condition(); i++)
            ev_run(loop, EVRUN_ONCE);
        return condition();
    };
    ASSERT_TRUE(until([&] { return shbfev_brd_receivers(daemon) == 1; }));
    const uint32_t time = 1700000000;
    OutputCapture errors(STDERR_FILENO);
    for (const size_t length : {size_t{4}, size_t{3}, size_t{4}, size_t{1}})
        shbfev_brd_broadcast_message(daemon, &time, length);
    EXPECT_TRUE(until([] { return sound_get_counts()->told + sound_get_counts()->bad == 4; }));
    EXPECT_EQ(sound_get_counts()->told, 2u);
    EXPECT_EQ(told, 2);
    EXPECT_EQ(errors.text(), "naro: a message of 3 bytes on /run/lsd_event is no time; dropped\n"
                             "naro: a message of 1 bytes on /run/lsd_event is no time; dropped\n");
    shbfev_brd_destroy(daemon);
}

TEST_F(Ear, IsFilledByAnotherThread)
{
    start();
    std::atomic<bool> done{false};
    std::thread source([&] {
        for (int i = 0; i < 20000; i++)
            sound_measured(i, i % 2 ? -3 : -60);
        done = true;
    });
    uint64_t ms = 0;
    while (!done)
        at(std::min<uint64_t>(ms++, 19000)); // what it asks for goes
    source.join();
    EXPECT_EQ(at(19999), 1u);
}

} // namespace
