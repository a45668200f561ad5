// The steering thresholds.
// SPDX-License-Identifier: MIT
#include "engine/zrk_tarn.h"

// Made by `design_thresholds table` (tools/design_thresholds.cpp): the steering magnitude, the larger of
// left/right and front/back, that a diffuse field of independent pink noise exceeds at the rates below, at
// 48 kHz over 12000000 blocks; smoothed over neighbouring groups.
// H. Rohling, Radar CFAR thresholding in clutter and multiple target situations, IEEE Trans. AES-19, 1983.

// clang-format off

// Design goal: exceeded in 1 % of blocks. Measured: 0.94 to 1.06 %, by group. Standard error 0.0006 at most
const float ZRKTarn::THRES_BANDS[16] = {
    0.509f, 0.508f, 0.505f, 0.500f, 0.495f, 0.492f, 0.492f, 0.492f,
    0.493f, 0.494f, 0.495f, 0.498f, 0.501f, 0.504f, 0.506f, 0.509f,
};

// Design goal: exceeded in 10 % of blocks. Measured: 9.45 to 10.56 %, by group. Standard error 0.0003 at most
const float ZRKTarn::MIDTHRES_BANDS[16] = {
    0.347f, 0.346f, 0.344f, 0.339f, 0.334f, 0.330f, 0.329f, 0.328f,
    0.327f, 0.326f, 0.326f, 0.326f, 0.327f, 0.328f, 0.329f, 0.330f,
};

// Design goal: exceeded in 50 % of blocks. Measured: 48.76 to 50.88 %, by group. Standard error 0.0002 at most
const float ZRKTarn::SLOWTHRES_BANDS[16] = {
    0.191f, 0.190f, 0.189f, 0.186f, 0.182f, 0.179f, 0.178f, 0.177f,
    0.175f, 0.174f, 0.174f, 0.173f, 0.172f, 0.171f, 0.171f, 0.171f,
};

// clang-format on
