#!/usr/bin/python3
"""Designs the prototype filter of the 64-band filterbank and prints filterbank/lpf.cpp.

usage: tools/design_lpf.py > filterbank/lpf.cpp    the table (ten seconds)
       tools/design_lpf.py --check FILE            every limit of an existing table, measured; exit code 1 on a miss
       tools/design_lpf.py --trade-off             reconstruction against stopband, one design per row
       tools/design_lpf.py --limits                what each limit on the taps costs, one design per row
       tools/design_lpf.py --starts                designs from 15 starting points, and how far from the table each ends

The filter is p, symmetric, 1024 taps with sum 1; the table holds lpf[i] = (-1)^floor(i / 128) p[i]. A cosine-modulated
bank of 64 bands whose prototype has 16 x 64 taps sends a sample only to echoes at multiples of 128 frames:

    R[k][l] = sum over q of p[k + 128 q] p[k + 128 (q + l)] + p[k + 64 + 128 q] p[k + 64 + 128 (q + l)]

for the input phases k = 0..31 (63 - k mirrors k) and lags l = 0..7. The bank reconstructs perfectly where 8192 R[k][0]
is the same constant for every k and all other R vanish. The design minimises the mean energy of these 256 deviations,
an echo counted on both sides, while every sample of the stopband stays under a mask and every tap inside its limits.
Each step replaces R by its tangent (Gauss-Newton) and solves the quadratic programme that remains with an interior
point method; the steps begin at a Kaiser-windowed sinc and lower the mask to where it belongs.

The taps are rounded to multiples of 1e-9, 160 dB below the response at DC, so that the last bits of a different linear
algebra library do not reach the table. Needs python3-numpy and python3-scipy (Debian); with libopenblas0 as their
linear algebra every command takes a tenth of the time.

H. S. Malvar, Signal Processing with Lapped Transforms, Artech House 1992.
P. P. Vaidyanathan, Multirate Systems and Filter Banks, Prentice Hall 1993, chapter 8.
T. Q. Nguyen, Digital filter bank design quadratic-constrained formulation, IEEE Trans. Signal Processing 43 (9), 1995.
J. F. Kaiser, Nonrecursive digital filter design using the I0-sinh window function, ISCAS 1974.
S. Mehrotra, On the implementation of a primal-dual interior point method, SIAM J. Optimization 2 (4), 1992.
"""
# SPDX-License-Identifier: MIT

import os

os.environ.setdefault("OMP_NUM_THREADS", "1")  # one order of additions, so one result

import argparse
import sys

import numpy as np
from scipy.linalg import cho_factor, cho_solve

import measure_lpf
from measure_lpf import BANDS, END, PEAK, POLYPHASE_SIGN, SIDE_LOBE_LIMIT, TAIL, TAIL_LIMIT, TAPS

HALF = TAPS // 2
LAGS = 8
SCALE = 128.0  # the unknowns are x[i] = 128 p[i], i < 512: near one in the main lobe
QUANTUM = 1e-9
MASK_DB = 101.1  # measured between the samples of the mask, this gives 101 dB
EDGE = np.pi / BANDS
LOBE = 2 * np.pi / TAPS
DEVIATION_UNIT = 1e-5  # deviations are counted in this unit, which brings them near one
DAMPING = 1e4  # Levenberg-Marquardt: without it the steps end in a cycle of two, with ten times as much they crawl


# The limits on the taps.


def tap_limits(peak_fixed=True, tail=TAIL_LIMIT, signs=True, side_lobes=True):
    """Lower and upper bounds of x. A tap whose bounds coincide is fixed; signs keep two quanta away from zero."""
    i = np.arange(HALF)
    side = SIDE_LOBE_LIMIT - QUANTUM if side_lobes else float(PEAK)
    nearest_zero = 2 * QUANTUM if signs else -side
    positive = ((i >= 172) & (i < 288)) | (i >= 400)
    lower = np.where(positive, nearest_zero, -side)
    upper = np.where(positive, side, -nearest_zero)
    upper[400:] = float(PEAK) - QUANTUM if peak_fixed else 2 * float(PEAK)
    lower[:TAIL] = np.maximum(lower[:TAIL], QUANTUM - tail)
    upper[:TAIL] = np.minimum(upper[:TAIL], tail - QUANTUM)
    lower[0] = upper[0] = float(END)
    if peak_fixed:
        lower[-1] = upper[-1] = float(PEAK)
    return SCALE * lower, SCALE * upper


