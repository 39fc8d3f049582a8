"""Sums over scenes, the tables in the terminal, and the page docs/scoreboard.md."""
import statistics

from . import play, rules

LEVEL_OF_TABLE = play.DEFAULT_LEVEL


def name_of(level):
    """How a level is called in results: people level and object level."""
    return f"{level[0]}/{level[1]}"


# ---- Sums -------------------------------------------------------------------------------------------------------------

def add_counts(rows):
    total = {}
    for row in rows:
        for name, number in row.items():
            total[name] = total.get(name, 0) + number
    return dict(sorted(total.items(), key=lambda item: (-item[1], item[0])))


def side_sum(sides, numbers):
    """The sum of the people's or the objects' sides of several scores."""
    total = {name: sum(side[name] for side in sides) for name in numbers}
    total["false_by"] = add_counts(side["false_by"] for side in sides)
    total["silent_by"] = add_counts(side["silent_by"] for side in sides)
    all_episodes = [episode for side in sides for episode in side["episodes"]]
    delays = [episode["delay"] for episode in all_episodes if episode["delay"] is not None]
    total.update(episodes=len(all_episodes), reported=len(delays), missed=len(all_episodes) - len(delays),
                 delay_median=round(statistics.median(delays), 1) if delays else None,
                 delay_worst=round(max(delays), 1) if delays else None)
    return total


def total_of(scores):
    """One set of numbers for several scores (or one)."""
    scores = list(scores)
    people = side_sum([s["people"] for s in scores], ("owed", "found", "as_object", "astray", "silent", "right", "false"))
    each = [episode for s in scores for episode in s["people"]["each"]]
    people.update(each=len(each), each_reported=sum(episode["reported"] is not None for episode in each))
    objects = side_sum([s["objects"] for s in scores],
                       ("owed", "found", "as_person", "beside", "silent", "right", "person", "part", "false"))
    story = [row for s in scores for row in s["story"]]
    return {"frames": sum(s["frames"] for s in scores), "people": people, "objects": objects,
            "rest": add_counts(s["rest"] for s in scores),
            "story": len(story), "story_kept": sum(row["kept"] for row in story)}


# ---- Texts ------------------------------------------------------------------------------------------------------------

def share(part, whole):
    return f"{100 * part / whole:.0f} %" if whole else "-"


def of(part, whole):
    return f"{part}/{whole}" if whole else "-"


def seconds(value):
    return "-" if value is None else f"{value:.1f}"


def causes(counts):
    return ", ".join(f"{number} {name}" for name, number in counts.items()) or "-"


SCENE_HEAD = ("scene", "s", "people episodes", "found", "as object", "silent", "median s", "worst s", "false",
              "object episodes", "found", "false", "story")


def scene_row(name, total):
    p, o = total["people"], total["objects"]
    return (name, f"{(total['frames'] + 1) * rules.STEP_S:.0f}", of(p["reported"], p["episodes"]), share(p["found"], p["owed"]),
            share(p["as_object"], p["owed"]), share(p["silent"] + p["astray"], p["owed"]), seconds(p["delay_median"]),
            seconds(p["delay_worst"]), str(p["false"]), of(o["reported"], o["episodes"]), share(o["found"], o["owed"]),
            str(o["false"]), of(total["story_kept"], total["story"]))


def scene_rows(scenes):
    """A row for each scene at the daemon's own level, and one for all of them."""
    scores = {name: scene["scores"][name_of(LEVEL_OF_TABLE)] for name, scene in scenes.items()}
    return [scene_row(name, total_of([score])) for name, score in sorted(scores.items())] + \
        [scene_row("all", total_of(scores.values()))]


LEVEL_HEAD = ("level", "threshold", "people episodes", "each person", "found", "right", "false", "false by",
              "median s", "worst s", "story")
OBJECT_HEAD = ("level", "threshold", "object episodes", "found", "right", "a person's", "a part's", "false", "false by",
               "people episodes", "people found")


