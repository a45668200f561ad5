// Describes what is missing from a damaged film.
// SPDX-License-Identifier: MIT
#include "film/film_loss.h"

#include "cli/text.h"

#include <algorithm>
#include <string>
#include <vector>

namespace tarn
{

namespace
{

constexpr const char* kAdvice = "get an undamaged copy, or listen to that place";
constexpr const char* kChangeAdvice = "cut the film there, and upmix the stereo parts";
constexpr std::uint32_t kMilliseconds = 1000;

std::string timeText(double seconds)
{
    return durationText(static_cast<std::uint64_t>(std::max(seconds, 0.0) * kMilliseconds), kMilliseconds);
}

std::string counted(std::uint64_t count, const std::string& one, const std::string& many)
{
    return std::to_string(count) + " " + (count == 1 ? one : many);
}

} // namespace

std::optional<Loss> lossOf(const TrackDamage& track, const FileDamage& file, unsigned index, std::uint32_t rateHz)
{
    const auto seconds = [rateHz](std::uint64_t frames) { return static_cast<double>(frames) / rateHz; };
    const auto shown = [](double value) { return formatted("%.3f s", value); };
    std::vector<std::string> facts;
    if (track.change)
        facts.push_back("track " + std::to_string(index) + " changes to " +
                        counted(static_cast<std::uint64_t>(track.change->channels), "channel", "channels") + " at " +
                        timeText(track.change->seconds) + ", and only stereo is upmixed");
    if (track.damagedPackets > 0)
        facts.push_back(counted(track.damagedPackets, "packet", "packets") + " of track " + std::to_string(index) +
                        (track.damagedPackets == 1 ? " is" : " are") + " damaged");
    if (track.silenced > 0)
        facts.push_back(shown(seconds(track.silenced)) + " of its sound are missing and become silence");
    if (track.skipped > 0)
        facts.push_back(shown(seconds(track.skipped)) + " of its sound are left out, because their time has passed");
    if (file.errors > 0)
        facts.push_back(counted(static_cast<std::uint64_t>(file.errors), "part", "parts") +
                        " of the file cannot be read");
    if (file.missingEndSeconds > 0.0)
        facts.push_back("it declares a length of " + timeText(file.declaredSeconds) + " and ends at " +
                        timeText(file.declaredSeconds - file.missingEndSeconds));
    if (track.missingAtEnd > 0 && file.missingEndSeconds <= 0.0)
        facts.push_back("the last " + shown(seconds(track.missingAtEnd)) + " of its sound are missing");
    if (facts.empty()) return std::nullopt;
    const bool isDamaged = !track.change || track.damagedPackets > 0 || file.errors > 0 || file.missingEndSeconds > 0.0;
    if (track.firstFrame && isDamaged)
        facts.push_back("the damage of the sound begins at " +
                        timeText(static_cast<double>(*track.firstFrame) / rateHz));

    std::string message = isDamaged ? "is cut short or damaged: " : "";
    for (const std::string& fact : facts) message += (&fact == &facts.front() ? "" : "; ") + fact;
    // Nobody knows what the unreadable parts held.
    std::optional<double> lost;
    if (file.errors == 0)
        lost = seconds(track.silenced + track.skipped + track.uncertain) +
               std::max(file.missingEndSeconds, seconds(track.missingAtEnd));
    return Loss{.message = message, .seconds = lost, .advice = isDamaged ? kAdvice : kChangeAdvice};
}

} // namespace tarn
