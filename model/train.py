#!/usr/bin/env python3
"""Trains the person network; OUT/final.pt (and, on the way, OUT/last.pt) holds its averaged weights.

The length is given in minutes, not in pictures: the learning rate falls to its end when the time is over. Several
processes see pictures of their own and average their gradients. A run that was stopped goes on from OUT/last.pt, with
optimiser and clock as they were, when that is given as --resume. What is printed is added to OUT/log.txt as well."""
import argparse
import math
import os
import time

import numpy as np
import torch
import torch.distributed as dist
import torch.multiprocessing as mp
from torch.nn import functional as F

from data import Stream, collate
from network import ANCHORS, MASKS, STRIDES, Net

SETTLE = 0.8  # the part of a training after which fewer pictures are put together
REACH = 0.62  # cells, from the middle of one
BOX = 5.0  # how much the place of a box counts beside its score


def grid(h, w):
    """Per output cell and anchor: column, row, stride, anchor width and height, in the order of the outputs."""
    rows = []
    for s, mask in zip(STRIDES, MASKS):
        gh, gw = h // s, w // s
        r, c = torch.meshgrid(torch.arange(gh), torch.arange(gw), indexing="ij")
        for a in mask:
            aw, ah = ANCHORS[a]
            rows.append(torch.stack([c.flatten(), r.flatten(), torch.full((gh * gw,), s),
                                     torch.full((gh * gw,), aw), torch.full((gh * gw,), ah)], 1).float())
    return torch.cat(rows)


def flatten(outs):
    return torch.cat([o.float().reshape(o.shape[0], 3, 6, -1).permute(0, 1, 3, 2).reshape(o.shape[0], -1, 6)
                      for o in outs], 1)


def decode(p, g):
    cx = (p[..., 0].sigmoid() + g[:, 0]) * g[:, 2]
    cy = (p[..., 1].sigmoid() + g[:, 1]) * g[:, 2]
    w = p[..., 2].clamp(-4, 4).exp() * g[:, 3]
    h = p[..., 3].clamp(-4, 4).exp() * g[:, 4]
    return torch.stack([cx - w / 2, cy - h / 2, cx + w / 2, cy + h / 2], -1)


def iou(a, b, complete=False):
    x1, y1 = torch.maximum(a[..., 0], b[..., 0]), torch.maximum(a[..., 1], b[..., 1])
    x2, y2 = torch.minimum(a[..., 2], b[..., 2]), torch.minimum(a[..., 3], b[..., 3])
    inter = (x2 - x1).clamp(0) * (y2 - y1).clamp(0)
    wa, ha, wb, hb = a[..., 2] - a[..., 0], a[..., 3] - a[..., 1], b[..., 2] - b[..., 0], b[..., 3] - b[..., 1]
    v = inter / (wa * ha + wb * hb - inter + 1e-6)
    if not complete:
        return v
    cw = torch.maximum(a[..., 2], b[..., 2]) - torch.minimum(a[..., 0], b[..., 0])
    ch = torch.maximum(a[..., 3], b[..., 3]) - torch.minimum(a[..., 1], b[..., 1])
    d = ((a[..., 0] + a[..., 2] - b[..., 0] - b[..., 2]) ** 2 + (a[..., 1] + a[..., 3] - b[..., 1] - b[..., 3]) ** 2) / 4
    k = 4 / math.pi ** 2 * (torch.atan(wb / hb.clamp(1e-3)) - torch.atan(wa / ha.clamp(1e-3))) ** 2
    with torch.no_grad():
        alpha = k / (1 - v + k + 1e-6)
    return v - d / (cw ** 2 + ch ** 2 + 1e-6) - alpha * k


@torch.no_grad()
def candidates(gt, h, w):
    """The cells and anchors around the middle of each box, as indices into the outputs: n x m x 81, and which of them
    lie in the picture."""
    index, inside, first = [], [], 0
    gx, gy = (gt[..., 0] + gt[..., 2]) / 2, (gt[..., 1] + gt[..., 3]) / 2
    off = torch.tensor([-1, 0, 1])
    for s in STRIDES:
        gh, gw = h // s, w // s
        cx = ((gx / s).floor().long()[..., None, None] + off[None, :]).expand(*gx.shape, 3, 3)
        cy = ((gy / s).floor().long()[..., None, None] + off[:, None]).expand(*gx.shape, 3, 3)
        ok = (cx >= 0) & (cx < gw) & (cy >= 0) & (cy < gh)
        # an output can put its box's middle only into its own cell: one just beside it is near enough
        ok &= ((gx / s)[..., None, None] - cx - 0.5).abs() < REACH
        ok &= ((gy / s)[..., None, None] - cy - 0.5).abs() < REACH
        cell = (cy.clamp(0, gh - 1) * gw + cx.clamp(0, gw - 1)).flatten(2)
        for a in range(3):
            index.append(first + a * gh * gw + cell)
            inside.append(ok.flatten(2))
        first += 3 * gh * gw
    return torch.cat(index, -1), torch.cat(inside, -1)


