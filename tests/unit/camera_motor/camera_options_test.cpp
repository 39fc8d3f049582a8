// What the camera's command line says of motor and window.
#include "options.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "log_capture.h"

namespace
{

using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;

camera_options options;

int parse(std::vector<std::string> words)
{
    static std::vector<std::string> kept; // options point into it
    kept = words;
    kept.insert(kept.begin(), "naro_camera");
    std::vector<char *> arguments;
    for (std::string &word : kept)
        arguments.push_back(&word[0]);
    arguments.push_back(nullptr);
    return options_parse(static_cast<int>(kept.size()), arguments.data(), &options);
}

TEST(MotorOptions, ThereIsAMotorUnlessItIsNotWanted)
{
    ASSERT_EQ(parse({}), 0);
    EXPECT_TRUE(options.motor);
    EXPECT_EQ(options.wide, 0);
    ASSERT_EQ(parse({"--no-motor"}), 0);
    EXPECT_FALSE(options.motor);
    ASSERT_EQ(parse({"--fast"}), 0);
    EXPECT_FALSE(options.motor) << "it turns in its own time";
}

TEST(MotorOptions, ItsNumbersAreLookedAtHere)
{
    ASSERT_EQ(parse({"--motor", "pan_speed=30", "--motor", "step=0.2"}), 0);
    EXPECT_THAT(options.motor_settings, ElementsAre("pan_speed=30", "step=0.2"));
    OutputCapture errors(STDERR_FILENO);
    EXPECT_EQ(parse({"--motor", "pan_speed=0"}), -1);
    EXPECT_THAT(errors.text(), HasSubstr("--motor \"pan_speed=0\": pan_speed is a number from 1 to 1000"));
    EXPECT_EQ(parse({"--motor", "pan_low=10", "--motor", "pan_high=9"}), -1);
    EXPECT_THAT(errors.text(), HasSubstr("--motor \"pan_high=9\": pan_high would put the lower end above"));
}

TEST(MotorOptions, HurriedThereIsNone)
{
    OutputCapture errors(STDERR_FILENO);
    EXPECT_EQ(parse({"--fast", "--motor", "pan_speed=30"}), -1);
    EXPECT_THAT(errors.text(), HasSubstr("--fast goes without a motor"));
}

TEST(MotorOptions, AWindowIsOfVideos)
{
    ASSERT_EQ(parse({"--source", "a.mp4", "--wide", "0.5"}), 0);
    EXPECT_EQ(options.wide, 0.5);
    EXPECT_EQ(parse({"--source", "a.mp4", "--wide", "0.1"}), 0);
    EXPECT_EQ(parse({"--source", "a.mp4", "--wide", "1"}), 0);
    OutputCapture errors(STDERR_FILENO);
    for (const char *wrong : {"0.09", "1.01", "x", "0.5x", "", "nan"}) {
        EXPECT_EQ(parse({"--source", "a.mp4", "--wide", wrong}), -1) << wrong;
        EXPECT_THAT(errors.text(),
                    HasSubstr("--wide wants a number from 0.1 to 1, not \"" + std::string(wrong) + "\""));
    }
    EXPECT_EQ(parse({"--source", "scene:cat", "--wide", "0.5"}), -1);
    EXPECT_THAT(errors.text(), HasSubstr("--wide is for videos: in a scene the camera itself turns"));
}

TEST(MotorOptions, ProgramsLieBesideThisOne)
{
    char path[4096];
    options_beside("naro_motor", path, sizeof path);
    EXPECT_EQ(path[0], '/');
    EXPECT_THAT(path, EndsWith("/naro_motor"));
    char small[5];
    options_beside("naro_motor", small, sizeof small);
    EXPECT_EQ(strlen(small), 4u);
}

} // namespace