# The sum of squares prints as 0.00781304; a tenth of that interval stays free on either side.
SQUARES_LIMITS = np.array([0.0078130360, 0.0078130440])


# The quantities of the programme.


def unfold(x):
    """The 1024 taps of p."""
    return np.concatenate([x, x[::-1]]) / SCALE


def deviations(x):
    """The 256 weighted deviations from perfect reconstruction and their Jacobian [256][512].

    Lag 0 counts from its own mean over the phases, the gain of the chain; the other lags count twice in energy, once
    before and once after the sample. The squared length is the noise-to-signal ratio for white noise.
    """
    p = np.concatenate([x, x[::-1]]).reshape(8, 128)
    unknown = np.minimum(np.arange(TAPS), TAPS - 1 - np.arange(TAPS)).reshape(8, 128)
    k = np.arange(32)
    value = np.zeros((32, LAGS))
    jacobian = np.zeros((32, LAGS, HALF))
    for lag in range(LAGS):
        for q in range(8 - lag):
            for half in (0, 64):
                here, there = (q, half + k), (q + lag, half + k)
                value[:, lag] += p[here] * p[there] / 2
                np.add.at(jacobian, (k, lag, unknown[here]), p[there] / 2)
                np.add.at(jacobian, (k, lag, unknown[there]), p[here] / 2)
    gain = value[:, 0].mean()
    value[:, 0] -= gain
    jacobian[:, 0] -= jacobian[:, 0].mean(0)
    weight = np.where(np.arange(LAGS) == 0, 1.0, np.sqrt(2)) / np.sqrt(32)
    return (value * weight).ravel() / gain, (jacobian * weight[:, None]).reshape(-1, HALF) / gain


def response_rows(w):
    """Rows that take x to the zero-phase response of p at the frequencies w."""
    return 2 * np.cos(np.outer(w, (TAPS - 1) / 2 - np.arange(HALF))) / SCALE


def stopband_samples():
    """Frequencies of the mask and its height at each of them.

    Dense at the edge, where the response is steep. Beyond 64 lobes, three to a lobe: the mask is lower there by as much
    as a lobe can rise between two samples.
    """
    edge, near = EDGE + np.arange(2 * 64) * LOBE / 64, EDGE + np.arange(2 * 12, 64 * 12) * LOBE / 12
    far = np.append(np.arange(EDGE + 64 * LOBE, np.pi, LOBE / 3), np.pi)
    w = np.concatenate([edge, near, far])
    return w, np.where(w < far[0], 1.0, 0.85)


def stopband_energy():
    """The matrix E of the stopband energy x' E x: the integral from pi / 64 to pi over pi, in closed form."""
    n = (TAPS - 1) / 2 - np.arange(HALF)

    def integral(m):
        return np.pi * np.sinc(m) - EDGE * np.sinc(m * EDGE / np.pi)

    return 2 * (integral(n[:, None] - n) + integral(n[:, None] + n)) / (np.pi * SCALE**2)


# The quadratic programme of one step.


