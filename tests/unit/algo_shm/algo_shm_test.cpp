// The way of a text to the motor: the queue, the writer's patience, start and stop, and peers that misbehave.
// The motor's process is the test itself, which holds the segment.
#include "algo_shm_internal.h"

#include <atomic>
#include <errno.h>
#include <gmock/gmock.h>
#include <memory>
#include <pthread.h>
#include <stdlib.h>
#include <string.h>
#include <sys/shm.h>
#include <thread>

#include "fake_clock.h"
#include "in_child.h"
#include "log_capture.h"
#include "segment.h"

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

namespace
{

const char *const DROPPED = "motor is already running drop this frame after retry 5 times\n";
const char *const WAITING = "Wait for other process's reading";

// Real time passes in here only while another thread is at work.
template <typename Condition> bool until(Condition condition)
{
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end)
            return false;
        std::this_thread::yield();
    }
    return true;
}

bool is_full()
{
    return __atomic_load_n(&segment.box->full, __ATOMIC_ACQUIRE) == 1;
}

// What the motor's process would see; "" while the slot is free.
std::string slot()
{
    char text[MOTOR_MAILBOX_TEXT_BYTES];
    motor_mailbox_result result;
    while ((result = motor_mailbox_read(segment.box, text)) == MOTOR_MAILBOX_LOCKED)
        std::this_thread::yield();
    return result == MOTOR_MAILBOX_DONE ? text : "";
}

void clear_slot()
{
    while (motor_mailbox_clear(segment.box) == MOTOR_MAILBOX_LOCKED)
        std::this_thread::yield();
}

std::string next_text()
{
    if (!until(is_full))
        return "nothing came";
    const std::string text = slot();
    clear_slot();
    return text;
}

std::vector<unsigned> waits(size_t count, unsigned ms)
{
    return std::vector<unsigned>(count, ms);
}

class AlgoShm : public testing::Test
{
  protected:
    AlgoShm()
    {
        segment = Segment();
        segment.box = static_cast<motor_mailbox *>(calloc(1, sizeof(motor_mailbox)));
        motor_mailbox_lock_init(&segment.box->lock);
    }
    ~AlgoShm() override
    {
        segment.unmap_error = 0;
        algo_shm_fini();
        free(segment.box);
        segment = Segment();
    }
    // A clock in which sleepers wait for the test.
    void hold_time()
    {
        clock.reset();
        clock.reset(new FakeClock(FakeClock::Sleep::blocks));
    }
    // The writer's waits so far, in milliseconds.
    std::vector<unsigned> sleeps() { return clock->sleeps(); }
    // Lets the writer's wait end, and waits until it waits again.
    void pass(unsigned ms)
    {
        clock->advance_ms(ms);
        ASSERT_TRUE(clock->wait_for_sleepers(1));
    }
    // Started, and everything about the start forgotten.
    void start()
    {
        ASSERT_EQ(algo_shm_init(), 0);
        ASSERT_TRUE(log.wait_for("create motor_rotate_task_thread\n"));
        log.clear();
    }

    LogCapture log;
    std::unique_ptr<FakeClock> clock{new FakeClock};
};

// ---- Start and stop --------------------------------------------------------------------------------------

TEST_F(AlgoShm, StartsAndStopsInAnOrderThatDestroysNothingInUse)
{
    EXPECT_EQ(algo_shm_init(), 0);
    ASSERT_TRUE(until([] { return __atomic_load_n(&segment.mapped, __ATOMIC_ACQUIRE); }));
    algo_shm_write_wrap("[1,2,3]");
    EXPECT_EQ(next_text(), "[1,2,3]");
    EXPECT_EQ(algo_shm_fini(), 0);
    EXPECT_THAT(segment_calls(),
                ElementsAre("init 0 0 in 2", "name motor_rotate in 0",
                            "get 4386 60 " + std::to_string(IPC_CREAT | 0666) + " in 0", "map in 0",
                            "post in 1", "cancel in 1", "join in 1", "destroy in 2", "unmap in 1"));
    using Line = LogCapture::Line;
    EXPECT_THAT(log.lines(),
                ElementsAre(Line{NARO_LOG_INFO, "create motor_rotate_task_thread\n"},
                            Line{NARO_LOG_INFO, "algo_shm_fini\n"}, Line{NARO_LOG_INFO, "shmdt success\n"}));
}

TEST_F(AlgoShm, StartedTwice)
{
    start();
    EXPECT_EQ(algo_shm_init(), -1);
    EXPECT_THAT(log.lines(),
                ElementsAre(LogCapture::Line{NARO_LOG_ERR, "motor_rotate_task_thread already running\n"}));
    algo_shm_write_wrap("[1,2,3]");
    EXPECT_EQ(next_text(), "[1,2,3]") << "the first start holds";
}

