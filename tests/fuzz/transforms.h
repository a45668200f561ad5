// Compares the transforms of the filterbank with the reference.
// SPDX-License-Identifier: MIT
#pragma once

#include "tests/fuzz/byte_reader.h"

namespace fuzz
{

/// Compares a scalar transform, which engines do not call, with that of the reference on numbers from bytes. A
/// difference is printed to standard error and aborts.
void compareTransforms(ByteReader& bytes);

} // namespace fuzz
