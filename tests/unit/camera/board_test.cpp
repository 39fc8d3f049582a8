// The board: what its lines do to the filter and the lights, and that files move them.
#include "board.h"

#include <ev.h>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

#include "fake_clock.h"
#include "isolate.h"
#include "log_capture.h"

namespace
{

using testing::HasSubstr;

const std::string root = scratch_root();

struct Lines : testing::Test {
    Lines() { board_init(&board); }
    const char *set(board_line line, bool high, uint64_t now_ms)
    {
        return board_set_line(&board, line, high, now_ms);
    }
    board_state board;
};

TEST_F(Lines, AfterPowerOnAllAreLowAndTheFilterIsByDay)
{
    for (bool high : board.high)
        EXPECT_FALSE(high);
    EXPECT_TRUE(board.filter_day);
    EXPECT_EQ(board.moves + board.pulses + board.breaches, 0u);
}

TEST_F(Lines, TheirNumbersAreTheBoards)
{
    EXPECT_THAT(board_line_numbers, testing::ElementsAre(45, 47, 78, 79));
}

TEST_F(Lines, APulseMovesTheFilterWhenItEnds)
{
    EXPECT_EQ(set(BOARD_COIL_NIGHT, true, 1000), nullptr);
    EXPECT_TRUE(board.filter_day);
    EXPECT_EQ(set(BOARD_COIL_NIGHT, false, 1500), nullptr);
    EXPECT_FALSE(board.filter_day);
    set(BOARD_COIL_DAY, true, 2000);
    set(BOARD_COIL_DAY, false, 2500);
    EXPECT_TRUE(board.filter_day);
    EXPECT_EQ(board.moves, 2u);
    EXPECT_EQ(board.pulses, 2u);
    EXPECT_EQ(board.breaches, 0u);
}

TEST_F(Lines, APulseToWhereItIsWearsNothing)
{
    set(BOARD_COIL_DAY, true, 0);
    set(BOARD_COIL_DAY, false, 500);
    EXPECT_EQ(board.pulses, 1u);
    EXPECT_EQ(board.moves, 0u);
}

TEST_F(Lines, AShortPulseMovesNothing)
{
    set(BOARD_COIL_NIGHT, true, 0);
    set(BOARD_COIL_NIGHT, false, 99);
    EXPECT_TRUE(board.filter_day);
    EXPECT_EQ(board.pulses, 1u);
    set(BOARD_COIL_NIGHT, true, 1000);
    set(BOARD_COIL_NIGHT, false, 1100);
    EXPECT_FALSE(board.filter_day);
}

TEST_F(Lines, AShortPulseIsShortAtAnyTime)
{
    for (uint64_t at : {uint64_t{1000}, uint64_t{0xFFFFFFFFu} - 50}) {
        set(BOARD_COIL_NIGHT, true, at);
        set(BOARD_COIL_NIGHT, false, at + 99);
        EXPECT_TRUE(board.filter_day) << at;
    }
    EXPECT_EQ(board.breaches, 0u);
}

TEST_F(Lines, BothHighIsABreach)
{
    set(BOARD_COIL_DAY, true, 0);
    EXPECT_STREQ(set(BOARD_COIL_NIGHT, true, 10), "both lines of the filter's coil are high");
    EXPECT_EQ(board.breaches, 1u);
    EXPECT_EQ(set(BOARD_WHITE_LED, true, 20), nullptr) << "said once";
    EXPECT_EQ(board.breaches, 1u);
}

TEST_F(Lines, TooLongAPulseIsABreachOnce)
{
    set(BOARD_COIL_NIGHT, true, 0);
    EXPECT_EQ(board_check(&board, 1000), nullptr);
    EXPECT_STREQ(board_check(&board, 1001), "the filter's coil has been driven for more than a second");
    EXPECT_EQ(board_check(&board, 5000), nullptr);
    EXPECT_EQ(set(BOARD_COIL_NIGHT, false, 6000), nullptr);
    EXPECT_EQ(board.breaches, 1u);
    set(BOARD_COIL_NIGHT, true, 7000);
    EXPECT_STREQ(set(BOARD_COIL_NIGHT, false, 8001),
                 "the filter's coil has been driven for more than a second")
        << "also when nobody looked in between";
    EXPECT_EQ(board.breaches, 2u);
}

TEST_F(Lines, AnLedMayShineForLong)
{
    set(BOARD_IR_LED, true, 0);
    set(BOARD_WHITE_LED, true, 0);
    EXPECT_EQ(board_check(&board, 100000), nullptr);
    EXPECT_EQ(board.breaches, 0u);
    EXPECT_TRUE(board.high[BOARD_IR_LED] && board.high[BOARD_WHITE_LED]);
}

TEST_F(Lines, ALevelThatIsThereIsNoChange)
{
    set(BOARD_COIL_NIGHT, true, 0);
    set(BOARD_COIL_NIGHT, true, 900);
    EXPECT_NE(board_check(&board, 1001), nullptr) << "counted from the first";
}

int changes;

struct Files : testing::Test {
    Files()
    {
        changes = 0;
        loop = ev_loop_new(EVFLAG_AUTO);
        EXPECT_EQ(board_start(loop, [] { changes++; }), 0);
    }
    ~Files() override
    {
        board_stop();
        ev_loop_destroy(loop);
    }
    static std::string path(const std::string &name) { return root + "/sys/class/" + name; }
    static std::string read(const std::string &name)
    {
        std::string text;
        std::getline(std::ifstream(path(name)), text);
        return text;
    }
    // Without the board's having seen it yet.
    static void put(const std::string &name, const std::string &text) { std::ofstream(path(name)) << text; }
    void write(const std::string &name, const std::string &text)
    {
        put(name, text);
        ev_run(loop, EVRUN_NOWAIT);
    }
    // A value of line 78, stamped with the fake clock's time.
    void stamped(const char *text)
    {
        put("gpio/gpio78/value", text);
        const uint64_t ms = clock.wall_ms();
        const timespec stamp = {static_cast<time_t>(ms / 1000), static_cast<long>(ms % 1000) * 1000000};
        const timespec both[2] = {stamp, stamp};
        ASSERT_EQ(utimensat(AT_FDCWD, path("gpio/gpio78/value").c_str(), both, 0), 0);
    }
    const board_state &board() const { return *board_get(); }
    FakeClock clock;
    struct ev_loop *loop;
};

TEST_F(Files, AreThereAsTheKernelShowsThem)
{
    for (const char *line : {"45", "47", "78", "79"}) {
        EXPECT_EQ(read(std::string("gpio/gpio") + line + "/value"), "0");
        EXPECT_EQ(read(std::string("gpio/gpio") + line + "/direction"), "in");
    }
    for (const char *channel : {"4", "6"})
        for (const char *name : {"period", "enable", "duty_cycle"})
            EXPECT_EQ(read(std::string("pwm/pwmchip0/pwm") + channel + "/" + name), "0");
    for (const char *name : {"gpio/export", "gpio/unexport", "pwm/pwmchip0/export", "pwm/pwmchip0/unexport"})
        EXPECT_TRUE(std::ifstream(path(name)).good()) << name;
}

TEST_F(Files, SwitchTheLights)
{
    write("gpio/gpio45/value", "1");
    EXPECT_TRUE(board().high[BOARD_IR_LED]);
    EXPECT_FALSE(board().high[BOARD_WHITE_LED]);
    write("gpio/gpio47/value", "1\n");
    EXPECT_TRUE(board().high[BOARD_WHITE_LED]);
    EXPECT_EQ(changes, 2);
    write("gpio/gpio45/value", "0");
    EXPECT_FALSE(board().high[BOARD_IR_LED]);
    write("gpio/gpio45/value", "0");
    EXPECT_EQ(changes, 3) << "no change, no call";
}

TEST_F(Files, AnEmptyFileSaysNothing)
{
    write("gpio/gpio45/value", "1");
    write("gpio/gpio45/value", "");
    EXPECT_TRUE(board().high[BOARD_IR_LED]);
    write("gpio/gpio45/value", "x");
    EXPECT_TRUE(board().high[BOARD_IR_LED]);
}

TEST_F(Files, ALineThatIsMadeAnOutputStartsLow)
{
    write("gpio/gpio47/value", "1");
    write("gpio/gpio47/direction", "in");
    EXPECT_TRUE(board().high[BOARD_WHITE_LED]);
    write("gpio/gpio47/direction", "out");
    EXPECT_FALSE(board().high[BOARD_WHITE_LED]);
    EXPECT_EQ(read("gpio/gpio47/value"), "0");
}

TEST_F(Files, APulseThatBeginsRightAfterItsLineWasMadeAnOutputIsSeen)
{
    write("gpio/gpio79/value", "1"); // left behind by a killed daemon
    clock.advance_ms(100);
    put("gpio/gpio79/direction", "out");
    put("gpio/gpio79/value", "1");
    ev_run(loop, EVRUN_NOWAIT);
    EXPECT_EQ(read("gpio/gpio79/value"), "1");
    EXPECT_TRUE(board().high[BOARD_COIL_DAY]);
    EXPECT_EQ(board().pulses, 1u) << "that of the killed daemon has ended";
    clock.advance_ms(500);
    write("gpio/gpio79/value", "0");
    EXPECT_EQ(board().pulses, 2u);
    EXPECT_EQ(board().breaches, 0u);
}

TEST_F(Files, MoveTheFilter)
{
    write("gpio/gpio78/value", "1");
    clock.advance_ms(500);
    write("gpio/gpio78/value", "0");
    EXPECT_FALSE(board().filter_day);
    EXPECT_EQ(board().moves, 1u);
}

TEST_F(Files, ABreachIsSaid)
{
    OutputCapture errors(STDERR_FILENO);
    write("gpio/gpio78/value", "1");
    write("gpio/gpio79/value", "1");
    EXPECT_THAT(errors.text(), HasSubstr("the board: both lines of the filter's coil are high\n"));
}

TEST_F(Files, APulseOfASecondIsNoneTooLong)
{
    OutputCapture errors(STDERR_FILENO);
    write("gpio/gpio79/value", "1");
    clock.advance_ms(1000);
    write("gpio/gpio79/value", "0");
    clock.advance_ms(60000);
    EXPECT_EQ(errors.text(), "");
    EXPECT_EQ(board().breaches, 0u);
    EXPECT_EQ(clock.armed_timers(), 0u);
}

TEST_F(Files, ALineThatAKilledDaemonLeavesHighIsSaidOnceAndLoweredByTheNextDaemon)
{
    const std::string line = "the board: the filter's coil has been driven for more than a second\n";
    {
        OutputCapture errors(STDERR_FILENO);
        write("gpio/gpio78/direction", "out");
        write("gpio/gpio78/value", "1");
        clock.advance_ms(1000);
        EXPECT_EQ(errors.text(), "");
        clock.advance_ms(1);
        EXPECT_THAT(errors.text(), testing::EndsWith(line)) << "without anything being written";
    }
    OutputCapture errors(STDERR_FILENO);
    clock.advance_ms(3600000);
    EXPECT_EQ(errors.text(), "") << "once";
    EXPECT_EQ(board().breaches, 1u);
    EXPECT_TRUE(board().high[BOARD_COIL_NIGHT]) << "nobody but a daemon lowers it";
    write("gpio/gpio78/direction", "out");
    EXPECT_FALSE(board().high[BOARD_COIL_NIGHT]);
    EXPECT_FALSE(board().filter_day) << "an hour's pulse has moved it";
    write("gpio/gpio78/value", "1");
    clock.advance_ms(1001);
    EXPECT_THAT(errors.text(), testing::EndsWith(line)) << "another pulse, another line";
    EXPECT_EQ(board().breaches, 2u);
}

TEST_F(Files, BothLinesLeftHighAreBothFoundTooLong)
{
    OutputCapture errors(STDERR_FILENO);
    write("gpio/gpio78/value", "1");
    clock.advance_ms(300);
    write("gpio/gpio79/value", "1");
    EXPECT_EQ(board().breaches, 1u) << "both high";
    clock.advance_ms(700);
    EXPECT_EQ(board().breaches, 1u);
    clock.advance_ms(1);
    EXPECT_EQ(board().breaches, 2u) << "the first for too long";
    clock.advance_ms(299);
    EXPECT_EQ(board().breaches, 2u);
    clock.advance_ms(1);
    EXPECT_EQ(board().breaches, 3u) << "and the second";
    EXPECT_EQ(clock.armed_timers(), 0u);
}

TEST_F(Files, ABusyLoopDoesNotMakeAPulseLonger)
{
    OutputCapture errors(STDERR_FILENO);
    stamped("1");
    clock.advance_ms(400); // busy
    ev_run(loop, EVRUN_NOWAIT);
    clock.advance_ms(100);
    stamped("0");
    clock.advance_ms(900); // busy again, when the look at the coil falls due
    EXPECT_FALSE(board().high[BOARD_COIL_NIGHT]);
    EXPECT_FALSE(board().filter_day);
    EXPECT_EQ(board().breaches, 0u);
    EXPECT_EQ(errors.text(), "");
    // A pulse that was too long is one, however late it is seen.
    stamped("1");
    ev_run(loop, EVRUN_NOWAIT);
    clock.advance_ms(1000);
    ev_run(loop, EVRUN_NOWAIT);
    clock.advance_ms(1);
    EXPECT_EQ(board().breaches, 1u);
}

TEST_F(Files, AStampIsBelievedForTenSeconds)
{
    OutputCapture errors(STDERR_FILENO);
    for (uint64_t late_ms : {10001, 10000}) {
        stamped("1");
        clock.advance_ms(late_ms);
        ev_run(loop, EVRUN_NOWAIT);
        clock.advance_ms(0);
        EXPECT_EQ(board().breaches, late_ms > 10000 ? 0u : 1u) << late_ms;
        stamped("0");
        ev_run(loop, EVRUN_NOWAIT);
    }
}

TEST_F(Files, NoDescriptorIsLeftOpen)
{
    const auto open_descriptors = [] {
        const std::filesystem::directory_iterator all("/proc/self/fd");
        return std::distance(begin(all), end(all));
    };
    const auto before = open_descriptors();
    write("gpio/gpio45/value", "1");
    write("gpio/gpio45/direction", "out");
    write("gpio/gpio45/direction", "in");
    write("gpio/gpio45/value", "");
    write("pwm/pwmchip0/pwm4/duty_cycle", "30");
    EXPECT_EQ(open_descriptors(), before);
    board_stop();
    EXPECT_EQ(open_descriptors(), before - 1);
    EXPECT_EQ(board_start(loop, nullptr), 0);
    EXPECT_EQ(open_descriptors(), before);
}

TEST_F(Files, AStampOfAnotherClockSaysNothing)
{
    OutputCapture errors(STDERR_FILENO);
    write("gpio/gpio78/value", "1");
    clock.advance_ms(500);
    // Stamps of the real clock, which is far ahead of the fake one and then far behind it.
    clock.set_wall_ms(clock.wall_ms() + uint64_t{3600000} * 24 * 365 * 100);
    write("gpio/gpio78/value", "0");
    EXPECT_FALSE(board().filter_day);
    EXPECT_EQ(board().breaches, 0u);
}

TEST_F(Files, PulsesDoNotMoveWithTheWallClock)
{
    OutputCapture errors(STDERR_FILENO);
    write("gpio/gpio78/value", "1");
    clock.set_wall_ms(clock.wall_ms() + 3600000);
    clock.advance_ms(500);
    write("gpio/gpio78/value", "0");
    EXPECT_EQ(board().breaches, 0u);
    write("gpio/gpio79/value", "1");
    clock.set_wall_ms(clock.wall_ms() - 7200000);
    clock.advance_ms(1001);
    EXPECT_EQ(board().breaches, 1u);
}

TEST_F(Files, ThePwmShinesWhileItIsEnabledInPercent)
{
    write("pwm/pwmchip0/pwm4/duty_cycle", "30");
    EXPECT_EQ(board().pwm_percent, 0u);
    write("pwm/pwmchip0/pwm4/enable", "1");
    EXPECT_EQ(board().pwm_percent, 30u);
    write("pwm/pwmchip0/pwm4/duty_cycle", "120000");
    EXPECT_EQ(board().pwm_percent, 100u);
    write("pwm/pwmchip0/pwm4/enable", "0");
    EXPECT_EQ(board().pwm_percent, 0u);
    EXPECT_EQ(changes, 3);
}

TEST(Board, WhatCannotBeMadeIsSaid)
{
    struct ev_loop *loop = ev_loop_new(EVFLAG_AUTO);
    std::ofstream(root + "/sys") << "in the way";
    OutputCapture errors(STDERR_FILENO);
    EXPECT_EQ(board_start(loop, nullptr), -1);
    EXPECT_THAT(errors.text(), HasSubstr("the board: /sys/class/gpio/export: Not a directory"));
    board_stop();
    ev_loop_destroy(loop);
}

TEST(Board, AFileThatCannotBeWrittenIsSaid)
{
    struct ev_loop *loop = ev_loop_new(EVFLAG_AUTO);
    std::filesystem::create_directories(root + "/sys/class/gpio/unexport");
    OutputCapture errors(STDERR_FILENO);
    EXPECT_EQ(board_start(loop, nullptr), -1);
    EXPECT_THAT(errors.text(), HasSubstr("the board: /sys/class/gpio/unexport: Is a directory"));
    ev_loop_destroy(loop);
}

TEST(Board, OneThatWasNotStartedIsNotStopped)
{
    board_stop();
    for (int fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
        EXPECT_GE(fcntl(fd, F_GETFD), 0);
}

} // namespace