@torch.no_grad()
def assign(p, boxes, gt, kind, g, size, topk=7):
    """Task-aligned: a cell and anchor answers for a person when its box and its score agree best."""
    n, cells = p.shape[:2]
    ig = torch.zeros(n, cells, dtype=torch.bool)
    if (kind == 2).any():
        at = torch.nonzero(kind == 2)
        cx, cy = (g[:, 0] + 0.5) * g[:, 2], (g[:, 1] + 0.5) * g[:, 2]
        t = gt[at[:, 0], at[:, 1]]
        within = (cx > t[:, 0:1]) & (cx < t[:, 2:3]) & (cy > t[:, 1:2]) & (cy < t[:, 3:4])
        ig = torch.zeros(n, cells).index_add_(0, at[:, 0], within.float()) > 0
    target, who = torch.zeros(n, cells), torch.zeros(n, cells, dtype=torch.long)
    m = int((kind == 1).sum(1).max())
    if m == 0:
        return target > 0, who, target, ig
    order = (kind != 1).long().argsort(dim=1, stable=True)[:, :m]  # people first
    gt = gt.gather(1, order[..., None].expand(-1, -1, 4))
    person = kind.gather(1, order) == 1
    index, ok = candidates(gt, *size)
    k = index.shape[-1]
    flat = index.reshape(n, -1)
    near = boxes.gather(1, flat[..., None].expand(-1, -1, 4)).reshape(n, m, k, 4)
    score = p[..., 4].gather(1, flat).reshape(n, m, k).sigmoid()
    gw, gh = (gt[..., 2] - gt[..., 0]).clamp(1), (gt[..., 3] - gt[..., 1]).clamp(1)
    anchor = g[index]
    ratio = torch.maximum((gw[..., None] / anchor[..., 3]).log().abs(), (gh[..., None] / anchor[..., 4]).log().abs())
    ok &= person[..., None] & (ratio < math.log(4.5))
    v = iou(near, gt[:, :, None]).clamp(0)
    # early on boxes say little: the anchors' own shapes keep the choice sane
    t = (score.sqrt() * v ** 4 + 1e-9 * torch.exp(-ratio)) * ok
    top = t.topk(topk, -1)
    chosen = torch.zeros_like(ok).scatter_(-1, top.indices, top.values > 0)
    t = t * chosen
    # a cell answers for one person only
    best = torch.zeros(n, cells).scatter_reduce_(1, flat, t.reshape(n, -1), "amax")
    mine = chosen & (t >= best.gather(1, flat).reshape(n, m, k)) & (t > 0)
    # Scores are read against 0.5: the best answer for a person is a certain one as soon as its box fits well enough.
    sure = (((v * chosen).amax(-1, keepdim=True) - 0.1) / 0.5).clamp(0.25, 1.0)
    norm = t / t.amax(-1, keepdim=True).clamp(1e-12) * sure
    i, j, c = torch.nonzero(mine, as_tuple=True)
    cell = index[i, j, c]
    target[i, cell] = norm[i, j, c]
    who[i, cell] = order[i, j]
    return target > 0, who, target, ig


def loss_of(outs, gt, kind, incomplete, g):
    size = outs[0].shape[2] * STRIDES[0], outs[0].shape[3] * STRIDES[0]
    p = flatten(outs)
    boxes = decode(p, g)
    positive, who, target, ignored = assign(p.detach(), boxes.detach(), gt, kind, g, size)
    s = p[..., 4].detach().sigmoid()
    bce = F.binary_cross_entropy_with_logits(p[..., 4], target, reduction="none")
    # A certain mistake counts for more than an unsure one, and most in a picture that holds no person at all.
    empty = (kind == 0).all(1)[:, None]
    w = torch.where(positive, 0.3 + 0.7 * target, s ** 1.25 * (1 + 0.6 * empty))
    w = torch.where(ignored & ~positive, torch.zeros_like(w), w)
    w = torch.where(incomplete[:, None] & ~positive & (s > 0.35), 0.15 * w, w)
    total = target.sum().clamp(4.0)
    obj = (bce * w).sum() / total
    if positive.any():
        t = gt.gather(1, who[..., None].expand(-1, -1, 4))[positive]
        fitness = iou(boxes[positive], t, complete=True)
        box = ((1 - fitness) * (target[positive] + 0.1)).sum() / total
    else:
        box = p.sum() * 0
    return obj + BOX * box, obj.detach(), box.detach()


