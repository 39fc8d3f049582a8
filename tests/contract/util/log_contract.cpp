// What every implementation of the platform's logging owes to its callers.
#include <errno.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <string>
#include <vector>

#include "heap_use.h"
#include "in_child.h"
#include "log_capture.h"

namespace
{

using Lines = std::vector<LogCapture::Line>;

// What one call leaves on the error stream, without whatever the implementation puts before the text.
std::string printed(const std::function<void()> &call)
{
    return in_child(call).err;
}

bool ends_with(const std::string &line, const std::string &text)
{
    return line.size() >= text.size() && line.compare(line.size() - text.size(), text.size(), text) == 0;
}

TEST(log_sink, gets_level_and_text_as_the_caller_gave_it)
{
    LogCapture log;
    log_err("[%s %d] failed\n", "task", 12);
    log_warning("no end");
    log_info("two ends\r\n");
    log_debug("%s", "");
    EXPECT_EQ(log.lines(), (Lines{{NARO_LOG_ERR, "[task 12] failed\n"},
                                  {NARO_LOG_WARNING, "no end"},
                                  {NARO_LOG_INFO, "two ends\r\n"},
                                  {NARO_LOG_DEBUG, ""}}));
}

TEST(log_sink, gets_long_texts_whole)
{
    LogCapture log;
    for (size_t length : {100u, 959u, 960u, 961u, 1023u, 1024u, 4096u, 100000u}) {
        const std::string text = std::string(length - 1, 'x') + "\n";
        log.clear();
        log_info("%s", text.c_str());
        EXPECT_EQ(log.texts(), std::vector<std::string>{text}) << length;
    }
}

TEST(log_sink, replaces_the_error_stream_until_it_is_taken_away)
{
    std::string collected;
    const std::string shown = printed([] {
        {
            LogCapture log;
            log_err("to the sink\n");
        }
        log_err("to the stream\n");
    });
    EXPECT_EQ(shown.find("to the sink"), std::string::npos);
    EXPECT_TRUE(ends_with(shown, "to the stream\n")) << shown;
}

TEST(log_sink, gets_its_context)
{
    int first = 0, second = 0;
    const naro_log_sink count = [](void *context, naro_log_level, const char *) {
        ++*static_cast<int *>(context);
    };
    naro_log_set_sink(count, &first);
    log_err("one\n");
    naro_log_set_sink(count, &second);
    log_err("two\n");
    log_err("three\n");
    naro_log_set_sink(nullptr, nullptr);
    EXPECT_EQ(first, 1);
    EXPECT_EQ(second, 2);
}

TEST(log_sink, may_log_and_change_the_sink)
{
    // Would hang if the sink ran under the logger's lock.
    static std::vector<std::string> heard;
    heard.clear();
    naro_log_set_sink(
        [](void *, naro_log_level, const char *text) {
            heard.push_back(text);
            naro_log_set_sink([](void *, naro_log_level, const char *inner) { heard.push_back(inner); },
                              nullptr);
            log_err("from inside");
        },
        nullptr);
    log_err("from outside");
    naro_log_set_sink(nullptr, nullptr);
    EXPECT_EQ(heard, (std::vector<std::string>{"from outside", "from inside"}));
}

TEST(log_sink, runs_on_the_logging_thread)
{
    static pthread_t where;
    naro_log_set_sink([](void *, naro_log_level, const char *) { where = pthread_self(); }, nullptr);
    pthread_t logger;
    ASSERT_EQ(pthread_create(
                  &logger, nullptr,
                  [](void *) -> void * {
                      log_err("here");
                      return nullptr;
                  },
                  nullptr),
              0);
    pthread_join(logger, nullptr);
    naro_log_set_sink(nullptr, nullptr);
    EXPECT_TRUE(pthread_equal(where, logger));
}

TEST(log_stream, every_text_ends_its_line_exactly_once)
{
    const struct {
        const char *text;
        const char *line; // how the line must end
    } cases[] = {
        {"plain", "plain\n"},
        {"with end\n", "with end\n"},
        {"with both\r\n", "with both\r\n"},
        {"carriage return alone\r", "carriage return alone\r\n"},
        {"inner\nend", "inner\nend\n"},
        {"an empty line follows\n\n", "an empty line follows\n\n"},
    };
    for (const auto &c : cases) {
        const std::string shown = printed([&] { log_err("%s", c.text); });
        EXPECT_TRUE(ends_with(shown, c.line)) << shown;
    }
    const std::string empty = printed([] { log_err("%s", ""); });
    EXPECT_EQ(std::count(empty.begin(), empty.end(), '\n'), 1) << empty;
}

TEST(log_stream, gets_errors_warnings_and_infos)
{
    const std::string shown = printed([] {
        unsetenv("NARO_LOG_LEVEL");
        log_err("first\n");
        log_warning("second\n");
        log_info("third\n");
    });
    const size_t first = shown.find("first\n"), second = shown.find("second\n"),
                 third = shown.find("third\n");
    ASSERT_NE(third, std::string::npos) << shown;
    EXPECT_LT(first, second);
    EXPECT_LT(second, third);
}

TEST(log_stream, lines_of_threads_never_mix)
{
    const int threads = 4, rounds = 50;
    const std::string shown = printed([] {
        pthread_t all[threads];
        for (int i = 0; i < threads; i++)
            pthread_create(
                &all[i], nullptr,
                [](void *letter) -> void * {
                    const std::string text(3000, static_cast<char>('a' + reinterpret_cast<intptr_t>(letter)));
                    for (int n = 0; n < rounds; n++)
                        log_err("|%s|\n", text.c_str());
                    return nullptr;
                },
                reinterpret_cast<void *>(static_cast<intptr_t>(i)));
        for (pthread_t thread : all)
            pthread_join(thread, nullptr);
    });
    int lines = 0;
    for (size_t at = 0, end; (end = shown.find('\n', at)) != std::string::npos; at = end + 1, lines++) {
        const std::string line = shown.substr(at, end - at);
        const size_t bar = line.find('|');
        ASSERT_NE(bar, std::string::npos);
        ASSERT_EQ(line.substr(bar), "|" + std::string(3000, line[bar + 1]) + "|");
    }
    EXPECT_EQ(lines, threads * rounds);
}

TEST(log_call, keeps_errno)
{
    LogCapture log;
    const std::string text(5000, 'x');
    errno = EPIPE;
    log_err("%s", text.c_str());
    EXPECT_EQ(errno, EPIPE);
    errno = 0;
    log_debug("short");
    EXPECT_EQ(errno, 0);
}

TEST(log_call, keeps_errno_when_the_error_stream_is_closed)
{
    EXPECT_EQ(in_child([] {
                  close(STDERR_FILENO);
                  errno = EPIPE;
                  log_err("to nobody\n");
                  printf("%s", errno == EPIPE ? "kept" : "changed");
              }).out,
              "kept");
}

TEST(log_call, keeps_no_memory)
{
    naro_log_set_sink([](void *, naro_log_level, const char *) {}, nullptr);
    const std::string text(5000, 'x');
    EXPECT_EQ(leaked_bytes([&] { log_err("%s", text.c_str()); }), 0u);
    naro_log_set_sink(nullptr, nullptr);
}

TEST(log_call, formats_the_callers_errno)
{
    LogCapture log;
    errno = ENOENT;
    log_err("%m");
    errno = ENOENT;
    log_err("%s%m", std::string(5000, 'x').c_str());
    EXPECT_EQ(log.texts(), (std::vector<std::string>{"No such file or directory",
                                                     std::string(5000, 'x') + "No such file or directory"}));
}

TEST(log_call, is_not_a_cancellation_point)
{
    const ChildResult child = in_child([] {
        pthread_t thread;
        pthread_create(
            &thread, nullptr,
            [](void *) -> void * {
                pthread_cancel(pthread_self());
                log_err("still here\n");
                printf("not cancelled in the call; ");
                pthread_testcancel();
                printf("not cancelled after it");
                return nullptr;
            },
            nullptr);
        void *result = nullptr;
        pthread_join(thread, &result);
        printf("%s", result == PTHREAD_CANCELED ? "cancelled after it" : "");
    });
    EXPECT_TRUE(ends_with(child.err, "still here\n")) << child.err;
    EXPECT_EQ(child.out, "not cancelled in the call; cancelled after it");
}

TEST(log_call, leaves_a_thread_that_refuses_cancellation_as_it_was)
{
    LogCapture log;
    int before = 0, after = 0;
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &before);
    log_err("line\n");
    pthread_setcancelstate(before, &after);
    EXPECT_EQ(after, PTHREAD_CANCEL_DISABLE);
}

} // namespace
