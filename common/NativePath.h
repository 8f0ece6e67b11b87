// NativePath: from the 8-bit path texts of the interface to the standard library's paths. Inside the library only.
#pragma once

#include "common/FilePath.h"

#include <filesystem>
#include <string>
#include <system_error>

namespace kqlib {

/// The path that a text (UTF-8) names. False for a text that is not UTF-8, where the system's names have another
/// encoding; native is as it was.
inline bool ToNativePath(const FilePath& path, std::filesystem::path& native)
{
    try {
        native = std::filesystem::path(std::u8string(path.GetText().begin(), path.GetText().end()));
        return true;
    } catch (const std::system_error&) {
        return false;
    }
}

/// Makes the folder and those above it where they are missing. False when it is not there afterwards; an empty path is
/// the current folder.
inline bool MakeFolders(const FilePath& folder)
{
    if (folder.empty())
        return true;
    std::error_code failure;
    std::filesystem::path path;
    if (!ToNativePath(folder, path))
        return false;
    std::filesystem::create_directories(path, failure);
    return std::filesystem::is_directory(path, failure);
}

} // namespace kqlib
