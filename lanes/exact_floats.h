// Refuses compiler options that change the results of floating-point arithmetic.
// SPDX-License-Identifier: MIT
#pragma once

#include <cfloat>

// Results are defined to the last bit. These options reorder sums, replace divisions or ignore NaN and signed zeros.
#if defined __FAST_MATH__ || __FINITE_MATH_ONLY__ || defined __ASSOCIATIVE_MATH__ || defined __RECIPROCAL_MATH__
#error "Tarn's results are defined to the last bit: compile without -ffast-math, -Ofast and the options that they set"
#endif

static_assert(FLT_EVAL_METHOD == 0,
              "Tarn needs arithmetic in the precision of its types: compile 32-bit x86 with -msse2 -mfpmath=sse");
