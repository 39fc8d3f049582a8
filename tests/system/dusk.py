#!/usr/bin/env python3
"""Dusk falls on the whole camera in real time: what the ISP reports follows a schedule of light, and the daemon answers with
the night command, a pulse of the filter's coil and its lamp. A short dusk; with NARO_LONG set one of a minute, with its
dawn, in a rendered room and in each automatic mode. usage: dusk.py BIN_DIR"""
import json
import math
import os
import threading
import time
import unittest

from naro_system import SystemTest, main, until

IR_LED, WHITE_LED, TO_NIGHT, TO_DAY = 45, 47, 78, 79
# A night begins at about so many lux in the room that a schedule is metered in (docs/light.md), after eleven samples.
NIGHT_LUX, ELEVEN_SAMPLES_S = 0.95, 5.0

LONG = unittest.skipUnless(os.environ.get("NARO_LONG"), "takes minutes; NARO_LONG is not set")


class Lines(threading.Thread):
    """What the board's lines do, as it happens: (seconds, line, value)."""

    def __init__(self, root):
        super().__init__(daemon=True)
        self.root, self.changes, self.over = root, [], False
        self.last = {line: self.value(line) for line in (IR_LED, WHITE_LED, TO_NIGHT, TO_DAY)}
        self.start()

    def value(self, line):
        try:
            with open(f"{self.root}/sys/class/gpio/gpio{line}/value", encoding="ascii") as file:
                return file.read().strip()
        except FileNotFoundError:  # the camera makes its board anew
            return ""

    def run(self):
        while not self.over:
            for line, last in self.last.items():
                value = self.value(line)
                if value in ("0", "1") and value != last:  # empty for the moment in which it is written
                    self.last[line] = value
                    self.changes.append((time.monotonic(), line, value))
            time.sleep(0.005)

    def when(self, line, value, since=0.0):
        return next((at for at, *what in list(self.changes) if what == [line, value] and at >= since), None)

    def wait_for(self, line, value, since=0.0):
        return until(lambda: self.when(line, value, since), f"line {line} at {value}")


class Dusk(SystemTest):
    def begin(self, mode, schedule, *options):
        path = f"{self.root}/lux.txt"
        with open(path, "w", encoding="ascii") as file:
            file.writelines(f"{seconds} {lux}\n" for seconds, lux in schedule)
        self.began = time.monotonic()  # the schedule's clock begins a little later
        self.camera = self.start("naro_camera", "--no-daemon", "--headless", "--json", "--lux", path, "--set",
                                 f"night_mode={mode}", *options)
        self.lines = Lines(self.root)  # before the daemon: a slow start must not hide a pulse
        self.addCleanup(self.lines.join)
        self.addCleanup(lambda: setattr(self.lines, "over", True))
        self.daemon = self.start("naro_algo")
        self.daemon.wait_for("create ircut task...")

    def config(self, *arguments):
        tool = self.start("naro-config", *arguments)
        self.assertEqual(tool.wait(), 0, tool.text())
        return tool.lines

    def events(self):
        return [json.loads(line)["event"] for line in list(self.camera.lines)
                if line.stream == "out" and line.startswith('{"time_ms"')]

    def expect_pulse(self, line, since=0.0):
        """Half a second on one line of the coil, nothing on the other, and nothing that the board would call a breach."""
        high = self.lines.wait_for(line, "1", since)
        low = self.lines.wait_for(line, "0", high)
        self.assertGreater(low - high, 0.4)
        other = TO_DAY if line == TO_NIGHT else TO_NIGHT
        at = self.lines.when(other, "1", high)
        self.assertTrue(at is None or at > low)
        self.assertEqual(self.camera.found("the board:"), [])
        return high

    def picture_is_night(self):
        tool = self.start("naro-status", "--json")
        self.assertEqual(tool.wait(), 0, tool.text())
        return json.loads(tool.lines[0])["picture"]["night"]

    def test_night_falls(self):
        dusk, dark = 2, 4
        self.begin(3, [(0, 200), (dusk, 200), (dark, 0.05)])
        self.daemon.wait_for("ircut_mode:3 day to night")
        falling = math.log(200 / NIGHT_LUX) / math.log(200 / 0.05) * (dark - dusk)
        self.assertGreater(time.monotonic() - self.began, dusk + falling + ELEVEN_SAMPLES_S)
        self.assertLess(self.expect_pulse(TO_DAY), self.expect_pulse(TO_NIGHT), "every start is a day")
        pulse = self.lines.when(TO_NIGHT, "1")
        lamp = self.lines.wait_for(IR_LED, "1")
        self.assertGreater(lamp, pulse, "the lamp after the filter")
        self.assertTrue(self.picture_is_night())
        stamp = int(self.config("get", "time_night")[0])
        self.assertLess(abs(stamp / 1000 - time.time()), 60, "the time of the switch, wall clock")
        # Automatic modes tell nobody; a person's choice is broadcast.
        self.assertNotIn("DayToNight", self.events())
        since = time.monotonic()
        self.config("set", "night_mode", "1")
        until(lambda: "NightToDay" in self.events(), "the event")
        self.expect_pulse(TO_DAY, since)
        self.assertFalse(self.picture_is_night())
        since = time.monotonic()
        self.config("set", "night_mode", "2")
        until(lambda: "DayToNight" in self.events(), "the event")
        self.expect_pulse(TO_NIGHT, since)
        self.assertTrue(self.picture_is_night())
        self.assertEqual(self.daemon.stop(), 255)

    def minute(self, mode, lamp, bright_samples_s):
        """200 to 0.05 lux within 60 s, ten seconds of night, and back within 60 s."""
        dusk, dawn = 5, 75
        slope = math.log(200 / 0.05) / 60
        self.begin(mode, [(0, 200), (dusk, 200), (dusk + 60, 0.05), (dawn, 0.05), (dawn + 60, 200)],
                   "--source", "scene:empty-day", "--loop", "--lights", "daemon")
        self.daemon.wait_for(f"ircut_mode:{mode} day to night", limit_s=120)
        at = time.monotonic() - self.began
        night = 200 * math.exp(-slope * (at - dusk - ELEVEN_SAMPLES_S))
        self.lines.wait_for(lamp, "1")
        self.daemon.wait_for(f"ircut_mode:{mode} night to day", limit_s=120)
        at = time.monotonic() - self.began
        day = 0.05 * math.exp(slope * (at - dawn - bright_samples_s))
        self.lines.wait_for(lamp, "0", self.began + dawn)
        print(f"mode {mode}: night at {night:.2f} lux, day at {day:.2f} lux", flush=True)
        # Within a factor of two, which is five seconds of such a dusk, of what a day in fast time says (docs/light.md).
        expected_night, expected_day = (1.26, 4.3) if mode == 4 else (0.93, 1.31)
        self.assertLess(abs(math.log2(night / expected_night)), 1)
        self.assertLess(abs(math.log2(day / expected_day)), 1)
        self.assertEqual(self.daemon.stop(), 255)

    @LONG
    def test_a_minute_of_dusk_and_of_dawn_in_infrared(self):
        self.minute(3, IR_LED, ELEVEN_SAMPLES_S)

    @LONG
    def test_a_minute_of_dusk_and_of_dawn_in_full_colour(self):
        self.minute(4, WHITE_LED, 2 * ELEVEN_SAMPLES_S)

    @LONG
    def test_a_minute_of_dusk_and_of_dawn_in_smart(self):
        self.minute(5, IR_LED, 2 * ELEVEN_SAMPLES_S)


if __name__ == "__main__":
    main()
