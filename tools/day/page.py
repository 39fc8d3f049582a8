#!/usr/bin/env python3
"""Makes docs/light.md's tables, its pictures docs/light-*.svg and docs/light.json anew. usage: page.py BIN_DIR, with
naro-day in it; or page.py --from REPORT, what `naro-day --report` has printed; page.py --check only says whether they are
those of docs/light.json"""
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


def span(values, form="{:g}"):
    """The least and the greatest of some numbers."""
    low, high = form.format(min(values)), form.format(max(values))
    return low if low == high else f"{low} to {high}"


def seeds_table(report):
    """What chance does: the switches of other days of the same kind."""
    groups = {}
    for run in report["runs"]:
        if "seed" in run:
            groups.setdefault((run["day"], run["mode"]), []).append(run)
    rows = []
    for day in report["days"]:
        if (day["name"], 3) in groups:
            row = [f"`{day['name']}`", len(groups[day["name"], 3])]
            for mode in (3, 4):
                counts = sorted(count(run) for run in groups[day["name"], mode])
                row += [counts[0], counts[len(counts) // 2], counts[-1]]
            rows.append(row)
    bad = sum(wrong(run) > 0 for runs in groups.values() for run in runs)
    return table(("", "days", *(f"mode {mode}: {what}" for mode in (3, 4) for what in ("least", "median", "most"))), rows) \
        + f"\nOf these {sum(map(len, groups.values()))} runs, {bad} had a second in the wrong mode.\n"


def flips(report):
    """Nights in which the camera's own lamp is the day, on the clear day: a row for each mode and distance."""
    groups = {}
    for run in report["runs"]:
        if run["day"] == "clear" and "constant" not in run and "period_s" in run and run["mode"] != 0:
            groups.setdefault((run["mode"], -run.get("distance_m", 3)), []).append(run)
    rows = []
    for (mode, distance), runs in sorted(groups.items()):
        first = next(switch for switch in runs[0]["switches"] if switch["to"] == "day")
        fired = {tuple(switch["conditions"]) for run in runs for switch in run["switches"] if switch["to"] == "day"}
        rows.append((mode, f"{-distance:g} m", f"{min(run['reflectance'] for run in runs):.0%} and more",
                     span([count(run) for run in runs]), span([run["period_s"] for run in runs], "{:.1f}") + " s",
                     span([run["wrong_day_s"] for run in runs]), span([run["pulses"] for run in runs]),
                     " or ".join(" and ".join(map(str, one)) or "mode 4's" for one in sorted(fired)),
                     f"ev {first['ev']}, again {first['again']}, {first['expr_us']} µs, sum {first['gain_sum']}"))
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


def read(name):
    with open(os.path.join(DOCS, name), encoding="utf-8") as file:
        return file.read()


def made_of(text):
    """Every file that a report gives, by name."""
    report = json.loads(text)
    files = {"light.json": text, "light-days.svg": chart.days_chart(report),
             "light-switches.svg": chart.switches_chart(report)}
    for one in report["maps"]:
        files[f"light-map-{one['mode']}.svg"] = chart.map_chart(report, one)
    page = read("light.md")
    page = fill(page, "days", days_table(report))
    for mode in (3, 4, 5):
        page = fill(page, f"mode {mode}", mode_table(report, mode))
    page = fill(page, "mode 0", same_as_three(report))
    page = fill(page, "seeds", seeds_table(report))
    page = fill(page, "flips", flips(report))
    page = fill(page, "constants", constants_table(report))
    files["light.md"] = fill(page, "constants at the middle", constants_summary(report))
    return files


def main():
    check = sys.argv[1:] == ["--check"]
    if check:
        text = read("light.json")
    elif len(sys.argv) == 3 and sys.argv[1] == "--from":
        with open(sys.argv[2], encoding="utf-8") as file:
            text = file.read()
    elif len(sys.argv) == 2:
        text = subprocess.run([os.path.join(sys.argv[1], "naro-day"), "--report"], check=True, stdout=subprocess.PIPE,
                              encoding="utf-8").stdout
    else:
        sys.exit(__doc__)
    stale = []
    for name, content in made_of(text).items():
        if check:
            stale += [name] if read(name) != content else []
            continue
        with open(os.path.join(DOCS, name), "w", encoding="utf-8") as file:
            file.write(content)
    if stale:
        sys.exit(f"not what docs/light.json gives: {', '.join(stale)}; python3 tools/day/page.py --from docs/light.json")


if __name__ == "__main__":
    main()
