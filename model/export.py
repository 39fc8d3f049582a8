#!/usr/bin/env python3
"""Writes a trained (or, without a checkpoint, a fresh) network as the two files that the daemon embeds.

usage: export.py OUT_DIR [CHECKPOINT [POINT]]  -> OUT_DIR/person.param.bin, person.model.bin, person.param.txt

POINT: the trained score that the exported network gives as 0.5, the daemon's working point (default 0.5). The objectness
biases are moved for it; the order of the scores, and with it the average precision, stays.

The structure is in ncnn's binary form, in which blobs are numbers: the three outputs are 142, 154 and 164, as the
detector's interface has them. Weights are stored in half precision, biases in single; batch normalisation is folded."""
import os
import struct
import sys

import numpy as np

from network import Net, load, stored

# Numbers of the layer types in the library's registry.
INPUT, CONVOLUTION, SPLIT, CONCAT, INTERP, POOLING = 16, 6, 33, 5, 50, 21
HARD_SWISH = 6  # as an activation inside a convolution
OUTPUT_BLOBS = (142, 154, 164)
BLOBS = 165
END = -233
FIRST_ARRAY = -23300
HALF = 0x01306B47  # says that half-precision weights follow
# Where the picture is smallest, Winograd convolution saves no time and would make the loaded weights four times as
# large: these layers run without it (bit 6 of a layer's feature mask).
NO_WINOGRAD = ("c8", "c9")


class Writer:
    def __init__(self, net):
        self.net, self.layers, self.text, self.weights, self.next = net, [], [], [], 0

    def blob(self):
        n = self.next
        self.next += 1
        return n

    def add(self, kind, name, word, bottoms, tops, params=()):
        row = [kind, len(bottoms), len(tops), *bottoms, *tops]
        data = struct.pack(f"<{len(row)}i", *row)
        for key, value in params:
            if isinstance(value, tuple):
                data += struct.pack(f"<2i{len(value)}f", FIRST_ARRAY - key, len(value), *value)
            else:
                data += struct.pack("<i", key) + (struct.pack("<f", value) if isinstance(value, float) else struct.pack("<i", value))
        self.layers.append(data + struct.pack("<i", END))
        words = [f"{k}={','.join(f'{x:.9g}' for x in v) if isinstance(v, tuple) else v}" for k, v in params]
        self.text.append(f"{word:<12} {name:<8} in {','.join(map(str, bottoms)) or '-':<8} out "
                         f"{','.join(map(str, tops)):<10} {' '.join(words)}")

    def conv(self, name, bottom, top=None):
        module = getattr(self.net, name)
        last = top is not None
        conv = module if last else module.conv
        w, b = conv.weight.detach().numpy(), conv.bias.detach().numpy()
        top = top if last else self.blob()
        k = w.shape[2]
        self.add(CONVOLUTION, name, "Convolution", [bottom], [top],
                 [(0, w.shape[0]), (1, k), (3, conv.stride[0]), (4, conv.padding[0]), (5, 1), (6, w.size)] +
                 ([] if last else [(9, HARD_SWISH), (10, (1 / 6, 0.5))]) + ([(31, 64)] if name in NO_WINOGRAD else []))
        half = w.astype("<f2").tobytes()
        self.weights.append(struct.pack("<I", HALF) + half + b"\0" * (-len(half) % 4) + b.astype("<f4").tobytes())
        return top

    def chain(self, names, x):
        for name in names:
            x = self.conv(name, x)
        return x

    def one(self, kind, name, word, bottoms, params):
        top = self.blob()
        self.add(kind, name, word, bottoms, [top], params)
        return top

    def split(self, name, bottom):
        tops = [self.blob(), self.blob()]
        self.add(SPLIT, name, "Split", [bottom], tops)
        return tops

    def half(self, name, bottom):
        return self.one(POOLING, name, "Pooling", [bottom], [(0, 0), (1, 2), (2, 2)])

    def twice(self, name, bottom):
        return self.one(INTERP, name, "Interp", [bottom], [(0, 1), (1, 2.0), (2, 2.0)])

    def concat(self, name, *bottoms):
        return self.one(CONCAT, name, "Concat", bottoms, [(0, 0)])


def main():
    out = sys.argv[1]
    net = load(sys.argv[2]) if len(sys.argv) > 2 else Net().eval()
    f = Writer(stored(net, float(sys.argv[3]) if len(sys.argv) > 3 else 0.5))
    x = f.one(INPUT, "data", "Input", [], [])
    f2, x = f.split("s2", f.chain(("c1", "c2", "c3"), x))
    e3 = f.conv("e3", f2)
    f3, x = f.split("s3", f.chain(("c4", "c5"), f.half("h3", x)))
    f4, x = f.split("s4", f.chain(("c6", "c7"), f.half("h4", x)))
    f5, x = f.split("s5", f.chain(("c8", "c9"), f.half("h5", x)))
    f.conv("o5", x, OUTPUT_BLOBS[0])
    n4, x = f.split("s6", f.chain(("p4", "q4"), f.concat("k4", f.twice("u5", f.conv("l5", f5)), f4)))
    f.conv("o4", x, OUTPUT_BLOBS[1])
    n3 = f.chain(("p3", "q3"), f.concat("k3", f.twice("u4", f.conv("l4", n4)), f3, e3))
    f.conv("o3", n3, OUTPUT_BLOBS[2])
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
