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
from see_what_it_does import check_meter, check_picture, command_with, write_song

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
    for layout, fields, message in (
        ("3.0", "gain 19", "gain: '19' is not a number from -60 to 18; write for example gain -6.5"),
        ("3.0", "centre loud", "centre: 'loud' is not a number from -60 to 12; write for example centre 6"),
        ("3.0", "width 1.5", "width: '1.5' is not a number from 0 to 1; write for example width 0.5"),
        (
            "5.1",
            "surrounds on",
            "surrounds: 'on' is not off or a number from -60 to 12; write for example surrounds -6",
        ),
        ("3.0", "bass { }", "bass: { ... } is not steered or fronts; write for example bass steered"),
        ("3.0", "limiter maybe", "limiter: 'maybe' is not true or false; write for example limiter false"),
        ("3.0", "preset loud", "preset: 'loud' is not film, music, voice or plain; write for example preset voice"),
        ("3.0", "mode slow", "mode: 'slow' is not fast or calm; write for example mode calm"),
        ("3.0", "enabled maybe", "enabled: 'maybe' is not true or false; write for example enabled false"),
        ("4.0", "", "layout: '4.0' is not 2.0, 3.0, 5.1 or 7.1; write for example layout \"5.1\""),
        ("3.0", "surrounds -6", 'surrounds: layout 3.0 has no surround channels; write layout "5.1", or leave it out'),
        ("3.0", "lfe 0", 'lfe: layout 3.0 has no LFE channel; write layout "5.1", or leave it out'),
        ("2.0", "width 0.5", "width: has no effect on layout 2.0, which has no centre loudspeaker; leave it out"),
        ("2.0", "bass steered", "bass: has no effect on layout 2.0, which keeps the bass of the stereo; leave it out"),
        (
            "3.0",
            "gian 3",
            "there is no field gian; there are slave, layout, preset, centre, width, surrounds, bass, lfe, gain, "
            "limiter, mode and enabled",
        ),
    ):
        name = setup.add("wrong" + "".join(c for c in layout + fields if c.isalnum()), layout, fields)
        result = subprocess.run(["aplay", "-D", name, "/dev/zero"], capture_output=True, text=True, check=False)
        assert result.returncode != 0 and "tarn: " + message in result.stderr, (fields, result.stderr)
    setup.add_text("pcm.slaveless { type tarn }")
    for command, message in (
        (
            ("aplay", "-D", "slaveless", "/dev/zero"),
            'tarn: slave is missing: the PCM that plays the 3.0; write for example slave.pcm "hw:0"',
        ),
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
    """The configurations of docs/hosts/alsa.md, with files for the hardware: audio for each of them and for the default
    device is upmixed, and the default device still records.
    """
    page = (Path(__file__).parents[2] / "docs/hosts/alsa.md").read_text()
    tarn, voices = re.findall(r"^echo '(pcm\..*)' >> ~/\.asoundrc$", page, re.MULTILINE)
    (default,) = re.findall(r"^```\n(pcm\.!default .*?)^```$", page, re.MULTILINE | re.DOTALL)
    arguments = "@args [ CARD ] @args.CARD { type string default 0 }"
    outputs = [setup.directory / "page51.raw", setup.directory / "page20.raw"]
    files = [f'{{ type file slave.pcm null file "{output}" format raw }}' for output in outputs]
    setup.layouts |= {"page51": "5.1", "page20": "2.0"}
    setup.add_text(f"pcm.!surround51 {{ {arguments} {files[0][1:]}")
    setup.add_text(f"pcm.!sysdefault {{ type asym playback.pcm {files[1]} capture.pcm {{ type null }} }}")
    for text in (tarn, voices, default):
        setup.add_text(text)
    samples = known_signal(FRAMES, 16)
    file = setup.directory / "song.wav"
    write_stereo(file, samples, 48000, 16)
    for pcm, played, preset in (("tarn", "page51", None), ("default", "page51", None), ("voices", "page20", "voice")):
        expected = setup.expected(played, file, preset=preset)[:-LATENCY]
        play("aplay", pcm, 16, file)
        result = setup.played(played, 16)
        assert (result[LATENCY : LATENCY + len(expected)] == expected).all(), pcm
        (setup.directory / f"{played}.raw").unlink()
    write_song(samples, setup.directory)
    check_meter(command_with("alsa", "tarn meter"), samples, setup.directory)
    upmixed = setup.expected("page51", file)[:-LATENCY]
    assert (setup.played("page51", 16)[LATENCY : LATENCY + len(upmixed)] == upmixed).all(), "through tarn meter"
    check_picture("alsa", setup.directory)
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