TEST_F(AlgoShm, StoppedTwice)
{
    start();
    EXPECT_EQ(algo_shm_fini(), 0);
    log.clear();
    segment_calls();
    EXPECT_EQ(algo_shm_fini(), -1);
    EXPECT_THAT(log.lines(),
                ElementsAre(LogCapture::Line{NARO_LOG_INFO, "algo_shm_fini\n"},
                            LogCapture::Line{NARO_LOG_ERR, "motor_rotate_task_thread has not running\n"}));
    EXPECT_THAT(segment_calls(), IsEmpty());
}

TEST_F(AlgoShm, StoppedWithoutAStart)
{
    EXPECT_EQ(algo_shm_fini(), -1);
    EXPECT_TRUE(log.has(NARO_LOG_ERR, "motor_rotate_task_thread has not running\n"));
}

TEST_F(AlgoShm, StartsAgainAndAttachesAgain)
{
    for (int round = 0; round < 3; round++) {
        segment_calls();
        ASSERT_EQ(algo_shm_init(), 0);
        algo_shm_write_wrap("[1,2,3]");
        EXPECT_EQ(next_text(), "[1,2,3]");
        EXPECT_EQ(algo_shm_fini(), 0);
        EXPECT_THAT(segment_calls(), testing::Contains("map in 0"));
    }
}

TEST_F(AlgoShm, ThreadThatCannotBeCreated)
{
    const struct {
        int error;
        int result;
    } table[] = {{EAGAIN, -EAGAIN}, {EPERM, -EPERM}, {-1, -1}};
    for (const auto &row : table) {
        segment.create_error = row.error;
        segment_calls();
        log.clear();
        EXPECT_EQ(algo_shm_init(), row.result);
        EXPECT_THAT(log.lines(),
                    ElementsAre(LogCapture::Line{NARO_LOG_ERR, "create motion_track_task_thread fail ret = " +
                                                                   std::to_string(row.error) + "\n"}));
        EXPECT_THAT(segment_calls(), ElementsAre("init 0 0 in 2", "destroy in 2"));
        EXPECT_EQ(algo_shm_fini(), -1) << "nothing runs";
        EXPECT_THAT(segment_calls(), IsEmpty());
    }
    segment.create_error = 0;
    EXPECT_EQ(algo_shm_init(), 0);
    algo_shm_write_wrap("[1,2,3]");
    EXPECT_EQ(next_text(), "[1,2,3]");
}

// As the first segment of a machine has it.
TEST_F(AlgoShm, SegmentNumberZero)
{
    segment.number = 0;
    start();
    algo_shm_write_wrap("[1,2,3]");
    EXPECT_EQ(next_text(), "[1,2,3]");
    EXPECT_EQ(algo_shm_fini(), 0);
    EXPECT_THAT(segment_calls(), testing::Contains("map in 0"));
}

TEST_F(AlgoShm, NameThatIsRefused)
{
    segment.prctl_result = -1;
    EXPECT_EQ(algo_shm_init(), 0);
    EXPECT_TRUE(log.wait_for("prctl setname failed\n"));
    EXPECT_TRUE(log.has(NARO_LOG_WARNING, "prctl setname failed\n"));
    algo_shm_write_wrap("[1,2,3]");
    EXPECT_EQ(next_text(), "[1,2,3]");
}

TEST_F(AlgoShm, NegativeResultsOfCancelAndJoinAreLoggedAndNoMore)
{
    const struct {
        int cancel, join;
        std::vector<std::string> lines;
    } table[] = {
        {-1, 0, {"pthread_cancel motion_track_task_thread\r\n"}},
        {0, -1, {"pthread_join motion_track_task_thread\r\n"}},
        {ESRCH, ESRCH, {}}, // what the calls give in truth, and nobody looks at
    };
    for (const auto &row : table) {
        segment.cancel_result = row.cancel;
        segment.join_result = row.join;
        start();
        EXPECT_EQ(algo_shm_fini(), 0);
        EXPECT_EQ(log.texts(NARO_LOG_ERR), row.lines);
        EXPECT_TRUE(log.has("shmdt success\n"));
        segment.cancel_result = segment.join_result = 0;
    }
}

// A thread that is stopped before it got anywhere still attaches, so that there is something to detach.
TEST_F(AlgoShm, IsNotCancelledBeforeItWaits)
{
    std::atomic<bool> stopping{false};
    segment.on_cancel = [&] { stopping = true; };
    segment.on_name = [&] {
        until([&] { return stopping.load(); });
        pthread_testcancel();
    };
    ASSERT_EQ(algo_shm_init(), 0);
    EXPECT_EQ(algo_shm_fini(), 0);
    EXPECT_TRUE(log.has("shmdt success\n"));
    EXPECT_THAT(segment_calls(), testing::Contains("map in 0"));
}

