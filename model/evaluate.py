#!/usr/bin/env python3
"""Scores a checkpoint on what training never saw: whole held-out sources, and video clips.

usage: evaluate.py CHECKPOINT [--people DIR] [--tools DIR] [--clips DIR] [--work DIR]

--tools holds make_crops.py and score.py, which cut and score the held-out pictures; --clips holds videos. A clip goes
the daemon's way: five frames a second, 320x192, block differences, the crop around what moved, the network, and one
letter a frame is printed: P a person, m only motion, . nothing (or motion everywhere, which counts as nothing)."""
import argparse
import json
import os
import subprocess
import sys

import cv2
import numpy as np
import torch

from data import H, HOLDOUT, W, fit, widen
from network import Net
from train import decode, flatten, grid

BLOCK_DIFFERENCE = 960  # the daemon's default: sum of luma differences over 8x8 pixels
SCORE, OVERLAP, MOST = 0.5, 0.5, 5


def detector(checkpoint):
    net = Net()
    net.load_state_dict(torch.load(checkpoint)["ema"])
    net.eval()

    def detect(rgb, score, most):
        """[(score, x1, y1, x2, y2)] in pixels of the crop: a box goes when a better one overlaps it too much, even if
        that one goes as well."""
        h, w = rgb.shape[:2]
        nh, nw = fit(h, w)
        x = cv2.resize(rgb, (nw, nh), interpolation=cv2.INTER_LINEAR)
        with torch.no_grad():
            p = flatten(net(torch.from_numpy(x).permute(2, 0, 1)[None].float() / 255))
            b = decode(p, grid(nh, nw))[0].numpy() * np.array([w / nw, h / nh] * 2)
            s = p[0, :, 4].sigmoid().numpy()
        b, s = b[s >= score], s[s >= score]
        side = np.minimum(b[:, None, 2:], b[None, :, 2:]) - np.maximum(b[:, None, :2], b[None, :, :2])
        inter = side.clip(0).prod(-1)
        area = (b[:, 2:] - b[:, :2]).prod(-1)
        worse = (inter / (area[:, None] + area[None] - inter) > OVERLAP) & (s[:, None] < s[None])
        kept = np.nonzero(~worse.any(1))[0]
        kept = kept[np.argsort(-s[kept])][:most]
        b = np.clip(b, 0, [w - 1, h - 1, w - 1, h - 1])
        return [(float(s[i]), *b[i]) for i in kept]
    return detect


def video_range(bgr):
    """What the daemon makes of a picture: through NV12 of BT.601 video range, back to R, G, B."""
    h, w = bgr.shape[0] // 2 * 2, bgr.shape[1] // 2 * 2
    return cv2.cvtColor(cv2.cvtColor(bgr[:h, :w], cv2.COLOR_BGR2YUV_I420), cv2.COLOR_YUV2RGB_I420)


def cut_holdout(people, tools, work):
    """The held-out sources, cut once; a folder of links gives the cutter the layout it wants."""
    crops = f"{work}/crops"
    if os.path.exists(f"{crops}/gt.json"):
        return crops
    os.makedirs(f"{work}/sources", exist_ok=True)
    if not os.path.islink(f"{work}/sources/people"):
        os.symlink(os.path.abspath(people), f"{work}/sources/people")
    for kind, place in (("train", "holdout"), ("negatives", "negatives")):
        os.makedirs(f"{work}/sources/{place}", exist_ok=True)
        for source in HOLDOUT[kind]:
            with open(f"{work}/sources/{place}/{source}.jsonl", "w") as f:
                for line in open(f"{people}/{kind}/{source}.jsonl"):
                    r = json.loads(line)
                    r["file"] = "people/" + r["file"]
                    f.write(json.dumps(r) + "\n")
    subprocess.run([sys.executable, f"{tools}/make_crops.py", f"{work}/sources", crops], check=True)
    return crops


def score_holdout(detect, crops, tools, work):
    with open(f"{work}/detections.txt", "w") as f:
        for g in json.load(open(f"{crops}/gt.json")):
            for s, *b in detect(video_range(cv2.imread(f"{crops}/{g['file']}")), 0.02, 30):
                f.write(f"{g['file']} {s:.4f} {' '.join(f'{v:.1f}' for v in b)}\n")
    subprocess.run([sys.executable, f"{tools}/score.py", crops, f"{work}/detections.txt"], check=True)


def clip_frames(path, rate=5):
    video = cv2.VideoCapture(path)
    source_rate = video.get(cv2.CAP_PROP_FPS)
    read = taken = 0
    while True:
        ok, im = video.read()
        if not ok:
            return
        if read / source_rate >= taken / rate:
            taken += 1
            yield cv2.resize(im, (W, H), interpolation=cv2.INTER_AREA)
        read += 1


def moving_part(luma, before):
    """The crop around what moved, or None."""
    blocks = np.abs(luma - before).reshape(H // 8, 8, W // 8, 8).sum((1, 3)) >= BLOCK_DIFFERENCE
    if not blocks.any():
        return None
    rows, columns = np.nonzero(blocks.any(1))[0], np.nonzero(blocks.any(0))[0]
    x1, x2 = 8 * max(0, columns[0] - 1), 8 * min(W // 8, columns[-1] + 2) - 1
    y1, y2 = 8 * max(0, rows[0] - 1), 8 * min(H // 8, rows[-1] + 2) - 1
    if (x1, y1, x2, y2) == (0, 0, W - 1, H - 1):
        return None
    (x1, x2), (y1, y2) = widen(x1, x2, W), widen(y1, y2, H)
    return x1, y1, x2, y2


def watch(detect, path):
    letters, before = "", None
    for im in clip_frames(path):
        luma = cv2.cvtColor(im, cv2.COLOR_BGR2YUV_I420)[:H].astype(np.int16)
        crop = None if before is None else moving_part(luma, before)
        before = luma
        if crop is None:
            letters += "."
            continue
        x1, y1, x2, y2 = crop
        letters += "P" if detect(video_range(im)[y1:y2 + 1, x1:x2 + 1], SCORE, MOST) else "m"
    print(f"{os.path.basename(path)}: {len(letters)} frames, {len(letters) - letters.count('.')} with motion, "
          f"{letters.count('P')} with a person ({100 * letters.count('P') / len(letters):.1f} %)")
    for i in range(0, len(letters), 50):
        print(f"{i / 5:7.1f} s {letters[i:i + 50]}")


def main():
    shared = os.environ.get("SHARED", "../shared")
    q = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    q.add_argument("checkpoint")
    q.add_argument("--people", default=f"{shared}/people")
    q.add_argument("--tools", default=f"{shared}/eval")
    q.add_argument("--clips", default=f"{shared}/clips")
    q.add_argument("--work", default="build/model/evaluation")
    a = q.parse_args()
    os.makedirs(a.work, exist_ok=True)
    torch.set_num_threads(1)
    detect = detector(a.checkpoint)
    score_holdout(detect, cut_holdout(a.people, a.tools, a.work), a.tools, a.work)
    for name in sorted(os.listdir(a.clips)):
        if name.endswith(".mp4"):
            watch(detect, f"{a.clips}/{name}")


if __name__ == "__main__":
    main()
