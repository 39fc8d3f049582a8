#!/usr/bin/env python3
"""Sums, tables, what is worse than the kept result, the pictures, and the command on files."""
import copy
import json
import os
import re
import subprocess
import sys
import tempfile
import unittest
import xml.etree.ElementTree as ET

from hand_made import actor, box_of, objects, people, scene, walk
from scoreboard import board, chart, keep, play
from scoreboard.rules import score

TOOL = os.path.join(os.path.dirname(os.path.abspath(__file__)), "../../tools/naro-score")
OWN = board.name_of(play.DEFAULT_LEVEL)


def crossing(reported, false=(), expects=None, lead=0):
    """Somebody crosses for 20 frames after `lead` empty ones and is found on the frames `reported`; false people events on
    those of `false`."""
    frames = [[]] * lead + walk(20) + [[]] * 10
    events = [people(at, box_of(frames[at][0])) for at in reported] + [people(at, [0, 0, 9, 9]) for at in false]
    return score(scene(*frames), events, expects)


def result(**scores):
    return {name: {"story": "", "pictures": name, "scores": {OWN: value}} for name, value in scores.items()}


class Sums(unittest.TestCase):
    def test_people(self):
        total = board.total_of([crossing(range(3, 20)), crossing([11, 12], false=[25, 26]), crossing([])])
        p = total["people"]
        self.assertEqual((total["frames"], p["owed"], p["found"], p["silent"]), (87, 57, 19, 38))
        self.assertEqual((p["episodes"], p["reported"], p["missed"]), (3, 2, 1))
        self.assertEqual((p["delay_median"], p["delay_worst"]), (1.2, 2.0))
        self.assertEqual((p["false"], p["false_by"]), (2, {"nothing": 2}))
        self.assertEqual((p["each"], p["each_reported"]), (3, 2))

    def test_objects(self):
        frames = walk(20, kind="cat") + [[]] * 5
        total = board.total_of([score(scene(*frames), [objects(4), objects(5), objects(23)])])
        o = total["objects"]
        self.assertEqual((o["owed"], o["found"], o["silent"], o["right"], o["false"]), (19, 2, 17, 2, 1))
        self.assertEqual((o["episodes"], o["delay_worst"], o["false_by"]), (1, 0.6, {"nothing": 1}))

    def test_nothing_to_find_gives_no_share(self):
        row = board.scene_row("empty", board.total_of([score(scene([], []), [])]))
        self.assertEqual(row, ("empty", "0", "-", "-", "-", "-", "-", "-", "0", "-", "-", "0", "-"))

    def test_a_row(self):
        self.assertEqual(board.scene_row("x", board.total_of([crossing([11], [25], {"people": "forbidden"})])),
                         ("x", "6", "1/1", "5 %", "0 %", "95 %", "2.0", "2.0", "1", "-", "-", "0", "0/1"))

    def test_counts_come_largest_first(self):
        self.assertEqual(list(board.add_counts([{"b": 1, "c": 2}, {"a": 1, "c": 1}]).items()), [("c", 3), ("a", 1), ("b", 1)])


    def test_what_points_astray_found_nobody(self):
        self.assertEqual(board.scene_row("x", board.total_of([crossing([11], [5, 6, 7, 8])]))[3:6], ("5 %", "0 %", "95 %"))

    def test_times_and_tables(self):
        self.assertEqual([board.at(t) for t in (0, 59.8, 60, 125.4)], ["0:00.0", "0:59.8", "1:00.0", "2:05.4"])
        self.assertEqual(board.plain_table(("a", "bb"), [("xyz", "1"), ("y", "222")]),
                         "a     bb\n---  ---\nxyz    1\ny    222")
        self.assertEqual(board.page_table(("a", "b", "c"), [("1", "2", "3")]), "| a | b | c |\n|---|---:|---:|\n| 1 | 2 | 3 |")


