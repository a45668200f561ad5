// Collects losses and describes them with figures.
// SPDX-License-Identifier: MIT
#include "cli/loss_record.h"

#include "cli/text.h"

namespace tarn
{

namespace
{

constexpr std::size_t kMaxUnread = 3; ///< streams to name in a message

std::string joined(const std::vector<std::string>& clauses)
{
    std::string text;
    for (const std::string& clause : clauses) text += (text.empty() ? "" : "; ") + clause;
    return text;
}

std::string framesText(std::uint64_t frames)
{
    return std::to_string(frames) + (frames == 1 ? " frame" : " frames");
}

} // namespace

void LossRecord::markDamage(std::uint64_t frame) noexcept
{
    if (!damageBegin) damageBegin = frame;
}

void LossRecord::addUnread(const std::string& what, std::optional<double> seconds, const std::string& advice)
{
    if (unread.empty()) unreadAdvice = advice;
    unread.push_back(what);
    unreadSeconds += seconds.value_or(0.0);
    unreadUnknown = unreadUnknown || !seconds;
}

/// The facts about damage; empty if there is none.
std::vector<std::string> LossRecord::damageFacts(std::uint64_t frames) const
{
    std::vector<std::string> facts;
    if (missing > 0)
        facts.push_back("it declares " + std::to_string(frames + missing) + " frames and has " +
                        std::to_string(frames));
    if (silenced > 0)
        facts.push_back(framesText(silenced) + (silenced == 1 ? " is damaged and becomes" : " are damaged and become") +
                        " silence");
    if (skipped > 0)
        facts.push_back(framesText(skipped) + (skipped == 1 ? " is damaged and is" : " are damaged and are") +
                        " left out");
    if (lacksEnd) facts.push_back("its end is missing after frame " + std::to_string(frames));
    if (!reason.empty()) facts.push_back(reason);
    return facts;
}

std::optional<Loss> LossRecord::loss(std::uint64_t frames, std::uint32_t sampleRate, const char* advice) const
{
    std::vector<std::string> facts = damageFacts(frames);
    const bool isDamaged = !facts.empty();
    for (std::size_t i = 0; i < unread.size() && i < kMaxUnread; ++i) facts.push_back(unread[i]);
    if (unread.size() > kMaxUnread)
        facts.push_back(std::to_string(unread.size() - kMaxUnread) + " more streams are left out");
    if (facts.empty()) return std::nullopt;

    const std::uint64_t lostFrames = missing + silenced + skipped;
    const double seconds = static_cast<double>(lostFrames) / sampleRate + unreadSeconds;
    const bool unknown = lacksEnd || losesUnknown || unreadUnknown;
    constexpr double kShownSeconds = 0.0005; ///< smaller losses would be shown as 0.000 seconds
    if (unknown) {
        facts.emplace_back("how much is missing is not known");
    } else if (seconds >= kShownSeconds) {
        facts.push_back(formatted("%.3f seconds are missing", seconds));
    } else if (lostFrames > 0) {
        facts.push_back(framesText(lostFrames) + (lostFrames == 1 ? " is missing" : " are missing"));
    }
    if (damageBegin) facts.push_back("the damage begins at " + durationText(*damageBegin, sampleRate));
    return Loss{.message = (isDamaged ? "is cut short or damaged: " : "is not read completely: ") + joined(facts),
                .seconds = unknown ? std::nullopt : std::optional(seconds),
                .advice = isDamaged ? advice : unreadAdvice};
}

} // namespace tarn
