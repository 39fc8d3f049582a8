// What every implementation of the JSON readers owes to its callers.
#include <gtest/gtest.h>
#include <limits.h>
#include <string.h>
#include <string>

#include "heap_use.h"
#include "naro_util.h"

namespace
{

constexpr int UNTOUCHED = -777;

TEST(json_verify_get_int, reads_a_member)
{
    const struct {
        const char *json;
        int expected;
    } cases[] = {
        {R"({"x":12})", 12},
        {R"({"x":0})", 0},
        {R"({"x":-5})", -5},
        {R"({ "a" : [1,{"x":1}], "x" : 7 , "b" : "8" })", 7},
        {" \r\n\t{\"x\":3} \r\n\t", 3},
        {R"({"x":1,"x":2})", 2}, // the later one counts
        {R"({"x":2147483647})", INT_MAX},
        {R"({"x":-2147483648})", INT_MIN},
        {R"({"x":12.0})", 12}, // numbers with a fraction lose it
        {R"({"x":12.9})", 12},
        {R"({"x":-12.9})", -12},
        {R"({"x":1.5e3})", 1500},
        {R"({"x":2147483647.9})", INT_MAX},
        {R"({"x":-2147483648.9})", INT_MIN},
    };
    for (const auto &c : cases) {
        int out = UNTOUCHED;
        EXPECT_EQ(json_verify_get_int(c.json, "x", &out), 0) << c.json;
        EXPECT_EQ(out, c.expected) << c.json;
    }
}

TEST(json_verify_get_int, leaves_the_result_alone_on_failure)
{
    const char *const cases[] = {// no such member
                                 R"({})", R"({"X":1})", R"({"y":1})", R"({"a":{"x":1}})",
                                 // not a number
                                 R"({"x":"12"})", R"({"x":null})", R"({"x":true})", R"({"x":[1]})",
                                 R"({"x":{"x":1}})", R"({"x":NaN})", R"({"x":Infinity})",
                                 // outside 32 bits
                                 R"({"x":2147483648})", R"({"x":-2147483649})",
                                 R"({"x":9223372036854775807})", R"({"x":99999999999999999999999})",
                                 R"({"x":-99999999999999999999999})", R"({"x":2147483648.0})",
                                 R"({"x":-2147483649.0})", R"({"x":1e300})", R"({"x":1e999})",
                                 // not an object
                                 R"([{"x":1}])", R"("x")", "12", "null",
                                 // not JSON
                                 "", " ", "x", R"({"x":12)", R"({"x":})", R"({"x":12},)", R"({"x":12} y)",
                                 R"({"x":12}{"x":13})", R"({"x":12,})", R"({x:12})", "\xFF\xFE"};
    for (const char *json : cases) {
        int out = UNTOUCHED;
        EXPECT_EQ(json_verify_get_int(json, "x", &out), -1) << json;
        EXPECT_EQ(out, UNTOUCHED) << json;
    }
}

TEST(json_verify_get_int, takes_null_pointers)
{
    int out = UNTOUCHED;
    EXPECT_EQ(json_verify_get_int(nullptr, "x", &out), -1);
    EXPECT_EQ(json_verify_get_int(R"({"x":1})", nullptr, &out), -1);
    EXPECT_EQ(json_verify_get_int(R"({"x":1})", "x", nullptr), -1);
    EXPECT_EQ(json_verify_get_int(R"({"x":1.5})", "x", nullptr), -1);
    EXPECT_EQ(out, UNTOUCHED);
}

TEST(json_verify_get_int, survives_any_depth)
{
    int out = UNTOUCHED;
    std::string bomb = R"({"x":1,"a":)";
    bomb += std::string(1000000, '[');
    EXPECT_EQ(json_verify_get_int(bomb.c_str(), "x", &out), -1);
    bomb += std::string(1000000, ']') + "}";
    EXPECT_EQ(json_verify_get_int(bomb.c_str(), "x", &out), -1);
    EXPECT_EQ(out, UNTOUCHED);
}

TEST(json_verify_get_int, takes_32_levels_and_no_more)
{
    const auto nested = [](size_t levels) {
        return R"({"a":)" + std::string(levels - 1, '[') + std::string(levels - 1, ']') + R"(,"x":1})";
    };
    int out = UNTOUCHED;
    EXPECT_EQ(json_verify_get_int(nested(33).c_str(), "x", &out), -1);
    EXPECT_EQ(out, UNTOUCHED);
    EXPECT_EQ(json_verify_get_int(nested(32).c_str(), "x", &out), 0);
    EXPECT_EQ(out, 1);
}

// The result and what is in the buffer, whose other bytes must be left alone.
struct Text {
    int result;
    std::string text;
    bool operator==(const Text &other) const { return result == other.result && text == other.text; }
};
std::ostream &operator<<(std::ostream &stream, const Text &text)
{
    return stream << text.result << " '" << text.text << "'";
}

Text get(const std::string &json, int size, const char *name = "x")
{
    char buf[80];
    memset(buf, '#', sizeof buf);
    const int result = json_verify_get_string(json.c_str(), name, buf, size);
    const size_t length = strnlen(buf, sizeof buf);
    EXPECT_LT(length, static_cast<size_t>(size)) << json << ": not terminated inside the buffer";
    for (size_t i = length + 1; i < sizeof buf; i++)
        EXPECT_EQ(buf[i], '#') << json << ": byte " << i << " written";
    return {result, std::string(buf, length)};
}

TEST(json_verify_get_string, reads_a_member)
{
    EXPECT_EQ(get(R"({"x":"door"})", 32), (Text{0, "door"}));
    EXPECT_EQ(get(R"({"x":""})", 32), (Text{0, ""}));
    EXPECT_EQ(get(R"({"x":"a\"\\\/\n\u00e9\ud83d\ude00"})", 32),
              (Text{0, "a\"\\/\n\xC3\xA9\xF0\x9F\x98\x80"}));
    EXPECT_EQ(get("{\"x\":\"\xE9\x97\xA8\"}", 32), (Text{0, "\xE9\x97\xA8"}));
    EXPECT_EQ(get(R"({"x":"before\u0000after"})", 32), (Text{0, "before"}));
    EXPECT_EQ(get(R"({"y":"no","x":"yes"})", 32), (Text{0, "yes"}));
    EXPECT_EQ(get(R"({"y":"no","x":"yes"})", 32, "y"), (Text{0, "no"}));
}

