"""What is right, missed and false. Everything that judges is here, and RULES says it in words; a number that stands
there is taken from the constants below.

A truth is a list of frames and an event list a list of events, as naro_camera writes them (--truth FILE, --json): one
dict for each line. Frame 0 is only compared with by the daemon and is not judged."""

STEP_S = 0.2           # from a frame to the next
OWED_SHARE = 0.5       # of a person or thing: visible enough to be reported
FULL_SHARE = 0.95      # fully visible
EDGE_PX = 2            # of 320 x 192: an edge of the box that moves so far in a step is motion that is seen
THING_PX = 64          # a thing's box below this many pixels, a block of the motion map, is too small to be owed
PAUSE_S = 1.0          # a shorter pause does not end an episode
EPISODE_S = 1.0        # so many seconds of motion make an episode
LEAD_S = 2.0           # a report so long before an episode, while they came into view, counts for it
LIGHT_S = 2.0          # after a light has changed the exposure still follows
VIEW_S = 0.4           # after the view has turned
SHARED = 0.5           # of the smaller of two boxes that must lie in the other for them to be the same
TIMES = 10             # and how many times larger the other may be
EVERYWHERE_PX = 16     # motion that comes so near to all four edges is motion everywhere

PEOPLE_EVENT = "PeopleMotion"
OBJECT_EVENT = "ObjectMotion"
LIGHT_OF_ROOM = ("headlights", "tv")  # of what moves in a room: only its light does
STAYS = ("coat", "fan")               # kinds of things that only stir where they are
SHADOW = "shadow"                     # the kind of thing that is outside, and only its shadow is seen

RULES = f"""\
**Frames.** The daemon gets five frames a second, compares each with the one before, and broadcasts nothing,
"{PEOPLE_EVENT}" or "{OBJECT_EVENT}" for it. A scene knows of each frame who and what is where, which share of it is
visible, and whether it moved since the frame before. The first frame, which is only compared with, is not judged.

**A person is owed** on a frame when at least {OWED_SHARE:.0%} of them is visible and they move so that it shows: an edge of
their box moved by {EDGE_PX} pixels or more (while the view turns, which moves every box: when they were owed as it began).
Darkness is no excuse. On such a frame the daemon has *found* the person, or taken
them *for an object* ("{OBJECT_EVENT}"), or pointed *astray* ("{PEOPLE_EVENT}" with no box on anybody), or kept *silent*.
Silence is listed by what stood in its way: the view turned, a light changed, motion was everywhere (within
{EVERYWHERE_PX} pixels of all four edges, which the daemon takes for no motion), or nothing of that.

**A people event is right** when one of its boxes lies on a person of whom anything is visible, moving or not: box and
person share at least {SHARED:.0%} of the smaller of the two, and neither is more than {TIMES} times as large as the other. Else
it is **false**, and listed by its cause: the kind of thing that the box lies on; the view; a light; "beside" when a person
is in the picture and the box is not on them; "nothing".

**An episode** is a stretch of owed frames, pauses of up to {PAUSE_S:g} s included, with at least {EPISODE_S:g} s of motion. It is
**reported** when a right people event falls into it (or into the {LEAD_S:g} s before it, while somebody was in view), else
**missed**. Its **delay** runs from the first frame on which somebody of it is fully visible ({FULL_SHARE:.0%}; if nobody gets so
far, the frame of the largest share) to the first right people event, and is never below 0. Episodes are counted for the
picture, as events are. *Each person* counts the same stretches for every single one, reported by a box on that person.

**People at rest**, visible but not owed and nobody else owed, are counted apart: the daemon looks only at what moves.

**A thing is owed** on a frame when it moves so that it shows, at least {OWED_SHARE:.0%} of it is visible, its box has at least
{THING_PX} pixels, and no visible person moves; but not what only stirs where it is ({", ".join(STAYS)}). The daemon has found
it ("{OBJECT_EVENT}"), or taken it *for a person* (a false people event), or kept silent; a right people event on a person at
rest is neither. Episodes and delays are as with people.

**An object event is** *a person's* when a person is owed on the frame: the person was taken for an object. Else it is
**right** when a thing moves of which anything is visible, on this frame or the one before, or a part of the room does
(door, curtain, hanging lamp). Else it is *a part's* when a person moves who is not owed (half in the picture, at rest but
for the hands, just gone). Else it is **false**, by cause: the view turned (up to {VIEW_S:g} s ago), a light changed (up to
{LIGHT_S:g} s ago), headlights, the television, a shadow from outside, "nothing".

**The story** of a scene says what a good camera does: events that are wanted in a span of time (one is enough) or
forbidden in it (none). Each such line is kept or broken.
"""


class Bad(Exception):
    """A truth or event list that cannot be judged; says which line and why."""


