// NativePath: from the 8-bit path texts of the interface to the standard library's paths. Inside the library only.
#pragma once

#include "common/FilePath.h"

#include <filesystem>
#include <string>
#include <system_error>

namespace kqlib {

/// The path that a text (UTF-8) names.
inline std::filesystem::path ToNativePath(const FilePath& path)
{
    return std::filesystem::path(std::u8string(path.GetText().begin(), path.GetText().end()));
}

/// Makes the folder and those above it where they are missing. False when it is not there afterwards; an empty path is
/// the current folder.
inline bool MakeFolders(const FilePath& folder)
{
    if (folder.empty())
        return true;
    std::error_code failure;
    const std::filesystem::path path = ToNativePath(folder);
    std::filesystem::create_directories(path, failure);
    return std::filesystem::is_directory(path, failure);
}

} // namespace kqlib
