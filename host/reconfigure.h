// Applies the stored configuration of a processor to its engine.
// SPDX-License-Identifier: MIT
#pragma once

#include "host/zrk_tarn_processor.h"

namespace zrk_tarn
{

/// Initializes the engine, which must exist, with the stored configuration and stream format. Real-time safe.
void initializeEngine(zrk_tarn_processor_t& processor) noexcept;

/// Initializes the engine between blocks with the configuration that setup stored, for the format of the last process
/// call.
///
/// Signal histories stay. The steering pairs are reset to their constants first, because Initialize scales the current
/// ones: the result does not depend on earlier configurations. Does nothing without an engine. Real-time safe.
void reconfigure(zrk_tarn_processor_t& processor) noexcept;

/// Replaces the engine's state by that of a new, silent engine with the stored configuration and the format of the last
/// process call. Does nothing without an engine. Real-time safe.
void restart(zrk_tarn_processor_t& processor) noexcept;

} // namespace zrk_tarn
