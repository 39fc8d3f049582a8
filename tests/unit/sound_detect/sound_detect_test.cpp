// The rules of one round and the pace of the thread: media server, channels, records and time are the test's. The
// thread never ends, so each case leaves it asleep, and the clock that it sleeps in behind.
#include "sound_detect.h"

#include <atomic>
#include <deque>
#include <errno.h>
#include <gmock/gmock.h>
#include <mutex>
#include <pthread.h>
#include <string.h>
#include <string>
#include <sys/prctl.h>
#include <vector>

#include "algo_shbf.h"
#include "fake_clock.h"
#include "log_capture.h"
#include "motion_event_record.h"
#include "naro_isp.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace
{

const char heard_line[] = "**** test>>>>>>naro_algo,loud sound detect yes\n";

struct Answer {
    int ret;
    uint32_t result;
    unsigned takes_ms; // that the wall clock moves while the server thinks
};

// What is around the poller. Its thread and the test look at it in turn.
struct World {
    std::mutex mutex;
    std::deque<Answer> answers; // one for each question; then silence: 0, nothing heard
    int asked = 0;
    std::vector<std::string> calls; // what followed from the answers
    std::vector<uint64_t> broadcast_at_ms;
    int broadcast_result = 0, record_result = 0;
    FakeClock *clock = nullptr;
    std::string thread_name;
    int create_error = 0;
    pthread_t thread = {};
    bool default_attributes = false, no_argument = false;
} &world = *new World;

class Sound : public testing::Test
{
  protected:
    void SetUp() override { world.clock = &clock; }
    static void answers(std::initializer_list<Answer> list)
    {
        std::lock_guard<std::mutex> guard(world.mutex);
        world.answers = list;
    }
    static std::vector<std::string> calls()
    {
        std::lock_guard<std::mutex> guard(world.mutex);
        return world.calls;
    }
    static int asked()
    {
        std::lock_guard<std::mutex> guard(world.mutex);
        return world.asked;
    }
    void start()
    {
        ASSERT_EQ(sound_detect_init(), 0);
        ASSERT_TRUE(clock.wait_for_sleepers(1));
    }
    // Lets the thread do what is due after `ms`, and waits until it rests again.
    void after(unsigned ms)
    {
        clock.advance_ms(ms);
        ASSERT_TRUE(clock.wait_for_sleepers(1));
    }
    LogCapture &log = *new LogCapture;
    FakeClock &clock = *new FakeClock(FakeClock::Sleep::blocks, 1700000000999);
};

// ---- One round ------------------------------------------------------------------------------------------------

TEST_F(Sound, IsTold)
{
    answers({{0, 1, 0}});
    EXPECT_EQ(sound_detect_round(), 1u);
    // The time in four bytes, whole seconds, and the record after it.
    EXPECT_THAT(calls(), ElementsAre("broadcast 3 [00 f1 53 65]", "record 7 1 1700000000 0 0 0 0"));
    EXPECT_EQ(log.lines(), (std::vector<LogCapture::Line>{{NARO_LOG_INFO, heard_line}}));
    EXPECT_EQ(sound_detect_last_result(), 1u);
}

TEST_F(Sound, HasTheTimeFromBeforeTheQuestion)
{
    answers({{0, 1, 5000}});
    sound_detect_round();
    EXPECT_THAT(calls(), ElementsAre("broadcast 3 [00 f1 53 65]", "record 7 1 1700000000 0 0 0 0"));
}

TEST_F(Sound, IsOnlyTheResultOne)
{
    for (const uint32_t result : {0u, 2u, 3u, 0x101u, 0x80000001u, 0xFFFFFFFFu}) {
        answers({{0, result, 0}});
        EXPECT_EQ(sound_detect_round(), result);
        EXPECT_EQ(sound_detect_last_result(), result);
    }
    EXPECT_THAT(calls(), IsEmpty());
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(Sound, AnAnswerThatDoesNotComeChangesNothing)
{
    EXPECT_EQ(sound_detect_last_result(), 0u);
    answers({{0, 1, 0}, {-1, 1, 0}, {-1, 0, 0}, {0, 2, 0}, {-1, 1, 0}});
    sound_detect_round();
    for (int i = 0; i < 2; i++) {
        EXPECT_EQ(sound_detect_round(), 0u);
        EXPECT_EQ(sound_detect_last_result(), 1u);
    }
    sound_detect_round();
    EXPECT_EQ(sound_detect_round(), 0u);
    EXPECT_EQ(sound_detect_last_result(), 2u);
    EXPECT_EQ(calls().size(), 2u) << "of the first";
}

TEST_F(Sound, ThatNobodyTakesIsToldAllTheSame)
{
    world.broadcast_result = -1;
    world.record_result = -1;
    answers({{0, 1, 0}});
    EXPECT_EQ(sound_detect_round(), 1u);
    EXPECT_EQ(calls().size(), 2u);
    EXPECT_TRUE(log.has(NARO_LOG_INFO, heard_line));
    EXPECT_EQ(sound_detect_last_result(), 1u);
}

TEST_F(Sound, OfTheLastSecondThatThirtyTwoBitsHold)
{
    clock.set_wall_ms(0x7FFFFFFFull * 1000 + 999);
    answers({{0, 1, 0}});
    sound_detect_round();
    EXPECT_THAT(calls(), ElementsAre("broadcast 3 [ff ff ff 7f]", "record 7 1 2147483647 0 0 0 0"));
}

TEST_F(Sound, AfterThatTheTimeGoesOnInTheSameBits)
{
    clock.set_wall_ms(0x80000000ull * 1000);
    answers({{0, 1, 0}});
    sound_detect_round();
    EXPECT_THAT(calls(), ElementsAre("broadcast 3 [00 00 00 80]", "record 7 1 -2147483648 0 0 0 0"));
}

// ---- The pace -------------------------------------------------------------------------------------------------

TEST(Rest, IsLongOnlyAfterASound)
{
    EXPECT_EQ(sound_detect_rest_ms(0), 300u);
    EXPECT_EQ(sound_detect_rest_ms(1), 2000u);
    EXPECT_EQ(sound_detect_rest_ms(2), 300u);
    EXPECT_EQ(sound_detect_rest_ms(0xFFFFFFFF), 300u);
}

TEST_F(Sound, IsAskedForFirstAfterARest)
{
    start();
    EXPECT_EQ(asked(), 0);
    after(299);
    EXPECT_EQ(asked(), 0);
    after(1);
    EXPECT_EQ(asked(), 1);
    after(300);
    EXPECT_EQ(asked(), 2);
    EXPECT_THAT(clock.sleeps(), ElementsAre(300, 300, 300));
}

TEST_F(Sound, ThatGoesOnIsToldEveryTwoSeconds)
{
    answers({{0, 1, 0}, {0, 1, 0}, {0, 1, 0}, {0, 0, 0}});
    start();
    after(300);
    after(1999);
    EXPECT_EQ(asked(), 1);
    after(1);
    after(2000);
    after(2000);
    EXPECT_EQ(asked(), 4);
    EXPECT_THAT(clock.sleeps(), ElementsAre(300, 2000, 2000, 2000, 300));
    // 1700000000.999 + 0.3, and two seconds each.
    EXPECT_THAT(calls(), ElementsAre("broadcast 3 [01 f1 53 65]", "record 7 1 1700000001 0 0 0 0",
                                     "broadcast 3 [03 f1 53 65]", "record 7 1 1700000003 0 0 0 0",
                                     "broadcast 3 [05 f1 53 65]", "record 7 1 1700000005 0 0 0 0"));
    EXPECT_THAT(world.broadcast_at_ms, ElementsAre(1700000001299, 1700000003299, 1700000005299));
    EXPECT_EQ(log.count(heard_line), 3u);
}

// After a failure the pace is the quick one, whatever was heard before it.
TEST_F(Sound, IsAskedForQuicklyAfterAFailure)
{
    answers({{0, 1, 0}, {-1, 0, 0}, {-1, 1, 0}, {0, 1, 0}, {0, 5, 0}});
    start();
    for (const unsigned ms : {300u, 2000u, 300u, 300u, 2000u})
        after(ms);
    EXPECT_EQ(asked(), 5);
    EXPECT_THAT(clock.sleeps(), ElementsAre(300, 2000, 300, 300, 2000, 300));
    EXPECT_EQ(log.count(heard_line), 2u);
    EXPECT_EQ(sound_detect_last_result(), 5u);
}

// ---- The thread -----------------------------------------------------------------------------------------------

TEST_F(Sound, HasADetachedThreadOfItsOwn)
{
    start();
    after(300);
    EXPECT_EQ(world.thread_name, "cry_or_loud");
    EXPECT_TRUE(world.default_attributes);
    EXPECT_TRUE(world.no_argument);
    pthread_attr_t attributes;
    ASSERT_EQ(pthread_getattr_np(world.thread, &attributes), 0);
    int detached = -1;
    pthread_attr_getdetachstate(&attributes, &detached);
    pthread_attr_destroy(&attributes);
    EXPECT_EQ(detached, PTHREAD_CREATE_DETACHED);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(Sound, WithoutAThreadThereIsNone)
{
    world.create_error = EAGAIN;
    EXPECT_EQ(sound_detect_init(), -EAGAIN);
    EXPECT_EQ(log.lines(), (std::vector<LogCapture::Line>{{NARO_LOG_ERR, "babycry_init error\n"}}));
    EXPECT_EQ(asked(), 0);
}

} // namespace

// ---- Around it ------------------------------------------------------------------------------------------------

int naro_audio_sound_result_get(uint32_t *result)
{
    std::lock_guard<std::mutex> guard(world.mutex);
    char name[16] = "";
    prctl(PR_GET_NAME, name);
    world.thread_name = name;
    world.asked++;
    EXPECT_EQ(*result, 0u) << "nothing of the last answer is left";
    if (world.answers.empty())
        return 0;
    const Answer answer = world.answers.front();
    world.answers.pop_front();
    if (answer.takes_ms > 0)
        world.clock->advance_ms(answer.takes_ms);
    if (answer.ret == 0)
        *result = answer.result;
    return answer.ret;
}

int shbf_event_broadcast(int index, const void *buf, int len)
{
    std::lock_guard<std::mutex> guard(world.mutex);
    std::string call = "broadcast " + std::to_string(index) + " [";
    for (int i = 0; i < len; i++) {
        char byte[8];
        snprintf(byte, sizeof byte, "%s%02x", i ? " " : "", static_cast<const uint8_t *>(buf)[i]);
        call += byte;
    }
    world.calls.push_back(call + "]");
    world.broadcast_at_ms.push_back(time_realtime_ms());
    return world.broadcast_result;
}

int motion_record_event_write_wrap(uint32_t type, uint64_t value, int32_t time, uint16_t f1, uint16_t f2,
                                   uint16_t f3, uint16_t f4)
{
    std::lock_guard<std::mutex> guard(world.mutex);
    std::string call = "record";
    for (const int64_t number : {int64_t{type}, static_cast<int64_t>(value), int64_t{time}, int64_t{f1},
                                 int64_t{f2}, int64_t{f3}, int64_t{f4}})
        call += " " + std::to_string(number);
    world.calls.push_back(call);
    return world.record_result;
}

extern "C" int __real_pthread_create(pthread_t *, const pthread_attr_t *, void *(*)(void *), void *);
extern "C" int __wrap_pthread_create(pthread_t *thread, const pthread_attr_t *attributes,
                                     void *(*work)(void *), void *argument)
{
    if (world.create_error)
        return world.create_error;
    world.default_attributes = attributes == nullptr;
    world.no_argument = argument == nullptr;
    const int result = __real_pthread_create(thread, attributes, work, argument);
    world.thread = *thread;
    return result;
}
