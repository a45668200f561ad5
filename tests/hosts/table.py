#!/usr/bin/env python3
"""Prints the table of the hosts whose tests have passed: table.py FOLDER."""

import json
from pathlib import Path
import sys

HEADINGS = ("host", "compared", "greatest difference", "latency reported", "measured")


def main():
    rows = [json.loads(file.read_text()) for file in sorted(Path(sys.argv[1]).glob("*.json"))]
    lines = [HEADINGS] + [
        (
            row["host"],
            f"{row['compared']} samples",
            f"{row['greatest_difference']:g} steps of {row['width']} bits" if row["greatest_difference"] else "none",
            str(row["reported_latency"]),
            f"{row['measured_latency']} frames",
        )
        for row in rows
    ]
    widths = [max(len(line[i]) for line in lines) for i in range(len(HEADINGS))]
    for line in lines:
        print("  ".join(text.ljust(width) for text, width in zip(line, widths)).rstrip())


main()
