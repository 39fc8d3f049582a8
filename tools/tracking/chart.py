"""The report's pictures, as SVG."""
from scoreboard.chart import FAINT, GRID, INK, Drawing

TARGET, VIEW, ZONE, ASKED, LOST, BAR, SPREAD = "#2368b3", "#d0225e", "#f6d7e0", "#e3a12f", "#c3cad1", "#2a9d5c", "#e8efe9"
LEFT, WIDTH, HEIGHT = 60, 760, 190


def bearings(run):
    """For each picture: seconds, where the view looks, where the target is (None: not to be seen), degrees to the right."""
    rows = []
    for frame in run.frames:
        where = run.places[frame["frame"]]
        rows.append((frame["t"] / 1000, frame["pan"], None if where is None else frame["pan"] + where[0]))
    return rows


def trace(drawing, top, title, run):
    rows = bearings(run)
    end = rows[-1][0]
    values = [value for _, pan, target in rows for value in (pan - 10, pan + 10, target) if value is not None]
    low, high = min(values) - 3, max(values) + 3
    x = lambda seconds: LEFT + seconds / end * WIDTH  # noqa: E731
    y = lambda degrees: top + 20 + (high - degrees) / (high - low) * HEIGHT  # noqa: E731
    drawing.text(LEFT, top + 10, title, 12, bold=True)
    step = 20 if high - low < 160 else 60
    for degrees in range(-360, 361, step):
        if low <= degrees <= high:
            drawing.line(LEFT, y(degrees), LEFT + WIDTH, y(degrees), GRID)
            drawing.text(LEFT - 6, y(degrees) + 4, f"{degrees}°", 10, "end", FAINT)
    for seconds in range(0, int(end) + 1, 5):
        drawing.text(x(seconds), top + HEIGHT + 34, f"{seconds} s", 10, "middle", FAINT)
    for (t1, pan, _), (t2, _, _) in zip(rows, rows[1:]):
        drawing.rect(x(t1), y(pan + 10), x(t2) - x(t1) + 0.3, y(pan - 10) - y(pan + 10), ZONE)
    line(drawing, [(x(t), y(pan)) for t, pan, _ in rows], VIEW)
    piece = []
    for t, _, target in rows + [(0, 0, None)]:
        if target is not None:
            piece.append((x(t), y(target)))
            continue
        line(drawing, piece, TARGET)
        piece = []
    for frame in run.frames:
        if frame.get("said") == "request":
            drawing.line(x(frame["t"] / 1000), top + HEIGHT + 14, x(frame["t"] / 1000), top + HEIGHT + 20, ASKED, 2)
    return top + HEIGHT + 50


def line(drawing, points, colour):
    if len(points) > 1:
        path = " ".join(f"{x:.1f},{y:.1f}" for x, y in points)
        drawing.parts.append(f'<polyline points="{path}" fill="none" stroke="{colour}" stroke-width="1.8"/>')


def traces(runs):
    """`runs`: title and run of each panel."""
    drawing = Drawing(LEFT + WIDTH + 20, 30 + len(runs) * (HEIGHT + 50))
    at = LEFT
    for colour, text in ((TARGET, "where the target is"), (VIEW, "where the view looks"), (ZONE, "10 degrees to either side"),
                         (ASKED, "a request")):
        drawing.rect(at, 10, 14, 8, colour)
        drawing.text(at + 19, 18, text, 11)
        at += 40 + 6.4 * len(text)
    top = 36
    for title, run in runs:
        top = trace(drawing, top, title, run)
    return drawing.svg()


MEASURES = (("time", "s to within 10°, median", lambda f: f["time"] / 1000),
            ("in zone", "% of the time within 10°", lambda f: 100 * f["in zone"]),
            ("degrees", "degrees turned a minute", lambda f: f["degrees"]))


def variations(table, spread):
    """`table`: name of the motor -> figures; `spread`: figures of the usual motor with other times of analysis, the
    shaded band: what lies inside differs by no more than chance."""
    names = list(table)
    row, left, width = 17, 120, 200
    drawing = Drawing(left + len(MEASURES) * (width + 30), 60 + row * len(names))
    for column, (_, title, of) in enumerate(MEASURES):
        x0 = left + column * (width + 30)
        values = {name: of(table[name]) for name in names}
        band = [of(each) for each in spread]
        top = 1.15 * max([*values.values(), *band])
        x = lambda value, x0=x0, top=top: x0 + value / top * width  # noqa: E731
        drawing.text(x0, 20, title, 11, bold=True)
        drawing.rect(x(min(band)), 28, max(2, x(max(band)) - x(min(band))), row * len(names) + 6, SPREAD)
        for number, name in enumerate(names):
            y = 34 + number * row
            if column == 0:
                drawing.text(left - 8, y + 10, name, 11, "end", INK)
            drawing.rect(x0, y + 2, x(values[name]) - x0, row - 6, BAR if name == "usual" else VIEW)
            drawing.text(x(values[name]) + 4, y + 11, f"{values[name]:.3g}", 10, colour=FAINT)
    return drawing.svg()
