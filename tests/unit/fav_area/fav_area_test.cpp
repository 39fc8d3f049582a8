// Care regions: the table through its lines and its broadcasts, and the tests of rectangles.
#include "mid_hchd_fav_area.h"

#include <limits.h>
#include <string.h>

#include <atomic>
#include <mutex>
#include <thread>

#include <gmock/gmock.h>

#include "failures_to_stderr.h"
#include "lock_watch.h"
#include "log_capture.h"

using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

using Texts = std::vector<std::string>;

namespace
{

std::mutex mutex; // protects the next
Texts broadcasts;
bool broadcasts_are_well_formed = true;

} // namespace

int shbf_event_broadcast(int index, const void *buf, int len)
{
    std::lock_guard<std::mutex> guard(mutex);
    const std::string bytes(static_cast<const char *>(buf), static_cast<size_t>(len));
    broadcasts.push_back(bytes.c_str());
    broadcasts_are_well_formed =
        broadcasts_are_well_formed && index == 0 && bytes.size() == broadcasts.back().size() + 1;
    return -1;
}

namespace
{

const char *const invalid_line = " input param is invalid \n ";
const char *const full_line = " used_num is more than fav_area_algo_NUM ,discard it\n";
const char *const zero_line = " coor both 0 \n";
const char *const no_place_line = " fav area num override \n";

std::string deleted_line(int place)
{
    return " delete this fav area  index = " + std::to_string(place) + " \n";
}
std::string begin_line(int used_num)
{
    return " used_num = " + std::to_string(used_num) + " , pro = 0.100000 \n";
}
std::string place_line(int place, const std::string &coordinates, const std::string &name)
{
    return "[area " + std::to_string(place) + "] " + coordinates + " name=" + name + " \n ";
}
std::string added_line(int used_num, const std::string &name = "", const std::string &type = "")
{
    return "set fav_area_algo.used_num=" + std::to_string(used_num) + ",name=" + name +
           ",event_type=" + type + "\n";
}

struct Pair {
    fav_area_algo_coor_t a, b;
    int overlap;
};
fav_area_algo_coor_t at(int x1, int y1, int x2, int y2)
{
    fav_area_algo_coor_t r = {};
    r.x1 = x1;
    r.y1 = y1;
    r.x2 = x2;
    r.y2 = y2;
    return r;
}

// ---- Before init ------------------------------------------------------------------------------------------

// The first case, so that it is the first also where all cases share a process.
TEST(FavAreaBeforeInit, WithoutARatioAnythingSharedIsEnough)
{
    LogCapture log;
    OutputCapture out{STDOUT_FILENO};
    EXPECT_EQ(mid_hchd_fav_area_algo_update(1, 2, 3, 4, "", ""), -1);
    EXPECT_THAT(log.texts(), ElementsAre(" used_num = 0 , pro = 0.000000 \n"));
    const Pair pairs[] = {
        {at(0, 0, 100, 100), at(99, 99, 200, 200), 1}, {at(99, 99, 200, 200), at(0, 0, 100, 100), 1},
        {at(0, 0, 100, 100), at(100, 0, 200, 100), 0}, {at(0, 0, 100, 100), at(0, 100, 100, 200), 0},
        {at(5, 5, 5, 5), at(0, 0, 10, 10), 0}, // inside does not count here
        {at(0, 0, 10, 10), at(2, 2, 3, 3), 1},
    };
    for (const Pair &pair : pairs)
        EXPECT_EQ(rect_angle_over_lap(&pair.a, &pair.b), pair.overlap) << (&pair - pairs);
}

class FavArea : public testing::Test
{
  protected:
    FavArea()
    {
        mid_hchd_fav_area_algo_init();
        broadcasts.clear();
        broadcasts_are_well_formed = true;
    }
    int update(int x1, int y1, int x2, int y2, const std::string &name, const std::string &type = "people")
    {
        return mid_hchd_fav_area_algo_update(x1, y1, x2, y2, name.c_str(), type.c_str());
    }
    int remove(const std::string &name, const std::string &type = "people")
    {
        return update(0, 0, 0, 0, name, type);
    }
    // a, b, c ... at 1, 2, 3 ...: each 10 wide, its number times 100 away from the left.
    void fill(int count)
    {
        for (int i = 0; i < count; i++)
            ASSERT_EQ(update(100 * i, 1, 100 * i + 10, 11, std::string(1, static_cast<char>('a' + i))), 0);
        log.clear();
        out.clear();
    }
    // The names in the ten places, "-" for an empty one, as the next update tells them. Changes nothing.
    Texts names()
    {
        const std::string printed = out.text();
        log.clear();
        update(0, 0, 0, 0, "no such name");
        Texts result;
        for (const std::string &line : log.texts()) {
            const size_t at = line.find(" name=");
            if (line.substr(0, 5) != "[area" || at == std::string::npos)
                continue;
            const std::string name = line.substr(at + 6, line.size() - at - 6 - 3);
            result.push_back(name.empty() ? "-" : name);
        }
        log.clear();
        return result;
    }
    std::string names_line()
    {
        std::string all;
        for (const std::string &name : names())
            all += name;
        return all;
    }
    int used_num()
    {
        log.clear();
        update(0, 0, 0, 0, "no such name");
        int count = -1;
        sscanf(log.texts().front().c_str(), " used_num = %d", &count);
        log.clear();
        return count;
    }
    // Whose names are broadcast for a box around everything.
    Texts in_use()
    {
        broadcasts.clear();
        mid_hchd_fav_area_algo_detect(-100000, -100000, 100000, 100000, "");
        const Texts result = broadcasts;
        broadcasts.clear();
        log.clear();
        return result;
    }

