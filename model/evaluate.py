#!/usr/bin/env python3
"""Measures the detector that is built into the daemon, by the daemon's own programs.

usage: model/evaluate [--bin DIR] [--people DIR] [--tools DIR] [--clips DIR] [--out DIR]

Pictures: the sources that training never saw, cut as the daemon cuts (make_crops.py in --tools), through naro-detect; as
they are, in grey, and in an imitation of an infrared night. Clips: through the whole camera (naro_camera), once for each
level of the people sensitivity.

Writes figures.md, figures.json and figures.svg into --out (default build/model/evaluation). What stands in brackets is
the middle 95 % of 1,000 draws of as many pictures with replacement."""
import argparse
import json
import os
import shutil
import subprocess
import sys
import zlib

import cv2
import numpy as np

from data import HOLDOUT

LEVELS = {1: 0.7, 2: 0.6, 3: 0.5, 4: 0.4, 5: 0.3}  # people sensitivity -> least score
LEAST, MOST = 0.02, 30  # what is asked of the detector for the curves
CLIPS = ("one-by-one-person-detection", "car-detection", "bottle-detection")
SIZES = ((16, 24), (24, 32), (32, 48), (48, 64), (64, 96), (96, 193))
DRAWS = 1000


def cut_holdout(people, tools, work):
    """The held-out sources, cut once; a folder of links gives the cutter the layout it wants."""
    crops = f"{work}/crops"
    if os.path.exists(f"{crops}/gt.json"):
        if {g["set"] for g in json.load(open(f"{crops}/gt.json"))} == set.union(*HOLDOUT.values()):
            return crops
    for old in (crops, f"{work}/sources"):  # other sources were held out then
        shutil.rmtree(old, ignore_errors=True)
    os.makedirs(f"{work}/sources")
    os.symlink(os.path.abspath(people), f"{work}/sources/people")
    for kind, place in (("train", "holdout"), ("negatives", "negatives")):
        os.makedirs(f"{work}/sources/{place}", exist_ok=True)
        for source in sorted(HOLDOUT[kind]):
            with open(f"{work}/sources/{place}/{source}.jsonl", "w") as f:
                for line in open(f"{people}/{kind}/{source}.jsonl"):
                    r = json.loads(line)
                    r["file"] = "people/" + r["file"]
                    f.write(json.dumps(r) + "\n")
    subprocess.run([sys.executable, f"{tools}/make_crops.py", f"{work}/sources", crops], check=True)
    return crops


def grey(im, rng):
    return np.repeat(cv2.cvtColor(im, cv2.COLOR_BGR2GRAY)[:, :, None], 3, 2)


def infrared(im, rng):
    """Grey by weights of its own, a lamp at the lens, noise; the same for the same picture each time."""
    h, w = im.shape[:2]
    g = im.astype(np.float32) @ rng.dirichlet((2, 2, 2)).astype(np.float32)
    y, x = np.mgrid[0:h, 0:w] / max(h, w)
    cx, cy = rng.uniform(0.3, 0.7, 2) * (w, h) / max(h, w)
    g = g * np.exp(-rng.uniform(1, 3) * ((x - cx) ** 2 + (y - cy) ** 2)) * rng.uniform(0.6, 1.1)
    g = g + rng.standard_normal((h, w)) * rng.uniform(3, 9)
    return np.repeat(np.clip(g, 0, 255).astype(np.uint8)[:, :, None], 3, 2)


def with_look(crops, work, kind, look):
    """The crops once more, each looking different."""
    out = f"{work}/{kind}"
    os.makedirs(out, exist_ok=True)
    for name in (g["file"] for g in json.load(open(f"{crops}/gt.json"))):
        if not os.path.exists(f"{out}/{name}"):
            rng = np.random.default_rng(zlib.crc32(name.encode()))
            cv2.imwrite(f"{out}/{name}", look(cv2.imread(f"{crops}/{name}"), rng))
    return out


