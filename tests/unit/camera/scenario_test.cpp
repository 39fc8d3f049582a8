// Scenario files: what they may say, what is told when they say something else, and when a rule acts.
#include "scenario.h"

#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>

#include "isolate.h"
#include "log_capture.h"

namespace
{

using testing::HasSubstr;
using testing::StartsWith;

scenario parse(const std::string &text)
{
    scenario script;
    char error[512] = "";
    EXPECT_EQ(scenario_parse(text.data(), text.size(), &script, error, sizeof error), 0) << error;
    return script;
}

std::string error_of(const std::string &text)
{
    scenario script;
    char error[512] = "";
    EXPECT_EQ(scenario_parse(text.data(), text.size(), &script, error, sizeof error), -1) << text;
    return error;
}

scenario_rule rule(const std::string &members)
{
    return parse("{\"rules\":[{\"command\":4139," + members + "}]}").rules.at(0);
}

std::string rule_error(const std::string &members)
{
    return error_of("{\"rules\":[{\"command\":4139," + members + "}]}");
}

TEST(Scenario, ReadsEveryAction)
{
    EXPECT_EQ(rule("\"action\":\"refuse\"").action, SCENARIO_REFUSE);
    EXPECT_EQ(rule("\"action\":\"refuse\"").value, 1u);
    EXPECT_EQ(rule("\"action\":\"refuse\",\"ret\":-7").value, static_cast<uint32_t>(-7));
    EXPECT_EQ(rule("\"action\":\"delay\",\"ms\":500").action, SCENARIO_DELAY);
    EXPECT_EQ(rule("\"action\":\"delay\",\"ms\":500").value, 500u);
    EXPECT_EQ(rule("\"action\":\"short\",\"bytes\":55").action, SCENARIO_SHORT);
    EXPECT_EQ(rule("\"action\":\"short\",\"bytes\":55").value, 55u);
    EXPECT_EQ(rule("\"action\":\"number\",\"number\":4139").action, SCENARIO_NUMBER);
    EXPECT_EQ(rule("\"action\":\"number\",\"number\":4294967295").value, 4294967295u);
    EXPECT_EQ(rule("\"action\":\"close\"").action, SCENARIO_CLOSE);
    EXPECT_EQ(rule("\"action\":\"close\"").value, 0u);
    EXPECT_EQ(rule("\"action\":\"close\",\"bytes\":10").value, 10u);
    EXPECT_EQ(rule("\"action\":\"surplus\",\"bytes\":1024").action, SCENARIO_SURPLUS);
    EXPECT_EQ(rule("\"action\":\"surplus\",\"bytes\":1024").value, 1024u);
    const scenario_rule data = rule("\"action\":\"data\",\"words\":[1,-2,4294967295]");
    EXPECT_EQ(data.action, SCENARIO_DATA);
    ASSERT_EQ(data.word_count, 3u);
    EXPECT_EQ(data.words[1], static_cast<uint32_t>(-2));
    EXPECT_EQ(data.words[2], 4294967295u);
}

TEST(Scenario, ACommandIsANumberANameOrAny)
{
    EXPECT_EQ(rule("\"action\":\"close\"").cmd_no, 4139u);
    EXPECT_FALSE(rule("\"action\":\"close\"").any);
    EXPECT_EQ(
        parse("{\"rules\":[{\"command\":\"naro_isp_track_run\",\"action\":\"close\"}]}").rules[0].cmd_no,
        4139u);
    EXPECT_TRUE(parse("{\"rules\":[{\"command\":\"any\",\"action\":\"close\"}]}").rules[0].any);
    EXPECT_THAT(error_of("{\"rules\":[{\"command\":\"naro_isp_track\",\"action\":\"close\"}]}"),
                StartsWith("rule 1: \"command\" is \"naro_isp_track\"; expected"));
    EXPECT_THAT(error_of("{\"rules\":[{\"command\":0,\"action\":\"close\"}]}"),
                HasSubstr("whole number from 1"));
    EXPECT_THAT(error_of("{\"rules\":[{\"action\":\"close\"}]}"),
                StartsWith("rule 1: \"command\" is missing"));
}

TEST(Scenario, SaysWhatIsWrong)
{
    EXPECT_THAT(error_of(""), HasSubstr("the text ends too early"));
    EXPECT_THAT(error_of("{\"rules\":[]"), HasSubstr("not JSON: line 1: the text ends too early"));
    EXPECT_THAT(error_of("{\n\"rules\":\n[}"), HasSubstr("not JSON: line 3"));
    EXPECT_THAT(error_of("{\"rules\":[]} x"), HasSubstr("not JSON"));
    EXPECT_EQ(error_of("[]"), "expected { \"rules\": [ ... ] }");
    EXPECT_EQ(error_of("{\"rules\":1}"), "expected { \"rules\": [ ... ] }");
    EXPECT_THAT(error_of("{\"rules\":[1]}"), StartsWith("rule 1: expected an object"));
    EXPECT_THAT(rule_error("\"action\":\"refus\""),
                StartsWith("rule 1: \"action\" is \"refus\"; expected refuse,"));
    EXPECT_THAT(rule_error("\"action\":1"), StartsWith("rule 1: \"action\" is \"\"; expected"));
    EXPECT_EQ(rule_error("\"action\":\"delay\""), "rule 1: \"delay\" wants a number \"ms\"");
    EXPECT_EQ(rule_error("\"action\":\"delay\",\"ms\":3600001"),
              "rule 1: \"ms\" is 3600001; expected a whole number from 0 to 3600000");
    EXPECT_THAT(rule_error("\"action\":\"delay\",\"ms\":\"1\""), HasSubstr("\"ms\" is \"1\"; expected"));
    EXPECT_THAT(rule_error("\"action\":\"short\",\"bytes\":56"), HasSubstr("from 0 to 55"));
    EXPECT_THAT(rule_error("\"action\":\"surplus\",\"bytes\":0"), HasSubstr("from 1 to 1024"));
    EXPECT_THAT(rule_error("\"action\":\"close\",\"ms\":1"),
                StartsWith("rule 1: \"ms\" does not belong to \"close\""));
    EXPECT_EQ(rule_error("\"action\":\"close\",\"count\":2"), "rule 1: \"count\" goes with \"occurrence\"");
    EXPECT_THAT(rule_error("\"action\":\"close\",\"occurrence\":0"), HasSubstr("whole number from 1"));
    EXPECT_THAT(rule_error("\"action\":\"data\""), HasSubstr("\"words\" is missing"));
    EXPECT_THAT(rule_error("\"action\":\"data\",\"words\":[]"), HasSubstr("1 to 8 numbers"));
    EXPECT_THAT(rule_error("\"action\":\"data\",\"words\":[1,2,3,4,5,6,7,8,9]"), HasSubstr("1 to 8 numbers"));
    EXPECT_THAT(rule_error("\"action\":\"data\",\"words\":[4294967296]"), HasSubstr("32 bits"));
    EXPECT_THAT(error_of("{\"rules\":[{\"command\":1,\"action\":\"close\"},{}]}"), StartsWith("rule 2: "));
}

TEST(Scenario, HasBounds)
{
    const std::string one = "{\"command\":1,\"action\":\"close\"},";
    std::string list;
    for (int i = 0; i < 1000; i++)
        list += one;
    list.pop_back();
    EXPECT_EQ(parse("{\"rules\":[" + list + "]}").rules.size(), 1000u);
    EXPECT_EQ(error_of("{\"rules\":[" + one + list + "]}"), "1001 rules; at most 1000 are possible");
    EXPECT_EQ(parse("{\"rules\":[]}" + std::string(SCENARIO_FILE_MAX - 12, ' ')).rules.size(), 0u);
    EXPECT_THAT(error_of("{\"rules\":[]}" + std::string(SCENARIO_FILE_MAX - 11, ' ')),
                HasSubstr("at most 1048576"));
}

TEST(Scenario, AnErrorMessageNeverOutgrowsItsRoom)
{
    scenario script;
    char error[16];
    const std::string text = "{\"rules\":[{\"command\":\"" + std::string(500, 'x') + "\"}]}";
    EXPECT_EQ(scenario_parse(text.data(), text.size(), &script, error, sizeof error), -1);
    EXPECT_STREQ(error, "rule 1: \"comman");
}

TEST(Scenario, ARuleActsAtItsOccurrences)
{
    scenario script =
        parse("{\"rules\":[{\"command\":1,\"occurrence\":2,\"count\":2,\"action\":\"close\"}]}");
    EXPECT_FALSE(scenario_take(&script, 1));
    EXPECT_FALSE(scenario_take(&script, 2)) << "another command";
    EXPECT_TRUE(scenario_take(&script, 1));
    EXPECT_TRUE(scenario_take(&script, 1));
    EXPECT_FALSE(scenario_take(&script, 1));
}

TEST(Scenario, OnceIsOnceAndWithoutOccurrenceIsAlways)
{
    scenario once = parse("{\"rules\":[{\"command\":1,\"occurrence\":1,\"action\":\"close\"}]}");
    EXPECT_TRUE(scenario_take(&once, 1));
    EXPECT_FALSE(scenario_take(&once, 1));
    scenario always = parse("{\"rules\":[{\"command\":\"any\",\"action\":\"close\"}]}");
    for (uint32_t i = 0; i < 5; i++)
        EXPECT_TRUE(scenario_take(&always, i));
}

TEST(Scenario, OfSeveralTheFirstActsAndAllCount)
{
    scenario script = parse("{\"rules\":[{\"command\":1,\"occurrence\":1,\"action\":\"close\"},"
                            "{\"command\":1,\"occurrence\":2,\"action\":\"delay\",\"ms\":1},"
                            "{\"command\":\"any\",\"action\":\"refuse\"}]}");
    EXPECT_EQ(scenario_take(&script, 1)->action, SCENARIO_CLOSE);
    EXPECT_EQ(scenario_take(&script, 1)->action, SCENARIO_DELAY);
    EXPECT_EQ(scenario_take(&script, 1)->action, SCENARIO_REFUSE);
}

TEST(Scenario, AFileIsNamedInItsErrors)
{
    const std::string path = scratch_root() + "/scenario.json";
    std::ofstream(path) << "{\"rules\":[{}]}";
    scenario script;
    OutputCapture errors(STDERR_FILENO);
    EXPECT_EQ(scenario_load(path.c_str(), &script), -1);
    EXPECT_EQ(scenario_load("/nowhere/scenario.json", &script), -1);
    EXPECT_THAT(errors.text(), HasSubstr(path + ": rule 1: \"command\" is missing"));
    EXPECT_THAT(errors.text(), HasSubstr("/nowhere/scenario.json: No such file or directory"));
    std::ofstream(path) << "{\"rules\":[{\"command\":1,\"action\":\"close\"}]}";
    EXPECT_EQ(scenario_load(path.c_str(), &script), 0);
    EXPECT_EQ(script.rules.size(), 1u);
}

} // namespace
