// Texts between the 8-bit form of this library (UTF-8) and the system's 16-bit form.
#pragma once

#include <string>

namespace kqlib::platform {

/// The 16-bit form of a UTF-8 text. Empty when the text is not valid UTF-8 (or empty).
std::wstring ToWide(const char* text);

/// The UTF-8 form of a 16-bit text. Empty when it cannot be converted (or is empty).
std::string FromWide(const wchar_t* text);

} // namespace kqlib::platform
