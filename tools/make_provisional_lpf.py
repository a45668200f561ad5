#!/usr/bin/env python3
"""Prints filterbank/lpf.cpp: a Kaiser-windowed sinc as provisional prototype filter of the 64-band filterbank.

usage: tools/make_provisional_lpf.py > filterbank/lpf.cpp
"""

import math

TAPS = 1024
CENTRE = (TAPS - 1) / 2
BETA = 8.0
CUTOFF = 1.125 * math.pi / 128  # with this window, -3 dB at pi / 128, half a band's width


def bessel_i0(x):
    """The modified Bessel function of the first kind and order zero, by its power series."""
    term = total = 1.0
    k = 1
    while term > 1e-17 * total:
        term *= (x / (2 * k)) ** 2
        total += term
        k += 1
    return total


def windowed_sinc():
    """The low-pass p, symmetric, its taps summing to 1."""
    taps = []
    for i in range(TAPS):
        x = i - CENTRE
        window = bessel_i0(BETA * math.sqrt(1 - (x / CENTRE) ** 2)) / bessel_i0(BETA)
        taps.append(math.sin(CUTOFF * x) / (math.pi * x) * window)
    total = sum(taps)
    return [tap / total for tap in taps]


def main():
    signed = [-tap if (i // 128) % 2 else tap for i, tap in enumerate(windowed_sinc())]
    print('#include "filterbank/cos_mod.h"\n')
    print("// Made by tools/make_provisional_lpf.py: a Kaiser-windowed sinc, beta %g, cutoff %g pi / 128." %
          (BETA, CUTOFF * 128 / math.pi))
    print("// J. F. Kaiser, Nonrecursive digital filter design using the I0-sinh window function, ISCAS 1974.\n")
    print("// clang-format off")
    print("const float lpf[1024] = {")
    for row in range(0, TAPS, 8):
        print("    " + ", ".join("%.9ef" % tap for tap in signed[row:row + 8]) + ",")
    print("};")
    print("// clang-format on")


if __name__ == "__main__":
    main()