# ---- Boxes ------------------------------------------------------------------------------------------------------------

def area(box):
    return max(0, box[2] - box[0]) * max(0, box[3] - box[1])


def shared(a, b):
    """Pixels that two boxes (x1, y1, x2, y2) have in common."""
    return area((max(a[0], b[0]), max(a[1], b[1]), min(a[2], b[2]), min(a[3], b[3])))


def same(a, b):
    """Whether two boxes are of the same thing."""
    small, large = sorted((area(a), area(b)))
    return small > 0 and shared(a, b) >= SHARED * small and large <= TIMES * small


def corners(box):
    """(x, y, width, height) of an event as (x1, y1, x2, y2)."""
    return box[0], box[1], box[0] + box[2], box[1] + box[3]


# ---- What is true of a frame ------------------------------------------------------------------------------------------

class Frame:
    """A frame, with what the rules ask of it. `before` is the frame before, None for the first."""

    def __init__(self, line, before):
        self.time, self.number = line["time"], line["number"]
        self.line = line
        self.actors = {actor["actor"]: actor for actor in line["actors"]}
        was = before.actors if before else {}
        self.view_turned = self.time if line["view_moves"] else before.view_turned if before else None
        self.light_changed = self.time if self._light_differs(before) else before.light_changed if before else None
        self.room_moves = set(line["stirs"])
        self.people = [a for a in self.actors.values() if a["kind"] == "person" and a["visible"] > 0]
        self.owed_people = [a for a in self.people if self._owed(a, before)]
        # Whatever was in the picture a step ago and is not now has moved: its trace is in the difference.
        gone = [a for number, a in was.items() if number not in self.actors and a["visible"] > 0]
        self.movers = gone + [a for number, a in self.actors.items() if a["moves"] and
                              max(a["visible"], was[number]["visible"] if number in was else 0) > 0]
        self.person_moves = any(a["kind"] == "person" for a in self.movers)
        self.thing_moves = any(a["kind"] not in ("person", SHADOW) for a in self.movers) or \
            bool(self.room_moves - set(LIGHT_OF_ROOM))
        self.shadow_moves = any(a["kind"] == SHADOW and a["moves"] for a in self.actors.values())
        self.owed_things = [] if self.person_moves else \
            [a for a in self.actors.values() if a["kind"] not in ("person", SHADOW, *STAYS) and
             area(a["box"]) >= THING_PX and self._owed(a, before)]
        self.everywhere = self._everywhere(was)

    def _light_differs(self, before):
        if self.line["light_changes"]:
            return True
        keys = ("filter", "grey", "infrared_lamp", "white_lamp")
        return before is not None and any(self.line[key] != before.line[key] for key in keys)

    def _owed(self, actor, before):
        """Whether enough of it is visible and moves so that it shows."""
        number = actor["actor"]
        if actor["visible"] < OWED_SHARE or not actor["moves"] or before is None:
            return False
        if self.line["view_moves"]:
            # Every box moves, and tells nothing: as it was when the view stood still.
            return any(a["actor"] == number for a in before.owed_people + before.owed_things)
        was = before.actors.get(number)
        return was is None or max(abs(a - b) for a, b in zip(actor["box"], was["box"])) >= EDGE_PX

    def _everywhere(self, was):
        boxes = [a["box"] for a in self.movers if area(a["box"])]
        boxes += [was[a["actor"]]["box"] for a in self.movers if a["actor"] in was and area(was[a["actor"]]["box"])]
        if not boxes:
            return False
        x1, y1, x2, y2 = (pick(box[i] for box in boxes) for i, pick in enumerate((min, min, max, max)))
        return x1 < EVERYWHERE_PX and y1 < EVERYWHERE_PX and x2 > 320 - EVERYWHERE_PX and y2 > 192 - EVERYWHERE_PX

    def _within(self, since, limit):
        return since is not None and self.time - since < limit + STEP_S / 2

    def disturbance(self):
        """What of the camera or the lights may have made the difference: "view", "light" or None."""
        if self._within(self.view_turned, VIEW_S):
            return "view"
        return "light" if self._within(self.light_changed, LIGHT_S) else None

    def lies_on(self, box, kinds):
        """The actors of those kinds (a predicate) that the box is of."""
        return [a for a in self.actors.values() if kinds(a["kind"]) and a["visible"] > 0 and same(box, a["box"])]


def read_truth(lines):
    """Frames from the truth's lines (dicts)."""
    frames = []
    for at, line in enumerate(lines, 1):
        try:
            frames.append(Frame(line, frames[-1] if frames else None))
        except (KeyError, TypeError, IndexError) as problem:
            raise Bad(f"truth, line {at}: {type(problem).__name__} {problem}") from None
        if line["number"] != at - 1:
            raise Bad(f"truth, line {at}: frame {line['number']}, expected frame {at - 1}")
    if len(frames) < 2:
        raise Bad(f"truth: {len(frames)} frames; at least two are needed to compare")
    return frames


