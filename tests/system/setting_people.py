#!/usr/bin/env python3
"""What two settings do to what is seen: where people are looked for, and how sure of them the detector must be. The same
pictures, of somebody who crosses a rendered room, go through the whole camera under each value. usage: setting_people.py
BIN_DIR"""
import json
import os

from naro_system import SystemTest, main

SECONDS = 24
WIDTH = 320
WIDENED = 32  # what is looked at around motion inside the region reaches beyond it by no more than that


class SettingPeople(SystemTest):
    def play(self, *arguments):
        """The events of people: their boxes, by time."""
        camera = self.start("naro_camera", "--fast", "--headless", "--json", *arguments)
        self.assertEqual(camera.wait(300), 0, camera.text())
        lines = [json.loads(line) for line in camera.lines if line.stream == "out" and line.startswith("{")]
        self.assertEqual(lines[-1]["summary"]["daemon"]["restarts"], 0)
        return {line["time_ms"]: line["boxes"] for line in lines if line.get("event") == "PeopleMotion"}

    def test_on_the_same_pictures(self):
        self.pictures = os.path.join(self.root, "pictures.y4m")
        self.everywhere = self.play("--source", "scene:person-crosses", "--seconds", str(SECONDS), "--frames", self.pictures)
        self.assertGreater(len(self.everywhere), 10)
        self.check_region()
        self.check_sensitivity()

    def people(self, key, value):
        return self.play("--source", self.pictures, "--set", f"{key}={value}")

    def check_region(self):
        """People are looked for in their region."""
        self.assertEqual(self.people("people_region_detect", "0-0-10000-10000"), self.everywhere)
        for value, left, right in (("0-0-5000-10000", 0, 0.5), ("5000-0-10000-10000", 0.5, 1)):
            people = self.people("people_region_detect", value)
            print(f"{value}: people in {len(people)} of {len(self.everywhere)} pictures")
            # Somebody crosses: they are in either half, and not always.
            self.assertGreater(len(people), 0, value)
            self.assertLess(len(people), len(self.everywhere), value)
            for at, boxes in people.items():
                for x, _, width, _ in boxes:
                    self.assertGreaterEqual(x, left * WIDTH - WIDENED, (value, at, boxes))
                    self.assertLessEqual(x + width, right * WIDTH + WIDENED, (value, at, boxes))

    def check_sensitivity(self):
        """The less sure the detector must be, the more people it sees."""
        pictures = [set(self.people("people_sensitivity", level)) for level in (1, 3, 5)]
        print("people in", [len(times) for times in pictures], "pictures")
        self.assertEqual(pictures[1], set(self.everywhere))
        self.assertLess(len(pictures[0]), len(pictures[2]))
        self.assertTrue(pictures[0] <= pictures[1] <= pictures[2])


if __name__ == "__main__":
    main()
