"""Pictures with boxes -> what the daemon shows its detector.

The daemon sees 320x192 video-range NV12, cuts the moving part out of it and squeezes that to a size that the network
takes. Training sees exactly this: the same frame, the same block grid, the same widening, the same area budget."""
import json
import math
import os
import random
import sys

import cv2
import numpy as np

W, H = 320, 192
MIN_AREA, MAX_AREA = 16384, 28224
HOLDOUT = {"train": {"indoor_robot_mall", "mask_single", "human_v2_meeting"}, "negatives": {"pets", "houses"}}
# Sources whose people in the background have no box: a confident find there is not punished.
INCOMPLETE = {"ccp_street", "human_v2_openimages"}
# How often a source is drawn, relative to its number of pictures.
WEIGHT = {"ccp_street": 0.35, "sitting": 0.6, "riders": 0.7, "driveway": 0.8}
# The same for pictures without people: what looks like a person at first sight counts for more than an empty room.
WEIGHT_NEGATIVE = {"animals": 4.0, "coco_noperson": 2.5, "driveway": 2.0, "scene15_gray": 0.4}
SKINS = ((120, 150, 205), (90, 120, 180), (60, 85, 140), (140, 170, 225), (40, 60, 95))  # blue, green, red
cv2.setNumThreads(0)  # one process per core already


def load(root, kind, holdout=False):
    """[(picture BGR, boxes Nx4, source)] of people/train or people/negatives, held-out sources left out."""
    out = []
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
# Drawn once: a picture takes its noise from anywhere in it.
_noise = np.random.default_rng(7).standard_normal(H * W * 3 * 8).astype(np.float32)


def noise(rng, channels):
    n = H * W * channels
    i = rng.randrange(_noise.size - n)
    return _noise[i:i + n].reshape(H, W, channels)


