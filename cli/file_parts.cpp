// Finds the parts of an audio file and describes them.
// SPDX-License-Identifier: MIT
#include "cli/file_parts.h"

#include "cli/declared_length.h"
#include "cli/joined_streams.h"
#include "cli/mpeg_decoder.h"
#include "cli/mpeg_frames.h"
#include "cli/mpeg_index.h"
#include "cli/sample_formats.h"
#include "cli/sndfile_decoder.h"

#include <algorithm>
#include <stdexcept>

namespace tarn
{

namespace
{

/// A predicate for a part that cannot follow the first one; empty if it can.
std::string differenceBetween(const SF_INFO& first, const SF_INFO& other)
{
    const auto channels = [](int count) { return std::to_string(count) + (count == 1 ? " channel" : " channels"); };
    const auto bits = [](int format) {
        const std::uint32_t count = integerBits(format);
        return count == 0 ? "floating-point or lossy samples" : std::to_string(count) + " bits";
    };
    if (other.samplerate != first.samplerate)
        return "runs at " + std::to_string(other.samplerate) + " Hz instead of " + std::to_string(first.samplerate) +
               " Hz";
    if (other.channels != first.channels)
        return "has " + channels(other.channels) + " instead of " + std::to_string(first.channels);
    if (integerBits(other.format) != integerBits(first.format))
        return "has " + bits(other.format) + " instead of " + bits(first.format);
    return {};
}

/// Reads the length that the header of a WAVE, RF64, W64, AIFF, AU or CAF file declares: libsndfile does not notice
/// that such a file is cut.
void readDeclaredBytes(const FileBytes& file, const SF_INFO& facts, FilePart& part)
{
    part.lacksEnd = exceedsItsSizes(file);
    const auto audio = declaredAudioBytes(file);
    if (!audio || part.lacksEnd) return;
    const std::uint64_t frameBytes = storedBytes(facts.format) * static_cast<std::uint64_t>(facts.channels);
    if (audio->isStale) {
        const std::uint64_t unit = std::max<std::uint64_t>(frameBytes, 1);
        part.note = "its header declares " + std::to_string(audio->declared / unit) +
                    (frameBytes != 0 ? " frames" : " bytes of audio") + ", and it has " +
                    std::to_string(audio->present / unit) +
                    ": the recording was not finished; it is read to the end of the file";
    } else if (audio->present < audio->declared) {
        part.lacksEnd = frameBytes == 0;
        if (frameBytes != 0) part.declared = audio->declared / frameBytes;
    }
    if (const auto end = containerEnd(file); end && !audio->isStale) part.end = part.bytes.begin + *end;
}

/// The number of lost frames of MPEG audio: by the index if it agrees with the estimate.
std::uint64_t lostFrames(const MpegDamage& damage, const std::optional<MpegIndex>& index)
{
    if (damage.lostFrames == 0 || !index || index->frames + 1 <= damage.frames) return damage.lostFrames;
    const std::uint64_t exact = index->frames + 1 - damage.frames;
    return exact <= 2 * damage.lostFrames + 1 ? exact : damage.lostFrames;
}

/// Describes the length and the damage of MPEG audio.
void describeMpeg(int descriptor, const Decoder& opened, FilePart& part)
{
    const MpegDamage damage = findMpegDamage(descriptor, part.bytes);
    const auto index = firstMpegIndex(FileBytes(descriptor, part.bytes));
    const auto* const decoder = dynamic_cast<const MpegDecoder*>(&opened);
    if (decoder != nullptr && decoder->isLengthDeclared())
        part.declared = static_cast<std::uint64_t>(decoder->info().frames);
    part.end = damage.end;
    part.endsInsideFrame = damage.endsInsideFrame && !part.declared;
    part.skippedFrames = lostFrames(damage, index) * damage.frameSamples;
    if (damage.lostFrames == 0) return;
    const std::uint64_t removed = index ? damage.frameSamples + index->delaySamples : 0;
    part.damageBegin = damage.firstLost * damage.frameSamples;
    *part.damageBegin -= std::min(*part.damageBegin, removed);
}

/// ogg  the pages of the whole file; not used for other formats
FilePart describe(int descriptor, const Decoder& opened, ByteRange bytes, const OggLinks& ogg)
{
    const SF_INFO& facts = opened.info();
    FilePart part{.bytes = bytes, .declared = {}, .rate = facts.samplerate, .note = opened.note()};
    if (isOgg(facts)) {
        part.hasDamagedPages = dynamic_cast<const SndfileDecoder*>(&opened) != nullptr && ogg.skippedBytes > 0;
        part.end = ogg.end;
    }
    if (isMpeg(facts)) {
        describeMpeg(descriptor, opened, part);
        return part;
    }
    if (facts.frames == SF_COUNT_MAX) {
        // A FLAC encoder that writes to a pipe cannot declare the length; the decoder checks the end. Other Ogg streams
        // mark their last page.
        part.lacksEnd = isOgg(facts) && integerBits(facts.format) == 0;
        return part;
    }
    part.declared = static_cast<std::uint64_t>(facts.frames);
    readDeclaredBytes(FileBytes(descriptor, bytes), facts, part);
    return part;
}

} // namespace

FileParts findParts(int descriptor, std::uint64_t fileBytes)
{
    FileParts found;
    std::vector<ByteRange> ranges = containerParts(descriptor);
    found.first = openDecoder(descriptor, ranges.front());
    OggLinks ogg;
    if (isOgg(found.first->info())) {
        ogg = oggLinks(descriptor);
        ranges = ogg.links;
    }
    if (isMpeg(found.first->info())) ranges = mpegParts(descriptor);
    if (ranges.front().end < fileBytes) found.first = openDecoder(descriptor, ranges.front());
    const SF_INFO& info = found.first->info();
    found.parts.push_back(describe(descriptor, *found.first, ranges.front(), ogg));
    for (std::size_t i = 1; i < ranges.size(); ++i) {
        try {
            const auto decoder = openDecoder(descriptor, ranges[i]);
            found.parts.push_back(describe(descriptor, *decoder, ranges[i], ogg));
            found.parts.back().difference = differenceBetween(info, decoder->info());
        } catch (const std::runtime_error&) {
            found.parts.push_back(
                {.bytes = ranges[i], .declared = {}, .rate = info.samplerate, .difference = "contains no audio"});
        }
    }
    return found;
}

} // namespace tarn
