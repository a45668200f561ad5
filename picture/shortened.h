// Texts that fit a width.
// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <string>

namespace tarn
{

/// The width of a text. It grows with every character.
using TextWidth = std::function<double(const std::string&)>;

/// A text that fits a width: its longest beginning with an ellipsis, if its end is cut off. Measures only a few texts
/// that are not much longer than the result.
///
/// text  UTF-8
std::string shortened(const std::string& text, double width, const TextWidth& widthOf);

} // namespace tarn
