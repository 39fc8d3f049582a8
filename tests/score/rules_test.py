#!/usr/bin/env python3
"""The scoring rules, each with its bounds."""
import unittest

from hand_made import actor, box_of, line, objects, people, scene, walk
from scoreboard import rules
from scoreboard.rules import Bad, score

NOBODY = []


def people_of(frames, events=()):
    return score(scene(*frames), list(events))["people"]


def objects_of(frames, events=()):
    return score(scene(*frames), list(events))["objects"]


class Boxes(unittest.TestCase):
    def test_half_of_the_smaller_makes_them_the_same(self):
        person = (0, 0, 40, 100)
        self.assertTrue(rules.same((20, 0, 60, 100), person))
        self.assertFalse(rules.same((21, 0, 61, 100), person))
        self.assertTrue(rules.same((0, 50, 40, 150), person))
        self.assertFalse(rules.same((0, 51, 40, 151), person))

    def test_a_part_counts_unless_it_is_too_small(self):
        person = (0, 0, 40, 100)
        self.assertTrue(rules.same((0, 0, 40, 10), person))
        self.assertFalse(rules.same((0, 0, 40, 9), person))
        self.assertTrue(rules.same((-100, -100, 100, 100), person))
        self.assertFalse(rules.same((-100, -100, 101, 100), person))

    def test_an_empty_box_is_of_nothing(self):
        self.assertFalse(rules.same((0, 0, 0, 0), (0, 0, 0, 0)))
        self.assertFalse(rules.same((10, 10, 10, 50), (0, 0, 40, 100)))

    def test_boxes_that_do_not_meet_share_nothing(self):
        self.assertEqual(rules.shared((0, 0, 10, 10), (20, 20, 30, 30)), 0)
        self.assertEqual(rules.shared((0, 0, 10, 10), (5, 6, 30, 30)), 20)

    def test_an_events_box_has_a_size(self):
        self.assertEqual(rules.corners([3, 4, 10, 20]), (3, 4, 13, 24))


class OwedPeople(unittest.TestCase):
    def owed(self, *frames):
        return people_of(frames)["owed"]

    def test_half_visible_is_owed(self):
        self.assertEqual(self.owed([actor(x=0)], [actor(x=10, visible=0.5)]), 1)
        self.assertEqual(self.owed([actor(x=0)], [actor(x=10, visible=0.49)]), 0)

    def test_two_pixels_of_motion_are_owed(self):
        self.assertEqual(self.owed([actor(x=10)], [actor(x=12)]), 1)
        self.assertEqual(self.owed([actor(x=10)], [actor(x=11.9)]), 0)
        self.assertEqual(self.owed([actor(x=12)], [actor(x=10)]), 1)

    def test_one_edge_is_enough(self):
        for edge in range(4):
            moved = [100, 50, 140, 150]
            moved[edge] += 2
            self.assertEqual(self.owed([actor()], [actor(box=moved)]), 1, edge)

    def test_who_does_not_move_is_not_owed(self):
        self.assertEqual(self.owed([actor(x=10, moves=False)], [actor(x=20, moves=False)]), 0)

    def test_the_first_frame_is_not_judged(self):
        result = score(scene([actor(x=10)], [actor(x=20)], [actor(x=30)]), [])
        self.assertEqual((result["frames"], result["people"]["owed"]), (2, 2))

    def test_who_appears_at_once_is_owed(self):
        self.assertEqual(self.owed(NOBODY, [actor()]), 1)

    def test_a_thing_is_no_person(self):
        self.assertEqual(self.owed([actor(x=10, kind="cat")], [actor(x=20, kind="cat")]), 0)

    def test_while_the_view_turns_it_is_as_before(self):
        turning = {"view_moves": True}
        self.assertEqual(self.owed([actor(x=10)], ([actor(x=30)], turning)), 0, "only the view has moved the box")
        self.assertEqual(self.owed([actor(x=10)], [actor(x=20)], ([actor(x=20)], turning), ([actor(x=20)], turning)), 3)
        self.assertEqual(self.owed([actor(x=10)], [actor(x=20)], ([actor(x=40, moves=False)], turning)), 1)