    LogCapture log;
    OutputCapture out{STDOUT_FILENO};
};

// ---- Changes ----------------------------------------------------------------------------------------------

TEST_F(FavArea, Add)
{
    EXPECT_EQ(update(1, -2, 3, 4, "door", "people"), 0);
    Texts expected = {begin_line(0)};
    for (int place = 0; place < 10; place++)
        expected.push_back(place_line(place, "0 0 0  0", ""));
    expected.push_back(added_line(1));
    EXPECT_EQ(log.texts(), expected);
    EXPECT_EQ(log.texts(NARO_LOG_INFO), expected);
    EXPECT_EQ(out.text(), "");

    log.clear();
    EXPECT_EQ(update(5, 6, 7, 8, "bed", "pet"), 0);
    expected = {begin_line(1), place_line(0, "1 -2 3  4", "door")};
    for (int place = 1; place < 10; place++)
        expected.push_back(place_line(place, "0 0 0  0", ""));
    expected.push_back(added_line(2));
    EXPECT_EQ(log.texts(), expected);
}

TEST_F(FavArea, Move)
{
    update(1, 2, 3, 4, "door");
    update(5, 6, 7, 8, "bed");
    log.clear();
    EXPECT_EQ(update(9, 10, 11, 12, "bed"), 1);
    Texts expected = {begin_line(2), place_line(0, "1 2 3  4", "door"), place_line(1, "5 6 7  8", "bed")};
    for (int place = 2; place < 10; place++)
        expected.push_back(place_line(place, "0 0 0  0", ""));
    EXPECT_EQ(log.texts(), expected);
    EXPECT_EQ(out.text(), "");
    log.clear();
    for (const auto &[x1, y1, x2, y2] : {std::tuple<int, int, int, int>(1, 0, 0, 0),
                                         {0, 1, 0, 0},
                                         {0, 0, 1, 0},
                                         {0, 0, 0, 1},
                                         {-1, 0, 0, 0}})
        EXPECT_EQ(update(x1, y1, x2, y2, "bed"), 1); // only four zeros delete
    update(0, 0, 0, 1, "bed");
    EXPECT_THAT(log.texts(), testing::Contains(place_line(1, "0 0 0  1", "bed")));
    EXPECT_EQ(used_num(), 2);
}

TEST_F(FavArea, Delete)
{
    fill(3);
    EXPECT_EQ(remove("b"), 2);
    // The place is looked at once more, for what has come into it.
    Texts expected = {begin_line(3), place_line(0, "0 1 10  11", "a"), place_line(1, "100 1 110  11", "b"),
                      place_line(1, "200 1 210  11", "c")};
    for (int place = 2; place < 10; place++)
        expected.push_back(place_line(place, "0 0 0  0", ""));
    EXPECT_EQ(log.texts(), expected);
    EXPECT_EQ(out.text(), deleted_line(1));
    EXPECT_EQ(names_line(), "ac--------");
    EXPECT_EQ(used_num(), 2);
    EXPECT_THAT(in_use(), ElementsAre("a", "c"));
    out.clear();
    EXPECT_EQ(remove("a"), 2);
    EXPECT_EQ(remove("c"), 2);
    EXPECT_EQ(out.text(), deleted_line(0) + deleted_line(0));
    EXPECT_EQ(names_line(), "----------");
    EXPECT_EQ(used_num(), 0);
}

TEST_F(FavArea, WhatShouldBeDeletedIsNotThere)
{
    EXPECT_EQ(remove("a"), -1);
    EXPECT_EQ(out.text(), zero_line);
    EXPECT_EQ(used_num(), 0);
    out.clear();
    fill(2);
    EXPECT_EQ(remove("c"), -1);
    EXPECT_EQ(remove("a", "pet"), -1);
    EXPECT_EQ(out.text(), std::string(zero_line) + zero_line);
    EXPECT_EQ(names_line(), "ab--------");
}

TEST_F(FavArea, TextsThatAreMissing)
{
    const char *const texts[][2] = {
        {nullptr, "people"}, {"", "people"}, {"door", nullptr}, {"door", ""}, {nullptr, nullptr}};
    for (const auto &[name, type] : texts) {
        log.clear();
        out.clear();
        EXPECT_EQ(mid_hchd_fav_area_algo_update(1, 2, 3, 4, name, type), -1);
        EXPECT_THAT(log.texts(), ElementsAre(begin_line(0)));
        EXPECT_EQ(out.text(), invalid_line);
    }
    EXPECT_EQ(names_line(), "----------");
}

TEST_F(FavArea, TheEleventhIsRefused)
{
    fill(9);
    EXPECT_EQ(update(1, 2, 3, 4, "j"), 0);
    EXPECT_EQ(log.texts().back(), added_line(10)); // behind the table there is nothing to show
    log.clear();
    EXPECT_EQ(update(1, 2, 3, 4, "k"), -1);
    EXPECT_EQ(out.text(), full_line);
    EXPECT_EQ(log.texts().back().substr(0, 8), "[area 9]");
    EXPECT_EQ(remove("k"), -1); // full counts before all zero
    EXPECT_EQ(out.text(), std::string(full_line) + full_line);
    EXPECT_EQ(names_line(), "abcdefghij");
    EXPECT_EQ(update(1, 2, 3, 4, "j"), 1); // those that are there can be moved
}

TEST_F(FavArea, AnAreaIsMeantByTheBeginningsOfItsTexts)
{
    update(1, 1, 2, 2, "door", "people");
    update(3, 3, 4, 4, "door-2", "people-near");
    update(5, 5, 6, 6, "window", "people");
    log.clear();
    // Moves both doors. The names stay, the event type becomes the given one.
    EXPECT_EQ(update(7, 7, 8, 8, "doo", "peop"), 1);
    update(0, 0, 0, 0, "none");
    EXPECT_THAT(log.texts(),
                testing::IsSupersetOf({place_line(0, "7 7 8  8", "door"), place_line(1, "7 7 8  8", "door-2"),
                                       place_line(2, "5 5 6  6", "window")}));
    EXPECT_EQ(update(9, 9, 10, 10, "door-2", "people-near"), 0); // neither type begins so any more
    EXPECT_EQ(update(9, 9, 10, 10, "door-22", "peop"), 0);       // longer than any
    EXPECT_EQ(update(9, 9, 10, 10, "oor", "peop"), 0);           // not the beginning
    EXPECT_EQ(used_num(), 6);
    EXPECT_EQ(update(9, 9, 10, 10, "window", "people"), 1);
    out.clear();
    EXPECT_EQ(remove("door", "peop"), 2); // all four
    EXPECT_EQ(out.text(), deleted_line(0) + deleted_line(0) + deleted_line(1) + deleted_line(1));
    EXPECT_THAT(in_use(), ElementsAre("window", "oor"));
}

TEST_F(FavArea, OneCharacterIsAText)
{
    EXPECT_EQ(update(1, 2, 3, 4, "n", "t"), 0);
    EXPECT_EQ(remove("n", "t"), 2);
}

TEST_F(FavArea, TextsAreCutAt31Bytes)
{
    const std::string text(31, 'n');
    EXPECT_EQ(update(1, 1, 2, 2, text + "abc", text + "abc"), 0);
    EXPECT_EQ(names()[0], text);
    EXPECT_EQ(update(3, 3, 4, 4, text + "xyz", text + "xyz"), 1); // which is the same one, then
    EXPECT_THAT(in_use(), ElementsAre(text));
    mid_hchd_fav_area_algo_detect(3, 3, 4, 4, text.c_str());
    EXPECT_THAT(log.texts(), testing::Contains(" event_type = " + text + " ," + text + "  \n "));
    EXPECT_EQ(remove(text, text), 2);
    // A shorter text leaves nothing behind of a longer one.
    update(1, 1, 2, 2, "n", text);
    update(1, 1, 2, 2, "n", "nn");
    log.clear();
    mid_hchd_fav_area_algo_detect(1, 1, 2, 2, "");
    EXPECT_EQ(log.texts().front(), " event_type =  ,nn  \n ");
}

TEST_F(FavArea, InitEmptiesTheTable)
{
    fill(10);
    mid_hchd_fav_area_algo_init();
    EXPECT_EQ(names_line(), "----------");
    EXPECT_EQ(used_num(), 0);
    EXPECT_THAT(in_use(), IsEmpty());
    fill(10);
    EXPECT_EQ(names_line(), "abcdefghij");
}

// ---- A table that was full --------------------------------------------------------------------------------

TEST_F(FavArea, TheTenthStaysInItsPlaceWhenItIsMovedDown)
{
    fill(10);
    EXPECT_EQ(remove("a"), 2);
    EXPECT_EQ(out.text(), deleted_line(0));
    EXPECT_EQ(names_line(), "bcdefghijj");
    EXPECT_EQ(used_num(), 9);
    EXPECT_THAT(in_use(), ElementsAre("b", "c", "d", "e", "f", "g", "h", "i", "j"));
    // So there is no free place, though one is counted.
    out.clear();
    log.clear();
    EXPECT_EQ(update(1, 2, 3, 4, "k"), -1);
    EXPECT_EQ(out.text(), no_place_line);
    EXPECT_EQ(log.texts().back().substr(0, 8), "[area 9]");
    EXPECT_EQ(used_num(), 9);
    // Moving it moves both.
    log.clear();
    EXPECT_EQ(update(1, 2, 3, 4, "j"), 1);
    update(0, 0, 0, 0, "none");
    EXPECT_THAT(log.texts(),
                testing::IsSupersetOf({place_line(8, "1 2 3  4", "j"), place_line(9, "1 2 3  4", "j")}));
    out.clear();
    EXPECT_EQ(remove("e"), 2);
    EXPECT_EQ(out.text(), deleted_line(3));
    EXPECT_EQ(names_line(), "bcdfghijjj");
    EXPECT_THAT(in_use(), ElementsAre("b", "c", "d", "f", "g", "h", "i", "j"));
}

TEST_F(FavArea, DeletingTheTenthItselfTakesAllThatIsLeftOfIt)
{
    fill(10);
    remove("a");
    remove("b");
    ASSERT_EQ(names_line(), "cdefghijjj");
    out.clear();
    EXPECT_EQ(remove("j"), 2);
    EXPECT_EQ(out.text(), deleted_line(7)); // once: it was counted once
    EXPECT_EQ(log.texts().size(), 12u);     // place 7 was looked at twice, all others once
    EXPECT_EQ(log.count(place_line(7, "900 1 910  11", "j")), 2u);
    EXPECT_EQ(names_line(), "cdefghi---");
    EXPECT_EQ(used_num(), 7);
    EXPECT_THAT(in_use(), ElementsAre("c", "d", "e", "f", "g", "h", "i"));
    EXPECT_EQ(update(1, 2, 3, 4, "k"), 0); // and there is room again
    EXPECT_EQ(names_line(), "cdefghik--");
}

TEST_F(FavArea, TheTenthDeletedFromItsOwnPlace)
{
    fill(10);
    EXPECT_EQ(remove("j"), 2);
    EXPECT_EQ(log.texts().size(),
              11u); // the last place is not looked at again: nothing can have come into it
    EXPECT_EQ(out.text(), deleted_line(9));
    EXPECT_EQ(names_line(), "abcdefghi-");
    EXPECT_EQ(used_num(), 9);
    EXPECT_EQ(update(1, 2, 3, 4, "k"), 0);
    EXPECT_EQ(names_line(), "abcdefghik");
}

TEST_F(FavArea, TheNinthOfAFullTable)
{
    fill(10);
    EXPECT_EQ(remove("i"), 2);
    EXPECT_EQ(log.texts().size(), 12u);
    EXPECT_EQ(out.text(), deleted_line(8));
    EXPECT_EQ(names_line(), "abcdefghjj");
    EXPECT_EQ(used_num(), 9);
}

TEST_F(FavArea, AFullTableThatIsDeletedAsAWhole)
{
    for (int i = 0; i < 10; i++)
        update(1, 2, 3, 4, "area" + std::to_string(i));
    out.clear();
    EXPECT_EQ(remove("area"), 2);
    std::string lines;
    for (int i = 0; i < 10; i++)
        lines += deleted_line(0);
    EXPECT_EQ(out.text(), lines);
    EXPECT_EQ(names_line(), "----------");
    EXPECT_EQ(used_num(), 0);
    fill(10);
    EXPECT_EQ(names_line(), "abcdefghij");
}

TEST_F(FavArea, TheLineAfterAnAdditionShowsWhatLiesBehindTheTableInUse)
{
    // Places behind those in use are empty but for what a full table has left: here "j" in the last place.
    fill(10);
    remove("a");
    remove("b");               // cdefghijjj, 8 in use
    EXPECT_EQ(remove("c"), 2); // defghijjjj, 7 in use
    EXPECT_EQ(update(1, 2, 3, 4, "k"), -1);
    EXPECT_THAT(log.texts(), testing::Not(testing::Contains(testing::HasSubstr("set fav_area_algo"))));
}

// ---- Boxes ------------------------------------------------------------------------------------------------

TEST_F(FavArea, ABoxInAnAreaIsBroadcastByItsName)
{
    update(0, 0, 100, 100, "door", "people");
    update(200, 0, 300, 100, "bed", "people");
    update(0, 0, 1000, 1000, "room", "pet");
    log.clear();
    mid_hchd_fav_area_algo_detect(210, 10, 220, 20, "people");
    EXPECT_THAT(broadcasts, ElementsAre("bed"));
    EXPECT_TRUE(broadcasts_are_well_formed); // on the md channel, with the zero byte
    EXPECT_THAT(log.texts(),
                ElementsAre(" event_type = people ,people  \n ", "test>>>human not in area,need ignore",
                            " event_type = people ,people  \n ", "test>>>human in area,brd name=bed",
                            " event_type = people ,pet  \n "));
    EXPECT_EQ(log.texts(), log.texts(NARO_LOG_INFO));
    EXPECT_EQ(out.text(), "");
}

TEST_F(FavArea, TheTypeMayBeABeginning)
{
    update(0, 0, 100, 100, "door", "people-near");
    for (const char *type : {"people-near", "people", "p", ""}) {
        broadcasts.clear();
        mid_hchd_fav_area_algo_detect(10, 10, 20, 20, type);
        EXPECT_THAT(broadcasts, ElementsAre("door")) << type;
    }
    for (const char *type : {"people-nearer", "eople", "pet"}) {
        broadcasts.clear();
        mid_hchd_fav_area_algo_detect(10, 10, 20, 20, type);
        EXPECT_THAT(broadcasts, IsEmpty()) << type;
    }
    log.clear();
    mid_hchd_fav_area_algo_detect(10, 10, 20, 20, nullptr);
    EXPECT_THAT(log.texts(), IsEmpty());
}

TEST_F(FavArea, TheLongestNameIsBroadcastWhole)
{
    const std::string name(31, 'n');
    update(0, 0, 100, 100, name);
    mid_hchd_fav_area_algo_detect(10, 10, 20, 20, "people");
    EXPECT_THAT(broadcasts, ElementsAre(name));
    EXPECT_TRUE(broadcasts_are_well_formed);
}

TEST_F(FavArea, MoreThanATenthOfTheBoxMustBeShared)
{
    update(0, 0, 1000, 1000, "door"); // the box is 100 x 100 and sticks in from the left
    mid_hchd_fav_area_algo_detect(-90, 100, 10, 200, "people"); // 10 x 100
    EXPECT_THAT(broadcasts, IsEmpty());
    mid_hchd_fav_area_algo_detect(-89, 100, 11, 200, "people"); // 11 x 100
    EXPECT_THAT(broadcasts, ElementsAre("door"));
    broadcasts.clear();
    // The ratio is of the box, not of the area.
    mid_hchd_fav_area_algo_detect(-10, -10, 995, 1010, "people");
    EXPECT_THAT(broadcasts, ElementsAre("door"));
    broadcasts.clear();
    mid_hchd_fav_area_algo_detect(999, -100000, 100000, 100000, "people");
    EXPECT_THAT(broadcasts, IsEmpty());
}

TEST_F(FavArea, Overlap)
{
    const int far = INT_MAX, near = INT_MIN;
    const Pair pairs[] = {
        {at(0, 0, 100, 100), at(90, 0, 190, 100), 0}, // a tenth: not more
        {at(0, 0, 100, 100), at(89, 0, 189, 100), 1},
        {at(0, 0, 100, 100), at(-90, 0, 10, 100), 0},
        {at(0, 0, 100, 100), at(-89, 0, 11, 100), 1},
        {at(0, 0, 100, 100), at(0, 90, 100, 190), 0},
        {at(0, 0, 100, 100), at(0, 89, 100, 189), 1},
        {at(0, 0, 100, 100), at(0, -90, 100, 10), 0},
        {at(0, 0, 100, 100), at(0, -89, 100, 11), 1},
        {at(0, 0, 100, 100), at(50, 50, 350, 350), 0}, // 2500 of 90000: of b
        {at(50, 50, 350, 350), at(0, 0, 100, 100), 1}, // 2500 of 10000
        // Wholly inside, edges may touch, either way round.
        {at(0, 0, 1000, 1000), at(0, 0, 1, 1), 1},
        {at(0, 0, 1, 1), at(0, 0, 1000, 1000), 1},
        {at(0, 0, 1000, 1000), at(999, 999, 1000, 1000), 1},
        {at(999, 999, 1000, 1000), at(0, 0, 1000, 1000), 1},
        {at(10, 10, 20, 20), at(10, 10, 20, 20), 1},
        // One edge over.
        {at(-1, 5, 1, 6), at(0, 0, 1000, 1000), 0},
        {at(5, -1, 6, 1), at(0, 0, 1000, 1000), 0},
        {at(999, 5, 1001, 6), at(0, 0, 1000, 1000), 0},
        {at(5, 999, 6, 1001), at(0, 0, 1000, 1000), 0},
        // Nothing in common, or an edge only.
        {at(0, 0, 10, 10), at(10, 0, 20, 10), 0},
        {at(0, 0, 10, 10), at(0, 10, 10, 20), 0},
        {at(0, 0, 10, 10), at(20, 20, 30, 30), 0},
        {at(0, 0, 10, 10), at(20, 0, 30, 10), 0},
        {at(0, 0, 10, 10), at(0, 20, 10, 30), 0},
        // A line has no area, but lies inside.
        {at(5, 5, 5, 5), at(0, 0, 10, 10), 1},
        {at(5, 5, 5, 15), at(0, 0, 10, 10), 0},
        // Numbers that nobody draws.
        {at(near, near, far, far), at(0, 0, 1, 1), 1},
        {at(near, near, far, 0), at(near, 0, far, far), 0},
        {at(near, near, far, far - 1), at(near, near + 1, far, far), 1},
    };
    for (const Pair &pair : pairs)
        EXPECT_EQ(rect_angle_over_lap(&pair.a, &pair.b), pair.overlap) << (&pair - pairs);
}

TEST_F(FavArea, CompRegion)
{
    const struct {
        int a[4], b[4];
        float ratio;
        int result;
        const char *line;
    } cases[] = {
        {{0, 0, 100, 100}, {90, 0, 190, 100}, 0.1f, 0, "[x1,y1][y1,y2]=[90,0][100,100],area=1000"},
        {{0, 0, 100, 100}, {89, 0, 189, 100}, 0.1f, 1, "[x1,y1][y1,y2]=[89,0][100,100],area=1100"},
        {{0, 10, 100, 100}, {50, 60, 350, 360}, 0.02f, 1, "[x1,y1][y1,y2]=[50,60][100,100],area=2000"},
        {{0, 10, 100, 100}, {50, 60, 350, 360}, 0.03f, 0, "[x1,y1][y1,y2]=[50,60][100,100],area=2000"},
        {{50, 60, 350, 360}, {0, 10, 100, 100}, 0.2f, 1, "[x1,y1][y1,y2]=[50,60][100,100],area=2000"},
        {{0, 0, 10, 10},
         {2, 3, 4, 5},
         1,
         0,
         "[x1,y1][y1,y2]=[2,3][4,5],area=4"}, // inside does not count by itself
        {{0, 0, 10, 10}, {10, 0, 20, 10}, 0, 0, "area cir err"},
        {{0, 0, 10, 10}, {0, 10, 10, 20}, 0, 0, "area cir err"},
        {{0, 0, 10, 10}, {9, 9, 20, 20}, 0, 1, "[x1,y1][y1,y2]=[9,9][10,10],area=1"},
        {{0, 0, 46341, 46341},
         {0, 0, 46341, 46341},
         0.5f,
         1,
         "[x1,y1][y1,y2]=[0,0][46341,46341],area=2147483647"},
        {{0, 0, 46340, 46341},
         {0, 0, 46340, 46341},
         0.5f,
         1,
         "[x1,y1][y1,y2]=[0,0][46340,46341],area=2147441940"},
        {{INT_MIN, INT_MIN, INT_MAX, INT_MAX},
         {INT_MIN, INT_MIN, INT_MAX, INT_MAX},
         0.9f,
         1,
         "[x1,y1][y1,y2]=[-2147483648,-2147483648][2147483647,2147483647],area=2147483647"},
    };
    for (const auto &c : cases) {
        log.clear();
        EXPECT_EQ(comp_region(c.a[0], c.a[1], c.a[2], c.a[3], c.b[0], c.b[1], c.b[2], c.b[3], c.ratio),
                  c.result)
            << (&c - cases);
        EXPECT_THAT(log.lines(), ElementsAre(LogCapture::Line{NARO_LOG_INFO, c.line}));
    }
}

TEST(FavAreaValues, LargerAndSmaller)
{
    for (const auto &[a, b] : {std::pair<int, int>(1, 2), {-5, -4}, {INT_MIN, INT_MAX}, {7, 7}}) {
        EXPECT_EQ(max_value(a, b), b);
        EXPECT_EQ(max_value(b, a), b);
        EXPECT_EQ(min_value(a, b), a);
        EXPECT_EQ(min_value(b, a), a);
    }
}

// ---- Threads ----------------------------------------------------------------------------------------------

TEST_F(FavArea, ChangesWhileSomebodyLooks)
{
    naro_log_set_sink([](void *, naro_log_level, const char *) {}, nullptr);
    std::atomic<bool> end{false};
    std::thread detection([&] {
        while (!end)
            mid_hchd_fav_area_algo_detect(0, 0, 100, 100, "people");
    });
    std::vector<std::thread> people;
    for (int n = 0; n < 2; n++)
        people.emplace_back([this, n] {
            const std::string name = n == 0 ? "door" : std::string(31, 'w');
            for (int i = 0; i < 300; i++) {
                EXPECT_EQ(update(i + 1, 0, i + 50, 50, name), 0);
                EXPECT_EQ(remove(name), 2);
            }
        });
    for (std::thread &person : people)
        person.join();
    EXPECT_EQ(update(1, 2, 3, 4, "x"), 0); // the count has stayed right: this is the first place
    mid_hchd_fav_area_algo_init();
    end = true;
    detection.join();
    for (const std::string &name : broadcasts)
        EXPECT_LE(name.size(), 31u);
    EXPECT_TRUE(broadcasts_are_well_formed);
}

} // namespace
