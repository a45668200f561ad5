"""Systems under test, which turn stereo into front left, front right and centre.

All map [frames, 2] to [frames, 3], order FL FR C, float64, full scale = 1.0, at the rate of the input in Hz. `stream`
is the output of a running system with its delay; `aligned` has the delay removed. Both keep the number of frames.
"""
# SPDX-License-Identifier: MIT

from pathlib import Path
import re
import shutil
import subprocess
import tempfile

import numpy as np
import soundfile

import measures


class MeasurementError(RuntimeError):
    """A system under test failed; the message is for the user."""


def run_command(arguments, **options):
    """Runs a command and returns its standard output. If it fails, the error has its messages."""
    result = subprocess.run([str(argument) for argument in arguments], capture_output=True, **options)
    if result.returncode != 0:
        raise MeasurementError(f"{arguments[0]}: exit {result.returncode}\n{result.stderr.decode(errors='replace')}")
    return result.stdout


def upmix(command, stereo, rate, options):
    """All channels of `tarn upmix` with 24-bit files."""
    with tempfile.TemporaryDirectory() as directory:
        source, result = Path(directory) / "in.wav", Path(directory) / "out.wav"
        soundfile.write(source, stereo, rate, "PCM_24")
        run_command([command, "upmix", "--quiet", *options, source, result])
        outputs, _ = soundfile.read(result)
    if len(outputs) != len(stereo):
        raise MeasurementError(f"{command}: {len(outputs)} frames out, {len(stereo)} in")
    if np.abs(outputs).max() >= 1 - 2**-23:
        raise MeasurementError(f"{command}: the output clips, so the figures would be invalid")
    return outputs


# Modes of the `tarn` command; the first is its default.
MODES = ("fast", "calm")


class Tarn:
    """The `tarn` command."""

    def __init__(self, command, mode=MODES[0]):
        self.command = command
        self.mode = mode
        self.label = "Tarn" if mode == MODES[0] else f"Tarn, {mode}"

    def _run(self, stereo, rate, *options):
        return upmix(self.command, stereo, rate, ["--preset", "plain", "--mode", self.mode, *options])

    def stream(self, stereo, rate):
        return self._run(stereo, rate, "--no-align")

    def aligned(self, stereo, rate):
        return self._run(stereo, rate)


class FixedMatrix:
    """FL = L, FR = R, C = (L + R) / 2: no steering. It is the baseline of the figures."""

    label = "fixed matrix"

    def stream(self, stereo, rate):
        return np.column_stack([stereo, stereo.mean(axis=1)])

    aligned = stream


class PlainStereo:
    """FL = L, FR = R, C silent: the phantom centre of the stereo."""

    label = "stereo"

    def stream(self, stereo, rate):
        return np.column_stack([stereo, np.zeros(len(stereo))])

    aligned = stream


class FfmpegFilter:
    """A filter of FFmpeg with floating-point samples. Its delay is measured once per rate and removed."""

    # Exceeds the delay of every filter here, so that the output has its whole tail.
    PADDING_FRAMES = 16384

    def __init__(self, name, graph, channels=3):
        self.name = name
        self.label = f"FFmpeg {name}"
        self.graph = graph
        self.channels = channels
        self._delays = {}

    def stream(self, stereo, rate):
        pcm = ["-f", "f32le", "-ar", rate]
        command = ["ffmpeg", "-nostdin", "-v", "error", *pcm, "-ac", 2, "-i", "pipe:0", "-af", self.graph]
        # The output has no -ac 3: it means 2.1, to which FFmpeg would remix the 3.0 of the filter.
        command += ["-c:a", "pcm_f32le", *pcm, "pipe:1"]
        padded = np.vstack([stereo, np.zeros((self.PADDING_FRAMES, 2))])
        output = np.frombuffer(run_command(command, input=padded.astype("<f4").tobytes()), "<f4").reshape(
            -1, self.channels
        )
        if len(output) < len(stereo):
            raise MeasurementError(f"ffmpeg {self.name}: {len(output)} frames out, {len(stereo)} in")
        return output[: len(stereo)].astype(np.float64)

    def delay(self, rate):
        """Delay of the stream at this rate, in frames."""
        if rate not in self._delays:
            noise = 0.05 * np.random.default_rng(0).standard_normal(rate)
            output = self.stream(np.column_stack([noise, noise]), rate)
            self._delays[rate] = measures.delay_frames(noise, output.sum(axis=1))
        return self._delays[rate]

    def aligned(self, stereo, rate):
        delay = self.delay(rate)
        return self.stream(np.vstack([stereo, np.zeros((delay, 2))]), rate)[delay:]


def peers():
    """The installed systems for the comparison, and a note for each missing one."""
    if not shutil.which("ffmpeg"):
        return [], ["ffmpeg is not installed: its filters are left out"]
    filters = run_command(["ffmpeg", "-hide_banner", "-filters"]).decode()
    available, notes = [], []
    for name, graph in (("surround", "surround=chl_in=stereo:chl_out=3.0"), ("dialoguenhance", "dialoguenhance")):
        if f" {name} " in filters:
            available.append(FfmpegFilter(name, graph))
        else:
            notes.append(f"this ffmpeg has no filter {name}: it is left out")
    return available, notes


def versions(tarn):
    """Versions of the installed commands that the figures depend on."""
    commands = {"tarn": [tarn, "--version"], "FFmpeg": ["ffmpeg", "-version"], "espeak-ng": ["espeak-ng", "--version"]}
    found = {}
    for name, command in commands.items():
        if shutil.which(command[0]):
            first_line = run_command(command).decode().splitlines()[0]
            number = re.search(r"\d+\.\S+", first_line)
            found[name] = number[0] if number else first_line
    return found
