#!/usr/bin/env python3
"""Writes a trained (or, without a checkpoint, a fresh) network as the two files that the daemon embeds.

usage: export.py OUT_DIR [CHECKPOINT [POINT]]  -> OUT_DIR/person.param.bin, person.model.bin, person.param.txt

POINT: the trained score that the exported network gives as 0.5, the daemon's working point (default 0.5). The three
objectness biases are moved for it; the order of the scores, and with it the average precision, stays.

The structure is in ncnn's binary form, in which blobs are numbers: the three outputs are 142, 154 and 164, as the
detector's interface has them. Weights are stored in half precision, biases in single; batch normalisation is folded."""
import math
import os
import struct
import sys

import numpy as np
import torch

from network import Net

INPUT, CONVOLUTION, SPLIT, CONCAT, INTERP = 16, 6, 33, 5, 50  # numbers of the layer types in the library's registry
OUTPUT_BLOBS = (142, 154, 164)
BLOBS = 165
END = -233
# Layers whose unrolled input (nine times the picture) would be the peak of a pass: they run without the matrix road
# (bit 5 of a layer's feature mask).
NO_MATRIX = ("c2", "c3")


class Writer:
    def __init__(self):
        self.layers, self.text, self.weights, self.next = [], [], [], 0

    def blob(self):
        n = self.next
        self.next += 1
        return n

    def add(self, kind, name, word, bottoms, tops, params=()):
        row = [kind, len(bottoms), len(tops), *bottoms, *tops]
        data = struct.pack(f"<{len(row)}i", *row)
        for key, value in params:
            data += struct.pack("<i", key) + (struct.pack("<f", value) if isinstance(value, float) else struct.pack("<i", value))
        self.layers.append(data + struct.pack("<i", END))
        self.text.append(f"{word:<12} {name:<8} in {','.join(map(str, bottoms)) or '-':<8} out "
                         f"{','.join(map(str, tops)):<10} {' '.join(f'{k}={v}' for k, v in params)}")

    def conv(self, name, w, b, stride, relu, bottom, top=None):
        cout, cin, k, _ = w.shape
        top = self.blob() if top is None else top
        self.add(CONVOLUTION, name, "Convolution", [bottom], [top],
                 [(0, cout), (1, k), (3, stride), (4, k // 2), (5, 1), (6, w.size), (9, int(relu))] + ([(31, 32)] if name in NO_MATRIX else []))
        half = w.astype("<f2").tobytes()
        self.weights.append(struct.pack("<I", 0x01306B47) + half + b"\0" * (-len(half) % 4) + b.astype("<f4").tobytes())
        return top

    def split(self, name, bottom):
        tops = [self.blob(), self.blob()]
        self.add(SPLIT, name, "Split", [bottom], tops)
        return tops


def folded(c):
    s = c.bn.weight / torch.sqrt(c.bn.running_var + c.bn.eps)
    return (c.conv.weight * s[:, None, None, None]).detach().numpy(), (c.bn.bias - c.bn.running_mean * s).detach().numpy()


def main():
    out = sys.argv[1]
    point = float(sys.argv[3]) if len(sys.argv) > 3 else 0.5
    net = Net()
    if len(sys.argv) > 2:
        net.load_state_dict(torch.load(sys.argv[2])["ema"])
    net.eval()
    f = Writer()

    def conv(name, bottom):
        m = getattr(net, name)
        return f.conv(name, *folded(m), m.conv.stride[0], True, bottom)

    def head(name, bottom, top):
        m = getattr(net, name)
        bias = m.bias.detach().numpy().copy()
        bias[4::6] -= math.log(point / (1 - point))
        return f.conv(name, m.weight.detach().numpy(), bias, 1, False, bottom, top)

    x = f.blob()
    f.add(INPUT, "data", "Input", [], [x])
    for name in ("c1", "c2", "c3", "c4", "c5"):
        x = conv(name, x)
    f3, x = f.split("s3", x)
    for name in ("c6", "c7", "c8"):
        x = conv(name, x)
    f4, x = f.split("s4", x)
    for name in ("c9", "c10"):
        x = conv(name, x)
    f5, x = f.split("s5", x)
    head("o5", x, OUTPUT_BLOBS[0])

    def up(name, bottom):
        t = f.blob()
        f.add(INTERP, name, "Interp", [bottom], [t], [(0, 1), (1, 2.0), (2, 2.0)])
        return t

    def cat(name, a, b):
        t = f.blob()
        f.add(CONCAT, name, "Concat", [a, b], [t], [(0, 0)])
        return t

    n4 = conv("q4", conv("p4", cat("k4", up("u5", conv("l5", f5)), f4)))
    n4, x = f.split("s6", n4)
    head("o4", x, OUTPUT_BLOBS[1])
    n3 = conv("q3", conv("p3", cat("k3", up("u4", conv("l4", n4)), f3)))
    head("o3", n3, OUTPUT_BLOBS[2])
    assert f.next <= OUTPUT_BLOBS[0]
    os.makedirs(out, exist_ok=True)
    with open(f"{out}/person.param.bin", "wb") as t:
        t.write(struct.pack("<3i", 7767517, len(f.layers), BLOBS) + b"".join(f.layers))
    with open(f"{out}/person.model.bin", "wb") as t:
        t.write(b"".join(f.weights))
    with open(f"{out}/person.param.txt", "w") as t:
        t.write("# What person.param.bin says, to read. Outputs: 142 (stride 32), 154 (stride 16), 164 (stride 8).\n")
        t.write("\n".join(line.rstrip() for line in f.text) + "\n")
    print(os.path.getsize(f"{out}/person.param.bin"), os.path.getsize(f"{out}/person.model.bin"), "bytes")


main()
