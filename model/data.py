"""Pictures with boxes -> what the daemon shows its detector.

The daemon sees 320x192 video-range NV12, cuts the moving part out of it and squeezes that to a size that the network
takes. Training sees exactly this: the same frame, the same block grid, the same widening, the same area budget."""
import json
import math
import os
import random
import sys
from typing import NamedTuple

import cv2
import numpy as np

W, H = 320, 192
MIN_AREA, MAX_AREA = 16384, 28224
HOLDOUT = {"train": {"indoor_robot_mall", "mask_single", "human_v2_meeting"}, "negatives": {"houses"}}
# Sources whose people in the background have no box: a confident find there is not punished.
INCOMPLETE = {"ccp_street", "human_v2_openimages"}
# Sources whose boxes are loose, or whose people lie, ride or are drawn: nobody is cut out of these.
UNCUT = {"fall_rooms", "sitting", "riders", "rendered", "coco_small", "driveway"}
# Sources in which everybody has a box: what lies beside the boxes holds nobody.
WHOLE = {"fall_rooms", "human_v2_street", "human_v2_crossing", "rendered", "driveway", "sitting"}
# How often a source is drawn, relative to its number of pictures.
WEIGHT = {"ccp_street": 0.25, "human_v2_people40": 0.6, "rendered": 0.35, "sitting": 0.6, "riders": 0.7,
          "driveway": 0.8}
# The same for pictures without people: what looks like a person at first sight counts for more than an empty room.
WEIGHT_NEGATIVE = {"animals": 4.0, "pets": 4.0, "coco_noperson": 4.0, "driveway": 2.0, "scene15_gray": 1.5}
SKINS = ((120, 150, 205), (90, 120, 180), (60, 85, 140), (140, 170, 225), (40, 60, 95))  # blue, green, red
cv2.setNumThreads(0)  # one process per core already


class Layer(NamedTuple):
    """A picture that lies in the frame: at (x, y), so wide and high there."""
    picture: np.ndarray
    x: int
    y: int
    width: int
    height: int
    mirrored: bool
    window: tuple = None  # the part of the frame (x1, y1, x2, y2) in which it is seen, where that is not all
    soft: bool = False  # fades out towards its corners and edges


def load(root, kind, holdout=False):
    """[(picture BGR, boxes Nx4, source)] of people/train or people/negatives, held-out sources left out."""
    out = []
    if not os.path.isdir(f"{root}/{kind}"):
        sys.exit(f"{root}/{kind} is not there: pictures with people are in train, others in negatives, as SOURCE.jsonl")
    for name in sorted(os.listdir(f"{root}/{kind}")):
        if not name.endswith(".jsonl"):
            continue
        source = name[:-6]
        if (source in HOLDOUT[kind]) != holdout:
            continue
        for line in open(f"{root}/{kind}/{name}"):
            r = json.loads(line)
            im = cv2.imread(f"{root}/{r['file']}")
            if im is None:
                continue
            out.append((im, np.array(r["boxes"], np.float32).reshape(-1, 4), source))
    return out