class Failures(unittest.TestCase):
    def lines(self, value):
        return [text for _, _, text in board.failures(result(x=value))]

    def test_none(self):
        self.assertEqual(self.lines(crossing(range(1, 20), expects={"people": "wanted"})), [])

    def test_a_missed_person(self):
        self.assertEqual(self.lines(crossing([])), ["a person missed from 0:00.2 to 0:03.8"])

    def test_false_events_and_a_broken_story(self):
        expects = {"people": "forbidden", "spans": [{"from": 1, "to": 2, "people": "wanted"}]}
        self.assertEqual(self.lines(crossing([15], [25], expects)),
                         ["1 false people events: 1 nothing",
                          "story: people events wanted from 0:01.0 to 0:02.0: none came",
                          "story: people events forbidden in all the rest: some came"])

    def test_when_a_picture_tells_most(self):
        self.assertEqual([(time, text) for _, time, text in board.failures(result(x=crossing([], [25])))],
                         [(2.0, "a person missed from 0:00.2 to 0:03.8"), (5.0, "1 false people events: 1 nothing")])

    def test_a_person_as_object_at_its_first_frame(self):
        frames = walk(8)
        value = score(scene(*frames), [people(1, box_of(frames[1][0])), objects(4)])
        self.assertEqual(board.failures(result(x=value)), [("x", 0.8, "a person taken for an object on 1 of 7 frames")])


class Worse(unittest.TestCase):
    """Against a kept result of 200 frames, 19 of them owed, found on 17, after 0.4 s."""
    GOOD = list(range(3, 20))

    def compare(self, now, before=None, same_pictures=True, pad=0):
        before = before or crossing(self.GOOD, expects={"people": "wanted"})
        a, b = keep.kept_form(result(x=now)), keep.kept_form(result(x=before))
        if not same_pictures:
            a["x"]["pictures"] = "other"
        return keep.worse(a, b)

    def crossing(self, *reported, false=()):
        return crossing(sorted(reported), false, {"people": "wanted"})

    def test_the_same_is_not_worse(self):
        for same in (True, False):
            self.assertEqual(self.compare(self.crossing(*self.GOOD), same_pictures=same), [])

    def test_better_is_not_worse(self):
        self.assertEqual(self.compare(self.crossing(*range(1, 20))), [])

    def test_one_frame_less(self):
        now = self.crossing(*self.GOOD[:-1])
        self.assertEqual(self.compare(now), ["x: people: found on 16 of 19 frames; before, on 17"])
        self.assertEqual(self.compare(now, same_pictures=False), [])
        self.assertEqual(self.compare(self.crossing(*self.GOOD[:-3]), same_pictures=False), [])
        self.assertEqual(len(self.compare(self.crossing(*self.GOOD[:-4]), same_pictures=False)), 1)

    def test_a_later_report(self):
        later = lambda frames: self.crossing(*[1 + f for f in range(2 + frames, 19)], 1 + 18)
        self.assertIn("x: people, 0:00.2 to 0:03.8: reported after 0.6 s; before, after 0.4 s", self.compare(later(1)))
        self.assertEqual([line for line in self.compare(later(2), same_pictures=False)], [])
        self.assertIn("x: people, 0:00.2 to 0:03.8: reported after 1.0 s; before, after 0.4 s",
                      self.compare(later(3), same_pictures=False))

    def test_a_missed_episode(self):
        for same in (True, False):
            self.assertIn("x: people, 0:00.2 to 0:03.8: missed; before, it was reported after 0.4 s",
                          self.compare(self.crossing(), same_pictures=same))

    def test_one_that_was_missed_before_is_not_worse(self):
        before = self.crossing()
        self.assertEqual(self.compare(self.crossing(), before), [])
        self.assertEqual(self.compare(self.crossing(15), before), [])

    def test_false_events(self):
        false = lambda count: self.crossing(*self.GOOD, false=range(21, 21 + count))
        self.assertEqual(self.compare(false(1)), ["x: people: 1 false events; before, 0"])
        self.assertEqual(self.compare(false(3), same_pictures=False), [])
        self.assertEqual(self.compare(false(4), same_pictures=False), ["x: people: 4 false events; before, 0"])

    def test_a_broken_story(self):
        before = crossing(self.GOOD, expects={"objects": "forbidden"})
        now = copy.deepcopy(before)
        now["story"][0]["kept"] = False
        self.assertEqual(self.compare(now, before, same_pictures=False),
                         ["x: 1 of the story's wishes broken that were kept before"])
        self.assertEqual(self.compare(before, now), [])

    def test_a_changed_scene_is_told(self):
        self.assertEqual(self.compare(crossing(self.GOOD, expects={"people": "wanted"}, lead=1)),
                         ["x: the scene itself has changed; look at its score, and keep it"])

    def test_scenes_that_only_one_has(self):
        a, b = keep.kept_form(result(x=crossing([]), y=crossing([]))), keep.kept_form(result(x=crossing([]), z=crossing([])))
        self.assertEqual(keep.worse(a, b), ["y: has no kept result", "z: was not played"])

    def test_pictures_that_are_not_known_are_not_the_same(self):
        a = keep.kept_form(result(x=self.crossing(*self.GOOD[:-1])))
        b = keep.kept_form(result(x=self.crossing(*self.GOOD)))
        a["x"]["pictures"] = b["x"]["pictures"] = None
        self.assertEqual(keep.worse(a, b), [])

    def test_things_are_compared_too(self):
        frames = walk(20, kind="cat") + [[]] * 10
        before = score(scene(*frames), [objects(at) for at in range(3, 20)])
        now = score(scene(*frames), [objects(at) for at in range(3, 19)])
        self.assertEqual(self.compare(now, before), ["x: objects: found on 16 of 19 frames; before, on 17"])


