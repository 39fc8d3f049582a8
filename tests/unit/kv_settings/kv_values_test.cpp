// What the texts of the settings mean: every value, every bound.
#include "kv_values.h"

#include <limits.h>
#include <stdio.h>
#include <string.h>
#include <string>
#include <vector>

#include <gmock/gmock.h>

using testing::ElementsAre;
using testing::ElementsAreArray;

namespace
{

using Numbers = std::vector<int>;

TEST(KvValues, NumbersAreReadAsAtoiReadsThem)
{
    EXPECT_EQ(kv_value_int("0"), 0);
    EXPECT_EQ(kv_value_int("42"), 42);
    EXPECT_EQ(kv_value_int("-42"), -42);
    EXPECT_EQ(kv_value_int("+7"), 7);
    EXPECT_EQ(kv_value_int(" \t\n 5"), 5);
    EXPECT_EQ(kv_value_int("5 6"), 5);
    EXPECT_EQ(kv_value_int("12abc"), 12);
    EXPECT_EQ(kv_value_int("010"), 10) << "always decimal";
    EXPECT_EQ(kv_value_int("0x10"), 0);
    EXPECT_EQ(kv_value_int("3.9"), 3);
    for (const char *text : {"", " ", "-", "+", "abc", "--5", "- 5", "\x80\xff", "\"1\""})
        EXPECT_EQ(kv_value_int(text), 0) << text;
}

TEST(KvValues, NumbersThatDoNotFitAreTheNearestOnesOnAnyMachine)
{
    EXPECT_EQ(kv_value_int("2147483647"), INT_MAX);
    EXPECT_EQ(kv_value_int("2147483648"), INT_MAX);
    EXPECT_EQ(kv_value_int("4294967297"), INT_MAX) << "not 1, which is left of it in 32 bits";
    EXPECT_EQ(kv_value_int("9223372036854775808"), INT_MAX);
    EXPECT_EQ(kv_value_int(std::string(100000, '9').c_str()), INT_MAX);
    EXPECT_EQ(kv_value_int("-2147483648"), INT_MIN);
    EXPECT_EQ(kv_value_int("-2147483649"), INT_MIN);
    EXPECT_EQ(kv_value_int(("-" + std::string(100000, '9')).c_str()), INT_MIN);
}

TEST(KvValues, Digit)
{
    for (int digit = 0; digit <= 9; digit++) {
        EXPECT_EQ(kv_value_digit(std::to_string(digit).c_str()), digit);
        EXPECT_EQ(kv_value_digit((std::to_string(digit) + "7 and more").c_str()), digit);
    }
    // The neighbours of '0' and '9', and others.
    for (const char *text : {"", "/", ":", "-1", " 1", "a", "\xb1", "\xff"})
        EXPECT_EQ(kv_value_digit(text), -1) << text;
}

TEST(KvValues, WholeSwitch)
{
    EXPECT_EQ(kv_value_switch("on"), KV_ON);
    EXPECT_EQ(kv_value_switch("off"), KV_OFF);
    for (const char *text : {"", "o", "of", "onn", "offf", "on ", " on", "ON", "Off", "1", "on\n", "\"on\""})
        EXPECT_EQ(kv_value_switch(text), KV_NEITHER) << text;
}

TEST(KvValues, SwitchByItsBeginning)
{
    for (const char *text : {"on", "one", "on\n", "on off"})
        EXPECT_EQ(kv_value_switch_prefix(text), KV_ON) << text;
    for (const char *text : {"off", "offline", "off\n"})
        EXPECT_EQ(kv_value_switch_prefix(text), KV_OFF) << text;
    for (const char *text : {"", "o", "of", "ofx", " on", "ON", "OFF", "1", "xon"})
        EXPECT_EQ(kv_value_switch_prefix(text), KV_NEITHER) << text;
}

TEST(KvValues, SensitivityOfEveryNumber)
{
    for (int number = -3; number <= 300; number++) {
        int level = -1;
        if (number == 1 || number == 20 || number == 40)
            level = 0;
        if (number == 2 || number == 60)
            level = 1;
        if (number == 3 || number == 80 || number == 100)
            level = 2;
        EXPECT_EQ(kv_value_sensitivity(number), level) << number;
    }
    EXPECT_EQ(kv_value_sensitivity(INT_MAX), -1);
    EXPECT_EQ(kv_value_sensitivity(INT_MIN), -1);
}

std::string list_of(const std::string &digits)
{
    std::string text = "[";
    for (const char digit : digits)
        text += std::string(1, digit) + ",";
    text.back() = ']';
    return text;
}

Numbers motion_list(const std::string &text)
{
    Numbers list(KV_MOTION_CELLS, 99);
    const int count = kv_value_motion_list(text.c_str(), list.data());
    if (count == -1)
        return {-100};
    EXPECT_EQ(Numbers(list.begin() + count, list.end()),
              Numbers(list.size() - static_cast<size_t>(count), 99));
    list.resize(static_cast<size_t>(count));
    return list;
}

TEST(KvValues, MotionList)
{
    EXPECT_EQ(list_of(std::string(32, '1')).size(), 65u);
    EXPECT_EQ(motion_list(list_of(std::string(32, '1'))), Numbers(32, 0));
    Numbers wanted;
    std::string digits;
    for (int i = 0; i < 32; i++) {
        digits += static_cast<char>('0' + i % 4);
        wanted.push_back(i % 4 - 1);
    }
    EXPECT_EQ(motion_list(list_of(digits)), wanted);
}

TEST(KvValues, MotionListSeparatorsDoNotMatter)
{
    std::string text = list_of(std::string(31, '2') + "3");
    for (size_t i = 0; i < text.size(); i += 2)
        text[i] = '\xff';
    Numbers wanted(31, 1);
    wanted.push_back(2);
    EXPECT_EQ(motion_list(text), wanted);
}

TEST(KvValues, MotionListEndsAtTheFirstOtherCharacter)
{
    for (const char other : {'/', '4', '9', 'x', ' ', '\xb1'}) {
        for (const size_t at : {0u, 1u, 15u, 31u}) {
            std::string digits(32, '1');
            digits[at] = other;
            EXPECT_EQ(motion_list(list_of(digits)), Numbers(at, 0)) << other << at;
        }
    }
}

TEST(KvValues, MotionListOfAnotherLength)
{
    const std::string text = list_of(std::string(32, '1'));
    for (const std::string &other : {std::string(), std::string("1"), text.substr(0, 64), text + "]",
                                     list_of(std::string(31, '1')), list_of(std::string(33, '1'))})
        EXPECT_THAT(motion_list(other), ElementsAre(-100)) << other;
}

struct Read {
    int count;
    Numbers numbers;
};
Read numbers(const char *text, const char *pattern, int count)
{
    Read read = {0, Numbers(static_cast<size_t>(count), 77)};
    read.count = kv_value_numbers(text, pattern, read.numbers.data(), count);
    return read;
}

TEST(KvValues, NumbersBetweenFixedCharacters)
{
    const Read read = numbers("[12,-34]", "[#,#]", 2);
    EXPECT_EQ(read.count, 2);
    EXPECT_THAT(read.numbers, ElementsAre(12, -34));
    EXPECT_THAT(numbers("10-20-30-40", "#-#-#-#", 4).numbers, ElementsAre(10, 20, 30, 40));
    EXPECT_THAT(numbers("99999999999-1-2-3", "#-#-#-#", 4).numbers, ElementsAre(INT_MAX, 1, 2, 3));
}

// As the C library's formatted reading does, for everything that fits into an int.
TEST(KvValues, NumbersEndWhereScanningEnds)
{
    for (const char *text : {"",        "[",         "[]",
                             "[,]",     "[1",        "[1,",
                             "[1]",     "[1,2",      "[1,2]",
                             "[1,2]x",  "[1;2]",     "1,2",
                             " [1,2]",  "[ 1,2]",    "[1 ,2]",
                             "[1, 2]",  "[1,\n2]",   "[-1,-2]",
                             "[+1,+2]", "[1,x]",     "[x,2]",
                             "[--1,2]", "{1,2}",     "[1,,2]",
                             "[0x1,2]", "\"[1,2]\"", "[2147483647,-2147483648]",
                             "abc"}) {
        int h = 0, v = 0;
        const int count = sscanf(text, "[%d,%d]", &h, &v);
        const Read read = numbers(text, "[#,#]", 2);
        EXPECT_THAT(read.numbers, ElementsAre(h, v)) << text;
        EXPECT_EQ(read.count, count < 0 ? 0 : count) << text;
    }
    for (const char *text :
         {"", "-", "1", "1-", "1-2", "1-2-3", "1-2-3-4", "1-2-3-4-5", "1--2-3-4", "-1--2--3--4", "1 -2-3-4",
          "1- 2-3-4", " 1-2-3-4", "1,2,3,4", "1-2-x-4", "(1-2-3-4)", "1-2-3-4\n"}) {
        int n[4] = {};
        const int count = sscanf(text, "%d-%d-%d-%d", &n[0], &n[1], &n[2], &n[3]);
        const Read read = numbers(text, "#-#-#-#", 4);
        EXPECT_THAT(read.numbers, ElementsAreArray(n)) << text;
        EXPECT_EQ(read.count, count < 0 ? 0 : count) << text;
    }
}

TEST(KvValues, NoMoreNumbersThanThereIsRoomFor)
{
    const Read read = numbers("1-2-3", "#-#-#", 2);
    EXPECT_EQ(read.count, 2);
    EXPECT_THAT(read.numbers, ElementsAre(1, 2));
}

Numbers alarm_numbers(std::string text)
{
    Numbers words(KV_ALARM_NUMBERS + 1, 77);
    kv_value_alarm(text.data(), words.data());
    EXPECT_EQ(words.back(), 77) << "no more than there is room for";
    words.pop_back();
    return words;
}

TEST(KvValues, Alarm)
{
    EXPECT_THAT(alarm_numbers("1-0-30"), ElementsAre(1, 0, 30));
    EXPECT_THAT(alarm_numbers("1-1"), ElementsAre(1, 1, 0));
    EXPECT_THAT(alarm_numbers("9"), ElementsAre(9, 0, 0));
    EXPECT_THAT(alarm_numbers(""), ElementsAre(0, 0, 0));
    EXPECT_THAT(alarm_numbers("---"), ElementsAre(0, 0, 0));
    EXPECT_THAT(alarm_numbers("1-2-3-4-5"), ElementsAre(1, 2, 3)) << "three at most";
    EXPECT_THAT(alarm_numbers("1--2---3"), ElementsAre(1, 2, 3)) << "several separators are one";
    EXPECT_THAT(alarm_numbers("-1-2"), ElementsAre(1, 2, 0)) << "so nothing is negative";
    EXPECT_THAT(alarm_numbers("1- -3"), ElementsAre(1, 0, 3)) << "a piece ends at its separator";
    EXPECT_THAT(alarm_numbers("x-2y-z"), ElementsAre(0, 2, 0));
    EXPECT_THAT(alarm_numbers("99999999999-1-4294967297"), ElementsAre(INT_MAX, 1, INT_MAX));
}

} // namespace
