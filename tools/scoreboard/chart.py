"""The scoreboard's pictures, as SVG: what was there and what was reported in every scene, and what each level gives."""
from xml.sax.saxutils import escape

from . import board, play

FONT = "DejaVu Sans, Verdana, Helvetica, Arial, sans-serif"
INK, FAINT, GRID, PAPER, EMPTY = "#1d2730", "#66727d", "#dfe4e8", "#ffffff", "#edf0f3"

# Letters of rules.lanes(): colour, and what it means.
TRUTH = {"P": ("#2368b3", "a person moves"), "p": ("#b5d0ee", "a person at rest, or partly in view"),
         "O": ("#e3a12f", "a thing moves"), "V": ("#8d7cc4", "the view turns"), "L": ("#f0dc5a", "a light changed")}
HEARD = {"R": ("#2a9d5c", "people, right"), "F": ("#d0225e", "people, false"), "A": ("#ef6c1f", "object, for a person"),
         "o": ("#9bd3af", "object, right"), "e": ("#c3cad1", "object, for part of a person"), "X": ("#f59aa6", "object, false")}


class Drawing:
    def __init__(self, width, height):
        self.width, self.height = width, height
        self.parts = []

    def rect(self, x, y, width, height, fill, radius=0):
        corner = f' rx="{radius}"' if radius else ""
        self.parts.append(f'<rect x="{x:.1f}" y="{y:.1f}" width="{width:.1f}" height="{height:.1f}" fill="{fill}"{corner}/>')

    def line(self, x1, y1, x2, y2, colour, width=1.0):
        self.parts.append(f'<line x1="{x1:.1f}" y1="{y1:.1f}" x2="{x2:.1f}" y2="{y2:.1f}" stroke="{colour}" '
                          f'stroke-width="{width:g}"/>')

    def curve(self, points, colour, dashes=""):
        path = " ".join(f"{x:.1f},{y:.1f}" for x, y in points)
        dash = f' stroke-dasharray="{dashes}"' if dashes else ""
        self.parts.append(f'<polyline points="{path}" fill="none" stroke="{colour}" stroke-width="2.2"{dash}/>')
        self.parts += [f'<circle cx="{x:.1f}" cy="{y:.1f}" r="3.6" fill="{colour}" stroke="{PAPER}"/>' for x, y in points]

    def text(self, x, y, text, size=11, anchor="start", colour=INK, bold=False):
        weight = ' font-weight="bold"' if bold else ""
        self.parts.append(f'<text x="{x:.1f}" y="{y:.1f}" font-size="{size}" text-anchor="{anchor}" fill="{colour}"{weight}>'
                          f"{escape(text)}</text>")

    def svg(self):
        head = (f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {self.width} {self.height}" width="{self.width}" '
                f'height="{self.height}" font-family="{FONT}">')
        return "\n".join([head, f'<rect width="{self.width}" height="{self.height}" fill="{PAPER}"/>', *self.parts, "</svg>"]) \
            + "\n"


# ---- Scenes -----------------------------------------------------------------------------------------------------------

NAME_WIDTH, BAND_WIDTH, ROW, BAR = 190, 560, 26, 9
COLUMNS = (("length", 50), ("found", 58), ("worst delay", 82), ("false people", 86), ("false objects", 88), ("story", 48))


def band(drawing, x, y, letters, colours):
    """Frames as a band, a rectangle for each run of equal letters."""
    step = BAND_WIDTH / len(letters)
    drawing.rect(x, y, BAND_WIDTH, BAR, EMPTY)
    start = 0
    for at in range(1, len(letters) + 1):
        if at == len(letters) or letters[at] != letters[start]:
            if letters[start] in colours:
                # A single frame of a long scene is still to be seen.
                drawing.rect(x + start * step, y, max((at - start) * step, 1.0), BAR, colours[letters[start]][0])
            start = at


def legend(drawing, x, y, title, colours, widths):
    drawing.text(x, y, title, 11, bold=True)
    x += 70
    for (colour, meaning), width in zip(colours.values(), widths):
        drawing.rect(x, y - 9, 14, 10, colour)
        drawing.text(x + 19, y, meaning, 11)
        x += width


def scenes_chart(scenes):
    """A row for each scene at the daemon's own level: what was there above, what was reported below."""
    right = NAME_WIDTH + BAND_WIDTH
    drawing = Drawing(right + sum(width for _, width in COLUMNS) + 16, 112 + ROW * len(scenes) + 14)
    drawing.text(16, 28, "What was there, and what was reported", 16, bold=True)
    legend(drawing, 16, 52, "above:", TRUTH, (130, 245, 125, 125, 120))
    legend(drawing, 16, 72, "below:", HEARD, (125, 130, 165, 125, 215, 110))
    x = right
    for title, width in COLUMNS:
        x += width
        drawing.text(x, 100, title, 10, "end", FAINT)
    y = 112
    for at, (name, scene) in enumerate(sorted(scenes.items())):
        score = scene["scores"][board.name_of(board.LEVEL_OF_TABLE)]
        total = board.total_of([score])
        people, objects = total["people"], total["objects"]
        if at % 2:
            drawing.rect(8, y - 2, drawing.width - 16, ROW, "#f8f9fb")
        drawing.text(NAME_WIDTH - 10, y + 13.5, name, 11, "end")
        band(drawing, NAME_WIDTH, y + 1, score["truth"], TRUTH)
        band(drawing, NAME_WIDTH, y + 2 + BAR, score["heard"], HEARD)
        values = (f"{(score['frames'] + 1) / 5:.0f} s", board.share(people["found"], people["owed"]),
                  "missed" if people["missed"] else
                  "-" if people["delay_worst"] is None else f"{people['delay_worst']:.1f} s",
                  str(people["false"] or "-"), str(objects["false"] or "-"), board.of(total["story_kept"], total["story"]))
        bad = (False, people["found"] < people["owed"] / 2, people["missed"], people["false"], False,
               total["story_kept"] < total["story"])
        x = right
        for (_, width), value, wrong in zip(COLUMNS, values, bad):
            x += width
            drawing.text(x, y + 13.5, value, 11, "end", HEARD["F"][0] if wrong else INK, bold=bool(wrong))
        y += ROW
    return drawing.svg()


