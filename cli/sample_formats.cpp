// Properties of libsndfile's format codes: sample width, stored bytes and names.
// SPDX-License-Identifier: MIT
#include "cli/sample_formats.h"

namespace tarn
{

std::uint32_t integerBits(int format) noexcept
{
    switch (format & SF_FORMAT_SUBMASK) {
    case SF_FORMAT_PCM_S8:
    case SF_FORMAT_PCM_U8:
        return 8;
    case SF_FORMAT_PCM_16:
    case SF_FORMAT_ALAC_16:
        return 16;
    case SF_FORMAT_ALAC_20:
        return 20;
    case SF_FORMAT_PCM_24:
    case SF_FORMAT_ALAC_24:
        return 24;
    case SF_FORMAT_PCM_32:
    case SF_FORMAT_ALAC_32:
        return 32;
    default:
        return 0;
    }
}

std::uint64_t storedBytes(int format) noexcept
{
    switch (format & SF_FORMAT_SUBMASK) {
    case SF_FORMAT_FLOAT:
        return 4;
    case SF_FORMAT_DOUBLE:
        return 8;
    case SF_FORMAT_ULAW:
    case SF_FORMAT_ALAW:
        return 1;
    case SF_FORMAT_ALAC_16:
    case SF_FORMAT_ALAC_20:
    case SF_FORMAT_ALAC_24:
    case SF_FORMAT_ALAC_32:
        return 0;
    default:
        return integerBits(format) / 8;
    }
}

std::string formatName(int format)
{
    SF_FORMAT_INFO description{};
    description.format = format;
    const bool known =
        sf_command(nullptr, SFC_GET_FORMAT_INFO, &description, sizeof description) == 0 && description.name != nullptr;
    return known ? description.name : "unknown";
}

} // namespace tarn
