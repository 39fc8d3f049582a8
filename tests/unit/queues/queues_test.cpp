// The two instances and their wrappers, on the real element queue.
#include "queues.h"

#include <gmock/gmock.h>

#include "fake_memory.h"
#include "log_capture.h"

namespace
{

// One family of wrappers.
struct family {
    const char *name;
    int (*init)(int, int);
    int (*exit)(void);
    int (*enqueue)(const void *, uint32_t, uint32_t, uint32_t, uint32_t, uint64_t);
    int (*dequeue)(void *, uint32_t *, uint32_t *, uint32_t *, uint32_t *, uint64_t *);
    int (*free_elem_take)(queue_list_elem **);
    int (*free_elem_give)(queue_list_elem *);
    int (*data_elem_take)(queue_list_elem **);
    int (*data_elem_give)(queue_list_elem *);
};

const family families[] = {
    {"motion_queue_list", motion_queue_list_init, motion_queue_list_exit, motion_queue_list_enqueue,
     motion_queue_list_dequeue, motion_queue_list_free_elem_take, motion_queue_list_free_elem_give,
     motion_queue_list_data_elem_take, motion_queue_list_data_elem_give},
    {"network_queue_list", network_queue_list_init, network_queue_list_exit, network_queue_list_enqueue,
     network_queue_list_dequeue, network_queue_list_free_elem_take, network_queue_list_free_elem_give,
     network_queue_list_data_elem_take, network_queue_list_data_elem_give},
};

const char sizes_of_two_by_64[] = "meta_list_data size = 64, buf size = 256\r\n"
                                  "queue_list_elem size = 64, queue multi size = 384\r\n";

class Instance : public testing::TestWithParam<int>
{
  protected:
    void SetUp() override { fake_memory_reset(); }
    void TearDown() override
    {
        for (const family &each : families)
            each.exit();
        EXPECT_TRUE(fake_memory().live.empty());
    }
    // "[motion_queue_list_init]queue ..." and the like.
    std::string line(const char *function, const char *text) const
    {
        return std::string("[") + self.name + function + "]" + text;
    }

