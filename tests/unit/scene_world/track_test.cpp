// Steps become movement: smooth, at the speeds that were asked for, the same in whatever order one asks.
#include "track.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace
{

using testing::HasSubstr;

struct Track : testing::Test {
    room *place = room_make("living-room", 1);
    track_ground ground = track_ground_make(place);
    track path_of_actor;
    std::vector<track_passage> passages;
    std::string path, text;
    ~Track() override { room_free(place); }

    static scene_spot spot(const char *anchor)
    {
        scene_spot s;
        s.given = true;
        s.anchor = anchor;
        s.path = "/spot";
        return s;
    }
    static scene_spot spot(float x, float y)
    {
        scene_spot s = spot("");
        s.at = {x, y, 0};
        return s;
    }
    static scene_step step(scene_verb verb, double seconds = 0)
    {
        scene_step s;
        s.verb = verb;
        s.seconds = seconds;
        return s;
    }
    static scene_step step(scene_verb verb, const scene_spot &where, double seconds = 0)
    {
        scene_step s = step(verb, seconds);
        s.spot = where;
        return s;
    }
    static scene_actor person(const std::vector<scene_step> &steps)
    {
        scene_actor a;
        a.name = "anna";
        a.path = "/actors/0";
        a.steps = steps;
        return a;
    }
    bool plan(const scene_actor &actor, double end = 60)
    {
        passages.clear();
        return track_plan(ground, actor, end, &path_of_actor, &passages, &path, &text);
    }
    void fails(const scene_actor &actor, const std::string &where, const std::string &why)
    {
        EXPECT_FALSE(plan(actor));
        EXPECT_EQ(path, where);
        EXPECT_THAT(text, HasSubstr(why));
    }
    scene_vec anchor(const char *name)
    {
        room_anchor a = {};
        EXPECT_TRUE(room_find(place, name, &a));
        return a.position;
    }
    double last() { return path_of_actor.legs.back().end; }
    track_moment at(double time) { return track_at(path_of_actor, time); }
};

TEST_F(Track, ComesInByTheDoorAndIsGoneAfterLeaving)
{
    scene_actor a = person({step(VERB_ENTER), step(VERB_WALK, spot("floor")), step(VERB_LEAVE)});
    a.start = 3;
    ASSERT_TRUE(plan(a)) << text;
    EXPECT_FALSE(at(0).here);
    EXPECT_FALSE(at(2.99).here);
    ASSERT_TRUE(at(3).here);
    EXPECT_LT(scene_length(at(3).position - anchor("door-outside")), 0.01f);
    const double end = last();
    EXPECT_TRUE(at(end - 1.1).here);
    EXPECT_FALSE(at(end).here);
    EXPECT_FALSE(at(end + 1000).here);
    ASSERT_EQ(passages.size(), 2u);
    // Whoever is in the doorway finds the door open.
    for (double t = 0; t < end; t += 0.05) {
        const track_moment m = at(t);
        const float before = anchor("door").y, wall = room_size(place).y;
        if (m.here && m.position.y > before && m.position.y < wall + 0.2f) {
            EXPECT_GT(track_door(passages, t), 60) << t;
        }
    }
    EXPECT_EQ(track_door(passages, 0), 0);
    EXPECT_EQ(track_door(passages, end + 2), 0);
}

TEST_F(Track, TheDoorSwingsInTime)
{
    const std::vector<track_passage> one = {{10}};
    EXPECT_EQ(track_door(one, 8.4), 0);
    EXPECT_NEAR(track_door(one, 8.85), TRACK_DOOR_OPEN / 2, 0.01f);
    EXPECT_FLOAT_EQ(track_door(one, 9.31), TRACK_DOOR_OPEN);
    EXPECT_FLOAT_EQ(track_door(one, 10.89), TRACK_DOOR_OPEN);
    EXPECT_NEAR(track_door(one, 11.35), TRACK_DOOR_OPEN / 2, 0.01f);
    EXPECT_EQ(track_door(one, 11.81), 0);
    EXPECT_FLOAT_EQ(track_door({{10}, {11.5}}, 11.35), TRACK_DOOR_OPEN) << "held for the next one";
    EXPECT_EQ(track_door({}, 1), 0);
}

TEST_F(Track, MovesSmoothlyAndNoFasterThanItWalks)
{
    scene_actor a = person({step(VERB_ENTER), step(VERB_WALK, spot("near")), step(VERB_SIT, spot("sofa"), 5),
                            step(VERB_WALK, spot("window")), step(VERB_CROUCH, 3),
                            step(VERB_RUN, spot("far")), step(VERB_WAVE, 2), step(VERB_LEAVE)});
    ASSERT_TRUE(plan(a)) << text;
    track_moment before = at(0);
    for (double t = 0.02; t < last(); t += 0.02) {
        const track_moment m = at(t);
        if (!m.here || !before.here)
            break;
        const bool same = m.blend >= 1 && before.blend >= 1 && m.activity == before.activity;
        const float fastest = m.activity == PERSON_RUN ? 2.6f : 1.16f;
        if (same) {
            EXPECT_LE(scene_length(m.position - before.position), fastest * 0.02f + 0.002f) << t;
        }
        if (same) {
            EXPECT_LE(fabsf(track_angle(m.heading - before.heading)), 320 * 0.02f) << t;
        }
        before = m;
    }
}

TEST_F(Track, StartsAndStopsSlowly)
{
    scene_actor a = person({step(VERB_WALK, spot("near")), step(VERB_STAND, 5)});
    a.at = spot("far");
    a.heading = 180;
    a.has_heading = true;
    ASSERT_TRUE(plan(a)) << text;
    const track_leg *way = nullptr;
    for (const track_leg &leg : path_of_actor.legs)
        if (!leg.way.empty())
            way = &leg;
    ASSERT_TRUE(way);
    EXPECT_LT(at(way->begin + 0.1).speed, 0.2f);
    EXPECT_NEAR(at((way->begin + way->end) / 2).speed, 1.15f, 0.001f);
    EXPECT_LT(at(way->end - 0.1).speed, 0.2f);
    EXPECT_EQ(at(way->begin + 0.1).pace, 1.15f)
        << "the steps' length follows from the pace, which does not change";
    EXPECT_EQ(at(way->end + 0.1).pace, 1.15f);
    // Time, way and the speeds in between belong together: length / v + v / a.
    EXPECT_NEAR(way->end - way->begin, static_cast<double>(way->length / 1.15f + 1.15f / 1.6f), 0.001);
    EXPECT_NEAR(at(way->end).way, way->length, 0.001f);
    EXPECT_LT(scene_length(at(way->end).position - anchor("near")), 0.001f);
}

TEST_F(Track, AShortWayNeverReachesFullSpeed)
{
    scene_actor a = person({step(VERB_WALK, spot(2.9f, 3.5f)), step(VERB_STAND, 3)});
    a.at = spot(2.9f, 3.1f);
    a.has_heading = true;
    ASSERT_TRUE(plan(a)) << text;
    float fastest = 0;
    for (double t = 0; t < 3; t += 0.02)
        fastest = std::max(fastest, at(t).speed);
    EXPECT_NEAR(fastest, sqrtf(0.4f * 1.6f), 0.02f);
}

TEST_F(Track, AnswersDoNotDependOnTheOrder)
{
    scene_actor a = person({step(VERB_ENTER), step(VERB_WALK, spot("tv")),
                            step(VERB_SIT, spot("armchair"), 4), step(VERB_LEAVE)});
    ASSERT_TRUE(plan(a)) << text;
    std::vector<track_moment> forward;
    for (int i = 0; i < 400; i++)
        forward.push_back(at(i * 0.1));
    for (int i = 399; i >= 0; i--) {
        const track_moment m = at(i * 0.1);
        EXPECT_EQ(m.here, forward[static_cast<size_t>(i)].here);
        EXPECT_EQ(scene_length(m.position - forward[static_cast<size_t>(i)].position), 0);
        EXPECT_EQ(m.heading, forward[static_cast<size_t>(i)].heading);
    }
}

TEST_F(Track, SitsDownOnTheSeatAndGetsUpBeforeIt)
{
    scene_actor a = person({step(VERB_SIT, spot("sofa"), 6), step(VERB_WALK, spot("near"))});
    a.at = spot("floor");
    ASSERT_TRUE(plan(a)) << text;
    const track_leg *sits = nullptr;
    for (const track_leg &leg : path_of_actor.legs)
        if (leg.activity == PERSON_SIT)
            sits = &leg;
    ASSERT_TRUE(sits);
    const track_moment down = at(sits->begin + 0.7), still = at(sits->begin + 3);
    EXPECT_EQ(down.activity, PERSON_SIT);
    EXPECT_EQ(down.before, PERSON_STAND);
    EXPECT_NEAR(down.blend, 0.5f, 0.01f);
    EXPECT_LT(scene_length(down.before_position - anchor("sofa-stand")), 0.01f);
    EXPECT_LT(scene_length(down.position - anchor("sofa")), 0.01f);
    EXPECT_EQ(still.blend, 1);
    EXPECT_LT(scene_length(still.position - anchor("sofa")), 0.001f);
    EXPECT_NEAR(track_angle(still.heading - 90), 0, 0.001f) << "as the sofa looks";
    EXPECT_NEAR(sits->end - sits->begin, 6, 0.001);
    const track_moment up = at(sits->end + 0.7);
    EXPECT_EQ(up.activity, PERSON_STAND);
    EXPECT_EQ(up.before, PERSON_SIT);
    EXPECT_LT(scene_length(up.before_position - anchor("sofa")), 0.01f);
    EXPECT_LT(scene_length(up.position - anchor("sofa-stand")), 0.01f);
}

TEST_F(Track, WhoSitsFirstIsThereFromTheBeginning)
{
    ASSERT_TRUE(plan(person({step(VERB_SIT, spot("armchair"), 6), step(VERB_LEAVE)}))) << text;
    EXPECT_TRUE(at(0).here);
    EXPECT_EQ(at(0).activity, PERSON_SIT);
    EXPECT_EQ(at(0).blend, 1);
    EXPECT_LT(scene_length(at(0).position - anchor("armchair")), 0.001f);
}

TEST_F(Track, FallsWhereItStandsAndStays)
{
    scene_actor a = person({step(VERB_WALK, spot("near")), step(VERB_FALL, 10), step(VERB_STAND, 1)});
    a.at = spot("floor");
    ASSERT_TRUE(plan(a)) << text;
    const track_leg *falls = nullptr;
    for (const track_leg &leg : path_of_actor.legs)
        if (leg.activity == PERSON_FALLEN)
            falls = &leg;
    ASSERT_TRUE(falls);
    EXPECT_LT(scene_length(at(falls->begin + 5).position - anchor("near")), 0.01f);
    EXPECT_NEAR(at(falls->begin + 0.4).blend, 0.5f, 0.01f) << "a fall takes 0.8 s";
    EXPECT_NEAR(at(falls->end + 1.3).blend, 0.5f, 0.01f) << "getting up takes 2.6 s";
}

TEST_F(Track, LiesDownOverTheEdgeOfTheBed)
{
    room *bedroom = room_make("bedroom", 1);
    {
        const track_ground bed_ground = track_ground_make(bedroom);
        scene_actor a = person({step(VERB_LIE, 10), step(VERB_WALK, spot("near"))});
        a.at = spot("floor");
        ASSERT_TRUE(track_plan(bed_ground, a, 60, &path_of_actor, &passages, &path, &text)) << text;
        std::vector<person_activity> order;
        for (const track_leg &leg : path_of_actor.legs)
            if (order.empty() || order.back() != leg.activity)
                order.push_back(leg.activity);
        const std::vector<person_activity> wanted = {PERSON_STAND, PERSON_WALK, PERSON_STAND,
                                                     PERSON_SIT,   PERSON_LIE,  PERSON_SIT,
                                                     PERSON_STAND, PERSON_WALK, PERSON_STAND};
        EXPECT_THAT(order, testing::IsSubsetOf(wanted));
        EXPECT_EQ(std::count(order.begin(), order.end(), PERSON_SIT), 2);
        EXPECT_EQ(std::count(order.begin(), order.end(), PERSON_LIE), 1);
    }
    room_free(bedroom);
}

TEST_F(Track, ALoopGoesOnUntilTheEnd)
{
    scene_actor a = person({step(VERB_WALK, spot("near")), step(VERB_WALK, spot("far"))});
    a.at = spot("far");
    a.loop = true;
    ASSERT_TRUE(plan(a, 100)) << text;
    EXPECT_GE(last(), 100);
    EXPECT_LT(last(), 120);
    a.loop = false;
    ASSERT_TRUE(plan(a, 100)) << text;
    EXPECT_LT(last(), 20);
}

TEST_F(Track, ABallIsPushedOnceAndRollsOut)
{
    scene_actor a = person({step(VERB_WALK, spot(3.4f, 2.2f)), step(VERB_STAND, 3)});
    a.is_person = false;
    a.kind = THING_BALL;
    a.at = spot(3.4f, 4.2f);
    a.steps[0].speed = 2;
    ASSERT_TRUE(plan(a)) << text;
    const track_leg *rolls = nullptr;
    for (const track_leg &leg : path_of_actor.legs)
        if (leg.rolls)
            rolls = &leg;
    ASSERT_TRUE(rolls);
    EXPECT_NEAR(at(rolls->begin).speed, 2, 0.01f);
    EXPECT_NEAR(rolls->end - rolls->begin, static_cast<double>(2 * rolls->length / 2), 0.01);
    for (double t = rolls->begin + 0.1; t < rolls->end; t += 0.1)
        EXPECT_LT(at(t).speed, at(t - 0.1).speed);
}

TEST_F(Track, WhatFliesKeepsItsHeightAndNeedsNoFloor)
{
    scene_actor a = person({step(VERB_WALK, spot(9, 3))});
    a.is_person = false;
    a.kind = THING_SHADOW;
    a.at = spot(7, 3);
    a.at.at.z = a.steps[0].spot.at.z = 1.6f;
    ASSERT_TRUE(plan(a)) << text;
    EXPECT_FLOAT_EQ(at(0).position.z, 1.6f);
    EXPECT_FLOAT_EQ(at(1).position.z, 1.6f);
    EXPECT_FLOAT_EQ(at(30).position.z, 1.6f);
    EXPECT_FLOAT_EQ(at(30).position.x, 9);
}

TEST_F(Track, FacesWhatItIsToldTo)
{
    scene_actor a = person({step(VERB_STAND, 4), step(VERB_STAND, 4)});
    a.at = spot("floor");
    a.steps[0].has_face = a.steps[1].has_face = true;
    a.steps[0].face = 45;
    a.steps[1].face_anchor = "door";
    ASSERT_TRUE(plan(a)) << text;
    EXPECT_NEAR(at(3.5).heading, 45, 0.01f);
    EXPECT_NEAR(at(last()).heading, track_heading(anchor("floor"), anchor("door")), 0.01f);
}

TEST_F(Track, FaultsNameTheirPlaceAndWhatWasExpected)
{
    fails(person({step(VERB_ENTER), step(VERB_WALK, spot("moon"))}), "/spot",
          "there is no \"moon\" in this room; expected one of ");
    fails(person({step(VERB_ENTER), step(VERB_WALK, spot(0.1f, 2.6f))}), "/spot",
          "[0.1, 2.6] is in a wall or a piece of furniture; expected free floor");
    fails(person({step(VERB_ENTER), step(VERB_WALK, spot(-3, 2))}), "/spot", "[-3, 2] is in a wall");
    fails(person({step(VERB_WALK, spot("near"))}), "/actors/0/steps/0",
          "\"anna\" is not in the room; expected an \"at\" for the actor, or \"enter\" first");
    fails(person({step(VERB_ENTER), step(VERB_ENTER)}), "/actors/0/steps/1",
          "\"anna\" is in the room already; expected \"enter\" only after \"leave\" or \"away\", or at first "
          "without \"at\"");
    fails(person({step(VERB_ENTER), step(VERB_SIT, spot("near"), 3)}), "/spot",
          "nobody can sit there; expected a seat's anchor, or its place as [x, y, height]");
    scene_actor a = person({step(VERB_STAND, 0.2)});
    a.at = spot("floor");
    a.loop = true;
    fails(a, "/actors/0/loop", "a loop takes no time; expected steps that last");
    a = person({step(VERB_STAND, 3)});
    a.at = spot("moon");
    fails(a, "/spot", "there is no \"moon\"");
    a.at = spot("floor");
    a.steps[0].has_face = true;
    a.steps[0].face_anchor = "moon";
    fails(a, "/actors/0/steps/0/face", "there is no \"moon\"");
}

TEST(TrackAngles, AreBetweenMinus180And180)
{
    EXPECT_EQ(track_angle(0), 0);
    EXPECT_EQ(track_angle(180), -180);
    EXPECT_EQ(track_angle(-180), -180);
    EXPECT_EQ(track_angle(190), -170);
    EXPECT_EQ(track_angle(-190), 170);
    EXPECT_EQ(track_angle(725), 5);
    EXPECT_NEAR(track_heading({0, 0, 0}, {0, 1, 0}), 0, 0.001f);
    EXPECT_NEAR(track_heading({0, 0, 0}, {1, 0, 0}), 90, 0.001f);
    EXPECT_NEAR(track_heading({0, 0, 0}, {-1, 0, 0}), -90, 0.001f);
}

} // namespace
