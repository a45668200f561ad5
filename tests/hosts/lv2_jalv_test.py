#!/usr/bin/env python3
"""The LV2 plug-in in jalv, a JACK application, at several rates and sizes of cycles."""
# SPDX-License-Identifier: MIT

import numpy

from host_test import LATENCY, Row, as_floats, command_beside, known_signal, passed
from jack_setup import jalv_output

RATES_AND_SIZES = ((44100, 100), (48000, 37), (48000, 1000), (96000, 1024))  # Hz, frames of a cycle


def main():
    compared = 0
    for rate, size in RATES_AND_SIZES:
        given, played, reported = jalv_output(rate, (size, size), as_floats(known_signal(2 * rate + 13, 24, seed=rate)))
        expected, measured = command_beside(given, played, rate)
        assert numpy.array_equal(expected, given)
        assert reported == measured == LATENCY, (reported, measured)
        compared += given.size
    passed(Row("LV2: jalv (JACK)", compared, 0, 24, f"{reported} frames", measured))


main()
