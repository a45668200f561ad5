// Whether the processor is slow with subnormal numbers.
// SPDX-License-Identifier: MIT
#pragma once

namespace zrk_tarn
{

/// Whether stages avoid subnormal numbers with the arithmetic of lanes/subnormal_safe.h. Affects speed, never results.
///
/// Chosen for the processor when the library is loaded. Tests and measurements change it, but not while a block is
/// processed.
extern bool subnormalsAreSlow;

} // namespace zrk_tarn
