#!/usr/bin/env python3
"""JACK, with the LV2 plug-in in jalv as docs/hosts/jack.md has it: switched off and on again by a line on jalv's input
while it plays, and with another buffer size than it began with.
"""

import tempfile

import numpy

from host_test import LATENCY, Row, known_signal, passed
from jack_setup import FULL_SCALE, command_beside, jalv_output

RATE = 48000
FRAMES = 40 * RATE + 13
FADE = 1024  # frames from on to off


def compare(given, wet, played):
    """The upmix, then a straight fade to the plain signal, then one back; the greatest difference in the fades, in steps
    of 24 bits. Elsewhere there is none."""
    plain = numpy.zeros_like(wet)
    plain[LATENCY:, :2] = played[:-LATENCY]
    off = int(numpy.argmin((given == wet).all(axis=1)))
    on = off + FADE + int(numpy.argmin((given == plain).all(axis=1)[off + FADE :]))
    assert 0 < off < off + FADE < on < on + FADE < FRAMES, (off, on)
    assert (given[on + FADE :] == wet[on + FADE :]).all(), "the upmix is back, as if it had never been off"
    times = numpy.arange(len(wet))
    share = numpy.interp(times, [off - 1, off - 1 + FADE, on - 1, on - 1 + FADE], [1, 0, 0, 1])[:, None]
    difference = float(numpy.abs(share * wet + (1 - share) * plain - given).max()) * 2**23
    assert difference <= 1, difference
    return difference


def main():
    signal = (known_signal(FRAMES, 24, seed=5) / FULL_SCALE).astype(numpy.float32)
    lines = ((0.3, "set enabled 0"), (0.6, "set enabled 1"))
    with tempfile.TemporaryFile("w+") as log:
        try:
            given, played, told = jalv_output(RATE, (1024, 256), signal, log, lines)
        except Exception:
            log.seek(0)
            print(log.read())
            raise
    assert told == LATENCY, told
    difference = compare(given, command_beside(given, played, RATE), played)
    passed(Row("JACK: jalv, off and on", given.size, difference, 24, str(LATENCY), LATENCY))


main()
