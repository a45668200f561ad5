"""Sets the floating-point mode of a thread."""
# SPDX-License-Identifier: MIT

import ctypes
import platform

import numpy


class FlushToZero:
    """Sets flush-to-zero and denormals-are-zero in the calling thread with fegetenv and fesetenv."""

    # Offset of the control word of the vector unit in fenv_t, and its bits.
    PLACES = {"x86_64": (28, 0x8040), "aarch64": (0, 1 << 24)}

    def __init__(self):
        self.library = ctypes.CDLL("libm.so.6")
        self.offset, self.bits = self.PLACES[platform.machine()]
        self.before = ctypes.create_string_buffer(64)

    def word(self, environment):
        return ctypes.c_uint32.from_buffer(environment, self.offset)

    def __enter__(self):
        self.library.fegetenv(self.before)
        changed = ctypes.create_string_buffer(self.before.raw, 64)
        self.word(changed).value |= self.bits
        self.library.fesetenv(changed)
        return self

    def holds(self):
        now = ctypes.create_string_buffer(64)
        self.library.fegetenv(now)
        small = numpy.full(1, 1e-30, numpy.float32)
        return self.word(now).value & self.bits == self.bits and (small * small)[0] == 0 and (small * 1e-10)[0] == 0

    def __exit__(self, *_):
        self.library.fesetenv(self.before)
