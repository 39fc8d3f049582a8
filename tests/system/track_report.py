#!/usr/bin/env python3
"""The report on following: its figures on lines made by hand, and a short run of the simulation. usage: track_report.py
BIN_DIR"""
import json
import math
import os
import subprocess
import sys
import tempfile
import unittest

BIN = os.path.abspath(sys.argv.pop(1))
TOOLS = os.path.join(os.path.dirname(os.path.realpath(__file__)), "../../tools")
sys.path.insert(0, TOOLS)
sys.dont_write_bytecode = True

from tracking import chart, loop, page, real  # noqa: E402


def frame(number, middle=160, visible=1.0, **more):
    """A picture with the target 40 pixels wide around `middle`."""
    return {"frame": number, "t": number * 200, "pan": 0.0, "tilt": 0.0, "view_moves": False, "busy": False,
            "target": {"box": [middle - 20, 50, middle + 20, 142] if visible else [0, 0, 0, 0], "visible": visible,
                       "distance": 3.0, "moves": True, "doing": "walk"}, **more}


def move(asked, start, end, turned=(0, 0)):
    return {"move": json.dumps(asked + [0]).replace(" ", ""), "t": start, "end": end, "from": [0, 0], "to": list(turned)}


class Figures(unittest.TestCase):
    def test_places_are_the_daemons_angles(self):
        self.assertAlmostEqual(loop.place(frame(1, 320 - 20))[0], math.degrees(math.atan(140 / 160 * 2.56 / 2.6856)))
        self.assertEqual(loop.place(frame(1)), (0, 0))
        self.assertIsNone(loop.place(frame(1, visible=0.04)))
        self.assertLess(loop.place(frame(1, 100))[0], 0)

    def test_an_episode_lasts_from_leaving_the_zone_to_being_in_it(self):
        # 30 pixels are 10.1 degrees, 29 are 9.8.
        run = loop.Run([frame(0), frame(1), frame(2, 190), frame(3, 250), frame(4, 189), frame(5), frame(6, 100),
                        frame(7, visible=0)])
        self.assertEqual(run.episodes(), [(400, 3.0, True), (None, 3.0, False)])

    def test_who_has_left_the_room_is_not_waited_for(self):
        gone = {key: value for key, value in frame(2).items() if key != "target"}
        run = loop.Run([frame(0), frame(1), gone])
        self.assertEqual(len(run.watched), 1)
        self.assertEqual(run.episodes(), [])

    def test_beyond_the_middle_is_on_the_other_side_of_the_request(self):
        run = loop.Run([frame(0), frame(1, 250), frame(2, 250), frame(3, 100), move([25, 0], 100, 500),
                        move([-25, 0], 100, 500), move([0, 12], 100, 500)])
        right, left = run.overshoots()
        self.assertAlmostEqual(right, -loop.place(frame(3, 100))[0])
        self.assertEqual(left, 0)

    def test_a_request_that_leads_away_is_astray(self):
        asked = {"said": "request", "motion": [0, 0, 8, 8], "whole": False}
        run = loop.Run([frame(0), frame(1, 250, angle=[20, 0], **asked), frame(2, 250, angle=[-20, 0], **asked),
                        frame(3, visible=0, angle=[20, 0], **asked), frame(4, 250, angle=[0, 12], **asked),
                        frame(5, 250, angle=[-20, 0], said="calm")])
        self.assertEqual(run.astray(), 2)

    def test_what_came_of_a_frame(self):
        rectangle = {"motion": [0, 0, 8, 8], "whole": False}
        for expected, more in (("turning", {"busy": True}), ("still", {}), ("whole", {**rectangle, "whole": True}),
                               ("middle", {**rectangle, "said": "calm"}), ("spacing", {**rectangle, "said": "spacing"}),
                               ("request", {**rectangle, "said": "request"})):
            self.assertEqual(loop.reason(frame(1, 300, **more)), expected)
            self.assertEqual(loop.Run([frame(0), frame(1, 300, **more)]).reasons(), {expected: 1})
            self.assertEqual(loop.Run([frame(0), frame(1, 160, **more)]).reasons(), {})

    def test_figures_are_shares_of_frames_and_per_minute(self):
        own = {"view_moves": True, "motion": [0, 0, 320, 192], "whole": True}
        frames = [frame(0)] + [frame(1 + i, 160 if i % 2 else 300, **(own if i < 30 else {})) for i in range(299)]
        f = loop.figures([loop.Run(frames + [move([10, 0], 100, 400, (10, -5)), {"drop": "[1,1,1]", "t": 3}])])
        self.assertAlmostEqual(f["in zone"], 149 / 299)
        self.assertAlmostEqual(f["own motion"], 30 / 299)
        self.assertAlmostEqual(f["own whole"], 30 / 299)
        self.assertAlmostEqual(f["degrees"], 15)
        self.assertAlmostEqual(f["moves"], 1)
        self.assertAlmostEqual(f["drops"], 1)
        self.assertEqual(f["by distance"]["2.5-4"], (200, 150))

    def test_each_number_of_the_motor_is_varied_by_a_fifth(self):
        variants = loop.variants()
        self.assertEqual(len(variants), 1 + 2 * len(loop.PARAMETERS))
        self.assertEqual(variants["usual"], [])
        self.assertEqual(variants["speed-20"], ["--motor", "pan_speed=48", "--motor", "tilt_speed=32"])
        self.assertEqual(variants["latency+20"], ["--motor", "latency_ms=60"])

    def test_the_page_is_filled_where_it_says(self):
        text = "a\n<!-- naro-track-report: x -->\nold\n<!-- naro-track-report: end -->\nb\n"
        self.assertEqual(page.put(text, "x", "new"), text.replace("old", "new"))
        with self.assertRaises(ValueError):
            page.put(text, "y", "new")

    def test_the_real_things_lines_are_read(self):
        truth = [{"number": n, "time": n * 0.2, "pan": 0, "tilt": 0, "view_moves": False,
                  "actors": [dict(frame(n)["target"], name="anna")]} for n in range(3)]
        frames, told = real.lines([{"time_ms": 400, "event": "PeopleMotion"}], truth,
                                  "x [motion_track] [10,0,0] at\nmotor is alerady running\n"
                                  "Wait motor is already running drop this frame after retry 5 times\n",
                                  "25669340 [-35,0,0]: [0,0] -> [-35,0] in 926 ms\nnaro_motor: trouble\n")
        self.assertNotIn("motion", frames[1])
        self.assertIn("motion", frames[2])
        self.assertEqual(told, {"requests": 1, "spacing": 1, "drops": 1, "moves": [(25669340.0, [-35, 0])]})