# ---- Levels -----------------------------------------------------------------------------------------------------------

PANEL_WIDTH, PANEL_HEIGHT = 330, 210


def ceiling(value):
    """A round number that is not below the value, for an axis in four steps."""
    for power in range(12):
        for lead in (4, 8, 12, 20):
            if value <= lead * 10 ** power:
                return lead * 10 ** power
    return value


def panel(drawing, left, top, title, ticks, axis, curves, bars, bars_name):
    """Shares as curves against the left axis, counts as bars against the right one."""
    bottom, right = top + PANEL_HEIGHT, left + PANEL_WIDTH
    highest = ceiling(max(bars + [1]))
    drawing.text(left, top - 42, title, 13, bold=True)
    for step in range(5):
        y = bottom - PANEL_HEIGHT * step / 4
        drawing.line(left, y, right, y, GRID)
        drawing.text(left - 8, y + 4, f"{25 * step} %", 10, "end", FAINT)
        drawing.text(right + 8, y + 4, f"{highest * step // 4}", 10, "start", HEARD["F"][0])
    xs = [left + PANEL_WIDTH * (at + 0.5) / len(ticks) for at in range(len(ticks))]
    for x, count in zip(xs, bars):
        height = PANEL_HEIGHT * count / highest
        drawing.rect(x - 13, bottom - height, 26, height, "#f6c2d0", 2)
        drawing.text(x, bottom - 6, str(count), 10, "middle", HEARD["F"][0])  # at the foot, where no curve runs
    for x, (above, below) in zip(xs, ticks):
        drawing.text(x, bottom + 17, above, 11, "middle")
        drawing.text(x, bottom + 31, below, 10, "middle", FAINT)
    drawing.text((left + right) / 2, bottom + 50, axis, 10, "middle", FAINT)
    for name, colour, dashes, values in curves:
        points = [(x, bottom - PANEL_HEIGHT * value) for x, value in zip(xs, values) if value is not None]
        drawing.curve(points, colour, dashes)
    x = left
    for name, colour, dashes, _ in curves:
        dash = f' stroke-dasharray="{dashes}"' if dashes else ""
        drawing.parts.append(f'<line x1="{x}" y1="{top - 22}" x2="{x + 22}" y2="{top - 22}" stroke="{colour}" '
                             f'stroke-width="2.2"{dash}/>')
        drawing.text(x + 27, top - 18, name, 10)
        x += 42 + 6.2 * len(name)
    drawing.rect(x, top - 28, 12, 11, "#f6c2d0", 2)
    drawing.text(x + 17, top - 18, bars_name, 10, colour=HEARD["F"][0])


def ratio(part, whole):
    return part / whole if whole else None


def levels_chart(scenes):
    totals = board.level_totals(scenes)
    people = [(level, threshold, totals[board.name_of((level, play.DEFAULT_LEVEL[1]))]["people"])
              for level, threshold in play.THRESHOLDS.items()]
    things = [(level, threshold, totals[board.name_of((play.DEFAULT_LEVEL[0], level))])
              for level, threshold in play.DIFFERENCES.items()]
    drawing = Drawing(2 * PANEL_WIDTH + 190, PANEL_HEIGHT + 140)
    panel(drawing, 55, 72, "People sensitivity", [(str(level), f"score {threshold:.1f}") for level, threshold, _ in people],
          "level",
          [("episodes reported", "#0d3b66", "", [ratio(p["reported"], p["episodes"]) for *_, p in people]),
           ("frames found", "#2a9d5c", "6 3", [ratio(p["found"], p["owed"]) for *_, p in people])],
          [p["false"] for *_, p in people], "false people events")
    panel(drawing, 2 * 55 + PANEL_WIDTH + 40, 72, "Object sensitivity",
          [(str(level), f"difference {threshold}") for level, threshold, _ in things], "level",
          [("object episodes", "#c77c0a", "", [ratio(t["objects"]["reported"], t["objects"]["episodes"]) for *_, t in things]),
           ("people frames", "#2a9d5c", "6 3", [ratio(t["people"]["found"], t["people"]["owed"]) for *_, t in things])],
          [t["objects"]["false"] for *_, t in things], "false object events")
    return drawing.svg()
