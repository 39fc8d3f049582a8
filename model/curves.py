#!/usr/bin/env python3
"""Draws the course of a training. usage: curves.py LOG SVG"""
import re
import sys

import matplotlib

matplotlib.use("Agg")
matplotlib.rcParams["svg.hashsalt"] = "naro"
from matplotlib import pyplot  # noqa: E402

LINE = re.compile(r" *(\d+) s step (\d+) pictures/s (\d+) lr (\S+) obj (\S+) box (\S+)")


def main():
    rows = [[float(v) for v in m.groups()] for m in map(LINE.match, open(sys.argv[1])) if m]
    minutes = [r[0] / 60 for r in rows]
    figure, (loss, rate) = pyplot.subplots(1, 2, figsize=(10, 3.5))
    loss.plot(minutes, [r[4] for r in rows], label="is it a person")
    loss.plot(minutes, [r[5] for r in rows], label="where (1 - complete overlap)")
    loss.set(xlabel="minutes", ylabel="loss", ylim=(0, None))
    loss.legend()
    rate.plot(minutes, [r[3] for r in rows], color="C2")
    rate.set(xlabel="minutes", ylabel="learning rate")
    speed = rate.twinx()
    speed.plot(minutes, [r[2] for r in rows], ".", color="C3", markersize=2)
    speed.set(ylabel="pictures a second (dots)", ylim=(0, None))
    for axes in (loss, rate):
        axes.grid(alpha=0.3)
    figure.tight_layout()
    figure.savefig(sys.argv[2], metadata={"Date": None})


main()
