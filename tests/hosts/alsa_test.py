#!/usr/bin/env python3
"""Plays a known signal through the ALSA plug-in with a program: alsa_test.py HOST MODULE. HOST is aplay, ffmpeg, mpv
or sox. The whole path has integers, so every sample has to equal the command's.
"""
# SPDX-License-Identifier: MIT

from pathlib import Path
import re
import subprocess
import sys
import tempfile

import numpy
import soundfile

from alsa_setup import Setup
from host_test import LATENCY, Row, known_signal, passed, position_of, write_stereo

PLAYERS = {
    "aplay": lambda pcm, bits, file: ["aplay", "-q", "-D", pcm, file],
    "ffmpeg": lambda pcm, bits, file: [
        "ffmpeg",
        "-v",
        "error",
        "-i",
        file,
        "-c:a",
        f"pcm_s{bits}le",
        "-f",
        "alsa",
        pcm,
    ],
    "mpv": lambda pcm, bits, file: [
        *("mpv", "--no-config", "--no-video", "--really-quiet", "--ao=alsa", f"--audio-device=alsa/{pcm}"),
        *(f"--audio-format=s{bits}", file),
    ],
    "sox": lambda pcm, bits, file: ["sox", "-q", "-D", file, "-t", "alsa", "-b", str(bits), pcm],
}
NAMES = {"aplay": "aplay", "ffmpeg": "FFmpeg", "mpv": "mpv", "sox": "SoX"}
# FFmpeg and mpv have no packed 24 bits.
WIDTHS = {"aplay": (16, 24, 32), "ffmpeg": (16, 32), "mpv": (16, 32), "sox": (16, 24, 32)}
# About two seconds at 48 kHz; not a multiple of any buffer size.
FRAMES = 96321


def play(host, pcm, bits, file):
    subprocess.run(PLAYERS[host](pcm, bits, file), check=True, stdin=subprocess.DEVNULL, timeout=60)


def check_messages(setup):
    """A wrong configuration is refused with a message."""
    for fields, message in (
        ("gain 19", "tarn: gain has to be -60 to 18, in dB"),
        ("mode slow", "tarn: mode has to be fast or calm"),
        ("enabled maybe", "tarn: enabled has to be true or false"),
        ("gian 3", "tarn: there is no field gian; there are slave, layout, enabled, mode and gain"),
    ):
        name = setup.add("wrong" + "".join(c for c in fields if c.isalnum()), fields=fields)
        result = subprocess.run(["aplay", "-D", name, "/dev/zero"], capture_output=True, text=True, check=False)
        assert result.returncode != 0 and message in result.stderr, (fields, result.stderr)
    setup.add_text("pcm.slaveless { type tarn }")
    for command, message in (
        (("aplay", "-D", "slaveless", "/dev/zero"), "tarn: slave is missing"),
        (("arecord", "-D", setup.add("recording"), "-d1", "/dev/null"), "tarn: only plays"),
        (("aplay", "-D", setup.add("rate"), "-r22050", "-c2", "-fS16_LE", "-d1", "/dev/zero"), "tarn: 22050 Hz: "),
    ):
        result = subprocess.run(command, capture_output=True, text=True, check=False)
        assert result.returncode != 0 and message in result.stderr, (command, result.stderr)


def check_plug(setup):
    """With ALSA's plug any file plays: supported formats stay exact, other rates are converted."""
    name = setup.add("behind")
    setup.add_text(f"pcm.any {{ type plug slave {{ pcm {name} rate 48000 }} }}")
    samples = known_signal(FRAMES, 32)
    file = setup.directory / "any.wav"
    for rate, bits in ((48000, 32), (22050, 16)):
        write_stereo(file, samples, rate, bits)
        play("aplay", "any", bits, file)
        result = setup.played(name, bits)
        if rate == 48000:
            expected = setup.expected(name, file)[:-LATENCY]
            assert (result[LATENCY : LATENCY + len(expected)] == expected).all(), "behind a plug"
        else:
            assert abs(len(result) - FRAMES * 48000 / rate) < 48000 / 4, len(result)  # the last period is filled


def check_page(setup):
    """The configurations of docs/hosts/alsa.md, with stubs for the hardware: audio for tarn and for the default
    device is upmixed, and the default device still records.
    """
    page = (Path(__file__).parents[2] / "docs/hosts/alsa.md").read_text()
    (tarn,) = re.findall(r"^echo '(pcm\.tarn .*)' >> ~/\.asoundrc$", page, re.MULTILINE)
    (default,) = re.findall(r"^```\n(pcm\.!default .*?)^```$", page, re.MULTILINE | re.DOTALL)
    (device,) = re.findall(r'slave\.pcm "(.*?):0"', tarn)
    output = setup.directory / "page.raw"
    setup.layouts["page"] = "5.1"
    arguments = "@args [ CARD ] @args.CARD { type string default 0 }"
    setup.add_text(f'pcm.!{device} {{ {arguments} type file slave.pcm null file "{output}" format raw }}')
    setup.add_text("pcm.!sysdefault { type null }")
    setup.add_text(tarn)
    setup.add_text(default)
    samples = known_signal(FRAMES, 16)
    file = setup.directory / "song.wav"
    write_stereo(file, samples, 48000, 16)
    expected = setup.expected("page", file)[:-LATENCY]
    for pcm in ("tarn", "default"):
        play("aplay", pcm, 16, file)
        result = setup.played("page", 16)
        assert (result[LATENCY : LATENCY + len(expected)] == expected).all(), pcm
        output.unlink()
    recorded = setup.directory / "recorded.wav"
    subprocess.run(["arecord", "-q", "-f", "dat", "-s", "48000", recorded], check=True, timeout=60)
    assert soundfile.info(recorded).frames == 48000


def main():
    host, module = sys.argv[1:]
    compared = 0
    with tempfile.TemporaryDirectory() as directory:
        setup = Setup(module, directory)
        for layout in ("3.0", "5.1"):
            for rate in (44100, 48000, 96000):
                for bits in WIDTHS[host]:
                    source, played = setup.directory / "source.wav", setup.directory / "played.wav"
                    samples = known_signal(FRAMES, bits)
                    write_stereo(source, samples, rate, bits)
                    silence = numpy.zeros((LATENCY, 2), samples.dtype)  # flushes the tail
                    write_stereo(played, numpy.concatenate([samples, silence]), rate, bits)
                    name = setup.add(f"tarn{layout[0]}_{rate}_{bits}", layout)
                    play(host, name, bits, played)
                    result = setup.played(name, bits)
                    expected = setup.expected(name, source, bits)
                    measured = position_of(result[:6000], expected[:4000])
                    assert measured == LATENCY, (layout, rate, bits, measured)
                    differing = numpy.count_nonzero(result[measured : measured + FRAMES] != expected)
                    assert differing == 0, f"{layout}, {rate} Hz, {bits} bits: {differing} samples differ"
                    # Programs may fill their last period with silence.
                    assert len(result) >= LATENCY + FRAMES, (layout, rate, bits, len(result))
                    compared += expected.size
        if host == "aplay":
            check_messages(setup)
            check_plug(setup)
            check_page(setup)
    passed(Row(f"ALSA: {NAMES[host]}", compared, 0, max(WIDTHS[host]), "not in the interface", measured))


main()
