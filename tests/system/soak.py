#!/usr/bin/env python3
"""Five minutes' worth of frames (an hour's with NARO_LONG set) through the whole camera at full speed: the daemon ends as
it began, with the same threads and descriptors, and a sanitizer finds nothing. What it holds in bytes is counted in one
process, by tests/unit/soak. usage: soak.py BIN_DIR"""
import json
import os
import re

from naro_system import SystemTest, main, until

SECONDS = 3600 if os.environ.get("NARO_LONG") else 600
FRAMES_PER_SECOND = 5
# Everything that can be at work is: records go to the card, the tracker asks a motor that never answers.
SETTINGS = ("track_switch=on", "baby_cry_detect=on")
# Those that start last, half a second after the first frames, by the names that the kernel keeps of them.
LAST_THREADS = {"mstar_ircut_ctr", "white_led_statu", "motion_track_ta", "motor_rotate"}


class Soak(SystemTest):
    def status(self):
        asked = self.start("naro-status", "--json")
        if asked.wait() != 0:
            return None
        return json.loads(next(line for line in asked.lines if line.startswith("{")))

    def held(self, pid):
        return {what: len(os.listdir(f"/proc/{pid}/{what}")) for what in ("task", "fd")}

    def threads(self, pid):
        names = set()
        for task in os.listdir(f"/proc/{pid}/task"):
            with open(f"/proc/{pid}/task/{task}/comm", encoding="utf-8") as file:
                names.add(file.read().strip())
        return names

    def test_the_daemon_ends_as_it_began(self):
        settings = [word for setting in SETTINGS for word in ("--set", setting)]
        camera = self.start("naro_camera", "--source", "shapes", "--fast", "--headless", "--json", "--seconds", str(SECONDS),
                            *settings)
        first = until(lambda: (s := self.status()) and s["frames"]["analysed"] > 100 and s, "a hundred frames")
        pid = first["daemon"]["pid"]
        until(lambda: LAST_THREADS <= self.threads(pid), "every thread")
        early = [self.held(pid) for _ in range(100)]
        samples = []

        def ended():
            try:
                samples.append(self.held(pid))
            except FileNotFoundError:
                pass  # the daemon has ended; the camera follows
            return not camera.running()

        until(ended, "the end of the source", 1800)
        self.assertGreater(len(samples), 200)
        # The very last ones saw the daemon end. A file that is open for a moment is in some samples, not in all.
        late = samples[-200:-100]
        self.assertEqual(camera.wait(), 0, camera.text())
        for what in ("task", "fd"):
            self.assertEqual(min(held[what] for held in early), min(held[what] for held in late), what)
        summary = json.loads([line for line in camera.lines if line.startswith("{")][-1])["summary"]
        self.assertEqual(summary["frames"]["sent"], SECONDS * FRAMES_PER_SECOND)
        self.assertEqual(summary["frames"]["dropped"], 0)
        self.assertEqual(summary["daemon"]["restarts"], 0)
        with open(f"{self.root}/run/naro/naro_algo.log", encoding="utf-8", errors="replace") as file:
            log = file.read()
        self.assertIsNone(re.search(self.SANITIZER, log), log[-4000:])


if __name__ == "__main__":
    main()