class Simulation(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.usual = cls.simulate()

    @staticmethod
    def simulate(*options):
        with tempfile.TemporaryDirectory(prefix="naro-track-") as root:
            done = subprocess.run([f"{BIN}/naro-track-sim", "--scene", "track-turns", "--seconds", "9", *options],
                                  env={**os.environ, "NARO_ROOT": root}, stdout=subprocess.PIPE, check=True)
        return done.stdout.decode()

    def test_follows_and_is_the_same_every_time(self):
        text = self.usual
        self.assertEqual(text, self.simulate())
        run = loop.Run(loop.read(text))
        self.assertEqual(len(run.frames), 45)
        f = loop.figures([run])
        self.assertGreaterEqual(len(run.moves), 4)
        self.assertGreaterEqual(f["brought in"], 3)
        self.assertGreater(f["in zone"], 0.3)
        self.assertGreater(f["own motion"], 0.2, "the view's own turning is seen as motion")
        self.assertEqual(f["spacing"], 0, "frames come 200 ms apart")
        for each in run.moves:
            # No faster than 60 degrees a second, and the head ends within the play of what was asked.
            turned = each["to"][0] - each["from"][0]
            self.assertGreaterEqual(each["end"] - each["t"], abs(turned) / 60 * 1000)
            self.assertLessEqual(abs(turned - json.loads(each["move"])[0]), 0.9)
        numbers = [json.loads(line["move" if "move" in line else "drop"])[2] for line in loop.read(text)
                   if "move" in line or "drop" in line]
        self.assertEqual(sorted(numbers), list(range(len(numbers))), "each request is made or dropped")
        self.assertIn("polyline", chart.traces([("track-turns", run)]))
        self.assertIn("brought in", page.terminal(page.rows({"track-turns": f})))

    def test_a_slow_motor_turns_less(self):
        slow = loop.figures([loop.Run(loop.read(self.simulate("--motor", "pan_speed=10")))])
        usual = loop.figures([loop.Run(loop.read(self.usual))])
        self.assertLess(slow["degrees"], 0.8 * usual["degrees"])

    def test_what_it_cannot_do_is_said(self):
        for wrong in (["--motor", "speed=1"], ["--analysis", "200"], ["--every", "300"], ["--seconds", "x"], ["more"]):
            done = subprocess.run([f"{BIN}/naro-track-sim", "--scene", "track-turns", *wrong], capture_output=True,
                                  check=False)
            self.assertEqual(done.returncode, 2)
            self.assertTrue(done.stderr)


if __name__ == "__main__":
    unittest.main(verbosity=2)
