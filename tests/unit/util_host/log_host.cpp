// The host's log lines: what stands before the text, where they go, and how they get there whole.
#include <algorithm>
#include <atomic>
#include <errno.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>
#include <stdlib.h>
#include <string.h>
#include <string>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include "in_child.h"
#include "log_capture.h"
#include "naro_util.h"

namespace
{

// A child with the settings of the environment given, or unset where null; logs one line of each level.
ChildResult four_lines(const char *level, const char *journal = nullptr)
{
    return in_child([&] {
        unsetenv("NARO_LOG_LEVEL");
        unsetenv("JOURNAL_STREAM");
        if (level)
            setenv("NARO_LOG_LEVEL", level, 1);
        if (journal)
            setenv("JOURNAL_STREAM", journal, 1);
        log_err("E\n");
        log_warning("W\n");
        log_info("I\n");
        log_debug("D\n");
    });
}

// The last characters of each line, joined.
std::string marks(const std::string &text)
{
    std::string result;
    for (size_t end = text.find('\n'); end != std::string::npos; end = text.find('\n', end + 1))
        result += end > 0 ? text[end - 1] : '?';
    return result;
}

const char stamp[] = "[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{3} ";

TEST(prefix, is_time_and_level)
{
    const std::string shown = four_lines("debug").err;
    const std::string expected(std::string(stamp) + "err     E\n" + stamp + "warning W\n" + stamp +
                               "info    I\n" + stamp + "debug   D\n");
    EXPECT_THAT(shown, testing::MatchesRegex(expected));
}

TEST(prefix, time_is_local_and_has_milliseconds)
{
    timespec before, after;
    clock_gettime(CLOCK_REALTIME, &before);
    const std::string shown = in_child([] {
                                  unsetenv("JOURNAL_STREAM");
                                  setenv("TZ", "TST-05:30", 1); // five and a half hours ahead
                                  log_err("x");
                              }).err;
    clock_gettime(CLOCK_REALTIME, &after);
    tm local = {};
    int ms = -1;
    ASSERT_EQ(sscanf(shown.c_str(), "%d-%d-%d %d:%d:%d.%d ", &local.tm_year, &local.tm_mon, &local.tm_mday,
                     &local.tm_hour, &local.tm_min, &local.tm_sec, &ms),
              7)
        << shown;
    local.tm_year -= 1900;
    local.tm_mon -= 1;
    const int64_t seen = (timegm(&local) - (5 * 60 + 30) * 60) * 1000LL + ms;
    EXPECT_GE(seen, before.tv_sec * 1000LL + before.tv_nsec / 1000000);
    EXPECT_LE(seen, after.tv_sec * 1000LL + after.tv_nsec / 1000000);
}

TEST(level, threshold_comes_from_the_environment)
{
    const struct {
        const char *value, *shown;
    } cases[] = {
        {nullptr, "EWI"},  {"", "EWI"},  {"err", "E"},  {"warning", "EW"}, {"info", "EWI"},
        {"debug", "EWID"}, {"0", ""},    {"2", ""},     {"3", "E"},        {"4", "EW"},
        {"5", "EW"},       {"6", "EWI"}, {"7", "EWID"},
    };
    for (const auto &c : cases)
        EXPECT_EQ(marks(four_lines(c.value).err), c.shown) << (c.value ? c.value : "unset");
}

TEST(level, what_is_no_level_is_said_once_and_taken_as_info)
{
    for (const char *value : {"loud", "8", "-1", "33", "3 ", "INFO", " info"}) {
        const std::string shown = four_lines(value).err;
        EXPECT_EQ(marks(shown), "oEWI") << value;
        const std::string expected =
            std::string("warning NARO_LOG_LEVEL is '") + value +
            "', not err, warning, info, debug or a number from 0 to 7: taken as info\n";
        EXPECT_EQ(shown.find(expected), strlen("2000-01-01 00:00:00.000 ")) << shown;
    }
    // However long it is.
    EXPECT_EQ(marks(four_lines(std::string(100000, 'x').c_str()).err), "oEWI");
}

TEST(level, is_read_once)
{
    EXPECT_EQ(marks(in_child([] {
                        setenv("NARO_LOG_LEVEL", "err", 1);
                        log_info("1\n");
                        setenv("NARO_LOG_LEVEL", "debug", 1);
                        log_info("2\n");
                        log_err("3\n");
                    }).err),
              "3");
}

TEST(level, does_not_hold_for_the_sink)
{
    EXPECT_EQ(in_child([] {
                  setenv("NARO_LOG_LEVEL", "err", 1);
                  LogCapture log;
                  log_debug("D");
                  printf("%s", log.texts().at(0).c_str());
              }).out,
              "D");
}

// What JOURNAL_STREAM must be for the descriptor `fd`, with differences added.
std::string journal_of(int fd, unsigned device = 0, unsigned inode = 0)
{
    struct stat status = {};
    fstat(fd, &status);
    return std::to_string(status.st_dev + device) + ":" + std::to_string(status.st_ino + inode);
}

// Two lines, logged in a child whose JOURNAL_STREAM is made from its error stream.
std::string with_journal(std::string (*stream_of)(int fd))
{
    return in_child([&] {
               unsetenv("NARO_LOG_LEVEL");
               setenv("JOURNAL_STREAM", stream_of(STDERR_FILENO).c_str(), 1);
               log_err("E\n");
               log_warning("W");
               log_info("I\r\n");
           })
        .err;
}

TEST(journal, lines_get_their_priority_and_no_time)
{
    EXPECT_EQ(with_journal([](int fd) { return journal_of(fd); }), "<3>E\n<4>W\n<6>I\r\n");
    EXPECT_EQ(in_child([] {
                  setenv("NARO_LOG_LEVEL", "debug", 1);
                  setenv("JOURNAL_STREAM", journal_of(STDERR_FILENO).c_str(), 1);
                  log_debug("D");
              }).err,
              "<7>D\n");
}

TEST(journal, only_where_the_error_stream_is_the_journal)
{
    std::string (*const others[])(int fd) = {
        [](int fd) { return journal_of(fd, 1, 0); },
        [](int fd) { return journal_of(fd, 0, 1); },
        [](int) { return std::string(); },
        [](int) { return std::string("0:0"); },
        // Half a value, or more than one.
        [](int fd) { return journal_of(fd) + "x"; },
        [](int fd) { return "x" + journal_of(fd); },
        [](int fd) {
            std::string value = journal_of(fd);
            value[value.find(':')] = '.';
            return value;
        },
    };
    for (const auto other : others)
        EXPECT_THAT(with_journal(other), testing::MatchesRegex(std::string(stamp) + "err     E\n.*"));
}

TEST(journal, follows_an_error_stream_that_moves)
{
    const ChildResult child = in_child([] {
        setenv("JOURNAL_STREAM", journal_of(STDERR_FILENO).c_str(), 1);
        log_err("one\n");
        dup2(STDOUT_FILENO, STDERR_FILENO);
        log_err("two\n");
    });
    EXPECT_EQ(child.err, "<3>one\n");
    EXPECT_THAT(child.out, testing::MatchesRegex(std::string(stamp) + "err     two\n"));
}

TEST(line, is_one_write)
{
    // A socket that keeps messages apart shows each write as it was.
    int ends[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends), 0);
    const size_t lengths[] = {0, 1, 958, 959, 960, 961, 5000, 60000};
    const ChildResult child = in_child([&] {
        dup2(ends[1], STDERR_FILENO);
        for (size_t length : lengths)
            log_err("%s", std::string(length, 'x').c_str());
    });
    close(ends[1]);
    std::string message(100000, '\0');
    for (size_t length : lengths) {
        const ssize_t got = recv(ends[0], &message[0], message.size(), 0);
        const size_t prefix = strlen("2000-01-01 00:00:00.000 err     ");
        ASSERT_EQ(got, static_cast<ssize_t>(prefix + length + 1));
        EXPECT_EQ(message.substr(prefix, length + 1), std::string(length, 'x') + "\n");
    }
    EXPECT_EQ(recv(ends[0], &message[0], message.size(), 0), 0);
    close(ends[0]);
}

