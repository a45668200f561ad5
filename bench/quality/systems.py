"""Systems under test: each turns a stereo signal into front left, front right and centre.

All take [frames, 2] and give [frames, 3], order FL FR C, float64, full scale = 1.0, at the rate of the input in Hz.
`stream` is what comes out of a running system, late by its delay; `aligned` has the delay taken out. Both give as many
frames as they are given.
"""

from pathlib import Path
import shutil
import subprocess
import tempfile

import numpy as np
import soundfile

import measures


class MeasurementError(RuntimeError):
    """A system under test failed; the message is for the user."""


def run_command(arguments, **options):
    """Runs a command and returns its standard output; raises with its messages if it fails."""
    result = subprocess.run([str(argument) for argument in arguments], capture_output=True, **options)
    if result.returncode != 0:
        raise MeasurementError(f"{arguments[0]}: exit {result.returncode}\n{result.stderr.decode(errors='replace')}")
    return result.stdout


class Tarn:
    """The `tarn` command, files in 24 bits."""

    def __init__(self, command, mode=1):
        self.command = command
        self.mode = mode
        self.name = "tarn" if mode == 1 else f"tarn-mode{mode}"
        self.label = "Tarn" if mode == 1 else f"Tarn, mode {mode}"

    def _run(self, stereo, rate, *options):
        with tempfile.TemporaryDirectory() as directory:
            source, result = Path(directory) / "in.wav", Path(directory) / "out.wav"
            soundfile.write(source, stereo, rate, "PCM_24")
            run_command([self.command, "upmix", "--quiet", "--mode", self.mode, *options, source, result])
            output, _ = soundfile.read(result)
        if output.shape != (len(stereo), 3):
            raise MeasurementError(f"{self.command}: {output.shape} samples out, {stereo.shape} in")
        if np.abs(output).max() >= 1 - 2**-23:
            raise MeasurementError(f"{self.command}: the output clips, no figure would mean anything")
        return output

    def stream(self, stereo, rate):
        return self._run(stereo, rate, "--no-align")

    def aligned(self, stereo, rate):
        return self._run(stereo, rate)


class FixedMatrix:
    """FL = L, FR = R, C = (L + R) / 2: no steering at all. Shows where the scales of the figures begin."""

    name, label = "fixed-matrix", "fixed matrix"

    def stream(self, stereo, rate):
        return np.column_stack([stereo, stereo.mean(axis=1)])

    aligned = stream


class FfmpegFilter:
    """A filter of FFmpeg, floating point in and out. Its delay is measured once per rate and taken out."""

    # More than the delay of any filter here, so that its tail comes out.
    PADDING_FRAMES = 16384

    def __init__(self, name, graph):
        self.name = name
        self.label = f"FFmpeg {name}"
        self.graph = graph
        self._delays = {}

    def stream(self, stereo, rate):
        pcm = ["-f", "f32le", "-ar", rate]
        command = ["ffmpeg", "-nostdin", "-v", "error", *pcm, "-ac", 2, "-i", "pipe:0", "-af", self.graph]
        # No -ac for the output: it asks for 2.1, and the filter's 3.0 would be remixed to that.
        command += ["-c:a", "pcm_f32le", *pcm, "pipe:1"]
        padded = np.vstack([stereo, np.zeros((self.PADDING_FRAMES, 2))])
        output = np.frombuffer(run_command(command, input=padded.astype("<f4").tobytes()), "<f4").reshape(-1, 3)
        if len(output) < len(stereo):
            raise MeasurementError(f"ffmpeg {self.name}: {len(output)} frames out, {len(stereo)} in")
        return output[: len(stereo)].astype(np.float64)

    def delay(self, rate):
        """Frames by which the stream is late at this rate."""
        if rate not in self._delays:
            noise = 0.05 * np.random.default_rng(0).standard_normal(rate)
            output = self.stream(np.column_stack([noise, noise]), rate)
            self._delays[rate] = measures.delay_frames(noise, output.sum(axis=1))
        return self._delays[rate]

    def aligned(self, stereo, rate):
        delay = self.delay(rate)
        return self.stream(np.vstack([stereo, np.zeros((delay, 2))]), rate)[delay:]


def peers():
    """The systems to compare with that are installed here, and a note for each that is not."""
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
    """First lines of what the commands say about themselves."""
    found = {"tarn": run_command([tarn, "--version"])}
    if shutil.which("ffmpeg"):
        found["ffmpeg"] = run_command(["ffmpeg", "-version"])
    return {name: text.decode().splitlines()[0] for name, text in found.items()}
