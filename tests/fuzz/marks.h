// Identifiers in audio files.
// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <string_view>

namespace fuzz
{

/// Identifiers that start the parts of audio files: chunks, pages, frames, blocks and tags.
inline constexpr auto kMarks = std::to_array<std::string_view>(
    {// containers and their audio
     "RIFF", "RF64", "riff", "FORM", "caff", ".snd", "fLaC", "OggS", "Xing", "Info", "fmt ", "ds64", "fact", "data",
     "COMM", "SSND", "desc", "pakt", "\xff\xfb", "\xff\xf8", "\x01vorbis", "\x05vorbis", "OpusHead",
     // tags
     "LIST", "INFO", "adtl", "bext", "cart", "iXML", "cue ", "smpl", "id3 ", "ID3 ", "NAME", "AUTH", "ANNO", "info",
     "ID3\x02", "ID3\x03", "ID3\x04", "3DI", "TAG", "APETAGEX", "APIC", "\x03vorbis", "OpusTags",
     "METADATA_BLOCK_PICTURE"});

} // namespace fuzz