// Cancellation is accepted in the waits and nowhere else, whatever wait was the last.
TEST_F(AlgoShm, IsCancelledOnlyWhereItWaits)
{
    std::atomic<int> waits_begun{0}, wrong_waits{0}, told{0}, wrong_between{0};
    const auto cancel_state = [] {
        int state, ignored;
        pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &state);
        pthread_setcancelstate(state, &ignored);
        return state;
    };
    const pthread_t test = pthread_self();
    const auto wait = [&] {
        wrong_waits += cancel_state() != PTHREAD_CANCEL_ENABLE;
        waits_begun++;
    };
    segment.on_wait = wait;
    clock->on_sleep = [&](unsigned) { wait(); };
    segment.on_told = [&] {
        if (pthread_equal(pthread_self(), test))
            return;
        wrong_between += cancel_state() != PTHREAD_CANCEL_DISABLE;
        told++;
    };
    ASSERT_EQ(algo_shm_init(), 0);
    segment.box->full = 1;
    algo_shm_write_wrap(
        "[1,1,1]"); // told once after the wait for texts, and five times after a wait for the motor
    ASSERT_TRUE(log.wait_for(DROPPED));
    EXPECT_EQ(told, 6);
    EXPECT_EQ(wrong_between, 0);
    EXPECT_EQ(wrong_waits, 0);
    EXPECT_GE(waits_begun, 7);
    EXPECT_EQ(algo_shm_fini(), 0);
}

TEST_F(AlgoShm, StopsWhileItWaitsForTheMotor)
{
    hold_time();
    start();
    segment.box->full = 1;
    algo_shm_write_wrap("[1,1,1]");
    algo_shm_write_wrap("[2,2,2]");
    ASSERT_TRUE(clock->wait_for_sleepers(1));
    EXPECT_EQ(algo_shm_fini(), 0);
    EXPECT_EQ(segment.box->lock.word, 0u);
    EXPECT_FALSE(log.has(DROPPED));
}

TEST_F(AlgoShm, StopsWhileItWaitsForTheLock)
{
    hold_time();
    start();
    ASSERT_EQ(motor_mailbox_lock_try(&segment.box->lock), 0);
    algo_shm_write_wrap("[1,1,1]");
    ASSERT_TRUE(clock->wait_for_sleepers(1));
    EXPECT_EQ(algo_shm_fini(), 0);
    EXPECT_EQ(segment.box->lock.word, 1u) << "the holder's";
}

TEST_F(AlgoShm, TextsThatWaitedAtTheStopAreNotSentAfterTheNextStart)
{
    hold_time();
    start();
    segment.box->full = 1;
    for (const char *text : {"[1,1,1]", "[2,2,2]", "[3,3,3]"})
        EXPECT_EQ(algo_shm_write_wrap(text), 0);
    ASSERT_TRUE(clock->wait_for_sleepers(1));
    EXPECT_EQ(algo_shm_fini(), 0);
    segment.box->full = 0;
    start();
    EXPECT_EQ(algo_shm_write_wrap("[4,4,4]"), 0);
    EXPECT_EQ(next_text(), "[4,4,4]");
    EXPECT_EQ(algo_shm_write_wrap("[5,5,5]"), 0);
    EXPECT_EQ(next_text(), "[5,5,5]");
}

TEST_F(AlgoShm, TextsThatComeWhileItStopsAreDropped)
{
    start();
    segment.on_cancel = [&] { EXPECT_EQ(algo_shm_write_wrap("[1,1,1]"), 0); };
    EXPECT_EQ(algo_shm_fini(), 0);
    segment.on_cancel = nullptr;
    start();
    algo_shm_write_wrap("[2,2,2]");
    EXPECT_EQ(next_text(), "[2,2,2]");
}

// ---- Ends of the process ---------------------------------------------------------------------------------

// Another process, because it is to end; with an exit handler, which must not run beneath threads that are
// alive.
template <typename Piece> ChildResult ends(Piece piece)
{
    return in_child([&] {
        naro_log_set_sink(nullptr, nullptr);
        atexit([] { write(STDOUT_FILENO, "exit handler", 12) == 12 ? void() : abort(); });
        alarm(20);
        piece();
    });
}

TEST_F(AlgoShm, SegmentThatCannotBeMadeEndsTheProcess)
{
    const ChildResult child = ends([] {
        segment.get_error = EACCES;
        algo_shm_init();
        pause();
    });
    EXPECT_EQ(child.status, 1);
    EXPECT_THAT(child.err, HasSubstr("\nfail to shmget: Permission denied\n"));
    EXPECT_EQ(child.out, "");
}

