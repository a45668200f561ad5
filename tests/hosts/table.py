#!/usr/bin/env python3
"""Prints the table of the hosts: table.py FOLDER. The folder has the rows of the tests, and tests.xml with the
results of CTest. A test without rows has a line with its result.
"""
# SPDX-License-Identifier: MIT

import json
from pathlib import Path
import sys
from xml.etree import ElementTree

HEADINGS = ("host", "result", "compared", "greatest difference", "latency reported", "measured")
WITHOUT_ROW = {
    "Hosts.gstreamer-element": "GStreamer, the element alone",
    "Hosts.gstreamer.sessions": "GStreamer, random sessions",
    "Hosts.ladspa.realtime": "LADSPA, real-time safety",
    "Hosts.ladspa.sessions": "LADSPA, random sessions",
    "Hosts.lv2.host": "LV2, test host",
    "Hosts.lv2.sessions": "LV2, random sessions",
}
NOT_TESTED = (
    ("Ardour", "jalv and lilv test the same: ports, channels and latency"),
    ("JACK in real time", "a loaded machine loses cycles with any client; freewheel mode does not"),
    ("sound cards", "the devices are files and PipeWire's null sinks"),
    ("LADSPA in PipeWire", "the sinks use the LV2 plug-ins, which name their channels"),
)


def cells(row, result):
    """The cells of a row."""
    steps = f"{row['greatest_difference']:g} steps of {row['width']} bits"
    return (
        row["host"],
        result,
        f"{row['compared']} samples",
        steps if row["greatest_difference"] else "none",
        str(row["reported_latency"]),
        f"{row['measured_latency']} frames",
    )


def main():
    folder = Path(sys.argv[1])
    rows = [json.loads(file.read_text()) for file in sorted(folder.glob("*.json"))]
    lines = [HEADINGS]
    for test in ElementTree.parse(folder / "tests.xml").getroot().iter("testcase"):
        result = "passed" if test.get("status") == "run" else "FAILED"
        of_test = [cells(row, result) for row in rows if row["test"] == test.get("name")]
        lines += of_test or [(WITHOUT_ROW.get(test.get("name"), test.get("name")), result, "", "", "", "")]
    widths = [max(len(line[i]) for line in lines) for i in range(len(HEADINGS))]
    for line in lines:
        print("  ".join(text.ljust(width) for text, width in zip(line, widths)).rstrip())
    print("\nNot tested:")
    for host, reason in NOT_TESTED:
        print(f"  {host}: {reason}")


main()
