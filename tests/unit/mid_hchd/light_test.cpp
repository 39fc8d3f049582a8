// The white LED on people: which frames ask for it, in which night.
#include "mid_hchd.h"

#include <gtest/gtest.h>

#include "failures_to_stderr.h"
#include "fake_clock.h"
#include "log_capture.h"
#include "road.h"

namespace
{

// A frame with a person, in a night of the smart mode unless said otherwise.
Step person(int night = 1, int light_mode = 5, int alarm = 0)
{
    Step step;
    step.moved = {{14, 15, 12, 13}};
    step.boxes = {{1, 2, 11, 22, 0, 0.9f}};
    step.night = night;
    step.light_mode = light_mode;
    step.alarm = alarm;
    return step;
}

class LightOnPeople : public testing::Test
{
  protected:
    // Frame by frame what is said: 'L' for light and event, 'p' for the event alone, 'o' for motion.
    std::string run(std::vector<Step> steps)
    {
        steps.insert(steps.begin(), Step());
        r.frames = std::move(steps);
        EXPECT_EQ(mid_hchd_init(2), 0);
        EXPECT_TRUE(r.wait_until_idle());
        EXPECT_EQ(mid_hchd_fini(), 0);
        std::string said;
        bool lit = false;
        for (const std::string &line : r.journal) {
            if (line == "light") {
                EXPECT_FALSE(lit) << "once a frame";
                lit = true;
            }
            if (line == "event PeopleMotion") {
                said += lit ? 'L' : 'p';
                lit = false;
            }
            if (line == "event ObjectMotion")
                said += 'o';
        }
        EXPECT_FALSE(lit) << "the light comes before its event";
        return said;
    }

    FakeClock clock;
    Road r;
    LogCapture log;
    OutputCapture out{STDOUT_FILENO};
};

TEST_F(LightOnPeople, TheFirstFrameAndEveryThirdOneAfterIt)
{
    EXPECT_EQ(run(std::vector<Step>(8, person())), "LppLppLp");
}

class NoLightOnPeople : public LightOnPeople, public testing::WithParamInterface<Step>
{
};

TEST_P(NoLightOnPeople, InAnotherNight)
{
    EXPECT_EQ(run(std::vector<Step>(4, GetParam())), "pppp");
}

INSTANTIATE_TEST_SUITE_P(, NoLightOnPeople,
                         testing::Values(person(0), person(2), person(-1), person(1, 0), person(1, 3),
                                         person(1, 4), person(1, 6), person(1, 5, 1), person(1, 5, 2),
                                         person(1, 5, -1)),
                         [](const auto &test) { return "case" + std::to_string(test.index); });

TEST_F(LightOnPeople, FramesInWhichNothingIsLitCountToo)
{
    EXPECT_EQ(run({person(0), person(), person(), person(), person(1, 5, 1), person(), person()}), "pppLppL");
}

TEST_F(LightOnPeople, FramesWithoutPeopleDoNotCount)
{
    Step object = person();
    object.boxes.clear();
    EXPECT_EQ(run({object, person(), object, person(), Step(), object, person(), person()}), "oLopopL");
}

} // namespace