class HowOwedFramesEnd(unittest.TestCase):
    def setUp(self):
        self.frames = walk(9)
        self.on = lambda number: people(number, box_of(self.frames[number][0]))

    def test_each_way(self):
        astray = [people(at, [250, 10, 30, 60]) for at in (3, 4)]
        result = people_of(self.frames, [self.on(1), objects(2), *astray, objects(5), objects(6)])
        self.assertEqual([result[key] for key in ("owed", "found", "as_object", "astray", "silent")], [8, 1, 3, 2, 2])
        self.assertEqual((result["right"], result["false"]), (1, 2))

    def test_why_silent(self):
        frames = walk(8)
        frames[2] = (frames[2], {"view_moves": True})
        result = people_of(frames)
        self.assertEqual(result["silent_by"], {"other": 4, "view": 3}, "frames 2, 3 and 4: 0.4 s after the turn")
        frames = walk(14)
        frames[2] = (frames[2], {"light_changes": True})
        self.assertEqual(people_of(frames)["silent_by"], {"other": 2, "light": 11}, "and 2 s after the light")

    def test_a_filter_or_a_lamp_of_the_camera_is_a_light(self):
        for key in ("filter", "grey", "infrared_lamp", "white_lamp"):
            frames = walk(3)
            frames[2] = (frames[2], {key: key != "filter"})
            self.assertEqual(people_of(frames)["silent_by"], {"other": 1, "light": 1}, key)

    def test_motion_everywhere(self):
        def silent(box):
            return people_of([[actor(box=[100, 50, 140, 150])], [actor(box=[100, 50, 140, 150])],
                              [actor(box=box)]])["silent_by"]
        self.assertEqual(silent([15, 15, 305, 177]), {"everywhere": 1})
        for edge, value in enumerate((16, 16, 304, 176)):
            box = [15, 15, 305, 177]
            box[edge] = value
            self.assertEqual(silent(box), {"other": 1}, edge)

    def test_motion_everywhere_is_that_of_all_who_move_and_of_where_they_were(self):
        left, right = [0, 0, 40, 192], [280, 0, 320, 192]
        frames = [[actor(1, box=left), actor(2, box=right)], [actor(1, box=[2, 0, 42, 192]), actor(2, box=right)]]
        self.assertEqual(people_of(frames)["silent_by"], {"everywhere": 1})
        frames = [[actor(1, box=left)], [actor(1, box=right)]]
        self.assertEqual(people_of(frames)["silent_by"], {"everywhere": 1})
        frames = [[actor(1, box=left)], [actor(1, box=[2, 0, 42, 192]), actor(2, box=right, moves=False)]]
        self.assertEqual(people_of(frames)["silent_by"], {"other": 1})


