#!/usr/bin/env python3
"""The scoreboard on its quick set of scenes: nobody who was found is missed now, nothing is called falsely that was not.
usage: score.py BIN_DIR

Where this fails because something got better or was meant to change, look at the table, then keep it:
tools/naro-score --quick --keep"""
import json
import os
import subprocess
import sys

from naro_system import BIN, SystemTest, main

TOP = os.path.join(os.path.dirname(os.path.abspath(__file__)), "../..")
QUICK = os.path.join(TOP, "tests/score/quick.json")


class Score(SystemTest):
    def score(self, *arguments):
        done = subprocess.run([sys.executable, os.path.join(TOP, "tools/naro-score"), "--bin", BIN, *arguments],
                              capture_output=True, text=True, timeout=500)
        print(done.stdout + done.stderr)
        return done

    def test_no_scene_of_the_quick_set_is_worse_than_its_kept_result(self):
        with open(QUICK, encoding="utf-8") as file:
            self.assertTrue(json.load(file), "there is no quick set")
        done = self.score("--quick", "--check")
        self.assertEqual(done.returncode, 0)
        self.assertIn(" 0 worse", done.stdout)

    def test_the_same_scene_gives_the_same_score(self):
        with open(QUICK, encoding="utf-8") as file:
            first = json.load(file)[0]
        results = [self.score(first, "--seconds", "6", "--json") for _ in range(2)]
        self.assertEqual([done.returncode for done in results], [0, 0])
        self.assertEqual(results[0].stdout, results[1].stdout)
        self.assertIsNotNone(json.loads(results[0].stdout)["scenes"][first]["pictures"])


if __name__ == "__main__":
    main()
