// Appends RIFF INFO, ID3v2 and other chunks to a WAV file.
// SPDX-License-Identifier: MIT
#include "cli/wave_tags.h"

#include "cli/descriptor.h"
#include "cli/id3v2_tags.h"
#include "cli/riff_info.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>

#include <infotag.h>
#include <sys/stat.h>
#include <unistd.h>

namespace tarn
{

namespace
{

using TagLib::ByteVector;

bool isUpper(const std::string& text)
{
    return std::ranges::all_of(text, [](char c) { return c >= 'A' && c <= 'Z'; });
}

ByteVector infoList(const TagLib::PropertyMap& texts)
{
    TagLib::RIFF::Info::Tag tag;
    for (const auto& [name, info] : kInfoNames)
        if (const auto found = texts.find(name); found != texts.end())
            tag.setFieldText(ByteVector(info.data(), static_cast<unsigned>(info.size())), found->second.toString("; "));
    // Fields without an equivalent have their own names.
    for (const auto& [name, values] : texts) {
        const std::string text = name.to8Bit(true);
        const bool isField = text.size() == 4 && text.front() == 'I' && isUpper(text);
        const bool isTranslated = std::ranges::find(kInfoNames, text, &InfoName::info) != kInfoNames.end();
        if (isField && !isTranslated) tag.setFieldText(ByteVector(text.c_str()), values.toString("; "));
    }
    return tag.render();
}

/// Builds a chunk: name, 32-bit size, contents, padding to an even size.
ByteVector chunk(const char* name, const ByteVector& contents)
{
    ByteVector bytes(name, 4);
    bytes.append(ByteVector::fromUInt(contents.size(), false));
    bytes.append(contents);
    if (contents.size() % 2 != 0) bytes.append('\0');
    return bytes;
}

/// Writes the file size into the header: 32 bits in RIFF, 64 bits in the first chunk of RF64.
int writeRiffSize(int descriptor, bool isRf64, std::uint64_t fileSize)
{
    const std::uint64_t size = fileSize - 8;
    const ByteVector bytes = isRf64 ? ByteVector::fromLongLong(static_cast<long long>(size), false)
                                    : ByteVector::fromUInt(static_cast<unsigned>(size), false);
    constexpr off_t kRiffSize = 4;
    constexpr off_t kRf64Size = 20;
    const ssize_t written = pwrite(descriptor, bytes.data(), bytes.size(), isRf64 ? kRf64Size : kRiffSize);
    return written == static_cast<ssize_t>(bytes.size()) ? 0 : written < 0 ? errno : EIO;
}

} // namespace

int appendTags(int descriptor, const Metadata& metadata, std::vector<std::string>& leftOut)
{
    const Tags& tags = metadata.tags;
    ByteVector chunks;
    if (const ByteVector info = infoList(tags.texts); !info.isEmpty()) chunks.append(chunk("LIST", info));
    if (const ByteVector id3v2 = id3v2Tag(tags, leftOut); !id3v2.isEmpty()) chunks.append(chunk("id3 ", id3v2));
    for (const FlacBlock& block : tags.flacBlocks) leftOut.push_back("WAV has no place for the " + block.name());
    for (const auto& [name, contents] : metadata.chunks)
        chunks.append(chunk(name.c_str(), ByteVector(contents.data(), static_cast<unsigned>(contents.size()))));
    if (chunks.isEmpty()) return 0;

    std::array<char, 4> mark{};
    if (pread(descriptor, mark.data(), mark.size(), 0) != static_cast<ssize_t>(mark.size())) return errno;
    const bool isRf64 = std::string_view(mark.data(), mark.size()) == "RF64";
    off_t end = lseek(descriptor, 0, SEEK_END);
    if (end < 0) return errno;
    if (end % 2 != 0) chunks = ByteVector("\0", 1) + chunks;
    const std::uint64_t size = static_cast<std::uint64_t>(end) + chunks.size();
    if (!isRf64 && size > UINT32_MAX) {
        leftOut.emplace_back("WAV of 4 GiB has no room for tags and chunks");
        return 0;
    }
    if (const int error = writeAll(descriptor, chunks.data(), chunks.size()); error != 0) return error;
    return writeRiffSize(descriptor, isRf64, size);
}

} // namespace tarn