    const family &self = families[GetParam()];
    const family &other = families[1 - GetParam()];
    OutputCapture err{STDERR_FILENO};
};

TEST_P(Instance, InitMakesItWithTheSizesGiven)
{
    EXPECT_EQ(self.init(64, 2), 0);
    EXPECT_EQ(err.text(), sizes_of_two_by_64);
    ASSERT_EQ(fake_memory().allocated.size(), 2u);
}

TEST_P(Instance, InitTwiceKeepsTheFirst)
{
    EXPECT_EQ(self.init(64, 2), 0);
    EXPECT_EQ(self.enqueue("kept", 4, 0, 0, 0, 11), 0);
    err.clear();
    EXPECT_EQ(self.init(128, 5), 0);
    EXPECT_EQ(err.text(), line("_init", "queue_list already inited\r\n"));
    EXPECT_EQ(fake_memory().allocated.size(), 2u);
    queue_list_elem *elem = nullptr;
    EXPECT_EQ(self.data_elem_take(&elem), 0);
    EXPECT_EQ(meta_list_data_get(elem)->timestamp, 11u);
}

TEST_P(Instance, InitThatFailsMayBeTriedAgain)
{
    EXPECT_EQ(self.init(0, 3), -1);
    EXPECT_EQ(err.text(),
              "param : elem_num = 3, elem_max_size = 0\r\n" + line("_init", "queue list init fail\r\n"));
    queue_list_elem *elem = nullptr;
    EXPECT_EQ(self.free_elem_take(&elem), -1);
    err.clear();
    EXPECT_EQ(self.exit(), 0);
    EXPECT_EQ(err.text(), line("_exit", "queue_list already exit\r\n"));
    EXPECT_EQ(self.init(64, 3), 0);
    EXPECT_EQ(self.free_elem_take(&elem), 0);
}

TEST_P(Instance, ExitFreesItAndItMayBeMadeAgain)
{
    EXPECT_EQ(self.init(64, 2), 0);
    err.clear();
    EXPECT_EQ(self.exit(), 0);
    EXPECT_EQ(err.text(), "");
    EXPECT_TRUE(fake_memory().live.empty());
    EXPECT_EQ(fake_memory().freed.size(), 2u);
    EXPECT_EQ(self.exit(), 0);
    EXPECT_EQ(err.text(), line("_exit", "queue_list already exit\r\n"));
    err.clear();
    queue_list_elem *elem = nullptr;
    EXPECT_EQ(self.free_elem_take(&elem), -1); // nothing of the old one is left
    EXPECT_EQ(err.text(), "[queue_list_free_elem_take] invalid data param\r\n");
    err.clear();
    EXPECT_EQ(self.init(64, 2), 0);
    EXPECT_EQ(err.text(), sizes_of_two_by_64);
}

TEST_P(Instance, UntilItIsMadeEveryOperationFails)
{
    EXPECT_EQ(other.init(64, 2), 0);
    err.clear();
    uint8_t dst[64];
    uint32_t word = 0;
    uint64_t timestamp = 0;
    queue_list_elem *elem = nullptr, *others = nullptr;
    EXPECT_EQ(other.free_elem_take(&others), 0);
    EXPECT_EQ(self.enqueue(dst, 1, 0, 0, 0, 0), -1);
    EXPECT_EQ(self.dequeue(dst, &word, &word, &word, &word, &timestamp), -1);
    EXPECT_EQ(self.free_elem_take(&elem), -1);
    EXPECT_EQ(self.free_elem_give(others), -1);
    EXPECT_EQ(self.data_elem_take(&elem), -1);
    EXPECT_EQ(self.data_elem_give(others), -1);
    EXPECT_EQ(elem, nullptr);
    EXPECT_EQ(err.text(), "[queue_list_enqueue] invalid data param\r\n"
                          "[queue_list_dequeue] invalid data param\r\n"
                          "[queue_list_free_elem_take] invalid data param\r\n"
                          "[queue_list_free_elem_give] invalid data param\r\n"
                          "[queue_list_data_elem_take] invalid data param\r\n"
                          "[queue_list_data_elem_give] invalid data param\r\n");
}

TEST_P(Instance, CopiesInAndOut)
{
    EXPECT_EQ(self.init(64, 2), 0);
    EXPECT_EQ(self.enqueue("message", 7, 320, 192, 256, UINT64_MAX), 0);
    char dst[64];
    uint32_t size = 0, width = 0, height = 0, type = 0;
    uint64_t timestamp = 0;
    EXPECT_EQ(self.dequeue(dst, &size, &width, &height, &type, &timestamp), 0);
    EXPECT_EQ(std::string(dst, size), "message");
    EXPECT_EQ(width, 320u);
    EXPECT_EQ(height, 192u);
    EXPECT_EQ(type, 256u);
    EXPECT_EQ(timestamp, UINT64_MAX);
}

TEST_P(Instance, TravelsInPlace)
{
    EXPECT_EQ(self.init(64, 1), 0);
    EXPECT_EQ(other.init(64, 1), 0);
    err.clear();
    queue_list_elem *elem = nullptr, *none = nullptr;
    for (int round = 0; round < 3; round++) {
        EXPECT_EQ(self.free_elem_take(&elem), 0);
        EXPECT_EQ(self.free_elem_take(&none), -1);
        EXPECT_EQ(self.free_elem_give(elem), 0);
        none = nullptr;
        EXPECT_EQ(self.data_elem_take(&none), 0);
        EXPECT_EQ(none, elem);
        EXPECT_EQ(self.data_elem_give(elem), 0);
    }
    // The other queue knows nothing of it.
    queue_list_elem *others = nullptr;
    EXPECT_EQ(other.free_elem_take(&others), 0);
    EXPECT_NE(others, elem);
}

INSTANTIATE_TEST_SUITE_P(Both, Instance, testing::Values(0, 1),
                         [](const auto &instance) { return instance.param == 0 ? "motion" : "network"; });

class Queues2 : public Instance
{
};

TEST_P(Queues2, MakesTheMotionQueueForThreeFrames)
{
    EXPECT_EQ(queues2_init(), 0);
    EXPECT_EQ(err.text(), "meta_list_data size = 64, buf size = 553152\r\n"
                          "queue_list_elem size = 64, queue multi size = 553344\r\n");
    queue_list_elem *elem = nullptr;
    for (int i = 0; i < 3; i++)
        EXPECT_EQ(motion_queue_list_free_elem_take(&elem), 0);
    EXPECT_EQ(motion_queue_list_free_elem_take(&elem), -1);
    EXPECT_EQ(network_queue_list_free_elem_take(&elem), -1); // that one is not start-up's to make
}

TEST_P(Queues2, SecondInitFindsItMade)
{
    EXPECT_EQ(queues2_init(), 0);
    err.clear();
    EXPECT_EQ(queues2_init(), 0);
    EXPECT_EQ(err.text(), "[motion_queue_list_init]queue_list already inited\r\n");
}

TEST_P(Queues2, TellsThatThereIsNoMemory)
{
    fake_memory().fail_at = 1;
    EXPECT_EQ(queues2_init(), -1);
    EXPECT_EQ(err.text(), "queue malloc fail\r\n"
                          "[motion_queue_list_init]queue list init fail\r\n"
                          "[queues2_init] __motion_queue_list_init__ fail\r\n");
}

TEST_P(Queues2, ExitFreesTheMotionQueueAndNoOther)
{
    EXPECT_EQ(queues2_init(), 0);
    EXPECT_EQ(network_queue_list_init(64, 2), 0);
    EXPECT_EQ(queues2_exit(), 0);
    EXPECT_EQ(fake_memory().freed.size(), 2u);
    queue_list_elem *elem = nullptr;
    EXPECT_EQ(motion_queue_list_free_elem_take(&elem), -1);
    EXPECT_EQ(network_queue_list_free_elem_take(&elem), 0);
    err.clear();
    EXPECT_EQ(queues2_exit(), 0);
    EXPECT_EQ(err.text(), "[motion_queue_list_exit]queue_list already exit\r\n");
}

INSTANTIATE_TEST_SUITE_P(Startup, Queues2, testing::Values(0));

} // namespace
