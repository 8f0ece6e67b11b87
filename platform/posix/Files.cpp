#include "platform/Files.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <limits>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

namespace kqlib::platform {

namespace {

constexpr mode_t ALL_RIGHTS = 07777;

// One call moves at most this much, which every system takes.
constexpr std::size_t MAX_CHUNK_BYTES = std::size_t{1} << 30;

int ToDescriptor(FileHandle handle)
{
    return static_cast<int>(handle);
}

template <class Call> auto Uninterrupted(Call call)
{
    auto result = call();
    while (result < 0 && errno == EINTR)
        result = call();
    return result;
}

int GetAccess(FileMode mode)
{
    switch (mode) {
    case FileMode::READ:
        return O_RDONLY;
    case FileMode::WRITE:
        return O_WRONLY;
    case FileMode::READWRITE:
        break;
    }
    return O_RDWR;
}

// The mask of the process takes rights away from these.
mode_t GetMode(FileRights rights)
{
    switch (rights) {
    case FileRights::OWNER:
        return 0600;
    case FileRights::OWNER_AND_GROUP:
        return 0640;
    case FileRights::USUAL:
        break;
    }
    return 0666;
}

// False for an offset that the system's signed type cannot hold.
bool ToOffset(std::uint64_t from, off_t& to)
{
    if (from > static_cast<std::uint64_t>(std::numeric_limits<off_t>::max()))
        return false;
    to = static_cast<off_t>(from);
    return true;
}

bool IsFolder(int descriptor)
{
    struct stat status = {};
    return ::fstat(descriptor, &status) == 0 && S_ISDIR(status.st_mode);
}

FileHandle Open(const char* path, int flags, FileRights rights)
{
    const int descriptor = Uninterrupted([&] { return ::open(path, flags | O_CLOEXEC, GetMode(rights)); });
    if (descriptor < 0)
        return INVALID_FILE_HANDLE;
    if (IsFolder(descriptor)) {
        ::close(descriptor);
        return INVALID_FILE_HANDLE;
    }
    return descriptor;
}

// Takes a regular file from everybody but its owner; only then it is emptied, when that was asked for. Anything else,
// say a device, is left as it is.
bool MakeOwnerOnly(int descriptor, bool truncate)
{
    struct stat status = {};
    if (::fstat(descriptor, &status) != 0)
        return false;
    if (!S_ISREG(status.st_mode))
        return true;
    const mode_t rights = status.st_mode & ALL_RIGHTS;
    const mode_t wanted = rights & GetMode(FileRights::OWNER);
    return (rights == wanted || ::fchmod(descriptor, wanted) == 0) &&
           (!truncate || Uninterrupted([&] { return ::ftruncate(descriptor, 0); }) == 0);
}

} // namespace

FileHandle OpenFile(const char* path, FileMode mode, bool create, bool truncate, FileRights rights)
{
    // Emptying a file needs the right to write it.
    const int access = truncate && mode == FileMode::READ ? O_RDWR : GetAccess(mode);
    const bool ownerOnly = rights == FileRights::OWNER;
    const FileHandle file =
        Open(path, access | (create ? O_CREAT : 0) | (truncate && !ownerOnly ? O_TRUNC : 0), rights);
    if (ownerOnly && file != INVALID_FILE_HANDLE && !MakeOwnerOnly(ToDescriptor(file), truncate)) {
        CloseFile(file);
        return INVALID_FILE_HANDLE;
    }
    return file;
}

FileHandle OpenFileToAppend(const char* path, FileRights rights)
{
    return Open(path, O_WRONLY | O_CREAT | O_APPEND, rights);
}

FileHandle MakeNewFile(const char* path, FileRights rights)
{
    return Open(path, O_WRONLY | O_CREAT | O_EXCL, rights);
}

void CloseFile(FileHandle handle)
{
    if (handle != INVALID_FILE_HANDLE)
        ::close(ToDescriptor(handle));
}

bool ReadFile(FileHandle handle, void* buffer, std::size_t size, std::size_t& got)
{
    const ssize_t moved =
        Uninterrupted([&] { return ::read(ToDescriptor(handle), buffer, std::min(size, MAX_CHUNK_BYTES)); });
    got = moved < 0 ? 0 : static_cast<std::size_t>(moved);
    return moved >= 0;
}

bool WriteFile(FileHandle handle, const void* data, std::size_t size, bool* diskFull, std::size_t* written)
{
    const auto* const from = static_cast<const unsigned char*>(data);
    std::size_t done = 0;
    ssize_t moved = 1;
    int error = 0;
    while (done < size && moved > 0) {
        moved = Uninterrupted(
            [&] { return ::write(ToDescriptor(handle), from + done, std::min(size - done, MAX_CHUNK_BYTES)); });
        error = moved < 0 ? errno : 0;
        done += moved > 0 ? static_cast<std::size_t>(moved) : 0;
    }
    if (diskFull != nullptr)
        *diskFull = error == ENOSPC || error == EDQUOT;
    if (written != nullptr)
        *written = done;
    return done == size;
}

bool SeekFile(FileHandle handle, std::uint64_t offset)
{
    off_t position = 0;
    return ToOffset(offset, position) && ::lseek(ToDescriptor(handle), position, SEEK_SET) == position;
}

bool GetFileSize(FileHandle handle, std::uint64_t& size)
{
    struct stat status = {};
    if (::fstat(ToDescriptor(handle), &status) != 0)
        return false;
    size = static_cast<std::uint64_t>(status.st_size);
    return true;
}

bool GetFileWriteTime(FileHandle handle, std::int64_t& wallMs)
{
    struct stat status = {};
    if (::fstat(ToDescriptor(handle), &status) != 0)
        return false;
    wallMs = std::int64_t{status.st_mtim.tv_sec} * 1000 + status.st_mtim.tv_nsec / 1000000;
    return true;
}

bool IsFileAt(FileHandle handle, const char* path)
{
    struct stat open = {};
    struct stat named = {};
    return ::fstat(ToDescriptor(handle), &open) == 0 && ::stat(path, &named) == 0 && open.st_dev == named.st_dev &&
           open.st_ino == named.st_ino;
}

bool SetFileSize(FileHandle handle, std::uint64_t size)
{
    off_t length = 0;
    return ToOffset(size, length) && Uninterrupted([&] { return ::ftruncate(ToDescriptor(handle), length); }) == 0;
}

bool FlushFile(FileHandle handle)
{
    return Uninterrupted([&] { return ::fsync(ToDescriptor(handle)); }) == 0;
}

bool ReplaceFileBy(const char* from, const char* to)
{
    return ::rename(from, to) == 0;
}

bool CopyFileRights(const char* from, FileHandle to)
{
    constexpr mode_t groupRights = S_IRWXG;
    struct stat source = {};
    struct stat target = {};
    if (::stat(from, &source) != 0 || ::fstat(ToDescriptor(to), &target) != 0)
        return false;
    mode_t mode = source.st_mode & ALL_RIGHTS;
    const bool same = source.st_uid == target.st_uid && source.st_gid == target.st_gid;
    constexpr auto unchanged = static_cast<uid_t>(-1);
    if (!same && ::fchown(ToDescriptor(to), source.st_uid, source.st_gid) != 0 && source.st_gid != target.st_gid &&
        ::fchown(ToDescriptor(to), unchanged, source.st_gid) != 0)
        mode &= ~groupRights;
    // A volume without rights of its own gives every file the same, and lets nobody change them.
    return (target.st_mode & ALL_RIGHTS) == mode || ::fchmod(ToDescriptor(to), mode) == 0;
}

bool FlushFolderOf(const char* path)
{
    const std::string text = path;
    const std::size_t end = text.rfind('/');
    // The folder of "/name" is "/".
    const std::string folder = end == std::string::npos ? "." : text.substr(0, std::max<std::size_t>(end, 1));
    const int descriptor = Uninterrupted([&] { return ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC); });
    if (descriptor < 0)
        return false;
    const bool flushed = FlushFile(descriptor);
    ::close(descriptor);
    return flushed;
}

bool RemoveFile(const char* path)
{
    return ::unlink(path) == 0;
}

char PathSeparator()
{
    return '/';
}

} // namespace kqlib::platform
