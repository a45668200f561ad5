#include "cinema/histories.h"

#include <cstring>

namespace zrk_tarn
{

void moveHistories(ZRKTarn& engine) noexcept
{
    constexpr std::size_t kBlock = 64;
    constexpr std::size_t kKeptBytes = (1024 - kBlock) * sizeof(float);

    for (auto& history : engine.synthHistory) std::memmove(history + kBlock, history, kKeptBytes);
    for (auto& history : engine.inputHistory) std::memmove(history, history + kBlock, kKeptBytes);
    std::memcpy(engine.overlapNow, engine.overlapNext, sizeof engine.overlapNow);
    std::memset(engine.overlapNext, 0, sizeof engine.overlapNext);
}

} // namespace zrk_tarn
