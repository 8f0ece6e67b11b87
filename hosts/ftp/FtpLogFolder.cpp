// FtpLogFolder: the folder that the logs go to.
#include "hosts/ftp/FtpLogFolder.h"

#include "hosts/ftpcommon/FtpPaths.h"
#include "platform/Files.h"

#include <filesystem>
#include <random>
#include <string>

namespace kqlib {

namespace {

namespace fs = std::filesystem;

bool Fail(String& error, const fs::path& folder, const char* what)
{
    error = "log_folder: " + FromStdPath(folder).GetText() + " " + what;
    return false;
}

/// Makes a file of a name that nobody else has, and removes it.
bool CanBeWritten(const fs::path& folder)
{
    const FilePath probe = FromStdPath(folder / ("kqftpd-probe-" + std::to_string(std::random_device()())));
    const platform::FileHandle handle = platform::MakeNewFile(probe.c_str(), platform::FileRights::OWNER);
    if (handle == platform::INVALID_FILE_HANDLE)
        return false;
    platform::CloseFile(handle);
    return platform::RemoveFile(probe.c_str());
}

} // namespace

bool FtpLogFolder::sProvide(const FilePath& folder, String& error)
{
    const fs::path path = ToStdPath(folder);
    std::error_code failure;
    if (fs::create_directories(path, failure))
        fs::permissions(path, fs::perms::owner_all | fs::perms::group_read | fs::perms::group_exec, failure);
    std::error_code ignored; // is_directory is false then
    if (!fs::is_directory(path, ignored))
        return Fail(error, path, fs::exists(path, ignored) ? "is not a folder" : "cannot be made");
    return CanBeWritten(path) || Fail(error, path, "cannot be written");
}

bool FtpLogFolder::sCanBeUsed(const FilePath& folder, String& error)
{
    // What is not there yet would be made in the nearest folder above that is there.
    fs::path path = ToStdPath(folder);
    std::error_code ignored;
    while (!fs::exists(path, ignored) && path.has_relative_path())
        path = path.parent_path();
    if (path.empty())
        path = ".";
    if (!fs::is_directory(path, ignored))
        return Fail(error, path, "is not a folder");
    return CanBeWritten(path) || Fail(error, path, "cannot be written");
}

} // namespace kqlib
