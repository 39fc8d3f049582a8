// The contract of otrpc.h, through the public header alone: a table that is found by its name, calls,
// answers, stop and restart. Another platform's library can be held to it.
#include "otrpc.h"

#include <errno.h>
#include <pthread.h>
#include <sched.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>

#include "isolate.h"

namespace
{

const std::string root = scratch_root();

std::atomic<int> calls{0}, at_once{0}, most_at_once{0};
std::atomic<bool> arguments_null{true}, hold{false}, inside{false};

int count(void *a, void *b, void *c)
{
    arguments_null = arguments_null && !a && !b && !c;
    const int now = ++at_once;
    if (now > most_at_once)
        most_at_once = now;
    sched_yield();
    at_once--;
    return ++calls;
}
int minus_five(void *, void *, void *)
{
    return -5;
}
int wait_inside(void *, void *, void *)
{
    inside = true;
    while (hold)
        sched_yield();
    inside = false;
    return 7;
}

class Otrpc : public testing::Test
{
  protected:
    void SetUp() override { ASSERT_EQ(otrpc_start(), 0); }
    void TearDown() override
    {
        hold = false;
        otrpc_stop();
    }
    static int call(const std::string &method, int *result, int timeout_ms = 10000)
    {
        return otrpc_call(method.c_str(), timeout_ms, result);
    }
    int result = -1;
};

} // namespace

extern "C" const otrpc_row otrpc_table[] = {
    {"count", count, {nullptr, nullptr}},
    {"minus_five", minus_five, {nullptr, nullptr}},
    {"wait_inside", wait_inside, {nullptr, nullptr}},
    {"a_name_of_sixty_three_characters_which_is_as_long_as_one_may_be", minus_five, {nullptr, nullptr}},
    {nullptr, nullptr, {nullptr, nullptr}},
    {"beyond_the_end", count, {nullptr, nullptr}},
};

namespace
{

TEST_F(Otrpc, AMethodIsCalledByItsNameAndItsResultComesBack)
{
    const int before = calls;
    EXPECT_EQ(call("count", &result), 0);
    EXPECT_EQ(result, before + 1);
    EXPECT_EQ(call("count", &result), 0);
    EXPECT_EQ(result, before + 2);
    EXPECT_EQ(call("minus_five", &result), 0);
    EXPECT_EQ(result, -5);
    EXPECT_EQ(call("a_name_of_sixty_three_characters_which_is_as_long_as_one_may_be", &result), 0);
    EXPECT_TRUE(arguments_null);
}

TEST_F(Otrpc, AnUnknownMethod)
{
    const int before = calls;
    for (const char *method : {"nothing", "coun", "count_", "COUNT", "beyond_the_end"})
        EXPECT_EQ(call(method, &result), -ENOSYS) << method;
    EXPECT_EQ(calls, before);
    EXPECT_EQ(call("count", &result), 0);
}

TEST_F(Otrpc, WhatIsNoMethodsName)
{
    for (const std::string &method : {std::string(), std::string("sd umount"), std::string("caf\xc3\xa9"),
                                      std::string("../x"), std::string(64, 'a'), std::string(100000, 'a')})
        EXPECT_EQ(call(method, &result), -EINVAL) << method.substr(0, 80);
}

TEST_F(Otrpc, NobodyIsThere)
{
    otrpc_stop();
    EXPECT_EQ(call("count", &result), -ENOENT);
}

TEST_F(Otrpc, StopAndRestart)
{
    for (int i = 0; i < 20; i++) {
        otrpc_stop();
        ASSERT_EQ(otrpc_start(), 0);
        EXPECT_EQ(call("minus_five", &result), 0);
    }
}

TEST_F(Otrpc, StartingTwiceAndStoppingTwice)
{
    EXPECT_EQ(otrpc_start(), 0);
    EXPECT_EQ(call("minus_five", &result), 0);
    otrpc_stop();
    otrpc_stop();
    EXPECT_EQ(call("minus_five", &result), -ENOENT);
}

TEST_F(Otrpc, AHandlerThatTakesLongerThanTheCallerWaits)
{
    hold = true;
    EXPECT_EQ(call("wait_inside", &result, 20), -ETIMEDOUT);
    hold = false;
    EXPECT_EQ(call("wait_inside", &result), 0);
    EXPECT_EQ(result, 7);
    hold = true;
    EXPECT_EQ(call("wait_inside", &result, 0), -ETIMEDOUT) << "none is not forever";
}

TEST_F(Otrpc, StopWaitsForTheHandler)
{
    hold = true;
    std::thread caller([this] { call("wait_inside", &result); });
    while (!inside)
        sched_yield();
    std::thread later([] { hold = false; });
    otrpc_stop();
    EXPECT_FALSE(inside);
    later.join();
    caller.join();
}

TEST_F(Otrpc, ManyCallersAreServedOneAtATime)
{
    const int before = calls;
    most_at_once = 0;
    std::atomic<int> answered{0};
    std::vector<std::thread> callers;
    for (int n = 0; n < 4; n++)
        callers.emplace_back([&answered] {
            int own;
            for (int i = 0; i < 25; i++)
                answered += otrpc_call("count", 10000, &own) == 0;
        });
    for (std::thread &caller : callers)
        caller.join();
    EXPECT_EQ(answered, 100);
    EXPECT_EQ(calls, before + 100);
    EXPECT_EQ(most_at_once, 1);
}

} // namespace
