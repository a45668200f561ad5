// Construction of an engine, and the operations that open, close and connect it.
// SPDX-License-Identifier: MIT
#include "engine/zrk_tarn.h"
#include "filterbank/cos_mod.h"

#include <algorithm>
#include <iterator>

ZRKTarn::ZRKTarn() noexcept
{
    broadbandPair[0] = 0.1f;
    broadbandPair[1] = 0.9f;
    std::copy(std::begin(POWER), std::end(POWER), power);
    std::copy(std::begin(MID), std::end(MID), mid);
    std::copy(std::begin(SLOWER), std::end(SLOWER), slower);
    std::copy(std::begin(SLOW), std::end(SLOW), slow);
    std::copy(std::begin(FAST), std::end(FAST), fast);
    mixFractionComplement = 1.0f;
    for (groupIndex = 0; groupIndex < 16; ++groupIndex) bandCount[groupIndex] = LOOP_COUNT48[groupIndex];
    bandIndex = 64; // the number of bands of this grouping
}

std::uint32_t ZRKTarn::Open() noexcept
{
    cosModTablesInit();
    return 0;
}

std::uint32_t ZRKTarn::Close() noexcept
{
    return 0;
}

std::uint32_t ZRKTarn::Uninitialize() noexcept
{
    return 0;
}

std::uint32_t ZRKTarn::Process(int** /*inputs*/, int** /*outputs*/, std::uint32_t /*count*/) noexcept
{
    return 0;
}

std::uint32_t ZRKTarn::SetChannelPtrs(std::uint8_t* a, std::uint8_t* b, std::uint8_t* c, std::uint8_t* d) noexcept
{
    channelPtr[0] = a;
    channelPtr[1] = b;
    channelPtr[2] = c;
    channelPtr[3] = d;
    return 0;
}

std::uint32_t ZRKTarn::SetReserved() noexcept
{
    reservedA = 1;
    reservedB = 2;
    return 0;
}
