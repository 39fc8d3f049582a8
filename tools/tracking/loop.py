"""What a run of naro-track-sim says about following: its lines read, and figures made of them."""
import json
import math
import os
import statistics
import subprocess
import tempfile

STEP_MS = 200
DEAD_ZONE = 10  # the daemon's, degrees
# A moment that shows less of the target than this says nothing about where it is.
VISIBLE = 0.05
DISTANCES = ((0, 2.5), (2.5, 4), (4, 6), (6, 9))

# Each of the motor's numbers by a fifth, those of both axes together.
PARAMETERS = {
    "speed": {"pan_speed": 60, "tilt_speed": 40},
    "acceleration": {"pan_acceleration": 240, "tilt_acceleration": 160},
    "latency": {"latency_ms": 50},
    "settle": {"settle_ms": 40},
    "backlash": {"pan_backlash": 0.8, "tilt_backlash": 0.8},
    "step": {"step": 360 / 4096},
}
FIFTH = 0.2


def variants():
    """Name -> options of the simulation. The first is the usual motor."""
    result = {"usual": []}
    for name, keys in PARAMETERS.items():
        for sign in (-1, 1):
            options = []
            for key, value in keys.items():
                options += ["--motor", f"{key}={value * (1 + sign * FIFTH):.10g}"]
            result[f"{name}{'+' if sign > 0 else '-'}20"] = options
    return result


def simulate(program, scene, options):
    """The lines of one run, as objects."""
    with tempfile.TemporaryDirectory(prefix="naro-track-") as root:
        done = subprocess.run([program, "--scene", scene, *options], env={**os.environ, "NARO_ROOT": root},
                              stdout=subprocess.PIPE, check=True)
    return read(done.stdout.decode())


def read(text):
    return [json.loads(line) for line in text.splitlines()]


def angle(offset, half, factor):
    """Degrees as the daemon reckons them, without cutting them to whole ones."""
    return math.degrees(math.atan(offset / half * factor))


def place(frame):
    """(pan, tilt) of the target's middle in the picture, degrees right and down; None where it is not to be seen."""
    target = frame.get("target")
    if not target or target["visible"] < VISIBLE:
        return None
    x1, y1, x2, y2 = target["box"]
    return (angle((x1 + x2) / 2 - 160, 160, 2.56 / 2.6856), angle((y1 + y2) / 2 - 96, 96, 1.44 / 3.3888))


def in_zone(where, axis):
    return where is not None and abs(where[axis]) < DEAD_ZONE


class Run:
    """One scene with one motor."""

    def __init__(self, lines):
        self.frames = [line for line in lines if "frame" in line]
        self.moves = [line for line in lines if "move" in line]
        self.drops = [line for line in lines if "drop" in line]
        # While the target is in the room. The first picture is only compared with.
        self.watched = [frame for frame in self.frames[1:] if "target" in frame]
        self.minutes = len(self.frames) * STEP_MS / 60000
        self.places = {frame["frame"]: place(frame) for frame in self.frames}

    def episodes(self, axis=0):
        """Each time that the target was not in the zone: (milliseconds until it was, or None; its distance at first;
        whether it was to be seen all the time)."""
        found, since, seen = [], None, True
        for frame in self.watched:
            where = self.places[frame["frame"]]
            if in_zone(where, axis):
                if since:
                    found.append((frame["t"] - since["t"], since["target"]["distance"], seen))
                since = None
            elif since is None:
                since, seen = frame, where is not None
            else:
                seen = seen and where is not None
        if since:
            found.append((None, since["target"]["distance"], seen))
        return found

    def overshoots(self):
        """For each move to the side: how far beyond the middle the target was in the first picture after it, degrees; 0
        where it had not got so far. The target has moved on meanwhile: that is in it."""
        found = []
        for move in self.moves:
            asked = json.loads(move["move"])[0]
            after = next((frame for frame in self.watched if frame["t"] >= move["end"]), None)
            if not asked or not after or self.places[after["frame"]] is None:
                continue
            beyond = -self.places[after["frame"]][0] * (1 if asked > 0 else -1)
            found.append(max(0.0, beyond))
        return found

    def travel(self):
        return sum(abs(move["to"][axis] - move["from"][axis]) for move in self.moves for axis in (0, 1))

    def reasons(self):
        """Frames on which the target was off the zone to the side and moved, by what came of them."""
        counts = {}
        for frame in self.watched:
            if in_zone(self.places[frame["frame"]], 0) or not frame["target"]["moves"]:
                continue
            counts[reason(frame)] = counts.get(reason(frame), 0) + 1
        return counts

    def astray(self):
        """Requests to the side that led away from the target, or were made while it was not to be seen."""
        count = 0
        for frame in self.watched:
            if frame.get("said") == "request" and frame["angle"][0]:
                where = self.places[frame["frame"]]
                count += where is None or where[0] * frame["angle"][0] < 0
        return count

    def count(self, condition):
        return sum(1 for frame in self.watched if condition(frame))


