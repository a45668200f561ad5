// Encodes FLAC with libFLAC, with comments, pictures and metadata blocks.
// SPDX-License-Identifier: MIT
#include "cli/flac_sink.h"

#include "cli/failure.h"
#include "cli/flac_blocks.h"
#include "cli/text.h"
#include "cli/wave_chunks.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>

#include <unistd.h>

namespace tarn
{

namespace
{

constexpr std::uint32_t kCompressionLevel = 5; ///< libFLAC's default
constexpr std::uint32_t kPaddingBytes = 8192;  ///< lets editors change tags without rewriting the file
constexpr std::size_t kMaxBlockBytes = (std::size_t{1} << 24) - 1;
constexpr std::size_t kBlockReserve = 65536; ///< bytes of a block for its fixed fields
constexpr int kFileIcon = 1;                 ///< type of picture
constexpr int kOtherFileIcon = 2;
constexpr int kLastPictureKind = 20;

/// Whether libFLAC accepts a text. It frees a comment that it refuses, and libFLAC++ frees it again: never pass one.
bool isLegalText(const std::string& text)
{
    return text.find('\0') == std::string::npos &&
           FLAC__format_vorbiscomment_entry_value_is_legal(reinterpret_cast<const FLAC__byte*>(text.data()),
                                                           static_cast<std::uint32_t>(text.size())) != 0;
}

} // namespace

FlacSink::FlacSink(const std::string& path, bool force, std::optional<FileIdentity> input, const FileContents& contents)
    : slots(contents.layout.slots),
      bits(contents.format.bits),
      file(path, force, input, contents.beforeNaming),
      encoder(file.descriptor())
{
    addComments(contents.layout, contents.metadata.tags);
    addPictures(contents.metadata.tags.pictures);
    addBlocks(contents.metadata.tags.flacBlocks);
    if (contents.metadata.broadcast) leftOut.emplace_back("FLAC has no place for the broadcast extension");
    for (const Chunk& chunk : contents.metadata.chunks)
        leftOut.push_back("FLAC has no place for the " + printedName(chunk) + " chunk");
    auto padding = std::make_unique<FLAC::Metadata::Padding>();
    padding->set_length(kPaddingBytes);
    blocks.push_back(std::move(padding));

    std::vector<FLAC::Metadata::Prototype*> pointers;
    for (const auto& block : blocks) pointers.push_back(block.get());
    check(encoder.is_valid() && encoder.set_channels(slots) && encoder.set_bits_per_sample(bits) &&
          encoder.set_sample_rate(contents.format.sampleRate) && encoder.set_compression_level(kCompressionLevel) &&
          encoder.set_metadata(pointers.data(), static_cast<std::uint32_t>(pointers.size())));
    if (const auto status = encoder.init(); status != FLAC__STREAM_ENCODER_INIT_STATUS_OK) {
        check(encoder.error == 0);
        throw Failure(EX_SOFTWARE, path + ": libFLAC cannot start the file: " +
                                       FLAC__StreamEncoderInitStatusString[status] + "; write a .wav file instead");
    }
}

void FlacSink::addComments(const Layout& layout, const Tags& tags)
{
    char mask[16];
    std::snprintf(mask, sizeof mask, "0x%04X", layout.mask);
    auto comments = std::make_unique<FLAC::Metadata::VorbisComment>();
    comments->append_comment({"WAVEFORMATEXTENSIBLE_CHANNEL_MASK", mask});

    std::size_t room = kMaxBlockBytes - kBlockReserve;
    for (const auto& [name, values] : tags.texts) {
        const std::string key = name.to8Bit(true);
        for (const TagLib::String& value : values) {
            const std::string text = value.to8Bit(true);
            const bool legal = FLAC__format_vorbiscomment_entry_name_is_legal(key.c_str()) != 0 && isLegalText(text);
            const std::size_t bytes = key.size() + text.size() + 8;
            if (!legal || bytes > room) {
                leftOut.push_back("FLAC has no place for the tag " + key);
                continue;
            }
            room -= bytes;
            comments->append_comment({key.c_str(), text.data(), static_cast<std::uint32_t>(text.size())});
        }
    }
    blocks.push_back(std::move(comments));
}

void FlacSink::addPictures(const std::vector<Picture>& pictures)
{
    for (const Picture& picture : pictures) {
        const std::string mimeType = picture.mimeType.to8Bit(true);
        const std::string description = picture.description.to8Bit(true);
        // FLAC allows one 32-pixel icon of each type. Other formats do not declare the size of their icons.
        const bool isOther = picture.kind < 0 || picture.kind > kLastPictureKind || picture.kind == kFileIcon ||
                             picture.kind == kOtherFileIcon;
        auto block = std::make_unique<FLAC::Metadata::Picture>();
        block->set_type(static_cast<FLAC__StreamMetadata_Picture_Type>(isOther ? 0 : picture.kind));
        block->set_mime_type(mimeType.c_str());
        if (isLegalText(description)) block->set_description(reinterpret_cast<const FLAC__byte*>(description.c_str()));
        block->set_width(static_cast<FLAC__uint32>(picture.width));
        block->set_height(static_cast<FLAC__uint32>(picture.height));
        block->set_depth(static_cast<FLAC__uint32>(picture.depth));
        block->set_colors(static_cast<FLAC__uint32>(picture.colours));
        const bool fits = picture.data.size() + mimeType.size() + description.size() <= kMaxBlockBytes - kBlockReserve;
        if (fits) block->set_data(reinterpret_cast<const FLAC__byte*>(picture.data.data()), picture.data.size());
        if (fits && block->is_legal(nullptr)) {
            blocks.push_back(std::move(block));
        } else {
            leftOut.push_back("FLAC has no place for a picture of " + std::to_string(picture.data.size()) +
                              " bytes and type '" + mimeType + "'");
        }
    }
}

void FlacSink::addBlocks(const std::vector<FlacBlock>& inputBlocks)
{
    for (const FlacBlock& input : inputBlocks) {
        if (auto block = flacMetadata(input)) {
            blocks.push_back(std::move(block));
        } else {
            leftOut.push_back("the " + input.name() + " of the input is damaged and left out");
        }
    }
}

void FlacSink::write(const std::int32_t* interleaved, std::size_t frames)
{
    samples.resize(frames * slots);
    const std::uint32_t shift = 32 - bits;
    std::transform(interleaved, interleaved + samples.size(), samples.begin(),
                   [shift](std::int32_t sample) { return sample >> shift; });
    check(encoder.process_interleaved(samples.data(), static_cast<std::uint32_t>(frames)));
}

void FlacSink::finish()
{
    check(encoder.finish() && encoder.error == 0);
    file.commit();
}

void FlacSink::check(bool succeeded) const
{
    if (succeeded) return;
    file.failToWrite(encoder.error, encoder.get_state().resolved_as_cstring(encoder));
}

FLAC__StreamEncoderWriteStatus FlacSink::Encoder::write_callback(const FLAC__byte bytes[], std::size_t count,
                                                                 std::uint32_t /*samples*/,
                                                                 std::uint32_t /*currentFrame*/)
{
    const int failed = writeAll(descriptor, bytes, count);
    if (failed == 0) return FLAC__STREAM_ENCODER_WRITE_STATUS_OK;
    if (error == 0) error = failed;
    return FLAC__STREAM_ENCODER_WRITE_STATUS_FATAL_ERROR;
}

FLAC__StreamEncoderSeekStatus FlacSink::Encoder::seek_callback(FLAC__uint64 position)
{
    if (lseek(descriptor, static_cast<off_t>(position), SEEK_SET) >= 0) return FLAC__STREAM_ENCODER_SEEK_STATUS_OK;
    if (error == 0) error = errno;
    return FLAC__STREAM_ENCODER_SEEK_STATUS_ERROR;
}

FLAC__StreamEncoderTellStatus FlacSink::Encoder::tell_callback(FLAC__uint64* position)
{
    *position = static_cast<FLAC__uint64>(lseek(descriptor, 0, SEEK_CUR));
    return FLAC__STREAM_ENCODER_TELL_STATUS_OK;
}

} // namespace tarn
