"""The pictures of docs/light.md, as SVG: days, counts of switches, and maps."""
import math
import os
import sys

sys.path.insert(0, os.path.join(os.path.dirname(os.path.realpath(__file__)), ".."))
from scoreboard.chart import Drawing, EMPTY, FAINT, GRID, INK, PAPER  # noqa: E402

NIGHT, SUN, LAMP = "#26364f", "#e3a12f", "#d0225e"
MODES = {3: "0, 3: infrared", 4: "4: full colour", 5: "5: smart"}
MIDDLE = 0.4


def hour_text(hour):
    return f"{int(hour) % 24:02d}:00"


def log_scale(low, high, start, end):
    """From a value to a place on an axis of equal factors."""
    return lambda value: start + (end - start) * (math.log(min(max(value, low), high) / low) / math.log(high / low))


def lighter(share):
    """Night's colour by the share of a span that was night."""
    paper, night = (0xed, 0xf0, 0xf3), (0x26, 0x36, 0x4f)
    return "#" + "".join(f"{round(p + (n - p) * share):02x}" for p, n in zip(paper, night))


def band(drawing, x, y, width, height, digits):
    """Digits 0 to 9 along a line: how much of each span was night. A rectangle for each run of equal ones."""
    step = width / len(digits)
    start = 0
    for at in range(1, len(digits) + 1):
        if at == len(digits) or digits[at] != digits[start]:
            drawing.rect(x + start * step, y, (at - start) * step, height, lighter(int(digits[start]) / 9))
            start = at


def hours(drawing, report, x, width, top, bottom, labels):
    for hour in range(8, 31, 4):
        at = x + width * (hour - report["begins_hour"]) / 24
        drawing.line(at, top, at, bottom, GRID)
        if labels:
            drawing.text(at, bottom + 13, hour_text(hour), 9, "middle", FAINT)


def plain_runs(report):
    """Runs at the constants' own values, by day, mode and reflectance."""
    return {(run["day"], run["mode"], run["reflectance"]): run for run in report["runs"]
            if not {"constant", "distance_m", "seed"} & set(run)}


# ---- Days -------------------------------------------------------------------------------------------------------------

LEFT, WIDE, CURVE, ROW = 150, 560, 44, 9


def lux_curve(drawing, report, day, x, y):
    place = log_scale(0.001, 10000, y + CURVE, y)
    for lux in (0.01, 1, 100, 10000):
        drawing.line(x, place(lux), x + WIDE, place(lux), GRID)
        drawing.text(x - 5, place(lux) + 3, f"{lux:g}", 8, "end", FAINT)
    edges = [[(x + WIDE * at / (len(day[name]) - 1), place(lux)) for at, lux in enumerate(day[name])]
             for name in ("dimmest_lux", "brightest_lux")]
    path = " ".join(f"{a:.1f},{b:.1f}" for a, b in edges[1] + edges[0][::-1])
    drawing.parts.append(f'<polygon points="{path}" fill="#f7dfb0" stroke="{SUN}" stroke-width="1"/>')


def days_chart(report):
    runs = plain_runs(report)
    panel = CURVE + 3 * (ROW + 2) + 26
    drawing = Drawing(LEFT + WIDE + 150, 60 + panel * len(report["days"]) + 10)
    drawing.text(16, 24, "Days in the room of middle reflectance: light that comes in (lux), and when each mode had night", 14,
                 bold=True)
    drawing.rect(16, 36, 14, 9, NIGHT)
    drawing.text(35, 44, "night", 10)
    drawing.rect(80, 36, 14, 9, lighter(0.5))
    drawing.text(99, 44, "switching to and fro within five minutes", 10)
    y = 60
    for day in report["days"]:
        hours(drawing, report, LEFT, WIDE, y, y + CURVE + 3 * (ROW + 2) + 3, True)
        drawing.text(16, y + 20, day["name"], 12, bold=True)
        lux_curve(drawing, report, day, LEFT, y)
        at = y + CURVE + 5
        for mode in (3, 4, 5):
            run = runs[day["name"], mode, MIDDLE]
            band(drawing, LEFT, at, WIDE, ROW, run["night"])
            drawing.text(LEFT - 5, at + ROW - 1, f"mode {mode}", 8, "end", FAINT)
            count = run["to_night"] + run["to_day"]
            drawing.text(LEFT + WIDE + 8, at + ROW - 1, f"{count} switches, {run['pulses']} pulses", 9, "start",
                         LAMP if count > 2 else INK)
            at += ROW + 2
        y += panel
    return drawing.svg()


