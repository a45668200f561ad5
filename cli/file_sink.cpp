#include "cli/file_sink.h"

#include "cli/failure.h"
#include "cli/sndfile_opening.h"
#include "cli/text.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <filesystem>

#include <sys/stat.h>
#include <unistd.h>

namespace tarn
{

namespace
{

// RF64 becomes plain WAVE with an extensible header when it is closed below 4 GiB.
constexpr std::array<Container, 2> kContainers{{
    {.extension = ".wav", .majorFormat = SF_FORMAT_RF64, .maxBits = 32},
    {.extension = ".flac", .majorFormat = SF_FORMAT_FLAC, .maxBits = 24},
}};

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

/// The comment by which a FLAC file names its channels. Without it, six channels may have their surrounds at the sides.
std::string flacChannelTag(const Layout& layout)
{
    char mask[16];
    std::snprintf(mask, sizeof mask, "0x%04X", layout.mask);
    return std::string("WAVEFORMATEXTENSIBLE_CHANNEL_MASK=") + mask;
}

/// Text as long as that comment, under another name. libsndfile writes comments under a few names of its own: one that
/// is free keeps the place.
std::string flacPlaceholder(const Layout& layout, const FlacName& name)
{
    return std::string(flacChannelTag(layout).size() - std::string_view(name.name).size(), '.');
}

} // namespace

const Container& containerOf(const std::string& path)
{
    std::string extension = std::filesystem::path(path).extension().string();
    for (char& c : extension) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    const auto found = std::find_if(kContainers.begin(), kContainers.end(),
                                    [&extension](const Container& c) { return c.extension == extension; });
    if (found == kContainers.end())
        throw Failure(EX_USAGE, path + ": its extension names no format that can be written; end the name in .wav or "
                                       ".flac, or write raw PCM to '-'");
    return *found;
}

FileSink::FileSink(const std::string& path, bool force, std::optional<FileIdentity> input, const Layout& outputLayout,
                   StreamFormat format, const Metadata& metadata)
    : layout(outputLayout), sampleBytes(format.bytesPerSample()), file(path, force, input), target{file.descriptor()}
{
    const Container& container = containerOf(path);
    if (format.bits > container.maxBits)
        throw Failure(EX_USAGE, path + ": FLAC cannot hold samples of " + std::to_string(format.bits) +
                                    " bits; add --bits 24, or write a .wav file");
    openSndfile(container, format, metadata);
}

FileSink::~FileSink()
{
    if (handle != nullptr) sf_close(handle);
}

void FileSink::openSndfile(const Container& container, StreamFormat format, const Metadata& metadata)
{
    SF_VIRTUAL_IO calls = {.get_filelen = sizeOf, .seek = seekIn, .read = readFrom, .write = writeTo, .tell = tellOf};
    SF_INFO info{};
    info.samplerate = static_cast<int>(format.sampleRate);
    info.channels = static_cast<int>(layout.slots);
    info.format = container.majorFormat | subtypeOf(format.bits);
    {
        const std::lock_guard opening(sndfileOpening());
        handle = sf_open_virtual(&calls, SFM_WRITE, &info, &target);
        check(handle != nullptr);
    }

    isFlac = container.majorFormat == SF_FORMAT_FLAC;
    if (isFlac) {
        // First of all, so that it is near the start of the file.
        placeholder = freeFlacName(metadata.tags);
        sf_set_string(handle, placeholder.kind, flacPlaceholder(layout, placeholder).c_str());
        Metadata others = metadata;
        std::erase_if(others.tags, [this](const Tag& tag) { return tag.kind == placeholder.kind; });
        writeMetadata(handle, others);
    } else {
        auto map = layout.channelMap;
        sf_command(handle, SFC_RF64_AUTO_DOWNGRADE, nullptr, SF_TRUE);
        sf_command(handle, SFC_SET_CHANNEL_MAP_INFO, map.data(), static_cast<int>(layout.slots * sizeof(int)));
        writeMetadata(handle, metadata);
    }
}

void FileSink::write(const std::uint8_t* slots, std::size_t frames)
{
    samples.resize(frames * layout.slots);
    for (std::size_t i = 0; i < samples.size(); ++i)
        samples[i] = loadLeftJustified(slots + i * sampleBytes, sampleBytes);
    const auto count = static_cast<sf_count_t>(frames);
    check(sf_writef_int(handle, samples.data(), count) == count && target.error == 0);
}

void FileSink::finish()
{
    complete();
    file.commit();
}

void FileSink::complete()
{
    if (handle == nullptr) return;
    SNDFILE* const closing = handle;
    handle = nullptr;
    check(sf_close(closing) == SF_ERR_NO_ERROR && target.error == 0);
    if (isFlac) nameChannelsInFlac();
    file.complete();
}

/// Puts the tag in the place that was kept for it in the first few hundred bytes.
void FileSink::nameChannelsInFlac()
{
    std::array<char, 4096> head{};
    const ssize_t read = pread(target.descriptor, head.data(), head.size(), 0);
    const std::string_view bytes(head.data(), static_cast<std::size_t>(std::max<ssize_t>(read, 0)));
    const std::size_t place = bytes.find(placeholder.name + flacPlaceholder(layout, placeholder));
    if (place == std::string_view::npos)
        throw Failure(EX_SOFTWARE, file.name() + ": the FLAC file has no place for the names of its channels");

    const std::string tag = flacChannelTag(layout);
    const auto start = static_cast<off_t>(place);
    if (pwrite(target.descriptor, tag.data(), tag.size(), start) != static_cast<ssize_t>(tag.size())) {
        target.error = errno;
        check(false);
    }
}

void FileSink::check(bool succeeded) const
{
    if (succeeded) return;
    const std::string reason = target.error != 0 ? systemError(target.error) : sf_strerror(handle);
    throw Failure(EX_IOERR, file.name() + ": writing failed: " + reason +
                                "; no output was left. Make room, or choose another place");
}

sf_count_t FileSink::sizeOf(void* data)
{
    struct stat status = {};
    fstat(static_cast<Target*>(data)->descriptor, &status);
    return status.st_size;
}

sf_count_t FileSink::seekIn(sf_count_t offset, int whence, void* data)
{
    return lseek(static_cast<Target*>(data)->descriptor, offset, whence);
}

sf_count_t FileSink::readFrom(void* to, sf_count_t count, void* data)
{
    const ssize_t got = ::read(static_cast<Target*>(data)->descriptor, to, static_cast<std::size_t>(count));
    return std::max<ssize_t>(got, 0);
}

sf_count_t FileSink::writeTo(const void* from, sf_count_t count, void* data)
{
    Target& target = *static_cast<Target*>(data);
    const auto* bytes = static_cast<const std::uint8_t*>(from);
    sf_count_t done = 0;
    while (done < count) {
        const ssize_t written = ::write(target.descriptor, bytes + done, static_cast<std::size_t>(count - done));
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0) {
            if (target.error == 0) target.error = written < 0 ? errno : EIO;
            break;
        }
        done += written;
    }
    return done;
}

sf_count_t FileSink::tellOf(void* data)
{
    return lseek(static_cast<Target*>(data)->descriptor, 0, SEEK_CUR);
}

} // namespace tarn
