// Decodes with libsndfile.
// SPDX-License-Identifier: MIT
#include "cli/sndfile_decoder.h"

#include "cli/chunk_walk.h"
#include "cli/declared_length.h"
#include "cli/quiet_standard_error.h"
#include "cli/text.h"

#include <algorithm>
#include <cstddef>
#include <stdexcept>

namespace tarn
{

namespace
{

FileWindow& windowOf(void* data)
{
    return *static_cast<FileWindow*>(data);
}

constexpr SF_VIRTUAL_IO kCalls{
    .get_filelen = [](void* data) { return static_cast<sf_count_t>(windowOf(data).size()); },
    .seek = [](sf_count_t offset, int whence, void* data) -> sf_count_t { return windowOf(data).seek(offset, whence); },
    .read = [](void* to, sf_count_t count, void* data) -> sf_count_t {
        return static_cast<sf_count_t>(
            windowOf(data).read(to, static_cast<std::size_t>(std::max<sf_count_t>(count, 0))));
    },
    .write = [](const void* /*from*/, sf_count_t /*count*/, void* /*data*/) -> sf_count_t { return 0; },
    .tell = [](void* data) { return static_cast<sf_count_t>(windowOf(data).position()); },
};

/// The part without a huge chunk and what follows it, and without the bytes after the audio of W64, which libsndfile
/// would read as audio.
ByteRange withoutRest(int descriptor, ByteRange part)
{
    const FileBytes file(descriptor, part);
    if (correctedSize(file)) return part; // all that follows the stale size is audio
    std::uint64_t end = std::min(firstHugeChunk(file, file.id3v2Size(0)), part.size());
    const auto audio = audioEnd(file);
    if (file.marks(0, "riff") && audio) end = std::min(end, *audio);
    return {.begin = part.begin, .end = part.begin + end};
}

} // namespace

SndfileDecoder::SndfileDecoder(int descriptor, ByteRange part) : window(descriptor, withoutRest(descriptor, part))
{
    // libsndfile trusts most sizes, and refuses truncated CAF files and those of unknown size.
    const FileBytes bytes(descriptor, part);
    if (const auto size = correctedSize(bytes)) window.replace(size->position, size->bytes);
    hideLargeTexts(bytes);
    SF_VIRTUAL_IO calls = kCalls;
    const QuietStandardError quiet; // its MPEG decoder prints errors
    file.reset(sf_open_virtual(&calls, SFM_READ, &facts, &window));
    if (file == nullptr) throw std::runtime_error(sf_strerror(nullptr));
}

/// Makes libsndfile skip texts of CAF that it would load into memory, up to the size of the file.
void SndfileDecoder::hideLargeTexts(const FileBytes& bytes)
{
    constexpr std::uint64_t kMaxTexts = std::uint64_t{1} << 24;
    if (!bytes.marks(0, "caff")) return;
    for (const ChunkHead& chunk : listChunks(bytes, 0).chunks)
        if (chunk.name == "info" && chunk.contents.size() > kMaxTexts) window.replace(chunk.begin, "free");
}

std::size_t SndfileDecoder::read(std::int32_t* samples, std::size_t frames)
{
    if ((facts.format & SF_FORMAT_SUBMASK) == SF_FORMAT_PCM_16) {
        const auto channels = static_cast<std::size_t>(facts.channels);
        shorts.resize(frames * channels);
        const sf_count_t count = sf_readf_short(file.get(), shorts.data(), static_cast<sf_count_t>(frames));
        const auto got = static_cast<std::size_t>(std::max<sf_count_t>(count, 0));
        std::transform(shorts.begin(), shorts.begin() + static_cast<std::ptrdiff_t>(got * channels), samples,
                       [](std::int16_t sample) { return sample * 0x10000; });
        return got;
    }
    const sf_count_t count = sf_readf_int(file.get(), samples, static_cast<sf_count_t>(frames));
    return static_cast<std::size_t>(std::max<sf_count_t>(count, 0));
}

std::size_t SndfileDecoder::read(double* samples, std::size_t frames)
{
    const sf_count_t count = sf_readf_double(file.get(), samples, static_cast<sf_count_t>(frames));
    return static_cast<std::size_t>(std::max<sf_count_t>(count, 0));
}

std::string SndfileDecoder::error() const
{
    if (window.error() != 0) return systemError(window.error());
    return sf_error(file.get()) == SF_ERR_NO_ERROR ? std::string() : sf_strerror(file.get());
}

} // namespace tarn