# ---- Verdicts ---------------------------------------------------------------------------------------------------------

def people_verdict(frame, boxes):
    """Of a people event: ("right", the persons that were found) or ("false", its cause)."""
    found = []
    for box in boxes:
        found += [a for a in frame.lies_on(box, lambda kind: kind == "person") if a not in found]
    if found or (not boxes and frame.people):
        return "right", found
    for box in boxes:
        things = frame.lies_on(box, lambda kind: kind != "person")
        if things:
            return "false", max(things, key=lambda a: shared(box, a["box"]))["kind"]
    return "false", frame.disturbance() or ("beside" if frame.people else "nothing")


def object_verdict(frame):
    """Of an object event: ("person", None), ("right", None), ("part", None) or ("false", its cause)."""
    if frame.owed_people:
        return "person", None
    if frame.thing_moves:
        return "right", None
    if frame.person_moves:
        return "part", None
    cause = frame.disturbance()
    if not cause:
        cause = next((name for name in LIGHT_OF_ROOM if name in frame.room_moves), None)
    if not cause and frame.shadow_moves:
        cause = SHADOW
    return "false", cause or "nothing"


class Judged:
    """A frame and what was broadcast for it."""

    def __init__(self, frame, events):
        self.frame = frame
        self.people = self.objects = None  # verdicts; None: no such event
        self.found = []                    # persons with a box on them
        self.extra = []                    # names of other events
        for event in events:
            if event["event"] == PEOPLE_EVENT:
                self.people, detail = people_verdict(frame, [corners(box) for box in event["boxes"]])
                self.people_cause = detail if self.people == "false" else None
                self.found = detail if self.people == "right" else []
            elif event["event"] == OBJECT_EVENT:
                self.objects, self.object_cause = object_verdict(frame)
            else:
                self.extra.append(event["event"])

    def of_people(self):
        """How a frame on which a person is owed ended."""
        if self.people:
            return "found" if self.people == "right" else "astray"
        return "as_object" if self.objects else "silent"

    def of_things(self):
        """How a frame on which a thing is owed ended."""
        if self.people:
            return "beside" if self.people == "right" else "as_person"
        return "found" if self.objects else "silent"

    def why_silent(self):
        return self.frame.disturbance() or ("everywhere" if self.frame.everywhere else "other")


def judge(frames, events):
    """A Judged for each frame after the first."""
    by_time = {}
    for event in events:
        by_time.setdefault(event["time_ms"], []).append(event)
    known = {round(frame.time * 1000): frame for frame in frames}
    stray = sorted(set(by_time) - set(known))
    if stray:
        raise Bad(f"events: an event at {stray[0]} ms, and the truth has no frame of that time")
    if round(frames[0].time * 1000) in by_time:
        raise Bad("events: an event for the first frame, which has nothing to be compared with")
    return [Judged(frame, by_time.get(round(frame.time * 1000), [])) for frame in frames[1:]]


# ---- Episodes ---------------------------------------------------------------------------------------------------------

def stretches(flags):
    """(first, last) index of each stretch of true flags, short pauses included, that is long enough to be an episode."""
    pause, least = round(PAUSE_S / STEP_S), round(EPISODE_S / STEP_S)
    found = []
    for at, flag in enumerate(flags):
        if not flag:
            continue
        if found and at - found[-1][1] - 1 <= pause:
            found[-1] = (found[-1][0], at, found[-1][2] + 1)
        else:
            found.append((at, at, 1))
    return [(first, last) for first, last, count in found if count >= least]


def episodes(judged, owed, share, present, reported):
    """The episodes of what owed(judged) is true of. share(judged): the largest visible share of it; present(judged): any
    of it is in view; reported(judged): a report that counts for it."""
    result = []
    for first, last in stretches([owed(j) for j in judged]):
        start = first
        while start > 0 and first - start < round(LEAD_S / STEP_S) and present(judged[start - 1]):
            start -= 1
        shares = [share(j) for j in judged[first:last + 1]]
        full = next((at for at, value in enumerate(shares) if value >= FULL_SHARE), shares.index(max(shares)))
        heard = next((j for j in judged[start:last + 1] if reported(j)), None)
        full_at = judged[first + full].frame.time
        result.append({"from": judged[first].frame.time, "to": judged[last].frame.time, "full": full_at,
                       "reported": heard.frame.time if heard else None,
                       "delay": round(max(0, heard.frame.time - full_at), 3) if heard else None})
    return result


def largest_share(actors):
    return max((a["visible"] for a in actors), default=0)


