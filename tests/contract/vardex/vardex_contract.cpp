// What any configuration client must do, seen through its public header.
#include <atomic>
#include <pthread.h>
#include <stdint.h>
#include <string.h>
#include <thread>

#include "client_fixture.h"
#include "log_capture.h"

namespace
{

const std::string early_root = scratch_root();

std::vector<Told> all(const char *key, const std::vector<std::string> &values)
{
    std::vector<Told> result;
    for (const std::string &value : values)
        result.push_back({key, value});
    return result;
}

TEST_F(SettingsTest, a_value_is_kept_in_its_layer_group_and_key)
{
    Client client;
    ASSERT_NE(client.h, nullptr);
    EXPECT_TRUE(client.set("nvram", "wdr", "on"));
    EXPECT_TRUE(client.set("mem", "wdr", "off"));
    EXPECT_TRUE(client.set("nvram", "wdr", "other", "group"));
    EXPECT_EQ(stored("nvram", "wdr"), "on");
    EXPECT_EQ(stored("nvram", "wdr", "default"), "on");
    EXPECT_EQ(stored("mem", "wdr"), "off");
    EXPECT_EQ(stored("nvram", "wdr", "group"), "other");
    EXPECT_EQ(stored("mem", "wdr", "group"), "(null)");
    EXPECT_EQ(stored("nvram", "wd"), "(null)");
    EXPECT_TRUE(client.set("nvram", "wdr", "off"));
    EXPECT_EQ(stored("nvram", "wdr"), "off");
}

TEST_F(SettingsTest, values_outlast_their_writer)
{
    {
        Client client;
        ASSERT_TRUE(client.set("nvram", "night_mode", "5"));
        ASSERT_TRUE(client.set("mem", "track_switch", "on"));
    }
    EXPECT_EQ(stored("nvram", "night_mode"), "5");
    EXPECT_EQ(stored("mem", "track_switch"), "on");
}

TEST_F(SettingsTest, numbers_are_read_at_any_alignment_and_stored_in_decimal)
{
    Client client;
    char bytes[16];
    const int32_t small = INT32_MIN;
    const uint64_t large = UINT64_MAX;
    memcpy(bytes + 1, &small, sizeof small);
    EXPECT_EQ(libvardex_set_value(client.h, "mem", nullptr, "a", VARDEX_INT32, bytes + 1, 0, 0, 0, 0), 1);
    memcpy(bytes + 1, &large, sizeof large);
    EXPECT_EQ(libvardex_set_value(client.h, "mem", nullptr, "b", VARDEX_UINT64, bytes + 1, 0, 0, 0, 0), 1);
    EXPECT_EQ(stored("mem", "a"), "-2147483648");
    EXPECT_EQ(stored("mem", "b"), "18446744073709551615");
}

TEST_F(SettingsTest, a_text_may_hold_any_bytes)
{
    std::string every;
    for (int byte = 1; byte < 256; byte++)
        every += static_cast<char>(byte);
    Client client;
    ASSERT_NE(client.follow("nvram", "k"), 0u);
    for (const std::string &value :
         {every, std::string(), std::string("\xff\xfe"), std::string("'; DROP TABLE value; --")}) {
        EXPECT_TRUE(client.set("nvram", "k", value));
        EXPECT_EQ(stored("nvram", "k"), value);
        client.told.clear();
        ASSERT_TRUE(client.pump_until([&] { return client.told.size() == 1; }));
        EXPECT_EQ(client.told[0].second, value);
    }
    EXPECT_TRUE(client.set("nvram", every.substr(0, 127).c_str(), "odd key", every.substr(127, 127).c_str()));
    EXPECT_EQ(stored("nvram", every.substr(0, 127).c_str(), every.substr(127, 127).c_str()), "odd key");
}

TEST_F(SettingsTest, the_longest_are_taken_and_longer_ones_refused)
{
    LogCapture log;
    Client client;
    const std::string name(VARDEX_NAME_MAX, 'n'), value(VARDEX_VALUE_MAX, 'v');
    EXPECT_TRUE(client.set("mem", name.c_str(), value, name.c_str()));
    EXPECT_EQ(stored("mem", name.c_str(), name.c_str()), value);
    EXPECT_TRUE(log.texts().empty());
    EXPECT_FALSE(client.set("mem", (name + "n").c_str(), "v"));
    EXPECT_FALSE(client.set("mem", "k", "v", (name + "n").c_str()));
    EXPECT_FALSE(client.set("mem", "k", value + "v"));
    EXPECT_FALSE(client.set("mem", "", "v"));
    EXPECT_FALSE(client.set("mem", "k", "v", ""));
    EXPECT_FALSE(client.set("flash", "k", "v"));
    EXPECT_FALSE(client.set(nullptr, "k", "v"));
    EXPECT_FALSE(client.set("mem", nullptr, "v"));
    EXPECT_EQ(log.texts(NARO_LOG_ERR).size(), 8u);
    EXPECT_EQ(libvardex_set_value(client.h, "mem", nullptr, "k", VARDEX_TEXT, nullptr, 0, 0, 0, 0), 0);
    EXPECT_EQ(libvardex_set_value(client.h, "mem", nullptr, "k", 3, "v", 0, 0, 0, 0), 0);
    EXPECT_EQ(libvardex_set_value(nullptr, "mem", nullptr, "k", VARDEX_TEXT, "v", 0, 0, 0, 0), 0);
    EXPECT_EQ(log.texts(NARO_LOG_ERR).size(), 11u);
    EXPECT_EQ(stored("mem", "k"), "(null)");
}

TEST_F(SettingsTest, every_set_is_told_in_order_also_to_its_own_process_also_unchanged)
{
    Client client;
    ASSERT_NE(client.follow("nvram", "wdr"), 0u);
    ASSERT_NE(client.follow("mem", "track_switch"), 0u);
    const int fd = libvardex_client_fd(client.h);
    EXPECT_FALSE(is_readable(fd));
    ASSERT_TRUE(client.set("nvram", "wdr", "on"));
    ASSERT_TRUE(client.set("mem", "track_switch", "on"));
    ASSERT_TRUE(client.set("nvram", "wdr", "on"));
    ASSERT_TRUE(client.set("nvram", "not followed", "on"));
    ASSERT_TRUE(client.set("mem", "wdr", "on"));        // another layer
    ASSERT_TRUE(client.set("nvram", "wdr", "on", "g")); // another group
    ASSERT_TRUE(client.set("mem", "track_switch", "off"));
    ASSERT_TRUE(client.set("nvram", "wdr", "off"));
    EXPECT_TRUE(client.told.empty()) << "callbacks belong to the thread that pumps";
    EXPECT_TRUE(is_readable(fd));
    client.pump_now();
    EXPECT_EQ(
        client.told,
        (std::vector<Told>{
            {"wdr", "on"}, {"track_switch", "on"}, {"wdr", "on"}, {"track_switch", "off"}, {"wdr", "off"}}));
    EXPECT_FALSE(is_readable(fd));
    EXPECT_EQ(libvardex_client_fd(client.h), fd);
}

TEST_F(SettingsTest, registering_delivers_nothing)
{
    Client writer;
    ASSERT_TRUE(writer.set("nvram", "wdr", "on"));
    Client client;
    ASSERT_NE(client.follow("nvram", "wdr"), 0u);
    ASSERT_TRUE(writer.set("nvram", "motion_region", "1")); // not followed yet
    ASSERT_NE(client.follow("nvram", "motion_region"), 0u);
    EXPECT_FALSE(client.pump_now());
    libvardex_timeout_process(client.h);
    EXPECT_FALSE(client.pump_now());
    ASSERT_TRUE(writer.set("nvram", "motion_region", "2"));
    EXPECT_TRUE(client.pump_now());
    EXPECT_EQ(client.told, (std::vector<Told>{{"motion_region", "2"}}));
    EXPECT_EQ(client.timeouts, 0u);
}

TEST_F(SettingsTest, other_processes_are_told)
{
    Peer listener([](Peer::Line &line) {
        Client client;
        client.follow("nvram", "wdr");
        client.follow("mem", "alarm_event");
        line.say("ready");
        client.pump_until([&] { return client.told.size() == 4; });
        for (const Told &told : client.told)
            line.say(told.first + "=" + told.second);
    });
    ASSERT_EQ(listener.line.hear(), "ready");
    Client writer;
    ASSERT_TRUE(writer.set("nvram", "wdr", "on"));
    ASSERT_TRUE(writer.set("mem", "alarm_event", "1-2-3"));
    ASSERT_TRUE(writer.set("nvram", "wdr", "off"));
    ASSERT_TRUE(writer.set("mem", "alarm_event", "1-2-3"));
    EXPECT_EQ(listener.line.hear(), "wdr=on");
    EXPECT_EQ(listener.line.hear(), "alarm_event=1-2-3");
    EXPECT_EQ(listener.line.hear(), "wdr=off");
    EXPECT_EQ(listener.line.hear(), "alarm_event=1-2-3");
}

TEST_F(SettingsTest, both_layers_have_one_order)
{
    const int sets = 300;
    Peer writer([](Peer::Line &line) {
        line.hear();
        Client client;
        for (int n = 0; n < sets; n++)
            if (!client.set(n % 3 == 0 ? "nvram" : "mem", "k", std::to_string(n)))
                _exit(4);
        line.say("done");
    });
    Client client;
    ASSERT_NE(client.follow("mem", "k"), 0u);
    ASSERT_NE(client.follow("nvram", "k"), 0u);
    writer.line.say("begin");
    ASSERT_TRUE(client.pump_until([&] { return client.told.size() == static_cast<size_t>(sets); }));
    for (int n = 0; n < sets; n++)
        ASSERT_EQ(client.told[static_cast<size_t>(n)].second, std::to_string(n));
    EXPECT_EQ(writer.line.hear(), "done");
}

TEST_F(SettingsTest, what_was_set_before_handle_other_is_forgotten)
{
    Client client;
    ASSERT_NE(client.follow("mem", "k"), 0u);
    ASSERT_TRUE(client.set("mem", "k", "old"));
    libvardex_handle_other(client.h);
    EXPECT_FALSE(client.pump_now());
    ASSERT_TRUE(client.set("mem", "k", "new"));
    EXPECT_TRUE(client.pump_now());
    EXPECT_EQ(client.told, all("k", {"new"}));
}

TEST_F(SettingsTest, unregistering_wants_all_four_to_match)
{
    Client client;
    const uint64_t one = client.follow("nvram", "wdr"), two = client.follow("nvram", "wdr", "g");
    ASSERT_NE(one, 0u);
    ASSERT_NE(two, one);
    EXPECT_FALSE(client.forget("mem", "wdr", one));
    EXPECT_FALSE(client.forget("nvram", "wd", one));
    EXPECT_FALSE(client.forget("nvram", "wdr", two));
    EXPECT_FALSE(client.forget("nvram", "wdr", one, "g"));
    EXPECT_FALSE(client.forget("nvram", "wdr", 0));
    EXPECT_EQ(libvardex_unregister_notification(client.h, nullptr, nullptr, "wdr", one, 0, 0, 0, 0), 0);
    EXPECT_EQ(libvardex_unregister_notification(client.h, "nvram", nullptr, nullptr, one, 0, 0, 0, 0), 0);
    EXPECT_EQ(libvardex_unregister_notification(nullptr, "nvram", nullptr, "wdr", one, 0, 0, 0, 0), 0);
    ASSERT_TRUE(client.set("nvram", "wdr", "on"));
    EXPECT_TRUE(client.pump_now()) << "none of these was one";
    ASSERT_TRUE(client.set("nvram", "wdr", "off"));
    EXPECT_TRUE(client.forget("nvram", "wdr", one, "default"));
    EXPECT_FALSE(client.pump_now()) << "also what was waiting is not told";
    EXPECT_FALSE(client.forget("nvram", "wdr", one));
    ASSERT_TRUE(client.set("nvram", "wdr", "on", "g"));
    EXPECT_TRUE(client.pump_now());
    EXPECT_TRUE(client.forget("nvram", "wdr", two, "g"));
}

TEST_F(SettingsTest, two_registrations_of_a_key_are_both_told)
{
    Client client;
    const uint64_t one = client.follow("mem", "k"), two = client.follow("mem", "k");
    ASSERT_NE(one, two);
    ASSERT_TRUE(client.set("mem", "k", "v"));
    client.pump_now();
    EXPECT_EQ(client.told, all("k", {"v", "v"}));
    EXPECT_TRUE(client.forget("mem", "k", one));
    ASSERT_TRUE(client.set("mem", "k", "w"));
    client.pump_now();
    EXPECT_EQ(client.told, all("k", {"v", "v", "w"}));
}

TEST_F(SettingsTest, bad_registrations_are_refused_and_leave_the_id_alone)
{
    LogCapture log;
    Client client;
    uint64_t id = 77;
    const libvardex_callback cb = [](void *, void *) { return 0; };
    EXPECT_EQ(libvardex_register_notification(nullptr, "mem", nullptr, "k", &id, cb, cb, 0, 0), 0);
    EXPECT_EQ(libvardex_register_notification(client.h, "flash", nullptr, "k", &id, cb, cb, 0, 0), 0);
    EXPECT_EQ(libvardex_register_notification(client.h, nullptr, nullptr, "k", &id, cb, cb, 0, 0), 0);
    EXPECT_EQ(libvardex_register_notification(client.h, "mem", "", "k", &id, cb, cb, 0, 0), 0);
    EXPECT_EQ(libvardex_register_notification(client.h, "mem", nullptr, "", &id, cb, cb, 0, 0), 0);
    EXPECT_EQ(libvardex_register_notification(client.h, "mem", nullptr, nullptr, &id, cb, cb, 0, 0), 0);
    EXPECT_EQ(libvardex_register_notification(client.h, "mem", nullptr, "k", nullptr, cb, cb, 0, 0), 0);
    EXPECT_EQ(libvardex_register_notification(client.h, "mem", nullptr, "k", &id, nullptr, cb, 0, 0), 0);
    EXPECT_EQ(id, 77u);
    EXPECT_EQ(log.texts(NARO_LOG_ERR).size(), 8u);
    EXPECT_EQ(libvardex_register_notification(client.h, "mem", nullptr, "k", &id, cb, nullptr, 0, 0), 1);
    EXPECT_NE(id, 77u);
}

TEST_F(SettingsTest, a_callback_may_read_set_register_and_unregister)
{
    Client client;
    const uint64_t id = client.follow("mem", "a");
    ASSERT_NE(client.follow("nvram", "b"), 0u);
    std::string seen;
    client.on_told = [&](const Told &told) {
        if (told.first == "a") {
            seen = stored("mem", "a") + stored("nvram", "b");
            EXPECT_TRUE(client.set("nvram", "b", "from the callback"));
            EXPECT_NE(client.follow("mem", "c"), 0u);
            EXPECT_TRUE(client.set("mem", "c", "new"));
            EXPECT_TRUE(client.forget("mem", "a", id));
            EXPECT_EQ(libvardex_xhandle_response(client.h), 1) << "pumping inside does nothing";
            libvardex_timeout_process(client.h);
            EXPECT_EQ(client.told.size(), 1u);
        }
    };
    ASSERT_TRUE(client.set("mem", "a", "1"));
    ASSERT_TRUE(client.set("mem", "a", "2"));
    ASSERT_TRUE(client.pump_until([&] { return client.told.size() == 3; }));
    EXPECT_EQ(seen, "2(null)") << "a get tells what is stored now";
    EXPECT_EQ(client.told, (std::vector<Told>{{"a", "1"}, {"b", "from the callback"}, {"c", "new"}}));
    EXPECT_FALSE(client.pump_now());
}

TEST_F(SettingsTest, a_callback_may_close_its_handle)
{
    void *h = libvardex_config_open(0);
    uint64_t id = 0;
    static int told = 0;
    const libvardex_callback cb = [](void *, void *context) {
        told++;
        libvardex_close(context);
        return 0;
    };
    ASSERT_EQ(libvardex_register_notification(h, "mem", nullptr, "k", &id, cb, cb, 0, 0), 1);
    ASSERT_EQ(libvardex_set_value(h, "mem", nullptr, "k", VARDEX_TEXT, "1", 0, 0, 0, 0), 1);
    ASSERT_EQ(libvardex_set_value(h, "mem", nullptr, "k", VARDEX_TEXT, "2", 0, 0, 0, 0), 1);
    EXPECT_EQ(libvardex_xhandle_response(h), 1);
    EXPECT_EQ(told, 1);
}

TEST_F(SettingsTest, responses_are_copied_out_as_often_as_wanted)
{
    Client client;
    static int rounds = 0;
    uint64_t id = 0;
    const libvardex_callback cb = [](void *response, void *) {
        int status = 5;
        xpair *one = xresponse_parse(response, &status), *two = xresponse_parse(response, nullptr);
        EXPECT_EQ(status, 0);
        EXPECT_STREQ(one->key, "k");
        EXPECT_STREQ(one->value, "v");
        EXPECT_NE(one->value, two->value);
        xpair_basefree(one);
        EXPECT_STREQ(two->value, "v");
        xpair_basefree(two);
        xdata *data = xcontrol_get_response(response);
        char *text = xdata_value_as_char(data);
        EXPECT_STREQ(text, "v");
        xdata_free(data);
        EXPECT_STREQ(text, "v") << "the text is the caller's";
        free(text);
        rounds++;
        return -1; // of no effect
    };
    ASSERT_EQ(libvardex_register_notification(client.h, "mem", nullptr, "k", &id, cb, cb, 0, 0), 1);
    ASSERT_TRUE(client.set("mem", "k", "v"));
    client.pump_now();
    EXPECT_EQ(rounds, 1);
}

TEST_F(SettingsTest, null_is_fine)
{
    int status = 0;
    EXPECT_EQ(xresponse_parse(nullptr, &status), nullptr);
    EXPECT_NE(status, 0);
    EXPECT_EQ(xresponse_parse(nullptr, nullptr), nullptr);
    xpair_basefree(nullptr);
    EXPECT_EQ(xcontrol_get_response(nullptr), nullptr);
    EXPECT_EQ(xdata_value_as_char(nullptr), nullptr);
    xdata_free(nullptr);
    libvardex_close(nullptr);
    libvardex_handle_other(nullptr);
    libvardex_timeout_process(nullptr);
    EXPECT_EQ(libvardex_client_fd(nullptr), -1);
    EXPECT_EQ(libvardex_xhandle_response(nullptr), 0);
    LogCapture log;
    EXPECT_EQ(libvardex_config_get(0, nullptr, nullptr, "k"), nullptr);
    EXPECT_EQ(libvardex_config_get(0, "mem", nullptr, nullptr), nullptr);
}

TEST_F(SettingsTest, up_to_1024_wait_whole)
{
    LogCapture log;
    Client client;
    ASSERT_NE(client.follow("mem", "k"), 0u);
    std::vector<std::string> values;
    for (int n = 0; n < 1024; n++) {
        values.push_back(std::to_string(n));
        ASSERT_TRUE(client.set("mem", "k", values.back()));
    }
    client.pump_now();
    EXPECT_EQ(client.told, all("k", values));
    EXPECT_TRUE(log.texts().empty());
}

TEST_F(SettingsTest, beyond_1024_older_values_are_left_out_with_one_line_but_no_alarm)
{
    LogCapture log;
    Client client;
    ASSERT_NE(client.follow("mem", "k"), 0u);
    ASSERT_NE(client.follow("mem", "once"), 0u);
    ASSERT_NE(client.follow("mem", "alarm_event"), 0u);
    ASSERT_TRUE(client.set("mem", "once", "early"));
    ASSERT_TRUE(client.set("mem", "k", "first"));
    for (int n = 0; n < 3000; n++)
        ASSERT_TRUE(client.set("mem", "alarm_event", std::to_string(n)));
    for (int n = 0; n < 500; n++)
        ASSERT_TRUE(client.set("mem", "k", std::to_string(n)));
    client.pump_now();
    std::vector<Told> expected = {{"once", "early"}};
    for (int n = 0; n < 3000; n++)
        expected.push_back({"alarm_event", std::to_string(n)});
    for (int n = 0; n < 500; n++)
        expected.push_back({"k", std::to_string(n)});
    EXPECT_EQ(client.told, expected);
    EXPECT_EQ(log.texts().size(), 1u);
}

TEST_F(SettingsTest, any_thread_may_set_while_one_pumps)
{
    Client client;
    ASSERT_NE(client.follow("mem", "a"), 0u);
    ASSERT_NE(client.follow("mem", "b"), 0u);
    std::atomic<int> failed{0};
    const auto write = [&](const char *key) {
        for (int n = 0; n < 200; n++) {
            failed += !client.set("mem", key, std::to_string(n));
            failed += stored("mem", key) != std::to_string(n);
        }
    };
    std::thread one(write, "a"), two(write, "b");
    EXPECT_TRUE(client.pump_until([&] { return client.told.size() == 400; }));
    one.join();
    two.join();
    EXPECT_EQ(failed, 0);
    int next[2] = {0, 0};
    for (const Told &told : client.told)
        EXPECT_EQ(told.second, std::to_string(next[told.first == "b"]++));
}

// A thread that is cancelled in the middle of sets takes no lock and no half of a set with it.
TEST_F(SettingsTest, a_cancelled_thread_leaves_the_client_whole)
{
    Client client;
    for (int round = 0; round < 20; round++) {
        std::atomic<int> done{0};
        struct part {
            Client *client;
            std::atomic<int> *done;
        } own = {&client, &done};
        pthread_t thread;
        ASSERT_EQ(pthread_create(
                      &thread, nullptr,
                      [](void *context) -> void * {
                          const part *self = static_cast<part *>(context);
                          for (;;) {
                              self->client->set("mem", "k", "v");
                              ++*self->done;
                              pthread_testcancel();
                          }
                      },
                      &own),
                  0);
        while (done < 1 + round % 3)
            std::this_thread::yield();
        pthread_cancel(thread);
        pthread_join(thread, nullptr);
        ASSERT_TRUE(client.set("mem", "k", "w"));
        ASSERT_EQ(stored("mem", "k"), "w");
    }
}

} // namespace
