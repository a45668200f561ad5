// Bytes as text.
// SPDX-License-Identifier: MIT
#pragma once

#include <string>

namespace tarn
{

/// The bytes in Base64 with padding (RFC 4648).
std::string base64Of(const std::string& bytes);

} // namespace tarn
