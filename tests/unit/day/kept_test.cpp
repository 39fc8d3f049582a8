// The figures that docs/light.md shows are those of this code: some of its rows, run again.
#include <gtest/gtest.h>
#include <json.h>
#include <string.h>

#include "day.h"
#include "quick_root.h"

namespace
{

struct Row {
    const char *day;
    int mode;
    double reflectance;
};
std::ostream &operator<<(std::ostream &out, const Row &row)
{
    return out << row.day << " " << row.mode << " " << row.reflectance;
}

// The kept run of a row; null where there is none.
json_object *kept_run(json_object *kept, const Row &row)
{
    json_object *runs = json_object_object_get(kept, "runs");
    for (size_t i = 0; i < json_object_array_length(runs); i++) {
        json_object *one = json_object_array_get_idx(runs, i);
        if (strcmp(json_object_get_string(json_object_object_get(one, "day")), row.day) == 0 &&
            json_object_get_int(json_object_object_get(one, "mode")) == row.mode &&
            json_object_get_double(json_object_object_get(one, "reflectance")) == row.reflectance &&
            !json_object_object_get(one, "constant") && !json_object_object_get(one, "distance_m") &&
            !json_object_object_get(one, "seed"))
            return one;
    }
    return nullptr;
}

day_result run(const Row &row)
{
    quick_root();
    day_light light;
    for (int i = 0; i < DAY_KINDS; i++)
        if (strcmp(row.day, day_kinds[i].name) == 0)
            day_kinds[i].make(&light, 0);
    day_settings settings = {};
    settings.light = &light;
    settings.mode = row.mode;
    settings.room.reflectance = row.reflectance;
    day_result result;
    EXPECT_TRUE(day_run(&settings, &result));
    return result;
}

void expect_kept(const Row &row, const day_result &result)
{
    json_object *kept = json_object_from_file(NARO_KEPT_DAYS);
    ASSERT_TRUE(kept) << NARO_KEPT_DAYS;
    json_object *one = kept_run(kept, row);
    ASSERT_TRUE(one);
    int64_t to_night = 0, to_day = 0;
    for (const day_switch &now : result.switches)
        (now.to_night ? to_night : to_day)++;
    const auto figure = [&](const char *name) {
        return json_object_get_int64(json_object_object_get(one, name));
    };
    EXPECT_EQ(to_night, figure("to_night"));
    EXPECT_EQ(to_day, figure("to_day"));
    EXPECT_EQ(result.pulses, static_cast<uint64_t>(figure("pulses")));
    EXPECT_EQ(result.moves, static_cast<uint64_t>(figure("moves")));
    EXPECT_EQ(result.breaches, 0u);
    // Another machine's logarithm may round a sample to the other side of a bound.
    EXPECT_NEAR(result.night_s, static_cast<double>(figure("night_s")), 2);
    EXPECT_NEAR(result.wrong_night_s, static_cast<double>(figure("wrong_night_s")), 2);
    EXPECT_NEAR(result.wrong_day_s, static_cast<double>(figure("wrong_day_s")), 2);
    json_object_put(kept);
}

class Kept : public testing::TestWithParam<Row>
{
};

TEST_P(Kept, IsReproduced)
{
    expect_kept(GetParam(), run(GetParam()));
}

INSTANTIATE_TEST_SUITE_P(Rows, Kept,
                         testing::Values(Row{"clear", 3, 0.05}, Row{"clear", 3, 0.95}, Row{"clear", 4, 0.05},
                                         Row{"clouds", 3, 0.4}, Row{"headlights", 4, 0.4},
                                         Row{"traffic", 3, 0.4}, Row{"visitors", 5, 0.4}));

// Morning and evening, and nothing else: a switch more on the clear day is a defect, wherever it comes from.
class ClearDay : public testing::TestWithParam<int>
{
};

TEST_P(ClearDay, HasOneEveningAndOneMorning)
{
    const Row row = {"clear", GetParam(), 0.4};
    const day_result result = run(row);
    expect_kept(row, result);
    ASSERT_EQ(result.switches.size(), 2u);
    EXPECT_TRUE(result.switches[0].to_night);
    EXPECT_FALSE(result.switches[1].to_night);
    EXPECT_EQ(result.wrong_night_s + result.wrong_day_s, 0);
    EXPECT_EQ(result.breaches, 0u);
    const bool infrared = GetParam() != 4;
    EXPECT_EQ(result.moves, infrared ? 2u : 0u) << "full colour leaves the filter alone";
    // The start and the entry of the mode drive the coil too; a start in mode 5 enters nothing.
    EXPECT_EQ(result.pulses, result.moves + (GetParam() == 5 ? 1 : 2));
}

INSTANTIATE_TEST_SUITE_P(Modes, ClearDay, testing::Values(0, 3, 4, 5));

} // namespace
