// The engine and the reference engine, compared after every step.
// SPDX-License-Identifier: MIT
#pragma once

#include "engine/zrk_tarn.h"
#include "tests/reference/reference_engine.h"
#include "tests/support/guarded_buffer.h"
#include "tests/support/record_compare.h"
#include "tests/support/signals.h"

#include <memory>

namespace tests
{

/// The two block operations.
enum class Path
{
    Plain,
    Remap
};

/// Runs the same steps on both engines and compares all results.
class EnginePair
{
public:
    /// Opens both.
    EnginePair();

    /// Initializes both.
    void initialize(Tarn_Parameters parameters);

    void setRemapCoeff(int (&coeff)[3][4]);

    /// Runs one block of a signal in a buffer with the channels in slots 0 to 3. Other slots hold noise.
    void runBlock(Path path, Signal signal, std::uint32_t frames, std::uint32_t slots, Random& random);

    ZRKTarn& engine() { return *ownEngine; }
    reference::Engine& reference() { return *ownReference; }

private:
    void expectSame(const std::uint8_t* buffer, const std::uint8_t* referenceBuffer) const;

    std::unique_ptr<ZRKTarn> ownEngine = std::make_unique<ZRKTarn>();
    std::unique_ptr<reference::Engine> ownReference = std::make_unique<reference::Engine>();
    std::uint64_t time = 0;
};

} // namespace tests
