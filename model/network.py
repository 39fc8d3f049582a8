"""The person network: plain convolutions, three outputs of three anchors each.

What shapes it is the time of a pass: 3x3 convolutions that keep the size are done by Winograd's way, in half the time or
less of those that halve it, so the size is halved by a 2x2 maximum between them. The first two layers are thin, because
they alone decide how much memory a pass takes."""
import torch
from torch import nn
from torch.nn import functional as F

ANCHORS = [(10, 13), (16, 30), (33, 23), (30, 61), (62, 45), (59, 119), (116, 90), (156, 198), (373, 326)]
MASKS = [(6, 7, 8), (3, 4, 5), (0, 1, 2)]
STRIDES = [32, 16, 8]


class Conv(nn.Module):
    """Convolution, batch normalisation, hard swish. A 3x3 that keeps size and channels learns what to add to its input;
    the identity goes into its middle weight when it is folded."""

    def __init__(self, cin, cout, k=3, s=1):
        super().__init__()
        self.conv = nn.Conv2d(cin, cout, k, s, 0 if k == 2 else k // 2, bias=False)
        self.bn = nn.BatchNorm2d(cout, eps=1e-3, momentum=0.03)
        self.keep = nn.Parameter(torch.full((cout,), 0.5)) if k == 3 and s == 1 and cin == cout else None

    def weight(self):
        w = self.conv.weight
        if self.keep is None:
            return w
        return w + F.pad(torch.diag(self.keep)[:, :, None, None], (1, 1, 1, 1))

    def forward(self, x):
        return F.hardswish(self.bn(F.conv2d(x, self.weight(), self.conv.bias, self.conv.stride, self.conv.padding)))

    @torch.no_grad()
    def fold(self):
        """Normalisation and identity into the weights: afterwards this is a convolution with a bias."""
        scale = self.bn.weight / torch.sqrt(self.bn.running_var + self.bn.eps)
        bias = self.bn.bias - self.bn.running_mean * scale
        self.conv.weight = nn.Parameter(self.weight() * scale[:, None, None, None])
        self.conv.bias = nn.Parameter(bias)
        self.bn, self.keep = nn.Identity(), None


class Net(nn.Module):
    def __init__(self):
        super().__init__()
        self.c1 = Conv(3, 8, 3, 2)
        self.c2 = Conv(8, 24, 2, 2)
        self.c3 = Conv(24, 24)
        self.c4 = Conv(24, 48)
        self.c5 = Conv(48, 48)
        self.c6 = Conv(48, 56)
        self.c7 = Conv(56, 56)
        self.c8 = Conv(56, 72)
        self.c9 = Conv(72, 72)
        self.l5 = Conv(72, 40, 1)
        self.p4 = Conv(96, 48, 1)
        self.q4 = Conv(48, 48)
        self.l4 = Conv(48, 24, 1)
        self.e3 = Conv(24, 16, 2, 2)
        self.p3 = Conv(88, 32, 1)
        self.q3 = Conv(32, 32)
        self.o5 = nn.Conv2d(72, 18, 1)
        self.o4 = nn.Conv2d(48, 18, 1)
        self.o3 = nn.Conv2d(32, 18, 1)
        for o in (self.o5, self.o4, self.o3):
            nn.init.normal_(o.weight, std=0.01)
            b = torch.zeros(3, 6)
            b[:, 4] = -5.0
            o.bias.data = b.reshape(-1)

    def forward(self, x):
        f2 = self.c3(self.c2(self.c1(x)))
        f3 = self.c5(self.c4(F.max_pool2d(f2, 2)))
        f4 = self.c7(self.c6(F.max_pool2d(f3, 2)))
        f5 = self.c9(self.c8(F.max_pool2d(f4, 2)))
        n4 = self.q4(self.p4(torch.cat([F.interpolate(self.l5(f5), scale_factor=2.0, mode="nearest"), f4], 1)))
        n3 = self.q3(self.p3(torch.cat([F.interpolate(self.l4(n4), scale_factor=2.0, mode="nearest"), f3, self.e3(f2)], 1)))
        return [self.o5(f5), self.o4(n4), self.o3(n3)]


def load(checkpoint):
    """The averaged weights of a checkpoint, ready to look at pictures."""
    net = Net()
    net.load_state_dict(torch.load(checkpoint, weights_only=False)["ema"])  # half precision is widened by the copy
    return net.eval()


def stored(net, point=0.5):
    """Folds a network as it is stored: weights in half precision, and scores moved so that `point` is given as 0.5."""
    for m in net.modules():
        if isinstance(m, Conv):
            m.fold()
    with torch.no_grad():
        for o in (net.o5, net.o4, net.o3):
            o.bias[4::6] -= torch.logit(torch.tensor(float(point)))
        for m in net.modules():
            if isinstance(m, nn.Conv2d):
                m.weight.copy_(m.weight.half().float())
    return net


def count(width=192, height=128):
    """What a pass costs on any machine: for each layer the multiply-adds, and the bytes of weights (half precision) and of
    its input and output (single precision) that must be moved at least once."""
    rows = []

    def seen(name):
        def hook(conv, given, out):
            macs = conv.weight.numel() * out.shape[2] * out.shape[3]
            rows.append((name, macs, 2 * conv.weight.numel(), 4 * (given[0].numel() + out.numel())))
        return hook
    net = stored(Net().eval())
    for name, m in net.named_modules():
        if isinstance(m, nn.Conv2d):
            m.register_forward_hook(seen(name.removesuffix(".conv")))
    for m in net.modules():
        if isinstance(m, Conv):
            m.forward = lambda x, m=m: F.hardswish(m.conv(x))
    with torch.no_grad():
        net(torch.zeros(1, 3, height, width))
    return rows


if __name__ == "__main__":
    table = count()
    for row in [*table, ("all", *(sum(column) for column in list(zip(*table))[1:]))]:
        print(f"{row[0]:4s} {row[1] / 1e6:6.2f} M multiply-adds  {row[2] / 1024:6.1f} KiB weights  {row[3] / 1024:7.1f} KiB in and out")
