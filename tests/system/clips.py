#!/usr/bin/env python3
"""Real clips through the whole camera: everyone who crosses the room is reported in time, and what is no person is not
called one. usage: clips.py BIN_DIR. The clips are in $SHARED/clips; without them the test is skipped.

Beside the verdict it leaves, in BIN_DIR/../contact, the recording of each clip and a contact sheet with boxes and events
drawn in, for eyes to judge what numbers do not."""
import json
import os
import shutil
import subprocess

from naro_system import BIN, SystemTest, main, skip

HERE = os.path.dirname(os.path.abspath(__file__))
CLIPS = os.path.join(os.environ.get("SHARED", os.path.join(HERE, "../../../shared")), "clips")
CONTACT = os.path.join(BIN, "../contact")
PATIENCE_S = 2.0  # from fully visible to reported


def contact_sheet(record, name):
    """Two pictures a second of the recording, side by side."""
    if shutil.which("ffmpeg"):
        subprocess.run(["ffmpeg", "-v", "error", "-y", "-i", f"{record}/video.mp4", "-vf", "fps=2,scale=192:-1,tile=12x24",
                        "-frames:v", "1", f"{CONTACT}/{name}.jpg"], check=True)


class Clips(SystemTest):
    def play(self, clip, *options):
        """The events of a clip [(seconds, name, boxes)] and the number of frames analysed."""
        camera = self.start("naro_camera", "--source", f"{CLIPS}/{clip}", "--fast", "--headless", "--json", *options)
        self.assertEqual(camera.wait(500), 0, camera.text())
        lines = [json.loads(line) for line in camera.lines if line.stream == "out" and line.startswith("{")]
        events = [(line["time_ms"] / 1000, line["event"], line["boxes"]) for line in lines if "event" in line]
        return events, lines[-1]["summary"]["frames"]["analysed"]

    def play_recorded(self, clip):
        name = os.path.splitext(clip)[0]
        record = os.path.join(CONTACT, name)
        os.makedirs(record, exist_ok=True)
        events, frames = self.play(clip, "--record", record)
        contact_sheet(record, name)
        return events, frames

    def test_everyone_who_crosses_is_reported_in_time(self):
        with open(f"{HERE}/data/one-by-one-person-detection.json", encoding="utf-8") as file:
            marks = json.load(file)
        events, frames = self.play_recorded(marks["clip"])
        people = [t for t, name, _ in events if name == "PeopleMotion"]
        for person in marks["people"]:
            start = person["fully_visible_from"]
            # Being reported before the last foot is in the picture is being reported.
            seen = [t for t in people if person["enters"] <= t <= start + PATIENCE_S]
            latest = min((t for t in people if t >= person["enters"]), default=None)
            print(f"{person['who']:28s} fully visible {start:6.1f} s, first reported "
                  f"{'never' if latest is None else f'{latest:6.1f} s'}")
            self.assertTrue(seen, f"{person['who']}: not reported by {start + PATIENCE_S} s")
            still_there = [t for t in people if start <= t <= person["fully_visible_to"]]
            self.assertTrue(still_there, f"{person['who']}: never reported while fully visible")
        nobody = [t for t in people if not any(p["enters"] - 0.2 <= t <= p["gone"] + 0.2 for p in marks["people"])]
        print(f"reports while nobody is there: {len(nobody)} of {frames} frames")
        self.assertLessEqual(len(nobody), 0.02 * frames, f"a person reported while nobody is there, at {nobody}")

    def test_cars_and_bottles_are_not_people(self):
        for clip in ("car-detection.mp4", "bottle-detection.mp4"):
            with self.subTest(clip=clip):
                events, frames = self.play_recorded(clip)
                people = [t for t, name, _ in events if name == "PeopleMotion"]
                objects = [t for t, name, _ in events if name == "ObjectMotion"]
                print(f"{clip}: {len(people)} of {frames} frames report a person ({100 * len(people) / frames:.1f} %)")
                self.assertLessEqual(len(people), 0.05 * frames, f"at {people}")
                self.assertGreater(len(objects), 0.1 * frames, "things do move in this clip")

    def test_the_same_list_twice(self):
        clip = "one-by-one-person-detection.mp4"
        self.assertEqual(self.play(clip), self.play(clip))


if __name__ == "__main__":
    if not os.path.isdir(CLIPS):
        skip(f"no clips in {CLIPS}")
    main()
