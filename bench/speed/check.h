#pragma once

namespace speed
{

/// Compares every byte of the output of every usable instruction set and format with that of the reference engine, over
/// music and the silence behind it, and that of the stages one by one too. Prints where they first differ; a wrong
/// result has no speed.
bool sameAsReference();

} // namespace speed