class Levels(unittest.TestCase):
    def test_they_are_the_daemons(self):
        self.assertEqual(play.settings_of((3, 2)), {"people_sensitivity": "3", "motion_region": "3"})
        self.assertEqual(play.settings_of((5, 0)), {"people_sensitivity": "5", "motion_region": "1"})
        self.assertEqual(sorted(play.LEVELS), [(1, 2), (2, 2), (3, 0), (3, 1), (3, 2), (4, 2), (5, 2)])

    def test_the_daemons_log_tells_its_level(self):
        log = "mid_hchd_sensitivity_set mode  = 1\nx info mid_hchd_people_sensitivity_set mode  = 5\n"
        self.assertEqual(play.level_of(log), (5, 1))
        self.assertEqual(play.level_of(log + "mid_hchd_people_sensitivity_set mode  = 4\n"), (4, 1))
        self.assertEqual(play.level_of(log + "mid_hchd_sensitivity_set mode  = 0\n"), (5, 0))
        self.assertEqual(play.level_of("mid_hchd_people_sensitivity_set mode  = 1\n"), (1, 2))
        self.assertEqual(play.level_of(""), (3, 2))

    def scenes(self):
        scores = {board.name_of(level): crossing(range(20 - 3 * level[0], 20)) for level in play.LEVELS}
        return {name: {"story": "", "pictures": "", "scores": scores} for name in ("a", "b")}

    def test_rows(self):
        rows = board.people_level_rows(board.level_totals(self.scenes()))
        self.assertEqual([(row[0], row[1], row[4]) for row in rows],
                         [("1", "0.7", "16 %"), ("2", "0.6", "32 %"), ("3", "0.5", "47 %"), ("4", "0.4", "63 %"),
                          ("5", "0.3", "79 %")])
        self.assertEqual([row[1] for row in board.object_level_rows(board.level_totals(self.scenes()))],
                         ["3840", "2240", "960"])

    def test_a_level_that_a_scene_lacks_is_not_summed(self):
        scenes = self.scenes()
        scenes["b"] = {**scenes["b"], "scores": {OWN: scenes["b"]["scores"][OWN]}}
        self.assertEqual(list(board.level_totals(scenes)), [OWN])

    def test_the_terminal_shows_levels_where_there_are_some(self):
        self.assertIn("People sensitivity, all scenes:\nlevel  threshold", board.terminal(self.scenes()))
        self.assertIn("Object sensitivity, all scenes:\nlevel  threshold", board.terminal(self.scenes()))
        self.assertNotIn("sensitivity", board.terminal(result(a=crossing([]))))
        self.assertIn("\n\nWhat failed:\n  a: a person missed", board.terminal(result(a=crossing([]))))

    def test_pictures_are_whole(self):
        for text in (chart.scenes_chart(self.scenes()), chart.levels_chart(self.scenes())):
            ET.fromstring(text)
            self.assertTrue(text.endswith("</svg>\n"))
            self.assertNotIn("None", text)
        self.assertIn(">47 %</text>", chart.scenes_chart(self.scenes()))

    def test_bands_are_as_long_as_their_frames(self):
        drawing = chart.Drawing(10, 10)
        chart.band(drawing, 0, 0, "PP..P", {"P": ("#123456", "")})
        widths = [float(w) for w in re.findall(r'width="([\d.]+)" height="9.0" fill="#123456"', "".join(drawing.parts))]
        self.assertEqual(widths, [chart.BAND_WIDTH * 2 / 5, chart.BAND_WIDTH / 5])

    def test_the_axis_is_not_below_its_bars(self):
        for value, top in ((1, 4), (4, 4), (5, 8), (9, 12), (13, 20), (21, 40), (201, 400)):
            self.assertEqual(chart.ceiling(value), top)

    def test_the_page(self):
        page = board.page(self.scenes(), "failed.jpg")
        for wanted in ("# Scoreboard", "2 scenes, 58 frames judged", "| 5 | 0.3 | 2/2 |", "scoreboard-levels.svg",
                       "**Frames.**"):
            self.assertIn(wanted, page)
        self.assertFalse([line for line in page.split("\n") if line.endswith(" ")])
        self.assertIn("](failed.jpg)\n\n- **a**: ", board.page({"a": result(a=crossing([]))["a"]}, "failed.jpg"))
        fine = board.page(result(a=crossing(range(1, 20))), "failed.jpg")
        self.assertIn("## What failed\n\nNothing.\n", fine)
        only = {"a": {"story": "", "pictures": "", "scores": {OWN: crossing([])}}}
        self.assertIn("Only the daemon's own level was measured.", board.page(only, None))


