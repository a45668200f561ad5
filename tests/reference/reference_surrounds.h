// The surround channels of the reference: a literal implementation to compare the optimised one with.
// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <cstdint>
#include <deque>

namespace reference
{

/// Surround channels, one value at a time. Members with the names of zrk_tarn::Surrounds have its values.
struct Surrounds
{
    /// Clears everything and sets the rate and the number of chains.
    Surrounds(std::uint32_t sampleRateHz, int chains);

    /// Renders one block.
    void render(const float (&subband)[2][64], const std::int32_t (&bandCount)[16]);

    float leftLeft[16] = {};
    float rightRight[16] = {};
    float leftRight[16] = {};
    float leftWeight[16] = {};
    float rightWeight[16] = {};
    float difference[64] = {};
    float synthHistory[1024] = {};
    float overlapNow[64] = {};
    float overlapNext[64] = {};
    float output[4][64] = {};

private:
    /// w[n - delay] to w[n - 1], and the gain.
    struct Section
    {
        std::deque<float> w;
        float gain;

        float filter(float x);
    };

    void smoothCovariances(const float (&subband)[2][64], const std::int32_t (&bandCount)[16]);
    void findWeights(int group);
    void synthesise(float (&samples)[64]);

    float alpha;
    std::deque<std::array<float, 128>> past; ///< left and right subbands of the blocks of the look-ahead, oldest first
    std::deque<std::array<Section, 2>> chains;
};

/// Calls compare(name, library's field, reference's field) for all fields that both have.
template <typename LibrarySurrounds, typename Compare>
void forEachCommonField(const LibrarySurrounds& library, const Surrounds& reference, Compare compare)
{
    compare("leftLeft", library.leftLeft, reference.leftLeft);
    compare("rightRight", library.rightRight, reference.rightRight);
    compare("leftRight", library.leftRight, reference.leftRight);
    compare("leftWeight", library.leftWeight, reference.leftWeight);
    compare("rightWeight", library.rightWeight, reference.rightWeight);
    compare("difference", library.difference, reference.difference);
    compare("synthHistory", library.synthHistory, reference.synthHistory);
    compare("overlapNow", library.overlapNow, reference.overlapNow);
    compare("overlapNext", library.overlapNext, reference.overlapNext);
    compare("output", library.output, reference.output);
}

} // namespace reference
