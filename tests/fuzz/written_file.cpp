// Checks an output file of the command.
// SPDX-License-Identifier: MIT
#include "tests/fuzz/written_file.h"

#include "cli/file_source.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <memory>
#include <string_view>
#include <vector>

#include <FLAC++/decoder.h>
#include <sndfile.h>

namespace fuzz
{

namespace
{

int subtypeOf(std::uint32_t bits)
{
    switch (bits) {
    case 16:
        return SF_FORMAT_PCM_16;
    case 24:
        return SF_FORMAT_PCM_24;
    default:
        return SF_FORMAT_PCM_32;
    }
}

using Sndfile = std::unique_ptr<SNDFILE, int (*)(SNDFILE*)>;

std::string differing(const char* what, std::uint64_t found, std::uint64_t expected)
{
    return std::string(what) + ": " + std::to_string(found) + " instead of " + std::to_string(expected);
}

std::string faultForSndfile(const std::string& path, const WrittenFile& expected)
{
    SF_INFO info{};
    const Sndfile file(sf_open(path.c_str(), SFM_READ, &info), sf_close);
    if (file == nullptr) return sf_strerror(nullptr);
    const auto channels = static_cast<std::uint32_t>(info.channels);
    const auto rate = static_cast<std::uint32_t>(info.samplerate);
    const auto frames = static_cast<std::uint64_t>(info.frames);
    if (channels != expected.layout.slots) return differing("channels", channels, expected.layout.slots);
    if (rate != expected.format.sampleRate) return differing("rate", rate, expected.format.sampleRate);
    if (frames != expected.frames) return differing("frames promised", frames, expected.frames);
    if ((info.format & SF_FORMAT_SUBMASK) != subtypeOf(expected.format.bits)) return "another width of samples";

    constexpr sf_count_t kRead = 4096;
    std::vector<int> samples(kRead * channels);
    std::uint64_t read = 0;
    while (const sf_count_t got = sf_readf_int(file.get(), samples.data(), kRead))
        read += static_cast<std::uint64_t>(got);
    if (read != expected.frames) return differing("frames read", read, expected.frames);
    return {};
}

std::string faultOfChannelMap(const std::string& path, const tarn::Layout& layout)
{
    SF_INFO info{};
    const Sndfile file(sf_open(path.c_str(), SFM_READ, &info), sf_close);
    auto map = layout.channelMap;
    const auto bytes = static_cast<int>(layout.slots * sizeof(int));
    if (sf_command(file.get(), SFC_GET_CHANNEL_MAP_INFO, map.data(), bytes) != SF_TRUE) return "no channel map";
    return map == layout.channelMap ? "" : "another channel map";
}

/// The chunks of a RIFF file have to end exactly at the end of the file.
std::string faultOfChunks(const std::string& path)
{
    std::ifstream stream(path, std::ios::binary);
    const std::string file{std::istreambuf_iterator<char>(stream), {}};
    const auto number = [&file](std::size_t at) {
        std::size_t value = 0;
        for (std::size_t i = 0; i < 4; ++i) value |= std::size_t{static_cast<std::uint8_t>(file[at + i])} << 8 * i;
        return value;
    };
    if (file.size() < 12 || !file.starts_with("RIFF")) return "no RIFF file";
    if (number(4) + 8 != file.size()) return differing("bytes", file.size(), number(4) + 8);
    std::size_t at = 12;
    while (at + 8 <= file.size()) at += 8 + number(at + 4) + number(at + 4) % 2;
    return at == file.size() ? "" : differing("end of the last chunk", at, file.size());
}

/// Decodes a FLAC file with libFLAC and keeps the first error.
class FlacReader final : public FLAC::Decoder::File
{
public:
    explicit FlacReader(std::uint32_t mask) : expectedMask(mask) {}

    std::string faultOf(const std::string& path, std::uint64_t expectedFrames)
    {
        set_md5_checking(true);
        set_metadata_respond_all();
        if (init(path) != FLAC__STREAM_DECODER_INIT_STATUS_OK) return "libFLAC cannot open it";
        if (!process_until_end_of_stream()) note(std::string("libFLAC: ") + get_state().as_cstring());
        if (!finish()) note("the MD5 does not match the samples");
        if (frameCount != expectedFrames) note(differing("frames decoded", frameCount, expectedFrames));
        if (maskCount != 1) note(differing("channel masks", maskCount, 1));
        return firstFault;
    }

protected:
    FLAC__StreamDecoderWriteStatus write_callback(const FLAC__Frame* frame,
                                                  const FLAC__int32* const* /*samples*/) override
    {
        frameCount += frame->header.blocksize;
        return FLAC__STREAM_DECODER_WRITE_STATUS_CONTINUE;
    }

    void metadata_callback(const FLAC__StreamMetadata* block) override
    {
        const char* violation = nullptr;
        if (block->type == FLAC__METADATA_TYPE_PICTURE &&
            !FLAC__format_picture_is_legal(&block->data.picture, &violation))
            note(violation);
        if (block->type != FLAC__METADATA_TYPE_VORBIS_COMMENT) return;
        const FLAC__StreamMetadata_VorbisComment& comments = block->data.vorbis_comment;
        for (std::uint32_t i = 0; i < comments.num_comments; ++i) checkComment(comments.comments[i]);
    }

    void error_callback(FLAC__StreamDecoderErrorStatus status) override
    {
        note(FLAC__StreamDecoderErrorStatusString[status]);
    }

private:
    void checkComment(const FLAC__StreamMetadata_VorbisComment_Entry& comment)
    {
        if (!FLAC__format_vorbiscomment_entry_is_legal(comment.entry, comment.length)) note("an invalid comment");
        const std::string text(reinterpret_cast<const char*>(comment.entry), comment.length);
        constexpr std::string_view kName = "WAVEFORMATEXTENSIBLE_CHANNEL_MASK=";
        if (strncasecmp(text.c_str(), kName.data(), kName.size()) != 0) return;
        ++maskCount;
        if (std::strtoul(text.c_str() + kName.size(), nullptr, 0) != expectedMask)
            note("another channel mask: " + text);
    }

    void note(const std::string& fault)
    {
        if (firstFault.empty()) firstFault = fault;
    }

    std::uint32_t expectedMask;
    std::uint64_t frameCount = 0;
    std::uint64_t maskCount = 0;
    std::string firstFault;
};

} // namespace

std::string faultOf(const std::string& path, const WrittenFile& expected)
{
    if (const std::string fault = faultForSndfile(path, expected); !fault.empty()) return fault;
    if (path.ends_with(".flac")) return FlacReader(expected.layout.mask).faultOf(path, expected.frames);
    if (const std::string fault = faultOfChannelMap(path, expected.layout); !fault.empty()) return fault;
    return faultOfChunks(path);
}

} // namespace fuzz
