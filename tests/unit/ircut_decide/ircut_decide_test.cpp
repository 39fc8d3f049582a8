// Every bound of the day/night decisions, both sides.
#include "ircut_decide.h"

#include <gtest/gtest.h>
#include <limits.h>
#include <string>
#include <vector>

namespace
{

// One condition: a sample on its very bounds, which holds; and each bound passed by one, alone, which does
// not. The samples are such that no other condition of the same decision holds.
struct Bound {
    const char *name;
    void (*pass)(ircut_sample *sample);
};
using Decision = bool (*)(const ircut_sample &);

void expect_bounds(const char *name, Decision decision, const ircut_sample &on_the_bounds,
                   const std::vector<Bound> &bounds)
{
    EXPECT_TRUE(decision(on_the_bounds)) << name;
    for (const Bound &bound : bounds) {
        ircut_sample sample = on_the_bounds;
        bound.pass(&sample);
        EXPECT_FALSE(decision(sample)) << name << ": " << bound.name;
    }
}

// ev, bv, expr_us, again, dgain, total_gain, rgain, bgain, gain_sum
ircut_sample sample_of(uint32_t ev, uint32_t expr_us, uint32_t again, int rgain, int bgain, int gain_sum)
{
    return {ev, 0, expr_us, again, 1024, uint64_t{again} * 1024, rgain, bgain, gain_sum};
}

const Bound EV_LESS = {"ev", [](ircut_sample *s) { s->ev--; }};
const Bound EV_MORE = {"ev", [](ircut_sample *s) { s->ev++; }};
const Bound EXPR_LESS = {"expr_us", [](ircut_sample *s) { s->expr_us--; }};
const Bound EXPR_MORE = {"expr_us", [](ircut_sample *s) { s->expr_us++; }};
const Bound AGAIN_LESS = {"again", [](ircut_sample *s) { s->again--; }};
const Bound AGAIN_MORE = {"again", [](ircut_sample *s) { s->again++; }};
const Bound RGAIN_MORE = {"rgain", [](ircut_sample *s) { s->rgain++; }};
const Bound BGAIN_MORE = {"bgain", [](ircut_sample *s) { s->bgain++; }};
const Bound SUM_LESS = {"gain_sum", [](ircut_sample *s) { s->gain_sum--; }};
const Bound SUM_MORE = {"gain_sum", [](ircut_sample *s) { s->gain_sum++; }};
const Bound BV_MORE = {"bv", [](ircut_sample *s) { s->bv++; }};

// ---- Samples ---------------------------------------------------------------------------------------------

TEST(Sample, FieldsOfTheProcessorsWords)
{
    const naro_isp_ev_attr ev = {{1, 0xFFFEE6C0u, 3, 0xFFFFFFFFu, 0xFFFFFFFFu, 6, 7}};
    const naro_isp_wb_attr wb = {{10 * 1024, -20 * 1024, 3, 4, 5, 6, 7, 8}};
    const ircut_sample s = ircut_sample_of(ev, wb);
    EXPECT_EQ(s.ev, 1u);
    EXPECT_EQ(s.bv, 0xFFFEE6C0u);
    EXPECT_EQ(s.expr_us, 3u);
    EXPECT_EQ(s.again, 0xFFFFFFFFu);
    EXPECT_EQ(s.dgain, 0xFFFFFFFFu);
    EXPECT_EQ(s.total_gain, 0xFFFFFFFE00000001u) << "64 bits";
    EXPECT_EQ(s.rgain, 10);
    EXPECT_EQ(s.bgain, -20);
    EXPECT_EQ(s.gain_sum, -10);
    const ircut_sample other = ircut_sample_of({{1, 2, 3, 40, 500, 6, 7}}, wb);
    EXPECT_EQ(other.again, 40u);
    EXPECT_EQ(other.dgain, 500u);
    EXPECT_EQ(other.total_gain, 20000u);
}

TEST(Sample, GainsAreMadeWholeTowardsZeroAndTheirSumOnce)
{
    const struct {
        int red, blue, rgain, bgain, gain_sum;
    } table[] = {
        {1023, 1023, 0, 0, 1}, // 0.999 + 0.999
        {1535, 513, 1, 0, 2},
        {-1023, -1023, 0, 0, -1},
        {-1024, -1025, -1, -1, -2},
        {-2047, 1024, -1, 1, 0},
        {512, -1536, 0, -1, -1},
        {INT_MAX, INT_MAX, 2097152, 2097152, 4194304}, // single precision rounds up
        {INT_MIN, INT_MIN, -2097152, -2097152, -4194304},
        {16777217, 0, 16384, 0, 16384},
        {-6999 * 1024 - 1023, 0, -6999, 0, -6999},
    };
    for (const auto &row : table) {
        const ircut_sample s = ircut_sample_of({}, {{row.red, row.blue, 0, 0, 0, 0, 0, 0}});
        EXPECT_EQ(s.rgain, row.rgain) << row.red;
        EXPECT_EQ(s.bgain, row.bgain) << row.blue;
        EXPECT_EQ(s.gain_sum, row.gain_sum) << row.red << " " << row.blue;
    }
}

// ---- Dark ------------------------------------------------------------------------------------------------

TEST(Dark, ModesThreeAndFive)
{
    expect_bounds("grey", ircut_dark, sample_of(3, 66666, 14500, 0, 0, -7000),
                  {EV_MORE, EXPR_LESS, AGAIN_LESS, SUM_LESS});
    expect_bounds("black", ircut_dark, sample_of(0, 95000, 0, 0, 0, -9999), {EV_MORE, EXPR_LESS});
    EXPECT_FALSE(ircut_dark(sample_of(0xFFFFFFFFu, 95000, 14500, 0, 0, 0))) << "no sign";
    EXPECT_TRUE(ircut_dark(sample_of(3, 0xFFFFFFFFu, 0xFFFFFFFFu, 0, 0, 0))) << "no sign";
}

TEST(Dark, FullColour)
{
    ircut_sample s = sample_of(10, 66666, 0, 0, 0, -9999);
    s.bv = static_cast<uint32_t>(-72000);
    EXPECT_EQ(s.bv, 0xFFFEE6C0u);
    expect_bounds("dark", ircut_dark_full_color, s, {EV_MORE, EXPR_LESS, BV_MORE});
    for (int32_t bv : {0, 1, 72000, INT_MAX, INT_MIN, -72001}) {
        s.bv = static_cast<uint32_t>(bv);
        EXPECT_TRUE(ircut_dark_full_color(s)) << bv;
    }
    for (int32_t bv : {-71999, -1}) {
        s.bv = static_cast<uint32_t>(bv);
        EXPECT_FALSE(ircut_dark_full_color(s)) << bv;
    }
}

TEST(Dark, BasicInColour)
{
    const Decision dark = [](const ircut_sample &s) { return ircut_dark_basic(s, 1); };
    ircut_sample s = sample_of(3, 0, 16000, 0, 0, -4600);
    s.bv = 0xFFFFFFFFu; // -1: fails
    expect_bounds("by the gains", dark, s, {EV_MORE, AGAIN_LESS, SUM_LESS});
    s.gain_sum = -9999;
    s.bv = static_cast<uint32_t>(-115000);
    EXPECT_EQ(s.bv, 0xFFFE3EC8u);
    expect_bounds("by bv", dark, s, {EV_MORE, AGAIN_LESS, BV_MORE});
    s.bv = 0;
    EXPECT_TRUE(dark(s)) << "what is not negative passes";
}

TEST(Dark, BasicWithoutColour)
{
    for (int full_color : {0, 2, -1}) {
        ircut_sample s = sample_of(3, 66666, 0, 0, 0, -9999);
        s.bv = 0xFFFFFFFFu;
        EXPECT_TRUE(ircut_dark_basic(s, full_color));
        EXPECT_FALSE(ircut_dark_basic(s, 1));
        s.ev++;
        EXPECT_FALSE(ircut_dark_basic(s, full_color));
        s.ev--;
        s.expr_us--;
        EXPECT_FALSE(ircut_dark_basic(s, full_color));
    }
}

// ---- Bright ----------------------------------------------------------------------------------------------

template <int mode> bool bright(const ircut_sample &s)
{
    return ircut_bright(s, mode, 0, false);
}

class BrightInInfrared : public testing::TestWithParam<Decision>
{
};

TEST_P(BrightInInfrared, Bounds)
{
    const Decision d = GetParam();
    expect_bounds("long exposure", d, sample_of(13, 50000, 13999, 0, 0, -6100),
                  {EV_LESS, EXPR_LESS, AGAIN_MORE, SUM_MORE});
    expect_bounds("strong red", d, sample_of(30, 64999, 6600, -1150, 0, 0),
                  {EV_LESS, EXPR_MORE, AGAIN_MORE, RGAIN_MORE});
    expect_bounds("strong blue", d, sample_of(30, 64999, 6600, 0, -2660, 0),
                  {EV_LESS, EXPR_MORE, AGAIN_MORE, BGAIN_MORE});
    expect_bounds("red", d, sample_of(40, 64999, 3600, -250, 0, 1801),
                  {EV_LESS, EXPR_MORE, AGAIN_MORE, RGAIN_MORE});
    expect_bounds("blue", d, sample_of(40, 64999, 3600, 0, -500, 1801),
                  {EV_LESS, EXPR_MORE, AGAIN_MORE, BGAIN_MORE});
    expect_bounds("a little red", d, sample_of(48, 64999, 4500, -100, 0, 1800),
                  {EV_LESS, EXPR_MORE, AGAIN_MORE, RGAIN_MORE, SUM_MORE});
    expect_bounds("glaring", d, sample_of(85, 65000, 1000, 0, 0, 0), {EV_LESS, AGAIN_MORE});
    EXPECT_TRUE(d(sample_of(0xFFFFFFFFu, 0, 0, 0, 0, 0))) << "no sign";
    EXPECT_FALSE(d(sample_of(85, 0, 0xFFFFFFFFu, 0, 0, 0))) << "no sign";
}

INSTANTIATE_TEST_SUITE_P(Modes, BrightInInfrared, testing::Values(bright<0>, bright<3>, bright<5>));

TEST(Bright, BasicController)
{
    const Decision d = ircut_bright_basic;
    expect_bounds("long exposure", d, sample_of(13, 50000, 12999, 0, 0, -600),
                  {EV_LESS, EXPR_LESS, AGAIN_MORE, SUM_MORE});
    expect_bounds("red", d, sample_of(40, 64999, 3500, -250, 0, 1801),
                  {EV_LESS, EXPR_MORE, AGAIN_MORE, RGAIN_MORE});
    expect_bounds("blue", d, sample_of(40, 64999, 3500, 0, -500, 1801),
                  {EV_LESS, EXPR_MORE, AGAIN_MORE, BGAIN_MORE});
    expect_bounds("a little red", d, sample_of(48, 64999, 4500, -100, 0, 1800),
                  {EV_LESS, EXPR_MORE, AGAIN_MORE, RGAIN_MORE, SUM_MORE});
    expect_bounds("glaring", d, sample_of(85, 65000, 1000, 0, 0, 0), {EV_LESS, AGAIN_MORE});
    EXPECT_FALSE(d(sample_of(30, 64999, 6600, -1150, -2660, 0))) << "it has no strong red and blue";
}

TEST(Bright, FullColour)
{
    expect_bounds("lit white", bright<4>, sample_of(50, 45000, 1849, 0, 0, -7001),
                  {EV_LESS, EXPR_MORE, AGAIN_MORE, SUM_MORE});
    expect_bounds("the other sensor", [](const ircut_sample &s) { return ircut_bright(s, 4, 0, true); },
                  sample_of(50, 50000, 1849, 0, 0, -7001), {EV_LESS, EXPR_MORE, AGAIN_MORE, SUM_MORE});
    EXPECT_TRUE(ircut_bright(sample_of(50, 45000, 1849, 0, 0, -7001), 4, 1, false))
        << "the white light is always lit when mode 4 asks";
}

TEST(Bright, SmartNeverWhileTheWhiteLedIsLit)
{
    const ircut_sample glaring = sample_of(85, 0, 0, 0, 0, 0);
    EXPECT_TRUE(ircut_bright(glaring, 5, 0, false));
    EXPECT_FALSE(ircut_bright(glaring, 5, 1, false));
    EXPECT_FALSE(ircut_bright(glaring, 5, -1, false));
    EXPECT_TRUE(ircut_bright(glaring, 3, 1, false)) << "mode 3 has no white light";
    EXPECT_TRUE(ircut_bright(glaring, 0, 1, false));
}

TEST(Bright, OtherModesNever)
{
    for (int mode : {-1, 1, 2, 6, 7})
        EXPECT_FALSE(ircut_bright(sample_of(255, 45000, 0, -9999, -9999, -9999), mode, 0, false)) << mode;
}

// ---- Reasons ---------------------------------------------------------------------------------------------

TEST(Reasons, ABitForEachCondition)
{
    EXPECT_EQ(ircut_dark_reasons(sample_of(3, 66666, 14500, 0, 0, -7000)), 1u);
    EXPECT_EQ(ircut_dark_reasons(sample_of(0, 95000, 0, 0, 0, 0)), 2u);
    EXPECT_EQ(ircut_dark_reasons(sample_of(0, 95000, 14500, 0, 0, 0)), 3u);
    EXPECT_EQ(ircut_dark_reasons(sample_of(4, 95000, 14500, 0, 0, 0)), 0u);
    EXPECT_EQ(ircut_bright_reasons(sample_of(13, 50000, 13999, 0, 0, -6100)), 1u);
    EXPECT_EQ(ircut_bright_reasons(sample_of(30, 64999, 6600, -1150, 0, 1801)), 2u);
    EXPECT_EQ(ircut_bright_reasons(sample_of(40, 64999, 3600, -250, 0, 1801)), 4u);
    EXPECT_EQ(ircut_bright_reasons(sample_of(48, 64999, 4500, -100, 0, 1800)), 8u);
    EXPECT_EQ(ircut_bright_reasons(sample_of(85, 65000, 1000, 0, 0, 0)), 16u);
    EXPECT_EQ(ircut_bright_reasons(sample_of(85, 50000, 1000, -1150, -500, -6100)), 31u);
    EXPECT_EQ(ircut_bright_reasons(sample_of(12, 50000, 13999, 0, 0, -6100)), 0u);
}

// ---- Counting --------------------------------------------------------------------------------------------

TEST(Count, InARow)
{
    EXPECT_EQ(ircut_count(0, true), 1);
    EXPECT_EQ(ircut_count(9, true), 10);
    EXPECT_EQ(ircut_count(9, false), 0);
    EXPECT_EQ(+IRCUT_DARK_COUNT, 10);
    EXPECT_EQ(+IRCUT_BRIGHT_COUNT, 10);
    EXPECT_EQ(+IRCUT_BRIGHT_COUNT_WHITE, 20);
    EXPECT_EQ(+IRCUT_BASIC_DARK_COUNT, 5);
    EXPECT_EQ(+IRCUT_BASIC_BRIGHT_COUNT, 6);
}

TEST(Level, FourInARow)
{
    const struct {
        uint32_t ev;
        ircut_level_step step;
    } bounds[] = {
        {0, IRCUT_LEVEL_UP},    {29, IRCUT_LEVEL_UP},   {30, IRCUT_LEVEL_STAY},
        {80, IRCUT_LEVEL_STAY}, {81, IRCUT_LEVEL_DOWN}, {0xFFFFFFFFu, IRCUT_LEVEL_DOWN},
    };
    for (const auto &row : bounds) {
        ircut_level_counts counts = {0, 0};
        for (int i = 0; i < 3; i++)
            EXPECT_EQ(ircut_level_look(row.ev, &counts), IRCUT_LEVEL_STAY) << row.ev;
        EXPECT_EQ(ircut_level_look(row.ev, &counts), row.step) << row.ev;
        EXPECT_EQ(counts.low, 0);
        EXPECT_EQ(counts.high, 0);
        for (int i = 0; i < 3; i++)
            EXPECT_EQ(ircut_level_look(row.ev, &counts), IRCUT_LEVEL_STAY) << row.ev << ", anew";
    }
}

TEST(Level, SamplesBetweenLeaveTheCountsAndOppositeOnesClearThem)
{
    ircut_level_counts counts = {3, 0};
    EXPECT_EQ(ircut_level_look(50, &counts), IRCUT_LEVEL_STAY);
    EXPECT_EQ(counts.low, 3);
    EXPECT_EQ(ircut_level_look(29, &counts), IRCUT_LEVEL_UP);
    counts = {3, 0};
    EXPECT_EQ(ircut_level_look(81, &counts), IRCUT_LEVEL_STAY);
    EXPECT_EQ(counts.low, 0);
    EXPECT_EQ(counts.high, 1);
    counts = {0, 3};
    EXPECT_EQ(ircut_level_look(50, &counts), IRCUT_LEVEL_STAY);
    EXPECT_EQ(counts.high, 3);
    EXPECT_EQ(ircut_level_look(29, &counts), IRCUT_LEVEL_STAY);
    EXPECT_EQ(counts.low, 1);
    EXPECT_EQ(counts.high, 0);
}

// ---- White light -----------------------------------------------------------------------------------------

TEST(WhiteLight, EveryCase)
{
    for (int now : {0, 1, 2})
        for (int seen : {0, 1})
            for (int night : {0, 1, 2})
                for (uint32_t isp_mode : {0u, 1u, 2u}) {
                    ircut_reaction expected = IRCUT_STAY;
                    if (night == 1 && now != 0 && now != seen && isp_mode == 1)
                        expected = IRCUT_TO_COLOR;
                    if (night == 1 && now == 0 && seen == 1 && isp_mode == 0)
                        expected = IRCUT_TO_INFRARED;
                    EXPECT_EQ(ircut_white_light(now, seen, night, isp_mode), expected)
                        << now << seen << night << isp_mode;
                }
}

// ---- Alarm -----------------------------------------------------------------------------------------------

TEST(Alarm, WhoIsServed)
{
    const struct {
        int mode, full_color_night, smart_night, person_light;
        alarm_verdict verdict;
    } table[] = {
        {0, 0, 0, 0, ALARM_WAITS},  {1, 0, 0, 0, ALARM_WAITS},
        {2, 0, 0, 0, ALARM_WAITS},  {6, 0, 0, 0, ALARM_WAITS},
        {7, 1, 1, 1, ALARM_WAITS},  {3, 0, 0, 0, ALARM_SERVED},
        {3, 1, 1, 1, ALARM_SERVED}, {4, 0, 1, 1, ALARM_SERVED},
        {5, 1, 0, 1, ALARM_SERVED}, {4, 1, 0, 0, ALARM_DROPPED_FULL_COLOR},
        {5, 1, 1, 0, ALARM_SERVED}, {5, 0, 1, 1, ALARM_DROPPED_SMART},
    };
    for (const auto &row : table)
        EXPECT_EQ(alarm_serve(row.mode, row.full_color_night, row.smart_night, row.person_light), row.verdict)
            << row.mode << row.full_color_night << row.smart_night << row.person_light;
}

// The LED tick by tick until the alarm ends ('1' lit, '0' dark), from the dark.
std::string light_of(int light, int duration_s, size_t limit = 100)
{
    std::string ticks;
    alarm_counts counts = {0, 0};
    int white = 0;
    while (ticks.size() < limit) {
        const alarm_tick tick = alarm_tick_of(light, duration_s, white, &counts);
        EXPECT_FALSE(tick.on && white) << "lit twice";
        if (tick.on)
            white = 1;
        if (tick.off)
            white = 0;
        ticks += white ? '1' : '0';
        if (tick.end) {
            EXPECT_EQ(counts.blink, 0u);
            EXPECT_EQ(counts.alarm, 0u);
            return ticks;
        }
    }
    return ticks + "...";
}

TEST(Alarm, Steady)
{
    EXPECT_EQ(light_of(0, 0), "1");
    EXPECT_EQ(light_of(0, 1), "111");
    EXPECT_EQ(light_of(0, 5), "11111111111");
}

TEST(Alarm, Flashing)
{
    EXPECT_EQ(light_of(1, 0), "1");
    EXPECT_EQ(light_of(1, 6), "1110110110110") << "on for 1.5 s at first, then off for 0.5 s and on for 1 s";
}

TEST(Alarm, AnyOtherLightIsDarkAndEndsToo)
{
    EXPECT_EQ(light_of(2, 1), "000");
    EXPECT_EQ(light_of(-1, 0), "0");
}

TEST(Alarm, DurationIsUnsigned)
{
    EXPECT_EQ(light_of(0, -1), std::string(100, '1') + "...");
    // 4294968 s are 704 ms in 32 bits.
    EXPECT_EQ(light_of(0, 4294968), "11");
    // Two ticks for each second, to the end.
    alarm_counts counts = {0, 0};
    for (int i = 0; i < 2 * 3600; i++)
        ASSERT_FALSE(alarm_tick_of(0, 3600, 1, &counts).end) << i;
    EXPECT_TRUE(alarm_tick_of(0, 3600, 1, &counts).end);
}

TEST(Alarm, AnLedThatShinesOrCannotBeReadIsNotLitAgain)
{
    for (int white : {1, -1})
        for (int light : {0, 1}) {
            alarm_counts counts = {0, 0};
            EXPECT_FALSE(alarm_tick_of(light, 5, white, &counts).on);
        }
}

TEST(Alarm, ATickOnTheFlashingBound)
{
    alarm_counts counts = {2, 0};
    EXPECT_FALSE(alarm_tick_of(1, 5, 1, &counts).off);
    EXPECT_EQ(counts.blink, 3u);
    EXPECT_TRUE(alarm_tick_of(1, 5, 1, &counts).off);
    EXPECT_EQ(counts.blink, 1u);
    counts = {3, 0};
    const alarm_tick dark = alarm_tick_of(1, 5, 0, &counts);
    EXPECT_TRUE(dark.on && dark.off) << "lit and put out in one tick";
    counts = {3, 0};
    EXPECT_FALSE(alarm_tick_of(0, 5, 1, &counts).off) << "steady";
    EXPECT_EQ(counts.blink, 4u);
}

} // namespace
