// What naro-config knows of values' forms, and its file of settings.
#include <gtest/gtest.h>
#include <set>
#include <string>
#include <vector>

#include "libvardex.h"
#include "setting_formats.h"
#include "setting_keys.h"
#include "settings_file.h"

namespace
{

struct form {
    const char *key;
    std::vector<std::string> fine, odd;
};

const std::string list(const std::string &digit, size_t areas = 32)
{
    std::string text = "[";
    for (size_t n = 0; n < areas; n++)
        text += (n > 0 ? "," : "") + digit;
    return text + "]";
}

TEST(SettingFormats, forms_are_known_by_their_edges)
{
    const std::vector<std::string> other = {"", "On", "on ", " on", "onn", "1", "of"};
    const std::vector<form> forms = {
        {"wdr", {"on", "off"}, other},
        {"hdr_switch", {"on", "off"}, other},
        {"full_color", {"on", "off"}, other},
        {"track_switch", {"on", "off"}, other},
        {"power", {"on", "off"}, other},
        {"face_detect", {"on", "off"}, other},
        {"baby_cry_detect", {"on", "off"}, other},
        {"human_detect", {"on", "off"}, other},
        {"night_mode", {"0", "3", "6"}, {"", "7", "/", "03", "-1", "x"}},
        {"people_sensitivity", {"1", "5"}, {"0", "6", "", "3.5", "99999999999999999999", "1x", " 1"}},
        {"motor",
         {"[0,0]", "[-90,45]", "[+1,2147483647]"},
         {"[0,0", "[0, 0]", "0,0", "[,]", "[2147483648,0]", "[0,0] "}},
        {"alarm_event", {"1-0-30", "0-1-0"}, {"1-2-30", "1-0", "1-0-", "-1-0-3", "1-0--3", "1-0-3-4", ""}},
        {"people_region_detect",
         {"0-0-10000-10000", "10-20-30-40"},
         {"10-20-30", "-1-2-3-4", "a-b-c-d", "1-2-3-4-"}},
        {"motion_region",
         {"1", "2", "3", "20", "40", "60", "80", "100", list("0"), list("3")},
         {"50", "0", "4", list("4"), list("1", 31), list("1", 33), list("1").substr(1) + "]", "", "1x"}},
        {"fav_area_rect",
         {"[]", R"([{"x1":1,"y1":2,"x2":3,"y2":4,"roi_name":"a","event_type":"b"}])"},
         {"", "{}", "[1]", "[{}]", "[",
          R"([{"x1":"1","y1":2,"x2":3,"y2":4,"roi_name":"a","event_type":"b"}])",
          R"([{"x1":1,"y1":2,"x2":3,"y2":4,"roi_name":5,"event_type":"b"}])",
          R"([{"x1":1,"y1":2,"x2":3,"y2":4,"roi_name":"a","event_type":"b"},7])"}},
        {"sdcard_rw", {"rdwr", "ro", ""}, {}},
        {"track", {"", "anything"}, {}},
        {"time_night", {"0", "1700000000000"}, {"", "-1", "1 ", "x"}},
    };
    EXPECT_EQ(forms.size(), static_cast<size_t>(SETTING_KEYS));
    for (const form &form : forms) {
        for (const std::string &value : form.fine)
            EXPECT_EQ(setting_format_fault(form.key, value.c_str()), nullptr)
                << form.key << " \"" << value << "\"";
        for (const std::string &value : form.odd)
            EXPECT_EQ(setting_format_fault(form.key, value.c_str()), setting_format(form.key))
                << form.key << " \"" << value << "\"";
    }
}

TEST(SettingFormats, every_known_key_has_one_and_no_other)
{
    for (const setting_key &known : setting_keys)
        EXPECT_NE(setting_format(known.key), nullptr) << known.key;
    EXPECT_EQ(setting_format("wd"), nullptr);
    EXPECT_EQ(setting_format_fault("nobody knows", "\xff"), nullptr);
}

settings_line line(const std::string &value, int code = VARDEX_TEXT)
{
    return {"nvram", "default", "k", code, value};
}

std::vector<std::string> values(const std::string &text)
{
    std::vector<settings_line> lines;
    std::string fault;
    std::vector<std::string> result;
    if (!settings_read(text, &lines, &fault))
        return {"fault " + fault};
    for (const settings_line &one : lines)
        result.push_back(one.layer + "/" + one.group + "/" + one.key + "/" + std::to_string(one.code) + "=" +
                         one.value);
    return result;
}

TEST(SettingsFile, any_value_goes_there_and_back)
{
    std::string every;
    for (int byte = 1; byte < 256; byte++)
        every += static_cast<char>(byte);
    for (const std::string &value : {every, std::string(), std::string("\\"), std::string("\\x41"),
                                     std::string(VARDEX_VALUE_MAX, '\n')}) {
        std::vector<settings_line> lines;
        std::string fault;
        const settings_line before = {"mem", every.substr(0, 127), every.substr(127, 127), VARDEX_TEXT,
                                      value};
        ASSERT_TRUE(
            settings_read(settings_write(before) + settings_write(line("7", VARDEX_INT32)), &lines, &fault))
            << fault;
        ASSERT_EQ(lines.size(), 2u);
        EXPECT_EQ(lines[0].value, value);
        EXPECT_EQ(lines[0].group, before.group);
        EXPECT_EQ(lines[0].key, before.key);
        EXPECT_EQ(lines[1].code, VARDEX_INT32);
    }
}

TEST(SettingsFile, is_written_for_any_editor)
{
    EXPECT_EQ(settings_write(line("a\tb\nc\\d\x01\x7f\xc3\xa9~ ")),
              "nvram\tdefault\tk\ttext\ta\\tb\\nc\\\\d\\x01\\x7f\\xc3\\xa9~ \n");
    EXPECT_EQ(settings_write(line("7", VARDEX_INT32)), "nvram\tdefault\tk\tint32\t7\n");
    EXPECT_EQ(settings_write(line("7", VARDEX_UINT64)), "nvram\tdefault\tk\tuint64\t7\n");
}

TEST(SettingsFile, skips_remarks_and_needs_no_last_end)
{
    EXPECT_EQ(values("# a remark\n\nmem\tg\tk\ttext\tv"), (std::vector<std::string>{"mem/g/k/1=v"}));
    EXPECT_EQ(values(""), std::vector<std::string>());
    EXPECT_EQ(values("mem\tg\tk\ttext\t\nmem\tg\tl\ttext\t\n"),
              (std::vector<std::string>{"mem/g/k/1=", "mem/g/l/1="}));
}

TEST(SettingsFile, tells_the_line_and_what_is_wrong_with_it)
{
    const std::string words = "a line is five words with tabs between",
                      name = "layer, group and key have 1 to 127 bytes",
                      slash = "behind a backslash comes t, n, x and two digits, or another one",
                      number = "the value is no number of that type";
    const auto fault = [](unsigned at, const std::string &what) {
        return std::vector<std::string>{"fault line " + std::to_string(at) + ": " + what};
    };
    EXPECT_EQ(values("#\nmem\tg\tk\ttext\n"), fault(2, words));
    EXPECT_EQ(values("mem\tg\tk\ttext\tv\tw\n"), fault(1, words));
    EXPECT_EQ(values("flash\tg\tk\ttext\tv\n"), fault(1, "the layer is mem or nvram"));
    EXPECT_EQ(values("mem\t\tk\ttext\tv\n"), fault(1, name));
    EXPECT_EQ(values("mem\tg\t\ttext\tv\n"), fault(1, name));
    EXPECT_EQ(values("mem\tg\t" + std::string(127, 'k') + "\ttext\tv\n").size(), 1u);
    EXPECT_EQ(values("mem\tg\t" + std::string(128, 'k') + "\ttext\tv\n"), fault(1, name));
    EXPECT_EQ(values("mem\tg\tk\treal\tv\n"), fault(1, "the type is text, int32 or uint64"));
    for (const char *value : {"\\", "\\q", "\\x", "\\x1", "\\x1g", "\\xG1", "\\x00"})
        EXPECT_EQ(values(std::string("mem\tg\tk\ttext\t") + value + "\n"), fault(1, slash)) << value;
    EXPECT_EQ(values("mem\tg\tk\ttext\t" + std::string(VARDEX_VALUE_MAX + 1, 'v')),
              fault(1, "the value is too long"));
    for (const char *value : {"", "x", "1x", " 1", "2147483648", "-2147483649", "+1"})
        EXPECT_EQ(values(std::string("mem\tg\tk\tint32\t") + value), fault(1, number)) << value;
    for (const char *value : {"", "-1", "18446744073709551616", "1.5"})
        EXPECT_EQ(values(std::string("mem\tg\tk\tuint64\t") + value), fault(1, number)) << value;
    EXPECT_EQ(values("mem\tg\tk\tint32\t-2147483648\nmem\tg\tk\tint32\t2147483647\n").size(), 2u);
    EXPECT_EQ(values("mem\tg\tk\tuint64\t18446744073709551615\n").size(), 1u);
    EXPECT_EQ(values(std::string("mem\tg\tk\ttext\ta\0b", 16)), fault(1, "there is a zero byte in it"));
    EXPECT_EQ(values("mem\tg\tk\ttext\tfine\nmem\n"), fault(2, words)) << "a wrong line spoils the file";
}

} // namespace