// A pipe for the error stream, as long as this lives. Nobody reads it until the test does.
class PipedErrorStream
{
  public:
    PipedErrorStream() : kept(dup(STDERR_FILENO))
    {
        EXPECT_EQ(pipe2(ends, O_CLOEXEC), 0);
        dup2(ends[1], STDERR_FILENO);
    }
    ~PipedErrorStream()
    {
        restore();
        close(ends[0]);
    }
    // Ends the writing side, so that a reader comes to the end.
    void restore()
    {
        if (kept < 0)
            return;
        dup2(kept, STDERR_FILENO);
        close(kept);
        close(ends[1]);
        kept = -1;
    }
    std::string take(size_t most)
    {
        std::string text(most, '\0');
        const ssize_t got = read(ends[0], &text[0], most);
        text.resize(got > 0 ? static_cast<size_t>(got) : 0);
        return text;
    }
    int write_end() const { return ends[1]; }

  private:
    int kept;
    int ends[2];
};

TEST(line, of_any_length_stays_whole_in_a_pipe_among_others)
{
    // Longer than a pipe holds, so that each write arrives in pieces.
    const size_t length = 150000;
    const int threads = 4;
    PipedErrorStream stream;
    pthread_t all[threads];
    for (int i = 0; i < threads; i++)
        ASSERT_EQ(pthread_create(
                      &all[i], nullptr,
                      [](void *letter) -> void * {
                          const std::string text(length, *static_cast<const char *>(letter));
                          log_err("|%s|", text.c_str());
                          return nullptr;
                      },
                      const_cast<char *>(&"abcd"[i])),
                  0);
    std::string shown;
    while (std::count(shown.begin(), shown.end(), '\n') < threads)
        shown += stream.take(5000);
    for (pthread_t thread : all)
        pthread_join(thread, nullptr);
    std::string seen;
    for (size_t at = 0; at < shown.size();) {
        const size_t bar = shown.find('|', at);
        ASSERT_LT(bar + length + 3, shown.size() + 1);
        const char letter = shown[bar + 1];
        EXPECT_EQ(shown.compare(bar, length + 3, "|" + std::string(length, letter) + "|\n"), 0);
        seen += letter;
        at = bar + length + 3;
    }
    std::sort(seen.begin(), seen.end());
    EXPECT_EQ(seen, "abcd");
}

