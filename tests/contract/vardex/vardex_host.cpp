// What can be asked of our own configuration client: who is listed, what a boot ends, what a dead listener or
// writer leaves.
#include <algorithm>
#include <random>
#include <string.h>
#include <sys/mman.h>
#include <thread>
#include <time.h>

#include "fake_clock.h"
#include "in_child.h"
#include "log_capture.h"
#include "store_fixture.h"
#include "vardex_admin.h"

namespace
{

const std::string early_root = scratch_root();

using Listed = std::vector<std::string>;

int add_setting(void *context, const char *group, const char *key, int code, const char *value)
{
    static_cast<Listed *>(context)->push_back(std::string(group) + "/" + key + "=" + value + " (" +
                                              std::to_string(code) + ")");
    return 0;
}

int add_subscriber(void *context, const char *group, const char *key, pid_t pid, const char *program)
{
    static_cast<Listed *>(context)->push_back(std::string(group) + "/" + key + " " + std::to_string(pid) +
                                              " " + program);
    return 0;
}

Listed subscribers(const char *layer, const char *group = nullptr, const char *key = nullptr)
{
    Listed result;
    EXPECT_EQ(vardex_subscribers(layer, group, key, add_subscriber, &result), 0);
    return result;
}

Listed settings(const char *layer)
{
    Listed result;
    EXPECT_EQ(vardex_list(layer, add_setting, &result), 0);
    return result;
}

// ---- Listing ----------------------------------------------------------------------------------------------

TEST_F(StoreTest, settings_are_listed_by_group_and_key)
{
    EXPECT_EQ(settings("nvram"), Listed()) << "a store that is not there is empty";
    EXPECT_FALSE(std::filesystem::exists(path(nvram_file))) << "and reading does not make it";
    Client client;
    ASSERT_TRUE(client.set("nvram", "wdr", "on"));
    ASSERT_TRUE(client.set("nvram", "wdr", "off"));
    ASSERT_TRUE(client.set("nvram", "b", "", "a"));
    const int32_t number = 7;
    ASSERT_EQ(libvardex_set_value(client.h, "nvram", nullptr, "a", VARDEX_INT32, &number, 0, 0, 0, 0), 1);
    EXPECT_EQ(settings("nvram"), (Listed{"a/b= (1)", "default/a=7 (2)", "default/wdr=off (1)"}));
    LogCapture log;
    EXPECT_EQ(vardex_list("flash", add_setting, nullptr), -1);
    Listed first;
    EXPECT_EQ(vardex_list(
                  "nvram",
                  [](void *context, const char *group, const char *key, int code, const char *value) {
                      add_setting(context, group, key, code, value);
                      return 1;
                  },
                  &first),
              0);
    EXPECT_EQ(first.size(), 1u);
}

TEST_F(StoreTest, subscribers_are_those_who_live)
{
    EXPECT_EQ(subscribers("nvram"), Listed());
    Peer one([](Peer::Line &line) {
        Client client;
        client.follow("nvram", "power");
        line.say("ready");
        line.hear();
    });
    ASSERT_EQ(one.line.hear(), "ready");
    Client client;
    const uint64_t id = client.follow("nvram", "power");
    ASSERT_NE(client.follow("nvram", "wdr", "g"), 0u);
    ASSERT_NE(client.follow("mem", "power"), 0u);
    const std::string program = program_invocation_short_name;
    const std::string theirs = " " + std::to_string(one.pid) + " " + program;
    const std::string ours = " " + std::to_string(getpid()) + " " + program;
    Listed expected = {"default/power" + theirs, "default/power" + ours};
    if (one.pid > getpid())
        std::swap(expected[0], expected[1]);
    EXPECT_EQ(subscribers("nvram", nullptr, "power"), expected);
    EXPECT_EQ(subscribers("nvram", "g"), (Listed{"g/wdr" + ours}));
    EXPECT_EQ(subscribers("nvram", "g", "power"), Listed());
    EXPECT_EQ(subscribers("mem"), (Listed{"default/power" + ours}));
    one.end(SIGKILL);
    EXPECT_EQ(subscribers("nvram", nullptr, "power"), (Listed{"default/power" + ours}));
    ASSERT_TRUE(client.forget("nvram", "power", id));
    EXPECT_EQ(subscribers("nvram", nullptr, "power"), Listed());
    client.close();
    EXPECT_EQ(subscribers("nvram"), Listed());
    EXPECT_EQ(subscribers("mem"), Listed());
}

// ---- Boot -------------------------------------------------------------------------------------------------

TEST_F(StoreTest, a_boot_empties_mem_and_nothing_else)
{
    {
        Client client;
        ASSERT_TRUE(client.set("mem", "track_switch", "on"));
        ASSERT_TRUE(client.set("nvram", "wdr", "on"));
    }
    EXPECT_EQ(stored("mem", "track_switch"), "on") << "the end of a process is no boot";
    Database(path(mem_file)).run("UPDATE about SET boot = 'another'");
    Database(path(nvram_file))
        .run("UPDATE about SET boot = 'another'; UPDATE value SET stamp = 1 << 62;"
             "INSERT INTO mailbox VALUES (9, 'dead', 1, 'x', 0, 0);"
             "INSERT INTO subscription VALUES ('default', 'wdr', 9)");
    EXPECT_EQ(stored("mem", "track_switch"), "(null)");
    EXPECT_EQ(stored("nvram", "wdr"), "on");
    EXPECT_EQ(Database(path(nvram_file)).number("SELECT count(*) FROM mailbox"), 0);
    EXPECT_EQ(Database(path(nvram_file)).number("SELECT count(*) FROM subscription"), 0);
    EXPECT_EQ(Database(path(nvram_file)).number("SELECT stamp FROM value"), 0) << "of another boot's clock";
}

TEST_F(StoreTest, emptying_mem_tells_nobody_and_loses_nobody)
{
    Client client;
    ASSERT_NE(client.follow("mem", "k"), 0u);
    for (int n = 0; n < 5; n++)
        ASSERT_TRUE(client.set("mem", "k", "old"));
    ASSERT_TRUE(client.pump_now());
    client.told.clear();
    ASSERT_EQ(vardex_empty_mem(), 0);
    EXPECT_EQ(stored("mem", "k"), "(null)");
    libvardex_timeout_process(client.h);
    EXPECT_FALSE(client.pump_now());
    ASSERT_TRUE(client.set("mem", "k", "new"));
    EXPECT_TRUE(client.pump_now());
    EXPECT_EQ(client.told, (std::vector<Told>{{"k", "new"}}));
}

// ---- Who listens ------------------------------------------------------------------------------------------

TEST_F(StoreTest, a_killed_listener_leaves_nothing_behind)
{
    Peer listener([](Peer::Line &line) {
        Client client;
        client.follow("mem", "k");
        line.say("ready");
        line.hear();
    });
    ASSERT_EQ(listener.line.hear(), "ready");
    Client writer;
    ASSERT_TRUE(writer.set("mem", "k", "1"));
    listener.end(SIGKILL);
    for (int n = 0; n < 20; n++)
        ASSERT_TRUE(writer.set("mem", "k", "2"));
    const Database database(path(mem_file));
    EXPECT_EQ(database.number("SELECT count(*) FROM mailbox"), 0);
    EXPECT_EQ(database.number("SELECT count(*) FROM subscription"), 0);
    EXPECT_EQ(database.number("SELECT count(*) FROM value"), 1) << "only what is the value now";
    size_t sockets = 0;
    for (const auto &entry : std::filesystem::directory_iterator(path("/run/naro/vardex")))
        sockets += entry.is_socket();
    EXPECT_EQ(sockets, 1u) << "the writer's own";
}

TEST_F(StoreTest, a_listener_that_is_dead_is_also_found_by_sets_of_other_keys)
{
    Peer listener([](Peer::Line &line) {
        Client client;
        client.follow("mem", "k");
        line.say("ready");
        line.hear();
    });
    ASSERT_EQ(listener.line.hear(), "ready");
    Client writer;
    listener.end(SIGKILL);
    for (int n = 0; n < 256; n++)
        ASSERT_TRUE(writer.set("mem", "other", "v"));
    EXPECT_EQ(Database(path(mem_file)).number("SELECT count(*) FROM mailbox"), 0);
}

TEST_F(StoreTest, a_listener_that_stands_still_holds_up_nobody_and_keeps_a_bounded_row)
{
    Peer listener([](Peer::Line &line) {
        Client client;
        client.follow("mem", "k");
        client.follow("mem", "alarm_event");
        line.say("ready");
        line.hear();
        client.pump_until([&] { return !client.told.empty() && client.told.back().second == "last"; });
        size_t alarms = 0;
        for (const Told &told : client.told)
            alarms += told.first == "alarm_event";
        line.say(std::to_string(alarms) + " of " + std::to_string(client.told.size()));
    });
    ASSERT_EQ(listener.line.hear(), "ready");
    kill(listener.pid, SIGSTOP);
    Client writer;
    for (int n = 0; n < 10; n++)
        ASSERT_TRUE(writer.set("mem", "alarm_event", std::to_string(n)));
    for (int n = 0; n < 4000; n++)
        ASSERT_TRUE(writer.set("mem", "k", std::to_string(n)));
    ASSERT_TRUE(writer.set("mem", "k", "last"));
    EXPECT_LE(Database(path(mem_file)).number("SELECT count(*) FROM value"), 2048 + 256 + 10);
    kill(listener.pid, SIGCONT);
    listener.line.say("go on");
    EXPECT_EQ(listener.line.hear(), "10 of 1034") << "no alarm was left out, and 1,024 of the rest were told";
}

TEST_F(StoreTest, a_writer_that_dies_before_it_knocks_is_noticed_within_a_pump_round)
{
    Client client;
    ASSERT_NE(client.follow("mem", "k"), 0u);
    ASSERT_TRUE(client.set("mem", "k", "1"));
    client.pump_now();
    // What such a writer leaves: the value stored, and nobody woken.
    Database(path(mem_file))
        .run("INSERT INTO value (grp, key, code, text, stamp) "
             "VALUES ('default', 'k', 1, x'32', 5)");
    EXPECT_FALSE(client.pump_now());
    libvardex_timeout_process(client.h);
    EXPECT_EQ(client.told.size(), 1u) << "told on the next pumping call, not inside this one";
    EXPECT_TRUE(client.pump_now());
    EXPECT_EQ(client.told.back().second, "2");
    libvardex_timeout_process(client.h);
    EXPECT_FALSE(client.pump_now());
}

TEST_F(StoreTest, a_mailbox_that_others_removed_is_made_anew)
{
    Client client, writer;
    ASSERT_NE(client.follow("mem", "k"), 0u);
    const int fd = libvardex_client_fd(client.h);
    std::filesystem::remove_all(path("/run/naro/vardex"));
    ASSERT_TRUE(writer.set("mem", "k", "1")); // finds nobody, and takes the name from the list
    EXPECT_FALSE(client.pump_now());
    libvardex_timeout_process(client.h);
    EXPECT_TRUE(client.pump_now()) << "what was set meanwhile is told";
    EXPECT_EQ(subscribers("mem", nullptr, "k").size(), 1u);
    ASSERT_TRUE(writer.set("mem", "k", "2"));
    EXPECT_TRUE(client.pump_now());
    EXPECT_EQ(client.told, (std::vector<Told>{{"k", "1"}, {"k", "2"}}));
    EXPECT_EQ(libvardex_client_fd(client.h), fd);
}

TEST_F(StoreTest, old_values_stay_until_the_next_word_of_who_has_read_them)
{
    Client client;
    ASSERT_NE(client.follow("mem", "k"), 0u);
    ASSERT_TRUE(client.set("mem", "k", "first"));
    client.pump_now();
    const Database database(path(mem_file));
    int64_t most = 0;
    for (int n = 0; n < 300; n++) {
        ASSERT_TRUE(client.set("mem", "k", std::to_string(n)));
        client.pump_now();
        most = std::max(most, database.number("SELECT count(*) FROM value"));
    }
    EXPECT_EQ(most, 64) << "a listener lets the store know each 64 sets";
    EXPECT_EQ(client.told.size(), 301u);
}

TEST_F(StoreTest, what_is_newer_than_the_look_waits_for_what_may_be_older_elsewhere)
{
    const auto stamp_in_ms = [](int64_t ms) {
        timespec now;
        clock_gettime(CLOCK_MONOTONIC, &now);
        return std::to_string(now.tv_sec * int64_t{1000000000} + now.tv_nsec + ms * 1000000);
    };
    Client client;
    ASSERT_NE(client.follow("mem", "k"), 0u);
    ASSERT_TRUE(client.set("mem", "k", "1"));
    ASSERT_TRUE(client.pump_now());
    const Database database(path(mem_file));
    const std::string insert = "INSERT INTO value (grp, key, code, text, stamp) VALUES ('default', 'k', 1, ";
    database.run(insert + "x'32', " + stamp_in_ms(700) + ")");
    EXPECT_EQ(libvardex_xhandle_response(client.h), 1);
    EXPECT_EQ(client.told.size(), 1u);
    EXPECT_TRUE(client.pump_until([&] { return client.told.size() == 2; }));
    // Another machine's clock, or another boot's: nobody waits for that.
    database.run(insert + "x'33', " + stamp_in_ms(3600000) + ")");
    EXPECT_EQ(libvardex_xhandle_response(client.h), 1);
    EXPECT_EQ(client.told.size(), 3u);
}

TEST_F(StoreTest, a_busy_pump_also_looks_after_its_mailbox_each_second)
{
    FakeClock clock;
    Client client;
    ASSERT_NE(client.follow("mem", "k"), 0u);
    libvardex_timeout_process(client.h);
    std::filesystem::remove_all(path("/run/naro/vardex"));
    clock.advance_ms(999);
    EXPECT_EQ(libvardex_xhandle_response(client.h), 1);
    EXPECT_FALSE(std::filesystem::exists(path("/run/naro/vardex")));
    clock.advance_ms(1);
    EXPECT_EQ(libvardex_xhandle_response(client.h), 1);
    client.pump_now();
    ASSERT_TRUE(client.set("mem", "k", "v"));
    EXPECT_TRUE(client.pump_now());
}

TEST_F(StoreTest, no_client_is_opened_where_no_mailbox_can_be)
{
    LogCapture log;
    std::ofstream(path("/run/naro")) << "a file where the folder should be";
    EXPECT_EQ(libvardex_config_open(0), nullptr);
    EXPECT_EQ(log.texts(NARO_LOG_ERR).size(), 1u);
}

TEST_F(StoreTest, a_child_of_a_fork_is_refused)
{
    Client client;
    ASSERT_TRUE(client.set("mem", "k", "v"));
    ASSERT_NE(client.follow("mem", "k"), 0u);
    const ChildResult child = in_child([&] {
        printf("%d %s %d %d", libvardex_set_value(client.h, "mem", nullptr, "k", 1, "w", 0, 0, 0, 0),
               stored("mem", "k").c_str(), libvardex_config_open(0) != nullptr,
               libvardex_xhandle_response(client.h));
        client.close();
    });
    EXPECT_EQ(child.status, 0);
    EXPECT_EQ(child.out, "0 (null) 0 0");
    EXPECT_NE(child.err, "");
    EXPECT_EQ(stored("mem", "k"), "v");
    ASSERT_TRUE(client.set("mem", "k", "x"));
    EXPECT_TRUE(client.pump_now()) << "the child has taken nothing with it";
}

// ---- Kills ------------------------------------------------------------------------------------------------

struct shared_words {
    std::atomic<int> begun;        // the set that was begun last,
    std::atomic<int> acknowledged; // and the last that was acknowledged
};

void write_until_killed(Peer::Line &line, shared_words *words, const char *layer, int from)
{
    Client client;
    line.say("ready");
    for (int number = from;; number++) {
        words->begun = number;
        if (!client.set(layer, "k", std::to_string(number)))
            _exit(4);
        words->acknowledged = number;
    }
}

TEST_F(StoreTest, a_writer_killed_at_any_moment_leaves_the_acknowledged_value_or_the_next)
{
    const int kills = getenv("NARO_LONG") ? 1000 : 100;
    const unsigned seed = std::random_device()();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    shared_words *words = static_cast<shared_words *>(
        mmap(nullptr, sizeof *words, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    ASSERT_NE(static_cast<void *>(words), MAP_FAILED);
    words->begun = words->acknowledged = 0;
    int under_way = 0, kept = 0;
    for (int n = 0; n < kills; n++) {
        const char *layer = n % 4 == 0 ? "mem" : "nvram";
        const int from = words->begun + 1;
        {
            Peer writer([&](Peer::Line &line) { write_until_killed(line, words, layer, from); });
            ASSERT_EQ(writer.line.hear(), "ready");
            // Some sets after it has begun; then anywhere in one, and every moment of it is as likely.
            while (words->acknowledged < from + static_cast<int>(random() % 3))
                std::this_thread::yield();
            const auto until = std::chrono::steady_clock::now() + std::chrono::microseconds(random() % 3000);
            while (std::chrono::steady_clock::now() < until) {
            }
            ASSERT_EQ(writer.end(SIGKILL), SIGKILL);
        }
        // Nobody of this process has opened the store: a child looks.
        Peer reader([&](Peer::Line &line) {
            line.say(stored(layer, "k"));
            Client client;
            line.say(client.set(layer, "after", "v") && stored(layer, "after") == "v" ? "works" : "broken");
        });
        const std::string value = reader.line.hear();
        const int acknowledged = words->acknowledged, begun = words->begun;
        ASSERT_TRUE(value == std::to_string(acknowledged) || value == std::to_string(begun))
            << value << " after " << acknowledged << " was acknowledged and " << begun << " begun, kill "
            << n;
        ASSERT_EQ(reader.line.hear(), "works") << "kill " << n;
        under_way += begun != acknowledged;
        kept += value != std::to_string(acknowledged);
    }
    printf("%d kills, %d inside a set, %d of which had been stored\n", kills, under_way, kept);
    EXPECT_GT(under_way, kills / 4) << "the kills must hit sets";
    munmap(words, sizeof *words);
}

TEST_F(StoreTest, what_a_listener_hears_of_killed_writers_is_in_order_and_whole)
{
    shared_words *words = static_cast<shared_words *>(
        mmap(nullptr, sizeof *words, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    ASSERT_NE(static_cast<void *>(words), MAP_FAILED);
    words->begun = words->acknowledged = 0;
    std::atomic<int> *last = &words[0].acknowledged;
    Peer listener([&](Peer::Line &line) {
        Client client;
        client.follow("mem", "k");
        line.say("ready");
        bool all_there = true;
        int heard = 0;
        client.on_told = [&](const Told &told) {
            all_there = all_there && atoi(told.second.c_str()) == heard + 1;
            heard = atoi(told.second.c_str());
        };
        client.pump_until([&] { return !client.told.empty() && is_readable(line.fd) && heard >= *last; });
        line.hear();
        line.say(all_there ? "all" : "not all");
    });
    ASSERT_EQ(listener.line.hear(), "ready");
    int from = 1;
    for (int n = 0; n < 10; n++) {
        Peer writer([&](Peer::Line &line) { write_until_killed(line, words, "mem", from); });
        ASSERT_EQ(writer.line.hear(), "ready");
        while (words->acknowledged < from + 5)
            std::this_thread::yield();
        ASSERT_EQ(writer.end(SIGKILL), SIGKILL);
        // Where it got stored the number is used up; where not, the next writer takes it.
        Peer reader([&](Peer::Line &line) { line.say(stored("mem", "k")); });
        from = atoi(reader.line.hear().c_str()) + 1;
    }
    words->acknowledged = from - 1;
    listener.line.say("that was all");
    EXPECT_EQ(listener.line.hear(), "all");
    EXPECT_EQ(listener.end(0), 0);
    munmap(words, sizeof *words);
}

} // namespace
