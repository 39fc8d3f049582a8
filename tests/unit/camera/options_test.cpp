// The camera's command line.
#include "options.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "log_capture.h"

namespace
{

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

TEST(Options, NoneAreFine)
{
    ASSERT_EQ(parse({}), 0);
    EXPECT_STREQ(options.source, "scene:arrival");
    EXPECT_TRUE(options.loop);
    EXPECT_FALSE(options.gpu || options.fast || options.window || options.json || options.summary_only ||
                 options.verbose);
    EXPECT_EQ(options.end_ms, 0u);
    EXPECT_EQ(options.record, nullptr);
    EXPECT_EQ(options.scenario, nullptr);
    EXPECT_EQ(options.listeners, 1);
    EXPECT_THAT(options.daemon, EndsWith("/naro_algo"));
    EXPECT_EQ(options.daemon[0], '/');
}

TEST(Options, AreAllUnderstood)
{
    ASSERT_EQ(parse({"--source", "a.mp4", "--loop", "--fast", "--seconds", "1.5", "--record", "dir",
                     "--window", "--json", "--summary", "--verbose", "--daemon", "/d", "--scenario", "s.json",
                     "--listeners", "3"}),
              0);
    EXPECT_STREQ(options.source, "a.mp4");
    EXPECT_TRUE(options.loop);
    EXPECT_TRUE(options.fast);
    EXPECT_EQ(options.end_ms, 1500u);
    EXPECT_STREQ(options.record, "dir");
    EXPECT_TRUE(options.window);
    EXPECT_TRUE(options.json);
    EXPECT_TRUE(options.summary_only);
    EXPECT_TRUE(options.verbose);
    EXPECT_STREQ(options.daemon, "/d");
    EXPECT_STREQ(options.scenario, "s.json");
    EXPECT_EQ(options.listeners, 3);
}

TEST(Options, OfTheCard)
{
    ASSERT_EQ(parse({}), 0);
    EXPECT_STREQ(options.card, "folder");
    ASSERT_EQ(parse({"--card", "64K"}), 0);
    EXPECT_STREQ(options.card, "64K");
}

TEST(Options, OfSound)
{
    ASSERT_EQ(parse({}), 0);
    EXPECT_EQ(options.sound, nullptr);
    EXPECT_EQ(options.sound_threshold_db, -15);
    ASSERT_EQ(parse({"--sound", "s.txt", "--sound-threshold", "-32.5"}), 0);
    EXPECT_STREQ(options.sound, "s.txt");
    EXPECT_EQ(options.sound_threshold_db, -32.5);
    ASSERT_EQ(parse({"--sound-threshold", "-90"}), 0);
    ASSERT_EQ(parse({"--sound-threshold", "0", "--fast"}), 0);
    EXPECT_EQ(options.sound_threshold_db, 0);
    OutputCapture errors(STDERR_FILENO);
    for (const char *wrong : {"", "loud", "-90.1", "0.1", "nan", "-inf", "-15dB"}) {
        errors.clear();
        EXPECT_EQ(parse({"--sound-threshold", wrong}), -1) << wrong;
        EXPECT_THAT(
            errors.text(),
            HasSubstr(std::string("--sound-threshold wants a number from -90 to 0, not \"") + wrong + "\""));
    }
    EXPECT_EQ(parse({"--sound", "s.txt", "--fast"}), -1);
    EXPECT_THAT(errors.text(),
                HasSubstr("--fast hears nothing: the daemon asks for sounds by its own clock"));
}

TEST(Options, OfScenes)
{
    ASSERT_EQ(parse({"--source", "scene:cat", "--truth", "t.jsonl", "--gpu", "--frames", "f.y4m"}), 0);
    EXPECT_STREQ(options.source, "scene:cat");
    EXPECT_STREQ(options.frames, "f.y4m");
    EXPECT_STREQ(options.truth, "t.jsonl");
    EXPECT_TRUE(options.gpu);
    EXPECT_FALSE(options.loop) << "only the default goes on for ever";
    ASSERT_EQ(parse({"--truth", "t.jsonl"}), 0);
    OutputCapture errors(STDERR_FILENO);
    EXPECT_EQ(parse({"--source", "clip.mp4", "--truth", "t.jsonl"}), -1);
    EXPECT_EQ(parse({"--source", "shapes", "--truth", "t.jsonl"}), -1);
    EXPECT_THAT(errors.text(), HasSubstr("--truth is for scenes: of \"clip.mp4\" nobody knows it"));
}

TEST(Options, LightComesFromTheSceneTheDaemonOrASchedule)
{
    ASSERT_EQ(parse({"--lux", "dusk.txt"}), 0);
    EXPECT_STREQ(options.lux, "dusk.txt");
    EXPECT_FALSE(options.daemon_lights);
    ASSERT_EQ(parse({"--lights", "daemon"}), 0);
    EXPECT_TRUE(options.daemon_lights);
    ASSERT_EQ(parse({"--lights", "daemon", "--lights", "scene"}), 0);
    EXPECT_FALSE(options.daemon_lights);
    OutputCapture errors(STDERR_FILENO);
    EXPECT_EQ(parse({"--lights", "me"}), -1);
    EXPECT_THAT(errors.text(), HasSubstr("--lights wants scene or daemon, not \"me\""));
}

TEST(Options, SettingsKeepTheirOrder)
{
    using testing::ElementsAre;
    using testing::Pair;
    ASSERT_EQ(parse({"--set", "people_sensitivity=3", "--set", "a==b", "--set", "c="}), 0);
    EXPECT_THAT(options.settings,
                ElementsAre(Pair("people_sensitivity", "3"), Pair("a", "=b"), Pair("c", "")));
    OutputCapture errors(STDERR_FILENO);
    EXPECT_EQ(parse({"--set", "wdr"}), -1);
    EXPECT_EQ(parse({"--set", "=on"}), -1);
    EXPECT_THAT(errors.text(), HasSubstr("--set wants KEY=VALUE, not \"=on\""));
}

TEST(Options, ScenesAreListedWithTheirStories)
{
    OutputCapture out(STDOUT_FILENO);
    EXPECT_EQ(parse({"--scenes"}), 1);
    EXPECT_THAT(out.text(), HasSubstr("arrival  "));
    EXPECT_THAT(out.text(), HasSubstr("\nperson-crosses  "));
}

TEST(Options, EachStandsAlone)
{
    parse({"--loop"});
    EXPECT_TRUE(options.loop && !options.fast && !options.json && !options.summary_only && !options.verbose);
    parse({"--source", "a.mp4", "--fast"});
    EXPECT_TRUE(!options.loop && options.fast && !options.json && !options.summary_only && !options.verbose);
    parse({"--source", "a.mp4", "--json"});
    EXPECT_TRUE(!options.loop && !options.fast && options.json && !options.summary_only && !options.verbose);
    parse({"--source", "a.mp4", "--summary"});
    EXPECT_TRUE(!options.loop && !options.fast && !options.json && options.summary_only && !options.verbose);
    parse({"--source", "a.mp4", "--verbose"});
    EXPECT_TRUE(!options.loop && !options.fast && !options.json && !options.summary_only && options.verbose);
}

TEST(Options, TheLastWordOnAWindowCounts)
{
    parse({"--window", "--headless"});
    EXPECT_FALSE(options.window);
    parse({"--headless", "--window"});
    EXPECT_TRUE(options.window);
}

TEST(Options, NoDaemonIsNone)
{
    parse({"--no-daemon"});
    EXPECT_EQ(options.daemon, nullptr);
}

TEST(Options, SecondsAreAboveZero)
{
    OutputCapture errors(STDERR_FILENO);
    for (const char *wrong : {"0", "-1", "", "x", "1x", "nan", "inf", "1e10", "1e999"})
        EXPECT_EQ(parse({"--seconds", wrong}), -1) << wrong;
    EXPECT_THAT(errors.text(), HasSubstr("--seconds wants a number above 0, not \"1x\""));
    EXPECT_EQ(parse({"--seconds", "0.0001"}), 0);
    EXPECT_EQ(options.end_ms, 1u) << "never 0, which would be no end";
    EXPECT_EQ(parse({"--seconds", "1e9"}), 0);
}

TEST(Options, ListenersAreOneToAHundred)
{
    OutputCapture errors(STDERR_FILENO);
    for (const char *wrong : {"0", "101", "", "x", "1x", "99999999999999999999"})
        EXPECT_EQ(parse({"--listeners", wrong}), -1) << wrong;
    EXPECT_THAT(errors.text(), HasSubstr("--listeners wants a number from 1 to 100, not \"0\""));
    EXPECT_EQ(parse({"--listeners", "100"}), 0);
    EXPECT_EQ(options.listeners, 100);
}

TEST(Options, WhatIsNoneIsSaid)
{
    OutputCapture errors(STDERR_FILENO);
    EXPECT_EQ(parse({"clip.mp4"}), -1);
    EXPECT_EQ(parse({"--sorce", "x"}), -1);
    EXPECT_EQ(parse({"--source"}), -1);
    EXPECT_THAT(errors.text(), HasSubstr("\"clip.mp4\" is no option; a source goes behind --source"));
    EXPECT_THAT(errors.text(), HasSubstr("naro_camera --help tells the options"));
}

TEST(Options, HelpTellsThemAll)
{
    OutputCapture out(STDOUT_FILENO);
    EXPECT_EQ(parse({"--help"}), 1);
    for (const char *name :
         {"--source",    "--loop",    "--fast",    "--seconds", "--record", "--window",    "--headless",
          "--json",      "--summary", "--verbose", "--help",    "--daemon", "--no-daemon", "--scenario",
          "--listeners", "--scenes",  "--truth",   "--gpu",     "--set",    "--frames",    "NARO_ROOT"})
        EXPECT_THAT(out.text(), HasSubstr(name));
}

} // namespace
