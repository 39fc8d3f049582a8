// The colour-transform watcher, with processor and time in the test's hands. The watcher never ends, so each
// case leaves its thread asleep, and the clock that it sleeps in behind.
#include "colortrans.h"

#include <atomic>
#include <errno.h>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <pthread.h>
#include <string>
#include <vector>

#include "fake_clock.h"
#include "ircut.h"
#include "lock_watch.h"
#include "log_capture.h"
#include "naro_isp.h"

namespace
{

std::atomic<uint32_t> again{0}, dgain{1024};
std::atomic<int> asked{0}, enabled{0}, disabled{0}, reading_fails{0};
std::atomic<bool> inited{true};
std::atomic<int> create_error{0}, created{0}, detached{0};
std::atomic<const LogCapture *> said{
    nullptr}; // what was said when the transform is switched; null: nobody looks
std::atomic<size_t> lines_said{0};

// ---- The decision ----------------------------------------------------------------------------------------

TEST(Look, Bounds)
{
    const struct {
        uint32_t gain;
        int on, off;
        colortrans_action action;
        int on_after, off_after;
    } table[] = {
        {46079, 0, 0, COLORTRANS_NOTHING, 0, 0}, {46080, 0, 0, COLORTRANS_ENABLE, 1, 0},
        {46080, 0, 1, COLORTRANS_ENABLE, 1, 0},  {46080, 1, 0, COLORTRANS_NOTHING, 1, 0},
        {30720, 0, 0, COLORTRANS_NOTHING, 0, 0}, {30719, 0, 0, COLORTRANS_DISABLE, 0, 1},
        {30719, 1, 0, COLORTRANS_DISABLE, 0, 1}, {30719, 0, 1, COLORTRANS_NOTHING, 0, 1},
        {30720, 1, 0, COLORTRANS_NOTHING, 1, 0},
    };
    for (const auto &row : table) {
        colortrans_state state = {row.on, row.off};
        EXPECT_EQ(colortrans_look(row.gain, &state), row.action) << row.gain;
        EXPECT_EQ(state.on, row.on_after) << row.gain;
        EXPECT_EQ(state.off, row.off_after) << row.gain;
    }
}

TEST(Look, RisingAndFalling)
{
    colortrans_state state = {0, 0};
    std::string actions;
    for (uint32_t gain : {40000u, 46080u, 60000u, 46079u, 30720u, 30719u, 0u, 46079u, 46080u})
        actions += "-ED"[colortrans_look(gain, &state)];
    EXPECT_EQ(actions, "-E---D--E");
}

TEST(Gain, ThirtyTwoBits)
{
    EXPECT_EQ(colortrans_gain(46080, 1024), 46080u);
    EXPECT_EQ(colortrans_gain(1023, 1), 0u);
    EXPECT_EQ(colortrans_gain(1024, 1), 1u);
    EXPECT_EQ(colortrans_gain(65536, 65536), 0u) << "wraps";
    EXPECT_EQ(colortrans_gain(65535, 65537), 0xFFFFFFFFu >> 10);
}

// ---- The watcher -----------------------------------------------------------------------------------------

class Watcher : public testing::Test
{
  protected:
    // One look of the watcher, after `ms`.
    void after(unsigned ms)
    {
        clock.advance_ms(ms);
        ASSERT_TRUE(clock.wait_for_sleepers(1));
    }
    LogCapture &log = *new LogCapture;
    FakeClock &clock = *new FakeClock(FakeClock::Sleep::blocks);
};

TEST_F(Watcher, OnlyOneStartsIt)
{
    EXPECT_EQ(ircut_set_COLORTRANS(0), 0);
    EXPECT_EQ(ircut_set_COLORTRANS(2), 0);
    EXPECT_EQ(created, 0);
    EXPECT_EQ(ircut_set_COLORTRANS(1), 0);
    EXPECT_EQ(ircut_set_COLORTRANS(1), 0);
    EXPECT_EQ(ircut_set_COLORTRANS(0), 0);
    EXPECT_EQ(created, 1);
    ASSERT_TRUE(clock.wait_for_sleepers(1));
}

TEST_F(Watcher, ThatCannotBeCreatedIsTriedAgain)
{
    create_error = EAGAIN;
    EXPECT_EQ(ircut_set_COLORTRANS(1), -1);
    EXPECT_EQ(log.lines(),
              (std::vector<LogCapture::Line>{
                  {NARO_LOG_ERR, "create ircut_set_COLORTRANS_thread fail ,ret = 11,(Resource temporarily "
                                 "unavailable)"}}));
    EXPECT_EQ(ircut_set_COLORTRANS(0), 0);
    create_error = 0;
    EXPECT_EQ(ircut_set_COLORTRANS(1), 0);
    EXPECT_EQ(created, 2);
    ASSERT_TRUE(clock.wait_for_sleepers(1));
}

TEST_F(Watcher, LooksAfterTenSecondsAndThenEverySecond)
{
    again = 40000;
    ircut_set_COLORTRANS(1);
    ASSERT_TRUE(clock.wait_for_sleepers(1));
    after(9999);
    EXPECT_EQ(asked, 0);
    after(1);
    EXPECT_EQ(asked, 1);
    after(999);
    EXPECT_EQ(asked, 1);
    after(1);
    EXPECT_EQ(asked, 2);
    EXPECT_EQ(clock.sleeps(), (std::vector<unsigned>{10000, 1000, 1000}));
}

TEST_F(Watcher, EnablesOnceAndDisablesOnce)
{
    again = 40000;
    ircut_set_COLORTRANS(1);
    ASSERT_TRUE(clock.wait_for_sleepers(1));
    after(10000);
    EXPECT_EQ(enabled + disabled, 0);
    again = 46080;
    after(1000);
    after(1000);
    EXPECT_EQ(enabled, 1);
    again = 30719;
    after(1000);
    after(1000);
    EXPECT_EQ(disabled, 1);
    EXPECT_EQ(enabled, 1);
    EXPECT_EQ(log.lines(),
              (std::vector<LogCapture::Line>{{NARO_LOG_ERR, " totalGain too large enable colorTrans \n"},
                                             {NARO_LOG_ERR, " totalGain too small disable colorTrans\n"}}));
}

TEST_F(Watcher, SaysSoBeforeItSwitches)
{
    again = 46080;
    said = &log;
    ircut_set_COLORTRANS(1);
    ASSERT_TRUE(clock.wait_for_sleepers(1));
    after(10000);
    EXPECT_EQ(enabled, 1);
    EXPECT_EQ(lines_said, 1u);
    again = 0;
    after(1000);
    EXPECT_EQ(disabled, 1);
    EXPECT_EQ(lines_said, 2u);
}

TEST_F(Watcher, StepsOfTheWallClockChangeNothing)
{
    again = 46080;
    ircut_set_COLORTRANS(1);
    ASSERT_TRUE(clock.wait_for_sleepers(1));
    clock.set_wall_ms(clock.wall_ms() - 3600000);
    after(9999);
    EXPECT_EQ(asked, 0);
    after(1);
    EXPECT_EQ(enabled, 1);
    clock.set_wall_ms(clock.wall_ms() + 7200000);
    after(999);
    EXPECT_EQ(asked, 1);
    after(1);
    EXPECT_EQ(asked, 2);
}

TEST_F(Watcher, IsNobodysToJoinFromItsFirstMoment)
{
    ircut_set_COLORTRANS(1);
    ASSERT_TRUE(clock.wait_for_sleepers(1));
    EXPECT_EQ(detached, 1);
}

TEST_F(Watcher, ALowGainAtTheStartDisablesOnce)
{
    ircut_set_COLORTRANS(1);
    ASSERT_TRUE(clock.wait_for_sleepers(1));
    after(10000);
    after(1000);
    EXPECT_EQ(disabled, 1);
    EXPECT_EQ(enabled, 0);
}

TEST_F(Watcher, MultipliesBothGains)
{
    again = 1024;
    dgain = 46080;
    ircut_set_COLORTRANS(1);
    ASSERT_TRUE(clock.wait_for_sleepers(1));
    after(10000);
    EXPECT_EQ(enabled, 1);
}

TEST_F(Watcher, AReadingThatFailsLeavesTheLastValues)
{
    again = 46080;
    ircut_set_COLORTRANS(1);
    ASSERT_TRUE(clock.wait_for_sleepers(1));
    after(10000);
    reading_fails = 1;
    again = 0;
    after(1000);
    EXPECT_EQ(asked, 2);
    EXPECT_EQ(disabled, 0);
    reading_fails = 0;
    after(1000);
    EXPECT_EQ(disabled, 1);
}

TEST_F(Watcher, PausesWhileHdrIsOn)
{
    g_uvo_hdr_flag = 1;
    ircut_set_COLORTRANS(1);
    ASSERT_TRUE(clock.wait_for_sleepers(1));
    after(10000);
    after(1999);
    EXPECT_EQ(asked + enabled + disabled, 0);
    g_uvo_hdr_flag = 0;
    after(1);
    EXPECT_EQ(asked, 1);
    EXPECT_EQ(clock.sleeps(), (std::vector<unsigned>{10000, 2000, 1000}));
}

TEST_F(Watcher, PausesWhileTheLightModuleIsNotInited)
{
    inited = false;
    ircut_set_COLORTRANS(1);
    ASSERT_TRUE(clock.wait_for_sleepers(1));
    after(10000);
    after(2000);
    EXPECT_EQ(asked + enabled + disabled, 0);
    inited = true;
    after(2000);
    EXPECT_EQ(asked, 1);
}

TEST_F(Watcher, HasItsName)
{
    ircut_set_COLORTRANS(1);
    ASSERT_TRUE(clock.wait_for_sleepers(1));
    bool found = false;
    for (const auto &entry : std::filesystem::directory_iterator("/proc/self/task")) {
        std::ifstream file(entry.path() / "comm");
        std::string name;
        std::getline(file, name);
        found = found || name == "COLORTRANS";
    }
    EXPECT_TRUE(found);
}

} // namespace

