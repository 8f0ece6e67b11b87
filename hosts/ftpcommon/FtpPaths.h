// FtpPaths: between the library's paths and those of the standard library.
#pragma once

#include "common/FilePath.h"

#include <filesystem>
#include <string>

namespace kqlib {

/// FilePath is UTF-8 on every system; the standard library takes plain text for something else on some.
inline std::filesystem::path ToStdPath(const FilePath& path)
{
    const std::string& text = path.GetText().str();
    return std::filesystem::path(std::u8string(text.begin(), text.end()));
}

inline FilePath FromStdPath(const std::filesystem::path& path)
{
    const std::u8string text = path.u8string();
    return FilePath(String(std::string(text.begin(), text.end())));
}

} // namespace kqlib