TEST_F(AlgoShm, SegmentThatCannotBeAttachedEndsTheProcess)
{
    const ChildResult child = ends([] {
        segment.map_error = ENOMEM;
        algo_shm_init();
        pause();
    });
    EXPECT_EQ(child.status, 1);
    EXPECT_THAT(child.err, HasSubstr("\nFailed to shmat: Cannot allocate memory\n"));
    EXPECT_EQ(child.out, "");
}

TEST_F(AlgoShm, SegmentAtNoAddressEndsTheProcess)
{
    const ChildResult child = ends([] {
        segment.map_to_null = true;
        algo_shm_init();
        pause();
    });
    EXPECT_EQ(child.status, 1);
    EXPECT_THAT(child.err, HasSubstr("\nFailed to shmat: "));
}

TEST_F(AlgoShm, SegmentThatCannotBeDetachedEndsTheProcess)
{
    const ChildResult child = ends([] {
        segment.unmap_error = EINVAL;
        algo_shm_init();
        algo_shm_fini();
        pause();
    });
    EXPECT_EQ(child.status, 1);
    EXPECT_THAT(child.err, HasSubstr("\nFailed to shmdt: Invalid argument\n"));
    EXPECT_THAT(child.err, testing::Not(HasSubstr("shmdt success")));
    EXPECT_EQ(child.out, "");
}

// ---- Texts -----------------------------------------------------------------------------------------------

TEST_F(AlgoShm, OneAfterTheOtherInTheirOrder)
{
    start();
    for (int i = 0; i < 50; i++) {
        const std::string text = "[" + std::to_string(i) + ",0," + std::to_string(i) + "]";
        EXPECT_EQ(algo_shm_write_wrap(text.c_str()), 0);
        EXPECT_EQ(next_text(), text);
    }
    EXPECT_THAT(log.texts(), IsEmpty());
    EXPECT_THAT(sleeps(), IsEmpty());
}

TEST_F(AlgoShm, ThoseThatWaitKeepTheirOrder)
{
    hold_time();
    start();
    segment.box->full = 1;
    for (const char *text : {"[1,1,1]", "[2,2,2]", "[3,3,3]", "[4,4,4]"})
        algo_shm_write_wrap(text);
    ASSERT_TRUE(clock->wait_for_sleepers(1));
    clear_slot();
    pass(10);
    EXPECT_EQ(slot(), "[1,1,1]");
    clear_slot();
    pass(10);
    EXPECT_EQ(slot(), "[2,2,2]");
    clear_slot();
    pass(10);
    EXPECT_EQ(slot(), "[3,3,3]");
    clear_slot();
    clock->advance_ms(10);
    EXPECT_EQ(next_text(), "[4,4,4]");
}

TEST_F(AlgoShm, TheCallersBufferIsItsOwnAtOnce)
{
    hold_time();
    start();
    segment.box->full = 1;
    char text[64] = "[1,2,3]";
    algo_shm_write_wrap("[0,0,0]");
    algo_shm_write_wrap(text);
    strcpy(text, "[9,9,9]");
    ASSERT_TRUE(clock->wait_for_sleepers(1));
    clear_slot();
    pass(10);
    clear_slot();
    clock->advance_ms(10);
    EXPECT_EQ(next_text(), "[1,2,3]");
}

TEST_F(AlgoShm, ThirtyOneCharactersAndNoMore)
{
    start();
    const std::string longest(31, '7');
    EXPECT_EQ(algo_shm_write_wrap(longest.c_str()), 0);
    EXPECT_EQ(next_text(), longest);
    EXPECT_EQ(algo_shm_write_wrap(""), 0);
    EXPECT_EQ(next_text(), "");

    std::unique_ptr<char[]> endless(new char[32]); // an address sanitizer sees who looks further
    memset(endless.get(), '8', 32);
    EXPECT_EQ(algo_shm_write_wrap(endless.get()), -1);
    EXPECT_THAT(log.lines(),
                ElementsAre(LogCapture::Line{
                    NARO_LOG_ERR, "[algo_shm_write_wrap] refused, the motor's mailbox takes 31 characters: " +
                                      std::string(31, '8') + "...\n"}));
    EXPECT_EQ(algo_shm_write_wrap(nullptr), -1);
    EXPECT_TRUE(log.has(NARO_LOG_ERR,
                        "[algo_shm_write_wrap] refused, the motor's mailbox takes 31 characters: "
                        "(no text)...\n"));
    EXPECT_EQ(algo_shm_write_wrap("[1,2,3]"), 0);
    EXPECT_EQ(next_text(), "[1,2,3]") << "nothing of the long one was sent";
}