def run(rank, a):
    torch.set_num_threads(1)
    if a.processes > 1:
        os.environ.setdefault("MASTER_ADDR", "127.0.0.1")
        os.environ.setdefault("MASTER_PORT", str(a.port))
        dist.init_process_group("gloo", rank=rank, world_size=a.processes)
    torch.manual_seed(1)
    net = Net().to(memory_format=torch.channels_last)
    state = torch.load(a.resume, weights_only=False) if a.resume else None
    if state:
        net.load_state_dict(state.get("net", state["ema"]))  # half precision is widened by the copy
    ema = {k: v.detach().clone().float() for k, v in net.state_dict().items()}
    decay, plain = [], []
    for k, v in net.named_parameters():
        (decay if v.ndim > 1 else plain).append(v)
    opt = torch.optim.AdamW([{"params": decay, "weight_decay": 0.02}, {"params": plain, "weight_decay": 0}], lr=1e-3,
                            betas=(0.9, 0.99))
    step, spent = 0, 0.0
    if state and "opt" in state:  # goes on where it stopped
        opt.load_state_dict(state["opt"])
        step, spent = state["step"], state["spent"]
        ema = {k: v.float() for k, v in state["ema"].items()}
    stream = Stream(a.people, 100 * (a.seed + step) + rank, a.batch)
    params = [q for q in net.parameters()]
    grids = {}
    t0 = last = saved = time.time()
    logs = []

    def say(text):
        print(text, flush=True)
        with open(f"{a.out}/log.txt", "a") as f:
            f.write(text + "\n")

    def save(name):
        torch.save({"ema": ema, "net": net.state_dict(), "opt": opt.state_dict(), "step": step,
                    "spent": spent + time.time() - t0}, f"{a.out}/{name}.part")
        os.replace(f"{a.out}/{name}.part", f"{a.out}/{name}")
    clock = torch.zeros(1)
    while True:
        clock[0] = (spent + time.time() - t0) / (a.minutes * 60)
        if a.processes > 1:
            dist.broadcast(clock, 0)
        f = float(clock)
        if f >= 1:
            break
        if f > SETTLE:
            stream.settle()
        lr = a.lr * min(1.0, (step + 1) / 300) * (0.02 + 0.98 * 0.5 * (1 + math.cos(math.pi * f)))
        for group in opt.param_groups:
            group["lr"] = lr
        x, gt, kind, inc = collate(stream.next())
        h, w = x.shape[1:3]
        if (h, w) not in grids:
            grids[h, w] = grid(h, w)
        x = torch.from_numpy(x).permute(0, 3, 1, 2).float().div_(255).contiguous(memory_format=torch.channels_last)
        with torch.autocast("cpu", dtype=torch.bfloat16):
            outs = net(x)
        loss, lo, lb = loss_of(outs, torch.from_numpy(gt), torch.from_numpy(kind), torch.from_numpy(inc), grids[h, w])
        opt.zero_grad(set_to_none=False)
        loss.backward()
        if a.processes > 1:
            flat = torch.cat([q.grad.reshape(-1) for q in params])
            dist.all_reduce(flat)
            flat /= a.processes
            i = 0
            for q in params:
                q.grad.copy_(flat[i:i + q.numel()].reshape(q.shape))
                i += q.numel()
        torch.nn.utils.clip_grad_norm_(params, 10.0)
        opt.step()
        step += 1
        if rank == 0:
            d = min(a.average, (step + 1) / (step + 20))
            with torch.no_grad():
                for k, v in net.state_dict().items():
                    if v.dtype.is_floating_point:
                        ema[k].lerp_(v.float(), 1 - d)
            logs.append((float(lo), float(lb), len(x)))
            if time.time() - last > 30:
                m = np.mean(logs, 0)
                say(f"{spent + time.time() - t0:7.0f} s step {step} pictures/s {m[2] * len(logs) * a.processes / (time.time() - last):.0f} "
                      f"lr {lr:.2e} obj {m[0]:.3f} box {m[1]:.3f}")
                logs, last = [], time.time()
            if time.time() - saved > a.save * 60:
                save("last.pt")
                saved = time.time()
    if rank == 0:
        save("final.pt")
        say(f"done {step}")


def main():
    q = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    q.add_argument("--people", default=os.path.join(os.environ.get("SHARED", "../shared"), "people"))
    q.add_argument("--out", default="build/model")
    q.add_argument("--minutes", type=float, default=95)
    q.add_argument("--processes", type=int, default=2)
    q.add_argument("--batch", type=int, default=32)
    q.add_argument("--lr", type=float, default=2e-3)
    q.add_argument("--save", type=float, default=2, help="minutes between checkpoints")
    q.add_argument("--seed", type=int, default=1)
    q.add_argument("--port", type=int, default=29511)
    q.add_argument("--average", type=float, default=0.9995, help="decay of the averaged weights, for each step")
    q.add_argument("--resume", help="checkpoint to start from")
    a = q.parse_args()
    os.makedirs(a.out, exist_ok=True)
    if a.processes > 1:
        mp.spawn(run, (a,), nprocs=a.processes)
    else:
        run(0, a)


if __name__ == "__main__":
    main()
