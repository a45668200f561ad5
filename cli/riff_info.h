#pragma once

#include <array>

namespace tarn
{

/// A name of RIFF INFO for a text.
struct InfoName
{
    const char* name; ///< of Vorbis comments
    const char* info;
};

/// RIFF INFO's names. Programs do not agree on that of the track number.
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