def look(fr, rng, nrng):
    """Light, colour, night, noise, blur, compression."""
    r = rng.random
    night = r() < 0.22
    grey = night or r() < 0.18
    f = fr.astype(np.float32)
    if grey:
        # near infrared weighs the colours in its own way: clothes dark by day are often bright
        w = nrng.dirichlet((1.5, 2.0, 1.5)).astype(np.float32)
        g = f @ w
        f = np.repeat(g[:, :, None], 3, 2)
    else:
        if r() < 0.6:
            f *= nrng.uniform(0.8, 1.2, 3).astype(np.float32)
        if r() < 0.4:
            m = f.mean(2, keepdims=True)
            f = m + (f - m) * rng.uniform(0.2, 1.5)
    if r() < 0.7:
        table = (255 * (np.arange(256) / 255) ** math.exp(rng.uniform(-0.6, 0.6))).astype(np.float32)
        f = table[np.clip(f, 0, 255).astype(np.uint8)]
    if r() < 0.6:
        m = f.mean()
        f = (f - m) * rng.uniform(0.5, 1.4) + m + rng.uniform(-35, 35)
    if night:
        # an infrared lamp at the lens: bright middle, dark corners
        cx, cy = rng.uniform(0.25, 0.75) * W, rng.uniform(0.25, 0.75) * H
        d = ((_xx - cx) / W) ** 2 + ((_yy - cy) / H) ** 2
        f *= np.exp(-d * rng.uniform(0.5, 5))[:, :, None] * rng.uniform(0.7, 1.5)
    elif r() < 0.15:
        a = rng.uniform(0, 2 * math.pi)
        ramp = (np.cos(a) * (_xx / W - 0.5) + np.sin(a) * (_yy / H - 0.5)) * rng.uniform(0.3, 1.4)
        f *= np.clip(1 + ramp, 0.15, 2)[:, :, None]
    q = r()
    if q < 0.12:
        f = cv2.GaussianBlur(f, (0, 0), rng.uniform(0.5, 1.6))
    elif q < 0.22:
        n = rng.choice([3, 5, 7])
        k = np.zeros((n, n), np.float32)
        if r() < 0.7:
            k[n // 2] = 1 / n
        else:
            k[:, n // 2] = 1 / n
        f = cv2.filter2D(f, -1, k)
    if r() < (0.8 if night else 0.3):
        sigma = rng.uniform(2, 14 if night else 8)
        if grey or r() < 0.5:
            f += (noise(rng, 1) * sigma)
        else:
            f += noise(rng, 3) * sigma
    f = np.clip(f, 0, 255).astype(np.uint8)
    if r() < 0.15:
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
    if q < 0.4:
        h, w = im.shape[:2]
        # what such pictures show stands mostly in their middle
        a, b = nrng.uniform(0.25, 0.95, 2)
        x, y = rng.gauss(0.5, 0.1) * w, rng.gauss(0.5, 0.1) * h
        return im, (x - a * w / 2, y - b * h / 2, x + a * w / 2, y + b * h / 2)
    if q < 0.5:
        return im, None
    before = stage(im, rng, nrng)
    after = before.copy()
    if q < 0.8:
        things(after, other, rng, nrng)
    if q >= 0.7:
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


def sample(pic, rng, nrng, uncut=0.25, focus=None):
    """One training picture: (RGB uint8 of a network size, boxes, ignore flags)."""
    im, boxes, source = pic
    h, w = im.shape[:2]
    sx = sy = min(W / w, H / h)
    q = rng.random()
    if q < 0.45:
        pass  # whole picture with bars
    elif q < 0.7:
        z = rng.uniform(1.0, 2.2)
        sx *= z
        sy *= z
    elif q < 0.85:
        sx, sy = W / w, H / h  # stretched
    else:
        z = rng.uniform(0.45, 1.0)
        sx *= z
        sy *= z
    jitter = math.exp(rng.uniform(-0.3, 0.3) if source.startswith("human_v2") else rng.uniform(-0.12, 0.12))
    sx *= jitter ** 0.5
    sy /= jitter ** 0.5
    nw, nh = max(8, round(w * sx)), max(8, round(h * sy))
    small = cv2.resize(im, (nw, nh), interpolation=cv2.INTER_AREA if sx < 1 else cv2.INTER_LINEAR)
    if focus is not None:
        boxes = np.array([focus], np.float32)
    b = boxes * np.array([nw / w, nh / h] * 2, np.float32)
    if rng.random() < 0.5:
        small = small[:, ::-1]
        b = b[:, [2, 1, 0, 3]]
        b[:, [0, 2]] = nw - b[:, [0, 2]]
    fill = 114 if rng.random() < 0.5 else rng.randrange(256)
    fr = np.full((H, W, 3), fill, np.uint8)
    if q < 0.45 and rng.random() < 0.7:
        ox, oy = (W - nw) // 2, (H - nh) // 2
    else:
        ox = rng.randint(min(0, W - nw), max(0, W - nw))
        oy = rng.randint(min(0, H - nh), max(0, H - nh))
    x1, y1, x2, y2 = max(ox, 0), max(oy, 0), min(ox + nw, W), min(oy + nh, H)
    fr[y1:y2, x1:x2] = small[y1 - oy:y2 - oy, x1 - ox:x2 - ox]
    b = b + np.array([ox, oy, ox, oy], np.float32)
    vis = np.stack([b[:, 0].clip(0, W), b[:, 1].clip(0, H), b[:, 2].clip(0, W), b[:, 3].clip(0, H)], 1)
    ok = np.nonzero(((vis[:, 3] - vis[:, 1]) >= 20) & ((vis[:, 2] - vis[:, 0]) >= 6))[0]
    fr = look(fr, rng, nrng)
    # something before the people, now and then
    if focus is None and rng.random() < 0.12 and len(ok):
        v = vis[rng.choice(list(ok))]
        part = rng.uniform(0.15, 0.45)
        c = whole(nrng.integers(0, 256, 3))
        if rng.random() < 0.7:
            cv2.rectangle(fr, whole((v[0] - rng.uniform(0, 30), v[3] - part * (v[3] - v[1]))),
                          whole((v[2] + rng.uniform(0, 30), v[3] + 10)), c, -1)
        else:
            cv2.rectangle(fr, whole((v[0] - 10, v[1] - 10)), whole((v[0] + part * (v[2] - v[0]), v[3] + 10)), c, -1)
    fr = cv2.cvtColor(cv2.cvtColor(fr, cv2.COLOR_BGR2YUV_I420), cv2.COLOR_YUV2RGB_I420)
    q = rng.random()
    if q < uncut:
        c = (0, 0, W - 1, H - 1)
    elif q < 0.8 and len(ok):
        pick = rng.sample(list(ok), min(len(ok), rng.randint(1, 3)))
        v = vis[pick]
        m = [v[:, 0].min(), v[:, 1].min(), v[:, 2].max(), v[:, 3].max()]
        k = rng.random()
        if k < 0.35:  # only a part of the body moved, or more than the body did
            d = 0.25 * max(m[2] - m[0], 8), 0.25 * max(m[3] - m[1], 8)
            m = [m[0] + rng.uniform(-2, 1) * d[0], m[1] + rng.uniform(-2, 1) * d[1], m[2] + rng.uniform(-1, 2) * d[0],
                 m[3] + rng.uniform(-1, 2) * d[1]]
        m = [min(max(m[0], 0), W - 9), min(max(m[1], 0), H - 9), m[2], m[3]]
        m = [m[0], m[1], min(max(m[2], m[0] + 8), W), min(max(m[3], m[1] + 8), H)]
        c = motion_crop(*m)
    else:
        cw, ch = rng.choice([32, 64, 96, 128, 160, 192, 256]), rng.choice([32, 64, 96, 128, 160, 192])
        x, y = rng.randrange(0, W - cw + 1, 8), rng.randrange(0, H - ch + 1, 8)
        c = (x, y, x + cw - 1, y + ch - 1)
    if focus is not None:
        b = b[:0]  # it told where to look; there is nobody
    cw, ch = c[2] - c[0] + 1, c[3] - c[1] + 1
    hh, ww = fit(ch, cw)
    out = cv2.resize(fr[c[1]:c[3] + 1, c[0]:c[2] + 1], (ww, hh), interpolation=cv2.INTER_LINEAR)
    t = np.stack([b[:, 0].clip(c[0], c[2] + 1), b[:, 1].clip(c[1], c[3] + 1), b[:, 2].clip(c[0], c[2] + 1),
                  b[:, 3].clip(c[1], c[3] + 1)], 1)
    area = (b[:, 2] - b[:, 0]) * (b[:, 3] - b[:, 1])
    part = (t[:, 2] - t[:, 0]) * (t[:, 3] - t[:, 1]) / np.maximum(area, 1e-3)
    keep = (part > 0.02) & (t[:, 2] - t[:, 0] > 1) & (t[:, 3] - t[:, 1] > 1)
    t, part = t[keep], part[keep]
    hpx = t[:, 3] - t[:, 1]
    wpx = t[:, 2] - t[:, 0]
    # too small or too little of it to be called a person by anyone; and the odd box that holds only a hand
    ignore = (part < 0.45) | (hpx < 13) | (wpx < 5)
    if "coco" in source:
        ignore |= hpx < 0.55 * wpx
    t = (t - np.array([c[0], c[1]] * 2, np.float32)) * np.array([ww / cw, hh / ch] * 2, np.float32)
    return out, t.astype(np.float32), ignore, source in INCOMPLETE


def shares(weights):
    w = np.cumsum(weights)
    return w / w[-1]


def crowd(pictures, rng):
    """Several pictures side by side as one: many people, all of them small, as on a far wall or in a hall."""
    columns, rows = rng.choice([(2, 1), (2, 2), (2, 2), (3, 2)])
    canvas = np.full((rows * H, columns * W, 3), rng.randrange(256), np.uint8)
    found = []
    for i in range(columns * rows):
        im, boxes, _ = pictures[i]
        h, w = im.shape[:2]
        s = min(W / w, H / h)
        nw, nh = max(8, min(W, round(w * s))), max(8, min(H, round(h * s)))
        x = i % columns * W + rng.randint(0, W - nw)
        y = i // columns * H + rng.randint(0, H - nh)
        canvas[y:y + nh, x:x + nw] = cv2.resize(im, (nw, nh), interpolation=cv2.INTER_AREA if s < 1 else cv2.INTER_LINEAR)
        found.append(boxes * np.float32(s) + np.array([x, y, x, y], np.float32))
    incomplete = [p[2] for p in pictures[:columns * rows] if p[2] in INCOMPLETE]
    return canvas, np.concatenate(found), (incomplete or ["crowd"])[0]


class Stream:
    """Batches of one size each, for ever."""

    def __init__(self, root, seed, batch, negatives=0.42):
        self.people = load(root, "train")
        self.neg = load(root, "negatives")
        self.cum = shares([WEIGHT.get(p[2], 1.0) for p in self.people])
        self.cum_neg = shares([WEIGHT_NEGATIVE.get(p[2], 1.0) for p in self.neg])
        self.rng = random.Random(seed)
        self.nrng = np.random.default_rng(seed)
        self.batch = batch
        self.share = negatives
        self.bucket = {}

    def one(self):
        if self.rng.random() < self.share:
            pic = self.neg[int(np.searchsorted(self.cum_neg, self.rng.random()))]
            other = self.neg[self.rng.randrange(len(self.neg))][0]
            im, focus = nobody(pic, other, self.rng, self.nrng)
            return sample((im, pic[1], pic[2]), self.rng, self.nrng, focus=focus)
        pic = self.person()
        if self.rng.random() < 0.35:
            pic = crowd([pic] + [self.person() for _ in range(5)], self.rng)
        return sample(pic, self.rng, self.nrng)

    def person(self):
        return self.people[int(np.searchsorted(self.cum, self.rng.random()))]

    def next(self):
        while True:
            s = self.one()
            k = s[0].shape[:2]
            bucket = self.bucket.setdefault(k, [])
            bucket.append(s)
            if len(bucket) == self.batch:
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
