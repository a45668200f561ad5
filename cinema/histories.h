#pragma once

#include "engine/zrk_tarn.h"

namespace zrk_tarn
{

/// Moves all histories on by one block of 64.
///
/// synthHistory [3][1024] moves up (newest first), inputHistory [2][1024] down (oldest first); overlapNow takes
/// overlapNext, which is cleared.
void moveHistories(ZRKTarn& engine) noexcept;

} // namespace zrk_tarn