std::atomic<int> interruptions; // lock-free, so a signal handler may count it

bool sleeps(pid_t thread)
{
    const std::string path = "/proc/self/task/" + std::to_string(thread) + "/stat";
    FILE *file = fopen(path.c_str(), "re");
    char state = '?';
    if (file) {
        if (fscanf(file, "%*d (%*[^)]) %c", &state) != 1)
            state = '?';
        fclose(file);
    }
    return state == 'S';
}

TEST(line, survives_signals_while_the_pipe_is_full)
{
    PipedErrorStream stream;
    const int flags = fcntl(stream.write_end(), F_GETFL);
    fcntl(stream.write_end(), F_SETFL, flags | O_NONBLOCK);
    const std::string block(4096, '.');
    size_t filled = 0;
    ssize_t put;
    while ((put = write(stream.write_end(), block.data(), block.size())) > 0)
        filled += static_cast<size_t>(put);
    fcntl(stream.write_end(), F_SETFL, flags);

    struct sigaction action = {}, old_action;
    action.sa_handler = [](int) { interruptions++; }; // without SA_RESTART
    ASSERT_EQ(sigaction(SIGUSR1, &action, &old_action), 0);
    static std::atomic<pid_t> id;
    id = 0;
    interruptions = 0;
    pthread_t writer;
    ASSERT_EQ(pthread_create(
                  &writer, nullptr,
                  [](void *) -> void * {
                      id = static_cast<pid_t>(syscall(SYS_gettid));
                      log_err("the line");
                      return nullptr;
                  },
                  nullptr),
              0);
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    for (int n = 0; n < 3 && std::chrono::steady_clock::now() < end; n++) {
        while ((id == 0 || !sleeps(id)) && std::chrono::steady_clock::now() < end)
            sched_yield();
        pthread_kill(writer, SIGUSR1);
        while (interruptions <= n && std::chrono::steady_clock::now() < end)
            sched_yield();
    }
    EXPECT_EQ(interruptions, 3);
    std::string shown;
    while (shown.size() < filled)
        shown += stream.take(filled - shown.size());
    pthread_join(writer, nullptr);
    stream.restore();
    shown = stream.take(4096);
    sigaction(SIGUSR1, &old_action, nullptr);
    EXPECT_THAT(shown, testing::EndsWith(" err     the line\n"));
}

