#!/usr/bin/env python3
"""The LV2 plug-in in jalv under JACK, as in docs/hosts/jack.md: bypassed for a while by commands to jalv, after a
change of the buffer size. Plays for TARN_SOAK_MINUTES minutes if the environment sets them.
"""
# SPDX-License-Identifier: MIT

import os

from host_test import LATENCY, Row, as_floats, known_signal, off_and_on, passed
from jack_setup import jalv_output

RATE = 48000
SECONDS = 60 * int(os.environ.get("TARN_SOAK_MINUTES", 0)) or 40
FRAMES = SECONDS * RATE + 13


def main():
    signal = as_floats(known_signal(FRAMES, 24, seed=5))
    lines = ((0.3, "set enabled 0"), (0.6, "set enabled 1"))
    given, played, reported = jalv_output(RATE, (1024, 256), signal, lines)
    difference, measured = off_and_on(given, played, RATE)
    assert reported == measured == LATENCY, (reported, measured)
    passed(Row(f"JACK: jalv, off and on, {SECONDS} s", given.size, difference, 24, f"{reported} frames", measured))


main()
