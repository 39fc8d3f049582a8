// Rectangles of the detection task: tables worked out by hand, and properties over every rectangle there is.
#include "mid_hchd_region.h"

#include <limits.h>
#include <string.h>

#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace
{

std::string text(const pixel_rect &r)
{
    return std::to_string(r.x1) + "," + std::to_string(r.y1) + ".." + std::to_string(r.x2) + "," +
           std::to_string(r.y2);
}
std::string text(const block_rect &b)
{
    return "left " + std::to_string(b.left) + " right " + std::to_string(b.right) + " top " +
           std::to_string(b.top) + " bottom " + std::to_string(b.bottom);
}

// ---- The difference map ----------------------------------------------------------------------------------

struct Map {
    explicit Map(int row_stride = 40, uint8_t beyond = 0)
        : stride(row_stride), bytes(static_cast<size_t>(row_stride) * 24, beyond)
    {
        for (int row = 0; row < 24; row++)
            memset(&bytes[static_cast<size_t>(row * stride)], 0, 40);
    }
    Map &set(int column, int row, uint8_t value = 255)
    {
        bytes[static_cast<size_t>(row * stride + column)] = value;
        return *this;
    }
    std::string region() const { return text(region_of_map(bytes.data(), stride)); }

    int stride;
    std::vector<uint8_t> bytes;
};

TEST(RegionOfMap, NothingMoved)
{
    EXPECT_EQ(Map().region(), "left 0 right 0 top 0 bottom 0");
    EXPECT_FALSE(region_any(region_of_map(Map().bytes.data(), 40)));
}

TEST(RegionOfMap, EverySingleBlock)
{
    for (int row = 0; row < 24; row++)
        for (int column = 0; column < 40; column++)
            ASSERT_EQ(Map().set(column, row).region(), text(block_rect{column, column + 1, row, row + 1}));
}

TEST(RegionOfMap, TwoBlocksSpanARectangle)
{
    EXPECT_EQ(Map().set(3, 20).set(30, 5).region(), "left 3 right 31 top 5 bottom 21");
    EXPECT_EQ(Map().set(30, 20).set(3, 5).region(), "left 3 right 31 top 5 bottom 21");
    EXPECT_EQ(Map().set(0, 0).set(39, 23).region(), "left 0 right 40 top 0 bottom 24");
    EXPECT_EQ(Map().set(39, 0).set(0, 23).region(), "left 0 right 40 top 0 bottom 24");
    EXPECT_EQ(Map().set(10, 11).set(20, 11).region(), "left 10 right 21 top 11 bottom 12");
}

TEST(RegionOfMap, AnyByteButZeroCounts)
{
    EXPECT_EQ(Map().set(7, 9, 1).region(), "left 7 right 8 top 9 bottom 10");
    EXPECT_EQ(Map().set(7, 9, 128).region(), "left 7 right 8 top 9 bottom 10");
}

TEST(RegionOfMap, BytesBetweenTheRowsAreNotLookedAt)
{
    EXPECT_EQ(Map(48, 255).region(), "left 0 right 0 top 0 bottom 0");
    EXPECT_EQ(Map(48, 255).set(39, 23).region(), "left 39 right 40 top 23 bottom 24");
    EXPECT_EQ(Map(41, 255).set(0, 1).set(5, 2).region(), "left 0 right 6 top 1 bottom 3");
}

TEST(RegionAny, EachOfTheFourIsEnough)
{
    EXPECT_FALSE(region_any({0, 0, 0, 0}));
    EXPECT_TRUE(region_any({1, 0, 0, 0}));
    EXPECT_TRUE(region_any({0, 1, 0, 0}));
    EXPECT_TRUE(region_any({0, 0, 1, 0}));
    EXPECT_TRUE(region_any({0, 0, 0, 1}));
}

// ---- Growing ---------------------------------------------------------------------------------------------

TEST(RegionGrown, OneBlockOnEachSideWhereThereIsRoom)
{
    // left, right, top, bottom in blocks; x1, y1, x2, y2 in pixels
    EXPECT_EQ(text(region_grown({10, 12, 5, 6})), "72,32..103,55");
    EXPECT_EQ(text(region_grown({0, 1, 0, 1})), "0,0..15,15");
    EXPECT_EQ(text(region_grown({1, 2, 1, 2})), "0,0..23,23");
    EXPECT_EQ(text(region_grown({2, 3, 2, 3})), "8,8..31,31");
    EXPECT_EQ(text(region_grown({39, 40, 23, 24})), "304,176..319,191");
    EXPECT_EQ(text(region_grown({38, 39, 22, 23})), "296,168..319,191");
    EXPECT_EQ(text(region_grown({37, 38, 21, 22})), "288,160..311,183");
    EXPECT_EQ(text(region_grown({0, 40, 0, 24})), "0,0..319,191");
    EXPECT_EQ(text(region_grown({0, 40, 11, 12})), "0,80..319,103");
    EXPECT_EQ(text(region_grown({20, 21, 0, 24})), "152,0..175,191");
}

TEST(RegionWholeFrame, AllFourSidesAndNothingLess)
{
    EXPECT_TRUE(region_is_whole_frame({0, 0, 319, 191}));
    EXPECT_FALSE(region_is_whole_frame({1, 0, 319, 191}));
    EXPECT_FALSE(region_is_whole_frame({0, 1, 319, 191}));
    EXPECT_FALSE(region_is_whole_frame({0, 0, 318, 191}));
    EXPECT_FALSE(region_is_whole_frame({0, 0, 319, 190}));
    EXPECT_FALSE(region_is_whole_frame({-1, 0, 319, 191}));
    EXPECT_FALSE(region_is_whole_frame({0, 0, 320, 191}));
    // Motion that leaves one block free on each side grows to all of it; two on one side do not.
    EXPECT_TRUE(region_is_whole_frame(region_grown({1, 39, 1, 23})));
    EXPECT_FALSE(region_is_whole_frame(region_grown({2, 39, 1, 23})));
    EXPECT_FALSE(region_is_whole_frame(region_grown({1, 38, 1, 23})));
    EXPECT_FALSE(region_is_whole_frame(region_grown({1, 39, 2, 23})));
    EXPECT_FALSE(region_is_whole_frame(region_grown({1, 39, 1, 22})));
}

// ---- Where people are looked for -------------------------------------------------------------------------

TEST(RegionToSearch, InsideIsKeptElseTheWholeRegion)
{
    const pixel_rect region = {32, 16, 255, 151};
    const struct {
        pixel_rect rect;
        bool kept;
    } cases[] = {
        {{40, 24, 247, 143}, true},  {{32, 16, 255, 151}, true},  {{31, 16, 255, 151}, false},
        {{32, 15, 255, 151}, false}, {{32, 16, 256, 151}, false}, {{32, 16, 255, 152}, false},
        {{0, 0, 7, 7}, false}, // all of it outside
    };
    for (const auto &c : cases)
        EXPECT_EQ(text(region_to_search(c.rect, region)), text(c.kept ? c.rect : region)) << text(c.rect);
}

// ---- The crop --------------------------------------------------------------------------------------------

std::string widened(int first, int last, int size)
{
    region_widen(&first, &last, size);
    return std::to_string(first) + ".." + std::to_string(last);
}

TEST(RegionWiden, AMultipleOf32Stays)
{
    EXPECT_EQ(widened(0, 31, 320), "0..31");
    EXPECT_EQ(widened(100, 131, 320), "100..131");
    EXPECT_EQ(widened(288, 319, 320), "288..319");
    EXPECT_EQ(widened(0, 319, 320), "0..319");
    EXPECT_EQ(widened(0, 191, 192), "0..191");
}

TEST(RegionWiden, BothSidesByTheSame)
{
    EXPECT_EQ(widened(100, 139, 320), "88..151");  // 40 to 64
    EXPECT_EQ(widened(12, 51, 320), "0..63");      // just room on the left
    EXPECT_EQ(widened(268, 307, 320), "256..319"); // just room on the right
    EXPECT_EQ(widened(50, 51, 320), "35..66");     // 2 to 32: by 15
    EXPECT_EQ(widened(50, 83, 320), "35..98");     // 34 to 64
    EXPECT_EQ(widened(50, 79, 320), "49..80");     // 30 to 32
}

TEST(RegionWiden, ShiftedFromTheFirstEdge)
{
    EXPECT_EQ(widened(0, 39, 320), "0..63");
    EXPECT_EQ(widened(11, 50, 320), "0..63");
    EXPECT_EQ(widened(0, 1, 320), "0..31");
    EXPECT_EQ(widened(2, 281, 320), "0..287"); // 280 to 288, by 4
    EXPECT_EQ(widened(0, 289, 320), "0..319"); // 290 to 320, by 15: all of it
    EXPECT_EQ(widened(4, 303, 320), "0..319"); // 300 to 320, by 10
}

TEST(RegionWiden, ShiftedFromTheLastEdge)
{
    EXPECT_EQ(widened(280, 319, 320), "256..319"); // 40 to 64
    EXPECT_EQ(widened(269, 308, 320), "256..319"); // a pixel short of room
    EXPECT_EQ(widened(318, 319, 320), "288..319");
    EXPECT_EQ(widened(30, 319, 320), "0..319"); // 290 to 320
    EXPECT_EQ(widened(16, 315, 320), "0..319"); // 300 to 320, by 10
    EXPECT_EQ(widened(152, 191, 192), "128..191");
}

TEST(RegionWiden, AllOfASizeThatLacksRoomOnBothSides)
{
    // 41 want to be 64, by 11 on each side.
    EXPECT_EQ(widened(4, 44, 48), "0..47"); // neither side has that
    // The bounds of the rule: up to its size the last side has room, the first as long as it is not below.
    EXPECT_EQ(widened(10, 50, 60), "0..59");  // 10 < 11, 61 > 60
    EXPECT_EQ(widened(10, 50, 61), "0..62");  // 61 is not past 61
    EXPECT_EQ(widened(11, 51, 63), "0..62");  // 11 is not below 11
    EXPECT_EQ(widened(11, 51, 60), "-3..59"); // so the last is in the way: it does not fit at all
    EXPECT_EQ(widened(11, 51, 62), "-1..61");
    EXPECT_EQ(widened(31, 71, 80), "17..79");
    EXPECT_EQ(widened(31, 71, 82), "19..81"); // 82 is not below 82
    EXPECT_EQ(widened(31, 71, 83), "20..82");
}

TEST(RegionCrop, MadeEvenFirst)
{
    EXPECT_EQ(text(region_crop({32, 32, 95, 95})), "32,32..95,95");
    EXPECT_EQ(text(region_crop({31, 31, 96, 96})), "32,32..95,95"); // odd first up, even last down
    EXPECT_EQ(text(region_crop({31, 32, 95, 95})), "32,32..95,95");
    EXPECT_EQ(text(region_crop({32, 31, 95, 95})), "32,32..95,95");
    EXPECT_EQ(text(region_crop({32, 32, 96, 95})), "32,32..95,95");
    EXPECT_EQ(text(region_crop({32, 32, 95, 96})), "32,32..95,95");
}

TEST(RegionCrop, Examples)
{
    EXPECT_EQ(text(region_crop({0, 0, 39, 31})), "0,0..63,31");
    EXPECT_EQ(text(region_crop({280, 0, 319, 31})), "256,0..319,31");
    EXPECT_EQ(text(region_crop({100, 152, 139, 191})), "88,128..151,191");
    EXPECT_EQ(text(region_crop({100, 64, 139, 103})), "88,52..151,115");
    EXPECT_EQ(text(region_crop({100, 0, 139, 183})), "88,0..151,191");
    EXPECT_EQ(text(region_crop({0, 0, 319, 191})), "0,0..319,191");
    EXPECT_EQ(text(region_crop({50, 50, 83, 83})), "35,35..98,98"); // starts at an odd pixel
}

// Every pair of bounds a crop can be cut for, in one direction; the other direction is held still.
void every_pair(int size, pixel_rect (*rect)(int first, int last), int (*first_of)(const pixel_rect &),
                int (*last_of)(const pixel_rect &))
{
    for (int first = 0; first < size; first++)
        for (int last = first + 1; last < size; last++) {
            const pixel_rect r = rect(first, last);
            if (!region_holds_pair(r))
                continue;
            const pixel_rect crop = region_crop(r);
            const int a = first_of(crop), b = last_of(crop);
            const int even_first = first + first % 2, even_last = last - (last + 1) % 2;
            ASSERT_GE(a, 0) << text(r);
            ASSERT_LE(b, size - 1) << text(r);
            ASSERT_EQ((b - a + 1) % 32, 0) << text(r);
            ASSERT_LE(a, even_first) << text(r);
            ASSERT_GE(b, even_last) << text(r);
            ASSERT_LT(b - a + 1, even_last - even_first + 1 + 32) << text(r); // no wider than need be
            // Where neither edge is touched the middle stays.
            if (a > 0 && b < size - 1) {
                ASSERT_EQ(a + b, even_first + even_last) << text(r);
            }
        }
}

TEST(RegionCrop, EveryRectangleGivesACropInsideTheFrame)
{
    every_pair(
        320,
        [](int first, int last) {
            return pixel_rect{first, 0, last, 31};
        },
        [](const pixel_rect &r) { return r.x1; }, [](const pixel_rect &r) { return r.x2; });
    every_pair(
        192,
        [](int first, int last) {
            return pixel_rect{0, first, 31, last};
        },
        [](const pixel_rect &r) { return r.y1; }, [](const pixel_rect &r) { return r.y2; });
}

// ---- The region as it is set -----------------------------------------------------------------------------

TEST(RegionFromUnits, TenThousandthsOfTheFrame)
{
    // the arguments are x1, x2, y1, y2
    EXPECT_EQ(text(region_from_units(0, 10000, 0, 10000)), "0,0..320,192");
    EXPECT_EQ(text(region_from_units(2500, 7500, 1250, 8750)), "80,24..240,168");
    EXPECT_EQ(text(region_from_units(10, 30, 20, 40)), "0,0..0,0");
    EXPECT_EQ(text(region_from_units(31, 32, 52, 53)), "0,0..1,1"); // 0.992 and 1.024; 0.998 and 1.018
    EXPECT_EQ(text(region_from_units(9999, 10031, 9999, 10052)), "319,191..320,192");
}

TEST(RegionFromUnits, DividedTowardZeroAndIn64Bits)
{
    EXPECT_EQ(text(region_from_units(-31, -32, -52, -53)), "0,0..-1,-1");
    EXPECT_EQ(text(region_from_units(INT_MIN, INT_MAX, INT_MIN, INT_MAX)),
              "-68719476,-41231686..68719476,41231686");
}

TEST(RegionInFrame, WhatLiesOutsideIsCutOff)
{
    EXPECT_EQ(text(region_in_frame({0, 0, 319, 191})), "0,0..319,191");
    EXPECT_EQ(text(region_in_frame({0, 0, 320, 192})), "0,0..319,191");
    EXPECT_EQ(text(region_in_frame({-1, -1, 318, 190})), "0,0..318,190");
    EXPECT_EQ(text(region_in_frame({1, 2, 3, 4})), "1,2..3,4");
    EXPECT_EQ(text(region_in_frame({INT_MIN, INT_MIN, INT_MAX, INT_MAX})), "0,0..319,191");
    EXPECT_EQ(text(region_in_frame({400, 10, 500, 20})), "400,10..319,20"); // nothing is left
}

TEST(RegionHoldsPair, AnEvenAlignedPairInBothDirections)
{
    const struct {
        pixel_rect rect;
        bool holds;
    } cases[] = {
        {{0, 0, 1, 1}, true},        {{10, 10, 11, 11}, true},    {{318, 190, 319, 191}, true},
        {{0, 0, 0, 1}, false},       {{0, 0, 1, 0}, false}, // one pixel
        {{1, 0, 2, 1}, false},       {{0, 1, 1, 2}, false}, // two pixels of two pairs
        {{1, 0, 3, 1}, true},        {{0, 1, 1, 3}, true},        {{1, 0, 4, 1}, true},
        {{0, 1, 1, 4}, true},        {{319, 0, 319, 1}, false},   {{0, 191, 1, 191}, false},
        {{400, 10, 319, 20}, false}, {{10, 400, 20, 191}, false}, {{0, 0, -1, 5}, false},
        {{0, 0, 5, -1}, false},      {{0, 0, -2, -2}, false},     {{11, 0, 10, 9}, false},
    };
    for (const auto &c : cases)
        EXPECT_EQ(region_holds_pair(c.rect), c.holds) << text(c.rect);
}

} // namespace
