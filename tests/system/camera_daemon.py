#!/usr/bin/env python3
"""The desk camera and the real daemon, on the generated scene: no clip is needed. usage: camera_daemon.py BIN_DIR"""
import json
import re

from naro_system import SystemTest, main

from camera_alone import CYCLE_MS, MOVING


class Daemon(SystemTest):
    def run_camera(self, *arguments):
        camera = self.start("naro_camera", "--source", "shapes", "--fast", "--headless", "--json", *arguments)
        self.assertEqual(camera.wait(), 0, camera.text())
        lines = [json.loads(line) for line in camera.lines if line.stream == "out" and line.startswith("{")]
        return [line for line in lines if "event" in line], lines[-1]["summary"], camera

    def daemon_log(self):
        with open(f"{self.root}/run/naro/naro_algo.log", encoding="utf-8", errors="replace") as file:
            return file.read()

    def test_what_moves_is_reported_and_what_rests_is_not(self):
        events, summary, _ = self.run_camera("--seconds", "40")
        self.assertEqual(summary["frames"]["sent"], 200)
        self.assertEqual(summary["frames"]["analysed"], 199)
        self.assertEqual(summary["frames"]["dropped"], 0)
        self.assertEqual(summary["daemon"]["restarts"], 0)
        times = [event["time_ms"] for event in events]
        # A shape that has left is a change, too: the frame after.
        moving = [at for at in range(0, 40000, 200)
                  if any(since <= at % CYCLE_MS <= to for since, to in MOVING)]
        self.assertEqual([at for at in times if at not in moving], [])
        self.assertGreater(len(times), 0.8 * len(moving))
        self.assertLessEqual({event["event"] for event in events}, {"ObjectMotion", "PeopleMotion"})

    def test_the_same_list_twice(self):
        first, second = (self.run_camera("--seconds", "20")[0] for _ in range(2))
        self.assertEqual(first, second)
        self.assertTrue(first)

    def misbehave(self, *rules):
        with open(f"{self.root}/scenario.json", "w", encoding="utf-8") as file:
            json.dump({"rules": rules}, file)
        return self.run_camera("--seconds", "20", "--scenario", f"{self.root}/scenario.json")

    def test_refusals_wrong_numbers_and_late_replies_change_nothing_but_the_log(self):
        wanted = self.run_camera("--seconds", "20")[0]
        track = {"command": "naro_isp_track_run"}
        events, summary, _ = self.misbehave({**track, "occurrence": 3, "action": "refuse", "ret": 5},
                                            {**track, "occurrence": 20, "action": "number", "number": 4139},
                                            {**track, "occurrence": 30, "count": 3, "action": "delay", "ms": 30})
        self.assertEqual(events, wanted)
        self.assertEqual(summary["frames"]["analysed"], 99)
        log = self.daemon_log()
        self.assertIn("[naro_isp_track_run][cmd_no=4140][ret=5][param] get error", log)
        self.assertIn("[naro_isp_track_run][cmd_no=4139][ret=0][param] get error", log)

    def test_surplus_bytes_confuse_the_replies_and_no_frame(self):
        wanted = self.run_camera("--seconds", "20")[0]
        events, summary, _ = self.misbehave({"command": 4139, "occurrence": 4, "action": "surplus", "bytes": 8})
        self.assertEqual(events, wanted)
        self.assertEqual(summary["frames"]["analysed"], 99)

    def test_after_a_short_reply_and_a_lost_connection_it_works_again(self):
        wanted = self.run_camera("--seconds", "20")[0]
        events, summary, camera = self.misbehave({"command": 4139, "occurrence": 2, "action": "short", "bytes": 20},
                                                 {"command": 4139, "occurrence": 8, "action": "close", "bytes": 10})
        # One frame's command goes down with the connection, unless a question for a sound comes first and does.
        log = self.daemon_log()
        dropped = 0 if "[naro_audio_sound_result_get]" in log else 1
        self.assertEqual([event["event"] for event in events], [event["event"] for event in wanted])
        self.assertEqual(summary["frames"]["analysed"], 99 - dropped)
        self.assertEqual(summary["frames"]["dropped"], dropped)
        self.assertEqual(len(camera.found("no answer to frame 9 for 2 s; going on")), dropped)
        self.assertIn("cmd rcv error, rsize = 20", log)
        self.assertIn("cmd rcv error, rsize = 10", log)
        lost = re.findall(r"cmd (?:snd error, wsize|rcv error, rsize) = (?:-1|0)\r?\n", log)
        self.assertEqual(len(lost), 1, log)
        after = log[log.index(lost[0]) + len(lost[0]):]
        self.assertEqual(after.count("error"), 0, after)


if __name__ == "__main__":
    main()