TEST_F(AlgoShm, WithoutMemoryATextIsRefused)
{
    start();
    segment.no_memory = true;
    EXPECT_EQ(algo_shm_write_wrap("[1,1,1]"), -1);
    segment.no_memory = false;
    EXPECT_THAT(log.lines(),
                ElementsAre(LogCapture::Line{NARO_LOG_ERR, "[algo_shm_write_wrap] no memory for [1,1,1]\n"}));
    EXPECT_EQ(algo_shm_write_wrap("[2,2,2]"), 0);
    EXPECT_EQ(next_text(), "[2,2,2]");
}

TEST_F(AlgoShm, QueueHasAnEnd)
{
    hold_time();
    start();
    segment.box->full = 1;
    ASSERT_EQ(algo_shm_write_wrap("[0,0,0]"), 0);
    ASSERT_TRUE(clock->wait_for_sleepers(1)); // with the first in its hand
    for (int i = 1; i <= 1024; i++)
        ASSERT_EQ(algo_shm_write_wrap(("[0,0," + std::to_string(i) + "]").c_str()), 0) << i;
    EXPECT_EQ(algo_shm_write_wrap("[1,1,1]"), -1);
    EXPECT_THAT(log.lines(), ElementsAre(LogCapture::Line{
                                 NARO_LOG_ERR,
                                 "[algo_shm_write_wrap] refused, 1024 texts wait for the motor: [1,1,1]\n"}));
    clear_slot();
    pass(10); // one leaves,
    EXPECT_EQ(slot(), "[0,0,0]");
    EXPECT_EQ(algo_shm_write_wrap("[2,2,2]"), 0);  // one comes,
    EXPECT_EQ(algo_shm_write_wrap("[3,3,3]"), -1); // and no other

    // After a stop there is room again.
    EXPECT_EQ(algo_shm_fini(), 0);
    start();
    ASSERT_EQ(algo_shm_write_wrap("[0,0,0]"), 0);
    ASSERT_TRUE(clock->wait_for_sleepers(1));
    for (int i = 1; i <= 1024; i++)
        ASSERT_EQ(algo_shm_write_wrap("[4,4,4]"), 0) << i;
    EXPECT_EQ(algo_shm_write_wrap("[4,4,4]"), -1);
}

TEST_F(AlgoShm, WhileItDoesNotRunTextsAreDroppedAndTheFirstSaysSo)
{
    const LogCapture::Line line = {
        NARO_LOG_ERR,
        "[algo_shm_write_wrap] the way to the motor is not open; texts are dropped until it is\n"};
    EXPECT_EQ(algo_shm_write_wrap("[1,1,1]"), 0);
    EXPECT_EQ(algo_shm_write_wrap("[2,2,2]"), 0);
    EXPECT_THAT(log.lines(), ElementsAre(line));
    start();
    algo_shm_write_wrap("[3,3,3]");
    EXPECT_EQ(next_text(), "[3,3,3]");
    algo_shm_fini();
    log.clear();
    EXPECT_EQ(algo_shm_write_wrap("[4,4,4]"), 0);
    EXPECT_EQ(algo_shm_write_wrap("[5,5,5]"), 0);
    EXPECT_THAT(log.lines(), ElementsAre(line)) << "once again";
    log.clear();
    segment.create_error = EAGAIN;
    algo_shm_init();
    log.clear();
    EXPECT_EQ(algo_shm_write_wrap("[6,6,6]"), 0);
    EXPECT_THAT(log.lines(), IsEmpty()) << "nothing has changed";
}

// ---- Patience with the motor -----------------------------------------------------------------------------

// The reader never reads: the first text goes into the slot, the others wait six times each.
TEST_F(AlgoShm, SixWaitsAndATextIsDropped)
{
    OutputCapture out(STDOUT_FILENO);
    start();
    EXPECT_EQ(algo_shm_write_wrap("[1,1,1]"), 0);
    ASSERT_TRUE(until(is_full));
    EXPECT_EQ(algo_shm_write_wrap("[2,2,2]"), 0);
    ASSERT_TRUE(log.wait_for(DROPPED));
    EXPECT_EQ(sleeps(), waits(6, 10));
    EXPECT_EQ(algo_shm_write_wrap("[3,3,3]"), 0);
    ASSERT_TRUE(log.wait_for(DROPPED, 2));
    EXPECT_EQ(sleeps(), waits(12, 10));
    EXPECT_EQ(slot(), "[1,1,1]");
    std::string twelve;
    for (int i = 0; i < 12; i++)
        twelve += WAITING;
    EXPECT_EQ(out.text(), twelve);
    EXPECT_THAT(log.lines(), ElementsAre(LogCapture::Line{NARO_LOG_ERR, DROPPED},
                                         LogCapture::Line{NARO_LOG_ERR, DROPPED}));
    clear_slot();
    EXPECT_EQ(algo_shm_write_wrap("[4,4,4]"), 0);
    EXPECT_EQ(next_text(), "[4,4,4]") << "later texts are delivered";
}

