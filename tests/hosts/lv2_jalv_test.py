#!/usr/bin/env python3
"""The LV2 plug-ins in jalv, a JACK application, at several rates and sizes of cycles."""
# SPDX-License-Identifier: MIT

import numpy

from host_test import LATENCY, Row, as_floats, known_signal, late_output, passed, phase_of
from jack_setup import jalv_output

# Rate in Hz, frames of a cycle, plug-in, options of jalv, layout and options of the command.
CASES = (
    (44100, 100, "urn:tarn:upmix", (), "3.0", ()),
    (48000, 37, "urn:tarn:upmix", (), "3.0", ()),
    (48000, 1000, "urn:tarn:upmix-5.1", (), "5.1", ()),
    (96000, 1024, "urn:tarn:upmix-5.1", ("-c", "surrounds=-12"), "5.1", ("--surrounds", "-12")),
    (48000, 256, "urn:tarn:upmix-7.1", (), "7.1", ()),
    (48000, 128, "urn:tarn:dialogue", (), "2.0", ("--centre", "6")),
)


def main():
    compared = 0
    for rate, size, plugin, controls, layout, options in CASES:
        signal = as_floats(known_signal(2 * rate + 13, 24, seed=rate))
        given, played, reported = jalv_output(rate, (size, size), signal, plugin=plugin, options=controls)
        place = phase_of(given, played, rate, *options, layout=layout)
        expected = late_output(played, rate, place, *options, layout=layout)[: len(given)]
        assert numpy.array_equal(expected, given), plugin
        assert reported == place[1] == LATENCY, (plugin, reported, place)
        compared += given.size
    passed(Row("LV2: jalv (JACK)", compared, 0, 24, f"{reported} frames", LATENCY))


main()
