"""Configurations with PCMs of type tarn that play into files, for the tests of the ALSA plug-in."""
# SPDX-License-Identifier: MIT

import os
from pathlib import Path

import numpy

from host_test import command_output

# Where ALSA's order finds the command's slots.
CHANNELS = {"2.0": (0, 1), "3.0": (0, 1, 2), "5.1": (0, 1, 4, 5, 2, 3), "7.1": (0, 1, 4, 5, 2, 3, 6, 7)}


class Setup:
    """PCMs by name, for this program and its child processes."""

    def __init__(self, module, directory):
        self.directory = Path(directory)
        self.text = f'pcm_type.tarn {{ lib "{module}" }}\n'
        self.layouts = {}
        file = self.directory / "asoundrc"
        os.environ["ALSA_CONFIG_PATH"] = f"/usr/share/alsa/alsa.conf:{file}"
        self.file = file

    def add(self, name, layout="3.0", fields=""):
        """Adds a PCM of type tarn that plays into a file without a clock."""
        output = self.directory / f"{name}.raw"
        self.text += f'pcm.{name}_file {{ type file slave.pcm null file "{output}" format raw }}\n'
        self.text += f'pcm.{name} {{ type tarn slave.pcm {name}_file layout "{layout}" {fields} }}\n'
        self.layouts[name] = layout
        self.file.write_text(self.text)
        return name

    def add_text(self, text):
        self.text += text + "\n"
        self.file.write_text(self.text)

    def played(self, name, bits):
        """The file as [frames, channels], left-aligned in 32 bits."""
        data = numpy.fromfile(self.directory / f"{name}.raw", numpy.uint8).reshape(-1, bits // 8)
        samples = numpy.zeros((len(data), 4), numpy.uint8)
        samples[:, 4 - bits // 8 :] = data
        return samples.view("<i4").reshape(-1, len(CHANNELS[self.layouts[name]]))

    def expected(self, name, source, bits=None, options=(), preset=None):
        """The output of the command for a file, in ALSA's channel order."""
        layout = self.layouts[name]
        return command_output(source, self.directory, layout, bits, options, preset)[:, CHANNELS[layout]]
