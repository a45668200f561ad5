// Records the losses of an audio file while its parts are read.
// SPDX-License-Identifier: MIT
#include "cli/declared_length.h"
#include "cli/failure.h"
#include "cli/file_source.h"
#include "cli/interrupt.h"
#include "cli/sample_formats.h"
#include "cli/text.h"

#include <algorithm>

namespace tarn
{

/// Records that the current part is not read.
void FileSource::recordUnreadPart()
{
    const FilePart& part = parts[current];
    const std::string what = "stream " + std::to_string(current + 1) + " of " + std::to_string(parts.size()) +
                             ", from byte " + std::to_string(part.bytes.begin) + ", " + part.difference +
                             " and is left out";
    std::optional<double> seconds;
    if (part.declared) seconds = static_cast<double>(*part.declared) / part.rate;
    losses.addUnread(what, seconds, splitAdvice(part.bytes.begin));
}

/// Records the file that follows the current part, the last one, if it is not read.
void FileSource::recordFollowingFile(std::uint64_t end)
{
    if (end == 0 || end >= file.bytes) return;
    const FileBytes bytes(file.descriptor.number());
    for (const std::uint64_t begin : {end, end + end % 2}) {
        const std::string kind = fileKindAt(bytes, begin);
        if (kind.empty()) continue;
        losses.addUnread(kind + " of " + std::to_string(file.bytes - begin) + " bytes follows its audio, from byte " +
                             std::to_string(begin) + ", and is left out",
                         std::nullopt, splitAdvice(begin));
        return;
    }
}

/// How to upmix audio that begins at a byte.
std::string FileSource::splitAdvice(std::uint64_t begin) const
{
    if (file.fromPipe) return "join only streams of one format";
    return "cut it off and upmix it on its own: tail -c +" + std::to_string(begin + 1) + " " + shellQuoted(file.name) +
           " > rest";
}

/// Records frames of the current part that the decoder did not deliver.
///
/// missing  of those that the part declares
void FileSource::addMissing(std::uint64_t missing)
{
    // Frames that are lost in the middle of MPEG audio are missing, except the padding that is not removed at its end.
    constexpr std::uint64_t kMaxPadding = 4096;
    const FilePart& part = parts[current];
    const std::uint64_t skipped = decoder->skippedFrames() + part.skippedFrames;
    if (!part.declared) {
        losses.addSkipped(skipped);
    } else if (part.skippedFrames == 0 || missing > part.skippedFrames + kMaxPadding) {
        losses.addMissing(missing);
    } else if (missing > 0) {
        losses.addSkipped(std::max(missing, part.skippedFrames));
    } else {
        losses.setReason("some of its frames are damaged");
    }
}

/// The frame where the damage of the current part begins; none if it is not known.
///
/// frames  number of frames that the decoder delivered
std::optional<std::uint64_t> FileSource::damageOfPart(std::uint64_t frames) const
{
    // An error is noticed with the first frame of a call.
    constexpr std::uint64_t kMaxLead = 8192;
    const FilePart& part = parts[current];
    if (!part.damageBegin) return errorBegin;
    const std::uint64_t begin = partBegin + std::min(*part.damageBegin, frames);
    return errorBegin && *errorBegin + kMaxLead < begin ? errorBegin : begin;
}

/// Records the losses of the current part.
void FileSource::endPart()
{
    throwIfInterrupted(); // a decoder reports the end of the file
    const FilePart& part = parts[current];
    const std::uint64_t frames = position - partBegin;
    const std::string error = decoder->error();
    losses.addSilenced(decoder->silencedFrames());
    const std::uint64_t missing = part.declared ? *part.declared - std::min(*part.declared, frames) : 0;
    addMissing(missing);
    // The MPEG decoder continues after an error.
    const bool endsAtError = !part.declared && !error.empty() && !isMpeg(info);
    if (part.lacksEnd || part.endsInsideFrame || endsAtError) losses.setEndMissing();
    if (!part.declared && !error.empty() && isMpeg(info) && part.skippedFrames == 0) losses.setUnknownLoss();
    if (!error.empty()) losses.setReason(error);
    if (decoder->hasWrongChecksum()) {
        losses.setReason("its samples do not match the checksum that it declares for all of them");
        losses.setUnknownLoss();
    }
    if (part.endsInsideFrame) losses.setReason("its last frame is incomplete");
    if (part.hasDamagedPages) {
        losses.setReason("some of its pages are damaged");
        if (!losses.hasMissing()) losses.setUnknownLoss();
    }
    const bool endsHere = losses.hasMissing() || part.lacksEnd || part.endsInsideFrame;
    if (const auto begin = damageOfPart(frames)) losses.markDamage(*begin);
    if (endsHere || endsAtError) losses.markDamage(position);
    if (current + 1 == parts.size()) recordFollowingFile(part.end != 0 ? part.end : decoder->endPosition());
}

std::optional<Loss> FileSource::loss() const
{
    if (position == 0)
        throw Failure(EX_DATAERR,
                      file.name + ": contains no audio: 0 frames" +
                          (losses.decoderReason().empty() ? "" : " could be decoded (" + losses.decoderReason() + ")") +
                          "; check " + (file.fromPipe ? "the command before the pipe" : "where it comes from"));

    return losses.loss(position, static_cast<std::uint32_t>(info.samplerate),
                       file.fromPipe ? "check the command before the pipe" : "get a complete copy of the file");
}

} // namespace tarn
