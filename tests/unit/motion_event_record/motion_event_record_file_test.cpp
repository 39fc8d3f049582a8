// The files of motion records, byte for byte: names, hours, header and records, and a card that fails at
// every step.
#include "motion_event_record_file.h"

#include <signal.h>
#include <stdlib.h>
#include <string.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <gmock/gmock.h>

#include "card.h"
#include "isolate.h"
#include "log_capture.h"

using std::string;
using testing::ElementsAre;
using testing::IsEmpty;
using namespace std::string_literals;

namespace
{

const string root = scratch_root();

const char *const path = "/mnt/sdcard/ZEDRA_RECORD_MOTION/2021031408/motion_record_msg";
const int64_t eight = 1615708800; // 2021-03-14 08:00:00 UTC
const char *const written = "write_event successful num = 32\n";
const char *const header_written = "write_header successful num = 128\n";

LogCapture::Line err(const string &text)
{
    return {NARO_LOG_ERR, text};
}
LogCapture::Line info(const string &text)
{
    return {NARO_LOG_INFO, text};
}

const string header = "UVOEVENT\x01\0\0\0"s + string(116, '\0');

class RecordFile : public testing::Test
{
  protected:
    void SetUp() override { zone("UTC0"); }
    static void zone(const char *name) { setenv("TZ", name, 1); }
    static int write(int64_t time, uint64_t value = 0)
    {
        return motion_record_event_write({time, 0, 0, value, {0, 0, 0, 0}});
    }
    // The first second of a year.
    static int64_t year(int number)
    {
        struct tm calendar = {};
        calendar.tm_year = number - 1900;
        calendar.tm_mday = 1;
        return timegm(&calendar);
    }
    // The bytes of what write(time, value) writes.
    static string bytes(int64_t time, uint64_t value = 0)
    {
        string result;
        for (int i = 0; i < 8; i++)
            result += static_cast<char>(static_cast<uint64_t>(time) >> 8 * i);
        result += string(8, '\0');
        for (int i = 0; i < 8; i++)
            result += static_cast<char>(value >> 8 * i);
        return result + string(8, '\0');
    }
    Card card{root};
    LogCapture log;
};

// ---- Names -----------------------------------------------------------------------------------------------

TEST_F(RecordFile, AFolderIsNamedAfterTheLocalHour)
{
    char name[64];
    EXPECT_EQ(motion_record_get_dir(name, sizeof name, eight), 42);
    EXPECT_STREQ(name, "/mnt/sdcard/ZEDRA_RECORD_MOTION/2021031408");
    EXPECT_EQ(motion_record_get_dir(name, sizeof name, eight - 1), 42);
    EXPECT_STREQ(name, "/mnt/sdcard/ZEDRA_RECORD_MOTION/2021031407");
    EXPECT_EQ(motion_record_get_dir(name, sizeof name, eight + 3599), 42);
    EXPECT_STREQ(name, "/mnt/sdcard/ZEDRA_RECORD_MOTION/2021031408");
    zone("XYZ-8"); // also when the user moves to another zone while the daemon runs
    EXPECT_EQ(motion_record_get_dir(name, sizeof name, eight), 42);
    EXPECT_STREQ(name, "/mnt/sdcard/ZEDRA_RECORD_MOTION/2021031416");
}

TEST_F(RecordFile, AFolderThatDoesNotFitIsAnError)
{
    char name[64];
    EXPECT_EQ(motion_record_get_dir(name, 43, eight), 42);
    for (size_t size : {42u, 41u, 34u, 33u, 32u, 31u, 1u}) {
        memset(name, 'x', sizeof name);
        EXPECT_EQ(motion_record_get_dir(name, size, eight), -1) << size;
        EXPECT_STREQ(name, "") << size;
        EXPECT_EQ(string(name + size, sizeof name - size), string(sizeof name - size, 'x')) << size;
    }
    memset(name, 'x', sizeof name);
    EXPECT_EQ(motion_record_get_dir(name, 0, eight), -1);
    EXPECT_EQ(name[0], 'x');
}

TEST_F(RecordFile, TimesOfAllKinds)
{
    char name[64];
    EXPECT_EQ(motion_record_get_dir(name, sizeof name, 0), 42);
    EXPECT_STREQ(name, "/mnt/sdcard/ZEDRA_RECORD_MOTION/1970010100");
    EXPECT_EQ(motion_record_get_dir(name, sizeof name, INT32_MIN), 42);
    EXPECT_STREQ(name, "/mnt/sdcard/ZEDRA_RECORD_MOTION/1901121320");
    EXPECT_EQ(motion_record_get_dir(name, sizeof name, int64_t{INT32_MAX} + 1), 42);
    EXPECT_STREQ(name, "/mnt/sdcard/ZEDRA_RECORD_MOTION/2038011903");
    EXPECT_EQ(motion_record_get_dir(name, sizeof name, INT64_MAX), -1) << "a year that no calendar has";
    EXPECT_STREQ(name, "");
}

TEST_F(RecordFile, ATimeWithoutAFolderIsRefused)
{
    EXPECT_EQ(write(INT64_MAX), -1);
    EXPECT_THAT(log.lines(), ElementsAre(err("motion_record_get_dir err\n")));
    log.clear();
    EXPECT_EQ(write(year(10000000)), -1) << "the folder has a name, the file's is a character too long";
    EXPECT_THAT(log.lines(), ElementsAre(err("motion_record_get_dir err\n")));
    EXPECT_THAT(card.calls(), IsEmpty());
}

// ---- What is written -------------------------------------------------------------------------------------

TEST_F(RecordFile, TheFirstRecordOfAnHour)
{
    EXPECT_EQ(motion_record_event_write({0x0102030405060708 & 0x7fffffff,
                                         0x11121314,
                                         0,
                                         0x2122232425262728,
                                         {0x3132, 0x3334, 0x3536, 0x3738}}),
              0);
    // 84281096 s: 1972-09-02 11:31:36
    EXPECT_EQ(card.file("1972090211"), header + "\x08\x07\x06\x05\0\0\0\0"s + "\x14\x13\x12\x11\0\0\0\0"s +
                                           "\x28\x27\x26\x25\x24\x23\x22\x21"s +
                                           "\x32\x31\x34\x33\x36\x35\x38\x37"s);
    EXPECT_THAT(log.lines(), ElementsAre(info(header_written), info(written)));
}

TEST_F(RecordFile, LaterRecordsAreAppended)
{
    EXPECT_EQ(write(eight, 1), 0);
    log.clear();
    EXPECT_EQ(write(eight + 1, 2), 0);
    EXPECT_EQ(write(eight, 3), 0);
    EXPECT_EQ(card.file("2021031408"), header + bytes(eight, 1) + bytes(eight + 1, 2) + bytes(eight, 3));
    EXPECT_THAT(log.lines(), ElementsAre(info(written), info(written)));
}

TEST_F(RecordFile, ATimeBefore1970IsWrittenWithItsSign)
{
    EXPECT_EQ(write(-1), 0);
    EXPECT_EQ(card.file("1969123123"), header + bytes(-1));
    EXPECT_EQ(card.file("1969123123").substr(128, 8), string(8, '\xff'));
}

TEST_F(RecordFile, EachHourHasItsFile)
{
    EXPECT_EQ(write(eight - 1, 1), 0);
    EXPECT_EQ(write(eight, 2), 0);
    EXPECT_EQ(write(eight + 3599, 3), 0);
    EXPECT_EQ(write(eight + 3600, 4), 0);
    EXPECT_THAT(card.hours(), ElementsAre("2021031407", "2021031408", "2021031409"));
    EXPECT_EQ(card.file("2021031407"), header + bytes(eight - 1, 1));
    EXPECT_EQ(card.file("2021031408"), header + bytes(eight, 2) + bytes(eight + 3599, 3));
    EXPECT_EQ(card.file("2021031409"), header + bytes(eight + 3600, 4));
}

TEST_F(RecordFile, ADaylightSavingsHourThatComesTwiceHasOneFile)
{
    zone("CET-1CEST,M3.5.0,M10.5.0/3");
    const int64_t first_two = 1635638400; // 2021-10-31 02:00 CEST; an hour later it is two o'clock again
    EXPECT_EQ(write(first_two - 1, 1), 0);
    EXPECT_EQ(write(first_two + 1800, 2), 0);
    EXPECT_EQ(write(first_two + 3600 + 1800, 3), 0);
    EXPECT_EQ(write(first_two + 7200, 4), 0);
    EXPECT_THAT(card.hours(), ElementsAre("2021103101", "2021103102", "2021103103"));
    EXPECT_EQ(card.file("2021103102"), header + bytes(first_two + 1800, 2) + bytes(first_two + 5400, 3));
}

TEST_F(RecordFile, ADaylightSavingsHourThatDoesNotComeHasNone)
{
    zone("CET-1CEST,M3.5.0,M10.5.0/3");
    const int64_t three = 1616893200; // 2021-03-28 03:00 CEST, a second after 01:59:59 CET
    EXPECT_EQ(write(three - 1, 1), 0);
    EXPECT_EQ(write(three, 2), 0);
    EXPECT_THAT(card.hours(), ElementsAre("2021032801", "2021032803"));
}

TEST_F(RecordFile, AfterTheClockWasSetBackAnEarlierHourGoesOn)
{
    EXPECT_EQ(write(eight, 1), 0);
    EXPECT_EQ(write(eight + 3600, 2), 0);
    EXPECT_EQ(write(eight + 10, 3), 0);
    EXPECT_EQ(card.file("2021031408"), header + bytes(eight, 1) + bytes(eight + 10, 3));
}

TEST_F(RecordFile, AFileThatVanishedFromItsFolderBeginsWithoutAHeader)
{
    EXPECT_EQ(write(eight, 1), 0);
    ASSERT_EQ(unlink((root + path).c_str()), 0);
    log.clear();
    EXPECT_EQ(write(eight + 1, 2), 0);
    EXPECT_EQ(card.file("2021031408"), bytes(eight + 1, 2));
    EXPECT_THAT(log.lines(), ElementsAre(info(written)));
}

TEST_F(RecordFile, ModesAreThoseOfTheFormatLessTheUmask)
{
    const mode_t before = umask(0);
    EXPECT_EQ(write(eight), 0);
    umask(before);
    struct stat status;
    ASSERT_EQ(stat((card.records + "/2021031408").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0777u);
    ASSERT_EQ(stat(card.records.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0777u);
    ASSERT_EQ(stat((root + path).c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0666u);
    unlink((root + path).c_str());
    umask(0);
    EXPECT_EQ(write(eight), 0); // without the header
    umask(before);
    ASSERT_EQ(stat((root + path).c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0666u);
}

TEST_F(RecordFile, ARecordIsOneWrite)
{
    EXPECT_EQ(write(eight), 0);
    EXPECT_EQ(card.calls("write").size(), 2u) << "the header's and its own";
    EXPECT_EQ(write(eight), 0);
    EXPECT_EQ(card.calls("write").size(), 3u);
}

TEST_F(RecordFile, ADescriptorMayHaveTheNumberZero)
{
    const int kept = dup(0);
    close(0);
    EXPECT_EQ(motion_record_check_folder(), 0);
    EXPECT_EQ(motion_record_check_folder(), 0);
    EXPECT_EQ(write(eight, 1), 0);
    EXPECT_EQ(write(eight, 2), 0);
    dup2(kept, 0);
    close(kept);
    EXPECT_EQ(card.file("2021031408"), header + bytes(eight, 1) + bytes(eight, 2));
    EXPECT_THAT(log.texts(NARO_LOG_ERR), IsEmpty());
    EXPECT_EQ(card.calls("mkdir").size(), 5u) << "made by the look; then three parents and the hour";
}

TEST_F(RecordFile, TheLongestNameOfAFile)
{
    EXPECT_EQ(write(year(9999999)), 0);
    EXPECT_EQ(card.file("9999999010100"), header + bytes(year(9999999)));
}

TEST_F(RecordFile, NoDescriptorIsLeft)
{
    const int before = dup(0);
    close(before);
    write(eight);
    card.fail("write", EIO);
    write(eight);
    write(eight + 3600);
    card.heal();
    card.fail("open", EIO);
    write(eight);
    card.heal();
    motion_record_check_folder();
    const int after = dup(0);
    close(after);
    EXPECT_EQ(after, before);
}

// ---- Headers ---------------------------------------------------------------------------------------------

TEST_F(RecordFile, TheHeaderCallsAlone)
{
    EXPECT_EQ(motion_record_creat_dir_msgheader(path), 0);
    EXPECT_EQ(card.file("2021031408"), header);
    EXPECT_EQ(write(eight), 0);
    log.clear();
    EXPECT_EQ(motion_record_write_header(path), 0); // empties the file
    EXPECT_EQ(card.file("2021031408"), header);
    EXPECT_THAT(log.lines(), ElementsAre(info(header_written)));
}

TEST_F(RecordFile, AHeaderWithoutItsFolder)
{
    EXPECT_EQ(motion_record_write_header(path), -1);
    EXPECT_THAT(log.lines(), ElementsAre(err("open "s + path + " fail,errno = 2\n")));
}

TEST_F(RecordFile, AHeaderWhoseFolderCannotBeMade)
{
    card.fail("mkdir", EROFS);
    EXPECT_EQ(motion_record_creat_dir_msgheader(path), -1);
    EXPECT_THAT(log.lines(), ElementsAre(err("create "s + path + " parent dir fail,errno = 30\n")));
    EXPECT_THAT(card.calls("open"), IsEmpty());
}

TEST_F(RecordFile, AHeaderThatIsNotTakenLeavesNoPieceBehind)
{
    card.fail("write", -101, 1); // the first 100 bytes,
    card.fail("write", ENOSPC);  // and then the card is full
    EXPECT_EQ(motion_record_creat_dir_msgheader(path), -1);
    EXPECT_EQ(card.file("2021031408"), "");
    EXPECT_THAT(log.lines(), ElementsAre(err("write_header fail\n")));
}

TEST_F(RecordFile, WritesThatComeUpShortGoOn)
{
    card.fail("write", -101, 1);
    card.fail("write", -2, 1);
    EXPECT_EQ(motion_record_creat_dir_msgheader(path), 0);
    EXPECT_EQ(card.file("2021031408"), header);
    card.fail("write", -32, 1); // 31 bytes
    EXPECT_EQ(write(eight), 0);
    EXPECT_EQ(card.file("2021031408"), header + bytes(eight));
}

// ---- A card in trouble -----------------------------------------------------------------------------------

TEST_F(RecordFile, AFullCard)
{
    EXPECT_EQ(write(eight, 1), 0);
    log.clear();
    card.fail("write", ENOSPC);
    EXPECT_EQ(write(eight, 2), -1);
    EXPECT_THAT(log.lines(), ElementsAre(err("write_event to file fail\n")));
    card.heal();
    EXPECT_EQ(write(eight, 3), 0);
    EXPECT_EQ(card.file("2021031408"), header + bytes(eight, 1) + bytes(eight, 3));
}

TEST_F(RecordFile, APieceOfARecordIsTakenBack)
{
    EXPECT_EQ(write(eight, 1), 0);
    card.fail("write", -32, 1); // 31 of 32 bytes
    card.fail("write", ENOSPC, 1);
    log.clear();
    EXPECT_EQ(write(eight, 2), -1);
    EXPECT_THAT(log.lines(), ElementsAre(err("write_event to file fail\n")));
    EXPECT_EQ(card.file("2021031408"), header + bytes(eight, 1));
    card.fail("write", -2, 1); // 1 byte
    card.fail("write", ENOSPC, 1);
    EXPECT_EQ(write(eight, 3), -1);
    EXPECT_EQ(card.file("2021031408"), header + bytes(eight, 1));
    card.fail("write", -1, 1); // no byte at all
    EXPECT_EQ(write(eight, 3), -1);
    EXPECT_EQ(card.file("2021031408"), header + bytes(eight, 1));
    EXPECT_EQ(write(eight, 4), 0);
    EXPECT_EQ(card.file("2021031408"), header + bytes(eight, 1) + bytes(eight, 4));
}

TEST_F(RecordFile, AFullCardAtTheFirstRecordOfAnHour)
{
    card.fail("write", ENOSPC);
    EXPECT_EQ(write(eight), -1);
    EXPECT_THAT(log.lines(), ElementsAre(err("write_header fail\n"), err("write_event to file fail\n")));
    EXPECT_EQ(card.file("2021031408"), "");
    card.heal();
    EXPECT_EQ(write(eight, 1), 0);
    EXPECT_EQ(card.file("2021031408"), bytes(eight, 1)) << "the folder is there, so no header";
    EXPECT_EQ(write(eight + 3600, 2), 0) << "the next hour works";
    EXPECT_EQ(card.file("2021031409"), header + bytes(eight + 3600, 2));
}

TEST_F(RecordFile, AReadOnlyCard)
{
    EXPECT_EQ(write(eight, 1), 0);
    log.clear();
    card.fail("open", EROFS);
    card.fail("mkdir", EROFS);
    const string cannot = "open "s + path + " fail,errno = 30\n";
    EXPECT_EQ(write(eight, 2), 0) << "deliberate: what cannot be opened is no failure";
    EXPECT_THAT(log.lines(), ElementsAre(err(cannot))) << "the file is there, so no header is tried";
    log.clear();
    EXPECT_EQ(write(eight + 3600, 3), 0);
    const string next = "/mnt/sdcard/ZEDRA_RECORD_MOTION/2021031409/motion_record_msg";
    EXPECT_THAT(log.lines(), ElementsAre(err("create " + next + " parent dir fail,errno = 30\n"),
                                         err("open " + next + " fail,errno = 30\n")));
    card.heal();
    EXPECT_EQ(write(eight + 3600, 4), 0);
    EXPECT_EQ(card.file("2021031408"), header + bytes(eight, 1));
    EXPECT_EQ(card.file("2021031409"), header + bytes(eight + 3600, 4));
}

TEST_F(RecordFile, AFolderWithoutPermission)
{
    ASSERT_EQ(dir_make_parent(path, 0755), 0);
    card.fail("open", EACCES);
    EXPECT_EQ(write(eight), 0);
    const LogCapture::Line cannot = err("open "s + path + " fail,errno = 13\n");
    EXPECT_THAT(log.lines(), ElementsAre(cannot, cannot)) << "the header's, and then the record's";
}

TEST_F(RecordFile, ABadContactDoesNotCostTheHour)
{
    EXPECT_EQ(write(eight, 1), 0);
    card.fail("open", EIO, 1);
    log.clear();
    EXPECT_EQ(write(eight, 2), 0);
    EXPECT_EQ(card.file("2021031408"), header + bytes(eight, 1) + bytes(eight, 2));
    EXPECT_THAT(log.lines(), ElementsAre(info(written)));
}

TEST_F(RecordFile, APulledCard)
{
    // A mount point without a card: here a link to where the card would be.
    std::filesystem::remove_all(card.top);
    std::filesystem::create_directory_symlink("nowhere", card.top);
    EXPECT_EQ(write(eight), 0);
    EXPECT_THAT(log.lines(), ElementsAre(err("create "s + path + " parent dir fail,errno = 2\n"),
                                         err("open "s + path + " fail,errno = 2\n")));
    std::filesystem::remove(card.top);
}

TEST_F(RecordFile, ALimitOfTheFilesSize)
{
    EXPECT_EQ(write(eight, 1), 0);
    signal(SIGXFSZ, SIG_IGN);
    struct rlimit before;
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &before), 0);
    const struct rlimit limit = {128 + 32 + 20, before.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
    log.clear();
    EXPECT_EQ(write(eight, 2), -1); // 20 bytes of it fit
    EXPECT_EQ(write(eight + 3600, 3), 0);
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &before), 0);
    signal(SIGXFSZ, SIG_DFL);
    EXPECT_THAT(log.lines(),
                ElementsAre(err("write_event to file fail\n"), info(header_written), info(written)));
    EXPECT_EQ(card.file("2021031408"), header + bytes(eight, 1));
    EXPECT_EQ(write(eight, 4), 0);
    EXPECT_EQ(card.file("2021031408"), header + bytes(eight, 1) + bytes(eight, 4));
}

TEST_F(RecordFile, APieceThatCannotBeTakenBackIsSaid)
{
    // A pipe takes bytes and cannot be made shorter.
    ASSERT_EQ(dir_make_parent(path, 0755), 0);
    ASSERT_EQ(mkfifo((root + path).c_str(), 0600), 0);
    card.fail("write", EIO, 1);
    EXPECT_EQ(write(eight), -1);
    EXPECT_THAT(log.lines(), ElementsAre(err("write_event to file fail\n")))
        << "no piece, nothing to take back";
    log.clear();
    card.fail("write", -11, 1);
    card.fail("write", EIO);
    EXPECT_EQ(write(eight), -1);
    EXPECT_THAT(log.lines(),
                ElementsAre(err("write_event to file fail\n"),
                            err("[put_back] "s + path + " ends in a piece: Invalid argument\n")));
}

// ---- The folder of all records ---------------------------------------------------------------------------

TEST_F(RecordFile, TheFolderIsMadeWhenItIsMissing)
{
    const mode_t before = umask(0);
    EXPECT_EQ(motion_record_check_folder(), 0);
    umask(before);
    struct stat status;
    ASSERT_EQ(stat(card.records.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0755u);
    const string open = "open /mnt/sdcard/ZEDRA_RECORD_MOTION/",
                 made = "mkdir /mnt/sdcard/ZEDRA_RECORD_MOTION/";
    EXPECT_THAT(card.calls(), ElementsAre(open, made, open));
    EXPECT_EQ(motion_record_check_folder(), 0);
    EXPECT_THAT(card.calls(), ElementsAre(open, made, open, open));
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(RecordFile, AFolderThatCannotBeOpened)
{
    card.fail("open", EIO);
    EXPECT_EQ(motion_record_check_folder(), -1);
    EXPECT_THAT(log.lines(), ElementsAre(err("Fail to open the record folder:Input/output error")));
    EXPECT_THAT(card.calls("mkdir"), IsEmpty());
}

TEST_F(RecordFile, AFileInTheFoldersPlace)
{
    std::ofstream(card.records) << "x";
    EXPECT_EQ(motion_record_check_folder(), -1);
    EXPECT_THAT(log.lines(), ElementsAre(err("Fail to open the record folder:Not a directory")));
}

TEST_F(RecordFile, AFolderThatCannotBeMade)
{
    card.fail("mkdir", EROFS);
    EXPECT_EQ(motion_record_check_folder(), -1);
    EXPECT_THAT(log.lines(), ElementsAre(err("The record folder is not exists and it can not be created! "
                                             "Read-only file system")));
}

TEST_F(RecordFile, AFolderThatVanishesAtOnce)
{
    card.fail("open", ENOENT);
    card.fail("mkdir", -1); // it goes through
    EXPECT_EQ(motion_record_check_folder(), -1);
    EXPECT_THAT(log.lines(), ElementsAre(err("Fail to open the record folder:No such file or directory")));
    EXPECT_EQ(card.calls("open").size(), 2u);
    EXPECT_EQ(card.calls("mkdir").size(), 1u);
}

} // namespace
