// Broadband levels.
// SPDX-License-Identifier: MIT
#include "cinema/levels.h"

#include "cinema/smoothing.h"
#include "lanes/lanes.h"

namespace zrk_tarn::TARN_INSTRUCTION_SET
{

namespace
{

template <int... kLane>
constexpr auto quadIndices(std::integer_sequence<int, kLane...>)
{
    return std::integer_sequence<int, (kLane % 4 * int{sizeof...(kLane) / 4} + kLane / 4)...>{};
}

/// One vector of samples, ordered so that transposedQuads puts neighbouring samples into one column.
Floats<kVectorFloats> loadForQuads(const float* samples) noexcept
{
    using Vector = Floats<kVectorFloats>;
    using Indices = decltype(quadIndices(std::make_integer_sequence<int, kVectorFloats>{}));
    const Vector inOrder = load<kVectorFloats>(samples);
    return {{shuffled<Vector::Part>(inOrder.part[0], inOrder.part[0], Indices{})}};
}

} // namespace

void computeMagnitudes(const ZRKTarn& engine, float (&magnitudes)[2][32][4]) noexcept
{
    const float* left = engine.inputHistory[0] + 1024 - 64;
    const float* right = engine.inputHistory[1] + 1024 - 64;
    float* out = magnitudes[0][0];
#pragma GCC unroll 1
    for (int t = 0; t < 64; t += kVectorFloats) {
        const Floats<kVectorFloats> l = loadForQuads(left + t);
        const Floats<kVectorFloats> r = loadForQuads(right + t);
        const Quads<kVectorFloats> quads = transposedQuads(abs(l), abs(r), abs(l + r), abs(l - r));
        for (const Floats<kVectorFloats>& column : quads.column) {
            store(out, column);
            out += kVectorFloats;
        }
    }
}

void setLevels(const float (&sums)[4], ZRKTarn& engine) noexcept
{
    constexpr float kMean = 1.0f / 64;
    constexpr float kBlockTimesRoot2 = 90.50967f;

    engine.levelL = sums[0] * kMean;
    engine.levelR = sums[1] * kMean;
    engine.levelSum = sums[2] / kBlockTimesRoot2;
    engine.levelDiff = sums[3] / kBlockTimesRoot2;
    smooth(engine.broadbandPair, engine.levelL, engine.avgLevelL);
    smooth(engine.broadbandPair, engine.levelR, engine.avgLevelR);
    smooth(engine.broadbandPair, engine.levelSum, engine.avgLevelSum);
    smooth(engine.broadbandPair, engine.levelDiff, engine.avgLevelDiff);
}

} // namespace zrk_tarn::TARN_INSTRUCTION_SET
