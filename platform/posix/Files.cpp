#include "platform/Files.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <limits>
#include <sys/stat.h>
#include <unistd.h>

namespace kqlib::platform {

namespace {

constexpr mode_t OWNER_ONLY = 0600;
constexpr mode_t ALL_RIGHTS = 07777;
constexpr mode_t AS_THE_MASK_ALLOWS = 0666;

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
    return ((rights & ~OWNER_ONLY) == 0 || ::fchmod(descriptor, rights & OWNER_ONLY) == 0) &&
           (!truncate || Uninterrupted([&] { return ::ftruncate(descriptor, 0); }) == 0);
}

} // namespace

FileHandle OpenFile(const char* path, FileMode mode, bool create, bool truncate, bool ownerOnly)
{
    // Emptying a file needs the right to write it.
    const int access = truncate && mode == FileMode::READ ? O_RDWR : GetAccess(mode);
    const int flags = access | (create ? O_CREAT : 0) | (truncate && !ownerOnly ? O_TRUNC : 0) | O_CLOEXEC;
    const int descriptor =
        Uninterrupted([&] { return ::open(path, flags, ownerOnly ? OWNER_ONLY : AS_THE_MASK_ALLOWS); });
    if (descriptor < 0)
        return INVALID_FILE_HANDLE;
    if (IsFolder(descriptor) || (ownerOnly && !MakeOwnerOnly(descriptor, truncate))) {
        ::close(descriptor);
        return INVALID_FILE_HANDLE;
    }
    return descriptor;
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

bool WriteFile(FileHandle handle, const void* data, std::size_t size, bool* diskFull)
{
    if (diskFull != nullptr)
        *diskFull = false;
    const auto* from = static_cast<const unsigned char*>(data);
    while (size > 0) {
        const ssize_t moved =
            Uninterrupted([&] { return ::write(ToDescriptor(handle), from, std::min(size, MAX_CHUNK_BYTES)); });
        if (moved <= 0) {
            if (diskFull != nullptr)
                *diskFull = moved < 0 && (errno == ENOSPC || errno == EDQUOT);
            return false;
        }
        from += moved;
        size -= static_cast<std::size_t>(moved);
    }
    return true;
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

bool RemoveFile(const char* path)
{
    return ::unlink(path) == 0;
}

char PathSeparator()
{
    return '/';
}

} // namespace kqlib::platform