def detections(programs, crops, listing, most=MOST):
    """{file: [(score, box)]} by the daemon's own road."""
    run = subprocess.run([f"{programs}/naro-detect", "--threshold", str(LEAST), "--max", str(most), crops, listing],
                         check=True, capture_output=True, text=True)
    found = {}
    for line in run.stdout.splitlines():
        name, score, *box = line.rsplit(" ", 5)
        found.setdefault(name, []).append((float(score), np.array([float(v) for v in box])))
    return found


def overlap(a, b):
    side = np.minimum(a[:, None, 2:], b[None, :, 2:]) - np.maximum(a[:, None, :2], b[None, :, :2])
    inter = side.clip(0).prod(-1)
    return inter / ((a[:, 2:] - a[:, :2]).prod(-1)[:, None] + (b[:, 2:] - b[:, :2]).prod(-1)[None] - inter)


def judge(picture, found, least):
    """One picture: (score, right or wrong) of every box that counts, best first, and the number of people.

    A box is right for the person that it overlaps most among those not yet found; one for somebody who is too small or too
    little in the picture counts neither way."""
    people = np.array([p["box"] for p in picture["gt"]], np.float64).reshape(-1, 4)
    ignored = np.array([p["ignore"] for p in picture["gt"]], bool)
    found = sorted(found, key=lambda f: -f[0])
    rows, free = [], np.ones(len(people), bool)
    if len(people):
        all_overlaps = overlap(np.array([b for _, b in found]).reshape(-1, 4), people)
    for i, (score, _) in enumerate(found):
        v = np.where(free, all_overlaps[i], -1) if len(people) else np.zeros(1)
        who = int(v.argmax())
        if v[who] < least:
            rows.append((score, 0))
            continue
        free[who] = False
        if not ignored[who]:
            rows.append((score, 1))
    return rows, int((~ignored).sum())


def average_precision(judged):
    """Area under the precision that is still reached at each recall."""
    rows = np.array(sorted((r for rows, _ in judged for r in rows), reverse=True)).reshape(-1, 2)
    people = sum(n for _, n in judged)
    if not len(rows) or not people:
        return 0.0
    right = np.cumsum(rows[:, 1])
    precision = np.maximum.accumulate((right / np.arange(1, len(rows) + 1))[::-1])[::-1]
    return float((np.diff(right / people, prepend=0) * precision).sum())


def interval(draw, pictures):
    """Middle 95 % of what `draw` says of as many pictures drawn with replacement."""
    rng = np.random.default_rng(1)
    values = [draw([pictures[i] for i in rng.integers(0, len(pictures), len(pictures))]) for _ in range(DRAWS)]
    return [float(v) for v in np.percentile(values, (2.5, 97.5))]


def share(hits):
    return float(np.mean(hits)) if len(hits) else 0.0


def of_pictures(pictures, found):
    """Figures of some pictures: average precision, and recall and false alarms at each level."""
    out = {"people": sum(not p["ignore"] for g in pictures for p in g["gt"]), "pictures": len(pictures)}
    for name, least in (("ap50", 0.5), ("ap75", 0.75)):
        judged = [judge(g, found.get(g["file"], []), least) for g in pictures]
        out[name] = average_precision(judged)
        if name == "ap50" and out["people"]:
            out["ap50_interval"] = interval(average_precision, judged)
    best = {g["file"]: max((s for s, _ in found.get(g["file"], [])), default=0) for g in pictures}
    with_people = [best[g["file"]] for g in pictures if any(not p["ignore"] for p in g["gt"])]
    without = [best[g["file"]] for g in pictures if g["negative"]]
    out["with_people"], out["without_people"] = len(with_people), len(without)
    out["levels"] = {}
    for level, least in LEVELS.items():
        hit, alarm = [s >= least for s in with_people], [s >= least for s in without]
        row = out["levels"][level] = {"recall": share(hit), "false_alarms": share(alarm)}
        if hit:
            row["recall_interval"] = interval(share, hit)
        if alarm:
            row["false_alarms_interval"] = interval(share, alarm)
    return out