TEST(line, goes_on_when_the_error_stream_cannot_take_it)
{
    // A stream that takes nothing at the moment: the line is lost, the caller is not held up.
    EXPECT_EQ(in_child([] {
                  int ends[2];
                  if (pipe2(ends, O_NONBLOCK) != 0)
                      _exit(1);
                  dup2(ends[1], STDERR_FILENO);
                  for (int n = 0; n < 100; n++)
                      log_err("%s", std::string(5000, 'x').c_str());
                  printf("done");
              }).out,
              "done");
}

TEST(line, what_cannot_be_formatted_shows_its_format)
{
    LogCapture log;
    const wchar_t nothing[] = {static_cast<wchar_t>(0xDFFF), 0}; // has no form in any multibyte encoding
    log_err("[%d] %ls end\n", 5, nothing);
    EXPECT_EQ(log.texts(), std::vector<std::string>{"[%d] %ls end\n"});
    log.clear();
    const std::string format = "%ls" + std::string(2000, 'x');
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    log_err(format.c_str(), nothing);
#pragma GCC diagnostic pop
    EXPECT_EQ(log.texts(), std::vector<std::string>{format.substr(0, 959)});
}

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
// The sanitizers take address space as they like.
TEST(line, is_cut_where_there_is_no_memory_for_it)
{
    const std::string shown = in_child([] {
                                  unsigned long pages = 0;
                                  FILE *file = fopen("/proc/self/statm", "re");
                                  if (!file || fscanf(file, "%lu", &pages) != 1)
                                      _exit(1);
                                  const rlim_t most =
                                      pages * static_cast<rlim_t>(sysconf(_SC_PAGESIZE)) + (4 << 20);
                                  const rlimit limit = {most, most};
                                  setrlimit(RLIMIT_AS, &limit);
                                  log_err("begin %*d", 66 << 20, 5); // more than any arena of malloc has
                                  log_err("after\n");
                              }).err;
    EXPECT_EQ(marks(shown), " r");
    EXPECT_EQ(shown.size(), 2 * strlen("2000-01-01 00:00:00.000 err     ") + 959 + 1 + strlen("after\n"));
    EXPECT_NE(shown.find("err     begin  "), std::string::npos);
}
#endif

TEST(line, does_not_use_the_replaced_clock)
{
    const std::string shown = in_child([] {
                                  naro_clock clock = {};
                                  clock.wall_ms = [](void *) -> uint64_t { return 0; };
                                  naro_clock_replace(&clock);
                                  log_err("x");
                              }).err;
    EXPECT_NE(shown.substr(0, 4), "1970");
}

} // namespace
