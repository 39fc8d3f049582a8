#!/usr/bin/env python3
"""Finds the working point of a trained network: which trained score is to be given out as 0.5.

usage: calibrate.py CHECKPOINT [--people DIR] [--alarms SHARE]

Looks only at rooms without people that training never saw (the source `houses`), each whole and in three crops, and prints
the score that no more than SHARE of these looks (default 0.006) reach."""
import argparse
import os
import random

import cv2
import numpy as np
import torch

from data import H, W, Layer, fit, load as load_pictures, motion_crop, render
from network import load

ROOMS = "houses"


def looks(picture, rng):
    """The picture as a frame with bars, and three parts of it in which something could have moved."""
    h, w = picture.shape[:2]
    s = min(W / w, H / h)
    nw, nh = round(w * s), round(h * s)
    layer = Layer(picture, (W - nw) // 2, (H - nh) // 2, nw, nh, False)
    places = [(0, 0, W - 1, H - 1)]
    for _ in range(3):
        cw, ch = rng.choice([40, 64, 96, 128, 160]), rng.choice([40, 64, 96, 128, 160])
        x, y = rng.randrange(W - cw), rng.randrange(H - ch)
        places.append(motion_crop(x, y, x + cw, y + ch))
    for place in places:
        yield cv2.cvtColor(cv2.cvtColor(render([layer], place, 114), cv2.COLOR_BGR2YUV_I420), cv2.COLOR_YUV2RGB_I420)


def best_score(net, rgb):
    h, w = fit(*rgb.shape[:2])
    x = torch.from_numpy(cv2.resize(rgb, (w, h), interpolation=cv2.INTER_LINEAR)).permute(2, 0, 1)[None].float() / 255
    with torch.no_grad():
        return max(float(o[0, 4::6].max().sigmoid()) for o in net(x))


def main():
    root = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
    q = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    q.add_argument("checkpoint")
    q.add_argument("--people", default=os.path.join(os.environ.get("SHARED", f"{root}/../shared"), "people"))
    q.add_argument("--alarms", type=float, default=0.006)
    a = q.parse_args()
    torch.set_num_threads(1)
    net, rng = load(a.checkpoint), random.Random(1)
    scores = sorted(best_score(net, rgb) for picture, _, source in load_pictures(a.people, "negatives", holdout=True)
                    if source == ROOMS for rgb in looks(picture, rng))
    print(f"{np.quantile(scores, 1 - a.alarms):.3f}")


if __name__ == "__main__":
    main()
