"""The report's tables, for a terminal and for docs/tracking.md."""
import re

from . import loop


def seconds(ms):
    return "-" if ms is None else f"{ms / 1000:.1f}"


def percent(share):
    return "-" if share is None else f"{100 * share:.0f} %"


def degrees(value):
    return "-" if value is None else f"{value:.0f}°"


# Heading, and what of the figures stands below it.
COLUMNS = (
    ("brought in", lambda f: f"{f['brought in']}/{f['episodes']}"),
    ("median s", lambda f: seconds(f["time"])),
    ("worst s", lambda f: seconds(f["time worst"])),
    ("within 10°", lambda f: percent(f["in zone"])),
    ("in view", lambda f: percent(f["seen"])),
    ("beyond, median", lambda f: degrees(f["overshoot"])),
    ("worst", lambda f: degrees(f["overshoot worst"])),
    ("by 10° or more", lambda f: percent(f["overshot"])),
    ("turned °/min", lambda f: f"{f['degrees']:.0f}"),
    ("requests/min", lambda f: f"{f['requests']:.0f}"),
    ("moves/min", lambda f: f"{f['moves']:.0f}"),
    ("dropped/min", lambda f: f"{f['drops']:.0f}"),
    ("own motion", lambda f: percent(f["own motion"])),
    ("of it everywhere", lambda f: percent(f["own whole"])),
    ("own requests/min", lambda f: f"{f['own requests']:.0f}"),
    ("astray/min", lambda f: f"{f['astray']:.0f}"),
)


def rows(table):
    """`table`: name -> figures."""
    return [["", *(title for title, _ in COLUMNS)]] + [[name, *(of(f) for _, of in COLUMNS)] for name, f in table.items()]


def reason_rows(table):
    """What came of the frames on which a target that moved was off the zone to the side, as shares of them."""
    result = [["", "frames", *loop.REASONS.values()]]
    for name, f in table.items():
        total = sum(f["reasons"].values())
        result.append([name, str(total), *(percent(f["reasons"].get(key, 0) / total) if total else "-"
                                           for key in loop.REASONS)])
    return result


def distance_rows(f):
    return [["metres", "times", "median s"]] + [[name, str(count), seconds(ms)] for name, (ms, count) in f["by distance"].items()]


def markdown(lines):
    head, *rest = lines
    return "\n".join(["| " + " | ".join(head) + " |", "|---|" + "---:|" * (len(head) - 1)] +
                     ["| " + " | ".join(line) + " |" for line in rest])


def terminal(lines):
    widths = [max(len(line[column]) for line in lines) for column in range(len(lines[0]))]
    return "\n".join("  ".join(cell.ljust(width) if not column else cell.rjust(width)
                               for column, (cell, width) in enumerate(zip(line, widths))).rstrip() for line in lines)


MARK = "<!-- naro-track-report: {} -->"


def put(page, name, text):
    """The page with what stands between the marks of that name replaced."""
    begin, end = MARK.format(name), MARK.format("end")
    pattern = re.compile(re.escape(begin) + r"\n.*?" + re.escape(end), re.S)
    if not pattern.search(page):
        raise ValueError(f"the page has no place for \"{name}\"")
    return pattern.sub(lambda _: f"{begin}\n{text}\n{end}", page)
