// The detection task: every rule of a frame, of the settings, of start and end, with all that stands around it in the
// test's hands (road.h).
#include "mid_hchd.h"

#include <string.h>

#include <gmock/gmock.h>

#include "failures_to_stderr.h"
#include "fake_clock.h"
#include "log_capture.h"
#include "road.h"

using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;
using testing::SizeIs;

using Journal = std::vector<std::string>;

namespace
{

const int no_memory = static_cast<int>(0xA000200Cu);

Step frame()
{
    return {};
}
// left, right, top, bottom in blocks, ends exclusive
Step moved(int left, int right, int top, int bottom)
{
    Step step;
    step.moved = {{left, right, top, bottom}};
    return step;
}
// Motion in the middle: pixels 104,88 to 127,111, which becomes the crop 100,84 .. 131,115.
Step moved()
{
    return moved(14, 15, 12, 13);
}
Step people(std::vector<BBox> boxes)
{
    Step step = moved();
    step.boxes = std::move(boxes);
    return step;
}
Step quit()
{
    Step step;
    step.type = 256;
    step.size = step.width = step.height = 0;
    return step;
}
Step failure()
{
    Step step;
    step.kind = Step::failure;
    return step;
}

class MidHchd : public testing::Test
{
  protected:
    void TearDown() override
    {
        // As at the start of a process; not in SetUp, so that a case of its own process sees the start itself.
        mid_hchd_sensitivity_set(2);
        mid_hchd_people_sensitivity_set(3);
        set_mid_people_region(0, 10000, 0, 10000);
    }
    // The script from init to fini; ends when the task waits for more.
    void run(const std::vector<Step> &steps)
    {
        r.frames = steps;
        ASSERT_EQ(mid_hchd_init(2), 0);
        ASSERT_TRUE(r.wait_until_idle());
        ASSERT_EQ(mid_hchd_fini(), 0);
    }
    // From here on the journal also tells what had been said.
    void note_what_is_said()
    {
        r.said = [this] {
            std::string all = out.text();
            for (const std::string &line : log.texts())
                all += line;
            return all;
        };
    }
    // The journal from the first take to the last give.
    Journal frames_journal() const
    {
        auto begin = r.journal.begin(), end = r.journal.end();
        while (begin != end && begin->substr(0, 4) != "take")
            ++begin;
        while (end != begin && (end - 1)->substr(0, 4) != "give")
            --end;
        return Journal(begin, end);
    }
    // The lines of the journal that begin with one of the words.
    Journal only(const std::vector<std::string> &words) const
    {
        Journal result;
        for (const std::string &line : r.journal)
            for (const std::string &word : words)
                if (line.substr(0, word.size()) == word)
                    result.push_back(line);
        return result;
    }

