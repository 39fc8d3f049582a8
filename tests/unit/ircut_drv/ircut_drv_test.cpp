// The coil of the IR-cut filter, the PWM channels and the infrared light, on a board of plain files.
#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

#include "fake_clock.h"
#include "infrared.h"
#include "ircut_config.h"
#include "ircut_drv.h"
#include "ircut_internal.h"
#include "ircut_pwm.h"
#include "isolate.h"
#include "lock_watch.h"
#include "log_capture.h"
#include "sysfs.h"
#include "sysfs_tree.h"

// The table names it; nobody calls it here.
void *mstar_ircut_ctrl_smart(void *)
{
    return nullptr;
}

namespace
{

const std::string root = scratch_root();

using Lines = std::vector<LogCapture::Line>;

class Drivers : public testing::Test
{
  protected:
    Drivers()
    {
        ircut_config_init();
        log.clear();
    }
    LogCapture log;
    FakeClock clock;
    SysfsTree sysfs;
};

// ---- The table -------------------------------------------------------------------------------------------

TEST(Table, IsEmptyBeforeItIsFilled)
{
    EXPECT_EQ(ircut_config_get().platform, 0);
    EXPECT_EQ(ircut_drv_init(), -1);
    EXPECT_EQ(ircut_drv_exit(), -1);
    EXPECT_EQ(ircut_drv_sw(1), -1);
    EXPECT_EQ(pwm_drv_init(), -1);
    EXPECT_EQ(pwm_drv_exit(), -1);
    EXPECT_EQ(pwm_duty("1"), -1);
}

TEST(Table, IsFilledAndSaysSoEveryTime)
{
    LogCapture log;
    EXPECT_EQ(ircut_config_init(), 0);
    EXPECT_EQ(ircut_config_init(), 0);
    EXPECT_EQ(log.lines(), (Lines{{NARO_LOG_INFO, "[ircut_config_init] NARO_ALGO_MSTAR\n"},
                                  {NARO_LOG_INFO, "[ircut_config_init] NARO_ALGO_MSTAR\n"}}));
    const ircut_config table = ircut_config_get();
    EXPECT_EQ(table.platform, 1);
    EXPECT_STREQ(table.ircut_gpio_a, "78");
    EXPECT_STREQ(table.ircut_gpio_b, "79");
    EXPECT_EQ(table.drv_init, _mstar_ircut_drv_init);
    EXPECT_EQ(table.drv_exit, _mstar_ircut_drv_exit);
    EXPECT_EQ(table.drv_sw, _mstar_ircut_drv_sw);
    EXPECT_EQ(table.pwm_init, _mstar_pwm_drv_init);
    EXPECT_EQ(table.pwm_exit, _mstar_pwm_drv_exit);
    EXPECT_EQ(table.pwm_duty, _mstar_pwm_duty);
    EXPECT_EQ(table.ctrl_task, mstar_ircut_ctrl_smart);
}

// For the thread sanitizer: a start that finds the module running fills the table while others call through
// it.
TEST(Table, IsFilledWhileOthersReadIt)
{
    LogCapture log;
    ircut_config_init();
    std::thread filler([] {
        for (int i = 0; i < 200; i++)
            ircut_config_init();
    });
    for (int i = 0; i < 200; i++)
        EXPECT_STREQ(ircut_config_get().ircut_gpio_b, "79")
            << "the old one or the new one, and nothing between";
    filler.join();
}

TEST_F(Drivers, WrappersPassResultsOn)
{
    EXPECT_EQ(ircut_drv_init(), 0);
    EXPECT_EQ(ircut_drv_sw(0), 0);
    EXPECT_EQ(ircut_drv_exit(), 0);
    EXPECT_EQ(pwm_drv_init(), 0);
    EXPECT_EQ(pwm_duty("30"), 0);
    EXPECT_EQ(pwm_drv_exit(), 0);
    sysfs.remove("");
    EXPECT_EQ(ircut_drv_init(), -1);
    EXPECT_EQ(ircut_drv_sw(0), -1);
    EXPECT_EQ(ircut_drv_exit(), -1);
    EXPECT_EQ(pwm_drv_init(), -1);
    EXPECT_EQ(pwm_duty("30"), -1);
    EXPECT_EQ(pwm_drv_exit(), -1);
}

// ---- Writing ---------------------------------------------------------------------------------------------

TEST_F(Drivers, AWriteReplacesWhatWasThereWhereverTheDescriptorStands)
{
    sysfs.set("gpio/gpio78/value", "old and long");
    const int fd = naro_open("/sys/class/gpio/gpio78/value", O_RDWR, 0);
    char byte;
    ASSERT_EQ(naro_read(fd, &byte, 1), 1);
    EXPECT_EQ(sysfs_replace(fd, "99", 2), 0);
    EXPECT_EQ(sysfs.get("gpio/gpio78/value"), "99");
    EXPECT_EQ(sysfs_replace(fd, "0", 1), 0);
    EXPECT_EQ(sysfs.get("gpio/gpio78/value"), "0");
    close(fd);
}

TEST_F(Drivers, AWriteCutShortIsAFailure)
{
    const int fd = naro_open("/sys/class/gpio/gpio78/value", O_RDWR, 0);
    sysfs.fail("write", "gpio/gpio78/value", -2); // one byte
    EXPECT_EQ(sysfs_replace_logged(fd, "99", 2, "caller", "/path"), -1);
    EXPECT_EQ(errno, EIO);
    sysfs.fail("write", "gpio/gpio78/value", -1); // nothing at all
    errno = 0;
    EXPECT_EQ(sysfs_replace(fd, "99", 2), -1);
    EXPECT_EQ(errno, EIO);
    sysfs.fail("write", "gpio/gpio78/value", -3);
    EXPECT_EQ(sysfs_replace_logged(fd, "99", 2, "caller", "/path"), 0);
    sysfs.fail("write", "gpio/gpio78/value", EPERM);
    EXPECT_EQ(sysfs_replace_logged(fd, "99", 2, "caller", "/path"), -1);
    close(fd);
    EXPECT_EQ(log.lines(), (Lines{{NARO_LOG_ERR, "[caller] write /path fail: Input/output error\n"},
                                  {NARO_LOG_ERR, "[caller] write /path fail: Operation not permitted\n"}}));
}

// ---- Coil: init and exit ---------------------------------------------------------------------------------

TEST_F(Drivers, CoilInitRequestsTheLinesAndMakesThemOutputs)
{
    EXPECT_EQ(_mstar_ircut_drv_init(), 0);
    EXPECT_EQ(sysfs.calls(), (Calls{"open gpio/export", "write gpio/export 78", "write gpio/export 79",
                                    "open gpio/gpio78/direction", "write gpio/gpio78/direction out",
                                    "open gpio/gpio79/direction", "write gpio/gpio79/direction out"}));
    EXPECT_EQ(log.texts(), std::vector<std::string>{});
    EXPECT_EQ(sysfs.get("gpio/gpio78/direction"), "out");
    EXPECT_EQ(sysfs.get("gpio/gpio79/direction"), "out");
}

TEST_F(Drivers, LinesLeftBehindByAKilledProcessAreFine)
{
    sysfs.fail("write", "gpio/export", EBUSY);
    EXPECT_EQ(_mstar_ircut_drv_init(), 0);
    EXPECT_EQ(sysfs.writes(), (Calls{"gpio/export 78", "gpio/export 79", "gpio/gpio78/direction out",
                                     "gpio/gpio79/direction out"}));
    EXPECT_EQ(log.texts(), std::vector<std::string>{});
}

TEST_F(Drivers, CoilInitFails)
{
    const struct {
        const char *call, *path;
        int error;
        size_t writes; // that were tried
        const char *message;
    } table[] = {
        {"open", "gpio/export", EACCES, 0, "open /sys/class/gpio/export error !"},
        {"write", "gpio/export", EINVAL, 1,
         "[_mstar_ircut_drv_init] write /sys/class/gpio/export fail: Invalid argument\n"},
        {"open", "gpio/gpio78/direction", ENOENT, 2, "open /sys/class/gpio/gpio78/direction fail\n"},
        {"write", "gpio/gpio78/direction", EIO, 3,
         "[_mstar_ircut_drv_init] write /sys/class/gpio/gpio78/direction fail: Input/output error\n"},
        {"open", "gpio/gpio79/direction", ENOENT, 3, "open /sys/class/gpio/gpio79/direction fail\n"},
        {"write", "gpio/gpio79/direction", EIO, 4,
         "[_mstar_ircut_drv_init] write /sys/class/gpio/gpio79/direction fail: Input/output error\n"},
    };
    for (const auto &row : table) {
        sysfs.clear();
        log.clear();
        sysfs.fail(row.call, row.path, row.error);
        EXPECT_EQ(_mstar_ircut_drv_init(), -1) << row.message;
        EXPECT_EQ(log.lines(), (Lines{{NARO_LOG_ERR, row.message}}));
        EXPECT_EQ(sysfs.writes().size(), row.writes) << row.message << ": nothing is undone";
        sysfs.fail(row.call, row.path, 0);
    }
}

TEST_F(Drivers, CoilExitGivesTheLinesBack)
{
    EXPECT_EQ(_mstar_ircut_drv_exit(), 0);
    EXPECT_EQ(sysfs.calls(),
              (Calls{"open gpio/unexport", "write gpio/unexport 78", "write gpio/unexport 79"}));
    EXPECT_EQ(log.texts(), std::vector<std::string>{});

    sysfs.fail("open", "gpio/unexport", EACCES);
    EXPECT_EQ(_mstar_ircut_drv_exit(), -1);
    EXPECT_EQ(log.lines(), (Lines{{NARO_LOG_ERR, "open /sys/class/gpio/unexport fail\n"}}));
    sysfs.fail("open", "gpio/unexport", 0);
    sysfs.fail("write", "gpio/unexport", EINVAL);
    EXPECT_EQ(_mstar_ircut_drv_exit(), -1);
    EXPECT_TRUE(log.has(NARO_LOG_ERR,
                        "[_mstar_ircut_drv_exit] write /sys/class/gpio/unexport fail: Invalid argument\n"));
}

// ---- Coil: pulses ----------------------------------------------------------------------------------------

TEST_F(Drivers, NightPulse)
{
    std::string during;
    clock.on_sleep = [&](unsigned) {
        during = sysfs.get("gpio/gpio78/value") + " " + sysfs.get("gpio/gpio79/value");
    };
    EXPECT_EQ(_mstar_ircut_drv_sw(0), 0);
    EXPECT_EQ(sysfs.calls(),
              (Calls{"open gpio/gpio78/value", "open gpio/gpio79/value", "write gpio/gpio78/value 1",
                     "write gpio/gpio79/value 0", "write gpio/gpio78/value 0", "write gpio/gpio79/value 0"}));
    EXPECT_EQ(clock.sleeps(), (std::vector<unsigned>{500}));
    EXPECT_EQ(during, "1 0");
    EXPECT_EQ(log.texts(), std::vector<std::string>{});
}

TEST_F(Drivers, DayPulse)
{
    std::string during;
    clock.on_sleep = [&](unsigned) {
        during = sysfs.get("gpio/gpio78/value") + " " + sysfs.get("gpio/gpio79/value");
    };
    EXPECT_EQ(_mstar_ircut_drv_sw(1), 0);
    EXPECT_EQ(sysfs.calls(),
              (Calls{"open gpio/gpio78/value", "open gpio/gpio79/value", "write gpio/gpio78/value 0",
                     "write gpio/gpio79/value 1", "write gpio/gpio78/value 0", "write gpio/gpio79/value 0"}));
    EXPECT_EQ(clock.sleeps(), (std::vector<unsigned>{500}));
    EXPECT_EQ(during, "0 1");
}

TEST_F(Drivers, AnyOtherPositionLeavesBothLinesLow)
{
    for (int position : {2, -1}) {
        sysfs.set("gpio/gpio78/value", "1");
        sysfs.clear();
        log.clear();
        EXPECT_EQ(_mstar_ircut_drv_sw(position), 0);
        EXPECT_EQ(sysfs.writes(), (Calls{"gpio/gpio78/value 0", "gpio/gpio79/value 0"}));
        EXPECT_EQ(sysfs.get("gpio/gpio78/value"), "0");
        EXPECT_EQ(clock.sleeps().size(), 0u);
        EXPECT_EQ(log.lines(), (Lines{{NARO_LOG_ERR, "Not Support!!!\n"}}));
    }
}

TEST_F(Drivers, ALineThatCannotBeOpenedMovesNothing)
{
    for (const char *line : {"78", "79"}) {
        const std::string path = std::string("gpio/gpio") + line + "/value";
        log.clear();
        sysfs.fail("open", path, ENOENT);
        EXPECT_EQ(_mstar_ircut_drv_sw(1), -1);
        EXPECT_EQ(log.lines(), (Lines{{NARO_LOG_ERR, "open /sys/class/" + path + " fail\n"}}));
        sysfs.fail("open", path, 0);
    }
    EXPECT_EQ(sysfs.writes(), Calls{});
    EXPECT_EQ(clock.sleeps().size(), 0u);
}

TEST_F(Drivers, ALineThatCannotBeWrittenKeepsNoLineHigh)
{
    for (const char *line : {"78", "79"}) {
        const std::string path = std::string("gpio/gpio") + line + "/value";
        sysfs.clear();
        log.clear();
        sysfs.fail("write", path, EIO);
        EXPECT_EQ(_mstar_ircut_drv_sw(0), -1);
        EXPECT_EQ(sysfs.writes(), (Calls{"gpio/gpio78/value 1", "gpio/gpio79/value 0", "gpio/gpio78/value 0",
                                         "gpio/gpio79/value 0"}));
        const LogCapture::Line failure = {NARO_LOG_ERR, "[_mstar_ircut_drv_sw] write /sys/class/" + path +
                                                            " fail: Input/output error\n"};
        EXPECT_EQ(log.lines(), (Lines{failure, failure}));
        sysfs.fail("write", path, 0);
    }
}

TEST_F(Drivers, APulseIsAFailureWhereEitherOfItsHalvesIs)
{
    // Driven, and then not released; and the other way round.
    clock.on_sleep = [&](unsigned) { sysfs.fail("write", "gpio/gpio78/value", EIO); };
    EXPECT_EQ(_mstar_ircut_drv_sw(1), -1);
    clock.on_sleep = [&](unsigned) { sysfs.fail("write", "gpio/gpio78/value", 0); };
    EXPECT_EQ(_mstar_ircut_drv_sw(1), -1);
    EXPECT_EQ(_mstar_ircut_drv_sw(1), 0);
}

TEST_F(Drivers, APulseIsMadeUnderTheCoilsLock)
{
    clock.on_sleep = [](unsigned) { EXPECT_EQ(locks_held(), 1u); };
    _mstar_ircut_drv_sw(0);
    _mstar_ircut_drv_sw(1);
    _mstar_ircut_drv_sw(2);
    sysfs.fail("open", "gpio/gpio78/value", ENOENT);
    _mstar_ircut_drv_sw(1);
    EXPECT_EQ(locks_held(), 0u);
}

// A pulse lasts half a second of a clock that nobody sets.
TEST_F(Drivers, APulseDoesNotMoveWithTheWallClock)
{
    for (int64_t step_ms : {-3600000, 3600000}) {
        clock.on_sleep = [&](unsigned) {
            clock.set_wall_ms(clock.wall_ms() + static_cast<uint64_t>(step_ms));
        };
        const uint64_t begin_ms = clock.monotonic_ms();
        EXPECT_EQ(_mstar_ircut_drv_sw(0), 0);
        EXPECT_EQ(clock.monotonic_ms() - begin_ms, 500u);
        EXPECT_EQ(sysfs.get("gpio/gpio78/value"), "0");
    }
}

// The kernel's files may be read by nobody, or written by nobody but their owner: what is asked for counts.
TEST_F(Drivers, FilesAreOpenForWhatIsDoneWithThem)
{
    OutputCapture err(STDERR_FILENO);
    _mstar_ircut_drv_init();
    _mstar_ircut_drv_sw(1);
    _mstar_pwm_drv_init();
    _mstar_pwm_duty("30");
    _mstar_pwm_drv_exit();
    _mstar_ircut_drv_exit();
    EXPECT_EQ(sysfs.access(), (std::map<std::string, std::string>{
                                  {"gpio/export", "write-only"},
                                  {"gpio/unexport", "write-only"},
                                  {"gpio/gpio78/direction", "read-write"},
                                  {"gpio/gpio79/direction", "read-write"},
                                  {"gpio/gpio78/value", "read-write"},
                                  {"gpio/gpio79/value", "read-write"},
                                  {"pwm/pwmchip0/export", "write-only"},
                                  {"pwm/pwmchip0/unexport", "write-only"},
                                  {"pwm/pwmchip0/pwm4/period", "read-write"},
                                  {"pwm/pwmchip0/pwm6/period", "read-write"},
                                  {"pwm/pwmchip0/pwm4/enable", "read-write"},
                                  {"pwm/pwmchip0/pwm6/enable", "read-write"},
                                  {"pwm/pwmchip0/pwm4/duty_cycle", "write-only"},
                              }));
}

TEST_F(Drivers, DescriptorZeroIsAsGoodAsAnyOther)
{
    OutputCapture err(STDERR_FILENO);
    close(0);
    EXPECT_EQ(_mstar_ircut_drv_init(), 0);
    EXPECT_EQ(_mstar_ircut_drv_sw(1), 0);
    EXPECT_EQ(_mstar_ircut_drv_exit(), 0);
    EXPECT_EQ(_mstar_pwm_drv_init(), 0);
    EXPECT_EQ(_mstar_pwm_duty("30"), 0);
    EXPECT_EQ(_mstar_pwm_drv_exit(), 0);
    EXPECT_EQ(log.texts(NARO_LOG_ERR), std::vector<std::string>{});
}

// Busy, refused, gone, broken: each at each call on each file. Whatever fails is said on the error level and
// answered with -1, and the next call finds nothing amiss.
TEST_F(Drivers, EveryFaultOfEveryFileIsSaidAndForgotten)
{
    const struct {
        const char *call, *path;
        int (*function)();
        size_t lines;
        bool busy_is_fine; // what is asked for is there already
    } table[] = {
        {"open", "gpio/export", _mstar_ircut_drv_init, 1, false},
        {"write", "gpio/export", _mstar_ircut_drv_init, 1, true},
        {"open", "gpio/gpio78/direction", _mstar_ircut_drv_init, 1, false},
        {"write", "gpio/gpio79/direction", _mstar_ircut_drv_init, 1, false},
        {"open", "gpio/unexport", _mstar_ircut_drv_exit, 1, false},
        {"open", "gpio/gpio78/value", [] { return _mstar_ircut_drv_sw(0); }, 1, false},
        {"open", "gpio/gpio79/value", [] { return _mstar_ircut_drv_sw(1); }, 1, false},
        {"write", "gpio/gpio78/value", [] { return _mstar_ircut_drv_sw(0); }, 2, false}, // at both ends
        {"write", "gpio/gpio79/value", [] { return _mstar_ircut_drv_sw(1); }, 2, false},
        {"open", "pwm/pwmchip0/export", _mstar_pwm_drv_init, 1, false},
        {"write", "pwm/pwmchip0/export", _mstar_pwm_drv_init, 1, true},
        {"open", "pwm/pwmchip0/pwm6/period", _mstar_pwm_drv_init, 1, false},
        {"write", "pwm/pwmchip0/pwm4/enable", _mstar_pwm_drv_init, 1, false},
        {"open", "pwm/pwmchip0/pwm4/enable", _mstar_pwm_drv_exit, 1, false},
        {"write", "pwm/pwmchip0/pwm4/enable", _mstar_pwm_drv_exit, 1, false},
        {"open", "pwm/pwmchip0/unexport", _mstar_pwm_drv_exit, 1, false},
        {"open", "pwm/pwmchip0/pwm4/duty_cycle", [] { return _mstar_pwm_duty("99"); }, 1, false},
        {"write", "pwm/pwmchip0/pwm4/duty_cycle", [] { return _mstar_pwm_duty("99"); }, 1, false},
        {"open", "pwm/pwmchip0/pwm4/enable", [] { return _mstar_pwm_duty("99"); }, 1, false},
        {"read", "pwm/pwmchip0/pwm4/enable", [] { return _mstar_pwm_duty("99"); }, 1, false},
    };
    OutputCapture err(STDERR_FILENO);
    for (const auto &row : table)
        for (int error : {EBUSY, EACCES, ENOENT, ENODEV, EIO}) {
            log.clear();
            sysfs.fail(row.call, row.path, error);
            const bool fine = error == EBUSY && row.busy_is_fine;
            EXPECT_EQ(row.function(), fine ? 0 : -1) << row.call << " " << row.path << " " << error;
            EXPECT_EQ(log.texts(NARO_LOG_ERR).size(), fine ? 0u : row.lines)
                << row.call << " " << row.path << " " << error;
            sysfs.fail(row.call, row.path, 0);
            EXPECT_EQ(row.function(), 0) << row.call << " " << row.path;
        }
}

TEST_F(Drivers, NoDescriptorIsLeftOpen)
{
    const size_t before = open_descriptors();
    const auto all = [] {
        _mstar_ircut_drv_init();
        _mstar_ircut_drv_sw(0);
        _mstar_pwm_drv_init();
        _mstar_pwm_duty("30");
        _mstar_pwm_drv_exit();
        _mstar_ircut_drv_exit();
    };
    all();
    for (const char *path :
         {"gpio/export", "gpio/unexport", "gpio/gpio78/direction", "gpio/gpio79/value", "pwm/pwmchip0/export",
          "pwm/pwmchip0/unexport", "pwm/pwmchip0/pwm4/enable", "pwm/pwmchip0/pwm4/duty_cycle"})
        for (const char *call : {"open", "write", "read"}) {
            sysfs.fail(call, path, EIO);
            all();
            sysfs.fail(call, path, 0);
        }
    EXPECT_EQ(open_descriptors(), before);
}

TEST(Coil, TwoThreadsNeverPulseTogether)
{
    LogCapture log;
    FakeClock clock(FakeClock::Sleep::blocks);
    SysfsTree sysfs;
    ircut_config_init();
    std::thread day([] { _mstar_ircut_drv_sw(1); });
    ASSERT_TRUE(clock.wait_for_sleepers(1));
    std::thread night([] { _mstar_ircut_drv_sw(0); });
    EXPECT_EQ(sysfs.writes(), (Calls{"gpio/gpio78/value 0", "gpio/gpio79/value 1"}));
    clock.advance_ms(500);
    day.join();
    ASSERT_TRUE(clock.wait_for_sleepers(1));
    clock.advance_ms(500);
    night.join();
    EXPECT_EQ(sysfs.writes(), (Calls{"gpio/gpio78/value 0", "gpio/gpio79/value 1", "gpio/gpio78/value 0",
                                     "gpio/gpio79/value 0", "gpio/gpio78/value 1", "gpio/gpio79/value 0",
                                     "gpio/gpio78/value 0", "gpio/gpio79/value 0"}));
}

TEST_F(Drivers, PulsesOfTwoThreadsNeverMix)
{
    clock.on_sleep = [](unsigned) { sched_yield(); };
    const auto pulses = [](int position) {
        for (int i = 0; i < 200; i++)
            _mstar_ircut_drv_sw(position);
    };
    std::thread day(pulses, 1);
    pulses(0);
    day.join();
    const Calls writes = sysfs.writes();
    ASSERT_EQ(writes.size(), 1600u);
    for (size_t i = 0; i < writes.size(); i += 4) {
        const bool night = writes[i] == "gpio/gpio78/value 1";
        ASSERT_EQ(Calls(writes.begin() + static_cast<long>(i), writes.begin() + static_cast<long>(i) + 4),
                  (Calls{std::string("gpio/gpio78/value ") + (night ? "1" : "0"),
                         std::string("gpio/gpio79/value ") + (night ? "0" : "1"), "gpio/gpio78/value 0",
                         "gpio/gpio79/value 0"}))
            << i;
    }
}

// ---- PWM -------------------------------------------------------------------------------------------------

TEST_F(Drivers, PwmInit)
{
    EXPECT_EQ(_mstar_pwm_drv_init(), 0);
    EXPECT_EQ(sysfs.calls(),
              (Calls{"open pwm/pwmchip0/export", "write pwm/pwmchip0/export 4", "write pwm/pwmchip0/export 6",
                     "open pwm/pwmchip0/pwm4/period", "write pwm/pwmchip0/pwm4/period 120000",
                     "open pwm/pwmchip0/pwm4/enable", "write pwm/pwmchip0/pwm4/enable 0",
                     "open pwm/pwmchip0/pwm6/period", "write pwm/pwmchip0/pwm6/period 2000",
                     "open pwm/pwmchip0/pwm6/enable", "write pwm/pwmchip0/pwm6/enable 0"}));
    EXPECT_EQ(sysfs.get("pwm/pwmchip0/pwm4/period"), "120000");
    EXPECT_EQ(log.texts(), std::vector<std::string>{});
}

TEST_F(Drivers, PwmChannelsLeftBehindAreFine)
{
    sysfs.fail("write", "pwm/pwmchip0/export", EBUSY);
    EXPECT_EQ(_mstar_pwm_drv_init(), 0);
    EXPECT_EQ(sysfs.writes().size(), 6u);
    EXPECT_EQ(log.texts(), std::vector<std::string>{});
}

TEST_F(Drivers, PwmInitFails)
{
    const struct {
        const char *path;
        size_t writes_before;
    } table[] = {
        {"pwm/pwmchip0/export", 0},      {"pwm/pwmchip0/pwm4/period", 2}, {"pwm/pwmchip0/pwm4/enable", 3},
        {"pwm/pwmchip0/pwm6/period", 4}, {"pwm/pwmchip0/pwm6/enable", 5},
    };
    for (const auto &row : table) {
        const std::string path = std::string("/sys/class/") + row.path;
        sysfs.clear();
        log.clear();
        sysfs.fail("open", row.path, ENOENT);
        EXPECT_EQ(_mstar_pwm_drv_init(), -1) << path;
        EXPECT_EQ(sysfs.writes().size(), row.writes_before) << path;
        EXPECT_EQ(log.lines(), (Lines{{NARO_LOG_ERR, "[_mstar_pwm_drv_init] open " + path + " fail\n"}}));
        sysfs.fail("open", row.path, 0);

        sysfs.clear();
        log.clear();
        sysfs.fail("write", row.path, EINVAL);
        EXPECT_EQ(_mstar_pwm_drv_init(), -1) << path;
        EXPECT_EQ(sysfs.writes().size(), row.writes_before + 1) << path;
        EXPECT_EQ(log.lines(), (Lines{{NARO_LOG_ERR, "[_mstar_pwm_drv_init] write " + path +
                                                         " fail: Invalid argument\n"}}));
        sysfs.fail("write", row.path, 0);
    }
}

TEST_F(Drivers, PwmExitReleasesOnlyTheInfraredChannel)
{
    EXPECT_EQ(_mstar_pwm_drv_exit(), 0);
    EXPECT_EQ(sysfs.calls(), (Calls{"open pwm/pwmchip0/pwm4/enable", "write pwm/pwmchip0/pwm4/enable 0",
                                    "open pwm/pwmchip0/unexport", "write pwm/pwmchip0/unexport 4"}));
    EXPECT_EQ(log.texts(), std::vector<std::string>{});
}

TEST_F(Drivers, PwmExitFails)
{
    sysfs.fail("open", "pwm/pwmchip0/pwm4/enable", ENOENT);
    EXPECT_EQ(_mstar_pwm_drv_exit(), -1);
    EXPECT_EQ(sysfs.writes(), Calls{});
    sysfs.fail("open", "pwm/pwmchip0/pwm4/enable", 0);
    sysfs.fail("open", "pwm/pwmchip0/unexport", ENOENT);
    EXPECT_EQ(_mstar_pwm_drv_exit(), -1);
    EXPECT_EQ(sysfs.writes(), (Calls{"pwm/pwmchip0/pwm4/enable 0"}));
    EXPECT_EQ(log.lines(),
              (Lines{{NARO_LOG_ERR, "[_mstar_pwm_drv_exit] open /sys/class/pwm/pwmchip0/pwm4/enable fail\n"},
                     {NARO_LOG_ERR, "[_mstar_pwm_drv_exit] open /sys/class/pwm/pwmchip0/unexport fail\n"}}));
}

TEST_F(Drivers, DutyEnablesAndDisablesOnlyWhereTheStateMustChange)
{
    const std::string duty = "pwm/pwmchip0/pwm4/duty_cycle", enable = "pwm/pwmchip0/pwm4/enable";
    const struct {
        const char *enabled, *text;
        Calls writes;
        std::string enabled_after, message;
    } table[] = {
        {"1\n", "0", {duty + " 0", enable + " 0"}, "0", "[_mstar_pwm_duty]disable pwm\n"},
        {"0\n", "0", {duty + " 0"}, "0\n", ""},
        {"0\n", "1", {duty + " 1", enable + " 1"}, "1", "[_mstar_pwm_duty]enable pwm\n"},
        {"0\n", "99", {duty + " 99", enable + " 1"}, "1", "[_mstar_pwm_duty]enable pwm\n"},
        {"1\n", "100", {duty + " 100"}, "1\n", ""},
        // Neither 0 nor 1: taken for enabled where it is to be off, and left alone where it is to be on.
        {"x", "0", {duty + " 0", enable + " 0"}, "0", "[_mstar_pwm_duty]disable pwm\n"},
        {"", "0", {duty + " 0", enable + " 0"}, "0", "[_mstar_pwm_duty]disable pwm\n"},
        {"", "7", {duty + " 7"}, "", ""},
        // What follows the number is passed on as it is.
        {"0\n", "30 %", {duty + " 30 %", enable + " 1"}, "1", "[_mstar_pwm_duty]enable pwm\n"},
    };
    for (const auto &row : table) {
        sysfs.set(enable, row.enabled);
        sysfs.clear();
        log.clear();
        OutputCapture err(STDERR_FILENO);
        EXPECT_EQ(_mstar_pwm_duty(row.text), 0);
        EXPECT_EQ(err.text(), std::string("[_mstar_pwm_duty] pwm duty=") + row.text + "\n");
        EXPECT_EQ(sysfs.writes(), row.writes) << row.text;
        EXPECT_EQ(sysfs.get(duty), row.text);
        EXPECT_EQ(sysfs.get(enable), row.enabled_after) << row.text;
        EXPECT_EQ(log.lines(), row.message.empty() ? Lines{} : (Lines{{NARO_LOG_INFO, row.message}}))
            << row.text;
    }
}

TEST_F(Drivers, DutyOutOfRangeChangesNothing)
{
    for (const char *text : {"101", "-1", "4294967297", "-99999999999999999999", "99999999999999999999"}) {
        log.clear();
        OutputCapture err(STDERR_FILENO);
        EXPECT_EQ(_mstar_pwm_duty(text), -1) << text;
        EXPECT_EQ(err.text(), std::string("[_mstar_pwm_duty] pwm duty=") + text + "\n");
        EXPECT_EQ(log.lines(),
                  (Lines{{NARO_LOG_ERR, std::string("[_mstar_pwm_duty] illegal duty[") + text + "]\n"}}));
    }
    EXPECT_EQ(sysfs.calls(), Calls{});
}

TEST_F(Drivers, DutyFails)
{
    const struct {
        const char *call, *path;
        int error;
        size_t writes;
        const char *message;
    } table[] = {
        {"open", "pwm/pwmchip0/pwm4/duty_cycle", ENOENT, 0,
         "open /sys/class/pwm/pwmchip0/pwm4/duty_cycle fail\n"},
        {"write", "pwm/pwmchip0/pwm4/duty_cycle", EINVAL, 1,
         "[_mstar_pwm_duty] write /sys/class/pwm/pwmchip0/pwm4/duty_cycle fail: Invalid argument\n"},
        {"open", "pwm/pwmchip0/pwm4/enable", ENOENT, 1, "open /sys/class/pwm/pwmchip0/pwm4/enable fail\n"},
        {"read", "pwm/pwmchip0/pwm4/enable", EIO, 1,
         "[_mstar_pwm_duty] read /sys/class/pwm/pwmchip0/pwm4/enable fail: Input/output error\n"},
        {"write", "pwm/pwmchip0/pwm4/enable", EBUSY, 2,
         "[_mstar_pwm_duty] write /sys/class/pwm/pwmchip0/pwm4/enable fail: Device or resource busy\n"},
    };
    for (const char *text : {"50", "0"})
        for (const auto &row : table) {
            sysfs.set("pwm/pwmchip0/pwm4/enable", *text == '0' ? "1\n" : "0\n");
            sysfs.clear();
            log.clear();
            sysfs.fail(row.call, row.path, row.error);
            OutputCapture err(STDERR_FILENO);
            EXPECT_EQ(_mstar_pwm_duty(text), -1) << row.message;
            EXPECT_EQ(sysfs.writes().size(), row.writes) << row.message;
            EXPECT_EQ(log.lines(), (Lines{{NARO_LOG_ERR, row.message}}));
            sysfs.fail(row.call, row.path, 0);
        }
}

// ---- Infrared light --------------------------------------------------------------------------------------

TEST(Ladder, NextRung)
{
    const struct {
        int level, up, down;
    } table[] = {
        {0, 30, 0},   {30, 50, 0},  {50, 75, 30}, {75, 99, 50},    {99, 99, 75},
        {1, 1, 1},    {29, 29, 29}, {31, 31, 31}, {49, 49, 49},    {51, 51, 51},
        {74, 74, 74}, {76, 76, 76}, {98, 98, 98}, {100, 100, 100}, {-1, -1, -1},
    };
    for (const auto &row : table) {
        EXPECT_EQ(infrared_level_next(row.level, 1), row.up) << row.level;
        EXPECT_EQ(infrared_level_next(row.level, -1), row.up) << row.level;
        EXPECT_EQ(infrared_level_next(row.level, 0), row.down) << row.level;
    }
}

TEST_F(Drivers, InfraredAtALevel)
{
    OutputCapture err(STDERR_FILENO);
    EXPECT_EQ(_infrared_drv(75), 0);
    EXPECT_EQ(sysfs.get("pwm/pwmchip0/pwm4/duty_cycle"), "75");
    EXPECT_EQ(log.lines(), (Lines{{NARO_LOG_INFO, "[_infrared_drv]pwm_duty(75)\n"},
                                  {NARO_LOG_INFO, "[_mstar_pwm_duty]enable pwm\n"}}));
    EXPECT_EQ(_infrared_drv(101), -1);
}

TEST_F(Drivers, InfraredUpAndDownTheLadder)
{
    OutputCapture err(STDERR_FILENO);
    EXPECT_EQ(ir_level, 0);
    for (int level : {30, 50, 75, 99}) {
        EXPECT_EQ(infrared_drv(1), 0);
        EXPECT_EQ(ir_level, level);
        EXPECT_EQ(sysfs.get("pwm/pwmchip0/pwm4/duty_cycle"), std::to_string(level));
    }
    for (int level : {75, 50, 30, 0}) {
        EXPECT_EQ(infrared_drv(0), 0);
        EXPECT_EQ(ir_level, level);
        EXPECT_EQ(sysfs.get("pwm/pwmchip0/pwm4/duty_cycle"), std::to_string(level));
    }
}

TEST_F(Drivers, InfraredAtTheEndsOfTheLadderTouchesNothing)
{
    ir_level = 99;
    EXPECT_EQ(infrared_drv(1), 0);
    EXPECT_EQ(ir_level, 99);
    ir_level = 0;
    EXPECT_EQ(infrared_drv(0), 0);
    EXPECT_EQ(ir_level, 0);
    EXPECT_EQ(sysfs.calls(), Calls{});
    EXPECT_EQ(log.texts(), std::vector<std::string>{});
}

TEST_F(Drivers, InfraredBesideTheLadderIsAppliedAgain)
{
    for (int direction : {0, 1}) {
        OutputCapture err(STDERR_FILENO);
        ir_level = 40;
        sysfs.set("pwm/pwmchip0/pwm4/duty_cycle", "");
        EXPECT_EQ(infrared_drv(direction), 0);
        EXPECT_EQ(ir_level, 40);
        EXPECT_EQ(sysfs.get("pwm/pwmchip0/pwm4/duty_cycle"), "40");
    }
    ir_level = 0;
}

TEST_F(Drivers, InfraredSteppingIgnoresWhatTheLightAnswers)
{
    OutputCapture err(STDERR_FILENO);
    sysfs.fail("open", "pwm/pwmchip0/pwm4/duty_cycle", ENOENT);
    EXPECT_EQ(infrared_drv(1), 0);
    EXPECT_EQ(ir_level, 30);
    ir_level = 0;
}

} // namespace
