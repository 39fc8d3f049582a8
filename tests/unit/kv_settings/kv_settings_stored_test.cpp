// What is done with stored values: those read when the power comes on, and the replies to a get.
#define NARO_FAKE_VARDEX_WRAPS_FREE
#include "kv_settings.h"

#include <gmock/gmock.h>

#include "acts.h"
#include "fake_vardex.h"
#include "kv_client.h"
#include "log_capture.h"

using testing::ElementsAreArray;
using testing::IsEmpty;

int kv_sys_param_init(void *)
{
    return 0;
}

namespace
{

using Lines = std::vector<std::string>;

std::string list_of(const std::string &digits)
{
    std::string text = "[";
    for (const char digit : digits)
        text += std::string(1, digit) + ",";
    text.back() = ']';
    return text;
}

std::string repeated(const std::string &text, int times)
{
    std::string result;
    for (int i = 0; i < times; i++)
        result += text;
    return result;
}

class KvStored : public testing::Test
{
  protected:
    ~KvStored() override
    {
        EXPECT_EQ(fake_vardex().live_data, 0) << "data was not given back";
        EXPECT_THAT(fake_vardex().live_texts, IsEmpty()) << "a value was not freed";
    }

    Lines said() const
    {
        Lines lines;
        for (const LogCapture::Line &line : log.lines())
            lines.push_back((line.level == NARO_LOG_ERR    ? "!"
                             : line.level == NARO_LOG_INFO ? ""
                                                           : "?") +
                            line.text);
        return lines;
    }
    void expect(const Lines &done, const Lines &lines)
    {
        EXPECT_EQ(acts.calls, done);
        EXPECT_EQ(said(), lines);
        acts.calls.clear();
        log.clear();
    }
    void sync(int (*handler)(char *), const char *value, const Lines &done, const Lines &lines)
    {
        SCOPED_TRACE(value ? value : "(null)");
        EXPECT_EQ(handler(value ? fake_text(value) : nullptr), 0);
        expect(done, lines);
    }
    void config(int (*handler)(void *, void *), const char *value, const Lines &done, const Lines &lines)
    {
        SCOPED_TRACE(value ? value : "(null)");
        FakeResponse response("any", value);
        EXPECT_EQ(handler(&response, nullptr), 0);
        expect(done, lines);
    }
    void config_failed(int (*handler)(void *, void *), const Lines &done, const Lines &lines)
    {
        FakeResponse response(0);
        response.has_data = false;
        EXPECT_EQ(handler(&response, nullptr), 0);
        expect(done, lines);
    }

