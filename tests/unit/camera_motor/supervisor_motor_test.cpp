// The motor beside the daemon: two children, of which each has a life of its own.
#include "supervisor.h"

#include <ev.h>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sstream>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

#include "isolate.h"
#include "log_capture.h"

namespace
{

using testing::HasSubstr;

const std::string root = scratch_root();

struct SupervisorMotor : testing::Test {
    SupervisorMotor()
    {
        self = this;
        mkdir((root + "/run").c_str(), 0755);
        mkdir((root + "/run/naro").c_str(), 0755);
        loop = ev_loop_new(EVFLAG_AUTO);
    }
    ~SupervisorMotor() override { ev_loop_destroy(loop); }
    std::string program(const std::string &name, const std::string &text)
    {
        const std::string path = root + "/" + name;
        std::ofstream(path) << "#!/bin/sh\n" << text << "\n";
        chmod(path.c_str(), 0755);
        return path;
    }
    std::string text_of(const std::string &path)
    {
        std::ostringstream text;
        text << std::ifstream(root + path).rdbuf();
        return text.str();
    }
    bool wait_for(const std::string &path, const std::string &text)
    {
        for (int i = 0; i < 2000; i++) {
            ev_run(loop, EVRUN_NOWAIT);
            if (text_of(path).find(text) != std::string::npos)
                return true;
            usleep(5000);
        }
        return false;
    }
    void stop()
    {
        supervisor_stop([] { self->stopped++; });
        while (stopped == 0)
            ev_run(loop, EVRUN_ONCE);
    }

    static SupervisorMotor *self;
    struct ev_loop *loop;
    int ends = 0, stopped = 0;
};
SupervisorMotor *SupervisorMotor::self;

TEST_F(SupervisorMotor, HasItsArgumentsALogOfItsOwnAndIsStartedAgain)
{
    OutputCapture errors(STDERR_FILENO);
    const std::string daemon = program("daemon", "echo daemon; exec sleep 100");
    const std::string motor = program("motor", "echo motor $1 $2 $#; [ -e " + root + "/once ] || { : >" +
                                                   root + "/once; exit 3; }; echo again; exec sleep 100");
    const supervisor_settings first = {daemon.c_str(), false, [] { self->ends++; }};
    const supervisor_settings second = {motor.c_str(), false, nullptr, {"--set", "a=b c"}};
    ASSERT_EQ(supervisor_start_motor(loop, &second), 0);
    ASSERT_EQ(supervisor_start(loop, &first), 0);
    ASSERT_TRUE(wait_for(SUPERVISOR_MOTOR_LOG, "again"));
    ASSERT_TRUE(wait_for(SUPERVISOR_LOG, "daemon"));
    EXPECT_EQ(text_of(SUPERVISOR_MOTOR_LOG), "motor --set a=b c 2\nmotor --set a=b c 2\nagain\n");
    EXPECT_EQ(text_of(SUPERVISOR_LOG), "daemon\n");
    EXPECT_THAT(errors.text(),
                HasSubstr("the motor has ended (exit status 3); starting it again in 0.2 s; its log: " +
                          root + "/run/naro/naro_motor.log"));
    supervisor_figures figures;
    supervisor_get_figures(&figures);
    EXPECT_EQ(figures.restarts, 0u) << "figures are the daemon's";
    EXPECT_GT(figures.pid, 0);
    EXPECT_EQ(ends, 0);
    stop();
    EXPECT_EQ(stopped, 1) << "when both have ended, once";
    EXPECT_EQ(ends, 1);
    supervisor_get_figures(&figures);
    EXPECT_EQ(figures.pid, 0);
}

TEST_F(SupervisorMotor, ADeafOneIsKilledAndTheCameraEndsAfterBoth)
{
    OutputCapture errors(STDERR_FILENO);
    const std::string daemon = program("daemon", "exec sleep 100");
    const std::string motor = program("motor", "trap '' TERM; echo deaf; while :; do sleep 0.05; done");
    const supervisor_settings first = {daemon.c_str(), false, [] { self->ends++; }};
    const supervisor_settings second = {motor.c_str(), false, nullptr};
    ASSERT_EQ(supervisor_start(loop, &first), 0);
    ASSERT_EQ(supervisor_start_motor(loop, &second), 0);
    ASSERT_TRUE(wait_for(SUPERVISOR_MOTOR_LOG, "deaf"));
    stop();
    EXPECT_THAT(errors.text(), HasSubstr("the motor does not end on SIGTERM; killed"));
    EXPECT_EQ(ends, 1);
}

TEST_F(SupervisorMotor, AloneIsFineToo)
{
    const std::string motor = program("motor", "echo here; exec sleep 100");
    const supervisor_settings settings = {motor.c_str(), false, nullptr};
    ASSERT_EQ(supervisor_start_motor(loop, &settings), 0);
    ASSERT_TRUE(wait_for(SUPERVISOR_MOTOR_LOG, "here"));
    stop();
    EXPECT_EQ(stopped, 1);
}

} // namespace