def solve_programme(hessian, slope, rows, lower, upper, equality, total):
    """The d of least d' hessian d / 2 + slope' d with lower <= [rows; I] d <= upper and equality' d = total.

    Mehrotra's predictor and corrector on the slacks above and below; the Cholesky factor is scaled to a unit diagonal
    and its ridge removed by refinement.
    """
    count = len(rows)
    size = len(slope)
    d = np.zeros(size)
    multiplier = 0.0
    width = upper - lower

    def forward(v):
        return np.concatenate([rows @ v, v])

    def backward(v):
        return rows.T @ v[:count] + v[count:]

    def longest(pairs):
        return min([1.0] + [(-value[step < 0] / step[step < 0]).min() for value, step in pairs if (step < 0).any()])

    slack = [np.maximum(upper, 0.1 * width), np.maximum(-lower, 0.1 * width)]
    price = [1 / slack[0], 1 / slack[1]]
    for _ in range(60):
        activity = forward(d)
        dual = hessian @ d + slope + backward(price[0] - price[1]) + equality * multiplier
        excess = [activity + slack[0] - upper, lower - activity + slack[1]]
        missing = equality @ d - total
        gap = (slack[0] @ price[0] + slack[1] @ price[1]) / (2 * len(width))
        infeasible = max(np.abs(e / width).max() for e in excess)
        if gap < 1e-12 and np.abs(dual).max() < 1e-3 and infeasible < 1e-10 and abs(missing) < 1e-12:
            break

        weight = price[0] / slack[0] + price[1] / slack[1]
        normal = hessian + rows.T @ (rows * weight[:count, None])
        normal[np.diag_indices(size)] += weight[count:]
        unit = 1 / np.sqrt(np.diag(normal))
        scaled = normal * unit[:, None] * unit
        scaled[np.diag_indices(size)] += 1e-14
        factor = cho_factor(scaled, lower=True)

        def solve(v):
            u = unit * cho_solve(factor, unit * v)
            for _ in range(3):
                u += unit * cho_solve(factor, unit * (v - normal @ u))
            return u

        along = solve(equality)

        def newton_step(target):
            shift = [(target[i] + price[i] * excess[i]) / slack[i] for i in (0, 1)]
            u = solve(-dual - backward(shift[0] - shift[1]))
            multiplier_step = (equality @ u + missing) / (equality @ along)
            step = u - along * multiplier_step
            moved = forward(step)
            slack_step = [-excess[0] - moved, -excess[1] + moved]
            price_step = [(target[i] - price[i] * slack_step[i]) / slack[i] for i in (0, 1)]
            return step, multiplier_step, slack_step, price_step

        _, _, slack_step, price_step = newton_step([-slack[i] * price[i] for i in (0, 1)])
        reach = longest(list(zip(slack + price, slack_step + price_step)))
        ahead = sum((slack[i] + reach * slack_step[i]) @ (price[i] + reach * price_step[i]) for i in (0, 1))
        centre = gap * (ahead / (2 * len(width)) / gap) ** 3
        step, multiplier_step, slack_step, price_step = newton_step(
            [centre - slack[i] * price[i] - slack_step[i] * price_step[i] for i in (0, 1)]
        )
        reach = 0.995 * longest(list(zip(slack + price, slack_step + price_step)))
        d = d + reach * step
        multiplier += reach * multiplier_step
        slack = [slack[i] + reach * slack_step[i] for i in (0, 1)]
        price = [price[i] + reach * price_step[i] for i in (0, 1)]
    return d


