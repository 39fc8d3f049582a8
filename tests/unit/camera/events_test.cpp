// Lines of events, to the letter.
#include "events.h"

#include <gtest/gtest.h>
#include <string.h>

namespace
{

std::string name_of(const std::string &message)
{
    std::string name = "unchanged";
    return event_name(message.data(), message.size(), &name) ? name : "(none)";
}

TEST(EventName, IsATextWithItsEnd)
{
    EXPECT_EQ(name_of(std::string("PeopleMotion\0", 13)), "PeopleMotion");
    EXPECT_EQ(name_of("PeopleMotion"), "(none)");
    EXPECT_EQ(name_of(std::string("a\0b\0", 4)), "(none)");
    EXPECT_EQ(name_of(std::string("\0", 1)), "(none)");
    EXPECT_EQ(name_of(""), "(none)");
    EXPECT_EQ(name_of(std::string("a\0", 2)), "a");
}

TEST(EventName, HasABound)
{
    const std::string longest(255, 'x');
    EXPECT_EQ(name_of(longest + std::string(1, '\0')), longest);
    EXPECT_EQ(name_of(longest + "x" + std::string(1, '\0')), "(none)");
}

std::string cleaned(const std::string &text)
{
    return name_of(text + std::string(1, '\0'));
}

TEST(EventName, KeepsUtf8AndNothingThatATerminalObeys)
{
    EXPECT_EQ(cleaned("Küche 厨房 😀"), "Küche 厨房 😀");
    EXPECT_EQ(cleaned("\x1b[2J\n\x7f"), "?[2J??");
    EXPECT_EQ(cleaned("\x20~"), " ~");
    EXPECT_EQ(cleaned("\x1f"), "?");
    EXPECT_EQ(cleaned("\xc2\x9b"), "??") << "a control character of two bytes";
    EXPECT_EQ(cleaned("\xc2\xa0"), "\xc2\xa0");
    EXPECT_EQ(cleaned("\xc3"), "?") << "cut";
    EXPECT_EQ(cleaned("\xc3x"), "?x");
    EXPECT_EQ(cleaned("\xe0\x80\xaf"), "???") << "longer than needed";
    EXPECT_EQ(cleaned("\xe0\xa0\x80"), "\xe0\xa0\x80");
    EXPECT_EQ(cleaned("\xed\xa0\x80"), "???") << "half of a pair";
    EXPECT_EQ(cleaned("\xed\x9f\xbf"), "\xed\x9f\xbf");
    EXPECT_EQ(cleaned("\xee\x80\x80"), "\xee\x80\x80");
    EXPECT_EQ(cleaned("\xf0\x8f\xbf\xbf"), "????");
    EXPECT_EQ(cleaned("\xf4\x8f\xbf\xbf"), "\xf4\x8f\xbf\xbf");
    EXPECT_EQ(cleaned("\xf4\x90\x80\x80"), "????") << "beyond the last character";
    EXPECT_EQ(cleaned("\xc1\xbf\x80\xff"), "????");
}

TEST(EventTime, HasMinutesAndHoursWhereThereAreSome)
{
    EXPECT_EQ(event_time(0), "00:00.000");
    EXPECT_EQ(event_time(12400), "00:12.400");
    EXPECT_EQ(event_time(3599999), "59:59.999");
    EXPECT_EQ(event_time(3600000), "1:00:00.000");
    EXPECT_EQ(event_time(uint64_t(100) * 3600000 + 61001), "100:01:01.001");
}

TEST(EventBoxes, EndAtTheFirstThatIsZero)
{
    naro_isp_track_param track = {};
    EXPECT_EQ(event_boxes(&track), 0);
    track.box[1].x1 = 1;
    EXPECT_EQ(event_boxes(&track), 0);
    for (int word = 0; word < 4; word++) {
        track = {};
        (&track.box[0].x1)[word] = -1;
        EXPECT_EQ(event_boxes(&track), 1) << word;
    }
    for (naro_track_box &box : track.box)
        box = {0, 0, 1, 1};
    EXPECT_EQ(event_boxes(&track), 6);
}

TEST(EventLine, IsForPeople)
{
    const naro_track_box boxes[] = {{120, 40, 180, 170}, {-1, 0, 3, 191}};
    EXPECT_EQ(event_line(12400, "ObjectMotion", boxes, 0), "00:12.400  ObjectMotion");
    EXPECT_EQ(event_line(12400, "PeopleMotion", boxes, 1), "00:12.400  PeopleMotion  [120,40 60x130]");
    EXPECT_EQ(event_line(12400, "PeopleMotion", boxes, 2),
              "00:12.400  PeopleMotion  [120,40 60x130] [-1,0 4x191]");
}

TEST(EventJson, IsForPrograms)
{
    const naro_track_box boxes[] = {{120, 40, 180, 170}, {0, 0, 3, 191}};
    EXPECT_EQ(event_json(12400, "ObjectMotion", boxes, 0),
              "{\"time_ms\":12400,\"event\":\"ObjectMotion\",\"boxes\":[]}");
    EXPECT_EQ(event_json(5, "a\"/b", boxes, 2),
              "{\"time_ms\":5,\"event\":\"a\\\"/b\",\"boxes\":[[120,40,60,130],[0,0,3,191]]}");
}

TEST(EventLine, SurvivesAnyNumbers)
{
    const naro_track_box box = {INT32_MIN, INT32_MIN, INT32_MAX, INT32_MAX};
    EXPECT_EQ(event_line(0, "x", &box, 1), "00:00.000  x  [-2147483648,-2147483648 4294967295x4294967295]");
    EXPECT_EQ(event_json(0, "x", &box, 1),
              "{\"time_ms\":0,\"event\":\"x\",\"boxes\":[[-2147483648,-2147483648,4294967295,4294967295]]}");
}

} // namespace