// The text is printed at once, though it has no line end.
TEST_F(AlgoShm, AWaitIsToldBeforeItBegins)
{
    OutputCapture out(STDOUT_FILENO);
    hold_time();
    start();
    segment.box->full = 1;
    algo_shm_write_wrap("[1,1,1]");
    ASSERT_TRUE(clock->wait_for_sleepers(1));
    EXPECT_EQ(out.text(), WAITING);
    EXPECT_EQ(segment.box->lock.word, 0u) << "it does not sleep in the lock";
    pass(10);
    EXPECT_EQ(out.text(), std::string(WAITING) + WAITING);
}

TEST_F(AlgoShm, WaitsForEarlierTextsShortenThePatienceForLaterOnes)
{
    hold_time();
    start();
    segment.box->full = 1;
    algo_shm_write_wrap("[1,1,1]");
    ASSERT_TRUE(clock->wait_for_sleepers(1));
    pass(10);
    pass(10); // in its third wait
    algo_shm_write_wrap("[2,2,2]");
    clear_slot();
    pass(10); // the first is through, the second waits
    EXPECT_EQ(slot(), "[1,1,1]");
    EXPECT_EQ(sleeps(), waits(4, 10));
    pass(10);
    pass(10);
    EXPECT_EQ(sleeps(), waits(6, 10));
    EXPECT_FALSE(log.has(DROPPED));
    clock->advance_ms(10);
    ASSERT_TRUE(log.wait_for(DROPPED)) << "after three waits more";
    EXPECT_EQ(sleeps(), waits(6, 10));

    // The count is 0 again.
    algo_shm_write_wrap("[3,3,3]");
    for (int i = 0; i < 6; i++) {
        ASSERT_TRUE(clock->wait_for_sleepers(1));
        EXPECT_EQ(log.count(DROPPED), 1u);
        clock->advance_ms(10);
    }
    ASSERT_TRUE(log.wait_for(DROPPED, 2));
    EXPECT_EQ(sleeps(), waits(12, 10));
}

// A motor that clears the slot during the sixth wait is late all the same.
TEST_F(AlgoShm, TheSixthWaitIsTheLastEvenIfTheMotorIsThrough)
{
    hold_time();
    start();
    segment.box->full = 1;
    algo_shm_write_wrap("[1,1,1]");
    ASSERT_TRUE(clock->wait_for_sleepers(1));
    for (int i = 0; i < 5; i++)
        pass(10);
    clear_slot();
    clock->advance_ms(10);
    ASSERT_TRUE(log.wait_for(DROPPED));
    EXPECT_FALSE(is_full());
}

TEST_F(AlgoShm, TheFifthWaitIsInTime)
{
    hold_time();
    start();
    segment.box->full = 1;
    algo_shm_write_wrap("[1,1,1]");
    ASSERT_TRUE(clock->wait_for_sleepers(1));
    for (int i = 0; i < 4; i++)
        pass(10);
    clear_slot();
    clock->advance_ms(10);
    EXPECT_EQ(next_text(), "[1,1,1]");
    EXPECT_FALSE(log.has(DROPPED));
}

TEST_F(AlgoShm, TheCountOfWaitsOutlivesAStop)
{
    hold_time();
    start();
    segment.box->full = 1;
    algo_shm_write_wrap("[1,1,1]");
    ASSERT_TRUE(clock->wait_for_sleepers(1));
    pass(10);
    pass(10);
    EXPECT_EQ(algo_shm_fini(), 0); // inside the third wait, which does not count
    start();
    algo_shm_write_wrap("[2,2,2]");
    for (int i = 0; i < 4; i++) {
        ASSERT_TRUE(clock->wait_for_sleepers(1));
        EXPECT_FALSE(log.has(DROPPED));
        clock->advance_ms(10);
    }
    EXPECT_TRUE(log.wait_for(DROPPED));
}

TEST_F(AlgoShm, OnlyOneMeansFull)
{
    start();
    for (int32_t full : {0, 2, -1, 256, INT32_MIN}) {
        ASSERT_TRUE(until([] { return !is_full(); }));
        __atomic_store_n(&segment.box->full, full, __ATOMIC_RELEASE);
        algo_shm_write_wrap("[1,2,3]");
        EXPECT_EQ(next_text(), "[1,2,3]") << full;
    }
    EXPECT_THAT(sleeps(), IsEmpty());
}

