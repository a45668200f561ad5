// Translates a processor's configuration and stream format into the engine's parameters.
#pragma once

#include "host/zrk_tarn_processor.h"

namespace zrk_tarn
{

/// Initializes the processor's engine, which must exist, with the stored configuration and stream format.
void initializeEngine(zrk_tarn_processor_t& processor) noexcept;

} // namespace zrk_tarn