TEST(json_verify_get_string, cuts_at_the_buffers_end)
{
    const std::string digits = R"({"x":"0123456789"})";
    EXPECT_EQ(get(digits, 12), (Text{0, "0123456789"}));
    EXPECT_EQ(get(digits, 11), (Text{0, "0123456789"}));
    EXPECT_EQ(get(digits, 10), (Text{0, "012345678"}));
    EXPECT_EQ(get(digits, 2), (Text{0, "0"}));
    EXPECT_EQ(get(digits, 1), (Text{0, ""}));
}

TEST(json_verify_get_string, cuts_between_characters)
{
    const std::string two = "{\"x\":\"ab\xC3\xA9zz\"}";
    EXPECT_EQ(get(two, 7), (Text{0, "ab\xC3\xA9zz"}));
    EXPECT_EQ(get(two, 6), (Text{0, "ab\xC3\xA9z"}));
    EXPECT_EQ(get(two, 5), (Text{0, "ab\xC3\xA9"}));
    EXPECT_EQ(get(two, 4), (Text{0, "ab"}));
    EXPECT_EQ(get(two, 3), (Text{0, "ab"}));
    const std::string three = "{\"x\":\"a\xE9\x97\xA8z\"}";
    EXPECT_EQ(get(three, 5), (Text{0, "a\xE9\x97\xA8"}));
    EXPECT_EQ(get(three, 4), (Text{0, "a"}));
    EXPECT_EQ(get(three, 3), (Text{0, "a"}));
    const std::string four = "{\"x\":\"a\xF0\x9F\x98\x80z\"}";
    EXPECT_EQ(get(four, 6), (Text{0, "a\xF0\x9F\x98\x80"}));
    EXPECT_EQ(get(four, 5), (Text{0, "a"}));
    EXPECT_EQ(get(four, 3), (Text{0, "a"}));
    // Only one character, and no room for it.
    EXPECT_EQ(get("{\"x\":\"\xF0\x9F\x98\x80\"}", 4), (Text{0, ""}));
}

TEST(json_verify_get_string, text_that_is_not_utf8_is_cut_where_it_must)
{
    // Continuation bytes without a beginning: a boundary is nowhere, and nothing must be thrown away for it.
    const std::string stray = "{\"x\":\"ab\x80\x81\x82\x83\x84\x85\"}";
    EXPECT_EQ(get(stray, 8), (Text{0, "ab\x80\x81\x82\x83\x84"}));
    EXPECT_EQ(get(stray, 7), (Text{0, "ab\x80\x81\x82\x83"}));
    const std::string at_start = "{\"x\":\"\x80\x81\x82\x83\"}";
    EXPECT_EQ(get(at_start, 2), (Text{0, "\x80"}));
    EXPECT_EQ(get(at_start, 3), (Text{0, "\x80\x81"}));
    EXPECT_EQ(get(at_start, 4), (Text{0, "\x80\x81\x82"}));
    // One more than a character can have.
    EXPECT_EQ(get("{\"x\":\"\xF0\x80\x81\x82\x83\"}", 5), (Text{0, "\xF0\x80\x81\x82"}));
}

TEST(json_verify_get_string, an_empty_text_on_failure)
{
    for (const char *json : {R"({})", R"({"y":"text"})", R"({"x":12})", R"({"x":null})", R"({"x":true})",
                             R"({"x":["text"]})", R"({"x":{"x":"text"}})", R"(["x","text"])", "",
                             R"({"x":"text")", R"({"x":"text)", R"({"x":"text"} y)"})
        EXPECT_EQ(get(json, 32), (Text{-1, ""})) << json;
}

TEST(json_verify_get_string, takes_null_pointers_and_no_room)
{
    char buf[4] = "abc";
    EXPECT_EQ(json_verify_get_string(R"({"x":"text"})", "x", buf, 0), -1);
    EXPECT_EQ(json_verify_get_string(R"({"x":"text"})", "x", buf, -1), -1);
    EXPECT_STREQ(buf, "abc");
    EXPECT_EQ(json_verify_get_string(R"({"x":"text"})", "x", nullptr, 4), -1);
    EXPECT_EQ(json_verify_get_string(nullptr, "x", buf, 4), -1);
    EXPECT_STREQ(buf, "");
    strcpy(buf, "abc");
    EXPECT_EQ(json_verify_get_string(R"({"x":"text"})", nullptr, buf, 4), -1);
    EXPECT_STREQ(buf, "");
}

TEST(json_verify, keeps_no_memory)
{
    for (const char *json : {R"({"x":1})", R"({"x":"text"})", R"([1])", R"({"x":)", R"({"x":1} y)"}) {
        const size_t leaked = leaked_bytes([&] {
            int number = 0;
            char text[8];
            json_verify_get_int(json, "x", &number);
            json_verify_get_string(json, "x", text, sizeof text);
        });
        EXPECT_EQ(leaked, 0u) << json;
    }
}

} // namespace
