// Scene files: what they may say, and for everything else one line that names the place and what was expected there.
#include "scene_file.h"

#include <dirent.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <json-c/json.h>
#include <memory>

#include "json_lines.h"
#include "schema_check.h"

namespace
{

using testing::HasSubstr;
using testing::StartsWith;

// A scene on nine lines; a test puts its own members on line 5 and its own actor's on line 7.
std::string scene_with(const std::string &members, const std::string &actor = "")
{
    return "{\n\"story\": \"Somebody does something.\",\n\"expects\": {\"people\": \"any\", \"objects\": "
           "\"any\"},\n"
           "\"room\": \"living-room\", \"seconds\": 30,\n" +
           members + "\n\"actors\": [\n" + actor + "\n]\n}\n";
}
std::string actor_with(const std::string &steps)
{
    return "{\"name\": \"anna\", \"person\": 1, \"steps\": [" + steps + "]}";
}

scene_script read(const std::string &text)
{
    scene_script script;
    scene_fault fault;
    EXPECT_TRUE(scene_parse(text, &script, &fault)) << fault.line << ": " << fault.text;
    return script;
}

std::string fault_of(const std::string &text)
{
    scene_script script;
    scene_fault fault;
    EXPECT_FALSE(scene_parse(text, &script, &fault));
    return std::to_string(fault.line) + ": " + fault.text;
}

TEST(SceneFile, WhatIsLeftOutHasItsUsualValue)
{
    const scene_script s = read(scene_with(""));
    EXPECT_EQ(s.story, "Somebody does something.");
    EXPECT_EQ(s.room, "living-room");
    EXPECT_EQ(s.seed, 1u);
    EXPECT_EQ(s.seconds, 30);
    EXPECT_EQ(s.repeat, 0);
    EXPECT_EQ(s.hour, 12);
    EXPECT_EQ(s.hour_speed, 1);
    EXPECT_FLOAT_EQ(s.cloud, 0.2f);
    EXPECT_EQ(s.camera.anchor, "shelf");
    EXPECT_EQ(s.camera.angle, 90);
    EXPECT_TRUE(s.lights.empty());
    EXPECT_TRUE(s.settings.empty());
    EXPECT_TRUE(s.actors.empty());
    ASSERT_EQ(s.expects.size(), 1u);
    EXPECT_EQ(s.expects[0].from, 0);
    EXPECT_EQ(s.expects[0].to, 30);
    EXPECT_EQ(s.expects[0].people, WISH_ANY);
}

TEST(SceneFile, ReadsEveryMember)
{
    const scene_script s = read(scene_with(
        "\"seed\": 77, \"hour\": 20.5, \"hour_speed\": 60, \"cloud\": 0.75, \"repeat\": 25,"
        "\"settings\": {\"people_sensitivity\": \"3\"},"
        "\"lights\": [{\"at\": 1, \"ceiling\": true, \"table\": false, \"tv\": true, \"corridor\": true, "
        "\"curtain\": 0.5,"
        " \"wind\": 2, \"swing\": 10, \"headlights\": 4, \"filter\": false, \"grey\": true, \"infrared\": "
        "0.25, \"white\": 1}],"
        "\"camera\": {\"position\": [1, 2, 3], \"pan\": 10, \"tilt\": -5, \"angle\": 70, \"distortion\": "
        "0.1, \"focus\": 2,"
        " \"turns\": [{\"at\": 3, \"pan\": 40}, {\"at\": 9, \"tilt\": 7, \"speed\": 15}]},",
        "{\"name\": \"ben\", \"person\": 2, \"look\": {\"height\": 1.5, \"clothes\": \"coat\", \"cap\": true,"
        " \"top\": [0.1, 0.2, 0.3, 0.4]}, \"at\": [1, 2, 3], \"heading\": 90, \"start\": 4, \"loop\": true, "
        "\"steps\": ["
        "{\"do\": \"walk\", \"to\": \"sofa\", \"speed\": 0.5, \"face\": 45}, {\"do\": \"stand\", "
        "\"seconds\": 2, \"face\": \"tv\"}]},"
        "{\"name\": \"rex\", \"thing\": \"dog\", \"steps\": [{\"do\": \"enter\"}]}"));
    EXPECT_EQ(s.seed, 77u);
    EXPECT_EQ(s.hour, 20.5);
    EXPECT_EQ(s.hour_speed, 60);
    EXPECT_FLOAT_EQ(s.cloud, 0.75f);
    EXPECT_EQ(s.repeat, 25);
    EXPECT_EQ(s.settings.at("people_sensitivity"), "3");
    ASSERT_EQ(s.lights.size(), 1u);
    const scene_change &c = s.lights[0];
    EXPECT_EQ(c.at, 1);
    EXPECT_EQ(c.ceiling, 1);
    EXPECT_EQ(c.table, 0);
    EXPECT_EQ(c.tv, 1);
    EXPECT_EQ(c.corridor, 1);
    EXPECT_EQ(c.filter, 0);
    EXPECT_EQ(c.grey, 1);
    EXPECT_EQ(c.curtain, 0.5f);
    EXPECT_EQ(c.wind, 2);
    EXPECT_EQ(c.swing, 10);
    EXPECT_EQ(c.headlights, 4);
    EXPECT_EQ(c.infrared, 0.25f);
    EXPECT_EQ(c.white, 1);
    EXPECT_EQ(s.camera.anchor, "");
    EXPECT_EQ(s.camera.position.z, 3);
    EXPECT_EQ(s.camera.pan, 10);
    EXPECT_EQ(s.camera.tilt, -5);
    EXPECT_EQ(s.camera.angle, 70);
    EXPECT_FLOAT_EQ(s.camera.distortion, 0.1f);
    EXPECT_EQ(s.camera.focus, 2);
    ASSERT_EQ(s.camera.turns.size(), 2u);
    EXPECT_EQ(s.camera.turns[0].pan, 40);
    EXPECT_EQ(s.camera.turns[0].tilt, -5) << "what a turn does not name stays";
    EXPECT_EQ(s.camera.turns[0].speed, 60);
    EXPECT_EQ(s.camera.turns[1].pan, 40);
    EXPECT_EQ(s.camera.turns[1].tilt, 7);
    EXPECT_EQ(s.camera.turns[1].speed, 15);
    ASSERT_EQ(s.actors.size(), 2u);
    const scene_actor &ben = s.actors[0];
    EXPECT_TRUE(ben.is_person);
    EXPECT_FLOAT_EQ(ben.look.height, 1.5f);
    EXPECT_EQ(ben.look.clothes, CLOTHES_COAT);
    EXPECT_TRUE(ben.look.cap);
    EXPECT_FLOAT_EQ(ben.look.top.first[BAND_INFRARED], 0.4f);
    EXPECT_FLOAT_EQ(ben.look.shoulders, person_variant(2).shoulders) << "the rest is the variant's";
    EXPECT_TRUE(ben.at.given);
    EXPECT_TRUE(ben.at.has_height);
    EXPECT_EQ(ben.at.at.y, 2);
    EXPECT_TRUE(ben.has_heading);
    EXPECT_EQ(ben.heading, 90);
    EXPECT_EQ(ben.start, 4);
    EXPECT_TRUE(ben.loop);
    ASSERT_EQ(ben.steps.size(), 2u);
    EXPECT_EQ(ben.steps[0].verb, VERB_WALK);
    EXPECT_EQ(ben.steps[0].spot.anchor, "sofa");
    EXPECT_EQ(ben.steps[0].speed, 0.5f);
    EXPECT_TRUE(ben.steps[0].has_face);
    EXPECT_EQ(ben.steps[0].face, 45);
    EXPECT_EQ(ben.steps[1].face_anchor, "tv");
    EXPECT_EQ(ben.steps[1].seconds, 2);
    EXPECT_FALSE(s.actors[1].is_person);
    EXPECT_EQ(s.actors[1].kind, THING_DOG);
    EXPECT_FALSE(s.actors[1].at.given);
}

TEST(SceneFile, ReadsWishes)
{
    scene_script s;
    scene_fault fault;
    ASSERT_TRUE(scene_parse(
        "{\"story\": \"0123456789\", \"room\": \"hall\", \"seconds\": 20, \"expects\": {\"people\": "
        "\"wanted\","
        "\"objects\": \"forbidden\", \"spans\": [{\"from\": 2, \"to\": 20, \"people\": \"forbidden\","
        "\"objects\": \"any\"}]}}",
        &s, &fault))
        << fault.text;
    ASSERT_EQ(s.expects.size(), 2u);
    EXPECT_EQ(s.expects[0].people, WISH_WANTED);
    EXPECT_EQ(s.expects[0].objects, WISH_FORBIDDEN);
    EXPECT_EQ(s.expects[1].from, 2);
    EXPECT_EQ(s.expects[1].to, 20);
    EXPECT_EQ(s.expects[1].people, WISH_FORBIDDEN);
    EXPECT_EQ(s.expects[1].objects, WISH_ANY);
}

TEST(SceneFile, TextThatIsNotJsonNamesItsLine)
{
    EXPECT_EQ(fault_of("{\n\"story\":\n  oops\n}"), "3: not JSON: unexpected character");
    EXPECT_EQ(fault_of("{\n\"story\": \"a\""), "2: not JSON: the text ends too early");
    EXPECT_EQ(fault_of("{\n}\n\n}"), "4: not JSON: unexpected character");
    EXPECT_EQ(fault_of(std::string("{\n\0}", 4)), "2: not JSON: a zero byte");
    EXPECT_EQ(fault_of(std::string(SCENE_FILE_MAX + 1, ' ')), "0: 262145 bytes; expected at most 262144");
    EXPECT_THAT(fault_of(std::string(SCENE_FILE_MAX, ' ')), HasSubstr("not JSON: the text ends too early"));
}

TEST(SceneFile, AMemberThatIsThereTwiceIsAFault)
{
    EXPECT_EQ(fault_of(scene_with("\"hour\": 3,\n\"hour\": 4,")),
              "6: \"hour\" is there twice; expected once");
}

struct fault_case {
    const char *members, *actor, *expected;
};
class Faults : public testing::TestWithParam<fault_case>
{
};
TEST_P(Faults, AreNamedWithTheirLine)
{
    EXPECT_THAT(fault_of(scene_with(GetParam().members, GetParam().actor)), StartsWith(GetParam().expected));
}
const fault_case cases[] = {
    {"\"hours\": 3,", "",
     "5: \"hours\" is not known here; expected one of $schema, story, expects, seed, room, seconds, repeat, "
     "hour,"},
    {"\"hour\": 24.5,", "", "5: \"hour\" is 24.5; expected a number from 0 to 24"},
    {"\"hour\": -0.1,", "", "5: \"hour\" is -0.1; expected a number from 0 to 24"},
    {"\"hour\": \"noon\",", "", "5: \"hour\" is \"noon\"; expected a number from 0 to 24"},
    {"\"seed\": 1.5,", "", "5: \"seed\" is 1.5; expected a whole number from 0 to 9.00719925474099e+15"},
    {"\"repeat\": 9,", "", "5: \"repeat\" is 9; expected a number from 10 to 3600"},
    {"\"settings\": {\"a\": 1},", "", "5: \"a\" is 1; expected a text of 0 to 200 characters"},
    {"\"lights\": 3,", "", "5: \"lights\" is 3; expected a list of 0 to 200"},
    {"\"lights\": [\n{\"ceiling\": true}],", "", "6: \"at\" is missing"},
    {"\"lights\": [{\"at\": 1, \"ceiling\": 1}],", "", "5: \"ceiling\" is 1; expected true or false"},
    {"\"lights\": [{\"at\": 2},\n{\"at\": 1}],", "",
     "6: \"at\" is before the change above it; expected changes in the order of time"},
    {"\"camera\": [],", "", "5: \"camera\" is []; expected an object"},
    {"\"camera\": {\"anchor\": \"shelf\",\n\"position\": [1, 1, 1]},", "",
     "6: the camera has an \"anchor\" and a \"position\"; expected one of them"},
    {"\"camera\": {\"position\": [1, 1]},", "", "5: \"position\" is [1,1]; expected a list of 3"},
    {"\"camera\": {\"position\": [1, 1, 60]},", "",
     "5: \"position\"[2] is 60; expected a number from -50 to 50"},
    {"\"camera\": {\"turns\": [{\"at\": 3},\n{\"at\": 2}]},", "",
     "6: \"at\" is before the turn above it; expected turns in the order of time"},
    {"", "7", "7: \"actors\"[0] is 7; expected an object"},
    {"", "{\"name\": \"a\", \"steps\": [{\"do\": \"enter\"}]}",
     "7: actor \"a\": expected either \"person\" or \"thing\""},
    {"", "{\"name\": \"a\", \"person\": 1, \"thing\": \"cat\", \"steps\": [{\"do\": \"enter\"}]}",
     "7: actor \"a\": expected either \"person\" or \"thing\""},
    {"", "{\"name\": \"a\", \"person\": 24, \"steps\": [{\"do\": \"enter\"}]}",
     "7: \"person\" is 24; expected a whole number from 0 to 23"},
    {"", "{\"name\": \"a\", \"thing\": \"cow\", \"steps\": [{\"do\": \"enter\"}]}",
     "7: \"thing\" is \"cow\"; expected cat, dog, vacuum, fan, ball, insect, coat, balloon, box or shadow"},
    {"", "{\"name\": \"a\", \"thing\": \"cat\", \"look\": {}, \"steps\": [{\"do\": \"enter\"}]}",
     "7: \"look\" belongs to a \"person\""},
    {"", "{\"name\": \"a\", \"person\": 1, \"steps\": []}",
     "7: \"steps\" is []; expected a list of 1 to 200"},
    {"", "{\"name\": \"a\", \"person\": 1, \"look\": {\"top\": [1, 1, 1]}, \"steps\": [{\"do\": \"enter\"}]}",
     "7: \"top\" is [1,1,1]; expected [red, green, blue, infrared], each from 0 to 1"},
    {"", "{\"name\": \"a\", \"person\": 1, \"at\": 3, \"steps\": [{\"do\": \"enter\"}]}",
     "7: \"at\" is 3; expected an anchor's name, [x, y] or [x, y, z] in metres"},
    {"",
     "{\"name\": \"a\", \"person\": 1, \"steps\": [{\"do\": \"enter\"}]},\n"
     "{\"name\": \"a\", \"person\": 2, \"steps\": [{\"do\": \"enter\"}]}",
     "8: there are two actors \"a\"; expected different names"},
    {"", "{\"name\": \"a\", \"thing\": \"cat\", \"steps\": [\n{\"do\": \"sit\", \"seconds\": 3}]}",
     "8: only people can \"sit\"; expected walk, run, stand, enter, leave or away for a thing"},
    {"", "{\"name\": \"a\", \"person\": 1, \"steps\": [{\"do\": \"fly\"}]}",
     "7: \"do\" is \"fly\"; expected walk, run, carry,"},
    {"", "{\"name\": \"a\", \"person\": 1, \"steps\": [{\"do\": \"walk\"}]}", "7: \"walk\" wants \"to\""},
    {"", "{\"name\": \"a\", \"person\": 1, \"steps\": [{\"do\": \"stand\"}]}",
     "7: \"stand\" wants \"seconds\""},
    {"",
     "{\"name\": \"a\", \"person\": 1, \"steps\": [{\"do\": \"stand\", \"seconds\": 3,\n\"to\": \"tv\"}]}",
     "8: \"to\" does not belong to \"stand\""},
    {"", "{\"name\": \"a\", \"person\": 1, \"steps\": [{\"do\": \"stand\", \"seconds\": 3, \"face\": true}]}",
     "7: \"face\" is true; expected a heading in degrees, or the name of an anchor to face"},
};
INSTANTIATE_TEST_SUITE_P(SceneFile, Faults, testing::ValuesIn(cases));

TEST(SceneFile, WhatMustBeThere)
{
    EXPECT_EQ(fault_of("{}"), "1: \"story\" is missing");
    EXPECT_EQ(fault_of("[]"), "1: the scene is []; expected an object");
    EXPECT_EQ(fault_of("{\"story\": \"short\"}"),
              "1: \"story\" is \"short\"; expected a text of 10 to 400 characters");
}

TEST(SceneFile, AnEndlessSceneRepeats)
{
    const std::string text = "{\"story\": \"0123456789\", \"room\": \"hall\",\n\"seconds\": 0,"
                             "\"expects\": {\"people\": \"any\", \"objects\": \"any\"}";
    EXPECT_EQ(fault_of(text + "}"),
              "2: \"seconds\" is 0, so the scene is endless; expected a \"repeat\" beside it");
    EXPECT_EQ(read(text + ", \"repeat\": 10}").repeat, 10);
}

TEST(SceneFile, SpansAreInOrderAndWithinTheScene)
{
    const auto text = [](const char *from, const char *to) {
        return "{\"story\": \"0123456789\", \"room\": \"hall\", \"seconds\": 20, \"expects\": {\"people\": "
               "\"any\", "
               "\"objects\": \"any\", \"spans\": [{\"people\": \"any\", \"objects\": \"any\", \"from\": " +
               std::string(from) + ",\n\"to\": " + to + "}]}}";
    };
    EXPECT_EQ(fault_of(text("3", "3")), "2: \"to\" is not after \"from\"; expected a later time");
    EXPECT_EQ(fault_of(text("3", "20.1")),
              "2: \"to\" is past the end of the scene; expected at most \"seconds\"");
    EXPECT_EQ(read(text("3", "20")).expects.size(), 2u);
}

TEST(SceneFile, AStepTakesWhatItsVerbSays)
{
    for (const char *steps :
         {"{\"do\": \"run\", \"to\": [1, 1]}", "{\"do\": \"carry\", \"to\": \"tv\", \"face\": 3}",
          "{\"do\": \"wave\", \"seconds\": 1}", "{\"do\": \"crouch\", \"seconds\": 1}",
          "{\"do\": \"sit\", \"seconds\": 1}", "{\"do\": \"sit\", \"seconds\": 1, \"at\": \"sofa\"}",
          "{\"do\": \"desk\", \"seconds\": 1}", "{\"do\": \"lie\", \"seconds\": 1}",
          "{\"do\": \"fall\", \"seconds\": 1}", "{\"do\": \"leave\"}",
          "{\"do\": \"away\", \"seconds\": 1}"}) {
        EXPECT_EQ(read(scene_with("", actor_with(steps))).actors.size(), 1u) << steps;
    }
    EXPECT_EQ(fault_of(scene_with("", actor_with("{\"do\": \"fall\", \"seconds\": 1, \"at\": \"sofa\"}"))),
              "7: \"at\" does not belong to \"fall\"");
    EXPECT_EQ(fault_of(scene_with("", actor_with("{\"do\": \"leave\", \"seconds\": 1}"))),
              "7: \"seconds\" does not belong to \"leave\"");
}

// The schema and the program name the same things.
TEST(SceneFile, TheSchemaKnowsEveryVerbThingAndVariant)
{
    std::unique_ptr<json_object, int (*)(json_object *)> schema(json_tokener_parse(schema_text),
                                                                json_object_put);
    ASSERT_TRUE(schema);
    const auto dig = [&](std::initializer_list<const char *> names) {
        json_object *at = schema.get();
        for (const char *name : names)
            if (!json_object_object_get_ex(at, name, &at))
                return static_cast<json_object *>(nullptr);
        return at;
    };
    json_object *verbs = dig({"$defs", "step", "properties", "do", "enum"});
    json_object *things = dig({"$defs", "actor", "properties", "thing", "enum"});
    json_object *most = dig({"$defs", "actor", "properties", "person", "maximum"});
    ASSERT_TRUE(verbs && things && most);
    ASSERT_EQ(json_object_array_length(verbs), static_cast<size_t>(VERBS));
    for (int i = 0; i < VERBS; i++)
        EXPECT_STREQ(json_object_get_string(json_object_array_get_idx(verbs, static_cast<size_t>(i))),
                     scene_verb_name(i));
    ASSERT_EQ(json_object_array_length(things), static_cast<size_t>(THING_KINDS));
    for (int i = 0; i < THING_KINDS; i++)
        EXPECT_STREQ(json_object_get_string(json_object_array_get_idx(things, static_cast<size_t>(i))),
                     thing_kind_name(i));
    EXPECT_EQ(json_object_get_int(most), PERSON_VARIANTS - 1);
    EXPECT_EQ(scene_verb_name(VERBS), nullptr);
    EXPECT_EQ(scene_verb_name(-1), nullptr);
}

TEST(JsonLines, EveryValueHasItsLine)
{
    json_lines lines;
    std::string error;
    int line;
    ASSERT_TRUE(json_lines_read("{\n \"a\": [1,\n  {\"b\": \"x\\\"\\n\"}],\n \"c\":\n  true\n}", &lines,
                                &error, &line));
    EXPECT_EQ(json_lines_find(lines, ""), 1);
    EXPECT_EQ(json_lines_find(lines, "/a"), 2);
    EXPECT_EQ(json_lines_find(lines, "/a/0"), 2);
    EXPECT_EQ(json_lines_find(lines, "/a/1"), 3);
    EXPECT_EQ(json_lines_find(lines, "/a/1/b"), 3);
    EXPECT_EQ(json_lines_find(lines, "/c"), 5);
    EXPECT_EQ(json_lines_find(lines, "/a/1/missing/deeper"), 3) << "the nearest that is there";
    EXPECT_EQ(json_lines_find(lines, "/missing"), 1);
    EXPECT_EQ(scene_line("{\n\"a\":\n3}", "/a"), 3);
}

} // namespace
