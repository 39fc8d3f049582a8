#!/usr/bin/env python3
"""The daemon and the settings store: what each setting does to the running daemon, as seen from outside; and a store
that is missing, damaged, locked or no store at all, with which the daemon lives. usage: settings.py BIN_DIR"""
import os
import sqlite3

from naro_system import *

MEM, NVRAM = "run/naro/vardex-mem.db", "mnt/nvram/naro/vardex.db"
IN_NVRAM = ("motion_region", "night_mode", "fullcolor", "wdr_mode", "power_mode", "motor")
IN_MEM = ("track_mode", "sdcard_rw", "AI_detect", "motor", "alarm_event", "fav_area")


class Acting(SystemTest):
    """Settings are set by hand (naro-config) and seen in the media server's commands, the board's files and the log."""

    def setUp(self):
        super().setUp()
        self.server = self.media_server()
        self.daemon = self.start("naro_algo")
        self.raw_stream()
        self.server.wait_for_requests(1)

    def set(self, key, value):
        """Sets, and waits until the daemon has been told: its lines from there on are after the returned mark."""
        mark = self.daemon.mark()
        self.assertEqual(self.start("naro-config", "set", key, value).wait(), 0)
        self.daemon.wait_for(f"[key={key}][value=", mark)
        return mark

    def commands(self, name):
        return [request for request in list(self.server.requests) if request.name == name]

    def expect_command(self, name, times=1):
        return until(lambda: len(self.commands(name)) >= times and self.commands(name)[-1], f"{name}, {times} times")

    def line(self, number):
        with open(f"{self.root}/sys/class/gpio/gpio{number}/value", encoding="ascii") as file:
            return file.read().strip()

    def test_detection(self):
        for key, value, line in (
                ("motion_region", "1", "mid_hchd_sensitivity_set mode  = 0"),
                ("motion_region", "60", "mid_hchd_sensitivity_set mode  = 1"),
                ("motion_region", "100", "mid_hchd_sensitivity_set mode  = 2"),
                ("people_sensitivity", "5", "mid_hchd_people_sensitivity_set mode  = 5"),
                ("people_region_detect", "0-0-5000-10000", "(x,y,w,h): 0-0-5000-10000"),
                ("people_region_detect", "0-0-5000-10000", "[set_mid_people_region 97] perople_region:[0-0-160-192]")):
            self.daemon.wait_for(line, self.set(key, value))
        self.server.wait_for_more_requests(3)
        self.assertEqual(self.daemon.errors(), [])

    def test_values_that_nobody_understands(self):
        for key, value in (("motion_region", "50"), ("motion_region", "a\nb"), ("night_mode", "x"), ("full_color", "ON"),
                           ("people_sensitivity", "6"), ("people_sensitivity", "x" * 60000)):
            mark = self.set(key, value)
            self.daemon.wait_for("is not understood, nothing changes", mark)
            self.daemon.wait_for_errors(1, mark)
            self.assertEqual(len(self.daemon.errors(mark)), 1, self.daemon.text())
        for key, word in (("wdr", "wdr_mode"), ("hdr_switch", "wdr_mode"), ("power", "power_mode"),
                          ("track_switch", "track_mode")):
            mark = self.set(key, '"on"')
            self.daemon.wait_for(f'] not support {word} = "on"', mark)
        self.server.wait_for_more_requests(3)
        self.assertEqual({request.name for request in self.server.requests}, {"naro_isp_track_run"})

    def test_wide_dynamic_range(self):
        self.set("wdr", "on")
        self.expect_command("naro_isp_wdr_enable")
        self.set("wdr", "off")
        self.expect_command("naro_isp_wdr_disable")

    def test_power_applies_what_is_stored_and_starts_day_and_night(self):
        self.set("night_mode", "2")
        self.daemon.wait_for("[ircut_mode_switch] ircut not inited")
        self.set("wdr", "on")
        self.expect_command("naro_isp_wdr_enable")
        mark = self.set("power", "on")
        self.daemon.wait_for("[sync_cb_motion_region] get faild: set motion region sensitive middle", mark)
        self.daemon.wait_for("[sync_cb_night_mode] night_mode = 2", mark)
        self.daemon.wait_for("[sync_cb_fullcolor] get faild: set fullcolor on", mark)
        self.expect_command("naro_isp_wdr_enable", 2)
        self.assertEqual(self.expect_command("naro_isp_daynight_mode_set").payload, b"\1\0\0\0")
        self.daemon.wait_for("[ircut_init]switch to ircut mode night", mark)
        self.set("night_mode", "1")
        self.assertEqual(self.expect_command("naro_isp_daynight_mode_set", 2).payload, bytes(4))
        self.server.wait_for_more_requests(3)

    def test_alarm_light(self):
        self.set("power", "on")
        self.daemon.wait_for("create ircut task...")
        self.set("alarm_event", "1-0-1")
        until(lambda: self.line(47) == "1", "the white LED lit")
        until(lambda: self.line(47) == "0", "and out after its second")

    def test_settings_change_while_everything_is_at_work(self):
        self.set("power", "on")
        self.daemon.wait_for("create ircut task...")
        settings = (("motion_region", "3"), ("people_sensitivity", "2"), ("people_region_detect", "0-0-10000-10000"),
                    ("night_mode", "3"), ("wdr", "on"), ("full_color", "off"), ("alarm_event", "1-1-1"))
        tools = [(self.start("naro-config", "set", key, value), key) for _ in range(8) for key, value in settings]
        taken = [key for tool, key in tools if tool.wait() == 0]  # a store that is busy for too long refuses
        self.assertGreater(len(taken), len(settings))
        for key, value in settings:
            if key in taken:
                self.daemon.wait_for(f"[key={key}][value={value}]", times=taken.count(key))
        self.server.wait_for_more_requests(3)
        self.assertEqual(self.daemon.stop(), 255)