class PeopleEvents(unittest.TestCase):
    def verdict(self, frame, *boxes, before=NOBODY):
        result = people_of([before, frame], [people(1, *boxes)])
        self.assertEqual(result["right"] + result["false"], 1)
        return "right" if result["right"] else next(iter(result["false_by"]))

    def test_on_a_person(self):
        self.assertEqual(self.verdict([actor()], [100, 50, 40, 100]), "right")

    def test_one_box_on_a_person_is_enough(self):
        self.assertEqual(self.verdict([actor()], [0, 0, 20, 20], [100, 50, 40, 100]), "right")

    def test_who_rests_or_is_hardly_visible_is_a_person(self):
        self.assertEqual(self.verdict([actor(moves=False)], [100, 50, 40, 100]), "right")
        self.assertEqual(self.verdict([actor(visible=0.01)], [100, 50, 40, 100]), "right")

    def test_who_is_hidden_is_not_there(self):
        hidden = actor(visible=0, box=[100, 50, 140, 150])
        self.assertEqual(self.verdict([hidden], [100, 50, 40, 100]), "nothing")

    def test_causes(self):
        cat, poster = actor(2, kind="cat"), actor(3, kind="poster", moves=False)
        self.assertEqual(self.verdict([cat], [100, 50, 40, 100]), "cat")
        self.assertEqual(self.verdict([poster], [100, 50, 40, 100]), "poster")
        self.assertEqual(self.verdict([actor()], [200, 50, 40, 100]), "beside")
        self.assertEqual(self.verdict(([], {"view_moves": True}), [200, 50, 40, 100]), "view")
        self.assertEqual(self.verdict(([], {"light_changes": True}), [200, 50, 40, 100]), "light")
        self.assertEqual(self.verdict(([], {"view_moves": True, "light_changes": True}), [200, 50, 40, 100]), "view")
        self.assertEqual(self.verdict(([cat], {"view_moves": True}), [100, 50, 40, 100]), "cat")
        self.assertEqual(self.verdict(([actor()], {"light_changes": True}), [200, 50, 40, 100]), "light")
        self.assertEqual(self.verdict(NOBODY, [200, 50, 40, 100]), "nothing")

    def test_the_thing_that_shares_most_is_the_cause(self):
        cat, dog = actor(2, kind="cat", x=100), actor(3, kind="dog", x=110)
        self.assertEqual(self.verdict([cat, dog], [108, 50, 40, 100]), "dog")
        self.assertEqual(self.verdict([cat, dog], [102, 50, 40, 100]), "cat")

    def test_without_boxes_being_there_decides(self):
        self.assertEqual(self.verdict([actor()]), "right")
        self.assertEqual(self.verdict([actor(visible=0)]), "nothing")


class ObjectEvents(unittest.TestCase):
    def verdict(self, frame, before=NOBODY):
        result = objects_of([before, frame], [objects(1)])
        kinds = {key: result[key] for key in ("right", "person", "part", "false") if result[key]}
        self.assertEqual(sum(kinds.values()), 1)
        kind = next(iter(kinds))
        return next(iter(result["false_by"])) if kind == "false" else kind

    def test_a_thing_that_moves(self):
        cat = actor(kind="cat", x=10)
        self.assertEqual(self.verdict([cat]), "right")
        self.assertEqual(self.verdict([actor(kind="cat", visible=0.01)]), "right")
        self.assertEqual(self.verdict([actor(kind="cat", moves=False)], [cat]), "nothing")

    def test_a_thing_that_has_just_gone(self):
        cat = actor(kind="cat")
        self.assertEqual(self.verdict([actor(kind="cat", visible=0)], [cat]), "right")
        self.assertEqual(self.verdict(NOBODY, [cat]), "right")
        self.assertEqual(self.verdict(NOBODY, [actor(kind="cat", visible=0)]), "nothing")
        self.assertEqual(self.verdict([actor(kind="cat", visible=0)], [actor(kind="cat", visible=0)]), "nothing")
        self.assertEqual(self.verdict([actor(kind="cat", visible=0)]), "nothing")

    def test_parts_of_the_room_are_things_and_lights_are_not(self):
        for name, verdict in (("curtain", "right"), ("door", "right"), ("headlights", "headlights"), ("tv", "tv")):
            self.assertEqual(self.verdict(([], {"stirs": [name]})), verdict)

    def test_a_person_who_is_owed_was_taken_for_an_object(self):
        self.assertEqual(self.verdict([actor(x=20)], [actor(x=10)]), "person")
        self.assertEqual(self.verdict([actor(x=20), actor(2, kind="cat")], [actor(x=10)]), "person")

    def test_a_part_of_a_person(self):
        self.assertEqual(self.verdict([actor(x=20, visible=0.3)], [actor(x=10)]), "part")
        self.assertEqual(self.verdict([actor()], [actor()]), "part", "hands at work")
        self.assertEqual(self.verdict(NOBODY, [actor()]), "part", "just gone")
        self.assertEqual(self.verdict([actor(visible=0.3), actor(2, kind="cat")], [actor()]), "right")
        self.assertEqual(self.verdict([actor(moves=False)], [actor()]), "nothing")

    def test_causes_of_false_ones(self):
        self.assertEqual(self.verdict(NOBODY), "nothing")
        self.assertEqual(self.verdict(([], {"view_moves": True, "stirs": ["tv"]})), "view")
        self.assertEqual(self.verdict(([], {"light_changes": True, "stirs": ["headlights"]})), "light")
        self.assertEqual(self.verdict(([], {"stirs": ["tv", "headlights"]})), "headlights")
        shadow = actor(kind="shadow", visible=0)
        self.assertEqual(self.verdict([shadow]), "shadow")
        self.assertEqual(self.verdict([actor(kind="shadow", visible=0, moves=False)]), "nothing")
        self.assertEqual(self.verdict(([shadow], {"stirs": ["tv"]})), "tv")

    def test_a_shadow_is_no_thing_even_when_it_is_seen(self):
        self.assertEqual(self.verdict([actor(kind="shadow")]), "shadow")


