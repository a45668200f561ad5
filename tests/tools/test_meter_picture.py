"""Draws the picture of tarn meter again and compares its bars with docs/pictures/meter.png:
test_meter_picture.py TARN PICTURE. The output levels differ from run to run, because peaks are those since the screen
before. Texts depend on the version of chromium. The middle of a character of a bar depends on neither.
"""

# SPDX-License-Identifier: MIT

from pathlib import Path
import subprocess
import sys

from matplotlib import image
import numpy

ROOT = Path(__file__).resolve().parents[2]
CELL = 9, 17  # pixels of a character
FIRST = 10, 12  # pixels left of the first column and above the first row
ROWS = slice(3, 19)  # of the groups
BARS = slice(8, 19), slice(20, 31), slice(32, 43), slice(51, 53)  # columns: left, centre, right, field


def bars(path):
    """The colours of the bars on the left, in the centre and on the right, and of the field: [rows, columns, 3]."""
    picture = numpy.round(255 * image.imread(path)[:, :, :3])
    middles = picture[FIRST[1] + CELL[1] // 2 :: CELL[1], FIRST[0] + CELL[0] // 2 :: CELL[0]]
    return [middles[ROWS, columns] for columns in BARS]


def main():
    tarn, drawn = sys.argv[1:]
    subprocess.run([ROOT / "tools/draw_meter", tarn, drawn], check=True, timeout=120)
    committed = bars(ROOT / "docs/pictures/meter.png")
    for old, new in zip(committed, bars(drawn), strict=True):
        assert numpy.array_equal(old, new), f"docs/pictures/meter.png differs from {drawn}"
    left, centre, right, field = committed
    assert (left[..., 2] > 200).any() and (left[..., 0] <= left[..., 2]).all(), "blue"
    assert (centre > 150).all(axis=2).any() and (numpy.ptp(centre, axis=2) < 8).all(), "white"
    assert (right[..., 0] > 180).any() and (right[..., 2] < 20).all(), "orange"
    assert (field[-1, :, (0, 2)] > 150).all() and (field[-1, :, 1] < 120).all(), "violet"


main()
