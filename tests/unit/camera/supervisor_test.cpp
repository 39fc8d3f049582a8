// The rules of starting again, and a real child.
#include "supervisor.h"

#include <ev.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <stdlib.h>
#include <string>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "isolate.h"
#include "log_capture.h"

namespace
{

using testing::HasSubstr;

TEST(SupervisorDelay, GrowsFromTheFirstToTheLargestAndStartsOver)
{
    EXPECT_EQ(supervisor_next_delay(0, 0), 200u);
    EXPECT_EQ(supervisor_next_delay(200, 0), 400u);
    EXPECT_EQ(supervisor_next_delay(400, 9999), 800u);
    EXPECT_EQ(supervisor_next_delay(800, 10000), 200u) << "it ran for long enough";
    EXPECT_EQ(supervisor_next_delay(3200, 0), 5000u);
    EXPECT_EQ(supervisor_next_delay(5000, 0), 5000u);
}

TEST(SupervisorDescribe, SaysHowAProcessEnded)
{
    char text[64];
    supervisor_describe(255 << 8, text, sizeof text);
    EXPECT_STREQ(text, "exit status 255");
    supervisor_describe(SIGKILL, text, sizeof text);
    EXPECT_STREQ(text, "killed by signal 9 (Killed)");
}

const std::string root = scratch_root();

// The program is a shell script, made for each test.
struct Supervisor : testing::Test {
    Supervisor()
    {
        self = this;
        mkdir((root + "/run/naro").c_str(), 0755);
        loop = ev_loop_new(EVFLAG_AUTO);
    }
    ~Supervisor() override { ev_loop_destroy(loop); }
    std::string program(const std::string &text)
    {
        const std::string path = root + "/program";
        FILE *file = fopen(path.c_str(), "w");
        fprintf(file, "#!/bin/sh\n%s\n", text.c_str());
        fclose(file);
        chmod(path.c_str(), 0755);
        return path;
    }
    int start(const std::string &path, bool verbose = false)
    {
        name = path;
        const supervisor_settings settings = {name.c_str(), verbose, [] { self->ends++; }};
        return supervisor_start(loop, &settings);
    }
    void stop()
    {
        supervisor_stop([] { self->stopped++; });
        while (stopped == 0)
            ev_run(loop, EVRUN_ONCE);
    }
    // Runs the loop until the log holds `text`.
    bool wait_for_log(const std::string &text)
    {
        for (int i = 0; i < 2000; i++) {
            ev_run(loop, EVRUN_NOWAIT);
            if (log().find(text) != std::string::npos)
                return true;
            usleep(5000);
        }
        return false;
    }
    std::string log()
    {
        std::string text(100000, '\0');
        const int fd = open((root + SUPERVISOR_LOG).c_str(), O_RDONLY | O_CLOEXEC);
        const ssize_t length = read(fd, &text[0], text.size());
        close(fd);
        return text.substr(0, length > 0 ? static_cast<size_t>(length) : 0);
    }
    supervisor_figures figures()
    {
        supervisor_figures result;
        supervisor_get_figures(&result);
        return result;
    }

