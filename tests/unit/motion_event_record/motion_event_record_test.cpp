// Motion records from the call of a detector to the file: gate, throttles, queue, writer, start and end. The
// card is the test's (card.h), time is in its hands, and the endpoint for other processes is a fake.
#include "motion_event_record.h"

#include <semaphore.h>
#include <signal.h>
#include <stdlib.h>
#include <string.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <thread>

#include <gmock/gmock.h>

#include "card.h"
#include "fake_clock.h"
#include "in_child.h"
#include "isolate.h"
#include "lock_watch.h"
#include "log_capture.h"
#include "motion_event_record_file.h"

using std::string;
using testing::ElementsAre;
using testing::IsEmpty;

namespace
{

const string root = scratch_root();

const char *const written = "write_event successful num = 32\n";
const int32_t now = 1700000000; // 2023-11-14 22:13:20 UTC
const char *const hour = "2023111422";

struct {
    std::atomic<bool> open{false};
    std::atomic<int> starts{0}, stops{0};
    std::atomic<bool> module_there_at_stop{false};
} endpoint;

struct {
    std::atomic<int> fail_at{0}; // the allocation of this number (1: the next) fails
    std::atomic<int> live{0};
    std::atomic<size_t> last_size{0};
    std::atomic<void *> last{nullptr};
} memory;

std::atomic<bool> no_thread{false};
std::vector<std::pair<int, unsigned>> semaphores; // made: shared between processes, and the count

class Records : public testing::Test
{
  protected:
    void SetUp() override
    {
        setenv("TZ", "UTC0", 1);
        umask(0);
    }
    void TearDown() override
    {
        card.heal();
        card.go_on();
        if (motion_record)
            motion_record_finish();
        EXPECT_EQ(memory.live, 0);
    }
    void start()
    {
        ASSERT_EQ(motion_record_init(), 0);
        motion_record_settings.sdcard_writable = 1;
    }
    static int event(uint32_t type, int32_t time = now, uint64_t value = 0)
    {
        return motion_record_event_write_wrap(type, value, time, 1, 2, 3, 4);
    }
    // The values of the records of an hour's file, in order; its header must be there.
    std::vector<int> values(const string &of_hour = hour) const
    {
        const string file = card.file(of_hour);
        std::vector<int> result;
        for (size_t at = 128; at + 32 <= file.size(); at += 32)
            result.push_back(static_cast<unsigned char>(file[at + 16]));
        return result;
    }
    std::vector<string> errors() const { return log.texts(NARO_LOG_ERR); }

