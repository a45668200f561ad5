// The names of RIFF INFO fields.
// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <string_view>

namespace tarn
{

/// A text in both naming schemes.
struct InfoName
{
    const char* name;      ///< of the Vorbis comment
    std::string_view info; ///< of the RIFF INFO field
};

/// The RIFF INFO fields with an equivalent. Programs use two different fields for the track number.
inline constexpr std::array<InfoName, 26> kInfoNames{
    {{"TITLE", "INAM"},       {"ARTIST", "IART"},      {"ALBUM", "IPRD"},          {"DATE", "ICRD"},
     {"TRACKNUMBER", "ITRK"}, {"TRACKNUMBER", "IPRT"}, {"GENRE", "IGNR"},          {"COMMENT", "ICMT"},
     {"COPYRIGHT", "ICOP"},   {"COMPOSER", "IMUS"},    {"ENGINEER", "IENG"},       {"LANGUAGE", "ILNG"},
     {"SUBJECT", "ISBJ"},     {"KEYWORDS", "IKEY"},    {"MEDIA", "IMED"},          {"ISRC", "ISRC"},
     {"PERFORMER", "ISTR"},   {"LYRICIST", "IWRI"},    {"PRODUCER", "IPRO"},       {"BPM", "IBPM"},
     {"LABEL", "IPUB"},       {"REMIXER", "IEDT"},     {"RELEASECOUNTRY", "ICNT"}, {"ARTISTWEBPAGE", "IBSU"},
     {"ENCODEDBY", "ITCH"},   {"ENCODER", "ISFT"}}};

} // namespace tarn
