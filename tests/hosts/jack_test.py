#!/usr/bin/env python3
"""JACK, with the LV2 plug-in in jalv as docs/hosts/jack.md has it: switched off and on again by a line on jalv's input
while it plays, and with another buffer size than it began with. With TARN_SOAK_MINUTES in the environment, for as long.
"""

import os

from host_test import LATENCY, Row, as_floats, known_signal, off_and_on, passed
from jack_setup import jalv_output

RATE = 48000
SECONDS = 60 * int(os.environ.get("TARN_SOAK_MINUTES", 0)) or 40
FRAMES = SECONDS * RATE + 13


def main():
    signal = as_floats(known_signal(FRAMES, 24, seed=5))
    lines = ((0.3, "set enabled 0"), (0.6, "set enabled 1"))
    given, played, told = jalv_output(RATE, (1024, 256), signal, lines)
    difference, measured = off_and_on(given, played, RATE)
    assert told == measured == LATENCY, (told, measured)
    passed(Row(f"JACK: jalv, off and on, {SECONDS} s", given.size, difference, 24, f"{told} frames", measured))


main()