# ---- Switches ---------------------------------------------------------------------------------------------------------

def heat(count):
    """White up to two switches, then redder by every factor of ten."""
    if count <= 2:
        return PAPER
    share = min(1, math.log10(count / 2) / 3.4)
    return "#" + "".join(f"{round(0xff + (end - 0xff) * (0.12 + 0.7 * share)):02x}" for end in (0xd0, 0x22, 0x5e))


def switches_chart(report):
    runs = plain_runs(report)
    reflectances = sorted({key[2] for key in runs})
    cell, height, left = 58, 20, 110
    block = cell * len(reflectances) + 34
    drawing = Drawing(left + 3 * block, 110 + height * len(report["days"]))
    drawing.text(16, 24, "Switches in a day, by the room's reflectance (a wall 3 m away)", 14, bold=True)
    for number, (mode, name) in enumerate(MODES.items()):
        x = left + number * block
        drawing.text(x, 56, f"mode {name}", 11, bold=True)
        for column, reflectance in enumerate(reflectances):
            drawing.text(x + (column + 0.5) * cell, 74, f"{reflectance:.0%}", 10, "middle", FAINT)
        for row, day in enumerate(report["days"]):
            y = 82 + row * height
            if number == 0:
                drawing.text(left - 10, y + 14, day["name"], 11, "end")
            for column, reflectance in enumerate(reflectances):
                run = runs[day["name"], mode, reflectance]
                count = run["to_night"] + run["to_day"]
                drawing.rect(x + column * cell, y, cell - 2, height - 2, EMPTY)
                drawing.rect(x + column * cell + 0.5, y + 0.5, cell - 3, height - 3, heat(count))
                drawing.text(x + (column + 0.5) * cell, y + 13.5, str(count), 10, "middle")
    return drawing.svg()


# ---- Maps -------------------------------------------------------------------------------------------------------------

# Letters of maps.h: colour, and what it means.
DARK, BRIGHT, BOTH, GAP = "#7f93b5", "#f3c96b", "#d0225e", "#f4f5f7"
CONDITIONS = {"1": "#fbe5a3", "2": "#f6cf6e", "3": "#efb64a", "4": "#e39a35", "5": "#cc7a26"}
COLOURS = {"d": DARK, "b": BRIGHT, "x": BOTH, ".": GAP, **CONDITIONS}
MAP_WIDTH, MAP_HEIGHT = 420, 300


def plane(drawing, plane_of, x, y, title, ticks_x, ticks_y, log_y, axis_x, axis_y):
    rows, (from_x, to_x), (from_y, to_y) = plane_of["rows"], plane_of["x"], plane_of["y"]
    drawing.text(x, y - 18, title, 12, bold=True)
    drawing.parts.append('<g shape-rendering="crispEdges">')
    step_x, step_y = MAP_WIDTH / len(rows[0]), MAP_HEIGHT / len(rows)
    for number, row in enumerate(rows):
        top, start = y + MAP_HEIGHT - (number + 1) * step_y, 0
        for at in range(1, len(row) + 1):
            if at == len(row) or row[at] != row[start]:
                drawing.rect(x + start * step_x, top, (at - start) * step_x, step_y, COLOURS[row[start]])
                start = at
    drawing.parts.append("</g>")
    place_x = log_scale(from_x, to_x, x, x + MAP_WIDTH)
    place_y = log_scale(from_y, to_y, y + MAP_HEIGHT, y) if log_y else \
        (lambda value: y + MAP_HEIGHT - MAP_HEIGHT * (value - from_y) / (to_y - from_y))
    for value, text in ticks_x:
        drawing.line(place_x(value), y + MAP_HEIGHT, place_x(value), y + MAP_HEIGHT + 4, FAINT)
        drawing.text(place_x(value), y + MAP_HEIGHT + 16, text, 10, "middle", FAINT)
    for value, text in ticks_y:
        drawing.line(x - 4, place_y(value), x, place_y(value), FAINT)
        drawing.text(x - 7, place_y(value) + 3.5, text, 10, "end", FAINT)
    drawing.text(x + MAP_WIDTH / 2, y + MAP_HEIGHT + 34, axis_x, 11, "middle")
    drawing.parts.append(f'<text transform="translate({x - 48:.1f},{y + MAP_HEIGHT / 2:.1f}) rotate(-90)" font-size="11" '
                         f'text-anchor="middle" fill="{INK}">{axis_y}</text>')
    return place_x, place_y