REASONS = {
    "turning": "the motor is busy",
    "whole": "motion everywhere is no motion",
    "middle": "the middle of all that moved is within 10 degrees",
    "spacing": "less than 151 ms after the last request",
    "still": "no motion was seen",
    "request": "a request",
}


def reason(frame):
    if frame["busy"]:
        return "turning"
    if "motion" not in frame:
        return "still"
    if frame["whole"]:
        return "whole"
    # Of the real daemon's frames it is not known what the tracker said.
    return {"calm": "middle", "spacing": "spacing", "request": "request"}.get(frame.get("said"), "still")


def median(values):
    return statistics.median(values) if values else None


def figures(runs):
    """Figures of one or more runs together."""
    episodes = [episode for run in runs for episode in run.episodes()]
    times = [ms for ms, _, _ in episodes if ms is not None]
    overshoots = [value for run in runs for value in run.overshoots()]
    watched = sum(len(run.watched) for run in runs)
    minutes = sum(run.minutes for run in runs)
    moves = sum(len(run.moves) for run in runs)
    requests = sum(run.count(lambda f: f.get("said") == "request") for run in runs)
    own = lambda f: f["view_moves"] and "motion" in f  # noqa: E731
    result = {
        "episodes": len(episodes),
        "brought in": len(times),
        "time": median(times),
        "time worst": max(times, default=None),
        "by distance": {f"{low:g}-{high:g}": (median([ms for ms, far, _ in episodes if ms is not None and low <= far < high]),
                                              sum(low <= far < high for _, far, _ in episodes))
                        for low, high in DISTANCES},
        "in zone": sum(run.count(lambda f, r=run: in_zone(r.places[f["frame"]], 0)) for run in runs) / watched,
        "in zone both": sum(run.count(lambda f, r=run: in_zone(r.places[f["frame"]], 0) and
                                      in_zone(r.places[f["frame"]], 1)) for run in runs) / watched,
        "seen": sum(run.count(lambda f, r=run: r.places[f["frame"]] is not None) for run in runs) / watched,
        "overshoot": median(overshoots),
        "overshoot worst": max(overshoots, default=None),
        "overshot": sum(value >= DEAD_ZONE for value in overshoots) / len(overshoots) if overshoots else None,
        "degrees": sum(run.travel() for run in runs) / minutes,
        "requests": requests / minutes,
        "moves": moves / minutes,
        "drops": sum(len(run.drops) for run in runs) / minutes,
        "spacing": sum(run.count(lambda f: f.get("said") == "spacing") for run in runs) / minutes,
        "own motion": sum(run.count(own) for run in runs) / watched,
        "own whole": sum(run.count(lambda f: own(f) and f["whole"]) for run in runs) / watched,
        "own requests": sum(run.count(lambda f: own(f) and f.get("said") == "request") for run in runs) / minutes,
        "astray": sum(run.astray() for run in runs) / minutes,
        # Off the zone upwards or downwards, and the rule that pans before it tilts says neither.
        "pan first": sum(run.count(lambda f, r=run: r.places[f["frame"]] is not None and not f["busy"] and
                                   not in_zone(r.places[f["frame"]], 1) and f.get("said") == "calm" and f["angle"][0] != 0)
                         for run in runs) / watched,
        "off tilt": sum(run.count(lambda f, r=run: r.places[f["frame"]] is not None and
                                  not in_zone(r.places[f["frame"]], 1)) for run in runs) / watched,
        "tilts": sum(sum(json.loads(move["move"])[1] != 0 for move in run.moves) for run in runs) / minutes,
        "reasons": {},
    }
    for run in runs:
        for name, count in run.reasons().items():
            result["reasons"][name] = result["reasons"].get(name, 0) + count
    return result
