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

/// The engine and the reference engine, driven alike and compared after every step.
class EngineTwins
{
public:
    /// Opens both.
    EngineTwins();

    /// Initialises both; the result codes and the records must agree.
    void initialise(Tarn_Parameters parameters);

    void setRemapCoeff(int (&coeff)[3][4]);

    /// Runs one block of a signal through a buffer of slots, the channels lying in slots 0 to 3.
    ///
    /// The slots are filled from the signal, or with noise where it has no channel; then bytes and records must agree.
    void runBlock(Path path, Signal signal, std::uint32_t frames, std::uint32_t slots, Random& random);

    ZRKTarn& engine() { return *engine_; }
    reference::Engine& reference() { return *reference_; }

private:
    void expectSame(const std::uint8_t* buffer, const std::uint8_t* referenceBuffer) const;

    std::unique_ptr<ZRKTarn> engine_ = std::make_unique<ZRKTarn>();
    std::unique_ptr<reference::Engine> reference_ = std::make_unique<reference::Engine>();
    std::uint64_t time_ = 0;
};

} // namespace tests
