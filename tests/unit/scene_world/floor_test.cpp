// Ways over a room's floor: they keep clear of furniture, in steps of equal length, and the same every time.
#include "floor.h"

#include <gtest/gtest.h>

namespace
{

struct Floor : testing::Test {
    room *place = room_make("living-room", 1);
    floor_map map = floor_make(place, 0.24f);
    ~Floor() override { room_free(place); }

    scene_vec spot(const char *name)
    {
        room_anchor anchor = {};
        EXPECT_TRUE(room_find(place, name, &anchor)) << name;
        return anchor.position;
    }
};

TEST_F(Floor, KnowsWhereOneFits)
{
    EXPECT_TRUE(floor_is_free(map, spot("floor")));
    EXPECT_TRUE(floor_is_free(map, spot("door")));
    EXPECT_FALSE(floor_is_free(map, spot("sofa")));
    EXPECT_FALSE(floor_is_free(map, {-0.01f, 2, 0}));
    EXPECT_FALSE(floor_is_free(map, {2, 60, 0}));
    EXPECT_FALSE(floor_is_free(map, {NAN, 2, 0}));
    EXPECT_FALSE(floor_is_free(map, {1e30f, 2, 0}));
}

TEST_F(Floor, TheNearestFreeSpotIsFreeAndNear)
{
    scene_vec found;
    ASSERT_TRUE(floor_nearest(map, spot("sofa"), 1.2f, &found));
    EXPECT_TRUE(floor_is_free(map, found));
    EXPECT_LT(scene_length(found - scene_vec{spot("sofa").x, spot("sofa").y, 0}), 1.2f);
    EXPECT_FALSE(floor_nearest(map, {-5, -5, 0}, 1.2f, &found));
    EXPECT_FALSE(floor_nearest(map, spot("sofa"), 0.1f, &found));
}

TEST_F(Floor, AWayLeadsFromHereToThereAroundFurniture)
{
    const char *const names[] = {"door", "floor",    "near",  "far",       "window",
                                 "tv",   "bookcase", "table", "sofa-stand"};
    for (const char *from : names)
        for (const char *to : names) {
            if (from == to)
                continue;
            SCOPED_TRACE(std::string(from) + " to " + to);
            std::vector<scene_vec> way;
            ASSERT_TRUE(floor_way(map, spot(from), spot(to), &way));
            ASSERT_GE(way.size(), 2u);
            EXPECT_LT(scene_length(way.front() - spot(from)), 0.001f);
            EXPECT_LT(scene_length(way.back() - spot(to)), 0.001f);
            for (size_t i = 0; i < way.size(); i++) {
                EXPECT_TRUE(room_free_spot(place, way[i].x, way[i].y, 0.15f)) << way[i].x << ", " << way[i].y;
                if (i > 0) {
                    EXPECT_LT(scene_length(way[i] - way[i - 1]), FLOOR_STEP * 1.6f);
                }
                if (i > 0 && i + 1 < way.size()) {
                    EXPECT_GT(scene_length(way[i] - way[i - 1]), FLOOR_STEP * 0.7f);
                }
            }
        }
}

TEST_F(Floor, CornersAreRound)
{
    std::vector<scene_vec> way;
    ASSERT_TRUE(floor_way(map, spot("window"), spot("sofa-right-stand"), &way));
    for (size_t i = 8; i + 8 < way.size(); i++) {
        const scene_vec in = scene_unit(way[i] - way[i - 8]), out = scene_unit(way[i + 8] - way[i]);
        EXPECT_GT(scene_dot(in, out), 0.5f) << "turns by more than 60 degrees within 0.4 m at " << i;
    }
}

TEST_F(Floor, EndsBesideFreeGroundAreJoined)
{
    std::vector<scene_vec> way;
    const scene_vec seat = {0.7f, 2.6f, 0};
    ASSERT_FALSE(floor_is_free(map, seat));
    ASSERT_TRUE(floor_way(map, spot("near"), seat, &way));
    EXPECT_LT(scene_length(way.back() - seat), 0.001f);
    EXPECT_FALSE(floor_way(map, spot("near"), {-3, 2, 0}, &way)) << "outside";
    EXPECT_FALSE(floor_way(map, {-3, 2, 0}, spot("near"), &way)) << "from outside";
}

TEST_F(Floor, TheSameWayEveryTime)
{
    std::vector<scene_vec> a, b;
    ASSERT_TRUE(floor_way(map, spot("window"), spot("sofa-stand"), &a));
    ASSERT_TRUE(floor_way(floor_make(place, 0.24f), spot("window"), spot("sofa-stand"), &b));
    ASSERT_EQ(a.size(), b.size());
    for (size_t i = 0; i < a.size(); i++)
        EXPECT_EQ(scene_length(a[i] - b[i]), 0);
}

TEST_F(Floor, ALineIsStraightAndEven)
{
    std::vector<scene_vec> way;
    floor_line({1, 1, 5}, {1, 2, 0}, &way);
    ASSERT_EQ(way.size(), 41u);
    EXPECT_EQ(way.front().z, 0);
    EXPECT_NEAR(way[20].y, 1.5f, 0.001f);
    EXPECT_NEAR(way[20].x, 1, 0.0001f);
}

} // namespace