    LogCapture log;
    const Lines strange = {"",
                           " ",
                           "null",
                           "{\"value\":1}",
                           "\x01\x80\xff",
                           "a\"b'c\\",
                           "x\r\nforged\n",
                           "%s%n",
                           std::string(60000, 'x')};
};

// What a reader of the log sees before something happens.
TEST_F(KvStored, EachIsSaidBeforeItIsDone)
{
    const struct {
        int (*handler)(char *);
        std::string value; // "-": there is none
        size_t lines;
    } all[] = {
        {sync_cb_motion_region, list_of(std::string(32, '1')), 2},
        {sync_cb_wdr_mode, "on", 1},
        {sync_cb_wdr_mode, "-", 1},
        {sync_cb_night_mode, "3", 1},
        {sync_cb_night_mode, "-", 1},
        {sync_cb_fullcolor, "off", 1},
        {sync_cb_fullcolor, "-", 1},
        {sync_cb_track_mode, "on", 1},
        {sync_cb_track_mode, "-", 1},
    };
    size_t before = 0, calls = 0;
    acts.on_call = [&] {
        before = log.lines().size();
        calls++;
    };
    for (const auto &one : all) {
        log.clear();
        one.handler(one.value == "-" ? nullptr : fake_text(one.value.c_str()));
        EXPECT_EQ(before, one.lines) << log.texts()[0];
    }
    EXPECT_EQ(calls, std::size(all));
    acts.on_call = nullptr;
}

// ---- motion_region ----------------------------------------------------------------------------------------

Lines motion_lines(const std::string &name, const std::string &value)
{
    return {"[" + name + "] motion_region = " + value + "\n",
            "[" + name + "] motion_region length = " + std::to_string(value.size()) + "\n"};
}
Lines whole_list(const std::string &name, const std::string &value, const std::string &list)
{
    Lines lines = motion_lines(name, value);
    lines.push_back("[" + name + "] motion_area_update\n");
    lines.push_back("[" + name + "] motion_region=[" + list + "]\n");
    return lines;
}
Lines broken_list(const std::string &name, const std::string &value)
{
    Lines lines = motion_lines(name, value);
    lines.push_back("![" + name + "] motion_region is no list of 32 digits from 0 to 3\n");
    return lines;
}

TEST_F(KvStored, LastDigitOfTheMotionRegionCounts)
{
    const std::pair<char, Lines> last[] = {
        {'0', {}}, {'1', {"sensitivity_set 0"}}, {'2', {}}, {'3', {"sensitivity_set 1"}}};
    for (const auto &[digit, done] : last) {
        const std::string value = list_of(std::string(31, '1') + digit);
        const std::string list = repeated("0,", 31) + std::to_string(digit - '1') + ",";
        sync(sync_cb_motion_region, value.c_str(), done, whole_list("sync_cb_motion_region", value, list));
        config(config_cb_motion_region, value.c_str(), {},
               whole_list("config_cb_motion_region", value, list));
    }
}

TEST_F(KvStored, LongestListOfTheMotionRegionIsShownWhole)
{
    const std::string value = list_of(std::string(32, '0'));
    sync(sync_cb_motion_region, value.c_str(), {},
         whole_list("sync_cb_motion_region", value, repeated("-1,", 32)));
}

TEST_F(KvStored, SensitivityIsSetBeforeTheListIsShown)
{
    static LogCapture *said_so_far;
    said_so_far = &log;
    const std::string value = list_of(std::string(32, '3'));
    acts.on_call = [] { EXPECT_EQ(said_so_far->lines().size(), 2u); };
    sync_cb_motion_region(fake_text(value.c_str()));
    acts.on_call = nullptr;
    expect({"sensitivity_set 1"}, whole_list("sync_cb_motion_region", value, repeated("2,", 32)));
}

TEST_F(KvStored, MotionRegionThatBreaksOffCountsToThere)
{
    const std::pair<std::string, Lines> lists[] = {
        {std::string(30, '1') + "3x", {"sensitivity_set 1"}},
        {std::string(30, '3') + "14", {"sensitivity_set 0"}},
        {"1/" + std::string(30, '3'), {"sensitivity_set 0"}},
        {std::string(30, '3') + "2x", {}},
        {"x" + std::string(31, '3'), {}},
    };
    for (const auto &[digits, done] : lists) {
        const std::string value = list_of(digits);
        sync(sync_cb_motion_region, value.c_str(), done, broken_list("sync_cb_motion_region", value));
        config(config_cb_motion_region, value.c_str(), {}, broken_list("config_cb_motion_region", value));
    }
}

TEST_F(KvStored, MotionRegionOfAnotherLengthDoesNothing)
{
    Lines values = strange;
    values.push_back("50"); // what nobody understands as a change, either
    values.push_back(list_of(std::string(32, '3')).substr(0, 64));
    values.push_back(list_of(std::string(32, '3')) + " ");
    for (const std::string &value : values) {
        sync(sync_cb_motion_region, value.c_str(), {}, broken_list("sync_cb_motion_region", value));
        config(config_cb_motion_region, value.c_str(), {}, broken_list("config_cb_motion_region", value));
    }
}

TEST_F(KvStored, MotionRegionThatWasSetAtRunTimeIsNoMistakeAndDoesNothing)
{
    for (const std::string value : {"1", "20", "3", "100"}) {
        sync(sync_cb_motion_region, value.c_str(), {}, motion_lines("sync_cb_motion_region", value));
        config(config_cb_motion_region, value.c_str(), {}, motion_lines("config_cb_motion_region", value));
    }
}

TEST_F(KvStored, NoMotionRegion)
{
    const std::string ones = repeated("1,", 32);
    sync(sync_cb_motion_region, nullptr, {},
         {"![sync_cb_motion_region] get faild: set motion region sensitive middle\n",
          "[sync_cb_motion_region] motion_region=[" + ones + "]\n"});
    config_failed(config_cb_motion_region, {},
                  {"![config_cb_motion_region] get faild: set motion region sensitive middle\n",
                   "[config_cb_motion_region] motion_region=[" + ones + "]\n"});
    config(config_cb_motion_region, nullptr, {}, {"![config_cb_motion_region] data is null\n"});
}

// ---- wdr, night_mode, full_color, track_switch ------------------------------------------------------------

TEST_F(KvStored, Wdr)
{
    sync(sync_cb_wdr_mode, "on", {"wdr_mode_switch 2"}, {"[sync_cb_wdr_mode] wdr_mode = on\n"});
    sync(sync_cb_wdr_mode, "off", {"wdr_mode_switch 1"}, {"[sync_cb_wdr_mode] wdr_mode = off\n"});
    sync(sync_cb_wdr_mode, nullptr, {"wdr_mode_config 1"},
         {"![sync_cb_wdr_mode] get faild: set wdr mode off\n"});
    config(config_cb_wdr_mode, "on", {"wdr_mode_switch 2"}, {"[config_cb_wdr_mode] wdr_mode = on\n"});
    config(config_cb_wdr_mode, "off", {"wdr_mode_switch 1"}, {"[config_cb_wdr_mode] wdr_mode = off\n"});
    config(config_cb_wdr_mode, nullptr, {}, {"![config_cb_wdr_mode] data is null\n"});
    config_failed(config_cb_wdr_mode, {"wdr_mode_config 1"},
                  {"![config_cb_wdr_mode] get faild: set wdr mode off\n"});
    Lines values = strange;
    values.push_back("only");
    for (const std::string &v : values) {
        sync(sync_cb_wdr_mode, v.c_str(), {},
             {"[sync_cb_wdr_mode] wdr_mode = " + v + "\n",
              "![sync_cb_wdr_mode] not support wdr_mode = " + v + "\n"});
        config(config_cb_wdr_mode, v.c_str(), {},
               {"[config_cb_wdr_mode] wdr_mode = " + v + "\n",
                "![config_cb_wdr_mode] not support wdr_mode = " + v + "\n"});
    }
}

TEST_F(KvStored, NightMode)
{
    for (int mode = 0; mode <= 9; mode++) {
        const std::string digit = std::to_string(mode);
        // A stored 0 is the smart mode; the reply to a get leaves it as it is.
        sync(sync_cb_night_mode, digit.c_str(), {"ircut_mode_config " + (mode == 0 ? "5" : digit)},
             {"[sync_cb_night_mode] night_mode = " + digit + "\n"});
        config(config_cb_night_mode, digit.c_str(), {"ircut_mode_config " + digit},
               {"[config_cb_night_mode] night_mode = " + digit + "\n"});
    }
    sync(sync_cb_night_mode, nullptr, {"ircut_mode_config 5"},
         {"![sync_cb_night_mode] get faild: set ircut mode auto\n"});
    config_failed(config_cb_night_mode, {"ircut_mode_config 0"},
                  {"![config_cb_night_mode] get faild: set ircut mode auto\n"});
    config(config_cb_night_mode, nullptr, {}, {"![config_cb_night_mode] data is null\n"});
    Lines values = strange;
    values.push_back("-1");
    for (const std::string &v : values) {
        sync(sync_cb_night_mode, v.c_str(), {},
             {"[sync_cb_night_mode] night_mode = " + v + "\n",
              "![sync_cb_night_mode] night_mode = " + v + " is not understood, nothing changes\n"});
        config(config_cb_night_mode, v.c_str(), {},
               {"[config_cb_night_mode] night_mode = " + v + "\n",
                "![config_cb_night_mode] night_mode = " + v + " is not understood, nothing changes\n"});
    }
}

TEST_F(KvStored, FullColor)
{
    for (const std::string v : {"on", "only"}) {
        sync(sync_cb_fullcolor, v.c_str(), {"fullcolor_mode_config 1"},
             {"[sync_cb_fullcolor] full_color = " + v + "\n"});
        config(config_cb_fullcolor, v.c_str(), {"fullcolor_mode_config 1"},
               {"[config_cb_fullcolor] full_color = " + v + "\n"});
    }
    for (const std::string v : {"off", "offset"}) {
        sync(sync_cb_fullcolor, v.c_str(), {"fullcolor_mode_config 0"},
             {"[sync_cb_fullcolor] full_color = " + v + "\n"});
        config(config_cb_fullcolor, v.c_str(), {"fullcolor_mode_config 0"},
               {"[config_cb_fullcolor] full_color = " + v + "\n"});
    }
    sync(sync_cb_fullcolor, nullptr, {"fullcolor_mode_config 1"},
         {"![sync_cb_fullcolor] get faild: set fullcolor on\n"});
    config_failed(config_cb_fullcolor, {"fullcolor_mode_config 1"},
                  {"![config_cb_fullcolor] get faild: set fullcolor on\n"});
    config(config_cb_fullcolor, nullptr, {}, {"![config_cb_fullcolor] data is null\n"});
    for (const std::string &v : strange) {
        sync(sync_cb_fullcolor, v.c_str(), {},
             {"[sync_cb_fullcolor] full_color = " + v + "\n",
              "![sync_cb_fullcolor] not support full_color = " + v + "\n"});
        config(config_cb_fullcolor, v.c_str(), {},
               {"[config_cb_fullcolor] full_color = " + v + "\n",
                "![config_cb_fullcolor] not support full_color = " + v + "\n"});
    }
}

TEST_F(KvStored, TrackSwitch)
{
    sync(sync_cb_track_mode, "on", {"track_mode_config 1"}, {"[sync_cb_track_mode] track_mode = on\n"});
    sync(sync_cb_track_mode, "off", {"track_mode_config 0"}, {"[sync_cb_track_mode] track_mode = off\n"});
    sync(sync_cb_track_mode, nullptr, {"track_mode_config 0"},
         {"![sync_cb_track_mode] get faild: set track mode off\n"});
    Lines values = strange;
    values.push_back("only");
    for (const std::string &v : values)
        sync(sync_cb_track_mode, v.c_str(), {},
             {"[sync_cb_track_mode] track_mode = " + v + "\n",
              "![sync_cb_track_mode] not support track_mode = " + v + "\n"});
}

} // namespace
