#!/usr/bin/env python3
"""The LV2 plug-in in jalv, a JACK application, at several rates and sizes of cycles."""

import tempfile

import numpy

from host_test import FULL_SCALE, LATENCY, Row, command_beside, known_signal, passed
from jack_setup import jalv_output

RATES_AND_SIZES = ((44100, 100), (48000, 37), (48000, 1000), (96000, 1024))  # Hz, frames of a cycle


def main():
    compared = 0
    with tempfile.TemporaryFile("w+") as log:
        try:
            for rate, size in RATES_AND_SIZES:
                signal = (known_signal(2 * rate + 13, 24, seed=rate) / FULL_SCALE).astype(numpy.float32)
                given, played, told = jalv_output(rate, (size, size), signal, log)
                expected, measured = command_beside(given, played, rate)
                assert numpy.array_equal(expected, given)
                assert told == measured == LATENCY, (told, measured)
                compared += given.size
        except Exception:
            log.seek(0)
            print(log.read())
            raise
    passed(Row("LV2: jalv (JACK)", compared, 0, 24, f"{told} frames", measured))


main()