class OwedThings(unittest.TestCase):
    def owed(self, *frames):
        return objects_of(frames)["owed"]

    def test_bounds(self):
        before = [actor(kind="cat", x=10)]
        self.assertEqual(self.owed(before, [actor(kind="cat", x=12)]), 1)
        self.assertEqual(self.owed(before, [actor(kind="cat", x=11)]), 0)
        self.assertEqual(self.owed(before, [actor(kind="cat", x=20, visible=0.49)]), 0)
        self.assertEqual(self.owed(before, [actor(kind="cat", box=[0, 0, 8, 8])]), 1)
        self.assertEqual(self.owed(before, [actor(kind="cat", box=[0, 0, 9, 7])]), 0)

    def test_not_while_a_person_moves(self):
        cat = [actor(2, kind="cat", x=10), actor(2, kind="cat", x=20)]
        self.assertEqual(self.owed([cat[0], actor()], [cat[1], actor()]), 0)
        self.assertEqual(self.owed([cat[0], actor()], [cat[1], actor(moves=False)]), 1)

    def test_what_only_stirs_is_not_owed_and_right_when_reported(self):
        for kind in ("coat", "fan"):
            frames = [[actor(kind=kind, x=10)], [actor(kind=kind, x=20)]]
            result = objects_of(frames, [objects(1)])
            self.assertEqual((result["owed"], result["right"]), (0, 1), kind)

    def test_a_shadow_is_not_owed(self):
        self.assertEqual(self.owed([actor(kind="shadow", x=10)], [actor(kind="shadow", x=20)]), 0)

    def test_how_they_end(self):
        frames = [[actor(kind="cat", x=10 * at), actor(2, x=250, moves=False)] for at in range(9)]
        result = objects_of(frames, [objects(1), *[people(at, box_of(frames[at][0])) for at in (2, 4)],
                                     people(3, box_of(frames[3][1]))])
        self.assertEqual([result[key] for key in ("owed", "found", "as_person", "beside", "silent")], [8, 1, 2, 1, 4])
        self.assertEqual(result["silent_by"], {"other": 4})


