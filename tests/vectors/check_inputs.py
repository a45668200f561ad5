#!/usr/bin/env python3
"""Computes the inputs of host-sessions.txt as README.md describes them and compares their checksums.

A replayer in any language needs this code and a processor. This program does not check outputs.
"""
# SPDX-License-Identifier: MIT

import pathlib
import sys

FULL = 1 << 31
TOP, BOTTOM = FULL - 1, -FULL
MASK64 = (1 << 64) - 1


class SplitMix:
    def __init__(self, seed):
        self.state = seed

    def draw(self):
        """The upper half of the next number, as a signed 32-bit integer."""
        self.state = (self.state + 0x9E3779B97F4A7C15) & MASK64
        z = self.state
        z = ((z ^ (z >> 30)) * 0xBF58476D1CE4E5B9) & MASK64
        z = ((z ^ (z >> 27)) * 0x94D049BB133111EB) & MASK64
        return signed((z ^ (z >> 31)) >> 32)


def signed(word):
    """32 bits as a signed number."""
    return word - (word >> 31 << 32)


def sine(step, time):
    p = signed(step * time & 0xFFFFFFFF)
    a = p * (FULL - abs(p)) >> 29
    b = a * (abs(a) - FULL) >> 31
    return max(BOTTOM, min(TOP, a + (b * 483183821 >> 31)))


def frame(signal, t, draw):
    """Left and right of the frame at time t."""
    if signal == "silence":
        return 0, 0
    if signal in ("noise", "raw"):
        left = draw()
        return left, draw()
    if signal == "centre":
        d = draw()
        return d, d
    if signal == "opposite":
        d = draw()
        return d, -1 - d
    if signal == "left":
        return draw(), 0
    if signal == "right":
        return 0, draw()
    if signal == "moving":
        position = t // 512 % 9
        d = draw()
        a = draw() >> 5
        return (d * (8 - position) >> 4) + a, (d * position >> 4) - (a >> 1)
    if signal == "low":
        s = sine(13421773, t)
        return s, s
    if signal == "mid":
        s = sine(312055071, t)
        return s, s >> 2
    if signal == "high":
        return 0, sine(1862270976, t)
    if signal == "steady":
        a, b = sine(201326592, t), sine(1006632960, t)
        return (a >> 1) + (b >> 3), (a >> 2) + (b >> 2)
    if signal == "impulses":
        return (TOP if t % 301 == 0 else 0), (BOTTOM if t % 301 == 150 else 0)
    if signal == "square":
        return (BOTTOM if t // 50 % 2 else TOP), (BOTTOM if t // 77 % 2 else TOP)
    if signal == "rails":
        rail = BOTTOM if draw() < 0 else TOP
        return rail, rail
    raise ValueError(signal)


def checksum(data):
    """FNV-1a, 64 bits."""
    value = 0xCBF29CE484222325
    for byte in data:
        value = (value ^ byte) * 0x100000001B3 & MASK64
    return value


def fill(signal, shift, frames, time, bits, codes, draw):
    """The bytes of a buffer; codes has one entry per slot."""
    size = (bits + 7) // 8
    down = 0 if signal == "raw" else shift + 32 - min(bits, 32)
    mask = (1 << 8 * size) - 1
    data = bytearray()
    for t in range(time, time + frames):
        left, right = frame(signal, t, draw)
        for code in codes:
            sample = left if code in (0x2000, 0x8000) else right if code in (0x4000, 0x10000) else draw()
            data += (sample >> down & mask).to_bytes(size, "little")
    return data


def main():
    path = pathlib.Path(sys.argv[1] if len(sys.argv) > 1 else pathlib.Path(__file__).with_name("host-sessions.txt"))
    buffers = 0
    for number, line in enumerate(path.read_text(encoding="ascii").splitlines(), 1):
        command, *words = line.split() or ["#"]
        if command == "session":
            session, random, time = words[0], SplitMix(int(words[1])), 0
        elif command == "format":
            bits = int(words[1])
        elif command == "slots":
            codes = [0] * int(words[0])
            if words[1:] != ["null"]:
                codes[: len(words) - 1] = [int(word, 16) for word in words[1:]]
        elif command == "buffer":
            frames, signal, shift = int(words[0]), words[1], int(words[2])
            if checksum(fill(signal, shift, frames, time, bits, codes, random.draw)) != int(words[3], 16):
                sys.exit(f"{path.name}, line {number}: the input of session {session} differs: {line}")
            time += frames
            buffers += 1
        elif command not in ("#", "setup", "gains", "null"):
            sys.exit(f"{path.name}, line {number}: unknown line: {line}")
    if buffers == 0:
        sys.exit(f"{path.name} has no buffers")
    print(f"{buffers} buffers, their inputs match the description")


if __name__ == "__main__":
    main()