// ---- Peers that misbehave --------------------------------------------------------------------------------

const char *const LOST = "[lock_is_lost] the motor's mailbox stays locked: its holder died, or the lock is "
                         "damaged; texts are lost until the motor's process makes it anew\n";

std::string found_again(int texts)
{
    return "[lock_is_there] the motor's mailbox is open again; " + std::to_string(texts) +
           " texts were lost\n";
}

TEST_F(AlgoShm, NobodyHasInitialisedTheSegment)
{
    memset(segment.box, 0, sizeof *segment.box);
    start();
    algo_shm_write_wrap("[1,2,3]");
    EXPECT_EQ(next_text(), "[1,2,3]");
    EXPECT_THAT(log.texts(), IsEmpty());
}

TEST_F(AlgoShm, AHolderThatDiedCostsTextsAndOneLine)
{
    start();
    ASSERT_EQ(motor_mailbox_lock_try(&segment.box->lock), 0); // and never gives it back
    EXPECT_EQ(algo_shm_write_wrap("[1,1,1]"), 0);
    ASSERT_TRUE(log.wait_for(LOST));
    EXPECT_EQ(sleeps(), waits(100, 1));
    EXPECT_EQ(algo_shm_write_wrap("[2,2,2]"), 0);
    EXPECT_EQ(algo_shm_write_wrap("[3,3,3]"), 0);
    ASSERT_TRUE(until([&] { return sleeps().size() == 300; }));
    EXPECT_FALSE(is_full());

    motor_mailbox_lock_init(&segment.box->lock); // the motor's process is back
    EXPECT_EQ(algo_shm_write_wrap("[4,4,4]"), 0);
    ASSERT_TRUE(until(is_full));
    const std::string arrived = next_text();
    // The third may still have been on its way.
    if (arrived != "[4,4,4]") {
        EXPECT_EQ(arrived, "[3,3,3]");
        EXPECT_EQ(next_text(), "[4,4,4]");
    }
    const int lost = arrived == "[4,4,4]" ? 3 : 2;
    EXPECT_THAT(log.lines(), ElementsAre(LogCapture::Line{NARO_LOG_ERR, LOST},
                                         LogCapture::Line{NARO_LOG_INFO, found_again(lost)}));
    log.clear();
    EXPECT_EQ(algo_shm_write_wrap("[5,5,5]"), 0);
    EXPECT_EQ(next_text(), "[5,5,5]");
    EXPECT_THAT(log.lines(), IsEmpty());

    ASSERT_EQ(motor_mailbox_lock_try(&segment.box->lock), 0); // the next one dies
    EXPECT_EQ(algo_shm_write_wrap("[6,6,6]"), 0);
    EXPECT_TRUE(log.wait_for(LOST)) << "said again";
}

