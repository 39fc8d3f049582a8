// A card of a test's own: its folder under a scratch root, with what lies on it, and file calls that fail or
// hang on demand.
//
//   static const std::string root = scratch_root();       // before anything (isolate.h)
//   Card card;                                            // an empty card in its place
//   card.fail("open", EROFS);                             // from now on; of this call, on any path
//   card.fail("open", EIO, 1);                            // only the next one
//   card.fail("mkdir", EIO, 1, "/mnt/sdcard/ZEDRA_RECORD_MOTION/");   // of this path
//   card.hang();  ...  card.go_on();                      // whoever opens a file waits in between
#ifndef NARO_TESTS_CARD_H
#define NARO_TESTS_CARD_H

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include <errno.h>
#include <pthread.h>
#include <time.h>

#include "naro_util.h"

class Card
{
  public:
    explicit Card(const std::string &root) : top(root + "/mnt/sdcard"), records(top + "/ZEDRA_RECORD_MOTION")
    {
        std::filesystem::remove_all(top);
        std::filesystem::create_directories(top);
        naro_file_set_fault(fault, this);
    }
    ~Card()
    {
        naro_file_set_fault(nullptr, nullptr);
        pthread_cond_destroy(&changed);
        pthread_mutex_destroy(&mutex);
    }
    Card(const Card &) = delete;
    Card &operator=(const Card &) = delete;

    // `error` as of naro_file_set_fault: an errno, or -n to let a write move n - 1 bytes. `times` 0: always.
    void fail(const std::string &call, int error, int times = 0, const std::string &path = "")
    {
        pthread_mutex_lock(&mutex);
        rules.push_back({call, path, error, times});
        pthread_mutex_unlock(&mutex);
    }
    void heal()
    {
        pthread_mutex_lock(&mutex);
        rules.clear();
        pthread_mutex_unlock(&mutex);
    }
    void hang()
    {
        pthread_mutex_lock(&mutex);
        hanging = true;
        pthread_mutex_unlock(&mutex);
    }
    void go_on()
    {
        pthread_mutex_lock(&mutex);
        hanging = false;
        pthread_cond_broadcast(&changed);
        pthread_mutex_unlock(&mutex);
    }
    // Waits (at most 10 s) until somebody hangs.
    bool wait_for_hanging()
    {
        timespec limit;
        clock_gettime(CLOCK_REALTIME, &limit);
        limit.tv_sec += 10;
        pthread_mutex_lock(&mutex);
        while (!held && pthread_cond_timedwait(&changed, &mutex, &limit) != ETIMEDOUT)
            ;
        const bool came = held;
        pthread_mutex_unlock(&mutex);
        return came;
    }
    // Every call so far, as "open /mnt/...".
    std::vector<std::string> calls(const std::string &of = "")
    {
        pthread_mutex_lock(&mutex);
        std::vector<std::string> result;
        for (const std::string &call : made)
            if (call.compare(0, of.size(), of) == 0)
                result.push_back(call);
        pthread_mutex_unlock(&mutex);
        return result;
    }
    // What is in the file of an hour ("2021031408"); "(none)" where there is no file.
    std::string file(const std::string &hour) const
    {
        std::ifstream stream(records + "/" + hour + "/motion_record_msg", std::ios::binary);
        if (!stream)
            return "(none)";
        return std::string((std::istreambuf_iterator<char>(stream)), std::istreambuf_iterator<char>());
    }
    // The hours that have a folder, in order.
    std::vector<std::string> hours() const
    {
        std::vector<std::string> result;
        std::error_code none;
        for (const auto &entry : std::filesystem::directory_iterator(records, none))
            result.push_back(entry.path().filename());
        std::sort(result.begin(), result.end());
        return result;
    }

    const std::string top;     // the card's own folder
    const std::string records; // where records go

  private:
    struct Rule {
        std::string call, path;
        int error, times;
    };

    static int fault(void *context, const char *call, const char *path)
    {
        Card *self = static_cast<Card *>(context);
        pthread_mutex_lock(&self->mutex);
        self->made.push_back(std::string(call) + " " + path);
        int verdict = 0;
        for (Rule &rule : self->rules) {
            if (rule.call != call || (!rule.path.empty() && rule.path != path) || rule.times < 0)
                continue;
            verdict = rule.error;
            if (rule.times > 0 && --rule.times == 0)
                rule.times = -1;
            break;
        }
        while (self->hanging && std::string(call) == "open") {
            self->held = true;
            pthread_cond_broadcast(&self->changed);
            pthread_cond_wait(&self->changed, &self->mutex);
        }
        self->held = false;
        pthread_mutex_unlock(&self->mutex);
        return verdict;
    }

    pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER; // protects everything below
    pthread_cond_t changed = PTHREAD_COND_INITIALIZER;
    std::vector<Rule> rules;
    std::vector<std::string> made;
    bool hanging = false, held = false;
};

#endif
