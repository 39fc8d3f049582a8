// What is a request, and what is not.
#include "motor_request.h"

#include <gtest/gtest.h>
#include <string.h>
#include <string>

namespace
{

bool parse(const std::string &text, motor_request *request)
{
    return motor_request_parse(text.c_str(), text.size() + 1, request);
}

TEST(MotorRequest, SaysDegreesAndNumber)
{
    motor_request request = {};
    ASSERT_TRUE(parse("[12,-7,35]", &request));
    EXPECT_EQ(request.h, 12);
    EXPECT_EQ(request.v, -7);
    EXPECT_EQ(request.sequence, 35);
    ASSERT_TRUE(parse("[-360,360,2147483647]", &request));
    EXPECT_EQ(request.h, -360);
    EXPECT_EQ(request.v, 360);
    EXPECT_EQ(request.sequence, 2147483647);
    ASSERT_TRUE(parse("[0,0,-2147483648]", &request)) << "the daemon's count has run over";
    EXPECT_EQ(request.sequence, -2147483648LL);
    ASSERT_TRUE(parse("[0010,-0,4294967295]", &request));
    EXPECT_EQ(request.h, 10);
    EXPECT_EQ(request.v, 0);
    EXPECT_TRUE(parse("[1,2,999999999999999]", &request));
}

TEST(MotorRequest, AnythingElseIsNone)
{
    for (const char *text : {"",
                             "[",
                             "[]",
                             "[1]",
                             "[1,2]",
                             "[1,2,3",
                             "1,2,3]",
                             "[1,2,3]x",
                             "[1,2,3] ",
                             " [1,2,3]",
                             "[ 1,2,3]",
                             "[1 ,2,3]",
                             "[+1,2,3]",
                             "[1.0,2,3]",
                             "[--1,2,3]",
                             "[-,2,3]",
                             "[1,,3]",
                             "[1,2,]",
                             "[1,2,3,4]",
                             "[a,2,3]",
                             "[1;2,3]",
                             "[1,2;3]",
                             "{1,2,3}",
                             "[1,2,3}",
                             "[361,2,3]",
                             "[-361,2,3]",
                             "[1,361,3]",
                             "[1,-361,3]",
                             "[99999999999999999999,1,1]",
                             "[1,2,1000000000000000]",
                             "[1,2,3]\n",
                             "[0x1,2,3]"}) {
        motor_request request = {7, 8, 9};
        EXPECT_FALSE(parse(text, &request)) << text;
        EXPECT_EQ(request.h, 7);
        EXPECT_EQ(request.v, 8);
        EXPECT_EQ(request.sequence, 9);
    }
}

TEST(MotorRequest, WithoutAnEndIsNone)
{
    motor_request request = {};
    const std::string text = "[1,2,3]";
    EXPECT_FALSE(motor_request_parse(text.data(), text.size(), &request))
        << "the zero is not among the bytes";
    EXPECT_FALSE(motor_request_parse(text.data(), 0, &request));
    EXPECT_TRUE(motor_request_parse(text.c_str(), text.size() + 1, &request));
    char bytes[32];
    memset(bytes, '1', sizeof bytes);
    bytes[0] = '[';
    EXPECT_FALSE(motor_request_parse(bytes, sizeof bytes, &request));
    const char after[] = "[1,2,3]\0rubbish";
    EXPECT_TRUE(motor_request_parse(after, sizeof after, &request))
        << "what lies behind the end does not count";
}

} // namespace