def fit(h, w):
    """The network's input size for a crop of h x w (multiples of 32 within the area budget)."""
    h, w = -(-h // 32) * 32, -(-w // 32) * 32
    a = h * w
    s = 1.0
    if a < MIN_AREA:
        s = math.sqrt(MIN_AREA / a)
    elif a > MAX_AREA:
        s = math.sqrt(MAX_AREA / a)
    hh, ww = int(s * h), int(s * w)
    if s < 1:
        hh, ww = hh // 32 * 32, ww // 32 * 32
    return -(-hh // 32) * 32, -(-ww // 32) * 32


def widen(a, b, size):
    """Grows [a, b] towards a multiple of 32 inside the frame, as the daemon does it."""
    w = b - a + 1
    pad = (-(-w // 32) * 32 - w) // 2
    if a < pad and b + pad > size:
        return 0, size - 1
    if a < pad:
        return 0, b + 2 * pad - a
    if b + pad < size:
        return a - pad, b + pad
    return a - 2 * pad + (size - 1 - b), size - 1


def motion_crop(x1, y1, x2, y2):
    """The crop that the daemon would cut if just this rectangle had moved: whole blocks, one more each side, widened."""
    bx1, by1 = max(0, int(x1 // 8) - 1), max(0, int(y1 // 8) - 1)
    bx2, by2 = min(40, int(-(-x2 // 8)) + 1), min(24, int(-(-y2 // 8)) + 1)
    bx2, by2 = max(bx2, bx1 + 2), max(by2, by1 + 2)
    bx1, by1 = max(0, min(bx1, bx2 - 2, 38)), max(0, min(by1, by2 - 2, 22))
    bx2, by2 = min(40, bx2), min(24, by2)
    X1, X2 = widen(8 * bx1, 8 * bx2 - 1, W)
    Y1, Y2 = widen(8 * by1, 8 * by2 - 1, H)
    return max(X1, 0), max(Y1, 0), min(X2, W - 1), min(Y2, H - 1)


_yy, _xx = np.mgrid[0:H, 0:W].astype(np.float32)
# Drawn once: a picture takes its noise from anywhere in it. The second kind is what a noise filter leaves: in spots.
_white = np.random.default_rng(7).standard_normal((3 * H, 3 * W, 3)).astype(np.float32)
_spots = cv2.GaussianBlur(_white, (0, 0), 1.1)
_spots /= _spots.std()


def noise(rng, h, w, grey):
    bank = _white if rng.random() < 0.6 else _spots
    y, x = rng.randrange(bank.shape[0] - h), rng.randrange(bank.shape[1] - w)
    n = bank[y:y + h, x:x + w]
    return cv2.cvtColor(np.ascontiguousarray(n[:, :, 0]), cv2.COLOR_GRAY2BGR) if grey else n


def look(f, x0, y0, rng, nrng):
    """Light, colour, night, noise, blur, compression of the part of a frame whose corner is at (x0, y0)."""
    r = rng.random
    h, w = f.shape[:2]
    night = r() < 0.13
    grey = night or r() < 0.09
    mix = None
    if grey:
        # near infrared weighs the colours in its own way: clothes dark by day are often bright
        mix = np.repeat(nrng.dirichlet((1.5, 2.0, 1.5))[None], 3, 0)
    else:
        if r() < 0.25:
            mix = np.diag(nrng.uniform(0.85, 1.15, 3))
        if r() < 0.15:
            k = rng.uniform(0.3, 1.4)
            mix = (np.eye(3) * k + (1 - k) / 3) @ (np.eye(3) if mix is None else mix)
    if mix is not None:
        f = cv2.transform(f, mix)
    v = np.arange(256, dtype=np.float64)
    gamma = math.exp(rng.uniform(-0.4, 0.4)) if r() < 0.3 else 1.0
    v = 255 * (v / 255) ** gamma
    if r() < 0.35:
        m = 255 * (sum(cv2.mean(f)[:3]) / 765) ** gamma
        v = (v - m) * rng.uniform(0.6, 1.3) + m + rng.uniform(-25, 25)
    f = cv2.LUT(f, np.clip(v, 0, 255).astype(np.uint8))
    gain = None
    if night:
        # an infrared lamp at the lens: bright middle, dark corners
        cx, cy = rng.uniform(0.25, 0.75) * W, rng.uniform(0.25, 0.75) * H
        xs, ys = (np.arange(x0, x0 + w, dtype=np.float32) - cx) / W, (np.arange(y0, y0 + h, dtype=np.float32) - cy) / H
        k = rng.uniform(0.5, 5)
        gain = np.outer(np.exp(-k * ys * ys) * rng.uniform(0.7, 1.5), np.exp(-k * xs * xs))
    elif r() < 0.08:
        a, k = rng.uniform(0, 2 * math.pi), rng.uniform(0.3, 1.4)
        gain = np.clip(1 + k * (math.cos(a) * (_xx[y0:y0 + h, x0:x0 + w] / W - 0.5) +
                                math.sin(a) * (_yy[y0:y0 + h, x0:x0 + w] / H - 0.5)), 0.15, 2)
    if gain is not None:
        f = cv2.multiply(f, cv2.cvtColor(gain.astype(np.float32), cv2.COLOR_GRAY2BGR), dtype=cv2.CV_8U)
    m = sum(cv2.mean(f)[:3]) / 3
    if m < 30:  # the camera's gain does not leave it that dark
        f = cv2.convertScaleAbs(f, alpha=rng.uniform(25, 70) / max(m, 4.0))
    q = r()
    if q < 0.08:
        f = cv2.GaussianBlur(f, (0, 0), rng.uniform(0.5, 1.6))
    elif q < 0.12:
        n = rng.choice([3, 5, 7])
        f = cv2.blur(f, (n, 1) if r() < 0.7 else (1, n))
    if r() < (0.7 if night else 0.2):
        sigma = rng.uniform(2, 14 if night else 8)
        f = cv2.add(f, noise(rng, h, w, grey or r() < 0.5) * np.float32(sigma), dtype=cv2.CV_8U)
    if r() < 0.1:
        f = cv2.imdecode(cv2.imencode(".jpg", f, [cv2.IMWRITE_JPEG_QUALITY, rng.randint(20, 70)])[1], 1)
    return f


def whole(v):
    return tuple(int(x) for x in v)


def shaded(shape, c, nrng):
    """A flat colour with a slow drift of light over it."""
    ramp = cv2.resize(nrng.uniform(-22, 22, (3, 3)).astype(np.float32), shape[1::-1], interpolation=cv2.INTER_CUBIC)
    return np.asarray(c, np.float32) + ramp[:, :, None]


def paste(im, mask, c, nrng):
    """Lays a shaded colour over the part of the picture that the mask (0 to 255) covers."""
    a = cv2.GaussianBlur(mask, (3, 3), 0)[:, :, None] / np.float32(255)
    im[:] = np.clip(im * (1 - a) + shaded(im.shape, c, nrng) * a, 0, 255).astype(np.uint8)


def stage(im, rng, nrng):
    """A place for things to stand in: the picture as it is, an empty table before a wall, or bare ground."""
    im = im.copy()
    h, w = im.shape[:2]
    q = rng.random()
    if q < 0.25:
        y = int(rng.uniform(0.45, 0.95) * h)
        im[:y] = np.clip(shaded((y, w), nrng.uniform(60, 240) + nrng.uniform(-15, 15, 3), nrng), 0, 255)
        im[y:] = np.clip(shaded((h - y, w), nrng.uniform(60, 250) + nrng.uniform(-25, 25, 3), nrng), 0, 255)
    elif q < 0.6:
        im[:] = np.clip(shaded((h, w), nrng.uniform(40, 230) + nrng.uniform(-15, 15, 3), nrng), 0, 255)
    return im


def things(im, other, rng, nrng):
    """Puts one or two things of any outline and make on the picture: vehicles, furniture, parcels, nothing in particular.

    What moves alone before a quiet ground is not a person for that: without these, the network takes the crop's
    middle for one."""
    h, w = im.shape[:2]
    for _ in range(rng.choice([1, 1, 2])):
        oh = int(rng.uniform(0.25, 0.9) * h)
        ow = int(min(w * 0.9, oh * math.exp(rng.uniform(-1.3, 0.6))))
        oh, ow = max(12, oh), max(12, ow)
        body = np.empty((oh, ow, 3), np.uint8)
        if rng.random() < 0.4:
            y, x = rng.randrange(max(1, other.shape[0] // 2)), rng.randrange(max(1, other.shape[1] // 2))
            piece = other[y:y + rng.randint(20, 200), x:x + rng.randint(20, 200)]
            body[:] = cv2.resize(piece, (ow, oh), interpolation=cv2.INTER_LINEAR)
        else:
            body[:] = np.clip(shaded((oh, ow), nrng.uniform(10, 245, 3) if rng.random() < 0.6 else nrng.uniform(20, 240),
                                     nrng), 0, 255)
            for _ in range(rng.randint(1, 7)):  # windows, labels, seams, lamps: often the same left and right
                bw, bh = rng.uniform(0.08, 0.8) * ow, rng.uniform(0.04, 0.35) * oh
                x, y = rng.uniform(0, ow - bw), rng.uniform(0, oh - bh)
                if rng.random() < 0.5:
                    x = (ow - bw) / 2
                c = whole(nrng.uniform(0, 255, 3) if rng.random() < 0.4 else [nrng.uniform(0, 90)] * 3)
                boxes = [x] if rng.random() < 0.6 else [x, ow - bw - x]
                for bx in boxes:
                    if rng.random() < 0.7:
                        cv2.rectangle(body, whole((bx, y)), whole((bx + bw, y + bh)), c, -1)
                    else:
                        cv2.ellipse(body, whole((bx + bw / 2, y + bh / 2)), whole((bw / 2, bh / 2)), 0, 0, 360, c, -1)
        mask = np.zeros((oh, ow), np.uint8)
        q = rng.random()
        if q < 0.3:
            cv2.ellipse(mask, (ow // 2, oh // 2), (ow // 2 - 1, oh // 2 - 1), 0, 0, 360, 255, -1)
        elif q < 0.75:  # rounded corners
            r = max(1, int(rng.uniform(0.05, 0.45) * min(oh, ow)))
            cv2.rectangle(mask, (r, r), (ow - r - 1, oh - r - 1), 255, -1)
            mask = cv2.dilate(mask, cv2.getStructuringElement(cv2.MORPH_ELLIPSE, (2 * r - 1, 2 * r - 1)))
        else:
            a = np.sort(nrng.uniform(0, 2 * math.pi, rng.randint(3, 8)))
            r = nrng.uniform(0.55, 1, a.size)
            cv2.fillPoly(mask, [np.stack([ow / 2 + np.cos(a) * r * ow / 2, oh / 2 + np.sin(a) * r * oh / 2],
                                         1).astype(np.int32)], 255)
        turn = cv2.getRotationMatrix2D((ow / 2, oh / 2), rng.gauss(0, 12), 1)
        turn[:, 2] += rng.uniform(-0.15 * ow, w - 0.85 * ow), rng.uniform(-0.15 * oh, h - 0.85 * oh)
        body = cv2.warpAffine(body, turn, (w, h), flags=cv2.INTER_LINEAR, borderMode=cv2.BORDER_REPLICATE)
        mask = cv2.warpAffine(mask, turn, (w, h))
        if rng.random() < 0.5:  # its shadow
            away = np.float32([[1, 0, rng.uniform(-12, 12)], [0, 1, rng.uniform(-4, 12)]])
            dark = cv2.GaussianBlur(cv2.warpAffine(mask, away, (w, h)), (0, 0), 4)[:, :, None] / np.float32(255)
            im[:] = (im * (1 - rng.uniform(0.2, 0.6) * dark)).astype(np.uint8)
        alpha = cv2.GaussianBlur(mask, (3, 3), 0)[:, :, None] / np.float32(255)
        if rng.random() < 0.2:
            alpha = alpha * rng.uniform(0.4, 0.9)  # glass
        im[:] = (im * (1 - alpha) + body * alpha).astype(np.uint8)


def nobody(pic, other, rng, nrng):
    """A picture without people in which something could have moved: (picture, rectangle of that) or (picture, None)."""
    im, _, source = pic
    q = rng.random()
    if q < 0.5:
        h, w = im.shape[:2]
        # what such pictures show stands mostly in their middle
        a, b = nrng.uniform(0.25, 0.95, 2)
        x, y = rng.gauss(0.5, 0.1) * w, rng.gauss(0.5, 0.1) * h
        return im, (x - a * w / 2, y - b * h / 2, x + a * w / 2, y + b * h / 2)
    if q < 0.7:
        return im, None
    before = stage(im, rng, nrng)
    after = before.copy()
    if q < 0.88:
        things(after, other, rng, nrng)
    if q >= 0.82:
        after = reach(after, rng, nrng)
    moved = cv2.absdiff(before, after).max(2) > 12
    if not moved.any():
        return after, None
    rows, columns = np.nonzero(moved.any(1))[0], np.nonzero(moved.any(0))[0]
    return after, (columns[0], rows[0], columns[-1] + 1, rows[-1] + 1)


def reach(im, rng, nrng):
    """Draws an arm that reaches in over the edge, now and then with a bottle or box in the hand: no person yet.

    Some labelled pictures call a lone hand a person, and without a counterweight the network believes them."""
    h, w = im.shape[:2]
    thing = rng.random()
    for _ in range(rng.choice([0, 1, 2, 3])):  # bottles that stand about
        bottle(im, rng.uniform(0.05, 0.95) * w, rng.uniform(0.3, 0.7) * h, rng.uniform(0.2, 0.5) * h, rng, nrng)
    for _ in range(rng.choice([1, 1, 1, 2])):
        side = rng.choice("tttlrb")
        start = {"t": (rng.uniform(-0.2, 1.2) * w, -0.1 * h), "b": (rng.uniform(0, 1) * w, 1.1 * h),
                 "l": (-0.1 * w, rng.uniform(-0.1, 0.8) * h), "r": (1.1 * w, rng.uniform(-0.1, 0.8) * h)}[side]
        hand = np.array([rng.uniform(0.1, 0.9) * w, rng.uniform(0.1, 0.75) * h])
        start = np.array(start)
        thick = rng.uniform(0.05, 0.16) * h
        bend = (start + hand) / 2 + nrng.uniform(-0.12, 0.12, 2) * h
        cut = rng.uniform(0.1, 0.95)  # how far the sleeve goes
        points = [(1 - t) ** 2 * start + 2 * t * (1 - t) * bend + t * t * hand for t in np.linspace(0, 1, 14)]
        skin = np.array(rng.choice(SKINS)) * rng.uniform(0.7, 1.15)
        sleeve, bare = np.zeros((h, w), np.uint8), np.zeros((h, w), np.uint8)
        for i in range(13):
            r = thick * (1 - 0.4 * i / 13)
            cv2.line(sleeve if i / 13 < cut else bare, whole(points[i]), whole(points[i + 1]), 255, max(2, int(r)))
        if thing < 0.6:
            bottle(im, hand[0] + rng.uniform(-0.3, 0.3) * thick, hand[1], rng.uniform(0.25, 0.55) * h, rng, nrng)
        d = hand - bend
        d = d / (np.hypot(*d) + 1e-6)
        palm = (thick * 1.3, thick * rng.uniform(0.7, 1.1))
        cv2.ellipse(bare, (tuple(hand), palm, math.degrees(math.atan2(d[1], d[0]))), 255, -1)
        for k in range(rng.randint(2, 5)):
            a = math.atan2(d[1], d[0]) + rng.uniform(-0.9, 1.1)
            tip = hand + thick * rng.uniform(0.7, 1.5) * np.array([math.cos(a), math.sin(a)])
            cv2.line(bare, whole(hand), whole(tip), 255, max(2, int(thick * 0.28)))
        paste(im, bare, skin, nrng)
        paste(im, sleeve, nrng.uniform(0, 230, 3), nrng)
    return im


def bottle(im, x, y, size, rng, nrng):
    """A bottle, cup or box whose neck is at (x, y)."""
    mask = np.zeros(im.shape[:2], np.uint8)
    wide = size * rng.uniform(0.12, 0.35) / 2
    if rng.random() < 0.7:
        neck = wide * rng.uniform(0.25, 0.7)
        outline = [(-neck, 0), (neck, 0), (neck, 0.2), (wide, 0.38), (wide, 1), (-wide, 1), (-wide, 0.38), (-neck, 0.2)]
    else:
        outline = [(-wide, 0), (wide, 0), (wide, 1), (-wide, 1)]
    cv2.fillPoly(mask, [np.array([(x + px, y + py * size) for px, py in outline], np.int32)], 255)
    c = nrng.uniform(20, 240, 3)
    paste(im, (mask * rng.uniform(0.3, 1.0)).astype(np.uint8), c, nrng)
    for chance, half, top, end in ((0.6, 0.5, -0.06, 0.04), (0.4, 1.0, 0.5, 0.75)):  # cap, label
        if rng.random() < chance:
            cv2.rectangle(im, whole((x - wide * half, y + top * size)), whole((x + wide * half, y + end * size)),
                          whole(nrng.uniform(0, 240, 3)), -1)


def squeeze(source, rng):
    """How much wider than high a picture becomes: a little for all, more for those of unknown aspect, and now and then
    as wide-angle lenses and streams of a wrong aspect show people, narrow above all."""
    if rng.random() < 0.08:
        return math.exp(rng.uniform(-0.75, 0.35))
    return math.exp(rng.uniform(-0.2, 0.2) if source.startswith("human_v2") else rng.uniform(-0.12, 0.12))


def place(pic, rng, focus=None):
    """Where a picture comes to lie in the frame: its layer, its boxes there."""
    im, boxes, source = pic
    h, w = im.shape[:2]
    sx = sy = min(W / w, H / h)
    q = rng.random()
    if q < 0.8:
        pass  # whole picture with bars
    elif q < 0.88:
        z = rng.uniform(1.0, 1.8)
        sx *= z
        sy *= z
    elif q < 0.9:
        sx, sy = W / w, H / h  # stretched
    else:
        z = rng.uniform(0.6, 1.0)
        sx *= z
        sy *= z
    jitter = squeeze(source, rng)
    nw, nh = max(8, round(w * sx * jitter ** 0.5)), max(8, round(h * sy / jitter ** 0.5))
    if q < 0.8 and rng.random() < 0.85:
        ox, oy = (W - nw) // 2, (H - nh) // 2
    else:
        ox = rng.randint(min(0, W - nw), max(0, W - nw))
        oy = rng.randint(min(0, H - nh), max(0, H - nh))
    return laid((im, boxes if focus is None else np.array([focus], np.float32)), ox, oy, nw, nh, rng.random() < 0.5)


def lying(pic, rng):
    """A picture on its side: who stood now lies."""
    im, b, source = pic
    h, w = im.shape[:2]
    if rng.random() < 0.5:
        return np.ascontiguousarray(np.rot90(im)), np.stack([b[:, 1], w - b[:, 2], b[:, 3], w - b[:, 0]], 1), source
    return np.ascontiguousarray(np.rot90(im, 3)), np.stack([h - b[:, 3], b[:, 0], h - b[:, 1], b[:, 2]], 1), source


def laid(pic, x, y, w, h, mirrored):
    im, boxes = pic[:2]
    b = boxes * np.array([w / im.shape[1], h / im.shape[0]] * 2, np.float32)
    if mirrored:
        b = b[:, [2, 1, 0, 3]] * np.array([-1, 1, -1, 1], np.float32) + np.array([w, 0, w, 0], np.float32)
    return Layer(im, x, y, w, h, mirrored), b + np.array([x, y, x, y], np.float32)


def crowd(pictures, rng):
    """Several pictures side by side: many people, all of them small, as on a far wall or in a hall."""
    columns, rows = rng.choice([(2, 1), (2, 2), (2, 2), (2, 2), (3, 2), (3, 2), (3, 3)])
    zoom = rng.uniform(0.9, 1.6) if rng.random() < 0.5 else 1.0
    cw, ch = W * zoom / columns, H * zoom / rows
    ox, oy = rng.uniform(min(0, W - W * zoom), max(0, W - W * zoom)), rng.uniform(min(0, H - H * zoom), max(0, H - H * zoom))
    layers, found = [], []
    for i in range(columns * rows):
        im = pictures[i][0]
        h, w = im.shape[:2]
        s = min(cw / w, ch / h) if rng.random() < 0.6 else max(cw / w, ch / h) * rng.uniform(0.7, 1.0)
        jitter = squeeze(pictures[i][2], rng)
        nw, nh = max(8, round(w * s * jitter)), max(8, round(h * s / jitter))
        x = round(ox + i % columns * cw + rng.uniform(min(0, cw - nw), max(0, cw - nw)))
        y = round(oy + i // columns * ch + rng.uniform(min(0, ch - nh), max(0, ch - nh)))
        window = (round(ox + i % columns * cw), round(oy + i // columns * ch), round(ox + (i % columns + 1) * cw),
                  round(oy + (i // columns + 1) * ch))
        layer, b = laid(pictures[i], x, y, nw, nh, rng.random() < 0.5)
        layers.append(layer._replace(window=window))
        found.append(np.concatenate([b, np.tile(np.array(window, np.float32), (len(b), 1))], 1))
    return layers, np.concatenate(found)


def loners(pictures):
    """People who can be cut out: [(picture, box)]. Upright, seen from head to foot, nobody before them."""
    found = []
    for im, boxes, source in pictures:
        h, w = im.shape[:2]
        if source in UNCUT:
            continue
        for k, (x1, y1, x2, y2) in enumerate(boxes):
            bw, bh = x2 - x1, y2 - y1
            if bh < 70 or not 0.18 < bw / bh < 0.75 or x1 < 3 or x2 > w - 3 or y1 < 3 or y2 > h - 3:
                continue
            o = np.delete(boxes, k, 0)
            wide = (np.minimum(o[:, 2], x2) - np.maximum(o[:, 0], x1)).clip(0)
            high = (np.minimum(o[:, 3], y2) - np.maximum(o[:, 1], y1)).clip(0)
            if (wide * high).sum() <= 0.08 * bw * bh:
                found.append((im, (x1, y1, x2, y2)))
    return found


def gather(people, others, rng):
    """People cut out and set among each other, the near ones before the far ones, now and then a piece of the other
    pictures between them: their layers, and for each its box and whether it is a person. Pictures of many people are few;
    these never end."""
    n = rng.choice([2, 3, 4, 6, 8, 10, 12, 16])
    middle = math.exp(rng.uniform(math.log(22), math.log(100)))
    narrow = squeeze("human_v2", rng)
    layers, found = [], []
    cx, spread = rng.uniform(0.2, 0.8) * W, rng.uniform(0.08, 0.5) * W
    for foot in sorted(rng.uniform(0.4, 1.08) * H for _ in range(n)):
        person = rng.random() < 0.8
        if person:
            im, (x1, y1, x2, y2) = people[rng.randrange(len(people))]
            w, h = x2 - x1, y2 - y1
            # never the same margin: the outline of the cut must not tell where the person is
            left, right, above, below = (rng.uniform(0.06, 0.4) for _ in range(4))
            a, c = max(0, int(x1 - left * w)), min(im.shape[1], int(x2 + right * w))
            b, d = max(0, int(y1 - above * 0.5 * h)), min(im.shape[0], int(y2 + below * 0.5 * h))
            im, box = im[b:d, a:c], np.array([[x1 - a, y1 - b, x2 - a, y2 - b]], np.float32)
        else:
            im = rng.choice(others)[0]
            y, x = rng.randrange(max(1, im.shape[0] // 2)), rng.randrange(max(1, im.shape[1] // 2))
            im = im[y:y + rng.randint(30, 200), x:x + rng.randint(20, 150)]
            box = np.array([[0, 0, im.shape[1], im.shape[0]]], np.float32)
        s = middle * (0.55 + 0.6 * foot / H) * math.exp(rng.gauss(0, 0.12)) / (box[0, 3] - box[0, 1])
        nh, nw = max(4, round(im.shape[0] * s)), max(3, round(im.shape[1] * s * narrow))
        x, y = round(rng.gauss(cx, spread)) - nw // 2, round(foot) - nh
        layer, b = laid((im, box), x, y, nw, nh, rng.random() < 0.5)
        layers.append(layer._replace(soft=True))
        found.append((b[0], person))
    return layers, found


def hidden(found):
    """Which of these, in the order in which they are laid, are mostly behind later ones."""
    out = []
    for i, (a, _) in enumerate(found):
        gone = sum(max(0.0, min(a[2], b[2]) - max(a[0], b[0])) * max(0.0, min(a[3], b[3]) - max(a[1], b[1]))
                   for b, _ in found[i + 1:])
        out.append(gone > 0.55 * (a[2] - a[0]) * (a[3] - a[1]))
    return np.array(out, bool)


def veil(x, y, w, h, a1, b1, a2, b2):
    """How much of a cut-out is laid over the picture: all of its middle, nothing of its corners."""
    u = ((np.arange(a1, a2, dtype=np.float32) + 0.5 - x) / w * 2 - 1) ** 4
    v = ((np.arange(b1, b2, dtype=np.float32) + 0.5 - y) / h * 2 - 1) ** 4
    return np.clip((1 - u[None] - v[:, None]) * 3, 0, 1)[:, :, None]


def render(layers, c, fill):
    """The part c (x1, y1, x2, y2, ends included) of the frame that the layers make."""
    x1, y1, x2, y2 = c[0], c[1], c[2] + 1, c[3] + 1
    out = np.full((y2 - y1, x2 - x1, 3), fill, np.uint8)
    for im, x, y, w, h, mirrored, window, soft in layers:
        wx1, wy1, wx2, wy2 = window or (x, y, x + w, y + h)
        a1, b1, a2, b2 = max(x, x1, wx1), max(y, y1, wy1), min(x + w, x2, wx2), min(y + h, y2, wy2)
        if a2 <= a1 or b2 <= b1:
            continue
        sh, sw = im.shape[:2]
        l, r = (x + w - a2, x + w - a1) if mirrored else (a1 - x, a2 - x)  # in the layer, unmirrored
        fx, fy = sw / w, sh / h
        if fx >= 1 and fy >= 1:
            u1, u2, v1, v2 = int(l * fx + 0.5), int(r * fx + 0.5), int((b1 - y) * fy + 0.5), int((b2 - y) * fy + 0.5)
            u1, v1 = min(u1, sw - 1), min(v1, sh - 1)
            piece = cv2.resize(im[v1:max(v2, v1 + 1), u1:max(u2, u1 + 1)], (a2 - a1, b2 - b1), interpolation=cv2.INTER_AREA)
        else:
            m = np.array([[fx, 0, (l + 0.5) * fx - 0.5], [0, fy, (b1 - y + 0.5) * fy - 0.5]])
            piece = cv2.warpAffine(im, m, (a2 - a1, b2 - b1), flags=cv2.INTER_LINEAR | cv2.WARP_INVERSE_MAP,
                                   borderMode=cv2.BORDER_REPLICATE)
        piece = piece[:, ::-1] if mirrored else piece
        at = out[b1 - y1:b2 - y1, a1 - x1:a2 - x1]
        if soft:
            piece = (at + (piece.astype(np.float32) - at) * veil(x, y, w, h, a1, b1, a2, b2) + 0.5).astype(np.uint8)
        at[:] = piece
    return out


def cut(vis, ok, uncut, rng):
    """What part of the frame the detector is shown: the whole, around people who moved, or anything."""
    q = rng.random()
    if q < uncut:
        return 0, 0, W - 1, H - 1
    if q < 0.95 and len(ok):
        v = vis[rng.sample(list(ok), min(len(ok), rng.randint(1, 3)))]
        m = [v[:, 0].min(), v[:, 1].min(), v[:, 2].max(), v[:, 3].max()]
        if rng.random() < 0.15:  # only a part of the body moved, or more than the body did
            d = 0.25 * max(m[2] - m[0], 8), 0.25 * max(m[3] - m[1], 8)
            m = [m[0] + rng.uniform(-2, 1) * d[0], m[1] + rng.uniform(-2, 1) * d[1], m[2] + rng.uniform(-1, 2) * d[0],
                 m[3] + rng.uniform(-1, 2) * d[1]]
        m = [min(max(m[0], 0), W - 9), min(max(m[1], 0), H - 9), m[2], m[3]]
        return motion_crop(m[0], m[1], min(max(m[2], m[0] + 8), W), min(max(m[3], m[1] + 8), H))
    cw, ch = rng.choice([32, 64, 96, 128, 160, 192, 256]), rng.choice([32, 64, 96, 128, 160, 192])
    x, y = rng.randrange(0, W - cw + 1, 8), rng.randrange(0, H - ch + 1, 8)
    return x, y, x + cw - 1, y + ch - 1


def sample(layers, b, sources, rng, nrng, uncut=0.4, somebody=True, behind=None):
    """One training picture: (RGB uint8 of a network size, boxes, ignore flags, whether people may lack boxes).

    Boxes that lie in a window (four more columns) are seen only as far as it goes; behind: those that count for nothing,
    because something stands before them."""
    lo, hi = np.array([0, 0, 0, 0], np.float32), np.array([W, H, W, H], np.float32)
    vis = b[:, :4].clip(lo, hi)
    if b.shape[1] == 8:
        vis = np.minimum(np.maximum(vis, b[:, [4, 5, 4, 5]]), b[:, [6, 7, 6, 7]])
    ok = np.nonzero(((vis[:, 3] - vis[:, 1]) >= 18) & ((vis[:, 2] - vis[:, 0]) >= 6))[0]
    c = cut(vis, ok, uncut, rng)
    fr = look(render(layers, c, 114 if rng.random() < 0.5 else rng.randrange(256)), c[0], c[1], rng, nrng)
    # something before the people, now and then
    if somebody and rng.random() < 0.08 and len(ok):
        v = vis[rng.choice(list(ok))] - np.array([c[0], c[1]] * 2, np.float32)
        part = rng.uniform(0.15, 0.45)
        colour = whole(nrng.integers(0, 256, 3))
        if rng.random() < 0.7:
            cv2.rectangle(fr, whole((v[0] - rng.uniform(0, 30), v[3] - part * (v[3] - v[1]))),
                          whole((v[2] + rng.uniform(0, 30), v[3] + 10)), colour, -1)
        else:
            cv2.rectangle(fr, whole((v[0] - 10, v[1] - 10)), whole((v[0] + part * (v[2] - v[0]), v[3] + 10)), colour, -1)
    fr = cv2.cvtColor(cv2.cvtColor(fr, cv2.COLOR_BGR2YUV_I420), cv2.COLOR_YUV2RGB_I420)
    ch, cw = fr.shape[:2]
    hh, ww = fit(ch, cw)
    out = cv2.resize(fr, (ww, hh), interpolation=cv2.INTER_LINEAR)
    if not somebody:
        vis = vis[:0]  # it told where to look; there is nobody
        b = b[:0]
    t = vis.clip(np.array([c[0], c[1]] * 2, np.float32), np.array([c[2] + 1, c[3] + 1] * 2, np.float32))
    area = (b[:, 2] - b[:, 0]) * (b[:, 3] - b[:, 1])
    part = (t[:, 2] - t[:, 0]) * (t[:, 3] - t[:, 1]) / np.maximum(area, 1e-3)
    keep = (part > 0.02) & (t[:, 2] - t[:, 0] > 1) & (t[:, 3] - t[:, 1] > 1)
    t, part = t[keep], part[keep]
    behind = np.zeros(len(t), bool) if behind is None else behind[keep]
    hpx, wpx = t[:, 3] - t[:, 1], t[:, 2] - t[:, 0]
    # too small or too little of it to be called a person by anyone; and the odd box that holds only a hand
    ignore = (part < 0.45) | (hpx < 12) | (wpx < 4) | behind
    if any("coco" in s for s in sources):
        ignore |= hpx < 0.55 * wpx
    t = (t - np.array([c[0], c[1]] * 2, np.float32)) * np.array([ww / cw, hh / ch] * 2, np.float32)
    return out, t.astype(np.float32), ignore, any(s in INCOMPLETE for s in sources)


def crowded(people):
    """How much more often than others a picture with so many people is drawn: they are few, and hard."""
    return 1.0 if people < 3 else 2.2 if people < 6 else 7.0


def shares(weights):
    w = np.cumsum(weights)
    return w / w[-1]


def background(pic, rng):
    """A part of a picture with people in which there is nobody, or None where no such part is found."""
    im, boxes, source = pic
    h, w = im.shape[:2]
    for _ in range(12):
        cw, ch = rng.uniform(0.25, 0.9) * w, rng.uniform(0.25, 0.9) * h
        x, y = rng.uniform(0, w - cw), rng.uniform(0, h - ch)
        if ((boxes[:, 0] >= x + cw) | (boxes[:, 2] <= x) | (boxes[:, 1] >= y + ch) | (boxes[:, 3] <= y)).all():
            return im[int(y):int(y + ch), int(x):int(x + cw)], None, source
    return None


class Stream:
    """Batches of one size each, for ever."""

    def __init__(self, root, seed, batch, negatives=0.3, crowds=0.1, gatherings=0.22):
        self.people = load(root, "train")
        self.neg = load(root, "negatives")
        if not self.people or not self.neg:
            sys.exit(f"{root}: pictures with people (train) and without (negatives) are needed to train")
        self.cum = shares([WEIGHT.get(p[2], 1.0) * crowded(len(p[1])) for p in self.people])
        self.cum_neg = shares([WEIGHT_NEGATIVE.get(p[2], 1.0) for p in self.neg])
        self.rng = random.Random(seed)
        self.nrng = np.random.default_rng(seed)
        self.batch = batch
        self.share = negatives
        self.bucket = {}
        self.crowds = crowds
        self.gatherings = gatherings
        self.loners = loners(self.people)
        self.drawn = []
        self.none = np.zeros((0, 4), np.float32)

    def one(self):
        rng, nrng = self.rng, self.nrng
        if rng.random() < self.share:
            im, focus, source = self.empty()
            layer, b = place((im, self.none, source), rng, focus)
            return sample([layer], b, [source], rng, nrng, somebody=False)
        if rng.random() < self.gatherings:
            pic = self.person() if rng.random() < 0.35 else self.neg[rng.randrange(len(self.neg))]
            ground, b = place(pic, rng)
            layers, found = gather(self.loners, self.neg, rng)
            found = [(q, True) for q in b] + found
            people = np.array([person for _, person in found])
            return sample([ground, *layers], np.array([q for q, _ in found], np.float32)[people], [pic[2]], rng, nrng,
                          behind=hidden(found)[people])
        pic = self.person()
        if rng.random() < 0.03:
            pic = lying(pic, rng)
        if rng.random() < self.crowds:
            pics = [pic] + [self.person() for _ in range(8)]
            layers, b = crowd(pics, rng)
            return sample(layers, b, [p[2] for p in pics[:len(layers)]], rng, nrng)
        layer, b = place(pic, rng)
        return sample([layer], b, [pic[2]], rng, nrng)

    def settle(self):
        """Fewer pictures that are put together: a training should end on such as are really seen."""
        self.crowds, self.gatherings = 0.03, 0.06

    def empty(self):
        """A picture without people. Those that are drawn are dear: each is shown a few times."""
        if self.rng.random() < 0.35:
            pic = self.person()
            part = background(pic, self.rng) if pic[2] in WHOLE else None
            if part:
                return part
        if len(self.drawn) < 500 or self.rng.random() < 0.15:
            pic = self.neg[int(np.searchsorted(self.cum_neg, self.rng.random()))]
            other = self.neg[self.rng.randrange(len(self.neg))][0]
            made = (*nobody(pic, other, self.rng, self.nrng), pic[2])
            if len(self.drawn) < 500:
                self.drawn.append(made)
            else:
                self.drawn[self.rng.randrange(500)] = made
            return made
        return self.drawn[self.rng.randrange(len(self.drawn))]

    def person(self):
        return self.people[int(np.searchsorted(self.cum, self.rng.random()))]

    def next(self):
        while True:
            s = self.one()
            k = s[0].shape[:2]
            bucket = self.bucket.setdefault(k, [])
            bucket.append(s)
            # all batches take about the same time, so that processes need not wait for each other
            if len(bucket) >= self.batch * 21000 / (k[0] * k[1]):
                del self.bucket[k]
                return bucket


def collate(bucket):
    n, g = len(bucket), max(1, max(len(s[1]) for s in bucket))
    x = np.stack([s[0] for s in bucket])
    boxes = np.zeros((n, g, 4), np.float32)
    kind = np.zeros((n, g), np.int64)  # 0 nothing, 1 person, 2 ignore
    for i, s in enumerate(bucket):
        boxes[i, :len(s[1])] = s[1]
        kind[i, :len(s[1])] = np.where(s[2], 2, 1)
    return x, boxes, kind, np.array([s[3] for s in bucket])


def main():
    """Draws a sheet of training pictures with their boxes, to look at: data.py PEOPLE_DIR SHEET.png"""
    stream = Stream(sys.argv[1], 1, 32)
    tiles = []
    for _ in range(64):
        rgb, boxes, ignore, _ = stream.one()
        im = rgb[:, :, ::-1].copy()
        for b, ig in zip(boxes.astype(int).tolist(), ignore):
            cv2.rectangle(im, b[:2], b[2:], (0, 0, 255) if ig else (0, 255, 0))
        tile = np.zeros((200, 260, 3), np.uint8)
        tile[:im.shape[0], :im.shape[1]] = im[:200, :260]
        tiles.append(tile)
    cv2.imwrite(sys.argv[2], np.vstack([np.hstack(tiles[i:i + 8]) for i in range(0, 64, 8)]))


if __name__ == "__main__":
    main()
