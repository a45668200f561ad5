// Converts text of unknown encoding to UTF-8.
// SPDX-License-Identifier: MIT
#pragma once

#include <string>

namespace tarn
{

/// Converts a text of unknown encoding to UTF-8. Keeps valid UTF-8 and reads other bytes as Windows-1252, which
/// includes the printable characters of ISO 8859-1.
std::string toUtf8(const std::string& bytes);

} // namespace tarn
