// The names of RIFF INFO fields.
// SPDX-License-Identifier: MIT
#pragma once

#include <array>

namespace tarn
{

/// A text in both naming schemes.
struct InfoName
{
    const char* name; ///< of the Vorbis comment
    const char* info; ///< of the RIFF INFO field
};

/// The RIFF INFO fields. Programs use two different fields for the track number.
inline constexpr std::array<InfoName, 12> kInfoNames{{{"TITLE", "INAM"},
                                                      {"ARTIST", "IART"},
                                                      {"ALBUM", "IPRD"},
                                                      {"DATE", "ICRD"},
                                                      {"TRACKNUMBER", "ITRK"},
                                                      {"TRACKNUMBER", "IPRT"},
                                                      {"GENRE", "IGNR"},
                                                      {"COMMENT", "ICMT"},
                                                      {"COPYRIGHT", "ICOP"},
                                                      {"COMPOSER", "IMUS"},
                                                      {"ENGINEER", "IENG"},
                                                      {"LANGUAGE", "ILNG"}}};

} // namespace tarn
