// Runs a piece of a test in a child of its own: for what a process decides once (environment variables), for
// what ends a process, and for what must not touch the test's own descriptors, limits or signals.
//
//   ChildResult child = in_child([] {
//       setenv("NARO_LOG_LEVEL", "debug", 1);
//       log_debug("hello");
//       printf("%s", naro_root());
//   });
//   EXPECT_EQ(child.status, 0);                  // the exit status, or 128 + the signal that ended it
//   EXPECT_EQ(child.out, "");                    // what it printed on standard output
//   EXPECT_EQ(child.err, "...hello\n");          // and on the error stream
//
// The child is a fork: it sees the test's state and gives nothing back but its result, so checks belong to
// the parent (an EXPECT inside the child is not seen). Its standard output and error stream are plain files;
// the child ends with status 0 when the piece returns, without running exit handlers. Only while no other
// thread runs.
#ifndef NARO_TESTS_IN_CHILD_H
#define NARO_TESTS_IN_CHILD_H

#include <errno.h>
#include <functional>
#include <signal.h>
#include <stdexcept>
#include <stdio.h>
#include <string>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

struct ChildResult {
    int status;
    std::string out;
    std::string err;
};

namespace in_child_detail
{

inline std::string contents(int fd)
{
    std::string text;
    char block[4096];
    ssize_t got;
    while ((got = pread(fd, block, sizeof block, static_cast<off_t>(text.size()))) > 0)
        text.append(block, static_cast<size_t>(got));
    close(fd);
    return text;
}

} // namespace in_child_detail

inline ChildResult in_child(const std::function<void()> &piece)
{
    const int out = memfd_create("standard output", MFD_CLOEXEC);
    const int err = memfd_create("error stream", MFD_CLOEXEC);
    fflush(nullptr);
    const pid_t pid = out < 0 || err < 0 ? -1 : fork();
    if (pid < 0)
        throw std::runtime_error("no child could be made");
    if (pid == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL); // a test that is ended for taking too long leaves nobody behind
        dup2(out, STDOUT_FILENO);
        dup2(err, STDERR_FILENO);
        piece();
        fflush(nullptr);
        _exit(0);
    }
    int status = 0;
    while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    return {WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status), in_child_detail::contents(out),
            in_child_detail::contents(err)};
}

#endif
