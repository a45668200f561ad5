#!/usr/bin/env python3
"""LV2 plug-ins in jalv under JACK, as in docs/hosts/jack.md: bypassed for a while by commands to jalv, after a
change of the buffer size, and with a change of the preset. Plays for TARN_SOAK_MINUTES minutes if the environment sets
them.
"""
# SPDX-License-Identifier: MIT

import os
from pathlib import Path
import tempfile

from host_test import (
    FADE,
    LATENCY,
    SETTLED,
    Row,
    as_floats,
    changed_once,
    known_signal,
    late_output,
    off_and_on,
    passed,
    phase_of,
)
from jack_setup import dummy_server, jalv_output
from see_what_it_does import LOUD, begin_of, check_picture, command_with, output_of, running_lines, shows, write_song

RATE = 48000
SECONDS = 60 * int(os.environ.get("TARN_SOAK_MINUTES", 0)) or 40
FRAMES = SECONDS * RATE + 13


def check_commands():
    """A preset and a control change while 5.1 plays. Returns the number of compared samples."""
    signal = as_floats(known_signal(20 * RATE, 24, seed=6))
    compared = 0
    for line, preset, options, frames in (
        # jalv finds presets after it has listed them. It interrupts the plug-in to load one.
        ("presets\npreset urn:tarn:upmix-5.1#music", "music", (), 10 * RATE),
        ("set centre -12", None, ("--centre", "-12"), FADE + SETTLED),
    ):
        given, played, _ = jalv_output(RATE, (1024, 1024), signal, ((0.2, line),), "urn:tarn:upmix-5.1")
        place = phase_of(given, played, RATE, layout="5.1")
        assert place[1] == LATENCY, place
        before = late_output(played, RATE, place, layout="5.1")
        after = late_output(played, RATE, place, *options, layout="5.1", preset=preset)
        compared += changed_once(given, before[: len(given)], after[: len(given)], frames)
    return compared


def check_page():
    """The commands of docs/hosts/jack.md that start jalv and mpv, that with tarn meter beside them, and that of
    docs/hosts/lv2.md which prints the meters of the plug-in. The server runs in real time, so the test compares no samples.
    """
    with tempfile.TemporaryDirectory() as folder, dummy_server(RATE, 1024, "-P", "6"):
        directory = Path(folder)
        write_song(known_signal(8 * RATE, 16), directory)
        check_picture("jack", directory)
        with running_lines(begin_of("jack"), directory):
            output_of("until jack_lsp | grep -q mpv:out_1; do sleep 0.1; done", directory)
            shows(command_with("jack", "tarn meter"), directory, LOUD)
        mpv = begin_of("jack")[-1]
        with running_lines(["until jack_lsp | grep -q tarn:in_right; do sleep 0.1; done", mpv], directory):
            shows(command_with("lv2", "jalv"), directory, r"^group_level_2 = -[1-5]\d\.")


def main():
    signal = as_floats(known_signal(FRAMES, 24, seed=5))
    lines = ((0.3, "set enabled 0"), (0.6, "set enabled 1"))
    given, played, reported = jalv_output(RATE, (1024, 256), signal, lines)
    difference, measured = off_and_on(given, played, RATE)
    assert reported == measured == LATENCY, (reported, measured)
    compared = given.size
    if "TARN_SOAK_MINUTES" not in os.environ:
        compared += check_commands()
        check_page()
    passed(Row(f"JACK: jalv, off and on, {SECONDS} s", compared, difference, 24, f"{reported} frames", measured))


main()
