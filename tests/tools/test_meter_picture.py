"""Draws the picture of tarn meter again and compares its marks with docs/pictures/meter.png:
test_meter_picture.py TARN PICTURE. The output levels differ from run to run, because peaks are those since the screen
before. Texts depend on the version of chromium. A quarter and three quarters of a character of a mark, which is half a
character wide or more, depend on neither.
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
GROUPS = slice(4, 20)  # rows
PLACES = slice(2 * 10, 2 * 29)  # half columns between left and right
OUTPUTS = slice(4, 7)  # rows of FL, FR and FC
BAR = 2 * 60  # half column where the bars of the outputs begin


def characters(path):
    """The colours of the halves of all characters: [rows, half columns, 3]."""
    picture = numpy.round(255 * image.imread(path)[:, :, :3])
    rows = picture[FIRST[1] + CELL[1] // 2 :: CELL[1]]
    halves = [rows[:, FIRST[0] + CELL[0] * quarter // 4 :: CELL[0]] for quarter in (1, 3)]
    columns = min(half.shape[1] for half in halves)
    return numpy.stack([half[:, :columns] for half in halves], axis=2).reshape(rows.shape[0], 2 * columns, 3)


def main():
    tarn, drawn = sys.argv[1:]
    subprocess.run([ROOT / "tools/draw_meter", tarn, drawn], check=True, timeout=120)
    committed = characters(ROOT / "docs/pictures/meter.png")
    places = committed[GROUPS, PLACES]
    assert numpy.array_equal(places, characters(drawn)[GROUPS, PLACES]), f"docs/pictures/meter.png differs from {drawn}"
    red, green, blue = numpy.moveaxis(places, 2, 0)
    assert ((blue > 180) & (red < 100)).any(), "a group at the left is blue"
    assert (((red > 150) & (blue > 150) & (green < 120))[-1]).any(), "the lowest group is violet"
    left, right, centre = committed[OUTPUTS, BAR]
    assert left[2] > 200 > left[0], "front left is blue"
    assert right[0] > 200 > right[2], "front right is orange"
    assert centre.min() > 200 and numpy.ptp(centre) < 8, "the centre is white"


main()