class Design:
    """The programme with its constant parts: limits of the taps, samples of the stopband, its energy."""

    def __init__(self, limits=None):
        self.lower, self.upper = limits or tap_limits()
        self.free = np.flatnonzero(self.lower < self.upper)
        w, self.mask = stopband_samples()
        self.rows = response_rows(w)
        # Deviations leave some directions of x open; the stopband energy, at a weight that costs no reconstruction,
        # chooses among them and makes the optimum unique.
        self.energy = 1e-4 * stopband_energy() / DEVIATION_UNIT**2

    def step(self, x, mask_db):
        """One Gauss-Newton step under a stopband mask."""
        height = 10 ** (-mask_db / 20)
        value, jacobian = deviations(x)
        value, jacobian = value / DEVIATION_UNIT, jacobian[:, self.free] / DEVIATION_UNIT
        hessian = jacobian.T @ jacobian + self.energy[np.ix_(self.free, self.free)]
        hessian[np.diag_indices(len(self.free))] += DAMPING
        slope = jacobian.T @ value + self.energy[self.free] @ x

        response = self.rows @ x / height
        squares = 2 * (x @ x) / SCALE**2
        squares_slope = 4 * x[self.free] / SCALE**2
        rows = np.vstack([self.rows[:, self.free] / height, squares_slope / DEVIATION_UNIT])
        room = (SQUARES_LIMITS - squares) / DEVIATION_UNIT
        lower = np.concatenate([-self.mask - response, room[:1], (self.lower - x)[self.free]])
        upper = np.concatenate([self.mask - response, room[1:], (self.upper - x)[self.free]])
        d = np.zeros(HALF)
        d[self.free] = solve_programme(
            hessian, slope, rows, lower, upper, np.full(len(self.free), 2 / SCALE), 1 - 2 * x.sum() / SCALE
        )
        return d

    def run(self, x, masks_db, steps, accuracy):
        """Takes a step under each mask, then steps under the last mask until x settles. Returns x and the last change."""
        fixed = self.lower == self.upper
        x = np.where(fixed, self.lower, x)
        change = 0.0
        for count in range(steps):
            d = self.step(x, masks_db[min(count, len(masks_db) - 1)])
            x = x + d
            change = np.abs(d).max()
            if count >= len(masks_db) and change < accuracy:
                break
        return x, change


def windowed_sinc(beta=8.0, cutoff=1.125):
    """The start: a Kaiser-windowed sinc, its cutoff in units of pi / 128."""
    n = np.arange(TAPS) - (TAPS - 1) / 2
    p = np.sinc(cutoff * n / 128) * np.kaiser(TAPS, beta)
    return SCALE * (p / p.sum())[:HALF]


def descent(mask_db):
    """Masks from 55 dB down to the one wanted."""
    return list(np.linspace(55, mask_db, 6))


def table_of(x):
    """The table in decimals: rounded taps, the two fixed values as they are written, polyphase signs."""
    p = np.round(unfold(x) / QUANTUM) * QUANTUM
    if x[-1] == SCALE * float(PEAK):
        p[[HALF - 1, HALF]] = 0.00894515961
    return p * POLYPHASE_SIGN


def print_table(table, figures):
    """The C++ file."""
    print("// The prototype filter.")
    print("// SPDX-License-Identifier: MIT")
    print('#include "filterbank/cos_mod.h"\n')
    print("// Made by tools/design_lpf.py > filterbank/lpf.cpp: least mean deviation from perfect reconstruction")
    print("// under a stopband mask and limits on the taps, by successive quadratic programmes. Figures of the whole")
    print("// chain, analysis and synthesis, with these values in single precision")
    print("// (tools/design_lpf.py --check filterbank/lpf.cpp):")
    print("//")
    print("//   delay             %d frames" % figures["delay frames"])
    print(
        "//   reconstruction    %.1f dB for white noise, %.1f dB for a sweep, %.1f dB for the worst impulse"
        % (figures["white noise"], figures["logarithmic sweep"], figures["impulse, worst phase"])
    )
    print("//   overall response  flat within %.5f dB" % figures["ripple"])
    print("//   alias components  %.1f dB down" % figures["largest alias"])
    print("//   stopband          %.1f dB down from pi / 64" % figures["stopband"])
    print("//")
    print("// H. S. Malvar, Signal Processing with Lapped Transforms, Artech House 1992.")
    print("// P. P. Vaidyanathan, Multirate Systems and Filter Banks, Prentice Hall 1993, chapter 8.")
    print("// T. Q. Nguyen, Digital filter bank design quadratic-constrained formulation, IEEE Trans. Signal")
    print("// Processing 43 (9), 1995.")
    print("// J. F. Kaiser, Nonrecursive digital filter design using the I0-sinh window function, ISCAS 1974.\n")
    print("// clang-format off")
    print("alignas(64) const float lpf[1024] = {")
    for row in range(0, TAPS, 8):
        print("    " + ", ".join("%.9ef" % tap for tap in table[row : row + 8]) + ",")
    print("};")
    print("// clang-format on")


