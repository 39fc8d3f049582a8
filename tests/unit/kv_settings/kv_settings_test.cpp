// What a change of each setting says and does, and the client's tables.
#include "kv_settings.h"

#include <limits.h>

#include <gmock/gmock.h>

#include "acts.h"
#include "fake_vardex.h"
#include "heap_use.h"
#include "in_child.h"
#include "kv_client.h"
#include "log_capture.h"

using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

namespace
{

using Lines = std::vector<std::string>;

struct {
    int result;
    std::vector<void *> handles; // of each call
    std::function<void()> on_call;
} param_init;

bool may_end; // the process

} // namespace

extern "C" {
[[noreturn]] void __real__exit(int status);
void __wrap__exit(int status)
{
    if (!may_end)
        abort();
    __real__exit(status);
}
}

int kv_sys_param_init(void *handle)
{
    param_init.handles.push_back(handle);
    if (param_init.on_call)
        param_init.on_call();
    acts.calls.push_back("kv_sys_param_init");
    return param_init.result;
}

namespace
{

std::string repeated(const std::string &text, size_t times)
{
    std::string result;
    for (size_t i = 0; i < times; i++)
        result += text;
    return result;
}

// ---- The tables -------------------------------------------------------------------------------------------

TEST(KvSettingsTable, Settings)
{
    const struct {
        kv_setting_number number;
        kv_setting setting;
    } wanted[] = {
        {KV_MOTION_REGION,
         {"motion_region", "nvram", notify_cb_motion_region, notify_timeout_cb_motion_region,
          "motion_region"}},
        {KV_NIGHT_MODE,
         {"night_mode", "nvram", notify_cb_night_mode, notify_timeout_cb_night_mode, "night_mode"}},
        {KV_FULL_COLOR,
         {"full_color", "nvram", notify_cb_fullcolor, notify_timeout_cb_fullcolor, "fullcolor"}},
        {KV_WDR, {"wdr", "nvram", notify_cb_wdr_mode, notify_timeout_cb_wdr_mode, "wdr_enable"}},
        {KV_HDR_SWITCH,
         {"hdr_switch", "nvram", notify_cb_hdr_mode, notify_timeout_cb_wdr_mode, "wdr_enable"}},
        {KV_TRACK_SWITCH,
         {"track_switch", "mem", notify_cb_track_mode, notify_timeout_cb_track_mode, "track_mode"}},
        {KV_POWER, {"power", "nvram", notify_cb_power_mode, notify_timeout_cb_power_mode, "power_mode"}},
        {KV_SDCARD_RW, {"sdcard_rw", "mem", notify_cb_sdcard_rw, notify_timeout_cb_sdcard_rw, "power_mode"}},
        {KV_FACE_DETECT,
         {"face_detect", "mem", notify_cb_AI_detect, notify_timeout_cb_AI_detect, "power_mode"}},
        {KV_BABY_CRY_DETECT,
         {"baby_cry_detect", "mem", notify_cb_AI_detect, notify_timeout_cb_AI_detect, "power_mode"}},
        {KV_HUMAN_DETECT,
         {"human_detect", "mem", notify_cb_AI_detect, notify_timeout_cb_AI_detect, "power_mode"}},
        {KV_MOTOR, {"motor", "nvram", notify_cb_motor, notify_timeout_cb_motor, "power_mode"}},
        {KV_PEOPLE_SENSITIVITY,
         {"people_sensitivity", "mem", notify_cb_people_sensitivity, notify_timeout_cb_motor,
          "people_sensitivity"}},
        {KV_ALARM_EVENT,
         {"alarm_event", "mem", notify_cb_alarm_event, notify_timeout_cb_alarm_event,
          "motion_region_detect"}},
        {KV_PEOPLE_REGION_DETECT,
         {"people_region_detect", "mem", notify_cb_people_region_detect, notify_timeout_cb_alarm_event,
          "motion_region_detect"}},
        {KV_FAV_AREA_RECT,
         {"fav_area_rect", "mem", notify_cb_fav_area, notify_timeout_cb_fav_area, "care_region"}},
    };
    ASSERT_EQ(std::size(wanted), 16u);
    for (size_t i = 0; i < 16; i++) {
        const kv_setting &setting = kv_settings[i];
        EXPECT_EQ(static_cast<size_t>(wanted[i].number), i);
        EXPECT_STREQ(setting.key, wanted[i].setting.key);
        EXPECT_STREQ(setting.layer, wanted[i].setting.layer) << setting.key;
        EXPECT_EQ(setting.change_cb, wanted[i].setting.change_cb) << setting.key;
        EXPECT_EQ(setting.timeout_cb, wanted[i].setting.timeout_cb) << setting.key;
        EXPECT_STREQ(setting.tag, wanted[i].setting.tag) << setting.key;
    }
}

TEST(KvSettingsTable, StoredSettings)
{
    const kv_stored_setting wanted[] = {
        {"motion_region", "nvram", sync_cb_motion_region},
        {"wdr", "nvram", sync_cb_wdr_mode},
        {"night_mode", "nvram", sync_cb_night_mode},
        {"full_color", "nvram", sync_cb_fullcolor},
        {"track_switch", "mem", nullptr}, // asked for and dropped: tracking follows changes only
    };
    ASSERT_EQ(std::size(wanted), std::size(kv_stored_settings));
    for (size_t i = 0; i < std::size(wanted); i++) {
        EXPECT_STREQ(kv_stored_settings[i].key, wanted[i].key);
        EXPECT_STREQ(kv_stored_settings[i].layer, wanted[i].layer);
        EXPECT_EQ(kv_stored_settings[i].sync_cb, wanted[i].sync_cb);
    }
}

// ---- What all callbacks do alike --------------------------------------------------------------------------

struct Callback {
    const char *name;
    const char *key;
    int (*call)(void *, void *);
    bool quiet; // of a response that cannot be parsed
};
void PrintTo(const Callback &callback, std::ostream *out)
{
    *out << callback.name;
}
const Callback callbacks[] = {
    {"notify_cb_motion_region", "motion_region", notify_cb_motion_region, false},
    {"notify_cb_night_mode", "night_mode", notify_cb_night_mode, false},
    {"notify_cb_fullcolor", "full_color", notify_cb_fullcolor, false},
    {"notify_cb_wdr_mode", "wdr", notify_cb_wdr_mode, false},
    {"notify_cb_hdr_mode", "hdr_switch", notify_cb_hdr_mode, false},
    {"notify_cb_track_mode", "track_switch", notify_cb_track_mode, false},
    {"notify_cb_power_mode", "power", notify_cb_power_mode, false},
    {"notify_cb_sdcard_rw", "sdcard_rw", notify_cb_sdcard_rw, false},
    {"notify_cb_AI_detect", "face_detect", notify_cb_AI_detect, false},
    {"notify_cb_motor", "motor", notify_cb_motor, false},
    {"notify_cb_people_sensitivity", "people_sensitivity", notify_cb_people_sensitivity, false},
    {"notify_cb_alarm_event", "alarm_event", notify_cb_alarm_event, true},
    {"notify_cb_people_region_detect", "people_region_detect", notify_cb_people_region_detect, true},
    {"notify_cb_fav_area", "fav_area_rect", notify_cb_fav_area, true},
};

class KvSettings : public testing::TestWithParam<Callback>
{
  protected:
    ~KvSettings() override { EXPECT_EQ(fake_vardex().live_pairs, 0) << "a pair was not given back"; }
    // What stands before everything else that a callback says.
    static Lines first_lines(const Callback &callback)
    {
        const std::string name = std::string("[") + callback.name + "]";
        if (callback.call == notify_cb_fav_area)
            return {name + " \r\n"};
        if (callback.call == notify_cb_motion_region)
            return {name + "\r\n", name + "################stat=0\r\n"};
        return {name + "\r\n"};
    }
    static std::string value_line(const Callback &callback, const std::string &key, const std::string &value)
    {
        if (callback.call == notify_cb_fav_area)
            return "key=" + key + " value=" + value + "\r\n";
        return "[key=" + key + "][value=" + value + "]\r\n";
    }
    static bool words_untouched()
    {
        return acts.hdr_flag == -7 && acts.motor_position_v == -7 && acts.sdcard_writable == 7 &&
               acts.face_detect == 7 && acts.human_detect == 7 && acts.baby_cry_detect == 7;
    }
    LogCapture log;
    OutputCapture err{STDERR_FILENO};
    int handle = 0;
};

TEST_P(KvSettings, ResponseThatCannotBeParsed)
{
    const Callback &callback = GetParam();
    for (const int status : {-1, 1}) {
        err.clear();
        FakeResponse response(status);
        EXPECT_EQ(callback.call(&response, &handle), 0);
        EXPECT_EQ(err.text(), callback.quiet
                                  ? ""
                                  : std::string("[") + callback.name + "]parse recv notify value error.\n");
    }
    FakeResponse with_pair(callback.key, "on");
    with_pair.status = 3;
    callback.call(&with_pair, &handle);
    EXPECT_THAT(log.texts(), IsEmpty());
    EXPECT_THAT(acts.calls, IsEmpty());
    EXPECT_TRUE(words_untouched());
}

TEST_P(KvSettings, ResponseWithoutPairKeyOrValue)
{
    const Callback &callback = GetParam();
    const bool power = callback.call == notify_cb_power_mode;
    FakeResponse nothing(0), no_key(nullptr, "on"), no_value(callback.key, nullptr);
    for (FakeResponse *response : {&nothing, &no_key, &no_value}) {
        log.clear();
        acts.calls.clear();
        EXPECT_EQ(callback.call(response, &handle), 0);
        Lines wanted = first_lines(callback);
        wanted.push_back(std::string("[") + callback.name + "] key or value is null\n");
        const size_t complaint = wanted.size() - 1;
        if (power)
            wanted.push_back("[notify_cb_power_mode] init ircut and motion\n");
        EXPECT_THAT(log.texts(), ElementsAreArray(wanted));
        EXPECT_EQ(log.lines()[complaint].level, NARO_LOG_ERR);
        EXPECT_EQ(log.texts(NARO_LOG_ERR).size(), 1u);
        // No power value is power.
        EXPECT_EQ(acts.calls, power ? (Lines{"kv_sys_param_init", "ircut_init"}) : Lines());
        EXPECT_TRUE(words_untouched());
    }
    EXPECT_EQ(err.text(), "");
}

class KvSettingsKey : public KvSettings
{
};

TEST_P(KvSettingsKey, AnotherIsLoggedAndNoMore)
{
    const Callback &callback = GetParam();
    const std::string key = callback.key;
    for (const std::string &other : {key.substr(0, key.size() - 1), "x" + key, std::string()}) {
        log.clear();
        FakeResponse response(other.c_str(), "on");
        EXPECT_EQ(callback.call(&response, &handle), 0);
        Lines wanted = first_lines(callback);
        wanted.push_back(value_line(callback, other, "on"));
        EXPECT_THAT(log.texts(), ElementsAreArray(wanted));
        EXPECT_THAT(log.texts(NARO_LOG_ERR), IsEmpty());
    }
    EXPECT_THAT(acts.calls, IsEmpty());
    EXPECT_TRUE(words_untouched());
}

std::string name_of(const testing::TestParamInfo<Callback> &test)
{
    return test.param.name;
}
INSTANTIATE_TEST_SUITE_P(, KvSettings, testing::ValuesIn(callbacks), name_of);

std::vector<Callback> those_with_a_key()
{
    std::vector<Callback> result;
    for (const Callback &callback : callbacks)
        if (callback.call != notify_cb_people_region_detect) // takes any
            result.push_back(callback);
    return result;
}
INSTANTIATE_TEST_SUITE_P(, KvSettingsKey, testing::ValuesIn(those_with_a_key()), name_of);

// ---- Values -----------------------------------------------------------------------------------------------

// What is done, as calls and words; and what is said after the common lines, the error lines with a '!'
// before them.
struct Change {
    const char *key; // as it arrives
    std::string value;
    Lines done;
    Lines said;
};

const Callback &callback_of(const std::string &key)
{
    const Callback *best = nullptr;
    for (const Callback &callback : callbacks)
        if (key.compare(0, strlen(callback.key), callback.key) == 0)
            best = &callback;
    for (const char *detect : {"baby_cry_detect", "human_detect"})
        if (key == detect)
            return callbacks[8];
    return *best;
}

Lines done()
{
    Lines result = acts.calls;
    const auto word = [&](const char *name, auto &value, int untouched) {
        if (value != untouched)
            result.push_back(std::string(name) + " = " + std::to_string(value));
    };
    word("hdr", acts.hdr_flag, -7);
    word("motor", acts.motor_position_v, -7);
    word("sdcard", acts.sdcard_writable, 7);
    word("face", acts.face_detect, 7);
    word("human", acts.human_detect, 7);
    word("baby_cry", acts.baby_cry_detect, 7);
    return result;
}

void reset_acts()
{
    acts.calls.clear();
    acts.hdr_flag = acts.motor_position_v = -7;
    acts.sdcard_writable = acts.face_detect = acts.human_detect = acts.baby_cry_detect = 7;
}

class KvSettingValues : public KvSettings
{
  protected:
    void check(const Change &change)
    {
        SCOPED_TRACE(change.key + (" = " + change.value.substr(0, 100)));
        const Callback &callback = callback_of(change.key);
        reset_acts();
        log.clear();
        FakeResponse response(change.key, change.value.c_str());
        EXPECT_EQ(callback.call(&response, &handle), 0);
        EXPECT_EQ(done(), change.done);
        Lines wanted = first_lines(callback), said;
        wanted.push_back(value_line(callback, change.key, change.value));
        wanted.insert(wanted.end(), change.said.begin(), change.said.end());
        for (const LogCapture::Line &line : log.lines())
            said.push_back((line.level == NARO_LOG_ERR    ? "!"
                            : line.level == NARO_LOG_INFO ? ""
                                                          : "?") +
                           line.text);
        EXPECT_EQ(said, wanted);
        EXPECT_EQ(err.text(), "");
    }
    // Each value of `key` is one of those nobody understands: an error line of its own wording, and nothing
    // else.
    void check_not_understood(const char *key, const Lines &values, const char *line = nullptr)
    {
        for (const std::string &value : values) {
            const std::string name = callback_of(key).name;
            const std::string said =
                line ? "![" + name + "] " + line + " = " + value + "\n"
                     : "![" + name + "] " + key + " = " + value + " is not understood, nothing changes\n";
            check({key, value, {}, {said}});
        }
    }
    // Values that nobody should send: empty, of another type, binary, with quotes and line ends, huge.
    const Lines strange = {"",
                           " ",
                           "null",
                           "{\"value\":1}",
                           "\x01\x02\x7f\x80\xfe\xff",
                           "a\"b'c\\",
                           "x\r\n2026-01-31 07:05:09.042 err [forged] line\n",
                           "%s%n%d",
                           repeated("x", 60000)};
};

TEST_F(KvSettingValues, MotionRegion)
{
    const auto length = [](const std::string &value) {
        return "[notify_cb_motion_region]motion_region length = " + std::to_string(value.size()) + "\n";
    };
    const std::pair<const char *, int> levels[] = {{"1", 0},  {"20", 0},  {"40", 0}, {"2", 1},
                                                   {"60", 1}, {"3", 2},   {"80", 2}, {"100", 2},
                                                   {" 3", 2}, {"60%", 1}, {"+20", 0}};
    for (const auto &[value, level] : levels)
        check({"motion_region", value, {"sensitivity_set " + std::to_string(level)}, {length(value)}});
    Lines others = strange;
    // What is stored as a list is no number when it comes as a change.
    for (const char *value : {"0", "4", "19", "21", "39", "41", "50", "59", "61", "79", "81", "99", "101",
                              "-1", "4294967297", "99999999999999999999", "on", "[1,1]"})
        others.push_back(value);
    for (const std::string &value : others)
        check({"motion_region",
               value,
               {},
               {length(value), "![notify_cb_motion_region] motion_region = " + value +
                                   " is not understood, nothing changes\n"}});
    check({"motion_region_2", "3", {"sensitivity_set 2"}, {length("3")}}); // by its beginning
}

TEST_F(KvSettingValues, NightMode)
{
    for (int mode = 0; mode <= 6; mode++)
        check({"night_mode", std::to_string(mode), {"ircut_mode_switch " + std::to_string(mode)}, {}});
    for (int mode = 7; mode <= 9; mode++)
        check({"night_mode",
               std::to_string(mode),
               {"ircut_mode_switch " + std::to_string(mode)},
               {"![notify_cb_night_mode] night_mode = " + std::to_string(mode) +
                " is not understood, nothing changes\n"}});
    check({"night_mode", "12", {"ircut_mode_switch 1"}, {}}); // the first character counts
    check_not_understood("night_mode", strange);
    check_not_understood("night_mode", {"-1", " 1", "on", "/", ":"});
}

TEST_F(KvSettingValues, FullColor)
{
    for (const char *value : {"on", "only", "on\n"})
        check({"full_color", value, {"fullcolor_mode_config 1"}, {}});
    for (const char *value : {"off", "offset"})
        check({"full_color", value, {"fullcolor_mode_config 0"}, {}});
    check_not_understood("full_color", strange);
    check_not_understood("full_color", {"ON", "o", "of", "1", "true"});
}

TEST_F(KvSettingValues, Wdr)
{
    check({"wdr", "on", {"wdr_mode_switch 2"}, {}});
    check({"wdr", "off", {"wdr_mode_switch 1"}, {}});
    check_not_understood("wdr", strange, "not support wdr_mode");
    check_not_understood("wdr", {"on ", "only", "ON", "offf", "1"}, "not support wdr_mode");
}

TEST_F(KvSettingValues, HdrSwitch)
{
    check({"hdr_switch", "on", {"hdr = 1"}, {}});
    check({"hdr_switch", "off", {"hdr = 0"}, {}});
    check_not_understood("hdr_switch", strange, "not support wdr_mode"); // wdr: deliberate
    check_not_understood("hdr_switch", {"on ", "only", "offf", "2"}, "not support wdr_mode");
}

TEST_F(KvSettingValues, Power)
{
    check({"power", "on", {"kv_sys_param_init", "ircut_init"}, {}});
    EXPECT_THAT(param_init.handles, ElementsAre(&handle));
    check({"power", "off", {}, {}});
    check_not_understood("power", strange, "not support power_mode");
    check_not_understood("power", {"on ", "only", "offf", "1"}, "not support power_mode");
}

TEST_F(KvSettingValues, PeopleSensitivity)
{
    for (int level = 1; level <= 5; level++)
        check({"people_sensitivity",
               std::to_string(level),
               {"people_sensitivity_set " + std::to_string(level)},
               {}});
    check({"people_sensitivity", "3rd", {"people_sensitivity_set 3"}, {}});
    // Detection is told all the same, and says what it was given.
    std::vector<std::pair<std::string, int>> others = {
        {"0", 0}, {"6", 6}, {"-1", -1}, {"99999999999", INT_MAX}, {"on", 0}};
    for (const std::string &value : strange)
        others.emplace_back(value, 0);
    for (const auto &[value, level] : others)
        check({"people_sensitivity",
               value,
               {"people_sensitivity_set " + std::to_string(level)},
               {"![notify_cb_people_sensitivity] people_sensitivity = " + value +
                " is not understood, nothing changes\n"}});
}

TEST_F(KvSettingValues, AlarmEvent)
{
    check({"alarm_event", "1-0-30", {"white_led_alarm 1: 1 0 30"}, {}});
    check({"alarm_event", "7-1-5-9", {"white_led_alarm 1: 7 1 5"}, {}});
    check({"alarm_event", "1-1", {"white_led_alarm 1: 1 1 0"}, {}});
    check({"alarm_event", "-4--5", {"white_led_alarm 1: 4 5 0"}, {}});
    for (const std::string &value :
         {strange[0], strange[1], strange[2], strange[3], strange[4], strange[5], strange[7], strange[8]})
        check({"alarm_event", value, {"white_led_alarm 1: 0 0 0"}, {}}); // numbers all the same
}

TEST_F(KvSettingValues, PeopleRegionDetect)
{
    const auto region = [this](const char *key, const std::string &value, const char *set,
                               const char *shown) {
        check({key, value, {std::string("people_region_set ") + set}, {std::string("(x,y,w,h): ") + shown}});
    };
    // The second and the third number change places, deliberately.
    region("people_region_detect", "10-20-30-40", "10 30 20 40", "10-20-30-40");
    region("people_region_detect", "0-0-10000-10000", "0 10000 0 10000", "0-0-10000-10000");
    region("people_region_detect", "1-2-3", "1 3 2 0", "1-2-3-0");
    region("people_region_detect", "1--2-3-4", "1 3 -2 4", "1--2-3-4");
    region("people_region_detect", "99999999999-1-2-3", "2147483647 2 1 3", "2147483647-1-2-3");
    for (const std::string &value : strange)
        region("people_region_detect", value, "0 0 0 0", "0-0-0-0");
}

TEST_F(KvSettingValues, PeopleRegionUnderAnyKey)
{
    FakeResponse response("anything", "10-20-30-40");
    notify_cb_people_region_detect(&response, &handle);
    EXPECT_THAT(acts.calls, ElementsAre("people_region_set 10 30 20 40"));
}

TEST_F(KvSettingValues, TrackSwitch)
{
    acts.track_mode = 0;
    check({"track_switch", "off", {}, {}}); // only what changes something acts
    check({"track_switch", "on", {"track_mode_config 1", "motor_mailbox_init"}, {}});
    check({"track_switch", "on", {}, {}});
    check({"track_switch", "off", {"track_mode_config 0", "motor_mailbox_fini"}, {}});
    check({"track_switch", "off", {}, {}});
    check({"track_switch", "on", {"track_mode_config 1", "motor_mailbox_init"}, {}});
    check_not_understood("track_switch", strange, "not support track_mode");
    check_not_understood("track_switch", {"on ", "only", "offf", "1"}, "not support track_mode");
}

TEST_F(KvSettingValues, SdcardRw)
{
    for (const char *value : {"rdwr", "rdwr,noatime"})
        check({"sdcard_rw", value, {"sdcard = 1"}, {}});
    for (const char *value : {"rdonly", "rdw", "RDWR", " rdwr", "on"})
        check({"sdcard_rw", value, {"sdcard = 0"}, {}});
    for (const std::string &value : strange)
        check({"sdcard_rw", value, {"sdcard = 0"}, {}}); // every value has a meaning
}

TEST_F(KvSettingValues, Detections)
{
    const std::pair<const char *, const char *> keys[] = {
        {"face_detect", "face = 1"}, {"baby_cry_detect", "baby_cry = 1"}, {"human_detect", "human = 1"}};
    for (const auto &[key, flag] : keys) {
        for (const char *value : {"on", "only"})
            check({key, value, {flag}, {}});
        for (const char *value : {"off", "offset"})
            check({key, value, {}, {}}); // never cleared again
        check_not_understood(key, strange);
        check_not_understood(key, {"ON", "o", "1"});
    }
}

TEST_F(KvSettingValues, Motor)
{
    check({"motor", "[12,-34]", {"motor = -34"}, {}});
    check({"motor", "[0,90]", {"motor = 90"}, {}});
    check({"motor", "[5,99999999999]", {"motor = 2147483647"}, {}});
    for (const char *value : {"[5]", "[5", "5,6", "[,6]", "(5,6)"})
        check({"motor", value, {"motor = 0"}, {}});
    for (const std::string &value : strange)
        check({"motor", value, {"motor = 0"}, {}}); // numbers all the same
}

const char right[] = " json format is right \n";
std::string array_of(int length)
{
    return "j->array = " + std::to_string(length) + " \n";
}

TEST_F(KvSettingValues, FavAreas)
{
    check({"fav_area_rect",
           R"([{"x1":1,"y1":2,"x2":3,"y2":4,"roi_name":"door","event_type":"enter"},)"
           R"({"x1":-5,"y1":6,"x2":7,"y2":8,"roi_name":"bed","event_type":"leave"}])",
           {"fav_area_update 1 2 3 4 door|enter", "fav_area_update -5 6 7 8 bed|leave"},
           {right, array_of(2), "cb:1 2 3 4 name=door event_type = enter \n",
            "cb:-5 6 7 8 name=bed event_type = leave \n"}});
    check({"fav_area_rect", "[]", {}, {right, array_of(0)}});
    check({"fav_area_rect", "[] and more", {}, {right, array_of(0)}}); // what follows is not looked at
}

TEST_F(KvSettingValues, FavAreaMembersThatAreNotThereAreZero)
{
    // Each region begins anew: nothing is left of the one before.
    check({"fav_area_rect",
           R"([{"x1":1,"y1":2,"x2":3,"y2":4,"roi_name":"door","event_type":"enter"},)"
           R"({},{"x1":"9","roi_name":5},7])",
           {"fav_area_update 1 2 3 4 door|enter", "fav_area_update 0 0 0 0 |", "fav_area_update 0 0 0 0 |",
            "fav_area_update 0 0 0 0 |"},
           {right, array_of(4), "cb:1 2 3 4 name=door event_type = enter \n",
            "cb:0 0 0 0 name= event_type =  \n", "cb:0 0 0 0 name= event_type =  \n",
            "cb:0 0 0 0 name= event_type =  \n"}});
}

TEST_F(KvSettingValues, FavAreaNamesAreCutAt31Bytes)
{
    const std::string name(31, 'n'), type(31, 't');
    check({"fav_area_rect",
           R"([{"x1":1,"y1":2,"x2":3,"y2":4,"roi_name":")" + name + R"(N","event_type":")" + type + R"(T"}])",
           {"fav_area_update 1 2 3 4 " + name + "|" + type},
           {right, array_of(1), "cb:1 2 3 4 name=" + name + " event_type = " + type + " \n"}});
}

TEST_F(KvSettingValues, FavAreaThatIsMissingEndsTheList)
{
    check({"fav_area_rect",
           R"([{"x1":1},null,{"x1":2}])",
           {"fav_area_update 1 0 0 0 |"},
           {right, array_of(3), "cb:1 0 0 0 name= event_type =  \n", "! temp NULL \n"}});
}

TEST_F(KvSettingValues, FavAreasGiveBackTheirMemory)
{
    for (const char *value : {R"([{"x1":1,"roi_name":"door"},null])", "{}", "[{"})
        EXPECT_EQ(leaked_bytes([&] {
                      FakeResponse response("fav_area_rect", value);
                      notify_cb_fav_area(&response, nullptr);
                      log.clear();
                      acts.calls.clear();
                  }),
                  0u)
            << value;
}

TEST_F(KvSettingValues, FavAreasThatAreNone)
{
    for (const std::string &value :
         {std::string(), std::string("null"), std::string("x"), std::string("[{"), std::string("[1 2]"),
          std::string("\x01\xff"), repeated("[", 1000), repeated("[", 60000)})
        check({"fav_area_rect", value, {}, {"! json_verify fail\n"}});
    for (const char *value : {"{}", "{\"x1\":1}", "5", "\"a\"", "true"})
        check({"fav_area_rect",
               value,
               {},
               {right, std::string("![notify_cb_fav_area] fav_area_rect = ") + value +
                           " is not understood, nothing changes\n"}});
}

TEST(KvSettingsPower, WhatCannotBeReadEndsTheDaemon)
{
    const ChildResult child = in_child([] {
        may_end = true;
        atexit([] { _exit(9); }); // nothing may be taken down beneath other threads
        naro_log_set_sink(
            [](void *, naro_log_level level, const char *text) {
                printf("%d %s", level, text);
                fflush(stdout);
            },
            nullptr);
        param_init.result = -1;
        FakeResponse response("power", "on");
        notify_cb_power_mode(&response, nullptr);
        _exit(7);
    });
    EXPECT_EQ(child.out, "6 [notify_cb_power_mode]\r\n6 [key=power][value=on]\r\n"
                         "3 [notify_cb_power_mode] kv_sys_param_init fail, exit\n");
    EXPECT_EQ(child.status, 0);
}

TEST(KvSettingsPower, WithoutAValueItIsSaidBeforeItIsDone)
{
    LogCapture log;
    Lines before;
    param_init.on_call = [&] { before = log.texts(); };
    FakeResponse response("power", nullptr);
    notify_cb_power_mode(&response, nullptr);
    EXPECT_THAT(before,
                ElementsAre("[notify_cb_power_mode]\r\n", "[notify_cb_power_mode] key or value is null\n",
                            "[notify_cb_power_mode] init ircut and motion\n"));
}

TEST(KvSettingsPower, OnlyNegativeIsAFailure)
{
    param_init.result = 1;
    FakeResponse response("power", "on");
    notify_cb_power_mode(&response, nullptr);
    EXPECT_THAT(acts.calls, ElementsAre("kv_sys_param_init", "ircut_init"));
}

// ---- Subscriptions that are not confirmed -----------------------------------------------------------------

TEST_F(KvSettings, Timeouts)
{
    const struct {
        const char *name;
        int (*call)(void *, void *);
    } timeouts[] = {
        {"notify_timeout_cb_motion_region", notify_timeout_cb_motion_region},
        {"notify_timeout_cb_night_mode", notify_timeout_cb_night_mode},
        {"notify_timeout_cb_fullcolor", notify_timeout_cb_fullcolor},
        {"notify_timeout_cb_wdr_mode", notify_timeout_cb_wdr_mode},
        {"notify_timeout_cb_track_mode", notify_timeout_cb_track_mode},
        {"notify_timeout_cb_power_mode", notify_timeout_cb_power_mode},
        {"notify_timeout_cb_sdcard_rw", notify_timeout_cb_sdcard_rw},
        {"notify_timeout_cb_AI_detect", notify_timeout_cb_AI_detect},
        {"notify_timeout_cb_motor", notify_timeout_cb_motor},
        {"notify_timeout_cb_alarm_event", notify_timeout_cb_alarm_event},
    };
    for (const auto &timeout : timeouts) {
        err.clear();
        EXPECT_EQ(timeout.call(nullptr, &handle), 0);
        EXPECT_EQ(err.text(), std::string("[") + timeout.name + "]notify timeout.\n");
    }
    EXPECT_THAT(log.texts(), IsEmpty());
    err.clear();
    EXPECT_EQ(notify_timeout_cb_fav_area(nullptr, &handle), 0);
    EXPECT_EQ(err.text(), "");
    EXPECT_THAT(log.lines(),
                ElementsAre(LogCapture::Line{NARO_LOG_ERR, "[notify_timeout_cb_fav_area]notify timeout.\n"}));
    EXPECT_THAT(acts.calls, IsEmpty());
}

} // namespace
