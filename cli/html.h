// Texts and elements of HTML.
// SPDX-License-Identifier: MIT
#pragma once

#include <string>

namespace tarn
{

/// A text of a file or a user as HTML shows it. Unprintable characters are replaced.
std::string escapedHtml(const std::string& text);

/// <tag attributes>content</tag>, on a line.
///
/// attributes  can be empty
/// content     HTML
std::string element(const std::string& tag, const std::string& attributes, const std::string& content);

/// An element whose content begins on a line of its own.
std::string block(const std::string& tag, const std::string& attributes, const std::string& content);

} // namespace tarn