class Episodes(unittest.TestCase):
    def test_one_second_makes_one(self):
        self.assertEqual(len(people_of(walk(6))["episodes"]), 1)
        self.assertEqual(len(people_of(walk(5))["episodes"]), 0)

    def test_pauses(self):
        for pause, count in ((5, 1), (6, 2)):
            frames = walk(6) + [[actor(x=60)] for _ in range(pause)] + walk(5, first=6)
            self.assertEqual(len(people_of(frames)["episodes"]), count, pause)

    def test_its_times(self):
        frames = [NOBODY] * 3 + walk(6, first=3)
        self.assertEqual(people_of(frames)["episodes"], [{"from": 0.6, "to": 1.6, "full": 0.6, "reported": None,
                                                          "delay": None}])

    def test_delay_runs_from_fully_visible(self):
        frames = walk(10)
        for at, share in enumerate((0.5, 0.5, 0.6, 0.949, 0.95, 1, 1, 1, 1, 1)):
            frames[at][0]["visible"] = share
        on = [people(at, box_of(frames[at][0])) for at in range(10)]
        first = lambda *events: people_of(frames, events)["episodes"][0]
        self.assertEqual(first(on[7])["full"], 0.8)
        self.assertEqual(first(on[7], on[8])["delay"], 0.6)
        self.assertEqual(first(on[4])["delay"], 0)
        self.assertEqual(first(on[1], on[7])["delay"], 0)

    def test_who_never_gets_fully_visible_counts_from_the_largest_share(self):
        frames = walk(8)
        for at, share in enumerate((0.5, 0.5, 0.6, 0.8, 0.7, 0.8, 0.6, 0.6)):
            frames[at][0]["visible"] = share
        episode = people_of(frames, [people(6, box_of(frames[6][0]))])["episodes"][0]
        self.assertEqual((episode["full"], episode["delay"]), (0.6, 0.6))

    def test_a_false_event_is_no_report(self):
        frames = walk(8)
        self.assertIsNone(people_of(frames, [people(3, [280, 0, 30, 60])])["episodes"][0]["reported"])
        self.assertIsNone(people_of(frames, [objects(3)])["episodes"][0]["reported"])

    def test_a_report_while_they_come_into_view_counts(self):
        def reported(at, into_view):
            frames = [NOBODY] + [[actor(x=40, visible=0.2)] for _ in range(into_view)] + walk(7, first=3)
            event = people(at, box_of(actor(x=40)))
            return people_of(frames, [event])["episodes"][0]["reported"]
        self.assertEqual(reported(2, 4), 0.4)
        self.assertEqual(reported(3, 12), 0.6, "2 s before")
        self.assertIsNone(reported(2, 12), "more than 2 s before")

    def test_a_report_before_a_gap_does_not_count(self):
        frames = [[actor(x=40, visible=0.2)]] * 2 + [NOBODY] + walk(7, first=3)
        self.assertIsNone(people_of(frames, [people(1, box_of(actor(x=40)))])["episodes"][0]["reported"])

    def test_its_first_and_its_last_frame_count(self):
        frames = walk(8)
        self.assertEqual(people_of(frames, [people(7, box_of(frames[7][0]))])["episodes"][0]["reported"], 1.4)
        self.assertEqual(people_of(frames, [people(1, box_of(frames[1][0]))])["episodes"][0]["reported"], 0.2)
        for at in range(8):
            frames[at][0]["visible"] = 0.6 if at < 7 else 0.9
        self.assertEqual(people_of(frames)["episodes"][0]["full"], 1.4)
        frames = [NOBODY] + [[actor(x=40, visible=0.2)]] + walk(7, first=3)
        self.assertEqual(people_of(frames, [people(1, box_of(actor(x=40)))])["episodes"][0]["reported"], 0.2)

    def test_each_person_needs_a_box(self):
        frames = [[actor(1, x=10 + 4 * at, name="anna"), actor(2, x=200 + 4 * at, name="ben")] for at in range(8)]
        result = people_of(frames, [people(3, box_of(frames[3][1]))])
        self.assertEqual(len(result["episodes"]), 1)
        self.assertEqual([(e["name"], e["reported"]) for e in result["each"]], [("anna", None), ("ben", 0.6)])

    def test_things_have_episodes(self):
        result = objects_of(walk(8, kind="dog"), [objects(4)])
        self.assertEqual([(e["full"], e["delay"]) for e in result["episodes"]], [(0.2, 0.6)])
        self.assertIsNone(objects_of(walk(8, kind="dog"), [people(4, [280, 0, 30, 60])])["episodes"][0]["delay"])

    def test_a_thing_may_be_reported_while_it_comes_into_view(self):
        frames = [NOBODY] + [[actor(x=40, visible=0.2, kind="dog")]] * 3 + walk(7, first=3, kind="dog")
        self.assertEqual(objects_of(frames, [objects(2)])["episodes"][0]["reported"], 0.4)
        frames = [[actor(x=40, visible=0.2, kind="dog", moves=False)]] * 4 + walk(7, first=3, kind="dog")
        self.assertIsNone(objects_of(frames, [objects(2)])["episodes"][0]["reported"], "it lay there")


