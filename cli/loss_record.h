// Collects the audio that is missing from a file.
// SPDX-License-Identifier: MIT
#pragma once

#include "cli/audio_source.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace tarn
{

/// The losses found so far while a file is read.
class LossRecord
{
public:
    /// Records the position of damage, in frames. The first position is kept.
    void markDamage(std::uint64_t frame) noexcept;

    /// Records frames that the file declares and does not have.
    void addMissing(std::uint64_t frames) noexcept { missing += frames; }

    /// Records frames that could not be decoded and became silence.
    void addSilenced(std::uint64_t frames) noexcept { silenced += frames; }

    /// Records frames that could not be decoded and are left out.
    void addSkipped(std::uint64_t frames) noexcept { skipped += frames; }

    /// Records that the end is missing, and that its length is not known.
    void setEndMissing() noexcept { lacksEnd = true; }

    /// Records that other audio of unknown length is missing.
    void setUnknownLoss() noexcept { losesUnknown = true; }

    /// Records the reason that a decoder gave. The last reason is kept.
    void setReason(const std::string& text) { reason = text; }

    /// Records audio in the file that is not read.
    ///
    /// what     a clause: "stream 2 of 2 ... is left out"
    /// seconds  none if unknown
    /// advice   what to do
    void addUnread(const std::string& what, std::optional<double> seconds, const std::string& advice);

    /// Error message of a decoder; empty if none failed.
    const std::string& decoderReason() const noexcept { return reason; }

    /// Whether frames are missing that the file declares.
    bool hasMissing() const noexcept { return missing > 0; }

    /// Describes all losses. Returns none if nothing is missing.
    ///
    /// frames    number of frames read
    /// advice    what to do about damage
    std::optional<Loss> loss(std::uint64_t frames, std::uint32_t sampleRate, const char* advice) const;

private:
    std::vector<std::string> damageFacts(std::uint64_t frames) const;

    std::uint64_t missing = 0;  ///< frames
    std::uint64_t silenced = 0; ///< frames
    std::uint64_t skipped = 0;  ///< frames
    bool lacksEnd = false;
    bool losesUnknown = false;
    std::optional<std::uint64_t> damageBegin; ///< frame
    std::string reason;
    std::vector<std::string> unread;
    double unreadSeconds = 0.0;
    bool unreadUnknown = false;
    std::string unreadAdvice; ///< for the first of them
};

} // namespace tarn