def level_totals(scenes):
    """{level's name: total} of the levels at which every scene was played."""
    named = [name_of(level) for level in play.LEVELS]
    return {name: total_of(scene["scores"][name] for scene in scenes.values()) for name in named
            if all(name in scene["scores"] for scene in scenes.values())}


def people_level_rows(totals):
    rows = []
    for level, threshold in play.THRESHOLDS.items():
        total = totals.get(name_of((level, play.DEFAULT_LEVEL[1])))
        if total:
            p = total["people"]
            rows.append((str(level), f"{threshold:.1f}", of(p["reported"], p["episodes"]), of(p["each_reported"], p["each"]),
                         share(p["found"], p["owed"]), str(p["right"]), str(p["false"]), causes(p["false_by"]),
                         seconds(p["delay_median"]), seconds(p["delay_worst"]), of(total["story_kept"], total["story"])))
    return rows


def object_level_rows(totals):
    rows = []
    for level, threshold in play.DIFFERENCES.items():
        total = totals.get(name_of((play.DEFAULT_LEVEL[0], level)))
        if total:
            o, p = total["objects"], total["people"]
            rows.append((str(level), str(threshold), of(o["reported"], o["episodes"]), share(o["found"], o["owed"]),
                         str(o["right"]), str(o["person"]), str(o["part"]), str(o["false"]), causes(o["false_by"]),
                         of(p["reported"], p["episodes"]), share(p["found"], p["owed"])))
    return rows


def at(time):
    return f"{int(time // 60)}:{time % 60:04.1f}"


def failures(scenes, level=LEVEL_OF_TABLE):
    """What went wrong at a level: [(scene, time for a picture, one line)]."""
    result = []
    for name, scene in sorted(scenes.items()):
        score = scene["scores"][name_of(level)]
        for what, side in (("person", score["people"]), ("thing", score["objects"])):
            result += [(name, (e["full"] + e["to"]) / 2, f"a {what} missed from {at(e['from'])} to {at(e['to'])}")
                       for e in side["episodes"] if e["reported"] is None]
        for what, side in (("people", score["people"]), ("object", score["objects"])):
            letter = "F" if what == "people" else "X"
            if side["false"]:
                first = (score["heard"].index(letter) + 1) * rules.STEP_S
                result.append((name, first, f"{side['false']} false {what} events: {causes(side['false_by'])}"))
        if score["people"]["as_object"]:
            first = (score["heard"].index("A") + 1) * rules.STEP_S
            result.append((name, first, f"a person taken for an object on {score['people']['as_object']} of "
                                        f"{score['people']['owed']} frames"))
        spans = {row["what"] for row in score["story"] if row["from"] is not None}
        for row in score["story"]:
            if not row["kept"]:
                span = f" from {at(row['from'])} to {at(row['to'])}" if row["from"] is not None else \
                    " in all the rest" if row["what"] in spans else ""
                found = "none came" if row["rule"] == "wanted" else "some came"
                result.append((name, None, f"story: {row['what']} events {row['rule']}{span}: {found}"))
    return result


def plain_table(head, rows):
    """For the terminal."""
    widths = [max(len(row[column]) for row in [head, *rows]) for column in range(len(head))]
    lines = []
    for row in [head, tuple("-" * width for width in widths), *rows]:
        cells = [row[0].ljust(widths[0])] + [cell.rjust(width) for cell, width in zip(row[1:], widths[1:])]
        lines.append("  ".join(cells).rstrip())
    return "\n".join(lines)


def page_table(head, rows):
    """For the page."""
    lines = ["| " + " | ".join(head) + " |", "|---" + "|---:" * (len(head) - 1) + "|"]
    return "\n".join(lines + ["| " + " | ".join(row) + " |" for row in rows])


