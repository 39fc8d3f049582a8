#!/usr/bin/env python3
"""All sixteen settings change a hundred times a second, by values of every kind, while frames with motion flow and the
scene's light comes and goes: the daemon lives, is told of every set in the order of the sets, and ends in the state of the
last ones. usage: setting_stress.py BIN_DIR [SEED]"""
import os
import random
import re
import struct
import sys
import time

SEED = int(sys.argv.pop(2)) if len(sys.argv) > 2 and sys.argv[2].isdigit() else 1

from naro_system import *
from setting_values import LAYERS as KNOWN_LAYERS
from setting_values import HUGE, STRANGE, Value, some

LAYERS = {**KNOWN_LAYERS, **dict.fromkeys(("track_switch", "sdcard_rw", "baby_cry_detect", "human_detect",
                                           "fav_area_rect"), "mem")}
REGIONS = '[{"x1":1,"y1":2,"x2":300,"y2":190,"roi_name":"%s","event_type":"PeopleMotion"}]'
VALUES = {
    "motion_region": some("1", "20", "40", "2", "60", "3", "80", "100", "50", "[" + ",".join("3" * 32) + "]"),
    "night_mode": some("0", "3", "4", "5", "6", "7", "x"),
    "full_color": some("on", "off", "offset", "ON"),
    "wdr": some("on", "off", "on "),
    "hdr_switch": some("on", "off", "1"),
    "track_switch": some("on", "off", "of"),
    "power": some("on", "off", "1"),
    "sdcard_rw": some("rdwr", "ro", ""),
    "face_detect": some("on", "off", "x"),
    "baby_cry_detect": some("on", "off"),
    "human_detect": some("on", "off"),
    "motor": some("[0,0]", "[90,-30]", "[5", ""),
    "people_sensitivity": some("1", "2", "3", "4", "5", "0", "6"),
    "alarm_event": some("1-0-0", "1-1-1", "1-2-1", "x"),
    "people_region_detect": some("0-0-10000-10000", "2500-2500-7500-7500", "9-9-9"),
    "fav_area_rect": some("[]", REGIONS % "door", REGIONS % "bed", REGIONS.replace("300", "0").replace("190", "0") % "bed",
                          "[{", "[1,null]"),
}
# A fixed mode keeps the thread of the settings busy for as long as the filter moves, half a second and more.
FIXED_MODES, FIXED_MODE_SHARE = some("1", "2"), 0.05
# What each key is set to last, and what must then be seen.
LAST = {
    "motion_region": "1", "night_mode": "2", "full_color": "off", "wdr": "on", "hdr_switch": "off", "track_switch": "off",
    "power": "on", "sdcard_rw": "ro", "face_detect": "on", "baby_cry_detect": "on", "human_detect": "on", "motor": "[1,2]",
    "people_sensitivity": "4", "alarm_event": "1-0-0", "people_region_detect": "0-0-5000-10000", "fav_area_rect": "[]",
}

# In the first part the mode and the alarm are left alone, so that the light alone decides about day and night: after
# eleven dark samples, one each half second. In the second part everything is set.
LIGHT_SETS, ALL_SETS, PERIOD_S = 650, 350, 0.01
ANSWER = re.compile("stored|refused")
TASKS = {"naro_algo", "kv_client_task", "mid_hchdfd_Task", "mstar_ircut_ctr", "white_led_statu"}


class Light:
    """An image processor in a scene that is dark, or bright: what the daemon's queries are answered with."""

    def __init__(self, server):
        self.mode, self.dark = 0, True
        server.data["naro_isp_daynight_mode_get"] = lambda: struct.pack("<I", self.mode)
        server.data["naro_isp_ev_attr_get"] = lambda: struct.pack(
            "<IiIII8x", *((0, -120000, 100000, 20000, 1024) if self.dark else (200, 0, 10000, 500, 1024)))
        server.data["naro_isp_wb_attr_get"] = lambda: struct.pack("<ii24x", -3000 * 1024, -3000 * 1024)
        server.on_request = self.on_request

    def on_request(self, request):
        if request.name == "naro_isp_daynight_mode_set":
            self.mode = struct.unpack("<I", request.payload)[0]


