"""Bursts and clicks: which output plays them, and what precedes them."""
# SPDX-License-Identifier: MIT

import numpy as np

from measures import CENTRE, ratio_db

EVENT_SECONDS = 0.15
PRE_ECHO_SECONDS = 0.01


def energies(outputs, events, rate):
    """Energy of each event, and before it: two arrays [events, outputs]."""
    length, before = round(EVENT_SECONDS * rate), round(PRE_ECHO_SECONDS * rate)
    squares = np.square(outputs)
    event = np.array([squares[start : start + length].sum(axis=0) for start, _ in events])
    return event, np.array([squares[start - before : start].sum(axis=0) for start, _ in events])


def figures(outputs, events, rate):
    """Shares of C and of the right side in the energy of the events, and the pre-echo of all outputs in dB.

    events: (frame of the start, index of the output that should play it)
    """
    event, before = energies(outputs, events, rate)
    shares = event / event.sum(axis=1, keepdims=True)
    places = np.array([place for _, place in events])
    centred = places == CENTRE
    return {
        "centre_in_c": float(shares[centred, CENTRE].mean()),
        "side_in_side": float(shares[~centred, places[~centred]].mean()),
        "side_in_c": float(shares[~centred, CENTRE].mean()),
        "pre_echo": ratio_db(before.sum(), event.sum()),
    }
