// Figures of a recording as a report words them.
// SPDX-License-Identifier: MIT
#pragma once

#include "cli/json_type.h"

#include <string>

namespace tarn
{

// The functions read the object of measureEntry. Their results are plain text.

/// A number in a text; "silent" for the null of minus infinity.
std::string numberText(const Json& number, const char* format);

/// A text with a capital and a full stop.
std::string sentenceOf(std::string text);

/// What kind of stereo the source is, and where its upmix plays: sentences.
std::string verdictText(const Json& entry);

/// The figures of left against right that the verdict comes from: sentences. Empty for mono and silence.
std::string verdictFigures(const Json& entry);

/// The highest peak of all outputs, dBFS; null for silence.
Json highestPeak(const Json& entry);

/// A loudness in a text. Recordings shorter than a block of BS.1770, or softer than its gate, have none.
///
/// name  before or after
std::string loudnessText(const Json& entry, const char* name, const char* format);

/// Loudness of the upmix, and its difference from that of the source as both are shown.
std::string loudnessAfterText(const Json& entry);

/// The share of the time in which the limiter reduces the level, 0 to 1; 0 without a limiter.
double limitedShare(const Json& entry);

/// The work of the limiter. The upmix has one.
std::string limiterText(const Json& entry);

/// How to avoid a limiter that works more than 10 % of the time: a sentence. Empty for less.
std::string limiterAdvice(const Json& entry);

} // namespace tarn