def terminal(scenes):
    """Everything, for the terminal."""
    texts = [plain_table(SCENE_HEAD, scene_rows(scenes))]
    totals = level_totals(scenes)
    if len(totals) > 1:
        texts += ["People sensitivity, all scenes:\n" + plain_table(LEVEL_HEAD, people_level_rows(totals)),
                  "Object sensitivity, all scenes:\n" + plain_table(OBJECT_HEAD, object_level_rows(totals))]
    failed = failures(scenes)
    if failed:
        texts.append("What failed:\n" + "\n".join(f"  {name}: {text}" for name, _, text in failed))
    return "\n\n".join(texts)


# ---- The page ---------------------------------------------------------------------------------------------------------

PAGE = """\
# Scoreboard

The real daemon on every scene of `scenes/`, its broadcasts held against what each scene knows to be true. This page, its
pictures and `scoreboard.json` are made by `tools/naro-score --update-docs`; figures are of that run. How they are
counted stands [below](#rules).

{summary}

## Scenes

At the daemon's own level ({level}). *Found*, *as object* and *silent* are shares of the frames on which a person (a
thing) is owed; seconds run from fully visible to reported; *false* are events; *story* is how many of the scene's own
wishes were kept.

{scenes}

![for every scene what was there and what was reported](scoreboard-scenes.svg)

## Levels

{levels}

## What failed

{failed}

## Rules

{rules}"""

LEVELS_TEXT = """\
![what each level finds, and what it calls falsely](scoreboard-levels.svg)

People sensitivity, the setting `people_sensitivity`: the score at which the detector's box counts. All scenes, object
level {objects}.

{people_table}

Object sensitivity, the setting `motion_region`: the difference at which a block of 8 x 8 pixels counts as moved. All
scenes, people level {people}. The difference is also what people are looked for in.

{object_table}"""


def summary_text(total, scenes):
    p, o = total["people"], total["objects"]
    return (f"{len(scenes)} scenes, {total['frames']} frames judged. **People:** {p['reported']} of {p['episodes']} episodes "
            f"reported, {p['missed']} missed; median {seconds(p['delay_median'])} s, at worst {seconds(p['delay_worst'])} s "
            f"after they were fully visible; found on {share(p['found'], p['owed'])} of the frames on which one is owed; "
            f"{p['right']} people events right, {p['false']} false ({causes(p['false_by'])}). **Objects:** {o['reported']} "
            f"of {o['episodes']} episodes reported, {o['missed']} missed; {o['right']} object events right, {o['false']} false "
            f"({causes(o['false_by'])}), {o['person']} for a person who was taken for an object. **Stories:** "
            f"{total['story_kept']} of {total['story']} wishes kept. People at rest: {total['rest']['frames']} frames, people "
            f"events on {total['rest']['people']} of them.")


def page(scenes, fails_picture):
    """docs/scoreboard.md. `fails_picture`: its name, if there is one."""
    totals = level_totals(scenes)
    level = name_of(LEVEL_OF_TABLE)
    total = totals[level]
    failed = failures(scenes)
    text = "\n".join(f"- **{name}**: {line}" for name, _, line in failed) or "Nothing."
    if fails_picture and failed:
        text = f"![a picture of each kind of failure]({fails_picture})\n\n" + text
    if len(totals) > 1:
        levels = LEVELS_TEXT.format(objects=play.DEFAULT_LEVEL[1], people=play.DEFAULT_LEVEL[0],
                                    people_table=page_table(LEVEL_HEAD, people_level_rows(totals)),
                                    object_table=page_table(OBJECT_HEAD, object_level_rows(totals)))
    else:
        levels = "Only the daemon's own level was measured."
    named = f"people {play.DEFAULT_LEVEL[0]}, objects {play.DEFAULT_LEVEL[1]}"
    return PAGE.format(summary=summary_text(total, scenes), level=named, scenes=page_table(SCENE_HEAD, scene_rows(scenes)),
                       levels=levels, failed=text, rules=rules.RULES)
