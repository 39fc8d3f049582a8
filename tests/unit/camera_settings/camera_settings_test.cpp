// The settings around a start of the daemon, through the real store: this process plays the daemon, too.
#include "settings.h"

#include <errno.h>
#include <ev.h>
#include <stdlib.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include <gmock/gmock.h>

#include "isolate.h"
#include "libvardex.h"
#include "log_capture.h"
#include "naro_util.h"
#include "setting_keys.h"
#include "vardex_admin.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace
{

using Texts = std::vector<std::string>;

const std::string root = scratch_root();

struct {
    struct ev_loop *loop;
    int ready;
    Texts heard; // "key value", as the daemon was told
} world;

int on_change(void *response, void *)
{
    xpair *pair = xresponse_parse(response, nullptr);
    world.heard.push_back(std::string(pair->key) + " " + pair->value);
    xpair_basefree(pair);
    return 0;
}

// Follows the settings as the daemon does.
class Daemon
{
  public:
    explicit Daemon(const Texts &keys) : handle(libvardex_config_open(0))
    {
        for (const std::string &key : keys) {
            uint64_t id;
            libvardex_register_notification(handle, setting_layer(key.c_str()), nullptr, key.c_str(), &id,
                                            on_change, nullptr, 0, 0);
        }
    }
    ~Daemon() { libvardex_close(handle); }
    Daemon(const Daemon &) = delete;
    Daemon &operator=(const Daemon &) = delete;
    void pump() { libvardex_xhandle_response(handle); }

  private:
    void *handle;
};

const Texts followed = {"night_mode", "power", "people_sensitivity", "fav_area_rect"};

std::string stored(const char *key)
{
    char *value = libvardex_config_get(0, setting_layer(key), "default", key);
    const std::string text = value ? value : "(none)";
    free(value);
    return text;
}

void store(const char *key, const char *value)
{
    void *handle = libvardex_config_open(0);
    ASSERT_EQ(libvardex_set_value(handle, setting_layer(key), nullptr, key, VARDEX_TEXT, value, 0, 0, 0, 0),
              1);
    libvardex_close(handle);
}

class CameraSettings : public testing::Test
{
  protected:
    CameraSettings()
    {
        world.loop = ev_loop_new(EVFLAG_AUTO);
        wanted.program = program_invocation_short_name;
        wanted.on_ready = [] { world.ready++; };
    }
    ~CameraSettings() override
    {
        settings_stop();
        ev_loop_destroy(world.loop);
    }
    // Runs the loop until on_ready has been called `times` times in all; how long it took.
    uint64_t run_until_ready(int times = 1)
    {
        const uint64_t begin = naro_clock_monotonic_ms();
        while (world.ready < times && naro_clock_monotonic_ms() < begin + 20000 &&
               ev_run(world.loop, EVRUN_ONCE)) {
        }
        EXPECT_EQ(world.ready, times);
        return naro_clock_monotonic_ms() - begin;
    }
    LogCapture log;
    settings_wanted wanted = {};
};

TEST_F(CameraSettings, BootEmptiesMemAndLeavesNvram)
{
    store("people_sensitivity", "5");
    store("night_mode", "2");
    ASSERT_EQ(settings_start(world.loop, &wanted), 0);
    EXPECT_EQ(stored("people_sensitivity"), "(none)");
    EXPECT_EQ(stored("night_mode"), "2");
    EXPECT_EQ(stored("power"), "(none)") << "not before the daemon";
}

TEST_F(CameraSettings, ValuesAreThereBeforeTheDaemonAndInTheirLayers)
{
    wanted.values = {{"night_mode", "3"}, {"people_sensitivity", "4"}};
    ASSERT_EQ(settings_start(world.loop, &wanted), 0);
    EXPECT_EQ(stored("night_mode"), "3");
    EXPECT_EQ(stored("people_sensitivity"), "4");
    EXPECT_EQ(world.ready, 0);
}

TEST_F(CameraSettings, DaemonIsToldEverythingInOrderAndPowerLast)
{
    wanted.values = {{"people_sensitivity", "4"}, {"night_mode", "3"}, {"people_sensitivity", "2"}};
    ASSERT_EQ(settings_start(world.loop, &wanted), 0);
    Daemon daemon(followed);
    settings_on_client();
    EXPECT_LT(run_until_ready(), SETTINGS_PATIENCE_MS);
    daemon.pump();
    EXPECT_THAT(world.heard,
                ElementsAre("people_sensitivity 4", "night_mode 3", "people_sensitivity 2", "power on"));
}

TEST_F(CameraSettings, DaemonThatFollowsLaterIsWaitedFor)
{
    ASSERT_EQ(settings_start(world.loop, &wanted), 0);
    settings_on_client();
    ev_run(world.loop, EVRUN_ONCE);
    ev_run(world.loop, EVRUN_ONCE);
    EXPECT_EQ(world.ready, 0);
    Daemon halfway({"night_mode", "power"});
    ev_run(world.loop, EVRUN_ONCE);
    ev_run(world.loop, EVRUN_ONCE);
    EXPECT_EQ(world.ready, 0) << "it does not follow everything yet";
    Daemon daemon(followed);
    run_until_ready();
    daemon.pump();
    EXPECT_THAT(world.heard, ElementsAre("power on"));
}

TEST_F(CameraSettings, OneThatFollowsNothingIsReadyAfterItsTime)
{
    wanted.values = {{"night_mode", "3"}};
    ASSERT_EQ(settings_start(world.loop, &wanted), 0);
    settings_on_client();
    EXPECT_GE(run_until_ready(), SETTINGS_PATIENCE_MS);
    EXPECT_EQ(stored("power"), "(none)");
    // And is served all the same when it does, later.
    Daemon late(followed);
    const uint64_t end = naro_clock_monotonic_ms() + 10000;
    while (stored("power") != "on" && naro_clock_monotonic_ms() < end)
        ev_run(world.loop, EVRUN_ONCE);
    late.pump();
    EXPECT_THAT(world.heard, ElementsAre("night_mode 3", "power on"));
    EXPECT_EQ(world.ready, 1) << "once";
}

TEST_F(CameraSettings, OthersWhoFollowTheStoreAreNotTheDaemon)
{
    wanted.program = "naro_algo";
    ASSERT_EQ(settings_start(world.loop, &wanted), 0);
    Daemon watcher(followed);
    settings_on_client();
    EXPECT_GE(run_until_ready(), SETTINGS_PATIENCE_MS);
    EXPECT_EQ(stored("power"), "(none)");
}

TEST_F(CameraSettings, SameDaemonAgainIsReadyAtOnceAndNotServedTwice)
{
    ASSERT_EQ(settings_start(world.loop, &wanted), 0);
    Daemon daemon(followed);
    settings_on_client();
    run_until_ready();
    daemon.pump();
    world.heard.clear();
    settings_on_client(); // it has lost its connection, say
    EXPECT_LT(run_until_ready(2), SETTINGS_PATIENCE_MS);
    daemon.pump();
    EXPECT_THAT(world.heard, IsEmpty());
}

TEST_F(CameraSettings, SeveralClientsBeforeOneIsReady)
{
    ASSERT_EQ(settings_start(world.loop, &wanted), 0);
    settings_on_client();
    ev_run(world.loop, EVRUN_ONCE);
    settings_on_client();
    Daemon daemon(followed);
    run_until_ready();
    daemon.pump();
    EXPECT_THAT(world.heard, ElementsAre("power on"));
    EXPECT_FALSE(ev_run(world.loop, EVRUN_NOWAIT)) << "nothing is left to do";
    EXPECT_EQ(world.ready, 1);
}

TEST_F(CameraSettings, StoreThatRefusesIsToldAndTriedAgain)
{
    wanted.values = {{"people_sensitivity", "4"}, {"night_mode", "3"}};
    // Where nvram should be lies a plain file.
    const std::string mnt = root + "/mnt";
    FILE *in_the_way = fopen(mnt.c_str(), "w");
    ASSERT_NE(in_the_way, nullptr);
    fclose(in_the_way);
    ASSERT_EQ(settings_start(world.loop, &wanted), 0);
    Daemon daemon({"people_sensitivity", "fav_area_rect"});
    OutputCapture err(STDERR_FILENO);
    settings_on_client();
    EXPECT_GE(run_until_ready(), SETTINGS_STORE_PATIENCE_MS);
    EXPECT_NE(err.text().find("the settings store does not take \"night_mode\"; going on without\n"),
              std::string::npos);
    err.clear();
    ASSERT_EQ(unlink(mnt.c_str()), 0);
    ASSERT_EQ(mkdir(mnt.c_str(), 0755), 0);
    const uint64_t end = naro_clock_monotonic_ms() + 10000;
    while (stored("power") != "on" && naro_clock_monotonic_ms() < end)
        ev_run(world.loop, EVRUN_ONCE);
    EXPECT_EQ(stored("power"), "on");
    EXPECT_EQ(stored("night_mode"), "3");
    EXPECT_EQ(world.ready, 1);
    daemon.pump();
    EXPECT_THAT(world.heard, ElementsAre("people_sensitivity 4")) << "what was taken is not set again";
}

TEST_F(CameraSettings, KeyThatNobodyKnows)
{
    wanted.values = {{"night_mode", "3"}, {"nigth_mode", "3"}};
    OutputCapture err(STDERR_FILENO);
    EXPECT_EQ(settings_start(world.loop, &wanted), -1);
    EXPECT_NE(err.text().find("\"nigth_mode\" is no setting of a camera\n"), std::string::npos);
}

TEST_F(CameraSettings, WhatTheCameraSaysLaterIsStoredAtOnceAndWantedFromThenOn)
{
    wanted.values = {{"people_sensitivity", "4"}, {"night_mode", "3"}, {"people_sensitivity", "2"}};
    ASSERT_EQ(settings_start(world.loop, &wanted), 0);
    settings_put("people_sensitivity", "5");
    EXPECT_EQ(stored("people_sensitivity"), "5");
    settings_put("wdr", "on");
    EXPECT_EQ(stored("wdr"), "on");
    Daemon daemon({"night_mode", "power", "people_sensitivity", "wdr", "fav_area_rect"});
    settings_on_client();
    run_until_ready();
    daemon.pump();
    EXPECT_THAT(world.heard, ElementsAre("people_sensitivity 5", "night_mode 3", "people_sensitivity 2",
                                         "wdr on", "power on"));
}

TEST_F(CameraSettings, WithoutAStartNothingHappens)
{
    settings_on_client();
    settings_stop();
    EXPECT_EQ(world.ready, 0);
}

TEST(SettingKeys, AreInOrderAndHaveTheirLayers)
{
    for (size_t i = 1; i < SETTING_KEYS; i++)
        EXPECT_LT(std::string(setting_keys[i - 1].key), setting_keys[i].key);
    const Texts mem = {
        "track_switch",       "sdcard_rw",   "face_detect",          "baby_cry_detect", "human_detect",
        "people_sensitivity", "alarm_event", "people_region_detect", "fav_area_rect",   "track",
        "time_night"};
    const Texts nvram = {"motion_region", "night_mode", "full_color", "wdr", "hdr_switch", "power", "motor"};
    ASSERT_EQ(mem.size() + nvram.size(), static_cast<size_t>(SETTING_KEYS));
    for (const std::string &key : mem)
        EXPECT_STREQ(setting_layer(key.c_str()), "mem") << key;
    for (const std::string &key : nvram)
        EXPECT_STREQ(setting_layer(key.c_str()), "nvram") << key;
    for (const char *key : {"", "wdr_", "Wdr", "motion"})
        EXPECT_EQ(setting_layer(key), nullptr) << key;
}

} // namespace
