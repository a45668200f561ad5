// The steering thresholds.
// SPDX-License-Identifier: MIT
#include "engine/zrk_tarn.h"

// Made by tools/design_thresholds.py, at 48 kHz. Figures of the design:
//   artefacts in C, dB: -22.49
//   in all outputs, dB: -16.02
//   speech in C, %: 90.8
//   flutter, dB: 3.02
//   centred burst in C, %: 65.1
//   side burst in C, %: 12.7
//   jump left to right, blocks: 75
//   left to centre, blocks: 80

// clang-format off

const float ZRKTarn::THRES_BANDS[16] = {
    0.740f, 0.740f, 0.660f, 0.660f, 0.660f, 0.660f, 0.660f, 0.660f,
    0.660f, 0.660f, 0.660f, 0.660f, 0.660f, 0.660f, 0.660f, 0.660f,
};

const float ZRKTarn::MIDTHRES_BANDS[16] = {
    0.730f, 0.730f, 0.650f, 0.650f, 0.650f, 0.650f, 0.650f, 0.650f,
    0.650f, 0.650f, 0.650f, 0.650f, 0.650f, 0.650f, 0.650f, 0.650f,
};

const float ZRKTarn::SLOWTHRES_BANDS[16] = {
    0.690f, 0.690f, 0.640f, 0.640f, 0.640f, 0.640f, 0.640f, 0.640f,
    0.640f, 0.640f, 0.640f, 0.640f, 0.640f, 0.640f, 0.640f, 0.640f,
};

// clang-format on