int naro_isp_ev_attr_get(naro_isp_ev_attr *attr)
{
    asked++;
    if (reading_fails)
        return -1;
    *attr = {{0, 0, 0, again, dgain, 0, 0}};
    return 0;
}
int naro_isp_COLORTRANS_enable(void)
{
    enabled++;
    if (said)
        lines_said = said.load()->texts().size();
    return -1;
}
int naro_isp_COLORTRANS_disable(void)
{
    disabled++;
    if (said)
        lines_said = said.load()->texts().size();
    return -1;
}
bool ircut_is_inited(void)
{
    return inited;
}

extern "C" int __real_pthread_create(pthread_t *thread, const pthread_attr_t *attr, void *(*entry)(void *),
                                     void *arg);
extern "C" int __wrap_pthread_create(pthread_t *thread, const pthread_attr_t *attr, void *(*entry)(void *),
                                     void *arg)
{
    EXPECT_EQ(locks_held(), 1u) << "or two callers would start two of them";
    created++;
    return create_error ? create_error.load() : __real_pthread_create(thread, attr, entry, arg);
}
extern "C" int __real_pthread_detach(pthread_t thread);
extern "C" int __wrap_pthread_detach(pthread_t thread)
{
    detached++;
    return __real_pthread_detach(thread);
}