class Damaged(SystemTest):
    def store_file(self, name):
        path = f"{self.root}/{name}"
        os.makedirs(os.path.dirname(path), exist_ok=True)
        return path

    def expect_it_lives(self):
        """Pictures are asked for, analysed and answered."""
        server = self.media_server()
        daemon = self.start("naro_algo")
        self.raw_stream()
        server.wait_for_requests(3)
        self.addCleanup(lambda: self.assertTrue(daemon.running() or daemon.wait() == 255, daemon.text()))
        self.server = server
        return daemon

    def expect_timeouts(self, daemon, names):
        """Subscriptions that the store cannot take are told of, after 3 s, by name."""
        for name in names:
            self.assertEqual(daemon.wait_for(f"[notify_timeout_cb_{name}]notify timeout.").level,
                             "err" if name == "fav_area" else "")

    def test_without_a_store_one_is_made(self):
        daemon = self.expect_it_lives()
        self.assertEqual(daemon.errors(), [])
        for name in (MEM, NVRAM):
            self.assertTrue(os.path.exists(f"{self.root}/{name}"))

    def damaged(self, names, content):
        for name in names:
            with open(self.store_file(name), "wb") as file:
                file.write(content)
        daemon = self.expect_it_lives()
        self.expect_timeouts(daemon, (IN_NVRAM if NVRAM in names else ()) + (IN_MEM if MEM in names else ()))
        self.server.wait_for_more_requests(3)
        self.assertTrue(daemon.errors())
        for name in names:
            with open(f"{self.root}/{name}", "rb") as file:
                self.assertEqual(file.read(), content, "what is not ours is not written over")
        if NVRAM not in names:
            self.assertEqual(daemon.found("[notify_timeout_cb_power_mode]"), [])
        if MEM not in names:
            self.assertEqual(daemon.found("[notify_timeout_cb_fav_area]"), [])
        self.assertEqual(daemon.stop(), 255)

    def test_lasting_settings_damaged(self):
        self.damaged([NVRAM], b"This is no store of settings. " * 1000)

    def test_volatile_settings_damaged(self):
        self.damaged([MEM], b"\x00\xff" * 4096)

    def test_both_damaged(self):
        self.damaged([MEM, NVRAM], b"SQLite format 3\0" + b"\xa5" * 8192)

    def test_something_else_in_the_place_of_the_store(self):
        os.makedirs(self.store_file(NVRAM))
        daemon = self.expect_it_lives()
        self.expect_timeouts(daemon, IN_NVRAM)
        self.server.wait_for_more_requests(3)

    def test_store_that_is_locked_at_the_start_is_followed_later(self):
        self.assertEqual(self.expect_it_lives().stop(), 255)
        lock = sqlite3.connect(f"{self.root}/{NVRAM}", isolation_level=None, check_same_thread=False)
        lock.execute("BEGIN EXCLUSIVE")
        daemon = self.start("naro_algo")
        self.server.wait_for_more_requests(3)
        daemon.wait_for("[notify_timeout_cb_power_mode]notify timeout.")
        lock.execute("ROLLBACK")
        look = sqlite3.connect(f"{self.root}/{NVRAM}")
        until(lambda: look.execute("SELECT count(*) FROM subscription s JOIN mailbox m ON m.id = s.mailbox "
                                   "WHERE m.pid = ?", (daemon.pid,)).fetchone()[0] == 7, "seven subscriptions")
        self.assertTrue(daemon.running())


if __name__ == "__main__":
    main()