TEST_F(AlgoShm, ALockThatIsGivenBackInTimeCostsNothing)
{
    hold_time();
    start();
    ASSERT_EQ(motor_mailbox_lock_try(&segment.box->lock), 0);
    algo_shm_write_wrap("[1,1,1]");
    ASSERT_TRUE(clock->wait_for_sleepers(1));
    for (int i = 0; i < 99; i++)
        pass(1);
    EXPECT_EQ(sleeps(), waits(100, 1));
    motor_mailbox_lock_release(&segment.box->lock); // in the last wait
    clock->advance_ms(1);
    EXPECT_EQ(next_text(), "[1,1,1]");
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(AlgoShm, PatienceWithTheLockIsFullAfterEveryLook)
{
    hold_time();
    start();
    segment.box->full = 1;
    ASSERT_EQ(motor_mailbox_lock_try(&segment.box->lock), 0);
    algo_shm_write_wrap("[1,1,1]");
    ASSERT_TRUE(clock->wait_for_sleepers(1));
    for (int i = 0; i < 99; i++)
        pass(1);
    motor_mailbox_lock_release(&segment.box->lock);
    pass(1); // got it: the slot is full, a wait for the motor
    ASSERT_EQ(sleeps().back(), 10u);
    ASSERT_EQ(motor_mailbox_lock_try(&segment.box->lock), 0);
    pass(10);
    for (int i = 0; i < 99; i++)
        pass(1);
    EXPECT_EQ(sleeps().size(), 201u);
    EXPECT_THAT(log.lines(), IsEmpty());
    clock->advance_ms(1);
    EXPECT_TRUE(log.wait_for(LOST));
    EXPECT_EQ(sleeps().size(), 201u);
}

TEST_F(AlgoShm, ANewStartSaysItAgainAndForgetsWhatWasLost)
{
    start();
    ASSERT_EQ(motor_mailbox_lock_try(&segment.box->lock), 0);
    algo_shm_write_wrap("[1,1,1]");
    ASSERT_TRUE(log.wait_for(LOST));
    algo_shm_fini();
    start();
    algo_shm_write_wrap("[2,2,2]");
    ASSERT_TRUE(log.wait_for(LOST));
    motor_mailbox_lock_init(&segment.box->lock);
    algo_shm_write_wrap("[3,3,3]");
    ASSERT_TRUE(log.wait_for(found_again(1)));
}

TEST_F(AlgoShm, ScribblesOverTheSegment)
{
    start();
    for (int byte : {0xFF, 0x41, 0x10, 0x80}) {
        memset(segment.box, byte, sizeof *segment.box);
        algo_shm_write_wrap("[1,1,1]");
        ASSERT_TRUE(log.wait_for(LOST)) << byte;
        motor_mailbox_lock_init(&segment.box->lock);
        algo_shm_write_wrap("[2,2,2]"); // whatever is in the words outside the lock
        EXPECT_EQ(next_text(), "[2,2,2]") << byte;
        ASSERT_TRUE(log.wait_for(found_again(1)));
        log.clear();
    }
}

TEST_F(AlgoShm, ProducersNeverWaitForTheSegment)
{
    hold_time(); // for ever
    start();
    ASSERT_EQ(motor_mailbox_lock_try(&segment.box->lock), 0);
    for (int i = 0; i < 100; i++)
        EXPECT_EQ(algo_shm_write_wrap("[1,1,1]"), 0);
    EXPECT_EQ(algo_shm_fini(), 0);
}

// Three producers, somebody who starts and stops, and a motor that comes and goes: whatever arrives is whole.
TEST_F(AlgoShm, Everybody)
{
    std::atomic<bool> over{false};
    std::atomic<int> arrived{0}, broken{0};
    std::vector<std::thread> threads;
    for (int producer = 0; producer < 3; producer++)
        threads.emplace_back([&, producer] {
            const std::string text = "[" + std::string(20, static_cast<char>('1' + producer)) + "]";
            while (!over) {
                algo_shm_write_wrap(text.c_str());
                std::this_thread::yield();
            }
        });
    threads.emplace_back([&] {
        while (!over) {
            if (is_full()) {
                const std::string text = slot();
                broken += text.size() != 22 || text != "[" + std::string(20, text[1]) + "]";
                arrived++;
                clear_slot();
            }
            std::this_thread::yield();
        }
    });
    int starts = 0;
    while (starts < 100 || arrived < 100) {
        ASSERT_EQ(algo_shm_init(), 0);
        std::this_thread::yield();
        ASSERT_EQ(algo_shm_fini(), 0);
        ASSERT_LT(++starts, 100000);
    }
    over = true;
    for (std::thread &thread : threads)
        thread.join();
    EXPECT_EQ(broken, 0);
}

// ---- The list --------------------------------------------------------------------------------------------

TEST(MotorEventList, HeadTailAndEnds)
{
    motor_event_node a = {}, b = {}, c = {};
    motor_event_node *list = nullptr;
    EXPECT_EQ(motor_event_list_take(&list), nullptr);
    for (motor_event_node *node : {&a, &b, &c}) {
        motor_event_list_append(&list, node);
        EXPECT_EQ(list, &a);
        EXPECT_EQ(list->prev, node) << "the head's prev is the tail";
        EXPECT_EQ(node->next, nullptr);
    }
    EXPECT_EQ(a.next, &b);
    EXPECT_EQ(b.next, &c);
    EXPECT_EQ(b.prev, &a);
    EXPECT_EQ(c.prev, &b);
    EXPECT_EQ(motor_event_list_take(&list), &a);
    EXPECT_EQ(list, &b);
    EXPECT_EQ(list->prev, &c);
    EXPECT_EQ(motor_event_list_take(&list), &b);
    EXPECT_EQ(list->prev, &c);
    EXPECT_EQ(motor_event_list_take(&list), &c);
    EXPECT_EQ(list, nullptr);
    motor_event_list_append(&list, &b);
    EXPECT_EQ(motor_event_list_take(&list), &b);
    EXPECT_EQ(list, nullptr);
}

TEST(MotorEventList, AHeadWithoutATailIsAFailedAssertion)
{
    const ChildResult child = in_child([] {
        motor_event_node lonely = {};
        motor_event_node *list = &lonely;
        motor_event_list_take(&list);
    });
    EXPECT_EQ(child.status, 128 + SIGABRT);
    EXPECT_EQ(child.err, "src/algo_shbf: motor_event_list_take: Assertion `head->prev' failed.\n");
}

} // namespace