class Command(unittest.TestCase):
    def run_tool(self, *arguments, status=0):
        done = subprocess.run([sys.executable, TOOL, *arguments], capture_output=True, text=True, timeout=60)
        self.assertEqual(done.returncode, status, done.stderr + done.stdout)
        return done.stdout, done.stderr

    def test_files(self):
        frames = walk(20)
        with tempfile.TemporaryDirectory() as folder:
            truth, events, whole = (os.path.join(folder, name) for name in ("truth.jsonl", "events.jsonl", "whole.json"))
            with open(truth, "w", encoding="utf-8") as file:
                file.writelines(json.dumps(line) + "\n" for line in scene(*frames))
            with open(events, "w", encoding="utf-8") as file:
                file.write(json.dumps(people(11, box_of(frames[11][0]))) + '\n{"summary":{}}\n')
            table, _ = self.run_tool("--truth", truth, "--events", events)
            self.assertRegex(table, r"truth.jsonl +4 +1/1 +5 % +0 % +95 % +2.0 +2.0 +0 ")
            text, _ = self.run_tool("--truth", truth, "--events", events, "--json")
            with open(whole, "w", encoding="utf-8") as file:
                file.write(text)
            self.assertEqual(self.run_tool("--from-json", whole)[0], table)
            kept = os.path.join(folder, "kept.json")
            scenes = json.loads(text)["scenes"]
            with open(kept, "w", encoding="utf-8") as file:
                json.dump(keep.kept_form(scenes), file)
            self.assertIn("0 worse", self.run_tool("--from-json", whole, "--check", "--kept", kept)[0])
            scenes["truth.jsonl"]["scores"][OWN]["people"]["episodes"][0]["delay"] = None
            with open(whole, "w", encoding="utf-8") as file:
                json.dump({"scenes": scenes}, file)
            self.assertRegex(self.run_tool("--from-json", whole, "--check", "--kept", kept, status=1)[0],
                             "WORSE truth.jsonl: people, .* missed")

    def test_mistakes_are_told(self):
        self.assertIn("go together", self.run_tool("--truth", "x", status=2)[1])
        self.assertIn("build it first", self.run_tool("--bin", "/nowhere", "x", status=1)[1])
        self.assertIn("plays all scenes", self.run_tool("--update-docs", "x", status=2)[1])

    def test_the_help_tells_the_rules(self):
        text = self.run_tool("--help")[0]
        self.assertIn("An episode is a stretch of owed frames", text)
        self.assertIn("Worse is:", text)


if __name__ == "__main__":
    unittest.main(verbosity=1)
