// Writes WAV and RF64 with libsndfile.
// SPDX-License-Identifier: MIT
#include "cli/wave_sink.h"

#include "cli/failure.h"
#include "cli/text.h"
#include "cli/wave_tags.h"

#include <algorithm>
#include <cerrno>

#include <sys/stat.h>
#include <unistd.h>

namespace tarn
{

namespace
{

int subtypeOf(std::uint32_t bits) noexcept
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

} // namespace

WaveSink::WaveSink(const std::string& path, bool force, std::optional<FileIdentity> input, const FileContents& contents)
    : slotCount(contents.layout.slots),
      bits(contents.format.bits),
      metadata(contents.metadata),
      file(path, force, input, contents.beforeNaming),
      target{file.descriptor()}
{
    SF_VIRTUAL_IO calls = {.get_filelen = sizeOf, .seek = seekIn, .read = readFrom, .write = writeTo, .tell = tellOf};
    SF_INFO info{};
    info.samplerate = static_cast<int>(contents.format.sampleRate);
    info.channels = static_cast<int>(slotCount);
    // libsndfile turns RF64 into WAVE with an extensible header if the file is below 4 GiB when it is closed.
    info.format = SF_FORMAT_RF64 | subtypeOf(contents.format.bits);
    handle.reset(sf_open_virtual(&calls, SFM_WRITE, &info, &target));
    check(handle != nullptr);
    auto map = contents.layout.channelMap;
    sf_command(handle.get(), SFC_RF64_AUTO_DOWNGRADE, nullptr, SF_TRUE);
    sf_command(handle.get(), SFC_SET_CHANNEL_MAP_INFO, map.data(), static_cast<int>(slotCount * sizeof(int)));
    if (contents.metadata.broadcast && !writeBroadcastInfo(handle.get(), *contents.metadata.broadcast))
        leftOut.emplace_back("libsndfile refuses the broadcast extension of the input");
}

void WaveSink::write(const std::int32_t* samples, std::size_t frames)
{
    const auto count = static_cast<sf_count_t>(frames);
    if (bits == 16) {
        shorts.resize(frames * slotCount);
        std::transform(samples, samples + shorts.size(), shorts.begin(),
                       [](std::int32_t sample) { return static_cast<std::int16_t>(sample >> 16); });
        check(sf_writef_short(handle.get(), shorts.data(), count) == count && target.error == 0);
    } else {
        check(sf_writef_int(handle.get(), samples, count) == count && target.error == 0);
    }
}

void WaveSink::finish()
{
    check(sf_close(handle.release()) == SF_ERR_NO_ERROR && target.error == 0);
    target.error = appendTags(target.descriptor, metadata, leftOut);
    check(target.error == 0);
    file.commit();
}

void WaveSink::check(bool succeeded) const
{
    if (succeeded) return;
    file.failToWrite(target.error, sf_strerror(handle.get()));
}

sf_count_t WaveSink::sizeOf(void* data)
{
    struct stat status = {};
    fstat(static_cast<Target*>(data)->descriptor, &status);
    return status.st_size;
}

sf_count_t WaveSink::seekIn(sf_count_t offset, int whence, void* data)
{
    return lseek(static_cast<Target*>(data)->descriptor, offset, whence);
}

sf_count_t WaveSink::readFrom(void* to, sf_count_t count, void* data)
{
    const ssize_t got = ::read(static_cast<Target*>(data)->descriptor, to, static_cast<std::size_t>(count));
    return std::max<ssize_t>(got, 0);
}

sf_count_t WaveSink::writeTo(const void* from, sf_count_t count, void* data)
{
    Target& target = *static_cast<Target*>(data);
    const int error = writeAll(target.descriptor, from, static_cast<std::size_t>(count));
    if (error == 0) return count;
    if (target.error == 0) target.error = error;
    return 0;
}

sf_count_t WaveSink::tellOf(void* data)
{
    return lseek(static_cast<Target*>(data)->descriptor, 0, SEEK_CUR);
}

} // namespace tarn
