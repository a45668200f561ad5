"""Colours and lines of the pictures."""
# SPDX-License-Identifier: MIT

import matplotlib

matplotlib.use("Agg")
import matplotlib.pyplot as plt

from systems import FixedMatrix, PlainStereo

# Palette of Okabe and Ito, for all forms of colour vision. Each system has one colour and line style, in this order.
COLOURS = ["#0072B2", "#D55E00", "#009E73", "#CC79A7", "#E69F00", "#56B4E9"]
LINE_STYLES = ["-", "--", "-."]
# The references are grey and dotted.
REFERENCES = {FixedMatrix.label: ("#7F7F7F", ":"), PlainStereo.label: ("#BFBFBF", (0, (1, 3)))}
OUTPUT_COLOURS = {"FL": "#0072B2", "C": "#E69F00", "FR": "#009E73"}


def styles(results):
    """Label, figures, colour and line style of every system."""
    found = []
    for index, (label, figures) in enumerate(results.items()):
        own = COLOURS[index % len(COLOURS)], LINE_STYLES[index % len(LINE_STYLES)]
        found.append((label, figures, *REFERENCES.get(label, own)))
    return found


def save(figure, path):
    """Writes a picture whose bytes depend only on its content."""
    figure.savefig(path, dpi=120, metadata={"Software": None})
    plt.close(figure)