    FakeClock clock;
    Road r;
    LogCapture log;
    OutputCapture out{STDOUT_FILENO};
};

std::string text(const naro_isp_track_param &list)
{
    std::string result;
    for (const naro_track_box &b : list.box)
        result += std::to_string(b.x1) + "," + std::to_string(b.y1) + "," + std::to_string(b.x2) + "," +
                  std::to_string(b.y2) + " ";
    return result;
}
const char *const empty_list = "0,0,0,0 0,0,0,0 0,0,0,0 0,0,0,0 0,0,0,0 0,0,0,0 ";

const char *const first_frame_fails = "yuv queue dequeue for 1st frame fail, sleep then retry\n";
const char *const frame_fails = "yuv queue dequeue fail, sleep then retry\n";
const char *const released = "line[1954] ret=0\nline[1957] ret=0\nline[1960] ret=0\nline[1964] ret=0\n";

std::string first_frame_line(const Road &r, int number,
                             const std::string &numbers = "w: 320, h: 192, size: 92160")
{
    char pointer[32];
    snprintf(pointer, sizeof pointer, "[%p] ", static_cast<void *>(r.element(number)));
    return std::string("get 1st frame ok, ") + pointer + numbers + "\n\n";
}

// ---- Start values, before any setting --------------------------------------------------------------------

// In one case, because a setting of an earlier one would hide them when all cases share a process.
TEST_F(MidHchd, StartValues)
{
    // Motion that touches three edges each: the people region is all of the frame, so it is looked at itself.
    run({frame(), moved(0, 2, 0, 24), moved(38, 40, 0, 24), moved(0, 40, 0, 2), moved(0, 40, 22, 24)});
    ASSERT_THAT(r.sads, SizeIs(4));
    EXPECT_EQ(r.sads[0].control.threshold, 960);
    EXPECT_EQ(r.init_config.input_height, 192u);
    EXPECT_EQ(r.init_config.input_width, 320u);
    EXPECT_EQ(r.init_config.score_threshold, 0.5f);
    EXPECT_EQ(r.init_config.iou_threshold, 0.5f);
    EXPECT_EQ(r.init_config.thread_count, 1u);
    EXPECT_EQ(r.init_config.max_detection, 5);
    ASSERT_THAT(r.forwards, SizeIs(4));
    EXPECT_EQ(r.forwards[0].config.score_threshold, 0.5f);
    EXPECT_EQ(r.forwards[0].config.iou_threshold, 0.5f);
    EXPECT_EQ(r.forwards[0].config.thread_count, 1u);
    EXPECT_EQ(r.forwards[0].config.max_detection, 5);
    EXPECT_EQ(r.forwards[0].width, 32);
    EXPECT_EQ(r.forwards[1].width, 32);
    EXPECT_EQ(r.forwards[2].height, 32);
    EXPECT_EQ(r.forwards[3].height, 32);
}

// ---- Start and end ---------------------------------------------------------------------------------------

TEST_F(MidHchd, InitAndFiniInOrder)
{
    r.free_results = {0, 0, 0};
    run({frame()});
    EXPECT_THAT(r.journal,
                ElementsAre("no care regions", "ive create 0", "picture 10", "picture 9", "picture 0",
                            "network init", "model 0", "area 16384 28224", "thread", "take 0", "take 1",
                            "give 1", "give 0", "picture free 10", "picture free 9", "picture free 0",
                            "network release", "ive destroy 0"));
    ASSERT_THAT(r.pictures, SizeIs(3));
    EXPECT_EQ(r.pictures[0].stride, 320);
    EXPECT_EQ(r.pictures[0].width, 320);
    EXPECT_EQ(r.pictures[0].height, 192);
    for (size_t i : {1u, 2u}) {
        EXPECT_EQ(r.pictures[i].stride, 40);
        EXPECT_EQ(r.pictures[i].width, 40);
        EXPECT_EQ(r.pictures[i].height, 24);
    }
    EXPECT_EQ(out.text(), first_frame_line(r, 0) + "recv cmd quit\nquit!\n" + released);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(MidHchd, TheThreadHasItsName)
{
    run({frame(), frame()});
    EXPECT_THAT(r.thread_names, ElementsAre("mid_hchdfd_Task", "mid_hchdfd_Task", "mid_hchdfd_Task"));
}

TEST_F(MidHchd, ASecondInitChangesNothing)
{
    r.frames = {frame()};
    ASSERT_EQ(mid_hchd_init(2), 0);
    ASSERT_TRUE(r.wait_until_idle());
    const Journal before = r.journal;
    EXPECT_EQ(mid_hchd_init(2), 0);
    EXPECT_EQ(r.journal, before);
    EXPECT_THAT(log.lines(),
                ElementsAre(LogCapture::Line{NARO_LOG_INFO, "[mid_hchd_init] already inited\n"}));
    mid_hchd_fini();
    EXPECT_THAT(only({"give"}), ElementsAre("give 1", "give 0"));
}

TEST_F(MidHchd, AfterFiniAllStartsAnew)
{
    run({frame(), frame()}); // leaves the toggle and the slots as they are in the middle
    r.journal.clear();
    r.next_step = 0;
    r.idle = false;
    run({frame(), frame(), frame()});
    EXPECT_THAT(frames_journal(), ElementsAre("take 3", "take 4", "sad 3 4", "track 0", "give 3", "take 5",
                                              "sad 5 4", "track 0", "give 4", "take 6", "give 6", "give 5"));
}

TEST_F(MidHchd, NoDetector)
{
    r.init_network = -1;
    EXPECT_EQ(mid_hchd_init(2), -1);
    EXPECT_EQ(out.text(), "[HD] Could not create Network handle\n");
    EXPECT_THAT(r.journal, ElementsAre("no care regions", "ive create 0", "picture 10", "picture 9",
                                       "picture 0", "network init"));
    out.clear();
    r.journal.clear();
    EXPECT_EQ(mid_hchd_fini(), 0);
    EXPECT_THAT(r.journal, ElementsAre("picture free 10", "picture free 9", "picture free 0",
                                       "network release nothing", "ive destroy 0"));
    EXPECT_EQ(out.text(), released);
    EXPECT_EQ(r.enqueues.size(), 0u);
}

TEST_F(MidHchd, InitBeginsWithNothing)
{
    r.init_network = -1;
    EXPECT_EQ(mid_hchd_init(2), -1);
    r.init_network = 0;
    r.no_thread = true;
    r.create = -1; // no pictures this time
    EXPECT_EQ(mid_hchd_init(2), 0);
    mid_hchd_fini();
    ASSERT_THAT(r.freed, SizeIs(3));
    for (const mi_ive_image &image : r.freed)
        EXPECT_EQ(image.virt_addr[0], nullptr);
}

TEST_F(MidHchd, NoThread)
{
    r.no_thread = true;
    EXPECT_EQ(mid_hchd_init(2), 0);
    EXPECT_THAT(log.lines(),
                ElementsAre(LogCapture::Line{NARO_LOG_ERR,
                                             "[mid_hchd_init] the detection thread could not be created\n"}));
    EXPECT_EQ(mid_hchd_fini(), 0);
    EXPECT_EQ(r.enqueues.size(), 0u);
    EXPECT_EQ(out.text(), released);
}

TEST_F(MidHchd, FiniTellsWhatEachReleaseAnswered)
{
    r.free_results = {11, -22, 33};
    r.destroy = 44;
    run({frame()});
    EXPECT_EQ(out.text(),
              first_frame_line(r, 0) +
                  "recv cmd quit\nquit!\n"
                  "line[1954] ret=11\nline[1957] ret=-22\nline[1960] ret=33\nline[1964] ret=44\n");
}

TEST_F(MidHchd, ASecondFiniFreesNothingTwice)
{
    run({frame(), moved()});
    r.freed.clear();
    r.enqueues.clear();
    EXPECT_EQ(mid_hchd_fini(), 0);
    ASSERT_THAT(r.freed, SizeIs(3));
    for (const mi_ive_image &image : r.freed)
        EXPECT_EQ(image.virt_addr[0], nullptr);
    EXPECT_EQ(r.enqueues.size(), 0u);
}

TEST_F(MidHchd, TheColourPictureIsFreedAsItWasAllocated)
{
    run({frame(), moved()});
    ASSERT_THAT(r.cscs, SizeIs(1));
    ASSERT_EQ(r.cscs[0].rgb.width, 32); // the task has changed it
    ASSERT_THAT(r.freed, SizeIs(3));
    EXPECT_EQ(r.freed[0].type, 10u);
    EXPECT_EQ(r.freed[0].width, 320);
    EXPECT_EQ(r.freed[0].height, 192);
    EXPECT_EQ(r.freed[0].stride[0], 320);
    EXPECT_EQ(r.freed[0].virt_addr[0], r.cscs[0].rgb.virt_addr[0]);
    EXPECT_EQ(r.freed[0].phys_addr[0], reinterpret_cast<uintptr_t>(r.freed[0].virt_addr[0]));
    EXPECT_EQ(r.freed[1].virt_addr[0], r.sads[0].sad.virt_addr[0]);
    EXPECT_EQ(r.freed[2].virt_addr[0], r.sads[0].thr.virt_addr[0]);
}

TEST_F(MidHchd, TheEngineCannotBeHad)
{
    r.create = static_cast<int>(0xA0002004u);
    Step refused;
    refused.sad = static_cast<int>(0xA0002005u);
    run({frame(), refused}); // lives on without motion
    EXPECT_THAT(r.journal,
                ElementsAre("no care regions", "ive create 0", "network init", "model 0", "area 16384 28224",
                            "thread", "take 0", "take 1", "sad 0 1", "track 0", "give 0", "take 2", "give 2",
                            "give 1", "picture free 0", "picture free 0", "picture free 0", "network release",
                            "ive destroy 0"));
    EXPECT_EQ(out.text(), "Could not create IVE handle\n" + first_frame_line(r, 0) +
                              "MI_IVE_Sad() return ERROR 0xA0002005\nMD_frame_difference is failed!\n" +
                              "recv cmd quit\nquit!\n" + released);
    for (const mi_ive_image &image : r.freed)
        EXPECT_EQ(image.virt_addr[0], nullptr);
}

TEST_F(MidHchd, APictureCannotBeHad)
{
    const struct {
        const char *message;
        Journal journal; // between the handle's creation and the detector's
    } cases[] = {
        {"[Module_SAD 624] Could not allocate MVE image\n", {"picture 10", "ive destroy 0"}},
        {"Can't allocate output buffer 0\n", {"picture 10", "picture 9", "picture free 10", "ive destroy 0"}},
        {"Can't allocate output buffer 1\n",
         {"picture 10", "picture 9", "picture 0", "picture free 9", "picture free 10", "ive destroy 0"}},
    };
    note_what_is_said();
    for (int fails = 1; fails <= 3; fails++) {
        SCOPED_TRACE(fails);
        const auto &c = cases[fails - 1];
        r.journal.clear();
        r.said_before.clear();
        r.pictures.clear();
        r.freed.clear();
        r.picture_fails = fails;
        r.next_step = 0;
        r.idle = false;
        out.clear();
        Step refused;
        refused.sad = no_memory;
        r.frames = {frame(), refused};
        EXPECT_EQ(mid_hchd_init(2), 0);
        ASSERT_TRUE(r.wait_until_idle());
        Journal expected = {"no care regions", "ive create 0"};
        expected.insert(expected.end(), c.journal.begin(), c.journal.end());
        for (const char *line : {"network init", "model 0", "area 16384 28224", "thread"})
            expected.push_back(line);
        EXPECT_EQ(Journal(r.journal.begin(), r.journal.begin() + static_cast<long>(expected.size())),
                  expected);
        EXPECT_EQ(out.text().substr(0, strlen(c.message)), c.message);
        EXPECT_EQ(r.said_before_line(c.journal.back()), c.message);
        EXPECT_EQ(r.said_before_line(c.journal[static_cast<size_t>(fails)]), c.message); // what comes next
        EXPECT_THAT(only({"track", "event"}), ElementsAre("track 0"));
        const size_t freed_before = r.freed.size();
        mid_hchd_fini();
        // Nothing is left to free, and nothing twice.
        for (size_t i = freed_before; i < r.freed.size(); i++)
            EXPECT_EQ(r.freed[i].virt_addr[0], nullptr);
        EXPECT_EQ(r.freed.size(), freed_before + 3);
    }
}

// ---- How the task ends -----------------------------------------------------------------------------------

TEST_F(MidHchd, FiniWakesATaskThatWaits)
{
    r.frames = {frame()};
    ASSERT_EQ(mid_hchd_init(2), 0);
    ASSERT_TRUE(r.wait_until_idle());
    EXPECT_EQ(mid_hchd_fini(), 0);
    ASSERT_THAT(r.enqueues, SizeIs(1));
    EXPECT_EQ(r.enqueues[0].size, 0u);
    EXPECT_EQ(r.enqueues[0].width, 0u);
    EXPECT_EQ(r.enqueues[0].height, 0u);
    EXPECT_EQ(r.enqueues[0].type, 256u);
    EXPECT_EQ(r.enqueues[0].timestamp, 0u);
    EXPECT_THAT(clock.sleeps(), IsEmpty());
}

TEST_F(MidHchd, FiniBeforeTheFirstFrame)
{
    run({});
    EXPECT_THAT(frames_journal(), ElementsAre("take 0", "give 0"));
    EXPECT_EQ(out.text(), std::string("recv cmd quit\n") + released);
}

TEST_F(MidHchd, FiniTriesAgainWhenTheQueueTakesNothing)
{
    r.refused = 3;
    run({frame()});
    EXPECT_THAT(r.enqueues, SizeIs(4));
    EXPECT_THAT(clock.sleeps(), ElementsAre(20, 20, 20));
    EXPECT_THAT(only({"give"}), ElementsAre("give 1", "give 0"));
}

TEST_F(MidHchd, FiniWhenTheTaskHasEnded)
{
    r.frames = {frame(), quit()};
    r.refused = 1000000; // would never end if it counted on the queue
    ASSERT_EQ(mid_hchd_init(2), 0);
    ASSERT_TRUE(r.wait_until_gone());
    EXPECT_EQ(mid_hchd_fini(), 0);
    EXPECT_EQ(r.enqueues.size(), 0u);
    EXPECT_EQ(out.text(), first_frame_line(r, 0) + "recv cmd quit\nquit!\n" + released);
}

TEST_F(MidHchd, FiniWhenTheQueueIsGoneBeforeTheFirstFrame)
{
    r.gone = true;
    r.refused = 1000000;
    r.on_take_fails = [&] { r.wait_until_enqueued(); };
    ASSERT_EQ(mid_hchd_init(2), 0);
    EXPECT_EQ(mid_hchd_fini(), 0);
    EXPECT_EQ(out.text(), std::string(first_frame_fails) + released);
    EXPECT_THAT(frames_journal(), IsEmpty());
}

TEST_F(MidHchd, FiniWhenTheQueueIsGoneLater)
{
    r.frames = {frame(), frame()};
    r.gone = true;
    r.refused = 1000000;
    r.on_take_fails = [&] { r.wait_until_enqueued(); };
    ASSERT_EQ(mid_hchd_init(2), 0);
    ASSERT_TRUE(r.wait_until("take fails"));
    EXPECT_EQ(mid_hchd_fini(), 0);
    EXPECT_EQ(out.text(), first_frame_line(r, 0) + frame_fails + "quit!\n" + released);
    EXPECT_THAT(only({"give"}), ElementsAre("give 0", "give 1")); // the one still held
}

TEST_F(MidHchd, FiniWhileAFrameIsLookedAt)
{
    r.frames = {frame(), frame(), frame(), frame()};
    r.on_track = [&] { r.wait_until_enqueued(); };
    ASSERT_EQ(mid_hchd_init(2), 0);
    ASSERT_TRUE(r.wait_until("track 0"));
    EXPECT_EQ(mid_hchd_fini(), 0);
    // The frame under way is finished; the next is not begun.
    EXPECT_THAT(frames_journal(), ElementsAre("take 0", "take 1", "sad 0 1", "track 0", "give 0", "give 1"));
    EXPECT_EQ(out.text(), first_frame_line(r, 0) + "quit!\n" + released);
}

TEST_F(MidHchd, FiniWhileNothingButUselessFramesCome)
{
    Step useless;
    useless.size = 64;
    r.frames = {useless};
    r.endless = true;
    r.refused = 1000000;
    r.on_give = [&] { r.wait_until_enqueued(); };
    ASSERT_EQ(mid_hchd_init(2), 0);
    EXPECT_EQ(mid_hchd_fini(), 0);
    EXPECT_THAT(frames_journal(), ElementsAre("take 0", "give 0"));
}

TEST_F(MidHchd, AQuitElementAtTheVeryStart)
{
    r.frames = {quit(), frame(), frame()};
    ASSERT_EQ(mid_hchd_init(2), 0);
    ASSERT_TRUE(r.wait_until_gone());
    EXPECT_EQ(out.text(), "recv cmd quit\n"); // and no "quit!"
    EXPECT_THAT(frames_journal(), ElementsAre("take 0", "give 0"));
    mid_hchd_fini();
}

TEST_F(MidHchd, AQuitElementInTheMiddle)
{
    r.frames = {frame(), frame(), quit(), frame()};
    ASSERT_EQ(mid_hchd_init(2), 0);
    ASSERT_TRUE(r.wait_until_gone());
    EXPECT_EQ(out.text(), first_frame_line(r, 0) + "recv cmd quit\nquit!\n");
    EXPECT_THAT(frames_journal(), ElementsAre("take 0", "take 1", "sad 0 1", "track 0", "give 0", "take 2",
                                              "give 2", "give 1"));
    mid_hchd_fini();
}

TEST_F(MidHchd, OnlyTheQuitTypeEndsTheTask)
{
    std::vector<Step> steps;
    for (uint32_t type : {1u, 255u, 257u, 0x10100u, 0xFFFFFFFFu}) {
        steps.push_back(frame());
        steps.back().type = type;
    }
    run(steps);
    EXPECT_THAT(only({"sad"}), ElementsAre("sad 0 1", "sad 2 1", "sad 2 3", "sad 4 3"));
}

TEST_F(MidHchd, TheEndIsToldInOrder)
{
    note_what_is_said();
    r.frames = {frame(), quit()};
    ASSERT_EQ(mid_hchd_init(2), 0);
    ASSERT_TRUE(r.wait_until_gone());
    const std::string first = first_frame_line(r, 0);
    EXPECT_EQ(r.said_before_line("take 0"), "");
    EXPECT_EQ(r.said_before_line("take 1"), first);
    EXPECT_EQ(r.said_before_line("give 1"), first + "recv cmd quit\n");
    EXPECT_EQ(r.said_before_line("give 0"), first + "recv cmd quit\n"); // "quit!" is the very last
    const std::string before = out.text();
    EXPECT_EQ(before, first + "recv cmd quit\nquit!\n");
    mid_hchd_fini();
    EXPECT_EQ(r.said_before_line("picture free 9"), before + "line[1954] ret=0\n");
    EXPECT_EQ(r.said_before_line("picture free 0"), before + "line[1954] ret=0\nline[1957] ret=0\n");
    EXPECT_EQ(r.said_before_line("network release"),
              before + "line[1954] ret=0\nline[1957] ret=0\nline[1960] ret=0\n");
}

// ---- Frames come and go ----------------------------------------------------------------------------------

TEST_F(MidHchd, TheNewestIsComparedWithTheOneBeforeIt)
{
    run({frame(), frame(), frame(), frame(), frame(), frame()});
    EXPECT_THAT(frames_journal(),
                ElementsAre("take 0",                                 // looked at by the first picture
                            "take 1", "sad 0 1", "track 0", "give 0", // by the second
                            "take 2", "sad 2 1", "track 0", "give 1", // by the first again, and so on
                            "take 3", "sad 2 3", "track 0", "give 2", //
                            "take 4", "sad 4 3", "track 0", "give 3", //
                            "take 5", "sad 4 5", "track 0", "give 4", //
                            "take 6", "give 6", "give 5"));
}

TEST_F(MidHchd, TheLastFrameIsGivenBackWhicheverSlotItIsIn)
{
    run({frame(), frame(), frame()});
    EXPECT_THAT(only({"give"}), ElementsAre("give 0", "give 1", "give 3", "give 2"));
}

TEST_F(MidHchd, WhatTheEngineIsAskedToCompare)
{
    run({frame(), frame(), frame()});
    ASSERT_THAT(r.sads, SizeIs(2));
    for (const SadCall &call : r.sads) {
        EXPECT_EQ(call.handle, 0);
        EXPECT_EQ(call.instant, 0);
        for (const mi_ive_image *image : {&call.a, &call.b}) {
            EXPECT_EQ(image->type, 0u);
            EXPECT_EQ(image->width, 320);
            EXPECT_EQ(image->height, 192);
            EXPECT_THAT(image->stride, ElementsAre(320, 0, 0));
            EXPECT_EQ(image->phys_addr[0], reinterpret_cast<uintptr_t>(image->virt_addr[0]));
            EXPECT_EQ(image->virt_addr[1], nullptr);
        }
        EXPECT_EQ(call.sad.type, 9u);
        EXPECT_EQ(call.sad.width, 40);
        EXPECT_EQ(call.sad.height, 24);
        EXPECT_EQ(call.thr.type, 0u);
        EXPECT_EQ(call.thr.width, 40);
        EXPECT_EQ(call.thr.height, 24);
        EXPECT_EQ(call.control.mode, 1u);
        EXPECT_EQ(call.control.output, 0u);
        EXPECT_EQ(call.control.min_value, 0);
        EXPECT_EQ(call.control.max_value, 255);
    }
    EXPECT_EQ(r.sads[0].a.virt_addr[0], r.picture(0)); // 64 bytes into the slot
    EXPECT_EQ(r.sads[0].b.virt_addr[0], r.picture(1));
    EXPECT_EQ(r.sads[1].a.virt_addr[0], r.picture(2));
    EXPECT_EQ(r.sads[1].b.virt_addr[0], r.picture(1));
}

TEST_F(MidHchd, TheQueueFailsAtFirst)
{
    run({failure(), failure(), frame()});
    EXPECT_EQ(out.text(), std::string(first_frame_fails) + first_frame_fails + first_frame_line(r, 0) +
                              "recv cmd quit\nquit!\n" + released);
    EXPECT_THAT(clock.sleeps(), ElementsAre(20, 20));
}

TEST_F(MidHchd, TheQueueFailsLater)
{
    run({frame(), failure(), failure(), frame(), failure(), frame()});
    EXPECT_EQ(out.text(), first_frame_line(r, 0) + frame_fails + frame_fails + frame_fails +
                              "recv cmd quit\nquit!\n" + released);
    EXPECT_THAT(clock.sleeps(), ElementsAre(20, 20, 20));
    EXPECT_THAT(only({"sad"}), ElementsAre("sad 0 1", "sad 2 1"));
}

TEST_F(MidHchd, TheFirstFrameIsAnnouncedWithItsOwnNumbers)
{
    Step big = frame();
    big.width = 12;
    big.height = 34;
    big.size = 100000;
    run({big});
    EXPECT_EQ(out.text(),
              first_frame_line(r, 0, "w: 12, h: 34, size: 100000") + "recv cmd quit\nquit!\n" + released);
}

TEST_F(MidHchd, FramesThatAreTooShortAreDropped)
{
    Step whole = frame(), shorter = frame(), nothing = frame();
    whole.size = 92160;
    shorter.size = 92159;
    nothing.size = 0;
    note_what_is_said();
    run({shorter, whole, nothing, shorter, whole});
    EXPECT_THAT(frames_journal(),
                ElementsAre("take 0", "give 0", "take 1", "take 2", "give 2", "take 3", "give 3", "take 4",
                            "sad 1 4", "track 0", "give 1", "take 5", "give 5", "give 4"));
    const LogCapture::Line line = {NARO_LOG_ERR,
                                   "[frame_take] a frame of 92159 bytes is no analysis picture, dropped\n"};
    const LogCapture::Line line0 = {NARO_LOG_ERR,
                                    "[frame_take] a frame of 0 bytes is no analysis picture, dropped\n"};
    EXPECT_THAT(log.lines(), ElementsAre(line, line0, line));
    EXPECT_EQ(r.said_before_line("give 0"), line.text);
    EXPECT_THAT(clock.sleeps(), IsEmpty());
}

// ---- Motion ----------------------------------------------------------------------------------------------

TEST_F(MidHchd, NothingMoved)
{
    run({frame(), frame()});
    EXPECT_THAT(r.broadcasts, IsEmpty());
    EXPECT_THAT(r.cscs, IsEmpty());
    EXPECT_THAT(r.forwards, IsEmpty());
    ASSERT_THAT(r.tracks, SizeIs(1));
    EXPECT_EQ(r.tracks[0].count, 0);
    EXPECT_EQ(text(r.tracks[0].list), empty_list);
}

TEST_F(MidHchd, MotionEverywhereIsNoMotion)
{
    run({frame(), moved(0, 40, 0, 24), moved(1, 39, 1, 23)});
    EXPECT_THAT(r.broadcasts, IsEmpty());
    EXPECT_THAT(r.forwards, IsEmpty());
    ASSERT_THAT(r.tracks, SizeIs(2));
    EXPECT_EQ(text(r.tracks[1].list), empty_list);
}

TEST_F(MidHchd, MotionAlmostEverywhereIsMotion)
{
    run({frame(), moved(2, 39, 1, 23)});
    EXPECT_THAT(only({"event"}), ElementsAre("event ObjectMotion"));
    ASSERT_THAT(r.forwards, SizeIs(1));
    EXPECT_EQ(r.forwards[0].width, 320); // 312 widened
}

TEST_F(MidHchd, MotionWithoutAPerson)
{
    run({frame(), moved()});
    EXPECT_THAT(frames_journal(),
                ElementsAre("take 0", "take 1", "sad 0 1", "follow 104,88 24x24", "csc", "forward", "boxes",
                            "event ObjectMotion", "track 0", "give 0", "take 2", "give 2", "give 1"));
    ASSERT_THAT(r.broadcasts, SizeIs(1));
    EXPECT_EQ(r.broadcasts[0].index, 0);
    EXPECT_EQ(r.broadcasts[0].length, 13);
    EXPECT_EQ(r.broadcasts[0].bytes, std::string("ObjectMotion\0", 13));
    ASSERT_THAT(r.tracks, SizeIs(1));
    EXPECT_EQ(r.tracks[0].count, 0);
    EXPECT_EQ(text(r.tracks[0].list), empty_list);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(MidHchd, EveryFrameSaysItAgain)
{
    const BBox box = {1, 2, 11, 22, 0, 0.9f};
    run({frame(), moved(), moved(), people({box}), people({box}), frame(), moved()});
    EXPECT_THAT(only({"event"}), ElementsAre("event ObjectMotion", "event ObjectMotion", "event PeopleMotion",
                                             "event PeopleMotion", "event ObjectMotion"));
}

TEST_F(MidHchd, TheDifferenceFails)
{
    Step failed = moved();
    failed.sad = static_cast<int>(0xA0002003u);
    run({frame(), failed, moved()});
    EXPECT_THAT(frames_journal(),
                ElementsAre("take 0", "take 1", "sad 0 1", "track 0", "give 0", "take 2", "sad 2 1",
                            "follow 104,88 24x24", "csc", "forward", "boxes", "event ObjectMotion", "track 0",
                            "give 1", "take 3", "give 3", "give 2"));
    EXPECT_EQ(out.text(), first_frame_line(r, 0) +
                              "MI_IVE_Sad() return ERROR 0xA0002003\n"
                              "MD_frame_difference is failed!\n"
                              "recv cmd quit\nquit!\n" +
                              released);
    EXPECT_EQ(text(r.tracks[0].list), empty_list);
}

// ---- People ----------------------------------------------------------------------------------------------

TEST_F(MidHchd, APerson)
{
    run({frame(), people({{3, 5, 20, 30, 0, 0.8f}})});
    EXPECT_THAT(frames_journal(),
                ElementsAre("take 0", "take 1", "sad 0 1", "follow 104,88 24x24", "csc", "forward", "boxes",
                            "event PeopleMotion", "track 1", "give 0", "take 2", "give 2", "give 1"));
    ASSERT_THAT(r.broadcasts, SizeIs(1));
    EXPECT_EQ(r.broadcasts[0].index, 0);
    EXPECT_EQ(r.broadcasts[0].length, 13);
    EXPECT_EQ(r.broadcasts[0].bytes, std::string("PeopleMotion\0", 13));
    // The crop begins at 100,84: 103,89, and 16 and 24 (one short of the inclusive size) further.
    ASSERT_THAT(r.tracks, SizeIs(1));
    EXPECT_EQ(r.tracks[0].count, 1);
    EXPECT_EQ(text(r.tracks[0].list), "103,89,119,113 0,0,0,0 0,0,0,0 0,0,0,0 0,0,0,0 0,0,0,0 ");
}

TEST_F(MidHchd, UpToFivePeople)
{
    run({frame(), people({{0, 0, 9, 9, 0, 0.9f},
                          {1, 2, 30, 31, 0, 0.8f},
                          {10, 0, 11, 1, 0, 0.7f},
                          {31, 31, 31, 31, 0, 0.6f},
                          {4, 3, 2, 1, 0, 0.5f}})});
    ASSERT_THAT(r.tracks, SizeIs(1));
    EXPECT_EQ(r.tracks[0].count, 5);
    EXPECT_EQ(text(r.tracks[0].list), "100,84,108,92 101,86,129,114 110,84,110,84 131,115,130,114 "
                                      "104,87,101,84 0,0,0,0 ");
}

TEST_F(MidHchd, TheListHasRoomForSix)
{
    run({frame(), people(std::vector<BBox>(8, {0, 0, 9, 9, 0, 0.9f}))});
    ASSERT_THAT(r.tracks, SizeIs(1));
    std::string expected;
    for (int i = 0; i < 6; i++)
        expected += "100,84,108,92 ";
    EXPECT_EQ(text(r.tracks[0].list), expected);
}

TEST_F(MidHchd, TheNextFrameBeginsWithAnEmptyList)
{
    run({frame(), people({{0, 0, 9, 9, 0, 0.9f}, {0, 0, 9, 9, 0, 0.9f}}), people({{1, 1, 9, 9, 0, 0.9f}}),
         moved(), frame()});
    ASSERT_THAT(r.tracks, SizeIs(4));
    EXPECT_EQ(text(r.tracks[1].list), "101,85,108,92 0,0,0,0 0,0,0,0 0,0,0,0 0,0,0,0 0,0,0,0 ");
    EXPECT_EQ(text(r.tracks[2].list), empty_list);
    EXPECT_EQ(text(r.tracks[3].list), empty_list);
}

TEST_F(MidHchd, TheConversionFails)
{
    Step failed = people({{3, 5, 20, 30, 0, 0.8f}});
    failed.csc = static_cast<int>(0xA0002003u);
    run({frame(), failed});
    EXPECT_THAT(log.lines(),
                ElementsAre(LogCapture::Line{NARO_LOG_ERR, "[MVE] MI_IVE_CSC error!!! ret[0xa0002003]\n"}));
    EXPECT_THAT(only({"csc", "forward", "boxes", "event", "track"}),
                ElementsAre("csc", "forward", "boxes", "event PeopleMotion", "track 1"));
}

TEST_F(MidHchd, TheDetectorFails)
{
    Step failed = people({{3, 5, 20, 30, 0, 0.8f}});
    failed.forward = -1;
    Step nobody = moved();
    nobody.forward = -1;
    run({frame(), failed, nobody});
    const LogCapture::Line line = {NARO_LOG_ERR, "[HD] Forward error!!!\n"};
    EXPECT_THAT(log.lines(), ElementsAre(line, line));
    // What GetBBox says decides.
    EXPECT_THAT(only({"forward", "boxes", "event", "track"}),
                ElementsAre("forward", "boxes", "event PeopleMotion", "track 1", "forward", "boxes",
                            "event ObjectMotion", "track 0"));
}

// ---- Records ---------------------------------------------------------------------------------------------

TEST_F(MidHchd, MotionIsRecordedWithTheRectangleThatMoved)
{
    run({frame(), moved()});
    ASSERT_THAT(r.records, SizeIs(1));
    EXPECT_EQ(r.records[0].type, 0u);
    EXPECT_EQ(r.records[0].value, 0u);
    EXPECT_THAT(r.records[0].fields, ElementsAre(104, 88, 127, 111));
    EXPECT_EQ(r.records[0].after, "event ObjectMotion");
}

TEST_F(MidHchd, PeopleAreRecordedWithTheirNumberAndTheLargestBox)
{
    run({frame(), people({{3, 5, 20, 30, 0, 0.8f}}),
         people({{0, 0, 9, 9, 0, 0.9f},
                 {10, 2, 24, 20, 0, 0.6f},
                 {10, 2, 24, 20, 0, 0.6f},
                 {0, 0, 30, 8, 0, 0.7f}}),
         people({{1, 1, 9, 10, 0, 0.9f}, {0, 0, 8, 10, 0, 0.6f}}), // 8 x 9 and 8 x 10
         people({{1, 1, 10, 9, 0, 0.9f}, {0, 0, 10, 8, 0, 0.6f}})});
    ASSERT_THAT(r.records, SizeIs(4));
    for (const RecordCall &record : r.records) {
        EXPECT_EQ(record.type, 1u);
        EXPECT_EQ(record.after, "event PeopleMotion");
    }
    EXPECT_EQ(r.records[0].value, 1u);
    EXPECT_THAT(r.records[0].fields, ElementsAre(103, 89, 119, 113)) << "as the media server is told";
    EXPECT_EQ(r.records[1].value, 4u);
    EXPECT_THAT(r.records[1].fields, ElementsAre(110, 86, 123, 103));
    EXPECT_THAT(r.records[2].fields, ElementsAre(100, 84, 107, 93));
    EXPECT_THAT(r.records[3].fields, ElementsAre(100, 84, 109, 91));
}

TEST_F(MidHchd, OfPeopleOfOneSizeTheSurestIsRecorded)
{
    run({frame(), people({{0, 0, 9, 9, 0, 0.9f}, {1, 1, 10, 10, 0, 0.8f}})});
    ASSERT_THAT(r.records, SizeIs(1));
    EXPECT_THAT(r.records[0].fields, ElementsAre(100, 84, 108, 92));
}

TEST_F(MidHchd, TheLargestIsLookedForAmongTheBoxesThatThereAre)
{
    std::vector<BBox> boxes(8, {0, 0, 9, 9, 0, 0.9f});
    boxes[6] = boxes[7] = {0, 0, 30, 30, 0, 0.9f}; // beyond the list
    run({frame(), people(boxes)});
    ASSERT_THAT(r.records, SizeIs(1));
    EXPECT_EQ(r.records[0].value, 8u);
    EXPECT_THAT(r.records[0].fields, ElementsAre(100, 84, 108, 92));
}

TEST_F(MidHchd, ABoxOfNoSizeIsRecordedInsideThePicture)
{
    Step corner = moved(0, 1, 0, 1);
    corner.boxes = {{0, 0, 0, 0, 0, 0.9f}};
    run({frame(), corner});
    EXPECT_EQ(text(r.tracks[0].list).substr(0, 10), "0,0,-1,-1 ");
    ASSERT_THAT(r.records, SizeIs(1));
    EXPECT_THAT(r.records[0].fields, ElementsAre(0, 0, 0, 0));
}

TEST_F(MidHchd, RecordsHaveTheWallClocksTime)
{
    clock.set_wall_ms(1700000003999);
    run({frame(), moved()});
    ASSERT_THAT(r.records, SizeIs(1));
    EXPECT_EQ(r.records[0].time, 1700000003);
}

TEST_F(MidHchd, WithoutMotionNothingIsRecorded)
{
    run({frame(), frame()});
    EXPECT_THAT(r.records, IsEmpty());
}

// ---- The tracker -----------------------------------------------------------------------------------------

TEST_F(MidHchd, TheTrackerIsToldOfTheGrownRectangle)
{
    run({frame(), moved(0, 1, 0, 1), moved(39, 40, 23, 24), moved(3, 10, 5, 7), frame()});
    EXPECT_THAT(only({"follow"}),
                ElementsAre("follow 0,0 16x16", "follow 304,176 16x16", "follow 16,32 72x32"));
}

TEST_F(MidHchd, TheTrackerIsNotToldOfMotionEverywhere)
{
    run({frame(), moved(0, 40, 0, 24), moved(1, 39, 1, 23), moved(2, 39, 1, 23)});
    EXPECT_THAT(only({"follow"}), ElementsAre("follow 8,0 312x192"));
}

TEST_F(MidHchd, ThePeopleRegionIsNotTheTrackers)
{
    set_mid_people_region(0, 1000, 0, 2000);
    run({frame(), moved()});
    EXPECT_THAT(only({"follow"}), ElementsAre("follow 104,88 24x24"));
}

// ---- The crop --------------------------------------------------------------------------------------------

TEST_F(MidHchd, TheCropAsTheEngineSeesIt)
{
    // Pixels 40..63 by 120..151 after growing; 24 x 32 becomes 36..67 by 120..151.
    run({frame(), frame(), moved(6, 7, 16, 18)});
    ASSERT_THAT(r.cscs, SizeIs(1));
    const CscCall &call = r.cscs[0];
    EXPECT_EQ(call.handle, 0);
    EXPECT_EQ(call.instant, 1);
    EXPECT_EQ(call.control.mode, 0u);
    EXPECT_EQ(call.element, 2); // the newest frame
    EXPECT_EQ(call.yuv.type, 2u);
    EXPECT_EQ(call.luma_at, 120 * 320 + 36);
    EXPECT_EQ(call.chroma_at, 61440 + 60 * 320 + 36);
    EXPECT_EQ(call.yuv.phys_addr[0], reinterpret_cast<uintptr_t>(call.yuv.virt_addr[0]));
    EXPECT_EQ(call.yuv.phys_addr[1], reinterpret_cast<uintptr_t>(call.yuv.virt_addr[1]));
    EXPECT_EQ(call.yuv.virt_addr[2], nullptr);
    EXPECT_THAT(call.yuv.stride, ElementsAre(320, 320, 0));
    EXPECT_EQ(call.yuv.width, 32);
    EXPECT_EQ(call.yuv.height, 32);
    EXPECT_EQ(call.rgb.type, 10u);
    EXPECT_EQ(call.rgb.width, 32);
    EXPECT_EQ(call.rgb.height, 32);
    EXPECT_EQ(call.rgb.stride[0], 32);
    ASSERT_THAT(r.forwards, SizeIs(1));
    EXPECT_EQ(r.forwards[0].pixels, call.rgb.virt_addr[0]);
    EXPECT_NE(r.forwards[0].pixels, nullptr);
    EXPECT_EQ(r.forwards[0].channels, 3);
    EXPECT_EQ(r.forwards[0].config.input_height, 32u);
    EXPECT_EQ(r.forwards[0].config.input_width, 32u);
    EXPECT_NE(r.forwards[0].handle, nullptr);
    EXPECT_THAT(r.box_sizes, ElementsAre(std::pair<int, int>(32, 32)));
}

TEST_F(MidHchd, HeightAndWidthAreNotMixedUp)
{
    // Grown 72..151 by 80..103: 80 wide becomes 64..159, 24 high becomes 76..107.
    run({frame(), moved(10, 18, 11, 12), moved(20, 21, 4, 14)});
    ASSERT_THAT(r.cscs, SizeIs(2));
    EXPECT_EQ(r.cscs[0].luma_at, 76 * 320 + 64);
    EXPECT_EQ(r.cscs[0].yuv.width, 96);
    EXPECT_EQ(r.cscs[0].yuv.height, 32);
    EXPECT_EQ(r.cscs[0].rgb.width, 96);
    EXPECT_EQ(r.cscs[0].rgb.height, 32);
    EXPECT_EQ(r.cscs[0].rgb.stride[0], 96);
    ASSERT_THAT(r.forwards, SizeIs(2));
    EXPECT_EQ(r.forwards[0].width, 96);
    EXPECT_EQ(r.forwards[0].height, 32);
    EXPECT_EQ(r.forwards[0].config.input_width, 96u);
    EXPECT_EQ(r.forwards[0].config.input_height, 32u);
    EXPECT_EQ(r.box_sizes[0], (std::pair<int, int>(32, 96)));
    // Grown 152..175 by 24..119: 24 wide becomes 148..179, 96 high stays.
    EXPECT_EQ(r.cscs[1].luma_at, 24 * 320 + 148);
    EXPECT_EQ(r.cscs[1].rgb.width, 32);
    EXPECT_EQ(r.cscs[1].rgb.height, 96);
    EXPECT_EQ(r.cscs[1].rgb.stride[0], 32);
    EXPECT_EQ(r.forwards[1].config.input_width, 32u);
    EXPECT_EQ(r.forwards[1].config.input_height, 96u);
    EXPECT_EQ(r.box_sizes[1], (std::pair<int, int>(96, 32)));
}

TEST_F(MidHchd, CropsAtTheEdges)
{
    // 40 wide: at the left 0..63, at the right 256..319.
    run({frame(), moved(0, 4, 0, 3), moved(36, 40, 21, 24)});
    ASSERT_THAT(r.cscs, SizeIs(2));
    EXPECT_EQ(r.cscs[0].luma_at, 0);
    EXPECT_EQ(r.cscs[0].yuv.width, 64);
    EXPECT_EQ(r.cscs[0].yuv.height, 32);
    EXPECT_EQ(r.cscs[1].luma_at, 160 * 320 + 256);
    EXPECT_EQ(r.cscs[1].chroma_at, 61440 + 80 * 320 + 256);
    EXPECT_EQ(r.cscs[1].yuv.width, 64);
    EXPECT_EQ(r.cscs[1].yuv.height, 32);
}

// ---- The people region -----------------------------------------------------------------------------------

TEST_F(MidHchd, MotionInsideTheRegionIsLookedAtItself)
{
    set_mid_people_region(1000, 9000, 1250, 8750); // 32..288 by 24..168
    run({frame(), moved()});
    ASSERT_THAT(r.cscs, SizeIs(1));
    EXPECT_EQ(r.cscs[0].luma_at, 84 * 320 + 100);
    EXPECT_EQ(r.cscs[0].yuv.width, 32);
    EXPECT_EQ(r.cscs[0].yuv.height, 32);
}

TEST_F(MidHchd, MotionOutsideTheRegionMakesAllOfItLookedAt)
{
    set_mid_people_region(1000, 3000, 2000, 5000); // 32..96 by 38..96
    run({frame(), moved(30, 31, 20, 21), moved(12, 13, 6, 7), moved(11, 12, 6, 7)});
    // 32..95 stays; 38..95 is 58 high and becomes 35..98: the colours of an odd line are half a row aside.
    ASSERT_THAT(r.cscs, SizeIs(3));
    for (size_t i : {0u, 1u}) { // wholly outside; and 88..111, over the right edge
        EXPECT_EQ(r.cscs[i].luma_at, 35 * 320 + 32);
        EXPECT_EQ(r.cscs[i].chroma_at, 61440 + 35 * 160 + 32);
        EXPECT_EQ(r.cscs[i].yuv.width, 64);
        EXPECT_EQ(r.cscs[i].yuv.height, 64);
    }
    // 80..103 is over the edge, too: 96 is the last pixel.
    EXPECT_EQ(r.cscs[2].yuv.width, 64);
    EXPECT_THAT(only({"event"}),
                ElementsAre("event ObjectMotion", "event ObjectMotion", "event ObjectMotion"));
}

TEST_F(MidHchd, TheRegionTakesEffectAtTheNextFrame)
{
    r.frames = {frame(), moved()};
    ASSERT_EQ(mid_hchd_init(2), 0);
    ASSERT_TRUE(r.wait_until_idle());
    EXPECT_EQ(set_mid_people_region(0, 1000, 0, 2000), 0); // 0..32 by 0..38
    r.more({moved()});
    ASSERT_TRUE(r.wait_until_idle());
    EXPECT_EQ(set_mid_people_region(0, 10000, 0, 10000), 0);
    r.more({moved()});
    ASSERT_TRUE(r.wait_until_idle());
    mid_hchd_fini();
    ASSERT_THAT(r.cscs, SizeIs(3));
    EXPECT_EQ(r.cscs[0].luma_at, 84 * 320 + 100);
    EXPECT_EQ(r.cscs[1].luma_at, 0);
    EXPECT_EQ(r.cscs[1].yuv.width, 32);
    EXPECT_EQ(r.cscs[1].yuv.height, 64);
    EXPECT_EQ(r.cscs[2].luma_at, 84 * 320 + 100);
    EXPECT_EQ(log.texts(), (Journal{"[set_mid_people_region 97] perople_region:[0-0-32-38]",
                                    "[set_mid_people_region 97] perople_region:[0-0-320-192]"}));
    EXPECT_THAT(log.texts(NARO_LOG_INFO), SizeIs(2));
}

TEST_F(MidHchd, TheRegionIsWhatLiesInsideTheFrame)
{
    set_mid_people_region(-5000, 2000, 5000, 20000); // -160..64 by 96..384
    EXPECT_EQ(log.texts(), Journal{"[set_mid_people_region 97] perople_region:[-160-96-64-384]"});
    run({frame(), moved()});
    ASSERT_THAT(r.cscs, SizeIs(1)); // 0..64 by 96..191
    EXPECT_EQ(r.cscs[0].luma_at, 96 * 320);
    EXPECT_EQ(r.cscs[0].yuv.width, 64);
    EXPECT_EQ(r.cscs[0].yuv.height, 96);
}

TEST_F(MidHchd, ARegionWithoutAPairOfPixelsIsRefused)
{
    set_mid_people_region(0, 1000, 0, 2000);
    log.clear();
    const std::string refused = "[set_mid_people_region] the people region holds no pair of pixels inside "
                                "the frame; the old one stays\n";
    EXPECT_EQ(set_mid_people_region(10, 30, 20, 40), 0);
    EXPECT_THAT(
        log.lines(),
        ElementsAre(LogCapture::Line{NARO_LOG_INFO, "[set_mid_people_region 97] perople_region:[0-0-0-0]"},
                    LogCapture::Line{NARO_LOG_ERR, refused}));
    log.clear();
    EXPECT_EQ(set_mid_people_region(11000, 12000, 0, 10000), 0);
    EXPECT_EQ(log.texts(), (Journal{"[set_mid_people_region 97] perople_region:[352-0-384-192]", refused}));
    run({frame(), moved()});
    ASSERT_THAT(r.cscs, SizeIs(1));
    EXPECT_EQ(r.cscs[0].luma_at, 0);
    EXPECT_EQ(r.cscs[0].yuv.width, 32);
    EXPECT_EQ(r.cscs[0].yuv.height, 64);
}

TEST_F(MidHchd, ThePlacesOfTheRegionAreKeptApart)
{
    // 256..319 by 128..159: each of the four another number, beyond 8 bits where it may be.
    set_mid_people_region(8000, 9999, 6667, 8329);
    run({frame(), moved()});
    ASSERT_THAT(r.cscs, SizeIs(1));
    EXPECT_EQ(r.cscs[0].luma_at, 128 * 320 + 256);
    EXPECT_EQ(r.cscs[0].yuv.width, 64);
    EXPECT_EQ(r.cscs[0].yuv.height, 32);
}

TEST_F(MidHchd, ACropThatStartsAtAnOddPixel)
{
    set_mid_people_region(1600, 2599, 2605, 4374); // 51..83 by 50..83
    EXPECT_EQ(log.texts(), Journal{"[set_mid_people_region 97] perople_region:[51-50-83-83]"});
    run({frame(), moved(30, 31, 20, 21)});
    // 52..83 stays; 50..83 is 34 high and becomes 35..98.
    ASSERT_THAT(r.cscs, SizeIs(1));
    EXPECT_EQ(r.cscs[0].luma_at, 35 * 320 + 52);
    EXPECT_EQ(r.cscs[0].chroma_at, 61440 + 35 * 320 / 2 + 52);
}

// ---- Sensitivity -----------------------------------------------------------------------------------------

TEST_F(MidHchd, SensitivityOfMotion)
{
    const struct {
        int level;
        int threshold;
    } cases[] = {{0, 3840}, {-1, 3840},   {3, 3840},
                 {1, 2240}, {2, 960},     {0, 3840},
                 {1, 2240}, {1000, 2240}, {-2147483647 - 1, 2240},
                 {2, 960}};
    r.frames = {frame(), frame()};
    ASSERT_EQ(mid_hchd_init(2), 0);
    ASSERT_TRUE(r.wait_until_idle());
    std::vector<int> expected = {960};
    std::string lines = out.text();
    for (const auto &c : cases) {
        EXPECT_EQ(mid_hchd_sensitivity_set(c.level), 0);
        lines += "mid_hchd_sensitivity_set mode  = " + std::to_string(c.level) + "\n";
        r.more({frame()});
        ASSERT_TRUE(r.wait_until_idle());
        expected.push_back(c.threshold);
    }
    EXPECT_EQ(out.text(), lines);
    mid_hchd_fini();
    std::vector<int> thresholds;
    for (const SadCall &call : r.sads)
        thresholds.push_back(call.control.threshold);
    EXPECT_EQ(thresholds, expected);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(MidHchd, SensitivityForPeople)
{
    const struct {
        int level;
        float threshold;
    } cases[] = {{1, 0.7f}, {0, 0.7f}, {6, 0.7f},  {2, 0.6f},   {3, 0.5f}, {4, 0.4f},
                 {5, 0.3f}, {6, 0.3f}, {-1, 0.3f}, {100, 0.3f}, {1, 0.7f}};
    r.frames = {frame(), moved()};
    ASSERT_EQ(mid_hchd_init(2), 0);
    ASSERT_TRUE(r.wait_until_idle());
    const std::string printed = out.text();
    std::vector<float> expected = {0.5f};
    Journal lines;
    for (const auto &c : cases) {
        EXPECT_EQ(mid_hchd_people_sensitivity_set(c.level), 0);
        lines.push_back("mid_hchd_people_sensitivity_set mode  = " + std::to_string(c.level) + "\n");
        r.more({moved()});
        ASSERT_TRUE(r.wait_until_idle());
        expected.push_back(c.threshold);
    }
    EXPECT_EQ(log.texts(NARO_LOG_INFO), lines);
    EXPECT_EQ(log.texts(), lines);
    EXPECT_EQ(out.text(), printed);
    mid_hchd_fini();
    std::vector<float> thresholds;
    for (const ForwardCall &call : r.forwards)
        thresholds.push_back(call.config.score_threshold);
    EXPECT_EQ(thresholds, expected);
}

TEST_F(MidHchd, SettingsMadeBeforeInitStay)
{
    mid_hchd_sensitivity_set(0);
    mid_hchd_people_sensitivity_set(5);
    set_mid_people_region(0, 1000, 0, 2000);
    run({frame(), moved()});
    EXPECT_EQ(r.init_config.score_threshold, 0.3f);
    ASSERT_THAT(r.sads, SizeIs(1));
    EXPECT_EQ(r.sads[0].control.threshold, 3840);
    ASSERT_THAT(r.forwards, SizeIs(1));
    EXPECT_EQ(r.forwards[0].config.score_threshold, 0.3f);
    EXPECT_EQ(r.cscs[0].luma_at, 0);
}

} // namespace
