#!/usr/bin/env python3
"""naro-detect on pictures made here: what it prints, what it refuses. usage: naro_detect.py BIN_DIR"""
import math
import os
import random
import struct
import subprocess
import sys
import tempfile
import unittest
import zlib

BIN = os.path.abspath(sys.argv.pop(1))


def png(path, width, height, rgb):
    """Writes rows of (r, g, b)."""
    def chunk(kind, data):
        return struct.pack(">I", len(data)) + kind + data + struct.pack(">I", zlib.crc32(kind + data))
    rows = b"".join(b"\0" + bytes(v for pixel in rgb[y][:width] for v in pixel) for y in range(height))
    with open(path, "wb") as f:
        f.write(b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", struct.pack(">IIBBBBB", width, height, 8, 2, 0, 0, 0)) +
                chunk(b"IDAT", zlib.compress(rows)) + chunk(b"IEND", b""))


def blotches(width, height, seed):
    """Coloured patches: enough for the network to have opinions."""
    rng = random.Random(seed)
    patches = {}
    return [[patches.setdefault((x // 9, y // 13), tuple(rng.randrange(256) for _ in range(3))) for x in range(width)]
            for y in range(height)]


class Detect(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.TemporaryDirectory()
        self.addCleanup(self.folder.cleanup)

    def put(self, name, width, height, rgb):
        png(os.path.join(self.folder.name, name), width, height, rgb)

    def run_on(self, names, *options):
        listing = os.path.join(self.folder.name, "list.txt")
        with open(listing, "w") as f:
            f.write("\n".join(names) + "\n")
        return subprocess.run([f"{BIN}/naro-detect", *options, self.folder.name, listing], capture_output=True,
                              text=True, timeout=60)

    def boxes(self, done):
        result = []
        for line in done.stdout.splitlines():
            name, score, *corners = line.split(" ")
            result.append((name, float(score), *map(int, corners)))
        return result

    def test_every_line_is_a_box_inside_its_picture(self):
        self.put("a.png", 320, 192, blotches(320, 192, 1))
        self.put("b.png", 96, 64, blotches(96, 64, 2))
        done = self.run_on(["a.png", "b.png"], "--threshold", "0.0001", "--max", "7")
        self.assertEqual(done.returncode, 0, done.stderr)
        boxes = self.boxes(done)
        for name, (width, height) in {"a.png": (320, 192), "b.png": (96, 64)}.items():
            own = [b for b in boxes if b[0] == name]
            self.assertEqual(len(own), 7)
            for _, score, x1, y1, x2, y2 in own:
                self.assertTrue(0.0001 <= score <= 1)
                self.assertTrue(0 <= x1 <= x2 < width and 0 <= y1 <= y2 < height, (x1, y1, x2, y2))
        self.assertEqual([b[0] for b in boxes], ["a.png"] * 7 + ["b.png"] * 7)

    def test_twice_is_the_same(self):
        self.put("a.png", 160, 128, blotches(160, 128, 3))
        options = ("--threshold", "0.0001")
        first = self.run_on(["a.png"], *options)
        self.assertEqual(len(self.boxes(first)), 5)
        self.assertEqual(first.stdout, self.run_on(["a.png", ""], *options).stdout)

    def test_the_options_reach_the_detector(self):
        self.put("a.png", 160, 128, blotches(160, 128, 4))
        low = self.boxes(self.run_on(["a.png"], "--threshold", "0.0001", "--max", "10000"))
        bar = sorted(b[1] for b in low)[len(low) // 2]
        high = self.boxes(self.run_on(["a.png"], "--threshold", repr(bar + 1e-6), "--max", "10000"))
        self.assertEqual({b for b in low if b[1] > bar + 2e-6}, {b for b in high if b[1] > bar + 2e-6})
        self.assertLess(len(high), len(low))
        everything = self.boxes(self.run_on(["a.png"], "--threshold", "0.0001", "--max", "10000", "--iou", "1"))
        self.assertGreater(len(everything), len(low))

    def test_an_odd_picture_loses_its_last_column_and_row(self):
        rgb = blotches(97, 65, 5)
        self.put("odd.png", 97, 65, rgb)
        self.put("even.png", 96, 64, rgb)
        boxes = self.boxes(self.run_on(["odd.png", "even.png"], "--threshold", "0.0001"))
        self.assertEqual(len(boxes), 10)
        self.assertEqual([b[1:] for b in boxes[:5]], [b[1:] for b in boxes[5:]])

    def test_what_the_network_was_given_and_said_is_kept(self):
        os.mkdir(os.path.join(self.folder.name, "in"))
        kept = os.path.join(self.folder.name, "kept")
        os.mkdir(kept)
        self.put("in/a.png", 160, 128, blotches(160, 128, 8))
        done = self.run_on(["in/a.png"], "--threshold", "0.0001", "--max", "1", "--outputs", kept)
        self.assertEqual(done.returncode, 0, done.stderr)
        with open(f"{kept}/in_a.png.ppm", "rb") as f:
            given = f.read()
        self.assertTrue(given.startswith(b"P6\n160 128\n255\n"))
        self.assertEqual(len(given), 15 + 160 * 128 * 3)
        with open(f"{kept}/in_a.png.txt") as f:
            numbers = [float(v) for v in f.read().split()]
        cells = (5 * 4, 10 * 8, 20 * 16)
        self.assertEqual(len(numbers), 18 * sum(cells))
        # The best box printed is the output with the highest objectness.
        best, first = -math.inf, 0
        for n in cells:
            for anchor in range(3):
                at = first + (6 * anchor + 4) * n
                best = max(best, *numbers[at:at + n])
            first += 18 * n
        self.assertAlmostEqual(self.boxes(done)[0][1], 1 / (1 + math.exp(-best)), places=5)

    def test_outputs_that_cannot_be_kept_are_an_error(self):
        self.put("a.png", 96, 64, blotches(96, 64, 9))
        done = self.run_on(["a.png"], "--threshold", "0.0001", "--outputs", "/nowhere")
        self.assertEqual(done.returncode, 1)
        self.assertEqual(len(self.boxes(done)), 5)
        self.assertIn("naro-detect: a.png: /nowhere/a.png.ppm: ", done.stderr)

    def test_nothing_is_nobody(self):
        self.put("dark.png", 320, 192, [[(16, 16, 16)] * 320] * 192)
        done = self.run_on(["dark.png"])
        self.assertEqual((done.returncode, done.stdout), (0, ""))

    def test_what_cannot_be_read_is_said_and_the_rest_goes_on(self):
        self.put("good.png", 96, 64, blotches(96, 64, 6))
        self.put("thin.png", 1, 64, blotches(1, 64, 6))
        with open(os.path.join(self.folder.name, "bad.png"), "wb") as f:
            f.write(b"\x89PNG\r\n\x1a\n" + bytes(100))
        done = self.run_on(["missing.png", "bad.png", "thin.png", "good.png"], "--threshold", "0.0001")
        self.assertEqual(done.returncode, 1)
        self.assertEqual({b[0] for b in self.boxes(done)}, {"good.png"})
        for name in ("missing.png", "bad.png", "thin.png"):
            self.assertIn(f"naro-detect: {self.folder.name}/{name}: ", done.stderr)

    def test_wrong_calls(self):
        def call(*arguments):
            return subprocess.run([f"{BIN}/naro-detect", *arguments], capture_output=True, text=True, timeout=60)
        self.assertEqual(call("--help").returncode, 0)
        self.assertTrue(call("--help").stdout.startswith("usage: naro-detect "))
        for arguments in ((), ("one",), ("one", "two", "three"), ("--what", "a", "b"), (".", "/nowhere/list"),
                          ("--threshold", "2", ".", "l"), ("--max", "0", ".", "l"), ("--iou", "x", ".", "l")):
            done = call(*arguments)
            self.assertEqual((done.returncode, done.stdout), (2, ""), arguments)
            self.assertNotEqual(done.stderr, "")

    def test_results_that_cannot_be_written_are_an_error(self):
        self.put("a.png", 96, 64, blotches(96, 64, 7))
        with open(os.path.join(self.folder.name, "l"), "w") as f:
            f.write("a.png\n")
        with open("/dev/full", "w") as full:
            done = subprocess.run([f"{BIN}/naro-detect", "--threshold", "0.0001", self.folder.name,
                                   os.path.join(self.folder.name, "l")], stdout=full, stderr=subprocess.PIPE, timeout=60)
        self.assertEqual(done.returncode, 1)


if __name__ == "__main__":
    unittest.main(verbosity=1)
