// Collects what a module logs and what it prints, so that a test can hold quoted texts to the letter.
//
//   LogCapture log;              // from here on log lines come here and not to the error stream
//   queue_list_exit();
//   EXPECT_EQ(log.texts(), std::vector<std::string>{"already exit\n"});
//   EXPECT_TRUE(log.has(NARO_LOG_ERR, "already exit\n"));
//   ASSERT_TRUE(log.wait_for("[task] gone\n"));         // a line of another thread; gives up after 10 s
//
//   OutputCapture out(STDOUT_FILENO);                   // for modules that use printf, fprintf(stderr)
//   print_something();
//   EXPECT_EQ(out.text(), "NULL queue\n");
//
// Texts are exactly as the caller formatted them: the logger's own line end and prefix are not there.
// LogCapture needs the real utility library (PLATFORM util). Its members may be called from any thread; make
// and drop it while no other thread logs. OutputCapture replaces the process's descriptor: make and drop it
// while no other thread prints. One of each kind at a time.
#ifndef NARO_TESTS_LOG_CAPTURE_H
#define NARO_TESTS_LOG_CAPTURE_H

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <stdexcept>
#include <stdio.h>
#include <string>
#include <sys/mman.h>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

#include "naro_util.h"

class LogCapture
{
  public:
    struct Line {
        naro_log_level level;
        std::string text;
        bool operator==(const Line &other) const { return level == other.level && text == other.text; }
    };

    LogCapture() { naro_log_set_sink(collect, this); }
    ~LogCapture() { naro_log_set_sink(nullptr, nullptr); }
    LogCapture(const LogCapture &) = delete;
    LogCapture &operator=(const LogCapture &) = delete;

    std::vector<Line> lines() const
    {
        std::lock_guard<std::mutex> guard(mutex);
        return collected;
    }
    // The texts alone, of every level, in order.
    std::vector<std::string> texts() const
    {
        std::vector<std::string> result;
        for (const Line &line : lines())
            result.push_back(line.text);
        return result;
    }
    // The texts of one level, in order.
    std::vector<std::string> texts(naro_log_level level) const
    {
        std::vector<std::string> result;
        for (const Line &line : lines())
            if (line.level == level)
                result.push_back(line.text);
        return result;
    }
    // How many lines are exactly `text`, at any level.
    size_t count(const std::string &text) const
    {
        std::lock_guard<std::mutex> guard(mutex);
        return count_locked(text);
    }
    bool has(const std::string &text) const { return count(text) > 0; }
    bool has(naro_log_level level, const std::string &text) const
    {
        std::lock_guard<std::mutex> guard(mutex);
        return std::find(collected.begin(), collected.end(), Line{level, text}) != collected.end();
    }
    // Waits until at least `times` lines are exactly `text`; false when that has not come within the limit.
    bool wait_for(const std::string &text, size_t times = 1,
                  std::chrono::milliseconds limit = std::chrono::seconds(10))
    {
        std::unique_lock<std::mutex> guard(mutex);
        return more.wait_for(guard, limit, [&] { return count_locked(text) >= times; });
    }
    void clear()
    {
        std::lock_guard<std::mutex> guard(mutex);
        collected.clear();
    }

  private:
    static void collect(void *context, naro_log_level level, const char *text)
    {
        LogCapture *self = static_cast<LogCapture *>(context);
        std::lock_guard<std::mutex> guard(self->mutex);
        self->collected.push_back({level, text});
        self->more.notify_all();
    }
    size_t count_locked(const std::string &text) const
    {
        return static_cast<size_t>(std::count_if(collected.begin(), collected.end(),
                                                 [&](const Line &line) { return line.text == text; }));
    }

    mutable std::mutex mutex; // protects collected
    std::condition_variable more;
    std::vector<Line> collected;
};

class OutputCapture
{
  public:
    // STDOUT_FILENO or STDERR_FILENO.
    explicit OutputCapture(int captured_fd) : fd(captured_fd)
    {
        flush();
        kept = dup(fd);
        file = memfd_create("captured output", MFD_CLOEXEC);
        if (kept < 0 || file < 0 || dup2(file, fd) < 0)
            throw std::runtime_error("the output cannot be captured");
    }
    ~OutputCapture()
    {
        flush();
        dup2(kept, fd);
        close(kept);
        close(file);
    }
    OutputCapture(const OutputCapture &) = delete;
    OutputCapture &operator=(const OutputCapture &) = delete;

    // Everything that was printed since the capture began (or since clear).
    std::string text() const
    {
        flush();
        std::string result;
        char block[4096];
        ssize_t got;
        while ((got = pread(file, block, sizeof block, begin + static_cast<off_t>(result.size()))) > 0)
            result.append(block, static_cast<size_t>(got));
        return result;
    }
    void clear() { begin += static_cast<off_t>(text().size()); }
    // Waits until `part` was printed (by another thread, say); false when that has not come within the limit.
    bool wait_for(const std::string &part, std::chrono::milliseconds limit = std::chrono::seconds(10)) const
    {
        const auto end = std::chrono::steady_clock::now() + limit;
        while (text().find(part) == std::string::npos) {
            if (std::chrono::steady_clock::now() >= end)
                return false;
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        return true;
    }

  private:
    void flush() const { fflush(fd == STDOUT_FILENO ? stdout : stderr); }

    int fd;
    int kept = -1;
    int file = -1;
    off_t begin = 0;
};

#endif