class SettingStress(SystemTest):
    def set(self, key, value):
        """Sets, and notes what the daemon must say, where it is to hear of it."""
        self.sets += 1
        mark = self.setter.mark()
        self.setter.tell(value.words.format(f"{LAYERS.get(key, 'nvram')} {key}"))
        if self.setter.wait_for(ANSWER, mark) == "stored":
            form = b"key=%s value=%s\r\n" if key == "fav_area_rect" else b"[key=%s][value=%s]\r\n"
            self.acknowledged.append(form % (key.encode(), value.text))

    def set_at_random(self, keys, count):
        begin = time.monotonic()
        for n in range(count):
            wait = begin + n * PERIOD_S - time.monotonic()
            if wait > 0:
                time.sleep(wait)  # the pace of the sets
            key = self.random.choice(keys)
            choice = self.random.random()
            if key == "night_mode" and choice < FIXED_MODE_SHARE:
                value = self.random.choice(FIXED_MODES)
            elif choice < 0.15:
                value = self.random.choice([value for value in STRANGE if value is not HUGE and self.harmless(key, value)])
            elif choice > 0.995:
                value = HUGE
            else:
                value = self.random.choice(VALUES[key])
            self.set(key, value)
        return count / (time.monotonic() - begin)

    @staticmethod
    def harmless(key, value):
        """An alarm of half a minute, or of a year, would have the test wait for it; so would a fixed mode."""
        return not (key == "alarm_event" and any(c in value.text for c in b"-123456789")) and \
            not (key == "night_mode" and value.text[:1] == b"1")

    def log(self):
        with self.daemon.more:
            return b"".join(line.raw for line in self.daemon.lines if line.stream == "err")

    def wait_until_told(self, what):
        """Settings are told in order: of all up to here."""
        self.set("face_detect", Value(f"off: {what}"))
        self.daemon.wait_for(f"[key=face_detect][value=off: {what}]")

    def expect_every_set(self):
        """Every set that was acknowledged has been told, in order, each once."""
        log, at = self.log(), 0
        self.assertNotIn(b"merged", log)
        for n, line in enumerate(self.acknowledged):
            found = log.find(line, at)
            self.assertGreater(found, 0, f"set {n} not told, or not in order: {line[:200]}; after it\n" +
                               log[at:at + 2000].decode(errors="replace"))
            at = found + len(line)

    def tasks(self):
        names = set()
        for task in os.listdir(f"/proc/{self.daemon.pid}/task"):
            with open(f"/proc/{self.daemon.pid}/task/{task}/comm", encoding="utf-8") as file:
                names.add(file.read().strip())
        return names

    def test_a_hundred_sets_a_second(self):
        self.random = random.Random(SEED)
        self.sets, self.acknowledged = 0, []
        self.server = self.media_server()
        light = Light(self.server)
        self.setter = self.start("setter")
        self.setter.wait_for("ready")
        self.daemon = self.start("naro_algo")
        feeder = self.raw_stream()
        self.server.wait_for_requests(3)
        self.set("night_mode", Value("3"))
        self.set("power", Value("on"))
        self.daemon.wait_for("create ircut task...")
        until(lambda: TASKS <= self.tasks(), "every thread")

        keys = sorted(VALUES)
        quiet = [key for key in keys if key not in ("night_mode", "alarm_event", "power")]
        rate_1 = self.set_at_random(quiet, LIGHT_SETS)
        self.daemon.wait_for("day to night")
        light.dark = False
        rate_2 = self.set_at_random(keys, ALL_SETS)
        # Power reads what is stored, which may be ahead of what has been told: a mode that it finds there is the mode
        # from then on, and when it is told of, nothing changes any more. So power comes on before the last mode is set.
        self.set("power", Value(LAST["power"]))
        self.wait_until_told("power")
        for key in self.random.sample(keys, len(keys)):
            if key != "power":
                self.set(key, Value(LAST[key]))
        self.wait_until_told("all")
        print(f"seed {SEED}: {len(self.acknowledged)} of {self.sets} sets stored, {rate_1:.0f} and {rate_2:.0f} a second",
              file=sys.stderr)
        self.assertGreater(len(self.acknowledged), 0.9 * self.sets)
        self.expect_every_set()
        self.expect_last_state()
        self.assertTrue(TASKS <= self.tasks(), self.tasks())
        feeder.tell("auto off")
        self.assertEqual(self.daemon.stop(), 255)

    def expect_last_state(self):
        """The state of the last values, as it is seen from outside."""
        def last(name):
            return [request for request in self.server.requests if request.name.startswith(name)][-1]
        self.assertEqual(last("naro_isp_wdr").name, "naro_isp_wdr_enable")
        self.assertEqual(last("naro_isp_daynight_mode_set").payload, b"\1\0\0\0")
        self.assertEqual(self.daemon.found("mid_hchd_people_sensitivity_set mode")[-1],
                         "mid_hchd_people_sensitivity_set mode  = 4")
        # What is printed of a motor that does not answer has no line ends.
        self.assertRegex(self.daemon.found("mid_hchd_sensitivity_set mode")[-1], "mid_hchd_sensitivity_set mode  = 0$")
        self.assertEqual(self.daemon.found("perople_region")[-1],
                         "[set_mid_people_region 97] perople_region:[0-0-160-192]")
        for place, text in (("gpio78/value", "0"), ("gpio79/value", "0")):
            with open(f"{self.root}/sys/class/gpio/{place}", encoding="ascii") as file:
                self.assertEqual(file.read(), text, place)


if __name__ == "__main__":
    main()
