"""Truths and events by hand, for the scoreboard's tests."""
import os
import sys

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "../../tools"))


def actor(number=1, kind="person", visible=1.0, x=100, moves=True, box=None, name=None):
    """40 x 100 pixels unless a box is given."""
    return {"actor": number, "name": name or f"{kind}{number}", "kind": kind, "doing": "", "visible": visible,
            "box": box or ([x, 50, x + 40, 150] if visible > 0 else [0, 0, 0, 0]), "distance": 3.0, "moves": moves,
            "lux": 100.0, "infrared": 0.0}


def line(number, *actors, **changes):
    return {"time": round(number * 0.2, 3), "number": number, "actors": list(actors), "filter": True, "grey": False,
            "infrared_lamp": False, "white_lamp": False, "lamps": {"ceiling": True}, "stirs": [], "pan": 0.0,
            "tilt": 0.0, "view_moves": False, "light_changes": False, "hour": 12.0, **changes}


def scene(*frames):
    """Lines from a list of actors (or a pair of actors and changes) for each frame."""
    lines = []
    for number, frame in enumerate(frames):
        actors, changes = frame if isinstance(frame, tuple) else (frame, {})
        lines.append(line(number, *actors, **changes))
    return lines


def walk(frames, first=0, **more):
    """Frames with one actor that goes 4 pixels to the right with each."""
    return [[actor(x=40 + 4 * (first + at), **more)] for at in range(frames)]


def box_of(what):
    """(x, y, width, height) of a truth's actor, as an event tells it."""
    x1, y1, x2, y2 = what["box"]
    return [x1, y1, x2 - x1, y2 - y1]


def people(number, *boxes):
    return {"time_ms": number * 200, "event": "PeopleMotion", "boxes": list(boxes)}


def objects(number):
    return {"time_ms": number * 200, "event": "ObjectMotion", "boxes": []}
