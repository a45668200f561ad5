#!/usr/bin/python3
"""Measures a prototype filter of the 64-band filterbank and checks it against its limits.

usage: tools/measure_lpf.py filterbank/lpf.cpp

The whole chain, analysis and synthesis without any mixing, runs in double precision on the taps as the table holds
them in single precision; the 64-point DCT-IV is a plain matrix product. Needs python3-numpy (Debian).
"""
# SPDX-License-Identifier: MIT

import os

os.environ.setdefault("OMP_NUM_THREADS", "1")

import re
import sys

import numpy as np

TAPS = 1024
BANDS = 64
DELAY = TAPS - BANDS
PEAK = np.float32(0.00894515961)
END = np.float32(-7e-08)
SUM_OF_SQUARES = "0.00781304"
SIGN_CHANGES = [128, 172, 256, 288, 384, 400, 512, 624, 640, 736, 768, 852, 896]
MAIN_LOBE = slice(400, 624)
SIDE_LOBE_LIMIT = 0.0012
TAIL = 40
TAIL_LIMIT = 1e-6
POLYPHASE_SIGN = np.where(np.arange(TAPS) // 128 % 2, -1.0, 1.0)

# One 64-point DCT-IV, unnormalised: applied twice it multiplies by 32.
_index = 2 * np.arange(BANDS) + 1
DCT4 = np.cos(np.pi * np.outer(_index, _index) / (4 * BANDS))


def read_table(path):
    """The 1024 entries of a table file in single precision."""
    with open(path, encoding="utf-8") as file:
        body = re.search(r"lpf\[1024\]\s*=\s*\{(.*?)\}", file.read(), re.DOTALL)
    entries = re.findall(r"[-+0-9.e]+(?=f)", body.group(1)) if body else []
    if len(entries) != TAPS:
        sys.exit("%s: no table of 1024 entries" % path)
    return np.array([np.float32(entry) for entry in entries])


def run_chain(lpf, signal):
    """Analysis and synthesis of `signal`, a whole number of 64-frame blocks, from silent histories."""
    padded = np.concatenate([np.zeros(DELAY), signal])
    history = np.lib.stride_tricks.sliding_window_view(padded, TAPS)[::BANDS]
    branch = (history * lpf).reshape(-1, 8, 128).sum(1)
    low, high = branch[:, :64], branch[:, 64:]
    folded = low - low[:, ::-1] - high - high[:, ::-1]
    subband = folded @ DCT4

    transformed = np.vstack([np.zeros((15, BANDS)), subband @ DCT4])
    blocks = len(subband)
    weights = lpf.reshape(16, BANDS)
    output = np.zeros((blocks, BANDS))
    for slot in range(16):  # even slots contribute to this block's output, odd slots through the overlap
        y = transformed[15 - slot : 15 - slot + blocks]
        mirrored = y[:, ::-1]
        output += (y - mirrored if slot % 2 == 0 else -y - mirrored) * weights[slot]
    return output.ravel()


def reconstruction_db(lpf, signal):
    """Signal to reconstruction error in dB after the best single gain."""
    output = run_chain(lpf, np.concatenate([signal, np.zeros(2 * TAPS)]))[DELAY : 2 * DELAY + len(signal)]
    wanted = np.concatenate([signal, np.zeros(DELAY)])
    gain = output @ wanted / (wanted @ wanted)
    error = output / gain - wanted
    return 10 * np.log10((wanted @ wanted) / (error @ error))


def impulse_responses(lpf):
    """Responses [64 input phases][2048], each counted from its impulse."""
    responses = np.zeros((BANDS, 2 * TAPS))
    for phase in range(BANDS):
        signal = np.zeros(3 * TAPS)
        signal[phase] = 1.0
        responses[phase] = run_chain(lpf, signal)[phase : phase + 2 * TAPS]
    return responses


def signals():
    """White noise, a logarithmic and a linear sweep over the whole band, all of 2^17 frames."""
    frames = 1 << 17
    time = np.arange(frames) / frames
    low, high = 1 / 2400, 0.5  # cycles per frame: 20 Hz and 24 kHz at 48 kHz
    octaves = np.log(high / low)
    return {
        "white noise": np.random.default_rng(64).standard_normal(frames),
        "logarithmic sweep": np.sin(2 * np.pi * frames * low / octaves * np.exp(octaves * time)),
        "linear sweep": np.sin(np.pi * frames * (high - low) * time**2 + 2 * np.pi * frames * low * time),
    }


def stopband_db(lpf):
    """Distance of the largest response at or above pi / 64 from the response at DC."""
    points = 1 << 18
    response = np.abs(np.fft.rfft(lpf * POLYPHASE_SIGN, points))
    return -20 * np.log10(response[points // (2 * BANDS) :].max() / response[0])


def measure(lpf):
    """The figures of a table as a dictionary, in decibels unless the name has another unit."""
    lpf = lpf.astype(float)
    responses = impulse_responses(lpf)
    figures = {"delay frames": int(np.abs(responses).sum(0).argmax())}
    for name, signal in signals().items():
        figures[name] = reconstruction_db(lpf, signal)

    energy = (responses**2).sum(1)
    straight = responses[:, DELAY]
    gain = figures["gain"] = straight.mean()
    error = energy - straight**2 + (straight - gain) ** 2
    figures["impulse, all phases"] = -10 * np.log10(error.mean() / gain**2)
    figures["impulse, worst phase"] = -10 * np.log10(error.max() / gain**2)

    # A periodically varying system sends w to w + 2 pi m / 64: m = 0 is the overall response, the others are aliases.
    transfer = np.abs(np.fft.fft(np.fft.rfft(responses, 8 * TAPS, axis=1), axis=0)) / BANDS / gain
    figures["ripple"] = np.abs(20 * np.log10(transfer[0])).max()
    figures["largest alias"] = -20 * np.log10(transfer[1:].max())
    figures["stopband"] = stopband_db(lpf)
    return figures


def checks(lpf, figures):
    """All limits as pairs (description, whether the table meets it)."""
    p = lpf.astype(float) * POLYPHASE_SIGN
    side = np.concatenate([p[: MAIN_LOBE.start], p[MAIN_LOBE.stop :]])
    tails = np.concatenate([p[:TAIL], p[-TAIL:]])
    changes = (np.flatnonzero(np.signbit(lpf[1:]) != np.signbit(lpf[:-1])) + 1).tolist()
    inner = np.delete(np.abs(lpf), [511, 512])
    yield "no entry is zero", bool(np.all(lpf != 0))
    yield "antisymmetric bit for bit", lpf.tobytes() == (-lpf[::-1]).tobytes()
    yield "peak at the centre", lpf[511] == -PEAK and lpf[512] == PEAK and inner.max() < PEAK
    yield "first entry -7e-08", lpf[0] == END
    yield "sum %.10f is 1 within 1e-7" % p.sum(), abs(p.sum() - 1) < 1e-7
    yield "sum of squares %.11f" % (p @ p), "%.8f" % (p @ p) == SUM_OF_SQUARES
    yield "sign changes", changes == SIGN_CHANGES
    yield "side lobes %.7f at most 0.0012" % np.abs(side).max(), np.abs(side).max() <= SIDE_LOBE_LIMIT
    yield "40 taps at either end %.2e below 1e-6" % np.abs(tails).max(), np.abs(tails).max() < TAIL_LIMIT
    yield "delay 960 frames", figures["delay frames"] == DELAY
    for name in ("white noise", "logarithmic sweep", "linear sweep", "impulse, worst phase"):
        yield "reconstruction, %s: %.2f dB, at least 85" % (name, figures[name]), figures[name] >= 85
    yield "ripple %.6f dB below 0.002" % figures["ripple"], figures["ripple"] < 0.002
    yield "stopband %.2f dB, at least 100" % figures["stopband"], figures["stopband"] >= 100
    yield "largest alias %.2f dB, at least 97" % figures["largest alias"], figures["largest alias"] >= 97


def check_file(path):
    """Prints every check and figure of a table file; true when all limits hold."""
    lpf = read_table(path)
    figures = measure(lpf)
    results = list(checks(lpf, figures))
    for text, holds in results:
        print("%-4s %s" % ("ok" if holds else "FAIL", text))
    print(
        "     impulse, mean of the 64 phases: %.2f dB; gain of the chain %.9f"
        % (figures["impulse, all phases"], figures["gain"])
    )
    return all(holds for _, holds in results)


if __name__ == "__main__":
    if len(sys.argv) != 2:
        sys.exit(__doc__)
    sys.exit(0 if check_file(sys.argv[1]) else 1)