def of_sizes(pictures, found):
    """Share of people found, by their height in the frame: at the default level, and at the least score."""
    out = []
    for low, high in SIZES:
        hits, faint = [], []
        for g in pictures:
            boxes = found.get(g["file"], [])
            for p in g["gt"]:
                if p["ignore"] or not low <= p["box"][3] - p["box"][1] < high:
                    continue
                v = overlap(np.array([p["box"]]), np.array([b for _, b in boxes]).reshape(-1, 4))[0]
                hits.append(any(v[i] >= 0.5 and boxes[i][0] >= LEVELS[3] for i in range(len(boxes))))
                faint.append(bool((v >= 0.5).any()))
        out.append({"from": low, "to": high, "people": len(hits), "found": share(hits), "found_at_least_score": share(faint)})
    return out


def of_clip(programs, path):
    """Frames that report a person at each level, through the whole camera."""
    out = {}
    for level in LEVELS:
        run = subprocess.run([f"{programs}/naro_camera", "--source", path, "--fast", "--headless", "--json", "--set",
                              f"people_sensitivity={level}"], check=True, capture_output=True, text=True, timeout=600)
        lines = [json.loads(line) for line in run.stdout.splitlines() if line.startswith("{")]
        frames = lines[-1]["summary"]["frames"]["analysed"]
        out[level] = {"frames": frames, "people": sum(line.get("event") == "PeopleMotion" for line in lines)}
    return out


def percent(v, low_high=None):
    text = f"{100 * v:.1f} %"
    return text + (f" ({100 * low_high[0]:.1f} to {100 * low_high[1]:.1f})" if low_high else "")


def table(figures):
    t = ["| pictures | people | AP50 | AP75 | frames with people found at 0.5 | frames without people that report one |",
         "|---|---|---|---|---|---|"]
    for name, f in figures["sets"].items():
        level = f["levels"][3]
        low_high = f.get("ap50_interval")
        ap = f"{f['ap50']:.3f} ({low_high[0]:.3f} to {low_high[1]:.3f})" if low_high else ""
        t.append(f"| {name} | {f['people'] or ''} | {ap} | {f['ap75']:.3f} |" if low_high else f"| {name} | | | |")
        t[-1] += f" {percent(level['recall'], level['recall_interval'])} of {f['with_people']} |" if f["with_people"] else " |"
        t[-1] += (f" {percent(level['false_alarms'], level['false_alarms_interval'])} of {f['without_people']} |"
                  if f["without_people"] else " |")
    t += ["", "| people sensitivity (least score) | motion: found | motion: false alarms | whole: found | whole: false alarms |"
          + "".join(f" {name} |" for name in figures["clips"]), "|---|---|---|---|---|" + "---|" * len(figures["clips"])]
    for level, least in LEVELS.items():
        m, w = figures["sets"]["motion crops"]["levels"][level], figures["sets"]["whole frames"]["levels"][level]
        t.append(f"| {level} ({least}) | {percent(m['recall'])} | {percent(m['false_alarms'])} | {percent(w['recall'])} | "
                 f"{percent(w['false_alarms'])} |" +
                 "".join(f" {c[level]['people']} of {c[level]['frames']} |" for c in figures["clips"].values()))
    t += ["", "| height in the frame, pixels | motion: people | found at 0.5 | found at all | whole: people | found at 0.5 | "
          "found at all |", "|---|---|---|---|---|---|---|"]
    for m, w in zip(figures["sizes"]["motion crops"], figures["sizes"]["whole frames"]):
        t.append(f"| {m['from']} to {m['to'] - 1} | " + " | ".join(
            f"{s['people']} | {percent(s['found'])} | {percent(s['found_at_least_score'])}" for s in (m, w)) + " |")
    return "\n".join(t) + "\n"


