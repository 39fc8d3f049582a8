// The driver's rounds against a mailbox in this process's memory, in times of the test's own.
#include "motor_driver.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <sys/stat.h>
#include <vector>

#include "isolate.h"
#include "log_capture.h"

namespace
{

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

const std::string root = scratch_root();

struct Driver : testing::Test {
    Driver()
    {
        self = this;
        mkdir((root + "/run").c_str(), 0755);
        mkdir((root + "/run/naro").c_str(), 0755);
        view = motor_view_open(true);
        parameters = motor_parameters_usual();
        parameters.speed[MOTOR_PAN] = parameters.speed[MOTOR_TILT] = 50;
        parameters.acceleration[MOTOR_PAN] = parameters.acceleration[MOTOR_TILT] = 100;
        parameters.backlash[MOTOR_PAN] = parameters.backlash[MOTOR_TILT] = 0;
        parameters.step = 0.1;
    }
    ~Driver() override { motor_view_close(view); }
    void start()
    {
        const motor_driver_settings settings = {
            parameters,
            &box,
            view,
            [](const char *text) {
                self->publishes.push_back(text);
                if (self->refuse)
                    return false;
                self->stored = text;
                return true;
            },
            [] { return self->stored.empty() ? nullptr : strdup(self->stored.c_str()); },
            [](const motor_driver_report *report) { self->moves.push_back(*report); }};
        motor_driver_start(&settings, now);
    }
    void put(const std::string &text)
    {
        ASSERT_EQ(motor_mailbox_put(&box, text.c_str()), MOTOR_MAILBOX_DONE);
    }
    // Rounds as the process would make them, until that time.
    void run_until(uint64_t until)
    {
        while (now <= until)
            now += motor_driver_round(now);
    }
    double pan()
    {
        motor_view_record record = {};
        EXPECT_TRUE(motor_view_read(view, &record));
        return record.place.axis[MOTOR_PAN].head;
    }
    motor_view_record seen()
    {
        motor_view_record record = {};
        EXPECT_TRUE(motor_view_read(view, &record));
        return record;
    }
    bool full() { return box.full == MOTOR_MAILBOX_FULL; }

