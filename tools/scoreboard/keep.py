"""The result that is kept, and what is worse than it.

Where the pictures were the same to the byte (their digest is kept), the daemon has no excuse and any number that is
worse counts. On another machine the drawing may round differently; then small changes are let pass, as TOLERANCE says.
The truth is the same everywhere: where it differs from the kept one, the scene itself was changed, and the result has
to be looked at and kept anew."""
from . import board

FRAMES = 0.05        # of the owed frames that may be lost, and at least so many:
FRAMES_LEAST = 3
FALSE = 0.02         # of all frames that may be false events more, and at least so many:
FALSE_LEAST = 3
DELAY_S = 0.4        # an episode may be reported later by so much

TOLERANCE = f"""\
Worse is: an episode missed, or a wish of the story broken, that was not before; an episode reported later; fewer owed
frames found; more false events. With the same pictures to the byte, by any amount; with others (another machine's drawing
rounds differently) only by more than {DELAY_S:g} s of delay, {FRAMES:.0%} of the owed frames (at least {FRAMES_LEAST}), or false
events on {FALSE:.0%} of all frames (at least {FALSE_LEAST})."""


def kept_form(scenes):
    """What of a result is kept: the numbers that are compared, of the daemon's own level."""
    kept = {}
    for name, scene in sorted(scenes.items()):
        score = scene["scores"][board.name_of(board.LEVEL_OF_TABLE)]
        kept[name] = {
            "pictures": scene["pictures"],
            "frames": score["frames"],
            **{key: {"owed": score[key]["owed"], "found": score[key]["found"], "false": score[key]["false"],
                     "episodes": [[e["from"], e["to"], e["delay"]] for e in score[key]["episodes"]]}
               for key in ("people", "objects")},
            "story": [row["kept"] for row in score["story"]],
        }
    return kept


def truth_of(entry):
    """What of an entry does not depend on pictures."""
    return (entry["frames"], len(entry["story"]),
            *((entry[key]["owed"], [episode[:2] for episode in entry[key]["episodes"]]) for key in ("people", "objects")))


def side_worse(name, now, before, frames, exact):
    found = []
    for (start, end, delay), (_, _, old) in zip(now["episodes"], before["episodes"]):
        where = f"{name}, {board.at(start)} to {board.at(end)}"
        if old is None:
            continue
        if delay is None:
            found.append(f"{where}: missed; before, it was reported after {old:.1f} s")
        elif delay > old + (0 if exact else DELAY_S) + 1e-6:
            found.append(f"{where}: reported after {delay:.1f} s; before, after {old:.1f} s")
    loss = 0 if exact else max(FRAMES_LEAST, FRAMES * before["owed"])
    if now["found"] < before["found"] - loss:
        found.append(f"{name}: found on {now['found']} of {now['owed']} frames; before, on {before['found']}")
    more = 0 if exact else max(FALSE_LEAST, FALSE * frames)
    if now["false"] > before["false"] + more:
        found.append(f"{name}: {now['false']} false events; before, {before['false']}")
    return found


def worse(now, before):
    """What of a result is worse than the kept one, a line for each; both in the kept form. Scenes that only one of them
    has are a difference, too."""
    found = [f"{name}: has no kept result" for name in sorted(set(now) - set(before))]
    found += [f"{name}: was not played" for name in sorted(set(before) - set(now))]
    for name in sorted(set(now) & set(before)):
        a, b = now[name], before[name]
        if truth_of(a) != truth_of(b):
            found.append(f"{name}: the scene itself has changed; look at its score, and keep it")
            continue
        exact = a["pictures"] is not None and a["pictures"] == b["pictures"]
        for key in ("people", "objects"):
            found += [f"{name}: {line}" for line in side_worse(key, a[key], b[key], a["frames"], exact)]
        broken = sum(old and not new for new, old in zip(a["story"], b["story"]))
        if broken:
            found.append(f"{name}: {broken} of the story's wishes broken that were kept before")
    return found
