// Element queues: memory, lists, semaphore, messages, and threads that meet.
#include "queue_list.h"

#include <gmock/gmock.h>
#include <limits.h>
#include <pthread.h>
#include <signal.h>
#include <thread>

#include "fake_memory.h"
#include "log_capture.h"
#include "sync_spy.h"

using Calls = std::vector<std::string>;
using testing::ElementsAre;

namespace
{

class QueueList : public testing::Test
{
  protected:
    void SetUp() override
    {
        fake_memory_reset();
        fake_memory().on_allocated = [](const FakeMemory::Allocation &allocation) {
            if (fake_memory().allocated.size() == 1) // the control block, where lock and semaphore are
                sync_spy_watch(allocation.memory, allocation.size);
        };
    }
    void TearDown() override
    {
        if (q) {
            queue_list_exit(q);
            EXPECT_TRUE(fake_memory().live.empty());
        }
    }
    void make(int elem_max_size, int elem_num)
    {
        q = queue_list_init(elem_max_size, elem_num);
        ASSERT_NE(q, nullptr);
        err.clear();
        sync_spy_calls();
    }
    uint8_t *block() const { return static_cast<uint8_t *>(fake_memory().allocated.at(1).memory); }
    queue_list_elem *elem_at(int index) const
    {
        return reinterpret_cast<queue_list_elem *>(block() + index * 64);
    }

    // Messages are told apart by their time stamp.
    int enqueue(uint64_t timestamp, const std::string &text = "x")
    {
        return queue_list_enqueue(q, text.data(), static_cast<uint32_t>(text.size()), 1, 2, 0, timestamp);
    }
    uint64_t dequeue()
    {
        uint64_t timestamp = UINT64_MAX;
        uint32_t size, width, height, type;
        std::vector<uint8_t> dst(4096);
        EXPECT_EQ(queue_list_dequeue(q, dst.data(), &size, &width, &height, &type, &timestamp), 0);
        return timestamp;
    }
    queue_list_elem *take_free()
    {
        queue_list_elem *elem = nullptr;
        EXPECT_EQ(queue_list_free_elem_take(q, &elem), 0);
        return elem;
    }
    queue_list_elem *take_data()
    {
        queue_list_elem *elem = nullptr;
        EXPECT_EQ(queue_list_data_elem_take(q, &elem), 0);
        return elem;
    }

