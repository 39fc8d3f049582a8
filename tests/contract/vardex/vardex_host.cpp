// What can be asked of our own configuration client: its files, their troubles, its listeners' mailboxes.
#include <fstream>
#include <iterator>
#include <math.h>
#include <random>
#include <sqlite3.h>
#include <stdint.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <thread>
#include <time.h>

#include "client_fixture.h"
#include "fake_clock.h"
#include "in_child.h"
#include "log_capture.h"
#include "vardex_admin.h"

namespace
{

const std::string early_root = scratch_root();

const char mem_file[] = "/run/naro/vardex-mem.db";
const char nvram_file[] = "/mnt/nvram/naro/vardex.db";

std::string contents(const std::string &path)
{
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

// The layer's file in the hands of another program.
class Database
{
  public:
    explicit Database(const std::string &path)
    {
        if (sqlite3_open(path.c_str(), &db) != SQLITE_OK)
            abort();
    }
    ~Database() { sqlite3_close(db); }
    Database(const Database &) = delete;
    Database &operator=(const Database &) = delete;
    void run(const std::string &sql) const
    {
        char *error = nullptr;
        if (sqlite3_exec(db, sql.c_str(), nullptr, nullptr, &error) != SQLITE_OK) {
            fprintf(stderr, "%s: %s\n", sql.c_str(), error);
            abort();
        }
    }
    int64_t number(const std::string &sql) const
    {
        sqlite3_stmt *statement = nullptr;
        sqlite3_prepare_v2(db, sql.c_str(), -1, &statement, nullptr);
        const int64_t result =
            sqlite3_step(statement) == SQLITE_ROW ? sqlite3_column_int64(statement, 0) : -1;
        sqlite3_finalize(statement);
        return result;
    }
    sqlite3 *db;
};

class StoreTest : public SettingsTest
{
  protected:
    static std::string path(const char *file) { return root() + file; }
};

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

// ---- Listing -----------------------------------------------------------------------------------------------

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

// ---- Boot --------------------------------------------------------------------------------------------------

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

// ---- Who listens -------------------------------------------------------------------------------------------

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

TEST_F(StoreTest, old_values_stay_no_longer_than_somebody_waits_for_them)
{
    Client client;
    ASSERT_NE(client.follow("mem", "k"), 0u);
    for (int n = 0; n < 300; n++) {
        ASSERT_TRUE(client.set("mem", "k", std::to_string(n)));
        client.pump_now();
    }
    EXPECT_LE(Database(path(mem_file)).number("SELECT count(*) FROM value"), 66);
    EXPECT_EQ(client.told.size(), 300u);
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

// ---- Kills -------------------------------------------------------------------------------------------------

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

// ---- Trouble -----------------------------------------------------------------------------------------------

uint64_t now_ms()
{
    return static_cast<uint64_t>(std::chrono::duration_cast<std::chrono::milliseconds>(
                                     std::chrono::steady_clock::now().time_since_epoch())
                                     .count());
}

TEST_F(StoreTest, a_locked_store_is_waited_for_200_ms_and_the_rest_works)
{
    LogCapture log;
    Client client;
    ASSERT_TRUE(client.set("nvram", "wdr", "on"));
    const Database other(path(nvram_file));
    other.run("BEGIN IMMEDIATE");
    const uint64_t begin = now_ms();
    EXPECT_FALSE(client.set("nvram", "wdr", "off"));
    const uint64_t waited = now_ms() - begin;
    EXPECT_GE(waited, 200u);
    EXPECT_LT(waited, 2000u); // a busy machine's share
    EXPECT_EQ(stored("nvram", "wdr"), "on") << "reading does not wait";
    EXPECT_TRUE(client.set("mem", "k", "v")) << "the other layer is not concerned";
    EXPECT_EQ(
        log.texts(NARO_LOG_ERR),
        std::vector<std::string>{"[vardex] nvram: cannot set \"wdr\": /mnt/nvram/naro/vardex.db: database "
                                 "is locked\n"});
    EXPECT_FALSE(client.set("nvram", "wdr", "off"));
    EXPECT_EQ(log.texts(NARO_LOG_ERR).size(), 1u) << "the same is not said again for ten seconds";
    other.run("ROLLBACK");
    EXPECT_TRUE(client.set("nvram", "wdr", "off"));
    EXPECT_EQ(log.texts(NARO_LOG_INFO),
              std::vector<std::string>{"[vardex] nvram: /mnt/nvram/naro/vardex.db can be written again\n"});
}

TEST_F(StoreTest, a_line_about_the_same_trouble_comes_again_after_ten_seconds)
{
    LogCapture log;
    FakeClock clock;
    Client client;
    ASSERT_TRUE(client.set("nvram", "wdr", "on"));
    const Database other(path(nvram_file));
    other.run("BEGIN IMMEDIATE");
    EXPECT_FALSE(client.set("nvram", "wdr", "off"));
    clock.advance_ms(9999);
    EXPECT_FALSE(client.set("nvram", "wdr", "off"));
    EXPECT_EQ(log.texts(NARO_LOG_ERR).size(), 1u);
    clock.advance_ms(1);
    EXPECT_FALSE(client.set("nvram", "wdr", "off"));
    EXPECT_EQ(log.texts(NARO_LOG_ERR).size(), 2u);
}

TEST_F(StoreTest, a_set_waits_for_a_short_lock)
{
    Peer holder([](Peer::Line &line) {
        line.hear();
        const Database other(scratch_root() + nvram_file);
        other.run("BEGIN IMMEDIATE");
        line.say("locked");
        line.hear();
        usleep(50000);
        other.run("COMMIT");
    });
    LogCapture log;
    Client client;
    ASSERT_TRUE(client.set("nvram", "wdr", "on"));
    holder.line.say("lock");
    ASSERT_EQ(holder.line.hear(), "locked");
    holder.line.say("now");
    EXPECT_TRUE(client.set("nvram", "wdr", "off"));
    EXPECT_TRUE(log.texts().empty());
}

TEST_F(StoreTest, a_registration_that_the_store_cannot_take_is_confirmed_later)
{
    LogCapture log;
    FakeClock clock;
    Client client, writer;
    ASSERT_TRUE(writer.set("nvram", "wdr", "on"));
    {
        const Database other(path(nvram_file));
        other.run("BEGIN IMMEDIATE");
        EXPECT_NE(client.follow("nvram", "wdr"), 0u);
        const uint64_t begin = now_ms();
        EXPECT_NE(client.follow("nvram", "power"), 0u);
        EXPECT_LT(now_ms() - begin, 150u) << "only the first one waits";
        clock.advance_ms(2999);
        libvardex_timeout_process(client.h);
        EXPECT_EQ(client.timeouts, 0u);
        clock.advance_ms(1);
        libvardex_timeout_process(client.h);
        EXPECT_EQ(client.timeouts, 2u);
        clock.advance_ms(3000);
        libvardex_timeout_process(client.h);
        EXPECT_EQ(client.timeouts, 2u) << "told once";
        EXPECT_EQ(libvardex_xhandle_response(client.h), 1);
    }
    libvardex_timeout_process(client.h);
    EXPECT_FALSE(client.pump_now()) << "and being confirmed delivers nothing";
    ASSERT_TRUE(writer.set("nvram", "wdr", "off"));
    ASSERT_TRUE(writer.set("nvram", "power", "on"));
    EXPECT_TRUE(client.pump_now());
    EXPECT_EQ(client.told, (std::vector<Told>{{"wdr", "off"}, {"power", "on"}}));
    EXPECT_EQ(client.timeouts, 2u);
}

TEST_F(StoreTest, registrations_that_are_confirmed_do_not_time_out)
{
    FakeClock clock;
    Client client;
    ASSERT_NE(client.follow("nvram", "wdr"), 0u);
    clock.advance_ms(10000);
    libvardex_timeout_process(client.h);
    EXPECT_EQ(client.timeouts, 0u);
}

TEST_F(StoreTest, garbage_is_left_as_it_is)
{
    LogCapture log;
    std::filesystem::create_directories(path("/mnt/nvram/naro"));
    const std::string garbage(20000, 'g');
    for (const std::string &content : {garbage, std::string("SQLite format 3"), garbage.substr(0, 10)}) {
        std::ofstream(path(nvram_file), std::ios::binary) << content;
        log.clear();
        Client client;
        ASSERT_NE(client.h, nullptr);
        EXPECT_NE(client.follow("nvram", "wdr"), 0u);
        EXPECT_FALSE(client.set("nvram", "wdr", "on"));
        EXPECT_EQ(stored("nvram", "wdr"), "(null)");
        EXPECT_EQ(libvardex_xhandle_response(client.h), 1);
        libvardex_timeout_process(client.h);
        EXPECT_GE(log.texts(NARO_LOG_ERR).size(), 1u);
        EXPECT_NE(client.follow("mem", "k"), 0u);
        EXPECT_TRUE(client.set("mem", "k", "v"));
        EXPECT_TRUE(client.pump_now());
        client.close();
        EXPECT_TRUE(contents(path(nvram_file)) == content) << "not a byte is changed";
        std::filesystem::remove(path(nvram_file));
    }
}

TEST_F(StoreTest, another_programs_database_is_refused)
{
    LogCapture log;
    std::filesystem::create_directories(path("/mnt/nvram/naro"));
    Database(path(nvram_file)).run("CREATE TABLE value (a); INSERT INTO value VALUES (1)");
    const std::string before = contents(path(nvram_file));
    Client client;
    EXPECT_FALSE(client.set("nvram", "wdr", "on"));
    EXPECT_TRUE(
        log.has(NARO_LOG_ERR,
                "[vardex] nvram: cannot read: /mnt/nvram/naro/vardex.db: is another program's database\n"));
    EXPECT_TRUE(contents(path(nvram_file)) == before);
}

TEST_F(StoreTest, a_later_versions_store_is_refused)
{
    LogCapture log;
    {
        Client client;
        ASSERT_TRUE(client.set("nvram", "wdr", "on"));
    }
    Database(path(nvram_file)).run("PRAGMA user_version=2");
    Client client;
    EXPECT_FALSE(client.set("nvram", "wdr", "on"));
    EXPECT_TRUE(log.has(NARO_LOG_ERR,
                        "[vardex] nvram: cannot read: /mnt/nvram/naro/vardex.db: is of another version\n"));
}

// Pages of the store after the first one, spoilt.
void spoil(const std::string &file, size_t from)
{
    std::fstream out(file, std::ios::binary | std::ios::in | std::ios::out);
    out.seekp(static_cast<std::streamoff>(from));
    out << std::string(2000, '\xaa');
}

TEST_F(StoreTest, a_damaged_store_is_read_from_and_not_written_to)
{
    LogCapture log;
    {
        Client client;
        for (int n = 0; n < 300; n++)
            ASSERT_TRUE(client.set("nvram", ("key" + std::to_string(n)).c_str(), std::string(200, 'v')));
    }
    const uintmax_t size = std::filesystem::file_size(path(nvram_file));
    ASSERT_GT(size, 40960u);
    spoil(path(nvram_file), (size / 4096 - 3) * 4096);
    const std::string before = contents(path(nvram_file));
    Client client;
    EXPECT_FALSE(client.set("nvram", "key1", "new"));
    EXPECT_TRUE(log.has(NARO_LOG_ERR, "[vardex] nvram: cannot set \"key1\": /mnt/nvram/naro/vardex.db: is "
                                      "damaged, and is only read from\n"));
    int readable = 0;
    for (int n = 0; n < 300; n++)
        readable += stored("nvram", ("key" + std::to_string(n)).c_str()) == std::string(200, 'v');
    EXPECT_GT(readable, 100);
    EXPECT_LT(readable, 300);
    EXPECT_TRUE(client.set("mem", "k", "v"));
    client.close();
    EXPECT_TRUE(contents(path(nvram_file)) == before);
}

TEST_F(StoreTest, a_store_that_is_spoilt_while_in_use_is_noticed_and_left)
{
    LogCapture log;
    Client client;
    ASSERT_NE(client.follow("nvram", "wdr"), 0u);
    ASSERT_TRUE(client.set("nvram", "wdr", "on"));
    const std::string garbage(20000, 'g');
    {
        std::ofstream out(path(nvram_file), std::ios::binary | std::ios::in | std::ios::out);
        out << garbage;
    }
    const std::string before = contents(path(nvram_file));
    for (int n = 0; n < 100; n++)
        EXPECT_FALSE(client.set("nvram", "wdr", "off"));
    EXPECT_EQ(libvardex_xhandle_response(client.h), 1);
    libvardex_timeout_process(client.h);
    client.close();
    EXPECT_TRUE(contents(path(nvram_file)) == before);
    EXPECT_TRUE(log.has(
        NARO_LOG_WARNING,
        "[vardex] nvram: while in use, /mnt/nvram/naro/vardex.db is no settings store; it is opened anew\n"));
}

TEST_F(StoreTest, a_store_that_is_cut_off_while_in_use_does_not_end_the_process)
{
    LogCapture log;
    Client client;
    ASSERT_NE(client.follow("nvram", "wdr"), 0u);
    ASSERT_TRUE(client.set("nvram", "wdr", "on"));
    for (const char *suffix : {"-shm", "-wal", ""}) {
        std::ofstream(path(nvram_file) + suffix, std::ios::trunc).flush();
        client.set("nvram", "wdr", "off");
        stored("nvram", "wdr");
        libvardex_xhandle_response(client.h);
        libvardex_timeout_process(client.h);
    }
    EXPECT_TRUE(client.set("mem", "k", "v"));
}

TEST_F(StoreTest, a_removed_store_begins_anew_and_its_listeners_stay)
{
    LogCapture log;
    for (const char *what : {"/mnt/nvram/naro", "/mnt/nvram/naro/vardex.db"}) {
        Client client, writer;
        ASSERT_NE(client.follow("nvram", "wdr"), 0u);
        ASSERT_TRUE(writer.set("nvram", "wdr", "1"));
        ASSERT_TRUE(client.pump_now());
        log.clear();
        std::filesystem::remove_all(path(what));
        EXPECT_EQ(stored("nvram", "wdr"), "(null)");
        EXPECT_EQ(log.texts(NARO_LOG_WARNING),
                  std::vector<std::string>{"[vardex] nvram: while in use, /mnt/nvram/naro/vardex.db was "
                                           "removed or replaced; it is opened anew\n"});
        ASSERT_TRUE(writer.set("nvram", "wdr", "2"));
        EXPECT_EQ(stored("nvram", "wdr"), "2");
        EXPECT_TRUE(std::filesystem::exists(path(nvram_file)));
        libvardex_timeout_process(client.h);
        EXPECT_TRUE(client.pump_now());
        ASSERT_TRUE(writer.set("nvram", "wdr", "3"));
        EXPECT_TRUE(client.pump_now());
        EXPECT_EQ(client.told, (std::vector<Told>{{"wdr", "1"}, {"wdr", "2"}, {"wdr", "3"}})) << what;
    }
}

TEST_F(StoreTest, a_replaced_store_is_the_store)
{
    LogCapture log;
    Client client;
    ASSERT_NE(client.follow("nvram", "wdr"), 0u);
    ASSERT_TRUE(client.set("nvram", "wdr", "1"));
    ASSERT_TRUE(client.pump_now());
    // Made elsewhere, by another process.
    Peer other([](Peer::Line &line) { line.say("made"); });
    other.line.hear();
    {
        const Database current(path(nvram_file));
        current.run("VACUUM INTO '" + path("/mnt/copy.db") + "'");
    }
    Database(path("/mnt/copy.db"))
        .run("PRAGMA journal_mode=WAL; UPDATE about SET identity = random();"
             "DELETE FROM mailbox; DELETE FROM subscription; UPDATE value SET text = CAST('2' AS BLOB)");
    std::filesystem::rename(path("/mnt/copy.db"), path(nvram_file));
    std::filesystem::remove(path(nvram_file) + "-wal");
    std::filesystem::remove(path(nvram_file) + "-shm");
    EXPECT_EQ(stored("nvram", "wdr"), "2");
    libvardex_timeout_process(client.h);
    EXPECT_TRUE(client.pump_now()) << "its values are news";
    EXPECT_EQ(client.told.back().second, "2");
}

// Pieces that need another user: root may write whatever the permissions say.
bool can_change_user()
{
    return geteuid() == 0;
}

void become_nobody()
{
    if (setgid(65534) != 0 || setuid(65534) != 0)
        _exit(9);
}

TEST_F(StoreTest, a_read_only_store_is_read)
{
    for (const bool folder_too : {false, true}) {
        Peer maker([](Peer::Line &line) {
            Client client;
            client.set("nvram", "wdr", "on");
            client.set("mem", "k", "v");
            client.close();
            line.say("made");
        });
        ASSERT_EQ(maker.line.hear(), "made");
        maker.end(0);
        chmod(root().c_str(), 0755);
        chmod(path("/run/naro").c_str(), 0777);
        chmod(path("/run/naro/vardex").c_str(), 0777);
        chmod(path(nvram_file).c_str(), 0444);
        chmod(path("/mnt/nvram/naro").c_str(), folder_too ? 0555 : 0777);
        const std::string before = contents(path(nvram_file));
        const ChildResult child = in_child([] {
            if (can_change_user())
                become_nobody();
            Client client;
            const bool followed = client.follow("nvram", "wdr") != 0;
            const bool set = client.set("nvram", "wdr", "off");
            libvardex_timeout_process(client.h);
            printf("%s %d %d %d", stored("nvram", "wdr").c_str(), followed, set,
                   libvardex_xhandle_response(client.h));
            client.close();
        });
        EXPECT_EQ(child.status, 0);
        EXPECT_EQ(child.out, "on 1 0 1") << child.err;
        EXPECT_NE(child.err.find("[vardex] nvram: cannot "), std::string::npos);
        EXPECT_TRUE(contents(path(nvram_file)) == before);
        chmod(path("/mnt/nvram/naro").c_str(), 0777);
    }
}

TEST_F(StoreTest, a_folder_that_cannot_be_made_is_told)
{
    LogCapture log;
    std::ofstream(path("/mnt/nvram")) << "no folder";
    Client client;
    EXPECT_FALSE(client.set("nvram", "wdr", "on"));
    EXPECT_EQ(
        log.texts(NARO_LOG_ERR),
        std::vector<std::string>{"[vardex] nvram: cannot set \"wdr\": /mnt/nvram/naro/vardex.db: its folder "
                                 "cannot be made (Not a directory)\n"});
    EXPECT_TRUE(client.set("mem", "k", "v"));
}

TEST_F(StoreTest, a_full_disk_refuses_and_keeps_what_is_there)
{
    const ChildResult child = in_child([] {
        signal(SIGXFSZ, SIG_IGN);
        Client client;
        if (!client.set("nvram", "wdr", "on") || !client.set("nvram", "big", "small"))
            _exit(5);
        rlimit limit = {};
        getrlimit(RLIMIT_FSIZE, &limit);
        const rlim_t before = limit.rlim_cur;
        limit.rlim_cur = std::filesystem::file_size(path(nvram_file) + "-wal") + 100;
        setrlimit(RLIMIT_FSIZE, &limit);
        const bool set = client.set("nvram", "big", std::string(50000, 'b'));
        const std::string now = stored("nvram", "big") + stored("nvram", "wdr");
        limit.rlim_cur = before;
        setrlimit(RLIMIT_FSIZE, &limit);
        const bool again = client.set("nvram", "big", "after");
        printf("%d %s %d %s", set, now.c_str(), again, stored("nvram", "big").c_str());
    });
    EXPECT_EQ(child.status, 0);
    EXPECT_EQ(child.out, "0 smallon 1 after") << child.err;
    EXPECT_NE(
        child.err.find("[vardex] nvram: cannot set \"big\": /mnt/nvram/naro/vardex.db: disk I/O error (File "
                       "too large)"),
        std::string::npos)
        << child.err;
}

TEST_F(StoreTest, a_store_that_has_grown_to_its_bound_refuses_and_goes_on)
{
    LogCapture log;
    Client client;
    const std::string big(VARDEX_VALUE_MAX, 'b');
    int taken = 0;
    while (taken < 1000 && client.set("mem", ("key" + std::to_string(taken)).c_str(), big))
        taken++;
    EXPECT_GT(taken, 100);
    EXPECT_LT(taken, 300);
    EXPECT_EQ(log.texts(NARO_LOG_ERR).size(), 1u);
    EXPECT_EQ(stored("mem", "key1"), big);
    EXPECT_FALSE(client.set("mem", "one more", big));
    EXPECT_TRUE(client.set("nvram", "wdr", "on"));
}

TEST_F(StoreTest, descriptors_and_sockets_are_given_back)
{
    const auto count = [] {
        size_t result = 0;
        for (const auto &entry : std::filesystem::directory_iterator("/proc/self/fd"))
            result += !entry.path().empty();
        return result;
    };
    {
        Client first;
        ASSERT_TRUE(first.set("mem", "k", "v"));
    }
    const size_t before = count();
    for (int n = 0; n < 5; n++) {
        Client client;
        ASSERT_NE(client.follow("nvram", "wdr"), 0u);
        ASSERT_TRUE(client.set("nvram", "wdr", "on"));
        client.pump_now();
        EXPECT_GT(count(), before);
    }
    EXPECT_EQ(stored("nvram", "wdr"), "on");
    EXPECT_EQ(count(), before);
    EXPECT_TRUE(std::filesystem::is_empty(path("/run/naro/vardex")));
}

} // namespace
