// The mailbox that daemon and motor process share: layout, lock words, and what each side finds in the slot.
#include "motor_mailbox.h"

#include <atomic>
#include <gtest/gtest.h>
#include <stdarg.h>
#include <stdlib.h>
#include <string>
#include <thread>
#include <vector>

namespace
{

std::atomic<int> wakes{0}; // futex calls of the lock, all of which are to wake
std::atomic<long> last_operation{-1}, last_count{-1};

struct SegmentCall {
    key_t key = 0;
    size_t size = 0;
    int flags = 0;
    int segment = 0;
    const void *wanted = &wakes;
} seen;
void *answer_of_shmat = nullptr;

// Exactly the segment's bytes, so that an address sanitizer sees a step beyond it.
struct Mailbox {
    Mailbox() : box(static_cast<motor_mailbox *>(calloc(1, sizeof(motor_mailbox)))) {}
    ~Mailbox() { free(box); }
    Mailbox(const Mailbox &) = delete;
    Mailbox &operator=(const Mailbox &) = delete;
    motor_mailbox *operator->() const { return box; }
    operator motor_mailbox *() const { return box; }
    motor_mailbox *box;
};

std::vector<uint32_t> words(const motor_mailbox_word_lock &lock)
{
    return {lock.word, lock.count, lock.owner, lock.kind, lock.users, lock.list};
}

// ---- Layout ----------------------------------------------------------------------------------------------

TEST(Layout, SixtyBytes)
{
    EXPECT_EQ(sizeof(motor_mailbox), 60u);
    EXPECT_EQ(alignof(motor_mailbox), 4u);
    EXPECT_EQ(offsetof(motor_mailbox, full), 0u);
    EXPECT_EQ(offsetof(motor_mailbox, lock), 4u);
    EXPECT_EQ(offsetof(motor_mailbox, text), 28u);
    EXPECT_EQ(sizeof(motor_mailbox::full), 4u);
    EXPECT_EQ(sizeof(motor_mailbox::lock), 24u);
    EXPECT_EQ(sizeof(motor_mailbox::text), 32u);
}

TEST(Layout, LockWordsOfA32BitLibrary)
{
    EXPECT_EQ(offsetof(motor_mailbox_word_lock, word), 0u);
    EXPECT_EQ(offsetof(motor_mailbox_word_lock, count), 4u);
    EXPECT_EQ(offsetof(motor_mailbox_word_lock, owner), 8u);
    EXPECT_EQ(offsetof(motor_mailbox_word_lock, kind), 12u);
    EXPECT_EQ(offsetof(motor_mailbox_word_lock, users), 16u);
    EXPECT_EQ(offsetof(motor_mailbox_word_lock, list), 20u);
}

TEST(Layout, TheLibrarysOwnMutexWhereItFits)
{
    EXPECT_EQ((std::is_same<motor_mailbox_lock, pthread_mutex_t>::value), sizeof(pthread_mutex_t) == 24);
}

TEST(Segment, IsAskedForByItsKey)
{
    EXPECT_EQ(motor_mailbox_get(), 77);
    EXPECT_EQ(seen.key, 0x1122);
    EXPECT_EQ(seen.size, 60u);
    EXPECT_EQ(seen.flags, IPC_CREAT | 0666);
}

TEST(Segment, IsMappedWhereverThereIsRoom)
{
    Mailbox box;
    answer_of_shmat = box;
    EXPECT_EQ(motor_mailbox_map(77), box);
    EXPECT_EQ(seen.segment, 77);
    EXPECT_EQ(seen.wanted, nullptr);
    EXPECT_EQ(seen.flags, 0);
    answer_of_shmat = reinterpret_cast<void *>(-1);
    EXPECT_EQ(motor_mailbox_map(77), nullptr);
    answer_of_shmat = nullptr;
    EXPECT_EQ(motor_mailbox_map(77), nullptr);
}

// ---- The lock --------------------------------------------------------------------------------------------

TEST(Lock, IsMadeFreeAndShared)
{
    motor_mailbox_word_lock lock;
    memset(&lock, 0xA5, sizeof lock);
    wakes = 0;
    motor_mailbox_lock_init(&lock);
    EXPECT_EQ(words(lock), (std::vector<uint32_t>{0, 0, 0, 128, 0, 0}));
    EXPECT_EQ(wakes, 1) << "who slept on it would sleep on";
    EXPECT_EQ(last_operation, FUTEX_WAKE);
    EXPECT_EQ(last_count, INT_MAX);
}

TEST(Lock, WordsWhileHeldAndAfter)
{
    motor_mailbox_word_lock lock;
    motor_mailbox_lock_init(&lock);
    ASSERT_EQ(motor_mailbox_lock_try(&lock), 0);
    EXPECT_EQ(words(lock), (std::vector<uint32_t>{1, 0, static_cast<uint32_t>(gettid()), 128, 1, 0}));
    EXPECT_EQ(motor_mailbox_lock_try(&lock), EBUSY);
    EXPECT_EQ(words(lock), (std::vector<uint32_t>{1, 0, static_cast<uint32_t>(gettid()), 128, 1, 0}));
    motor_mailbox_lock_release(&lock);
    EXPECT_EQ(words(lock), (std::vector<uint32_t>{0, 0, 0, 128, 0, 0}));
    EXPECT_EQ(motor_mailbox_lock_try(&lock), 0);
}

TEST(Lock, IsBusyWhateverTheWordSays)
{
    for (uint32_t word : {1u, 2u, 3u, 0x41414141u, 0x80000000u, 0xFFFFFFFFu}) {
        motor_mailbox_word_lock lock = {word, 0, 0, 128, 0, 0};
        EXPECT_EQ(motor_mailbox_lock_try(&lock), EBUSY) << word;
        EXPECT_EQ(words(lock), (std::vector<uint32_t>{word, 0, 0, 128, 0, 0})) << "nobody's business";
    }
}

TEST(Lock, IsTakenWhoeverTheOwnerSeemsToBe)
{
    motor_mailbox_word_lock lock = {0, 7, 4711, 128, 99, 8};
    EXPECT_EQ(motor_mailbox_lock_try(&lock), 0);
    motor_mailbox_lock_release(&lock);
    EXPECT_EQ(words(lock), (std::vector<uint32_t>{0, 7, 0, 128, 0, 8}));
}

TEST(Lock, OfKindsThatKeepOtherThingsInTheirWordsIsRefused)
{
    for (uint32_t kind : {0u, 1u, 2u, 3u, 128u, 129u, 130u, 131u, 128u + 512u}) {
        motor_mailbox_word_lock lock = {0, 0, 0, kind, 0, 0};
        EXPECT_EQ(motor_mailbox_lock_try(&lock), 0) << kind;
    }
    for (uint32_t kind :
         {4u, 16u, 32u, 64u, 127u, 128u + 16u, 128u + 32u, 128u + 64u, 0x41414141u, 0xFFFFFFFFu}) {
        motor_mailbox_word_lock lock = {0, 0, 0, kind, 0, 0};
        EXPECT_EQ(motor_mailbox_lock_try(&lock), EINVAL) << kind;
        EXPECT_EQ(words(lock), (std::vector<uint32_t>{0, 0, 0, kind, 0, 0}));
    }
}

TEST(Lock, WakesOneSleeperOfAnyProcessAndOnlyWhereOneSleeps)
{
    motor_mailbox_word_lock lock;
    motor_mailbox_lock_init(&lock);
    wakes = 0;
    ASSERT_EQ(motor_mailbox_lock_try(&lock), 0);
    motor_mailbox_lock_release(&lock);
    EXPECT_EQ(wakes, 0);
    ASSERT_EQ(motor_mailbox_lock_try(&lock), 0);
    lock.word = 2; // as a sleeper leaves it
    motor_mailbox_lock_release(&lock);
    EXPECT_EQ(wakes, 1);
    EXPECT_EQ(last_operation, FUTEX_WAKE) << "not the kind that stays inside a process";
    EXPECT_EQ(last_count, 1);
    EXPECT_EQ(lock.word, 0u);
}

TEST(Lock, KeepsTwoThreadsApart)
{
    motor_mailbox_word_lock lock;
    motor_mailbox_lock_init(&lock);
    const int rounds = 20000;
    int counter = 0; // not atomic: it is the lock that guards it
    const auto work = [&] {
        for (int i = 0; i < rounds; i++) {
            while (motor_mailbox_lock_try(&lock) != 0)
                sched_yield();
            counter++;
            motor_mailbox_lock_release(&lock);
        }
    };
    std::thread other(work);
    work();
    other.join();
    EXPECT_EQ(counter, 2 * rounds);
}

// The library's own mutex, which is the lock where it has 24 bytes.
TEST(Lock, OfTheLibrary)
{
    pthread_mutex_t mutex;
    memset(&mutex, 0xA5, sizeof mutex);
    motor_mailbox_lock_init(&mutex);
    EXPECT_EQ(motor_mailbox_lock_try(&mutex), 0);
    EXPECT_EQ(motor_mailbox_lock_try(&mutex), EBUSY);
    motor_mailbox_lock_release(&mutex);
    EXPECT_EQ(motor_mailbox_lock_try(&mutex), 0);
    motor_mailbox_lock_release(&mutex);
    pthread_mutex_destroy(&mutex);
}

// ---- The slot --------------------------------------------------------------------------------------------

TEST(Slot, OneTextAtATime)
{
    Mailbox box;
    motor_mailbox_lock_init(&box->lock);
    char text[32] = "untouched";
    EXPECT_EQ(motor_mailbox_read(box, text), MOTOR_MAILBOX_NOT_NOW);
    EXPECT_STREQ(text, "untouched");
    EXPECT_EQ(motor_mailbox_put(box, "[1,2,3]"), MOTOR_MAILBOX_DONE);
    EXPECT_EQ(box->full, 1);
    EXPECT_EQ(motor_mailbox_put(box, "[4,5,6]"), MOTOR_MAILBOX_NOT_NOW);
    EXPECT_EQ(motor_mailbox_read(box, text), MOTOR_MAILBOX_DONE);
    EXPECT_STREQ(text, "[1,2,3]");
    EXPECT_EQ(box->full, 1) << "full until the move has ended";
    EXPECT_EQ(motor_mailbox_put(box, "[4,5,6]"), MOTOR_MAILBOX_NOT_NOW);
    EXPECT_EQ(motor_mailbox_clear(box), MOTOR_MAILBOX_DONE);
    EXPECT_EQ(box->full, 0);
    EXPECT_EQ(motor_mailbox_put(box, "[4,5,6]"), MOTOR_MAILBOX_DONE);
    EXPECT_STREQ(box->text, "[4,5,6]");
    EXPECT_EQ(box->lock.word, 0u) << "never left locked";
}

TEST(Slot, OnlyOneMeansFull)
{
    for (int32_t full : {0, 2, -1, 256, 0x01000000, INT32_MIN}) {
        Mailbox box;
        box->full = full;
        char text[32];
        EXPECT_EQ(motor_mailbox_read(box, text), MOTOR_MAILBOX_NOT_NOW) << full;
        EXPECT_EQ(motor_mailbox_put(box, "[1,2,3]"), MOTOR_MAILBOX_DONE) << full;
        EXPECT_EQ(box->full, 1);
    }
}

TEST(Slot, TakesTheTextWithItsEndAndNoMore)
{
    Mailbox box;
    memset(box->text, 'x', sizeof box->text);
    ASSERT_EQ(motor_mailbox_put(box, "ab"), MOTOR_MAILBOX_DONE);
    EXPECT_EQ(std::string(box->text, 32), std::string("ab\0", 3) + std::string(29, 'x'));
    motor_mailbox_clear(box);
    const std::string longest(31, 'L');
    ASSERT_EQ(motor_mailbox_put(box, longest.c_str()), MOTOR_MAILBOX_DONE);
    char text[32];
    ASSERT_EQ(motor_mailbox_read(box, text), MOTOR_MAILBOX_DONE);
    EXPECT_EQ(text, longest);
}

TEST(Slot, ATextWithoutAnEndIsGivenOne)
{
    Mailbox box;
    memset(box->text, 'x', sizeof box->text);
    box->full = 1;
    char text[33];
    text[32] = '!';
    ASSERT_EQ(motor_mailbox_read(box, text), MOTOR_MAILBOX_DONE);
    EXPECT_EQ(text, std::string(31, 'x'));
    EXPECT_EQ(text[32], '!');
}

TEST(Slot, NothingIsDoneWithoutTheLock)
{
    Mailbox box;
    box->full = 1;
    ASSERT_EQ(motor_mailbox_lock_try(&box->lock), 0);
    char text[32] = "untouched";
    EXPECT_EQ(motor_mailbox_read(box, text), MOTOR_MAILBOX_LOCKED);
    EXPECT_EQ(motor_mailbox_clear(box), MOTOR_MAILBOX_LOCKED);
    EXPECT_STREQ(text, "untouched");
    EXPECT_EQ(box->full, 1);
    box->full = 0;
    EXPECT_EQ(motor_mailbox_put(box, "[1,2,3]"), MOTOR_MAILBOX_LOCKED);
    EXPECT_EQ(box->full, 0);
    EXPECT_EQ(box->text[0], '\0');
    EXPECT_EQ(box->lock.word, 1u) << "it is the holder's";
    motor_mailbox_lock_release(&box->lock);
    EXPECT_EQ(motor_mailbox_put(box, "[1,2,3]"), MOTOR_MAILBOX_DONE);
    EXPECT_EQ(motor_mailbox_read(box, text), MOTOR_MAILBOX_DONE);
    EXPECT_EQ(motor_mailbox_clear(box), MOTOR_MAILBOX_DONE);
    EXPECT_EQ(box->lock.word, 0u);
}

} // namespace

extern "C" {

long __real_syscall(long number, ...);

long __wrap_syscall(long number, ...)
{
    long argument[6];
    va_list list;
    va_start(list, number);
    for (long &one : argument)
        one = va_arg(list, long);
    va_end(list);
    if (number == SYS_futex) {
        last_operation = static_cast<int>(argument[1]);
        last_count = static_cast<int>(argument[2]);
        wakes++;
    }
    return __real_syscall(number, argument[0], argument[1], argument[2], argument[3], argument[4],
                          argument[5]);
}

int __wrap_shmget(key_t key, size_t size, int flags)
{
    seen.key = key;
    seen.size = size;
    seen.flags = flags;
    return 77;
}

void *__wrap_shmat(int segment, const void *wanted, int flags)
{
    seen.segment = segment;
    seen.wanted = wanted;
    seen.flags = flags;
    return answer_of_shmat;
}
}
