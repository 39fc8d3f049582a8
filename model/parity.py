#!/usr/bin/env python3
"""Holds the exported network against the trained one: the same pictures through the daemon's detector and through PyTorch.

usage: parity.py CHECKPOINT POINT [--bin DIR] [--people DIR] [--pictures N]

The network compared is the one that is stored (folded, weights in half precision); that it says what the trained one says
is printed beside it, as the greatest difference of a score. Exit status 1 when an output differs by more than 1e-3."""
import argparse
import os
import subprocess
import sys
import tempfile

import cv2
import numpy as np
import torch

from data import MAX_AREA, MIN_AREA, load as load_pictures
from network import load, stored

MOST = 1e-3


def sizes():
    """What the network is given without resizing it first."""
    return [(w, h) for h in range(32, 193, 32) for w in range(32, 321, 32) if MIN_AREA <= w * h <= MAX_AREA]


def numbers(outs):
    return torch.cat([o[0].flatten() for o in outs])


def main():
    root = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
    q = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    q.add_argument("checkpoint")
    q.add_argument("point", type=float)
    q.add_argument("--bin", default=f"{root}/build/release/bin")
    q.add_argument("--people", default=os.path.join(os.environ.get("SHARED", f"{root}/../shared"), "people"))
    q.add_argument("--pictures", type=int, default=200)
    a = q.parse_args()
    pictures = [p[0] for p in load_pictures(a.people, "train", holdout=True) + load_pictures(a.people, "negatives", holdout=True)]
    trained, exported = load(a.checkpoint), stored(load(a.checkpoint), a.point)
    shift = torch.logit(torch.tensor(a.point))
    with tempfile.TemporaryDirectory() as work:
        names = [f"{i:04d}.png" for i in range(a.pictures)]
        for i, name in enumerate(names):
            cv2.imwrite(f"{work}/{name}", cv2.resize(pictures[i * len(pictures) // a.pictures], sizes()[i % len(sizes())],
                                                     interpolation=cv2.INTER_AREA))
        with open(f"{work}/list.txt", "w") as f:
            f.write("\n".join(names) + "\n")
        subprocess.run([f"{a.bin}/naro-detect", "--outputs", work, work, f"{work}/list.txt"], check=True, capture_output=True)
        worst, score = 0.0, 0.0
        for name in names:
            given = torch.from_numpy(cv2.imread(f"{work}/{name}.ppm")[:, :, ::-1].copy()).permute(2, 0, 1)[None].float() / 255
            ours = torch.from_numpy(np.array(open(f"{work}/{name}.txt").read().split(), np.float32))
            with torch.no_grad():
                worst = max(worst, float((numbers(exported(given)) - ours).abs().max()))
                outs = trained(given)
            before = torch.cat([(o[0, 4::6].flatten() - shift).sigmoid() for o in outs])
            at = torch.cat([torch.zeros_like(o[0], dtype=torch.bool).index_fill(0, torch.tensor([4, 10, 16]), True).flatten()
                            for o in outs])
            score = max(score, float((before - ours[at].sigmoid()).abs().max()))
    print(f"{len(names)} pictures: outputs differ by at most {worst:.2e} (of {MOST:.0e}); from the trained network to the "
          f"stored one a score changes by at most {score:.4f}")
    sys.exit(worst > MOST)


if __name__ == "__main__":
    main()