def plot(sets, pictures, found, path):
    import matplotlib
    matplotlib.use("Agg")
    matplotlib.rcParams["svg.hashsalt"] = "naro"
    from matplotlib import pyplot
    figure, (left, right) = pyplot.subplots(1, 2, figsize=(10, 4))
    for name in sets:
        rows = np.array(sorted((r for g in pictures[name] for r in judge(g, found[name].get(g["file"], []), 0.5)[0]),
                               reverse=True)).reshape(-1, 2)
        people = sum(not p["ignore"] for g in pictures[name] for p in g["gt"])
        right_ones = np.cumsum(rows[:, 1])
        left.plot(right_ones / people, right_ones / np.arange(1, len(rows) + 1), label=name)
        best = {g["file"]: max((s for s, _ in found[name].get(g["file"], [])), default=0) for g in pictures[name]}
        hit = np.array([best[g["file"]] for g in pictures[name] if any(not p["ignore"] for p in g["gt"])])
        alarm = np.array([best[g["file"]] for g in pictures[name] if g["negative"]])
        at = np.linspace(0.05, 0.95, 91)
        line, = right.plot(at, [(hit >= t).mean() for t in at])
        right.plot(at, [(alarm >= t).mean() for t in at], "--", color=line.get_color())
    for least in LEVELS.values():
        right.axvline(least, color="0.8", linewidth=0.8, zorder=0)
    left.set(xlabel="recall of people", ylabel="precision", xlim=(0, 1), ylim=(0, 1.02))
    right.set(xlabel="least score (the five levels are marked)", ylabel="share of frames", xlim=(0, 1), ylim=(0, 1.02))
    right.plot([], [], color="0.4", label="with people, found")
    right.plot([], [], "--", color="0.4", label="without people, false alarms")
    for axes in (left, right):
        axes.grid(alpha=0.3)
        axes.legend(fontsize=7, loc="upper right")
    figure.tight_layout()
    figure.savefig(path, metadata={"Date": None})


def main():
    root = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
    shared = os.environ.get("SHARED", f"{root}/../shared")
    q = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    q.add_argument("--bin", default=f"{root}/build/release/bin")
    q.add_argument("--people", default=f"{shared}/people")
    q.add_argument("--tools", default=f"{shared}/eval")
    q.add_argument("--clips", default=f"{shared}/clips")
    q.add_argument("--out", default=f"{root}/build/model/evaluation")
    a = q.parse_args()
    os.makedirs(a.out, exist_ok=True)
    crops = cut_holdout(a.people, a.tools, a.out)
    listing = f"{crops}/list.txt"
    everything = json.load(open(f"{crops}/gt.json"))
    looks = {"as it is": crops, "grey": with_look(crops, a.out, "grey", grey),
             "imitated infrared": with_look(crops, a.out, "infrared", infrared)}
    found = {look: detections(a.bin, folder, listing) for look, folder in looks.items()}
    figures = {"sets": {}, "sizes": {}, "clips": {}}
    curves, curve_pictures, curve_found = [], {}, {}
    for mode, name in (("motion", "motion crops"), ("whole", "whole frames")):
        of_mode = [g for g in everything if g["mode"] == mode]
        groups = {"": of_mode}
        for source in sorted({g["set"] for g in of_mode}):
            groups[f" of {source}"] = [g for g in of_mode if g["set"] == source]
        for label, pictures in groups.items():
            figures["sets"][name + label] = of_pictures(pictures, found["as it is"])
        for look in ("grey", "imitated infrared"):
            figures["sets"][f"{name}, {look}"] = of_pictures(of_mode, found[look])
        figures["sets"][f"{name}, at most five boxes"] = of_pictures(of_mode, detections(a.bin, crops, listing, 5))
        figures["sizes"][name] = of_sizes(of_mode, found["as it is"])
        for look in ("as it is", "imitated infrared"):
            key = name + ("" if look == "as it is" else f", {look}")
            curves.append(key)
            curve_pictures[key], curve_found[key] = of_mode, found[look]
    for name in CLIPS:
        if os.path.exists(f"{a.clips}/{name}.mp4"):
            figures["clips"][name] = of_clip(a.bin, f"{a.clips}/{name}.mp4")
    text = table(figures)
    with open(f"{a.out}/figures.md", "w") as f:
        f.write(text)
    with open(f"{a.out}/figures.json", "w") as f:
        json.dump(figures, f, indent=1)
    plot(curves, curve_pictures, curve_found, f"{a.out}/figures.svg")
    print(text)


if __name__ == "__main__":
    main()
