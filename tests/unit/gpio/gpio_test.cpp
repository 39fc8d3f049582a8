// GPIO lines on a board of plain files.
#include "gpio.h"

#include <errno.h>
#include <gtest/gtest.h>
#include <limits.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include "isolate.h"
#include "log_capture.h"
#include "sysfs_tree.h"

namespace
{

const std::string root = scratch_root();

using Lines = std::vector<LogCapture::Line>;

class Gpio : public testing::Test
{
  protected:
    LogCapture log;
    SysfsTree sysfs;
};

TEST_F(Gpio, RequestWritesTheNumberInFiveBytes)
{
    EXPECT_EQ(GPIO_request(47), 0);
    EXPECT_EQ(sysfs.calls(), (Calls{"open gpio/export", "write gpio/export 47\\0\\0\\0"}));
    EXPECT_EQ(sysfs.get("gpio/export"), std::string("47\0\0\0", 5));
    EXPECT_EQ(log.lines(), (Lines{{NARO_LOG_DEBUG, "open success!\r\n"},
                                  {NARO_LOG_DEBUG, "gpio_request success,num = 47\n"}}));
    sysfs.clear();
    EXPECT_EQ(GPIO_request(9999), 0);
    EXPECT_EQ(sysfs.writes(), (Calls{"gpio/export 9999\\0"}));
}

TEST_F(Gpio, RequestOfALineThatIsThereAlready)
{
    sysfs.fail("write", "gpio/export", EBUSY);
    EXPECT_EQ(GPIO_request(45), 0);
    EXPECT_EQ(log.texts(NARO_LOG_ERR), std::vector<std::string>{});
    EXPECT_TRUE(log.has("gpio_request success,num = 45\n"));
}

TEST_F(Gpio, RequestFails)
{
    sysfs.fail("open", "gpio/export", EACCES);
    EXPECT_EQ(GPIO_request(47), -1);
    EXPECT_EQ(log.lines(), (Lines{{NARO_LOG_ERR, "fail to device!\n"}}));
    sysfs.fail("open", "gpio/export", 0);
    log.clear();
    sysfs.fail("write", "gpio/export", EINVAL);
    EXPECT_EQ(GPIO_request(47), -1);
    EXPECT_EQ(log.lines(), (Lines{{NARO_LOG_DEBUG, "open success!\r\n"},
                                  {NARO_LOG_ERR,
                                   "[GPIO_request] write /sys/class/gpio/export fail: Invalid argument\n"}}));
}

TEST_F(Gpio, NumbersThatDoNotFitAreRefused)
{
    EXPECT_EQ(GPIO_request(10000), -1);
    EXPECT_EQ(GPIO_cancel(-1000), -1);
    EXPECT_EQ(GPIO_set_value(47, 10000), -1);
    EXPECT_EQ(sysfs.calls(), Calls{});
    EXPECT_EQ(log.lines(), (Lines{{NARO_LOG_ERR, "[GPIO_request] there is no line 10000\n"},
                                  {NARO_LOG_ERR, "[GPIO_cancel] there is no line -1000\n"},
                                  {NARO_LOG_ERR, "[GPIO_set_value] there is no value 10000\n"}}));
}

TEST_F(Gpio, Cancel)
{
    EXPECT_EQ(GPIO_cancel(47), 0);
    EXPECT_EQ(sysfs.calls(), (Calls{"open gpio/unexport", "write gpio/unexport 47\\0\\0\\0"}));
    EXPECT_EQ(log.texts(), std::vector<std::string>{});

    sysfs.fail("write", "gpio/unexport", EBUSY);
    EXPECT_EQ(GPIO_cancel(47), -1) << "busy is only fine where the line is wanted";
    EXPECT_EQ(log.lines(), (Lines{{NARO_LOG_ERR, "[GPIO_cancel] write /sys/class/gpio/unexport fail: Device "
                                                 "or resource busy\n"}}));
    log.clear();
    sysfs.fail("open", "gpio/unexport", ENOENT);
    EXPECT_EQ(GPIO_cancel(47), -1);
    EXPECT_EQ(log.lines(), (Lines{{NARO_LOG_ERR, "has no this gpio!\n"}}));
}

TEST_F(Gpio, SetDirectWritesFourBytesAndReadsNoFurtherThanTheText)
{
    const std::string out = "out", in = "in"; // heap or not, the sanitizer watches their ends
    EXPECT_EQ(GPIO_set_direct(45, out.c_str()), 0);
    EXPECT_EQ(GPIO_set_direct(45, in.c_str()), 0);
    EXPECT_EQ(GPIO_set_direct(47, "high"), 0);
    EXPECT_EQ(sysfs.calls(), (Calls{"open gpio/gpio45/direction", "write gpio/gpio45/direction out\\0",
                                    "open gpio/gpio45/direction", "write gpio/gpio45/direction in\\0\\0",
                                    "open gpio/gpio47/direction", "write gpio/gpio47/direction high"}));
    EXPECT_EQ(sysfs.get("gpio/gpio45/direction"), std::string("in\0\0", 4));
    EXPECT_EQ(log.lines(), (Lines{{NARO_LOG_DEBUG, "set gpio_direction is out\n"},
                                  {NARO_LOG_DEBUG, "set gpio_direction is in\n"},
                                  {NARO_LOG_DEBUG, "set gpio_direction is high\n"}}));
}

TEST_F(Gpio, SetDirectFails)
{
    EXPECT_EQ(GPIO_set_direct(46, "out"), -1);
    EXPECT_EQ(log.lines(), (Lines{{NARO_LOG_ERR, "fail to device!\n"}}));
    log.clear();
    sysfs.fail("write", "gpio/gpio45/direction", EPERM);
    EXPECT_EQ(GPIO_set_direct(45, "out"), -1);
    EXPECT_EQ(log.lines(),
              (Lines{{NARO_LOG_ERR, "[GPIO_set_direct] write /sys/class/gpio/gpio45/direction fail: "
                                    "Operation not permitted\n"}}));
}

TEST_F(Gpio, GetDirect)
{
    char buffer[GPIO_DIRECTION_SIZE + 1];
    buffer[GPIO_DIRECTION_SIZE] = '#';
    EXPECT_EQ(GPIO_get_direct(45, buffer), 0);
    EXPECT_STREQ(buffer, "in\n");
    EXPECT_EQ(log.lines(), (Lines{{NARO_LOG_DEBUG, "get gpio_direction is in\n\n"}}));
    sysfs.set("gpio/gpio45/direction", "0123456789abc");
    EXPECT_EQ(GPIO_get_direct(45, buffer), 0);
    EXPECT_STREQ(buffer, "0123456789") << "ten bytes and the end";
    EXPECT_EQ(buffer[GPIO_DIRECTION_SIZE], '#');
    sysfs.set("gpio/gpio45/direction", "");
    EXPECT_EQ(GPIO_get_direct(45, buffer), 0);
    EXPECT_STREQ(buffer, "") << "nothing is an answer, too";
    EXPECT_EQ(log.texts(NARO_LOG_ERR), std::vector<std::string>{});
}

TEST_F(Gpio, GetDirectFails)
{
    char buffer[GPIO_DIRECTION_SIZE] = "as it was";
    EXPECT_EQ(GPIO_get_direct(46, buffer), -1);
    EXPECT_EQ(log.lines(), (Lines{{NARO_LOG_ERR, "fail to device!\n"}}));
    log.clear();
    sysfs.fail("read", "gpio/gpio45/direction", EIO);
    EXPECT_EQ(GPIO_get_direct(45, buffer), -1);
    EXPECT_EQ(
        log.lines(),
        (Lines{{NARO_LOG_ERR,
                "[GPIO_get_direct] read /sys/class/gpio/gpio45/direction fail: Input/output error\n"}}));
    EXPECT_STREQ(buffer, "as it was");
}

TEST_F(Gpio, SetValue)
{
    sysfs.set("gpio/gpio47/value", "0 and more\n");
    EXPECT_EQ(GPIO_set_value(47, 1), 0);
    EXPECT_EQ(sysfs.get("gpio/gpio47/value"), "1");
    EXPECT_EQ(sysfs.calls(), (Calls{"fopen gpio/gpio47/value"}));
    EXPECT_EQ(GPIO_set_value(47, -12), 0);
    EXPECT_EQ(sysfs.get("gpio/gpio47/value"), "-12");
    EXPECT_EQ(log.texts(), std::vector<std::string>{});
}

TEST_F(Gpio, SetValueFails)
{
    sysfs.fail("fopen", "gpio/gpio47/value", EACCES);
    EXPECT_EQ(GPIO_set_value(47, 1), -1);
    EXPECT_EQ(log.lines(), (Lines{{NARO_LOG_ERR, "fail to open value device!\n"}}));
    sysfs.fail("fopen", "gpio/gpio47/value", 0);
    log.clear();
    // A device that takes nothing.
    sysfs.remove("gpio/gpio47/value");
    ASSERT_EQ(symlink("/dev/full", (root + "/sys/class/gpio/gpio47/value").c_str()), 0);
    EXPECT_EQ(GPIO_set_value(47, 1), -1);
    EXPECT_EQ(log.lines(),
              (Lines{{NARO_LOG_ERR, "[GPIO_set_value] write /sys/class/gpio/gpio47/value fail: No "
                                    "space left on device\n"}}));
}

TEST_F(Gpio, GetValue)
{
    const struct {
        std::string text;
        int value;
    } table[] = {
        {"1\n", 1},
        {"0\n", 0},
        {"", 0},
        {"no number", 0},
        {"-7", -7},
        {"12345678901", INT_MAX}, // eleven bytes, and no more
        {"-2147483649", INT_MIN},
        {"1234567890123", INT_MAX},
        {"00000000001x", 1},
        {"1a", 1}, // decimal
        {"2147483647", INT_MAX},
        {"-2147483648", INT_MIN},
        {"000000000012", 1},                               // the twelfth is not looked at
        {std::string("1\n") + std::string(4094, '\0'), 1}, // as long as the kernel says its files are
    };
    for (const auto &row : table) {
        sysfs.set("gpio/gpio47/value", row.text);
        EXPECT_EQ(GPIO_get_value(47), row.value) << row.text;
    }
    EXPECT_EQ(log.texts(), std::vector<std::string>{});
}

TEST_F(Gpio, GetValueOfAFileOfTheKernel)
{
    // It says that it has a page, and gives the two bytes that it holds.
    const char *const file = "/sys/class/net/lo/ifindex";
    if (access(file, R_OK) != 0)
        GTEST_SKIP() << "no " << file;
    sysfs.remove("gpio/gpio47/value");
    ASSERT_EQ(symlink(file, (root + "/sys/class/gpio/gpio47/value").c_str()), 0);
    EXPECT_EQ(GPIO_get_value(47), 1);
    EXPECT_EQ(log.texts(), std::vector<std::string>{});
}

TEST_F(Gpio, GetValueFails)
{
    EXPECT_EQ(GPIO_get_value(46), -1);
    EXPECT_EQ(log.lines(), (Lines{{NARO_LOG_ERR, "GPIO_get_value: fail to open!\n"}}));
    log.clear();
    // A folder can be opened, and has a size, but cannot be read.
    sysfs.remove("gpio/gpio47/value");
    ASSERT_EQ(mkdir((root + "/sys/class/gpio/gpio47/value").c_str(), 0755), 0);
    EXPECT_EQ(GPIO_get_value(47), -1);
    EXPECT_EQ(log.lines(),
              (Lines{{NARO_LOG_ERR, "[GPIO_get_value] read /sys/class/gpio/gpio47/value fail\n"}}));
}

TEST_F(Gpio, GetValueOfSomethingWithoutAnEnd)
{
    sysfs.remove("gpio/gpio47/value");
    ASSERT_EQ(mkfifo((root + "/sys/class/gpio/gpio47/value").c_str(), 0644), 0);
    const int other = open((root + "/sys/class/gpio/gpio47/value").c_str(), O_RDWR | O_CLOEXEC);
    EXPECT_EQ(GPIO_get_value(47), -1);
    EXPECT_EQ(log.lines(),
              (Lines{{NARO_LOG_ERR, "[GPIO_get_value] read /sys/class/gpio/gpio47/value fail\n"}}));
    close(other);
}

TEST_F(Gpio, OneShotRead)
{
    sysfs.set("gpio/gpio47/value", "1\n");
    EXPECT_EQ(GPIO_Read(47), 1);
    EXPECT_EQ(sysfs.calls(),
              (Calls{"open gpio/export", "write gpio/export 47\\0\\0\\0", "open gpio/gpio47/direction",
                     "write gpio/gpio47/direction in\\0\\0", "fopen gpio/gpio47/value", "open gpio/unexport",
                     "write gpio/unexport 47\\0\\0\\0"}));
    sysfs.remove("gpio/gpio47/value");
    EXPECT_EQ(GPIO_Read(47), -1);
}

TEST_F(Gpio, OneShotWrite)
{
    EXPECT_EQ(GPIO_Write(47, 1), 0);
    EXPECT_EQ(sysfs.calls(),
              (Calls{"open gpio/export", "write gpio/export 47\\0\\0\\0", "open gpio/gpio47/direction",
                     "write gpio/gpio47/direction out\\0", "fopen gpio/gpio47/value", "open gpio/unexport",
                     "write gpio/unexport 47\\0\\0\\0"}));
    EXPECT_EQ(sysfs.get("gpio/gpio47/value"), "1");
}

TEST_F(Gpio, OneShotWriteThatFailsLeavesTheLineRequested)
{
    sysfs.fail("fopen", "gpio/gpio47/value", EACCES);
    EXPECT_EQ(GPIO_Write(47, 1), -1);
    EXPECT_EQ(log.texts(NARO_LOG_ERR),
              (std::vector<std::string>{"fail to open value device!\n", "fail to write!\n"}));
    EXPECT_EQ(sysfs.writes(), (Calls{"gpio/export 47\\0\\0\\0", "gpio/gpio47/direction out\\0"}));
}

TEST_F(Gpio, NoDescriptorIsLeftOpen)
{
    const size_t before = open_descriptors();
    char buffer[GPIO_DIRECTION_SIZE];
    for (const char *path : {"none", "gpio/export", "gpio/unexport", "gpio/gpio47/direction"})
        for (const char *call : {"write", "read"}) {
            sysfs.fail(call, path, EIO);
            GPIO_Read(47);
            GPIO_Write(47, 0);
            GPIO_get_direct(47, buffer);
            sysfs.fail(call, path, 0);
        }
    EXPECT_EQ(open_descriptors(), before);
}

TEST_F(Gpio, FilesAreOpenForWhatIsDoneWithThem)
{
    GPIO_request(47);
    GPIO_set_direct(47, "out");
    GPIO_cancel(47);
    EXPECT_EQ(sysfs.access(), (std::map<std::string, std::string>{{"gpio/export", "write-only"},
                                                                  {"gpio/unexport", "write-only"},
                                                                  {"gpio/gpio47/direction", "write-only"}}));
}

TEST_F(Gpio, DescriptorZeroIsAsGoodAsAnyOther)
{
    char buffer[GPIO_DIRECTION_SIZE];
    close(0);
    EXPECT_EQ(GPIO_request(47), 0);
    EXPECT_EQ(GPIO_set_direct(47, "out"), 0);
    EXPECT_EQ(GPIO_get_direct(47, buffer), 0);
    EXPECT_EQ(GPIO_set_value(47, 1), 0);
    EXPECT_EQ(GPIO_get_value(47), 1);
    EXPECT_EQ(GPIO_cancel(47), 0);
}

// ---- What only the kernel can answer ---------------------------------------------------------------------

// Busy, refused, gone, broken: each at each call on each file. Whatever fails is said once, on one line of
// the error level, is answered with -1, and is over with the next call.
TEST_F(Gpio, EveryFaultOfEveryFileIsSaidOnceAndForgotten)
{
    static char buffer[GPIO_DIRECTION_SIZE];
    const struct {
        const char *call, *path;
        int (*function)();
        bool busy_is_fine; // the line is there already
    } table[] = {
        {"open", "gpio/export", [] { return GPIO_request(47); }, false},
        {"write", "gpio/export", [] { return GPIO_request(47); }, true},
        {"open", "gpio/unexport", [] { return GPIO_cancel(47); }, false},
        {"write", "gpio/unexport", [] { return GPIO_cancel(47); }, false},
        {"open", "gpio/gpio47/direction", [] { return GPIO_set_direct(47, "out"); }, false},
        {"write", "gpio/gpio47/direction", [] { return GPIO_set_direct(47, "out"); }, false},
        {"open", "gpio/gpio47/direction", [] { return GPIO_get_direct(47, buffer); }, false},
        {"read", "gpio/gpio47/direction", [] { return GPIO_get_direct(47, buffer); }, false},
        {"fopen", "gpio/gpio47/value", [] { return GPIO_set_value(47, 0); }, false},
        {"fopen", "gpio/gpio47/value", [] { return GPIO_get_value(47); }, false},
    };
    for (const auto &row : table)
        for (int error : {EBUSY, EACCES, ENOENT, ENODEV, EIO}) {
            log.clear();
            sysfs.fail(row.call, row.path, error);
            const bool fine = error == EBUSY && row.busy_is_fine;
            EXPECT_EQ(row.function(), fine ? 0 : -1) << row.call << " " << row.path << " " << error;
            EXPECT_EQ(log.texts(NARO_LOG_ERR).size(), fine ? 0u : 1u)
                << row.call << " " << row.path << " " << error;
            sysfs.fail(row.call, row.path, 0);
            EXPECT_EQ(row.function(), 0) << row.call << " " << row.path;
        }
}

} // namespace
