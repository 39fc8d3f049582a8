// Files of motion records as naro-records reads them: whole ones, damaged ones, and the forms that it prints.
#include "record_file.h"

#include <stdlib.h>
#include <string.h>
#include <time.h>

#include <gmock/gmock.h>

using std::string;
using namespace std::string_literals;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace
{

const int64_t eight = 1615708800; // 2021-03-14 08:00:00 UTC
const string header = "UVOEVENT\x01\0\0\0"s + string(116, '\0');

string bytes(const motion_record_event &record)
{
    return string(reinterpret_cast<const char *>(&record), sizeof record);
}
string record(int64_t time, uint32_t type = 1)
{
    return bytes({time, type, 0, 2, {1, 2, 3, 4}});
}
record_file read(const string &file)
{
    return record_file_read(file.data(), file.size());
}
// The remarks, faults marked with "!".
std::vector<string> remarks(const record_file &file)
{
    std::vector<string> result;
    for (const record_remark &remark : file.remarks)
        result.push_back((remark.fault ? "! " : "") + remark.text);
    return result;
}

class RecordFile : public testing::Test
{
  protected:
    void SetUp() override { zone("UTC0"); }
    static void zone(const char *name)
    {
        setenv("TZ", name, 1);
        tzset();
    }
};

TEST_F(RecordFile, AWholeFile)
{
    const record_file file =
        read(header + bytes({eight, 7, 0, 0x123456789, {1, 2, 3, 65535}}) + record(eight + 5));
    EXPECT_TRUE(file.header);
    EXPECT_THAT(remarks(file), IsEmpty());
    ASSERT_THAT(file.records, SizeIs(2));
    EXPECT_EQ(file.records[0].time, eight);
    EXPECT_EQ(file.records[0].type, 7u);
    EXPECT_EQ(file.records[0].value, 0x123456789u);
    EXPECT_THAT(file.records[0].field, ElementsAre(1, 2, 3, 65535));
    EXPECT_EQ(file.records[1].time, eight + 5);
    EXPECT_THAT(read(header).records, IsEmpty());
    EXPECT_THAT(read(header).remarks, IsEmpty());
}

TEST_F(RecordFile, AFileThatLostItsHeader)
{
    const record_file file = read(record(eight) + record(eight + 5));
    EXPECT_FALSE(file.header);
    EXPECT_THAT(file.records, SizeIs(2));
    EXPECT_THAT(remarks(file), ElementsAre("no header: the file was made anew in a folder that was there"));
    EXPECT_THAT(read(record(eight)).records, SizeIs(1));
    EXPECT_THAT(read(string(4 * 32, '\0') + "x").records, SizeIs(4)) << "zeros alone are no header";
}

TEST_F(RecordFile, AnEmptyFile)
{
    EXPECT_THAT(remarks(read("")), ElementsAre("empty: not even the header could be written"));
    EXPECT_THAT(read("").records, IsEmpty());
}

TEST_F(RecordFile, ATailThatIsCutOff)
{
    for (const size_t tail : {1u, 31u}) {
        const record_file file = read(header + record(eight) + string(tail, 'x'));
        EXPECT_THAT(file.records, SizeIs(1));
        EXPECT_THAT(remarks(file), ElementsAre("! " + std::to_string(tail) +
                                               " bytes at the end that are a piece of a record"));
        const record_file bare = read(record(eight) + string(tail, 'x'));
        EXPECT_THAT(bare.records, SizeIs(1));
        EXPECT_THAT(bare.remarks, SizeIs(2));
    }
    EXPECT_THAT(read("short").remarks, SizeIs(2));
}

TEST_F(RecordFile, AHeaderThatIsDamaged)
{
    EXPECT_THAT(remarks(read(header.substr(0, 127))),
                ElementsAre("! a header that is cut off after 127 bytes"));
    EXPECT_THAT(remarks(read(header.substr(0, 8))), ElementsAre("! a header that is cut off after 8 bytes"));
    EXPECT_THAT(read(header.substr(0, 127)).records, IsEmpty());

    string magic = header + record(eight);
    magic[3] = 'x';
    EXPECT_THAT(remarks(read(magic)), ElementsAre("! a header whose magic is damaged"));
    EXPECT_THAT(read(magic).records, SizeIs(1));
    EXPECT_TRUE(read(magic).header);

    for (const size_t at : {12u, 127u}) {
        string filled = header + record(eight);
        filled[at] = 1;
        EXPECT_THAT(remarks(read(filled)), ElementsAre("! a header with bytes where it has none"));
        EXPECT_THAT(read(filled).records, SizeIs(1));
    }
    string version = header + record(eight);
    version[8] = 2;
    EXPECT_THAT(remarks(read(version)), ElementsAre("! version 2, which nobody here can read"));
    EXPECT_THAT(read(version).records, IsEmpty());
}

TEST_F(RecordFile, OddRecords)
{
    motion_record_event odd = {eight, 1, 0, 2, {1, 2, 3, 4}};
    odd.reserved = 5;
    EXPECT_THAT(remarks(read(header + bytes(odd) + record(eight) + bytes(odd))),
                ElementsAre("! 2 records with something where nothing belongs"));
    EXPECT_THAT(remarks(read(header + bytes(odd))),
                ElementsAre("! 1 records with something where nothing belongs"));
    EXPECT_THAT(remarks(read(header + record(eight + 1) + record(eight + 1) + record(eight))),
                ElementsAre("1 times a record is older than the one before it: the clock was set back"));
}

TEST_F(RecordFile, FoldersOfHours)
{
    EXPECT_TRUE(record_folder_is_hour("2021031408"));
    EXPECT_TRUE(record_folder_is_hour("12021031408"));
    EXPECT_TRUE(record_folder_is_hour("992021031408"));
    EXPECT_FALSE(record_folder_is_hour("2021031~08"));
    for (const char *name : {"", "202103140", "202103140x", "2021-03-14", "2021031408123", ".."})
        EXPECT_FALSE(record_folder_is_hour(name)) << name;
}

TEST_F(RecordFile, ARecordBelongsToTheHourThatItWasSomewhere)
{
    EXPECT_TRUE(record_belongs("2021031408", eight));
    EXPECT_TRUE(record_belongs("2021031408", eight - 14 * 3600));
    EXPECT_FALSE(record_belongs("2021031408", eight - 14 * 3600 - 1));
    EXPECT_TRUE(record_belongs("2021031408", eight + 13 * 3600 - 1));
    EXPECT_FALSE(record_belongs("2021031408", eight + 13 * 3600));
    EXPECT_TRUE(record_belongs("2021031423", eight + 15 * 3600));
    EXPECT_TRUE(record_belongs("2019091909", 1568883600));
    EXPECT_FALSE(record_belongs("2021031424", eight + 16 * 3600));
    EXPECT_FALSE(record_belongs("2021031408", INT64_MAX));
    EXPECT_FALSE(record_belongs("2021031408", INT64_MIN));
    for (const char *name : {"2021021408", "2021130108", "2021031424", "2021023008", "records", "2021000008"})
        EXPECT_FALSE(record_belongs(name, eight)) << name;
    zone("CET-1CEST,M3.5.0,M10.5.0/3"); // the reader's zone is not asked
    EXPECT_TRUE(record_belongs("2021031408", eight));
    EXPECT_FALSE(record_belongs("2021031408", eight + 13 * 3600));
}

TEST_F(RecordFile, Types)
{
    uint32_t type = 0;
    for (const auto &[name, number] : std::vector<std::pair<string, uint32_t>>{
             {"motion", 0}, {"people", 1}, {"sound", 7}, {"8", 8}, {"4294967295", UINT32_MAX}}) {
        EXPECT_EQ(record_type_name(number), name);
        EXPECT_TRUE(record_type_of(name, &type));
        EXPECT_EQ(type, number);
    }
    EXPECT_TRUE(record_type_of("7", &type));
    EXPECT_EQ(type, 7u);
    for (const char *name : {"", "Motion", "-1", "4294967296", "99999999999", "1x", " 1"})
        EXPECT_FALSE(record_type_of(name, &type)) << name;
}

TEST_F(RecordFile, Lines)
{
    const motion_record_event people = {eight, 1, 0, 2, {10, 20, 119, 113}};
    const motion_record_event odd = {INT64_MIN, UINT32_MAX, 0, UINT64_MAX, {65535, 65535, 65535, 65535}};
    EXPECT_EQ(record_heading(RECORD_TABLE),
              "time                 type             value  fields              file\n");
    EXPECT_EQ(record_line(RECORD_TABLE, people, "a/b", false),
              "2021-03-14 08:00:00  people               2  10,20,119,113       a/b\n");
    EXPECT_EQ(record_line(RECORD_TABLE, odd, "a", false),
              "@-9223372036854775808  4294967295  18446744073709551615  65535,65535,65535,65535  a\n");
    EXPECT_EQ(record_heading(RECORD_CSV), "time,text,type,name,value,f1,f2,f3,f4,file\n");
    EXPECT_EQ(record_line(RECORD_CSV, people, "a, \"b\"", false),
              "1615708800,2021-03-14 08:00:00,1,people,2,10,20,119,113,\"a, \"\"b\"\"\"\n");
    EXPECT_EQ(
        record_line(RECORD_CSV, odd, string(300, 'a'), false),
        "-9223372036854775808,@-9223372036854775808,4294967295,4294967295,18446744073709551615,65535,65535,"
        "65535,65535," +
            string(300, 'a') + "\n");
    EXPECT_EQ(record_heading(RECORD_JSON), "");
    EXPECT_EQ(
        record_line(RECORD_JSON, people, "a/\"b\"", true),
        "{\"time\":1615708800,\"utc\":\"2021-03-14 08:00:00\",\"type\":1,\"name\":\"people\",\"value\":2,"
        "\"fields\":[10,20,119,113],\"file\":\"a/\\\"b\\\"\"}\n");
    EXPECT_EQ(
        record_line(RECORD_JSON, odd, "a", false),
        "{\"time\":-9223372036854775808,\"local\":\"@-9223372036854775808\",\"type\":4294967295,\"name\":"
        "\"4294967295\",\"value\":18446744073709551615,\"fields\":[65535,65535,65535,65535],\"file\":\"a\"}"
        "\n");
    zone("XYZ-2");
    EXPECT_EQ(record_line(RECORD_TABLE, people, "a", false).substr(0, 19), "2021-03-14 10:00:00");
    EXPECT_EQ(record_line(RECORD_TABLE, people, "a", true).substr(0, 19), "2021-03-14 08:00:00");
}

TEST_F(RecordFile, Moments)
{
    zone("CET-1CEST,M3.5.0,M10.5.0/3");
    const auto moment = [](const string &text, bool utc) {
        int64_t time = 0;
        return record_time_of(text, utc, &time) ? time : INT64_MIN;
    };
    EXPECT_EQ(moment("@1615708800", false), eight);
    EXPECT_EQ(moment("@-5", false), -5);
    EXPECT_EQ(moment("2021-03-14", true), eight - 8 * 3600);
    EXPECT_EQ(moment("2021-03-14 08:00", true), eight);
    EXPECT_EQ(moment("2021-03-14T08:00:07", true), eight + 7);
    EXPECT_EQ(moment("2019-09-19 09:59:59", true), 1568887199);
    EXPECT_EQ(moment("2021-03-14 08:00", false), eight - 3600);
    EXPECT_EQ(moment("2021-07-14 08:00", false), 1626242400) << "summer time";
    for (const char *wrong : {"",
                              "@",
                              "@x",
                              "@99999999999999999999",
                              "2021",
                              "2021-03",
                              "2021-3-14",
                              "2021x03-14",
                              "2021-03x14",
                              "2021-03-14x08:00",
                              "2021-03-14 08x00",
                              "2021-03-14 08:00x07",
                              "202/-03-14",
                              "202:-03-14",
                              "2021-02-29",
                              "2021-13-01",
                              "2021-00-01",
                              "2021-01-00",
                              "2021-03-14 ",
                              "2021-03-14 8:00",
                              "2021-03-14 08",
                              "2021-03-14 24:00",
                              "2021-03-14 08:60",
                              "2021-03-14 08:00:60",
                              "2021-03-14 08:00:00 ",
                              "2021-03-28 02:30",
                              "x"})
        EXPECT_EQ(moment(wrong, false), INT64_MIN) << wrong;
}

} // namespace