# The commands.


def final_design():
    """The x of the table; its last change is far smaller than QUANTUM."""
    x, change = Design().run(windowed_sinc(), descent(MASK_DB), 40, 1e-11)
    if change > 1e-10:
        sys.exit("design_lpf: the steps do not settle, last change %.1e" % change)
    return x


COLUMNS = "reconstruction  worst impulse  stopband   alias    ripple"


def print_figures(name, x):
    """One row of a comparison."""
    figures = measure_lpf.measure(table_of(x).astype(np.float32))
    print(
        "%-38s %8.2f dB %11.2f dB %6.2f dB %6.2f dB %.5f dB"
        % (
            name,
            figures["white noise"],
            figures["impulse, worst phase"],
            figures["stopband"],
            figures["largest alias"],
            figures["ripple"],
        ),
        flush=True,
    )


def print_trade_off():
    """Designs under masks from 62 to 105 dB, each begun at its neighbour, down and up from 90 dB."""
    design = Design()
    print("%-38s %s" % ("mask", COLUMNS))
    middle, _ = design.run(windowed_sinc(), descent(90), 14, 1e-6)
    designs = {}
    for masks in ((90, 85, 80, 75, 70, 66, 62), (95, 98, 100, 101, 102, 103, 103.5, 104, 105)):
        x = middle
        for mask in masks:
            x, _ = design.run(x, [mask], 14, 1e-6)
            designs[mask] = x
    for mask in sorted(designs):
        print_figures("%.1f dB" % mask, designs[mask])


def print_limits():
    """Designs under the mask of the table, each with one limit removed."""
    print("%-38s %s" % ("limit removed", COLUMNS))
    for name, limits in (
        ("none", {}),
        ("peak 0.00894515961", {"peak_fixed": False}),
        ("tails below 1e-6, now 1e-5", {"tail": 1e-5}),
        ("signs", {"signs": False}),
        ("side lobes", {"side_lobes": False}),
    ):
        x, _ = Design(tap_limits(**limits)).run(windowed_sinc(), descent(MASK_DB), 30, 1e-6)
        print_figures(name, x)


def print_starts():
    """Designs from other windowed sincs; the distance is the largest difference of a tap from the table's design."""
    design = Design()
    wanted = final_design()
    print("beta  cutoff          largest difference of a tap")
    for beta in (6, 7, 8, 9, 10):
        for cutoff in (1.08, 1.125, 1.17):
            x, _ = design.run(windowed_sinc(beta, cutoff), descent(MASK_DB), 20, 1e-7)
            print("%4g  %5.3f pi / 128   %.1e" % (beta, cutoff, np.abs(x - wanted).max() / SCALE), flush=True)


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    commands = parser.add_mutually_exclusive_group()
    commands.add_argument("--check", metavar="FILE", help="check every limit of an existing table")
    commands.add_argument("--trade-off", action="store_true", help="reconstruction against stopband")
    commands.add_argument("--limits", action="store_true", help="what each limit on the taps costs")
    commands.add_argument("--starts", action="store_true", help="designs from other starting points")
    arguments = parser.parse_args()
    if arguments.check:
        sys.exit(0 if measure_lpf.check_file(arguments.check) else 1)
    if arguments.trade_off:
        print_trade_off()
    elif arguments.limits:
        print_limits()
    elif arguments.starts:
        print_starts()
    else:
        table = table_of(final_design())
        values = table.astype(np.float32)
        figures = measure_lpf.measure(values)
        missed = [text for text, holds in measure_lpf.checks(values, figures) if not holds]
        if missed:
            sys.exit("design_lpf: missed: " + "; ".join(missed))
        print_table(table, figures)


if __name__ == "__main__":
    main()
