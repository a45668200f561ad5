#pragma once

#include <string>

namespace tarn
{

/// A text in an encoding that its file does not name, as UTF-8: the bytes themselves where they are well-formed, else
/// what they mean in Windows-1252, of which ISO 8859-1 is a part.
std::string toUtf8(const std::string& bytes);

} // namespace tarn