    Card card{root};
    FakeClock clock;
    LogCapture log;
};

// ---- What settings write ---------------------------------------------------------------------------------

// Before any other case of a process that runs them all.
TEST_F(Records, AStartValues)
{
    EXPECT_EQ(motion_record_settings.sdcard_writable, 0);
    EXPECT_EQ(motion_record_settings.face_detect, 1);
    EXPECT_EQ(motion_record_settings.human_detect, 1);
    EXPECT_EQ(motion_record_settings.baby_cry_detect, 0);
    EXPECT_EQ(motion_record_settings.track_mode, 0);
    EXPECT_EQ(motion_record, nullptr);
}

TEST_F(Records, WhatWasSetBeforeInitIsKept)
{
    motion_record_settings.sdcard_writable = 1;
    motion_record_settings.baby_cry_detect = 1;
    motion_record_track_mode_set(1);
    ASSERT_EQ(motion_record_init(), 0);
    EXPECT_EQ(event(7), 0);
    EXPECT_EQ(motion_record_track_mode_get(), 1);
    motion_record_finish();
    EXPECT_EQ(motion_record_settings.sdcard_writable, 1);
    EXPECT_EQ(motion_record_settings.baby_cry_detect, 1);
    EXPECT_EQ(motion_record_track_mode_get(), 1);
    EXPECT_EQ(values().size(), 1u);
    motion_record_track_mode_set(0);
    EXPECT_EQ(motion_record_track_mode_get(), 0);
    motion_record_settings.baby_cry_detect = 0;
}

// ---- The gate --------------------------------------------------------------------------------------------

TEST_F(Records, AnEventBecomesARecord)
{
    start();
    EXPECT_EQ(
        motion_record_event_write_wrap(0x11121314, 0x2122232425262728, now, 0x3132, 0x3334, 0x3536, 0xf738),
        0);
    ASSERT_TRUE(log.wait_for(written));
    motion_record_event expected = {now, 0x11121314, 0, 0x2122232425262728, {0x3132, 0x3334, 0x3536, 0xf738}};
    const string file = card.file(hour);
    ASSERT_EQ(file.size(), 160u);
    EXPECT_EQ(file.substr(128), string(reinterpret_cast<const char *>(&expected), sizeof expected));
    EXPECT_EQ(file.substr(0, 8), "UVOEVENT");
}

TEST_F(Records, ATimeKeepsItsSign)
{
    start();
    EXPECT_EQ(event(3, -1), 0);
    ASSERT_TRUE(log.wait_for(written));
    EXPECT_EQ(card.file("1969123123").substr(128, 8), string(8, '\xff'));
}

TEST_F(Records, WithoutACardEventsAreRefusedSilently)
{
    ASSERT_EQ(motion_record_init(), 0);
    motion_record_settings.sdcard_writable = 0;
    clock.set_wall_ms(0); // also the line about the clock stays away
    EXPECT_EQ(event(1), -1);
    EXPECT_EQ(event(3), -1);
    EXPECT_THAT(log.lines(), IsEmpty());
    motion_record_finish();
    EXPECT_THAT(card.calls(), IsEmpty());
}

TEST_F(Records, BeforeInitAndAfterFinishEventsAreRefusedSilently)
{
    motion_record_settings.sdcard_writable = 1;
    EXPECT_EQ(event(1), -1);
    EXPECT_THAT(log.lines(), IsEmpty());
    start();
    motion_record_finish();
    EXPECT_EQ(event(1), -1);
    EXPECT_EQ(event(3), -1);
    EXPECT_THAT(log.lines(), IsEmpty());
    EXPECT_THAT(card.hours(), IsEmpty());
}

TEST_F(Records, WhileTheClockIsNotSetEventsAreRefusedWithALine)
{
    start();
    clock.set_wall_ms(1438992489000 - 1);
    EXPECT_EQ(event(3), -1);
    EXPECT_EQ(event(1), -1);
    const LogCapture::Line line = {NARO_LOG_ERR, "motion_record_event_write_wrap time is not correct \n"};
    EXPECT_THAT(log.lines(), ElementsAre(line, line));
    clock.set_wall_ms(1438992489000);
    EXPECT_EQ(event(1), 0) << "nothing was remembered of the refused one";
    EXPECT_EQ(errors().size(), 2u);
}

TEST_F(Records, ASoundNeedsItsSetting)
{
    start();
    motion_record_settings.baby_cry_detect = 0;
    EXPECT_EQ(event(7), -1);
    EXPECT_THAT(log.lines(), IsEmpty());
    motion_record_settings.baby_cry_detect = 1;
    EXPECT_EQ(event(7), 0);
    EXPECT_EQ(event(7), 0) << "at any rate";
    motion_record_settings.baby_cry_detect = 0;
    EXPECT_EQ(event(6), 0) << "the others do not need it";
    EXPECT_EQ(event(8), 0);
}

TEST_F(Records, FaceAndHumanDetectionChangeNothing)
{
    start();
    motion_record_settings.face_detect = motion_record_settings.human_detect = 0;
    EXPECT_EQ(event(0), 0);
    EXPECT_EQ(event(1), 0);
    motion_record_settings.face_detect = motion_record_settings.human_detect = 1;
}

// ---- Throttles -------------------------------------------------------------------------------------------

TEST_F(Records, PeopleAndObjectsComeAtMostEveryFiveSeconds)
{
    start();
    for (const uint32_t type : {0u, 1u}) {
        EXPECT_EQ(event(type, now), 0) << type;
        EXPECT_EQ(event(type, now), -1) << type;
        EXPECT_EQ(event(type, now + 4), -1) << type;
        EXPECT_EQ(event(type, now + 5), 0) << type;
        EXPECT_EQ(event(type, now + 9), -1) << "counted from the last accepted one";
        EXPECT_EQ(event(type, now + 10), 0) << type;
    }
    EXPECT_THAT(errors(), IsEmpty());
}

TEST_F(Records, OtherTypesComeAtAnyRate)
{
    start();
    for (const uint32_t type : {2u, 3u, 255u, UINT32_MAX}) {
        EXPECT_EQ(event(type), 0);
        EXPECT_EQ(event(type), 0);
    }
}

TEST_F(Records, AfterTheClockWasSetBackTheyWaitUntilItHasCaughtUp)
{
    start();
    EXPECT_EQ(event(1, now), 0);
    EXPECT_EQ(event(1, now - 3600), -1);
    EXPECT_EQ(event(1, now + 4), -1);
    EXPECT_EQ(event(3, now - 3600), 0) << "others do not";
    EXPECT_EQ(event(1, now + 5), 0);
}

TEST_F(Records, TheFirstIsHeldAgainst1970)
{
    start();
    EXPECT_EQ(event(1, 4), -1);
    EXPECT_EQ(event(0, -1), -1) << "so is every time from 2038 on, as 32 bits show it";
    EXPECT_EQ(event(0, INT32_MIN), -1);
    EXPECT_EQ(event(1, 5), 0);
    EXPECT_EQ(event(0, INT32_MAX), 0);
    EXPECT_EQ(event(0, INT32_MIN), -1);
    EXPECT_EQ(event(3, INT32_MIN), 0) << "and these go to the year 1901";
}

TEST_F(Records, ANewInitForgetsTheLastTimes)
{
    start();
    EXPECT_EQ(event(0, now), 0);
    EXPECT_EQ(event(1, now), 0);
    motion_record_finish();
    start();
    EXPECT_EQ(event(0, now), 0);
    EXPECT_EQ(event(1, now), 0);
}

// ---- Queue and writer ------------------------------------------------------------------------------------

TEST_F(Records, TheWriterHasItsName)
{
    static char name[16];
    start();
    naro_log_set_sink([](void *, naro_log_level, const char *) { prctl(PR_GET_NAME, name); }, nullptr);
    EXPECT_EQ(event(3), 0);
    motion_record_finish(); // its line is not the last: the writer's is
    naro_log_set_sink(nullptr, nullptr);
    EXPECT_STREQ(name, "motion_record");
}

TEST_F(Records, EventsKeepTheirOrder)
{
    start();
    card.hang();
    EXPECT_EQ(event(3, now, 0), 0);
    ASSERT_TRUE(card.wait_for_hanging());
    for (uint64_t i = 1; i < 6; i++)
        EXPECT_EQ(event(3, now, i), 0);
    card.go_on();
    ASSERT_TRUE(log.wait_for(written, 6));
    EXPECT_THAT(values(), ElementsAre(0, 1, 2, 3, 4, 5));
    EXPECT_EQ(event(3, now, 6), 0); // and after the queue was empty
    ASSERT_TRUE(log.wait_for(written, 7));
    EXPECT_THAT(values(), ElementsAre(0, 1, 2, 3, 4, 5, 6));
}

TEST_F(Records, AnEventIsWrittenIntoTheHourInWhichItHappened)
{
    start();
    card.hang();
    EXPECT_EQ(event(3, now, 1), 0);
    ASSERT_TRUE(card.wait_for_hanging());
    EXPECT_EQ(event(3, now, 2), 0);
    EXPECT_EQ(event(3, now + 3600, 3), 0);
    clock.advance_ms(2 * 3600 * 1000);
    card.go_on();
    ASSERT_TRUE(log.wait_for(written, 3));
    EXPECT_THAT(values(), ElementsAre(1, 2));
    EXPECT_THAT(values("2023111423"), ElementsAre(3));
}

TEST_F(Records, AnEventTakesANodeOfItsOwnWhichGoesWhenItIsWritten)
{
    start();
    EXPECT_EQ(memory.live, 1); // the context
    card.hang();
    EXPECT_EQ(event(3), 0);
    ASSERT_TRUE(card.wait_for_hanging());
    EXPECT_EQ(event(3), 0);
    EXPECT_EQ(memory.live, 3);
    EXPECT_EQ(memory.last_size, 2 * sizeof(void *) + 32);
    card.go_on();
    motion_record_finish();
    EXPECT_EQ(memory.live, 0);
}

TEST_F(Records, WithoutMemoryAnEventIsLostWithALine)
{
    start();
    memory.fail_at = 1;
    EXPECT_EQ(event(3), -1);
    EXPECT_THAT(errors(), ElementsAre("[motion_record_event_write_wrap] no memory, an event is lost\n"));
    EXPECT_EQ(event(3), 0);
}

TEST_F(Records, WhatIsQueuedWhenTheCardGoesIsDropped)
{
    start();
    card.hang();
    EXPECT_EQ(event(3, now, 1), 0);
    ASSERT_TRUE(card.wait_for_hanging());
    EXPECT_EQ(event(3, now, 2), 0);
    motion_record_settings.sdcard_writable = 0;
    card.go_on();
    motion_record_finish();
    EXPECT_THAT(values(), ElementsAre(1));
    EXPECT_EQ(log.count(written), 1u);
}

TEST_F(Records, ACardThatHangsHoldsUpNobody)
{
    start();
    card.hang();
    EXPECT_EQ(event(3), 0);
    ASSERT_TRUE(card.wait_for_hanging());
    for (int i = 0; i < MOTION_RECORD_QUEUE_MAX; i++)
        ASSERT_EQ(event(3, now, 1), 0) << i;
    EXPECT_THAT(errors(), IsEmpty());
    for (int i = 0; i < 3; i++)
        EXPECT_EQ(event(3, now, 2), -1);
    EXPECT_THAT(errors(),
                ElementsAre("[motion_record_event_write_wrap] the card is slow and 4096 events wait: new "
                            "ones are lost\n"));
    card.go_on();
    ASSERT_TRUE(log.wait_for("[motion_record_thread] 3 events were lost while the card was slow\n"));
    EXPECT_EQ(card.file(hour).size(), 128u + 32u * (MOTION_RECORD_QUEUE_MAX + 1));
    EXPECT_EQ(event(3, now, 3), 0);
    ASSERT_TRUE(log.wait_for(written, MOTION_RECORD_QUEUE_MAX + 2));
    EXPECT_EQ(values().back(), 3);
    EXPECT_EQ(errors().size(), 2u);
}

TEST_F(Records, ASlowCardIsSaidAgainWhenItIsSlowAgain)
{
    start();
    for (int round = 1; round <= 2; round++) {
        card.hang();
        EXPECT_EQ(event(3), 0);
        ASSERT_TRUE(card.wait_for_hanging());
        while (event(3) == 0)
            ;
        EXPECT_EQ(errors().size(), round * 2u - 1);
        card.go_on();
        ASSERT_TRUE(log.wait_for("[motion_record_thread] 1 events were lost while the card was slow\n",
                                 static_cast<size_t>(round)));
    }
}

TEST_F(Records, ACardInTroubleLosesOnlyWhatCouldNotBeWritten)
{
    start();
    EXPECT_EQ(event(3, now, 1), 0);
    ASSERT_TRUE(log.wait_for(written));
    card.fail("write", ENOSPC, 1);
    EXPECT_EQ(event(3, now, 2), 0);
    ASSERT_TRUE(log.wait_for("write_event to file fail\n"));
    EXPECT_EQ(event(3, now, 3), 0);
    EXPECT_EQ(event(3, now + 3600, 4), 0);
    ASSERT_TRUE(log.wait_for(written, 3));
    EXPECT_THAT(values(), ElementsAre(1, 3));
    EXPECT_THAT(values("2023111423"), ElementsAre(4));
}

TEST_F(Records, ALimitOfTheFilesSizeIsNotTheEndOfTheDaemon)
{
    const ChildResult child = in_child([] {
        const struct rlimit limit = {128 + 32 + 20, 128 + 32 + 20};
        setrlimit(RLIMIT_FSIZE, &limit); // its signal is at its default, which ends the process
        LogCapture lines;
        motion_record_settings.sdcard_writable = 1;
        motion_record_init();
        event(3);
        event(3);
        motion_record_finish();
        if (lines.count(written) != 1 || lines.count("write_event to file fail\n") != 1)
            _exit(1);
    });
    EXPECT_EQ(child.status, 0);
    EXPECT_EQ(card.file(hour).size(), 160u);
}

TEST_F(Records, TheFolderIsLookedAtOnceForACard)
{
    const string look = "open /mnt/sdcard/ZEDRA_RECORD_MOTION/";
    const auto looks = [&] {
        size_t count = 0;
        for (const string &call : card.calls(look))
            count += call == look;
        return count;
    };
    start();
    EXPECT_EQ(looks(), 0u);
    EXPECT_EQ(event(3), 0);
    EXPECT_EQ(event(3), 0);
    ASSERT_TRUE(log.wait_for(written, 2));
    EXPECT_EQ(looks(), 2u) << "made, and opened again";
    struct stat status;
    ASSERT_EQ(stat(card.records.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07, 05u) << "made by the look, not for the file";

    // The card goes while an event waits: the next one is another card, perhaps.
    card.hang();
    EXPECT_EQ(event(3), 0);
    ASSERT_TRUE(card.wait_for_hanging());
    EXPECT_EQ(event(3), 0);
    motion_record_settings.sdcard_writable = 0;
    card.go_on();
    motion_record_finish();
    EXPECT_EQ(looks(), 2u);
    start();
    EXPECT_EQ(event(3), 0);
    ASSERT_TRUE(log.wait_for(written, 4));
    EXPECT_EQ(looks(), 3u);
}

TEST_F(Records, AfterADropTheFolderIsLookedAtAgain)
{
    const string look = "open /mnt/sdcard/ZEDRA_RECORD_MOTION/";
    start();
    EXPECT_EQ(event(3), 0);
    ASSERT_TRUE(log.wait_for(written, 1));
    card.hang();
    EXPECT_EQ(event(3, now, 1), 0);
    ASSERT_TRUE(card.wait_for_hanging());
    EXPECT_EQ(event(3, now, 2), 0);
    motion_record_settings.sdcard_writable = 0;
    card.go_on();
    ASSERT_TRUE(log.wait_for(written, 2));
    while (memory.live > 1) // until the second was dropped
        std::this_thread::yield();
    std::filesystem::remove_all(card.records); // formatted
    motion_record_settings.sdcard_writable = 1;
    EXPECT_EQ(event(3, now, 3), 0);
    ASSERT_TRUE(log.wait_for(written, 3));
    EXPECT_THAT(values(), ElementsAre(3));
    struct stat status;
    ASSERT_EQ(stat(card.records.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07, 05u);
}

TEST_F(Records, AListThatIsBrokenEndsTheProcess)
{
    const ChildResult child = in_child([] {
        Card own(root);
        motion_record_settings.sdcard_writable = 1;
        motion_record_init();
        own.hang();
        event(3);
        if (!own.wait_for_hanging())
            _exit(1);
        event(3);
        memset(memory.last, 0, sizeof(void *)); // its link to the one before
        own.go_on();
        motion_record_finish();
    });
    EXPECT_EQ(child.status, 128 + SIGABRT);
    EXPECT_THAT(child.err,
                testing::ContainsRegex(string("^") + program_invocation_short_name +
                                       ": src/motion_event_record:[0-9]+: motion_record_thread: Assertion "
                                       "`\\(l\\)->prev != \\(\\(void \\*\\)0\\)' failed\\."));
}

TEST_F(Records, ManyDetectorsAtOnce)
{
    start();
    std::vector<std::thread> detectors;
    std::atomic<int> queued{0};
    for (int n = 0; n < 4; n++)
        detectors.emplace_back([&queued, n] {
            for (int i = 0; i < 50; i++)
                queued += event(n % 2 ? 1 : 3, now + 5 * i) == 0;
        });
    motion_record_settings.baby_cry_detect = 1;
    for (std::thread &detector : detectors)
        detector.join();
    motion_record_settings.baby_cry_detect = 0;
    motion_record_finish();
    EXPECT_GE(queued, 101);
    EXPECT_EQ(log.count(written), static_cast<size_t>(queued.load()));
}

TEST_F(Records, DetectorsMayOutliveTheModule)
{
    std::atomic<bool> end{false};
    motion_record_settings.sdcard_writable = 1;
    std::thread detector([&end] {
        while (!end)
            event(3);
    });
    for (int i = 0; i < 20; i++) {
        ASSERT_EQ(motion_record_init(), 0);
        motion_record_finish();
    }
    end = true;
    detector.join();
    EXPECT_EQ(memory.live, 0);
}

// ---- Start and end ---------------------------------------------------------------------------------------

TEST_F(Records, InitAndFinish)
{
    endpoint.starts = endpoint.stops = 0;
    ASSERT_EQ(motion_record_init(), 0);
    ASSERT_NE(motion_record, nullptr);
    EXPECT_EQ(motion_record->running, 1);
    EXPECT_EQ(motion_record->reserved, 0u);
    EXPECT_TRUE(endpoint.open);
    EXPECT_THAT(log.lines(), IsEmpty());
    EXPECT_EQ(motion_record_init(), 0);
    EXPECT_THAT(log.lines(),
                ElementsAre(LogCapture::Line{NARO_LOG_INFO, "[motion_record_init] already inited\n"}));
    EXPECT_EQ(endpoint.starts, 1);
    log.clear();
    EXPECT_EQ(motion_record_finish(), 0);
    EXPECT_EQ(motion_record, nullptr);
    EXPECT_FALSE(endpoint.open);
    EXPECT_TRUE(endpoint.module_there_at_stop) << "a handler may still run until then";
    EXPECT_THAT(log.lines(), IsEmpty());
    EXPECT_EQ(motion_record_finish(), 0);
    EXPECT_THAT(log.lines(),
                ElementsAre(LogCapture::Line{NARO_LOG_INFO, "[motion_record_finish] already exit\n"}));
    EXPECT_EQ(endpoint.stops, 1);
}

TEST_F(Records, TheSemaphoreIsMadeOnceAndStays)
{
    for (int i = 0; i < 2; i++) {
        ASSERT_EQ(motion_record_init(), 0);
        motion_record_finish();
    }
    EXPECT_THAT(semaphores, ElementsAre(std::make_pair(0, 0u)));
}

TEST_F(Records, FinishWritesWhatIsQueued)
{
    start();
    card.hang();
    EXPECT_EQ(event(3, now, 1), 0);
    ASSERT_TRUE(card.wait_for_hanging());
    EXPECT_EQ(event(3, now, 2), 0);
    EXPECT_EQ(event(3, now, 3), 0);
    std::thread later([this] { card.go_on(); });
    motion_record_finish();
    later.join();
    EXPECT_THAT(values(), ElementsAre(1, 2, 3));
}

TEST_F(Records, FinishAtOnceWritesWhatIsQueued)
{
    for (int i = 0; i < 50; i++) { // the writer may not have run at all
        start();
        EXPECT_EQ(event(3), 0);
        motion_record_finish();
    }
    EXPECT_EQ(values().size(), 50u);
}

TEST_F(Records, WithoutMemoryThereIsNoModule)
{
    memory.fail_at = 1;
    EXPECT_EQ(motion_record_init(), -1);
    EXPECT_EQ(motion_record, nullptr);
    EXPECT_FALSE(endpoint.open);
    EXPECT_THAT(errors(), ElementsAre("[motion_record_init] no memory\n"));
    EXPECT_EQ(motion_record_init(), 0);
}

TEST_F(Records, WithoutAThreadThereIsNoModule)
{
    no_thread = true;
    EXPECT_EQ(motion_record_init(), -1);
    no_thread = false;
    EXPECT_EQ(motion_record, nullptr);
    EXPECT_FALSE(endpoint.open);
    EXPECT_EQ(memory.live, 0);
    EXPECT_THAT(errors(), ElementsAre("[motion_record_init] the writer thread could not be created\n"));
    EXPECT_EQ(motion_record_init(), 0);
}

// ---- Calls from other processes --------------------------------------------------------------------------

TEST_F(Records, TheTable)
{
    EXPECT_STREQ(otrpc_table[0].method, "sd_format");
    EXPECT_EQ(otrpc_table[0].handler, rpc_sdcard_format_umount_pre);
    EXPECT_STREQ(otrpc_table[1].method, "sd_umount");
    EXPECT_EQ(otrpc_table[1].handler, rpc_sdcard_format_umount_pre);
    EXPECT_EQ(otrpc_table[2].method, nullptr);
    EXPECT_EQ(otrpc_table[2].handler, nullptr);
    for (int i = 0; i < 3; i++) {
        EXPECT_EQ(otrpc_table[i].zero[0], nullptr);
        EXPECT_EQ(otrpc_table[i].zero[1], nullptr);
    }
}

TEST_F(Records, AfterTheHookNothingIsQueuedOrWrittenUntilTheCardIsBack)
{
    start();
    EXPECT_EQ(event(3, now, 1), 0);
    ASSERT_TRUE(log.wait_for(written));
    log.clear();
    int anything = 5;
    EXPECT_EQ(rpc_sdcard_format_umount_pre(&anything, nullptr, &anything), 0);
    EXPECT_THAT(log.lines(), ElementsAre(LogCapture::Line{NARO_LOG_INFO, "rpc_sdcard_format_umount_pre \n"}));
    EXPECT_EQ(event(3, now, 2), -1);
    motion_record_settings.sdcard_writable = 1;
    EXPECT_EQ(event(3, now, 3), 0);
    ASSERT_TRUE(log.wait_for(written));
    EXPECT_THAT(values(), ElementsAre(1, 3));
}

} // namespace

// ---- Fakes -----------------------------------------------------------------------------------------------

extern "C" {

int otrpc_start(void)
{
    endpoint.starts++;
    endpoint.open = true;
    return -1; // records are written all the same
}

void otrpc_stop(void)
{
    endpoint.stops++;
    endpoint.open = false;
    endpoint.module_there_at_stop = motion_record != nullptr;
}

void *__real_naro_malloc(size_t size, size_t alignment);
void *__wrap_naro_malloc(size_t size, size_t alignment)
{
    if (memory.fail_at > 0 && --memory.fail_at == 0)
        return nullptr;
    void *got = __real_naro_malloc(size, alignment);
    memset(got, 0xA5, size);
    memory.live++;
    memory.last_size = size;
    memory.last = got;
    return got;
}

void __real_naro_free(void *block);
void __wrap_naro_free(void *block)
{
    memory.live -= block != nullptr;
    __real_naro_free(block);
}

int __real_sem_init(sem_t *semaphore, int shared, unsigned value);
int __wrap_sem_init(sem_t *semaphore, int shared, unsigned value)
{
    semaphores.emplace_back(shared, value);
    return __real_sem_init(semaphore, shared, value);
}

int __real_pthread_create(pthread_t *thread, const pthread_attr_t *attr, void *(*start)(void *),
                          void *argument);
int __wrap_pthread_create(pthread_t *thread, const pthread_attr_t *attr, void *(*start)(void *),
                          void *argument)
{
    return no_thread ? EAGAIN : __real_pthread_create(thread, attr, start, argument);
}
}
