// MessageTexts: the message codes of the library in words, and texts of strangers made fit to print.
#pragma once

#include "common/Messages.h"
#include "common/String.h"

#include <nlohmann/json_fwd.hpp>

#include <string>

namespace kq {

/// One code in words. A code without words gives "message" and its number.
std::string MessageText(int code);

/// The codes as a JSON list of {"code", "text"}.
nlohmann::json MessagesToJson(const kqlib::Messages& msgs);

/// A text that came from elsewhere, safe for a terminal: control characters as % and two hexadecimal digits.
std::string Printable(const kqlib::String& text);

/// A JSON document on one line; bytes that are no UTF-8 are replaced.
void PrintJson(const nlohmann::json& document);

} // namespace kq
