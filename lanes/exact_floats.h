// Refuses compiler options that change the results of floating-point arithmetic.
// SPDX-License-Identifier: MIT
#pragma once

#include <cfloat>
#include <type_traits>

// Results are defined to the last bit. These options reorder sums, replace divisions or ignore NaN and signed zeros.
// cmake/exact_floats.cmake refuses those without a macro.
#if defined __FAST_MATH__ || __FINITE_MATH_ONLY__ || defined __ASSOCIATIVE_MATH__ || defined __RECIPROCAL_MATH__ ||    \
    defined __NO_SIGNED_ZEROS__
#error "Tarn's results are defined to the last bit: compile without -ffast-math, -Ofast and the options that they set"
#endif

static_assert(FLT_EVAL_METHOD == 0,
              "Tarn needs arithmetic in the precision of its types: compile 32-bit x86 with -msse2 -mfpmath=sse");
static_assert(std::is_same_v<decltype(1.0), double>, "Tarn needs constants in double precision");
