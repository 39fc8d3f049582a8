// The "wdr" setting, with the processor played by the test.
#include "wdr.h"

#include <gtest/gtest.h>
#include <string>
#include <thread>
#include <vector>

#include "lock_watch.h"
#include "log_capture.h"
#include "naro_isp.h"

namespace
{

using Lines = std::vector<LogCapture::Line>;

std::vector<std::string> sent; // guarded by the WDR lock
int answer;
const LogCapture *said; // what was said when the processor is asked; null: nobody looks
std::vector<size_t> lines_said;

int processor_is_asked(const char *command)
{
    EXPECT_EQ(locks_held(), 1u) << "so that the mode kept is the mode sent last";
    sent.emplace_back(command);
    if (said)
        lines_said.push_back(said->texts().size());
    return answer;
}

TEST(Wdr, IsOffAtTheStart)
{
    LogCapture log;
    EXPECT_EQ(wdr_init(), 0);
    EXPECT_EQ(sent, (std::vector<std::string>{"disable"}));
    EXPECT_EQ(log.lines(), (Lines{{NARO_LOG_INFO, "[wdr_init] NARO_ISP_WDR_MODE_OFF\n"}}));
    EXPECT_EQ(wdr_exit(), 0);
    EXPECT_EQ(sent.size(), 1u);
}

TEST(Wdr, SwitchSendsAndKeeps)
{
    LogCapture log;
    EXPECT_EQ(wdr_mode_switch(2), 0);
    EXPECT_EQ(wdr_init(), 0);
    EXPECT_EQ(wdr_mode_switch(1), 0);
    EXPECT_EQ(wdr_init(), 0);
    EXPECT_EQ(sent, (std::vector<std::string>{"enable", "enable", "disable", "disable"}));
    EXPECT_EQ(log.lines(), (Lines{{NARO_LOG_INFO, "[wdr_mode_switch] NARO_ISP_WDR_MODE_ON\n"},
                                  {NARO_LOG_INFO, "[wdr_init] NARO_ISP_WDR_MODE_ON\n"},
                                  {NARO_LOG_INFO, "[wdr_mode_switch] NARO_ISP_WDR_MODE_OFF\n"},
                                  {NARO_LOG_INFO, "[wdr_init] NARO_ISP_WDR_MODE_OFF\n"}}));
}

TEST(Wdr, SwitchToSomethingElseKeepsTheMode)
{
    wdr_mode_switch(2);
    for (int mode : {0, 3, -1}) {
        LogCapture log;
        EXPECT_EQ(wdr_mode_switch(mode), 0);
        EXPECT_EQ(log.lines(), (Lines{{NARO_LOG_ERR, "[wdr_mode_switch] Not support\n"}}));
    }
    EXPECT_EQ(sent.size(), 1u);
    wdr_init();
    EXPECT_EQ(sent.back(), "enable");
    EXPECT_EQ(sent.size(), 2u);
}

TEST(Wdr, ConfigKeepsAnythingAndSendsNothing)
{
    LogCapture log;
    EXPECT_EQ(wdr_mode_config(2), 0);
    EXPECT_EQ(sent.size(), 0u);
    EXPECT_EQ(log.texts().size(), 0u);
    wdr_init();
    EXPECT_EQ(sent, (std::vector<std::string>{"enable"}));
    EXPECT_EQ(wdr_mode_config(7), 0);
    log.clear();
    EXPECT_EQ(wdr_init(), 0);
    EXPECT_EQ(log.lines(), (Lines{{NARO_LOG_ERR, "[wdr_init] Not support\n"}}));
    EXPECT_EQ(sent.size(), 1u);
}

TEST(Wdr, AProcessorThatRefusesChangesNothing)
{
    answer = -1;
    EXPECT_EQ(wdr_mode_switch(2), 0);
    EXPECT_EQ(wdr_init(), 0);
    EXPECT_EQ(sent, (std::vector<std::string>{"enable", "enable"}));
}

TEST(Wdr, SaysWhatItDoesBeforeItDoesIt)
{
    LogCapture log;
    said = &log;
    wdr_mode_switch(2);
    wdr_mode_switch(1);
    wdr_init();
    said = nullptr;
    EXPECT_EQ(lines_said, (std::vector<size_t>{1, 2, 3}));
}

TEST(Wdr, ThreadsOneAfterTheOther)
{
    LogCapture log;
    const auto switches = [] {
        for (int i = 0; i < 200; i++) {
            wdr_mode_switch(1 + i % 2);
            wdr_mode_config(2);
            wdr_init();
        }
    };
    std::thread other(switches);
    switches();
    other.join();
    EXPECT_EQ(sent.size(), 800u);
}

} // namespace

int naro_isp_wdr_enable(void)
{
    return processor_is_asked("enable");
}
int naro_isp_wdr_disable(void)
{
    return processor_is_asked("disable");
}