def episodes_of_people(judged):
    return episodes(judged, lambda j: bool(j.frame.owed_people), lambda j: largest_share(j.frame.owed_people),
                    lambda j: bool(j.frame.people), lambda j: j.people == "right")


def episodes_of_things(judged):
    return episodes(judged, lambda j: bool(j.frame.owed_things), lambda j: largest_share(j.frame.owed_things),
                    lambda j: any(a["kind"] not in ("person", SHADOW) for a in j.frame.movers),
                    lambda j: j.objects == "right")


def episodes_of_each(judged):
    """The same for every single person: {name, from, to, full, reported, delay}."""
    names = {a["actor"]: a["name"] for j in judged for a in j.frame.people}
    result = []
    for number, name in sorted(names.items()):
        def this(actors, number=number):
            return [a for a in actors if a["actor"] == number]
        result += [{"name": name, **episode} for episode in
                   episodes(judged, lambda j: bool(this(j.frame.owed_people)), lambda j: largest_share(this(j.frame.people)),
                            lambda j: bool(this(j.frame.people)), lambda j: bool(this(j.found)))]
    return result


# ---- The score of a scene ---------------------------------------------------------------------------------------------

def count(values, names=()):
    """How often each value occurs; the names that always appear come first."""
    result = {name: 0 for name in names}
    for value in values:
        result[value] = result.get(value, 0) + 1
    return result


def story_kept(judged, expects):
    """What the story asks for and whether it was so: {what, rule, from, to, kept}, spans first, then all the rest of the
    scene for each event of which something is said there."""
    spans = expects.get("spans", [])
    result = []
    for key, attribute in (("people", "people"), ("objects", "objects")):
        def times(inside):
            return [j.frame.time for j in judged if getattr(j, attribute) and inside(j.frame.time)]

        def add(rule, first, last, found):
            if rule in ("wanted", "forbidden"):
                result.append({"what": key, "rule": rule, "from": first, "to": last,
                               "kept": bool(found) == (rule == "wanted")})
        # A span that says nothing about this event belongs to the rest.
        mine = [span for span in spans if span.get(key)]
        for span in mine:
            add(span[key], span["from"], span["to"], times(lambda t, s=span: s["from"] <= t <= s["to"]))
        rest = times(lambda t: not any(span["from"] <= t <= span["to"] for span in mine))
        add(expects.get(key), None, None, rest)
    return result


def lanes(judged):
    """Two letters' strings for pictures, one letter a frame. Truth: P a person owed, p one in view, O a thing moves, V the
    view turns, L a light changed. Events: R people right, F people false, A a person as object, o object right,
    e of a part, X object false."""
    truth, heard = "", ""
    for j in judged:
        f = j.frame
        truth += "P" if f.owed_people else "O" if f.thing_moves else "p" if f.people else \
            {"view": "V", "light": "L", None: "."}[f.disturbance()]
        heard += {"right": "R", "false": "F"}[j.people] if j.people else \
            {"person": "A", "right": "o", "part": "e", "false": "X", None: "."}[j.objects]
    return truth, heard


def score(truth_lines, events, expects=None):
    """The score of one scene at one level."""
    frames = read_truth(truth_lines)
    judged = judge(frames, events)
    owed = [j for j in judged if j.frame.owed_people]
    owed_things = [j for j in judged if j.frame.owed_things]
    rest = [j for j in judged if j.frame.people and not j.frame.owed_people]
    each = episodes_of_each(judged)
    truth, heard = lanes(judged)
    return {
        "frames": len(judged),
        "people": {
            "owed": len(owed),
            **count((j.of_people() for j in owed), ("found", "as_object", "astray", "silent")),
            "silent_by": count(j.why_silent() for j in owed if j.of_people() == "silent"),
            "right": sum(j.people == "right" for j in judged),
            "false": sum(j.people == "false" for j in judged),
            "false_by": count(j.people_cause for j in judged if j.people == "false"),
            "episodes": episodes_of_people(judged),
            "each": each,
        },
        "objects": {
            "owed": len(owed_things),
            **count((j.of_things() for j in owed_things), ("found", "as_person", "beside", "silent")),
            "silent_by": count(j.why_silent() for j in owed_things if j.of_things() == "silent"),
            **count((j.objects for j in judged if j.objects), ("right", "person", "part", "false")),
            "false_by": count(j.object_cause for j in judged if j.objects == "false"),
            "episodes": episodes_of_things(judged),
        },
        "rest": {"frames": len(rest), "people": sum(j.people == "right" for j in rest),
                 "objects": sum(bool(j.objects) for j in rest)},
        "other_events": count(name for j in judged for name in j.extra),
        "story": story_kept(judged, expects or {}),
        "truth": truth,
        "heard": heard,
    }
