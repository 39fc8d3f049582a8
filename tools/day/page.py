#!/usr/bin/env python3
"""Makes docs/light.md's tables, its pictures docs/light-*.svg and docs/light.json anew. usage: page.py BIN_DIR, with
naro-day in it; or page.py --from REPORT, what `naro-day --report` has printed"""
import json
import os
import re
import subprocess
import sys

sys.dont_write_bytecode = True
sys.path.insert(0, os.path.dirname(os.path.realpath(__file__)))
import chart  # noqa: E402

DOCS = os.path.join(os.path.dirname(os.path.realpath(__file__)), "../../docs")


def table(head, rows):
    lines = ["| " + " | ".join(head) + " |", "|" + "---|" * len(head)]
    return "\n".join(lines + ["| " + " | ".join(str(cell) for cell in row) + " |" for row in rows]) + "\n"


def count(run):
    return run["to_night"] + run["to_day"]


def wrong(run):
    return run["wrong_night_s"] + run["wrong_day_s"]


def days_table(report):
    return table(("day", "what"), ((f"`{day['name']}`", day["what"]) for day in report["days"]))


def mode_table(report, mode):
    runs = chart.plain_runs(report)
    reflectances = sorted({key[2] for key in runs})
    rows = []
    for day in report["days"]:
        if day["name"] == "visitors" and mode != 5:
            continue  # nobody lights anything
        rows.append([f"`{day['name']}`"])
        for reflectance in reflectances:
            run = runs[day["name"], mode, reflectance]
            rows[-1].append(f"{count(run)} / {wrong(run)} / {run['pulses']}")
    return table(["", *(f"{reflectance:.0%}" for reflectance in reflectances)], rows)


def same_as_three(report):
    """Mode 0 is run exactly as mode 3: said only where it is so."""
    runs = chart.plain_runs(report)
    differ = [key for key, run in runs.items() if key[1] == 0 and
              {**run, "mode": 3} != runs[key[0], 3, key[2]]]
    return "Mode 0 gave the same figures as mode 3 on every day and in every room.\n" if not differ else \
        f"Mode 0 differs from mode 3 in {len(differ)} of its runs.\n"


def flips(report):
    """Nights in which the camera's own lamp is the day: on the clear day, with a period."""
    rows = []
    for run in report["runs"]:
        if run["day"] != "clear" or "constant" in run or "period_s" not in run or run["mode"] == 0:
            continue
        to_day = next(switch for switch in run["switches"] if switch["to"] == "day")
        condition = " and ".join(str(number) for number in to_day["conditions"]) or "the one of mode 4"
        rows.append((run["mode"], f"{run.get('distance_m', 3):g} m", f"{run['reflectance']:.0%}", count(run),
                     f"{run['period_s']:.1f} s", run["wrong_day_s"], run["pulses"], condition,
                     f"ev {to_day['ev']}, again {to_day['again']}, {to_day['expr_us']} µs, sum {to_day['gain_sum']}"))
    rows.sort(key=lambda row: (row[0], -float(row[1][:-2]), float(row[2][:-1])))
    return table(("mode", "wall at", "reflectance", "switches", "period", "wrong s", "pulses", "condition", "sample"), rows)


def constants_table(report):
    """What 20 % of each constant do to the clear day."""
    plain, varied = chart.plain_runs(report), {}
    for run in report["runs"]:
        if "constant" in run:
            varied[run["constant"], run["factor"], run["mode"], run["reflectance"]] = run
    reflectances = sorted({key[2] for key in plain})

    def cell(runs):
        run = runs[chart.MIDDLE]
        many = sum(count(one) > 2 for one in runs.values())
        return f"{count(run)}: {run.get('night_lux', 0):.2f}, {run.get('day_lux', 0):.2f}" + (f" ({many})" if many else "")

    rows = [["as they are", "", ""] + [cell({r: plain["clear", mode, r] for r in reflectances}) for mode in (3, 4, 5)]]
    for constant in report["constants"]:
        for factor in (0.8, 1.2):
            rows.append([f"`{constant['name']}`" if factor < 1 else "", f"{constant['value']:g}" if factor < 1 else "",
                         f"{factor - 1:+.0%}".replace("-", "−")]
                        + [cell({r: varied[constant["name"], factor, mode, r] for r in reflectances}) for mode in (3, 4, 5)])
    return table(("constant", "value", "", "mode 3", "mode 4", "mode 5"), rows)


def constants_summary(report):
    worst = [run for run in report["runs"] if "constant" in run and run["reflectance"] == chart.MIDDLE and count(run) != 2]
    if not worst:
        return "At the middle reflectance every run of this table has two switches: one evening, one morning.\n"
    return "At the middle reflectance, these runs have other than two switches: " + "; ".join(
        f"`{run['constant']}` × {run['factor']:g} in mode {run['mode']}: {count(run)}" for run in worst) + ".\n"


def fill(page, name, text):
    """What stands between the marks of that name becomes `text`."""
    pattern = re.compile(rf"(<!-- {name} -->\n).*?(<!-- end -->)", re.S)
    if not pattern.search(page):
        sys.exit(f"page.py: docs/light.md has no place for {name}")
    return pattern.sub(lambda found: found.group(1) + text + found.group(2), page, count=1)


def write(name, text):
    with open(os.path.join(DOCS, name), "w", encoding="utf-8") as file:
        file.write(text)


def main():
    if len(sys.argv) == 3 and sys.argv[1] == "--from":
        with open(sys.argv[2], encoding="utf-8") as file:
            text = file.read()
    elif len(sys.argv) == 2:
        text = subprocess.run([os.path.join(sys.argv[1], "naro-day"), "--report"], check=True, stdout=subprocess.PIPE,
                              encoding="utf-8").stdout
    else:
        sys.exit(__doc__)
    report = json.loads(text)
    write("light.json", text)
    write("light-days.svg", chart.days_chart(report))
    write("light-switches.svg", chart.switches_chart(report))
    for one in report["maps"]:
        write(f"light-map-{one['mode']}.svg", chart.map_chart(report, one))
    with open(os.path.join(DOCS, "light.md"), encoding="utf-8") as file:
        page = file.read()
    page = fill(page, "days", days_table(report))
    for mode in (3, 4, 5):
        page = fill(page, f"mode {mode}", mode_table(report, mode))
    page = fill(page, "mode 0", same_as_three(report))
    page = fill(page, "flips", flips(report))
    page = fill(page, "constants", constants_table(report))
    page = fill(page, "constants at the middle", constants_summary(report))
    write("light.md", page)


if __name__ == "__main__":
    main()