    static Supervisor *self;
    struct ev_loop *loop;
    std::string name;
    int ends = 0, stopped = 0;
};
Supervisor *Supervisor::self;

TEST_F(Supervisor, TheDaemonGetsTheRootAndALogOfItsOwn)
{
    ASSERT_EQ(start(program("echo root $NARO_ROOT; echo trouble >&2; cat; echo ready; exec sleep 100")), 0);
    ASSERT_TRUE(wait_for_log("ready"));
    EXPECT_THAT(log(), HasSubstr("root " + root + "\n"));
    EXPECT_THAT(log(), HasSubstr("trouble\n"));
    EXPECT_GT(figures().pid, 0);
    EXPECT_EQ(figures().restarts, 0u);
    EXPECT_EQ(figures().threads, 1u);
    EXPECT_GT(figures().peak_kib, 100u);
    EXPECT_EQ(getpgid(figures().pid), figures().pid) << "the terminal's signals are not for it";
    stop();
    EXPECT_EQ(ends, 1);
    EXPECT_EQ(stopped, 1);
    EXPECT_EQ(figures().pid, 0);
    EXPECT_TRUE(WIFSIGNALED(figures().last_status));
    EXPECT_EQ(WTERMSIG(figures().last_status), SIGTERM);
}

TEST_F(Supervisor, ADaemonThatEndsIsStartedAgainWhateverItsStatus)
{
    OutputCapture errors(STDERR_FILENO);
    ASSERT_EQ(
        start(program("echo run >>" + root + "/runs; n=$(wc -l <" + root +
                      "/runs); [ $n = 1 ] && exit 0; [ $n = 2 ] && kill -9 $$; echo third; exec sleep 100")),
        0);
    ASSERT_TRUE(wait_for_log("third"));
    EXPECT_EQ(ends, 2);
    EXPECT_EQ(figures().restarts, 2u);
    EXPECT_THAT(errors.text(),
                HasSubstr("the daemon has ended (exit status 0); starting it again in 0.2 s; its log: " +
                          root + "/run/naro/naro_algo.log"));
    EXPECT_THAT(errors.text(),
                HasSubstr("the daemon has ended (killed by signal 9 (Killed)); starting it again in 0.4 s"));
    stop();
    EXPECT_EQ(ends, 3);
}

TEST_F(Supervisor, StoppedBetweenTwoStartsItStartsNoMore)
{
    OutputCapture errors(STDERR_FILENO);
    ASSERT_EQ(start(program("exit 3")), 0);
    while (ends == 0)
        ev_run(loop, EVRUN_ONCE);
    EXPECT_EQ(figures().last_status, 3 << 8);
    stop();
    EXPECT_EQ(figures().pid, 0);
    EXPECT_EQ(figures().restarts, 0u);
}

TEST_F(Supervisor, ADaemonThatIsDeafIsKilled)
{
    OutputCapture errors(STDERR_FILENO);
    ASSERT_EQ(start(program("trap '' TERM; echo deaf; while :; do sleep 0.05; done")), 0);
    ASSERT_TRUE(wait_for_log("deaf"));
    stop();
    EXPECT_THAT(errors.text(), HasSubstr("the daemon does not end on SIGTERM; killed"));
    EXPECT_EQ(WTERMSIG(figures().last_status), SIGKILL);
}

TEST_F(Supervisor, AProgramThatIsNotThereIsSaid)
{
    OutputCapture errors(STDERR_FILENO);
    EXPECT_EQ(start("/nowhere/naro_algo"), -1);
    EXPECT_THAT(errors.text(), HasSubstr("/nowhere/naro_algo cannot be started: No such file or directory"));
    stop();
}

TEST_F(Supervisor, ItsCpuTimeIsCountedOverAllOfThem)
{
    OutputCapture errors(STDERR_FILENO);
    ASSERT_EQ(start(program("if [ ! -e " + root + "/once ]; then : >" + root +
                            "/once; i=0; while [ $i -lt 200000 ]; do i=$((i+1)); done; exit; fi; echo idle; "
                            "exec sleep 100")),
              0);
    ASSERT_TRUE(wait_for_log("idle"));
    EXPECT_GT(figures().cpu_s, 0.01);
    const double before = figures().cpu_s;
    stop();
    EXPECT_GE(figures().cpu_s, before);
}

TEST_F(Supervisor, ItsCpuTimeIsCountedWhileItRuns)
{
    ASSERT_EQ(start(program(
                  "i=0; while [ $i -lt 200000 ]; do i=$((i+1)); done; echo burnt; read never; sleep 100")),
              0);
    ASSERT_TRUE(wait_for_log("burnt"));
    const double while_it_runs = figures().cpu_s;
    EXPECT_GT(while_it_runs, 0.05);
    stop();
    EXPECT_NEAR(figures().cpu_s, while_it_runs, 0.05) << "the kernel's own account of it";
}

TEST_F(Supervisor, WithoutAnyDaemonStoppingIsDoneAtOnce)
{
    supervisor_stop([] { self->stopped++; });
    EXPECT_EQ(stopped, 1);
}

} // namespace
