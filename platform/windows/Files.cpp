#include "platform/Files.h"

#include "platform/windows/OwnerOnly.h"
#include "platform/windows/SystemHeaders.h"
#include "platform/windows/WideText.h"

#include <algorithm>

namespace kqlib::platform {

namespace {

// One call moves at most this much: its counts have 32 bits.
constexpr std::size_t MAX_CHUNK_BYTES = std::size_t{1} << 30;

// Others may read, write, rename and delete a file while it is open here, as on the other systems.
constexpr DWORD SHARE_ALL = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

HANDLE ToNative(FileHandle handle)
{
    return reinterpret_cast<HANDLE>(handle); // NOLINT(performance-no-int-to-ptr): a handle, not an address
}

DWORD GetAccess(FileMode mode)
{
    switch (mode) {
    case FileMode::READ:
        return GENERIC_READ;
    case FileMode::WRITE:
        return GENERIC_WRITE;
    case FileMode::READWRITE:
        break;
    }
    return GENERIC_READ | GENERIC_WRITE;
}

// CREATE_ALWAYS would also change the attributes of a file that exists: a truncating open empties the file afterwards.
DWORD GetDisposition(bool create)
{
    return create ? OPEN_ALWAYS : OPEN_EXISTING;
}

// Takes a file that exists from everybody but the user of this process. True also on a volume that knows no rights.
bool MakeOwnerOnly(HANDLE file, SECURITY_ATTRIBUTES* security)
{
    if (SetKernelObjectSecurity(file, DACL_SECURITY_INFORMATION | PROTECTED_DACL_SECURITY_INFORMATION,
                                security->lpSecurityDescriptor))
        return true;
    const DWORD error = GetLastError();
    return error == ERROR_NOT_SUPPORTED || error == ERROR_INVALID_FUNCTION;
}

} // namespace

FileHandle OpenFile(const char* path, FileMode mode, bool create, bool truncate, bool ownerOnly)
{
    const std::wstring name = ToWide(path);
    if (name.empty())
        return INVALID_FILE_HANDLE;

    OwnerOnly rights;
    SECURITY_ATTRIBUTES* const security = ownerOnly ? rights.GetAttributes() : nullptr;
    if (ownerOnly && !security)
        return INVALID_FILE_HANDLE;

    const DWORD access = GetAccess(mode) | (truncate ? GENERIC_WRITE : 0) | (ownerOnly ? WRITE_DAC : 0);
    HANDLE const handle =
        CreateFileW(name.c_str(), access, SHARE_ALL, security, GetDisposition(create), FILE_ATTRIBUTE_NORMAL, nullptr);
    if (handle == INVALID_HANDLE_VALUE)
        return INVALID_FILE_HANDLE;
    const bool existed = GetLastError() == ERROR_ALREADY_EXISTS || !create;
    const auto file = reinterpret_cast<FileHandle>(handle);
    if ((ownerOnly && existed && !MakeOwnerOnly(handle, security)) || (truncate && !SetFileSize(file, 0))) {
        CloseFile(file);
        return INVALID_FILE_HANDLE;
    }
    return file;
}

void CloseFile(FileHandle handle)
{
    if (handle != INVALID_FILE_HANDLE)
        CloseHandle(ToNative(handle));
}

bool ReadFile(FileHandle handle, void* buffer, std::size_t size, std::size_t& got)
{
    DWORD moved = 0;
    const auto wanted = static_cast<DWORD>(std::min(size, MAX_CHUNK_BYTES));
    const bool done = ::ReadFile(ToNative(handle), buffer, wanted, &moved, nullptr) != FALSE;
    got = done ? moved : 0;
    return done;
}

bool WriteFile(FileHandle handle, const void* data, std::size_t size, bool* diskFull)
{
    if (diskFull != nullptr)
        *diskFull = false;
    const auto* from = static_cast<const unsigned char*>(data);
    while (size > 0) {
        DWORD moved = 0;
        const auto wanted = static_cast<DWORD>(std::min(size, MAX_CHUNK_BYTES));
        if (!::WriteFile(ToNative(handle), from, wanted, &moved, nullptr) || moved == 0) {
            const DWORD error = ::GetLastError();
            if (diskFull != nullptr)
                *diskFull = error == ERROR_DISK_FULL || error == ERROR_HANDLE_DISK_FULL;
            return false;
        }
        from += moved;
        size -= moved;
    }
    return true;
}

bool SeekFile(FileHandle handle, std::uint64_t offset)
{
    LARGE_INTEGER position;
    position.QuadPart = static_cast<LONGLONG>(offset);
    return SetFilePointerEx(ToNative(handle), position, nullptr, FILE_BEGIN) != FALSE;
}

bool GetFileSize(FileHandle handle, std::uint64_t& size)
{
    LARGE_INTEGER bytes;
    if (!GetFileSizeEx(ToNative(handle), &bytes))
        return false;
    size = static_cast<std::uint64_t>(bytes.QuadPart);
    return true;
}

bool SetFileSize(FileHandle handle, std::uint64_t size)
{
    // Leaves the file position where it is.
    FILE_END_OF_FILE_INFO end;
    end.EndOfFile.QuadPart = static_cast<LONGLONG>(size);
    return SetFileInformationByHandle(ToNative(handle), FileEndOfFileInfo, &end, sizeof(end)) != FALSE;
}

bool FlushFile(FileHandle handle)
{
    return FlushFileBuffers(ToNative(handle)) != FALSE;
}

bool ReplaceFileBy(const char* from, const char* to)
{
    const std::wstring source = ToWide(from);
    const std::wstring target = ToWide(to);
    return !source.empty() && !target.empty() &&
           MoveFileExW(source.c_str(), target.c_str(), MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH) != FALSE;
}

bool RemoveFile(const char* path)
{
    const std::wstring name = ToWide(path);
    return !name.empty() && DeleteFileW(name.c_str()) != FALSE;
}

char PathSeparator()
{
    return '\\';
}

} // namespace kqlib::platform
