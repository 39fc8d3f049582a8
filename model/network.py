"""The person network: plain 3x3 convolutions, three outputs of three anchors each."""
import torch
from torch import nn

ANCHORS = [(10, 13), (16, 30), (33, 23), (30, 61), (62, 45), (59, 119), (116, 90), (156, 198), (373, 326)]
MASKS = [(6, 7, 8), (3, 4, 5), (0, 1, 2)]
STRIDES = [32, 16, 8]


class Conv(nn.Module):
    def __init__(self, cin, cout, k=3, s=1, act=True):
        super().__init__()
        self.conv = nn.Conv2d(cin, cout, k, s, k // 2, bias=False)
        self.bn = nn.BatchNorm2d(cout, eps=1e-3, momentum=0.03)
        self.act = act

    def forward(self, x):
        x = self.bn(self.conv(x))
        return torch.relu(x) if self.act else x


class Net(nn.Module):
    def __init__(self):
        super().__init__()
        self.c1 = Conv(3, 16, 3, 2)
        self.c2 = Conv(16, 32, 3, 2)
        self.c3 = Conv(32, 32)
        self.c4 = Conv(32, 48, 3, 2)
        self.c5 = Conv(48, 48)
        self.c6 = Conv(48, 64, 3, 2)
        self.c7 = Conv(64, 64)
        self.c8 = Conv(64, 64)
        self.c9 = Conv(64, 64, 3, 2)
        self.c10 = Conv(64, 64)
        self.l5 = Conv(64, 32, 1)
        self.p4 = Conv(96, 48, 1)
        self.q4 = Conv(48, 48)
        self.l4 = Conv(48, 24, 1)
        self.p3 = Conv(72, 32, 1)
        self.q3 = Conv(32, 32)
        self.o5 = nn.Conv2d(64, 18, 1)
        self.o4 = nn.Conv2d(48, 18, 1)
        self.o3 = nn.Conv2d(32, 18, 1)
        for o in (self.o5, self.o4, self.o3):
            nn.init.normal_(o.weight, std=0.01)
            b = torch.zeros(3, 6)
            b[:, 4] = -5.0
            o.bias.data = b.reshape(-1)

    def forward(self, x):
        x = self.c3(self.c2(self.c1(x)))
        f3 = self.c5(self.c4(x))
        x = self.c6(f3)
        x = self.c8(self.c7(x))
        f4 = x
        f5 = self.c10(self.c9(f4))
        up = nn.functional.interpolate
        n4 = self.q4(self.p4(torch.cat([up(self.l5(f5), scale_factor=2.0, mode="nearest"), f4], 1)))
        n3 = self.q3(self.p3(torch.cat([up(self.l4(n4), scale_factor=2.0, mode="nearest"), f3], 1)))
        return [self.o5(f5), self.o4(n4), self.o3(n3)]


if __name__ == "__main__":
    n = Net()
    print(sum(p.numel() for k, p in n.named_parameters() if "bn" not in k))
