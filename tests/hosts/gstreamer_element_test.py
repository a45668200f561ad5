#!/usr/bin/env python3
"""Runs the tests of the GStreamer element, also under valgrind: gstreamer_element_test.py TEST PLUGIN.

The tests compare with the bytes of zrk_tarn_processor_t, which the command returns too.
"""
# SPDX-License-Identifier: MIT

import os
from pathlib import Path
import subprocess
import sys
import tempfile

GLIB_SUPPRESSIONS = Path("/usr/share/glib-2.0/valgrind/glib.supp")
GSTREAMER_SUPPRESSIONS = Path(__file__).with_name("gstreamer.supp")

# valgrind does not emulate flush-to-zero, its operator new never fails, and it needs minutes for minutes of audio.
NOT_UNDER_VALGRIND = "--gtest_filter=-*FlushToZero*:*OutOfMemoryForTheStream*:*ClockDrift*"


def main():
    test, plugin = sys.argv[1:]
    with tempfile.TemporaryDirectory() as folder:
        environment = dict(os.environ, GST_REGISTRY=f"{folder}/registry.bin", G_DEBUG="fatal-criticals")
        subprocess.run([test, plugin], check=True, env=environment)
        valgrind = [
            "valgrind",
            "--quiet",
            "--error-exitcode=9",
            "--leak-check=full",
            "--show-leak-kinds=definite",
            "--errors-for-leak-kinds=definite",
            f"--suppressions={GLIB_SUPPRESSIONS}",
            f"--suppressions={GSTREAMER_SUPPRESSIONS}",
        ]
        environment |= {"G_SLICE": "always-malloc", "G_DEBUG": "fatal-criticals,gc-friendly"}
        subprocess.run([*valgrind, test, plugin, NOT_UNDER_VALGRIND], check=True, env=environment)


main()