    OutputCapture err{STDERR_FILENO};
    queue_list *q = nullptr;
};

// ---- Making and freeing

TEST_F(QueueList, TellsItsSizes)
{
    q = queue_list_init(184320, 3);
    ASSERT_NE(q, nullptr);
    EXPECT_EQ(err.text(), "meta_list_data size = 64, buf size = 553152\r\n"
                          "queue_list_elem size = 64, queue multi size = 553344\r\n");
}

TEST_F(QueueList, OneElementOfOneByteIsEnough)
{
    q = queue_list_init(1, 1);
    ASSERT_NE(q, nullptr);
    EXPECT_EQ(err.text(), "meta_list_data size = 64, buf size = 65\r\n"
                          "queue_list_elem size = 64, queue multi size = 129\r\n");
}

TEST_F(QueueList, AllocatesTwiceAndNeverAgain)
{
    make(128, 2);
    ASSERT_EQ(fake_memory().allocated.size(), 2u);
    EXPECT_EQ(fake_memory().allocated[0].alignment, 64u);
    EXPECT_EQ(fake_memory().allocated[1].alignment, 64u);
    EXPECT_EQ(fake_memory().allocated[1].size, 2u * 64 + 2 * (128 + 64));
    for (uint64_t i = 0; i < 10; i++) {
        EXPECT_EQ(enqueue(i), 0);
        EXPECT_EQ(dequeue(), i);
    }
    EXPECT_EQ(fake_memory().allocated.size(), 2u);
}

TEST_F(QueueList, RejectsNumbersOutOfRange)
{
    const struct {
        int size, num;
        const char *message;
    } rows[] = {
        {0, 3, "param : elem_num = 3, elem_max_size = 0\r\n"},
        {184320, 0, "param : elem_num = 0, elem_max_size = 184320\r\n"},
        {-1, 1, "param : elem_num = 1, elem_max_size = -1\r\n"},
        {1, -1, "param : elem_num = -1, elem_max_size = 1\r\n"},
        {INT_MIN, INT_MIN, "param : elem_num = -2147483648, elem_max_size = -2147483648\r\n"},
    };
    for (const auto &row : rows) {
        err.clear();
        EXPECT_EQ(queue_list_init(row.size, row.num), nullptr);
        EXPECT_EQ(err.text(), row.message);
    }
    EXPECT_TRUE(fake_memory().allocated.empty());
}

TEST_F(QueueList, NoMemoryForTheControlBlock)
{
    fake_memory().fail_at = 1;
    EXPECT_EQ(queue_list_init(64, 2), nullptr);
    EXPECT_EQ(err.text(), "queue malloc fail\r\n");
    EXPECT_EQ(fake_memory().allocated.size(), 1u);
}

// The control block stays behind on purpose: this pins that it does.
TEST_F(QueueList, NoMemoryForTheElementsKeepsTheControlBlock)
{
    fake_memory().fail_at = 2;
    EXPECT_EQ(queue_list_init(64, 2), nullptr);
    EXPECT_EQ(err.text(), "meta_list_data size = 64, buf size = 256\r\n"
                          "queue_list_elem size = 64, queue multi size = 384\r\n"
                          "queue malloc fail\r\n");
    EXPECT_TRUE(fake_memory().freed.empty());
    ASSERT_EQ(fake_memory().live.size(), 1u);
    EXPECT_EQ(*fake_memory().live.begin(), fake_memory().allocated[0].memory);
}

// A size that does not fit in 32 bits would come out small, and the elements would lie beyond the block.
TEST_F(QueueList, SizesThat32BitsCannotHoldAreNoMemory)
{
    const struct {
        int size, num;
    } rows[] = {{4096 - 128, 1 << 20}, {INT_MAX, INT_MAX}, {INT_MAX, 2}, {1431655637 + 1, 3}};
    for (const auto &row : rows) {
        err.clear();
        EXPECT_EQ(queue_list_init(row.size, row.num), nullptr);
        EXPECT_EQ(err.text(), "queue malloc fail\r\n") << row.size << " " << row.num;
    }
    EXPECT_TRUE(fake_memory().allocated.empty());
}

TEST_F(QueueList, TheLargestSizeThat32BitsHoldIsTried)
{
    fake_memory().fail_at = 2;
    EXPECT_EQ(queue_list_init(1431655637, 3), nullptr); // 3 * (1431655637 + 128) = 2^32 - 1
    ASSERT_EQ(fake_memory().allocated.size(), 2u);
    EXPECT_EQ(fake_memory().allocated[1].size, 4294967295u);
    EXPECT_EQ(err.text(), "meta_list_data size = 64, buf size = -193\r\n" // the format is a signed one
                          "queue_list_elem size = 64, queue multi size = -1\r\n"
                          "queue malloc fail\r\n");
}

TEST_F(QueueList, StartsWithAnUnsharedSemaphoreOfZeroAndAPlainLock)
{
    q = queue_list_init(64, 3);
    EXPECT_THAT(sync_spy_calls(), testing::UnorderedElementsAre("sem_init 0 0", "mutex_init"));
}

TEST_F(QueueList, ExitDestroysAndFreesEverything)
{
    make(64, 3);
    EXPECT_EQ(queue_list_exit(q), 0);
    q = nullptr;
    EXPECT_THAT(sync_spy_calls(), ElementsAre("mutex_destroy", "sem_destroy"));
    EXPECT_TRUE(fake_memory().live.empty());
    EXPECT_EQ(fake_memory().freed.size(), 2u);
    EXPECT_EQ(err.text(), "");
}

TEST_F(QueueList, ExitOfNothing)
{
    EXPECT_EQ(queue_list_exit(nullptr), 0);
    EXPECT_EQ(err.text(), "queue list is NULL!\r\n");
}

// ---- Layout

TEST_F(QueueList, DescriptorsAndSlotsLieInIndexOrder)
{
    make(192, 3);
    for (int i = 0; i < 3; i++) {
        queue_list_elem *elem = take_free();
        EXPECT_EQ(elem, elem_at(i));
        uint8_t *slot = reinterpret_cast<uint8_t *>(meta_list_data_get(elem));
        EXPECT_EQ(slot, block() + 3 * 64 + i * (192 + 64));
        EXPECT_EQ(reinterpret_cast<uintptr_t>(slot) % 64, 0u);
        uint32_t capacity;
        memcpy(&capacity, elem, sizeof capacity);
        EXPECT_EQ(capacity, 192u + 64);
    }
    EXPECT_EQ(err.text(), "");
}

TEST_F(QueueList, SlotsAndReservedWordsStartAsZero)
{
    make(192, 3);
    EXPECT_THAT(std::vector<uint8_t>(block() + 3 * 64, block() + 3 * (64 + 64 + 192)), testing::Each(0));
    for (int i = 0; i < 3; i++) {
        const uint8_t *words = block() + i * 64;
        EXPECT_THAT(std::vector<uint8_t>(words + 8 + 3 * sizeof(void *), words + 64), testing::Each(0));
    }
}

TEST_F(QueueList, EnqueueFillsTheHeaderAndCopiesThePayloadBehindIt)
{
    make(128, 1);
    const std::string text = "seventeen letters";
    EXPECT_EQ(queue_list_enqueue(q, text.data(), 17, 320, 192, 0x01020304, 0x1122334455667788), 0);
    EXPECT_EQ(fake_memory().copies, 1u);
    queue_list_elem *elem = take_data();
    const uint8_t *slot = reinterpret_cast<const uint8_t *>(meta_list_data_get(elem));
    uint32_t words[4];
    uint64_t timestamp;
    memcpy(words, slot, sizeof words);
    memcpy(&timestamp, slot + 24, sizeof timestamp);
    EXPECT_THAT(words, ElementsAre(0x01020304u, 17u, 320u, 192u));
    EXPECT_EQ(timestamp, 0x1122334455667788u);
    EXPECT_THAT(std::vector<uint8_t>(slot + 16, slot + 24), testing::Each(0));
    EXPECT_THAT(std::vector<uint8_t>(slot + 32, slot + 64), testing::Each(0));
    EXPECT_EQ(std::string(slot + 64, slot + 64 + 17), text);
    EXPECT_THAT(std::vector<uint8_t>(slot + 64 + 17, slot + 64 + 128), testing::Each(0));
    EXPECT_EQ(err.text(), "");
}

TEST_F(QueueList, DequeueGivesBackWhatWasEnqueued)
{
    make(128, 2);
    const std::string text = "a message";
    EXPECT_EQ(queue_list_enqueue(q, text.data(), 9, 320, 192, 7, UINT64_MAX - 1), 0);
    std::vector<char> dst(32, '.');
    uint32_t size = 0, width = 0, height = 0, type = 0;
    uint64_t timestamp = 0;
    EXPECT_EQ(queue_list_dequeue(q, dst.data(), &size, &width, &height, &type, &timestamp), 0);
    EXPECT_EQ(size, 9u);
    EXPECT_EQ(width, 320u);
    EXPECT_EQ(height, 192u);
    EXPECT_EQ(type, 7u);
    EXPECT_EQ(timestamp, UINT64_MAX - 1);
    EXPECT_EQ(std::string(dst.data(), 10), "a message.");
    EXPECT_EQ(sync_spy_semaphore(), 0);
    EXPECT_EQ(err.text(), "");
}

TEST_F(QueueList, AQuitEntryIsAnEntryLikeAnyOther)
{
    make(64, 2);
    EXPECT_EQ(queue_list_enqueue(q, nullptr, 0, 0, 0, QUEUE_ELEMENT_QUIT, 0), 0);
    uint8_t dst[1] = {0x77};
    uint32_t size = 9, width = 9, height = 9, type = 9;
    uint64_t timestamp = 9;
    EXPECT_EQ(queue_list_dequeue(q, dst, &size, &width, &height, &type, &timestamp), 0);
    EXPECT_EQ(type, 256u);
    EXPECT_EQ(size, 0u);
    EXPECT_EQ(dst[0], 0x77);
    EXPECT_EQ(fake_memory().copies, 0u); // nothing to copy, from nowhere
}

TEST_F(QueueList, APayloadOfOneByteIsCopied)
{
    make(64, 1);
    EXPECT_EQ(queue_list_enqueue(q, "a", 1, 0, 0, 0, 0), 0);
    uint8_t dst[2] = {0, 0};
    uint32_t size, width, height, type;
    uint64_t timestamp;
    EXPECT_EQ(queue_list_dequeue(q, dst, &size, &width, &height, &type, &timestamp), 0);
    EXPECT_EQ(dst[0], 'a');
    EXPECT_EQ(dst[1], 0);
}

TEST_F(QueueList, AnUnalignedSlotIsToldAndWorks)
{
    make(100, 2); // slots at 128 and 128 + 164
    EXPECT_EQ(enqueue(1, "first"), 0);
    EXPECT_EQ(err.text(), "");
    EXPECT_EQ(enqueue(2, "second"), 0);
    EXPECT_EQ(err.text(), "@addr not aligned\r\n");
    EXPECT_EQ(dequeue(), 1u);
    char dst[100];
    uint32_t size, width, height, type;
    uint64_t timestamp;
    EXPECT_EQ(queue_list_dequeue(q, dst, &size, &width, &height, &type, &timestamp), 0);
    EXPECT_EQ(timestamp, 2u);
    EXPECT_EQ(std::string(dst, size), "second");
}

// ---- Order

TEST_F(QueueList, OldestFirst)
{
    make(64, 3);
    for (uint64_t i = 1; i <= 3; i++)
        EXPECT_EQ(enqueue(i), 0);
    EXPECT_EQ(sync_spy_semaphore(), 3);
    EXPECT_EQ(dequeue(), 1u);
    EXPECT_EQ(enqueue(4), 0);
    EXPECT_EQ(dequeue(), 2u);
    EXPECT_EQ(dequeue(), 3u);
    EXPECT_EQ(dequeue(), 4u);
    EXPECT_EQ(sync_spy_semaphore(), 0);
}

TEST_F(QueueList, GivenElementsQueueUpBehindTheFreeOnes)
{
    make(64, 4);
    for (int i = 0; i < 3; i++)
        ASSERT_EQ(queue_list_free_elem_give(q, take_free()), 0);
    queue_list_elem *first = take_data(), *second = take_data();
    EXPECT_EQ(first, elem_at(0));
    EXPECT_EQ(second, elem_at(1));
    EXPECT_EQ(queue_list_data_elem_give(q, second), 0);
    EXPECT_EQ(queue_list_data_elem_give(q, first), 0);
    EXPECT_EQ(take_free(), elem_at(3));
    EXPECT_EQ(take_free(), elem_at(1));
    EXPECT_EQ(take_free(), elem_at(0));
    EXPECT_EQ(sync_spy_semaphore(), 1);
    EXPECT_EQ(take_free(), elem_at(2)); // that one is reclaimed
    EXPECT_EQ(sync_spy_semaphore(), 0);
}

TEST_F(QueueList, WhenAllWaitTheNewestGivesWay)
{
    make(64, 3);
    const uint64_t A = 1, B = 2, C = 3, D = 4;
    for (uint64_t each : {A, B, C})
        EXPECT_EQ(enqueue(each), 0);
    EXPECT_EQ(enqueue(D), 0);
    EXPECT_EQ(sync_spy_semaphore(), 3);
    queue_list_elem *elems[] = {take_data(), take_data(), take_data()};
    EXPECT_EQ(meta_list_data_get(elems[0])->timestamp, A);
    EXPECT_EQ(meta_list_data_get(elems[1])->timestamp, B);
    EXPECT_EQ(meta_list_data_get(elems[2])->timestamp, D);
    EXPECT_EQ(elems[2], elem_at(2)); // in the element that was C's
    EXPECT_EQ(sync_spy_semaphore(), 0);
    EXPECT_EQ(err.text(), "");
}

TEST_F(QueueList, EveryWaitingOneMayBeReclaimedNewestFirst)
{
    make(64, 3);
    for (uint64_t i = 1; i <= 3; i++)
        EXPECT_EQ(enqueue(i), 0);
    EXPECT_EQ(take_free(), elem_at(2));
    EXPECT_EQ(sync_spy_semaphore(), 2);
    EXPECT_EQ(take_free(), elem_at(1));
    EXPECT_EQ(take_free(), elem_at(0)); // the only one: nothing waits any more
    EXPECT_EQ(sync_spy_semaphore(), 0);
    queue_list_elem *none = elem_at(1);
    EXPECT_EQ(queue_list_free_elem_take(q, &none), -1);
    EXPECT_EQ(none, elem_at(1));
    EXPECT_EQ(err.text(), "[queue_list_free_elem_take] no busy elem, quit\r\n");
    // Published again, in an order of its own.
    for (int i : {1, 2, 0})
        EXPECT_EQ(queue_list_free_elem_give(q, elem_at(i)), 0);
    EXPECT_EQ(take_data(), elem_at(1));
    EXPECT_EQ(take_data(), elem_at(2));
    EXPECT_EQ(take_data(), elem_at(0));
}

TEST_F(QueueList, AFreeElementIsPreferredToAReclaim)
{
    make(64, 2);
    EXPECT_EQ(enqueue(1), 0);
    sync_spy_calls();
    EXPECT_EQ(take_free(), elem_at(1));
    EXPECT_THAT(sync_spy_calls(), ElementsAre("lock", "unlock"));
    EXPECT_EQ(sync_spy_semaphore(), 1);
    EXPECT_EQ(dequeue(), 1u);
}

TEST_F(QueueList, WhatConsumersHoldIsNotReclaimed)
{
    make(64, 2);
    EXPECT_EQ(enqueue(1), 0);
    EXPECT_EQ(enqueue(2), 0);
    queue_list_elem *previous = take_data(), *current = take_data();
    EXPECT_EQ(enqueue(3), -1);
    EXPECT_EQ(err.text(), "[queue_list_free_elem_take] no busy elem, quit\r\n"
                          "[queue_list_enqueue] queue_list_free_elem_take fail\r\n");
    EXPECT_EQ(meta_list_data_get(previous)->timestamp, 1u);
    EXPECT_EQ(meta_list_data_get(current)->timestamp, 2u);
    EXPECT_EQ(queue_list_data_elem_give(q, previous), 0);
    EXPECT_EQ(enqueue(4), 0);
    EXPECT_EQ(dequeue(), 4u);
}

// ---- Locks and the semaphore

TEST_F(QueueList, CountsUnderTheLockAndWaitsOutsideOfIt)
{
    make(64, 1);
    queue_list_elem *elem = take_free();
    EXPECT_THAT(sync_spy_calls(), ElementsAre("lock", "unlock"));
    EXPECT_EQ(queue_list_free_elem_give(q, elem), 0);
    EXPECT_THAT(sync_spy_calls(), ElementsAre("lock", "post", "unlock"));
    take_free(); // a reclaim
    EXPECT_THAT(sync_spy_calls(), ElementsAre("lock", "trywait", "unlock"));
    EXPECT_EQ(queue_list_free_elem_take(q, &elem), -1);
    EXPECT_THAT(sync_spy_calls(), ElementsAre("lock", "unlock"));
    EXPECT_EQ(queue_list_free_elem_give(q, elem), 0);
    sync_spy_calls();
    take_data();
    EXPECT_THAT(sync_spy_calls(), ElementsAre("wait", "lock", "unlock"));
    EXPECT_EQ(queue_list_data_elem_give(q, elem), 0);
    EXPECT_THAT(sync_spy_calls(), ElementsAre("lock", "unlock"));
}

TEST_F(QueueList, AWaitingConsumerHoldsNobodyUp)
{
    make(64, 2);
    uint64_t got = 0;
    std::thread consumer([&] { got = dequeue(); });
    sync_spy_wait_waiting();
    queue_list_elem *first = take_free();
    queue_list_elem *second = take_free();
    meta_list_data_get(second)->timestamp = 42;
    EXPECT_EQ(queue_list_free_elem_give(q, second), 0);
    consumer.join();
    EXPECT_EQ(got, 42u);
    EXPECT_EQ(queue_list_free_elem_give(q, first), 0);
}

// The consumer has passed its wait when the producer takes the only entry back: the producer cannot undo the
// count, and the consumer finds nothing.
TEST_F(QueueList, AReclaimBetweenAConsumersWaitAndItsLock)
{
    make(64, 1);
    EXPECT_EQ(enqueue(1), 0);
    int result = 0;
    queue_list_elem *taken = nullptr;
    sync_spy_hold_next_lock();
    std::thread consumer([&] { result = queue_list_data_elem_take(q, &taken); });
    sync_spy_wait_held();
    sync_spy_calls();
    queue_list_elem *elem = take_free();
    EXPECT_EQ(elem, elem_at(0));
    EXPECT_EQ(err.text(), "####resource is already consumed\r\n");
    EXPECT_THAT(sync_spy_calls(), ElementsAre("lock", "trywait", "unlock"));
    err.clear();
    sync_spy_release();
    consumer.join();
    EXPECT_EQ(result, -1);
    EXPECT_EQ(taken, nullptr);
    EXPECT_EQ(err.text(), "busy list is empty, quit\r\n");
    EXPECT_THAT(sync_spy_calls(), ElementsAre("lock", "unlock"));
    EXPECT_EQ(sync_spy_semaphore(), 0);
    // Nothing is lost for what comes later.
    EXPECT_EQ(queue_list_free_elem_give(q, elem), 0);
    EXPECT_EQ(dequeue(), 1u);
}

TEST_F(QueueList, ADequeueThatFindsNothingSaysSo)
{
    make(64, 1);
    EXPECT_EQ(enqueue(1), 0);
    int result = 0;
    uint8_t dst[64];
    uint32_t size = 71, width = 72, height = 73, type = 74;
    uint64_t timestamp = 75;
    sync_spy_hold_next_lock();
    std::thread consumer(
        [&] { result = queue_list_dequeue(q, dst, &size, &width, &height, &type, &timestamp); });
    sync_spy_wait_held();
    take_free();
    err.clear();
    sync_spy_release();
    consumer.join();
    EXPECT_EQ(result, -1);
    EXPECT_EQ(err.text(), "busy list is empty, quit\r\n"
                          "[queue_list_dequeue] queue_multi_data_elem_take fail\r\n");
    EXPECT_EQ(size + width + height + type, 71u + 72 + 73 + 74);
    EXPECT_EQ(timestamp, 75u);
}

// The producer is quicker than a consumer that waits: it takes its own entry back with the count. The
// consumer sleeps on and wakes for the next.
TEST_F(QueueList, AReclaimBeforeTheConsumersWait)
{
    make(64, 1);
    EXPECT_EQ(enqueue(1), 0);
    queue_list_elem *elem = take_free();
    EXPECT_EQ(err.text(), "");
    EXPECT_EQ(sync_spy_semaphore(), 0);
    uint64_t got = 0;
    std::thread consumer([&] { got = dequeue(); });
    sync_spy_wait_waiting();
    meta_list_data_get(elem)->timestamp = 2;
    EXPECT_EQ(queue_list_free_elem_give(q, elem), 0);
    consumer.join();
    EXPECT_EQ(got, 2u);
}

TEST_F(QueueList, ASignalDoesNotEndTheWait)
{
    make(64, 1);
    struct sigaction action = {};
    action.sa_handler = [](int) {};
    sigaction(SIGUSR1, &action, nullptr); // without SA_RESTART
    uint64_t got = 0;
    std::atomic<bool> gone{false};
    std::thread consumer([&] {
        got = dequeue();
        gone = true;
    });
    for (int waits = 0; waits < 4 && !gone;) {
        pthread_kill(consumer.native_handle(), SIGUSR1);
        for (const std::string &call : sync_spy_calls())
            waits += call == "wait";
        std::this_thread::yield();
    }
    EXPECT_FALSE(gone);
    EXPECT_EQ(enqueue(5), 0);
    consumer.join();
    EXPECT_EQ(got, 5u);
    EXPECT_EQ(err.text(), "");
    EXPECT_EQ(sync_spy_semaphore(), 0);
}

TEST_F(QueueList, AWaitingConsumerMayBeCancelled)
{
    make(64, 1);
    pthread_t consumer;
    ASSERT_EQ(pthread_create(
                  &consumer, nullptr,
                  [](void *queue) -> void * {
                      queue_list_elem *elem;
                      queue_list_data_elem_take(static_cast<queue_list *>(queue), &elem);
                      return nullptr;
                  },
                  q),
              0);
    sync_spy_wait_waiting();
    pthread_cancel(consumer);
    void *result = nullptr;
    pthread_join(consumer, &result);
    EXPECT_EQ(result, PTHREAD_CANCELED);
    EXPECT_EQ(enqueue(6), 0);
    EXPECT_EQ(dequeue(), 6u);
}

// ---- Failures

TEST_F(QueueList, NullsChangeNothing)
{
    make(64, 1);
    EXPECT_EQ(enqueue(9), 0);
    sync_spy_calls();
    queue_list_elem *elem = nullptr;
    uint8_t dst[64];
    uint32_t a = 0;
    uint64_t t = 0;
    const struct {
        int result;
        const char *name;
    } rows[] = {
        {queue_list_free_elem_take(nullptr, &elem), "queue_list_free_elem_take"},
        {queue_list_free_elem_take(q, nullptr), "queue_list_free_elem_take"},
        {queue_list_free_elem_give(nullptr, elem_at(0)), "queue_list_free_elem_give"},
        {queue_list_free_elem_give(q, nullptr), "queue_list_free_elem_give"},
        {queue_list_data_elem_take(nullptr, &elem), "queue_list_data_elem_take"},
        {queue_list_data_elem_take(q, nullptr), "queue_list_data_elem_take"},
        {queue_list_data_elem_give(nullptr, elem_at(0)), "queue_list_data_elem_give"},
        {queue_list_data_elem_give(q, nullptr), "queue_list_data_elem_give"},
        {queue_list_enqueue(nullptr, dst, 1, 0, 0, 0, 0), "queue_list_enqueue"},
        {queue_list_dequeue(nullptr, dst, &a, &a, &a, &a, &t), "queue_list_dequeue"},
        {queue_list_dequeue(q, nullptr, &a, &a, &a, &a, &t), "queue_list_dequeue"},
        {queue_list_dequeue(q, dst, nullptr, &a, &a, &a, &t), "queue_list_dequeue"},
        {queue_list_dequeue(q, dst, &a, nullptr, &a, &a, &t), "queue_list_dequeue"},
        {queue_list_dequeue(q, dst, &a, &a, nullptr, &a, &t), "queue_list_dequeue"},
        {queue_list_dequeue(q, dst, &a, &a, &a, nullptr, &t), "queue_list_dequeue"},
        {queue_list_dequeue(q, dst, &a, &a, &a, &a, nullptr), "queue_list_dequeue"},
    };
    std::string expected;
    for (const auto &row : rows) {
        EXPECT_EQ(row.result, -1) << row.name;
        expected += std::string("[") + row.name + "] invalid data param\r\n";
    }
    EXPECT_EQ(err.text(), expected);
    EXPECT_THAT(sync_spy_calls(), ElementsAre()); // neither lock nor semaphore was touched
    EXPECT_EQ(sync_spy_semaphore(), 1);
    EXPECT_EQ(dequeue(), 9u);
}

TEST_F(QueueList, ALockThatCannotBeTakenLeavesTheListsAlone)
{
    make(64, 1);
    queue_list_elem *elem = nullptr;
    sync_spy_fail_lock(1);
    EXPECT_EQ(queue_list_free_elem_take(q, &elem), -1);
    EXPECT_EQ(elem, nullptr);
    elem = take_free();
    sync_spy_fail_lock(1);
    EXPECT_EQ(queue_list_free_elem_give(q, elem), -1);
    EXPECT_EQ(sync_spy_semaphore(), 0);
    EXPECT_EQ(queue_list_free_elem_give(q, elem), 0);
    sync_spy_fail_lock(1);
    queue_list_elem *taken = nullptr;
    EXPECT_EQ(queue_list_data_elem_take(q, &taken), -1);
    EXPECT_EQ(taken, nullptr);
    EXPECT_EQ(sync_spy_semaphore(), 1);
    EXPECT_EQ(take_data(), elem);
    sync_spy_fail_lock(1);
    EXPECT_EQ(queue_list_data_elem_give(q, elem), -1);
    EXPECT_EQ(queue_list_free_elem_take(q, &taken), -1); // it was not given back
    EXPECT_EQ(queue_list_data_elem_give(q, elem), 0);
    EXPECT_EQ(take_free(), elem);
}

TEST_F(QueueList, EnqueueTellsWhenItCannotPublish)
{
    make(64, 1);
    sync_spy_fail_lock(2);
    EXPECT_EQ(enqueue(1), -1);
    EXPECT_EQ(err.text(), "[queue_list_enqueue] queue_multi_free_elem_give fail\r\n");
    EXPECT_EQ(sync_spy_semaphore(), 0);
}

TEST_F(QueueList, DequeueTellsWhenItCannotGiveBack)
{
    make(64, 1);
    EXPECT_EQ(enqueue(1), 0);
    sync_spy_fail_lock(2);
    uint8_t dst[64];
    uint32_t size, width, height, type;
    uint64_t timestamp = 0;
    EXPECT_EQ(queue_list_dequeue(q, dst, &size, &width, &height, &type, &timestamp), -1);
    EXPECT_EQ(err.text(), "[queue_list_dequeue] queue_list_daa_elem_give fail\r\n");
    EXPECT_EQ(timestamp, 1u);
}

// ---- Threads

struct message {
    uint32_t producer;
    uint32_t number;
    uint8_t filler[200];
};

void fill(message *out, uint32_t producer, uint32_t number)
{
    out->producer = producer;
    out->number = number;
    memset(out->filler, static_cast<int>(producer * 31 + number) & 0xFF, sizeof out->filler);
}

void check(const message &in)
{
    const std::vector<uint8_t> expected(sizeof in.filler, static_cast<uint8_t>(in.producer * 31 + in.number));
    ASSERT_EQ(memcmp(in.filler, expected.data(), expected.size()), 0);
}

// Producers that copy in and producers that fill in place, against consumers of both kinds. Every message
// that arrives is whole, and those of one producer reach one consumer in their order.
TEST_F(QueueList, ProducersAndConsumersOfBothKinds)
{
    make(256, 6);
    sync_spy_ignore();
    const uint32_t producers = 3, messages = 4000;
    std::atomic<int> alive{2};
    std::atomic<uint32_t> received{0};

    auto consumer = [&](bool in_place) {
        std::vector<int64_t> last(producers, -1);
        for (;;) {
            message in;
            uint32_t type;
            if (in_place) {
                queue_list_elem *elem;
                if (queue_list_data_elem_take(q, &elem) != 0)
                    continue;
                type = meta_list_data_get(elem)->type;
                memcpy(&in, meta_list_data_get(elem) + 1, sizeof in);
                ASSERT_EQ(queue_list_data_elem_give(q, elem), 0);
            } else {
                uint8_t dst[256];
                uint32_t size, width, height;
                uint64_t timestamp;
                if (queue_list_dequeue(q, dst, &size, &width, &height, &type, &timestamp) != 0)
                    continue;
                memcpy(&in, dst, sizeof in);
            }
            if (type == QUEUE_ELEMENT_QUIT)
                break;
            check(in);
            ASSERT_LT(in.producer, producers);
            ASSERT_GT(static_cast<int64_t>(in.number), last[in.producer]);
            last[in.producer] = in.number;
            received++;
        }
        alive--;
    };
    auto producer = [&](uint32_t self) {
        for (uint32_t i = 0; i < messages; i++) {
            if (self == 0) {
                message out;
                fill(&out, self, i);
                queue_list_enqueue(q, &out, sizeof out, 0, 0, 0, i);
                continue;
            }
            queue_list_elem *elem;
            if (queue_list_free_elem_take(q, &elem) != 0)
                continue;
            *meta_list_data_get(elem) = {};
            meta_list_data_get(elem)->size = sizeof(message);
            fill(reinterpret_cast<message *>(meta_list_data_get(elem) + 1), self, i);
            ASSERT_EQ(queue_list_free_elem_give(q, elem), 0);
        }
    };
    std::thread consumers[] = {std::thread(consumer, true), std::thread(consumer, false)};
    std::vector<std::thread> running;
    for (uint32_t i = 0; i < producers; i++)
        running.emplace_back(producer, i);
    for (std::thread &thread : running)
        thread.join();
    // A quit may itself be reclaimed by the next one, so they are sent until both have had theirs.
    while (alive > 0) {
        queue_list_enqueue(q, nullptr, 0, 0, 0, QUEUE_ELEMENT_QUIT, 0);
        std::this_thread::yield();
    }
    for (std::thread &thread : consumers)
        thread.join();
    EXPECT_GT(received, 0u);
    // Every element is on a list: each can still be had, and no more than that.
    err.clear();
    for (int i = 0; i < 6; i++)
        take_free();
    EXPECT_EQ(err.text(), "");
    EXPECT_EQ(sync_spy_semaphore(), 0);
    queue_list_elem *none;
    EXPECT_EQ(queue_list_free_elem_take(q, &none), -1);
}

} // namespace
