// The world of a scene: opening and its errors, moments in any order, and the truth about them.
#include "world.h"

#include <algorithm>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <malloc.h>
#include <stdlib.h>
#include <string.h>

#include "isolate.h"
#include "world_state.h"

namespace
{

using testing::ElementsAre;
using testing::HasSubstr;

const std::string root = scratch_root();

struct world_closer {
    void operator()(world *w) const { world_close(w); }
};
typedef std::unique_ptr<world, world_closer> world_owner;

std::string write_scene(const std::string &text)
{
    const std::string file = root + "/scene.json";
    std::ofstream(file) << text;
    return file;
}
// A living room; `members` come on line 2, actors on line 4.
std::string scene_text(const std::string &members, const std::string &actors)
{
    return "{\"story\": \"0123456789\", \"seconds\": 40, \"expects\": {\"people\": \"any\", \"objects\": "
           "\"any\"},\n" +
           members + "\n\"actors\": [\n" + actors + "]}";
}
const std::string living = "\"room\": \"living-room\",";
const std::string anna =
    "{\"name\": \"anna\", \"person\": 1, \"start\": 2, \"steps\": [{\"do\": \"enter\"}, {\"do\": \"walk\", "
    "\"to\": \"near\"}, {\"do\": \"sit\", \"at\": \"sofa\", \"seconds\": 4}, {\"do\": \"leave\"}]}";

world_owner open_text(const std::string &text)
{
    world_owner w(world_open(write_scene(text).c_str()));
    EXPECT_TRUE(w);
    return w;
}
std::string error_of(const std::string &name)
{
    testing::internal::CaptureStderr();
    EXPECT_FALSE(world_owner(world_open(name.c_str())));
    return testing::internal::GetCapturedStderr();
}
std::string text_error(const std::string &text)
{
    const std::string file = write_scene(text), said = error_of(file);
    const size_t at = said.find(file);
    return at == std::string::npos ? "no file name: " + said : said.substr(at + file.size());
}

std::string truth_of(world *w, double time, const world_controls *controls = nullptr)
{
    scene_snapshot snapshot;
    truth_moment truth;
    world_snapshot(w, time, controls, &snapshot);
    world_truth(w, &snapshot, 7, &truth);
    return truth_json(&truth);
}
truth_moment moment_of(world *w, double time, const world_controls *controls = nullptr)
{
    scene_snapshot snapshot;
    truth_moment truth;
    world_snapshot(w, time, controls, &snapshot);
    world_truth(w, &snapshot, 0, &truth);
    return truth;
}

TEST(WorldOpen, ErrorsNameFileLineAndWhatWasExpected)
{
    EXPECT_EQ(text_error(scene_text("\"room\": \"cellar\",", "")),
              ":2: there is no room \"cellar\"; expected one of living-room, bedroom, office, hall, kitchen, "
              "nursery\n");
    EXPECT_EQ(text_error(scene_text(living + "\"camera\": {\n\"anchor\": \"sea\"},", "")),
              ":3: there is no \"sea\" in this room; expected shelf or corner\n");
    EXPECT_EQ(text_error(scene_text(living + "\"hour\": 25,", "")),
              ":2: \"hour\" is 25; expected a number from 0 to 24\n");
    EXPECT_THAT(text_error(scene_text(
                    living, "{\"name\": \"a\", \"person\": 1, \"at\": [0.1, 2.6], \"steps\": [{\"do\": "
                            "\"stand\", \"seconds\": 1}]}")),
                HasSubstr(":4: [0.1, 2.6] is in a wall or a piece of furniture; expected free floor"));
    EXPECT_THAT(text_error(scene_text(
                    living, "{\"name\": \"a\", \"person\": 1, \"steps\": [{\"do\": \"enter\"},\n{\"do\": "
                            "\"walk\", \"to\": \"moon\"}]}")),
                HasSubstr(":5: there is no \"moon\" in this room; expected one of "));
    EXPECT_EQ(text_error("{"), ":1: not JSON: the text ends too early\n");
    EXPECT_EQ(text_error(std::string(SCENE_FILE_MAX + 1, ' ')), ": 262145 bytes; expected at most 262144\n");
    EXPECT_THAT(error_of(root + "/missing.json"), HasSubstr("missing.json: No such file or directory"));
    EXPECT_THAT(error_of(root + "/"), HasSubstr("/: "));
    EXPECT_THAT(error_of("no-such-scene"),
                HasSubstr("there is no scene \"no-such-scene\" in " + world_folder()));
    EXPECT_THAT(error_of("../scenes/../no"), HasSubstr("No such file"));
    for (const char *name : {"random?seed=", "random?seed=x", "random?seed=-1", "random?sead=1",
                             "random?seed=99999999999999999999"}) {
        EXPECT_THAT(error_of(name),
                    HasSubstr(std::string(name) + ": expected random?seed=N with a whole number N"));
    }
}

TEST(WorldOpen, ARepeatedSceneEndsWhereItBegan)
{
    const std::string stays = "{\"name\": \"a\", \"person\": 1, \"at\": \"near\", \"heading\": 0, \"steps\": "
                              "[{\"do\": \"walk\", \"to\": \"far\"}";
    EXPECT_EQ(text_error(scene_text(living + "\"repeat\": 20,", stays + "]}")),
              ":4: \"a\" is elsewhere when the scene repeats; expected to end where it began, or away both "
              "times\n");
    EXPECT_EQ(text_error(scene_text(living + "\"repeat\": 20,",
                                    "{\"name\": \"a\", \"person\": 1, \"steps\": [{\"do\": \"enter\"}]}")),
              ":4: \"a\" is elsewhere when the scene repeats; expected to end where it began, or away both "
              "times\n");
    world_owner w =
        open_text(scene_text(living + "\"repeat\": 20,", stays + ", {\"do\": \"walk\", \"to\": \"near\"}]}"));
    EXPECT_NEAR(moment_of(w.get(), 3).actors[0].distance, moment_of(w.get(), 23).actors[0].distance, 0.02f);
    EXPECT_NEAR(moment_of(w.get(), 3).actors[0].distance, moment_of(w.get(), 2003).actors[0].distance, 0.02f);
}

TEST(WorldOpen, TellsWhatTheFileSays)
{
    world_owner w =
        open_text(scene_text(living + "\"seed\": 9, \"settings\": {\"motion_region\": \"2\"},", ""));
    EXPECT_STREQ(world_story(w.get()), "0123456789");
    EXPECT_EQ(world_seconds(w.get()), 40);
    EXPECT_EQ(world_seed(w.get()), 9u);
    EXPECT_EQ(world_settings(w.get()).at("motion_region"), "2");
    ASSERT_EQ(world_expects(w.get()).size(), 1u);
    EXPECT_EQ(world_expects(w.get())[0].to, 40);
}

TEST(WorldOpen, TheFolderCanBeElsewhere)
{
    setenv("NARO_SCENES", root.c_str(), 1);
    write_scene(scene_text(living, ""));
    std::ofstream(root + "/schema.json") << "{}";
    std::ofstream(root + "/other.txt") << "{}";
    EXPECT_EQ(world_folder(), root);
    EXPECT_THAT(world_names(), ElementsAre("scene"));
    EXPECT_TRUE(world_owner(world_open("scene")));
    setenv("NARO_SCENES", (root + "/none").c_str(), 1);
    EXPECT_TRUE(world_names().empty());
    unsetenv("NARO_SCENES");
    EXPECT_NE(world_folder(), root);
}

TEST(WorldMoments, AreTheSameInAnyOrder)
{
    world_owner w = open_text(
        scene_text(living + "\"lights\": [{\"at\": 5, \"ceiling\": true}], \"camera\": {\"turns\": [{\"at\": "
                            "6, \"pan\": 20, \"speed\": 10}]},",
                   anna + ", {\"name\": \"rex\", \"thing\": \"dog\", \"at\": \"far\", \"steps\": [{\"do\": "
                          "\"walk\", \"to\": \"window\"}]}"));
    std::vector<double> times;
    for (int i = 0; i < 60; i++)
        times.push_back(i * 0.5);
    std::vector<std::string> forward;
    for (const double t : times)
        forward.push_back(truth_of(w.get(), t));
    scene_random random = {5};
    for (int i = 0; i < 150; i++) {
        const size_t k = scene_next(&random) % times.size();
        EXPECT_EQ(truth_of(w.get(), times[k]), forward[k]) << times[k];
    }
    world_owner again = open_text(
        scene_text(living + "\"lights\": [{\"at\": 5, \"ceiling\": true}], \"camera\": {\"turns\": "
                            "[{\"at\": 6, \"pan\": 20, \"speed\": 10}]},",
                   anna + ", {\"name\": \"rex\", \"thing\": \"dog\", \"at\": \"far\", \"steps\": [{\"do\": "
                          "\"walk\", \"to\": \"window\"}]}"));
    EXPECT_EQ(truth_of(again.get(), 20), forward[40]) << "a world of its own, asked for nothing before";
}

TEST(WorldTruth, BoxesAndSharesAgreeWithTheMask)
{
    for (const char *name : {"crowd-of-six", "person-and-dog", "passes-behind-sofa", "corner-view"}) {
        world_owner w(world_open(name));
        ASSERT_TRUE(w);
        for (double t = 3.1; t < 30; t += 4.3) {
            SCOPED_TRACE(std::string(name) + " at " + std::to_string(t));
            scene_snapshot snapshot;
            truth_moment truth;
            world_snapshot(w.get(), t, nullptr, &snapshot);
            world_truth(w.get(), &snapshot, 0, &truth);
            std::vector<uint32_t> mask, alone;
            world_mask(&snapshot, 320, 192, &mask);
            for (const truth_actor &a : truth.actors) {
                int box[4] = {320, 192, 0, 0}, seen = 0, whole = 0;
                scene_snapshot only = snapshot;
                only.objects.clear();
                for (const scene_object &object : snapshot.objects)
                    if (object.actor == a.actor)
                        only.objects.push_back(object);
                world_mask(&only, 320, 192, &alone);
                for (int i = 0; i < 320 * 192; i++) {
                    whole += alone[static_cast<size_t>(i)] == a.actor;
                    if (mask[static_cast<size_t>(i)] != a.actor)
                        continue;
                    seen++;
                    box[0] = std::min(box[0], i % 320);
                    box[1] = std::min(box[1], i / 320);
                    box[2] = std::max(box[2], i % 320 + 1);
                    box[3] = std::max(box[3], i / 320 + 1);
                }
                if (seen == 0) {
                    EXPECT_EQ(a.visible, 0);
                    EXPECT_EQ(a.box[2], 0);
                    continue;
                }
                for (int i = 0; i < 4; i++)
                    EXPECT_EQ(a.box[i], static_cast<float>(box[i])) << a.name;
                const bool inside = box[0] > 0 && box[1] > 0 && box[2] < 320 && box[3] < 192;
                if (inside) {
                    EXPECT_NEAR(a.visible, static_cast<float>(seen) / static_cast<float>(whole), 0.001f)
                        << a.name;
                } else {
                    EXPECT_LE(a.visible, static_cast<float>(seen) / static_cast<float>(whole) + 0.001f)
                        << a.name;
                }
            }
        }
    }
}

TEST(WorldTruth, WhoLeavesIsGone)
{
    world_owner w = open_text(scene_text(living, anna));
    EXPECT_TRUE(moment_of(w.get(), 0).actors.empty());
    ASSERT_EQ(moment_of(w.get(), 8).actors.size(), 1u);
    EXPECT_TRUE(moment_of(w.get(), 39).actors.empty());
    scene_snapshot snapshot;
    world_snapshot(w.get(), 39, nullptr, &snapshot);
    for (const scene_object &object : snapshot.objects)
        EXPECT_EQ(object.actor, 0u);
}

TEST(WorldTruth, TellsOfActors)
{
    world_owner w =
        open_text(scene_text(living, "{\"name\": \"a\", \"person\": 1, \"at\": \"floor\", \"heading\": 180, "
                                     "\"steps\": [{\"do\": \"stand\", \"seconds\": 5}, "
                                     "{\"do\": \"walk\", \"to\": \"far\"}]}, {\"name\": \"b\", \"thing\": "
                                     "\"box\", \"at\": [2.2, 2], \"steps\": [{\"do\": "
                                     "\"stand\", \"seconds\": 40}]}"));
    const truth_moment t = moment_of(w.get(), 7);
    ASSERT_EQ(t.actors.size(), 2u);
    EXPECT_EQ(t.actors[0].actor, 1u);
    EXPECT_EQ(t.actors[0].name, "a");
    EXPECT_EQ(t.actors[0].kind, "person");
    EXPECT_EQ(t.actors[0].doing, "walk");
    EXPECT_TRUE(t.actors[0].moves);
    EXPECT_GT(t.actors[0].visible, 0.9f);
    EXPECT_NEAR(t.actors[0].distance, 4.2f, 1.2f);
    EXPECT_GT(t.actors[0].lux, 10);
    EXPECT_EQ(t.actors[1].actor, 2u);
    EXPECT_EQ(t.actors[1].kind, "box");
    EXPECT_EQ(t.actors[1].doing, "");
    EXPECT_FALSE(t.actors[1].moves);
}

TEST(WorldTruth, TellsOfLightAndView)
{
    world_owner w =
        open_text(scene_text(living + "\"hour\": 22, \"lights\": [{\"at\": 0, \"filter\": false, \"grey\": "
                                      "true, \"infrared\": 1}, {\"at\": 5, \"ceiling\": true}, "
                                      "{\"at\": 9, \"headlights\": 4}, {\"at\": 20, \"wind\": 1, \"tv\": "
                                      "true}], \"camera\": {\"pan\": 5, \"tilt\": 2, \"turns\": "
                                      "[{\"at\": 12, \"pan\": 25, \"speed\": 10}]},",
                             ""));
    const truth_moment dark = moment_of(w.get(), 1);
    EXPECT_FALSE(dark.filter);
    EXPECT_TRUE(dark.grey);
    EXPECT_TRUE(dark.infrared_lamp);
    EXPECT_FALSE(dark.white_lamp);
    EXPECT_FALSE(dark.lamps.at("ceiling"));
    EXPECT_FALSE(dark.light_changes);
    EXPECT_FLOAT_EQ(dark.pan, 5);
    EXPECT_FLOAT_EQ(dark.tilt, -10) << "the shelf's own tilt and the file's";
    EXPECT_NEAR(dark.hour, 22 + 1 / 3600., 1e-6);
    EXPECT_TRUE(dark.stirs.empty());
    EXPECT_TRUE(moment_of(w.get(), 5.1).light_changes);
    EXPECT_TRUE(moment_of(w.get(), 5).light_changes);
    EXPECT_FALSE(moment_of(w.get(), 4.9).light_changes);
    EXPECT_FALSE(moment_of(w.get(), 5.3).light_changes);
    EXPECT_TRUE(moment_of(w.get(), 5.3).lamps.at("ceiling"));
    EXPECT_TRUE(moment_of(w.get(), 10).lamps.at("headlights"));
    EXPECT_THAT(moment_of(w.get(), 10).stirs, ElementsAre("headlights"));
    EXPECT_FALSE(moment_of(w.get(), 14).lamps.at("headlights"));
    EXPECT_FALSE(moment_of(w.get(), 11.9).view_moves);
    EXPECT_TRUE(moment_of(w.get(), 13).view_moves);
    EXPECT_NEAR(moment_of(w.get(), 13).pan, 15, 0.001f);
    EXPECT_FLOAT_EQ(moment_of(w.get(), 15).pan, 25);
    EXPECT_FALSE(moment_of(w.get(), 15).view_moves);
    EXPECT_THAT(moment_of(w.get(), 21).stirs, ElementsAre("curtain", "tv"));
}

TEST(WorldControls, HoldInsteadOfTheFile)
{
    world_owner w = open_text(
        scene_text(living + "\"camera\": {\"pan\": 5, \"turns\": [{\"at\": 1, \"pan\": 60}]},", ""));
    world_controls c;
    c.lights_set = c.view_set = true;
    c.filter = false;
    c.grey = true;
    c.infrared = 0.5f;
    c.pan = 10;
    c.tilt = 3;
    scene_snapshot snapshot;
    world_snapshot(w.get(), 10, &c, &snapshot);
    EXPECT_FLOAT_EQ(snapshot.view.pan, 15);
    EXPECT_FLOAT_EQ(snapshot.view.tilt, -9);
    EXPECT_FALSE(snapshot.optics.filter);
    EXPECT_TRUE(snapshot.optics.grey);
    truth_moment t = moment_of(w.get(), 10, &c);
    EXPECT_TRUE(t.infrared_lamp);
    EXPECT_FALSE(t.view_moves);
    // From one picture to the next the controls turn the view and switch a lamp.
    moment_of(w.get(), 20, &c);
    c.pan = 11;
    c.infrared = 0;
    c.white = 1;
    t = moment_of(w.get(), 20.2, &c);
    EXPECT_TRUE(t.view_moves);
    EXPECT_TRUE(t.light_changes);
    EXPECT_TRUE(t.white_lamp);
    t = moment_of(w.get(), 20.4, &c);
    EXPECT_FALSE(t.view_moves);
    EXPECT_FALSE(t.light_changes);
}

TEST(WorldSnapshot, IsWholeAndMadeNewEachTime)
{
    world_owner w = open_text(scene_text(living, anna));
    scene_snapshot snapshot;
    world_snapshot(w.get(), 8, nullptr, &snapshot);
    const size_t objects = snapshot.objects.size(), lights = snapshot.lights.size();
    const float ambient = snapshot.ambient[BAND_GREEN];
    EXPECT_GT(lights, 0u);
    EXPECT_GT(ambient, 0);
    world_snapshot(w.get(), 8, nullptr, &snapshot);
    EXPECT_EQ(snapshot.objects.size(), objects);
    EXPECT_EQ(snapshot.lights.size(), lights);
    EXPECT_EQ(snapshot.ambient[BAND_GREEN], ambient);
    EXPECT_EQ(snapshot.time, 8);
    EXPECT_EQ(snapshot.objects.back().actor, 1u);
    EXPECT_TRUE(snapshot.objects.back().moves);
    EXPECT_NE(snapshot.objects.back().materials, nullptr);
}

TEST(TruthJson, IsOneLine)
{
    truth_moment t = {};
    t.time = 1.25;
    t.number = 6;
    t.filter = true;
    t.lamps = {{"ceiling", true}, {"tv", false}};
    t.pan = 1.5f;
    t.tilt = -12;
    t.hour = 14.5;
    t.stirs = {"tv", "door"};
    EXPECT_EQ(
        truth_json(&t),
        "{\"time\":1.250,\"number\":6,\"actors\":[],\"filter\":true,\"grey\":false,\"infrared_lamp\":false,"
        "\"white_lamp\":false,\"lamps\":{\"ceiling\":true,\"tv\":false},\"pan\":1.50,\"tilt\":-12.00,"
        "\"view_moves\":false,\"light_changes\":false,\"stirs\":[\"tv\",\"door\"],\"hour\":14.5000}");
    truth_actor a = {2, "a\"\\\n", "person", "walk", {1, 2, 3, 4}, 0.5f, 3.456f, true, 100, 7.25f};
    t.actors = {a, a};
    t.stirs.clear();
    const std::string one =
        "{\"actor\":2,\"name\":\"a\\\"\\\\\\u000a\",\"kind\":\"person\",\"doing\":\"walk\",\"box\":[1,2,3,4],"
        "\"visible\":0.500,\"distance\":3.46,\"moves\":true,\"lux\":100.00,\"infrared\":7.25}";
    EXPECT_THAT(truth_json(&t), HasSubstr("\"actors\":[" + one + "," + one + "],"));
    EXPECT_THAT(truth_json(&t), HasSubstr("\"stirs\":[],"));
}

// The evening.
TEST(Evening, CanBeAskedForAtAnyTime)
{
    world_owner a(world_open("random?seed=5")), b(world_open("scenes/random?seed=5")),
        c(world_open("random?seed=6"));
    ASSERT_TRUE(a && b && c);
    EXPECT_EQ(world_seconds(a.get()), 0);
    EXPECT_EQ(world_seed(a.get()), 5u);
    std::vector<std::string> forward;
    for (int i = 0; i < 40; i++)
        forward.push_back(truth_of(a.get(), i * 97.3));
    bool differs = false;
    for (int i = 39; i >= 0; i--) {
        EXPECT_EQ(truth_of(b.get(), i * 97.3), forward[static_cast<size_t>(i)]);
        differs = differs || truth_of(c.get(), i * 97.3) != forward[static_cast<size_t>(i)];
    }
    EXPECT_TRUE(differs);
    EXPECT_FALSE(truth_of(a.get(), 1e7).empty());
}

TEST(Evening, NobodyJumpsWhereBlocksMeet)
{
    for (uint64_t seed = 1; seed <= 12; seed++) {
        world_owner w(world_open(("random?seed=" + std::to_string(seed)).c_str()));
        ASSERT_TRUE(w);
        for (int block = 1; block <= 40; block++) {
            double local;
            const double border = block * EVENING_BLOCK;
            for (size_t i = 0; i < w->actors.size(); i++) {
                const track_moment before =
                    track_at(world_plan_at(w.get(), border - 0.01, &local)->tracks[i], EVENING_BLOCK - 0.01);
                const track_moment after = track_at(world_plan_at(w.get(), border, &local)->tracks[i], 0);
                EXPECT_EQ(local, 0);
                ASSERT_EQ(before.here, after.here)
                    << seed << ", block " << block << ", " << w->actors[i].name;
                if (!before.here)
                    continue;
                EXPECT_LT(scene_length(before.position - after.position), 0.15f)
                    << seed << ", block " << block << ", " << w->actors[i].name;
                EXPECT_LT(fabsf(track_angle(before.heading - after.heading)), 3)
                    << seed << ", block " << block << ", " << w->actors[i].name;
                EXPECT_EQ(before.activity, after.activity)
                    << seed << ", block " << block << ", " << w->actors[i].name;
            }
        }
    }
}

TEST(Evening, SomebodyComesHomeAtOnceAndLifeGoesOn)
{
    for (uint64_t seed = 1; seed <= 6; seed++) {
        world_owner w(world_open(("random?seed=" + std::to_string(seed)).c_str()));
        ASSERT_TRUE(w);
        bool soon = false;
        for (double t = 0; t < 60 && !soon; t += 1)
            for (const truth_actor &a : moment_of(w.get(), t).actors)
                soon = soon || a.kind == "person";
        EXPECT_TRUE(soon) << seed;
        int walking = 0, dark = 0;
        for (double t = 0; t < 6 * 3600; t += 30) {
            const truth_moment m = moment_of(w.get(), t);
            dark += m.infrared_lamp;
            EXPECT_NE(m.infrared_lamp, m.filter);
            for (const truth_actor &a : m.actors)
                walking += a.doing == "walk" || a.doing == "run" || a.doing == "carry" || a.doing == "stand";
        }
        EXPECT_GT(walking, 10) << seed;
        EXPECT_GT(dark, 0) << seed;
    }
}

// Hours of it hold no more memory than its first half hour: plans of blocks are dropped when they are over.
TEST(Evening, HoursLeaveNothingBehind)
{
    world_owner w(world_open("random?seed=3"));
    ASSERT_TRUE(w);
    const auto in_use_after = [&](double from, double to) {
        for (double t = from; t < to; t += 20)
            moment_of(w.get(), t);
        const struct mallinfo2 info = mallinfo2(); // all 0 under a sanitizer, which looks for leaks itself
        return info.uordblks + info.hblkhd;
    };
    const size_t before = in_use_after(0, 1800), after = in_use_after(1800, 4 * 3600);
    EXPECT_LT(after, before + 200000);
}

} // namespace