class Rest(unittest.TestCase):
    def test_who_sits_still_is_counted_apart(self):
        frames = [[actor(moves=False)] for _ in range(6)]
        result = score(scene(*frames), [people(2, [100, 50, 40, 100]), objects(3), people(4, [280, 0, 30, 60])])
        self.assertEqual(result["rest"], {"frames": 5, "people": 1, "objects": 1})
        self.assertEqual(result["people"]["owed"], 0)

    def test_not_while_somebody_is_owed(self):
        frames = [[actor(moves=False), actor(2, x=200 + 4 * at)] for at in range(3)]
        self.assertEqual(score(scene(*frames), [])["rest"]["frames"], 0)


class Story(unittest.TestCase):
    frames = walk(11)

    def kept(self, expects, *events):
        return [(row["what"], row["rule"], row["from"], row["kept"])
                for row in score(scene(*self.frames), list(events), expects)["story"]]

    def on(self, number):
        return people(number, box_of(self.frames[number][0]))

    def test_wanted_and_forbidden(self):
        self.assertEqual(self.kept({"people": "wanted", "objects": "forbidden"}),
                         [("people", "wanted", None, False), ("objects", "forbidden", None, True)])
        self.assertEqual(self.kept({"people": "wanted", "objects": "forbidden"}, self.on(2), objects(3)),
                         [("people", "wanted", None, True), ("objects", "forbidden", None, False)])

    def test_any_and_nothing_say_nothing(self):
        self.assertEqual(self.kept({"people": "any"}), [])
        self.assertEqual(self.kept({}), [])

    def test_spans_and_the_rest(self):
        expects = {"people": "forbidden", "spans": [{"from": 0.6, "to": 1.0, "people": "wanted"}]}
        for number, span, rest in ((2, False, False), (3, True, True), (5, True, True), (6, False, False)):
            self.assertEqual(self.kept(expects, self.on(number)),
                             [("people", "wanted", 0.6, span), ("people", "forbidden", None, rest)], number)

    def test_a_span_about_something_else_belongs_to_the_rest(self):
        expects = {"people": "wanted", "spans": [{"from": 0, "to": 2, "objects": "forbidden"}]}
        self.assertEqual(self.kept(expects, self.on(3)),
                         [("people", "wanted", None, True), ("objects", "forbidden", 0, True)])


class Lanes(unittest.TestCase):
    def test_letters(self):
        cat = [actor(2, kind="cat", x=10), actor(2, kind="cat", x=20)]
        frames = [NOBODY, [actor(x=10)], [actor(x=20)], [actor(x=20, moves=False)], [cat[0]], [cat[1]], NOBODY, NOBODY,
                  ([], {"light_changes": True}), ([], {"view_moves": True})]
        result = score(scene(*frames), [people(1, box_of(frames[1][0])), objects(2), people(3, [250, 0, 30, 60]),
                                        objects(5), objects(9)])
        self.assertEqual(result["truth"], "PPpOOO.LV")
        self.assertEqual(result["heard"], "RAF.o...X")
        self.assertEqual(score(scene([actor()], [actor()]), [objects(1)])["heard"], "e")


class BadInput(unittest.TestCase):
    def test_an_event_of_no_frame(self):
        with self.assertRaisesRegex(Bad, "an event at 5000 ms"):
            score(scene(*walk(3)), [objects(25)])

    def test_an_event_for_the_first_frame(self):
        with self.assertRaisesRegex(Bad, "first frame"):
            score(scene(*walk(3)), [objects(0)])

    def test_a_frame_that_is_missing(self):
        with self.assertRaisesRegex(Bad, "line 2: frame 2, expected frame 1"):
            score([line(0), line(2)], [])

    def test_a_line_that_is_not_whole(self):
        broken = line(1)
        del broken["view_moves"]
        with self.assertRaisesRegex(Bad, "line 2: KeyError 'view_moves'"):
            score([line(0), broken], [])

    def test_too_few(self):
        with self.assertRaisesRegex(Bad, "1 frames"):
            score([line(0)], [])

    def test_other_events_are_counted(self):
        self.assertEqual(score(scene(*walk(3)), [{"time_ms": 200, "event": "DayToNight", "boxes": []}])["other_events"],
                         {"DayToNight": 1})


if __name__ == "__main__":
    unittest.main(verbosity=1)
