#pragma once

#include "tests/fuzz/byte_reader.h"

namespace fuzz
{

/// Compares a transform of the filterbank, which engines do not call, with the reference's on numbers made from bytes.
/// Where they differ, says so on standard error and aborts.
void compareTransforms(ByteReader& bytes);

} // namespace fuzz
