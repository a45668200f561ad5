// The host object: construction and configuration.
// SPDX-License-Identifier: MIT
#include "host/zrk_tarn_processor.h"

zrk_tarn_processor_t::zrk_tarn_processor_t() noexcept = default;

zrk_tarn_processor_t::~zrk_tarn_processor_t()
{
    if (engine != nullptr) engine->Close();
    delete engine;
}

std::uint32_t zrk_tarn_processor_t::setup(std::int32_t newMode, std::int32_t newOption, float newMixFraction) noexcept
{
    mode = newMode;
    option = newOption;
    mixFraction = newMixFraction;
    return 0;
}

std::uint32_t zrk_tarn_processor_t::set_remap_coeff(unsigned (*coeff)[4]) noexcept
{
    for (int r = 0; r < 3; ++r)
        for (int c = 0; c < 4; ++c) remapCoeff[r][c] = coeff[r][c];
    return 0;
}