def dot(drawing, at_x, at_y, number):
    drawing.parts.append(f'<circle cx="{at_x:.1f}" cy="{at_y:.1f}" r="8" fill="{PAPER}" stroke="{INK}" stroke-width="1.4"/>')
    drawing.text(at_x, at_y + 3.5, str(number), 10, "middle", bold=True)


def map_legend(drawing, x, y, letters):
    words = {"d": "dark: counts towards night (by day)", "b": "bright: counts towards day (by night)",
             ".": "neither: what is stays", "x": "both: the camera's own lamp is day enough, over and over",
             "1": "bright (by night), by the first condition that holds: 1", "2": "2", "3": "3", "4": "4", "5": "5"}
    for letter in letters:
        drawing.rect(x, y - 9, 14, 11, COLOURS[letter])
        drawing.text(x + 19, y, words[letter], 10)
        x += 36 + 5.6 * len(words[letter])


def map_chart(report, one):
    mode = one["mode"]
    drawing = Drawing(2 * MAP_WIDTH + 240, MAP_HEIGHT + 170)
    drawing.text(16, 26, f"Mode {MODES[mode]}", 15, bold=True)
    left, top = 80, 76
    place_x, place_y = plane(
        drawing, one["statistics"], left, top, "What the ISP says",
        [(value, f"{value:g}") for value in (0.3, 1, 3, 10, 30, 100, 300)],
        [(value, str(value)) for value in range(-10000, 1001, 2500)], False, "ev (exposure and gain go with it)",
        "white balance: red + blue")
    # The clear day's two switches in the room of middle reflectance: the samples that decided.
    run = plain_runs(report)["clear", mode, MIDDLE]
    for number, switch in enumerate(run["switches"][:2], 1):
        dot(drawing, place_x(max(switch["ev"], 0.3)), place_y(switch["gain_sum"]), number)
    right = left + MAP_WIDTH + 110
    place_x, place_y = plane(
        drawing, one["room"], right, top, "The same for a room, the camera's lamp included",
        [(value, f"{value:g}") for value in (0.03, 0.1, 0.3, 1, 3, 10, 30, 100, 300)],
        [(value, f"{value:.0%}") for value in (0.02, 0.05, 0.1, 0.2, 0.4, 0.8)], True, "light that comes in, lux",
        "reflectance")
    for lux in (report["dark_lux"], report["bright_lux"]):
        drawing.parts.append(f'<line x1="{place_x(lux):.1f}" y1="{top}" x2="{place_x(lux):.1f}" y2="{top + MAP_HEIGHT}" '
                             f'stroke="{INK}" stroke-dasharray="3 3"/>')
    drawing.text(place_x(report["dark_lux"]), top - 4, "moonlight", 9, "middle", FAINT)
    drawing.text(place_x(report["bright_lux"]), top - 4, "a face is told", 9, "middle", FAINT)
    for number, switch in enumerate(run["switches"][:2], 1):
        dot(drawing, place_x(switch["lux"]), place_y(MIDDLE), number)
    bottom = top + MAP_HEIGHT + 62
    used = set("".join(one["statistics"]["rows"]))
    map_legend(drawing, left, bottom, [letter for letter in "d.b12345" if letter in used])
    if "1" in used:
        drawing.text(left, bottom + 18, "(on the right all five in one colour)", 10, colour=FAINT)
    if "x" in "".join(one["room"]["rows"]):
        map_legend(drawing, left, bottom + 18, "x")
    return drawing.svg()
