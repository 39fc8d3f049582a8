// Our own configuration client in trouble: locked, full, read-only, damaged, removed and foreign files.
#include <math.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include "fake_clock.h"
#include "in_child.h"
#include "log_capture.h"
#include "store_fixture.h"

namespace
{

const std::string early_root = scratch_root();

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
