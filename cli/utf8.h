#pragma once

#include <string>
#include <string_view>

namespace tarn
{

/// Whether bytes are well-formed UTF-8.
bool isUtf8(std::string_view bytes);

/// A text in an encoding that its file does not name, as UTF-8: the bytes themselves where they are well-formed, else
/// what they mean in Windows-1252, of which ISO 8859-1 is a part.
std::string toUtf8(std::string_view bytes);

} // namespace tarn
