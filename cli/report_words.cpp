// Words the verdict, the loudness and the work of the limiter.
// SPDX-License-Identifier: MIT
#include "cli/report_words.h"

#include "cli/json.h"
#include "cli/stereo_analysis.h"
#include "cli/text.h"
#include "stream/gain.h"

#include <algorithm>
#include <cmath>
#include <string>

namespace tarn
{

namespace
{

/// A limiter that works for a larger share of the time gets advice.
constexpr double kMuchLimiting = 0.1;

/// The value that "%.1f" shows.
double asShown(double value)
{
    return std::stod(formatted("%.1f", value));
}

/// Whether both sides are nearly the same, so that the upmix is in the centre.
bool isCentred(const Json& info)
{
    return info.at("kind") == "dual-mono";
}

/// Where settings other than the default ones play the centre and the bass of a recording in the middle.
std::string exceptions(const Json& upmix)
{
    if (!upmix.contains("width"))
        return " In " + upmix.at("layout").get<std::string>() + ", FL and FR play the centre together.";
    std::string text;
    if (upmix.at("bass") == "steered") text += " Here the bass goes there too, because it is steered.";
    const double width = upmix.at("width").get<double>();
    if (width < 1.0) text += formatted(" With a width of %g,", width) + " FL and FR play a part of the centre.";
    return text;
}

/// "The side (left minus right) is 8.2 dB softer than the middle (left plus right)"
std::string comparison(const std::string& first, const std::string& second, double decibels, const std::string& equal)
{
    const double shown = asShown(decibels);
    if (shown == 0.0) return equal;
    return first + formatted(" is %.1f dB ", std::abs(shown)) + (shown > 0.0 ? "louder than " : "softer than ") +
           second;
}

/// The band with the highest correlation among those that count.
std::string sharedBand(const Json& info)
{
    const double overall = info.at("overall").at("level_dbfs").get<double>();
    const Json* best = nullptr;
    double share = 0.0;
    for (const Json& band : info.at("bands")) {
        if (band.at("correlation").is_null() || band.at("level_dbfs").is_null()) continue;
        const double energy = std::pow(10.0, (band.at("level_dbfs").get<double>() - overall) / 10.0);
        if (energy < kBandShare || (best != nullptr && band.at("correlation") <= best->at("correlation"))) continue;
        best = &band;
        share = energy;
    }
    if (best == nullptr) return "";
    return formatted(" In the octave around %g Hz, ", best->at("centre_hz").get<double>()) +
           formatted("which has %.0f %% of the energy, ", 100.0 * share) +
           formatted("it is %.2f.", best->at("correlation").get<double>());
}

} // namespace

std::string numberText(const Json& number, const char* format)
{
    return number.is_null() ? "silent" : formatted(format, number.get<double>());
}

std::string sentenceOf(std::string text)
{
    if (!text.empty() && text.front() >= 'a' && text.front() <= 'z')
        text.front() = static_cast<char>(text.front() - 32);
    return text + ".";
}

std::string verdictText(const Json& entry)
{
    const Json& info = entry.at("info");
    const bool isMono = info.at("channels") == 1;
    std::string text = isMono && isCentred(info) ? "Mono: an upmix moves everything but the bass to the centre."
                                                 : sentenceOf(info.at("verdict").get<std::string>());
    if (isCentred(info)) text += exceptions(entry.at("upmix"));
    return text;
}

std::string verdictFigures(const Json& entry)
{
    const Json& info = entry.at("info");
    if (info.at("channels") == 1 || info.at("kind") == "silence") return "";
    if (info.at("identical").get<bool>()) return "All samples of left and right are equal.";
    const Json& overall = info.at("overall");
    if (overall.at("correlation").is_null()) return "One side has no sound.";
    const double correlation = overall.at("correlation").get<double>();
    std::string text = formatted("The correlation of left and right is %.2f ", correlation) +
                       "(1: equal, 0: nothing in common, -1: opposite).";
    if (info.at("kind") == "stereo" && correlation < kSharedCorrelation) text += sharedBand(info);
    if (!overall.at("side_to_mid_db").is_null())
        text += " " +
                comparison("The side (left minus right)", "the middle (left plus right)",
                           overall.at("side_to_mid_db").get<double>(),
                           "The side (left minus right) is as loud as the middle (left plus right)") +
                ".";
    if (!overall.at("left_to_right_db").is_null())
        text += " " +
                comparison("Left", "right", overall.at("left_to_right_db").get<double>(), "Left is as loud as right") +
                ".";
    return text;
}

Json highestPeak(const Json& entry)
{
    Json peak;
    for (const Json& channel : entry.at("upmix").at("channels")) {
        const Json& own = channel.at("peak_dbfs");
        if (!own.is_null() && (peak.is_null() || own.get<double>() > peak.get<double>())) peak = own;
    }
    return peak;
}

std::string loudnessText(const Json& entry, const char* name, const char* format)
{
    const Json& loudness = entry.at(name);
    return loudness.is_null() && !highestPeak(entry).is_null() ? "none" : numberText(loudness, format);
}

std::string loudnessAfterText(const Json& entry)
{
    const Json& before = entry.at("before");
    const Json& after = entry.at("after");
    std::string text = loudnessText(entry, "after", "%.1f LUFS");
    if (!before.is_null() && !after.is_null())
        text += formatted(" (%+.1f LU)", asShown(after.get<double>()) - asShown(before.get<double>()));
    return text;
}

double limitedShare(const Json& entry)
{
    const Json& upmix = entry.at("upmix");
    const Json& limiter = upmix.at("limiter");
    const double seconds = upmix.at("seconds").get<double>();
    return limiter.is_null() || seconds == 0.0 ? 0.0 : limiter.at("seconds").get<double>() / seconds;
}

std::string limiterText(const Json& entry)
{
    const double share = limitedShare(entry);
    if (share == 0.0) return "not needed";
    constexpr double kSmallest = 0.1;
    const double reduction = entry.at("upmix").at("limiter").at("largest_reduction_db").get<double>();
    return formatted("up to %.1f dB, ", std::max(reduction, kSmallest)) +
           (share < 0.01 ? "less than 1 % of the time" : formatted("%.0f %% of the time", 100.0 * share));
}

std::string limiterAdvice(const Json& entry)
{
    if (limitedShare(entry) <= kMuchLimiting) return "";
    const Json& upmix = entry.at("upmix");
    const double reduction = upmix.at("limiter").at("largest_reduction_db").get<double>();
    const double gain = std::floor((upmix.at("gain_db").get<double>() - reduction) * 10.0) / 10.0;
    std::string text = "The limiter works much of the time.";
    if (gain >= zrk_tarn::kMinGainDb) text += formatted(" With --gain %.1f, the upmix needs none.", gain);
    const Json& before = entry.at("before");
    const Json& after = entry.at("after");
    if (!before.is_null() && !after.is_null() && asShown(after.get<double>()) > asShown(before.get<double>()))
        text += " --loudness-match of tarn upmix lowers the gain until the upmix is as loud as the source.";
    return text;
}

} // namespace tarn