    static Driver *self;
    motor_parameters parameters;
    motor_mailbox box = {};
    motor_view_file *view;
    uint64_t now = 1000;
    std::string stored;
    std::vector<std::string> publishes;
    bool refuse = false;
    std::vector<motor_driver_report> moves;
};
Driver *Driver::self;

TEST_F(Driver, TurnsAndFreesTheMailboxWhenItsMoveHasEnded)
{
    start();
    EXPECT_EQ(motor_driver_round(now), 10u);
    put("[50,0,0]"); // 50 ms, 1.5 s of turning, 40 ms
    EXPECT_EQ(motor_driver_round(now), 5u) << "it turns: the view is written more often";
    run_until(1049);
    EXPECT_EQ(pan(), 0);
    EXPECT_FALSE(seen().turning);
    EXPECT_EQ(seen().moves, 1u);
    run_until(1050 + 750);
    EXPECT_NEAR(pan(), 25, 0.2);
    EXPECT_TRUE(seen().turning);
    EXPECT_NEAR(seen().speed[MOTOR_PAN], 50, 21) << "within a step in 5 ms";
    EXPECT_TRUE(full());
    run_until(1589);
    EXPECT_TRUE(full()) << "it settles";
    EXPECT_THAT(moves, IsEmpty());
    run_until(2589);
    EXPECT_TRUE(full());
    EXPECT_EQ(pan(), 50);
    run_until(2590);
    EXPECT_FALSE(full());
    ASSERT_EQ(moves.size(), 1u);
    EXPECT_STREQ(moves[0].text, "[50,0,0]");
    EXPECT_EQ(moves[0].taken_ms, 1000u);
    EXPECT_EQ(moves[0].ended_ms, 2590u);
    EXPECT_EQ(moves[0].from.axis[MOTOR_PAN].steps, 0);
    EXPECT_EQ(moves[0].to.axis[MOTOR_PAN].steps, 500);
    EXPECT_EQ(seen().speed[MOTOR_PAN], 0);
    EXPECT_FALSE(seen().turning);
}

TEST_F(Driver, TheNextMoveBeginsWhereTheLastEnded)
{
    start();
    put("[20,-10,0]");
    run_until(3000);
    put("[-5,4,1]");
    run_until(6000);
    EXPECT_NEAR(seen().place.axis[MOTOR_PAN].head, 15, 1e-6);
    EXPECT_NEAR(seen().place.axis[MOTOR_TILT].head, -6, 1e-6);
    EXPECT_EQ(seen().moves, 2u);
}

TEST_F(Driver, WhatLiesInTheMailboxAtTheStartIsDropped)
{
    put("[50,0,0]");
    start();
    EXPECT_FALSE(full());
    run_until(3000);
    EXPECT_THAT(moves, IsEmpty());
    EXPECT_EQ(pan(), 0);
}

TEST_F(Driver, ALockThatADeadDaemonLeftIsMadeNewAtTheStart)
{
    ASSERT_EQ(motor_mailbox_lock_try(&box.lock), 0);
    start();
    put("[10,0,0]");
    run_until(3000);
    EXPECT_EQ(moves.size(), 1u);
}

TEST_F(Driver, ALockThatStaysHeldIsMadeNewAfterHalfASecond)
{
    OutputCapture errors(STDERR_FILENO);
    start();
    put("[10,0,0]");
    ASSERT_EQ(motor_mailbox_lock_try(&box.lock), 0);
    run_until(1490);
    EXPECT_EQ(motor_mailbox_lock_try(&box.lock), EBUSY);
    EXPECT_EQ(errors.text(), "");
    run_until(1500);
    EXPECT_EQ(motor_mailbox_lock_try(&box.lock), 0);
    motor_mailbox_lock_release(&box.lock);
    EXPECT_THAT(errors.text(),
                HasSubstr("the mailbox has been locked for 500 ms: its holder has died; the lock is "
                          "made anew\n"));
    run_until(4000);
    EXPECT_EQ(moves.size(), 1u);
}

TEST_F(Driver, EachHolderHasItsHalfSecond)
{
    OutputCapture errors(STDERR_FILENO);
    start();
    ASSERT_EQ(motor_mailbox_lock_try(&box.lock), 0);
    run_until(1500);
    const size_t once = errors.text().size();
    EXPECT_GT(once, 0u);
    ASSERT_EQ(motor_mailbox_lock_try(&box.lock), 0); // the next one dies, too
    run_until(2000);
    EXPECT_EQ(errors.text().size(), once) << "seen at 1510 first";
    run_until(2010);
    EXPECT_EQ(errors.text().size(), 2 * once);
}

TEST_F(Driver, AHolderThatDiesWhileTheDriverWantsToFreeTheMailboxIsNoticedThereToo)
{
    OutputCapture errors(STDERR_FILENO);
    start();
    put("[10,0,0]");
    motor_driver_round(now);
    ASSERT_EQ(motor_mailbox_lock_try(&box.lock), 0);
    run_until(now + 2000);
    EXPECT_FALSE(full());
    EXPECT_THAT(errors.text(), HasSubstr("its holder has died"));
}

TEST_F(Driver, AMailboxThatGoesBeforeItIsFreedIsForgotten)
{
    start();
    put("[10,0,0]");
    motor_driver_round(now);
    ASSERT_EQ(motor_mailbox_lock_try(&box.lock), 0);
    run_until(now + 800);
    ASSERT_EQ(moves.size(), 1u);
    motor_driver_mailbox(nullptr);
    run_until(now + 100);
    EXPECT_TRUE(full());
}

TEST_F(Driver, ALockThatIsHeldNowAndThenIsNoTrouble)
{
    OutputCapture errors(STDERR_FILENO);
    start();
    for (int i = 0; i < 10; i++) {
        ASSERT_EQ(motor_mailbox_lock_try(&box.lock), 0);
        run_until(now + 300);
        motor_mailbox_lock_release(&box.lock);
        run_until(now + 10);
    }
    EXPECT_EQ(errors.text(), "");
}

TEST_F(Driver, TheMailboxIsFreedAsSoonAsItsLockIsToBeHad)
{
    start();
    put("[10,0,0]");
    motor_driver_round(now); // takes it
    ASSERT_EQ(motor_mailbox_lock_try(&box.lock), 0);
    run_until(now + 900); // 50 + 633 + 40 ms
    EXPECT_EQ(moves.size(), 1u);
    EXPECT_TRUE(full());
    motor_mailbox_lock_release(&box.lock);
    run_until(now + 10);
    EXPECT_FALSE(full());
    EXPECT_EQ(moves.size(), 1u) << "once";
}

TEST_F(Driver, ATextThatIsNoRequestIsSaidOnceAndDropped)
{
    OutputCapture errors(STDERR_FILENO);
    start();
    put("turn~ please\x01\x7f");
    run_until(now + 100);
    EXPECT_FALSE(full());
    EXPECT_EQ(errors.text(),
              "naro: \"turn~ please??\" in the mailbox is no request \"[h,v,sequence]\"; dropped\n");
    EXPECT_THAT(moves, IsEmpty());
    put("[10,0,1]");
    run_until(now + 2000);
    EXPECT_EQ(moves.size(), 1u);
}

TEST_F(Driver, ATextWithoutAnEndIsNoRequest)
{
    OutputCapture errors(STDERR_FILENO);
    start();
    memset(box.text, '1', sizeof box.text);
    box.text[0] = '[';
    box.full = MOTOR_MAILBOX_FULL;
    run_until(now + 100);
    EXPECT_FALSE(full());
    EXPECT_THAT(errors.text(), HasSubstr("is no request"));
}

TEST_F(Driver, TheSettingIsPublishedAtRestAndNotOnTheWay)
{
    start();
    run_until(5000);
    EXPECT_THAT(publishes, IsEmpty()) << "nothing has moved and nothing was stored";
    put("[10,3,0]");
    run_until(5760);
    ASSERT_EQ(moves.size(), 1u);
    const uint64_t ended = moves[0].ended_ms;
    run_until(ended + 480);
    EXPECT_THAT(publishes, IsEmpty());
    put("[10,0,1]"); // before it counts as rest
    run_until(ended + 520);
    EXPECT_THAT(publishes, IsEmpty()) << "one pursuit";
    run_until(ended + 3000);
    EXPECT_THAT(publishes, ElementsAre("[20,3]"));
    EXPECT_EQ(stored, "[20,3]");
    run_until(now + 10000);
    EXPECT_EQ(publishes.size(), 1u);
}

TEST_F(Driver, AMoveToNowhereWritesNothingToFlash)
{
    stored = "[0,0]";
    start();
    put("[0,0,0]");
    run_until(3000);
    EXPECT_EQ(moves.size(), 1u);
    EXPECT_FALSE(full());
    EXPECT_THAT(publishes, IsEmpty());
}

TEST_F(Driver, ASettingThatHasBecomeWrongIsSetRightAtTheStart)
{
    stored = "[30,5]";
    start();
    run_until(1000);
    EXPECT_THAT(publishes, ElementsAre("[0,0]"));
}

TEST_F(Driver, AStoreThatRefusesIsTriedAgainEachSecond)
{
    start();
    refuse = true;
    put("[10,0,0]");
    run_until(2190);
    ASSERT_EQ(moves.size(), 1u);
    const uint64_t due = moves[0].ended_ms + 500;
    run_until(due + 990);
    EXPECT_EQ(publishes.size(), 1u);
    refuse = false;
    run_until(due + 1010);
    EXPECT_EQ(publishes.size(), 2u);
    run_until(due + 5000);
    EXPECT_EQ(publishes.size(), 2u);
    EXPECT_EQ(stored, "[10,0]");
}

TEST_F(Driver, StoppedInMidMoveItStandsWhereItIs)
{
    start();
    put("[50,0,0]");
    run_until(1050 + 750);
    motor_driver_stop(now);
    EXPECT_FALSE(full());
    ASSERT_EQ(moves.size(), 1u);
    EXPECT_NEAR(pan(), 25, 1);
    EXPECT_EQ(seen().speed[MOTOR_PAN], 0);
    EXPECT_FALSE(seen().turning);
    ASSERT_EQ(publishes.size(), 1u);
    EXPECT_EQ(publishes[0], "[" + std::to_string(static_cast<int>(lround(pan()))) + ",0]");
}

TEST_F(Driver, KilledInMidMoveTheNextOneFindsTheHeadWhereItStands)
{
    start();
    put("[50,0,0]");
    run_until(1050 + 750);
    const double there = pan();
    EXPECT_NEAR(there, 25, 1);
    now += 60000;
    stored = "[0,0]";
    start(); // another process
    EXPECT_NEAR(pan(), there, 1e-6);
    EXPECT_EQ(seen().moves, 1u);
    EXPECT_EQ(seen().speed[MOTOR_PAN], 0);
    EXPECT_FALSE(seen().turning);
    EXPECT_FALSE(full()) << "its request is of unknown age";
    run_until(now);
    EXPECT_EQ(publishes.size(), 1u) << "the view has come to rest there";
    put("[-10,0,5]");
    run_until(now + 3000);
    EXPECT_NEAR(pan(), there - 10, 0.06);
    EXPECT_EQ(seen().moves, 2u);
}

TEST_F(Driver, WithoutAMailboxItWaitsForOne)
{
    start();
    motor_driver_mailbox(nullptr);
    EXPECT_EQ(motor_driver_round(now), 10u);
    motor_mailbox other = {};
    strcpy(other.text, "[10,0,0]");
    other.full = MOTOR_MAILBOX_FULL;
    motor_driver_mailbox(&other);
    EXPECT_EQ(other.full, 0) << "of unknown age";
    ASSERT_EQ(motor_mailbox_put(&other, "[10,0,1]"), MOTOR_MAILBOX_DONE);
    run_until(now + 2000);
    EXPECT_EQ(moves.size(), 1u);
    EXPECT_EQ(other.full, 0);
}

TEST_F(Driver, AMailboxThatGoesInMidMoveTakesNothingWithIt)
{
    start();
    put("[10,0,0]");
    run_until(now + 100);
    motor_driver_mailbox(nullptr);
    run_until(now + 2000);
    EXPECT_EQ(moves.size(), 1u);
    EXPECT_TRUE(full()) << "it is not touched any more";
}

} // namespace
